#!/usr/bin/env bash
# Makes the two pictures of the desktop browser (its README's, in docs/) again:
#   docs/browser-images.png  the images tab with its thumbnails drawn
#   docs/browser-scan.png    a scan under way
# It builds and installs everything as the demo command does (it runs scripts/demo.sh, as root
# installing what is missing), makes a sample phone, serves it with the reference agent (a scan
# slowed down to watch) and runs build/stage/bin/wrenlink-browser --screenshot without a display
# (QT_QPA_PLATFORM=offscreen). With adb installed, the agent sits behind a simulated phone on a
# private adb server, so the browser lists that phone and connects through a forward it makes.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
stage=$top/build/stage work=$top/build/screenshots

echo "== building and installing, as the demo command does"
bash scripts/demo.sh >/dev/null
rm -rf "$work" && mkdir -p "$work/home"
export HOME=$work/home QT_QPA_PLATFORM=offscreen   # the adb server keeps its key under $HOME
build/release/bin/make-sample-phone "$work/phone" >/dev/null

# The first line a background program prints, once it is there (five seconds at most).
first_line() {
  for _ in $(seq 100); do
    if [[ -s $1 ]]; then head -n 1 "$1"; return; fi
    sleep 0.05
  done
}
free_port() { python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }

pids=()
adb=$stage/Resources/adb
cleanup() {
  [[ -x $adb && -n ${ANDROID_ADB_SERVER_PORT:-} ]] && "$adb" kill-server >/dev/null 2>&1 || true
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" || true; done
}
trap cleanup EXIT

"$stage/bin/wrenlink-agent" --port 0 --scan-delay-us 150000 "$work/phone" >"$work/agent.out" 2>"$work/agent.log" &
pids+=($!)
agent_port=$(first_line "$work/agent.out") agent_port=${agent_port##*:}
browser=("$stage/bin/wrenlink-browser" --port "$agent_port")

if [[ -x $adb ]]; then
  export ANDROID_ADB_SERVER_PORT=$(free_port)
  build/release/bin/wrenlink-phone --phone "port=0,profile=$top/tools/wrenlink-phone/profiles/wren-one.prop,sandbox=$work/sandbox" \
    >"$work/phone.out" 2>"$work/phone.log" &
  pids+=($!)
  serial=$(first_line "$work/phone.out") serial=${serial#ready }
  "$adb" start-server >/dev/null 2>&1
  "$adb" connect "$serial" >/dev/null
  for _ in $(seq 100); do
    [[ $("$adb" -s "$serial" get-state 2>/dev/null) == device ]] && break
    sleep 0.05
  done
  browser=("$stage/bin/wrenlink-browser" --port "$(free_port)" --forward "$agent_port")
fi

"${browser[@]}" --screenshot docs/browser-images.png
"${browser[@]}" --scan --screenshot docs/browser-scan.png --after 1.2
echo "wrote docs/browser-images.png and docs/browser-scan.png"
