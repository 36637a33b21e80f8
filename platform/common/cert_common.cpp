// Certificate contexts, extension search and chain building shared by the real and the
// fake stand-in.
#include "certholder.h"
#include "der.h"
#include "qvcapi/support.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>

namespace qvplat {

void CertHolder::wire() {
    dwCertEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
    pbCertEncoded = encoded.data();
    cbCertEncoded = static_cast<DWORD>(encoded.size());
    pCertInfo = &info;
    hCertStore = nullptr;
    info.SerialNumber = {static_cast<DWORD>(serial.size()), serial.data()};
    info.SignatureAlgorithm.pszObjId = &sigOid[0];
    info.SignatureAlgorithm.Parameters = {static_cast<DWORD>(sigParams.size()), sigParams.data()};
    info.Issuer = {static_cast<DWORD>(issuer.size()), issuer.data()};
    info.Subject = {static_cast<DWORD>(subject.size()), subject.data()};
    info.SubjectPublicKeyInfo.Algorithm.pszObjId = &spkiOid[0];
    info.SubjectPublicKeyInfo.Algorithm.Parameters = {static_cast<DWORD>(spkiParams.size()),
                                                      spkiParams.data()};
    info.SubjectPublicKeyInfo.PublicKey = {static_cast<DWORD>(spkiKey.size()), spkiKey.data(),
                                           spkiUnused};
    exts.resize(extOids.size());
    for (size_t i = 0; i < exts.size(); ++i) {
        exts[i].pszObjId = &extOids[i][0];
        exts[i].fCritical = extCritical[i];
        exts[i].Value = {static_cast<DWORD>(extValues[i].size()), extValues[i].data()};
    }
    info.cExtension = static_cast<DWORD>(exts.size());
    info.rgExtension = exts.empty() ? nullptr : exts.data();
}

FILETIME unixToFileTime(int64_t seconds) {
    uint64_t ticks = static_cast<uint64_t>(seconds + 11644473600LL) * 10000000ULL;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

namespace {

int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

bool parseTime(const Tlv& t, FILETIME& ft) {
    const char* s = reinterpret_cast<const char*>(t.val);
    size_t n = t.len;
    int year;
    size_t pos;
    auto num = [&](size_t at, size_t digits, int& v) {
        if (at + digits > n)
            return false;
        v = 0;
        for (size_t i = 0; i < digits; ++i) {
            if (s[at + i] < '0' || s[at + i] > '9')
                return false;
            v = v * 10 + (s[at + i] - '0');
        }
        return true;
    };
    if (t.tag == 0x17) {
        if (!num(0, 2, year))
            return false;
        year += year < 50 ? 2000 : 1900;
        pos = 2;
    } else if (t.tag == 0x18) {
        if (!num(0, 4, year))
            return false;
        pos = 4;
    } else {
        return false;
    }
    int mon, day, hh, mm, ss = 0;
    if (!num(pos, 2, mon) || !num(pos + 2, 2, day) || !num(pos + 4, 2, hh) || !num(pos + 6, 2, mm))
        return false;
    pos += 8;
    if (pos < n && s[pos] >= '0' && s[pos] <= '9') {
        if (!num(pos, 2, ss))
            return false;
        pos += 2;
    }
    if (mon < 1 || mon > 12 || day < 1 || day > 31)
        return false;
    int64_t secs = daysFromCivil(year, static_cast<unsigned>(mon), static_cast<unsigned>(day)) * 86400 +
                   hh * 3600 + mm * 60 + ss;
    ft = unixToFileTime(secs);
    return true;
}

bool parseAlg(const Tlv& alg, std::string& oid, std::vector<uint8_t>& params) {
    if (alg.tag != 0x30)
        return false;
    DerReader r(alg.val, alg.len);
    Tlv o;
    if (!r.next(o) || o.tag != 0x06 || !oidToText(o.val, o.len, oid))
        return false;
    const uint8_t* rest = o.val + o.len;
    params.assign(rest, alg.val + alg.len);
    return true;
}

}  // namespace

bool parseCertificateDer(CertHolder& h) {
    DerReader top(h.encoded.data(), h.encoded.size());
    Tlv cert, tbs, t;
    if (!top.next(cert) || cert.tag != 0x30)
        return false;
    DerReader cr(cert.val, cert.len);
    if (!cr.next(tbs) || tbs.tag != 0x30)
        return false;
    DerReader r(tbs.val, tbs.len);
    h.info.dwVersion = 0;
    if (r.nextIf(0xA0, t)) {
        DerReader v(t.val, t.len);
        Tlv vi;
        if (!v.next(vi) || vi.tag != 0x02 || vi.len != 1)
            return false;
        h.info.dwVersion = vi.val[0];
    }
    if (!r.next(t) || t.tag != 0x02)
        return false;
    h.serial.assign(t.val, t.val + t.len);
    std::reverse(h.serial.begin(), h.serial.end());
    if (!r.next(t) || !parseAlg(t, h.sigOid, h.sigParams))
        return false;
    if (!r.next(t) || t.tag != 0x30)
        return false;
    h.issuer.assign(t.hdr, t.val + t.len);
    if (!r.next(t) || t.tag != 0x30)
        return false;
    {
        DerReader v(t.val, t.len);
        Tlv a, b;
        if (!v.next(a) || !v.next(b) || !parseTime(a, h.info.NotBefore) ||
            !parseTime(b, h.info.NotAfter))
            return false;
    }
    if (!r.next(t) || t.tag != 0x30)
        return false;
    h.subject.assign(t.hdr, t.val + t.len);
    if (!r.next(t) || t.tag != 0x30)
        return false;
    {
        DerReader s(t.val, t.len);
        Tlv alg, bits;
        if (!s.next(alg) || !parseAlg(alg, h.spkiOid, h.spkiParams) || !s.next(bits) ||
            bits.tag != 0x03 || bits.len == 0)
            return false;
        h.spkiUnused = bits.val[0];
        h.spkiKey.assign(bits.val + 1, bits.val + bits.len);
    }
    r.nextIf(0x81, t);
    r.nextIf(0x82, t);
    h.extOids.clear();
    h.extValues.clear();
    h.extCritical.clear();
    if (r.nextIf(0xA3, t)) {
        DerReader e(t.val, t.len);
        Tlv seq;
        if (!e.next(seq) || seq.tag != 0x30)
            return false;
        DerReader list(seq.val, seq.len);
        while (!list.atEnd()) {
            Tlv ext, oid, x;
            if (!list.next(ext) || ext.tag != 0x30)
                return false;
            DerReader er(ext.val, ext.len);
            std::string s;
            if (!er.next(oid) || oid.tag != 0x06 || !oidToText(oid.val, oid.len, s))
                return false;
            BOOL critical = FALSE;
            if (er.nextIf(0x01, x))
                critical = x.len == 1 && x.val[0] != 0;
            if (!er.next(x) || x.tag != 0x04)
                return false;
            h.extOids.push_back(s);
            h.extCritical.push_back(critical);
            h.extValues.emplace_back(x.val, x.val + x.len);
        }
    }
    return true;
}

PCCERT_CONTEXT createContext(DWORD encodingType, const BYTE* pb, DWORD cb,
                             bool (*parse)(CertHolder&)) {
    if ((encodingType & X509_ASN_ENCODING) == 0 || pb == nullptr || cb == 0) {
        SetLastError(static_cast<DWORD>(E_INVALIDARG));
        return nullptr;
    }
    std::unique_ptr<CertHolder> h(new (std::nothrow) CertHolder());
    if (!h) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    h->encoded.assign(pb, pb + cb);
    if (!parse(*h)) {
        SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
        return nullptr;
    }
    h->wire();
    return h.release();
}

}  // namespace qvplat

using qvplat::CertHolder;

namespace {

// The chain the stand-in builds: one simple chain, elements end first.
struct ChainHolder : CERT_CHAIN_CONTEXT {
    CERT_SIMPLE_CHAIN simple{};
    PCERT_SIMPLE_CHAIN chainPtr = nullptr;
    std::vector<CERT_CHAIN_ELEMENT> elements;
    std::vector<PCERT_CHAIN_ELEMENT> elementPtrs;
    std::vector<std::vector<std::string>> usageOids;
    std::vector<std::vector<LPSTR>> usagePtrs;
    std::vector<CERT_ENHKEY_USAGE> usages;
    std::vector<PCCERT_CONTEXT> owned;
};

bool sameBlob(const CERT_NAME_BLOB& a, const CERT_NAME_BLOB& b) {
    return a.cbData == b.cbData && (a.cbData == 0 || std::memcmp(a.pbData, b.pbData, a.cbData) == 0);
}

}  // namespace

extern "C" {

PCERT_EXTENSION CertFindExtension(LPCSTR pszObjId, DWORD cExtensions, CERT_EXTENSION rgExtensions[]) {
    if (pszObjId == nullptr || rgExtensions == nullptr)
        return nullptr;
    for (DWORD i = 0; i < cExtensions; ++i) {
        if (rgExtensions[i].pszObjId && std::strcmp(rgExtensions[i].pszObjId, pszObjId) == 0)
            return &rgExtensions[i];
    }
    // Like the published function, a miss leaves the thread's last error alone.
    return nullptr;
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    delete static_cast<const CertHolder*>(pCertContext);
    return TRUE;
}

PCCERT_CONTEXT QVCertLoadFile(const char* path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<uint8_t> der;
    if (data.find("-----BEGIN CERTIFICATE-----") != std::string::npos) {
        if (!qvplat::pemDecode(data, "CERTIFICATE", der)) {
            SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
            return nullptr;
        }
    } else {
        der.assign(data.begin(), data.end());
    }
    return CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(),
                                        static_cast<DWORD>(der.size()));
}

PCCERT_CHAIN_CONTEXT QVCertBuildChain(const PCCERT_CONTEXT* rgCert, DWORD cCert) {
    if (rgCert == nullptr || cCert == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto* c = new ChainHolder();
    CERT_CHAIN_CONTEXT& base = *c;
    base = CERT_CHAIN_CONTEXT{};
    base.cbSize = sizeof(CERT_CHAIN_CONTEXT);
    c->elements.resize(cCert);
    c->elementPtrs.resize(cCert);
    c->usageOids.resize(cCert);
    c->usagePtrs.resize(cCert);
    c->usages.resize(cCert);
    for (DWORD i = 0; i < cCert; ++i) {
        CERT_CHAIN_ELEMENT& e = c->elements[i];
        e = CERT_CHAIN_ELEMENT{};
        e.cbSize = sizeof(CERT_CHAIN_ELEMENT);
        e.pCertContext = rgCert[i];
        PCERT_INFO info = rgCert[i]->pCertInfo;
        PCERT_EXTENSION eku = CertFindExtension(szOID_ENHANCED_KEY_USAGE, info->cExtension, info->rgExtension);
        if (eku && qvplat::decodeEku(eku->Value.pbData, eku->Value.cbData, c->usageOids[i])) {
            for (auto& s : c->usageOids[i])
                c->usagePtrs[i].push_back(&s[0]);
            c->usages[i].cUsageIdentifier = static_cast<DWORD>(c->usagePtrs[i].size());
            c->usages[i].rgpszUsageIdentifier = c->usagePtrs[i].empty() ? nullptr : c->usagePtrs[i].data();
            e.pApplicationUsage = &c->usages[i];
        }
        c->elementPtrs[i] = &e;
    }
    PCERT_INFO last = rgCert[cCert - 1]->pCertInfo;
    DWORD status = 0;
    if (!sameBlob(last->Issuer, last->Subject))
        status |= CERT_TRUST_IS_PARTIAL_CHAIN;
    c->simple.cbSize = sizeof(CERT_SIMPLE_CHAIN);
    c->simple.TrustStatus.dwErrorStatus = status;
    c->simple.cElement = cCert;
    c->simple.rgpElement = c->elementPtrs.data();
    c->chainPtr = &c->simple;
    base.TrustStatus.dwErrorStatus = status;
    if (sameBlob(rgCert[0]->pCertInfo->Issuer, rgCert[0]->pCertInfo->Subject) && cCert == 1)
        base.TrustStatus.dwInfoStatus |= CERT_TRUST_IS_SELF_SIGNED;
    base.cChain = 1;
    base.rgpChain = &c->chainPtr;
    return c;
}

void QVCertFreeChain(PCCERT_CHAIN_CONTEXT pChain) {
    delete static_cast<const ChainHolder*>(pChain);
}

}  // extern "C"
