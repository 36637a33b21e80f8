// The frame every policy runs in: record checks at each size boundary, the proxy's handling
// of exceptions, merging of inner statuses, the trace lines of each, and the trace rule (a
// context whose level is off prints nothing, tracing keeps the last error). Then the
// basic-constraints policy, the frame's simplest user, with the exact trace of each row.
#include "core/trace.h"
#include "policies/chain_policies.h"
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

const DWORD kSentinel = 0x0BADF00Du, kTrustE = 0x80096019u;
const std::string kGoesOn = "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n",
                  kStops = "ReportError|Error encountered and no extra status supplied. Other checks must not be "
                           "performed - returning true.\n",
                  kProxy = "CertDllVerifyCertificateChainPolicyProxy|";

std::string hexWord(const void* p) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}
std::string caught(const char* hr) {
    return kProxy + "CAtlException caught (m_hr=0x" + hr + ") - setting last error and returning FALSE\n";
}

TEST(PolicyFrame, RecordSizesOfThisBuild) {
    EXPECT_EQ(std::make_tuple(sizeof(CERT_CHAIN_POLICY_STATUS), sizeof(CERT_CHAIN_POLICY_PARA), sizeof(OcspPara)),
              sizeof(void*) == 4 ? std::make_tuple(20u, 12u, 20u) : std::make_tuple(24u, 16u, 40u));
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
        EXPECT_EQ(ok ? (got = CheckInitAndGetExtraStatus<T>(&s), 0) : thrownHr([&] { CheckInitAndGetExtraStatus<T>(&s); }),
                  ok ? 0 : 87);
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
        EXPECT_EQ(row.accepted ? (got = CheckAndGetExtraPara<T>(&p), 0) : thrownHr([&] { CheckAndGetExtraPara<T>(&p); }),
                  row.accepted ? 0 : 87);
        EXPECT_EQ(got, row.accepted && row.linked ? &extra : nullptr);
        EXPECT_EQ(trace.text(), "CheckAndGetExtraPara|" + (row.accepted ? "pExtraPara = " + hexWord(got) + "\n"
                                                            : row.paraSize != para ? badPara : badExtra))
            << row.paraSize << "/" << row.extraSize;
    }
    TraceCapture trace;
    EXPECT_EQ(CheckAndGetExtraPara<T>(nullptr), nullptr);
    EXPECT_EQ(trace.text(), "CheckAndGetExtraPara|pPolicyPara is NULL\n");
}

TEST(PolicyFrame, RecordSizeBoundaries) {
    extraStatusBoundaries<UsageStatus>();
    extraStatusBoundaries<OcspStatus>();
    paraBoundaries<UsagePara>();
    paraBoundaries<OcspPara>();
    DWORD checked[2] = {9, 9};  // the OCSP record's output fields are the policy's business
    OcspStatus extra{sizeof extra, 1, 2, 3, 7, checked};
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, &extra};
    CheckInitAndGetExtraStatus<OcspStatus>(&s);
    EXPECT_EQ(std::make_tuple(extra.fOcspNoCheck, extra.rgdwCertIdChecked), std::make_tuple(7u, checked));
}

HRESULT g_throw;  // what impl does: 0 return, 1 throw std::runtime_error, 2 throw an int, else throw it
void impl(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS s) {
    s->dwError = 0xAB;  // stays: the proxy does not undo what was written
    if (g_throw == 1)
        throw std::runtime_error("boom");
    if (g_throw == 2)
        throw 42;
    if (g_throw)
        ATL::AtlThrowImpl(g_throw);
}

TEST(PolicyFrame, ProxyTurnsEveryExceptionIntoFalse) {
    const std::string unknown = kProxy + "Unknown exception caught - setting last error and returning FALSE\n";
    const struct {
        HRESULT thrown;
        BOOL result;
        DWORD lastError;
        std::string trace;
    } rows[] = {{HRESULT(0x80091234u), FALSE, 0x80091234u, caught("80091234")},
                {1, FALSE, 0x80004005u, unknown},
                {2, FALSE, 0x80004005u, unknown},
                {87, FALSE, 87u, caught("00000057")},
                {0, TRUE, kSentinel, kProxy + "Finish. Returning TRUE.\n"}};
    for (const auto& row : rows) {
        for (bool traced : {false, true}) {
            CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, nullptr};
            SetLastError(kSentinel);
            g_throw = row.thrown;
            std::unique_ptr<TraceCapture> trace(traced ? new TraceCapture : nullptr);
            const BOOL ok = CertDllVerifyCertificateChainPolicyProxy(nullptr, nullptr, nullptr, &s, impl);
            EXPECT_EQ(std::make_tuple(ok, GetLastError(), s.dwError, trace ? trace->text() : row.trace),
                      std::make_tuple(row.result, row.lastError, 0xABu, row.trace));
        }
    }
}

