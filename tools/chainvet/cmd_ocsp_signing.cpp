// chainvet check ocsp-signing: may the responder sign OCSP responses, and for which
// CertIDs?
#include "certid.h"
#include "command.h"
#include "common.h"

#include "asn1data/catalogue.h"
#include "pki/algorithm.h"
#include "policies/chain_policies.h"

#include <cstdio>
#include <cstring>
#include <iterator>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet check ocsp-signing [--extra] [--flags HEX] [--certid CERT ISSUER [--alg OID]...]...\n"
    "                                   RESPONDER [CHAIN...]\n"
    "       chainvet check ocsp-signing [--flags HEX] --response RESP [CHAIN...]\n\n"
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
    "  --response RESP       an OCSP response (DER or PEM), read with the type catalogue: the\n"
    "                        responder is the first certificate it carries (else the first of\n"
    "                        CHAIN), the CertIDs are those it answers for; implies --extra\n"
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

// What an OCSP response brings: its CertIDs and the certificates it carries.
struct ResponseContent {
    std::vector<Record> records;
    std::vector<std::vector<unsigned char>> certs;
    std::string error;
};

std::vector<unsigned char> slurp(const std::string& path) {
    Quorvane::CBlob blob;
    blob.readFromFile(path.c_str());
    std::vector<unsigned char> bytes(blob.pbData(), blob.pbData() + blob.cbData());
    // PEM: the base64 between the first BEGIN and END lines.
    const std::string text(bytes.begin(), bytes.end());
    const size_t begin = text.find("-----BEGIN ");
    const size_t body = begin == std::string::npos ? begin : text.find('\n', begin);
    const size_t end = text.find("-----END ");
    if (body == std::string::npos || end == std::string::npos) return bytes;
    static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<unsigned char> der;
    unsigned acc = 0;
    int bits = 0;
    for (size_t i = body; i < end; ++i) {
        const size_t v = kAlphabet.find(text[i]);
        if (v == std::string::npos) continue;
        acc = (acc << 6) | (unsigned)v;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            der.push_back((unsigned char)(acc >> bits));
        }
    }
    return der;
}

std::string oidText(const ASN1OBJID& oid) {
    std::string s;
    for (ASN1UINT i = 0; i < oid.numids; ++i) s += (i ? "." : "") + std::to_string(oid.subid[i]);
    return s;
}

// The response's CertIDs (the ReqCert alternative that is one), each with the serial in
// the byte order of CBigInteger, and the DER of the certificates of its basic response.
ResponseContent readResponse(const std::vector<unsigned char>& der) {
    using namespace asn1data;
    ResponseContent out;
    ASN1CTXT ctxt;
    if (rtInitContext(&ctxt, nullptr) != 0) {
        out.error = "no memory";
        return out;
    }
    ASN1T_OCSPResponse resp;
    int stat = xd_setp(&ctxt, der.data(), (int)der.size(), nullptr, nullptr);
    if (stat == 0) stat = asn1D_OCSPResponse(&ctxt, &resp, ASN1EXPL, 0);
    const ASN1T_BasicOCSPResponse* basic =
        stat == 0 && resp.m.responseBytesPresent ? (const ASN1T_BasicOCSPResponse*)resp.responseBytes.responseObj.decoded
                                                 : nullptr;
    if (stat != 0)
        out.error = "the response does not decode, status " + std::to_string(stat);
    else if (basic == nullptr)
        out.error = "no basic response (status " + std::to_string(resp.responseStatus) + ")";
    if (!out.error.empty()) {
        rtFreeContext(&ctxt);
        return out;
    }
    ASN1CTXT enc;
    rtInitContext(&enc, nullptr);
    if (basic->m.certsPresent) {
        for (Asn1RTDListNode* n = basic->certs.head; n; n = n->next) {
            int len = xe_setp(&enc, nullptr, 0);
            if (len == 0) len = asn1E_Certificate(&enc, (ASN1T_Certificate*)n->data, ASN1EXPL);
            if (len > 0) out.certs.emplace_back(xe_getp(&enc), xe_getp(&enc) + len);
        }
    }
    int i = 0;
    for (Asn1RTDListNode* n = basic->tbsResponseData.responses.head; n; n = n->next, ++i) {
        const ASN1T_SingleResponse& single = *(const ASN1T_SingleResponse*)n->data;
        if (single.certID.t != 1) continue;  // a whole certificate or a signed identifier: no CertID to check
        const ASN1T_CertID& id = *single.certID.u.certID;
        Record r;
        r.oid = oidText(id.hashAlgorithm.algorithm);
        r.label = "response CertID " + std::to_string(i) + ", " + algName(r.oid);
        r.id.issuerNameHash = Quorvane::CBlob(id.issuerNameHash.data, id.issuerNameHash.numocts);
        r.id.issuerKeyHash = Quorvane::CBlob(id.issuerKeyHash.data, id.issuerKeyHash.numocts);
        int len = xe_setp(&enc, nullptr, 0);
        if (len == 0) len = xe_bigint(&enc, id.serialNumber, ASN1EXPL);
        if (len > 0) {
            Quorvane::ASN1::CBigInteger serial;
            serial.decode(Quorvane::CBlob(xe_getp(&enc), (unsigned long)len));
            r.id.serial.assign(serial.pbData(), serial.pbData() + serial.cbData());
        }
        out.records.push_back(r);
    }
    rtFreeContext(&enc);
    rtFreeContext(&ctxt);
    return out;
}

