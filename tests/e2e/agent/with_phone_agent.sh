#!/usr/bin/env bash
# Runs a test against a phone build of the agent under its emulator:
#   with_phone_agent.sh AGENT EMULATOR COMMAND...
# runs COMMAND with WRENLINK_AGENT_COMMAND="<EMULATOR's full path> AGENT", which the end-to-end
# suite (agent_process.cpp) and run_demo_test.sh start instead of this build's agent. Exits 77
# (skipped) when AGENT or EMULATOR is not there, and says so.
set -euo pipefail
agent=$1 emulator=$2
shift 2
if [[ ! -x $agent ]]; then echo "skipped: no agent at $agent (bash scripts/build-phone-agents.sh)"; exit 77; fi
if ! emulator_path=$(command -v "$emulator"); then
  echo "skipped: $emulator is missing (Debian package qemu-user-static)"; exit 77
fi
export WRENLINK_AGENT_COMMAND="$emulator_path $agent"
exec "$@"
