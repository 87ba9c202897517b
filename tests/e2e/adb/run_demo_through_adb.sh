#!/usr/bin/env bash
# The demo application through Debian's adb, as the demo command runs it when adb is installed:
#   run_demo_through_adb.sh AGENT MAKE_SAMPLE_PHONE DEMO PHONE
# The demo is copied into an application folder whose Resources/adb is the system's adb; the
# agent sits behind a simulated phone on a private adb server. Exit status 77 (skipped) without adb.
set -euo pipefail
agent=$1 make_sample=$2 demo=$3 phone=$4
[[ -x /usr/bin/adb ]] || { echo "/usr/bin/adb is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/app/bin" "$work/app/Resources" "$work/home"
cp "$demo" "$work/app/bin/"
ln -s /usr/bin/adb "$work/app/Resources/adb"
export HOME=$work/home          # the adb server keeps its key under $HOME/.android
export ASAN_OPTIONS=detect_leaks=0
out=$(bash "$(dirname "$0")/../../../scripts/run-demo.sh" "$agent" "$make_sample" "$work/app/bin/$(basename "$demo")" \
      "$work" "$phone")
echo "$out"
grep -Eq "^ +127\.0\.0\.1:[0-9]+ +Wren One +Wrenfield +9 +yes$" <<<"$out"
grep -q "adb forwards 127.0.0.1:" <<<"$out"
grep -q "^All steps passed.$" <<<"$out"
grep -q "is identical to the phone's file" <<<"$out"
