// The OCSP-signing policy over the fake platform: its outcome table with the CertID
// verdicts and their traces, the checks of the records and the nocheck report.
#include "ocsp_test_util.h"
#include "qvfake.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

using namespace ocsptest;

namespace {

const DWORD kWrongUsage = 0x800B0110u;

class OcspPolicy : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

BOOL authorizeAll(PCCERT_CONTEXT) { return TRUE; }
BOOL authorizeNone(PCCERT_CONTEXT) { return FALSE; }
BOOL authorizeThrows(PCCERT_CONTEXT) { throw std::runtime_error("callback"); }

struct Row {
    const char* name;
    Kind kind;
    bool badKeyUsage, oneElement, extra;
    const char* ids;  // see Responder::add
    PFN_QVOCSP_ANY_CERT_AUTHORIZED callback;
    DWORD dwError;  // pPolicyStatus, with both indices 0 when set and -1 otherwise
    DWORD bits;     // the extra status
    const char* checked;  // rgdwCertIdChecked; 7 untouched
    const char* trace;
};

const Row kRows[] = {
    {"CA, no CertIDs", kCaResponder, false, false, true, "", nullptr, 0, 0, "", nullptr},
    {"CA passes", kCaResponder, false, false, true, "gg", nullptr, 0, 0, "11", nullptr},
    {"CA passes, no extra status", kCaResponder, false, false, false, "gg", nullptr, 0, 0, "77", nullptr},
    {"CA, signature fails", kCaResponder, true, false, false, "gg", nullptr, kWrongUsage, 0, "77", nullptr},
    {"CA, signature fails: with extra status the CertIDs still count", kCaResponder, true, false, true, "gf",
     nullptr, 0, 0x30, "10", nullptr},
    {"CA, foreign issuer ends the walk", kCaResponder, false, false, false, "fg", nullptr, kWrongUsage, 0, "77",
     "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[0]: issuer in CertId "
     "differs from subject of OCSP certificate (CA case).\n"},
    {"CA, every failure shown, the bit set once", kCaResponder, false, false, true, "fgf", nullptr, 0, 0x10, "010",
     "CAtlException raised while checking pExtraPara->rgCertId[2]: m_hr = 0x800b0110\n"},
    {"self-issued CA of one element answers for itself", kCaResponder, false, true, true, "gc", nullptr, 0, 0, "11",
     nullptr},
    {"EE passes", kEeResponder, false, false, true, "gg", nullptr, 0, 0, "11", nullptr},
    {"EE of one element: its own key for its issuer's", kEeResponder, false, true, true, "g", nullptr, 0, 0, "1",
     nullptr},
    {"EE, signature fails", kEeResponder, true, false, true, "g", nullptr, 0, 0x20, "1", nullptr},
    {"EE without the purpose", kEeWithoutPurpose, false, false, false, "g", nullptr, kWrongUsage, 0, "7",
     "Certificate of OCSP responder is strictly EE certificate and is not valid for signing OCSP responses by "
     "Application Policy or EKU.\n"},
    {"EE without the purpose: CertIDs unexamined", kEeWithoutPurpose, false, false, true, "gg", nullptr, 0, 0x40,
     "00", nullptr},
    {"EE, foreign issuer", kEeResponder, false, false, true, "gf", nullptr, 0, 0x10, "10",
     "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[1]: issuer in CertId "
     "differs from one of OCSP certificate (end entity case).\n"},
    {"EE, Cyclic needs serial and key hash", kEeResponder, false, false, true, "cgk", nullptr, 0, 0x10, "011",
     "\"Cyclic\" status checking in pExtraPara->rgCertId[0].\n"},
    {"EE, Cyclic without extra status", kEeResponder, false, false, false, "gc", nullptr, kWrongUsage, 0, "77",
     nullptr},
    {"EE, unknown algorithm fails its record only", kEeResponder, false, false, true, "gug", nullptr, 0, 0x10, "101",
     "CAtlException raised while checking pExtraPara->rgCertId[1]"},
    {"EE authorized for any certificate, never for itself", kEeResponder, false, false, true, "fgc", authorizeAll, 0,
     0x10, "110", "Certificate of OCSP service is authorized to sign status of any certificate.\n"},
    {"EE not authorized", kEeResponder, false, false, true, "fg", authorizeNone, 0, 0x10, "01",
     "issuer in CertId differs from one of OCSP certificate and OCSP responder is not authorized to sign status of "
     "any certificate (end entity case).\n"},
    {"EE, a throwing callback fails its record", kEeResponder, false, false, true, "fg", authorizeThrows, 0, 0x10,
     "01", "Unknown exception raised while checking pExtraPara->rgCertId[0]\n"},
};

TEST_F(OcspPolicy, OutcomeTable) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        Responder r(row.kind, row.oneElement);
        if (row.badKeyUsage)
            r.cert.addExtension(szOID_KEY_USAGE, hex("03020520"));
        CertIds ids;
        for (const char* p = row.ids; *p; ++p)
            r.add(ids, *p);
        Call call(ids, row.extra);
        call.extraPara.pfnAnyCertAuthorized = row.callback;
        testsupport::TraceCapture trace;
        ASSERT_TRUE(call.run(r.get()));
        const LONG index = row.dwError != 0 ? 0 : -1;
        EXPECT_EQ(call.status.dwError, row.dwError);
        EXPECT_EQ(call.status.lChainIndex, index);
        EXPECT_EQ(call.status.lElementIndex, index);
        EXPECT_EQ(call.checkedText(), row.checked);
        EXPECT_EQ(call.extra.dwError, row.extra ? row.bits : 0x77u);
        if (row.trace) {
            EXPECT_NE(trace.text().find(row.trace), std::string::npos) << trace.text();
        }
        const std::string text = trace.text();
        EXPECT_EQ(text.find("dwError |= 0x00000010"), text.rfind("dwError |= 0x00000010")) << "reported once";
    }
}

