#!/usr/bin/env bash
# test-python.sh [BUILD]: the Python module's tests against a release build (build/release by
# default; its library and its tools). Makes a virtual environment whose interpreter is a copy of
# Debian's Python, so that the library, which runs <folder of the executable>/../Resources/adb,
# finds the adb linked into the environment's Resources; installs the module there with pip from
# ./python, offline; and runs python/tests with pytest against the installed module.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
venv=$build/python-venv
library=$PWD/$build/lib/libWrenlink.so.0.1
test -e "$library" || { echo "test-python.sh: no $library: build the release preset first" >&2; exit 1; }

# pip need not compile its own files (a few seconds), nor look for a newer self or an index.
export PIP_NO_COMPILE=1 PIP_DISABLE_PIP_VERSION_CHECK=1 PIP_NO_INDEX=1
rm -rf "$venv"
/usr/bin/python3 -m venv --copies --system-site-packages "$venv"
mkdir "$venv/Resources"
if [[ -x /usr/bin/adb ]]; then ln -s /usr/bin/adb "$venv/Resources/adb"; fi
"$venv/bin/python3" -m pip install -q ./python
export WRENLINK_LIBRARY=$library WRENLINK_TOOLS=$PWD/$build/bin
"$venv/bin/python3" -c 'import wrenlink; assert "site-packages" in wrenlink.__file__, wrenlink.__file__'
"$venv/bin/python3" -m pytest -q -p no:cacheprovider python/tests
