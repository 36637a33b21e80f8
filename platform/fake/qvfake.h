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

QVCAPI_END_C
