#include "policies/frame.h"

namespace chainvet {
namespace policy {

BOOL CertDllVerifyCertificateChainPolicyProxy(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                              PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                              PCERT_CHAIN_POLICY_STATUS pPolicyStatus, PolicyImpl impl) {
    try {
        impl(pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus);
    } catch (const ATL::CAtlException& e) {
        QV_TRACE("CAtlException caught (m_hr=0x%08x) - setting last error and returning FALSE\n",
                 static_cast<unsigned>(e.m_hr));
        SetLastError(static_cast<DWORD>(e.m_hr));
        return FALSE;
    } catch (...) {
        QV_TRACE0("Unknown exception caught - setting last error and returning FALSE\n");
        SetLastError(static_cast<DWORD>(E_FAIL));
        return FALSE;
    }
    QV_TRACE0("Finish. Returning TRUE.\n");
    return TRUE;
}

void CheckAndInitPolicyStatus(PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    if (pPolicyStatus->cbSize != sizeof(CERT_CHAIN_POLICY_STATUS)) {
        QV_TRACE0("Unknown pPolicyStatus structure (sizeof(*pPolicyStatus) != pPolicyStatus->cbSize)\n");
        ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
    }
    pPolicyStatus->dwError = 0;
    pPolicyStatus->lChainIndex = -1;
    pPolicyStatus->lElementIndex = -1;
}

}  // namespace policy
}  // namespace chainvet
