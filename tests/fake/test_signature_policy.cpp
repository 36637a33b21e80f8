// The signature policy and the stand-in's private-key-usage-period policy over the fake
// platform, on hand-made certificate contexts.
#include "core/strings.h"
#include "policies/chain_policies.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <cstring>
#include <string>

using namespace testsupport;

namespace {

const DWORD kSentinel = 0x0BADF00Du;
const DWORD kWrongUsage = 0x800B0110u;
const DWORD kExpired = 0x800B0101u;

typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA ExtraPara;
typedef QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS ExtraStatus;

// KeyUsage values: a BIT STRING whose first content byte holds the bits.
std::vector<uint8_t> keyUsage(uint8_t firstByte) { return {0x03, 0x02, 0x00, firstByte}; }

// PrivateKeyUsagePeriod with GeneralizedTime bounds ("" leaves one out).
std::vector<uint8_t> usagePeriod(const std::string& notBefore, const std::string& notAfter) {
    std::vector<uint8_t> body;
    auto add = [&](uint8_t tag, const std::string& t) {
        if (t.empty())
            return;
        body.push_back(tag);
        body.push_back(static_cast<uint8_t>(t.size()));
        body.insert(body.end(), t.begin(), t.end());
    };
    add(0x80, notBefore);
    add(0x81, notAfter);
    body.insert(body.begin(), {0x30, static_cast<uint8_t>(body.size())});
    return body;
}

// FILETIME ticks of a UTC date at midnight.
FILETIME fileTime(int year, unsigned month, unsigned day) {
    int64_t y = year - (month <= 2);
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    const int64_t days = era * 146097 + static_cast<int64_t>(doe) - 719468;
    const uint64_t ticks = static_cast<uint64_t>((days * 86400 + 11644473600LL) * 10000000LL);
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

struct Result {
    BOOL ok;
    DWORD lastError;
    CERT_CHAIN_POLICY_STATUS status;
    ExtraStatus extra;
};

// Runs the export with garbage in every field it must initialise.
Result runSignature(PCCERT_CHAIN_CONTEXT chain, PCERT_CHAIN_POLICY_PARA para, bool withExtraStatus) {
    Result r{};
    r.extra = ExtraStatus{sizeof(ExtraStatus), 0x77, 0x55, 0x66};
    r.status = CERT_CHAIN_POLICY_STATUS{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33,
                                        withExtraStatus ? &r.extra : nullptr};
    SetLastError(kSentinel);
    r.ok = CertDllVerifySignatureCertificateChainPolicy(QVCERT_CHAIN_POLICY_SIGNATURE, chain, para, &r.status);
    r.lastError = GetLastError();
    return r;
}

// What the private-key-usage-period policy was handed, and what it answers.
struct PkupScript {
    int calls = 0;
    std::string oid;
    bool hadPara = false;
    CERT_CHAIN_POLICY_PARA para{};
    bool hadExtraPara = false;
    ExtraPara extraPara{};
    DWORD statusCbSize = 0;
    bool hadExtraStatus = false;
    DWORD extraStatusCbSize = 0;
    // The answer.
    BOOL result = TRUE;
    DWORD lastError = 0;
    DWORD dwError = 0;
    DWORD extraBits = 0;
};

BOOL pkupHook(void* user, LPCSTR oid, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA para,
              PCERT_CHAIN_POLICY_STATUS status) {
    auto* s = static_cast<PkupScript*>(user);
    ++s->calls;
    s->oid = oid ? oid : "";
    s->hadPara = para != nullptr;
    if (para) {
        s->para = *para;
        s->hadExtraPara = para->pvExtraPolicyPara != nullptr;
        if (s->hadExtraPara)
            s->extraPara = *static_cast<ExtraPara*>(para->pvExtraPolicyPara);
    }
    s->statusCbSize = status->cbSize;
    auto* extra = static_cast<ExtraStatus*>(status->pvExtraPolicyStatus);
    s->hadExtraStatus = extra != nullptr;
    status->dwError = 0;
    status->lChainIndex = -1;
    status->lElementIndex = -1;
    if (extra) {
        s->extraStatusCbSize = extra->cbSize;
        extra->dwError = 0;
        extra->lChainIndex = -1;
        extra->lElementIndex = -1;
    }
    if (s->dwError) {
        status->dwError = s->dwError;
        status->lChainIndex = 3;
        status->lElementIndex = 4;
    }
    if (s->extraBits && extra) {
        extra->dwError = s->extraBits;
        extra->lChainIndex = 5;
        extra->lElementIndex = 6;
    }
    if (!s->result)
        SetLastError(s->lastError);
    return s->result;
}

// A heap that counts what passes through it, so that every way out can be checked for
// a released fallback buffer.
class CountingHeap : public ATL::IAtlMemMgr {
public:
    void* Allocate(size_t n) noexcept override {
        ++allocations;
        return std::malloc(n);
    }
    void Free(void* p) noexcept override {
        if (p)
            ++frees;
        std::free(p);
    }
    void* Reallocate(void* p, size_t n) noexcept override {
        ++reallocations;
        return std::realloc(p, n);
    }
    size_t GetSize(void*) noexcept override { return 0; }
    int allocations = 0, frees = 0, reallocations = 0;
};

class SignaturePolicy : public ::testing::Test {
protected:
    void SetUp() override {
        qvfake_reset();
        m_savedMemMgr = ATL::g_defaultStrMgr.GetMemoryManager();
        ATL::g_defaultStrMgr.SetMemoryManager(&heap);
    }
    void TearDown() override {
        ATL::g_defaultStrMgr.SetMemoryManager(m_savedMemMgr);
        qvfake_reset();
    }
    void script(PkupScript& s) { qvfake_set_pkup_hook(pkupHook, &s); }

    CountingHeap heap;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};

private:
    ATL::IAtlMemMgr* m_savedMemMgr = nullptr;
};

// Rows of the policy's outcome table, each with and without an extra status.
struct OutcomeRow {
    const char* name;
    int keyUsageByte;     // -1: no Key Usage extension
    DWORD pkupError;      // what the period policy puts into the status (no extra status)
    DWORD pkupBits;       // what it puts into the extra status
    // Expected without extra status.
    DWORD dwError;
    LONG index;
    // Expected with extra status.
    DWORD statusWithExtra;
    LONG indexWithExtra;
    DWORD extraBits;
    LONG extraIndex;
};

const OutcomeRow kOutcomes[] = {
    {"both checks pass", 0x80, 0, 0, 0, -1, 0, -1, 0, -1},
    {"no Key Usage at all", -1, 0, 0, 0, -1, 0, -1, 0, -1},
    {"nonRepudiation alone", 0x40, 0, 0, 0, -1, 0, -1, 0, -1},
    {"both signing bits", 0xC0, 0, 0, 0, -1, 0, -1, 0, -1},
    {"keyEncipherment alone", 0x20, 0, 0, kWrongUsage, 0, 0, -1, 0x20, -1},
    {"no bits at all", 0x00, 0, 0, kWrongUsage, 0, 0, -1, 0x20, -1},
    {"every bit below the two", 0x3F, 0, 0, kWrongUsage, 0, 0, -1, 0x20, -1},
    // The inner failure stops the policy without an extra status; with one, Key Usage is
    // checked too and adds its bit.
    {"period fails, Key Usage fine", 0x80, kExpired, 0x02, kExpired, 3, 0, -1, 0x02, 5},
    {"period fails, Key Usage fails", 0x20, kExpired, 0x01, kExpired, 3, 0, -1, 0x21, 5},
};

TEST_F(SignaturePolicy, OutcomeTable) {
    for (const OutcomeRow& row : kOutcomes) {
        for (bool withExtra : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (withExtra ? ", extra status" : ", no extra status"));
            qvfake_reset();
            PkupScript pkup;
            pkup.dwError = withExtra ? 0 : row.pkupError;
            pkup.extraBits = row.pkupBits;
            script(pkup);
            FakeCert cert;
            if (row.keyUsageByte >= 0)
                cert.addExtension(szOID_KEY_USAGE, keyUsage(static_cast<uint8_t>(row.keyUsageByte)));
            FakeChain chain({cert.context()});
            Result r = runSignature(chain.get(), &para, withExtra);
            EXPECT_EQ(r.ok, TRUE);
            EXPECT_EQ(r.lastError, kSentinel);
            EXPECT_EQ(pkup.calls, 1);
            if (!withExtra) {
                EXPECT_EQ(r.status.dwError, row.dwError);
                EXPECT_EQ(r.status.lChainIndex, row.dwError == kExpired ? 3 : row.index);
                EXPECT_EQ(r.status.lElementIndex, row.dwError == kExpired ? 4 : row.index);
                // Extra status untouched when not linked.
                EXPECT_EQ(r.extra.dwError, 0x77u);
                // An inner failure without extra status ends the policy before Key Usage.
                if (row.pkupError != 0) {
                    EXPECT_EQ(qvfake_decode_calls(), 0u);
                }
            } else {
                EXPECT_EQ(r.status.dwError, row.statusWithExtra);
                EXPECT_EQ(r.status.lChainIndex, row.indexWithExtra);
                EXPECT_EQ(r.status.lElementIndex, row.indexWithExtra);
                EXPECT_EQ(r.extra.dwError, row.extraBits);
                EXPECT_EQ(r.extra.lChainIndex, row.extraIndex);
                EXPECT_EQ(r.extra.lElementIndex, row.extraIndex == 5 ? 6 : -1);
            }
        }
    }
}

