#!/usr/bin/env bash
# Builds and runs the vtcore-ui consumer against an installed VTCore package,
# with CMake's find_package and with pkg-config, with no library search
# variables set (a build against a prefix the loader does not search records
# LIBDIR as its run path, as the README says). Qt draws offscreen.
#   examples/ui-consumer/check.sh PREFIX LIBDIR
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: examples/ui-consumer/check.sh PREFIX LIBDIR" >&2
  exit 2
fi
prefix=$1
libdir=$2
rpath=(-Wl,-rpath,"$libdir")
case "$libdir" in /usr/lib|/usr/lib/*) rpath=() ;; esac
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
if [ ! -e "$libdir/pkgconfig/vtcore-ui.pc" ]; then
  echo "check-package: vtcore-ui was not built (no Qt 6); UI consumer skipped"
  exit 0
fi
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT

echo "check-package: CMake UI consumer"
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >"$work/build.log" 2>&1 || { cat "$work/build.log" >&2; exit 1; }
"$work/cmake/ui-consumer" -platform offscreen

echo "check-package: pkg-config UI consumer"
pc() { PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config "$@"; }
moc=$(pc --variable=libexecdir Qt6Core)/moc
"$moc" "$here/main.cpp" -o "$work/main.moc"
# shellcheck disable=SC2046
g++ -std=c++20 -fPIC -I"$work" -o "$work/ui-consumer-pc" "$here/main.cpp" \
  $(pc --cflags --libs vtcore-ui) "${rpath[@]}"
"$work/ui-consumer-pc" -platform offscreen

# The Designer plugin comes with the UI library's development files and,
# moved with the prefix, still finds vtcore-ui without a search path.
echo "check-package: Qt Designer plugin"
plugin=$(find "$prefix" -path '*/plugins/designer/libvtcore-designer.so' | head -n 1)
if [ -z "$plugin" ]; then
  echo "check-package: the Qt Designer plugin is not installed" >&2
  exit 1
fi
if env -u LD_LIBRARY_PATH ldd "$plugin" | grep 'vtcore' | grep -q 'not found'; then
  echo "check-package: the moved Qt Designer plugin does not find vtcore-ui" >&2
  exit 1
fi
