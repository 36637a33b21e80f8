// Trace lines: their exact texts and labels, and that trace changes no result.
#include "policies/chain_policies.h"
#include "policies/frame.h"
#include "qvfake.h"
#include "support/testsupport.h"

using namespace testsupport;

namespace {

std::string hexWord(const void* p) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}

struct Records {
    BOOL result;
    CERT_CHAIN_POLICY_STATUS status;
    DWORD lastError;
    bool operator==(const Records& o) const {
        return result == o.result && status.dwError == o.status.dwError &&
               status.lChainIndex == o.status.lChainIndex &&
               status.lElementIndex == o.status.lElementIndex && lastError == o.lastError;
    }
};

Records runBasicConstraints(FakeCert& cert, DWORD flags, DWORD statusSize = sizeof(CERT_CHAIN_POLICY_STATUS)) {
    FakeChain chain({cert.context(), cert.context()});
    CERT_CHAIN_POLICY_PARA para{sizeof para, flags, nullptr};
    Records r{};
    r.status = CERT_CHAIN_POLICY_STATUS{statusSize, 5, 5, 5, nullptr};
    SetLastError(0x0BADF00Du);
    r.result = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS,
                                                                   chain.get(), &para, &r.status);
    r.lastError = GetLastError();
    return r;
}

TEST(Trace, OffAndOnGiveTheSameRecords) {
    qvfake_reset();
    FakeCert ca, leaf, bad;
    ca.addExtension("2.5.29.19", hex("30030101FF"));
    leaf.addExtension("2.5.29.19", hex("3000"));
    bad.addExtension("2.5.29.19", hex("31"));
    const DWORD flagsList[] = {0x80000000u, 0x40000000u, 0, 0xC0000000u};
    for (FakeCert* c : {&ca, &leaf, &bad}) {
        for (DWORD flags : flagsList) {
            ASSERT_EQ(chainvet_db_ctx, nullptr);
            Records off = runBasicConstraints(*c, flags);
            Records offBadSize = runBasicConstraints(*c, flags, 3);
            TraceCapture capture;
            Records on = runBasicConstraints(*c, flags);
            Records onBadSize = runBasicConstraints(*c, flags, 3);
            EXPECT_TRUE(off == on) << flags;
            EXPECT_TRUE(offBadSize == onBadSize) << flags;
            EXPECT_FALSE(capture.text().empty());
        }
    }
}

TEST(Trace, ContextPresentButLevelOffPrintsNothing) {
    TSupportDbContext_* saved = chainvet_db_ctx;
    TSupportDbContext_* quiet = support_print_init_memory("quiet", 0x7 /* everything but 8 */);
    chainvet_db_ctx = quiet;
    FakeCert leaf;
    runBasicConstraints(leaf, 0x80000000u);
    EXPECT_STREQ(support_print_memory_text(quiet), "");
    chainvet_db_ctx = saved;
    support_print_done(quiet);
}

TEST(Trace, BasicConstraintsFailureLines) {
    FakeCert leaf;
    leaf.addExtension("2.5.29.19", hex("3000"));
    TraceCapture capture;
    runBasicConstraints(leaf, 0x80000000u);
    std::vector<std::string> expected = {
        "CertDllVerifyBasicConstraintsCertificateChainPolicy|Start\n",
        "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x80096019, "
        "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n",
        "ReportError|Error encountered and no extra status supplied. Other checks must not be "
        "performed - returning true.\n",
        "CertDllVerifyCertificateChainPolicyProxy|Finish. Returning TRUE.\n",
    };
    EXPECT_EQ(capture.lines(), expected);
}

TEST(Trace, SelfSignedRootAndEndEntityFlagLines) {
    FakeCert root;
    {
        FakeChain chain({root.context()});
        CERT_CHAIN_POLICY_PARA para{sizeof para, 0x80000000u, nullptr};
        CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
        TraceCapture capture;
        CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS,
                                                            chain.get(), &para, &status);
        std::vector<std::string> expected = {
            "CertDllVerifyBasicConstraintsCertificateChainPolicy|Start\n",
            "BasicConstraintsImpl|Self-signed certificate without BASIC CONSTRAINTS can be CA\n",
            "CertDllVerifyCertificateChainPolicyProxy|Finish. Returning TRUE.\n",
        };
        EXPECT_EQ(capture.lines(), expected);
    }
    TraceCapture capture;
    runBasicConstraints(root, 0x40000000u);
    std::vector<std::string> expected = {
        "CertDllVerifyBasicConstraintsCertificateChainPolicy|Start\n",
        "BasicConstraintsImpl|Check for BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_END_ENTITY_FLAG only is "
        "not implemented .\n",
        "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x80096019, "
        "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n",
        "ReportError|Error encountered and no extra status supplied. Other checks must not be "
        "performed - returning true.\n",
        "CertDllVerifyCertificateChainPolicyProxy|CAtlException caught (m_hr=0x80004001) - setting "
        "last error and returning FALSE\n",
    };
    EXPECT_EQ(capture.lines(), expected);
}

