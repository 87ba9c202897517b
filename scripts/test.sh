#!/usr/bin/env bash
# Builds Wrenlink and runs every test, on a fresh Debian machine too: when run as root it installs
# the Debian packages that are missing, then configures the development preset (AddressSanitizer +
# UndefinedBehaviorSanitizer), builds and runs ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/ensure-packages.sh g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
     adb procps util-linux

cmake --preset dev
cmake --build --preset dev
ctest --preset dev "$@"
