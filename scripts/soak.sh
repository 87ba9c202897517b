#!/usr/bin/env bash
# soak.sh [--minutes N] [--phones N] [--threads N] [--seed S]: the fault soak. Builds the release
# preset's soak (soak/) with the simulated phone and the reference agent, then runs it: N phones on
# a private adb server, each with its agent behind forwards, the library called from N threads
# across both halves while phones are unplugged and stalled, the server and agents killed and
# forwards removed. It prints a table per fault kind and per call, and last
#   soak: C calls, F faults, K crashes, H hangs, X corrupt, U undocumented, L leaked
# and exits 0 only when K, H, X, U and L are all 0 (and the clean pass at the end went well).
#
# As root (the usual case on a fresh Debian machine) it installs what is missing and runs the soak
# in network and PID namespaces of its own, as scripts/bench.sh runs the benchmarks: the scan's
# fixed event port, the agents' abstract names and the phones' ports never meet another program's,
# and nothing it started outlives it. The lines that the library and the tools print go to
# build/release/soak/output.log.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/ensure-packages.sh g++ cmake ninja-build pkg-config adb procps util-linux iproute2

cmake --preset release >/dev/null
cmake --build --preset release --target wrenlink-soak

# The phones' sandboxes live here, in memory where the system has /dev/shm; removed at exit.
base=/dev/shm
[[ -d $base && -w $base ]] || base=${TMPDIR:-/tmp}
scratch=$(mktemp -d "$base/wrenlink-soak.XXXXXX")
report=$scratch/report.txt
trap 'rm -rf "$scratch"' EXIT
export WRENLINK_SOAK_TMPDIR=$scratch

# Runs a command in network and PID namespaces of its own where that is allowed (as root).
isolated() {
  if [[ $(id -u) -eq 0 ]] && unshare --pid --fork --mount-proc --net true 2>/dev/null; then
    # The shell stays the namespace's first process (the command is not its last word), so it
    # reaps what the soak leaves to it: the adb servers that the soak kills.
    unshare --pid --fork --mount-proc --net sh -c 'ip link set lo up && "$@"; exit $?' sh "$@"
  else
    "$@"
  fi
}

status=0
isolated build/release/soak/bin/wrenlink-soak --log build/release/soak/output.log "$@" | tee "$report" ||
  status=${PIPESTATUS[0]}
# --help, or a command line refused: no run began, and the program's status stands.
head -n 1 "$report" | grep -q '^soak: seed ' || exit "$status"
# A soak that died leaves no last line: the last progress line stands for it, with the crash.
if ((status > 128)) || ! tail -n 1 "$report" | grep -q '^soak: .* leaked$'; then
  last=$(sed -n 's/^  at [0-9]* s[^:]*: //p' "$report" | tail -n 1)
  [[ -n $last ]] || last="soak: 0 calls, 0 faults, 0 crashes, 0 hangs, 0 corrupt, 0 undocumented, 0 leaked"
  echo "the soak ended with status $status before its report" >&2
  echo "$last" | awk '{ $6 = $6 + 1; print }'
  ((status != 0)) || status=1
fi
exit "$status"
