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

#include <memory>
#include <set>
#include <string>
#include <vector>

using chainvet_tool::computeCertId;

namespace {

using Bytes = std::vector<unsigned char>;

struct CertFree {
    void operator()(PCCERT_CONTEXT c) const { CertFreeCertificateContext(c); }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, CertFree>;

struct SingleId {
    std::string oid;
    Bytes nameHash, keyHash, serial;
};

Bytes bytesOf(const gnutls_datum_t& d) { return Bytes(d.data, d.data + d.size); }
Bytes bytesOf(const Quorvane::CBlob& b) { return Bytes(b.pbData(), b.pbData() + b.cbData()); }
Bytes bytesOf(const CRYPT_INTEGER_BLOB& b) { return Bytes(b.pbData, b.pbData + b.cbData); }

// The CertIDs of one response and the certificates it carries; false if it is no response.
bool readResponse(const std::string& path, std::vector<SingleId>& ids, std::vector<CertPtr>& certs) {
    const Bytes der = testsupport::readFile(path);
    gnutls_datum_t in = {const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())}, name, key, serial;
    gnutls_ocsp_resp_t resp;
    gnutls_digest_algorithm_t digest;
    gnutls_x509_crt_t* list = nullptr;
    size_t count = 0;
    if (gnutls_ocsp_resp_init(&resp) < 0)
        return false;
    const bool imported = gnutls_ocsp_resp_import(resp, &in) >= 0;
    for (unsigned i = 0; imported && gnutls_ocsp_resp_get_single(resp, i, &digest, &name, &key, &serial, nullptr,
                                                                  nullptr, nullptr, nullptr, nullptr) >= 0;
         ++i) {
        const char* oid = gnutls_digest_get_oid(digest);
        ids.push_back(SingleId{oid ? oid : "", bytesOf(name), bytesOf(key), bytesOf(serial)});
        gnutls_free(name.data), gnutls_free(key.data), gnutls_free(serial.data);
    }
    if (imported && gnutls_ocsp_resp_get_certs(resp, &list, &count) >= 0) {
        for (size_t i = 0; i < count; gnutls_x509_crt_deinit(list[i++]))
            if (gnutls_x509_crt_export2(list[i], GNUTLS_X509_FMT_DER, &in) >= 0) {
                if (PCCERT_CONTEXT c = CertCreateCertificateContext(X509_ASN_ENCODING, in.data, in.size))
                    certs.emplace_back(c);
                gnutls_free(in.data);
            }
        gnutls_free(list);
    }
    gnutls_ocsp_resp_deinit(resp);
    return imported;
}

TEST(CertIdCorpus, HashesEqualThoseInTheResponses) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::vector<SingleId> ids;
    std::vector<CertPtr> certs;
    size_t responses = 0;
    for (const std::string& path : testsupport::corpusFiles("ocsp")) {
        if (readResponse(path, ids, certs))
            ++responses;
        else if (PCCERT_CONTEXT c = QVCertLoadFile(path.c_str()))
            certs.emplace_back(c);
    }
    ASSERT_GT(responses, 20u);
    ASSERT_GT(certs.size(), 20u);
    size_t issuerMatches = 0, serialMatches = 0;
    std::set<std::string> algorithms;
    for (const SingleId& id : ids) {
        if (CertOIDToAlgId(id.oid.c_str()) == 0)
            continue;
        // The issuer is the certificate whose name and key hash to the CertID's hashes (a
        // certificate with the same name under another key is a different issuer).
        PCCERT_CONTEXT issuer = nullptr;
        for (const CertPtr& candidate : certs) {
            const chainvet_tool::CertId mine = computeCertId(candidate.get(), candidate.get(), id.oid.c_str());
            if (bytesOf(mine.issuerNameHash) == id.nameHash && bytesOf(mine.issuerKeyHash) == id.keyHash)
                issuer = candidate.get();
        }
        if (issuer == nullptr)
            continue;
        ++issuerMatches;
        algorithms.insert(id.oid);
        for (const CertPtr& subject : certs) {
            if (bytesOf(subject->pCertInfo->Issuer) == bytesOf(issuer->pCertInfo->Subject) &&
                computeCertId(subject.get(), issuer, id.oid.c_str()).serial == id.serial) {
                ++serialMatches;
                break;
            }
        }
    }
    // Enough of the corpus is tied together that a wrong hash input (the whole name
    // instead of its encoding, the key with its BIT STRING header) cannot go unnoticed.
    EXPECT_GE(issuerMatches, 30u) << ids.size() << " CertIDs";
    EXPECT_GE(serialMatches, 15u);
    EXPECT_GE(algorithms.size(), 3u);
}

// The key hash covers the key bits only, not the BIT STRING's tag, length and unused-bits
// byte; the name hash covers the whole encoded name. Values as `openssl ocsp -reqout`
// gives them for this pair.
TEST(CertIdCorpus, HashInputsAreNameEncodingAndKeyBits) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::string dir = testsupport::corpusDir() + "/ocsp/botan/";
    CertPtr ee(QVCertLoadFile((dir + "mychain_ee.der").c_str())), ca(QVCertLoadFile((dir + "mychain_int.der").c_str()));
    if (!ee || !ca)
        GTEST_SKIP() << "mychain certificates absent";
    const chainvet_tool::CertId id = computeCertId(ee.get(), ca.get(), "1.3.14.3.2.26");
    EXPECT_EQ(testsupport::hexOf(id.issuerNameHash) + testsupport::hexOf(id.issuerKeyHash) +
                  testsupport::toHex(id.serial.data(), id.serial.size()),
              "DEAFDA46CA9103DD712A7726240BA64D967908E1" "9B9C41B3003604EE3414CDB643FE4A451E8FB4D3"
              "402BBC2780BCFE52E97ACBBECB19847206E868AC");
}

}  // namespace
