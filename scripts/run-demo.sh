#!/usr/bin/env bash
# Runs the demo against the reference agent:
#   run-demo.sh AGENT MAKE_SAMPLE_PHONE DEMO WORK_DIR [PHONE [PHONE_AGENTS]]
# makes a sample phone under WORK_DIR, serves it with AGENT on a free loopback port, runs DEMO
# against it, checks the file the demo copied against the phone's own, and stops the agent.
#
# With PHONE (tools/wrenlink-phone) and an adb tool in the demo's Resources folder, the agent sits
# behind a simulated phone instead: a private adb server (its own port, never the default one)
# connects to the phone, the demo lists it through adb, forwards a local port to the agent's port
# on the phone with adb and talks to the agent through that forward. Phone and server are stopped
# at the end.
#
# With PHONE_AGENTS too ("installed": the demo's own install tree, or a folder of
# <abi>/wrenlink-agent builds), AGENT is not started here: the sample phone is the simulated
# phone's /sdcard, and the demo installs the agent built for the phone's processor on it through
# adb (--install-agent), where it runs under qemu-user. Afterwards no agent may run on the phone
# and no forward may be left. Exits non-zero when any of it fails.
set -euo pipefail
agent=$1 make_sample=$2 demo=$3 work=$4 phone_tool=${5:-} phone_agents=${6:-}
profile=$(cd "$(dirname "$0")/.." && pwd)/tools/wrenlink-phone/profiles/wren-one.prop

sample=$work/sample-phone
copies=$work/copied
rm -rf "$sample" "$copies" "$work/phone-sandbox"
mkdir -p "$copies"

# Where the library looks: beside the folder of the executable, its links resolved.
adb_tool=$(dirname "$(readlink -f "$demo")")/../Resources/adb
through_adb=no
if [[ -n $phone_tool && -x $adb_tool ]]; then through_adb=yes; fi
install=no
if [[ $through_adb == yes && -n $phone_agents ]]; then
  install=yes
  sample=$work/phone-sandbox/sdcard
  mkdir -p "$work/phone-sandbox"
fi
"$make_sample" "$sample" >/dev/null

# The first line a background program prints, once it is there (five seconds at most).
first_line() {
  local line
  for _ in $(seq 100); do
    line=$(head -n 1 "$1" 2>/dev/null || true)
    if [[ -n $line ]]; then echo "$line"; return; fi
    sleep 0.05
  done
}

# A loopback port where nothing listens.
free_port() {
  local port
  while :; do
    port=$((20000 + RANDOM % 30000))
    if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then echo "$port"; return; fi
  done
}

# Without the phone, adb's default server is what the demo lists: if the demo starts it, it is
# stopped again afterwards; one that ran before is left alone.
adb_was_running=no
if (exec 3<>/dev/tcp/127.0.0.1/5037) 2>/dev/null; then adb_was_running=yes; fi

if [[ $through_adb == yes ]]; then export ANDROID_ADB_SERVER_PORT=$(free_port); fi

pids=()
cleanup() {
  if [[ $through_adb == yes ]]; then
    "$adb_tool" kill-server >/dev/null 2>&1 || true
  elif [[ $adb_was_running == no && -x $adb_tool ]] && (exec 3<>/dev/tcp/127.0.0.1/5037) 2>/dev/null; then
    "$adb_tool" kill-server >/dev/null 2>&1 || true
  fi
  for pid in "${pids[@]}"; do
    if kill -0 "$pid" 2>/dev/null; then
      kill -TERM "$pid"
      wait "$pid" || true
    fi
  done
}
trap cleanup EXIT

if [[ $install == no ]]; then
  "$agent" --port 0 --scan-delay-us 40000 "$sample" >"$work/agent.out" 2>"$work/agent.log" &
  pids+=($!)
  line=$(first_line "$work/agent.out")
  if [[ $line != "listening on "* ]]; then
    echo "run-demo: the agent did not start:" >&2
    cat "$work/agent.log" >&2
    exit 1
  fi
  agent_port=${line##*:}
fi

if [[ $through_adb == yes ]]; then
  # The phone's port tcp:AGENT_PORT is this machine's loopback, where the agent listens. Scans
  # reach the agent's event port 127.0.0.1:10244 directly: adb could not forward that port to a
  # phone that runs on the same machine, since the agent holds it.
  "$phone_tool" --phone "port=0,profile=$profile,sandbox=$work/phone-sandbox" >"$work/phone.out" 2>"$work/phone.log" &
  pids+=($!)
  line=$(first_line "$work/phone.out")
  if [[ $line != "ready "* ]]; then
    echo "run-demo: the simulated phone did not start:" >&2
    cat "$work/phone.log" >&2
    exit 1
  fi
  serial=${line#ready }
  "$adb_tool" start-server >/dev/null 2>&1
  "$adb_tool" connect "$serial" >/dev/null
  for _ in $(seq 100); do
    [[ $("$adb_tool" -s "$serial" get-state 2>/dev/null) == device ]] && break
    sleep 0.05
  done
  if [[ $install == yes ]]; then
    echo "(a simulated phone at $serial, on a private adb server at port $ANDROID_ADB_SERVER_PORT)"
    agents_option=()
    [[ $phone_agents != installed ]] && agents_option=(--agents "$phone_agents")
    "$demo" --install-agent "${agents_option[@]}" --port "$(free_port)" --out "$copies"
    # The agent runs under qemu-user with its phone file's host path on its command line.
    if pgrep -f -- "$work/phone-sandbox/data/local/tmp/wrenlink-agent" >/dev/null; then
      echo "run-demo: the agent still runs on the phone:" >&2
      pgrep -af -- "$work/phone-sandbox/data/local/tmp/wrenlink-agent" >&2
      exit 1
    fi
    left=$("$adb_tool" forward --list)
    if [[ -n $left ]]; then
      echo "run-demo: forwards left: $left" >&2
      exit 1
    fi
    echo "(no agent runs on the phone, and no forward is left)"
  else
    echo "(a simulated phone at $serial, on a private adb server at port $ANDROID_ADB_SERVER_PORT;"
    echo " the agent listens on its port $agent_port)"
    "$demo" --port "$(free_port)" --forward "$agent_port" --out "$copies"
  fi
else
  "$demo" --port "$agent_port" --out "$copies"
fi

for copy in "$copies"/*; do
  original=$(find "$sample" -name "$(basename "$copy")" -print -quit)
  cmp "$copy" "$original"
  echo "cmp: $(basename "$copy") is identical to the phone's file"
done

trap - EXIT
cleanup
[[ $install == yes ]] || echo "agent stopped"
