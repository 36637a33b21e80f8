// The frame every policy runs in: record checks at each size boundary, the proxy's
// handling of exceptions, merging of inner statuses, and the trace lines.
#include "policies/frame.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <stdexcept>

using namespace chainvet::policy;
using namespace testsupport;

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS UsageStatus;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA UsagePara;
typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS OcspStatus;
typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA OcspPara;

HRESULT thrownHr(void (*fn)()) {
    try {
        fn();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    ADD_FAILURE() << "nothing thrown";
    return 1;
}

TEST(PolicyFrame, RecordSizesOfThisBuild) {
#if UINTPTR_MAX == 0xFFFFFFFFu
    EXPECT_EQ(sizeof(CERT_CHAIN_POLICY_STATUS), 20u);
    EXPECT_EQ(sizeof(CERT_CHAIN_POLICY_PARA), 12u);
    EXPECT_EQ(sizeof(UsagePara), 8u);
    EXPECT_EQ(sizeof(OcspPara), 20u);
    EXPECT_EQ(sizeof(OcspStatus), 24u);
    EXPECT_EQ(sizeof(QVOCSP_CERT_ID), 36u);
#else
    EXPECT_EQ(sizeof(CERT_CHAIN_POLICY_STATUS), 24u);
    EXPECT_EQ(sizeof(CERT_CHAIN_POLICY_PARA), 16u);
    EXPECT_EQ(sizeof(UsagePara), 16u);
    EXPECT_EQ(sizeof(OcspPara), 40u);
    EXPECT_EQ(sizeof(OcspStatus), 32u);
    EXPECT_EQ(sizeof(QVOCSP_CERT_ID), 72u);
#endif
    EXPECT_EQ(sizeof(UsageStatus), 16u);
}

TEST(PolicyFrame, StatusSizeBoundaries) {
    const DWORD good = sizeof(CERT_CHAIN_POLICY_STATUS);
    for (DWORD size : {good - 1, good + 1, DWORD(0), DWORD(0xFFFFFFFFu)}) {
        CERT_CHAIN_POLICY_STATUS s{size, 7, 8, 9, nullptr};
        EXPECT_THROW(CheckAndInitPolicyStatus(&s), ATL::CAtlException);
        EXPECT_EQ(s.dwError, 7u);
        EXPECT_EQ(s.lChainIndex, 8);
        EXPECT_EQ(s.lElementIndex, 9);
    }
    int marker;
    CERT_CHAIN_POLICY_STATUS s{good, 7, 8, 9, &marker};
    CheckAndInitPolicyStatus(&s);
    EXPECT_EQ(s.dwError, 0u);
    EXPECT_EQ(s.lChainIndex, -1);
    EXPECT_EQ(s.lElementIndex, -1);
    EXPECT_EQ(s.pvExtraPolicyStatus, &marker);
}

template <class T>
void extraStatusBoundaries() {
    const DWORD good = sizeof(T);
    for (DWORD size : {good - 1, good + 1, DWORD(0)}) {
        T extra{};
        extra.cbSize = size;
        extra.dwError = 0x55;
        extra.lChainIndex = 3;
        extra.lElementIndex = 4;
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 7, 8, 9, &extra};
        try {
            CheckInitAndGetExtraStatus<T>(&s);
            ADD_FAILURE() << "size " << size << " accepted";
        } catch (const ATL::CAtlException& e) {
            EXPECT_EQ(e.m_hr, 87);
        }
        // The status itself is initialised before the extra status is refused.
        EXPECT_EQ(s.dwError, 0u);
        EXPECT_EQ(s.lChainIndex, -1);
        EXPECT_EQ(extra.dwError, 0x55u);
        EXPECT_EQ(extra.lChainIndex, 3);
        EXPECT_EQ(extra.lElementIndex, 4);
    }
    T extra{};
    extra.cbSize = good;
    extra.dwError = 0x55;
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 7, 8, 9, &extra};
    EXPECT_EQ(CheckInitAndGetExtraStatus<T>(&s), &extra);
    EXPECT_EQ(extra.dwError, 0u);
    EXPECT_EQ(extra.lChainIndex, -1);
    EXPECT_EQ(extra.lElementIndex, -1);
    CERT_CHAIN_POLICY_STATUS none{sizeof none, 7, 8, 9, nullptr};
    EXPECT_EQ(CheckInitAndGetExtraStatus<T>(&none), nullptr);
}

TEST(PolicyFrame, ExtraStatusSizeBoundaries) {
    extraStatusBoundaries<UsageStatus>();
    extraStatusBoundaries<OcspStatus>();
}

