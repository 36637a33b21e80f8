// The CertID computation of `chainvet certid` over the OCSP responses of the corpus:
// wherever the issuer certificate is present (in the corpus folder or inside the
// response), its name and key hashes under the response's own algorithm equal those in
// the response's CertIDs, as GnuTLS reads them; and a present subject certificate gives
// the CertID's serial.
#include "support/testsupport.h"
#include "tools/chainvet/certid.h"

#include <gnutls/gnutls.h>
#include <gnutls/ocsp.h>
#include <gnutls/x509.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

using chainvet_tool::CertId;
using chainvet_tool::computeCertId;

namespace {

using Bytes = std::vector<unsigned char>;

struct CertFree {
    void operator()(PCCERT_CONTEXT c) const { CertFreeCertificateContext(c); }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, CertFree>;

struct SingleId {
    std::string file;
    std::string oid;
    Bytes nameHash, keyHash, serial;
};

Bytes bytesOf(const gnutls_datum_t& d) { return Bytes(d.data, d.data + d.size); }
Bytes bytesOf(const Quorvane::CBlob& b) { return Bytes(b.pbData(), b.pbData() + b.cbData()); }

CertPtr certFromDer(const Bytes& der) {
    return CertPtr(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())));
}

// The CertIDs of one response and the certificates it carries; false if it is no response.
bool readResponse(const std::string& path, std::vector<SingleId>& ids, std::vector<CertPtr>& certs) {
    const Bytes der = testsupport::readFile(path);
    gnutls_ocsp_resp_t resp;
    if (gnutls_ocsp_resp_init(&resp) < 0)
        return false;
    gnutls_datum_t in = {const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())};
    if (gnutls_ocsp_resp_import(resp, &in) < 0) {
        gnutls_ocsp_resp_deinit(resp);
        return false;
    }
    for (unsigned i = 0;; ++i) {
        gnutls_digest_algorithm_t digest;
        gnutls_datum_t name = {nullptr, 0}, key = {nullptr, 0}, serial = {nullptr, 0};
        unsigned status;
        time_t thisUpdate, nextUpdate, revocationTime;
        unsigned reason;
        if (gnutls_ocsp_resp_get_single(resp, i, &digest, &name, &key, &serial, &status, &thisUpdate, &nextUpdate,
                                        &revocationTime, &reason) < 0)
            break;
        const char* oid = gnutls_digest_get_oid(digest);
        ids.push_back(SingleId{path, oid ? oid : "", bytesOf(name), bytesOf(key), bytesOf(serial)});
        gnutls_free(name.data);
        gnutls_free(key.data);
        gnutls_free(serial.data);
    }
    gnutls_x509_crt_t* list = nullptr;
    size_t count = 0;
    if (gnutls_ocsp_resp_get_certs(resp, &list, &count) >= 0) {
        for (size_t i = 0; i < count; ++i) {
            gnutls_datum_t out;
            if (gnutls_x509_crt_export2(list[i], GNUTLS_X509_FMT_DER, &out) >= 0) {
                if (CertPtr c = certFromDer(bytesOf(out)))
                    certs.push_back(std::move(c));
                gnutls_free(out.data);
            }
            gnutls_x509_crt_deinit(list[i]);
        }
        gnutls_free(list);
    }
    gnutls_ocsp_resp_deinit(resp);
    return true;
}

Bytes subjectOf(PCCERT_CONTEXT c) {
    return Bytes(c->pCertInfo->Subject.pbData, c->pCertInfo->Subject.pbData + c->pCertInfo->Subject.cbData);
}
Bytes issuerOf(PCCERT_CONTEXT c) {
    return Bytes(c->pCertInfo->Issuer.pbData, c->pCertInfo->Issuer.pbData + c->pCertInfo->Issuer.cbData);
}

