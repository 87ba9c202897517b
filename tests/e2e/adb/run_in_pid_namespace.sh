#!/bin/sh
# Runs a test binary in a PID namespace of its own, behind a shell that is the namespace's first
# process: there it sees only its own processes, whatever it kills, and nothing it started outlives
# the namespace. Where no namespace can be made, it runs as it is, and its tests that need one skip.
#   run_in_pid_namespace.sh [--net] COMMAND...
# With --net, also in a network namespace of its own with its loopback up (where one can be made):
# the fixed ports it forwards or listens on clash with nothing outside.
net=
if [ "$1" = --net ]; then
  shift
  if command -v ip >/dev/null && unshare --net true 2>/dev/null; then net=--net; fi
fi
if unshare --pid --fork --mount-proc true 2>/dev/null; then
  export WRENLINK_OWN_PID_NAMESPACE=1  # tells the tests that they are inside
  if [ -n "$net" ]; then
    exec unshare --pid --fork --mount-proc --kill-child --net \
         sh -c 'ip link set lo up || exit 1; "$@"; exit $?' wrenlink-pid-namespace "$@"
  fi
  exec unshare --pid --fork --mount-proc --kill-child sh -c '"$@"; exit $?' wrenlink-pid-namespace "$@"
fi
echo "no PID namespace here: the tests that stop processes by name are skipped" >&2
exec "$@"
