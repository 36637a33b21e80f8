// The policies on real certificates parsed by the GnuTLS stand-in: every corpus certificate
// judged against what GnuTLS reads from the same bytes; the project's OCSP responders with the
// CertIDs of `openssl ocsp` requests and GOST R 34.11-2012 ones hashed by GnuTLS, and the
// corpus responses with theirs; the CertIDs of `chainvet certid` against those of the corpus
// responses; CBigInteger over real serial numbers.
#include "pki/algorithm.h"
#include "policies/chain_policies.h"
#include "support/testsupport.h"
#include "tools/chainvet/certid.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <gnutls/ocsp.h>
#include <gnutls/x509.h>

#include <cstring>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>

namespace {

using chainvet_tool::computeCertId;
using testsupport::readFile;
typedef std::vector<uint8_t> Bytes;
const std::string kFixtures = std::string(CHAINVET_FIXTURES_DIR) + "/pki/";
struct Verdict { BOOL ok; DWORD dwError, bits, lastError; bool partial; };

// A policy over a chain built by the stand-in, with both extra records so that every
// failure comes back as a bit.
Verdict runPolicy(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy, std::vector<PCCERT_CONTEXT> certs, DWORD flags) {
    PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()));
    FILETIME moment{0, 0};  // 1601: before any usage period, which only adds bit 0x01
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, &moment};
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), flags, &extraPara};
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0, 0, 0};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0, 0, 0, &extra};
    SetLastError(0);
    const Verdict v{policy(nullptr, chain, &para, &status), status.dwError, extra.dwError, GetLastError(),
                    (chain->TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN) != 0};
    QVCertFreeChain(chain);
    return v;
}

// Every certificate GnuTLS reads the stand-in reads too, and the verdicts agree with GnuTLS'
// reading. Basic constraints (outside bad/): a certificate without the extension is judged
// alone, so it may be CA only if self-issued; where GnuTLS cannot read the value (or there
// is only the old extension) nothing is compared. Key Usage: a value GnuTLS cannot read the
// policy cannot judge either; only a malformed usage period stops it earlier. Time-stamping:
// neither the certificate nor the chain usage built from it grants what the EKU lacks.
TEST(PoliciesReal, CorpusVerdictsAgreeWithGnutls) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int caJudged = 0, compared = 0, withKeyUsage = 0, refused = 0, holding = 0, lacking = 0;
    for (const std::string& path : testsupport::corpusByKind("cert", true)) {
        SCOPED_TRACE(path);
        Bytes der = readFile(path);
        PCCERT_CONTEXT cert = QVCertLoadFile(path.c_str());
        gnutls_datum_t d = cert ? gnutls_datum_t{cert->pbCertEncoded, cert->cbCertEncoded}
                                : gnutls_datum_t{der.data(), static_cast<unsigned>(der.size())};
        gnutls_x509_crt_t crt = nullptr;
        const bool read = gnutls_x509_crt_init(&crt) >= 0 && gnutls_x509_crt_import(crt, &d, GNUTLS_X509_FMT_DER) >= 0;
        EXPECT_TRUE(cert || !read) << "GnuTLS reads it, the stand-in does not";
        if (read && cert) {
            unsigned int critical = 0, ca = 0, ku = 0;
            int pathLen = 0;
            const int rc = gnutls_x509_crt_get_basic_constraints(crt, &critical, &ca, &pathLen);
            const bool hasOld = CertFindExtension("2.5.29.10", cert->pCertInfo->cExtension,
                                                  cert->pCertInfo->rgExtension) != nullptr;
            const Verdict bc = runPolicy(CertDllVerifyBasicConstraintsCertificateChainPolicy, {cert}, 0x80000000u);
            if (path.find("/bad/") == std::string::npos &&
                (rc >= 0 || (rc == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE && !hasOld))) {
                EXPECT_EQ(bc.ok && bc.dwError == 0, rc >= 0 ? ca != 0 : !bc.partial) << "basic constraints";
                ++caJudged;
            }
            const int kuResult = gnutls_x509_crt_get_key_usage(crt, &ku, &critical);
            const Verdict sig = runPolicy(CertDllVerifySignatureCertificateChainPolicy, {cert}, 0);
            EXPECT_EQ(sig.dwError, 0u);
            const bool kuUnread = kuResult < 0 && kuResult != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE;
            if (kuUnread || !sig.ok) {
                EXPECT_EQ(std::make_tuple(sig.ok, kuUnread || sig.lastError == 0x8009310Bu), std::make_tuple(FALSE, true));
                ++refused;
            } else {
                const bool mayNotSign =
                    kuResult == 0 && (ku & (GNUTLS_KEY_DIGITAL_SIGNATURE | GNUTLS_KEY_NON_REPUDIATION)) == 0;
                EXPECT_EQ(std::make_tuple((sig.bits & QVCERT_CHAIN_POLICY_ERR_KEY_USAGE) != 0,
                                          sig.bits & ~(QVCERT_CHAIN_POLICY_ERR_KEY_USAGE | QV_PKUP_ERR_BEFORE)),
                          std::make_tuple(mayNotSign, 0u)) << "GnuTLS key usage 0x" << std::hex << ku;
                ++compared;
                withKeyUsage += kuResult == 0;
            }
            bool hasEku = false, timeStamping = false, any = false;
            char oid[128];
            size_t size = sizeof oid;
            for (unsigned i = 0; gnutls_x509_crt_get_key_purpose_oid(crt, i, oid, &size, nullptr) >= 0;
                 ++i, size = sizeof oid) {
                hasEku = true;
                timeStamping |= std::strcmp(oid, GNUTLS_KP_TIME_STAMPING) == 0;
                any |= std::strcmp(oid, GNUTLS_KP_ANY) == 0;
            }
            const Verdict ts = runPolicy(CertDllVerifyTimestampSigningCertificateChainPolicy, {cert}, 0);
            EXPECT_EQ(ts.dwError, 0u);
            if (hasEku && ts.ok && (timeStamping || !any)) {
                EXPECT_EQ(ts.bits & (QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS),
                          timeStamping ? 0u : QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS);
                ++(timeStamping ? holding : lacking);
            }
        }
        gnutls_x509_crt_deinit(crt);
        if (cert)
            CertFreeCertificateContext(cert);
    }
    // Well over a hundred certificates, most with Key Usage.
    EXPECT_TRUE(caJudged > 50 && compared >= 100 && withKeyUsage >= 50 && refused <= 5 && holding >= 4 && lacking >= 20)
        << caJudged << " " << compared << " " << withKeyUsage << " " << refused << " " << holding << " " << lacking;
}

