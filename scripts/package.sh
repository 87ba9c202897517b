#!/usr/bin/env bash
# package.sh: the Debian packages, left in build/packages as <package>_<version>_<arch>.deb:
# libwrenlink0.1, libwrenlink-dev, wrenlink-tools and python3-wrenlink (packaging/CMakeLists.txt
# says what each holds). They are made by CPack from
#   - the release build (build/release, built here as far as needed), configured for the /usr
#     prefix while the packages are made and given its own prefix back afterwards, so that its
#     other installs (scripts/demo.sh) keep their layout;
#   - the static library of the lib preset (build/lib, configured with BUILD_SHARED_LIBS=OFF);
#   - the agent's phone builds (scripts/build-phone-agents.sh).
# As root it installs the Debian packages that are missing.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
out=$top/build/packages

bash scripts/ensure-packages.sh g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
     qt6-base-dev dpkg-dev file binutils
bash scripts/build-phone-agents.sh >/dev/null

echo "== the static library (lib preset, BUILD_SHARED_LIBS=OFF)"
cmake --preset lib -DBUILD_SHARED_LIBS=OFF >/dev/null
cmake --build --preset lib

echo "== the release build, configured for /usr"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' build/release/CMakeCache.txt 2>/dev/null || true)
prefix=${prefix:-/usr/local}  # CMake's own default, for a tree not configured yet
restore_prefix() {
  cmake --preset release -DCMAKE_INSTALL_PREFIX="$prefix" -DWRENLINK_DEBIAN_PACKAGES=OFF >/dev/null
}
trap restore_prefix EXIT
cmake --preset release -DCMAKE_INSTALL_PREFIX=/usr -DWRENLINK_DEBIAN_PACKAGES=ON \
      -DWRENLINK_DEBIAN_STATIC_LIBRARY="$top/build/lib/lib/libWrenlink.a" >/dev/null
cmake --build --preset release

echo "== packages"
rm -rf "$out"
mkdir -p "$out"
cpack --config build/release/CPackConfig.cmake -B build/release/cpack >/dev/null
mv build/release/cpack/*.deb "$out/"
for deb in "$out"/*.deb; do
  printf '%-48s %9d bytes\n' "$(basename "$deb")" "$(stat -c %s "$deb")"
done
