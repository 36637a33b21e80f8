#!/bin/sh
# Checks the dynamic symbol table of libchainvet.so: the policy callbacks under the names
# callers look up (bare or signature-encoded), the four *Impl bare, nothing of the catalogue,
# and none of the platform's functions defined here.
set -u
lib=$1
syms=$(nm -D --defined-only "$lib" | awk '{print $3}')
fail=0
say() { echo "exports: $*"; }
has() { printf '%s\n' "$syms" | grep -qx "$1"; }
encoded() { n=$1; printf '_Z%d%sPKcPK19_CERT_CHAIN_CONTEXTP23_CERT_CHAIN_POLICY_PARAP25_CERT_CHAIN_POLICY_STATUS' "${#n}" "$n"; }

# Export form of each policy, present once its implementation is.
check_policy() {  # impl export form
    impl=$1 export=$2 form=$3
    want=$export other=$(encoded "$export")
    [ "$form" = bare ] || { want=$other; other=$export; }
    if ! has "$impl"; then
        { has "$want" || has "$other"; } && { say "$export exported without $impl"; fail=1; }
        return
    fi
    has "$want" || { say "missing $form $export"; fail=1; }
    has "$other" && { say "$export exported in the wrong form, not $form"; fail=1; }
    say "ok $impl, $export ($form)"
}

has BasicConstraintsImpl || { say "missing BasicConstraintsImpl"; fail=1; }
check_policy SignatureImpl CertDllVerifySignatureCertificateChainPolicy bare
check_policy TimestampSigningImpl CertDllVerifyTimestampSigningCertificateChainPolicy encoded
check_policy OCSPSigningImpl CertDllVerifyOCSPSigningCertificateChainPolicy encoded
check_policy BasicConstraintsImpl CertDllVerifyBasicConstraintsCertificateChainPolicy encoded

# The *Impl names are bare, never encoded.
printf '%s\n' "$syms" | grep -qE '^_Z[0-9]+(Signature|TimestampSigning|OCSPSigning|BasicConstraints)Impl' &&
    { say "an *Impl is signature-encoded"; fail=1; }

# Nothing of the catalogue.
leaked=$(printf '%s\n' "$syms" | grep -E '8asn1data|^asn1[EDCF]' | head -5)
if [ -n "$leaked" ]; then say "catalogue symbols exported: $leaked"; fail=1; fi

# The platform's functions belong to libqvcapi, not to us.
for f in CertFindExtension CryptDecodeObject GetLastError SetLastError support_print_is chainvet_db_ctx; do
    has "$f" && { say "platform symbol $f defined in libchainvet"; fail=1; }
done

say "$(printf '%s\n' "$syms" | wc -l) symbols exported"
[ $fail -eq 0 ] && echo "exports: all checks passed"
exit $fail