// The callback is the record's last field: read only when cbSize covers it; a size beyond
// the record is refused.
int g_calls = 0;
BOOL countingAuthorize(PCCERT_CONTEXT) { return ++g_calls, TRUE; }

TEST_F(OcspPolicy, ExtraParaSizes) {
    const DWORD full = sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA);
    const DWORD noCallback = offsetof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA, pfnAnyCertAuthorized);
    EXPECT_EQ(full, sizeof(void*) == 8 ? 40u : 20u);
    EXPECT_EQ(noCallback, sizeof(void*) == 8 ? 32u : 16u);
    for (DWORD cbSize : {full + 1, full, full - 1, noCallback}) {
        SCOPED_TRACE(cbSize);
        Responder r(kEeResponder);
        CertIds ids;
        r.add(ids, 'f');
        Call call(ids, true);
        call.extraPara.cbSize = cbSize;
        call.extraPara.pfnAnyCertAuthorized = countingAuthorize;
        g_calls = 0;
        EXPECT_EQ(call.run(r.get()), cbSize <= full);
        EXPECT_EQ(g_calls, cbSize == full ? 1 : 0);
        EXPECT_EQ(call.checkedText(), cbSize == full ? "1" : cbSize > full ? "7" : "0");
        if (cbSize > full) {
            EXPECT_EQ(call.lastError, 87u);
        }
    }
}

