// The signature and timestamp-signing policies over every certificate of the public corpus,
// judged against what GnuTLS reads from the same bytes.
#include "policies/chain_policies.h"
#include "support/testsupport.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <cstring>
#include <functional>
#include <string>

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

// Every certificate of the corpus as both sides see it, with the policy's verdict under
// both extra records, so that every failure comes back as a bit.
void forEachCertificate(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy,
                        const std::function<void(gnutls_x509_crt_t, BOOL, DWORD)>& judge) {
    for (const std::string& path : testsupport::corpusByKind("cert", true)) {
        SCOPED_TRACE(path);
        PCCERT_CONTEXT context = QVCertLoadFile(path.c_str());
        if (context == nullptr)
            continue;
        PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(&context, 1);
        gnutls_x509_crt_t crt = nullptr;
        gnutls_datum_t d{context->pbCertEncoded, context->cbCertEncoded};
        if (gnutls_x509_crt_init(&crt) >= 0 && gnutls_x509_crt_import(crt, &d, GNUTLS_X509_FMT_DER) >= 0) {
            FILETIME moment{0, 0};  // 1601: before any usage period, which only adds bit 0x01
            ExtraPara extraPara{sizeof(ExtraPara), &moment};
            CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, &extraPara};
            ExtraStatus extra{sizeof(ExtraStatus), 0, 0, 0};
            CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0, 0, 0, &extra};
            const BOOL ok = policy(nullptr, chain, &para, &status);
            EXPECT_EQ(status.dwError, 0u);
            judge(crt, ok, extra.dwError);
        }
        gnutls_x509_crt_deinit(crt);
        QVCertFreeChain(chain);
        CertFreeCertificateContext(context);
    }
}

TEST(SignatureCorpus, KeyUsageVerdictAgreesWithGnuTls) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int compared = 0, withKeyUsage = 0, refused = 0;
    forEachCertificate(CertDllVerifySignatureCertificateChainPolicy, [&](gnutls_x509_crt_t crt, BOOL ok, DWORD bits) {
        unsigned int ku = 0, critical = 0;
        const int kuResult = gnutls_x509_crt_get_key_usage(crt, &ku, &critical);
        if (kuResult < 0 && kuResult != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) {
            EXPECT_EQ(ok, FALSE);  // a Key Usage GnuTLS cannot read the policy cannot judge either
            ++refused;
        } else if (!ok) {
            EXPECT_EQ(GetLastError(), 0x8009310Bu);  // only a malformed usage period stops it earlier
            ++refused;
        } else {
            const bool mayNotSign = kuResult == 0 && (ku & (GNUTLS_KEY_DIGITAL_SIGNATURE | GNUTLS_KEY_NON_REPUDIATION)) == 0;
            EXPECT_EQ((bits & QVCERT_CHAIN_POLICY_ERR_KEY_USAGE) != 0, mayNotSign) << "GnuTLS key usage 0x" << std::hex << ku;
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

TEST(SignatureCorpus, TimestampUsageFollowsTheExtendedKeyUsage) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int holding = 0, lacking = 0;
    forEachCertificate(CertDllVerifyTimestampSigningCertificateChainPolicy, [&](gnutls_x509_crt_t crt, BOOL ok, DWORD bits) {
        bool hasEku = false, timeStamping = false, any = false;
        char oid[128];
        size_t size = sizeof oid;
        for (unsigned i = 0; gnutls_x509_crt_get_key_purpose_oid(crt, i, oid, &size, nullptr) >= 0; ++i, size = sizeof oid) {
            hasEku = true;
            timeStamping |= std::strcmp(oid, GNUTLS_KP_TIME_STAMPING) == 0;
            any |= std::strcmp(oid, GNUTLS_KP_ANY) == 0;
        }
        if (!hasEku || !ok)  // no EKU, or the signature policy could not run (counted above)
            return;
        const DWORD usageBits = bits & (QV_USAGE_CERT_LACKS | QV_USAGE_CHAIN_LACKS);
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