TEST_F(SignaturePolicy, InnerFalseHandsOnTheHresultFormAndMergesTheInnerStatus) {
    struct Case {
        DWORD innerError;
        DWORD expected;
    } cases[] = {{ERROR_INVALID_PARAMETER, 0x80070057u}, {0x80092004u, 0x80092004u}, {0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.innerError);
        for (bool withExtra : {false, true}) {
            qvfake_reset();
            PkupScript pkup;
            pkup.result = FALSE;
            pkup.lastError = c.innerError;
            pkup.dwError = kExpired;
            pkup.extraBits = 0x02;
            script(pkup);
            FakeCert cert;
            cert.addExtension(szOID_KEY_USAGE, keyUsage(0x20));
            FakeChain chain({cert.context()});
            Result r = runSignature(chain.get(), &para, withExtra);
            EXPECT_EQ(r.ok, FALSE);
            EXPECT_EQ(r.lastError, c.expected);
            EXPECT_EQ(r.status.dwError, kExpired);
            EXPECT_EQ(r.status.lChainIndex, 3);
            EXPECT_EQ(r.status.lElementIndex, 4);
            EXPECT_EQ(r.extra.dwError, withExtra ? 0x02u : 0x77u);
            EXPECT_EQ(qvfake_decode_calls(), 0u);
        }
    }
}

