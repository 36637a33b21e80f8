// The timestamp-signing policy over the fake platform, and the stand-in's
// IsValidByApplicationUsage that it rests on.
#include "policy_script_c.h"

using namespace testsupport;
using namespace policyscript;

namespace {

const char* kTimeStamping = "1.3.6.1.5.5.7.3.8";

// An ExtKeyUsageSyntax value and the purposes it names.
struct Eku {
    const char* der;
    std::vector<std::string> oids;
};
const Eku kTs{"300A06082B06010505070308", {kTimeStamping}};
const Eku kServer{"300A06082B06010505070301", {"1.3.6.1.5.5.7.3.1"}};
const Eku kAny{"30060604551D2500", {"2.5.29.37.0"}};
const Eku kServerAndTs{"301406082B0601050507030106082B06010505070308", {"1.3.6.1.5.5.7.3.1", kTimeStamping}};
const Eku kUndecodable{"300406028080", {}};
const Eku kEmpty{nullptr, {}};

// A chain usage record over some purposes.
struct Usage {
    explicit Usage(const Eku& eku) : oids(eku.oids) {
        for (auto& s : oids)
            ptrs.push_back(&s[0]);
        usage = CERT_ENHKEY_USAGE{static_cast<DWORD>(ptrs.size()), ptrs.empty() ? nullptr : ptrs.data()};
    }
    std::vector<std::string> oids;
    std::vector<LPSTR> ptrs;
    CERT_ENHKEY_USAGE usage;
};

// A chain of one end certificate with this EKU (null: none) and Key Usage; the element's
// usage is what the EKU names, unless chainUsage is false.
struct EndEntity {
    EndEntity(const Eku* eku, const char* keyUsage = nullptr, bool chainUsage = true) : usage(eku ? *eku : kEmpty) {
        if (eku)
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(eku->der));
        if (keyUsage)
            cert.addExtension(szOID_KEY_USAGE, hex(keyUsage));
        chain.reset(new FakeChain({cert.context()}));
        if (eku && chainUsage)
            chain->element(0).pApplicationUsage = &usage.usage;
    }
    FakeCert cert;
    Usage usage;
    std::unique_ptr<FakeChain> chain;
};

class TimestampPolicy : public ::testing::Test {
protected:
    void SetUp() override {
        qvfake_reset();
        qvfake_set_pkup_hook(pkupHook, &pkup);
    }
    void TearDown() override { qvfake_reset(); }
    Outcome runTimestamp(const EndEntity& ee, PCERT_CHAIN_POLICY_PARA p, bool withExtraStatus) {
        return run(CertDllVerifyTimestampSigningCertificateChainPolicy, ee.chain->get(), p, withExtraStatus);
    }

    PkupScript pkup;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};
};

