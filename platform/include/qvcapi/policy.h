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

QVCAPI_END_C
