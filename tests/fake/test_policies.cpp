// The chain policies over the fake platform on hand-made certificate contexts: the frame
// they run in, then the outcome tables of each policy with exact statuses and traces.
#include "core/strings.h"
#include "core/trace.h"
#include "policies/chain_policies.h"
#include "policies/crypt.h"
#include "policies/frame.h"
#include "policies/ocsp_certid.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <stdexcept>

using namespace chainvet::policy;
using namespace testsupport;
using Quorvane::CBlob;
using Quorvane::ASN1::CAlgorithmIdentifierEx;
using Quorvane::PKI::OCSP::CCertIDChecker;

namespace {

typedef std::vector<uint8_t> Bytes;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA UsagePara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS UsageStatus;
typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA OcspPara;
typedef QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS OcspStatus;
const DWORD kSentinel = 0x0BADF00Du, kWrongUsage = 0x800B0110u, kExpired = 0x800B0101u, kTrustE = 0x80096019u,
            kMore = ERROR_MORE_DATA;
const std::string kGoesOn = "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n",
                  kStops = "ReportError|Error encountered and no extra status supplied. Other checks must not be "
                           "performed - returning true.\n",
                  kProxy = "CertDllVerifyCertificateChainPolicyProxy|";

// A certificate context built by hand: CN=Test issued by itself, serial 01 (little-endian
// as the context holds it), key bits 0102030405 unless changed; context() wires the fields.
struct FakeCert {
    Bytes subject = hex("300F310D300B06035504030C0454657374"), issuer = subject, serial{1}, key = hex("0102030405");
    std::deque<std::pair<std::string, Bytes>> values;
    std::vector<CERT_EXTENSION> exts;
    CERT_INFO info{};
    CERT_CONTEXT ctx{};

    FakeCert& add(const char* oid, const char* value) {
        values.emplace_back(oid, hex(value));
        context();  // a chain may hold the context already
        return *this;
    }
    PCCERT_CONTEXT context() {
        auto blob = [](Bytes& v) { return CRYPT_INTEGER_BLOB{static_cast<DWORD>(v.size()), v.data()}; };
        exts.clear();
        for (auto& v : values)
            exts.push_back(CERT_EXTENSION{&v.first[0], FALSE, blob(v.second)});
        info.dwVersion = 2;
        std::tie(info.SerialNumber, info.Issuer, info.Subject) = std::make_tuple(blob(serial), blob(issuer), blob(subject));
        info.SubjectPublicKeyInfo.PublicKey = {static_cast<DWORD>(key.size()), key.data(), 0};
        info.cExtension = static_cast<DWORD>(exts.size());
        info.rgExtension = exts.empty() ? nullptr : exts.data();
        ctx.dwCertEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
        ctx.pCertInfo = &info;
        return &ctx;
    }
};

// One simple chain over the given certificates (end first).
struct FakeChain {
    std::vector<CERT_CHAIN_ELEMENT> elements;
    std::vector<PCERT_CHAIN_ELEMENT> pointers;
    CERT_SIMPLE_CHAIN simple{};
    PCERT_SIMPLE_CHAIN simplePointer = &simple;
    CERT_CHAIN_CONTEXT chain{};

    explicit FakeChain(std::vector<PCCERT_CONTEXT> certs, DWORD trust = 0) : elements(certs.size()) {
        for (size_t i = 0; i < certs.size(); ++i) {
            std::tie(elements[i].cbSize, elements[i].pCertContext) = std::make_tuple(DWORD(sizeof elements[i]), certs[i]);
            pointers.push_back(&elements[i]);
        }
        std::tie(simple.cbSize, simple.cElement, simple.rgpElement, simple.TrustStatus.dwErrorStatus) =
            std::make_tuple(DWORD(sizeof simple), static_cast<DWORD>(certs.size()), pointers.data(), trust);
        std::tie(chain.cbSize, chain.cChain, chain.rgpChain, chain.TrustStatus.dwErrorStatus) =
            std::make_tuple(DWORD(sizeof chain), 1u, &simplePointer, trust);
    }
    PCCERT_CHAIN_CONTEXT get() const { return &chain; }
};

// Switches trace on into memory for the lifetime of the object.
struct TraceCapture {
    TSupportDbContext_ *saved = chainvet_db_ctx, *ctx = chainvet_db_ctx = support_print_init_memory("test", 127);
    ~TraceCapture() { chainvet_db_ctx = saved; support_print_done(ctx); }
    std::string text() const { return support_print_memory_text(ctx); }
};

std::string hexWord(const void* p) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}
std::string caught(const char* hr) {
    return kProxy + "CAtlException caught (m_hr=0x" + hr + ") - setting last error and returning FALSE\n";
}

TEST(PolicyFrame, RecordSizesOfThisBuild) {
    EXPECT_EQ(std::make_tuple(sizeof(CERT_CHAIN_POLICY_STATUS), sizeof(CERT_CHAIN_POLICY_PARA),
                              offsetof(OcspPara, pfnAnyCertAuthorized)),
              sizeof(void*) == 4 ? std::make_tuple(20u, 12u, 16u) : std::make_tuple(24u, 16u, 32u));
}

