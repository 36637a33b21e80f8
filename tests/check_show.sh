#!/bin/sh
# chainvet show: exact lines of the leaf fixture, the exit statuses, then every corpus
# certificate, CRL, OCSP response, time-stamp reply and CMS signed message that dump decodes
# must show with status 0. Usage: check_show.sh CHAINVET CORPUS_DIR
set -u
tool=$1 corpus=$2
here=$(cd "$(dirname "$0")" && pwd)
fail=0
out=$("$tool" show "$here/fixtures/pki/leaf.der") || { echo "leaf: exit $?"; fail=1; }
for line in "    Serial Number: 0x67C19515A744F3C5" "    Subject: O=chainvet demo,CN=demo.example" \
    "    Issuer: O=chainvet demo,CN=Demo Intermediate CA" "        Not After : 21261030073436Z" \
    "            Digital Signature, Non Repudiation" "            CA:FALSE"; do
    printf '%s\n' "$out" | grep -qxF "$line" || { echo "leaf: no line '$line'"; fail=1; }
done
tmp=$(mktemp)
trap 'rm -f "$tmp" "$tmp.cases" "$tmp.counts"' EXIT
printf '\060\003\002\001' > "$tmp"
for want in "1 $tmp" "2 /nonexistent/file" "64 --bogus" "64"; do
    set -- $want
    "$tool" show ${2:-} >/dev/null 2>&1
    got=$?
    [ "$got" = "$1" ] || { echo "show ${2:-}: exit $got, wanted $1"; fail=1; }
done
# --version, --help and the --help of every command --help lists: exit 0, and the first
# line printed is the one wanted (a command's own usage, not another's).
commands=$("$tool" --help | sed '1,/^Commands:/d; s/^  //; s/  .*//')
[ "$(printf '%s\n' "$commands" | grep -c .)" -ge 10 ] || { echo "--help lists too few commands: $commands"; fail=1; }
{
    printf '%s\t%s\n' --version "chainvet [0-9]+\.[0-9]+\.[0-9]+ \(libchainvet [0-9]+\.[0-9]+\.[0-9]+\)"
    printf '%s\t%s\n' --help "usage: chainvet \[--trace\] COMMAND .*"
    printf '%s\n' "$commands" | while IFS= read -r c; do printf '%s --help\tusage: chainvet %s( .*)?\n' "$c" "$c"; done
} > "$tmp.cases"
while IFS="$(printf '\t')" read -r args first; do
    out=$("$tool" $args 2>&1) || { echo "chainvet $args: exit $?"; fail=1; }
    printf '%s\n' "$out" | head -n 1 | grep -Eqx "$first" ||
        { echo "chainvet $args: first line '$(printf '%s\n' "$out" | head -n 1)'"; fail=1; }
done < "$tmp.cases"
if [ ! -f "$corpus/MANIFEST.tsv" ]; then
    echo "SKIP: corpus loop skipped, no $corpus/MANIFEST.tsv"
    [ $fail = 0 ] && exit 77
    exit 1
fi
tail -n +2 "$corpus/MANIFEST.tsv" | while IFS="$(printf '\t')" read -r path sum kind rest; do
    case $kind in cert | crl | ocsp-response | tsp-response | cms-signed) ;; *) continue ;; esac
    "$tool" dump "$corpus/$path" >/dev/null 2>&1 || continue
    "$tool" show "$corpus/$path" >/dev/null 2>"$tmp"
    status=$?
    [ $status = 0 ] || { echo "FAIL $kind $path: exit $status"; cat "$tmp"; }
    echo "$kind $status" >> "$tmp.counts"
done | grep FAIL -A3 && fail=1
sort "$tmp.counts" | uniq -c
exit $fail
