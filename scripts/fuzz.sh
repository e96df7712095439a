#!/usr/bin/env bash
# Builds the fuzz preset (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer) and runs every
# fuzz target for the same number of seconds, 20 unless given:
#
#     bash scripts/fuzz.sh [seconds-per-target]
#
# Each target starts from its seeds in fuzz/corpus/<target> and keeps what it learns in
# build/fuzz/corpus/<target> for the next run. The script fails on the first crash, sanitizer report,
# leak, time-out or broken property; the input that caused it is left in build/fuzz/findings/<target>/
# and replays with `build/fuzz/fuzz/<target> <input>`.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-20}"
targets=(RemotingReaderFuzzer NotificationFuzzer NotificationRegistrationInfoFuzzer TulServerFuzzer ServiceStubFuzzer
  SettingsFuzzer)

cmake --preset fuzz
cmake --build --preset fuzz -j "$(nproc)"

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
for target in "${targets[@]}"; do
  corpus="build/fuzz/corpus/$target"
  findings="build/fuzz/findings/$target"
  log="build/fuzz/$target.log"
  mkdir -p "$corpus" "$findings"
  if ! "build/fuzz/fuzz/$target" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
      -artifact_prefix="$findings/" "$corpus" "fuzz/corpus/$target" >"$log" 2>&1; then
    tail -n 80 "$log"
    echo "fuzz: $target FAILED; the input is in $findings/, the whole output in $log" >&2
    exit 1
  fi
  echo "fuzz: $target: $(grep -o 'Done [0-9]* runs in [0-9]* second(s)' "$log" | tail -n 1), no crash"
done
