#!/bin/sh
# Installs the build into an empty directory and uses it from there as an outsider does: a C++ program by the CMake
# package, a C program by pkg-config, and the tree moved to another place still works.
#
# usage: installed_consumer.sh CMAKE BUILD_DIR CONSUMER_DIR C_COMPILER CXX_COMPILER
set -eu
cmake=$1 build=$2 consumer=$3 cc=$4 cxx=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" >"$work/install.log" || { cat "$work/install.log"; exit 1; }
mv "$work/first" "$work/prefix"
prefix=$work/prefix
libdir=$(dirname "$(find "$prefix" -name libspamreport.so)")

echo "C++ by CMake"
"$cmake" -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_STANDARD=20 >"$work/cmake.log" || { cat "$work/cmake.log"; exit 1; }
"$cmake" --build "$work/cmake" >"$work/cmake.log" || { cat "$work/cmake.log"; exit 1; }
"$work/cmake/consumer"

echo "C by pkg-config"
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
test "$(pkg-config --modversion velmar-spamreport)" = "$(sed -n 's/^CMAKE_PROJECT_VERSION:[^=]*=//p' "$build/CMakeCache.txt")"
# shellcheck disable=SC2046
"$cc" -Wall -Wextra -Werror -pedantic -std=c11 "$consumer/main.c" -o "$work/consumer" \
  $(pkg-config --cflags --libs velmar-spamreport) -Wl,-rpath-link,"$libdir"
LD_LIBRARY_PATH=$libdir "$work/consumer"
echo "ok"
