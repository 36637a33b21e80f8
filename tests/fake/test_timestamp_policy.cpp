// The timestamp-signing policy over the fake platform, and the stand-in's
// IsValidByApplicationUsage that it rests on.
#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <string>

using namespace testsupport;

namespace {

const DWORD kSentinel = 0x0BADF00Du;
const DWORD kWrongUsage = 0x800B0110u;
const DWORD kExpired = 0x800B0101u;
const char* kTimeStamping = "1.3.6.1.5.5.7.3.8";

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

// ExtKeyUsageSyntax values.
const char* kEkuTimeStamping = "300A06082B06010505070308";    // id-kp-timeStamping
const char* kEkuServerAuth = "300A06082B06010505070301";      // id-kp-serverAuth
const char* kEkuAny = "30060604551D2500";                    // anyExtendedKeyUsage (2.5.29.37.0)
const char* kEkuServerAndTime = "301406082B0601050507030106082B06010505070308";

struct Result {
    BOOL ok;
    DWORD lastError;
    CERT_CHAIN_POLICY_STATUS status;
    ExtraStatus extra;
};

Result runTimestamp(PCCERT_CHAIN_CONTEXT chain, PCERT_CHAIN_POLICY_PARA para, bool withExtraStatus) {
    Result r{};
    r.extra = ExtraStatus{sizeof(ExtraStatus), 0x77, 0x55, 0x66};
    r.status = CERT_CHAIN_POLICY_STATUS{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33,
                                        withExtraStatus ? &r.extra : nullptr};
    SetLastError(kSentinel);
    r.ok = CertDllVerifyTimestampSigningCertificateChainPolicy(nullptr, chain, para, &r.status);
    r.lastError = GetLastError();
    return r;
}

// The innermost policy: records what reached it and answers as scripted.
struct PkupScript {
    int calls = 0;
    DWORD flags = 0;
    bool hadExtraPara = false;
    void* usagePeriodArg = nullptr;
    BOOL result = TRUE;
    DWORD lastError = 0;
    DWORD dwError = 0;
    DWORD extraBits = 0;
};

BOOL pkupHook(void* user, LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA para,
              PCERT_CHAIN_POLICY_STATUS status) {
    auto* s = static_cast<PkupScript*>(user);
    ++s->calls;
    s->flags = para->dwFlags;
    s->hadExtraPara = para->pvExtraPolicyPara != nullptr;
    s->usagePeriodArg = s->hadExtraPara ? static_cast<ExtraPara*>(para->pvExtraPolicyPara)->pvUsagePeriodArg
                                        : nullptr;
    auto* extra = static_cast<ExtraStatus*>(status->pvExtraPolicyStatus);
    status->dwError = s->dwError;
    status->lChainIndex = s->dwError ? 0 : -1;
    status->lElementIndex = s->dwError ? 0 : -1;
    if (extra) {
        extra->dwError = s->extraBits;
        extra->lChainIndex = s->extraBits ? 0 : -1;
        extra->lElementIndex = s->extraBits ? 0 : -1;
    }
    if (!s->result)
        SetLastError(s->lastError);
    return s->result;
}

// A chain of one end certificate whose element usage is what its EKU says.
struct EndEntity {
    explicit EndEntity(const char* ekuHex, const char* keyUsageHex = nullptr, bool chainUsage = true) {
        if (ekuHex) {
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(ekuHex));
        }
        if (keyUsageHex)
            cert.addExtension(szOID_KEY_USAGE, hex(keyUsageHex));
        chain.reset(new FakeChain({cert.context()}));
        if (chainUsage && ekuHex) {
            oids = ekuOids(ekuHex);
            for (auto& s : oids)
                ptrs.push_back(&s[0]);
            usage.cUsageIdentifier = static_cast<DWORD>(ptrs.size());
            usage.rgpszUsageIdentifier = ptrs.data();
            chain->element(0).pApplicationUsage = &usage;
        }
    }
    static std::vector<std::string> ekuOids(const std::string& h) {
        if (h == kEkuTimeStamping)
            return {kTimeStamping};
        if (h == kEkuServerAuth)
            return {"1.3.6.1.5.5.7.3.1"};
        if (h == kEkuAny)
            return {"2.5.29.37.0"};
        return {"1.3.6.1.5.5.7.3.1", kTimeStamping};
    }
    PCCERT_CHAIN_CONTEXT get() const { return chain->get(); }

