// Key Usage decoding shared by the real and the fake CryptDecodeObject.
#pragma once

#include "qvcapi/cert.h"

namespace qvplat {

// Decodes a KeyUsage value (a BIT STRING) into a CRYPT_BIT_BLOB under the size protocol.
// With CRYPT_DECODE_NOCOPY_FLAG the bits stay in the caller's encoding; otherwise they
// follow the record in the output. Sets the last error and returns FALSE on failure.
BOOL decodeKeyUsage(const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags, void* pvStructInfo,
                    DWORD* pcbStructInfo);

}  // namespace qvplat

namespace qvplat {

// The fake replaces this weak default to script the private-key-usage-period policy; the
// real library keeps it and never has a hook.
typedef BOOL (*PkupHook)(void* user, LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                         PCERT_CHAIN_POLICY_PARA pPolicyPara, PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
PkupHook pkupHook(void** user);

}  // namespace qvplat