TEST_F(SignaturePolicy, InnerRecordsAreBuiltAsTheFrameLaysDown) {
    PkupScript pkup;
    script(pkup);
    FakeCert cert;
    FakeChain chain({cert.context()});
    int marker = 0;

    // No parameter record: flags 0, no extra records.
    runSignature(chain.get(), nullptr, false);
    EXPECT_EQ(pkup.oid, QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD);
    ASSERT_TRUE(pkup.hadPara);
    EXPECT_EQ(pkup.para.cbSize, sizeof(CERT_CHAIN_POLICY_PARA));
    EXPECT_EQ(pkup.para.dwFlags, 0u);
    EXPECT_FALSE(pkup.hadExtraPara);
    EXPECT_EQ(pkup.statusCbSize, sizeof(CERT_CHAIN_POLICY_STATUS));
    EXPECT_FALSE(pkup.hadExtraStatus);

    // Every flag value goes on unchanged; an extra parameter declared with cbSize 0 is
    // accepted and its pointer still read; the inner copy has the full size.
    para.dwFlags = 0xFFFFFFFFu;
    ExtraPara extra{0, &marker};
    para.pvExtraPolicyPara = &extra;
    runSignature(chain.get(), &para, true);
    EXPECT_EQ(pkup.para.dwFlags, 0xFFFFFFFFu);
    ASSERT_TRUE(pkup.hadExtraPara);
    EXPECT_EQ(pkup.extraPara.cbSize, sizeof(ExtraPara));
    EXPECT_EQ(pkup.extraPara.pvUsagePeriodArg, &marker);
    ASSERT_TRUE(pkup.hadExtraStatus);
    EXPECT_EQ(pkup.extraStatusCbSize, 16u);
}