// The status is initialised before the extra status is looked at; a refused extra status
// is left as it was, and so are the other fields of an accepted one.
template <class T>
void extraStatusBoundaries() {
    const DWORD good = sizeof(T);
    for (DWORD size : {good - 1, good + 1, DWORD(0), good}) {
        T extra{};
        std::tie(extra.cbSize, extra.dwError, extra.lChainIndex, extra.lElementIndex) = std::make_tuple(size, 0x55u, 3, 4);
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
    const struct { DWORD paraSize, extraSize; bool linked, accepted; } rows[] = {
        {para - 1, 0, false, false}, {para + 1, 0, false, false}, {0, 0, false, false}, {para, 0, false, true},
        {para, 0, true, true}, {para, 1, true, true}, {para, limit - 1, true, true}, {para, limit, true, true},
        {para, limit + 1, true, false}, {para, 0xFFFFFFFFu, true, false}};
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
    paraBoundaries<OcspPara>();  // the OCSP output fields left alone: OcspPolicy.RecordsSizesAndFlags
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
    const struct { HRESULT thrown; BOOL result; DWORD lastError; std::string trace; } rows[] = {
        {HRESULT(0x80091234u), FALSE, 0x80091234u, caught("80091234")}, {1, FALSE, 0x80004005u, unknown},
        {2, FALSE, 0x80004005u, unknown}, {87, FALSE, 87u, caught("00000057")},
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

// A failure of the policy's own goes into the extra status as a bit, else into the status;
// an inner error merged stops the policy unless there is an extra status.
TEST(PolicyFrame, OwnFailuresAndMergedInnerStatuses) {
    const CERT_CHAIN_POLICY_STATUS inner{sizeof inner, 0x800B0110u, 2, 3, nullptr},
        clean{sizeof clean, 0, -1, -1, nullptr};
    const UsageStatus innerExtra{sizeof innerExtra, 0x02, 4, 5}, cleanExtra{sizeof cleanExtra, 0, -1, -1};
    const std::string innerError =
        "ReportError|pOtherPolicyStatus->dwError = 0x800b0110\n"
        "ReportError|pOtherPolicyStatus->lChainIndex = 2, pOtherPolicyStatus->lElementIndex = 3\n";
    // The caller's extra status given, the inner records (none: a failure 0x800B0110/0x20 of the
    // policy's own); stop, dwError and lChainIndex of each, the trace.
    const struct { bool extraGiven; const CERT_CHAIN_POLICY_STATUS* other; const UsageStatus* otherExtra; bool stop;
                   DWORD dwError, extraError; LONG index, extraIndex; std::string trace; } rows[] = {
        {true, nullptr, nullptr, false, 0, 0x21, -1, 7,
         "ReportError|Extra status was supplied. Setting pExtraStatus->dwError |= 0x00000020\n" + kGoesOn},
        {false, nullptr, nullptr, true, 0x800B0110u, 0x01, 0, 7,
         "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x800b0110, "
         "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n" + kStops},
        {false, &inner, nullptr, true, 0x800B0110u, 0x01, 2, 7, innerError + kStops},
        {true, &inner, &innerExtra, false, 0x800B0110u, 0x03, 2, 4,
         innerError + "ReportError|pOtherExtraStatus->dwError = 0x00000002\n" +
             "ReportError|pOtherExtraStatus->lChainIndex = 4, pOtherExtraStatus->lElementIndex = 5\n" + kGoesOn},
        {true, &clean, &cleanExtra, false, 0, 0x01, -1, 7, kGoesOn},
        {false, &clean, nullptr, false, 0, 0x01, -1, 7,
         "ReportError|No error encountered. Other checks can be performed - returning false.\n"},
    };
    for (const auto& row : rows) {
        UsageStatus extra{sizeof extra, 0x01, 7, 7};
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, row.extraGiven ? &extra : nullptr};
        TraceCapture trace;
        const bool stop = row.other ? ReportError(&s, row.extraGiven ? &extra : nullptr, row.other, row.otherExtra)
                                    : ReportError(&s, row.extraGiven ? &extra : nullptr, CERT_E_WRONG_USAGE, 0x20);
        EXPECT_EQ(std::make_tuple(stop, s.dwError, s.lChainIndex, s.lElementIndex, extra.dwError, extra.lChainIndex,
                                  trace.text()),
                  std::make_tuple(row.stop, row.dwError, row.index, row.index == 2 ? 3 : row.index, row.extraError,
                                  row.extraIndex, row.trace));
    }
    // The fatal form merges, then throws the last error in HRESULT form; a negative one as it stands.
    const std::pair<DWORD, DWORD> lastErrors[] = {{0, 0}, {5, 0x80070005u}, {87, 0x80070057u}, {0x12345, 0x80072345u},
                                                  {0x80090008u, 0x80090008u}, {0xFFFFFFFFu, 0xFFFFFFFFu}};
    for (const auto& e : lastErrors) {
        CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, -1, -1, nullptr};
        SetLastError(e.first);
        const HRESULT hr =
            thrownHr([&] { ReportFatalWin32Error<UsageStatus, UsageStatus>(&s, nullptr, &inner, nullptr); });
        EXPECT_EQ(std::make_tuple(DWORD(hr), s.dwError), std::make_tuple(e.second, 0x800B0110u)) << e.first;
    }
}

const char *kBC2 = "2.5.29.19", *kBC1 = "2.5.29.10", *kCA = "30030101FF", *kNotCA = "3000";
typedef std::vector<std::pair<const char*, const char*>> Extensions;
typedef std::tuple<BOOL, DWORD, LONG, LONG, DWORD> BcOutcome;  // result, dwError, indices, last error

// The end certificate with these extensions, then elements - 1 more. The parameter record's
// size and extra pointer are not looked at; an extra status is neither checked nor set.
BcOutcome basicConstraints(const Extensions& extensions, DWORD flags, DWORD elements = 1, DWORD trust = 0,
                           bool withPara = true, DWORD paraSize = sizeof(CERT_CHAIN_POLICY_PARA),
                           DWORD statusSize = sizeof(CERT_CHAIN_POLICY_STATUS)) {
    FakeCert end, other;
    for (const auto& e : extensions)
        end.add(e.first, e.second);
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
    return BcOutcome{r, status.dwError, status.lChainIndex, status.lElementIndex, GetLastError()};
}

// Each row with a parameter record of the right size and of size 0, trace off and on; a
// status of the wrong size is refused and left as it was.
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
    const BcOutcome pass{TRUE, 0, -1, -1, kSentinel}, fail{TRUE, kTrustE, 0, 0, kSentinel},
        failNotImpl{FALSE, kTrustE, 0, 0, 0x80004001u}, failDecode{FALSE, kTrustE, 0, 0, 0x8009310Bu};
    const DWORD ca = 0x80000000u, partial = CERT_TRUST_IS_PARTIAL_CHAIN;
    const struct { const char* name; Extensions extensions; DWORD flags, elements, trust; bool withPara;
                   BcOutcome expected; const std::string& trace; } rows[] = {
        {"cA true", {{kBC2, kCA}}, ca, 1, 0, true, pass, passes},
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
    const DWORD good = sizeof(CERT_CHAIN_POLICY_STATUS);
    for (DWORD size : {DWORD(0), good - 1, good + 1, DWORD(0xFFFFFFFFu)}) {
        TraceCapture capture;
        EXPECT_EQ(basicConstraints({}, ca, 2, 0, true, sizeof(CERT_CHAIN_POLICY_PARA), size),
                  (BcOutcome{FALSE, 0x11, 0x22, 0x33, 87}));
        EXPECT_EQ(capture.text(), start + "CheckAndInitPolicyStatus|Unknown pPolicyStatus structure "
                                          "(sizeof(*pPolicyStatus) != pPolicyStatus->cbSize)\n" + caught("00000057"));
    }
}

// A context whose level is off prints nothing; tracing keeps the last error; an initializer
// closes the context it finds and clears its variable on destruction.
TEST(Trace, Rules) {
    TSupportDbContext_* quiet = support_print_init_memory("quiet", 0x7 /* everything but 8 */);
    chainvet_db_ctx = quiet;
    EXPECT_EQ(basicConstraints({}, 0x80000000u, 2), (BcOutcome{TRUE, kTrustE, 0, 0, kSentinel}));
    chainvet_db_ctx = nullptr;
    EXPECT_STREQ(support_print_memory_text(quiet), "");
    SetLastError(0x1234);
    support_dprint_print_(quiet, "%s\n", "", 1, "f", "x");
    EXPECT_EQ(std::make_tuple(GetLastError(), std::string(support_print_memory_text(quiet))),
              std::make_tuple(0x1234u, std::string("f|x\n")));
    support_print_memory_clear(quiet);
    EXPECT_STREQ(support_print_memory_text(quiet), "");
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

// Either extension is decoded by the current rule into a zeroed 12-byte record; a decoder
// error (g_failWith; 0xFFFFFFFF: success with cA TRUE) comes back in HRESULT form.
DWORD g_failWith;
BOOL checkingDecoder(void* calls, DWORD enc, LPCSTR type, const BYTE* pb, DWORD cb, DWORD flags, void* out, DWORD* pcb) {
    auto* info = static_cast<CERT_BASIC_CONSTRAINTS2_INFO*>(out);
    ++*static_cast<int*>(calls);
    EXPECT_EQ(std::make_tuple(enc, std::string(type), flags, *pcb, toHex(pb, cb), info->fCA, info->fPathLenConstraint,
                              info->dwPathLenConstraint),
              std::make_tuple(0x10001u, std::string("2.5.29.19"), 0u, 12u, std::string("30050303060780"), FALSE, FALSE,
                              0u));
    info->fCA = TRUE;
    SetLastError(g_failWith == 0xFFFFFFFFu ? GetLastError() : g_failWith);
    return g_failWith == 0xFFFFFFFFu;
}

TEST(BasicConstraints, DecoderCall) {
    const struct { const char* oid; DWORD failWith, lastError; } rows[] = {
        {kBC1, 0xFFFFFFFFu, kSentinel}, {kBC2, 13, 0x8007000Du}, {kBC2, 0, 0}};
    for (const auto& row : rows) {
        qvfake_reset();
        int calls = 0;
        g_failWith = row.failWith;
        qvfake_set_decode_hook(checkingDecoder, &calls);
        const bool ok = row.failWith == 0xFFFFFFFFu;
        EXPECT_EQ(basicConstraints({{row.oid, "30050303060780"}}, 0x80000000u),
                  (BcOutcome{ok, ok ? 0 : kTrustE, ok ? -1 : 0, ok ? -1 : 0, row.lastError})) << row.failWith;
        EXPECT_EQ(calls, 1);
    }
    qvfake_reset();
}

const auto kSignature = CertDllVerifySignatureCertificateChainPolicy;
const auto kTimestamp = CertDllVerifyTimestampSigningCertificateChainPolicy;

// An ExtKeyUsageSyntax value and the purposes it names, as a chain usage record names them.
struct Eku {
    const char* der;
    std::vector<const char*> oids;
    CERT_ENHKEY_USAGE usage() const {
        return {static_cast<DWORD>(oids.size()), oids.empty() ? nullptr : const_cast<LPSTR*>(oids.data())};
    }
};
const char *kTimeStamping = "1.3.6.1.5.5.7.3.8", *kServerAuth = "1.3.6.1.5.5.7.3.1";
const Eku kTs{"300A06082B06010505070308", {kTimeStamping}}, kServer{"300A06082B06010505070301", {kServerAuth}},
    kAny{"30060604551D2500", {"2.5.29.37.0"}}, kEmpty{nullptr, {}}, kUndecodable{"300406028080", {}},
    kServerAndTs{"301406082B0601050507030106082B06010505070308", {kServerAuth, kTimeStamping}};

// Result, last error, the status' dwError and indices, the extra status' dwError and
// indices (0x77, 0x55, 0x66 where the policy left it alone or none was linked).
typedef std::tuple<BOOL, DWORD, DWORD, LONG, LONG, DWORD, LONG, LONG> Outcome;

// The policy's own failure in the status (indices 0) or as bits, an inner one as the script
// put it (3, 4 and 5, 6); success where the last error stays or is a decoder's 234.
Outcome expected(bool withExtra, DWORD lastError, DWORD dwError, DWORD extraBits, DWORD pkupError, DWORD pkupBits) {
    const BOOL ok = lastError == kSentinel || lastError == kMore;
    if (withExtra)
        return Outcome{ok, lastError, 0, -1, -1, extraBits, pkupBits ? 5 : -1, pkupBits ? 6 : -1};
    const LONG index = !dwError ? -1 : pkupError ? 3 : 0;
    return Outcome{ok, lastError, dwError, index, index == 3 ? 4 : index, 0x77, 0x55, 0x66};
}

// What the private-key-usage-period policy answers, and what it was handed.
struct PkupScript {
    BOOL result = TRUE;
    DWORD lastError = 0, dwError = 0, extraBits = 0;
    int calls = 0;
    std::string oid{};
    CERT_CHAIN_POLICY_PARA para{};
    UsagePara extraPara{};
    DWORD statusCbSize = 0, extraStatusCbSize = 0;
};

BOOL pkupHook(void* user, LPCSTR oid, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA para,
              PCERT_CHAIN_POLICY_STATUS status) {
    auto* s = static_cast<PkupScript*>(user);
    std::tie(s->calls, s->oid, s->para, s->statusCbSize) = std::make_tuple(s->calls + 1, oid, *para, status->cbSize);
    if (para->pvExtraPolicyPara)
        s->extraPara = *static_cast<UsagePara*>(para->pvExtraPolicyPara);
    *status = CERT_CHAIN_POLICY_STATUS{status->cbSize, s->dwError, s->dwError ? 3 : -1, s->dwError ? 4 : -1,
                                       status->pvExtraPolicyStatus};
    if (auto* extra = static_cast<UsageStatus*>(status->pvExtraPolicyStatus)) {
        s->extraStatusCbSize = extra->cbSize;
        *extra = UsageStatus{extra->cbSize, s->extraBits, s->extraBits ? 5 : -1, s->extraBits ? 6 : -1};
    }
    if (!s->result)
        SetLastError(s->lastError);
    return s->result;
}

// An end certificate with these EKU, Key Usage and usage period (null: none), the element's
// usage as the EKU names unless chainUsage is false; the string manager's heap counted.
struct Rig {
    CountingHeap heap;
    ATL::IAtlMemMgr* savedHeap = ATL::g_defaultStrMgr.GetMemoryManager();
    PkupScript pkup;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};
    FakeCert cert;
    CERT_ENHKEY_USAGE usage{};
    std::unique_ptr<FakeChain> chain;

    Rig(const Eku* eku, const char* keyUsage, const char* period = nullptr, bool chainUsage = true) {
        qvfake_reset();
        ATL::g_defaultStrMgr.SetMemoryManager(&heap);
        for (auto ext : {std::make_pair(szOID_ENHANCED_KEY_USAGE, eku ? eku->der : nullptr),
                         std::make_pair(szOID_PRIVATEKEY_USAGE_PERIOD, period),
                         std::make_pair(szOID_KEY_USAGE, keyUsage)})
            if (ext.second)
                cert.add(ext.first, ext.second);
        usage = (eku ? *eku : kEmpty).usage();
        chain.reset(new FakeChain({cert.context()}));
        chain->elements[0].pApplicationUsage = eku && chainUsage ? &usage : nullptr;
    }
    ~Rig() {
        ATL::g_defaultStrMgr.SetMemoryManager(savedHeap);
        qvfake_reset();
    }
    // Runs a policy export with garbage in every field it must set.
    Outcome run(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy, PCERT_CHAIN_POLICY_PARA p, bool withExtraStatus) {
        UsageStatus extra{sizeof(UsageStatus), 0x77, 0x55, 0x66};
        CERT_CHAIN_POLICY_STATUS status{sizeof status, 0x11, 0x22, 0x33, withExtraStatus ? &extra : nullptr};
        SetLastError(kSentinel);
        const BOOL ok = policy(nullptr, chain->get(), p, &status);
        return Outcome{ok, GetLastError(), status.dwError, status.lChainIndex, status.lElementIndex,
                       extra.dwError, extra.lChainIndex, extra.lElementIndex};
    }
};

// Both policies' outcome tables, without and with an extra status (traced). A Key Usage
// within 32 bytes is decoded once, without the fallback buffer; the inner records are built
// as the frame lays down (the extra parameter, declared with cbSize 0, copied in full).
TEST(SignaturePolicies, OutcomeTables) {
    const char* noBits = "Key Usage extension does not contain neither digitalSignature nor nonRepudiation bits.\n";
    const char* innerFalse =
        "QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD check returned FALSE. Exception will be thrown.\n";
    // The period policy's failure in the status and the extra status, or FALSE with pkupLastError;
    // dwError expected without extra status, extraBits with it; a line of SignatureImpl.
    const struct { PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy; const Eku* eku; const char* keyUsage;
                   bool chainUsage; DWORD flags; bool withPara;
                   DWORD pkupError, pkupBits, pkupLastError, lastError, dwError, extraBits; const char* trace; } rows[] = {
        {kSignature, nullptr, "03020080", true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},  // digitalSignature
        {kSignature, nullptr, nullptr, true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},  // no Key Usage, no limit
        {kSignature, nullptr, "03020040", true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},  // nonRepudiation
        {kSignature, nullptr, "030200C0", true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kSignature, nullptr, "03020020", true, ~0u, true, 0, 0, 0, kSentinel, kWrongUsage, 0x20, noBits},
        {kSignature, nullptr, "030100", true, ~0u, true, 0, 0, 0, kSentinel, kWrongUsage, 0x20, noBits},  // empty
        {kSignature, nullptr, "0400", true, ~0u, true, 0, 0, 0, 0x8009310Bu, 0, 0,
         "Key Usage extension could not be decoded.\n"},
        // Without an extra status the inner failure ends the policy before Key Usage; with
        // one, Key Usage is checked too and adds its bit.
        {kSignature, nullptr, "03020080", true, ~0u, true, kExpired, 0x02, 0, kSentinel, kExpired, 0x02, ""},
        {kSignature, nullptr, "03020020", true, ~0u, true, kExpired, 0x01, 0, kSentinel, kExpired, 0x21, ""},
        // The inner policy returned FALSE: its status merged, its last error in HRESULT form.
        {kSignature, nullptr, "03020020", true, ~0u, true, kExpired, 0x02, 87, 0x80070057u, kExpired, 0x02, innerFalse},
        {kSignature, nullptr, "03020020", true, 0, false, kExpired, 0x02, 0x80092004u, 0x80092004u, kExpired, 0x02, ""},
        {kTimestamp, &kTs, "03020780", true, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kServerAndTs, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kAny, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kServer, nullptr, true, 0, true, 0, 0, 0, kSentinel, kWrongUsage, 0x0C, ""},
        {kTimestamp, &kTs, "03020520", true, 0, true, 0, 0, 0, kSentinel, kWrongUsage, 0x20, noBits},
        {kTimestamp, &kServer, "03020520", true, 0, true, 0, 0, 0, kSentinel, kWrongUsage, 0x2C, noBits},
        // The period's failure comes back untouched; without extra status it skips the usage check.
        {kTimestamp, &kServer, nullptr, true, 0, true, kExpired, 0x02, 0, kSentinel, kExpired, 0x0E, ""},
        // FALSE from two levels down, merged through both before the throw; no usage check.
        {kTimestamp, &kServer, nullptr, true, 0, true, 0, 0x01, 87, 0x80070057u, 0, 0x01, innerFalse},
        // No EKU on the certificate: any purpose unless 0x20000; no chain usage: any unless 0x40000.
        {kTimestamp, nullptr, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, nullptr, nullptr, true, 0x20000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x04, ""},
        {kTimestamp, nullptr, nullptr, true, 0x40000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x08, ""},
        {kTimestamp, &kTs, nullptr, false, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kTs, nullptr, false, 0x20000, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kTs, nullptr, false, 0x40000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x08, ""},
        // Without a parameter record the relaxing arguments are TRUE (this library does not fault).
        {kTimestamp, nullptr, nullptr, true, 0, false, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kServer, nullptr, true, 0, false, 0, 0, 0, kSentinel, kWrongUsage, 0x0C, ""},
    };
    int marker = 0;
    UsagePara extraPara{0, &marker};
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        const auto& row = rows[i];
        const bool signature = row.policy == kSignature;
        for (bool withExtra : {false, true}) {
            SCOPED_TRACE(testing::Message() << "row " << i << (withExtra ? ", extra status" : ", no extra status"));
            Rig rig(row.eku, row.keyUsage, nullptr, row.chainUsage);
            rig.pkup = PkupScript{row.pkupLastError == 0, row.pkupLastError, withExtra ? 0 : row.pkupError, row.pkupBits};
            qvfake_set_pkup_hook(pkupHook, &rig.pkup);
            rig.para = CERT_CHAIN_POLICY_PARA{sizeof rig.para, row.flags, row.withPara ? &extraPara : nullptr};
            std::unique_ptr<TraceCapture> trace(withExtra ? new TraceCapture : nullptr);  // half the runs untraced
            EXPECT_EQ(rig.run(row.policy, row.withPara ? &rig.para : nullptr, withExtra),
                      expected(withExtra, row.lastError, row.dwError, row.extraBits, row.pkupError, row.pkupBits));
            EXPECT_TRUE(!trace || trace->text().find(std::string("SignatureImpl|") + row.trace) != std::string::npos ||
                        !*row.trace) << trace->text();
            const bool decoded = row.keyUsage && !row.pkupLastError && (withExtra || !row.pkupError);
            const PkupScript& p = rig.pkup;
            EXPECT_EQ(std::make_tuple(signature ? qvfake_decode_calls() : 0u, rig.heap.allocations + rig.heap.reallocations,
                                      p.calls, p.oid, p.para.cbSize, p.para.dwFlags, p.statusCbSize, p.extraPara.cbSize,
                                      p.extraPara.pvUsagePeriodArg, p.extraStatusCbSize),
                      std::make_tuple(signature && decoded ? 1u : 0u, 0, 1,
                                      std::string(QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD), DWORD(sizeof rig.para),
                                      signature ? row.flags : 0x40000000u | (row.flags & 0xFFFF),
                                      DWORD(sizeof(CERT_CHAIN_POLICY_STATUS)),
                                      row.withPara ? DWORD(sizeof(UsagePara)) : 0u,
                                      static_cast<void*>(row.withPara ? &marker : nullptr), withExtra ? 16u : 0u));
        }
    }
}

