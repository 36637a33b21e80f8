// chainvet check ocsp-signing: may the responder sign OCSP responses, and for which
// CertIDs?
#include "certid.h"
#include "command.h"
#include "common.h"

#include "policies/chain_policies.h"

#include <cstdio>
#include <cstring>
#include <iterator>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet check ocsp-signing [--extra] [--flags HEX] [--certid CERT ISSUER [--alg OID]...]...\n"
    "                                   RESPONDER [CHAIN...]\n\n"
    "May RESPONDER sign OCSP responses, and may it answer for each CertID? It must pass the\n"
    "signature policy; a CA answers for the certificates it issued, an end entity needs\n"
    "id-kp-OCSPSigning (1.3.6.1.5.5.7.3.9) and answers for its own issuer's certificates, and\n"
    "no responder answers for itself. CHAIN: RESPONDER's issuers towards the root; DER or PEM.\n\n"
    "  --certid CERT ISSUER  ask about CERT, issued by ISSUER: its CertID is built as\n"
    "                        `chainvet certid` builds it; may repeat\n"
    "  --alg OID             hash algorithm of the CertID before it (dotted or sha1, sha256,\n"
    "                        sha384, sha512, md5, gost94, streebog256, streebog512); may\n"
    "                        repeat for one CertID per algorithm; default SHA-1\n"
    "  --extra               hand over the extra status: every failure at once, each CertID's\n"
    "                        verdict and the id-pkix-ocsp-nocheck report\n"
    "  --flags HEX           dwFlags, below 10000, handed on to the signature policy (default 0)\n"
    "  --trace               the library's trace on stderr (before the command)\n\n"
    "Exit status: 0 pass, 1 the responder failed, 2 the policy could not run, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"check ocsp-signing", "may the end certificate sign OCSP responses, and for which CertIDs?",
                       kHelp, run};
Registrar s_register(kCommand);

struct Asked {
    std::string cert, issuer;
    std::vector<std::string> oids;
};

// One CertID record with the storage it points into.
struct Record {
    std::string label, oid;
    CertId id;
    bool sameAsResponder = false;
};

const char* algName(const std::string& oid) {
    if (oid == "1.3.14.3.2.26") return "SHA-1";
    if (oid == "2.16.840.1.101.3.4.2.1") return "SHA-256";
    if (oid == "2.16.840.1.101.3.4.2.2") return "SHA-384";
    if (oid == "2.16.840.1.101.3.4.2.3") return "SHA-512";
    if (oid == "1.2.840.113549.2.5") return "MD5";
    if (oid == "1.2.643.2.2.9") return "GOST R 34.11-94";
    if (oid == "1.2.643.7.1.1.2.2") return "GOST R 34.11-2012 (256)";
    if (oid == "1.2.643.7.1.1.2.3") return "GOST R 34.11-2012 (512)";
    return "hash";
}

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool sameCertificate(PCCERT_CONTEXT a, PCCERT_CONTEXT b) {
    return a->cbCertEncoded == b->cbCertEncoded && std::memcmp(a->pbCertEncoded, b->pbCertEncoded, a->cbCertEncoded) == 0;
}

