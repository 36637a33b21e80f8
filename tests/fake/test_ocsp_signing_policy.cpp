// The OCSP-signing policy over the fake platform: its outcome table, the checks of the
// records, the CertID verdicts (CA and delegated responders, Cyclic, the callback) and
// the nocheck report.
#include "ocsp_test_util.h"
#include "qvfake.h"

#include <cstddef>
#include <stdexcept>

using namespace ocsptest;
using testsupport::TraceCapture;

namespace {

const DWORD kWrongUsage = 0x800B0110u;
const DWORD kUnset = 7;

class OcspPolicy : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

int countOf(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// One CertID of a row: 'g' good, 'f' foreign issuer, 'c' the responder itself, 'u' an
// algorithm no provider knows.
void addIds(const Responder& r, CertIds& ids, const char* spec) {
    for (const char* p = spec; *p; ++p) {
        if (*p == 'g') r.good(ids);
        if (*p == 'f') r.foreign(ids);
        if (*p == 'c') r.self(ids);
        if (*p == 'u') r.good(ids).HashAlgorithm.pszObjId = const_cast<LPSTR>("1.2.3.4");
    }
}

struct OutcomeRow {
    const char* name;
    Kind kind;
    bool badKeyUsage;  // the signature policy fails (0x20)
    const char* ids;
    bool extra;
    DWORD dwError;  // pPolicyStatus
    LONG index;     // both indices
    DWORD bits;     // extra status
    const char* checked;  // rgdwCertIdChecked, '7' untouched
};

const OutcomeRow kOutcomes[] = {
    {"CA passes, no CertIDs", kCaResponder, false, "", true, 0, -1, 0, ""},
    {"CA passes with CertIDs", kCaResponder, false, "gg", true, 0, -1, 0, "11"},
    {"CA passes without extra status", kCaResponder, false, "gg", false, 0, -1, 0, "77"},
    {"CA: signature fails, no extra status", kCaResponder, true, "gg", false, kWrongUsage, 0, 0, "77"},
    {"CA: signature fails, extra status: checks go on", kCaResponder, true, "gf", true, 0, -1, 0x30, "10"},
    {"CA: foreign issuer, no extra status ends the walk", kCaResponder, false, "fg", false, kWrongUsage, 0, 0, "77"},
    {"CA: failures reported once, records shown", kCaResponder, false, "fgf", true, 0, -1, 0x10, "010"},
    {"CA answering for itself is no Cyclic case", kCaResponder, false, "c", true, 0, -1, 0, "1"},
    {"EE passes with CertIDs", kEeResponder, false, "gg", true, 0, -1, 0, "11"},
    {"EE: signature fails, no extra status", kEeResponder, true, "g", false, kWrongUsage, 0, 0, "7"},
    {"EE: signature fails, extra status", kEeResponder, true, "g", true, 0, -1, 0x20, "1"},
    {"EE without the purpose, no extra status", kEeWithoutPurpose, false, "g", false, kWrongUsage, 0, 0, "7"},
    {"EE without the purpose: CertIDs unexamined", kEeWithoutPurpose, false, "gg", true, 0, -1, 0x40, "00"},
    {"EE: foreign issuer without callback", kEeResponder, false, "gf", true, 0, -1, 0x10, "10"},
    {"EE: Cyclic", kEeResponder, false, "cg", true, 0, -1, 0x10, "01"},
    {"EE: Cyclic, no extra status", kEeResponder, false, "gc", false, kWrongUsage, 0, 0, "77"},
    {"EE: unknown algorithm fails only its record", kEeResponder, false, "gug", true, 0, -1, 0x10, "101"},
};

TEST_F(OcspPolicy, OutcomeTable) {
    for (const OutcomeRow& row : kOutcomes) {
        SCOPED_TRACE(row.name);
        Responder r(row.kind);
        if (row.badKeyUsage)
            r.cert.addExtension(szOID_KEY_USAGE, hex("03020520"));
        CertIds ids;
        addIds(r, ids, row.ids);
        Call call(ids, row.extra);
        ASSERT_TRUE(call.run(r.get()));
        EXPECT_EQ(call.status.dwError, row.dwError);
        EXPECT_EQ(call.status.lChainIndex, row.index);
        EXPECT_EQ(call.status.lElementIndex, row.index);
        std::string checked;
        for (DWORD v : call.checked)
            checked += static_cast<char>('0' + v);
        EXPECT_EQ(checked, row.checked);
        if (row.extra) {
            EXPECT_EQ(call.extra.dwError, row.bits);
            EXPECT_EQ(call.extra.fOcspNoCheck, 0u);
        } else {
            EXPECT_EQ(call.extra.dwError, 0x77u) << "an extra status not handed over stays untouched";
        }
    }
}

// The first failing record ends the walk without extra status; with one every record is
// examined and traced, and the bit is set once.
TEST_F(OcspPolicy, FailingRecordsAreTracedOneByOne) {
    Responder r(kCaResponder);
    CertIds ids;
    addIds(r, ids, "ffg");
    {
        Call call(ids, false);
        TraceCapture trace;
        ASSERT_TRUE(call.run(r.get()));
        EXPECT_EQ(countOf(trace.text(), "CAtlException raised while checking"), 1);
        EXPECT_NE(trace.text().find("Certificate of OCSP responder is not valid for signing status of "
                                    "pExtraPara->rgCertId[0]: issuer in CertId differs from subject of OCSP "
                                    "certificate (CA case).\n"),
                  std::string::npos);
        EXPECT_NE(trace.text().find("CAtlException raised while checking pExtraPara->rgCertId[0]: m_hr = 0x800b0110\n"),
                  std::string::npos);
    }
    Call call(ids, true);
    TraceCapture trace;
    ASSERT_TRUE(call.run(r.get()));
    EXPECT_EQ(countOf(trace.text(), "CAtlException raised while checking"), 2);
    EXPECT_EQ(countOf(trace.text(), "Setting pExtraStatus->dwError |= 0x00000010"), 1);
}

TEST_F(OcspPolicy, EndEntityTraces) {
    struct {
        Kind kind;
        const char* ids;
        const char* text;
    } rows[] = {
        {kEeResponder, "c", "\"Cyclic\" status checking in pExtraPara->rgCertId[0].\n"},
        {kEeResponder, "gf",
         "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[1]: issuer in "
         "CertId differs from one of OCSP certificate (end entity case).\n"},
        {kEeWithoutPurpose, "g",
         "Certificate of OCSP responder is strictly EE certificate and is not valid for signing OCSP responses by "
         "Application Policy or EKU.\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Responder r(row.kind);
        CertIds ids;
        addIds(r, ids, row.ids);
        Call call(ids, false);
        TraceCapture trace;
        ASSERT_TRUE(call.run(r.get()));
        EXPECT_NE(trace.text().find(row.text), std::string::npos) << trace.text();
    }
}

// Cyclic needs both the serial and the issuer key hash; the same serial under another key
// is another certificate.
TEST_F(OcspPolicy, CyclicNeedsSerialAndKeyHash) {
    Responder r(kEeResponder);
    CertIds ids;
    r.self(ids);
    ids.add(kSha1, hashOf(kSha1, r.issuerName), hashOf(kSha1, hex("0409")), {0x12, 0x34});
    r.good(ids, kSha1, {0x00, 0x12, 0x34});  // another serial, not another spelling
    Call call(ids, true);
    ASSERT_TRUE(call.run(r.get()));
    EXPECT_EQ(call.checked, (std::vector<DWORD>{0, 1, 1}));
}

BOOL authorizeAll(PCCERT_CONTEXT) { return TRUE; }
BOOL authorizeNone(PCCERT_CONTEXT) { return FALSE; }
BOOL authorizeThrows(PCCERT_CONTEXT) { throw std::runtime_error("callback"); }
int g_calls = 0;
BOOL countingAuthorize(PCCERT_CONTEXT) { return ++g_calls, TRUE; }

// The callback lets a delegated responder answer for foreign issuers, never for itself.
TEST_F(OcspPolicy, AnyCertAuthorizedCallback) {
    struct {
        PFN_QVOCSP_ANY_CERT_AUTHORIZED fn;
        const char* ids;
        const char* checked;
        const char* trace;
    } rows[] = {
        {authorizeAll, "fgc", "110", "Certificate of OCSP service is authorized to sign status of any certificate.\n"},
        {authorizeNone, "fg", "01",
         "issuer in CertId differs from one of OCSP certificate and OCSP responder is not authorized to sign status "
         "of any certificate (end entity case).\n"},
        {authorizeThrows, "fg", "01", "Unknown exception raised while checking pExtraPara->rgCertId[0]\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.trace);
        Responder r(kEeResponder);
        CertIds ids;
        addIds(r, ids, row.ids);
        Call call(ids, true);
        call.extraPara.pfnAnyCertAuthorized = row.fn;
        TraceCapture trace;
        ASSERT_TRUE(call.run(r.get()));
        std::string checked;
        for (DWORD v : call.checked)
            checked += static_cast<char>('0' + v);
        EXPECT_EQ(checked, row.checked);
        EXPECT_NE(trace.text().find(row.trace), std::string::npos) << trace.text();
    }
}

// The callback is the record's last field: read only when cbSize covers it, and a size
// beyond the record is refused.
TEST_F(OcspPolicy, ExtraParaSizes) {
    const DWORD full = sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA);
    const DWORD noCallback = offsetof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA, pfnAnyCertAuthorized);
    EXPECT_EQ(full, sizeof(void*) == 8 ? 40u : 20u);
    EXPECT_EQ(noCallback, sizeof(void*) == 8 ? 32u : 16u);
    struct {
        DWORD cbSize;
        BOOL ok;
        int calls;
        DWORD checked;
    } rows[] = {{full + 1, FALSE, 0, kUnset}, {full, TRUE, 1, 1}, {full - 1, TRUE, 0, 0}, {noCallback, TRUE, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.cbSize);
        Responder r(kEeResponder);
        CertIds ids;
        r.foreign(ids);
        Call call(ids, true);
        call.extraPara.cbSize = row.cbSize;
        call.extraPara.pfnAnyCertAuthorized = countingAuthorize;
        g_calls = 0;
        EXPECT_EQ(call.run(r.get()), row.ok);
        EXPECT_EQ(g_calls, row.calls);
        EXPECT_EQ(call.checked[0], row.checked);
        if (!row.ok) {
            EXPECT_EQ(call.lastError, 87u);
        }
    }
}

// Bad records are found before anything else runs, wherever they stand; the address tests
// compare pointers, so equal contents elsewhere pass.
TEST_F(OcspPolicy, RecordChecks) {
    static char objId[] = "1.3.14.3.2.26";
    const struct {
        const char* name;
        void (*spoil)(QVOCSP_CERT_ID&);
        BOOL ok;
    } rows[] = {
        {"null algorithm", [](QVOCSP_CERT_ID& c) { c.HashAlgorithm.pszObjId = nullptr; }, FALSE},
        {"empty name hash", [](QVOCSP_CERT_ID& c) { c.IssuerNameHash.cbData = 0; }, FALSE},
        {"null key hash", [](QVOCSP_CERT_ID& c) { c.IssuerKeyHash.pbData = nullptr; }, FALSE},
        {"empty serial", [](QVOCSP_CERT_ID& c) { c.SerialNumber.cbData = 0; }, FALSE},
        {"name and key hash shared", [](QVOCSP_CERT_ID& c) { c.IssuerKeyHash.pbData = c.IssuerNameHash.pbData; }, FALSE},
        {"algorithm text is the serial",
         [](QVOCSP_CERT_ID& c) { c.SerialNumber.pbData = reinterpret_cast<BYTE*>(c.HashAlgorithm.pszObjId); }, FALSE},
        {"equal contents at different addresses",
         [](QVOCSP_CERT_ID& c) {
             c.IssuerKeyHash = c.IssuerNameHash;
             c.IssuerKeyHash.pbData = reinterpret_cast<BYTE*>(objId);
             c.SerialNumber = {sizeof objId, reinterpret_cast<BYTE*>(objId)};
         },
         TRUE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Responder r(kCaResponder);
        CertIds ids;
        addIds(r, ids, "gg");
        row.spoil(ids.data()[1]);
        Call call(ids, true);
        TraceCapture trace;
        EXPECT_EQ(call.run(r.get()), row.ok);
        if (!row.ok) {
            EXPECT_EQ(call.lastError, 87u);
            EXPECT_EQ(call.checked, (std::vector<DWORD>{kUnset, kUnset}));
            EXPECT_NE(trace.text().find("CheckOcspCertIds|rgCertId[i] if set must not be NULL\n"), std::string::npos)
                << trace.text();
        }
    }
    Responder r(kCaResponder);
    CertIds none;
    Call call(none, true);
    call.extraPara.cCertId = 1;  // a count without records
    EXPECT_FALSE(call.run(r.get()));
    EXPECT_EQ(call.lastError, 87u);
}

TEST_F(OcspPolicy, FlagsNullRecordsAndNocheck) {
    Responder r(kEeResponder, false, true);
    CertIds ids;
    Call call(ids, true);
    call.extraPara.rgCertId = nullptr;  // no count, no records: accepted
    call.para.dwFlags = 0xFFFF;
    EXPECT_TRUE(call.run(r.get()));
    EXPECT_EQ(call.extra.fOcspNoCheck, 1u);
    call.para.dwFlags = 0x10000;
    EXPECT_FALSE(call.run(r.get()));
    EXPECT_EQ(call.lastError, 87u);
    EXPECT_EQ(call.extra.fOcspNoCheck, 1u) << "reported before the flags are read";

    call.para.dwFlags = 0;
    call.para.pvExtraPolicyPara = nullptr;
    EXPECT_TRUE(call.run(r.get()));
    EXPECT_EQ(call.status.dwError, 0u);
}

// A chain of one element: the responder's own key stands for its issuer's, and a
// self-issued CA answers for itself.
TEST_F(OcspPolicy, OneElementChain) {
    for (Kind kind : {kEeResponder, kCaResponder}) {
        Responder r(kind, true);
        if (kind == kCaResponder)
            r.cert.setIssuer(r.issuerName);
        CertIds ids;
        addIds(r, ids, kind == kCaResponder ? "gc" : "g");
        Call call(ids, true);
        ASSERT_TRUE(call.run(r.get()));
        EXPECT_EQ(call.extra.dwError, 0u);
        EXPECT_EQ(call.checked, std::vector<DWORD>(ids.size(), 1));
    }
}

// An inner policy that cannot run makes the callback FALSE, its status merged first.
BOOL pkupFails(void*, LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS status) {
    status->dwError = 0x800B0101u;
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

TEST_F(OcspPolicy, InnerPolicyCouldNotRun) {
    qvfake_set_pkup_hook(pkupFails, nullptr);
    Responder r(kCaResponder);
    CertIds ids;
    r.good(ids);
    Call call(ids, false);
    EXPECT_FALSE(call.run(r.get()));
    EXPECT_EQ(call.lastError, 0x80070057u);
    EXPECT_EQ(call.status.dwError, 0x800B0101u);
}

// Each algorithm is hashed once per call, whatever the number of CertIDs under it.
TEST_F(OcspPolicy, OneHashPerAlgorithm) {
    Responder r(kEeResponder);
    CertIds ids;
    for (int i = 0; i < 5; ++i) {
        r.good(ids, kSha1);
        r.good(ids, kGost2012);
    }
    Call call(ids, true);
    const DWORD before = qvfake_prov_calls_of("CryptCreateHash");
    ASSERT_TRUE(call.run(r.get()));
    EXPECT_EQ(call.extra.dwError, 0u);
    EXPECT_EQ(qvfake_prov_calls_of("CryptCreateHash") - before, 4u) << "name and key, two algorithms";
}

}  // namespace
