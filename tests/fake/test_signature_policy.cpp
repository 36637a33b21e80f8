// The signature and timestamp-signing policies over the fake platform, on hand-made
// certificate contexts, with the stand-in's private-key-usage-period policy (scripted or
// its own), Key Usage decoding and IsValidByApplicationUsage under them.
#include "core/strings.h"
#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <cstring>

using namespace testsupport;

namespace {

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;
const DWORD kSentinel = 0x0BADF00Du, kWrongUsage = 0x800B0110u, kExpired = 0x800B0101u, kMore = ERROR_MORE_DATA;
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

// The expected Outcome with or without an extra status: the policy's own failure in the
// status (indices 0) or as bits; an inner one as the script put it (3, 4 and 5, 6). The
// call succeeds where the last error stays, or is the 234 of a decoder asked again.
Outcome expected(bool withExtra, DWORD lastError, DWORD dwError, DWORD extraBits, DWORD pkupError, DWORD pkupBits) {
    const BOOL ok = lastError == kSentinel || lastError == kMore;
    if (withExtra)
        return Outcome{ok, lastError, 0, -1, -1, extraBits, pkupBits ? 5 : -1, pkupBits ? 6 : -1};
    const LONG index = !dwError ? -1 : pkupError ? 3 : 0;
    return Outcome{ok, lastError, dwError, index, index == 3 ? 4 : index, 0x77, 0x55, 0x66};
}

// What the private-key-usage-period policy was handed, and what it answers.
struct PkupScript {
    BOOL result = TRUE;
    DWORD lastError = 0, dwError = 0, extraBits = 0;
    int calls = 0;
    std::string oid{};
    CERT_CHAIN_POLICY_PARA para{};
    ExtraPara extraPara{};
    DWORD statusCbSize = 0, extraStatusCbSize = 0;  // 0: no extra status
};

BOOL pkupHook(void* user, LPCSTR oid, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA para,
              PCERT_CHAIN_POLICY_STATUS status) {
    auto* s = static_cast<PkupScript*>(user);
    ++s->calls;
    s->oid = oid;
    s->para = *para;
    if (para->pvExtraPolicyPara)
        s->extraPara = *static_cast<ExtraPara*>(para->pvExtraPolicyPara);
    s->statusCbSize = status->cbSize;
    *status = CERT_CHAIN_POLICY_STATUS{status->cbSize, s->dwError, s->dwError ? 3 : -1, s->dwError ? 4 : -1,
                                       status->pvExtraPolicyStatus};
    if (auto* extra = static_cast<ExtraStatus*>(status->pvExtraPolicyStatus)) {
        s->extraStatusCbSize = extra->cbSize;
        *extra = ExtraStatus{extra->cbSize, s->extraBits, s->extraBits ? 5 : -1, s->extraBits ? 6 : -1};
    }
    if (!s->result)
        SetLastError(s->lastError);
    return s->result;
}

// The string manager counts its allocations for the whole test.
class Policies : public ::testing::Test {
protected:
    void SetUp() override {
        qvfake_reset();
        m_saved = ATL::g_defaultStrMgr.GetMemoryManager();
        ATL::g_defaultStrMgr.SetMemoryManager(&heap);
    }
    void TearDown() override {
        ATL::g_defaultStrMgr.SetMemoryManager(m_saved);
        qvfake_reset();
    }
    // One end certificate with these EKU, Key Usage and usage period values (null: none);
    // the element's usage is what the EKU names, unless chainUsage is false.
    void certificate(const Eku* eku, const char* keyUsage, const char* period = nullptr, bool chainUsage = true) {
        cert = FakeCert();
        for (auto ext : {std::make_pair(szOID_ENHANCED_KEY_USAGE, eku ? eku->der : nullptr),
                         std::make_pair(szOID_PRIVATEKEY_USAGE_PERIOD, period),
                         std::make_pair(szOID_KEY_USAGE, keyUsage)})
            if (ext.second)
                cert.addExtension(ext.first, hex(ext.second));
        usage = (eku ? *eku : kEmpty).usage();
        chain.reset(new FakeChain({cert.context()}));
        if (eku && chainUsage)
            chain->element(0).pApplicationUsage = &usage;
    }
    // Runs a policy export with garbage in every field it must set.
    Outcome run(PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy, PCERT_CHAIN_POLICY_PARA p, bool withExtraStatus) {
        ExtraStatus extra{sizeof(ExtraStatus), 0x77, 0x55, 0x66};
        CERT_CHAIN_POLICY_STATUS status{sizeof status, 0x11, 0x22, 0x33, withExtraStatus ? &extra : nullptr};
        SetLastError(kSentinel);
        const BOOL ok = policy(nullptr, chain->get(), p, &status);
        return Outcome{ok, GetLastError(), status.dwError, status.lChainIndex, status.lElementIndex,
                       extra.dwError, extra.lChainIndex, extra.lElementIndex};
    }