// The timestamp policy permits 0x0006FFFF, with a hole at 0x10000; a refused value stops it
// before the inner policies run. (The extra parameter's way down: the outcome tables.)
TEST(SignaturePolicies, TimestampFlagMask) {
    Rig rig(&kTs, nullptr);
    qvfake_set_pkup_hook(pkupHook, &rig.pkup);
    const std::pair<DWORD, bool> rows[] = {{0x00010000u, false}, {0x00060000u, true},  {0x0006FFFFu, true},
                                           {0x00070000u, false}, {0x00080000u, false}, {0x40000000u, false},
                                           {0xFFFFFFFFu, false}};
    const std::string refused = "TimestampSigningImpl|pPolicyPara->dwFlags contains unknown flags";
    for (const auto& [flags, permitted] : rows) {
        for (bool withExtra : {false, true}) {
            rig.pkup = PkupScript();
            rig.para.dwFlags = flags;
            TraceCapture trace;
            EXPECT_EQ(rig.run(kTimestamp, &rig.para, withExtra),
                      expected(withExtra, permitted ? kSentinel : 87u, 0, 0, 0, 0)) << std::hex << flags;
            const bool traced = trace.text().find(refused) != std::string::npos;
            EXPECT_EQ(std::make_tuple(rig.pkup.calls, rig.pkup.para.dwFlags, traced),
                      std::make_tuple(permitted ? 1 : 0, permitted ? (flags & 0xFFFFu) | 0x40000000u : 0u, !permitted));
        }
    }
}