// A failure of the policy's own: into the extra status as a bit, else into the status. An
// inner status merged: with an extra status bits accumulate, indices are overwritten and
// checks go on (the inner dwError copied all the same); without one an inner error stops.
TEST(PolicyFrame, OwnFailuresAndMergedInnerStatuses) {
    {
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
        UsageStatus extra{sizeof extra, 0x1, -1, -1};
        TraceCapture trace;
        EXPECT_FALSE(ReportError(&s, &extra, CERT_E_WRONG_USAGE, 0x20));
        EXPECT_EQ(std::make_tuple(extra.dwError, extra.lChainIndex, s.dwError, s.lChainIndex),
                  std::make_tuple(0x21u, -1, 0u, -1));
        EXPECT_TRUE(ReportError<UsageStatus>(&s, nullptr, CERT_E_WRONG_USAGE, 0x20));
        EXPECT_EQ(std::make_tuple(s.dwError, s.lChainIndex, s.lElementIndex), std::make_tuple(0x800B0110u, 0, 0));
        EXPECT_EQ(trace.text(), "ReportError|Extra status was supplied. Setting pExtraStatus->dwError |= 0x00000020\n" +
                                    kGoesOn +
                                    "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = "
                                    "0x800b0110, pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n" +
                                    kStops);
    }
    const CERT_CHAIN_POLICY_STATUS inner{sizeof inner, 0x800B0110u, 2, 3, nullptr},
        clean{sizeof clean, 0, -1, -1, nullptr};
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
        {false, &inner, nullptr, true, 0x800B0110u, 0x20, 2, 7, innerError + kStops},
        {true, &inner, &innerExtra, false, 0x800B0110u, 0x22, 2, 4,
         innerError + "ReportError|pOtherExtraStatus->dwError = 0x00000002\n" +
             "ReportError|pOtherExtraStatus->lChainIndex = 4, pOtherExtraStatus->lElementIndex = 5\n" + kGoesOn},
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
    // The fatal form merges, then throws the last error in HRESULT form; a negative one as it stands.
    const std::pair<DWORD, DWORD> lastErrors[] = {{0, 0}, {5, 0x80070005u}, {87, 0x80070057u},
                                                  {0x12345, 0x80072345u}, {0x80090008u, 0x80090008u},
                                                  {0xFFFFFFFFu, 0xFFFFFFFFu}};
    for (const auto& e : lastErrors) {
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
        SetLastError(e.first);
        const HRESULT hr =
            thrownHr([&] { ReportFatalWin32Error<UsageStatus, UsageStatus>(&s, nullptr, &inner, nullptr); });
        EXPECT_EQ(std::make_tuple(DWORD(hr), s.dwError), std::make_tuple(e.second, 0x800B0110u)) << e.first;
    }
}

// A context whose level is off prints nothing; tracing keeps the last error; an initializer
// closes the context it finds and clears its variable on destruction.
TEST(Trace, Rules) {
    TSupportDbContext_* saved = chainvet_db_ctx;
    TSupportDbContext_* quiet = support_print_init_memory("quiet", 0x7 /* everything but 8 */);
    chainvet_db_ctx = quiet;
    FakeCert leaf;
    FakeChain chain({leaf.context(), leaf.context()});
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    EXPECT_EQ(CertDllVerifyBasicConstraintsCertificateChainPolicy(nullptr, chain.get(), &para, &status), TRUE);
    EXPECT_EQ(status.dwError, kTrustE);
    EXPECT_STREQ(support_print_memory_text(quiet), "");
    SetLastError(0x1234);
    support_dprint_print_(quiet, "%s\n", "", 1, "f", "x");
    EXPECT_EQ(std::make_tuple(GetLastError(), std::string(support_print_memory_text(quiet))),
              std::make_tuple(0x1234u, std::string("f|x\n")));
    support_print_memory_clear(quiet);
    EXPECT_STREQ(support_print_memory_text(quiet), "");
    chainvet_db_ctx = saved;
    support_print_done(quiet);
    TSupportDbContext_* ctx = nullptr;
    {
        DbTraceInitializer first("first", ctx);
        ASSERT_NE(ctx, nullptr);
        EXPECT_TRUE(support_print_is(ctx, 8));
        DbTraceInitializer second("second", ctx);  // the first's destructor finds the variable cleared
        EXPECT_NE(ctx, nullptr);
    }
    EXPECT_EQ(ctx, nullptr);
}

const char *kBC2 = "2.5.29.19", *kBC1 = "2.5.29.10", *kCA = "30030101FF", *kNotCA = "3000";
typedef std::vector<std::pair<const char*, const char*>> Extensions;
typedef std::tuple<BOOL, DWORD, LONG, LONG, DWORD> Outcome;  // result, dwError, indices, last error

