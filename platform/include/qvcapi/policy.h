// Chain-policy services the CryptoAPI layer offers to the policies above it.
#pragma once

#include "qvcapi/cert.h"

QVCAPI_BEGIN_C

// The private-key-usage-period policy: pvExtraPolicyPara may point to a
// _QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA whose pvUsagePeriodArg is a
// const FILETIME* moment of use (null: now).
QVCAPI_API BOOL CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(
    LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
    PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

// Bits IsValidByApplicationUsage returns when the purpose is not granted.
#define QV_USAGE_CERT_LACKS 0x04u   // the certificate's EKU lacks it
#define QV_USAGE_CHAIN_LACKS 0x08u  // the chain's application usage lacks it

// 0 when the certificate may be used for pszUsageIdentifier, else the bits above.
// fAnyIfNoCertUsage: a certificate without EKU is valid for any purpose.
// fAnyIfNoChainUsage: a null or empty chain usage is valid for any purpose.
// fExplicitOnly: anyExtendedKeyUsage does not count, the purpose must be named.
// fBothRequired: certificate and chain usage must both grant it (else either suffices).
QVCAPI_API DWORD IsValidByApplicationUsage(PCCERT_CONTEXT pCertContext,
                                           PCCERT_ENHKEY_USAGE pApplicationUsage,
                                           LPCSTR pszUsageIdentifier, BOOL fAnyIfNoCertUsage,
                                           BOOL fAnyIfNoChainUsage, BOOL fExplicitOnly,
                                           BOOL fBothRequired);

// Extra status bits of the private-key-usage-period policy: the moment of use lies
// before or after the certificate's private key usage period.
#define QV_PKUP_ERR_BEFORE 0x01u
#define QV_PKUP_ERR_AFTER 0x02u

QVCAPI_END_C
