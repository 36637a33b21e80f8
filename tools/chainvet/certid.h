// The OCSP CertID of a certificate under one hash algorithm, computed through MakeHash:
// the hash of the issuer's name, the hash of the issuer's public key bits, the serial.
#pragma once

#include "core/blob.h"
#include "policies/crypt.h"
#include "qvcapi.h"

#include <cctype>
#include <iterator>
#include <string>
#include <vector>

namespace chainvet_tool {

struct CertId {
    ALG_ID alg = 0;
    Quorvane::CBlob issuerNameHash;
    Quorvane::CBlob issuerKeyHash;
    std::vector<unsigned char> serial;  // big-endian, as the CertID holds it
};

// Dotted OID of a hash algorithm, also from a short name ("sha256", "gost94", ...);
// empty if unknown.
inline std::string hashOid(const std::string& text) {
    static const struct {
        const char* name;
        const char* oid;
    } kNames[] = {
        {"md5", "1.2.840.113549.2.5"},       {"sha1", "1.3.14.3.2.26"},
        {"sha256", "2.16.840.1.101.3.4.2.1"}, {"sha384", "2.16.840.1.101.3.4.2.2"},
        {"sha512", "2.16.840.1.101.3.4.2.3"}, {"gost94", "1.2.643.2.2.9"},
        {"streebog256", "1.2.643.7.1.1.2.2"}, {"streebog512", "1.2.643.7.1.1.2.3"},
    };
    std::string lower;
    for (char c : text)
        if (c != '-' && c != '_')
            lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const auto& n : kNames)
        if (lower == n.name)
            return n.oid;
    return CertOIDToAlgId(text.c_str()) != 0 ? text : std::string();
}

inline Quorvane::CBlob blobOf(const BYTE* pb, DWORD cb) { return Quorvane::CBlob(pb, cb); }

// Throws ATL::CAtlException from the hashing; hashOidText must be known to CertOIDToAlgId.
inline CertId computeCertId(PCCERT_CONTEXT cert, PCCERT_CONTEXT issuer, const char* hashOidText) {
    CertId id;
    id.alg = CertOIDToAlgId(hashOidText);
    if (id.alg == 0)
        ATL::AtlThrowImpl(NTE_BAD_ALGID);
    const CERT_INFO* ii = issuer->pCertInfo;
    id.issuerNameHash = Quorvane::MakeHash(0, id.alg, blobOf(ii->Subject.pbData, ii->Subject.cbData), nullptr);
    id.issuerKeyHash = Quorvane::MakeHash(
        0, id.alg, blobOf(ii->SubjectPublicKeyInfo.PublicKey.pbData, ii->SubjectPublicKeyInfo.PublicKey.cbData),
        nullptr);
    const CRYPT_INTEGER_BLOB& sn = cert->pCertInfo->SerialNumber;
    id.serial.assign(std::reverse_iterator<const BYTE*>(sn.pbData + sn.cbData),
                     std::reverse_iterator<const BYTE*>(sn.pbData));
    return id;
}

inline std::string hexUpper(const unsigned char* p, size_t n) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += kDigits[p[i] >> 4];
        s += kDigits[p[i] & 15];
    }
    return s;
}

}  // namespace chainvet_tool