TEST(PolicyFrame, OcspExtraStatusKeepsItsOutputFields) {
    DWORD checked[2] = {9, 9};
    OcspStatus extra{sizeof extra, 1, 2, 3, 7, checked};
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, &extra};
    CheckInitAndGetExtraStatus<OcspStatus>(&s);
    EXPECT_EQ(extra.fOcspNoCheck, 7u);
    EXPECT_EQ(extra.rgdwCertIdChecked, checked);
    EXPECT_EQ(checked[0], 9u);
}

TEST(PolicyFrame, ParaSizeBoundaries) {
    EXPECT_EQ(CheckAndGetExtraPara<UsagePara>(nullptr), nullptr);
    const DWORD good = sizeof(CERT_CHAIN_POLICY_PARA);
    for (DWORD size : {good - 1, good + 1, DWORD(0)}) {
        CERT_CHAIN_POLICY_PARA p{size, 0, nullptr};
        EXPECT_THROW(CheckAndGetExtraPara<UsagePara>(&p), ATL::CAtlException);
    }
    CERT_CHAIN_POLICY_PARA p{good, 0, nullptr};
    EXPECT_EQ(CheckAndGetExtraPara<UsagePara>(&p), nullptr);
}

// The extra parameter's test is one-sided: shorter (even 0) passes, longer is refused.
template <class T>
void extraParaBoundaries(DWORD limit) {
    ASSERT_EQ(sizeof(T), limit);
    for (DWORD size : {DWORD(0), DWORD(1), limit - 1, limit}) {
        T extra{};
        extra.cbSize = size;
        CERT_CHAIN_POLICY_PARA p{sizeof p, 0, &extra};
        EXPECT_EQ(CheckAndGetExtraPara<T>(&p), &extra) << size;
    }
    for (DWORD size : {limit + 1, DWORD(0xFFFFFFFFu)}) {
        T extra{};
        extra.cbSize = size;
        CERT_CHAIN_POLICY_PARA p{sizeof p, 0, &extra};
        try {
            CheckAndGetExtraPara<T>(&p);
            ADD_FAILURE() << "size " << size << " accepted";
        } catch (const ATL::CAtlException& e) {
            EXPECT_EQ(e.m_hr, 87);
        }
    }
}

TEST(PolicyFrame, ExtraParaSizeBoundaries) {
#if UINTPTR_MAX == 0xFFFFFFFFu
    extraParaBoundaries<UsagePara>(8);
    extraParaBoundaries<OcspPara>(20);
#else
    extraParaBoundaries<UsagePara>(16);
    extraParaBoundaries<OcspPara>(40);
#endif
}

