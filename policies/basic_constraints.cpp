// May the end certificate act as a certification authority?
#include "policies/frame.h"

using namespace chainvet::policy;

namespace {
const DWORD kFlagMask = BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG |
                        BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_END_ENTITY_FLAG;
}

extern "C" void BasicConstraintsImpl(LPCSTR /*pszPolicyOID*/, PCCERT_CHAIN_CONTEXT pChainContext,
                                     PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                     PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    CheckAndInitPolicyStatus(pPolicyStatus);
    if (pPolicyPara == nullptr)
        return;

    const DWORD flags = pPolicyPara->dwFlags & kFlagMask;
    if (flags == BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_END_ENTITY_FLAG) {
        QV_TRACE0("Check for BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_END_ENTITY_FLAG only is not implemented .\n");
        ReportError<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS>(
            pPolicyStatus, nullptr, TRUST_E_BASIC_CONSTRAINTS, 0);
        ATL::AtlThrowImpl(E_NOTIMPL);
    }
    if (flags != BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG)
        return;

    PCERT_INFO info = EndCertificate(pChainContext)->pCertInfo;
    PCERT_EXTENSION ext = CertFindExtension(szOID_BASIC_CONSTRAINTS2, info->cExtension, info->rgExtension);
    if (ext == nullptr)
        ext = CertFindExtension(szOID_BASIC_CONSTRAINTS, info->cExtension, info->rgExtension);

    if (ext == nullptr) {
        if (pChainContext->rgpChain[0]->cElement == 1 &&
            (pChainContext->TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN) == 0) {
            QV_TRACE0("Self-signed certificate without BASIC CONSTRAINTS can be CA\n");
            return;
        }
    } else {
        // The older 2.5.29.10 value is read by the newer extension's rule as well.
        CERT_BASIC_CONSTRAINTS2_INFO bc{};
        DWORD cb = sizeof bc;
        if (!CryptDecodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, szOID_BASIC_CONSTRAINTS2,
                               ext->Value.pbData, ext->Value.cbData, 0, &bc, &cb)) {
            ReportError<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS>(
                pPolicyStatus, nullptr, TRUST_E_BASIC_CONSTRAINTS, 0);
            ATL::AtlThrowLastWin32();
        }
        if (bc.fCA)
            return;
    }
    ReportError<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS>(
        pPolicyStatus, nullptr, TRUST_E_BASIC_CONSTRAINTS, 0);
}

BOOL CertDllVerifyBasicConstraintsCertificateChainPolicy(LPCSTR pszPolicyOID,
                                                         PCCERT_CHAIN_CONTEXT pChainContext,
                                                         PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                         PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    QV_TRACE0("Start\n");
    return CertDllVerifyCertificateChainPolicyProxy(pszPolicyOID, pChainContext, pPolicyPara,
                                                    pPolicyStatus, BasicConstraintsImpl);
}
