#!/usr/bin/env bash
# The command-line tools as a user meets them: --help, a bad command line, a failure at run time.
#   cli_test.sh MAKE_SAMPLE_PHONE WRENLINK_PHONE WRENLINK_AGENT WRENLINK_DEMO
# Every run starts in an empty folder, which must stay empty: values are checked before any work.
set -euo pipefail
sample=$(realpath "$1") phone=$(realpath "$2") agent=$(realpath "$3") demo=$(realpath "$4")
work=$(mktemp -d)
export ASAN_OPTIONS=detect_leaks=0 HOME=$work/home   # the adb server keeps its key under $HOME
trap 'ANDROID_ADB_SERVER_PORT=$adb_port "$work/adb-app/Resources/adb" kill-server >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

# The demo runs from an application folder with no Resources/adb, and from one whose
# Resources/adb is the system's (on a private server port), when there is one.
mkdir -p "$work/app/bin" "$work/adb-app/bin" "$work/adb-app/Resources" "$HOME"
cp "$demo" "$work/app/bin/" && cp "$demo" "$work/adb-app/bin/"
demo_name=$(basename "$demo") demo=$work/app/bin/$(basename "$demo")
[[ -x /usr/bin/adb ]] && ln -s /usr/bin/adb "$work/adb-app/Resources/adb"
printf 'ro.product.model=Junk\n\nphone.su=maybe\n' >"$work/junk.prop"

# The first loopback port from $1 on where nothing answers.
unused_port() {
  local port=$1
  while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do port=$((port + 1)); done
  echo "$port"
}
closed=$(unused_port 1) adb_port=$(unused_port $((20000 + RANDOM % 30000)))

failures=0
# expect STATUS STREAM PATTERN COMMAND...: the exit status, and the stream (out or err) that
# matches PATTERN; the other stream stays empty unless STREAM ends in "+".
expect() {
  local status=$1 stream=$2 pattern=$3 got=0 run
  shift 3
  run=$(mktemp -d "$work/run.XXXXXX")
  (cd "$run" && exec timeout 60 "$@") >"$run.out" 2>"$run.err" || got=$?   # a tool that serves is a failure
  local problem=
  if [[ $got != "$status" ]]; then problem="exit status $got"
  elif ! grep -Eq -- "$pattern" "$run.${stream%+}"; then problem="no '$pattern' on std${stream%+}"
  elif [[ $stream != *+ && -s $run.$([[ $stream == out ]] && echo err || echo out) ]]; then problem="output on the other stream"
  elif [[ -n $(ls -A "$run") ]]; then problem="it left $(ls -A "$run" | head -3 | tr '\n' ' ')"
  fi
  if [[ -n $problem ]]; then
    echo "FAIL: $* -> $problem"; sed 's/^/  out: /' "$run.out"; sed 's/^/  err: /' "$run.err"
    failures=$((failures + 1))
  else
    echo "ok: $(basename "$1") ${*:2} -> $status"
  fi
}

# status stream pattern                                                command
expect 0 out '^usage: make-sample-phone DIR'                           "$sample" --help
expect 2 err 'make-sample-phone: unknown option: --bogus'              "$sample" --bogus
expect 2 err 'make-sample-phone: unexpected argument: b$'              "$sample" a b
expect 1 err 'make-sample-phone: .*/proc/nowhere'                      "$sample" /proc/nowhere

expect 0 out '^usage: wrenlink-phone '                                 "$phone" --help
expect 2 err 'wrenlink-phone: unknown argument: --bogus'               "$phone" --bogus
expect 2 err "port takes a number from 0 to 65535, not 'x'"            "$phone" --phone port=x,profile=p,sandbox=s
expect 1 err "junk.prop:3: phone.su takes yes or no, not 'maybe'"      "$phone" --phone "port=0,profile=$work/junk.prop,sandbox=s"

# The phone's own commands read paths by the rule the agent uses: a climb above "/" is refused.
mkdir -p "$work/sandbox/sdcard" && printf 'ro.product.model=One\n' >"$work/one.prop" && ln -s "$phone" "$work/ls"
WRENLINK_PHONE_SANDBOX=$work/sandbox WRENLINK_PHONE_PROFILE=$work/one.prop \
  expect 0 out '^sdcard$'                                              "$work/ls" /sdcard/..
WRENLINK_PHONE_SANDBOX=$work/sandbox WRENLINK_PHONE_PROFILE=$work/one.prop \
  expect 1 err 'ls: /sdcard/../..: Permission denied'                  "$work/ls" /sdcard/../..

expect 0 out '^usage: wrenlink-agent '                                 "$agent" --help
expect 2 err 'wrenlink-agent: unknown option: --bogus'                 "$agent" --bogus
expect 2 err "--port takes a number from 0 to 65535, not '70000'"      "$agent" --port 70000 root
expect 1 err 'wrenlink-agent: /nowhere: No such file or directory'     "$agent" --port 0 /nowhere
expect 2 err "--control takes localabstract:NAME .*not 'tcp:10243'"   "$agent" --control tcp:10243 root
expect 2 err "--control takes localabstract:NAME .*not 'localabstract:a/b'" "$agent" --control localabstract:a/b root
expect 2 err '--control cannot be given with --address or --port'     "$agent" --port 1 --control localabstract:a root
expect 2 err "--events takes tcp:PORT .*not 'tcp:0'"                   "$agent" --events tcp:0 root
expect 2 err '--stop takes no option but --pid-file, and no ROOT'      "$agent" --stop root
expect 2 err "--pid-file takes a path, not ''"                         "$agent" --pid-file "" root
expect 0 out '^no agent running$'                                      "$agent" --stop --pid-file "$work/none.pid"
expect 1 err 'wrenlink-agent: pid file /nowhere/a.pid: No such file'   "$agent" --detach --pid-file /nowhere/a.pid root

expect 0 out "^usage: $demo_name "                                     "$demo" --help
expect 2 err "$demo_name: unknown option: --bogus"                     "$demo" --bogus
expect 2 err "--port takes a number from 1 to 65535, not '0'"          "$demo" --port 0
expect 2 err "--address takes a dotted IPv4 address, not 'nowhere'"    "$demo" --address nowhere
expect 1 err '--out /nowhere: No such file or directory'               "$demo" --out /nowhere
expect 2 err "--forward does not go with --install-agent"              "$demo" --install-agent --forward 5
expect 2 err "--agents goes with --install-agent"                       "$demo" --agents /nowhere
expect 1 err+ 'adb is missing: the library looks for it at .*/Resources/adb' "$demo" --install-agent
expect 1 err+ 'cannot connect to the agent'                            "$demo" --port "$closed"

# Run directly, the demo stops the adb server that it started, also when a step fails.
if [[ -x /usr/bin/adb ]]; then
  ANDROID_ADB_SERVER_PORT=$adb_port \
    expect 1 out+ 'Stopped the adb server that this run started'       "$work/adb-app/bin/$demo_name" --port "$closed"
  if (exec 3<>"/dev/tcp/127.0.0.1/$adb_port") 2>/dev/null; then
    echo "FAIL: the demo left an adb server on port $adb_port"; failures=$((failures + 1))
  fi
fi
exit $((failures > 0))