// Bad records for the signature policy and the stand-in's period policy, which also refuses a
// short extra parameter; a refused status or extra status is left alone.
TEST(SignaturePolicies, BadRecordsAreRefusedWith87) {
    const DWORD st = sizeof(CERT_CHAIN_POLICY_STATUS), pa = sizeof(CERT_CHAIN_POLICY_PARA), ep = sizeof(UsagePara);
    const struct { DWORD statusSize, paraSize, extraParaSize, extraStatusSize; BOOL signatureOk, periodOk; } rows[] = {
        {st, pa, ep, 16, TRUE, TRUE}, {st - 4, pa, ep, 16, FALSE, FALSE}, {st, pa, ep, 15, FALSE, FALSE},
        {st, pa - 1, ep, 16, FALSE, FALSE}, {st, pa, ep + 1, 16, FALSE, FALSE}, {st, pa, 0, 16, TRUE, FALSE}};
    Rig rig(nullptr, nullptr);
    for (const auto& row : rows) {
        for (auto policy : {kSignature, CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy}) {
            const bool signature = policy == kSignature;
            UsagePara extraPara{row.extraParaSize, nullptr};
            CERT_CHAIN_POLICY_PARA para{row.paraSize, 0, &extraPara};
            UsageStatus extra{row.extraStatusSize, 0x77, 0x55, 0x66};
            CERT_CHAIN_POLICY_STATUS status{row.statusSize, 0x11, 0x22, 0x33, &extra};
            SetLastError(0);
            const BOOL ok = policy(nullptr, rig.chain->get(), &para, &status);
            const bool initialised = ok || (row.statusSize == st && signature);
            const bool extraInitialised = initialised && row.extraStatusSize == 16;
            EXPECT_EQ(std::make_tuple(ok, GetLastError(), status.dwError, status.lChainIndex, extra.dwError),
                      std::make_tuple(signature ? row.signatureOk : row.periodOk, ok ? 0u : 87u,
                                      initialised ? 0u : 0x11u, initialised ? -1 : 0x22, extraInitialised ? 0u : 0x77u))
                << row.statusSize << "/" << row.paraSize << "/" << row.extraParaSize << "/" << row.extraStatusSize
                << (signature ? " signature" : " period");
        }
    }
}