TEST_F(SignaturePolicy, BadRecordsAreRefusedWith87) {
    PkupScript pkup;
    script(pkup);
    FakeCert cert;
    FakeChain chain({cert.context()});

    {  // Status size wrong: nothing written.
        CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS) + 1, 0x11, 0x22, 0x33, nullptr};
        SetLastError(0);
        EXPECT_EQ(CertDllVerifySignatureCertificateChainPolicy(nullptr, chain.get(), &para, &status), FALSE);
        EXPECT_EQ(GetLastError(), 87u);
        EXPECT_EQ(status.dwError, 0x11u);
        EXPECT_EQ(status.lChainIndex, 0x22);
    }
    {  // Extra status size wrong: status initialised, extra status untouched.
        ExtraStatus extra{15, 0x77, 0x55, 0x66};
        CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33, &extra};
        EXPECT_EQ(CertDllVerifySignatureCertificateChainPolicy(nullptr, chain.get(), &para, &status), FALSE);
        EXPECT_EQ(GetLastError(), 87u);
        EXPECT_EQ(status.dwError, 0u);
        EXPECT_EQ(status.lChainIndex, -1);
        EXPECT_EQ(status.lElementIndex, -1);
        EXPECT_EQ(extra.dwError, 0x77u);
        EXPECT_EQ(extra.lChainIndex, 0x55);
    }
    {  // Parameter size wrong.
        CERT_CHAIN_POLICY_PARA bad{sizeof(CERT_CHAIN_POLICY_PARA) - 1, 0, nullptr};
        Result r = runSignature(chain.get(), &bad, false);
        EXPECT_EQ(r.ok, FALSE);
        EXPECT_EQ(r.lastError, 87u);
    }
    {  // Extra parameter one byte longer than the record: refused; the full size passes.
        ExtraPara extra{sizeof(ExtraPara) + 1, nullptr};
        para.pvExtraPolicyPara = &extra;
        Result r = runSignature(chain.get(), &para, false);
        EXPECT_EQ(r.ok, FALSE);
        EXPECT_EQ(r.lastError, 87u);
        extra.cbSize = sizeof(ExtraPara);
        EXPECT_EQ(runSignature(chain.get(), &para, false).ok, TRUE);
    }
    EXPECT_EQ(pkup.calls, 1);
}

// A decoder whose answer does not fit into 32 bytes: the first call asks for more.
struct BigDecode {
    DWORD need = 100;
    int calls = 0;
    DWORD secondSize = 0;
    bool secondFails = false;
    DWORD secondError = 0;
    BYTE bits[1] = {0x80};
};

