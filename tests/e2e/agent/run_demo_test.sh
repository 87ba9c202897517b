#!/usr/bin/env bash
# The demo application against the reference agent, as the demo command runs it:
#   run_demo_test.sh AGENT MAKE_SAMPLE_PHONE DEMO
# The demo is copied into an application folder of its own with no Resources/adb, so that it
# reports adb as missing instead of starting a real adb server. With WRENLINK_AGENT_COMMAND set
# (words, e.g. "qemu-aarch64-static .../wrenlink-agent"), that command is the agent instead.
set -euo pipefail
agent=$1 make_sample=$2 demo=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [[ -n ${WRENLINK_AGENT_COMMAND:-} ]]; then
  agent=$work/agent
  printf '#!/bin/sh\nexec %s "$@"\n' "$WRENLINK_AGENT_COMMAND" >"$agent"
  chmod +x "$agent"
fi
mkdir -p "$work/app/bin"
cp "$demo" "$work/app/bin/"
export ASAN_OPTIONS=detect_leaks=0
out=$(bash "$(dirname "$0")/../../../scripts/run-demo.sh" "$agent" "$make_sample" "$work/app/bin/$(basename "$demo")" "$work")
echo "$out"
grep -q "adb is missing" <<<"$out"
grep -q "^All steps passed.$" <<<"$out"
grep -q "is identical to the phone's file" <<<"$out"
