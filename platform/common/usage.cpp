// IsValidByApplicationUsage and the Key Usage decoder of the stand-in.
#include "usage.h"

#include "decode_common.h"
#include "der.h"
#include "qvcapi/policy.h"
#include "qvcapi/support.h"

#include <cstring>
#include <string>
#include <vector>

namespace qvplat {

BOOL decodeKeyUsage(const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags, void* pvStructInfo,
                    DWORD* pcbStructInfo) {
    DerReader r(pbEncoded, cbEncoded);
    Tlv bits;
    if (!r.next(bits) || bits.tag != 0x03 || !r.atEnd() || bits.len == 0 || bits.val[0] > 7 ||
        (bits.len == 1 && bits.val[0] != 0)) {
        SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
        return FALSE;
    }
    const DWORD cbBits = static_cast<DWORD>(bits.len - 1);
    const bool noCopy = (dwFlags & CRYPT_DECODE_NOCOPY_FLAG) != 0;
    const DWORD need = static_cast<DWORD>(sizeof(CRYPT_BIT_BLOB)) + (noCopy ? 0 : cbBits);
    if (pcbStructInfo == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (pvStructInfo == nullptr) {
        *pcbStructInfo = need;
        return TRUE;
    }
    if (*pcbStructInfo < need) {
        *pcbStructInfo = need;
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    auto* blob = static_cast<CRYPT_BIT_BLOB*>(pvStructInfo);
    blob->cbData = cbBits;
    blob->cUnusedBits = bits.val[0];
    if (noCopy) {
        // An empty bit string points at its zero unused-bits octet, so that a reader of
        // the first byte stays inside the value.
        blob->pbData = const_cast<BYTE*>(cbBits != 0 ? bits.val + 1 : bits.val);
    } else {
        BYTE* tail = static_cast<BYTE*>(pvStructInfo) + sizeof(CRYPT_BIT_BLOB);
        if (cbBits != 0)
            std::memcpy(tail, bits.val + 1, cbBits);
        blob->pbData = cbBits != 0 ? tail : nullptr;
    }
    *pcbStructInfo = need;
    return TRUE;
}

namespace {

// Whether a list of purposes grants `oid`; anyExtendedKeyUsage counts unless the purpose
// must be named explicitly.
template <class List>
bool grants(const List& oids, size_t count, LPCSTR oid, bool explicitOnly) {
    for (size_t i = 0; i < count; ++i) {
        const char* s = oids[i];
        if (s == nullptr)
            continue;
        if (std::strcmp(s, oid) == 0)
            return true;
        if (!explicitOnly && std::strcmp(s, szOID_ANY_ENHANCED_KEY_USAGE) == 0)
            return true;
    }
    return false;
}

}  // namespace

}  // namespace qvplat

extern "C" DWORD IsValidByApplicationUsage(PCCERT_CONTEXT pCertContext,
                                           PCCERT_ENHKEY_USAGE pApplicationUsage,
                                           LPCSTR pszUsageIdentifier, BOOL fAnyIfNoCertUsage,
                                           BOOL fAnyIfNoChainUsage, BOOL fExplicitOnly,
                                           BOOL fBothRequired) {
    if (pszUsageIdentifier == nullptr)
        return QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS;
    const bool explicitOnly = fExplicitOnly != FALSE;

    bool certGrants = false;
    PCERT_INFO info = pCertContext != nullptr ? pCertContext->pCertInfo : nullptr;
    PCERT_EXTENSION eku =
        info != nullptr ? CertFindExtension(szOID_ENHANCED_KEY_USAGE, info->cExtension, info->rgExtension)
                        : nullptr;
    if (eku == nullptr) {
        certGrants = info != nullptr && fAnyIfNoCertUsage != FALSE;
    } else {
        std::vector<std::string> oids;
        // An EKU that cannot be read grants nothing.
        if (qvplat::decodeEku(eku->Value.pbData, eku->Value.cbData, oids)) {
            std::vector<const char*> ptrs;
            for (const auto& s : oids)
                ptrs.push_back(s.c_str());
            certGrants = qvplat::grants(ptrs, ptrs.size(), pszUsageIdentifier, explicitOnly);
        }
    }

    bool chainGrants;
    if (pApplicationUsage == nullptr || pApplicationUsage->cUsageIdentifier == 0 ||
        pApplicationUsage->rgpszUsageIdentifier == nullptr)
        chainGrants = fAnyIfNoChainUsage != FALSE;
    else
        chainGrants = qvplat::grants(pApplicationUsage->rgpszUsageIdentifier,
                                     pApplicationUsage->cUsageIdentifier, pszUsageIdentifier,
                                     explicitOnly);

    DWORD lacks = (certGrants ? 0 : QV_USAGE_CERT_LACKS) | (chainGrants ? 0 : QV_USAGE_CHAIN_LACKS);
    if (fBothRequired == FALSE && (certGrants || chainGrants))
        return 0;
    return lacks;
}
