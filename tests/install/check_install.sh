#!/usr/bin/env bash
# check_install.sh BUILD_DIR: installs the library's runtime and development components of a build
# (shared or static) into a scratch prefix, checks that they hold no program, and builds two small
# applications against them: one through find_package(Wrenlink), one through pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

for component in Wrenlink_Runtime Wrenlink_Development; do
  cmake --install "$build_dir" --prefix "$prefix" --component "$component" >/dev/null
done
test -f "$prefix/include/Wrenlink/Wrenlink.h"
test -f "$prefix/include/Wrenlink/ComLog.h"
programs=$(find "$prefix" -type f -perm /111 ! -name 'libWrenlink.*')
if [[ -n $programs ]]; then
  echo "install: the library's components hold programs: $programs" >&2
  exit 1
fi

# The library of a sanitizer build carries its runtime; an uninstrumented application may load it.
export ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0

cmake -S "$source_dir/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/consumer"
"$work/consumer/consumer_cxx"

pc=$(find "$prefix" -name wrenlink.pc)
export PKG_CONFIG_PATH=$(dirname "$pc")
libdir=$(dirname "$(dirname "$pc")")
if [[ -e $libdir/libWrenlink.a ]]; then
  pc_libs=$(pkg-config --static --libs wrenlink)
else
  pc_libs="$(pkg-config --libs wrenlink) -Wl,-rpath,$libdir"
fi
# shellcheck disable=SC2046,SC2086
cc -std=c99 -o "$work/pc_consumer" "$source_dir/consumer/main.c" $(pkg-config --cflags wrenlink) \
   -DWRENLINK_PACKAGE_VERSION="\"$(pkg-config --modversion wrenlink)\"" $pc_libs
"$work/pc_consumer"
echo "install: ok"
