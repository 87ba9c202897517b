#!/usr/bin/env bash
# Runs the demo against the reference agent:
#   run-demo.sh AGENT MAKE_SAMPLE_PHONE DEMO WORK_DIR
# makes a sample phone under WORK_DIR, serves it with AGENT on a free loopback port, runs DEMO
# against it, checks the file the demo copied against the phone's own, and stops the agent.
# Exits non-zero when any of it fails.
set -euo pipefail
agent=$1 make_sample=$2 demo=$3 work=$4

phone=$work/sample-phone
copies=$work/copied
rm -rf "$phone" "$copies"
mkdir -p "$copies"
"$make_sample" "$phone" >/dev/null

# adb's server, if the demo starts one, is stopped again afterwards; one that ran before is left.
adb_tool=$(dirname "$demo")/../Resources/adb
adb_was_running=no
if (exec 3<>/dev/tcp/127.0.0.1/5037) 2>/dev/null; then adb_was_running=yes; fi

"$agent" --port 0 --scan-delay-us 40000 "$phone" >"$work/agent.out" 2>"$work/agent.log" &
agent_pid=$!
stop_agent() {
  if kill -0 "$agent_pid" 2>/dev/null; then
    kill -TERM "$agent_pid"
    wait "$agent_pid"
  fi
}
trap 'stop_agent || true' EXIT

port=
for _ in $(seq 100); do
  line=$(head -n 1 "$work/agent.out" 2>/dev/null || true)
  if [[ $line == "listening on "* ]]; then port=${line##*:}; break; fi
  sleep 0.05
done
if [[ -z $port ]]; then
  echo "run-demo: the agent did not start:" >&2
  cat "$work/agent.log" >&2
  exit 1
fi

"$demo" --port "$port" --out "$copies"

for copy in "$copies"/*; do
  original=$(find "$phone" -name "$(basename "$copy")" -print -quit)
  cmp "$copy" "$original"
  echo "cmp: $(basename "$copy") is identical to the phone's file"
done

trap - EXIT
stop_agent
if [[ $adb_was_running == no && -x $adb_tool ]] && (exec 3<>/dev/tcp/127.0.0.1/5037) 2>/dev/null; then
  "$adb_tool" kill-server >/dev/null 2>&1 || true
fi
echo "agent stopped"
