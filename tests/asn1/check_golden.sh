#!/bin/sh
# The generated code of one type per shape, against the committed text: a change of the
# generator shows here as a diff. `--update` rewrites the committed text.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
python=${PYTHON:-python3}
golden=$here/golden.txt
tmp=$(mktemp)
trap 'rm -f "$tmp"' EXIT
"$python" "$here/../../tools/asn1gen/asn1gen.py" --out /nonexistent --header shapes --namespace asn1test \
    --type Seq --type NamedSet --type Alt --type Tagged --type OptChoice --type IntSet \
    --type IntArray --type OidSet --type Iv --type Flags --type Millis --type Reason \
    --type Ext --type Wrapped --type Alias --type Holder --type Wrapper --type Values \
    "$here/shapes.asn" > "$tmp"
if [ "${1:-}" = --update ]; then
    cp "$tmp" "$golden"
    echo "golden: $golden rewritten"
    exit 0
fi
if ! diff -u "$golden" "$tmp"; then
    echo "golden: the generated code changed; if that was meant, run tests/asn1/check_golden.sh --update"
    exit 1
fi
echo "golden: generated code as committed"