BOOL bigDecodeHook(void* user, DWORD, LPCSTR type, const BYTE*, DWORD, DWORD flags, void* out, DWORD* pcb) {
    auto* s = static_cast<BigDecode*>(user);
    ++s->calls;
    EXPECT_STREQ(type, szOID_KEY_USAGE);
    EXPECT_EQ(flags, CRYPT_DECODE_NOCOPY_FLAG);
    if (s->calls == 1) {
        EXPECT_EQ(*pcb, 32u);
        *pcb = s->need;
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    s->secondSize = *pcb;
    if (s->secondFails) {
        SetLastError(s->secondError);
        return FALSE;
    }
    EXPECT_NE(out, nullptr);
    // Write the whole claimed size, so that a short fallback buffer shows under ASan.
    std::memset(out, 0xEE, *pcb);
    CRYPT_BIT_BLOB blob{1, s->bits, 0};
    std::memcpy(out, &blob, sizeof blob);
    return TRUE;
}

TEST_F(SignaturePolicy, KeyUsageLargerThan32BytesIsDecodedOnceMoreIntoTheStringBuffer) {
    FakeCert cert;
    cert.addExtension(szOID_KEY_USAGE, keyUsage(0x20));
    FakeChain chain({cert.context()});

    {  // Passes on the second call; the buffer is handed back.
        BigDecode d;
        qvfake_set_decode_hook(bigDecodeHook, &d);
        TraceCapture trace;
        Result r = runSignature(chain.get(), &para, false);
        EXPECT_EQ(r.ok, TRUE);
        EXPECT_EQ(r.status.dwError, 0u);
        EXPECT_EQ(d.calls, 2);
        EXPECT_EQ(d.secondSize, 100u);
        EXPECT_NE(trace.text().find("SignatureImpl|Key Usage extension requires more than 32 bytes "
                                    "(notably, 100) to decode.\n"),
                  std::string::npos);
        EXPECT_EQ(heap.allocations + heap.reallocations, 1);
        EXPECT_EQ(heap.frees, 1);
    }
    {  // The second call fails: FALSE with the HRESULT form, and still nothing kept.
        heap = CountingHeap();
        BigDecode d;
        d.secondFails = true;
        d.secondError = ERROR_INVALID_DATA;
        qvfake_set_decode_hook(bigDecodeHook, &d);
        TraceCapture trace;
        Result r = runSignature(chain.get(), &para, true);
        EXPECT_EQ(r.ok, FALSE);
        EXPECT_EQ(r.lastError, 0x8007000Du);
        EXPECT_EQ(r.status.dwError, 0u);
        EXPECT_EQ(r.status.lChainIndex, -1);
        EXPECT_EQ(r.extra.dwError, 0u);
        EXPECT_EQ(d.calls, 2);
        EXPECT_NE(trace.text().find("SignatureImpl|Key Usage extension could not be decoded.\n"),
                  std::string::npos);
        EXPECT_EQ(heap.allocations + heap.reallocations, 1);
        EXPECT_EQ(heap.frees, 1);
    }
    {  // The decoded bits still decide: 0x20 alone fails.
        heap = CountingHeap();
        BigDecode d;
        d.bits[0] = 0x20;
        qvfake_set_decode_hook(bigDecodeHook, &d);
        Result r = runSignature(chain.get(), &para, false);
        EXPECT_EQ(r.ok, TRUE);
        EXPECT_EQ(r.status.dwError, kWrongUsage);
        EXPECT_EQ(heap.frees, 1);
    }
}

TEST_F(SignaturePolicy, KeyUsageSizeBeyondAStringIsRefusedBeforeAnyAllocation) {
    FakeCert cert;
    cert.addExtension(szOID_KEY_USAGE, keyUsage(0x80));
    FakeChain chain({cert.context()});
    BigDecode d;
    d.need = 0xFFFFFFF0u;
    qvfake_set_decode_hook(bigDecodeHook, &d);
    Result r = runSignature(chain.get(), &para, false);
    EXPECT_EQ(r.ok, FALSE);
    EXPECT_EQ(r.lastError, 0x80070057u);
    EXPECT_EQ(d.calls, 1);
    EXPECT_EQ(heap.allocations + heap.reallocations, 0);
}

TEST_F(SignaturePolicy, KeyUsageThatFitsIsDecodedOnceWithoutTheFallbackBuffer) {
    FakeCert cert;
    cert.addExtension(szOID_KEY_USAGE, keyUsage(0x80));
    FakeChain chain({cert.context()});
    Result r = runSignature(chain.get(), &para, false);
    EXPECT_EQ(r.ok, TRUE);
    EXPECT_EQ(r.status.dwError, 0u);
    EXPECT_EQ(qvfake_decode_calls(), 1u);
    EXPECT_EQ(heap.allocations + heap.reallocations, 0);
}

BOOL failingDecodeHook(void* user, DWORD, LPCSTR, const BYTE*, DWORD, DWORD, void*, DWORD*) {
    SetLastError(*static_cast<DWORD*>(user));
    return FALSE;
}

TEST_F(SignaturePolicy, UndecodableKeyUsageFailsWithTheHresultFormOfTheDecoderError) {
    FakeCert cert;
    cert.addExtension(szOID_KEY_USAGE, hex("0400"));
    FakeChain chain({cert.context()});
    Result r = runSignature(chain.get(), &para, false);
    EXPECT_EQ(r.ok, FALSE);
    EXPECT_EQ(r.lastError, 0x8009310Bu);  // negative: stands as it is
    EXPECT_EQ(r.status.dwError, 0u);
    EXPECT_EQ(r.status.lChainIndex, -1);

    struct Case {
        DWORD error, expected;
    } cases[] = {{5, 0x80070005u}, {0x12345, 0x80072345u}, {0, 0}, {0x80093102u, 0x80093102u}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.error);
        DWORD error = c.error;
        qvfake_set_decode_hook(failingDecodeHook, &error);
        Result f = runSignature(chain.get(), &para, false);
        EXPECT_EQ(f.ok, FALSE);
        EXPECT_EQ(f.lastError, c.expected);
    }
    EXPECT_EQ(heap.allocations, 0);
}

TEST_F(SignaturePolicy, EmptyKeyUsageBitStringGrantsNothing) {
    FakeCert cert;
    cert.addExtension(szOID_KEY_USAGE, hex("030100"));
    FakeChain chain({cert.context()});
    Result r = runSignature(chain.get(), &para, true);
    EXPECT_EQ(r.ok, TRUE);
    EXPECT_EQ(r.extra.dwError, 0x20u);
}

