// The OCSP-signing policy on real certificates: the project's responders with the CertIDs
// of `openssl ocsp` requests (SHA-1, SHA-256) and of GOST R 34.11-2012 hashes made by
// GnuTLS; the corpus responses with their responder certificates; and CBigInteger over
// real serial numbers.
#include "pki/algorithm.h"
#include "policies/chain_policies.h"
#include "support/testsupport.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <gnutls/ocsp.h>
#include <gnutls/x509.h>

#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const gnutls_datum_t& d) { return Bytes(d.data, d.data + d.size); }

struct Id {
    std::string oid;
    Bytes name, key, serial;
};

// The CertIDs of a request or a response, as GnuTLS reads them, and the certificates a
// response carries (DER).
bool readOcsp(const std::string& path, std::vector<Id>& ids, std::vector<Bytes>* certs) {
    const Bytes der = testsupport::readFile(path);
    gnutls_datum_t in = {const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())};
    for (unsigned i = 0;; ++i) {
        gnutls_digest_algorithm_t digest;
        gnutls_datum_t name{}, key{}, serial{};
        int rc;
        gnutls_ocsp_req_t req = nullptr;
        gnutls_ocsp_resp_t resp = nullptr;
        if (certs == nullptr) {
            gnutls_ocsp_req_init(&req);
            rc = gnutls_ocsp_req_import(req, &in);
            if (rc >= 0)
                rc = gnutls_ocsp_req_get_cert_id(req, i, &digest, &name, &key, &serial);
            gnutls_ocsp_req_deinit(req);
        } else {
            gnutls_ocsp_resp_init(&resp);
            rc = gnutls_ocsp_resp_import(resp, &in);
            unsigned status, reason;
            time_t t1, t2, t3;
            if (rc >= 0)
                rc = gnutls_ocsp_resp_get_single(resp, i, &digest, &name, &key, &serial, &status, &t1, &t2, &t3,
                                                 &reason);
            if (rc >= 0 && i == 0) {
                gnutls_x509_crt_t* list = nullptr;
                size_t count = 0;
                if (gnutls_ocsp_resp_get_certs(resp, &list, &count) >= 0) {
                    for (size_t k = 0; k < count; ++k) {
                        gnutls_datum_t out;
                        if (gnutls_x509_crt_export2(list[k], GNUTLS_X509_FMT_DER, &out) >= 0) {
                            certs->push_back(bytesOf(out));
                            gnutls_free(out.data);
                        }
                        gnutls_x509_crt_deinit(list[k]);
                    }
                    gnutls_free(list);
                }
            }
            gnutls_ocsp_resp_deinit(resp);
        }
        if (rc < 0)
            return i > 0;
        ids.push_back(Id{gnutls_digest_get_oid(digest), bytesOf(name), bytesOf(key), bytesOf(serial)});
        gnutls_free(name.data);
        gnutls_free(key.data);
        gnutls_free(serial.data);
    }
}

// One policy call over a responder chain (files or DER, end first) and CertIDs.
struct Outcome {
    BOOL ok = FALSE;
    DWORD dwError = 0, extraBits = 0, nocheck = 0;
    std::string checked;
};

Outcome runPolicy(const std::vector<Bytes>& chainDer, const std::vector<Id>& ids) {
    std::vector<PCCERT_CONTEXT> certs;
    for (const Bytes& d : chainDer)
        certs.push_back(CertCreateCertificateContext(X509_ASN_ENCODING, d.data(), static_cast<DWORD>(d.size())));
    for (PCCERT_CONTEXT c : certs)
        EXPECT_NE(c, nullptr);
    PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()));
    std::vector<QVOCSP_CERT_ID> recs;
    for (const Id& id : ids) {
        QVOCSP_CERT_ID r{};
        r.HashAlgorithm.pszObjId = const_cast<LPSTR>(id.oid.c_str());
        r.IssuerNameHash = {static_cast<DWORD>(id.name.size()), const_cast<BYTE*>(id.name.data())};
        r.IssuerKeyHash = {static_cast<DWORD>(id.key.size()), const_cast<BYTE*>(id.key.data())};
        r.SerialNumber = {static_cast<DWORD>(id.serial.size()), const_cast<BYTE*>(id.serial.data())};
        recs.push_back(r);
    }
    std::vector<DWORD> checked(ids.size(), 7);
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr, static_cast<DWORD>(recs.size()),
                                                          recs.data(), nullptr};
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0, 0, 0, 0, checked.data()};
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0, &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, &extra};
    Outcome out;
    out.ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, chain, &para, &status);
    out.dwError = status.dwError;
    out.extraBits = extra.dwError;
    out.nocheck = extra.fOcspNoCheck;
    for (DWORD v : checked)
        out.checked += static_cast<char>('0' + v);
    QVCertFreeChain(chain);
    for (PCCERT_CONTEXT c : certs)
        CertFreeCertificateContext(c);
    return out;
}

