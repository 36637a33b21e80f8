// The basic-constraints policy on hand-made contexts over the fake platform: its outcome
// table with the exact trace of each row, and the decoder call.
#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

using namespace testsupport;

namespace {

const DWORD kSentinel = 0x0BADF00Du, kTrustE = 0x80096019u;
const char *kBC2 = "2.5.29.19", *kBC1 = "2.5.29.10", *kCA = "30030101FF", *kNotCA = "3000";
typedef std::vector<std::pair<const char*, const char*>> Extensions;
typedef std::tuple<BOOL, DWORD, LONG, LONG, DWORD> Outcome;  // result, dwError, indices, last error

// The end certificate with these extensions, then elements - 1 more certificates. The
// parameter record's size and extra pointer are not looked at; an extra status is neither
// checked nor initialised.
Outcome run(const Extensions& extensions, DWORD flags, DWORD elements = 1, DWORD trust = 0, bool withPara = true,
            DWORD paraSize = sizeof(CERT_CHAIN_POLICY_PARA), DWORD statusSize = sizeof(CERT_CHAIN_POLICY_STATUS)) {
    FakeCert end, other;
    for (const auto& e : extensions)
        end.addExtension(e.first, hex(e.second));
    std::vector<PCCERT_CONTEXT> certs(elements, other.context());
    certs[0] = end.context();
    FakeChain chain(certs, trust);
    int garbage = 12345;
    CERT_CHAIN_POLICY_PARA para{paraSize, flags, &garbage};
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extra{3, 0x77, 5, 6};
    CERT_CHAIN_POLICY_STATUS status{statusSize, 0x11, 0x22, 0x33, &extra};
    SetLastError(kSentinel);
    const BOOL r = CertDllVerifyBasicConstraintsCertificateChainPolicy(
        CERT_CHAIN_POLICY_BASIC_CONSTRAINTS, chain.get(), withPara ? &para : nullptr, &status);
    EXPECT_EQ(std::make_tuple(extra.cbSize, extra.dwError, extra.lChainIndex), std::make_tuple(3u, 0x77u, 5));
    return Outcome{r, status.dwError, status.lChainIndex, status.lElementIndex, GetLastError()};
}

class BasicConstraints : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

// One row per line of the outcome table and per edge case, each with a parameter record
// of the right size and of size 0, and with trace off and on: the records are the same.
TEST_F(BasicConstraints, OutcomeTable) {
    const std::string start = "CertDllVerifyBasicConstraintsCertificateChainPolicy|Start\n",
                      proxy = "CertDllVerifyCertificateChainPolicyProxy|", finish = proxy + "Finish. Returning TRUE.\n",
                      setError = "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x80096019, "
                                 "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n",
                      stops = "ReportError|Error encountered and no extra status supplied. Other checks must not be "
                              "performed - returning true.\n";
    auto caughtOf = [&](const char* hr) {
        return proxy + "CAtlException caught (m_hr=0x" + hr + ") - setting last error and returning FALSE\n";
    };
    typedef std::vector<std::string> Lines;
    const Lines passes{start, finish}, fails{start, setError, stops, finish},
        selfSigned{start, "BasicConstraintsImpl|Self-signed certificate without BASIC CONSTRAINTS can be CA\n", finish},
        undecodable{start, setError, stops, caughtOf("8009310b")},
        notImplemented{start,
                       "BasicConstraintsImpl|Check for BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_END_ENTITY_FLAG only is not "
                       "implemented .\n",
                       setError, stops, caughtOf("80004001")};
    const Outcome pass{TRUE, 0, -1, -1, kSentinel}, fail{TRUE, kTrustE, 0, 0, kSentinel},
        failNotImpl{FALSE, kTrustE, 0, 0, 0x80004001u};
    const DWORD ca = 0x80000000u, partial = CERT_TRUST_IS_PARTIAL_CHAIN;
    const struct {
        const char* name;
        Extensions extensions;
        DWORD flags, elements, trust;
        bool withPara;
        Outcome expected;
        const Lines& trace;
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
        {"undecodable value", {{kBC2, "0403010203"}}, ca, 1, 0, true, {FALSE, kTrustE, 0, 0, 0x8009310Bu}, undecodable},
        {"value cut short", {{kBC2, "31"}}, ca, 1, 0, true, {FALSE, kTrustE, 0, 0, 0x8009310Bu}, undecodable},
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
            EXPECT_EQ(run(row.extensions, row.flags, row.elements, row.trust, row.withPara, paraSize), row.expected);
            TraceCapture capture;
            EXPECT_EQ(run(row.extensions, row.flags, row.elements, row.trust, row.withPara, paraSize), row.expected);
            EXPECT_EQ(capture.lines(), row.trace);
        }
    }
    // A status of the wrong size is refused and left as it was.
    const DWORD good = sizeof(CERT_CHAIN_POLICY_STATUS);
    for (DWORD size : {DWORD(0), good - 1, good + 1, DWORD(0xFFFFFFFFu)}) {
        TraceCapture capture;
        EXPECT_EQ(run({}, ca, 2, 0, true, sizeof(CERT_CHAIN_POLICY_PARA), size),
                  (Outcome{FALSE, 0x11, 0x22, 0x33, 87}));
        EXPECT_EQ(capture.lines(), (Lines{start,
                                          "CheckAndInitPolicyStatus|Unknown pPolicyStatus structure "
                                          "(sizeof(*pPolicyStatus) != pPolicyStatus->cbSize)\n",
                                          caughtOf("00000057")}));
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
    ++rec->calls;
    rec->encoding = enc;
    rec->type = type;
    rec->flags = flags;
    rec->sizeIn = *pcb;
    rec->bytes.assign(pb, pb + cb);
    rec->zeroed = info->fCA == 0 && info->fPathLenConstraint == 0 && info->dwPathLenConstraint == 0;
    info->fCA = TRUE;
    if (rec->failWith == 0xFFFFFFFFu)
        return TRUE;
    SetLastError(rec->failWith);
    return FALSE;
}

// Either extension is decoded by the current rule into a zeroed 12-byte record; a
// decoder error comes back in HRESULT form after the failure was recorded.
TEST_F(BasicConstraints, DecoderCall) {
    const struct {
        const char* oid;
        DWORD failWith, lastError;
    } rows[] = {{kBC1, 0xFFFFFFFFu, kSentinel}, {kBC2, 13, 0x8007000Du}, {kBC2, 87, 0x80070057u},
                {kBC2, 0x8009310Bu, 0x8009310Bu}, {kBC2, 0, 0}};
    for (const auto& row : rows) {
        DecodeCall rec{row.failWith};
        qvfake_set_decode_hook(recordingDecoder, &rec);
        const bool ok = row.failWith == 0xFFFFFFFFu;
        EXPECT_EQ(run({{row.oid, "30050303060780"}}, 0x80000000u),
                  (Outcome{ok, ok ? 0 : kTrustE, ok ? -1 : 0, ok ? -1 : 0, row.lastError}))
            << row.oid << " " << row.failWith;
        EXPECT_EQ(std::make_tuple(rec.calls, rec.encoding, rec.type, rec.flags, rec.sizeIn, rec.zeroed, rec.bytes),
                  std::make_tuple(1, 0x10001u, std::string("2.5.29.19"), 0u, 12u, true, hex("30050303060780")));
    }
}

}  // namespace
