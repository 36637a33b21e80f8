// What the four policy callbacks share: the proxy that turns exceptions into FALSE, the
// checks of the size-tagged records, and the merging of failures into the status.
#pragma once

#include "core/exception.h"
#include "core/trace.h"
#include "policies/chain_policies.h"

namespace chainvet {
namespace policy {

typedef void (*PolicyImpl)(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA,
                           PCERT_CHAIN_POLICY_STATUS);

// Pointers are traced as the callers' logs always showed them: their low 32 bits.
inline unsigned tracePtr(const void* p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

BOOL CertDllVerifyCertificateChainPolicyProxy(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                              PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                              PCERT_CHAIN_POLICY_STATUS pPolicyStatus, PolicyImpl impl);

void CheckAndInitPolicyStatus(PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

template <class T>
T* CheckInitAndGetExtraStatus(PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    CheckAndInitPolicyStatus(pPolicyStatus);
    T* pExtraStatus = static_cast<T*>(pPolicyStatus->pvExtraPolicyStatus);
    QV_TRACE("pExtraStatus = 0x%08x\n", tracePtr(pExtraStatus));
    if (pExtraStatus == nullptr)
        return nullptr;
    if (pExtraStatus->cbSize != sizeof(T)) {
        QV_TRACE0("Unknown pExtraStatus structure (sizeof(*pExtraStatus) != pExtraStatus->cbSize)\n");
        ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
    }
    pExtraStatus->dwError = 0;
    pExtraStatus->lChainIndex = -1;
    pExtraStatus->lElementIndex = -1;
    return pExtraStatus;
}

template <class T>
T* CheckAndGetExtraPara(PCERT_CHAIN_POLICY_PARA pPolicyPara) {
    if (pPolicyPara == nullptr) {
        QV_TRACE0("pPolicyPara is NULL\n");
        return nullptr;
    }
    if (pPolicyPara->cbSize != sizeof(CERT_CHAIN_POLICY_PARA)) {
        QV_TRACE0("Unknown pPolicyPara structure (sizeof(*pPolicyPara) != pPolicyPara->cbSize)\n");
        ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
    }
    T* pExtraPara = static_cast<T*>(pPolicyPara->pvExtraPolicyPara);
    // One-sided on purpose: an older caller's shorter record stays valid.
    if (pExtraPara != nullptr && pExtraPara->cbSize > sizeof(T)) {
        QV_TRACE0("Unknown pExtraPara structure (sizeof(*pExtraPara) != pExtraPara->cbSize)\n");
        ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
    }
    QV_TRACE("pExtraPara = 0x%08x\n", tracePtr(pExtraPara));
    return pExtraPara;
}

// Merges the records an inner policy call filled. True: the policy must stop now.
template <class S, class O>
bool ReportError(PCERT_CHAIN_POLICY_STATUS pPolicyStatus, S* pExtraStatus,
                 const CERT_CHAIN_POLICY_STATUS* pOtherPolicyStatus, const O* pOtherExtraStatus) {
    if (pOtherPolicyStatus->dwError != 0) {
        QV_TRACE("pOtherPolicyStatus->dwError = 0x%08x\n", pOtherPolicyStatus->dwError);
        QV_TRACE("pOtherPolicyStatus->lChainIndex = %i, pOtherPolicyStatus->lElementIndex = %i\n",
                 pOtherPolicyStatus->lChainIndex, pOtherPolicyStatus->lElementIndex);
        pPolicyStatus->dwError = pOtherPolicyStatus->dwError;
        pPolicyStatus->lChainIndex = pOtherPolicyStatus->lChainIndex;
        pPolicyStatus->lElementIndex = pOtherPolicyStatus->lElementIndex;
    }
    if (pPolicyStatus->pvExtraPolicyStatus != nullptr) {
        if (pExtraStatus != nullptr && pOtherExtraStatus != nullptr && pOtherExtraStatus->dwError != 0) {
            QV_TRACE("pOtherExtraStatus->dwError = 0x%08x\n", pOtherExtraStatus->dwError);
            QV_TRACE("pOtherExtraStatus->lChainIndex = %i, pOtherExtraStatus->lElementIndex = %i\n",
                     pOtherExtraStatus->lChainIndex, pOtherExtraStatus->lElementIndex);
            pExtraStatus->dwError |= pOtherExtraStatus->dwError;
            pExtraStatus->lChainIndex = pOtherExtraStatus->lChainIndex;
            pExtraStatus->lElementIndex = pOtherExtraStatus->lElementIndex;
        }
        QV_TRACE0("Extra status was supplied. Other checks can be performed - returning false.\n");
        return false;
    }
    if (pOtherPolicyStatus->dwError != 0) {
        QV_TRACE0("Error encountered and no extra status supplied. Other checks must not be performed - returning true.\n");
        return true;
    }
    QV_TRACE0("No error encountered. Other checks can be performed - returning false.\n");
    return false;
}

// For an inner callback that returned FALSE: merge, then hand its last error on outward.
template <class S, class O>
[[noreturn]] void ReportFatalWin32Error(PCERT_CHAIN_POLICY_STATUS pPolicyStatus, S* pExtraStatus,
                                        const CERT_CHAIN_POLICY_STATUS* pOtherPolicyStatus,
                                        const O* pOtherExtraStatus) {
    ReportError(pPolicyStatus, pExtraStatus, pOtherPolicyStatus, pOtherExtraStatus);
    ATL::AtlThrowLastWin32();
}

// Records one failure of the policy's own. True: the policy must stop now.
template <class S>
bool ReportError(PCERT_CHAIN_POLICY_STATUS pPolicyStatus, S* pExtraStatus, HRESULT hrPolicyError,
                 DWORD dwExtraBits) {
    if (pExtraStatus != nullptr) {
        QV_TRACE("Extra status was supplied. Setting pExtraStatus->dwError |= 0x%08x\n", dwExtraBits);
        pExtraStatus->dwError |= dwExtraBits;
        QV_TRACE0("Extra status was supplied. Other checks can be performed - returning false.\n");
        return false;
    }
    QV_TRACE("No extra status supplied. Setting pPolicyStatus->dwError = 0x%08x, "
             "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n",
             static_cast<unsigned>(hrPolicyError));
    pPolicyStatus->dwError = static_cast<DWORD>(hrPolicyError);
    pPolicyStatus->lChainIndex = 0;
    pPolicyStatus->lElementIndex = 0;
    QV_TRACE0("Error encountered and no extra status supplied. Other checks must not be performed - returning true.\n");
    return true;
}

// The records a policy builds on its stack to call another policy: an inner parameter
// record with the given flags, the private-key-usage extra parameter when the outer call
// had one (the usage-period argument copied over), an inner status, and an inner extra
// status when the outer call had one.
class InnerPolicyRecords {
public:
    InnerPolicyRecords(DWORD dwFlags, const QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA* pOuterExtraPara,
                       bool withExtraStatus)
        : m_para{sizeof(CERT_CHAIN_POLICY_PARA), dwFlags, nullptr},
          m_extraPara{},
          m_status{sizeof(CERT_CHAIN_POLICY_STATUS), 0, 0, 0, nullptr},
          m_extraStatus{} {
        if (pOuterExtraPara != nullptr) {
            m_extraPara.cbSize = sizeof(m_extraPara);
            m_extraPara.pvUsagePeriodArg = pOuterExtraPara->pvUsagePeriodArg;
            m_para.pvExtraPolicyPara = &m_extraPara;
        }
        if (withExtraStatus) {
            m_extraStatus.cbSize = sizeof(m_extraStatus);
            m_status.pvExtraPolicyStatus = &m_extraStatus;
        }
    }
    InnerPolicyRecords(const InnerPolicyRecords&) = delete;
    InnerPolicyRecords& operator=(const InnerPolicyRecords&) = delete;

    PCERT_CHAIN_POLICY_PARA para() { return &m_para; }
    PCERT_CHAIN_POLICY_STATUS status() { return &m_status; }
    const QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS* extraStatus() const {
        return m_status.pvExtraPolicyStatus != nullptr ? &m_extraStatus : nullptr;
    }

private:
    CERT_CHAIN_POLICY_PARA m_para;
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA m_extraPara;
    CERT_CHAIN_POLICY_STATUS m_status;
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS m_extraStatus;
};

// The end certificate of the first simple chain; the chain is required to hold one.
inline PCCERT_CONTEXT EndCertificate(PCCERT_CHAIN_CONTEXT pChainContext) {
    return pChainContext->rgpChain[0]->rgpElement[0]->pCertContext;
}

}  // namespace policy
}  // namespace chainvet