// A Key Usage decoder that fails its first call with firstError; after ERROR_MORE_DATA
// with a size of `need` it answers the second call as scripted (secondError 0: success).
struct ScriptedDecode {
    DWORD firstError, need, secondError;
    BYTE bits[1];
    int calls = 0;
    DWORD secondSize = 0;
};

BOOL scriptedDecodeHook(void* user, DWORD, LPCSTR type, const BYTE*, DWORD, DWORD flags, void* out, DWORD* pcb) {
    auto* s = static_cast<ScriptedDecode*>(user);
    EXPECT_EQ(std::make_tuple(std::string(type), flags), std::make_tuple(std::string(szOID_KEY_USAGE), 1u));
    if (++s->calls == 1) {
        EXPECT_EQ(*pcb, 32u);
        *pcb = s->need;
        SetLastError(s->firstError);
        return FALSE;
    }
    s->secondSize = *pcb;
    if (s->secondError) {
        SetLastError(s->secondError);
        return FALSE;
    }
    std::memset(out, 0xEE, *pcb);  // the whole claimed size, so that a short fallback buffer shows under ASan
    CRYPT_BIT_BLOB blob{1, s->bits, 0};
    std::memcpy(out, &blob, sizeof blob);
    return TRUE;
}

// Only ERROR_MORE_DATA earns a second call, into the string buffer, which is taken once
// and handed back on every way out. Other errors come back in HRESULT form.
TEST(SignaturePolicies, KeyUsageDecoderFailures) {
    const std::string again =
        "SignatureImpl|Key Usage extension requires more than 32 bytes (notably, 100) to decode.\n";
    const std::string failed = "SignatureImpl|Key Usage extension could not be decoded.\n";
    const struct { DWORD firstError, need, secondError; BYTE bits; DWORD lastError, dwError; int calls, allocations;
                   std::string trace; } rows[] = {
        {kMore, 100, 0, 0x80, kMore, 0, 2, 1, again},  // the last error stays as the decoder left it
        {kMore, 100, 0, 0x20, kMore, kWrongUsage, 2, 1, again},
        {kMore, 100, 13, 0x80, 0x8007000Du, 0, 2, 1, failed},
        {kMore, 0xFFFFFFF0u, 0, 0x80, 0x80070057u, 0, 1, 0, ""},  // beyond any string
        {5, 0, 0, 0, 0x80070005u, 0, 1, 0, failed},               {0x12345, 0, 0, 0, 0x80072345u, 0, 1, 0, failed},
        {0, 0, 0, 0, 0, 0, 1, 0, failed},                         {0x80093102u, 0, 0, 0, 0x80093102u, 0, 1, 0, failed},
    };
    Rig rig(nullptr, "03020020");
    for (const auto& row : rows) {
        for (bool traced : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.firstError << ", " << row.need << ", " << row.secondError);
            rig.heap.allocations = rig.heap.reallocations = rig.heap.frees = 0;
            ScriptedDecode d{row.firstError, row.need, row.secondError, {row.bits}};
            qvfake_set_decode_hook(scriptedDecodeHook, &d);
            std::unique_ptr<TraceCapture> trace(traced ? new TraceCapture : nullptr);
            EXPECT_EQ(rig.run(kSignature, &rig.para, false), expected(false, row.lastError, row.dwError, 0, 0, 0));
            EXPECT_EQ(std::make_tuple(d.calls, d.secondSize, rig.heap.allocations + rig.heap.reallocations,
                                      int(rig.heap.frees)),
                      std::make_tuple(row.calls, row.calls == 2 ? 100u : 0u, row.allocations, row.allocations));
            EXPECT_TRUE(!trace || trace->text().find(row.trace) != std::string::npos) << trace->text();
        }
    }
}

// The stand-in's period policy (2020-01-01 .. 2021-01-01 unless given; year 0: now) under a
// failing Key Usage: both failures with an extra status, else the period's alone.
TEST(SignaturePolicies, UsagePeriodFailsByTheSideOfTheMoment) {
    const std::string from = "800F32303230303130313030303030305A", both = "3022" + from + "810F32303231303130313030303030305A";
    const struct { std::string period; WORD year, month, day; DWORD bits, lastError; } rows[] = {
        {both, 2019, 12, 31, 0x01, kSentinel}, {both, 2020, 1, 1, 0, kSentinel}, {both, 2021, 1, 1, 0, kSentinel},
        {both, 2021, 1, 2, 0x02, kSentinel},   {"3011" + from, 0, 0, 0, 0, kSentinel},
        {"3011810F32303030303130313030303030305A", 0, 0, 0, 0x02, kSentinel},  // ended in 2000
        {"3006800432303230", 0, 0, 0, 0, 0x8009310Bu},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.period << " at " << row.year << "-" << row.month << "-" << row.day);
        Rig rig(nullptr, "03020020", row.period.c_str());
        const SYSTEMTIME day{row.year, row.month, 0, row.day, 0, 0, 0, 0};
        FILETIME at{};
        SystemTimeToFileTime(&day, &at);
        UsagePara extra{sizeof(UsagePara), &at};
        rig.para.pvExtraPolicyPara = row.year ? &extra : nullptr;
        const BOOL ok = row.lastError == kSentinel;
        const LONG index = row.bits ? 0 : -1;
        EXPECT_EQ(rig.run(kSignature, &rig.para, true),
                  (ok ? Outcome{TRUE, kSentinel, 0, -1, -1, row.bits | 0x20u, index, index}
                      : Outcome{FALSE, row.lastError, 0, -1, -1, 0, -1, -1}));
        EXPECT_EQ(rig.run(kSignature, &rig.para, false),
                  (ok ? Outcome{TRUE, kSentinel, row.bits ? kExpired : kWrongUsage, 0, 0, 0x77, 0x55, 0x66}
                      : Outcome{FALSE, row.lastError, 0, -1, -1, 0x77, 0x55, 0x66}));
    }
}