struct Id { std::string oid; Bytes name, key, serial; };
Bytes bytesOf(const void* p, size_t n) { return Bytes(static_cast<const BYTE*>(p), static_cast<const BYTE*>(p) + n); }
Bytes reversed(const CRYPT_INTEGER_BLOB& b) {
    return Bytes(std::reverse_iterator<BYTE*>(b.pbData + b.cbData), std::reverse_iterator<BYTE*>(b.pbData));
}

// The CertIDs of an OCSP request, or of a response with the certificates it carries (DER;
// the first is the signer in the project's files); false if the file is not of that kind.
bool readOcsp(const std::string& path, std::vector<Id>& ids, std::vector<Bytes>* certs) {
    const Bytes der = readFile(path);
    gnutls_datum_t in = {const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())}, n{}, k{}, s{};
    gnutls_ocsp_req_t req;
    gnutls_ocsp_resp_t resp;
    gnutls_ocsp_req_init(&req);
    gnutls_ocsp_resp_init(&resp);
    const bool read = (certs ? gnutls_ocsp_resp_import(resp, &in) : gnutls_ocsp_req_import(req, &in)) >= 0;
    gnutls_digest_algorithm_t digest;
    for (unsigned i = 0; read && (certs ? gnutls_ocsp_resp_get_single(resp, i, &digest, &n, &k, &s, nullptr, nullptr,
                                                                      nullptr, nullptr, nullptr)
                                        : gnutls_ocsp_req_get_cert_id(req, i, &digest, &n, &k, &s)) >= 0;
         ++i) {
        const char* oid = gnutls_digest_get_oid(digest);
        ids.push_back(Id{oid ? oid : "", bytesOf(n.data, n.size), bytesOf(k.data, k.size), bytesOf(s.data, s.size)});
        for (gnutls_datum_t* d : {&n, &k, &s})
            gnutls_free(d->data);
    }
    gnutls_x509_crt_t* list = nullptr;
    size_t count = 0;
    if (read && certs && gnutls_ocsp_resp_get_certs(resp, &list, &count) >= 0) {
        for (size_t i = 0; i < count; gnutls_x509_crt_deinit(list[i++]))
            if (gnutls_x509_crt_export2(list[i], GNUTLS_X509_FMT_DER, &n) >= 0) {
                certs->push_back(bytesOf(n.data, n.size));
                gnutls_free(n.data);
            }
        gnutls_free(list);
    }
    gnutls_ocsp_req_deinit(req);
    gnutls_ocsp_resp_deinit(resp);
    return read;
}