// Bad records are found before anything else runs, wherever they stand; the address tests
// compare pointers, so equal contents elsewhere pass.
TEST_F(OcspPolicy, RecordChecks) {
    static char oid[] = "1.3.14.3.2.26", sameText[] = "1.3.14.3.2.26";
    static BYTE sameHash[20];
    void (*const spoil[])(QVOCSP_CERT_ID&) = {
        [](QVOCSP_CERT_ID& c) { c.HashAlgorithm.pszObjId = nullptr; },
        [](QVOCSP_CERT_ID& c) { c.IssuerNameHash.cbData = 0; },
        [](QVOCSP_CERT_ID& c) { c.IssuerKeyHash.pbData = nullptr; },
        [](QVOCSP_CERT_ID& c) { c.SerialNumber.cbData = 0; },
        [](QVOCSP_CERT_ID& c) { c.IssuerKeyHash.pbData = c.IssuerNameHash.pbData; },
        [](QVOCSP_CERT_ID& c) { c.SerialNumber.pbData = reinterpret_cast<BYTE*>(c.HashAlgorithm.pszObjId); },
        [](QVOCSP_CERT_ID& c) {  // equal contents at other addresses: good
            c.HashAlgorithm.pszObjId = oid;
            c.SerialNumber = {sizeof sameText, reinterpret_cast<BYTE*>(sameText)};
            std::copy(c.IssuerNameHash.pbData, c.IssuerNameHash.pbData + sizeof sameHash, sameHash);
            c.IssuerKeyHash = {sizeof sameHash, sameHash};
        },
    };
    for (size_t i = 0; i < sizeof spoil / sizeof spoil[0]; ++i) {
        SCOPED_TRACE(i);
        const bool good = i + 1 == sizeof spoil / sizeof spoil[0];
        Responder r(kCaResponder);
        CertIds ids;
        r.add(ids, 'g');
        r.add(ids, 'g');
        spoil[i](ids.data()[1]);
        Call call(ids, true);
        testsupport::TraceCapture trace;
        EXPECT_EQ(call.run(r.get()), good ? TRUE : FALSE);
        EXPECT_EQ(call.checkedText(), good ? "11" : "77");
        if (!good) {
            EXPECT_EQ(call.lastError, 87u);
            EXPECT_NE(trace.text().find("CheckOcspCertIds|rgCertId[i] if set must not be NULL\n"), std::string::npos);
        }
    }
    Responder r(kCaResponder);
    CertIds none;
    Call call(none, true);
    EXPECT_TRUE(call.run(r.get())) << "no count and no records";
    call.extraPara.cCertId = 1;
    EXPECT_FALSE(call.run(r.get())) << "a count without records";
}

TEST_F(OcspPolicy, FlagsAndNocheck) {
    for (bool nocheck : {false, true}) {
        Responder r(kEeResponder, false, nocheck);
        CertIds ids;
        Call call(ids, true);
        call.para.dwFlags = 0xFFFF;
        EXPECT_TRUE(call.run(r.get()));
        EXPECT_EQ(call.extra.fOcspNoCheck, nocheck ? 1u : 0u);
        call.para.dwFlags = 0x10000;
        call.extra.fOcspNoCheck = 9;
        EXPECT_FALSE(call.run(r.get()));
        EXPECT_EQ(call.lastError, 87u);
        EXPECT_EQ(call.extra.fOcspNoCheck, nocheck ? 1u : 0u) << "reported before the flags are read";
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
    Call call(ids, false);
    EXPECT_FALSE(call.run(r.get()));
    EXPECT_EQ(call.lastError, 0x80070057u);
    EXPECT_EQ(call.status.dwError, 0x800B0101u);
}

// Both checkers live for the whole loop: each algorithm is hashed once per call.
TEST_F(OcspPolicy, OneHashPerAlgorithm) {
    Responder r(kEeResponder);
    CertIds ids;
    for (int i = 0; i < 10; ++i)
        r.add(ids, 'g', i % 2 ? kSha1 : kGost2012);
    Call call(ids, true);
    const DWORD before = qvfake_prov_calls_of("CryptCreateHash");
    ASSERT_TRUE(call.run(r.get()));
    EXPECT_EQ(call.checkedText(), std::string(10, '1'));
    EXPECT_EQ(qvfake_prov_calls_of("CryptCreateHash") - before, 4u) << "name and key, two algorithms";
}

}  // namespace
