// The signature policy and the stand-in's private-key-usage-period policy over the fake
// platform, on hand-made certificate contexts.
#include "core/strings.h"
#include "policy_script_c.h"

#include <cstring>

using namespace testsupport;
using namespace policyscript;

namespace {

const char* kNoBits = "SignatureImpl|Key Usage extension does not contain neither digitalSignature nor nonRepudiation bits.\n";
const char* kInnerFalse = "SignatureImpl|QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD check returned FALSE. Exception will be thrown.\n";

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
    // A chain of one certificate with these Key Usage and usage period values (null: none).
    PCCERT_CHAIN_CONTEXT chainWith(const char* keyUsage, const char* period = nullptr) {
        cert.reset(new FakeCert());
        if (period)
            cert->addExtension(szOID_PRIVATEKEY_USAGE_PERIOD, hex(period));
        if (keyUsage)
            cert->addExtension(szOID_KEY_USAGE, hex(keyUsage));
        chain.reset(new FakeChain({cert->context()}));
        return chain->get();
    }
    Outcome runSignature(PCERT_CHAIN_POLICY_PARA p, bool withExtraStatus) {
        return run(CertDllVerifySignatureCertificateChainPolicy, chain->get(), p, withExtraStatus);
    }

    CountingHeap heap;
    PkupScript pkup;
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};
    std::unique_ptr<FakeCert> cert;
    std::unique_ptr<FakeChain> chain;

private:
    ATL::IAtlMemMgr* m_savedMemMgr = nullptr;
};

// Rows of the policy's outcome table, each with and without an extra status. A Key Usage
// that fits into 32 bytes is decoded once, never through the fallback buffer. The inner
// records are built as the frame lays down: every flag value handed on, the extra
// parameter (declared here with cbSize 0, which passes) copied in full size.
TEST_F(SignaturePolicy, OutcomeTable) {
    const struct {
        const char* keyUsage;       // null: no Key Usage extension
        DWORD pkupError, pkupBits;  // the period policy's failure, in the status and in the extra status
        DWORD pkupLastError;        // non-zero: the period policy returns FALSE with it
        DWORD lastError, dwError;   // expected, dwError without extra status
        DWORD extraBits;            // expected with extra status
        const char* trace;
    } rows[] = {
        {"03020080", 0, 0, 0, kSentinel, 0, 0, ""},  // digitalSignature
        {nullptr, 0, 0, 0, kSentinel, 0, 0, ""},  // no Key Usage, no limit
        {"03020040", 0, 0, 0, kSentinel, 0, 0, ""},  // nonRepudiation alone
        {"030200C0", 0, 0, 0, kSentinel, 0, 0, ""},
        {"03020020", 0, 0, 0, kSentinel, kWrongUsage, 0x20, kNoBits},  // keyEncipherment alone
        {"0302003F", 0, 0, 0, kSentinel, kWrongUsage, 0x20, kNoBits},
        {"030100", 0, 0, 0, kSentinel, kWrongUsage, 0x20, kNoBits},  // an empty bit string grants nothing
        {"0400", 0, 0, 0, 0x8009310Bu, 0, 0, "SignatureImpl|Key Usage extension could not be decoded.\n"},
        // Without an extra status the inner failure ends the policy before Key Usage; with
        // one, Key Usage is checked too and adds its bit.
        {"03020080", kExpired, 0x02, 0, kSentinel, kExpired, 0x02, ""},
        {"03020020", kExpired, 0x01, 0, kSentinel, kExpired, 0x21, ""},
        // The inner policy returned FALSE: its status merged, its last error in HRESULT form.
        {"03020020", kExpired, 0x02, 87, 0x80070057u, kExpired, 0x02, kInnerFalse},
        {"03020020", kExpired, 0x02, 0x80092004u, 0x80092004u, kExpired, 0x02, kInnerFalse},
    };
    int marker = 0;
    ExtraPara extraPara{0, &marker};
    para = CERT_CHAIN_POLICY_PARA{sizeof para, 0xFFFFFFFFu, &extraPara};
    for (const auto& row : rows) {
        for (bool withExtra : {false, true}) {
            SCOPED_TRACE(testing::Message() << (row.keyUsage ? row.keyUsage : "none") << ", pkup " << row.pkupError
                                            << "/" << row.pkupLastError << (withExtra ? ", extra status" : ""));
            qvfake_reset();
            pkup = PkupScript();
            pkup.dwError = withExtra ? 0 : row.pkupError;
            pkup.extraBits = row.pkupBits;
            pkup.result = row.pkupLastError == 0;
            pkup.lastError = row.pkupLastError;
            qvfake_set_pkup_hook(pkupHook, &pkup);
            chainWith(row.keyUsage);
            TraceCapture trace;
            EXPECT_EQ(runSignature(&para, withExtra),
                      expected(withExtra, row.lastError, row.dwError, row.extraBits, row.pkupError, row.pkupBits));
            EXPECT_NE(trace.text().find(row.trace), std::string::npos) << trace.text();
            const bool stopped = row.pkupLastError || (!withExtra && row.pkupError);
            EXPECT_EQ(qvfake_decode_calls(), row.keyUsage && !stopped ? 1u : 0u);
            EXPECT_EQ(heap.allocations + heap.reallocations, 0);
            EXPECT_EQ(std::make_tuple(pkup.calls, pkup.oid, pkup.para.cbSize, pkup.para.dwFlags, pkup.statusCbSize),
                      std::make_tuple(1, std::string(QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD), DWORD(sizeof para),
                                      0xFFFFFFFFu, DWORD(sizeof(CERT_CHAIN_POLICY_STATUS))));
            EXPECT_EQ(std::make_tuple(pkup.extraPara.cbSize, pkup.extraPara.pvUsagePeriodArg, pkup.extraStatusCbSize),
                      std::make_tuple(DWORD(sizeof(ExtraPara)), static_cast<void*>(&marker), withExtra ? 16u : 0u));
        }
    }
    // No parameter record: flags 0 and no extra parameter.
    runSignature(nullptr, false);
    EXPECT_EQ(std::make_tuple(pkup.para.cbSize, pkup.para.dwFlags, pkup.hadExtraPara),
              std::make_tuple(DWORD(sizeof para), 0u, false));
}