    FakeCert cert;
    std::unique_ptr<FakeChain> chain;
    std::vector<std::string> oids;
    std::vector<LPSTR> ptrs;
    CERT_ENHKEY_USAGE usage{};
};

class TimestampPolicy : public ::testing::Test {
protected:
    void SetUp() override {
        qvfake_reset();
        qvfake_set_pkup_hook(pkupHook, &pkup);
    }
    void TearDown() override { qvfake_reset(); }

    PkupScript pkup;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};
};

// Rows of the outcome table, each with and without extra status.
struct OutcomeRow {
    const char* name;
    const char* eku;
    const char* keyUsage;
    DWORD pkupError;  // the innermost policy's failure (no extra status)
    DWORD pkupBits;   // and through the extra status
    DWORD dwError;    // expected without extra status
    DWORD extraBits;  // expected with extra status
};

const OutcomeRow kOutcomes[] = {
    {"all pass", kEkuTimeStamping, "03020780", 0, 0, 0, 0},
    {"all pass, purpose among others", kEkuServerAndTime, nullptr, 0, 0, 0, 0},
    {"all pass, anyExtendedKeyUsage", kEkuAny, nullptr, 0, 0, 0, 0},
    {"usage check fails", kEkuServerAuth, nullptr, 0, 0, kWrongUsage, 0x0C},
    {"signature policy fails (Key Usage), usage fine", kEkuTimeStamping, "03020520", 0, 0, kWrongUsage, 0x20},
    {"signature policy fails (Key Usage) and usage fails", kEkuServerAuth, "03020520", 0, 0, kWrongUsage, 0x2C},
    // The period failure comes back untouched and, without extra status, the usage check is skipped.
    {"signature policy fails (period), usage fails", kEkuServerAuth, nullptr, kExpired, 0x02, kExpired, 0x0E},
};

TEST_F(TimestampPolicy, OutcomeTable) {
    for (const OutcomeRow& row : kOutcomes) {
        for (bool withExtra : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (withExtra ? ", extra status" : ", no extra status"));
            pkup = PkupScript();
            pkup.dwError = withExtra ? 0 : row.pkupError;
            pkup.extraBits = row.pkupBits;
            EndEntity ee(row.eku, row.keyUsage);
            Result r = runTimestamp(ee.get(), &para, withExtra);
            EXPECT_EQ(r.ok, TRUE);
            EXPECT_EQ(r.lastError, kSentinel);
            if (!withExtra) {
                EXPECT_EQ(r.status.dwError, row.dwError);
                EXPECT_EQ(r.status.lChainIndex, row.dwError ? 0 : -1);
                EXPECT_EQ(r.status.lElementIndex, row.dwError ? 0 : -1);
                EXPECT_EQ(r.extra.dwError, 0x77u);
            } else {
                EXPECT_EQ(r.status.dwError, 0u);
                EXPECT_EQ(r.status.lChainIndex, -1);
                EXPECT_EQ(r.status.lElementIndex, -1);
                EXPECT_EQ(r.extra.dwError, row.extraBits);
                // Indices come only from an inner failure; the policy's own leave them.
                EXPECT_EQ(r.extra.lChainIndex, row.pkupBits ? 0 : -1);
            }
        }
    }
}

TEST_F(TimestampPolicy, FlagMask) {
    EndEntity ee(kEkuTimeStamping);
    struct Row {
        DWORD flags;
        bool accepted;
    } rows[] = {
        {0x00010000u, false}, {0x00020000u, true}, {0x00040000u, true}, {0x00060000u, true},
        {0x0000FFFFu, true},  {0x0006FFFFu, true}, {0x00080000u, false}, {0x40000000u, false},
        {0x80000000u, false}, {0x00070000u, false}, {0xFFFFFFFFu, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.flags);
        for (bool withExtra : {false, true}) {
            pkup = PkupScript();
            para.dwFlags = row.flags;
            TraceCapture trace;
            Result r = runTimestamp(ee.get(), &para, withExtra);
            if (row.accepted) {
                EXPECT_EQ(r.ok, TRUE);
                EXPECT_EQ(r.status.dwError, 0u);
                EXPECT_EQ(pkup.calls, 1);
                // Only the low 16 bits go on, always with 0x40000000.
                EXPECT_EQ(pkup.flags, (row.flags & 0xFFFFu) | 0x40000000u);
            } else {
                EXPECT_EQ(r.ok, FALSE);
                EXPECT_EQ(r.lastError, 87u);
                EXPECT_EQ(pkup.calls, 0);
                EXPECT_EQ(r.status.dwError, 0u);
                EXPECT_EQ(r.status.lChainIndex, -1);
                EXPECT_EQ(r.status.lElementIndex, -1);
                if (withExtra) {
                    EXPECT_EQ(r.extra.dwError, 0u);
                    EXPECT_EQ(r.extra.lChainIndex, -1);
                    EXPECT_EQ(r.extra.lElementIndex, -1);
                }
                EXPECT_NE(trace.text().find("TimestampSigningImpl|pPolicyPara->dwFlags contains unknown flags"),
                          std::string::npos);
            }
        }
    }
}

