#!/usr/bin/env bash
# The demo command. On a fresh Debian machine too: as root it installs the Debian packages that
# are missing (the same as scripts/test.sh), then
#   - builds the library, the reference agent and the sample-phone maker (release preset),
#   - installs the library into build/stage as an application would get it,
#   - builds the demo application, and the desktop browser where Qt 6 is, against that installed
#     library alone,
#   - makes a sample phone under build/demo-run, serves it with the agent, runs the demo, stops
#     the agent. When adb is installed, the agent sits behind a simulated phone
#     (tools/wrenlink-phone) that a private adb server connects to, and the demo reaches it
#     through adb: it lists the phone and forwards its port;
#   - when the phone builds of the agent are installed too (scripts/build-phone-agents.sh made
#     them before) and qemu-user-static is there, runs the demo once more with --install-agent:
#     it installs the arm64 build from its own install tree on a simulated arm64 phone.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD

# The packages of scripts/test.sh: configuring the release preset wants them all.
bash scripts/ensure-packages.sh g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
     adb procps util-linux qt6-base-dev fonts-dejavu-core

echo "== building (release preset)"
cmake --preset release >/dev/null
cmake --build --preset release --target Wrenlink wrenlink-agent make-sample-phone wrenlink-phone

echo "== installing the library into build/stage"
stage=$top/build/stage
rm -rf "$stage"
cmake --install build/release --prefix "$stage" >/dev/null

echo "== building wrenlink-demo against the installed library"
cmake -S examples/wrenlink-demo -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_PREFIX_PATH="$stage" >/dev/null
cmake --build build/demo
cmake --install build/demo --prefix "$stage" >/dev/null

echo "== building wrenlink-browser against the installed library"
cmake -S examples/wrenlink-browser -B build/browser -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_PREFIX_PATH="$stage" >/dev/null
cmake --build build/browser
cmake --install build/browser --prefix "$stage" >/dev/null
# As a desktop application ships it: the adb tool in Resources beside the executable's folder.
if adb_path=$(command -v adb); then
  mkdir -p "$stage/Resources"
  ln -sf "$adb_path" "$stage/Resources/adb"
fi

echo "== running the demo"
echo
mkdir -p build/demo-run
bash scripts/run-demo.sh "$stage/bin/wrenlink-agent" build/release/bin/make-sample-phone \
     "$stage/bin/wrenlink-demo" "$top/build/demo-run" "$top/build/release/bin/wrenlink-phone"

if [[ -n ${adb_path:-} && -f $stage/share/wrenlink/phone-agents/arm64-v8a/wrenlink-agent ]] &&
   command -v qemu-aarch64-static >/dev/null; then
  echo
  echo "== running the demo again: it installs the agent on the simulated phone"
  echo
  mkdir -p build/demo-install-run
  bash scripts/run-demo.sh "$stage/bin/wrenlink-agent" build/release/bin/make-sample-phone \
       "$stage/bin/wrenlink-demo" "$top/build/demo-install-run" "$top/build/release/bin/wrenlink-phone" installed
fi
