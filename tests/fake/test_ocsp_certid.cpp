// The CertID checker: its hash cache keyed by the identifier's text, and its failures.
#include "ocsp_test_util.h"
#include "policies/ocsp_certid.h"
#include "qvfake.h"

using namespace ocsptest;
using Quorvane::CBlob;
using Quorvane::ASN1::CAlgorithmIdentifierEx;
using Quorvane::PKI::OCSP::CCertIDChecker;

namespace {

DWORD hashes() { return qvfake_prov_calls_of("CryptCreateHash"); }
HRESULT hrOf(void (*f)()) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    return 0;
}

const Bytes kName = hex("3015311330110603550403130A49737375696E67204341"), kKey = hex("04A1A2A3");

// One pair of hashes per algorithm text: a second lookup, even through another object,
// is a map lookup; sha1WithRSAEncryption resolves to SHA-1 too and is an entry of its own.
TEST(CertIdChecker, HashesEachAlgorithmTextOnce) {
    qvfake_reset();
    const Bytes nameHash = hashOf(kSha1, kName), keyHash = hashOf(kSha1, kKey);
    const CCertIDChecker checker(true, CBlob(kName.data(), kName.size()), CBlob(kKey.data(), kKey.size()));
    const CAlgorithmIdentifierEx sha1(kSha1);
    const DWORD before = hashes();
    const auto& entry = checker.findEntry(sha1);
    EXPECT_EQ(Bytes(entry.second.first.pbData(), entry.second.first.pbData() + 20), nameHash);
    EXPECT_EQ(Bytes(entry.second.second.pbData(), entry.second.second.pbData() + 20), keyHash);
    EXPECT_EQ(sha1.get_algId(), CALG_SHA1) << "resolved on demand through the const object";
    EXPECT_EQ(&checker.findEntry(CAlgorithmIdentifierEx(kSha1)), &entry);
    EXPECT_EQ(hashes() - before, 2u);
    const auto& other = checker.findEntry(CAlgorithmIdentifierEx("1.2.840.113549.1.1.5"));
    EXPECT_NE(&other, &entry);
    EXPECT_EQ(other.second.first, entry.second.first);
    EXPECT_EQ(hashes() - before, 4u);

    const CCertIDChecker keyless(false, CBlob(kName.data(), kName.size()), CBlob());
    EXPECT_EQ(keyless.findEntry(sha1).second.second.cbData(), 0u) << "no key, no key hash";
}

// A failed hash stores nothing, so the next lookup hashes again.
TEST(CertIdChecker, Failures) {
    qvfake_reset();
    const DWORD before = qvfake_prov_calls();
    EXPECT_EQ(hrOf([] { CCertIDChecker(true, CBlob(), CBlob()); }), E_INVALIDARG);
    EXPECT_EQ(qvfake_prov_calls(), before) << "refused before any hashing";
    const CCertIDChecker checker(true, CBlob(kName.data(), kName.size()), CBlob(kKey.data(), kKey.size()));
    qvfake_prov_fail_next("CryptHashData", 0x80090002u);
    EXPECT_THROW(checker.findEntry(CAlgorithmIdentifierEx(kSha1)), ATL::CAtlException);
    EXPECT_EQ(checker.findEntry(CAlgorithmIdentifierEx(kSha1)).second.first.cbData(), 20u);
    EXPECT_THROW(checker.findEntry(CAlgorithmIdentifierEx("1.2.3.4")), ATL::CAtlException) << "no ALG_ID";
}

// A derived checker decides how entries are made; one that makes none is E_UNEXPECTED.
struct LazyChecker : CCertIDChecker {
    LazyChecker() : CCertIDChecker(false, CBlob(), CBlob()) {}
    void createEntry(const CAlgorithmIdentifierEx&) const override {}
};

TEST(CertIdChecker, FindEntryWithoutEntry) {
    EXPECT_EQ(hrOf([] { LazyChecker().findEntry(CAlgorithmIdentifierEx(kSha1)); }), static_cast<HRESULT>(0x8000FFFFu));
}

}  // namespace