int run(const std::vector<std::string>& args) {
    bool extra = false;
    DWORD flags = 0;
    std::vector<Asked> asked;
    std::vector<std::string> files;
    std::string response;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--extra") {
            extra = true;
        } else if (args[i] == "--response") {
            if (i + 1 >= args.size())
                return usage(kCommand, "--response needs a file");
            response = args[++i];
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
    if (!response.empty() && !asked.empty())
        return usage(kCommand, "--response brings its own CertIDs; no --certid beside it");
    ResponseContent content;
    std::vector<std::vector<unsigned char>> ders;
    if (!response.empty()) {
        try {
            content = readResponse(slurp(response));
        } catch (const ATL::CAtlException& e) {
            std::fprintf(stderr, "chainvet check ocsp-signing: cannot read %s: %s\n", response.c_str(),
                         describeError(static_cast<DWORD>(e.m_hr)).c_str());
            return kCouldNotRun;
        }
        if (!content.error.empty()) {
            std::fprintf(stderr, "chainvet check ocsp-signing: %s: %s\n", response.c_str(), content.error.c_str());
            return kCouldNotRun;
        }
        // The responder and the certificates the response carries come first.
        ders = content.certs;
        for (const std::string& f : files) {
            try {
                ders.push_back(slurp(f));
            } catch (const ATL::CAtlException&) {
                std::fprintf(stderr, "chainvet check ocsp-signing: cannot read %s\n", f.c_str());
                return kCouldNotRun;
            }
        }
    } else if (files.empty()) {
        return usage(kCommand, "no responder certificate given");
    }
    if (!response.empty() && ders.empty())
        return usage(kCommand, "the response carries no certificate: name the responder after it");

    CertList certs;
    if (!(response.empty() ? certs.load(files) : certs.loadMemory(ders)))
        return kCouldNotRun;
    Chain chain(certs);

    // The CertIDs, hashed as `chainvet certid` hashes them, or as the response holds them.
    std::vector<Record> records = content.records;
    if (!response.empty()) {
        const CRYPT_INTEGER_BLOB& sn = certs.certs()[0]->pCertInfo->SerialNumber;
        const std::vector<unsigned char> responderSerial(std::reverse_iterator<const BYTE*>(sn.pbData + sn.cbData),
                                                         std::reverse_iterator<const BYTE*>(sn.pbData));
        for (Record& r : records) r.sameAsResponder = r.id.serial == responderSerial;
    }
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
                static_cast<unsigned>(flags), certs.certs().size(), ids.size(), extra ? ", extra records" : "");
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
