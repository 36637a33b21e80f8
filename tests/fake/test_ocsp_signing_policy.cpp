// The OCSP-signing policy over the fake platform: its outcome table with the CertID
// verdicts and their traces, the checks of the records, the nocheck report; and the CertID
// checker's hash cache. Hashes come from the library's own MakeHash.
#include "policies/chain_policies.h"
#include "policies/crypt.h"
#include "policies/ocsp_certid.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <stdexcept>

using namespace testsupport;
using Quorvane::CBlob;
using Quorvane::ASN1::CAlgorithmIdentifierEx;
using Quorvane::PKI::OCSP::CCertIDChecker;

namespace {

typedef std::vector<uint8_t> Bytes;
const char *const kSha1 = "1.3.14.3.2.26", *const kGost2012 = "1.2.643.7.1.1.2.2";
const DWORD kWrongUsage = 0x800B0110u;
const Bytes kIssuerName = hex("3015311330110603550403130A49737375696E67204341");  // CN=Issuing CA

Bytes hashOf(const char* oid, const Bytes& data) {
    const CBlob h = Quorvane::MakeHash(0, CertOIDToAlgId(oid), CBlob(data.data(), data.size()), nullptr);
    return Bytes(h.pbData(), h.pbData() + h.cbData());
}
DWORD hashes() { return qvfake_prov_calls_of("CryptCreateHash"); }

// CertID records over storage that never moves, so a test may spoil one in place.
struct CertIds {
    std::deque<std::pair<std::string, std::vector<Bytes>>> store;
    std::vector<QVOCSP_CERT_ID> recs;
    void add(const char* oid, const Bytes& name, const Bytes& key, const Bytes& serial) {
        store.push_back({oid, {name, key, serial}});
        auto& s = store.back();
        auto blob = [&](int i) { return CRYPT_HASH_BLOB{static_cast<DWORD>(s.second[i].size()), s.second[i].data()}; };
        recs.push_back(QVOCSP_CERT_ID{{&s.first[0], {0, nullptr}}, blob(0), blob(1), blob(2)});
    }
};

enum Kind { kCa, kEe, kEeWithoutPurpose };

// A responder and its issuer as one chain (or the responder alone). The certificates asked
// about are issued by "Issuing CA": the CA responder itself, or the delegate's issuer.
struct Responder {
    explicit Responder(Kind kind, bool oneElement = false, bool nocheck = false) {
        static LPSTR purposes[] = {const_cast<LPSTR>("1.3.6.1.5.5.7.3.9"), const_cast<LPSTR>("1.3.6.1.5.5.7.3.1")};
        const Bytes root = hex("30123110300E06035504031307526F6F74204341");  // CN=Root CA
        const bool ca = kind == kCa;
        cert.subject = ca ? kIssuerName : hex("30143112301006035504031309526573706F6E646572");
        cert.issuer = ca && !oneElement ? root : kIssuerName;
        cert.key = ca ? issuerKey : hex("04B1B2B3B4");
        cert.serial = {0x34, 0x12};  // 0x1234
        cert.addExtension(szOID_BASIC_CONSTRAINTS2, hex(ca ? "30030101FF" : "3000"));
        if (!ca)
            cert.addExtension(szOID_ENHANCED_KEY_USAGE, hex(kind == kEe ? "300A06082B06010505070309"
                                                                        : "300A06082B06010505070301"));
        if (nocheck)
            cert.addExtension(szOID_PKIX_OCSP_NOCHECK, hex("0500"));
        if (oneElement && !ca)
            issuerKey = cert.key;  // the responder's own key stands in for its issuer's
        issuer.subject = ca ? root : kIssuerName;
        issuer.key = ca ? hex("04C1C2") : issuerKey;
        std::vector<PCCERT_CONTEXT> certs{cert.context(), issuer.context()};
        chain.reset(new FakeChain({certs.begin(), certs.end() - oneElement}));
        usage = CERT_ENHKEY_USAGE{1, &purposes[kind == kEe ? 0 : 1]};
        chain->element(0).pApplicationUsage = ca ? nullptr : &usage;
    }
    // 'g' good, 'f' foreign issuer, 'c' the responder itself, 'k' its serial under another
    // issuer key, 'u' an algorithm no provider knows.
    void add(CertIds& ids, char what, const char* oid = kSha1) const {
        const Bytes name = what == 'f' ? hex("3010310E300C060355040313054F74686572") : kIssuerName;
        const Bytes key = what == 'k' ? Bytes{0x04, 0x09} : issuerKey;
        ids.add(what == 'u' ? "1.2.3.4" : oid, hashOf(oid, name), hashOf(oid, key),
                what == 'c' || what == 'k' ? Bytes{0x12, 0x34} : Bytes{0x05});
    }

