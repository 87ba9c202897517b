#!/usr/bin/env bash
# Builds Wrenlink and runs every test, on a fresh Debian machine too: when run as root it installs
# the Debian packages that are missing. Then
#   - the agent's static phone builds (scripts/build-phone-agents.sh), which the development
#     preset's ctest runs under qemu-user; both are skipped, with a message, where their packages
#     (cross compilers, qemu-user-static) cannot be had;
#   - the development preset (AddressSanitizer + UndefinedBehaviorSanitizer): build, ctest;
#   - the concurrency tests under ThreadSanitizer (tsan preset): build, ctest;
#   - every other build that README.md and the documents it points to give: the release preset
#     (the benchmarks, tools and examples; warnings as errors) and the demo against its installed
#     library (scripts/demo.sh); the Python module against the release build
#     (scripts/test-python.sh); the packagers' lib preset, shared and static, each installed and
#     linked into C programs; the Debian packages (scripts/package.sh), installed, used and purged;
#     the fuzz preset (the library and the fuzzers, built by clang); and an application that adds
#     the source tree with add_subdirectory while the test frameworks cannot be found.
# Qt 6 (qt6-base-dev, and a font for its offscreen screenshots) is there for the desktop browser
# and its gui tests.
# Arguments go to the first ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
# Each part's heading says how long the command has run so far.
section() { echo "== [${SECONDS}s] $*"; }
trap 'echo "== [${SECONDS}s] test command ends"' EXIT

# Everything at once (one install is much quicker than several); where that fails, what the
# tests cannot do without, and then each optional group on its own.
required=(g++ clang libclang-rt-dev cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev adb
          procps util-linux python3-pytest python3-venv iproute2 qt6-base-dev fonts-dejavu-core file lintian
          dpkg-dev binutils ccache)
cross=(g++-aarch64-linux-gnu g++-arm-linux-gnueabihf g++-i686-linux-gnu)
emulators=(qemu-user-static)
if ! bash scripts/ensure-packages.sh "${required[@]}" "${cross[@]}" "${emulators[@]}"; then
  bash scripts/ensure-packages.sh "${required[@]}"
  bash scripts/ensure-packages.sh "${cross[@]}" || echo "the cross compilers could not be installed"
  bash scripts/ensure-packages.sh "${emulators[@]}" ||
    echo "qemu-user-static could not be installed: the tests of the phone builds skip"
fi

# The builds of this run that share their flags (release, lib, the subproject) compile each file
# once; the cache lives in the build tree, not in the user's home.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD
  export CCACHE_DIR=${CCACHE_DIR:-$PWD/build/ccache}
fi

section "the agent for phones: static builds for four ABIs, tested under qemu-user by the dev preset"
if bash scripts/ensure-packages.sh "${cross[@]}"; then
  bash scripts/build-phone-agents.sh
else
  echo "phone builds skipped: their cross compilers could not be installed (their tests skip too)"
fi

section "development preset: build, ctest"
cmake --preset dev
cmake --build --preset dev
ctest --preset dev "$@"

section "ThreadSanitizer preset: build, ctest"
cmake --preset tsan
cmake --build --preset tsan
ctest --preset tsan

section "release preset, and the demo built against its installed library"
# Warnings fail here as in the other presets; the release preset alone never fails on one.
cmake --preset release -DWRENLINK_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build --preset release
bash scripts/demo.sh

section "the fault soak against the release build: a minute of faults, about a minute and a half in all (docs/soak.md)"
bash scripts/soak.sh --minutes 1

section "the Python module, installed with pip, against the release build"
bash scripts/test-python.sh build/release

section "lib preset: shared, then static"
cmake --preset lib -DWRENLINK_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build --preset lib
bash tests/install/check_install.sh build/lib
cmake --preset lib -DBUILD_SHARED_LIBS=OFF >/dev/null
cmake --build --preset lib
bash tests/install/check_install.sh build/lib

section "Debian packages: built, checked by lintian, installed with apt-get, used and purged"
if [[ $(id -u) -eq 0 ]]; then
  bash scripts/ensure-packages.sh lintian dpkg-dev file binutils
  bash scripts/package.sh
  bash tests/packages/check_packages.sh build/packages
else
  echo "Debian packages skipped: installing them takes root"
fi

section "the library and the fuzzers, built by clang (scripts/fuzz.sh builds them so)"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

section "an application that adds the source tree, without GoogleTest or Google Benchmark"
app=build/subproject
cmake -S tests/subproject -B "$app" -G Ninja --no-warn-unused-cli -DCMAKE_BUILD_TYPE=Release \
      -DWRENLINK_WARNINGS_AS_ERRORS=ON \
      -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON >/dev/null
cmake --build "$app"
ctest --test-dir "$app" --output-on-failure
# Its ctest holds its own test alone, and its install none of ours.
ctest --test-dir "$app" -N | grep -qx "Total Tests: 1"
rm -rf "$app/installed"
cmake --install "$app" --prefix "$app/installed" >/dev/null
test ! -e "$app/installed"
echo "subproject: ok"