    CountingHeap heap;
    PkupScript pkup;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};
    FakeCert cert;
    CERT_ENHKEY_USAGE usage{};
    std::unique_ptr<FakeChain> chain;

private:
    ATL::IAtlMemMgr* m_saved = nullptr;
};

// Rows of both policies' outcome tables, each with and without an extra status (traced).
// A Key Usage that fits into 32 bytes is decoded once, never through the fallback buffer.
// The inner records are built as the frame lays down: the flags handed on (the signature
// policy's unchanged, the timestamp policy's low 16 bits with 0x40000000), the extra
// parameter (declared here with cbSize 0, which passes) copied in full size. pkupError and
// pkupBits: the period policy's failure in the status and in the extra status; with
// pkupLastError it returns FALSE. dwError is expected without, extraBits with extra status.
TEST_F(Policies, OutcomeTables) {
    const char* noBits = "Key Usage extension does not contain neither digitalSignature nor nonRepudiation bits.\n";
    const char* innerFalse =
        "QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD check returned FALSE. Exception will be thrown.\n";
    const struct {
        PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY policy;
        const Eku* eku;
        const char* keyUsage;
        bool chainUsage;
        DWORD flags;
        bool withPara;
        DWORD pkupError, pkupBits, pkupLastError, lastError, dwError, extraBits;
        const char* trace;  // a line of SignatureImpl
    } rows[] = {
        {kSignature, nullptr, "03020080", true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},  // digitalSignature
        {kSignature, nullptr, nullptr, true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},  // no Key Usage, no limit
        {kSignature, nullptr, "03020040", true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},  // nonRepudiation
        {kSignature, nullptr, "030200C0", true, ~0u, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kSignature, nullptr, "03020020", true, ~0u, true, 0, 0, 0, kSentinel, kWrongUsage, 0x20, noBits},
        {kSignature, nullptr, "0302003F", true, ~0u, true, 0, 0, 0, kSentinel, kWrongUsage, 0x20, noBits},
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
        {kTimestamp, &kServer, nullptr, true, 0, true, 0, 0, 0x80092004u, 0x80092004u, 0, 0, innerFalse},
        // No EKU on the certificate: any purpose unless 0x20000; no chain usage: any unless 0x40000.
        {kTimestamp, nullptr, nullptr, true, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, nullptr, nullptr, true, 0x20000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x04, ""},
        {kTimestamp, nullptr, nullptr, true, 0x40000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x08, ""},
        {kTimestamp, nullptr, nullptr, true, 0x60000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x0C, ""},
        {kTimestamp, &kTs, nullptr, false, 0, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kTs, nullptr, false, 0x20000, true, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kTs, nullptr, false, 0x40000, true, 0, 0, 0, kSentinel, kWrongUsage, 0x08, ""},
        // Without a parameter record the relaxing arguments are TRUE (this library does not fault).
        {kTimestamp, nullptr, nullptr, true, 0, false, 0, 0, 0, kSentinel, 0, 0, ""},
        {kTimestamp, &kServer, nullptr, true, 0, false, 0, 0, 0, kSentinel, kWrongUsage, 0x0C, ""},
    };
    int marker = 0;
    ExtraPara extraPara{0, &marker};
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        const auto& row = rows[i];
        for (bool withExtra : {false, true}) {
            SCOPED_TRACE(testing::Message() << "row " << i << (withExtra ? ", extra status" : ", no extra status"));
            qvfake_reset();
            pkup = PkupScript{row.pkupLastError == 0, row.pkupLastError, withExtra ? 0 : row.pkupError, row.pkupBits};
            qvfake_set_pkup_hook(pkupHook, &pkup);
            certificate(row.eku, row.keyUsage, nullptr, row.chainUsage);
            para = CERT_CHAIN_POLICY_PARA{sizeof para, row.flags, row.withPara ? &extraPara : nullptr};
            std::unique_ptr<TraceCapture> trace(withExtra ? new TraceCapture : nullptr);  // half the runs untraced
            EXPECT_EQ(run(row.policy, row.withPara ? &para : nullptr, withExtra),
                      expected(withExtra, row.lastError, row.dwError, row.extraBits, row.pkupError, row.pkupBits));
            if (trace) {
                EXPECT_NE(trace->text().find(*row.trace ? std::string("SignatureImpl|") + row.trace : ""),
                          std::string::npos) << trace->text();
            }
            const bool signature = row.policy == kSignature;
            const bool stopped = row.pkupLastError || (!withExtra && row.pkupError);
            EXPECT_EQ(std::make_tuple(qvfake_decode_calls(), heap.allocations + heap.reallocations, pkup.calls, pkup.oid,
                                      pkup.para.cbSize, pkup.para.dwFlags, pkup.statusCbSize),
                      std::make_tuple(signature && row.keyUsage && !stopped ? 1u : signature ? 0u : qvfake_decode_calls(),
                                      0, 1, std::string(QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD), DWORD(sizeof para),
                                      signature ? row.flags : 0x40000000u | (row.flags & 0xFFFF),
                                      DWORD(sizeof(CERT_CHAIN_POLICY_STATUS))));
            EXPECT_EQ(std::make_tuple(pkup.extraPara.cbSize, pkup.extraPara.pvUsagePeriodArg, pkup.extraStatusCbSize),
                      std::make_tuple(row.withPara ? DWORD(sizeof(ExtraPara)) : 0u,
                                      static_cast<void*>(row.withPara ? &marker : nullptr), withExtra ? 16u : 0u));
        }
    }
}