// The stand-in's Key Usage decoding under the size protocol: with NOCOPY the record alone,
// pointing into the caller's bytes; copying, the bits follow the record.
TEST(KeyUsageDecoding, SizeProtocolAndNoCopy) {
    qvfake_reset();
    const Bytes value = hex("03020186");  // one unused bit, byte 0x86
    auto decode = [](const Bytes& v, DWORD flags, void* out, DWORD* cb) {
        SetLastError(0);
        return CryptDecodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, szOID_KEY_USAGE, v.data(),
                                 static_cast<DWORD>(v.size()), flags, out, cb);
    };
    CRYPT_BIT_BLOB blob{};
    DWORD cb = 0, small = sizeof blob - 1;
    ASSERT_EQ(decode(value, CRYPT_DECODE_NOCOPY_FLAG, nullptr, &cb), TRUE);
    EXPECT_EQ(decode(value, CRYPT_DECODE_NOCOPY_FLAG, &blob, &small), FALSE);
    EXPECT_EQ(std::make_tuple(cb, GetLastError(), small), std::make_tuple(DWORD(sizeof blob), 234u, DWORD(sizeof blob)));
    ASSERT_EQ(decode(value, CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb), TRUE);
    EXPECT_EQ(std::make_tuple(blob.cbData, blob.cUnusedBits, blob.pbData), std::make_tuple(1u, 1u, value.data() + 3));
    cb = 0;
    ASSERT_EQ(decode(value, 0, nullptr, &cb), TRUE);
    Bytes out(cb);
    ASSERT_EQ(decode(value, 0, out.data(), &cb), TRUE);
    std::memcpy(&blob, out.data(), sizeof blob);
    EXPECT_EQ(std::make_tuple(cb, blob.pbData, blob.pbData[0]),
              std::make_tuple(DWORD(sizeof blob + 1), out.data() + sizeof blob, BYTE(0x86)));
    for (const char* bad : {"0400", "0300", "030108", "03020880", "0302", "0302018600", "03820001"}) {
        cb = sizeof blob;
        const BOOL ok = decode(hex(bad), CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb);
        EXPECT_EQ(std::make_tuple(ok, GetLastError()), std::make_tuple(FALSE, 0x8009310Bu)) << bad;
    }
}

// IsValidByApplicationUsage for the time-stamping purpose beyond what the timestamp rows
// pass it: certificate EKU (null: none), chain usage (null: none at all), the four flags.
TEST(IsValidByApplicationUsage, Table) {
    const struct { const char* name; const Eku *eku, *chain; BOOL anyIfNoCert, anyIfNoChain, explicitOnly, both;
                   DWORD expected; } rows[] = {
        {"named in both, explicit", &kTs, &kTs, FALSE, FALSE, TRUE, TRUE, 0},
        {"absent from both, either suffices", &kServer, &kServer, TRUE, TRUE, FALSE, FALSE, 0x0C},
        {"any EKU does not count when explicit", &kAny, &kAny, TRUE, TRUE, TRUE, TRUE, 0x0C},
        {"empty chain usage counts as none", &kTs, &kEmpty, TRUE, FALSE, FALSE, TRUE, 0x08},
        {"empty chain usage, any purpose", &kTs, &kEmpty, TRUE, TRUE, FALSE, TRUE, 0},
        {"chain lacks it, both required", &kTs, &kServer, TRUE, TRUE, FALSE, TRUE, 0x08},
        {"chain lacks it, either suffices", &kTs, &kServer, TRUE, TRUE, FALSE, FALSE, 0},
        {"certificate lacks it, either suffices", &kServer, &kEmpty, TRUE, TRUE, FALSE, FALSE, 0},
        {"certificate lacks it, both required", &kServer, &kEmpty, TRUE, TRUE, FALSE, TRUE, 0x04},
        {"undecodable EKU grants nothing", &kUndecodable, nullptr, TRUE, TRUE, FALSE, TRUE, 0x04},
    };
    for (const auto& row : rows) {
        FakeCert cert;
        if (row.eku)
            cert.add(szOID_ENHANCED_KEY_USAGE, row.eku->der);
        CERT_ENHKEY_USAGE usage = (row.chain ? *row.chain : kEmpty).usage();
        EXPECT_EQ(IsValidByApplicationUsage(cert.context(), row.chain ? &usage : nullptr, kTimeStamping,
                                            row.anyIfNoCert, row.anyIfNoChain, row.explicitOnly, row.both),
                  row.expected) << row.name;
    }
}

const char *const kSha1 = "1.3.14.3.2.26", *const kGost2012 = "1.2.643.7.1.1.2.2";
const Bytes kIssuerName = hex("3015311330110603550403130A49737375696E67204341");  // CN=Issuing CA

Bytes hashOf(const char* oid, const Bytes& data) {
    const CBlob h = Quorvane::MakeHash(0, CertOIDToAlgId(oid), CBlob(data.data(), data.size()), nullptr);
    return Bytes(h.pbData(), h.pbData() + h.cbData());
}
DWORD hashes() { return qvfake_prov_calls_of("CryptCreateHash"); }

// CertID records over storage that never moves, so a test may spoil one in place.
struct CertIds {
    std::deque<std::pair<std::string, std::vector<Bytes>>> store;
    std::vector<QVOCSP_CERT_ID> recs;
    void add(const char* oid, const Bytes& name, const Bytes& key, const Bytes& serial) {
        store.push_back({oid, {name, key, serial}});
        auto& s = store.back();
        auto blob = [&](int i) { return CRYPT_HASH_BLOB{static_cast<DWORD>(s.second[i].size()), s.second[i].data()}; };
        recs.push_back(QVOCSP_CERT_ID{{&s.first[0], {0, nullptr}}, blob(0), blob(1), blob(2)});
    }
};

enum Kind { kCa, kEe, kEeWithoutPurpose };

// A responder and its issuer as one chain (or the responder alone). The certificates asked
// about are issued by "Issuing CA": the CA responder itself, or the delegate's issuer.
struct Responder {
    explicit Responder(Kind kind, bool oneElement = false, bool nocheck = false) {
        static LPSTR purposes[] = {const_cast<LPSTR>("1.3.6.1.5.5.7.3.9"), const_cast<LPSTR>("1.3.6.1.5.5.7.3.1")};
        const Bytes root = hex("30123110300E06035504031307526F6F74204341");  // CN=Root CA
        const bool ca = kind == kCa;
        cert.subject = ca ? kIssuerName : hex("30143112301006035504031309526573706F6E646572");
        cert.issuer = ca && !oneElement ? root : kIssuerName;
        cert.key = ca ? issuerKey : hex("04B1B2B3B4");
        cert.serial = {0x34, 0x12};  // 0x1234
        cert.add(szOID_BASIC_CONSTRAINTS2, ca ? "30030101FF" : "3000");
        if (!ca)
            cert.add(szOID_ENHANCED_KEY_USAGE, kind == kEe ? "300A06082B06010505070309" : "300A06082B06010505070301");
        if (nocheck)
            cert.add(szOID_PKIX_OCSP_NOCHECK, "0500");
        if (oneElement && !ca)
            issuerKey = cert.key;  // the responder's own key stands in for its issuer's
        issuer.subject = ca ? root : kIssuerName;
        issuer.key = ca ? hex("04C1C2") : issuerKey;
        std::vector<PCCERT_CONTEXT> certs{cert.context(), issuer.context()};
        chain.reset(new FakeChain({certs.begin(), certs.end() - oneElement}));
        usage = CERT_ENHKEY_USAGE{1, &purposes[kind == kEe ? 0 : 1]};
        chain->elements[0].pApplicationUsage = ca ? nullptr : &usage;
    }
    // 'g' good, 'f' foreign issuer, 'c' the responder itself, 'k' its serial under another
    // issuer key, 'u' an algorithm no provider knows.
    void add(CertIds& ids, char what, const char* oid = kSha1) const {
        const Bytes name = what == 'f' ? hex("3010310E300C060355040313054F74686572") : kIssuerName;
        const Bytes key = what == 'k' ? Bytes{0x04, 0x09} : issuerKey;
        ids.add(what == 'u' ? "1.2.3.4" : oid, hashOf(oid, name), hashOf(oid, key),
                what == 'c' || what == 'k' ? Bytes{0x12, 0x34} : Bytes{0x05});
    }

