#!/usr/bin/env bash
# Two systems standing for two machines, one MQTT broker between them (mosquitto on a free loopback
# port, with a config of its own), and a kivnm-bridge in each:
#   system "plant":   kivnm-host --broker, demo-sensor, kivnm-bridge exporting Demo.Plant
#   system "control": kivnm-host --broker, demo-monitor, kivnm watch, kivnm-bridge importing kiv/+/Demo/#
# The sensor of the plant is seen by the monitor and by `kivnm watch` of the control room. Runs for about
# ten seconds, then stops everything with SIGINT.
# Usage: scripts/demo-two-systems.sh [seconds]   (also: scripts/demo.sh --two-systems [seconds])
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-10}"
bash scripts/install-deps.sh >/dev/null
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" \
  --target kivnm-host kivnm kivnm-bridge demo-sensor demo-monitor >/dev/null

bin=build/default
work="$(mktemp -d /tmp/kiv-two-systems-XXXXXX)"
plant="plant-$$"
control="control-$$"
pids=()
run() {
  local tag="$1"; shift
  "$@" > >(sed -u "s/^/[$tag] /") 2> >(sed -u "s/^/[$tag] /" >&2) &
  pids+=($!)
}
# Components and bridges first, while their brokers still answer; then the hosts; the MQTT broker last.
stop() {
  for pid in "${pids[@]:2}"; do kill -INT "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]:2}"; do wait "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]:0:2}"; do kill -INT "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; done
  [ -n "${mqtt:-}" ] && { kill "$mqtt" 2>/dev/null || true; wait "$mqtt" 2>/dev/null || true; }
  pids=()
  rm -rf "$work"
}
trap stop EXIT

port=$((20000 + RANDOM % 20000))
while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do port=$((port + 1)); done
cat > "$work/mosquitto.conf" <<CONF
listener $port 127.0.0.1
allow_anonymous true
log_dest none
CONF
mosquitto=$(command -v mosquitto || echo /usr/sbin/mosquitto)
"$mosquitto" -c "$work/mosquitto.conf" &
mqtt=$!

cat > "$work/plant.xml" <<XML
<?xml version="1.0"?>
<KivNmBridgeSettings>
  <Broker host="127.0.0.1" port="$port" qos="1"/>
  <Export name="Demo.Plant"/>
</KivNmBridgeSettings>
XML
cat > "$work/control.xml" <<XML
<?xml version="1.0"?>
<KivNmBridgeSettings>
  <Broker host="127.0.0.1" port="$port" qos="1"/>
  <Import topic="kiv/+/Demo/#"/>
</KivNmBridgeSettings>
XML

echo "== MQTT broker on 127.0.0.1:$port; systems $plant and $control, endpoints in $work"
A=(--system "$plant" --endpoints "$work")
B=(--system "$control" --endpoints "$work")
run plant-host "$bin/tools/kivnm-host" --name Main --broker --start-after 2 "${A[@]}"
run control-host "$bin/tools/kivnm-host" --name Main --broker --start-after 2 "${B[@]}"
sleep 0.5
run plant-bridge "$bin/tools/kivnm-bridge" --settings "$work/plant.xml" "${A[@]}"
run control-bridge "$bin/tools/kivnm-bridge" --settings "$work/control.xml" "${B[@]}"
run control-monitor "$bin/examples/demo-monitor" "${B[@]}"
run control-watch "$bin/tools/kivnm" "${B[@]}" watch Demo.Plant
run plant-sensor "$bin/examples/demo-sensor" --period-ms 500 "${A[@]}"
sleep "$seconds"
echo "== what the control room's system knows"
"$bin/tools/kivnm" "${B[@]}" list registered | sed "s/^/[control kivnm] /"
echo "== stopping"
stop
trap - EXIT
echo "== demo finished"
