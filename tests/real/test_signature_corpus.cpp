// The signature and timestamp-signing policies over every certificate of the public corpus,
// judged against what GnuTLS reads from the same bytes.
#include "policies/chain_policies.h"
#include "support/testsupport.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

// Every object the corpus lists as a certificate, in whichever folder it lies.
std::vector<std::string> corpusCertificates() {
    std::vector<std::string> out;
    std::ifstream manifest(testsupport::corpusDir() + "/MANIFEST.tsv");
    std::string line;
    while (std::getline(manifest, line)) {
        std::istringstream fields(line);
        std::string path, sha, kind;
        if (std::getline(fields, path, '\t') && std::getline(fields, sha, '\t') &&
            std::getline(fields, kind, '\t') && kind == "cert")
            out.push_back(testsupport::corpusDir() + "/" + path);
    }
    return out;
}

// One certificate as both sides see it.
struct Subject {
    PCCERT_CONTEXT context = nullptr;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    gnutls_x509_crt_t crt = nullptr;

    bool load(const std::string& path) {
        context = QVCertLoadFile(path.c_str());
        if (context == nullptr)
            return false;
        chain = QVCertBuildChain(&context, 1);
        if (gnutls_x509_crt_init(&crt) < 0)
            return false;
        gnutls_datum_t d{context->pbCertEncoded, context->cbCertEncoded};
        return gnutls_x509_crt_import(crt, &d, GNUTLS_X509_FMT_DER) >= 0;
    }
    ~Subject() {
        if (crt)
            gnutls_x509_crt_deinit(crt);
        if (chain)
            QVCertFreeChain(chain);
        if (context)
            CertFreeCertificateContext(context);
    }
};

// Runs a policy with both extra records, so that every failure comes back as a bit.
BOOL runWithExtra(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy, PCCERT_CHAIN_CONTEXT chain,
                  ExtraStatus& extra) {
    FILETIME moment{0, 0};  // 1601: before any usage period, which only adds bit 0x01
    ExtraPara extraPara{sizeof(ExtraPara), &moment};
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, &extraPara};
    extra = ExtraStatus{sizeof(ExtraStatus), 0, 0, 0};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0, 0, 0, &extra};
    BOOL ok = policy(nullptr, chain, &para, &status);
    EXPECT_EQ(status.dwError, 0u);
    return ok;
}

TEST(SignatureCorpus, KeyUsageVerdictAgreesWithGnuTls) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int compared = 0, withKeyUsage = 0, refused = 0;
    for (const std::string& path : corpusCertificates()) {
        SCOPED_TRACE(path);
        Subject s;
        if (!s.load(path))
            continue;
        unsigned int ku = 0, critical = 0;
        const int kuResult = gnutls_x509_crt_get_key_usage(s.crt, &ku, &critical);
        ExtraStatus extra{};
        const BOOL ok = runWithExtra(CertDllVerifySignatureCertificateChainPolicy, s.chain, extra);
        if (kuResult < 0 && kuResult != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) {
            // A Key Usage GnuTLS cannot read is one the policy cannot judge either.
            EXPECT_EQ(ok, FALSE);
            ++refused;
            continue;
        }
        if (!ok) {
            // Only a malformed usage period may stop the policy before Key Usage.
            EXPECT_EQ(GetLastError(), 0x8009310Bu);
            ++refused;
            continue;
        }
        const bool present = kuResult == 0;
        const bool mayNotSign = present && (ku & (GNUTLS_KEY_DIGITAL_SIGNATURE | GNUTLS_KEY_NON_REPUDIATION)) == 0;
        EXPECT_EQ((extra.dwError & QVCERT_CHAIN_POLICY_ERR_KEY_USAGE) != 0, mayNotSign)
            << "GnuTLS key usage 0x" << std::hex << ku;
        EXPECT_EQ(extra.dwError & ~(QVCERT_CHAIN_POLICY_ERR_KEY_USAGE | QV_PKUP_ERR_BEFORE), 0u);
        ++compared;
        withKeyUsage += present;
    }
    // The corpus holds well over a hundred certificates, most with Key Usage.
    EXPECT_GE(compared, 100);
    EXPECT_GE(withKeyUsage, 50);
    EXPECT_LE(refused, 5);
}

TEST(SignatureCorpus, TimestampUsageFollowsTheExtendedKeyUsage) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int holding = 0, lacking = 0;
    for (const std::string& path : corpusCertificates()) {
        SCOPED_TRACE(path);
        Subject s;
        if (!s.load(path))
            continue;
        bool hasEku = false, timeStamping = false, any = false;
        for (unsigned i = 0;; ++i) {
            char oid[128];
            size_t size = sizeof oid;
            const int r = gnutls_x509_crt_get_key_purpose_oid(s.crt, i, oid, &size, nullptr);
            if (r < 0)
                break;
            hasEku = true;
            timeStamping |= std::strcmp(oid, GNUTLS_KP_TIME_STAMPING) == 0;
            any |= std::strcmp(oid, GNUTLS_KP_ANY) == 0;
        }
        if (!hasEku)
            continue;
        ExtraStatus extra{};
        if (!runWithExtra(CertDllVerifyTimestampSigningCertificateChainPolicy, s.chain, extra))
            continue;  // the signature policy could not run (counted in the test above)
        const DWORD usageBits = extra.dwError & (QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS);
        if (timeStamping) {
            EXPECT_EQ(usageBits, 0u);
            ++holding;
        } else if (!any) {
            // Neither the certificate nor the chain usage built from it grants the purpose.
            EXPECT_EQ(usageBits, QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS);
            ++lacking;
        }
    }
    EXPECT_GE(holding, 4);
    EXPECT_GE(lacking, 20);
}

}  // namespace