    Bytes issuerKey = hex("04A1A2A3A4A5A6A7A8");
    FakeCert cert, issuer;
    std::unique_ptr<FakeChain> chain;
    CERT_ENHKEY_USAGE usage{};
};

// The records of one call; rgdwCertIdChecked starts at 7 so that untouched elements show.
struct Call {
    Call(CertIds& ids, bool withExtraStatus) : checked(ids.recs.size(), 7) {
        qvfake_reset();
        status.pvExtraPolicyStatus = withExtraStatus ? &extra : nullptr;
        extraPara.cCertId = static_cast<DWORD>(ids.recs.size());
        extraPara.rgCertId = ids.recs.empty() ? nullptr : ids.recs.data();
        extra.rgdwCertIdChecked = checked.empty() ? nullptr : checked.data();
    }
    void run(const Responder& r) {
        SetLastError(kSentinel);
        ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, r.chain->get(), &para, &status);
        lastError = GetLastError();
        text.clear();
        for (DWORD v : checked)
            text += static_cast<char>('0' + v);
    }

    std::vector<DWORD> checked;
    OcspPara extraPara{sizeof extraPara, nullptr, 0, nullptr, nullptr};
    OcspStatus extra{sizeof extra, 0x77, 0x55, 0x66, 9, nullptr};
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33, nullptr};
    DWORD lastError = 0;
    BOOL ok = 2;
    std::string text;  // rgdwCertIdChecked as digits
};

BOOL authorizeAll(PCCERT_CONTEXT) { return TRUE; }
BOOL authorizeNone(PCCERT_CONTEXT) { return FALSE; }
BOOL authorizeThrows(PCCERT_CONTEXT) { throw std::runtime_error("callback"); }

