#!/usr/bin/env bash
# check_packages.sh DIR: checks the Debian packages that scripts/package.sh left in DIR, as root.
# lintian finds no error in them; apt-get installs them; C programs build against the installed
# library through pkg-config (shared, and fully static) and through find_package(Wrenlink), and
# run; Debian's python3 imports the module, which loads the installed library; the programs answer
# --help from /usr/bin; and the installed demo, through its adb link and the phone builds, installs
# the agent on a simulated phone and runs every step against it. The packages are purged at the end,
# also after a failure, and must leave nothing behind.
set -euo pipefail
packages=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/../.." && pwd)
consumer=$top/tests/install/consumer
names=(libwrenlink0.1 libwrenlink-dev wrenlink-tools python3-wrenlink)
# The loader may name /lib for /usr/lib, which is the same folder on a merged /usr.
system_libdir=/lib/$(gcc -print-multiarch) libdir=/usr/lib/$(gcc -print-multiarch)
export DEBIAN_FRONTEND=noninteractive
work=$(mktemp -d)

purge() {
  local installed
  installed=$(dpkg-query -W -f='${db:Status-Abbrev} ${Package}\n' "${names[@]}" 2>/dev/null | awk '!/^un/ {print $2}' || true)
  if [[ -n $installed ]]; then
    # shellcheck disable=SC2086
    apt-get purge -y -qq $installed >/dev/null
  fi
}
trap 'purge; rm -rf "$work"' EXIT
# Runs a command whose standard error is expected noise, showing it only when the command fails.
quiet() { "$@" 2>"$work/stderr" || { cat "$work/stderr" >&2; return 1; }; }

lintian --fail-on error "$packages"/*.deb
echo "packages: lintian found no error"

purge  # an installed copy of the same version would be kept rather than replaced
apt-get install -y -qq "$packages"/*.deb >/dev/null
# (grep reads all its input here: a reader that quits early would fail the pipe.)
# libc's trigger has brought the loader's cache up to date.
ldconfig -p | grep -E "libWrenlink.so.0.1 .*=> (/usr)?$system_libdir/libWrenlink.so.0.1$" >/dev/null

cd "$work"
# shellcheck disable=SC2046
cc -std=c99 -o pc_consumer "$consumer/main.c" $(pkg-config --cflags --libs wrenlink) \
   -DWRENLINK_PACKAGE_VERSION="\"$(pkg-config --modversion wrenlink)\""
./pc_consumer
ldd pc_consumer | grep -E "libWrenlink.so.0.1 => (/usr)?$system_libdir/libWrenlink.so.0.1 " >/dev/null
# shellcheck disable=SC2046
cc -std=c99 -static -o static_consumer "$consumer/main.c" $(pkg-config --static --cflags --libs wrenlink) \
   -DWRENLINK_PACKAGE_VERSION="\"$(pkg-config --modversion wrenlink)\""
./static_consumer

cmake -S "$consumer" -B cmake_consumer >/dev/null
grep -qx "Wrenlink_DIR:PATH=$libdir/cmake/Wrenlink" cmake_consumer/CMakeCache.txt
cmake --build cmake_consumer >/dev/null
cmake_consumer/consumer
cmake_consumer/consumer_cxx

# Nothing listens on port 1: the connect fails in the library (which says so on stderr), and the
# module raises the exception it documents.
quiet env -u WRENLINK_LIBRARY /usr/bin/python3 -c '
import wrenlink
assert wrenlink.__file__.startswith("/usr/lib/python3/dist-packages/wrenlink/"), wrenlink.__file__
try:
    wrenlink.Agent("127.0.0.1", 1)
    raise SystemExit("python: an agent answered on port 1")
except wrenlink.AgentConnectError:
    pass
with open("/proc/self/maps") as maps:
    assert "'"$libdir"'/libWrenlink.so.0.1" in maps.read(), "not the installed library"
print("python3: wrenlink imported from", wrenlink.__file__)
'

for program in wrenlink-agent wrenlink-phone make-sample-phone wrenlink-demo wrenlink-browser; do
  "/usr/bin/$program" --help | grep "^usage: $program" >/dev/null
done
echo "packages: the programs answer --help from /usr/bin"

if [[ -x /usr/bin/adb ]] && command -v qemu-aarch64-static >/dev/null; then
  bash "$top/scripts/run-demo.sh" /usr/bin/wrenlink-agent /usr/bin/make-sample-phone /usr/bin/wrenlink-demo \
       "$work/demo" /usr/bin/wrenlink-phone installed >"$work/demo.log" 2>&1 || { cat "$work/demo.log"; exit 1; }
  echo "packages: the installed demo installed the agent on a simulated phone through adb, all steps passed"
else
  echo "packages: the installed demo's run skipped: it needs adb and qemu-user-static"
fi

cd "$top"
purge
left=$(ls -d "$libdir"/libWrenlink* /usr/lib/wrenlink /usr/lib/python3/dist-packages/wrenlink 2>/dev/null || true)
if [[ -n $left ]] || ldconfig -p | grep libWrenlink >/dev/null; then
  echo "packages: purged, but left: $left" >&2
  exit 1
fi
echo "packages: ok (installed, used and purged)"