// Rows of the outcome table and of the relaxing flags, each with and without extra status.
TEST_F(TimestampPolicy, OutcomeTable) {
    const struct {
        const char* name;
        const Eku* eku;
        const char* keyUsage;
        bool chainUsage;
        DWORD flags;
        bool withPara;
        DWORD pkupError, pkupBits;  // the innermost policy's failure, in the status and in the extra status
        DWORD pkupLastError;        // non-zero: the innermost policy returns FALSE with it
        DWORD lastError, dwError;   // expected, the status without extra status
        DWORD extraBits;            // expected with extra status (the status stays 0, -1, -1)
    } rows[] = {
        {"all pass", &kTs, "03020780", true, 0, true, 0, 0, 0, kSentinel, 0, 0},
        {"all pass, purpose among others", &kServerAndTs, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0},
        {"all pass, anyExtendedKeyUsage", &kAny, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0},
        {"usage check fails", &kServer, nullptr, true, 0, true, 0, 0, 0, kSentinel, kWrongUsage, 0x0C},
        {"Key Usage fails, usage fine", &kTs, "03020520", true, 0, true, 0, 0, 0, kSentinel, kWrongUsage, 0x20},
        {"Key Usage and usage fail", &kServer, "03020520", true, 0, true, 0, 0, 0, kSentinel, kWrongUsage, 0x2C},
        // The period's failure comes back untouched; without extra status it skips the usage check.
        {"period and usage fail", &kServer, nullptr, true, 0, true, kExpired, 0x02, 0, kSentinel, kExpired, 0x0E},
        // FALSE from two levels down, merged through both before the throw; the usage check never ran.
        {"innermost FALSE with 87", &kServer, nullptr, true, 0, true, 0, 0x01, 87, 0x80070057u, 0, 0x01},
        {"innermost FALSE, negative", &kServer, nullptr, true, 0, true, 0, 0, 0x80092004u, 0x80092004u, 0, 0},
        // No EKU on the certificate: any purpose unless 0x20000; no chain usage: any unless 0x40000.
        {"no EKU", nullptr, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0},
        {"no EKU, 0x20000", nullptr, nullptr, true, 0x20000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x04},
        {"no EKU, 0x40000", nullptr, nullptr, true, 0x40000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x08},
        {"no EKU, 0x60000", nullptr, nullptr, true, 0x60000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x0C},
        {"no chain usage", &kTs, nullptr, false, 0, true, 0, 0, 0, kSentinel, 0, 0},
        {"no chain usage, 0x20000", &kTs, nullptr, false, 0x20000, true, 0, 0, 0, kSentinel, 0, 0},
        {"no chain usage, 0x40000", &kTs, nullptr, false, 0x40000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x08},
        // Without a parameter record the relaxing arguments are TRUE (this library does not fault).
        {"no parameter record", nullptr, nullptr, true, 0, false, 0, 0, 0, kSentinel, 0, 0},
        {"no parameter record, usage fails", &kServer, nullptr, true, 0, false, 0, 0, 0, kSentinel, kWrongUsage, 0x0C},
    };
    for (const auto& row : rows) {
        for (bool withExtra : {false, true}) {
            pkup = PkupScript();
            pkup.dwError = withExtra ? 0 : row.pkupError;
            pkup.extraBits = row.pkupBits;
            pkup.result = row.pkupLastError == 0;
            pkup.lastError = row.pkupLastError;
            para.dwFlags = row.flags;
            EndEntity ee(row.eku, row.keyUsage, row.chainUsage);
            EXPECT_EQ(runTimestamp(ee, row.withPara ? &para : nullptr, withExtra),
                      expected(withExtra, row.lastError, row.dwError, row.extraBits, row.pkupError, row.pkupBits))
                << row.name << (withExtra ? ", extra status" : ", no extra status");
            EXPECT_EQ(pkup.para.dwFlags, 0x40000000u | (row.flags & 0xFFFF)) << row.name;
        }
    }
}

// Permitted are 0x0006FFFF, with a hole at 0x10000; only the low 16 bits go on, always
// with 0x40000000. Refused flags leave both statuses initialised. The extra parameter's
// pointer reaches the innermost policy unchanged through two levels, whatever the
// declared size up to the record's.
TEST_F(TimestampPolicy, FlagMaskAndExtraParameter) {
    EndEntity ee(&kTs);
    int moment = 0;
    const struct {
        DWORD flags;
        bool accepted;
    } rows[] = {{0x00010000u, false}, {0x00020000u, true},  {0x00040000u, true},  {0x00060000u, true},
                {0x0000FFFFu, true},  {0x0006FFFFu, true},  {0x00080000u, false}, {0x40000000u, false},
                {0x80000000u, false}, {0x00070000u, false}, {0xFFFFFFFFu, false}};
    for (const auto& row : rows) {
        // Extra parameters declared with cbSize 0, a pointer's size, the full size, or none.
        for (DWORD declared : {DWORD(0), DWORD(sizeof(void*)), DWORD(sizeof(ExtraPara)), DWORD(0xFFFFFFFFu)}) {
            const bool linked = declared != 0xFFFFFFFFu, withExtra = declared % 2 == 0;
            pkup = PkupScript();
            ExtraPara extra{declared, &moment};
            para = CERT_CHAIN_POLICY_PARA{sizeof para, row.flags, linked ? &extra : nullptr};
            TraceCapture trace;
            EXPECT_EQ(runTimestamp(ee, &para, withExtra), expected(withExtra, row.accepted ? kSentinel : 87u, 0, 0, 0, 0))
                << std::hex << row.flags << " " << declared;
            void* arg = row.accepted && linked ? &moment : nullptr;
            EXPECT_EQ(std::make_tuple(pkup.calls, pkup.para.dwFlags, pkup.extraPara.pvUsagePeriodArg),
                      std::make_tuple(row.accepted ? 1 : 0, row.accepted ? (row.flags & 0xFFFFu) | 0x40000000u : 0u, arg));
            if (!row.accepted)
                EXPECT_NE(trace.text().find("TimestampSigningImpl|pPolicyPara->dwFlags contains unknown flags"),
                          std::string::npos);
        }
    }
}