// The timestamp policy permits 0x0006FFFF, with a hole at 0x10000; refused flags leave both
// statuses initialised. The extra parameter's pointer reaches the innermost policy
// unchanged through two levels, whatever the declared size up to the record's: cbSize 0, a
// pointer's size, the full size, or none linked.
TEST_F(Policies, TimestampFlagMaskAndExtraParameter) {
    certificate(&kTs, nullptr);
    qvfake_set_pkup_hook(pkupHook, &pkup);
    int moment = 0;
    const std::pair<DWORD, bool> rows[] = {{0x00010000u, false}, {0x00020000u, true},  {0x00040000u, true},
                                           {0x00060000u, true},  {0x0000FFFFu, true},  {0x0006FFFFu, true},
                                           {0x00080000u, false}, {0x40000000u, false}, {0x80000000u, false},
                                           {0x00070000u, false}, {0xFFFFFFFFu, false}};
    for (const auto& row : rows) {
        for (DWORD declared : {DWORD(0), DWORD(sizeof(void*)), DWORD(sizeof(ExtraPara)), DWORD(0xFFFFFFFFu)}) {
            const bool linked = declared != 0xFFFFFFFFu, withExtra = declared % 2 == 0;
            pkup = PkupScript();
            ExtraPara extra{declared, &moment};
            para = CERT_CHAIN_POLICY_PARA{sizeof para, row.first, linked ? &extra : nullptr};
            TraceCapture trace;
            EXPECT_EQ(run(kTimestamp, &para, withExtra), expected(withExtra, row.second ? kSentinel : 87u, 0, 0, 0, 0))
                << std::hex << row.first << " " << declared;
            EXPECT_EQ(std::make_tuple(pkup.calls, pkup.para.dwFlags, pkup.extraPara.pvUsagePeriodArg,
                                      trace.text().find("TimestampSigningImpl|pPolicyPara->dwFlags contains unknown "
                                                        "flags") != std::string::npos),
                      std::make_tuple(row.second ? 1 : 0, row.second ? (row.first & 0xFFFFu) | 0x40000000u : 0u,
                                      row.second && linked ? &moment : nullptr, !row.second));
        }
    }
}

