#!/usr/bin/env bash
# Builds for a target machine with Debian's cross toolchain and runs the tests under qemu-user:
#
#     bash scripts/cross-test.sh armhf [ctest arguments]
#
# Installs what it needs (scripts/install-deps.sh armhf), builds this machine's kivnm-host and kivnm with
# the default preset (the tests of mixed machines start them), configures, builds and tests the preset of
# the target. CTest puts the emulator (CMAKE_CROSSCOMPILING_EMULATOR of cmake/toolchains/) in front of each
# test, and the tests in front of each program they start. Further arguments go to ctest, e.g. -L unit.
# At the end: the tests run, passed, failed and skipped (with the reason), and the time taken.
set -euo pipefail
cd "$(dirname "$0")/.."
target="${1:?usage: cross-test.sh armhf [ctest arguments]}"
shift
case "$target" in
  armhf) ;;
  *) echo "cross-test: unknown target '$target' (known: armhf)" >&2; exit 2 ;;
esac
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}"
  export CMAKE_C_COMPILER_LAUNCHER="${CMAKE_C_COMPILER_LAUNCHER:-ccache}"
fi
jobs="$(nproc)"

start=$(date +%s)
bash scripts/install-deps.sh "$target"
cmake --preset default >/dev/null
cmake --build --preset default -j "$jobs" --target kivnm-host kivnm
native_done=$(date +%s)
cmake --preset "$target"
cmake --build --preset "$target" -j "$jobs"
built=$(date +%s)

junit="build/$target/cross-test.xml"
status=0
ctest --preset "$target" -j "$jobs" --output-junit "$PWD/$junit" "$@" || status=$?
tested=$(date +%s)
if [ ! -f "$junit" ]; then
  echo "cross-test: ctest wrote no report ($junit)" >&2
  exit $((status != 0 ? status : 1))
fi

# The skipped tests with the reason each gave.
echo "== skipped under emulation:"
awk '/<testcase / { match($0, /name="[^"]*"/); name = substr($0, RSTART + 6, RLENGTH - 7) }
     /status="notrun"|<skipped/ { skipped[name] = 1 }
     /Skipped$/ { getline reason; reasons[name] = reason }
     END { n = 0; for (t in skipped) { print "   " t ": " (t in reasons ? reasons[t] : "(no reason given)"); ++n }
           if (n == 0) print "   none" }' "$junit"
tests=$(grep -c '<testcase ' "$junit" || true)
failed=$(grep -c 'status="fail"' "$junit" || true)
skipped=$(grep -c 'status="notrun"' "$junit" || true)
echo "== $target: $tests tests run under emulation; $((tests - failed - skipped)) passed, $failed failed, $skipped skipped"
echo "== time: packages and native programs $((native_done - start)) s, cross build $((built - native_done)) s, tests $((tested - built)) s, in all $((tested - start)) s"
exit $status
