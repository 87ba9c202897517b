#!/usr/bin/env bash
# Builds Wrenlink and runs every test, on a fresh Debian machine too: when run as root it installs
# the Debian packages that are missing. Then
#   - the development preset (AddressSanitizer + UndefinedBehaviorSanitizer): build, ctest;
#   - the concurrency tests under ThreadSanitizer (tsan preset): build, ctest;
#   - every other build that README.md gives: the release preset (the benchmarks, tools and
#     examples; warnings as errors) and the demo against its
#     installed library (scripts/demo.sh); the packagers' lib preset, shared and static, each
#     installed and linked into C programs; the library alone built by clang; the fuzz preset; and
#     an application that adds the source tree with add_subdirectory while the test frameworks
#     cannot be found.
# Qt 6 (qt6-base-dev, and a font for its offscreen screenshots) is there for the desktop browser
# and its gui tests.
# Arguments go to the first ctest.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/ensure-packages.sh g++ clang libclang-rt-dev cmake ninja-build pkg-config libgtest-dev libgmock-dev \
     libbenchmark-dev adb procps util-linux qt6-base-dev fonts-dejavu-core

cmake --preset dev
cmake --build --preset dev
ctest --preset dev "$@"

cmake --preset tsan
cmake --build --preset tsan
ctest --preset tsan

echo "== release preset, and the demo built against its installed library"
# Warnings fail here as in the other presets; the release preset alone never fails on one.
cmake --preset release -DWRENLINK_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build --preset release
bash scripts/demo.sh

echo "== lib preset: shared, then static"
cmake --preset lib >/dev/null
cmake --build --preset lib
bash tests/install/check_install.sh build/lib
cmake --preset lib -DBUILD_SHARED_LIBS=OFF >/dev/null
cmake --build --preset lib
bash tests/install/check_install.sh build/lib

echo "== the library alone, built by clang; the fuzzers (scripts/fuzz.sh builds them so)"
cmake --preset clang-lib >/dev/null
cmake --build --preset clang-lib
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

echo "== an application that adds the source tree, without GoogleTest or Google Benchmark"
app=build/subproject
cmake -S tests/subproject -B "$app" -G Ninja --no-warn-unused-cli \
      -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON >/dev/null
cmake --build "$app"
ctest --test-dir "$app" --output-on-failure
# Its ctest holds its own test alone, and its install none of ours.
ctest --test-dir "$app" -N | grep -qx "Total Tests: 1"
rm -rf "$app/installed"
cmake --install "$app" --prefix "$app/installed" >/dev/null
test ! -e "$app/installed"
echo "subproject: ok"
