// The signature, timestamp-signing and basic-constraints policies on real certificates
// parsed by the GnuTLS stand-in: the project's fixtures, and every certificate of the
// public corpus judged against what GnuTLS reads from the same bytes.
#include "policies/chain_policies.h"
#include "support/testsupport.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

// A policy over a chain built by the stand-in, with both extra records so that every
// failure comes back as a bit: result, the status' dwError, the extra bits, last error.
std::tuple<BOOL, DWORD, DWORD, DWORD> runPolicy(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy,
                                         std::vector<PCCERT_CONTEXT> certs, DWORD flags, bool* partial = nullptr) {
    PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()));
    FILETIME moment{0, 0};  // 1601: before any usage period, which only adds bit 0x01
    ExtraPara extraPara{sizeof(ExtraPara), &moment};
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), flags, &extraPara};
    ExtraStatus extra{sizeof(ExtraStatus), 0, 0, 0};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0, 0, 0, &extra};
    SetLastError(0);
    const BOOL ok = policy(nullptr, chain, &para, &status);
    const DWORD lastError = GetLastError();
    if (partial)
        *partial = (chain->TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN) != 0;
    QVCertFreeChain(chain);
    return std::make_tuple(ok, status.dwError, extra.dwError, lastError);
}

// Every certificate of the list that GnuTLS reads, as both sides see it; the stand-in must
// read it too.
void forEachCertificate(const std::vector<std::string>& paths,
                        const std::function<void(PCCERT_CONTEXT, gnutls_x509_crt_t)>& judge) {
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        std::vector<uint8_t> der = testsupport::readFile(path);
        PCCERT_CONTEXT context = QVCertLoadFile(path.c_str());
        gnutls_datum_t d = context ? gnutls_datum_t{context->pbCertEncoded, context->cbCertEncoded}
                                   : gnutls_datum_t{der.data(), static_cast<unsigned>(der.size())};
        gnutls_x509_crt_t crt = nullptr;
        if (gnutls_x509_crt_init(&crt) >= 0 && gnutls_x509_crt_import(crt, &d, GNUTLS_X509_FMT_DER) >= 0) {
            EXPECT_NE(context, nullptr) << "GnuTLS reads it, the stand-in does not";
            if (context)
                judge(context, crt);
        }
        gnutls_x509_crt_deinit(crt);
        if (context)
            CertFreeCertificateContext(context);
    }
}

TEST(PoliciesReal, BasicConstraintsOfTheFixtures) {
    std::map<std::string, PCCERT_CONTEXT> c;
    for (const char* name : {"root", "intermediate", "leaf", "leaf-nobc", "root-nobc", "both-bc", "old-bc"})
        ASSERT_NE(c[name] = QVCertLoadFile((std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + name + ".der").c_str()),
                  nullptr);
    const DWORD fail = 0x80096019u;
    const struct {
        const char* name;
        std::vector<PCCERT_CONTEXT> chain;
        DWORD dwError;
        bool partial;
    } cases[] = {
        {"CA with cA TRUE", {c["intermediate"], c["root"]}, 0, false},
        {"root CA alone", {c["root"]}, 0, false},
        {"leaf with cA FALSE", {c["leaf"], c["intermediate"], c["root"]}, fail, false},
        {"self-signed root without the extension", {c["root-nobc"]}, 0, false},
        {"two elements, end certificate without the extension", {c["leaf-nobc"], c["intermediate"]}, fail, true},
        {"partial chain without the extension", {c["leaf-nobc"]}, fail, true},
        {"both 2.5.29.19 (cA FALSE) and 2.5.29.10", {c["both-bc"], c["root"]}, fail, false},
        {"only 2.5.29.10, read by the current rule", {c["old-bc"], c["root"]}, 0, false},
    };
    for (const auto& k : cases) {
        bool partial = false;
        EXPECT_EQ(runPolicy(CertDllVerifyBasicConstraintsCertificateChainPolicy, k.chain, 0x80000000u, &partial),
                  std::make_tuple(TRUE, k.dwError, 0u, 0u)) << k.name;
        EXPECT_EQ(partial, k.partial) << k.name;
    }
    for (const auto& e : c)
        CertFreeCertificateContext(e.second);
}

