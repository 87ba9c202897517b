#!/usr/bin/env bash
# ensure-packages.sh PACKAGE...: installs the Debian packages that are missing (as root), or says
# which are missing and fails.
set -euo pipefail
missing=()
for p in "$@"; do
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