TEST(CertIdCorpus, HashesEqualThoseInTheResponses) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::vector<SingleId> ids;
    std::vector<CertPtr> certs;
    size_t responses = 0;
    for (const std::string& path : testsupport::corpusFiles("ocsp")) {
        if (readResponse(path, ids, certs)) {
            ++responses;
            continue;
        }
        if (CertPtr c(QVCertLoadFile(path.c_str())); c)
            certs.push_back(std::move(c));
    }
    ASSERT_GT(responses, 20u);
    ASSERT_GT(certs.size(), 20u);

    size_t issuerMatches = 0, serialMatches = 0;
    std::map<std::string, size_t> algorithms;
    for (const SingleId& id : ids) {
        if (CertOIDToAlgId(id.oid.c_str()) == 0)
            continue;
        // Every certificate whose name hashes to the CertID's name hash is the issuer: its
        // key must hash to the key hash too.
        PCCERT_CONTEXT issuer = nullptr;
        for (const CertPtr& candidate : certs) {
            const CertId mine = computeCertId(candidate.get(), candidate.get(), id.oid.c_str());
            if (bytesOf(mine.issuerNameHash) != id.nameHash)
                continue;
            if (bytesOf(mine.issuerKeyHash) != id.keyHash)
                continue;  // the same name under another key: a different issuer
            issuer = candidate.get();
        }
        if (issuer == nullptr)
            continue;
        ++issuerMatches;
        ++algorithms[id.oid];
        for (const CertPtr& subject : certs) {
            if (issuerOf(subject.get()) != subjectOf(issuer))
                continue;
            const CertId full = computeCertId(subject.get(), issuer, id.oid.c_str());
            if (full.serial != id.serial)
                continue;
            EXPECT_EQ(bytesOf(full.issuerNameHash), id.nameHash) << id.file;
            EXPECT_EQ(bytesOf(full.issuerKeyHash), id.keyHash) << id.file;
            ++serialMatches;
            break;
        }
    }
    // Enough of the corpus is tied together that a wrong hash input (the whole name
    // instead of its encoding, the key with its BIT STRING header) cannot go unnoticed.
    EXPECT_GE(issuerMatches, 30u) << ids.size() << " CertIDs";
    EXPECT_GE(serialMatches, 15u);
    EXPECT_GE(algorithms.size(), 3u);
    for (const auto& a : algorithms)
        std::printf("CertIDs matched under %s: %zu\n", a.first.c_str(), a.second);
    std::printf("CertIDs %zu, issuer present %zu, subject present %zu\n", ids.size(), issuerMatches, serialMatches);
}

// The key hash covers the key bits only, not the BIT STRING's tag, length and unused-bits
// byte; the name hash covers the whole encoded name.
TEST(CertIdCorpus, HashInputsAreNameEncodingAndKeyBits) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::string dir = testsupport::corpusDir() + "/ocsp/botan/";
    CertPtr ee(QVCertLoadFile((dir + "mychain_ee.der").c_str()));
    CertPtr ca(QVCertLoadFile((dir + "mychain_int.der").c_str()));
    if (!ee || !ca)
        GTEST_SKIP() << "mychain certificates absent";
    const CertId id = computeCertId(ee.get(), ca.get(), "1.3.14.3.2.26");
    const CERT_INFO* ci = ca->pCertInfo;
    EXPECT_EQ(id.issuerNameHash, Quorvane::MakeHash(0, CALG_SHA1, Quorvane::CBlob(ci->Subject.pbData, ci->Subject.cbData), nullptr));
    EXPECT_EQ(id.issuerKeyHash,
              Quorvane::MakeHash(0, CALG_SHA1,
                                 Quorvane::CBlob(ci->SubjectPublicKeyInfo.PublicKey.pbData,
                                                 ci->SubjectPublicKeyInfo.PublicKey.cbData),
                                 nullptr));
    // Values that `openssl ocsp -reqout` gives for this pair.
    EXPECT_EQ(chainvet_tool::hexUpper(id.issuerNameHash.pbData(), id.issuerNameHash.cbData()),
              "DEAFDA46CA9103DD712A7726240BA64D967908E1");
    EXPECT_EQ(chainvet_tool::hexUpper(id.issuerKeyHash.pbData(), id.issuerKeyHash.cbData()),
              "9B9C41B3003604EE3414CDB643FE4A451E8FB4D3");
    EXPECT_EQ(chainvet_tool::hexUpper(id.serial.data(), id.serial.size()), "402BBC2780BCFE52E97ACBBECB19847206E868AC");
}

TEST(CertIdCorpus, AlgorithmNames) {
    EXPECT_EQ(chainvet_tool::hashOid("sha256"), "2.16.840.1.101.3.4.2.1");
    EXPECT_EQ(chainvet_tool::hashOid("SHA-1"), "1.3.14.3.2.26");
    EXPECT_EQ(chainvet_tool::hashOid("streebog512"), "1.2.643.7.1.1.2.3");
    EXPECT_EQ(chainvet_tool::hashOid("1.2.643.2.2.9"), "1.2.643.2.2.9");
    EXPECT_EQ(chainvet_tool::hashOid("1.2.3"), "");
    EXPECT_EQ(chainvet_tool::hashOid("whirlpool"), "");
}

}  // namespace
