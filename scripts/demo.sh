#!/usr/bin/env bash
# Builds the project. The demo system itself (broker process, components and the watch tool) comes
# with the host program; until then this only shows that everything builds.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset default
cmake --build --preset default -j "$(nproc)"
echo "demo: the libraries are built in build/default; the running demo system is not written yet."
