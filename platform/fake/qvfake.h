// Control surface of the fake platform, for tests that need the CryptoAPI layer to
// misbehave. Only the fake library defines these.
#pragma once

#include "qvcapi.h"

QVCAPI_BEGIN_C

// Replaces CryptDecodeObject while set (null restores the built-in decoder).
typedef BOOL (*QVFAKE_DECODE_HOOK)(void* user, DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                   const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                   void* pvStructInfo, DWORD* pcbStructInfo);
QVCAPI_API void qvfake_set_decode_hook(QVFAKE_DECODE_HOOK hook, void* user);

// Number of CryptDecodeObject calls since the last reset.
QVCAPI_API DWORD qvfake_decode_calls(void);
QVCAPI_API void qvfake_reset(void);

// Answers in place of CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy while set
// (null restores the built-in policy); cleared by qvfake_reset.
typedef BOOL (*QVFAKE_POLICY_HOOK)(void* user, LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                   PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                   PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
QVCAPI_API void qvfake_set_pkup_hook(QVFAKE_POLICY_HOOK hook, void* user);

QVCAPI_END_C