// IsValidByApplicationUsage: each argument on its own.
TEST(IsValidByApplicationUsage, Table) {
    const struct {
        const char* name;
        const Eku* eku;    // certificate EKU (null: none)
        const Eku* chain;  // chain usage (null: none at all)
        BOOL anyIfNoCert, anyIfNoChain, explicitOnly, both;
        DWORD expected;
    } rows[] = {
        {"named in both", &kTs, &kTs, TRUE, TRUE, FALSE, TRUE, 0},
        {"named in both, explicit", &kTs, &kTs, FALSE, FALSE, TRUE, TRUE, 0},
        {"absent from both", &kServer, &kServer, TRUE, TRUE, FALSE, TRUE, 0x0C},
        {"absent from both, either suffices", &kServer, &kServer, TRUE, TRUE, FALSE, FALSE, 0x0C},
        {"any EKU counts", &kAny, &kAny, TRUE, TRUE, FALSE, TRUE, 0},
        {"any EKU does not count when explicit", &kAny, &kAny, TRUE, TRUE, TRUE, TRUE, 0x0C},
        {"no EKU, any purpose", nullptr, nullptr, TRUE, TRUE, FALSE, TRUE, 0},
        {"no EKU, not any purpose", nullptr, nullptr, FALSE, TRUE, FALSE, TRUE, 0x04},
        {"no EKU, null chain usage not any purpose", nullptr, nullptr, TRUE, FALSE, FALSE, TRUE, 0x08},
        {"empty chain usage counts as none", &kTs, &kEmpty, TRUE, FALSE, FALSE, TRUE, 0x08},
        {"empty chain usage, any purpose", &kTs, &kEmpty, TRUE, TRUE, FALSE, TRUE, 0},
        {"chain lacks it, both required", &kTs, &kServer, TRUE, TRUE, FALSE, TRUE, 0x08},
        {"chain lacks it, either suffices", &kTs, &kServer, TRUE, TRUE, FALSE, FALSE, 0},
        {"certificate lacks it, either suffices", &kServer, &kEmpty, TRUE, TRUE, FALSE, FALSE, 0},
        {"certificate lacks it, both required", &kServer, &kEmpty, TRUE, TRUE, FALSE, TRUE, 0x04},
        {"undecodable EKU grants nothing", &kUndecodable, nullptr, TRUE, TRUE, FALSE, TRUE, 0x04},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeCert cert;
        if (row.eku)
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(row.eku->der));
        Usage usage(row.chain ? *row.chain : kEmpty);
        EXPECT_EQ(IsValidByApplicationUsage(cert.context(), row.chain ? &usage.usage : nullptr, kTimeStamping,
                                            row.anyIfNoCert, row.anyIfNoChain, row.explicitOnly, row.both),
                  row.expected);
    }
}

}  // namespace