    Bytes issuerKey = hex("04A1A2A3A4A5A6A7A8");
    FakeCert cert, issuer;
    std::unique_ptr<FakeChain> chain;
    CERT_ENHKEY_USAGE usage{};
};

// The records of one call; rgdwCertIdChecked starts at 7 so that untouched elements show.
struct Call {
    Call(CertIds& ids, bool withExtraStatus) : checked(ids.recs.size(), '7') {
        status.pvExtraPolicyStatus = withExtraStatus ? &extra : nullptr;
        extraPara.cCertId = static_cast<DWORD>(ids.recs.size());
        extraPara.rgCertId = ids.recs.empty() ? nullptr : ids.recs.data();
    }
    BOOL run(const Responder& r) {
        std::vector<DWORD> out(checked.begin(), checked.end());
        for (DWORD& v : out)
            v -= '0';
        extra.rgdwCertIdChecked = out.empty() ? nullptr : out.data();
        SetLastError(0x0BADF00Du);
        ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, r.chain->get(), &para, &status);
        lastError = GetLastError();
        for (size_t i = 0; i < out.size(); ++i)
            checked[i] = static_cast<char>('0' + out[i]);
        return ok;
    }

    std::string checked;
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr, 0, nullptr, nullptr};
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0x77, 0x55, 0x66, 9, nullptr};
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0x11, 0x22, 0x33, nullptr};
    DWORD lastError = 0;
    BOOL ok = 2;
};

class OcspPolicy : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

int g_calls = 0;
BOOL authorizeAll(PCCERT_CONTEXT) { return ++g_calls, TRUE; }
BOOL authorizeNone(PCCERT_CONTEXT) { return FALSE; }
BOOL authorizeThrows(PCCERT_CONTEXT) { throw std::runtime_error("callback"); }

