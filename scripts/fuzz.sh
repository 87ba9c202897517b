#!/usr/bin/env bash
# Runs every fuzzer (or the ones named) for the given number of seconds each (default 60), starting
# from the corpus in fuzz/corpus/<name>. New inputs go to build/fuzz/corpus/<name>; crashes, hangs
# (over 10 s) and leaks to build/fuzz/artifacts/. Keep a crash as a regression input by copying it
# into fuzz/corpus/<name>/.
#
#   bash scripts/fuzz.sh 600                      # every fuzzer, ten minutes each
#   bash scripts/fuzz.sh 600 agent_reply scan_events
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p build/fuzz/artifacts
# A reply may announce a payload of up to 2 GiB, which the library allocates before reading it.
# Under AddressSanitizer each such block costs half a second, so blocks over 64 MiB fail instead:
# the fuzzers then take the library's path for a failed allocation, at full speed.
export ASAN_OPTIONS=${ASAN_OPTIONS:-allocator_may_return_null=1:max_allocation_size_mb=64}
if [ $# -gt 0 ]; then names=("$@"); else
  names=()
  for fuzzer in build/fuzz/fuzz/*_fuzzer; do names+=("$(basename "$fuzzer" _fuzzer)"); done
fi
for name in "${names[@]}"; do
  work=build/fuzz/corpus/$name
  mkdir -p "$work"
  echo "== $name: ${seconds}s"
  "build/fuzz/fuzz/${name}_fuzzer" -max_total_time="$seconds" -timeout=10 -close_fd_mask=1 -print_final_stats=1 \
    -artifact_prefix=build/fuzz/artifacts/"$name"- "$work" "fuzz/corpus/$name" 2>&1 |
    grep -aE '^(#[0-9]+[[:space:]]+DONE|stat::number_of_executed_units|stat::peak_rss|==[0-9]+==ERROR|SUMMARY)' || true
done