// The CA verdict agrees with GnuTLS' reading of basic constraints. A certificate without
// the extension is judged alone, so it may be CA only if self-issued; where GnuTLS cannot
// read the value (or there is only the old extension) nothing is compared.
TEST(PoliciesReal, BasicConstraintsAgreeWithGnutls) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int passed = 0, failed = 0, couldNotRun = 0, disagreed = 0;
    std::vector<std::string> paths;
    for (const std::string& path : testsupport::corpusFiles("cert"))
        if (path.find("/bad/") == std::string::npos)
            paths.push_back(path);
    forEachCertificate(paths, [&](PCCERT_CONTEXT cert, gnutls_x509_crt_t crt) {
        unsigned int critical = 0, ca = 0;
        int pathLen = 0;
        const int rc = gnutls_x509_crt_get_basic_constraints(crt, &critical, &ca, &pathLen);
        const PCERT_INFO info = cert->pCertInfo;
        const bool hasOld = CertFindExtension("2.5.29.10", info->cExtension, info->rgExtension) != nullptr;
        bool partial = false;
        const auto r = runPolicy(CertDllVerifyBasicConstraintsCertificateChainPolicy, {cert}, 0x80000000u, &partial);
        const bool gotCa = std::get<0>(r) && std::get<1>(r) == 0;
        !std::get<0>(r) ? ++couldNotRun : gotCa ? ++passed : ++failed;
        if (rc < 0 && (rc != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE || hasOld))
            return;
        const bool expectCa = rc >= 0 ? ca != 0 : !partial;
        disagreed += gotCa != expectCa;
        EXPECT_EQ(gotCa, expectCa) << "the policy against GnuTLS";
    });
    std::printf("[ corpus   ] basic constraints over corpus/cert: %d passed, %d failed, %d could not run, "
                "%d disagreed with GnuTLS\n", passed, failed, couldNotRun, disagreed);
    EXPECT_GT(passed + failed, 50);
}

TEST(PoliciesReal, KeyUsageVerdictAgreesWithGnuTls) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int compared = 0, withKeyUsage = 0, refused = 0;
    forEachCertificate(testsupport::corpusByKind("cert", true), [&](PCCERT_CONTEXT cert, gnutls_x509_crt_t crt) {
        unsigned int ku = 0, critical = 0;
        const int kuResult = gnutls_x509_crt_get_key_usage(crt, &ku, &critical);
        const auto r = runPolicy(CertDllVerifySignatureCertificateChainPolicy, {cert}, 0);
        const DWORD bits = std::get<2>(r);
        EXPECT_EQ(std::get<1>(r), 0u);
        if (kuResult < 0 && kuResult != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) {
            EXPECT_EQ(std::get<0>(r), FALSE);  // a Key Usage GnuTLS cannot read the policy cannot judge either
            ++refused;
        } else if (!std::get<0>(r)) {
            EXPECT_EQ(std::get<3>(r), 0x8009310Bu);  // only a malformed usage period stops it earlier
            ++refused;
        } else {
            const bool mayNotSign =
                kuResult == 0 && (ku & (GNUTLS_KEY_DIGITAL_SIGNATURE | GNUTLS_KEY_NON_REPUDIATION)) == 0;
            EXPECT_EQ((bits & QVCERT_CHAIN_POLICY_ERR_KEY_USAGE) != 0, mayNotSign)
                << "GnuTLS key usage 0x" << std::hex << ku;
            EXPECT_EQ(bits & ~(QVCERT_CHAIN_POLICY_ERR_KEY_USAGE | QV_PKUP_ERR_BEFORE), 0u);
            ++compared;
            withKeyUsage += kuResult == 0;
        }
    });
    // The corpus holds well over a hundred certificates, most with Key Usage.
    EXPECT_GE(compared, 100);
    EXPECT_GE(withKeyUsage, 50);
    EXPECT_LE(refused, 5);
}

TEST(PoliciesReal, TimestampUsageFollowsTheExtendedKeyUsage) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int holding = 0, lacking = 0;
    forEachCertificate(testsupport::corpusByKind("cert", true), [&](PCCERT_CONTEXT cert, gnutls_x509_crt_t crt) {
        bool hasEku = false, timeStamping = false, any = false;
        char oid[128];
        size_t size = sizeof oid;
        for (unsigned i = 0; gnutls_x509_crt_get_key_purpose_oid(crt, i, oid, &size, nullptr) >= 0;
             ++i, size = sizeof oid) {
            hasEku = true;
            timeStamping |= std::strcmp(oid, GNUTLS_KP_TIME_STAMPING) == 0;
            any |= std::strcmp(oid, GNUTLS_KP_ANY) == 0;
        }
        const auto r = runPolicy(CertDllVerifyTimestampSigningCertificateChainPolicy, {cert}, 0);
        EXPECT_EQ(std::get<1>(r), 0u);
        if (!hasEku || !std::get<0>(r))  // no EKU, or the signature policy could not run (counted above)
            return;
        const DWORD usageBits = std::get<2>(r) & (QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS);
        if (timeStamping) {
            EXPECT_EQ(usageBits, 0u);
            ++holding;
        } else if (!any) {
            // Neither the certificate nor the chain usage built from it grants the purpose.
            EXPECT_EQ(usageBits, QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS);
            ++lacking;
        }
    });
    EXPECT_GE(holding, 4);
    EXPECT_GE(lacking, 20);
}

}  // namespace
