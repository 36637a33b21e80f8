#!/bin/sh
# Installs the build tree into a scratch prefix, then builds and runs a consumer through
# find_package(chainvet) and checks pkg-config's view of the same copy.
set -eu
build=$1
src=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" > "$tmp/install.log"
cmake -S "$src/consumer" -B "$tmp/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$tmp/prefix" > "$tmp/configure.log"
cmake --build "$tmp/consumer" > "$tmp/build.log"
LD_LIBRARY_PATH="$tmp/prefix/lib" "$tmp/consumer/consumer"
PKG_CONFIG_PATH="$tmp/prefix/lib/pkgconfig" pkg-config --libs --cflags chainvet
echo "install: find_package and pkg-config both work"
