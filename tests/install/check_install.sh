#!/bin/sh
# Installs the build tree into a scratch prefix, then builds and runs a consumer through
# find_package(chainvet) and checks pkg-config's view of the same copy.
set -eu
build=$1
src=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
# Quiet unless a step fails: then its log is the diagnosis (an undefined reference, a
# header that does not compile alone).
step() {
    log=$1
    shift
    "$@" > "$tmp/$log" 2>&1 || { cat "$tmp/$log"; echo "install: failed: $*"; exit 1; }
}
step install.log cmake --install "$build" --prefix "$tmp/prefix"
step configure.log cmake -S "$src/consumer" -B "$tmp/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$tmp/prefix"
step build.log cmake --build "$tmp/consumer" -j 2
LD_LIBRARY_PATH="$tmp/prefix/lib" "$tmp/consumer/consumer" "$tmp"
PKG_CONFIG_PATH="$tmp/prefix/lib/pkgconfig" pkg-config --libs --cflags chainvet
echo "install: find_package and pkg-config both work"
