#!/usr/bin/env bash
# Builds Wrenlink and runs every test, on a fresh Debian machine too: when run as root it installs
# the Debian packages that are missing, then configures the development preset (AddressSanitizer +
# UndefinedBehaviorSanitizer), builds and runs ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev adb procps util-linux)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  if [[ $(id -u) -eq 0 ]]; then
    echo "installing: ${missing[*]}"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
  else
    echo "missing Debian packages (run as root to install them): ${missing[*]}" >&2
    exit 1
  fi
fi

cmake --preset dev
cmake --build --preset dev
ctest --preset dev "$@"
