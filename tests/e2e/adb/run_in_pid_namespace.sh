#!/bin/sh
# Runs a test binary in a PID namespace of its own, behind a shell that is the namespace's first
# process: there it sees only its own processes, whatever it kills, and nothing it started outlives
# the namespace. Where no namespace can be made, it runs as it is, and its tests that need one skip.
if unshare --pid --fork --mount-proc true 2>/dev/null; then
  export WRENLINK_OWN_PID_NAMESPACE=1  # tells the tests that they are inside
  exec unshare --pid --fork --mount-proc --kill-child sh -c '"$@"; exit $?' wrenlink-pid-namespace "$@"
fi
echo "no PID namespace here: the tests that stop processes by name are skipped" >&2
exec "$@"
