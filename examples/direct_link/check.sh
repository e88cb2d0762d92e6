#!/usr/bin/env bash
# Run by scripts/check-package PREFIX LIBDIR: a program that links the
# installed VTCore without calling it keeps libvtcore as a needed library,
# with CMake's find_package and with pkg-config, so the allocator
# interposition is in force.
set -euo pipefail
prefix=$1
libdir=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT

echo "check-package: direct link (CMake)"
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake/direct_link"

echo "check-package: direct link (pkg-config)"
# shellcheck disable=SC2046
g++ -std=c++20 -o "$work/direct_link_pc" "$here/main.cpp" \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs vtcore) -ldl
LD_LIBRARY_PATH="$libdir" "$work/direct_link_pc"