// Bad records, for the signature policy and for the stand-in's period policy, which also
// refuses a short extra parameter. A refused status is left alone; a refused extra status
// too, after the signature policy initialised the status.
TEST_F(Policies, BadRecordsAreRefusedWith87) {
    const DWORD st = sizeof(CERT_CHAIN_POLICY_STATUS), pa = sizeof(CERT_CHAIN_POLICY_PARA), ep = sizeof(ExtraPara);
    const struct {
        DWORD statusSize, paraSize, extraParaSize, extraStatusSize;
        BOOL signatureOk, periodOk;
    } rows[] = {{st, pa, ep, 16, TRUE, TRUE},   {st + 1, pa, ep, 16, FALSE, FALSE}, {st - 4, pa, ep, 16, FALSE, FALSE},
                {st, pa, ep, 15, FALSE, FALSE}, {st, pa - 1, ep, 16, FALSE, FALSE}, {st, pa, ep + 1, 16, FALSE, FALSE},
                {st, pa, 0, 16, TRUE, FALSE}};
    certificate(nullptr, nullptr);
    for (const auto& row : rows) {
        for (auto policy : {kSignature, CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy}) {
            const bool signature = policy == kSignature;
            ExtraPara extraPara{row.extraParaSize, nullptr};
            para = CERT_CHAIN_POLICY_PARA{row.paraSize, 0, &extraPara};
            ExtraStatus extra{row.extraStatusSize, 0x77, 0x55, 0x66};
            CERT_CHAIN_POLICY_STATUS status{row.statusSize, 0x11, 0x22, 0x33, &extra};
            SetLastError(0);
            const BOOL ok = policy(nullptr, chain->get(), &para, &status);
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
TEST_F(Policies, KeyUsageDecoderFailures) {
    const std::string again =
        "SignatureImpl|Key Usage extension requires more than 32 bytes (notably, 100) to decode.\n";
    const std::string failed = "SignatureImpl|Key Usage extension could not be decoded.\n";
    const struct {
        DWORD firstError, need, secondError;
        BYTE bits;
        DWORD lastError, dwError;
        int calls, allocations;
        std::string trace;
    } rows[] = {
        {kMore, 100, 0, 0x80, kMore, 0, 2, 1, again},  // the last error stays as the decoder left it
        {kMore, 100, 0, 0x20, kMore, kWrongUsage, 2, 1, again},
        {kMore, 100, 13, 0x80, 0x8007000Du, 0, 2, 1, failed},
        {kMore, 0xFFFFFFF0u, 0, 0x80, 0x80070057u, 0, 1, 0, ""},  // beyond any string
        {5, 0, 0, 0, 0x80070005u, 0, 1, 0, failed},               {0x12345, 0, 0, 0, 0x80072345u, 0, 1, 0, failed},
        {0, 0, 0, 0, 0, 0, 1, 0, failed},                         {0x80093102u, 0, 0, 0, 0x80093102u, 0, 1, 0, failed},
    };
    certificate(nullptr, "03020020");
    for (const auto& row : rows) {
        for (bool traced : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.firstError << ", " << row.need << ", " << row.secondError);
            heap.allocations = heap.reallocations = heap.frees = 0;
            ScriptedDecode d{row.firstError, row.need, row.secondError, {row.bits}};
            qvfake_set_decode_hook(scriptedDecodeHook, &d);
            std::unique_ptr<TraceCapture> trace(traced ? new TraceCapture : nullptr);
            EXPECT_EQ(run(kSignature, &para, false), expected(false, row.lastError, row.dwError, 0, 0, 0));
            EXPECT_EQ(std::make_tuple(d.calls, d.secondSize, heap.allocations + heap.reallocations, int(heap.frees)),
                      std::make_tuple(row.calls, row.calls == 2 ? 100u : 0u, row.allocations, row.allocations));
            if (trace) {
                EXPECT_NE(trace->text().find(row.trace), std::string::npos) << trace->text();
            }
        }
    }
}

// The stand-in's private-key-usage-period policy under a Key Usage that fails too: with an
// extra status both failures come back at once, without one the period's ends the policy.
// The period is 2020-01-01 .. 2021-01-01 unless given; year 0: now; a malformed value
// (notBefore "2020") stops the policy with its last error.
TEST_F(Policies, UsagePeriodFailsByTheSideOfTheMoment) {
    const std::string both = "3022800F32303230303130313030303030305A810F32303231303130313030303030305A";
    const struct {
        std::string period;
        WORD year, month, day;
        DWORD bits, lastError;
    } rows[] = {
        {both, 2019, 12, 31, 0x01, kSentinel}, {both, 2020, 1, 1, 0, kSentinel}, {both, 2021, 1, 1, 0, kSentinel},
        {both, 2021, 1, 2, 0x02, kSentinel},   {both.substr(4, 34).insert(0, "3011"), 0, 0, 0, 0, kSentinel},
        {"3011810F32303030303130313030303030305A", 0, 0, 0, 0x02, kSentinel},  // ended in 2000
        {"3006800432303230", 0, 0, 0, 0, 0x8009310Bu},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.period << " at " << row.year << "-" << row.month << "-" << row.day);
        certificate(nullptr, "03020020", row.period.c_str());
        const SYSTEMTIME day{row.year, row.month, 0, row.day, 0, 0, 0, 0};
        FILETIME at{};
        SystemTimeToFileTime(&day, &at);
        ExtraPara extra{sizeof(ExtraPara), &at};
        para.pvExtraPolicyPara = row.year ? &extra : nullptr;
        const BOOL ok = row.lastError == kSentinel;
        const LONG index = row.bits ? 0 : -1;
        EXPECT_EQ(run(kSignature, &para, true),
                  (ok ? Outcome{TRUE, kSentinel, 0, -1, -1, row.bits | 0x20u, index, index}
                      : Outcome{FALSE, row.lastError, 0, -1, -1, 0, -1, -1}));
        EXPECT_EQ(run(kSignature, &para, false),
                  (ok ? Outcome{TRUE, kSentinel, row.bits ? kExpired : kWrongUsage, 0, 0, 0x77, 0x55, 0x66}
                      : Outcome{FALSE, row.lastError, 0, -1, -1, 0x77, 0x55, 0x66}));
    }
}

// The stand-in's Key Usage decoding under the size protocol: with NOCOPY the record alone,
// pointing into the caller's bytes; copying, the bits follow the record.
TEST(KeyUsageDecoding, SizeProtocolAndNoCopy) {
    qvfake_reset();
    const std::vector<uint8_t> value = hex("03020186");  // one unused bit, byte 0x86
    auto decode = [](const std::vector<uint8_t>& v, DWORD flags, void* out, DWORD* cb) {
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
    std::vector<uint8_t> out(cb);
    ASSERT_EQ(decode(value, 0, out.data(), &cb), TRUE);
    std::memcpy(&blob, out.data(), sizeof blob);
    EXPECT_EQ(std::make_tuple(cb, blob.pbData, blob.pbData[0]),
              std::make_tuple(DWORD(sizeof blob + 1), out.data() + sizeof blob, BYTE(0x86)));
    for (const char* bad : {"0400", "0300", "030108", "03020880", "0302", "0302018600", "03820001"}) {
        cb = sizeof blob;
        EXPECT_EQ(decode(hex(bad), CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb), FALSE) << bad;
        EXPECT_EQ(GetLastError(), 0x8009310Bu) << bad;
    }
}

// IsValidByApplicationUsage for the time-stamping purpose, each argument on its own:
// certificate EKU (null: none), chain usage (null: none at all), then the four flags.
TEST(IsValidByApplicationUsage, Table) {
    const struct {
        const char* name;
        const Eku *eku, *chain;
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
        FakeCert cert;
        if (row.eku)
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(row.eku->der));
        CERT_ENHKEY_USAGE usage = (row.chain ? *row.chain : kEmpty).usage();
        EXPECT_EQ(IsValidByApplicationUsage(cert.context(), row.chain ? &usage : nullptr, kTimeStamping,
                                            row.anyIfNoCert, row.anyIfNoChain, row.explicitOnly, row.both),
                  row.expected) << row.name;
    }
}

}  // namespace
