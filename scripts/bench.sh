#!/usr/bin/env bash
# Builds the benchmarks with the default preset and runs them: a table on stdout, the same figures as
# JSON in build/default/bench-results.json. Arguments go to the benchmark program, e.g.
#   scripts/bench.sh --runs=3 --calls=100000      a quicker run
#   scripts/bench.sh --only=cross                 the rows whose key contains "cross"
#   scripts/bench.sh --only=cross-process,bridge  the bridge beside the cross-process row of the same run
#   scripts/bench.sh --counts --only=floor,cross-process --runs=3
#                                                 also system calls, context switches, CPU time and heap
#                                                 allocations per notification and process (the system
#                                                 calls counted slow the rates: compare rates without it)
# Every figure is the median of the runs (default 5) with their min and max; the ratios to the floor rows
# come from the same run when it has them.
set -euo pipefail
cd "$(dirname "$0")/.."
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}"
  export CMAKE_C_COMPILER_LAUNCHER="${CMAKE_C_COMPILER_LAUNCHER:-ccache}"
fi
args=()
for arg in "$@"; do
  if [[ "$arg" == --counts ]]; then
    args+=(--counts=1)
  else
    args+=("$arg")
  fi
done
cmake --preset default -DKIV_BUILD_BENCHMARKS=ON >/dev/null
cmake --build --preset default -j "$(nproc)" --target NotificationPathBenchmark kivnm-bridge >/dev/null
echo "machine: $(nproc) cores, $(uname -sr); $(date -u '+%Y-%m-%d %H:%M UTC'); load average $(cut -d' ' -f1-3 /proc/loadavg)"
exec build/default/benchmarks/NotificationPathBenchmark --json=build/default/bench-results.json "${args[@]}"
