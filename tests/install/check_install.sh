#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs a client against it
# twice: with CMake's find_package and with pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
work=$build_dir/install-check
rm -rf "$work"
cmake --install "$build_dir" --prefix "$work/prefix" > /dev/null
libdir=$(ls -d "$work/prefix"/lib*/ | head -n 1)
libdir=${libdir%/}
# An installed config must not point back into the build tree.
if grep -rq "$build_dir" "$libdir/cmake/meshutil" "$libdir/pkgconfig/meshutil.pc"; then
    echo "installed package files refer to the build tree" >&2
    exit 1
fi

cmake -S "$source_dir/client" -B "$work/client" -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/client" > /dev/null
out=$(LD_LIBRARY_PATH="$libdir" "$work/client/client")
echo "find_package client: $out"
[[ "$out" == "meshutil 4.7.2.1, a tetrahedron has 4 nodes" ]]

export PKG_CONFIG_PATH="$libdir/pkgconfig"
[[ "$(pkg-config --modversion meshutil)" == "4.7.2.1" ]]
# shellcheck disable=SC2046
${CXX:-c++} -std=c++17 "$source_dir/client/main.cpp" -o "$work/pc-client" $(pkg-config --cflags --libs meshutil)
out=$(LD_LIBRARY_PATH="$libdir" "$work/pc-client")
echo "pkg-config client: $out"
[[ "$out" == "meshutil 4.7.2.1, a tetrahedron has 4 nodes" ]]
# The shared library carries its SONAME.
objdump -p "$libdir/libmeshutil.so.4.7.2.1" | grep -q 'SONAME *libmeshutil.so.4'
