// Responders and CertID records for the OCSP tests over the fake platform. Hashes come
// from the library's own MakeHash, whose providers are tested on their own.
#pragma once

#include "policies/chain_policies.h"
#include "policies/crypt.h"
#include "support/testsupport.h"

#include <deque>
#include <stdexcept>
#include <memory>
#include <string>
#include <vector>

namespace ocsptest {

using testsupport::hex;
typedef std::vector<uint8_t> Bytes;

const char* const kSha1 = "1.3.14.3.2.26";
const char* const kSha256 = "2.16.840.1.101.3.4.2.1";
const char* const kGost2012 = "1.2.643.7.1.1.2.2";
const char* const kOcspSigning = "1.3.6.1.5.5.7.3.9";

inline Bytes hashOf(const char* oid, const Bytes& data) {
    const Quorvane::CBlob h = Quorvane::MakeHash(0, CertOIDToAlgId(oid), Quorvane::CBlob(data.data(), data.size()),
                                                 nullptr);
    return Bytes(h.pbData(), h.pbData() + h.cbData());
}

// CertID records with storage that stays put while more are added.
class CertIds {
public:
    QVOCSP_CERT_ID& add(const char* oid, const Bytes& nameHash, const Bytes& keyHash, const Bytes& serial) {
        m_items.emplace_back();
        Item& it = m_items.back();
        it.oid = oid;
        it.name = nameHash;
        it.key = keyHash;
        it.serial = serial;
        it.rec = QVOCSP_CERT_ID{};
        it.rec.HashAlgorithm.pszObjId = &it.oid[0];
        it.rec.IssuerNameHash = {static_cast<DWORD>(it.name.size()), it.name.data()};
        it.rec.IssuerKeyHash = {static_cast<DWORD>(it.key.size()), it.key.data()};
        it.rec.SerialNumber = {static_cast<DWORD>(it.serial.size()), it.serial.data()};
        // Records stay where they are, so a test may spoil one through the reference.
        if (m_recs.capacity() == 0)
            m_recs.reserve(kCapacity);
        if (m_recs.size() == kCapacity)
            throw std::length_error("too many CertIDs");
        m_recs.push_back(it.rec);
        return m_recs.back();
    }
    QVOCSP_CERT_ID* data() { return m_recs.empty() ? nullptr : m_recs.data(); }
    DWORD size() const { return static_cast<DWORD>(m_recs.size()); }

private:
    static const size_t kCapacity = 4096;
    struct Item {
        std::string oid;
        Bytes name, key, serial;
        QVOCSP_CERT_ID rec;
    };
    std::deque<Item> m_items;
    std::vector<QVOCSP_CERT_ID> m_recs;
};

enum Kind { kCaResponder, kEeResponder, kEeWithoutPurpose };

// A responder certificate and its issuer, as one chain. The certificates asked about in
// the tests are issued by "Issuing CA" (the CA responder itself, or the delegate's issuer).
struct Responder {
    explicit Responder(Kind kind, bool oneElement = false, bool nocheck = false) : kind(kind) {
        issuerName = hex("3015311330110603550403130A49737375696E67204341");  // CN=Issuing CA
        issuerKey = hex("04A1A2A3A4A5A6A7A8");
        if (kind == kCaResponder) {
            cert.setSubject(issuerName).setIssuer(hex("30123110300E06035504031307526F6F74204341"));  // CN=Root CA
            cert.setPublicKey(issuerKey);
            cert.addExtension(szOID_BASIC_CONSTRAINTS2, hex("30030101FF"));
        } else {
            cert.setSubject(hex("30143112301006035504031309526573706F6E646572")).setIssuer(issuerName);
            cert.setPublicKey(hex("04B1B2B3B4"));
            cert.addExtension(szOID_BASIC_CONSTRAINTS2, hex("3000"));
            cert.addExtension(szOID_ENHANCED_KEY_USAGE,
                              hex(kind == kEeResponder ? "300A06082B06010505070309" : "300A06082B06010505070301"));
            usageOid = kind == kEeResponder ? kOcspSigning : "1.3.6.1.5.5.7.3.1";
        }
        if (oneElement && kind != kCaResponder)
            issuerKey = hex("04B1B2B3B4");  // the responder's own key stands in for its issuer's
        cert.setSerial({0x34, 0x12});          // 0x1234, little-endian as the context holds it
        if (nocheck)
            cert.addExtension(szOID_PKIX_OCSP_NOCHECK, hex("0500"));
        issuer.setSubject(kind == kCaResponder ? hex("30123110300E06035504031307526F6F74204341") : issuerName);
        issuer.setPublicKey(kind == kCaResponder ? hex("04C1C2") : issuerKey);
        issuer.addExtension(szOID_BASIC_CONSTRAINTS2, hex("30030101FF"));
        std::vector<PCCERT_CONTEXT> certs{cert.context()};
        if (!oneElement)
            certs.push_back(issuer.context());
        chain.reset(new testsupport::FakeChain(certs));
        if (!usageOid.empty()) {
            usagePtr = &usageOid[0];
            usage = CERT_ENHKEY_USAGE{1, &usagePtr};
            chain->element(0).pApplicationUsage = &usage;
        }
    }

    // A CertID of a certificate issued by "Issuing CA".
    QVOCSP_CERT_ID& good(CertIds& ids, const char* oid = kSha1, const Bytes& serial = {0x05}) const {
        return ids.add(oid, hashOf(oid, issuerName), hashOf(oid, issuerKey), serial);
    }
    QVOCSP_CERT_ID& foreign(CertIds& ids, const char* oid = kSha1) const {
        return ids.add(oid, hashOf(oid, hex("3010310E300C060355040313054F74686572")), hashOf(oid, issuerKey), {0x05});
    }
    // The responder's own certificate.
    QVOCSP_CERT_ID& self(CertIds& ids, const char* oid = kSha1) const { return good(ids, oid, {0x12, 0x34}); }

    PCCERT_CHAIN_CONTEXT get() const { return chain->get(); }

    Kind kind;
    Bytes issuerName, issuerKey;
    testsupport::FakeCert cert, issuer;
    std::unique_ptr<testsupport::FakeChain> chain;
    std::string usageOid;
    LPSTR usagePtr = nullptr;
    CERT_ENHKEY_USAGE usage{};
};

// The records of one call: parameter and status, both extra records optional.
struct Call {
    typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
    typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

    Call(CertIds& ids, bool withExtraStatus) {
        extraPara = ExtraPara{sizeof(ExtraPara), nullptr, ids.size(), ids.data(), nullptr};
        checked.assign(ids.size(), 7);
        extra = ExtraStatus{sizeof(ExtraStatus), 0x77, 0x55, 0x66, 9, checked.empty() ? nullptr : checked.data()};
        status.pvExtraPolicyStatus = withExtraStatus ? &extra : nullptr;
    }
    BOOL run(PCCERT_CHAIN_CONTEXT chain) {
        SetLastError(0x0BADF00Du);
        const BOOL ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, chain, &para, &status);
        lastError = GetLastError();
        return ok;
    }

    ExtraPara extraPara;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33, nullptr};
    ExtraStatus extra;
    std::vector<DWORD> checked;
    DWORD lastError = 0;
};

}  // namespace ocsptest