TEST_F(SignaturePolicy, TraceOfAKeyUsageFailureWithoutExtraStatus) {
    FakeCert cert;
    cert.addExtension(szOID_KEY_USAGE, keyUsage(0x08));
    FakeChain chain({cert.context()});
    TraceCapture trace;
    Result r = runSignature(chain.get(), &para, false);
    ASSERT_EQ(r.ok, TRUE);
    const std::vector<std::string> expected = {
        "CertDllVerifySignatureCertificateChainPolicy|Start\n",
        "CheckInitAndGetExtraStatus|pExtraStatus = 0x00000000\n",
        "ReportError|No error encountered. Other checks can be performed - returning false.\n",
        "SignatureImpl|Key Usage extension does not contain neither digitalSignature nor nonRepudiation bits.\n",
        "ReportError|No extra status supplied. Setting pPolicyStatus->dwError = 0x800b0110, "
        "pPolicyStatus->lChainIndex = 0, pPolicyStatus->lElementIndex = 0.\n",
        "ReportError|Error encountered and no extra status supplied. Other checks must not be performed - "
        "returning true.\n",
        "CertDllVerifyCertificateChainPolicyProxy|Finish. Returning TRUE.\n",
    };
    const std::vector<std::string> lines = trace.lines();
    size_t at = 0;
    for (const std::string& line : lines)
        if (at < expected.size() && line == expected[at])
            ++at;
    EXPECT_EQ(at, expected.size()) << trace.text();
}

// The stand-in's private-key-usage-period policy itself, through the signature policy.
class UsagePeriod : public SignaturePolicy {};

TEST_F(UsagePeriod, MomentOutsideThePeriodFailsByItsSide) {
    FakeCert cert;
    cert.addExtension(szOID_PRIVATEKEY_USAGE_PERIOD, usagePeriod("20200101000000Z", "20210101000000Z"));
    cert.addExtension(szOID_KEY_USAGE, keyUsage(0x20));
    FakeChain chain({cert.context()});
    struct Row {
        FILETIME at;
        DWORD bits;
    } rows[] = {
        {fileTime(2019, 12, 31), 0x01},
        {fileTime(2020, 1, 1), 0},
        {fileTime(2020, 6, 15), 0},
        {fileTime(2021, 1, 1), 0},
        {fileTime(2021, 1, 2), 0x02},
    };
    for (Row& row : rows) {
        ExtraPara extra{sizeof(ExtraPara), &row.at};
        para.pvExtraPolicyPara = &extra;
        // With an extra status both failures come back at once.
        Result r = runSignature(chain.get(), &para, true);
        EXPECT_EQ(r.ok, TRUE);
        EXPECT_EQ(r.status.dwError, 0u);
        EXPECT_EQ(r.extra.dwError, row.bits | 0x20u);
        EXPECT_EQ(r.extra.lChainIndex, row.bits ? 0 : -1);
        // Without one the period's failure ends the policy.
        Result plain = runSignature(chain.get(), &para, false);
        EXPECT_EQ(plain.ok, TRUE);
        EXPECT_EQ(plain.status.dwError, row.bits ? kExpired : kWrongUsage);
        EXPECT_EQ(plain.status.lChainIndex, 0);
    }
}

TEST_F(UsagePeriod, OpenBoundsAndNowAndMalformedValues) {
    {  // Only a lower bound far in the past: now is inside.
        FakeCert cert;
        cert.addExtension(szOID_PRIVATEKEY_USAGE_PERIOD, usagePeriod("19900101000000Z", ""));
        FakeChain chain({cert.context()});
        EXPECT_EQ(runSignature(chain.get(), nullptr, false).status.dwError, 0u);
    }
    {  // Only an upper bound in the past, moment now: after.
        FakeCert cert;
        cert.addExtension(szOID_PRIVATEKEY_USAGE_PERIOD, usagePeriod("", "20000101000000Z"));
        FakeChain chain({cert.context()});
        Result r = runSignature(chain.get(), nullptr, true);
        EXPECT_EQ(r.extra.dwError, 0x02u);
    }
    {  // A value that is no PrivateKeyUsagePeriod: the inner policy cannot run.
        FakeCert cert;
        cert.addExtension(szOID_PRIVATEKEY_USAGE_PERIOD, usagePeriod("2020", ""));
        FakeChain chain({cert.context()});
        Result r = runSignature(chain.get(), nullptr, false);
        EXPECT_EQ(r.ok, FALSE);
        EXPECT_EQ(r.lastError, 0x8009310Bu);
    }
}

}  // namespace

