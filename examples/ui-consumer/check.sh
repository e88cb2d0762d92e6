#!/usr/bin/env bash
# Builds and runs the vtcore-ui consumer against an installed VTCore package,
# with CMake's find_package and with pkg-config.
#   examples/ui-consumer/check.sh PREFIX LIBDIR
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: examples/ui-consumer/check.sh PREFIX LIBDIR" >&2
  exit 2
fi
prefix=$1
libdir=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
if [ ! -e "$libdir/pkgconfig/vtcore-ui.pc" ]; then
  echo "check-package: vtcore-ui was not built (no Qt 6); UI consumer skipped"
  exit 0
fi
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
export QT_QPA_PLATFORM=offscreen

echo "check-package: CMake UI consumer"
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake/ui-consumer"

echo "check-package: pkg-config UI consumer"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
moc=$(pkg-config --variable=libexecdir Qt6Core)/moc
"$moc" "$here/main.cpp" -o "$work/main.moc"
# shellcheck disable=SC2046
g++ -std=c++20 -fPIC -I"$work" -o "$work/ui-consumer-pc" "$here/main.cpp" \
  $(pkg-config --cflags --libs vtcore-ui)
LD_LIBRARY_PATH="$libdir" "$work/ui-consumer-pc"

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
