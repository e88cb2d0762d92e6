#!/usr/bin/env bash
# Run by scripts/check-package and scripts/check-debs as check.sh PREFIX
# LIBDIR: a program that links the installed VTCore without calling it keeps
# libvtcore as a needed library, with CMake's find_package and with
# pkg-config, so the allocator interposition is in force. Runs with no
# library search variables: a build against a prefix the loader does not
# search records LIBDIR as its run path, as the README says.
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: examples/direct_link/check.sh PREFIX LIBDIR" >&2
  exit 2
fi
prefix=$1
libdir=$2
rpath=(-Wl,-rpath,"$libdir")
case "$libdir" in /usr/lib|/usr/lib/*) rpath=() ;; esac
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT

echo "check-package: direct link (CMake)"
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/direct_link"

echo "check-package: direct link (pkg-config)"
# shellcheck disable=SC2046
g++ -std=c++20 -o "$work/direct_link_pc" "$here/main.cpp" \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs vtcore) -ldl "${rpath[@]}"
"$work/direct_link_pc"
