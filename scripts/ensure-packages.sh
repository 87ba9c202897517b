#!/usr/bin/env bash
# ensure-packages.sh PACKAGE...: installs the Debian packages that are missing (as root), or says
# which are missing and fails. The package lists are fetched once per boot (the first install of
# a run fetches them; later calls of the same run reuse them), and again if an install fails on
# lists that are out of date.
set -euo pipefail
missing=()
for p in "$@"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
((${#missing[@]})) || exit 0
if [[ $(id -u) -ne 0 ]]; then
  echo "missing Debian packages (run as root to install them): ${missing[*]}" >&2
  exit 1
fi
stamp=/run/wrenlink-apt-lists-fetched
fetch_lists() { apt-get update -qq && touch "$stamp"; }
install() { DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; }
echo "installing: ${missing[*]}"
[[ -e $stamp ]] || fetch_lists
install || { fetch_lists && install; }
