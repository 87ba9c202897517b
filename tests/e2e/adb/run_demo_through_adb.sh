#!/usr/bin/env bash
# The demo application through Debian's adb, as the demo command runs it when adb is installed:
#   run_demo_through_adb.sh AGENT MAKE_SAMPLE_PHONE DEMO PHONE [PHONE_AGENTS]
# The demo is copied into an application folder whose Resources/adb is the system's adb; the
# agent sits behind a simulated phone on a private adb server. With PHONE_AGENTS (a folder of
# <abi>/wrenlink-agent builds) the demo installs the arm64 build on the phone instead, where it
# runs under qemu-user. Exit status 77 (skipped) without adb, or without qemu, the arm64 build or
# a mount namespace for the install.
set -euo pipefail
agent=$1 make_sample=$2 demo=$3 phone=$4 phone_agents=${5:-}
[[ -x /usr/bin/adb ]] || { echo "/usr/bin/adb is not installed"; exit 77; }
if [[ -n $phone_agents ]]; then
  command -v qemu-aarch64-static >/dev/null || { echo "qemu-user-static is not installed"; exit 77; }
  [[ -f $phone_agents/arm64-v8a/wrenlink-agent ]] ||
    { echo "no arm64 phone build at $phone_agents (bash scripts/build-phone-agents.sh makes it)"; exit 77; }
  # The phone gives a pushed program its storage as root in a mount namespace of its own.
  unshare --mount true 2>/dev/null || unshare --user --mount true 2>/dev/null ||
    { echo "no mount namespace here: the simulated phone cannot give the agent its storage as root"; exit 77; }
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/app/bin" "$work/app/Resources" "$work/home"
cp "$demo" "$work/app/bin/"
ln -s /usr/bin/adb "$work/app/Resources/adb"
export HOME=$work/home          # the adb server keeps its key under $HOME/.android
export ASAN_OPTIONS=detect_leaks=0
out=$(bash "$(dirname "$0")/../../../scripts/run-demo.sh" "$agent" "$make_sample" "$work/app/bin/$(basename "$demo")" \
      "$work" "$phone" "$phone_agents")
echo "$out"
grep -Eq "^ +127\.0\.0\.1:[0-9]+ +Wren One +Wrenfield +9 +yes$" <<<"$out"
grep -q "adb forwards 127.0.0.1:" <<<"$out"
grep -q "^All steps passed.$" <<<"$out"
grep -q "is identical to the phone's file" <<<"$out"
if [[ -n $phone_agents ]]; then
  grep -q "the phone's processor: arm64-v8a; its build: $phone_agents/arm64-v8a/wrenlink-agent" <<<"$out"
  grep -q "stopped the agent on the phone" <<<"$out"
fi