TEST_F(TimestampPolicy, RelaxingFlagsSelectTheUsageArguments) {
    // No EKU on the certificate: valid for any purpose unless 0x20000 asks otherwise.
    EndEntity noEku(nullptr);
    // An EKU with the purpose but no application usage on the element: valid unless 0x40000.
    EndEntity noChainUsage(kEkuTimeStamping, nullptr, false);
    struct Row {
        EndEntity* ee;
        DWORD flags;
        DWORD bits;
    } rows[] = {
        {&noEku, 0, 0},
        {&noEku, 0x20000, 0x04},
        {&noEku, 0x40000, 0x08},
        {&noEku, 0x60000, 0x0C},
        {&noChainUsage, 0, 0},
        {&noChainUsage, 0x20000, 0},
        {&noChainUsage, 0x40000, 0x08},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.flags);
        para.dwFlags = row.flags;
        Result r = runTimestamp(row.ee->get(), &para, true);
        EXPECT_EQ(r.ok, TRUE);
        EXPECT_EQ(r.extra.dwError, row.bits);
    }
}

TEST_F(TimestampPolicy, WithoutParameterRecordTheFlagsAreZero) {
    // The signature policy gets 0x40000000 alone; the usage check runs with both relaxing
    // arguments TRUE (this library does not fault on the missing record).
    EndEntity noEku(nullptr);
    Result r = runTimestamp(noEku.get(), nullptr, false);
    EXPECT_EQ(r.ok, TRUE);
    EXPECT_EQ(r.status.dwError, 0u);
    EXPECT_EQ(pkup.flags, 0x40000000u);
    EndEntity server(kEkuServerAuth);
    EXPECT_EQ(runTimestamp(server.get(), nullptr, false).status.dwError, kWrongUsage);
}

TEST_F(TimestampPolicy, ExtraParameterPointerReachesTheInnermostPolicyUnchanged) {
    EndEntity ee(kEkuTimeStamping);
    int moment = 0;
    for (DWORD declared : {DWORD(0), DWORD(sizeof(void*)), DWORD(sizeof(ExtraPara))}) {
        SCOPED_TRACE(declared);
        pkup = PkupScript();
        ExtraPara extra{declared, &moment};
        para.pvExtraPolicyPara = &extra;
        Result r = runTimestamp(ee.get(), &para, false);
        EXPECT_EQ(r.ok, TRUE);
        ASSERT_TRUE(pkup.hadExtraPara);
        EXPECT_EQ(pkup.usagePeriodArg, &moment);
    }
    para.pvExtraPolicyPara = nullptr;
    runTimestamp(ee.get(), &para, false);
    EXPECT_FALSE(pkup.hadExtraPara);
}

TEST_F(TimestampPolicy, InnerFalseWith87ComesOutAsInvalidArgHresult) {
    EndEntity ee(kEkuServerAuth);
    for (bool withExtra : {false, true}) {
        pkup = PkupScript();
        pkup.result = FALSE;
        pkup.lastError = ERROR_INVALID_PARAMETER;
        pkup.extraBits = 0x01;
        Result r = runTimestamp(ee.get(), &para, withExtra);
        EXPECT_EQ(r.ok, FALSE);
        EXPECT_EQ(r.lastError, 0x80070057u);
        EXPECT_EQ(r.status.dwError, 0u);
        // Merged through both levels before the throw; the usage check never ran.
        if (withExtra) {
            EXPECT_EQ(r.extra.dwError, 0x01u);
        }
    }
    // A negative inner error stands unchanged through both levels.
    pkup = PkupScript();
    pkup.result = FALSE;
    pkup.lastError = 0x80092004u;
    EXPECT_EQ(runTimestamp(ee.get(), &para, false).lastError, 0x80092004u);
}

