// The trace rule beyond single policies: a context whose level is off prints nothing,
// tracing keeps the last error, and the initializer's lifetime. The lines of each policy
// and of the frame are tested with them.
#include "core/trace.h"
#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

using namespace testsupport;

namespace {

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
