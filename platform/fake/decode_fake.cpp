// The fake's CryptDecodeObject: a small built-in decoder, replaceable by a test's hook.
#include "../common/decode_common.h"
#include "../common/der.h"
#include "../common/usage.h"
#include "qvfake.h"
#include "fake_internal.h"

#include <atomic>

namespace qvfake {
std::vector<void (*)()>& resetHooks() {
    static std::vector<void (*)()> hooks;
    return hooks;
}
QVFAKE_DECODE_HOOK g_decodeHook = nullptr;
void* g_decodeUser = nullptr;
std::atomic<DWORD> g_decodeCalls{0};
QVFAKE_POLICY_HOOK g_pkupHook = nullptr;
void* g_pkupUser = nullptr;
ResetRegistrar g_pkupReset([] {
    g_pkupHook = nullptr;
    g_pkupUser = nullptr;
});
}  // namespace qvfake

extern "C" {

void qvfake_set_decode_hook(QVFAKE_DECODE_HOOK hook, void* user) {
    qvfake::g_decodeHook = hook;
    qvfake::g_decodeUser = user;
}

DWORD qvfake_decode_calls(void) { return qvfake::g_decodeCalls.load(); }

void qvfake_reset(void) {
    qvfake::g_decodeHook = nullptr;
    qvfake::g_decodeUser = nullptr;
    qvfake::g_decodeCalls = 0;
    for (auto fn : qvfake::resetHooks())
        fn();
    SetLastError(0);
}

BOOL CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType, const BYTE* pbEncoded,
                       DWORD cbEncoded, DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo) {
    ++qvfake::g_decodeCalls;
    if (qvfake::g_decodeHook)
        return qvfake::g_decodeHook(qvfake::g_decodeUser, dwCertEncodingType, lpszStructType,
                                    pbEncoded, cbEncoded, dwFlags, pvStructInfo, pcbStructInfo);
    if ((dwCertEncodingType & X509_ASN_ENCODING) == 0 || pbEncoded == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (qvplat::isStructType(lpszStructType, szOID_BASIC_CONSTRAINTS2)) {
        bool ca, hasPathLen;
        uint32_t pathLen;
        if (!qvplat::decodeBasicConstraints(pbEncoded, cbEncoded, ca, hasPathLen, pathLen)) {
            SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
            return FALSE;
        }
        CERT_BASIC_CONSTRAINTS2_INFO info{ca ? TRUE : FALSE, hasPathLen ? TRUE : FALSE, pathLen};
        return qvplat::deliver(&info, sizeof info, pvStructInfo, pcbStructInfo);
    }
    if (qvplat::isStructType(lpszStructType, szOID_KEY_USAGE))
        return qvplat::decodeKeyUsage(pbEncoded, cbEncoded, dwFlags, pvStructInfo, pcbStructInfo);
    SetLastError(static_cast<DWORD>(CRYPT_E_OID_FORMAT));
    return FALSE;
}

void qvfake_set_pkup_hook(QVFAKE_POLICY_HOOK hook, void* user) {
    qvfake::g_pkupHook = hook;
    qvfake::g_pkupUser = user;
}

}  // extern "C"

// Overrides the real library's weak default: a test's hook answers in place of the
// private-key-usage-period policy.
qvplat::PkupHook qvplat::pkupHook(void** user) {
    *user = qvfake::g_pkupUser;
    return qvfake::g_pkupHook;
}