// pPolicyStatus' dwError has both indices 0 when set and -1 otherwise; rgdwCertIdChecked
// as digits, 7 untouched.
TEST_F(OcspPolicy, OutcomeTable) {
    const struct {
        const char* name;
        Kind kind;
        bool badKeyUsage, oneElement, extra;
        const char* ids;  // see Responder::add
        PFN_QVOCSP_ANY_CERT_AUTHORIZED callback;
        DWORD dwError, bits;
        const char *checked, *trace;
    } rows[] = {
        {"CA, no CertIDs", kCa, false, false, true, "", nullptr, 0, 0, "", ""},
        {"CA passes", kCa, false, false, true, "gg", nullptr, 0, 0, "11", ""},
        {"CA passes, no extra status", kCa, false, false, false, "gg", nullptr, 0, 0, "77", ""},
        {"CA, signature fails", kCa, true, false, false, "gg", nullptr, kWrongUsage, 0, "77", ""},
        {"CA, signature fails: with extra status the CertIDs still count", kCa, true, false, true, "gf", nullptr, 0,
         0x30, "10", ""},
        {"CA, foreign issuer ends the walk", kCa, false, false, false, "fg", nullptr, kWrongUsage, 0, "77",
         "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[0]: issuer in CertId "
         "differs from subject of OCSP certificate (CA case).\n"},
        {"CA, every failure shown, the bit set once", kCa, false, false, true, "fgf", nullptr, 0, 0x10, "010",
         "CAtlException raised while checking pExtraPara->rgCertId[2]: m_hr = 0x800b0110\n"},
        {"self-issued CA of one element answers for itself", kCa, false, true, true, "gc", nullptr, 0, 0, "11", ""},
        {"EE passes", kEe, false, false, true, "gg", nullptr, 0, 0, "11", ""},
        {"EE of one element: its own key for its issuer's", kEe, false, true, true, "g", nullptr, 0, 0, "1", ""},
        {"EE, signature fails", kEe, true, false, true, "g", nullptr, 0, 0x20, "1", ""},
        {"EE without the purpose", kEeWithoutPurpose, false, false, false, "g", nullptr, kWrongUsage, 0, "7",
         "Certificate of OCSP responder is strictly EE certificate and is not valid for signing OCSP responses by "
         "Application Policy or EKU.\n"},
        {"EE without the purpose: CertIDs unexamined", kEeWithoutPurpose, false, false, true, "gg", nullptr, 0, 0x40,
         "00", ""},
        {"EE, foreign issuer", kEe, false, false, true, "gf", nullptr, 0, 0x10, "10",
         "Certificate of OCSP responder is not valid for signing status of pExtraPara->rgCertId[1]: issuer in CertId "
         "differs from one of OCSP certificate (end entity case).\n"},
        {"EE, Cyclic needs serial and key hash", kEe, false, false, true, "cgk", nullptr, 0, 0x10, "011",
         "\"Cyclic\" status checking in pExtraPara->rgCertId[0].\n"},
        {"EE, Cyclic without extra status", kEe, false, false, false, "gc", nullptr, kWrongUsage, 0, "77", ""},
        {"EE, unknown algorithm fails its record only", kEe, false, false, true, "gug", nullptr, 0, 0x10, "101",
         "CAtlException raised while checking pExtraPara->rgCertId[1]"},
        {"EE authorized for any certificate, never for itself", kEe, false, false, true, "fgc", authorizeAll, 0, 0x10,
         "110", "Certificate of OCSP service is authorized to sign status of any certificate.\n"},
        {"EE not authorized", kEe, false, false, true, "fg", authorizeNone, 0, 0x10, "01",
         "issuer in CertId differs from one of OCSP certificate and OCSP responder is not authorized to sign status "
         "of any certificate (end entity case).\n"},
        {"EE, a throwing callback fails its record", kEe, false, false, true, "fg", authorizeThrows, 0, 0x10, "01",
         "Unknown exception raised while checking pExtraPara->rgCertId[0]\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Responder r(row.kind, row.oneElement);
        if (row.badKeyUsage)
            r.cert.addExtension(szOID_KEY_USAGE, hex("03020520"));
        CertIds ids;
        for (const char* p = row.ids; *p; ++p)
            r.add(ids, *p);
        Call call(ids, row.extra);
        call.extraPara.pfnAnyCertAuthorized = row.callback;
        TraceCapture trace;
        const LONG index = row.dwError != 0 ? 0 : -1;
        call.run(r);
        EXPECT_EQ(std::make_tuple(call.ok, call.status.dwError, call.status.lChainIndex, call.status.lElementIndex,
                                  call.checked, call.extra.dwError),
                  std::make_tuple(TRUE, row.dwError, index, index, row.checked, row.extra ? row.bits : 0x77u));
        const std::string text = trace.text();
        EXPECT_NE(text.find(row.trace), std::string::npos) << text;
        EXPECT_EQ(text.find("dwError |= 0x00000010"), text.rfind("dwError |= 0x00000010")) << "reported once";
    }
}

// The callback is the record's last field: read only when cbSize covers it; a size beyond
// the record is refused.
TEST_F(OcspPolicy, ExtraParaSizes) {
    const DWORD full = sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA);
    const DWORD noCallback = offsetof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA, pfnAnyCertAuthorized);
    EXPECT_EQ(noCallback, sizeof(void*) == 8 ? 32u : 16u);
    for (DWORD cbSize : {full + 1, full, full - 1, noCallback}) {
        SCOPED_TRACE(cbSize);
        Responder r(kEe);
        CertIds ids;
        r.add(ids, 'f');
        Call call(ids, true);
        call.extraPara.cbSize = cbSize;
        call.extraPara.pfnAnyCertAuthorized = authorizeAll;
        g_calls = 0;
        call.run(r);
        EXPECT_EQ(std::make_tuple(call.ok, g_calls, call.checked, call.lastError),
                  std::make_tuple(BOOL(cbSize <= full), cbSize == full ? 1 : 0,
                                  std::string(cbSize == full ? "1" : cbSize > full ? "7" : "0"),
                                  cbSize > full ? 87u : 0x0BADF00Du));
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
        Responder r(kCa);
        CertIds ids;
        r.add(ids, 'g');
        r.add(ids, 'g');
        spoil[i](ids.recs[1]);
        Call call(ids, true);
        TraceCapture trace;
        call.run(r);
        EXPECT_EQ(std::make_tuple(call.ok, call.checked, call.lastError),
                  std::make_tuple(BOOL(good), std::string(good ? "11" : "77"), good ? 0x0BADF00Du : 87u));
        EXPECT_EQ(trace.text().find("CheckOcspCertIds|rgCertId[i] if set must not be NULL\n") != std::string::npos,
                  !good);
    }
    Responder r(kCa);
    CertIds none;
    Call call(none, true);
    EXPECT_TRUE(call.run(r)) << "no count and no records";
    call.extraPara.cCertId = 1;
    EXPECT_FALSE(call.run(r)) << "a count without records";
}

