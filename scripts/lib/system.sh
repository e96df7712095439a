# Starting and stopping the processes of a system from a script; sourced by demo.sh and soak.sh.
# Each started process's pid goes into `pids`, the broker's process first.

export KIV_SYSTEM="${KIV_SYSTEM:-script-$$}"
export KIV_ENDPOINTS="${KIV_ENDPOINTS:-$(mktemp -d /tmp/kiv-script-XXXXXX)}"
pids=()

# run TAG COMMAND...: starts COMMAND with each line of its output behind [TAG].
run() {
  local tag="$1"; shift
  "$@" > >(sed -u "s/^/[$tag] /") 2> >(sed -u "s/^/[$tag] /" >&2) &
  pids+=($!)
}

# The components leave first, while the broker still answers their last calls; the broker's process last.
stop() {
  local host="${pids[0]:-}"
  for pid in "${pids[@]:1}"; do kill -INT "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]:1}"; do wait "$pid" 2>/dev/null || true; done
  if [ -n "$host" ]; then kill -INT "$host" 2>/dev/null || true; wait "$host" 2>/dev/null || true; fi
  pids=()
  rm -rf "$KIV_ENDPOINTS"
}