// Bad records, for the signature policy and for the stand-in's period policy, which also
// refuses a short extra parameter. A refused status is left alone; a refused extra status
// too, after the signature policy initialised the status.
TEST_F(SignaturePolicy, BadRecordsAreRefusedWith87) {
    const DWORD st = sizeof(CERT_CHAIN_POLICY_STATUS), pa = sizeof(CERT_CHAIN_POLICY_PARA), ep = sizeof(ExtraPara);
    const struct {
        DWORD statusSize, paraSize, extraParaSize, extraStatusSize;
        BOOL signatureOk, periodOk;
    } rows[] = {{st, pa, ep, 16, TRUE, TRUE},   {st + 1, pa, ep, 16, FALSE, FALSE}, {st - 4, pa, ep, 16, FALSE, FALSE},
                {st, pa, ep, 15, FALSE, FALSE}, {st, pa - 1, ep, 16, FALSE, FALSE}, {st, pa, ep + 1, 16, FALSE, FALSE},
                {st, pa, 0, 16, TRUE, FALSE}};
    chainWith(nullptr);
    for (const auto& row : rows) {
        for (auto policy : {CertDllVerifySignatureCertificateChainPolicy,
                            CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy}) {
            const bool signature = policy == CertDllVerifySignatureCertificateChainPolicy;
            ExtraPara extraPara{row.extraParaSize, nullptr};
            para = CERT_CHAIN_POLICY_PARA{row.paraSize, 0, &extraPara};
            ExtraStatus extra{row.extraStatusSize, 0x77, 0x55, 0x66};
            CERT_CHAIN_POLICY_STATUS status{row.statusSize, 0x11, 0x22, 0x33, &extra};
            SetLastError(0);
            const BOOL ok = policy(nullptr, chain->get(), &para, &status);
            const bool initialised = ok || (row.statusSize == st && signature);
            const bool extraInitialised = initialised && row.extraStatusSize == 16;
            EXPECT_EQ(std::make_tuple(ok, GetLastError(), status.dwError, status.lChainIndex, extra.dwError),
                      std::make_tuple(signature ? row.signatureOk : row.periodOk, ok ? 0u : 87u, initialised ? 0u : 0x11u,
                                      initialised ? -1 : 0x22, extraInitialised ? 0u : 0x77u))
                << row.statusSize << "/" << row.paraSize << "/" << row.extraParaSize << "/" << row.extraStatusSize
                << (signature ? " signature" : " period");
        }
    }
}

