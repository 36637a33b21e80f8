// The OCSP-signing policy on real certificates: the project's responders with the CertIDs
// of `openssl ocsp` requests (SHA-1, SHA-256) and of GOST R 34.11-2012 hashes made by
// GnuTLS, and the corpus responses with their responder certificates; CBigInteger over
// real serial numbers.
#include "pki/algorithm.h"
#include "policies/chain_policies.h"
#include "support/testsupport.h"

#include <gnutls/crypto.h>
#include <gnutls/ocsp.h>
#include <gnutls/x509.h>

#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct Id {
    std::string oid;
    Bytes name, key, serial;
};

Bytes bytesOf(const BYTE* p, size_t n) { return Bytes(p, p + n); }
Bytes reversed(const CRYPT_INTEGER_BLOB& b) {
    return Bytes(std::reverse_iterator<BYTE*>(b.pbData + b.cbData), std::reverse_iterator<BYTE*>(b.pbData));
}

// The CertIDs of a request or response as GnuTLS reads them; a response's first carried
// certificate (its signer, in these files) goes to `signer`.
void readOcsp(const std::string& path, std::vector<Id>& ids, Bytes* signer) {
    const Bytes der = testsupport::readFile(path);
    gnutls_datum_t in = {const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())};
    gnutls_ocsp_req_t req;
    gnutls_ocsp_resp_t resp;
    gnutls_ocsp_req_init(&req);
    gnutls_ocsp_resp_init(&resp);
    const bool isReq = signer == nullptr;
    ASSERT_GE(isReq ? gnutls_ocsp_req_import(req, &in) : gnutls_ocsp_resp_import(resp, &in), 0) << path;
    for (unsigned i = 0;; ++i) {
        gnutls_digest_algorithm_t digest;
        gnutls_datum_t n{}, k{}, s{};
        unsigned status, reason;
        time_t t1, t2, t3;
        if ((isReq ? gnutls_ocsp_req_get_cert_id(req, i, &digest, &n, &k, &s)
                   : gnutls_ocsp_resp_get_single(resp, i, &digest, &n, &k, &s, &status, &t1, &t2, &t3, &reason)) < 0)
            break;
        ids.push_back(Id{gnutls_digest_get_oid(digest), bytesOf(n.data, n.size), bytesOf(k.data, k.size),
                         bytesOf(s.data, s.size)});
        for (gnutls_datum_t* d : {&n, &k, &s})
            gnutls_free(d->data);
    }
    gnutls_x509_crt_t* list = nullptr;
    size_t count = 0;
    if (!isReq && signer->empty() && gnutls_ocsp_resp_get_certs(resp, &list, &count) >= 0) {
        gnutls_datum_t out;
        if (count > 0 && gnutls_x509_crt_export2(list[0], GNUTLS_X509_FMT_DER, &out) >= 0) {
            *signer = bytesOf(out.data, out.size);
            gnutls_free(out.data);
        }
        for (size_t k = 0; k < count; ++k)
            gnutls_x509_crt_deinit(list[k]);
        gnutls_free(list);
    }
    gnutls_ocsp_req_deinit(req);
    gnutls_ocsp_resp_deinit(resp);
}

// The subject's CertID under GOST R 34.11-2012 (256): the issuer's name and key bits as the
// platform parsed them, hashed by GnuTLS.
Id gostCertId(PCCERT_CONTEXT subject, PCCERT_CONTEXT issuer) {
    const CERT_INFO* ii = issuer->pCertInfo;
    unsigned char name[32], key[32];
    gnutls_hash_fast(GNUTLS_DIG_STREEBOG_256, ii->Subject.pbData, ii->Subject.cbData, name);
    gnutls_hash_fast(GNUTLS_DIG_STREEBOG_256, ii->SubjectPublicKeyInfo.PublicKey.pbData,
                     ii->SubjectPublicKeyInfo.PublicKey.cbData, key);
    return Id{"1.2.643.7.1.1.2.2", Bytes(name, name + 32), Bytes(key, key + 32),
              reversed(subject->pCertInfo->SerialNumber)};
}

struct Row {
    const char* ids;  // request fixtures ("+gost" adds the GOST CertID) or a corpus response
    std::vector<const char*> chain;  // empty: the certificate the response carries
    DWORD bits;
    const char* checked;
    DWORD nocheck;
};