TEST_F(TimestampPolicy, TraceOfTheNestedCall) {
    EndEntity ee(kEkuServerAuth);
    TraceCapture trace;
    Result r = runTimestamp(ee.get(), &para, true);
    ASSERT_EQ(r.ok, TRUE);
    const std::vector<std::string> expected = {
        "CertDllVerifyTimestampSigningCertificateChainPolicy|Start\n",
        "CertDllVerifySignatureCertificateChainPolicy|Start\n",
        "CertDllVerifyCertificateChainPolicyProxy|Finish. Returning TRUE.\n",
        "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n",
        "ReportError|Extra status was supplied. Setting pExtraStatus->dwError |= 0x0000000c\n",
        "ReportError|Extra status was supplied. Other checks can be performed - returning false.\n",
        "CertDllVerifyCertificateChainPolicyProxy|Finish. Returning TRUE.\n",
    };
    size_t at = 0;
    for (const std::string& line : trace.lines())
        if (at < expected.size() && line == expected[at])
            ++at;
    EXPECT_EQ(at, expected.size()) << trace.text();
}

// IsValidByApplicationUsage: each argument on its own.
struct UsageRow {
    const char* name;
    const char* eku;     // certificate EKU (null: none)
    int chain;           // -1 null usage, 0 empty usage, 1 the certificate's purposes, 2 serverAuth only
    BOOL anyIfNoCert, anyIfNoChain, explicitOnly, both;
    DWORD expected;
};

const UsageRow kUsage[] = {
    {"named in both", kEkuTimeStamping, 1, TRUE, TRUE, FALSE, TRUE, 0},
    {"named in both, explicit", kEkuTimeStamping, 1, FALSE, FALSE, TRUE, TRUE, 0},
    {"absent from both", kEkuServerAuth, 1, TRUE, TRUE, FALSE, TRUE, 0x0C},
    {"absent from both, either suffices", kEkuServerAuth, 1, TRUE, TRUE, FALSE, FALSE, 0x0C},
    {"any EKU counts", kEkuAny, 1, TRUE, TRUE, FALSE, TRUE, 0},
    {"any EKU does not count when explicit", kEkuAny, 1, TRUE, TRUE, TRUE, TRUE, 0x0C},
    {"no EKU, any purpose", nullptr, -1, TRUE, TRUE, FALSE, TRUE, 0},
    {"no EKU, not any purpose", nullptr, -1, FALSE, TRUE, FALSE, TRUE, 0x04},
    {"no EKU, null chain usage not any purpose", nullptr, -1, TRUE, FALSE, FALSE, TRUE, 0x08},
    {"empty chain usage counts as none", kEkuTimeStamping, 0, TRUE, FALSE, FALSE, TRUE, 0x08},
    {"empty chain usage, any purpose", kEkuTimeStamping, 0, TRUE, TRUE, FALSE, TRUE, 0},
    {"chain lacks it, both required", kEkuTimeStamping, 2, TRUE, TRUE, FALSE, TRUE, 0x08},
    {"chain lacks it, either suffices", kEkuTimeStamping, 2, TRUE, TRUE, FALSE, FALSE, 0},
    {"certificate lacks it, either suffices", kEkuServerAuth, 0, TRUE, TRUE, FALSE, FALSE, 0},
    {"certificate lacks it, both required", kEkuServerAuth, 0, TRUE, TRUE, FALSE, TRUE, 0x04},
    {"undecodable EKU grants nothing", "300406028080", -1, TRUE, TRUE, FALSE, TRUE, 0x04},
};

TEST(IsValidByApplicationUsage, Table) {
    for (const UsageRow& row : kUsage) {
        SCOPED_TRACE(row.name);
        FakeCert cert;
        if (row.eku)
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(row.eku));
        std::vector<std::string> oids;
        if (row.chain == 1)
            oids = EndEntity::ekuOids(row.eku);
        else if (row.chain == 2)
            oids = {"1.3.6.1.5.5.7.3.1"};
        std::vector<LPSTR> ptrs;
        for (auto& s : oids)
            ptrs.push_back(&s[0]);
        CERT_ENHKEY_USAGE usage{static_cast<DWORD>(ptrs.size()), ptrs.empty() ? nullptr : ptrs.data()};
        EXPECT_EQ(IsValidByApplicationUsage(cert.context(), row.chain < 0 ? nullptr : &usage, kTimeStamping,
                                            row.anyIfNoCert, row.anyIfNoChain, row.explicitOnly, row.both),
                  row.expected);
    }
}

}  // namespace
