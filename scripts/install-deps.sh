#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with. Safe to run again:
# apt-get skips what is already there, and the package list is refreshed only when stale.
set -euo pipefail

# mosquitto and openssl: the MQTT broker that kivnm-bridge's tests and demo start on a port of their
# own (the package's system service is never relied on), and the certificates of its TLS test.
packages=(
  build-essential cmake ninja-build pkg-config
  clang clang-format libclang-rt-14-dev
  libfmt-dev libboost-dev libxml2-dev libspdlog-dev nlohmann-json3-dev
  liblttng-ust-dev lttng-tools babeltrace2
  libgtest-dev libgmock-dev googletest
  libmosquitto-dev mosquitto openssl
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ "${#missing[@]}" -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