void throwsAtl(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS s) {
    s->dwError = 0xAB;
    ATL::AtlThrowImpl(static_cast<int>(0x80091234u));
}
void throwsStd(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {
    throw std::runtime_error("boom");
}
void throwsInt(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {
    throw 42;
}
void throwsBareWin32(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {
    ATL::AtlThrowImpl(87);
}
void returns(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {}

TEST(PolicyFrame, ProxyTurnsEveryExceptionIntoFalse) {
    const struct {
        PolicyImpl impl;
        BOOL result;
        DWORD lastError;
    } cases[] = {
        {throwsAtl, FALSE, 0x80091234u},
        {throwsStd, FALSE, 0x80004005u},
        {throwsInt, FALSE, 0x80004005u},
        {throwsBareWin32, FALSE, 87u},
        {returns, TRUE, 0x0BADF00Du},
    };
    for (const auto& c : cases) {
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, nullptr};
        SetLastError(0x0BADF00Du);
        EXPECT_EQ(CertDllVerifyCertificateChainPolicyProxy(nullptr, nullptr, nullptr, &s, c.impl), c.result);
        EXPECT_EQ(GetLastError(), c.lastError);
    }
    // What was written before the exception stays.
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, nullptr};
    CertDllVerifyCertificateChainPolicyProxy(nullptr, nullptr, nullptr, &s, throwsAtl);
    EXPECT_EQ(s.dwError, 0xABu);
}

TEST(PolicyFrame, ThrowLastWin32TakesTheHresultForm) {
    const struct {
        DWORD lastError;
        HRESULT hr;
    } cases[] = {{0, 0},
                 {5, static_cast<HRESULT>(0x80070005u)},
                 {87, static_cast<HRESULT>(0x80070057u)},
                 {0x12345, static_cast<HRESULT>(0x80072345u)},
                 {0x80092004u, static_cast<HRESULT>(0x80092004u)},
                 {0xFFFFFFFFu, -1}};
    for (const auto& c : cases) {
        SetLastError(c.lastError);
        EXPECT_EQ(thrownHr([] { ATL::AtlThrowLastWin32(); }), c.hr) << c.lastError;
    }
    EXPECT_EQ(thrownHr([] { ATL::AtlThrowImpl(87); }), 87);
}

TEST(PolicyFrame, OwnFailureWithAndWithoutExtraStatus) {
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
    UsageStatus extra{sizeof extra, 0x1, -1, -1};
    EXPECT_FALSE(ReportError(&s, &extra, CERT_E_WRONG_USAGE, 0x20));
    EXPECT_EQ(extra.dwError, 0x21u);
    EXPECT_EQ(extra.lChainIndex, -1);
    EXPECT_EQ(s.dwError, 0u);
    EXPECT_EQ(s.lChainIndex, -1);

    EXPECT_TRUE(ReportError<UsageStatus>(&s, nullptr, CERT_E_WRONG_USAGE, 0x20));
    EXPECT_EQ(s.dwError, 0x800B0110u);
    EXPECT_EQ(s.lChainIndex, 0);
    EXPECT_EQ(s.lElementIndex, 0);
}

TEST(PolicyFrame, MergingAnInnerStatus) {
    CERT_CHAIN_POLICY_STATUS inner{sizeof inner, 0x800B0110u, 2, 3, nullptr};
    UsageStatus innerExtra{sizeof innerExtra, 0x02, 4, 5};

    // No extra status given by the caller: an inner error stops the policy.
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
    EXPECT_TRUE((ReportError<UsageStatus, UsageStatus>(&s, nullptr, &inner, nullptr)));
    EXPECT_EQ(s.dwError, 0x800B0110u);
    EXPECT_EQ(s.lChainIndex, 2);
    EXPECT_EQ(s.lElementIndex, 3);

    // With an extra status: bits accumulate, indices are overwritten, checks go on, and the
    // inner dwError is copied all the same.
    UsageStatus extra{sizeof extra, 0x20, -1, -1};
    CERT_CHAIN_POLICY_STATUS s2{sizeof s2, 0, -1, -1, &extra};
    EXPECT_FALSE(ReportError(&s2, &extra, &inner, &innerExtra));
    EXPECT_EQ(extra.dwError, 0x22u);
    EXPECT_EQ(extra.lChainIndex, 4);
    EXPECT_EQ(extra.lElementIndex, 5);
    EXPECT_EQ(s2.dwError, 0x800B0110u);

    // A clean inner status changes nothing.
    CERT_CHAIN_POLICY_STATUS clean{sizeof clean, 0, -1, -1, nullptr};
    UsageStatus cleanExtra{sizeof cleanExtra, 0, -1, -1};
    UsageStatus extra3{sizeof extra3, 0x20, 7, 7};
    CERT_CHAIN_POLICY_STATUS s3{sizeof s3, 0, -1, -1, &extra3};
    EXPECT_FALSE(ReportError(&s3, &extra3, &clean, &cleanExtra));
    EXPECT_EQ(extra3.dwError, 0x20u);
    EXPECT_EQ(extra3.lChainIndex, 7);
    CERT_CHAIN_POLICY_STATUS s4{sizeof s4, 0, -1, -1, nullptr};
    EXPECT_FALSE((ReportError<UsageStatus, UsageStatus>(&s4, nullptr, &clean, nullptr)));
    EXPECT_EQ(s4.lChainIndex, -1);
}

TEST(PolicyFrame, FatalMergeHandsTheLastErrorOnInHresultForm) {
    CERT_CHAIN_POLICY_STATUS inner{sizeof inner, 0x800B0110u, 0, 0, nullptr};
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
    SetLastError(87);
    try {
        ReportFatalWin32Error<UsageStatus, UsageStatus>(&s, nullptr, &inner, nullptr);
        ADD_FAILURE();
    } catch (const ATL::CAtlException& e) {
        EXPECT_EQ(static_cast<DWORD>(e.m_hr), 0x80070057u);
    }
    EXPECT_EQ(s.dwError, 0x800B0110u);
    SetLastError(0x80090008u);
    try {
        ReportFatalWin32Error<UsageStatus, UsageStatus>(&s, nullptr, &inner, nullptr);
        ADD_FAILURE();
    } catch (const ATL::CAtlException& e) {
        EXPECT_EQ(static_cast<DWORD>(e.m_hr), 0x80090008u);
    }
}

}  // namespace