// An inner policy that cannot run makes the callback FALSE, its status merged first.
BOOL pkupFails(void*, LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA, PCERT_CHAIN_POLICY_STATUS status) {
    status->dwError = 0x800B0101u;
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

// The nocheck report comes before the flags are read; unknown flags are 87.
TEST_F(OcspPolicy, FlagsNocheckAndInnerFailure) {
    for (bool nocheck : {false, true}) {
        Responder r(kEe, false, nocheck);
        CertIds ids;
        Call call(ids, true);
        call.para.dwFlags = 0xFFFF;
        call.run(r);
        EXPECT_EQ(std::make_tuple(call.ok, call.extra.fOcspNoCheck), std::make_tuple(TRUE, DWORD(nocheck)));
        call.para.dwFlags = 0x10000;
        call.extra.fOcspNoCheck = 9;
        call.run(r);
        EXPECT_EQ(std::make_tuple(call.ok, call.lastError, call.extra.fOcspNoCheck),
                  std::make_tuple(FALSE, 87u, DWORD(nocheck)));
    }
    qvfake_set_pkup_hook(pkupFails, nullptr);
    Responder r(kCa);
    CertIds ids;
    Call call(ids, false);
    call.run(r);
    EXPECT_EQ(std::make_tuple(call.ok, call.lastError, call.status.dwError),
              std::make_tuple(FALSE, 0x80070057u, 0x800B0101u));
}

// Both checkers live for the whole loop: each algorithm is hashed once per call.
TEST_F(OcspPolicy, OneHashPerAlgorithm) {
    Responder r(kEe);
    CertIds ids;
    for (int i = 0; i < 10; ++i)
        r.add(ids, 'g', i % 2 ? kSha1 : kGost2012);
    Call call(ids, true);
    const DWORD before = hashes();
    ASSERT_TRUE(call.run(r));
    EXPECT_EQ(call.checked, std::string(10, '1'));
    EXPECT_EQ(hashes() - before, 4u) << "name and key, two algorithms";
}

const Bytes kKey = hex("04A1A2A3");
const CBlob kNameBlob(kIssuerName.data(), kIssuerName.size()), kKeyBlob(kKey.data(), kKey.size());

// A derived checker decides how entries are made; one that makes none is E_UNEXPECTED.
struct LazyChecker : CCertIDChecker {
    LazyChecker() : CCertIDChecker(false, CBlob(), CBlob()) {}
    void createEntry(const CAlgorithmIdentifierEx&) const override {}
};

// One pair of hashes per algorithm text: a second lookup is a map lookup;
// sha1WithRSAEncryption resolves to SHA-1 too and is an entry of its own. A failed hash
// stores nothing, so the next lookup hashes again.
TEST_F(OcspPolicy, CertIdCheckerCache) {
    EXPECT_EQ(thrownHr([] { CCertIDChecker(true, kNameBlob, CBlob()); }), E_INVALIDARG);
    EXPECT_EQ(qvfake_prov_calls(), 0u) << "refused before any hashing";
    const CCertIDChecker checker(true, kNameBlob, kKeyBlob);
    const CAlgorithmIdentifierEx sha1(kSha1);
    qvfake_prov_fail_next("CryptHashData", 0x80090002u);
    EXPECT_EQ(thrownHr([&] { checker.findEntry(sha1); }), HRESULT(0x80090002u));
    const Bytes nameHash = hashOf(kSha1, kIssuerName), keyHash = hashOf(kSha1, kKey);
    const DWORD before = hashes();
    const auto& entry = checker.findEntry(sha1);
    EXPECT_EQ(std::make_tuple(hexOf(entry.second.first), hexOf(entry.second.second), sha1.get_algId()),
              std::make_tuple(toHex(nameHash.data(), 20), toHex(keyHash.data(), 20), ALG_ID(CALG_SHA1)));
    EXPECT_EQ(&checker.findEntry(CAlgorithmIdentifierEx(kSha1)), &entry);
    const auto& other = checker.findEntry(CAlgorithmIdentifierEx("1.2.840.113549.1.1.5"));
    EXPECT_EQ(std::make_tuple(&other != &entry, other.second.first == entry.second.first, hashes() - before),
              std::make_tuple(true, true, 4u));
    EXPECT_THROW(checker.findEntry(CAlgorithmIdentifierEx("1.2.3.4")), ATL::CAtlException) << "no ALG_ID";
    EXPECT_EQ(CCertIDChecker(false, kNameBlob, CBlob()).findEntry(sha1).second.second.cbData(), 0u) << "no key hash";
    EXPECT_EQ(thrownHr([] { LazyChecker().findEntry(CAlgorithmIdentifierEx(kSha1)); }), HRESULT(0x8000FFFFu));
}

}  // namespace
