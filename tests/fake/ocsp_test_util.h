// Responders and CertID records for the OCSP tests over the fake platform. Hashes come
// from the library's own MakeHash, whose providers are tested on their own.
#pragma once

#include "policies/chain_policies.h"
#include "policies/crypt.h"
#include "support/testsupport.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace ocsptest {

using testsupport::hex;
typedef std::vector<uint8_t> Bytes;

const char* const kSha1 = "1.3.14.3.2.26";
const char* const kGost2012 = "1.2.643.7.1.1.2.2";

inline Bytes hashOf(const char* oid, const Bytes& data) {
    const Quorvane::CBlob h = Quorvane::MakeHash(0, CertOIDToAlgId(oid), Quorvane::CBlob(data.data(), data.size()),
                                                 nullptr);
    return Bytes(h.pbData(), h.pbData() + h.cbData());
}

// CertID records in one array that never moves, so a test may spoil one in place.
class CertIds {
public:
    CertIds() { m_recs.reserve(4096); }
    QVOCSP_CERT_ID& add(const char* oid, const Bytes& name, const Bytes& key, const Bytes& serial) {
        m_store.push_back({oid, name, key, serial});
        auto& s = m_store.back();
        m_recs.push_back(QVOCSP_CERT_ID{{&s.oid[0], {0, nullptr}},
                                        {static_cast<DWORD>(s.name.size()), s.name.data()},
                                        {static_cast<DWORD>(s.key.size()), s.key.data()},
                                        {static_cast<DWORD>(s.serial.size()), s.serial.data()}});
        return m_recs.back();
    }
    QVOCSP_CERT_ID* data() { return m_recs.empty() ? nullptr : m_recs.data(); }
    DWORD size() const { return static_cast<DWORD>(m_recs.size()); }

private:
    struct Store {
        std::string oid;
        Bytes name, key, serial;
    };
    std::deque<Store> m_store;
    std::vector<QVOCSP_CERT_ID> m_recs;
};

enum Kind { kCaResponder, kEeResponder, kEeWithoutPurpose };

// A responder and its issuer as one chain (or the responder alone). The certificates asked
// about are issued by "Issuing CA": the CA responder itself, or the delegate's issuer.
struct Responder {
    explicit Responder(Kind kind, bool oneElement = false, bool nocheck = false) {
        const Bytes root = hex("30123110300E06035504031307526F6F74204341");  // CN=Root CA
        const Bytes own = hex("04B1B2B3B4");
        const bool ca = kind == kCaResponder;
        cert.setSubject(ca ? issuerName : hex("30143112301006035504031309526573706F6E646572"));
        cert.setIssuer(ca && !oneElement ? root : issuerName).setPublicKey(ca ? issuerKey : own);
        cert.setSerial({0x34, 0x12});  // 0x1234, little-endian as the context holds it
        cert.addExtension(szOID_BASIC_CONSTRAINTS2, hex(ca ? "30030101FF" : "3000"));
        if (!ca)
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(kind == kEeResponder ? "300A06082B06010505070309"
                                                                                 : "300A06082B06010505070301"));
        if (nocheck)
            cert.addExtension(szOID_PKIX_OCSP_NOCHECK, hex("0500"));
        if (oneElement && !ca)
            issuerKey = own;  // the responder's own key stands in for its issuer's
        issuer.setSubject(ca ? root : issuerName).setPublicKey(ca ? hex("04C1C2") : issuerKey);
        std::vector<PCCERT_CONTEXT> certs{cert.context()};
        if (!oneElement)
            certs.push_back(issuer.context());
        chain.reset(new testsupport::FakeChain(certs));
        usageOid = kind == kEeResponder ? "1.3.6.1.5.5.7.3.9" : "1.3.6.1.5.5.7.3.1";
        usagePtr = &usageOid[0];
        usage = CERT_ENHKEY_USAGE{1, &usagePtr};
        chain->element(0).pApplicationUsage = ca ? nullptr : &usage;
    }

    // 'g' good, 'f' foreign issuer, 'c' the responder itself, 'k' its serial under another
    // issuer key, 'u' an algorithm no provider knows.
    void add(CertIds& ids, char what, const char* oid = kSha1) const {
        const Bytes name = what == 'f' ? hex("3010310E300C060355040313054F74686572") : issuerName;
        const Bytes key = what == 'k' ? Bytes{0x04, 0x09} : issuerKey;
        const Bytes serial = what == 'c' || what == 'k' ? Bytes{0x12, 0x34} : Bytes{0x05};
        ids.add(what == 'u' ? "1.2.3.4" : oid, hashOf(oid, name), hashOf(oid, key), serial);
    }
    PCCERT_CHAIN_CONTEXT get() const { return chain->get(); }

    Bytes issuerName = hex("3015311330110603550403130A49737375696E67204341");  // CN=Issuing CA
    Bytes issuerKey = hex("04A1A2A3A4A5A6A7A8");
    testsupport::FakeCert cert, issuer;
    std::unique_ptr<testsupport::FakeChain> chain;
    std::string usageOid;
    LPSTR usagePtr = nullptr;
    CERT_ENHKEY_USAGE usage{};
};

// The records of one call; rgdwCertIdChecked starts at 7 so that untouched elements show.
struct Call {
    Call(CertIds& ids, bool withExtraStatus) : checked(ids.size(), 7) {
        extra.rgdwCertIdChecked = checked.empty() ? nullptr : checked.data();
        status.pvExtraPolicyStatus = withExtraStatus ? &extra : nullptr;
        extraPara.cCertId = ids.size();
        extraPara.rgCertId = ids.data();
    }
    BOOL run(PCCERT_CHAIN_CONTEXT chain) {
        SetLastError(0x0BADF00Du);
        const BOOL ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, chain, &para, &status);
        lastError = GetLastError();
        return ok;
    }
    std::string checkedText() const {
        std::string s;
        for (DWORD v : checked)
            s += static_cast<char>('0' + v);
        return s;
    }

    std::vector<DWORD> checked;
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr, 0, nullptr, nullptr};
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0x77, 0x55, 0x66, 9, nullptr};
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33, nullptr};
    DWORD lastError = 0;
};

}  // namespace ocsptest
