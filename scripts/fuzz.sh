#!/usr/bin/env bash
# Runs every fuzzer for the given number of seconds each (default 60), starting from the corpus in
# fuzz/corpus/<name>. New inputs go to build/fuzz/corpus/<name>; crashes to build/fuzz/artifacts/.
# Keep a crash as a regression input by copying it into fuzz/corpus/<name>/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p build/fuzz/artifacts
for fuzzer in build/fuzz/fuzz/*_fuzzer; do
  name=$(basename "$fuzzer" _fuzzer)
  work=build/fuzz/corpus/$name
  mkdir -p "$work"
  echo "== $name: ${seconds}s"
  "$fuzzer" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix=build/fuzz/artifacts/"$name"- \
    "$work" "fuzz/corpus/$name" 2>&1 | grep -E '^(#[0-9]+[[:space:]]+DONE|stat::number_of_executed_units|stat::peak_rss|==[0-9]+==ERROR|SUMMARY)' || true
done
