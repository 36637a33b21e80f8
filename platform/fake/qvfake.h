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

// Providers and hashing. The built-in table has the real stand-in's three providers
// (types 1, 24, 75); the fake computes real SHA-1, and for the other algorithms a
// deterministic non-cryptographic value of the algorithm's size.
typedef struct _QVFAKE_PROVIDER {
    const char* name;
    DWORD type;
    const char* typeName;
    const ALG_ID* algs;
    DWORD cAlgs;
} QVFAKE_PROVIDER;
// Replaces the provider table (copied, ordered as given; the type enumeration lists each
// type at its first provider, with that provider's type name). Null restores the built-in.
QVCAPI_API void qvfake_prov_set_providers(const QVFAKE_PROVIDER* providers, DWORD count);

#define QVFAKE_ENUM_TYPES 0u
#define QVFAKE_ENUM_PROVIDERS 1u
// One scripted answer of an enumerator: error 0 answers as usual; another error fails with
// it, and with 234 the size reported is cbReported.
typedef struct _QVFAKE_ENUM_STEP {
    DWORD dwError;
    DWORD cbReported;
} QVFAKE_ENUM_STEP;
// The next calls of the enumerator take the steps in order, then it answers as usual.
QVCAPI_API void qvfake_prov_script_enum(DWORD which, const QVFAKE_ENUM_STEP* steps, DWORD count);
// Calls of an enumerator since the reset, and the index and buffer size of call i.
QVCAPI_API DWORD qvfake_prov_enum_calls(DWORD which);
QVCAPI_API BOOL qvfake_prov_enum_call(DWORD which, DWORD i, DWORD* pdwIndex, DWORD* pcbBuffer);

// The next `count` CryptReleaseContext calls fail with `error` (0 allowed) and release nothing.
QVCAPI_API void qvfake_prov_fail_releases(DWORD count, DWORD error);
// The next call of the named hash function ("CryptCreateHash", "CryptHashData",
// "CryptGetHashParam") fails with `error` (0 allowed) and does nothing.
QVCAPI_API void qvfake_prov_fail_next(const char* function, DWORD error);
// While off, QVCAPI_I_CryptGetDefaultCryptProv answers 0 (on after a reset).
QVCAPI_API void qvfake_prov_set_default(BOOL enabled);

// References held over all live contexts; live hashes; live keys.
QVCAPI_API DWORD qvfake_prov_context_refs(void);
QVCAPI_API DWORD qvfake_prov_live_hashes(void);
QVCAPI_API DWORD qvfake_prov_live_keys(void);
// Calls of any provider or hash function since the reset, and of single ones by name
// ("CryptAcquireContextA", "CryptReleaseContext", ...).
QVCAPI_API DWORD qvfake_prov_calls(void);
QVCAPI_API DWORD qvfake_prov_calls_of(const char* function);
// A key handle for tests of key wrappers; CryptDestroyKey ends it.
QVCAPI_API HCRYPTKEY qvfake_prov_make_key(void);

// Answers in place of CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy while set
// (null restores the built-in policy); cleared by qvfake_reset.
typedef BOOL (*QVFAKE_POLICY_HOOK)(void* user, LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                   PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                   PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
QVCAPI_API void qvfake_set_pkup_hook(QVFAKE_POLICY_HOOK hook, void* user);

QVCAPI_END_C