TEST(Trace, BadStatusSizeLines) {
    FakeCert leaf;
    TraceCapture capture;
    runBasicConstraints(leaf, 0x80000000u, 1);
    std::vector<std::string> expected = {
        "CertDllVerifyBasicConstraintsCertificateChainPolicy|Start\n",
        "CheckAndInitPolicyStatus|Unknown pPolicyStatus structure (sizeof(*pPolicyStatus) != "
        "pPolicyStatus->cbSize)\n",
        "CertDllVerifyCertificateChainPolicyProxy|CAtlException caught (m_hr=0x00000057) - setting "
        "last error and returning FALSE\n",
    };
    EXPECT_EQ(capture.lines(), expected);
}

void unknownThrow(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS) {
    throw 1;
}

TEST(Trace, FrameLines) {
    using namespace chainvet::policy;
    TraceCapture capture;
    CERT_CHAIN_POLICY_STATUS s{sizeof s, 0, 0, 0, nullptr};
    CertDllVerifyCertificateChainPolicyProxy(nullptr, nullptr, nullptr, &s, unknownThrow);
    EXPECT_EQ(capture.lines(), std::vector<std::string>{
                                   "CertDllVerifyCertificateChainPolicyProxy|Unknown exception caught - "
                                   "setting last error and returning FALSE\n"});
    capture.clear();

    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extra{3, 0, 0, 0};
    CERT_CHAIN_POLICY_STATUS s2{sizeof s2, 0, 0, 0, &extra};
    EXPECT_THROW(CheckInitAndGetExtraStatus<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS>(&s2),
                 ATL::CAtlException);
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{
                  "CheckInitAndGetExtraStatus|pExtraStatus = " + hexWord(&extra) + "\n",
                  "CheckInitAndGetExtraStatus|Unknown pExtraStatus structure (sizeof(*pExtraStatus) != "
                  "pExtraStatus->cbSize)\n"}));
    capture.clear();

    EXPECT_EQ(CheckAndGetExtraPara<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA>(nullptr), nullptr);
    CERT_CHAIN_POLICY_PARA badPara{1, 0, nullptr};
    EXPECT_THROW(CheckAndGetExtraPara<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA>(&badPara),
                 ATL::CAtlException);
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA big{1000, nullptr};
    CERT_CHAIN_POLICY_PARA bigPara{sizeof bigPara, 0, &big};
    EXPECT_THROW(CheckAndGetExtraPara<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA>(&bigPara),
                 ATL::CAtlException);
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ok{0, nullptr};
    CERT_CHAIN_POLICY_PARA okPara{sizeof okPara, 0, &ok};
    CheckAndGetExtraPara<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA>(&okPara);
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{
                  "CheckAndGetExtraPara|pPolicyPara is NULL\n",
                  "CheckAndGetExtraPara|Unknown pPolicyPara structure (sizeof(*pPolicyPara) != "
                  "pPolicyPara->cbSize)\n",
                  "CheckAndGetExtraPara|Unknown pExtraPara structure (sizeof(*pExtraPara) != "
                  "pExtraPara->cbSize)\n",
                  "CheckAndGetExtraPara|pExtraPara = " + hexWord(&ok) + "\n"}));
    capture.clear();

    CERT_CHAIN_POLICY_STATUS inner{sizeof inner, 0x800B0110u, 1, 2, nullptr};
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS innerExtra{16, 0x4, 3, 4};
    QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS outerExtra{16, 0, -1, -1};
    CERT_CHAIN_POLICY_STATUS outer{sizeof outer, 0, -1, -1, &outerExtra};
    ReportError(&outer, &outerExtra, &inner, &innerExtra);
    ReportError(&outer, &outerExtra, CERT_E_WRONG_USAGE, 0x20);
    outer.pvExtraPolicyStatus = nullptr;
    CERT_CHAIN_POLICY_STATUS clean{sizeof clean, 0, -1, -1, nullptr};
    ReportError<QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS,
                QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS>(&outer, nullptr, &clean, nullptr);
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{
                  "ReportError|pOtherPolicyStatus->dwError = 0x800b0110\n",
                  "ReportError|pOtherPolicyStatus->lChainIndex = 1, pOtherPolicyStatus->lElementIndex = 2\n",
                  "ReportError|pOtherExtraStatus->dwError = 0x00000004\n",
                  "ReportError|pOtherExtraStatus->lChainIndex = 3, pOtherExtraStatus->lElementIndex = 4\n",
                  "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n",
                  "ReportError|Extra status was supplied. Setting pExtraStatus->dwError |= 0x00000020\n",
                  "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n",
                  "ReportError|No error encountered. Other checks can be performed - returning false.\n"}));
}

TEST(Trace, TracingNeverChangesTheLastError) {
    TraceCapture capture;
    SetLastError(0x1234);
    support_dprint_print_(chainvet_db_ctx, "%s\n", "", 1, "f", "x");
    EXPECT_EQ(GetLastError(), 0x1234u);
}

TEST(Trace, InitializerClosesThePreviousContextAndClearsOnDestruction) {
    TSupportDbContext_* ctx = nullptr;
    {
        DbTraceInitializer first("first", ctx);
        TSupportDbContext_* firstCtx = ctx;
        ASSERT_NE(firstCtx, nullptr);
        EXPECT_TRUE(support_print_is(ctx, 8));
        DbTraceInitializer second("second", ctx);
        EXPECT_NE(ctx, nullptr);
        // Both objects hold the same variable; the first's destructor finds it cleared.
    }
    EXPECT_EQ(ctx, nullptr);
}

}  // namespace
