#!/usr/bin/env bash
# The agent program as a phone runs it, on this machine's build or on a phone build under an
# emulator:
#   agent_program_test.sh PROBE SAMPLE_PHONE AGENT [EMULATOR]
# It serves SAMPLE_PHONE (made by make-sample-phone, readable by all) and answers a ping; --detach
# leaves a running agent in a session of its own and returns, a second start is refused, --stop
# ends it; and (as root) a peer of another uid is refused on loopback TCP, on an abstract control
# socket and on an abstract event socket, while root and the agent's own uid are served, and a
# scan finds the phone's files. Exits 77 (skipped) when AGENT or EMULATOR is not there. No test
# here uses a fixed port: it may run beside any other.
set -euo pipefail
probe=$1 phone=$2 agent_file=$3 emulator=${4:-}
if [[ ! -x $agent_file ]]; then echo "skipped: no agent at $agent_file (bash scripts/build-phone-agents.sh)"; exit 77; fi
if [[ -n $emulator ]] && ! command -v "$emulator" >/dev/null; then
  echo "skipped: $emulator is missing (Debian package qemu-user-static)"; exit 77
fi
work=$(mktemp -d)
chmod 755 "$work"   # the agent also runs as uid 65534
export ASAN_OPTIONS=detect_leaks=0
pids=()
cleanup() {
  "${agent[@]}" --stop >/dev/null 2>&1 || true
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

# The agent runs from a folder of its own, where its default pid file goes.
mkdir -p "$work/bin"
cp "$agent_file" "$work/bin/wrenlink-agent"
agent=(${emulator:+"$emulator"} "$work/bin/wrenlink-agent")

failures=0
check() {  # check DESCRIPTION COMMAND...: the command must succeed
  local what=$1
  shift
  if "$@"; then echo "ok: $what"; else echo "FAIL: $what"; failures=$((failures + 1)); fi
}
# probe_as UID ENDPOINT ping|scan|events: the probe's exit status, run as UID.
probe_as() {
  local uid=$1 status=0
  shift
  if [[ $uid == 0 ]]; then timeout 20 "$probe" "$@" || status=$?
  else timeout 20 setpriv --reuid "$uid" --regid "$uid" --clear-groups "$probe" "$@" || status=$?; fi
  echo "$status"
}
# Whether the process lives (a zombie that nobody reaped yet does not).
alive() { [[ -r /proc/$1/stat ]] && [[ $(awk '{print $3}' "/proc/$1/stat") != Z ]]; }
gone() { ! alive "$1"; }
# Waits up to five seconds for the file to hold the text.
wait_for_text() {
  for _ in $(seq 100); do grep -q -- "$2" "$1" 2>/dev/null && return 0; sleep 0.05; done
  return 1
}

# A foreground agent on a free port serves the sample phone; SIGTERM ends it with status 0.
"${agent[@]}" --port 0 "$phone" >"$work/fg.out" 2>"$work/fg.err" &
fg=$!
pids+=("$fg")
check "the agent prints where it listens" wait_for_text "$work/fg.out" "^listening on 127.0.0.1:"
port=$(sed -n 's/^listening on 127.0.0.1://p' "$work/fg.out")
check "a ping is answered" test "$(probe_as 0 "tcp:$port" ping)" = 0
kill -TERM "$fg"
status=0 && wait "$fg" || status=$?
check "SIGTERM ends the agent with status 0" test "$status" = 0

# --detach: the start returns once the agent serves (the command substitution would wait for a
# stream the agent kept), and the agent runs on in a session of its own. No --verbose here: a
# detached agent logs its refusals all the same.
line=$(timeout 20 "${agent[@]}" --detach --port 0 "$phone")
check "--detach prints where it listens: $line" grep -q "^listening on 127.0.0.1:[0-9]*$" <<<"$line"
port=${line##*:}
pid=$(cat "$work/bin/wrenlink-agent.pid")
check "the pid file beside the program names a live agent" alive "$pid"
check "the agent has a session of its own, which it does not lead" \
  test "$(ps -o sid= -p "$pid" | tr -d ' ')" != "$(ps -o sid= -p $$ | tr -d ' ')" -a \
       "$(ps -o sid= -p "$pid" | tr -d ' ')" != "$pid"
check "the detached agent answers a ping" test "$(probe_as 0 "tcp:$port" ping)" = 0
status=0 && "${agent[@]}" --detach --port 0 "$phone" >"$work/second.out" 2>"$work/second.err" || status=$?
check "a second start is refused with status 1" test "$status" = 1
check "it names the running agent" grep -q "an agent already runs (pid $pid); stop it with --stop" "$work/second.err"

# The peer check, on loopback TCP. setpriv needs root; the rest above and below runs anyway.
peers=no
if [[ $(id -u) == 0 ]] && command -v setpriv >/dev/null; then peers=yes; else echo "peer check skipped: it needs root and setpriv"; fi
log=$work/bin/wrenlink-agent.log
if [[ $peers == yes ]]; then
  check "TCP: uid 65534 gets no answer" test "$(probe_as 65534 "tcp:$port" ping)" = 3
  check "TCP: the refusal is logged" wait_for_text "$log" "refused a connection from uid 65534"
  check "TCP: root is still served" test "$(probe_as 0 "tcp:$port" ping)" = 0
fi

out=$("${agent[@]}" --stop)
check "--stop ends the agent: $out" test "$out" = "stopped the agent (pid $pid)"
check "the agent is gone" gone "$pid"
check "the pid file is gone" test ! -e "$work/bin/wrenlink-agent.pid"
check "--stop with no agent running says so" test "$("${agent[@]}" --stop)" = "no agent running"

# Abstract local sockets: the control socket and the scan's event socket.
name=wl-test-$$-$RANDOM
line=$(timeout 20 "${agent[@]}" --detach --pid-file "$work/abstract.pid" --verbose \
       --control "localabstract:$name" --events "localabstract:$name-events" "$phone")
check "--control prints its name: $line" test "$line" = "listening on localabstract:$name"
check "a ping on the abstract socket is answered" test "$(probe_as 0 "localabstract:$name" ping)" = 0
if [[ $peers == yes ]]; then
  log=$work/abstract.log
  check "abstract: uid 65534 gets no answer" test "$(probe_as 65534 "localabstract:$name" ping)" = 3
  check "abstract: the refusal is logged" wait_for_text "$log" "refused a connection from uid 65534"
  check "a scan starts" test "$(probe_as 0 "localabstract:$name" scan)" = 0
  check "events: uid 65534 gets no event" test "$(probe_as 65534 "localabstract:$name-events" events)" = 3
  check "events: the refusal is logged" wait_for_text "$log" "refused a scan event connection from uid 65534"
  check "events: root, still awaited, gets the scan's found items" test "$(probe_as 0 "localabstract:$name-events" events)" = 0
fi
check "--stop ends it" grep -q "^stopped the agent" <<<"$("${agent[@]}" --stop --pid-file "$work/abstract.pid")"

# An agent that runs as another user serves that user and root, and nobody else.
if [[ $peers == yes ]]; then
  setpriv --reuid 65534 --regid 65534 --clear-groups "${agent[@]}" --control "localabstract:$name-own" \
    "$phone" >"$work/own.out" 2>"$work/own.err" &
  pids+=($!)
  check "an agent of uid 65534 starts" wait_for_text "$work/own.out" "^listening on localabstract:$name-own$"
  check "its own uid is served" test "$(probe_as 65534 "localabstract:$name-own" ping)" = 0
  check "root is served" test "$(probe_as 0 "localabstract:$name-own" ping)" = 0
  check "uid 65533 gets no answer" test "$(probe_as 65533 "localabstract:$name-own" ping)" = 3
  check "the refusal is logged" wait_for_text "$work/own.err" "refused a connection from uid 65533"
fi

echo "$failures failure(s)"
exit $((failures > 0))
