#!/usr/bin/env bash
# Installs the built library into a scratch prefix and builds two small applications against it:
# one through find_package(Wrenlink), one through pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
test -f "$work/prefix/include/Wrenlink/Wrenlink.h"
test -f "$work/prefix/include/Wrenlink/ComLog.h"

# The library of a sanitizer build carries its runtime; an uninstrumented application may load it.
export ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0

cmake -S "$source_dir/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/consumer"
"$work/consumer/consumer_cxx"

libdir=$(dirname "$(find "$work/prefix" -name 'libWrenlink.so*' -o -name 'libWrenlink*.dylib' | head -n 1)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
cc -std=c99 -o "$work/pc_consumer" "$source_dir/consumer/main.c" $(pkg-config --cflags --libs wrenlink) \
   -Wl,-rpath,"$libdir"
"$work/pc_consumer"
echo "install: ok"
