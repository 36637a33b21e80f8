#!/bin/sh
# Puts an installed copy of the build tree under a scratch root, then builds and runs a
# consumer against it through find_package(chainvet) and through pkg-config.
# Usage: check_install.sh BUILD_DIR [install|package]
#   install  cmake --install with DESTDIR, prefix /opt/chainvet
#   package  the build tree's Debian package (cpack), unpacked by dpkg-deb -x; its files,
#            control fields and the program in it are checked first
set -eu
build=$1 mode=${2:-install}
case $mode in install | package) ;; *) echo "usage: check_install.sh BUILD_DIR [install|package]" >&2; exit 64 ;; esac
src=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
root=$tmp/root
fail=0
# Quiet unless a step fails: then its log is the diagnosis (an undefined reference, a
# header that does not compile alone).
step() {
    log=$1
    shift
    "$@" > "$tmp/$log" 2>&1 || { cat "$tmp/$log"; echo "$mode: failed: $*"; exit 1; }
}
bad() { echo "$mode: $*"; fail=1; }

# The unpacked package against its table: what must be there (LIB is the library
# directory), what must not, nothing outside the prefix's bin, lib, include/chainvet and
# the manual page, each library named by its SONAME, no debug sections, the Depends
# dpkg-shlibdeps found and the version the program reports. The headers, chainvet.pc and
# the package config files the consumer needs are proven by building it afterwards.
check_package() {
    while read -r kind path; do
        f=$root$prefix/$(printf '%s' "$path" | sed "s|^LIB/|$lib_rel/|")
        case $kind in
        file) [ -f "$f" ] && [ ! -L "$f" ] || bad "not a file: $path" ;;
        soname) [ -L "$f" ] && readelf -d "$f" | grep -q "(SONAME).*\[$(basename "$f")\]" ||
            bad "no link named by its SONAME: $path" ;;
        link) [ -L "$f" ] && [ -e "$f" ] || bad "not a working link: $path" ;;
        absent) [ ! -e "$f" ] || bad "must not be packaged: $path" ;;
        esac
        case $kind in file | soname)
            readelf -S -W "$f" 2>/dev/null | grep -q ' \.debug_info ' && bad "not stripped: $path" ;;
        esac
    done <<EOF
file bin/chainvet
soname LIB/libchainvet.so.0
link LIB/libchainvet.so
soname LIB/libqvcapi.so.1
link LIB/libqvcapi.so
file share/man/man1/chainvet.1.gz
absent include/chainvet/asn1rt/ber_decode_internal.h
absent include/chainvet/policies/frame.h
absent include/chainvet/policies/ocsp_certid.h
EOF
    dpkg-deb -c "$deb" | awk '{print $6}' |
        grep -Ev "^\./($|usr/$|usr/(bin|lib|include)/$|usr/bin/|usr/$lib_rel/|usr/include/chainvet/|usr/share/(man/(man1/(chainvet\.1\.gz)?)?)?$)" |
        sed 's/^/unexpected in the package: /' | grep . && fail=1
    version=$(dpkg-deb -f "$deb" Version)
    depends=$(dpkg-deb -f "$deb" Depends)
    for want in libc6 libstdc++6 libgnutls libnettle; do
        printf '%s\n' "$depends" | grep -q "\b$want" || bad "Depends lacks $want: $depends"
    done
    got=$(LD_LIBRARY_PATH="$libdir" "$root$prefix/bin/chainvet" --version) || bad "chainvet --version failed"
    [ "$got" = "chainvet $version (libchainvet $version)" ] || bad "package $version, program: $got"
    step demo.log env LD_LIBRARY_PATH="$libdir" "$root$prefix/bin/chainvet" demo
    # The manual holds a part for each command the program lists.
    listed=$(LD_LIBRARY_PATH="$libdir" "$root$prefix/bin/chainvet" --help | sed '1,/^Commands:/d' | grep -c .)
    parts=$(gzip -dc "$root$prefix/share/man/man1/chainvet.1.gz" | grep -c '^\.SS ') || true
    [ "$parts" = "$listed" ] || bad "chainvet.1 has $parts command parts, chainvet --help lists $listed"
    echo "$mode: $(basename "$deb"), $(stat -c %s "$deb") bytes, $(dpkg-deb -c "$deb" | wc -l) entries"
}

if [ "$mode" = install ]; then
    prefix=/opt/chainvet
    step install.log env DESTDIR="$root" cmake --install "$build" --prefix "$prefix"
else
    for t in dpkg-shlibdeps file; do
        command -v $t > /dev/null ||
            { echo "SKIP: no $t to find the package's dependencies (apt-get install dpkg-dev file)"; exit 77; }
    done
    prefix=/usr
    step cpack.log cpack --config "$build/CPackConfig.cmake" -B "$tmp/deb"
    deb=$(ls "$tmp"/deb/*.deb)
    dpkg-deb -x "$deb" "$root"
fi

# The library directory (lib or lib/<triplet>) is wherever chainvet.pc went.
pc=$(find "$root$prefix" -name chainvet.pc)
[ -n "$pc" ] || { echo "$mode: no chainvet.pc installed"; exit 1; }
libdir=$(dirname "$(dirname "$pc")")
lib_rel=${libdir#"$root$prefix/"}
# The copy's files sit under the scratch root; chainvet.pc must name where they belong.
grep -qx "prefix=$prefix" "$pc" || bad "chainvet.pc: $(grep '^prefix=' "$pc"), wanted prefix=$prefix"
[ "$mode" = package ] && check_package

step configure.log cmake -S "$src/consumer" -B "$tmp/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$root$prefix"
step build.log cmake --build "$tmp/consumer" -j 2
LD_LIBRARY_PATH="$libdir" "$tmp/consumer/consumer" || fail=1
# The scratch root is a sysroot to pkg-config: it goes in front of the -I and -L paths.
flags=$(PKG_CONFIG_SYSROOT_DIR="$root" PKG_CONFIG_LIBDIR="$libdir/pkgconfig" pkg-config --cflags --libs chainvet)
echo "$mode: pkg-config: $flags"
step pkg-config.log c++ -std=c++17 "$src/consumer/main.cpp" -o "$tmp/pc-consumer" $flags
LD_LIBRARY_PATH="$libdir" "$tmp/pc-consumer" || fail=1
[ $fail = 0 ] && echo "$mode: find_package and pkg-config both work"
exit $fail
