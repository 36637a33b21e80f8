// The frame every policy runs in: record checks at each size boundary, the proxy's
// handling of exceptions, merging of inner statuses, the trace lines of each, and the
// trace rule: a context whose level is off prints nothing, tracing keeps the last error.
#include "core/trace.h"
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

const bool k32 = sizeof(void*) == 4;
const std::string kGoesOn = "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n";
const std::string kStops = "ReportError|Error encountered and no extra status supplied. Other checks must not be "
                           "performed - returning true.\n";

// The m_hr of what f throws, 0 when it returns.
template <typename F>
HRESULT hrOf(F f) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    return 0;
}

std::string hexWord(const void* p) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}

TEST(PolicyFrame, RecordSizesOfThisBuild) {
    EXPECT_EQ(std::make_tuple(sizeof(CERT_CHAIN_POLICY_STATUS), sizeof(CERT_CHAIN_POLICY_PARA), sizeof(UsagePara),
                              sizeof(UsageStatus), sizeof(OcspPara), sizeof(OcspStatus), sizeof(QVOCSP_CERT_ID)),
              k32 ? std::make_tuple(20u, 12u, 8u, 16u, 20u, 24u, 36u)
                  : std::make_tuple(24u, 16u, 16u, 16u, 40u, 32u, 72u));
}

// The status is initialised before the extra status is looked at; a refused extra status
// is left as it was, and so are the other fields of an accepted one.
template <class T>
void extraStatusBoundaries() {
    const DWORD good = sizeof(T);
    for (DWORD size : {good - 1, good + 1, DWORD(0), good}) {
        T extra{};
        std::tie(extra.cbSize, extra.dwError, extra.lChainIndex, extra.lElementIndex) =
            std::make_tuple(size, 0x55u, 3, 4);
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 7, 8, 9, &extra};
        TraceCapture trace;
        T* got = nullptr;
        const bool ok = size == good;
        EXPECT_EQ(hrOf([&] { got = CheckInitAndGetExtraStatus<T>(&s); }), ok ? 0 : 87);
        EXPECT_EQ(std::make_tuple(got, s.dwError, s.lChainIndex, extra.dwError, extra.lChainIndex, extra.lElementIndex),
                  std::make_tuple(ok ? &extra : nullptr, 0u, -1, ok ? 0u : 0x55u, ok ? -1 : 3, ok ? -1 : 4))
            << size;
        EXPECT_EQ(trace.text(), "CheckInitAndGetExtraStatus|pExtraStatus = " + hexWord(&extra) + "\n" +
                                    (ok ? "" : "CheckInitAndGetExtraStatus|Unknown pExtraStatus structure "
                                               "(sizeof(*pExtraStatus) != pExtraStatus->cbSize)\n"));
    }
    CERT_CHAIN_POLICY_STATUS none{sizeof none, 7, 8, 9, nullptr};
    EXPECT_EQ(CheckInitAndGetExtraStatus<T>(&none), nullptr);
}

TEST(PolicyFrame, ExtraStatusSizeBoundaries) {
    extraStatusBoundaries<UsageStatus>();
    extraStatusBoundaries<OcspStatus>();
    DWORD checked[2] = {9, 9};  // the OCSP record's output fields are the policy's business
    OcspStatus extra{sizeof extra, 1, 2, 3, 7, checked};
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, &extra};
    CheckInitAndGetExtraStatus<OcspStatus>(&s);
    EXPECT_EQ(std::make_tuple(extra.fOcspNoCheck, extra.rgdwCertIdChecked), std::make_tuple(7u, checked));
}

// The parameter record must have its exact size; the extra parameter's test is one-sided:
// shorter (even 0) passes, longer is refused.
template <class T>
void paraBoundaries() {
    const DWORD para = sizeof(CERT_CHAIN_POLICY_PARA), limit = sizeof(T);
    const std::string badPara = "Unknown pPolicyPara structure (sizeof(*pPolicyPara) != pPolicyPara->cbSize)\n";
    const std::string badExtra = "Unknown pExtraPara structure (sizeof(*pExtraPara) != pExtraPara->cbSize)\n";
    const struct {
        DWORD paraSize, extraSize;
        bool linked, accepted;
    } rows[] = {{para - 1, 0, false, false},  {para + 1, 0, false, false},    {0, 0, false, false},
                {para, 0, false, true},       {para, 0, true, true},          {para, 1, true, true},
                {para, limit - 1, true, true}, {para, limit, true, true},     {para, limit + 1, true, false},
                {para, 0xFFFFFFFFu, true, false}};
    for (const auto& row : rows) {
        T extra{};
        extra.cbSize = row.extraSize;
        CERT_CHAIN_POLICY_PARA p{row.paraSize, 0, row.linked ? &extra : nullptr};
        TraceCapture trace;
        T* got = nullptr;
        EXPECT_EQ(hrOf([&] { got = CheckAndGetExtraPara<T>(&p); }), row.accepted ? 0 : 87);
        EXPECT_EQ(got, row.accepted && row.linked ? &extra : nullptr);
        EXPECT_EQ(trace.text(), "CheckAndGetExtraPara|" + (row.accepted ? "pExtraPara = " + hexWord(got) + "\n"
                                                            : row.paraSize != para ? badPara : badExtra))
            << row.paraSize << "/" << row.extraSize;
    }
    TraceCapture trace;
    EXPECT_EQ(CheckAndGetExtraPara<T>(nullptr), nullptr);
    EXPECT_EQ(trace.text(), "CheckAndGetExtraPara|pPolicyPara is NULL\n");
}