// The end certificate with these extensions, then elements - 1 more certificates. The
// parameter record's size and extra pointer are not looked at; an extra status is neither
// checked nor initialised.
Outcome basicConstraints(const Extensions& extensions, DWORD flags, DWORD elements = 1, DWORD trust = 0,
                         bool withPara = true, DWORD paraSize = sizeof(CERT_CHAIN_POLICY_PARA),
                         DWORD statusSize = sizeof(CERT_CHAIN_POLICY_STATUS)) {
    FakeCert end, other;
    for (const auto& e : extensions)
        end.addExtension(e.first, hex(e.second));
    std::vector<PCCERT_CONTEXT> certs(elements, other.context());
    certs[0] = end.context();
    FakeChain chain(certs, trust);
    int garbage = 12345;
    CERT_CHAIN_POLICY_PARA para{paraSize, flags, &garbage};
    UsageStatus extra{3, 0x77, 5, 6};
    CERT_CHAIN_POLICY_STATUS status{statusSize, 0x11, 0x22, 0x33, &extra};
    SetLastError(kSentinel);
    const BOOL r = CertDllVerifyBasicConstraintsCertificateChainPolicy(
        CERT_CHAIN_POLICY_BASIC_CONSTRAINTS, chain.get(), withPara ? &para : nullptr, &status);
    EXPECT_EQ(std::make_tuple(extra.cbSize, extra.dwError, extra.lChainIndex), std::make_tuple(3u, 0x77u, 5));
    return Outcome{r, status.dwError, status.lChainIndex, status.lElementIndex, GetLastError()};
}

// One row per line of the outcome table and per edge case, each with a parameter record
// of the right size and of size 0, and with trace off and on: the records are the same.
TEST(BasicConstraints, OutcomeTable) {
    qvfake_reset();
    const std::string start = "CertDllVerifyBasicConstraintsCertificateChainPolicy|Start\n",
                      finish = kProxy + "Finish. Returning TRUE.\n",
                      setError = "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x80096019, "
                                 "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n",
                      passes = start + finish, fails = start + setError + kStops + finish,
                      selfSigned = start + "BasicConstraintsImpl|Self-signed certificate without BASIC CONSTRAINTS "
                                           "can be CA\n" + finish,
                      undecodable = start + setError + kStops + caught("8009310b"),
                      notImplemented = start + "BasicConstraintsImpl|Check for BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_"
                                               "END_ENTITY_FLAG only is not implemented .\n" +
                                       setError + kStops + caught("80004001");
    const Outcome pass{TRUE, 0, -1, -1, kSentinel}, fail{TRUE, kTrustE, 0, 0, kSentinel},
        failNotImpl{FALSE, kTrustE, 0, 0, 0x80004001u}, failDecode{FALSE, kTrustE, 0, 0, 0x8009310Bu};
    const DWORD ca = 0x80000000u, partial = CERT_TRUST_IS_PARTIAL_CHAIN;
    const struct {
        const char* name;
        Extensions extensions;
        DWORD flags, elements, trust;
        bool withPara;
        Outcome expected;
        const std::string& trace;
    } rows[] = {
        {"cA true", {{kBC2, kCA}}, ca, 1, 0, true, pass, passes},
        {"cA true, longer chain", {{kBC2, kCA}}, ca, 3, 0, true, pass, passes},
        {"no extension, self-signed root", {}, ca, 1, 0, true, pass, selfSigned},
        {"no extension, two elements", {}, ca, 2, 0, true, fail, fails},
        {"no extension, partial chain", {}, ca, 1, partial, true, fail, fails},
        {"cA false", {{kBC2, kNotCA}}, ca, 2, 0, true, fail, fails},
        {"cA false, self-signed root", {{kBC2, kNotCA}}, ca, 1, 0, true, fail, fails},
        {"only the old extension, cA true", {{kBC1, kCA}}, ca, 2, 0, true, pass, passes},
        {"the current extension wins", {{kBC1, kCA}, {kBC2, kNotCA}}, ca, 1, 0, true, fail, fails},
        {"the current extension wins, other order", {{kBC2, kNotCA}, {kBC1, kCA}}, ca, 1, 0, true, fail, fails},
        {"undecodable value", {{kBC2, "0403010203"}}, ca, 1, 0, true, failDecode, undecodable},
        {"value cut short", {{kBC2, "31"}}, ca, 1, 0, true, failDecode, undecodable},
        {"end-entity flag alone", {{kBC2, kCA}}, 0x40000000u, 1, 0, true, failNotImpl, notImplemented},
        {"neither flag", {{kBC2, kNotCA}}, 0, 2, 0, true, pass, passes},
        {"both flags", {{kBC2, kNotCA}}, 0xC0000000u, 2, 0, true, pass, passes},
        {"no pPolicyPara", {{kBC2, kNotCA}}, ca, 2, 0, false, pass, passes},
        {"other bits beside the ca flag", {{kBC2, kNotCA}}, 0x80000001u, 2, 0, true, fail, fails},
        {"other bits beside the ca flag, cA true", {{kBC2, kCA}}, 0x8000FFFFu, 2, 0, true, pass, passes},
        {"other bits beside the end-entity flag", {{kBC2, kCA}}, 0x40000010u, 2, 0, true, failNotImpl, notImplemented},
        {"other bits only", {{kBC2, kNotCA}}, 0x3FFFFFFFu, 2, 0, true, pass, passes},
    };
    for (const auto& row : rows) {
        for (DWORD paraSize : {DWORD(sizeof(CERT_CHAIN_POLICY_PARA)), DWORD(0)}) {
            SCOPED_TRACE(testing::Message() << row.name << ", para size " << paraSize);
            ASSERT_EQ(chainvet_db_ctx, nullptr);
            EXPECT_EQ(basicConstraints(row.extensions, row.flags, row.elements, row.trust, row.withPara, paraSize),
                      row.expected);
            TraceCapture capture;
            EXPECT_EQ(basicConstraints(row.extensions, row.flags, row.elements, row.trust, row.withPara, paraSize),
                      row.expected);
            EXPECT_EQ(capture.text(), row.trace);
        }
    }
    // A status of the wrong size is refused and left as it was.
    const DWORD good = sizeof(CERT_CHAIN_POLICY_STATUS);
    for (DWORD size : {DWORD(0), good - 1, good + 1, DWORD(0xFFFFFFFFu)}) {
        TraceCapture capture;
        EXPECT_EQ(basicConstraints({}, ca, 2, 0, true, sizeof(CERT_CHAIN_POLICY_PARA), size),
                  (Outcome{FALSE, 0x11, 0x22, 0x33, 87}));
        EXPECT_EQ(capture.text(), start + "CheckAndInitPolicyStatus|Unknown pPolicyStatus structure "
                                          "(sizeof(*pPolicyStatus) != pPolicyStatus->cbSize)\n" + caught("00000057"));
    }
}