namespace {

// The stand-in's Key Usage decoding under the size protocol.
TEST(KeyUsageDecoding, SizeProtocolAndNoCopy) {
    qvfake_reset();
    const std::vector<uint8_t> value = hex("03020186");  // one unused bit, byte 0x86
    const DWORD enc = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

    // NOCOPY: the record alone, pointing into the caller's bytes.
    DWORD cb = 0;
    ASSERT_EQ(CryptDecodeObject(enc, szOID_KEY_USAGE, value.data(), 4, CRYPT_DECODE_NOCOPY_FLAG, nullptr, &cb), TRUE);
    EXPECT_EQ(cb, sizeof(CRYPT_BIT_BLOB));
    CRYPT_BIT_BLOB blob{};
    cb = sizeof blob - 1;
    SetLastError(0);
    EXPECT_EQ(CryptDecodeObject(enc, szOID_KEY_USAGE, value.data(), 4, CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
    EXPECT_EQ(cb, sizeof(CRYPT_BIT_BLOB));
    ASSERT_EQ(CryptDecodeObject(enc, szOID_KEY_USAGE, value.data(), 4, CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb), TRUE);
    EXPECT_EQ(blob.cbData, 1u);
    EXPECT_EQ(blob.cUnusedBits, 1u);
    EXPECT_EQ(blob.pbData, value.data() + 3);

    // Copying: the bits follow the record in the caller's buffer.
    cb = 0;
    ASSERT_EQ(CryptDecodeObject(enc, szOID_KEY_USAGE, value.data(), 4, 0, nullptr, &cb), TRUE);
    EXPECT_EQ(cb, sizeof(CRYPT_BIT_BLOB) + 1);
    std::vector<uint8_t> out(cb);
    ASSERT_EQ(CryptDecodeObject(enc, szOID_KEY_USAGE, value.data(), 4, 0, out.data(), &cb), TRUE);
    CRYPT_BIT_BLOB copied;
    std::memcpy(&copied, out.data(), sizeof copied);
    EXPECT_EQ(copied.pbData, out.data() + sizeof(CRYPT_BIT_BLOB));
    EXPECT_EQ(copied.pbData[0], 0x86);

    // Not a KeyUsage value.
    struct Bad {
        const char* hex;
    } bad[] = {{"0400"}, {"0300"}, {"030108"}, {"03020880"}, {"0302"}, {"0302018600"}, {"03820001"}};
    for (const Bad& b : bad) {
        SCOPED_TRACE(b.hex);
        const std::vector<uint8_t> v = hex(b.hex);
        cb = sizeof blob;
        SetLastError(0);
        EXPECT_EQ(CryptDecodeObject(enc, szOID_KEY_USAGE, v.data(), static_cast<DWORD>(v.size()),
                                    CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb),
                  FALSE);
        EXPECT_EQ(GetLastError(), 0x8009310Bu);
    }
}

TEST(UsagePeriodPolicy, RecordsAreChecked) {
    qvfake_reset();
    FakeCert cert;
    FakeChain chain({cert.context()});
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0, nullptr};
    ExtraStatus extra{sizeof extra, 9, 9, 9};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 9, 9, 9, &extra};
    EXPECT_EQ(CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(nullptr, chain.get(), &para, &status), TRUE);
    EXPECT_EQ(status.dwError, 0u);
    EXPECT_EQ(status.lChainIndex, -1);
    EXPECT_EQ(extra.dwError, 0u);
    EXPECT_EQ(extra.lElementIndex, -1);

    struct Case {
        const char* name;
        DWORD statusSize, paraSize, extraParaSize, extraStatusSize;
    } cases[] = {
        {"status", sizeof status + 4, sizeof para, sizeof(ExtraPara), sizeof extra},
        {"para", sizeof status, sizeof para - 4, sizeof(ExtraPara), sizeof extra},
        {"extra para", sizeof status, sizeof para, 0, sizeof extra},
        {"extra status", sizeof status, sizeof para, sizeof(ExtraPara), 12},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ExtraPara extraPara{c.extraParaSize, nullptr};
        para = CERT_CHAIN_POLICY_PARA{c.paraSize, 0, &extraPara};
        extra.cbSize = c.extraStatusSize;
        status.cbSize = c.statusSize;
        SetLastError(0);
        EXPECT_EQ(CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(nullptr, chain.get(), &para, &status), FALSE);
        EXPECT_EQ(GetLastError(), 87u);
    }
}

}  // namespace
