#!/usr/bin/env bash
# Builds the release preset and runs every benchmark (bench/), ending with the table of the
# library's figures against their raw baselines. Arguments go to the benchmark binary, e.g.
#   bash scripts/bench.sh --benchmark_filter=FileRead --benchmark_repetitions=3
#
# As root (the usual case on a fresh Debian machine) it installs what is missing and runs the
# benchmarks in namespaces of their own: a network namespace, so that the scan's fixed event port
# 10244 and the agents' ports never meet another program's, and a PID namespace, so that the agent
# it starts cannot outlive an interrupted run. Elsewhere it runs them as they are.
#
# Everything runs on one CPU (WRENLINK_BENCH_CPU, by default the last): on a virtual machine a
# wakeup across CPUs costs tens of microseconds and lands on one connection more than another,
# which makes ratios of request/reply exchanges swing from run to run; on one CPU every variant pays
# the same switches.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/ensure-packages.sh g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
     util-linux iproute2

cmake --preset release >/dev/null
cmake --build --preset release --target wrenlink_bench

# The reference agent's files live here, in memory where the system has /dev/shm; removed at exit.
base=/dev/shm
[[ -d $base && -w $base ]] || base=${TMPDIR:-/tmp}
scratch=$(mktemp -d "$base/wrenlink-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
export WRENLINK_BENCH_TMPDIR=$scratch

cpu=${WRENLINK_BENCH_CPU:-$(($(nproc) - 1))}
echo "machine: $(nproc) CPUs, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n1);" \
     "load average $(cut -d' ' -f1-3 /proc/loadavg); benchmarks pinned to CPU $cpu"

run=(taskset -c "$cpu" build/release/bench/bin/wrenlink_bench --benchmark_min_time=0.5
     --benchmark_repetitions=9 "$@")
if [[ $(id -u) -eq 0 ]] && unshare --pid --fork --mount-proc --net true 2>/dev/null; then
  # Not exec'd: the shell stays the namespace's first process, so Ctrl-C still stops the run.
  unshare --pid --fork --mount-proc --net sh -c 'ip link set lo up && "$@"' sh "${run[@]}"
else
  "${run[@]}"
fi
