#!/usr/bin/env bash
# The demo system: installs what is needed, builds, and runs for about ten seconds
#   kivnm-host --broker   the main process, with the broker,
#   demo-monitor          a component that subscribes to Demo.Plant and prints what it gets,
#   demo-sensor           a component that registers Demo.Plant.* and sends readings,
#   kivnm watch           the command-line tool, joined as a process of its own,
# then asks the tool for the system's names and statistics, and stops everything with SIGINT.
# Usage: scripts/demo.sh [seconds]
#        scripts/demo.sh --two-systems [seconds]   two systems joined by MQTT (scripts/demo-two-systems.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = "--two-systems" ]; then
  shift
  exec bash scripts/demo-two-systems.sh "$@"
fi
seconds="${1:-10}"
bash scripts/install-deps.sh >/dev/null
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target kivnm-host kivnm demo-sensor demo-monitor >/dev/null

bin=build/default
export KIV_SYSTEM="demo-$$"
source scripts/lib/system.sh
trap stop EXIT

echo "== system $KIV_SYSTEM, endpoints in $KIV_ENDPOINTS"
# The broker delivers after a set-up window of two seconds, in which the components join.
run host "$bin/tools/kivnm-host" --name Main --broker --start-after 2
run monitor "$bin/examples/demo-monitor"
run sensor "$bin/examples/demo-sensor" --period-ms 500
run watch "$bin/tools/kivnm" watch Demo.Plant.Alarm Demo.Cli
sleep 3
"$bin/tools/kivnm" send Demo.Cli.Hello "hello from the shell" --severity Warning | sed "s/^/[kivnm] /"
sleep $((seconds > 3 ? seconds - 3 : 0))
echo "== what the system knows"
"$bin/tools/kivnm" list registered | sed "s/^/[kivnm] /"
"$bin/tools/kivnm" stats | sed "s/^/[kivnm] /"
echo "== stopping"
stop
trap - EXIT
echo "== demo finished"
