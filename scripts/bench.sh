#!/usr/bin/env bash
# Builds the release preset and runs every benchmark (bench/), ending with the table of the
# library's figures against their raw baselines, then the phone benchmarks (many phones through
# the real adb) and their table by the number of phones. Arguments go to both benchmark binaries,
# e.g.
#   bash scripts/bench.sh --benchmark_filter=FileRead --benchmark_repetitions=3
# The phone benchmarks' JSON goes to build/release/bench/phones.json (scripts/plot-phones.sh draws
# it).
#
# As root (the usual case on a fresh Debian machine) it installs what is missing and runs the
# benchmarks in namespaces of their own: a network namespace, so that the scan's fixed event port
# 10244 and the agents' ports never meet another program's, and a PID namespace, so that the agent
# it starts cannot outlive an interrupted run. Elsewhere it runs them as they are.
#
# Everything runs on one CPU (WRENLINK_BENCH_CPU, by default the last): on a virtual machine a
# wakeup across CPUs costs tens of microseconds and lands on one connection more than another,
# which makes ratios of request/reply exchanges swing from run to run; on one CPU every variant pays
# the same switches. The phone benchmarks are the exception: they measure how work on many phones
# at once spreads over the machine's CPUs, so they run on all of them, in namespaces of their own
# again (the private adb server, the phones and their agents die with the run).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/ensure-packages.sh g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
     util-linux iproute2 adb

cmake --preset release >/dev/null
cmake --build --preset release --target wrenlink_bench wrenlink_bench_phones

# The reference agent's files live here, in memory where the system has /dev/shm; removed at exit.
base=/dev/shm
[[ -d $base && -w $base ]] || base=${TMPDIR:-/tmp}
scratch=$(mktemp -d "$base/wrenlink-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
export WRENLINK_BENCH_TMPDIR=$scratch

cpu=${WRENLINK_BENCH_CPU:-$(($(nproc) - 1))}
echo "machine: $(nproc) CPUs, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n1);" \
     "load average $(cut -d' ' -f1-3 /proc/loadavg); benchmarks pinned to CPU $cpu"

# Runs a command in network and PID namespaces of its own where that is allowed (as root).
isolated() {
  if [[ $(id -u) -eq 0 ]] && unshare --pid --fork --mount-proc --net true 2>/dev/null; then
    # Not exec'd: the shell stays the namespace's first process, so Ctrl-C still stops the run.
    unshare --pid --fork --mount-proc --net sh -c 'ip link set lo up && "$@"' sh "$@"
  else
    "$@"
  fi
}

isolated taskset -c "$cpu" build/release/bench/bin/wrenlink_bench --benchmark_min_time=0.5 --benchmark_repetitions=9 "$@"
echo "phone benchmarks on all $(nproc) CPUs; load average $(cut -d' ' -f1-3 /proc/loadavg)"
isolated build/release/bench/phones/bin/wrenlink_bench_phones --benchmark_out=build/release/bench/phones.json \
  --benchmark_out_format=json "$@"
