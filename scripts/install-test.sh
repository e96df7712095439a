#!/usr/bin/env bash
# Installs a build tree into a temporary prefix, builds the consumer of tests/Install/consumer against it
# with CMake and a second one with pkg-config, runs both and checks what they print.
#   scripts/install-test.sh <build-dir>
set -euo pipefail

build_dir="$(cd "${1:?usage: install-test.sh <build-dir>}" && pwd)"
source_dir="$(cd "$(dirname "$0")/.." && pwd)"
consumer_dir="$source_dir/tests/Install/consumer"
expected="received: hello from an installed library"

cache_value() { sed -n "s/^$1:[A-Z]*=//p" "$build_dir/CMakeCache.txt"; }

work="$(mktemp -d "${TMPDIR:-/tmp}/kiv-install-test.XXXXXX")"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build_dir" --prefix "$prefix" > "$work/install.log"

# The consumer is compiled as the libraries were: same compiler, and the sanitizers' runtime if they
# carry one.
compiler="$(cache_value CMAKE_CXX_COMPILER)"
sanitize="$(cache_value KIV_SANITIZE)"
flags=""
if [[ -n "$sanitize" ]]; then
  flags="-fsanitize=${sanitize//;/,}"
fi

# Every installed header finds what it includes among the installed ones.
(cd "$prefix/include" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include <\1>|') > "$work/all-headers.cpp"
"$compiler" -std=c++17 -fsyntax-only -I "$prefix/include" "$work/all-headers.cpp"

check() {
  local output
  output="$("$@")"
  if [[ "$output" != "$expected" ]]; then
    echo "$1 printed '$output', expected '$expected'" >&2
    exit 1
  fi
}

# With find_package; CMake gives the program the run path to the installed libraries.
launcher=()
if command -v ccache > /dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S "$consumer_dir" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" "${launcher[@]}" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" > "$work/configure.log"
cmake --build "$work/cmake-build" > "$work/build.log"
check "$work/cmake-build/KivNmConsumer"

# With pkg-config, in one line.
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
libdir="$(pkg-config --variable=libdir kiv-nm)"
# shellcheck disable=SC2046,SC2086
"$compiler" -std=c++17 $flags "$consumer_dir/main.cpp" -o "$work/pkg-config-consumer" \
  $(pkg-config --cflags --libs kiv-nm) -Wl,-rpath,"$libdir"
check "$work/pkg-config-consumer"

echo "install test passed"
