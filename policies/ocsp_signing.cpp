// May the end certificate sign OCSP responses, and may it answer for each CertID given?
// It must pass the signature policy; a CA answers for what it issued, an end entity needs
// id-kp-OCSPSigning and answers for its own issuer's certificates (or any, if the caller's
// callback says so), and no responder answers for itself.
#include "policies/frame.h"
#include "policies/ocsp_certid.h"

#include <cstddef>

using namespace chainvet::policy;
using Quorvane::CBlob;
using Quorvane::ASN1::CAlgorithmIdentifierEx;
using Quorvane::ASN1::CBigInteger;
using Quorvane::PKI::OCSP::CCertIDChecker;

namespace {

typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA UsagePara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS UsageStatus;

const DWORD kCallbackEnd = offsetof(ExtraPara, pfnAnyCertAuthorized) + sizeof(PFN_QVOCSP_ANY_CERT_AUTHORIZED);

bool emptyBlob(const CRYPT_DATA_BLOB& b) { return b.cbData == 0 || b.pbData == nullptr; }

// Every record, from the first; the two address tests are meant as they stand: equal
// contents at different addresses pass.
void CheckOcspCertIds(const ExtraPara* pExtraPara) {
    for (DWORD i = 0; i < pExtraPara->cCertId; ++i) {
        const QVOCSP_CERT_ID* id = pExtraPara->rgCertId != nullptr ? &pExtraPara->rgCertId[i] : nullptr;
        if (id == nullptr || id->HashAlgorithm.pszObjId == nullptr || emptyBlob(id->IssuerKeyHash) ||
            emptyBlob(id->IssuerNameHash) || emptyBlob(id->SerialNumber) ||
            id->IssuerNameHash.pbData == id->IssuerKeyHash.pbData ||
            static_cast<const void*>(id->HashAlgorithm.pszObjId) == id->SerialNumber.pbData) {
            QV_TRACE0("rgCertId[i] if set must not be NULL\n");
            ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
        }
    }
}

// The responder's serial number as CBigInteger holds it: most significant byte first.
CBlob ResponderSerial(const CERT_INFO* info) {
    DWORD cb = 0;
    if (!CryptEncodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &info->SerialNumber,
                           nullptr, &cb))
        ATL::AtlThrowLastWin32();
    CBlob encoded(cb);
    if (!CryptEncodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, X509_MULTI_BYTE_INTEGER, &info->SerialNumber,
                           encoded.pbData(), &cb))
        ATL::AtlThrowLastWin32();
    encoded.resize_to(cb);
    CBigInteger serial;
    serial.decode(encoded);
    return CBlob(serial);
}

CBlob BlobOf(const CRYPT_DATA_BLOB& b) { return CBlob(b.pbData, b.cbData); }

}  // namespace

