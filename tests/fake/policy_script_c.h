// What the signature and timestamp-signing tests share: a call of a policy export with
// garbage in every field it must set, and a scripted private-key-usage-period policy.
#pragma once

#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <string>
#include <tuple>

namespace policyscript {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

const DWORD kSentinel = 0x0BADF00Du;  // the last error before the call
const DWORD kWrongUsage = 0x800B0110u;
const DWORD kExpired = 0x800B0101u;

// Result, last error, the status' dwError and indices, the extra status' dwError and
// indices (0x77, 0x55, 0x66 where the policy left it alone or none was linked).
typedef std::tuple<BOOL, DWORD, DWORD, LONG, LONG, DWORD, LONG, LONG> Outcome;

inline Outcome run(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy, PCCERT_CHAIN_CONTEXT chain,
                   PCERT_CHAIN_POLICY_PARA para, bool withExtraStatus) {
    ExtraStatus extra{sizeof(ExtraStatus), 0x77, 0x55, 0x66};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0x11, 0x22, 0x33, withExtraStatus ? &extra : nullptr};
    SetLastError(kSentinel);
    const BOOL ok = policy(nullptr, chain, para, &status);
    return Outcome{ok, GetLastError(), status.dwError, status.lChainIndex, status.lElementIndex,
                   extra.dwError, extra.lChainIndex, extra.lElementIndex};
}

// What the private-key-usage-period policy was handed, and what it answers: a failure in
// the status with indices 3, 4, bits in the extra status with indices 5, 6.
struct PkupScript {
    int calls = 0;
    std::string oid;
    CERT_CHAIN_POLICY_PARA para{};
    bool hadExtraPara = false;
    ExtraPara extraPara{};
    DWORD statusCbSize = 0, extraStatusCbSize = 0;  // 0: no extra status
    BOOL result = TRUE;
    DWORD lastError = 0, dwError = 0, extraBits = 0;
};

inline BOOL pkupHook(void* user, LPCSTR oid, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA para,
                     PCERT_CHAIN_POLICY_STATUS status) {
    auto* s = static_cast<PkupScript*>(user);
    ++s->calls;
    s->oid = oid ? oid : "";
    s->para = *para;
    s->hadExtraPara = para->pvExtraPolicyPara != nullptr;
    if (s->hadExtraPara)
        s->extraPara = *static_cast<ExtraPara*>(para->pvExtraPolicyPara);
    s->statusCbSize = status->cbSize;
    *status = CERT_CHAIN_POLICY_STATUS{status->cbSize, s->dwError, s->dwError ? 3 : -1, s->dwError ? 4 : -1,
                                       status->pvExtraPolicyStatus};
    if (auto* extra = static_cast<ExtraStatus*>(status->pvExtraPolicyStatus)) {
        s->extraStatusCbSize = extra->cbSize;
        *extra = ExtraStatus{extra->cbSize, s->extraBits, s->extraBits ? 5 : -1, s->extraBits ? 6 : -1};
    }
    if (!s->result)
        SetLastError(s->lastError);
    return s->result;
}

// The expected Outcome of a row run with or without an extra status: the policy's own
// failure in the status (indices 0) or as bits; an inner one as the script put it. The
// call succeeds where the last error stays, or is the 234 of a decoder asked again.
inline Outcome expected(bool withExtra, DWORD lastError, DWORD dwError, DWORD extraBits, DWORD pkupError,
                        DWORD pkupBits) {
    const BOOL ok = lastError == kSentinel || lastError == ERROR_MORE_DATA;
    if (withExtra)
        return Outcome{ok, lastError, 0, -1, -1, extraBits, pkupBits ? 5 : -1, pkupBits ? 6 : -1};
    const LONG index = !dwError ? -1 : pkupError ? 3 : 0;
    return Outcome{ok, lastError, dwError, index, index == 3 ? 4 : index, 0x77, 0x55, 0x66};
}

}  // namespace policyscript