TEST(PolicyFrame, ParaSizeBoundaries) {
    paraBoundaries<UsagePara>();
    paraBoundaries<OcspPara>();
}

void throwsAtl(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS s) {
    s->dwError = 0xAB;  // stays: the proxy does not undo what was written
    ATL::AtlThrowImpl(static_cast<int>(0x80091234u));
}
void throwsStd(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {
    throw std::runtime_error("boom");
}
void throwsInt(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) { throw 42; }
void throws87(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {
    ATL::AtlThrowImpl(87);
}
void returns(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {}

TEST(PolicyFrame, ProxyTurnsEveryExceptionIntoFalse) {
    const std::string unknown = "Unknown exception caught - setting last error and returning FALSE\n";
    const struct {
        PolicyImpl impl;
        BOOL result;
        DWORD lastError, dwError;
        std::string trace;
    } cases[] = {
        {throwsAtl, FALSE, 0x80091234u, 0xAB,
         "CAtlException caught (m_hr=0x80091234) - setting last error and returning FALSE\n"},
        {throwsStd, FALSE, 0x80004005u, 0, unknown},
        {throwsInt, FALSE, 0x80004005u, 0, unknown},
        {throws87, FALSE, 87u, 0, "CAtlException caught (m_hr=0x00000057) - setting last error and returning FALSE\n"},
        {returns, TRUE, 0x0BADF00Du, 0, "Finish. Returning TRUE.\n"},
    };
    for (const auto& c : cases) {
        for (bool traced : {false, true}) {
            CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, nullptr};
            SetLastError(0x0BADF00Du);
            std::unique_ptr<TraceCapture> trace(traced ? new TraceCapture : nullptr);
            const BOOL result = CertDllVerifyCertificateChainPolicyProxy(nullptr, nullptr, nullptr, &s, c.impl);
            EXPECT_EQ(std::make_tuple(result, GetLastError(), s.dwError),
                      std::make_tuple(c.result, c.lastError, c.dwError));
            if (trace) {
                EXPECT_EQ(trace->text(), "CertDllVerifyCertificateChainPolicyProxy|" + c.trace);
            }
        }
    }
}

TEST(PolicyFrame, ThrowLastWin32TakesTheHresultForm) {
    const std::pair<DWORD, DWORD> cases[] = {{0, 0}, {5, 0x80070005u}, {87, 0x80070057u}, {0x12345, 0x80072345u},
                                             {0x80092004u, 0x80092004u}, {0xFFFFFFFFu, 0xFFFFFFFFu}};
    for (const auto& c : cases) {
        SetLastError(c.first);
        EXPECT_EQ(static_cast<DWORD>(thrownHr([] { ATL::AtlThrowLastWin32(); })), c.second) << c.first;
    }
    EXPECT_EQ(thrownHr([] { ATL::AtlThrowImpl(87); }), 87);
}

// A failure of the policy's own: into the extra status as a bit, else into the status.
TEST(PolicyFrame, OwnFailureWithAndWithoutExtraStatus) {
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
    UsageStatus extra{sizeof extra, 0x1, -1, -1};
    TraceCapture trace;
    EXPECT_FALSE(ReportError(&s, &extra, CERT_E_WRONG_USAGE, 0x20));
    EXPECT_EQ(std::make_tuple(extra.dwError, extra.lChainIndex, s.dwError, s.lChainIndex),
              std::make_tuple(0x21u, -1, 0u, -1));
    EXPECT_TRUE(ReportError<UsageStatus>(&s, nullptr, CERT_E_WRONG_USAGE, 0x20));
    EXPECT_EQ(std::make_tuple(s.dwError, s.lChainIndex, s.lElementIndex), std::make_tuple(0x800B0110u, 0, 0));
    EXPECT_EQ(trace.lines(), (std::vector<std::string>{
        "ReportError|Extra status was supplied. Setting pExtraStatus->dwError |= 0x00000020\n", kGoesOn,
        "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x800b0110, "
        "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n", kStops}));
}

TEST(PolicyFrame, MergingAnInnerStatus) {
    const CERT_CHAIN_POLICY_STATUS inner{sizeof inner, 0x800B0110u, 2, 3, nullptr};
    const CERT_CHAIN_POLICY_STATUS clean{sizeof clean, 0, -1, -1, nullptr};
    const UsageStatus innerExtra{sizeof innerExtra, 0x02, 4, 5}, cleanExtra{sizeof cleanExtra, 0, -1, -1};
    const std::string innerError =
        "ReportError|pOtherPolicyStatus->dwError = 0x800b0110\n"
        "ReportError|pOtherPolicyStatus->lChainIndex = 2, pOtherPolicyStatus->lElementIndex = 3\n";
    const struct {
        bool extraGiven;  // by the caller
        const CERT_CHAIN_POLICY_STATUS* other;
        const UsageStatus* otherExtra;
        bool stop;
        DWORD dwError, extraError;
        LONG index, extraIndex;  // lChainIndex of each
        std::string trace;
    } rows[] = {
        // No extra status: an inner error stops the policy.
        {false, &inner, nullptr, true, 0x800B0110u, 0x20, 2, 7, innerError + kStops},
        // With one: bits accumulate, indices are overwritten, checks go on, the inner dwError copied all the same.
        {true, &inner, &innerExtra, false, 0x800B0110u, 0x22, 2, 4,
         innerError + "ReportError|pOtherExtraStatus->dwError = 0x00000002\n" +
             "ReportError|pOtherExtraStatus->lChainIndex = 4, pOtherExtraStatus->lElementIndex = 5\n" + kGoesOn},
        // A clean inner status changes nothing.
        {true, &clean, &cleanExtra, false, 0, 0x20, -1, 7, kGoesOn},
        {false, &clean, nullptr, false, 0, 0x20, -1, 7,
         "ReportError|No error encountered. Other checks can be performed - returning false.\n"},
    };
    for (const auto& row : rows) {
        UsageStatus extra{sizeof extra, 0x20, 7, 7};
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, row.extraGiven ? &extra : nullptr};
        TraceCapture trace;
        const bool stop = ReportError(&s, row.extraGiven ? &extra : nullptr, row.other, row.otherExtra);
        EXPECT_EQ(std::make_tuple(stop, s.dwError, s.lChainIndex, extra.dwError, extra.lChainIndex, trace.text()),
                  std::make_tuple(row.stop, row.dwError, row.index, row.extraError, row.extraIndex, row.trace));
    }
    // The fatal form merges before it throws; 87 comes out as 0x80070057, a negative last
    // error as it stands.
    for (DWORD lastError : {87u, 0x80090008u}) {
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
        SetLastError(lastError);
        const HRESULT hr = hrOf([&] { ReportFatalWin32Error<UsageStatus, UsageStatus>(&s, nullptr, &inner, nullptr); });
        EXPECT_EQ(static_cast<DWORD>(hr),
                  lastError == 87 ? 0x80070057u : lastError);
        EXPECT_EQ(s.dwError, 0x800B0110u);
    }
}

TEST(Trace, ContextPresentButLevelOffPrintsNothing) {
    TSupportDbContext_* saved = chainvet_db_ctx;
    TSupportDbContext_* quiet = support_print_init_memory("quiet", 0x7 /* everything but 8 */);
    chainvet_db_ctx = quiet;
    FakeCert leaf;
    FakeChain chain({leaf.context(), leaf.context()});
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    EXPECT_EQ(CertDllVerifyBasicConstraintsCertificateChainPolicy(nullptr, chain.get(), &para, &status), TRUE);
    EXPECT_EQ(status.dwError, 0x80096019u);
    EXPECT_STREQ(support_print_memory_text(quiet), "");
    chainvet_db_ctx = saved;
    support_print_done(quiet);
}

TEST(Trace, TracingNeverChangesTheLastError) {
    TraceCapture capture;
    SetLastError(0x1234);
    support_dprint_print_(chainvet_db_ctx, "%s\n", "", 1, "f", "x");
    EXPECT_EQ(GetLastError(), 0x1234u);
    EXPECT_EQ(capture.text(), "f|x\n");
    capture.clear();
    EXPECT_EQ(capture.text(), "");
}

TEST(Trace, InitializerClosesThePreviousContextAndClearsOnDestruction) {
    TSupportDbContext_* ctx = nullptr;
    {
        DbTraceInitializer first("first", ctx);
        ASSERT_NE(ctx, nullptr);
        EXPECT_TRUE(support_print_is(ctx, 8));
        // Both objects hold the same variable; the first's destructor finds it cleared.
        DbTraceInitializer second("second", ctx);
        EXPECT_NE(ctx, nullptr);
    }
    EXPECT_EQ(ctx, nullptr);
}

}  // namespace