extern "C" void OCSPSigningImpl(LPCSTR /*pszPolicyOID*/, PCCERT_CHAIN_CONTEXT pChainContext,
                                PCERT_CHAIN_POLICY_PARA pPolicyPara, PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    ExtraStatus* pExtraStatus = CheckInitAndGetExtraStatus<ExtraStatus>(pPolicyStatus);
    const ExtraPara* pExtraPara = CheckAndGetExtraPara<ExtraPara>(pPolicyPara);
    const DWORD cCertId = pExtraPara != nullptr ? pExtraPara->cCertId : 0;
    if (cCertId != 0)
        CheckOcspCertIds(pExtraPara);
    DWORD* rgdwChecked = pExtraStatus != nullptr ? pExtraStatus->rgdwCertIdChecked : nullptr;
    for (DWORD i = 0; rgdwChecked != nullptr && i < cCertId; ++i)
        rgdwChecked[i] = 0;

    PCCERT_CONTEXT endCert = EndCertificate(pChainContext);
    const CERT_INFO* info = endCert->pCertInfo;
    if (pExtraStatus != nullptr)
        pExtraStatus->fOcspNoCheck =
            CertFindExtension(szOID_PKIX_OCSP_NOCHECK, info->cExtension, info->rgExtension) != nullptr ? 1 : 0;

    // Required here, although the frame lets a null record pass.
    const DWORD dwFlags = pPolicyPara->dwFlags;
    if ((dwFlags & QVOCSP_SIGNING_UNKNOWN_FLAGS) != 0) {
        QV_TRACE0("pPolicyPara->dwFlags contains unknown flags");
        ATL::AtlThrowImpl(static_cast<int>(ERROR_INVALID_PARAMETER));
    }

    // The signature policy; its failure is merged before a FALSE is handed on.
    UsagePara usagePara{sizeof(UsagePara), pExtraPara != nullptr ? pExtraPara->pvUsagePeriodArg : nullptr};
    InnerPolicyRecords signature(dwFlags, pExtraPara != nullptr ? &usagePara : nullptr, pExtraStatus != nullptr);
    const BOOL signatureRan = CertDllVerifySignatureCertificateChainPolicy(
        QVCERT_CHAIN_POLICY_SIGNATURE, pChainContext, signature.para(), signature.status());
    const bool stop = ReportError(pPolicyStatus, pExtraStatus, signature.status(), signature.extraStatus());
    if (!signatureRan)
        ATL::AtlThrowLastWin32();
    if (stop)
        return;

    // Basic constraints only tell a CA responder from an end-entity one; their answer is
    // not merged.
    InnerPolicyRecords constraints(BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG, nullptr, false);
    if (!CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS, pChainContext,
                                                             constraints.para(), constraints.status())) {
        QV_TRACE0("CERT_CHAIN_POLICY_BASIC_CONSTRAINTS check returned FALSE. Exception will be thrown.\n");
        ReportFatalWin32Error(pPolicyStatus, static_cast<ExtraStatus*>(nullptr), constraints.status(),
                              static_cast<const UsageStatus*>(nullptr));
    }
    const bool isEndEntity = constraints.status()->dwError != 0;

    // An end entity without the purpose ends the policy: its CertIDs stay unexamined.
    if (isEndEntity &&
        IsValidByApplicationUsage(endCert, pChainContext->rgpChain[0]->rgpElement[0]->pApplicationUsage,
                                  szOID_PKIX_KP_OCSP_SIGNING, FALSE, FALSE, TRUE, TRUE) != 0) {
        QV_TRACE0("Certificate of OCSP responder is strictly EE certificate and is not valid for signing OCSP "
                  "responses by Application Policy or EKU.\n");
        ReportError(pPolicyStatus, pExtraStatus, CERT_E_WRONG_USAGE, QVCERT_CHAIN_POLICY_ERR_OCSP_EKU);
        return;
    }
    if (cCertId == 0)
        return;

    // A chain of one element takes the responder's own key as its issuer's.
    const PCERT_SIMPLE_CHAIN simple = pChainContext->rgpChain[0];
    const CERT_INFO* issuerInfo = simple->cElement == 1 ? info : simple->rgpElement[1]->pCertContext->pCertInfo;
    const CRYPT_BIT_BLOB& issuerKey = issuerInfo->SubjectPublicKeyInfo.PublicKey;
    const CCertIDChecker eeChecker(true, BlobOf(info->Issuer), CBlob(issuerKey.pbData, issuerKey.cbData));
    const CCertIDChecker caChecker(false, BlobOf(info->Subject), CBlob());
    const CBlob responderSerial = ResponderSerial(info);
    const PFN_QVOCSP_ANY_CERT_AUTHORIZED anyCertAuthorized =
        pExtraPara->cbSize >= kCallbackEnd ? pExtraPara->pfnAnyCertAuthorized : nullptr;

    // Both checkers live for the whole loop: each algorithm is hashed once per call.
    bool reported = false;
    for (DWORD i = 0; i < cCertId; ++i) {
        const QVOCSP_CERT_ID& id = pExtraPara->rgCertId[i];
        const int index = static_cast<int>(i);
        try {
            const CAlgorithmIdentifierEx algorithm(id.HashAlgorithm.pszObjId);
            const CBlob nameHash = BlobOf(id.IssuerNameHash);
            if (!isEndEntity) {
                // A CA answers for what it issued; key hash and serial play no part.
                if (caChecker.findEntry(algorithm).second.first != nameHash) {
                    QV_TRACE("Certificate of OCSP responder is not valid for signing status of "
                             "pExtraPara->rgCertId[%i]: issuer in CertId differs from subject of OCSP certificate "
                             "(CA case).\n",
                             index);
                    ATL::AtlThrowImpl(CERT_E_WRONG_USAGE);
                }
            } else {
                if (nameHash != eeChecker.findEntry(algorithm).second.first) {
                    if (anyCertAuthorized == nullptr) {
                        QV_TRACE("Certificate of OCSP responder is not valid for signing status of "
                                 "pExtraPara->rgCertId[%i]: issuer in CertId differs from one of OCSP certificate "
                                 "(end entity case).\n",
                                 index);
                        ATL::AtlThrowImpl(CERT_E_WRONG_USAGE);
                    }
                    if (!anyCertAuthorized(endCert)) {
                        QV_TRACE("Certificate of OCSP responder is not valid for signing status of "
                                 "pExtraPara->rgCertId[%i]: issuer in CertId differs from one of OCSP certificate "
                                 "and OCSP responder is not authorized to sign status of any certificate (end "
                                 "entity case).\n",
                                 index);
                        ATL::AtlThrowImpl(CERT_E_WRONG_USAGE);
                    }
                    QV_TRACE("Certificate of OCSP service is authorized to sign status of any certificate.\n", index);
                }
                // The responder's own certificate: same serial under the same issuer key.
                if (BlobOf(id.SerialNumber) == responderSerial &&
                    BlobOf(id.IssuerKeyHash) == eeChecker.findEntry(algorithm).second.second) {
                    QV_TRACE("\"Cyclic\" status checking in pExtraPara->rgCertId[%i].\n", index);
                    ATL::AtlThrowImpl(CERT_E_WRONG_USAGE);
                }
            }
            if (rgdwChecked != nullptr)
                rgdwChecked[i] = 1;
            continue;
        } catch (const ATL::CAtlException& e) {
            QV_TRACE("CAtlException raised while checking pExtraPara->rgCertId[%i]: m_hr = 0x%08x\n", index,
                     static_cast<unsigned>(e.m_hr));
        } catch (...) {
            QV_TRACE("Unknown exception raised while checking pExtraPara->rgCertId[%i]\n", index);
        }
        // A failed record: the first one is reported; without extra status it ends the walk.
        if (!reported) {
            if (ReportError(pPolicyStatus, pExtraStatus, CERT_E_WRONG_USAGE, QVCERT_CHAIN_POLICY_ERR_CERT_ID))
                return;
            reported = true;
        }
    }
}

BOOL CertDllVerifyOCSPSigningCertificateChainPolicy(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                                    PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                    PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    QV_TRACE0("Start\n");
    return CertDllVerifyCertificateChainPolicyProxy(pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus,
                                                    OCSPSigningImpl);
}