// A Key Usage decoder that fails its first call with firstError; after ERROR_MORE_DATA
// with a size of `need` it answers the second call as scripted.
struct ScriptedDecode {
    DWORD firstError, need, secondError;  // secondError 0: the second call succeeds
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
    // Write the whole claimed size, so that a short fallback buffer shows under ASan.
    std::memset(out, 0xEE, *pcb);
    CRYPT_BIT_BLOB blob{1, s->bits, 0};
    std::memcpy(out, &blob, sizeof blob);
    return TRUE;
}

// Only ERROR_MORE_DATA earns a second call, into the string buffer, which is taken once
// and handed back on every way out. Other errors come back in HRESULT form.
TEST_F(SignaturePolicy, KeyUsageDecoderFailures) {
    const DWORD more = ERROR_MORE_DATA;
    const std::string again = "SignatureImpl|Key Usage extension requires more than 32 bytes (notably, 100) to decode.\n";
    const std::string failed = "SignatureImpl|Key Usage extension could not be decoded.\n";
    const struct {
        DWORD firstError, need, secondError;
        BYTE bits;
        DWORD lastError, dwError;
        int calls, allocations;
        std::string trace;
    } rows[] = {
        {more, 100, 0, 0x80, more, 0, 2, 1, again},  // the last error stays as the decoder left it
        {more, 100, 0, 0x20, more, kWrongUsage, 2, 1, again},
        {more, 100, 13, 0x80, 0x8007000Du, 0, 2, 1, failed},      {more, 0xFFFFFFF0u, 0, 0x80, 0x80070057u, 0, 1, 0, ""},
        {5, 0, 0, 0, 0x80070005u, 0, 1, 0, failed},               {0x12345, 0, 0, 0, 0x80072345u, 0, 1, 0, failed},
        {0, 0, 0, 0, 0, 0, 1, 0, failed},                         {0x80093102u, 0, 0, 0, 0x80093102u, 0, 1, 0, failed},
    };
    chainWith("03020020");
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.firstError << ", need " << row.need << ", then " << row.secondError);
        heap.allocations = heap.reallocations = heap.frees = 0;
        ScriptedDecode d{row.firstError, row.need, row.secondError, {row.bits}};
        qvfake_set_decode_hook(scriptedDecodeHook, &d);
        TraceCapture trace;
        EXPECT_EQ(runSignature(&para, false), expected(false, row.lastError, row.dwError, 0, 0, 0));
        EXPECT_EQ(std::make_tuple(d.calls, d.secondSize, heap.allocations + heap.reallocations, int(heap.frees)),
                  std::make_tuple(row.calls, row.calls == 2 ? 100u : 0u, row.allocations, row.allocations));
        EXPECT_NE(trace.text().find(row.trace), std::string::npos) << trace.text();
    }
}

