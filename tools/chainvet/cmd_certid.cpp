// chainvet certid: the OCSP CertID of a certificate, as a responder must echo it.
#include "certid.h"
#include "command.h"
#include "common.h"

#include <cstdio>
#include <iterator>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet certid CERT ISSUER [--alg OID]...\n\n"
    "The OCSP CertID of CERT, issued by ISSUER (DER or PEM files): the hash of the\n"
    "issuer's name, the hash of the issuer's public key and CERT's serial number,\n"
    "hashed through the library's provider search. Compare with\n"
    "`openssl ocsp -issuer ISSUER [-sha256] -cert CERT -reqout req.der -no_nonce` and\n"
    "`openssl ocsp -reqin req.der -req_text`.\n\n"
    "  --alg OID     hash algorithm, dotted or by name (sha1, sha256, sha384, sha512, md5,\n"
    "                gost94, streebog256, streebog512); may repeat; default SHA-1\n\n"
    "Exit status: 0 done, 2 could not hash, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"certid", "OCSP CertID of a certificate (issuer name and key hashes, serial)", kHelp,
                       run};
Registrar s_register(kCommand);

int run(const std::vector<std::string>& args) {
    std::vector<std::string> files, oids;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--alg") {
            if (i + 1 >= args.size())
                return usage(kCommand, "--alg needs an algorithm");
            const std::string oid = hashOid(args[++i]);
            if (oid.empty())
                return usage(kCommand, "unknown hash algorithm " + args[i]);
            oids.push_back(oid);
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage(kCommand, "unknown option " + args[i]);
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.size() != 2)
        return usage(kCommand, "give the certificate and its issuer");
    if (oids.empty())
        oids.push_back("1.3.14.3.2.26");

    CertList certs;
    if (!certs.load(files))
        return kCouldNotRun;
    PCCERT_CONTEXT cert = certs.certs()[0];
    PCCERT_CONTEXT issuer = certs.certs()[1];
    const CRYPT_INTEGER_BLOB& sn = cert->pCertInfo->SerialNumber;
    // Little-endian in the context, big-endian in the CertID.
    const std::vector<unsigned char> serial(std::reverse_iterator<const BYTE*>(sn.pbData + sn.cbData),
                                            std::reverse_iterator<const BYTE*>(sn.pbData));
    std::printf("serialNumber:   %s\n", hexUpper(serial.data(), serial.size()).c_str());
    for (const std::string& oid : oids) {
        try {
            const CertId id = computeCertId(cert, issuer, oid.c_str());
            std::printf("hashAlgorithm:  %s (ALG_ID 0x%04X)\n", oid.c_str(), static_cast<unsigned>(id.alg));
            std::printf("issuerNameHash: %s\n",
                        hexUpper(id.issuerNameHash.pbData(), id.issuerNameHash.cbData()).c_str());
            std::printf("issuerKeyHash:  %s\n",
                        hexUpper(id.issuerKeyHash.pbData(), id.issuerKeyHash.cbData()).c_str());
        } catch (const ATL::CAtlException& e) {
            std::fprintf(stderr, "chainvet certid: hashing with %s failed: %s\n", oid.c_str(),
                         describeError(static_cast<DWORD>(e.m_hr)).c_str());
            return kCouldNotRun;
        }
    }
    return kPass;
}

}  // namespace
