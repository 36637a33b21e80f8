// The CryptoAPI layer's private-key-usage-period policy: is the moment of use inside the
// end certificate's PrivateKeyUsagePeriod (2.5.29.16)?
#include "der.h"
#include "usage.h"

#include "qvcapi/policy.h"
#include "qvcapi/support.h"

#include <chrono>
#include <cstdint>

namespace qvplat {

__attribute__((weak)) PkupHook pkupHook(void** user) {
    *user = nullptr;
    return nullptr;
}

namespace {

// The same layout as the library's records of this policy.
struct UsagePeriodPara {
    DWORD cbSize;
    void* pvUsagePeriodArg;
};
struct UsagePeriodStatus {
    DWORD cbSize;
    DWORD dwError;
    LONG lChainIndex;
    LONG lElementIndex;
};

const int64_t kTicksPerSecond = 10000000;
const int64_t kUnixEpochSeconds = 11644473600LL;  // 1601-01-01 to 1970-01-01

int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// GeneralizedTime in UTC, YYYYMMDDHHMM[SS][.f...]Z, as ticks since 1601.
bool parseGeneralizedTime(const uint8_t* p, size_t n, int64_t& ticks) {
    size_t pos = 0;
    auto num = [&](size_t digits, int& v) {
        if (pos + digits > n)
            return false;
        v = 0;
        for (size_t i = 0; i < digits; ++i) {
            if (p[pos + i] < '0' || p[pos + i] > '9')
                return false;
            v = v * 10 + (p[pos + i] - '0');
        }
        pos += digits;
        return true;
    };
    int year, mon, day, hh, mm, ss = 0;
    if (!num(4, year) || !num(2, mon) || !num(2, day) || !num(2, hh) || !num(2, mm))
        return false;
    if (pos < n && p[pos] >= '0' && p[pos] <= '9' && !num(2, ss))
        return false;
    int64_t fraction = 0;
    if (pos < n && (p[pos] == '.' || p[pos] == ',')) {
        ++pos;
        int64_t scale = kTicksPerSecond / 10;
        size_t digits = 0;
        for (; pos < n && p[pos] >= '0' && p[pos] <= '9'; ++pos, ++digits) {
            fraction += (p[pos] - '0') * scale;
            scale /= 10;
        }
        if (digits == 0)
            return false;
    }
    if (pos + 1 != n || p[pos] != 'Z')
        return false;
    if (mon < 1 || mon > 12 || day < 1 || day > 31 || hh > 23 || mm > 59 || ss > 60)
        return false;
    const int64_t secs = daysFromCivil(year, static_cast<unsigned>(mon), static_cast<unsigned>(day)) * 86400 +
                         hh * 3600 + mm * 60 + ss;
    ticks = (secs + kUnixEpochSeconds) * kTicksPerSecond + fraction;
    return true;
}

int64_t nowTicks() {
    using namespace std::chrono;
    const auto since = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    return static_cast<int64_t>(since / 100) + kUnixEpochSeconds * kTicksPerSecond;
}

// PrivateKeyUsagePeriod ::= SEQUENCE { notBefore [0] GeneralizedTime OPTIONAL,
//                                      notAfter [1] GeneralizedTime OPTIONAL }
bool decodePeriod(const BYTE* pb, DWORD cb, bool& hasBefore, int64_t& before, bool& hasAfter,
                  int64_t& after) {
    DerReader top(pb, cb);
    Tlv seq, t;
    if (!top.next(seq) || seq.tag != 0x30 || !top.atEnd())
        return false;
    DerReader r(seq.val, seq.len);
    hasBefore = r.nextIf(0x80, t);
    if (hasBefore && !parseGeneralizedTime(t.val, t.len, before))
        return false;
    hasAfter = r.nextIf(0x81, t);
    if (hasAfter && !parseGeneralizedTime(t.val, t.len, after))
        return false;
    return r.atEnd();
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

}  // namespace qvplat

extern "C" BOOL CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(
    LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
    PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
    using namespace qvplat;
    void* user = nullptr;
    if (PkupHook hook = pkupHook(&user))
        return hook(user, pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus);

    if (pPolicyStatus == nullptr || pPolicyStatus->cbSize != sizeof(CERT_CHAIN_POLICY_STATUS) ||
        pChainContext == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (pPolicyPara != nullptr && pPolicyPara->cbSize != sizeof(CERT_CHAIN_POLICY_PARA))
        return fail(ERROR_INVALID_PARAMETER);
    const auto* extraPara =
        pPolicyPara != nullptr ? static_cast<const UsagePeriodPara*>(pPolicyPara->pvExtraPolicyPara) : nullptr;
    if (extraPara != nullptr && extraPara->cbSize != sizeof(UsagePeriodPara))
        return fail(ERROR_INVALID_PARAMETER);
    auto* extraStatus = static_cast<UsagePeriodStatus*>(pPolicyStatus->pvExtraPolicyStatus);
    if (extraStatus != nullptr && extraStatus->cbSize != sizeof(UsagePeriodStatus))
        return fail(ERROR_INVALID_PARAMETER);

    pPolicyStatus->dwError = 0;
    pPolicyStatus->lChainIndex = -1;
    pPolicyStatus->lElementIndex = -1;
    if (extraStatus != nullptr) {
        extraStatus->dwError = 0;
        extraStatus->lChainIndex = -1;
        extraStatus->lElementIndex = -1;
    }
    if (pChainContext->cChain == 0 || pChainContext->rgpChain == nullptr ||
        pChainContext->rgpChain[0]->cElement == 0)
        return fail(ERROR_INVALID_PARAMETER);

    PCERT_INFO info = pChainContext->rgpChain[0]->rgpElement[0]->pCertContext->pCertInfo;
    PCERT_EXTENSION ext = CertFindExtension(szOID_PRIVATEKEY_USAGE_PERIOD, info->cExtension, info->rgExtension);
    if (ext == nullptr)
        return TRUE;
    bool hasBefore = false, hasAfter = false;
    int64_t before = 0, after = 0;
    if (!decodePeriod(ext->Value.pbData, ext->Value.cbData, hasBefore, before, hasAfter, after))
        return fail(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));

    int64_t moment;
    if (extraPara != nullptr && extraPara->pvUsagePeriodArg != nullptr) {
        const auto* ft = static_cast<const FILETIME*>(extraPara->pvUsagePeriodArg);
        moment = static_cast<int64_t>((static_cast<uint64_t>(ft->dwHighDateTime) << 32) | ft->dwLowDateTime);
    } else {
        moment = nowTicks();
    }

    DWORD bits = 0;
    if (hasBefore && moment < before)
        bits |= QV_PKUP_ERR_BEFORE;
    if (hasAfter && moment > after)
        bits |= QV_PKUP_ERR_AFTER;
    if (bits == 0)
        return TRUE;
    if (extraStatus != nullptr) {
        extraStatus->dwError |= bits;
        extraStatus->lChainIndex = 0;
        extraStatus->lElementIndex = 0;
    } else {
        pPolicyStatus->dwError = static_cast<DWORD>(CERT_E_EXPIRED);
        pPolicyStatus->lChainIndex = 0;
        pPolicyStatus->lElementIndex = 0;
    }
    return TRUE;
}