std::string fixture(const std::string& name) { return std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + name; }

// A GOST R 34.11-2012 (256) CertID of the subject: the issuer's name and key bits as the
// platform parsed them, hashed by GnuTLS.
Id gostCertId(const std::string& subjectFile, const std::string& issuerFile) {
    PCCERT_CONTEXT subject = QVCertLoadFile(subjectFile.c_str());
    PCCERT_CONTEXT issuer = QVCertLoadFile(issuerFile.c_str());
    const CERT_INFO* ii = issuer->pCertInfo;
    unsigned char name[32], key[32];
    gnutls_hash_fast(GNUTLS_DIG_STREEBOG_256, ii->Subject.pbData, ii->Subject.cbData, name);
    gnutls_hash_fast(GNUTLS_DIG_STREEBOG_256, ii->SubjectPublicKeyInfo.PublicKey.pbData,
                     ii->SubjectPublicKeyInfo.PublicKey.cbData, key);
    const CRYPT_INTEGER_BLOB& sn = subject->pCertInfo->SerialNumber;
    Id id{"1.2.643.7.1.1.2.2", Bytes(name, name + 32), Bytes(key, key + 32),
          Bytes(std::reverse_iterator<BYTE*>(sn.pbData + sn.cbData), std::reverse_iterator<BYTE*>(sn.pbData))};
    CertFreeCertificateContext(subject);
    CertFreeCertificateContext(issuer);
    return id;
}

