#!/bin/sh
# Makes the project's own certificate fixtures with the openssl tool: a root CA, an
# intermediate CA and a leaf, plus a few certificates shaped for the policy tests.
# Output: tests/fixtures/pki/*.der (committed; rerun only to change them; `lists` as the
# argument makes only the revocation list and the certification request, `ocsp` only the
# OCSP responders and their requests).
set -eu
out=$(cd "$(dirname "$0")/.." && pwd)/tests/fixtures/pki
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cd "$tmp"

days=36500
key() { openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$1.key" 2>/dev/null; }
ext() { printf '%s\n' "$@" > "$name.ext"; }

# cert NAME SUBJECT ISSUER(-|name) EXTENSION-LINES...
cert() {
    name=$1; subj=$2; issuer=$3; shift 3
    key "$name"
    printf '[x]\n' > "$name.ext"
    for line in "$@"; do printf '%s\n' "$line" >> "$name.ext"; done
    openssl req -new -key "$name.key" -subj "$subj" -config /dev/null -out "$name.csr" 2>/dev/null
    if [ "$issuer" = "-" ]; then
        signer="-signkey $name.key"
    else
        signer="-CA $issuer.pem -CAkey $issuer.key"
    fi
    openssl x509 -req -in "$name.csr" $signer -days $days -set_serial "0x$(openssl rand -hex 8)" \
        -extfile "$name.ext" -extensions x -out "$name.pem" 2>/dev/null
    openssl x509 -in "$name.pem" -outform DER -out "$out/$name.der"
}

# A revocation list with two entries and a certification request with an extension
# request, for the catalogue (its tests and fuzz seeds).
lists() {
    key crlca
    openssl req -new -x509 -key crlca.key -subj "/O=chainvet demo/CN=Demo CRL Issuer" -days $days \
        -out crlca.pem 2>/dev/null
    printf '[ca]\ndefault_ca=c\n[c]\ndatabase=index.txt\ncrlnumber=crlnumber\ndefault_md=sha256\ndefault_crl_days=30\n' > ca.cnf
    printf 'R\t350101000000Z\t240101000000Z,keyCompromise\t1A2B\tunknown\t/CN=a\n' > index.txt
    printf 'R\t350101000000Z\t240201000000Z\t3C4D\tunknown\t/CN=b\n' >> index.txt
    echo 01 > crlnumber
    openssl ca -config ca.cnf -gencrl -keyfile crlca.key -cert crlca.pem -out list.pem 2>/dev/null
    openssl crl -in list.pem -outform DER -out "$out/crl.der"
    key req
    openssl req -new -key req.key -subj "/C=DE/O=chainvet demo/CN=request.example" -config /dev/null \
        -addext "subjectAltName=DNS:request.example" -outform DER -out "$out/request.der" 2>/dev/null
}
# Messages for the catalogue: a CMS signed message in indefinite-length form (as
# `openssl cms -stream` writes it), an OCSP request and response, a time-stamp query and
# reply, all under a throw-away CA of their own.
messages() {
    key mca
    openssl req -new -x509 -key mca.key -subj "/O=chainvet demo/CN=Demo Message CA" -days $days \
        -addext "basicConstraints=critical,CA:TRUE" -out mca.pem 2>/dev/null
    key tsa
    printf '[x]\nbasicConstraints=CA:FALSE\nextendedKeyUsage=critical,timeStamping\nkeyUsage=critical,digitalSignature\n' > tsa.ext
    openssl req -new -key tsa.key -subj "/O=chainvet demo/CN=Demo TSA" -config /dev/null -out tsa.csr 2>/dev/null
    openssl x509 -req -in tsa.csr -CA mca.pem -CAkey mca.key -days $days -set_serial 0x5151 \
        -extfile tsa.ext -extensions x -out tsa.pem 2>/dev/null
    echo "chainvet demo content" > content.txt
    openssl cms -sign -in content.txt -signer tsa.pem -inkey tsa.key -stream -outform DER \
        -out "$out/signed-indefinite.p7s" 2>/dev/null
    openssl ocsp -issuer mca.pem -cert tsa.pem -reqout "$out/ocsp-request.der" -no_nonce 2>/dev/null
    printf 'V\t350101000000Z\t\t5151\tunknown\t/CN=tsa\n' > idx.txt
    openssl ocsp -index idx.txt -rsigner mca.pem -rkey mca.key -CA mca.pem \
        -reqin "$out/ocsp-request.der" -respout "$out/ocsp-response.der" 2>/dev/null
    openssl ts -query -data content.txt -sha256 -cert -out "$out/ts-query.der" 2>/dev/null
    printf '[tsa]\ndefault_tsa=t\n[t]\nserial=tsaserial\nsigner_cert=tsa.pem\nsigner_key=tsa.key\nsigner_digest=sha256\ndefault_policy=1.2.3.4.1\ndigests=sha256\naccuracy=secs:1, millisecs:500\nordering=yes\n' > ts.cnf
    echo 01 > tsaserial
    openssl ts -reply -config ts.cnf -queryfile "$out/ts-query.der" -out "$out/ts-reply.der" 2>/dev/null
}
[ "${1:-}" = lists ] && { lists; echo "lists written to $out"; exit 0; }
[ "${1:-}" = messages ] && { messages; echo "messages written to $out"; exit 0; }

# OCSP responders under a root of their own: a CA that answers for what it issued, a
# delegated responder with id-kp-OCSPSigning and id-pkix-ocsp-nocheck, one without the
# purpose, a certificate they answer for, and `openssl ocsp` requests for it and for the
# delegate itself under SHA-1 and SHA-256.
ocsp() {
    cert ocsp-root "/O=chainvet demo/CN=OCSP Demo Root" - \
        "basicConstraints=critical,CA:TRUE" "keyUsage=critical,keyCertSign,cRLSign"
    cert ocsp-ca "/O=chainvet demo/CN=OCSP Demo CA" ocsp-root \
        "basicConstraints=critical,CA:TRUE,pathlen:0" "keyUsage=critical,keyCertSign,cRLSign,digitalSignature"
    cert ocsp-subject "/O=chainvet demo/CN=subject.example" ocsp-ca \
        "basicConstraints=critical,CA:FALSE" "keyUsage=critical,digitalSignature"
    cert ocsp-delegated "/O=chainvet demo/CN=OCSP Delegated Responder" ocsp-ca \
        "basicConstraints=critical,CA:FALSE" "keyUsage=critical,digitalSignature" \
        "extendedKeyUsage=OCSPSigning" "1.3.6.1.5.5.7.48.1.5=DER:0500"
    cert ocsp-nopurpose "/O=chainvet demo/CN=OCSP Responder Without Purpose" ocsp-ca \
        "basicConstraints=critical,CA:FALSE" "keyUsage=critical,digitalSignature" \
        "extendedKeyUsage=serverAuth"
    for md in sha1 sha256; do
        openssl ocsp -$md -issuer ocsp-ca.pem -cert ocsp-subject.pem -no_nonce -reqout "$out/ocsp-req-$md.der"
        openssl ocsp -$md -issuer ocsp-ca.pem -cert ocsp-delegated.pem -no_nonce \
            -reqout "$out/ocsp-req-self-$md.der"
    done
}
[ "${1:-}" = ocsp ] && { ocsp; echo "OCSP fixtures written to $out"; exit 0; }

cert root "/O=chainvet demo/CN=Demo Root CA" - \
    "basicConstraints=critical,CA:TRUE" "keyUsage=critical,keyCertSign,cRLSign" \
    "subjectKeyIdentifier=hash"
cert intermediate "/O=chainvet demo/CN=Demo Intermediate CA" root \
    "basicConstraints=critical,CA:TRUE,pathlen:0" "keyUsage=critical,keyCertSign,cRLSign,digitalSignature" \
    "subjectKeyIdentifier=hash" "authorityKeyIdentifier=keyid"
cert leaf "/O=chainvet demo/CN=demo.example" intermediate \
    "basicConstraints=critical,CA:FALSE" "keyUsage=critical,digitalSignature,nonRepudiation" \
    "extendedKeyUsage=timeStamping" "subjectKeyIdentifier=hash" "authorityKeyIdentifier=keyid"
# A leaf with no basic constraints at all.
cert leaf-nobc "/O=chainvet demo/CN=no-bc.example" intermediate \
    "keyUsage=critical,digitalSignature"
# A self-signed root without the extension.
cert root-nobc "/O=chainvet demo/CN=Root without basic constraints" - \
    "keyUsage=critical,keyCertSign"
# Both the current (cA FALSE) and the old 2.5.29.10 extension (an old-style value whose
# first element marks a CA); only the current one may count.
cert both-bc "/O=chainvet demo/CN=Both basic constraints" root \
    "basicConstraints=CA:FALSE" "2.5.29.10=DER:30050303060780"
# Only the old extension, with the current extension's encoding of cA TRUE.
cert old-bc "/O=chainvet demo/CN=Old basic constraints" root \
    "2.5.29.10=DER:30030101FF"
lists
messages

echo "fixtures written to $out"