int run(const std::vector<std::string>& args) {
    bool extra = false;
    DWORD flags = 0;
    std::vector<Asked> asked;
    std::vector<std::string> files;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--extra") {
            extra = true;
        } else if (args[i] == "--flags") {
            if (i + 1 >= args.size() || !parseHex32(args[i + 1], flags))
                return usage(kCommand, "--flags needs a hexadecimal value");
            ++i;
        } else if (args[i] == "--certid") {
            if (i + 2 >= args.size())
                return usage(kCommand, "--certid needs the certificate and its issuer");
            asked.push_back(Asked{args[i + 1], args[i + 2], {}});
            i += 2;
        } else if (args[i] == "--alg") {
            if (asked.empty())
                return usage(kCommand, "--alg belongs to a --certid before it");
            if (i + 1 >= args.size())
                return usage(kCommand, "--alg needs an algorithm");
            const std::string oid = hashOid(args[++i]);
            if (oid.empty())
                return usage(kCommand, "unknown hash algorithm " + args[i]);
            asked.back().oids.push_back(oid);
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage(kCommand, "unknown option " + args[i]);
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty())
        return usage(kCommand, "no responder certificate given");

    CertList certs;
    if (!certs.load(files))
        return kCouldNotRun;
    Chain chain(certs);

    // The CertIDs, hashed as `chainvet certid` hashes them.
    std::vector<Record> records;
    for (const Asked& a : asked) {
        CertList pair;
        if (!pair.load({a.cert, a.issuer}))
            return kCouldNotRun;
        const std::vector<std::string> oids = a.oids.empty() ? std::vector<std::string>{"1.3.14.3.2.26"} : a.oids;
        for (const std::string& oid : oids) {
            Record r;
            r.label = baseName(a.cert) + " by " + baseName(a.issuer) + ", " + algName(oid);
            r.oid = oid;
            r.sameAsResponder = sameCertificate(pair.certs()[0], certs.certs()[0]);
            try {
                r.id = computeCertId(pair.certs()[0], pair.certs()[1], oid.c_str());
            } catch (const ATL::CAtlException& e) {
                std::fprintf(stderr, "chainvet check ocsp-signing: hashing with %s failed: %s\n", oid.c_str(),
                             describeError(static_cast<DWORD>(e.m_hr)).c_str());
                return kCouldNotRun;
            }
            records.push_back(r);
        }
    }
    std::vector<QVOCSP_CERT_ID> ids;
    for (Record& r : records) {
        QVOCSP_CERT_ID id{};
        id.HashAlgorithm.pszObjId = &r.oid[0];
        id.IssuerNameHash = {static_cast<DWORD>(r.id.issuerNameHash.cbData()), r.id.issuerNameHash.pbData()};
        id.IssuerKeyHash = {static_cast<DWORD>(r.id.issuerKeyHash.cbData()), r.id.issuerKeyHash.pbData()};
        id.SerialNumber = {static_cast<DWORD>(r.id.serial.size()), r.id.serial.data()};
        ids.push_back(id);
    }

    std::vector<DWORD> checked(ids.size(), 0);
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr, static_cast<DWORD>(ids.size()),
                                                          ids.empty() ? nullptr : ids.data(), nullptr};
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extraStatus{
        sizeof extraStatus, 0, 0, 0, 0, checked.empty() ? nullptr : checked.data()};
    CERT_CHAIN_POLICY_PARA para{sizeof para, flags, ids.empty() ? nullptr : &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, extra ? &extraStatus : nullptr};

    std::printf("policy:   ocsp-signing, dwFlags 0x%08X, %zu certificate(s), %zu CertID(s)%s\n",
                static_cast<unsigned>(flags), files.size(), ids.size(), extra ? ", extra records" : "");
    SetLastError(0);
    const BOOL ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, chain.get(), &para, &status);
    const DWORD lastError = GetLastError();
    const char* passText = "the end certificate may sign OCSP responses for every CertID";
    const char* failText = "the end certificate may not sign OCSP responses for every CertID";
    if (!extra) {
        for (size_t i = 0; i < records.size(); ++i)
            std::printf("certid %zu: %s, serial %s (verdicts with --extra)\n", i, records[i].label.c_str(),
                        hexUpper(records[i].id.serial.data(), records[i].id.serial.size()).c_str());
        return reportOutcome(ok, lastError, status, passText, failText);
    }

    std::printf("callback: %s\n", ok ? "TRUE" : "FALSE");
    std::printf("status:   dwError %s, lChainIndex %d, lElementIndex %d\n", describeError(status.dwError).c_str(),
                static_cast<int>(status.lChainIndex), static_cast<int>(status.lElementIndex));
    std::printf("extra:    dwError 0x%08X, lChainIndex %d, lElementIndex %d\n",
                static_cast<unsigned>(extraStatus.dwError), static_cast<int>(extraStatus.lChainIndex),
                static_cast<int>(extraStatus.lElementIndex));
    if (extraStatus.dwError & QVCERT_CHAIN_POLICY_ERR_CERT_ID)
        std::printf("          0x00000010 at least one CertID failed\n");
    if (extraStatus.dwError & QVCERT_CHAIN_POLICY_ERR_KEY_USAGE)
        std::printf("          0x00000020 Key Usage holds neither digitalSignature nor nonRepudiation\n");
    if (extraStatus.dwError & QVCERT_CHAIN_POLICY_ERR_OCSP_EKU)
        std::printf("          0x00000040 an end-entity responder lacks id-kp-OCSPSigning\n");
    std::printf("nocheck:  %s\n", extraStatus.fOcspNoCheck ? "the responder carries id-pkix-ocsp-nocheck: its own status need not be checked"
                                                           : "no id-pkix-ocsp-nocheck");
    for (size_t i = 0; ok && i < records.size(); ++i) {
        const Record& r = records[i];
        const char* meaning;
        if (checked[i])
            meaning = "PASS: the responder may answer for it";
        else if (extraStatus.dwError & QVCERT_CHAIN_POLICY_ERR_OCSP_EKU)
            meaning = "UNCHECKED: an end entity without id-kp-OCSPSigning answers for nothing";
        else if (r.sameAsResponder)
            meaning = "FAIL: Cyclic, the responder is asked about itself";
        else
            meaning = "FAIL: the responder may not answer for this issuer";
        std::printf("certid %zu: %s, serial %s\n          %s\n", i, r.label.c_str(),
                    hexUpper(r.id.serial.data(), r.id.serial.size()).c_str(), meaning);
    }
    if (!ok) {
        std::printf("verdict:  ERROR: the policy could not run, last error %s\n", describeError(lastError).c_str());
        return kCouldNotRun;
    }
    if (status.dwError != 0 || extraStatus.dwError != 0) {
        std::printf("verdict:  FAIL: %s\n", failText);
        return kChainFailed;
    }
    std::printf("verdict:  PASS: %s\n", passText);
    return kPass;
}

}  // namespace
