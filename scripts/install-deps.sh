#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with. Safe to run again:
# apt-get skips what is already there, and the package list is refreshed only when stale.
#   scripts/install-deps.sh           the packages of a native build
#   scripts/install-deps.sh armhf     and those of the cross build for 32-bit ARM: Debian's cross
#                                     toolchain, the libraries as armhf multiarch packages, qemu-user
set -euo pipefail
target="${1:-}"

# mosquitto and openssl: the MQTT broker that kivnm-bridge's tests and demo start on a port of their
# own (the package's system service is never relied on), and the certificates of its TLS test.
packages=(
  build-essential cmake ninja-build pkg-config
  clang clang-format libclang-rt-14-dev
  libfmt-dev libboost-dev libxml2-dev libspdlog-dev nlohmann-json3-dev libsystemd-dev
  liblttng-ust-dev lttng-tools babeltrace2
  libgtest-dev libgmock-dev googletest
  libmosquitto-dev mosquitto openssl
)
case "$target" in
  "") ;;
  armhf)
    packages+=(crossbuild-essential-armhf g++-arm-linux-gnueabihf qemu-user
      libfmt-dev:armhf libboost-dev:armhf libxml2-dev:armhf libspdlog-dev:armhf libsystemd-dev:armhf
      liblttng-ust-dev:armhf libgtest-dev:armhf libgmock-dev:armhf libmosquitto-dev:armhf)
    ;;
  *)
    echo "install-deps: unknown target '$target' (known: armhf)" >&2
    exit 2
    ;;
esac

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
if [ -n "$target" ] && ! dpkg --print-foreign-architectures | grep -qx "$target"; then
  $SUDO dpkg --add-architecture "$target"
fi
# A mirror that fails one index (a sync in progress) leaves the others usable; what is then missing shows
# in the install below.
$SUDO apt-get update -q || echo "install-deps: apt-get update failed in part; going on with the lists it has" >&2

# A multiarch library must have the same version for both architectures. When an index of the target is
# older than the machine's (a security update not yet listed for it), the installed host package and the
# target's differ, and apt refuses. Then both are set to the target's version, which the host's archive
# lists too, and the install is tried again.
log="$(mktemp)"
trap 'rm -f "$log"' EXIT
aligned=()
for attempt in 1 2 3 4 5 6; do
  if $SUDO apt-get install -y -q --no-install-recommends --allow-downgrades "${missing[@]}" "${aligned[@]}" \
      >"$log" 2>&1; then
    tail -n 3 "$log"
    exit 0
  fi
  mapfile -t unmatched < <(sed -n "s/.*Depends: \([^ ]*\):$target .*/\1/p" "$log" | sort -u)
  if [ -z "$target" ] || [ "${#unmatched[@]}" -eq 0 ] || [ "$attempt" -eq 6 ]; then
    cat "$log" >&2
    exit 1
  fi
  for p in "${unmatched[@]}"; do
    version="$(apt-cache policy "$p:$target" | sed -n 's/^  Candidate: //p')"
    echo "install-deps: $p of $target is at $version; installing that version for both architectures" >&2
    aligned+=("$p:$(dpkg --print-architecture)=$version" "$p:$target=$version")
  done
done