const Row kRows[] = {
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

TEST(OcspSigningReal, ResponderChains) {
    const std::string fixtures = std::string(CHAINVET_FIXTURES_DIR) + "/pki/";
    const std::string corpus = testsupport::corpusDir() + "/ocsp/";
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.ids);
        const bool own = std::string(row.ids).find(".der") == std::string::npos;
        if (!own && !testsupport::corpusPresent())
            continue;  // the project's own rows still run
        std::vector<Id> ids;
        std::vector<Bytes> ders;
        Bytes signer;
        std::string word;
        for (const char* p = row.ids;; ++p) {
            if (*p != ' ' && *p != 0) {
                word += *p;
                continue;
            }
            if (word == "+gost") {
                PCCERT_CONTEXT s = QVCertLoadFile((fixtures + "ocsp-subject.der").c_str());
                PCCERT_CONTEXT i = QVCertLoadFile((fixtures + "ocsp-ca.der").c_str());
                ids.push_back(gostCertId(s, i));
                CertFreeCertificateContext(s);
                CertFreeCertificateContext(i);
            } else {
                readOcsp(own ? fixtures + word + ".der" : corpus + word, ids, own ? nullptr : &signer);
            }
            word.clear();
            if (*p == 0)
                break;
        }
        for (const char* f : row.chain)
            ders.push_back(testsupport::readFile(own ? fixtures + f + ".der" : corpus + f));
        if (ders.empty())
            ders.push_back(signer);
        std::vector<PCCERT_CONTEXT> certs;
        for (const Bytes& d : ders)
            certs.push_back(CertCreateCertificateContext(X509_ASN_ENCODING, d.data(), static_cast<DWORD>(d.size())));
        PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()));
        std::vector<QVOCSP_CERT_ID> recs;
        for (Id& id : ids)
            recs.push_back(QVOCSP_CERT_ID{{&id.oid[0], {0, nullptr}},
                                          {static_cast<DWORD>(id.name.size()), id.name.data()},
                                          {static_cast<DWORD>(id.key.size()), id.key.data()},
                                          {static_cast<DWORD>(id.serial.size()), id.serial.data()}});
        std::vector<DWORD> checked(ids.size(), 7);
        QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr,
                                                              static_cast<DWORD>(recs.size()), recs.data(), nullptr};
        QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0, 0, 0, 0, checked.data()};
        CERT_CHAIN_POLICY_PARA para{sizeof para, 0, &extraPara};
        CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, &extra};
        EXPECT_TRUE(CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, chain, &para, &status));
        std::string text;
        for (DWORD v : checked)
            text += static_cast<char>('0' + v);
        EXPECT_EQ(status.dwError, 0u);
        EXPECT_EQ(extra.dwError, row.bits);
        EXPECT_EQ(text, row.checked);
        EXPECT_EQ(extra.fOcspNoCheck, row.nocheck);
        QVCertFreeChain(chain);
        for (PCCERT_CONTEXT c : certs)
            CertFreeCertificateContext(c);
    }
}

// CBigInteger decodes the platform's encoding of a real serial number to its content
// octets and encodes it back to the same bytes.
TEST(OcspSigningReal, BigIntegerOverRealSerials) {
    std::vector<std::string> files = testsupport::corpusByKind("cert");
    for (const char* f : {"ocsp-delegated.der", "ocsp-subject.der", "leaf.der"})
        files.push_back(std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + f);
    size_t seen = 0;
    for (const std::string& path : files) {
        PCCERT_CONTEXT c = QVCertLoadFile(path.c_str());
        if (c == nullptr)
            continue;
        const CRYPT_INTEGER_BLOB& sn = c->pCertInfo->SerialNumber;
        DWORD cb = 0;
        Bytes der(64);
        EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &sn, nullptr, &cb));
        der.resize(cb);
        EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &sn, der.data(), &cb));
        Quorvane::ASN1::CBigInteger value;
        value.decode(Quorvane::CBlob(der.data(), cb));
        const Quorvane::CBlob back = value.encode();
        EXPECT_EQ(bytesOf(back.pbData(), back.cbData()), der) << path;
        if (der.size() == sn.cbData + 2) {  // minimal in the certificate: the content octets
            EXPECT_EQ(bytesOf(value.pbData(), value.cbData()), reversed(sn)) << path;
        }
        CertFreeCertificateContext(c);
        ++seen;
    }
    EXPECT_GE(seen, 3u);
}

}  // namespace