// The stand-in's private-key-usage-period policy under a Key Usage that fails too: with an
// extra status both failures come back at once, without one the period's ends the policy.
TEST_F(SignaturePolicy, UsagePeriodFailsByTheSideOfTheMoment) {
    const std::string from = "800F32303230303130313030303030305A", to = "810F32303231303130313030303030305A";
    const struct {
        std::string period;     // PrivateKeyUsagePeriod, 2020-01-01 .. 2021-01-01 unless given
        WORD year, month, day;  // year 0: now
        DWORD bits, lastError;  // lastError of a malformed value: the policy cannot run
    } rows[] = {
        {"3022" + from + to, 2019, 12, 31, 0x01, kSentinel}, {"3022" + from + to, 2020, 1, 1, 0, kSentinel},
        {"3022" + from + to, 2021, 1, 1, 0, kSentinel},      {"3022" + from + to, 2021, 1, 2, 0x02, kSentinel},
        {"3011" + from, 0, 0, 0, 0, kSentinel},              {"3011810F32303030303130313030303030305A", 0, 0, 0, 0x02, kSentinel},
        {"3006800432303230", 0, 0, 0, 0, 0x8009310Bu},  // notBefore "2020"
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.period << " at " << row.year << "-" << row.month << "-" << row.day);
        chainWith("03020020", row.period.c_str());
        const SYSTEMTIME day{row.year, row.month, 0, row.day, 0, 0, 0, 0};
        FILETIME at{};
        SystemTimeToFileTime(&day, &at);
        ExtraPara extra{sizeof(ExtraPara), row.year ? &at : nullptr};
        para.pvExtraPolicyPara = &extra;
        const BOOL ok = row.lastError == kSentinel;
        const LONG index = row.bits ? 0 : -1;
        EXPECT_EQ(runSignature(&para, true), (ok ? Outcome{TRUE, kSentinel, 0, -1, -1, row.bits | 0x20u, index, index}
                                                 : Outcome{FALSE, row.lastError, 0, -1, -1, 0, -1, -1}));
        EXPECT_EQ(runSignature(&para, false),
                  (ok ? Outcome{TRUE, kSentinel, row.bits ? kExpired : kWrongUsage, 0, 0, 0x77, 0x55, 0x66}
                      : Outcome{FALSE, row.lastError, 0, -1, -1, 0x77, 0x55, 0x66}));
    }
}

// The stand-in's Key Usage decoding under the size protocol.
TEST(KeyUsageDecoding, SizeProtocolAndNoCopy) {
    qvfake_reset();
    const std::vector<uint8_t> value = hex("03020186");  // one unused bit, byte 0x86
    auto decode = [](const std::vector<uint8_t>& v, DWORD flags, void* out, DWORD* cb) {
        SetLastError(0);
        return CryptDecodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, szOID_KEY_USAGE, v.data(),
                                 static_cast<DWORD>(v.size()), flags, out, cb);
    };
    // NOCOPY: the record alone, pointing into the caller's bytes.
    CRYPT_BIT_BLOB blob{};
    DWORD cb = 0, small = sizeof blob - 1;
    ASSERT_EQ(decode(value, CRYPT_DECODE_NOCOPY_FLAG, nullptr, &cb), TRUE);
    EXPECT_EQ(decode(value, CRYPT_DECODE_NOCOPY_FLAG, &blob, &small), FALSE);
    EXPECT_EQ(std::make_tuple(cb, GetLastError(), small), std::make_tuple(DWORD(sizeof blob), 234u, DWORD(sizeof blob)));
    ASSERT_EQ(decode(value, CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb), TRUE);
    EXPECT_EQ(std::make_tuple(blob.cbData, blob.cUnusedBits, blob.pbData), std::make_tuple(1u, 1u, value.data() + 3));
    // Copying: the bits follow the record in the caller's buffer.
    cb = 0;
    ASSERT_EQ(decode(value, 0, nullptr, &cb), TRUE);
    std::vector<uint8_t> out(cb);
    ASSERT_EQ(decode(value, 0, out.data(), &cb), TRUE);
    std::memcpy(&blob, out.data(), sizeof blob);
    EXPECT_EQ(std::make_tuple(cb, blob.pbData, blob.pbData[0]), std::make_tuple(DWORD(sizeof blob + 1), out.data() + sizeof blob, BYTE(0x86)));
    for (const char* bad : {"0400", "0300", "030108", "03020880", "0302", "0302018600", "03820001"}) {
        cb = sizeof blob;
        EXPECT_EQ(decode(hex(bad), CRYPT_DECODE_NOCOPY_FLAG, &blob, &cb), FALSE) << bad;
        EXPECT_EQ(GetLastError(), 0x8009310Bu) << bad;
    }
}

}  // namespace
