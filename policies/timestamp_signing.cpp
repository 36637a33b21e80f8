// May the end certificate sign time stamps? It must pass the signature policy and be
// valid for id-kp-timeStamping.
#include "policies/frame.h"

using namespace chainvet::policy;

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

const DWORD kInnerFlagsMask = 0x0000FFFFu;
// Always set for the signature policy; never a permitted input here.
const DWORD kInnerFlagsMarker = 0x40000000u;

}  // namespace

extern "C" void TimestampSigningImpl(LPCSTR /*pszPolicyOID*/, PCCERT_CHAIN_CONTEXT pChainContext,
                                     PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                     PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    ExtraStatus* pExtraStatus = CheckInitAndGetExtraStatus<ExtraStatus>(pPolicyStatus);
    ExtraPara* pExtraPara = CheckAndGetExtraPara<ExtraPara>(pPolicyPara);

    DWORD innerFlags = kInnerFlagsMarker;
    if (pPolicyPara != nullptr) {
        if ((pPolicyPara->dwFlags & QVTIMESTAMP_SIGNING_UNKNOWN_FLAGS) != 0) {
            QV_TRACE0("pPolicyPara->dwFlags contains unknown flags");
            ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
        }
        innerFlags |= pPolicyPara->dwFlags & kInnerFlagsMask;
    }

    InnerPolicyRecords inner(innerFlags, pExtraPara, pExtraStatus != nullptr);
    if (!CertDllVerifySignatureCertificateChainPolicy(QVCERT_CHAIN_POLICY_SIGNATURE, pChainContext,
                                                      inner.para(), inner.status()))
        ReportFatalWin32Error(pPolicyStatus, pExtraStatus, inner.status(), inner.extraStatus());
    if (ReportError(pPolicyStatus, pExtraStatus, inner.status(), inner.extraStatus()))
        return;

    // Without a parameter record the usage check runs with the relaxing flags clear.
    const DWORD flags = pPolicyPara != nullptr ? pPolicyPara->dwFlags : 0;
    const DWORD usage = IsValidByApplicationUsage(
        EndCertificate(pChainContext), pChainContext->rgpChain[0]->rgpElement[0]->pApplicationUsage,
        szOID_PKIX_KP_TIMESTAMP_SIGNING, (flags & QVTIMESTAMP_SIGNING_NO_CERT_USAGE_ANY_FLAG) ? FALSE : TRUE,
        (flags & QVTIMESTAMP_SIGNING_NO_CHAIN_USAGE_ANY_FLAG) ? FALSE : TRUE, FALSE, TRUE);
    if (usage == 0)
        return;
    ReportError(pPolicyStatus, pExtraStatus, CERT_E_WRONG_USAGE, usage);
}

BOOL CertDllVerifyTimestampSigningCertificateChainPolicy(LPCSTR pszPolicyOID,
                                                         PCCERT_CHAIN_CONTEXT pChainContext,
                                                         PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                         PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    QV_TRACE0("Start\n");
    return CertDllVerifyCertificateChainPolicyProxy(pszPolicyOID, pChainContext, pPolicyPara,
                                                    pPolicyStatus, TimestampSigningImpl);
}
