// May the end certificate sign? Its private-key usage period (checked by the CryptoAPI
// layer's policy) and its Key Usage decide.
#include "core/strings.h"
#include "policies/frame.h"

using namespace chainvet::policy;

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

const DWORD kDecodeBufferSize = 32;

}  // namespace

extern "C" void SignatureImpl(LPCSTR /*pszPolicyOID*/, PCCERT_CHAIN_CONTEXT pChainContext,
                              PCERT_CHAIN_POLICY_PARA pPolicyPara,
                              PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    ExtraStatus* pExtraStatus = CheckInitAndGetExtraStatus<ExtraStatus>(pPolicyStatus);
    ExtraPara* pExtraPara = CheckAndGetExtraPara<ExtraPara>(pPolicyPara);

    // The private-key usage period, through the CryptoAPI layer's own policy.
    InnerPolicyRecords inner(pPolicyPara != nullptr ? pPolicyPara->dwFlags : 0, pExtraPara,
                             pExtraStatus != nullptr);
    if (!CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(
            QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD, pChainContext, inner.para(), inner.status())) {
        QV_TRACE0("QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD check returned FALSE. Exception will be thrown.\n");
        ReportFatalWin32Error(pPolicyStatus, pExtraStatus, inner.status(), inner.extraStatus());
    }
    if (ReportError(pPolicyStatus, pExtraStatus, inner.status(), inner.extraStatus()))
        return;

    // Key Usage: no extension means no limit.
    PCERT_INFO info = EndCertificate(pChainContext)->pCertInfo;
    PCERT_EXTENSION ext = CertFindExtension(szOID_KEY_USAGE, info->cExtension, info->rgExtension);
    if (ext == nullptr)
        return;

    // Raw bytes for a decoded value that does not fit on the stack; released on every way out.
    ATL::CSimpleStringT<char, false> fallback(&ATL::g_defaultStrMgr);
    alignas(CRYPT_BIT_BLOB) BYTE buffer[kDecodeBufferSize];
    void* decoded = buffer;
    DWORD cb = kDecodeBufferSize;
    if (!CryptDecodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, szOID_KEY_USAGE, ext->Value.pbData,
                           ext->Value.cbData, CRYPT_DECODE_NOCOPY_FLAG, decoded, &cb)) {
        if (GetLastError() == ERROR_MORE_DATA) {
            QV_TRACE("Key Usage extension requires more than 32 bytes (notably, %i) to decode.\n",
                     static_cast<int>(cb));
            decoded = fallback.GetBuffer(static_cast<int>(cb));
            if (!CryptDecodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, szOID_KEY_USAGE,
                                   ext->Value.pbData, ext->Value.cbData, CRYPT_DECODE_NOCOPY_FLAG,
                                   decoded, &cb)) {
                QV_TRACE0("Key Usage extension could not be decoded.\n");
                ATL::AtlThrowLastWin32();
            }
        } else {
            QV_TRACE0("Key Usage extension could not be decoded.\n");
            ATL::AtlThrowLastWin32();
        }
    }

    // Only the first byte counts: digitalSignature (0x80) or nonRepudiation (0x40) lets
    // the certificate sign.
    const CRYPT_BIT_BLOB* bits = static_cast<const CRYPT_BIT_BLOB*>(decoded);
    if (bits->pbData[0] > 0x3F)
        return;
    QV_TRACE0("Key Usage extension does not contain neither digitalSignature nor nonRepudiation bits.\n");
    ReportError(pPolicyStatus, pExtraStatus, CERT_E_WRONG_USAGE, QVCERT_CHAIN_POLICY_ERR_KEY_USAGE);
}

extern "C" BOOL CertDllVerifySignatureCertificateChainPolicy(LPCSTR pszPolicyOID,
                                                             PCCERT_CHAIN_CONTEXT pChainContext,
                                                             PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                             PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    QV_TRACE0("Start\n");
    return CertDllVerifyCertificateChainPolicyProxy(pszPolicyOID, pChainContext, pPolicyPara,
                                                    pPolicyStatus, SignatureImpl);
}