struct DecodeCall {
    DWORD failWith;  // 0xFFFFFFFF: succeed with cA TRUE
    int calls = 0;
    DWORD encoding = 0, flags = 99, sizeIn = 0;
    std::string type{};
    std::vector<uint8_t> bytes{};
    bool zeroed = false;
};

BOOL recordingDecoder(void* user, DWORD enc, LPCSTR type, const BYTE* pb, DWORD cb, DWORD flags, void* out,
                      DWORD* pcb) {
    auto* rec = static_cast<DecodeCall*>(user);
    auto* info = static_cast<CERT_BASIC_CONSTRAINTS2_INFO*>(out);
    *rec = DecodeCall{rec->failWith, rec->calls + 1, enc, flags, *pcb, type, std::vector<uint8_t>(pb, pb + cb),
                      info->fCA == 0 && info->fPathLenConstraint == 0 && info->dwPathLenConstraint == 0};
    info->fCA = TRUE;
    if (rec->failWith == 0xFFFFFFFFu)
        return TRUE;
    SetLastError(rec->failWith);
    return FALSE;
}

// Either extension is decoded by the current rule into a zeroed 12-byte record; a
// decoder error comes back in HRESULT form after the failure was recorded.
TEST(BasicConstraints, DecoderCall) {
    const struct {
        const char* oid;
        DWORD failWith, lastError;
    } rows[] = {{kBC1, 0xFFFFFFFFu, kSentinel}, {kBC2, 13, 0x8007000Du}, {kBC2, 87, 0x80070057u},
                {kBC2, 0x8009310Bu, 0x8009310Bu}, {kBC2, 0, 0}};
    for (const auto& row : rows) {
        qvfake_reset();
        DecodeCall rec{row.failWith};
        qvfake_set_decode_hook(recordingDecoder, &rec);
        const bool ok = row.failWith == 0xFFFFFFFFu;
        EXPECT_EQ(basicConstraints({{row.oid, "30050303060780"}}, 0x80000000u),
                  (Outcome{ok, ok ? 0 : kTrustE, ok ? -1 : 0, ok ? -1 : 0, row.lastError}))
            << row.oid << " " << row.failWith;
        EXPECT_EQ(std::make_tuple(rec.calls, rec.encoding, rec.type, rec.flags, rec.sizeIn, rec.zeroed, rec.bytes),
                  std::make_tuple(1, 0x10001u, std::string("2.5.29.19"), 0u, 12u, true, hex("30050303060780")));
    }
    qvfake_reset();
}

}  // namespace
