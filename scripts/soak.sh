#!/usr/bin/env bash
# Runs a system under steady load for a while and reports the resident memory of each process at the
# start and at the end, which must stay flat: the broker's process, a sensor sending every millisecond
# (one reading of it through the non-blocking path), and a monitor receiving all of it.
# Usage: scripts/soak.sh [seconds]   (default 60)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target kivnm-host kivnm demo-sensor demo-monitor >/dev/null

bin=build/default
export KIV_SYSTEM="soak-$$"
source scripts/lib/system.sh
trap stop EXIT

# The broker's queue is large enough for the load; the monitor's lines go nowhere.
settings="$KIV_ENDPOINTS/settings.xml"
echo '<NotificationManagerSettingsDocument><NotificationBroker queueLength="65536"/></NotificationManagerSettingsDocument>' > "$settings"
run host "$bin/tools/kivnm-host" --name Main --broker --settings "$settings" --start-after 1
"$bin/examples/demo-monitor" >/dev/null & pids+=($!)
"$bin/examples/demo-sensor" --period-ms 1 >/dev/null & pids+=($!)
names=(host monitor sensor)

rss() { awk '/VmRSS/ {print $2}' "/proc/$1/status"; }
sleep 3  # set-up, start, and the first allocations of every pool
declare -a first
for i in 0 1 2; do first[$i]=$(rss "${pids[$i]}"); done
submitted0=$("$bin/tools/kivnm" --json stats | sed 's/[^0-9]//g')
sleep "$seconds"
submitted1=$("$bin/tools/kivnm" --json stats | sed 's/[^0-9]//g')
echo "== soak of ${seconds}s: $((submitted1 - submitted0)) notifications submitted and delivered meanwhile"
status=0
for i in 0 1 2; do
  last=$(rss "${pids[$i]}")
  echo "${names[$i]}: resident ${first[$i]} kB at the start, ${last} kB at the end"
  # Flat means: grown by less than a megabyte plus a tenth.
  if [ "$last" -gt $(( first[i] + 1024 + first[i] / 10 )) ]; then
    echo "soak: ${names[$i]} grew" >&2; status=1
  fi
done
stop
trap - EXIT
exit $status