// The subject's CertID under GOST R 34.11-2012 (256): the issuer's name and key bits as the
// platform parsed them, hashed by GnuTLS.
Id gostCertId() {
    PCCERT_CONTEXT subject = QVCertLoadFile((kFixtures + "ocsp-subject.der").c_str()),
                   issuer = QVCertLoadFile((kFixtures + "ocsp-ca.der").c_str());
    const CERT_INFO* ii = issuer->pCertInfo;
    unsigned char name[32], key[32];
    gnutls_hash_fast(GNUTLS_DIG_STREEBOG_256, ii->Subject.pbData, ii->Subject.cbData, name);
    gnutls_hash_fast(GNUTLS_DIG_STREEBOG_256, ii->SubjectPublicKeyInfo.PublicKey.pbData,
                     ii->SubjectPublicKeyInfo.PublicKey.cbData, key);
    Id id{"1.2.643.7.1.1.2.2", bytesOf(name, 32), bytesOf(key, 32), reversed(subject->pCertInfo->SerialNumber)};
    CertFreeCertificateContext(subject);
    CertFreeCertificateContext(issuer);
    return id;
}

// Request fixtures ("+gost" adds the GOST CertID) or a corpus response, and the responder's
// chain (none: the certificate the response carries); the extra status' bits,
// rgdwCertIdChecked as digits, fOcspNoCheck.
TEST(OcspSigningReal, ResponderChains) {
    const struct { const char* ids; std::vector<const char*> chain; DWORD bits; const char* checked; DWORD nocheck; } rows[] = {
        {"ocsp-req-sha1 ocsp-req-sha256 +gost", {"ocsp-ca", "ocsp-root"}, 0, "111", 0},
        {"ocsp-req-sha1 ocsp-req-sha256 +gost", {"ocsp-delegated", "ocsp-ca"}, 0, "111", 1},
        {"ocsp-req-sha1 ocsp-req-sha256 +gost", {"ocsp-nopurpose", "ocsp-ca"}, 0x40, "000", 0},
        {"ocsp-req-sha1", {"ocsp-root"}, 0x30, "0", 0},  // no digitalSignature, and not the issuer
        {"ocsp-req-self-sha1 ocsp-req-self-sha256", {"ocsp-delegated", "ocsp-ca"}, 0x10, "00", 1},  // Cyclic
        {"botan/mychain_ocsp_for_ee.der", {"botan/mychain_int.der", "botan/mychain_root.der"}, 0, "1", 0},
        {"botan/mychain_ocsp_for_ee_delegate_signed.der",
         {"botan/mychain_int_ocsp_delegate_responder.der", "botan/mychain_int.der"}, 0, "1", 1},
        {"botan/mychain_ocsp_for_ee_delegate_signed.der",
         {"botan/mychain_int_ocsp_delegate_responder_no_ocsp_key_usage.der", "botan/mychain_int.der"}, 0x40, "0", 1},
        {"botan/mychain_ocsp_for_ee_root_signed.der", {"botan/mychain_root.der"}, 0x10, "0", 0},
        {"gnutls/signer-verify/response-ca.der", {}, 0x20, "1", 0},  // a CA without digitalSignature
        {"gnutls/signer-verify/response-delegated.der", {}, 0, "1", 1},
        {"gnutls/signer-verify/response-non-delegated.der", {}, 0x40, "0", 0},
        {"rustcrypto/sha512-certid-ocsp-res.der",
         {"rustcrypto/rsa-2048-sha256-ocsp-crt.der", "rustcrypto/rsa-2048-sha256-ca.der"}, 0, "1", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.ids);
        const bool own = std::strstr(row.ids, ".der") == nullptr;
        if (!own && !testsupport::corpusPresent())
            continue;  // the project's own rows still run
        const std::string dir = own ? kFixtures : testsupport::corpusDir() + "/ocsp/", ext = own ? ".der" : "";
        std::vector<Id> ids;
        std::vector<Bytes> carried;
        std::istringstream words(row.ids);
        for (std::string word; words >> word;) {
            if (word == "+gost")
                ids.push_back(gostCertId());
            else
                ASSERT_TRUE(readOcsp(dir + word + ext, ids, own ? nullptr : &carried)) << word;
        }
        std::vector<PCCERT_CONTEXT> certs;
        for (const char* f : row.chain)
            certs.push_back(QVCertLoadFile((dir + f + ext).c_str()));
        if (certs.empty()) {
            ASSERT_FALSE(carried.empty());
            const Bytes& signer = carried[0];
            certs.push_back(CertCreateCertificateContext(X509_ASN_ENCODING, signer.data(), DWORD(signer.size())));
        }
        PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()));
        auto blob = [](Bytes& b) { return CRYPT_HASH_BLOB{static_cast<DWORD>(b.size()), b.data()}; };
        std::vector<QVOCSP_CERT_ID> recs;
        for (Id& id : ids)
            recs.push_back(QVOCSP_CERT_ID{{&id.oid[0], {0, nullptr}}, blob(id.name), blob(id.key), blob(id.serial)});
        std::vector<DWORD> checked(ids.size(), 7);
        QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr,
                                                              static_cast<DWORD>(recs.size()), recs.data(), nullptr};
        QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0, 0, 0, 0, checked.data()};
        CERT_CHAIN_POLICY_PARA para{sizeof para, 0, &extraPara};
        CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, &extra};
        const BOOL ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, chain, &para, &status);
        std::string text;
        for (DWORD v : checked)
            text += static_cast<char>('0' + v);
        EXPECT_EQ(std::make_tuple(ok, status.dwError, extra.dwError, text, extra.fOcspNoCheck),
                  std::make_tuple(TRUE, 0u, row.bits, std::string(row.checked), row.nocheck));
        QVCertFreeChain(chain);
        for (PCCERT_CONTEXT c : certs)
            CertFreeCertificateContext(c);
    }
}

