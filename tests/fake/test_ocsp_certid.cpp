// The CertID checker: its hash cache keyed by the identifier's text, and its failures.
#include "ocsp_test_util.h"
#include "policies/ocsp_certid.h"
#include "qvfake.h"

using namespace ocsptest;
using Quorvane::CBlob;
using Quorvane::ASN1::CAlgorithmIdentifierEx;
using Quorvane::PKI::OCSP::CCertIDChecker;

namespace {

CBlob blobOf(const Bytes& b) { return CBlob(b.data(), b.size()); }
Bytes bytesOf(const CBlob& b) { return Bytes(b.pbData(), b.pbData() + b.cbData()); }

class CertIdChecker : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
    DWORD hashes() const { return qvfake_prov_calls_of("CryptCreateHash"); }

    Bytes name = hex("3015311330110603550403130A49737375696E67204341");
    Bytes key = hex("04A1A2A3A4A5A6A7A8");
};

TEST_F(CertIdChecker, HashesEachAlgorithmOnce) {
    const CCertIDChecker checker(true, blobOf(name), blobOf(key));
    const CAlgorithmIdentifierEx sha1(kSha1), sha256(kSha256), sha1Again(kSha1);
    const Bytes nameHash = hashOf(kSha1, name), keyHash = hashOf(kSha1, key);
    const DWORD before = hashes();
    const auto& first = checker.findEntry(sha1);
    EXPECT_EQ(first.first, kSha1);
    EXPECT_EQ(bytesOf(first.second.first), nameHash);
    EXPECT_EQ(bytesOf(first.second.second), keyHash);
    EXPECT_EQ(sha1.get_algId(), CALG_SHA1) << "resolved on demand through the const object";
    EXPECT_EQ(&checker.findEntry(sha1Again), &first) << "a map lookup, no second hash";
    EXPECT_EQ(hashes() - before, 2u);
    checker.findEntry(sha256);
    EXPECT_EQ(hashes() - before, 4u);
}

// The cache is keyed by text: sha1WithRSAEncryption resolves to SHA-1 too, and is a
// second entry hashed anew.
TEST_F(CertIdChecker, TwoSpellingsTwoEntries) {
    const CCertIDChecker checker(false, blobOf(name), CBlob());
    const DWORD before = hashes();
    const auto& a = checker.findEntry(CAlgorithmIdentifierEx(kSha1));
    const auto& b = checker.findEntry(CAlgorithmIdentifierEx("1.2.840.113549.1.1.5"));
    EXPECT_NE(&a, &b);
    EXPECT_EQ(a.second.first, b.second.first);
    EXPECT_EQ(b.second.second.cbData(), 0u) << "no key, no key hash";
    EXPECT_EQ(hashes() - before, 2u);
}

TEST_F(CertIdChecker, Failures) {
    const DWORD before = qvfake_prov_calls();
    for (const Bytes& k : {Bytes{}, Bytes{0x01}}) {
        CBlob keyBlob = blobOf(k);
        if (!k.empty())
            keyBlob.clear();  // size 0, data kept
        try {
            CCertIDChecker checker(true, blobOf(name), keyBlob);
            ADD_FAILURE() << "an empty required key is refused";
        } catch (const ATL::CAtlException& e) {
            EXPECT_EQ(static_cast<DWORD>(e.m_hr), 0x80070057u);
        }
    }
    EXPECT_EQ(qvfake_prov_calls(), before) << "refused before any hashing";

    // A failed hash stores nothing: the next lookup hashes again.
    const CCertIDChecker checker(true, blobOf(name), blobOf(key));
    qvfake_prov_fail_next("CryptHashData", 0x80090002u);
    EXPECT_THROW(checker.findEntry(CAlgorithmIdentifierEx(kSha1)), ATL::CAtlException);
    EXPECT_EQ(bytesOf(checker.findEntry(CAlgorithmIdentifierEx(kSha1)).second.first), hashOf(kSha1, name));
    try {
        checker.findEntry(CAlgorithmIdentifierEx("1.2.3.4"));
        ADD_FAILURE() << "an algorithm without ALG_ID cannot be hashed";
    } catch (const ATL::CAtlException&) {
    }
}

// A derived checker decides how entries are made; one that makes none is E_UNEXPECTED.
struct LazyChecker : CCertIDChecker {
    LazyChecker() : CCertIDChecker(false, CBlob(), CBlob()) {}
    void createEntry(const CAlgorithmIdentifierEx&) const override { ++calls; }
    mutable int calls = 0;
};

TEST_F(CertIdChecker, FindEntryWithoutEntry) {
    LazyChecker checker;
    try {
        checker.findEntry(CAlgorithmIdentifierEx(kSha1));
        ADD_FAILURE();
    } catch (const ATL::CAtlException& e) {
        EXPECT_EQ(static_cast<DWORD>(e.m_hr), 0x8000FFFFu);
    }
    EXPECT_EQ(checker.calls, 1);
}

}  // namespace