// pPolicyStatus' dwError has both indices 0 when set and -1 otherwise; the extra status'
// bits; rgdwCertIdChecked as digits, 7 untouched; a line of the trace.
TEST(OcspPolicy, OutcomeTable) {
    const struct { const char* name; Kind kind; bool badKeyUsage, oneElement, extra; const char* ids;
                   PFN_QVOCSP_ANY_CERT_AUTHORIZED callback; DWORD dwError, bits; const char *checked, *trace; } rows[] = {
        {"CA, no CertIDs", kCa, false, false, true, "", nullptr, 0, 0, "", ""},
        {"CA passes", kCa, false, false, true, "gg", nullptr, 0, 0, "11", ""},
        {"CA passes, no extra status", kCa, false, false, false, "gg", nullptr, 0, 0, "77", ""},
        {"CA, signature fails", kCa, true, false, false, "gg", nullptr, kWrongUsage, 0, "77", ""},
        {"CA, signature fails: with extra status the CertIDs still count", kCa, true, false, true, "gf", nullptr, 0,
         0x30, "10", ""},
        {"CA, foreign issuer ends the walk", kCa, false, false, false, "fg", nullptr, kWrongUsage, 0, "77",
         "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[0]: issuer in CertId "
         "differs from subject of OCSP certificate (CA case).\n"},
        {"CA, every failure shown, the bit set once", kCa, false, false, true, "fgf", nullptr, 0, 0x10, "010",
         "CAtlException raised while checking pExtraPara->rgCertId[2]: m_hr = 0x800b0110\n"},
        {"self-issued CA of one element answers for itself", kCa, false, true, true, "gc", nullptr, 0, 0, "11", ""},
        {"EE passes", kEe, false, false, true, "gg", nullptr, 0, 0, "11", ""},
        {"EE of one element: its own key for its issuer's", kEe, false, true, true, "g", nullptr, 0, 0, "1", ""},
        {"EE, signature fails", kEe, true, false, true, "g", nullptr, 0, 0x20, "1", ""},
        {"EE without the purpose", kEeWithoutPurpose, false, false, false, "g", nullptr, kWrongUsage, 0, "7",
         "Certificate of OCSP responder is strictly EE certificate and is not valid for signing OCSP responses by "
         "Application Policy or EKU.\n"},
        {"EE without the purpose: CertIDs unexamined", kEeWithoutPurpose, false, false, true, "gg", nullptr, 0, 0x40,
         "00", ""},
        {"EE, foreign issuer", kEe, false, false, true, "gf", nullptr, 0, 0x10, "10",
         "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[1]: issuer in CertId "
         "differs from one of OCSP certificate (end entity case).\n"},
        {"EE, Cyclic needs serial and key hash", kEe, false, false, true, "cgk", nullptr, 0, 0x10, "011",
         "\"Cyclic\" status checking in pExtraPara->rgCertId[0].\n"},
        {"EE, Cyclic without extra status", kEe, false, false, false, "gc", nullptr, kWrongUsage, 0, "77", ""},
        {"EE, unknown algorithm fails its record only", kEe, false, false, true, "gug", nullptr, 0, 0x10, "101",
         "CAtlException raised while checking pExtraPara->rgCertId[1]"},
        {"EE authorized for any certificate, never for itself", kEe, false, false, true, "fgc", authorizeAll, 0, 0x10,
         "110", "Certificate of OCSP service is authorized to sign status of any certificate.\n"},
        {"EE not authorized", kEe, false, false, true, "fg", authorizeNone, 0, 0x10, "01",
         "issuer in CertId differs from one of OCSP certificate and OCSP responder is not authorized to sign status "
         "of any certificate (end entity case).\n"},
        {"EE, a throwing callback fails its record", kEe, false, false, true, "fg", authorizeThrows, 0, 0x10, "01",
         "Unknown exception raised while checking pExtraPara->rgCertId[0]\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Responder r(row.kind, row.oneElement);
        if (row.badKeyUsage)
            r.cert.add(szOID_KEY_USAGE, "03020520");
        CertIds ids;
        for (const char* p = row.ids; *p; ++p)
            r.add(ids, *p);
        Call call(ids, row.extra);
        call.extraPara.pfnAnyCertAuthorized = row.callback;
        TraceCapture trace;
        call.run(r);
        const LONG index = row.dwError != 0 ? 0 : -1;
        EXPECT_EQ(std::make_tuple(call.ok, call.status.dwError, call.status.lChainIndex, call.status.lElementIndex,
                                  call.text, call.extra.dwError),
                  std::make_tuple(TRUE, row.dwError, index, index, row.checked, row.extra ? row.bits : 0x77u));
        const std::string text = trace.text();
        EXPECT_NE(text.find(row.trace), std::string::npos) << text;
        EXPECT_EQ(text.find("dwError |= 0x00000010"), text.rfind("dwError |= 0x00000010")) << "reported once";
    }
}

// What the policy checks before it judges, each row changing rgCertId[1], the extra parameter
// or the flags: bad records wherever they stand (the address tests compare pointers, so equal
// contents elsewhere pass); the callback, the record's last field, read only when cbSize
// covers it; fOcspNoCheck (9: untouched) reported before the flags are read.
TEST(OcspPolicy, RecordsSizesAndFlags) {
    static char oid[] = "1.3.14.3.2.26", sameText[] = "1.3.14.3.2.26";
    static BYTE sameHash[20];
    using Id = QVOCSP_CERT_ID;
    const char *bad = "CheckOcspCertIds|rgCertId[i] if set must not be NULL\n", *size = "Unknown pExtraPara structure",
               *flags = "pPolicyPara->dwFlags contains unknown flags";
    const struct { const char* name; Kind kind; bool nocheck; const char* ids; void (*change)(Call&, Id*); BOOL ok;
                   DWORD lastError; const char* checked; DWORD noCheck; const char* trace; } rows[] = {
        {"no algorithm", kCa, 0, "gg", [](Call&, Id* r) { r->HashAlgorithm.pszObjId = nullptr; }, 0, 87, "77", 9, bad},
        {"empty name hash", kCa, 0, "gg", [](Call&, Id* r) { r->IssuerNameHash.cbData = 0; }, 0, 87, "77", 9, bad},
        {"no key hash", kCa, 0, "gg", [](Call&, Id* r) { r->IssuerKeyHash.pbData = nullptr; }, 0, 87, "77", 9, bad},
        {"empty serial", kCa, 0, "gg", [](Call&, Id* r) { r->SerialNumber.cbData = 0; }, 0, 87, "77", 9, bad},
        {"key hash at the name hash", kCa, 0, "gg",
         [](Call&, Id* r) { r->IssuerKeyHash.pbData = r->IssuerNameHash.pbData; }, 0, 87, "77", 9, bad},
        {"serial at the algorithm text", kCa, 0, "gg",
         [](Call&, Id* r) { r->SerialNumber.pbData = reinterpret_cast<BYTE*>(r->HashAlgorithm.pszObjId); }, 0, 87, "77",
         9, bad},
        {"equal contents at other addresses", kCa, 0, "gg",
         [](Call&, Id* r) {
             r->HashAlgorithm.pszObjId = oid;
             r->SerialNumber = {sizeof sameText, reinterpret_cast<BYTE*>(sameText)};
             std::copy(r->IssuerNameHash.pbData, r->IssuerNameHash.pbData + sizeof sameHash, sameHash);
             r->IssuerKeyHash = {sizeof sameHash, sameHash};
         },
         1, kSentinel, "11", 0, ""},
        {"a count without records", kCa, 0, "", [](Call& c, Id*) { c.extraPara.cCertId = 1; }, 0, 87, "", 9, bad},
        {"extra parameter too long", kEe, 0, "f", [](Call& c, Id*) { ++c.extraPara.cbSize; }, 0, 87, "7", 9, size},
        {"callback covered", kEe, 0, "f", nullptr, 1, kSentinel, "1", 0, ""},
        {"callback cut short", kEe, 0, "f", [](Call& c, Id*) { --c.extraPara.cbSize; }, 1, kSentinel, "0", 0, ""},
        {"no callback field", kEe, 0, "f",
         [](Call& c, Id*) { c.extraPara.cbSize = offsetof(OcspPara, pfnAnyCertAuthorized); }, 1, kSentinel, "0", 0, ""},
        {"flags 0xFFFF", kEe, 0, "", [](Call& c, Id*) { c.para.dwFlags = 0xFFFF; }, 1, kSentinel, "", 0, ""},
        {"flags 0xFFFF, nocheck", kEe, 1, "", [](Call& c, Id*) { c.para.dwFlags = 0xFFFF; }, 1, kSentinel, "", 1, ""},
        {"flags 0x10000", kEe, 0, "", [](Call& c, Id*) { c.para.dwFlags = 0x10000; }, 0, 87, "", 0, flags},
        {"flags 0x10000, nocheck", kEe, 1, "", [](Call& c, Id*) { c.para.dwFlags = 0x10000; }, 0, 87, "", 1, flags},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Responder r(row.kind, false, row.nocheck);
        CertIds ids;
        for (const char* p = row.ids; *p; ++p)
            r.add(ids, *p);
        Call call(ids, true);
        call.extraPara.pfnAnyCertAuthorized = authorizeAll;
        if (row.change)
            row.change(call, ids.recs.size() > 1 ? &ids.recs[1] : nullptr);
        TraceCapture trace;
        call.run(r);
        EXPECT_EQ(std::make_tuple(call.ok, call.lastError, call.text, call.extra.fOcspNoCheck),
                  std::make_tuple(row.ok, row.lastError, std::string(row.checked), row.noCheck));
        EXPECT_NE(trace.text().find(row.trace), std::string::npos) << trace.text();
    }
}

// Each algorithm is hashed once a call; an inner policy that cannot run makes the callback
// FALSE, its status merged first.
TEST(OcspPolicy, HashingOnceAndInnerFailure) {
    Responder r(kEe);
    CertIds ids;
    for (int i = 0; i < 10; ++i)
        r.add(ids, 'g', i % 2 ? kSha1 : kGost2012);
    Call call(ids, true);
    const DWORD before = hashes();
    call.run(r);
    EXPECT_EQ(std::make_tuple(call.ok, call.text, hashes() - before), std::make_tuple(TRUE, std::string(10, '1'), 4u));
    CertIds none;
    Call failing(none, false);
    PkupScript fails{FALSE, ERROR_INVALID_PARAMETER, 0x800B0101u};  // an inner policy that cannot run
    qvfake_set_pkup_hook(pkupHook, &fails);
    failing.run(r);
    EXPECT_EQ(std::make_tuple(failing.ok, failing.lastError, failing.status.dwError),
              std::make_tuple(FALSE, 0x80070057u, 0x800B0101u));
    qvfake_reset();
}

// A derived checker decides how entries are made; one that makes none is E_UNEXPECTED.
struct LazyChecker : CCertIDChecker {
    LazyChecker() : CCertIDChecker(false, CBlob(), CBlob()) {}
    void createEntry(const CAlgorithmIdentifierEx&) const override {}
};

// One pair of hashes per algorithm text (sha1WithRSAEncryption is an entry of its own); a
// failed hash stores nothing; a required key that is empty is refused before any hashing.
TEST(OcspPolicy, CertIdCheckerCache) {
    qvfake_reset();
    const Bytes key = hex("04A1A2A3"), nameHash = hashOf(kSha1, kIssuerName), keyHash = hashOf(kSha1, key);
    const CBlob nameBlob(kIssuerName.data(), kIssuerName.size()), keyBlob(key.data(), key.size());
    const DWORD start = qvfake_prov_calls();
    EXPECT_EQ(thrownHr([&] { CCertIDChecker(true, nameBlob, CBlob()); }), E_INVALIDARG);
    EXPECT_EQ(qvfake_prov_calls(), start);
    const CCertIDChecker checker(true, nameBlob, keyBlob);
    const CAlgorithmIdentifierEx sha1(kSha1);
    qvfake_prov_fail_next("CryptHashData", 0x80090002u);
    EXPECT_EQ(thrownHr([&] { checker.findEntry(sha1); }), HRESULT(0x80090002u));
    const DWORD before = hashes();
    const auto& entry = checker.findEntry(sha1);
    EXPECT_EQ(std::make_tuple(hexOf(entry.second.first), hexOf(entry.second.second), sha1.get_algId()),
              std::make_tuple(toHex(nameHash.data(), 20), toHex(keyHash.data(), 20), ALG_ID(CALG_SHA1)));
    EXPECT_EQ(&checker.findEntry(CAlgorithmIdentifierEx(kSha1)), &entry);
    const auto& other = checker.findEntry(CAlgorithmIdentifierEx("1.2.840.113549.1.1.5"));
    EXPECT_EQ(std::make_tuple(&other != &entry, other.second.first == entry.second.first, hashes() - before),
              std::make_tuple(true, true, 4u));
    EXPECT_THROW(checker.findEntry(CAlgorithmIdentifierEx("1.2.3.4")), ATL::CAtlException) << "no ALG_ID";
    EXPECT_EQ(CCertIDChecker(false, nameBlob, CBlob()).findEntry(sha1).second.second.cbData(), 0u) << "no key hash";
    EXPECT_EQ(thrownHr([] { LazyChecker().findEntry(CAlgorithmIdentifierEx(kSha1)); }), HRESULT(0x8000FFFFu));
}

}  // namespace
