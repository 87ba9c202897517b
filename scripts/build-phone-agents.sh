#!/usr/bin/env bash
# Builds the reference agent for the four Android ABIs, each a static executable that needs nothing
# on the phone but its kernel:
#   build-phone-agents.sh
# leaves build/phone-agents/<abi>/wrenlink-agent, stripped (arm64-v8a, armeabi-v7a, x86_64, x86),
# with each one's build tree in build/phone-agents/<abi>/tree. As root it installs the Debian
# compilers that are missing (scripts/ensure-packages.sh). Only the agent is built: tests, bench and
# examples are off, and the library itself is not compiled; each target compiles as one unit (a
# unity build), which takes a third of the time. A second run rebuilds only what changed.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/ensure-packages.sh cmake ninja-build g++ g++-aarch64-linux-gnu g++-arm-linux-gnueabihf \
     g++-i686-linux-gnu file

out=build/phone-agents
# abi, then the words `file` must print for it
abis=("arm64-v8a:ARM aarch64" "armeabi-v7a:ARM, EABI5" "x86_64:x86-64" "x86:Intel 80386")
# One ABI: configure (once), build, strip, check what `file` says. Prints one line.
build_abi() {
  local abi=${1%%:*} expected=${1#*:}
  local tree=$out/$abi/tree toolchain=cmake/toolchains/$abi.cmake
  # A toolchain's flags are read only when a tree is first configured: a changed one starts afresh.
  if [[ ! -f $tree/CMakeCache.txt || $toolchain -nt $tree/CMakeCache.txt ||
        cmake/toolchains/phone-common.cmake -nt $tree/CMakeCache.txt ]]; then
    rm -rf "$tree"
    cmake -S . -B "$tree" -G Ninja --no-warn-unused-cli \
          -DCMAKE_TOOLCHAIN_FILE="$PWD/$toolchain" -DCMAKE_BUILD_TYPE=Release \
          -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 \
          -DWRENLINK_BUILD_TOOLS=ON -DWRENLINK_BUILD_TESTS=OFF -DWRENLINK_BUILD_BENCH=OFF \
          -DWRENLINK_BUILD_EXAMPLES=OFF -DWRENLINK_INSTALL=OFF -DWRENLINK_WARNINGS_AS_ERRORS=ON >/dev/null
  fi
  cmake --build "$tree" --target wrenlink-agent -j 1 >/dev/null
  local strip description
  strip=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "$tree/CMakeCache.txt")
  "$strip" -o "$out/$abi/wrenlink-agent" "$tree/bin/wrenlink-agent"
  description=$(file -b "$out/$abi/wrenlink-agent")
  if [[ $description != *"$expected"* || $description != *"statically linked"* ]]; then
    echo "build-phone-agents: $abi: not a static $expected executable: $description" >&2
    return 1
  fi
  printf '%-12s %8d bytes  %s\n' "$abi" "$(stat -c %s "$out/$abi/wrenlink-agent")" "$description"
}

# The four at once: a build is a few large units and a configure mostly one process, so one ABI
# alone leaves a core idle. Each prints its line when done; any failure fails the whole.
mkdir -p "$out"
pids=()
for entry in "${abis[@]}"; do
  build_abi "$entry" >"$out/${entry%%:*}.line" &
  pids+=($!)
done
failed=0
for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
for entry in "${abis[@]}"; do cat "$out/${entry%%:*}.line"; done
exit "$failed"