TEST(OcspSigningReal, ProjectResponders) {
    std::vector<Id> forSubject, forDelegate;
    ASSERT_TRUE(readOcsp(fixture("ocsp-req-sha1.der"), forSubject, nullptr));
    ASSERT_TRUE(readOcsp(fixture("ocsp-req-sha256.der"), forSubject, nullptr));
    forSubject.push_back(gostCertId(fixture("ocsp-subject.der"), fixture("ocsp-ca.der")));
    ASSERT_TRUE(readOcsp(fixture("ocsp-req-self-sha256.der"), forDelegate, nullptr));
    ASSERT_EQ(forSubject.size(), 3u);

    const struct {
        const char* name;
        std::vector<const char*> chain;
        bool self;
        DWORD bits;
        const char* checked;
        DWORD nocheck;
    } rows[] = {
        {"CA responder", {"ocsp-ca.der", "ocsp-root.der"}, false, 0, "111", 0},
        {"delegated responder", {"ocsp-delegated.der", "ocsp-ca.der"}, false, 0, "111", 1},
        {"delegated responder without the purpose", {"ocsp-nopurpose.der", "ocsp-ca.der"}, false, 0x40, "000", 0},
        {"the root (no digitalSignature) answering for its grandchild", {"ocsp-root.der"}, false, 0x30, "000", 0},
        {"delegated responder asked about itself", {"ocsp-delegated.der", "ocsp-ca.der"}, true, 0x10, "0", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<Bytes> chain;
        for (const char* f : row.chain)
            chain.push_back(testsupport::readFile(fixture(f)));
        const Outcome o = runPolicy(chain, row.self ? forDelegate : forSubject);
        EXPECT_TRUE(o.ok);
        EXPECT_EQ(o.dwError, 0u);
        EXPECT_EQ(o.extraBits, row.bits);
        EXPECT_EQ(o.checked, row.checked);
        EXPECT_EQ(o.nocheck, row.nocheck);
    }
}

TEST(OcspSigningReal, CorpusResponses) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::string dir = testsupport::corpusDir() + "/ocsp/";
    // Responder chain files; none: the certificates the response carries.
    const struct {
        const char* response;
        std::vector<const char*> chain;
        DWORD bits;
        const char* checked;
    } rows[] = {
        {"botan/mychain_ocsp_for_ee.der", {"botan/mychain_int.der", "botan/mychain_root.der"}, 0, "1"},
        {"botan/mychain_ocsp_for_ee_delegate_signed.der",
         {"botan/mychain_int_ocsp_delegate_responder.der", "botan/mychain_int.der"}, 0, "1"},
        {"botan/mychain_ocsp_for_ee_delegate_signed.der",
         {"botan/mychain_int_ocsp_delegate_responder_no_ocsp_key_usage.der", "botan/mychain_int.der"}, 0x40, "0"},
        {"botan/mychain_ocsp_for_ee_root_signed.der", {"botan/mychain_root.der"}, 0x10, "0"},
        {"gnutls/signer-verify/response-ca.der", {}, 0x20, "1"},  // a CA without digitalSignature
        {"gnutls/signer-verify/response-delegated.der", {}, 0, "1"},
        {"gnutls/signer-verify/response-non-delegated.der", {}, 0x40, "0"},
        {"rustcrypto/sha1-certid-ocsp-res.der", {"rustcrypto/rsa-2048-sha256-ocsp-crt.der", "rustcrypto/rsa-2048-sha256-ca.der"}, 0, "1"},
        {"rustcrypto/sha256-certid-ocsp-res.der", {"rustcrypto/rsa-2048-sha256-ocsp-crt.der", "rustcrypto/rsa-2048-sha256-ca.der"}, 0, "1"},
        {"rustcrypto/sha512-certid-ocsp-res.der", {"rustcrypto/rsa-2048-sha256-ocsp-crt.der", "rustcrypto/rsa-2048-sha256-ca.der"}, 0, "1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.response);
        std::vector<Id> ids;
        std::vector<Bytes> carried, chain;
        ASSERT_TRUE(readOcsp(dir + row.response, ids, &carried));
        for (const char* f : row.chain)
            chain.push_back(testsupport::readFile(dir + f));
        if (chain.empty()) {
            ASSERT_FALSE(carried.empty());
            chain.push_back(carried[0]);
        }
        const Outcome o = runPolicy(chain, ids);
        EXPECT_TRUE(o.ok);
        EXPECT_EQ(o.extraBits, row.bits);
        EXPECT_EQ(o.checked, row.checked);
    }
}

// Serial numbers of real certificates: CBigInteger encodes them as the certificate does and
// decodes the platform's encoding back to the content octets.
TEST(OcspSigningReal, BigIntegerOverRealSerials) {
    std::vector<std::string> files = testsupport::corpusByKind("cert");
    for (const char* f : {"ocsp-ca.der", "ocsp-subject.der", "leaf.der", "root.der"})
        files.push_back(fixture(f));
    size_t seen = 0;
    for (const std::string& path : files) {
        PCCERT_CONTEXT c = QVCertLoadFile(path.c_str());
        if (c == nullptr)
            continue;
        SCOPED_TRACE(path);
        const CRYPT_INTEGER_BLOB& sn = c->pCertInfo->SerialNumber;
        const Bytes content(std::reverse_iterator<BYTE*>(sn.pbData + sn.cbData), std::reverse_iterator<BYTE*>(sn.pbData));
        DWORD cb = 0;
        ASSERT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &sn, nullptr, &cb));
        Bytes platform(cb);
        ASSERT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &sn, platform.data(), &cb));
        platform.resize(cb);
        Quorvane::ASN1::CBigInteger value;
        value.decode(Quorvane::CBlob(platform.data(), static_cast<unsigned long>(platform.size())));
        const Quorvane::CBlob encoded = value.encode();
        EXPECT_EQ(Bytes(encoded.pbData(), encoded.pbData() + encoded.cbData()), platform);
        // Certificates that carry a redundant zero octet are normalised by the platform.
        if (platform.size() == content.size() + 2) {
            EXPECT_EQ(Bytes(value.pbData(), value.pbData() + value.cbData()), content);
        }
        CertFreeCertificateContext(c);
        ++seen;
    }
    EXPECT_GE(seen, 4u);
}

}  // namespace