// CBigInteger decodes the platform's encoding of a real serial number to its content
// octets (where the certificate's is minimal) and encodes it back to the same bytes.
TEST(OcspSigningReal, BigIntegerOverRealSerials) {
    std::vector<std::string> files = testsupport::corpusByKind("cert");
    for (const char* f : {"ocsp-delegated", "ocsp-subject", "leaf"})
        files.push_back(kFixtures + f + ".der");
    size_t seen = 0;
    for (const std::string& path : files) {
        PCCERT_CONTEXT c = QVCertLoadFile(path.c_str());
        if (c == nullptr)
            continue;
        const CRYPT_INTEGER_BLOB& sn = c->pCertInfo->SerialNumber;
        DWORD cb = 0;
        EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &sn, nullptr, &cb));
        Bytes der(cb);
        EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &sn, der.data(), &cb));
        Quorvane::ASN1::CBigInteger value;
        value.decode(Quorvane::CBlob(der.data(), cb));
        const Quorvane::CBlob back = value.encode();
        EXPECT_EQ(bytesOf(back.pbData(), back.cbData()), der) << path;
        if (der.size() == sn.cbData + 2) {
            EXPECT_EQ(bytesOf(value.pbData(), value.cbData()), reversed(sn)) << path;
        }
        CertFreeCertificateContext(c);
        ++seen;
    }
    EXPECT_GE(seen, 3u);
}

struct CertFree {
    void operator()(PCCERT_CONTEXT c) const { CertFreeCertificateContext(c); }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, CertFree>;
Bytes bytesOf(const Quorvane::CBlob& b) { return bytesOf(b.pbData(), b.cbData()); }
Bytes bytesOf(const CERT_NAME_BLOB& b) { return bytesOf(b.pbData, b.cbData); }

// Wherever the issuer certificate is present (in the corpus folder or inside the response),
// its name and key hashes under the response's own algorithm equal those in the response's
// CertIDs; and a present subject certificate gives the CertID's serial.
TEST(CertIdCorpus, HashesEqualThoseInTheResponses) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::vector<Id> ids;
    std::vector<Bytes> carried;
    std::vector<CertPtr> certs;
    size_t responses = 0;
    for (const std::string& path : testsupport::corpusFiles("ocsp")) {
        if (readOcsp(path, ids, &carried))
            ++responses;
        else if (PCCERT_CONTEXT c = QVCertLoadFile(path.c_str()))
            certs.emplace_back(c);
    }
    for (const Bytes& der : carried)
        if (PCCERT_CONTEXT c = CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), DWORD(der.size())))
            certs.emplace_back(c);
    ASSERT_GT(responses, 20u);
    ASSERT_GT(certs.size(), 20u);
    size_t issuerMatches = 0, serialMatches = 0;
    std::set<std::string> algorithms;
    for (const Id& id : ids) {
        if (CertOIDToAlgId(id.oid.c_str()) == 0)
            continue;
        // The issuer is the certificate whose name and key hash to the CertID's hashes (a
        // certificate with the same name under another key is a different issuer).
        PCCERT_CONTEXT issuer = nullptr;
        for (const CertPtr& candidate : certs) {
            const chainvet_tool::CertId mine = computeCertId(candidate.get(), candidate.get(), id.oid.c_str());
            if (bytesOf(mine.issuerNameHash) == id.name && bytesOf(mine.issuerKeyHash) == id.key)
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
