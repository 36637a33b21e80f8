// The provider enumerators, the search for a provider that knows an algorithm, MakeHash
// and the handle wrappers, over the fake platform that scripts failures and counts every
// reference it hands out.
#include "policies/crypt.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <string>
#include <utility>
#include <vector>

using Quorvane::MakeHash;
using Quorvane::QVGetDefaultCSPThrow;
using testsupport::thrownHr;

namespace {

const char kRsaAes[] = "Quorvane Enhanced RSA and AES Provider";
const char kGost[] = "Quorvane GOST Provider";
const char kSha1Abc[] = "A9993E364706816ABA3E25717850C26C9CD0D89D";
constexpr ALG_ID kUnknownAlg = 0x6610;  // an encryption algorithm no provider hashes with

class Providers : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

std::string provName(HCRYPTPROV h) {
    char name[256] = {};
    DWORD cb = sizeof name;
    return CryptGetProvParam(h, PP_NAME, reinterpret_cast<BYTE*>(name), &cb, 0) ? name : "<error>";
}

using Log = std::vector<std::pair<DWORD, DWORD>>;  // index and buffer size of each call

Log enumLog(DWORD which) {
    Log log(qvfake_prov_enum_calls(which));
    for (DWORD i = 0; i < log.size(); ++i)
        qvfake_prov_enum_call(which, i, &log[i].first, &log[i].second);
    return log;
}

// Either enumerator, collecting "name/type" until stopAfter.
template <class Base>
struct Collect : Base {
    std::vector<std::string> seen;
    size_t stopAfter = 1000;
    bool note(const char* name, DWORD type) {
        seen.push_back(std::string(name) + "/" + std::to_string(type));
        return seen.size() < stopAfter;
    }
    bool OnType(DWORD type, const char* name) { return note(name, type); }
    bool OnProv(const char* name, DWORD type) { return note(name, type); }
};
struct CollectTypes : Collect<ATL2::CCryptProviderTypesEnumT<char>> {};
struct CollectProviders : Collect<ATL2::CCryptProvidersEnumT<char>> {};

Quorvane::CBlob abc() { return testsupport::blobOf({'a', 'b', 'c'}); }

TEST_F(Providers, LongProviderNameIsFetchedByOneRetryAtTheSameIndex) {
    const std::string longName(300, 'L');
    const ALG_ID algs[] = {CALG_SHA1};
    const QVFAKE_PROVIDER table[] = {{"First", PROV_RSA_FULL, "Type one", algs, 1},
                                     {longName.c_str(), PROV_RSA_AES, "Type two", algs, 1},
                                     {"Third", PROV_GOST_2001_DH, "Type three", algs, 1}};
    qvfake_prov_set_providers(table, 3);
    CollectProviders provs;
    EXPECT_EQ(provs.Enum(), S_OK);
    EXPECT_EQ(provs.seen, (std::vector<std::string>{"First/1", longName + "/24", "Third/75"}));  // name and type
    // 301 bytes needed: the retry offers twice that, and the walk keeps the larger buffer.
    EXPECT_EQ(enumLog(QVFAKE_ENUM_PROVIDERS), (Log{{0, 256}, {1, 256}, {1, 602}, {2, 602}, {3, 602}}));
}

// Scripted answers of the platform (an empty script: the built-in table).
TEST_F(Providers, EnumeratorsEndAsScripted) {
    const DWORD more = ERROR_MORE_DATA, types = QVFAKE_ENUM_TYPES, provs = QVFAKE_ENUM_PROVIDERS;
    const struct {
        const char* name;
        DWORD which;
        std::vector<QVFAKE_ENUM_STEP> steps;
        size_t stopAfter;
        HRESULT result;
        Log calls;
    } rows[] = {
        // A reported size no larger than the buffer cannot be helped by a retry.
        {"types, size equal", types, {{more, 128}}, 9, HRESULT(0x800700EA), {{0, 128}}},
        {"types, size smaller", types, {{more, 5}}, 9, HRESULT(0x800700EA), {{0, 128}}},
        {"providers, size equal", provs, {{0, 0}, {more, 256}}, 9, HRESULT(0x800700EA), {{0, 256}, {1, 256}}},
        // 234 twice in a row: the second is returned in its HRESULT form.
        {"types, 234 twice", types, {{more, 1000}, {more, 5000}}, 9, HRESULT(0x800700EA), {{0, 128}, {0, 2000}}},
        {"providers, 234 twice", provs, {{more, 257}, {more, 514}}, 9, HRESULT(0x800700EA), {{0, 256}, {0, 514}}},
        // A retry is allowed again after a success.
        {"providers, retry again", provs, {{more, 300}, {0, 0}, {more, 700}}, 9, S_OK,
         {{0, 256}, {0, 600}, {1, 600}, {1, 1400}, {2, 1400}, {3, 1400}}},
        // 259 is the normal end, at once or later.
        {"types, 259 first", types, {{ERROR_NO_MORE_ITEMS, 0}}, 9, S_OK, {{0, 128}}},
        {"providers, 259 later", provs, {{0, 0}, {ERROR_NO_MORE_ITEMS, 0}}, 9, S_OK, {{0, 256}, {1, 256}}},
        // Any other error in its HRESULT form; a negative value stands.
        {"types, access denied", types, {{ERROR_ACCESS_DENIED, 0}}, 9, HRESULT(0x80070005), {{0, 128}}},
        {"providers, HRESULT stands", provs, {{DWORD(NTE_PROV_TYPE_NOT_DEF), 0}}, 9, NTE_PROV_TYPE_NOT_DEF,
         {{0, 256}}},
        {"providers, error after retry", provs, {{more, 400}, {ERROR_ACCESS_DENIED, 0}}, 9, HRESULT(0x80070005),
         {{0, 256}, {0, 800}}},
        // The built-in table: each call offers the initial size of its enumerator; the walk ends on 259.
        {"types, built-in", types, {}, 9, S_OK, {{0, 128}, {1, 128}, {2, 128}, {3, 128}}},
        {"providers, built-in", provs, {}, 9, S_OK, {{0, 256}, {1, 256}, {2, 256}, {3, 256}}},
        // False from the callback ends the walk at once with success.
        {"types, callback stops", types, {}, 1, S_OK, {{0, 128}}},
        {"providers, callback stops", provs, {}, 2, S_OK, {{0, 256}, {1, 256}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        qvfake_reset();
        qvfake_prov_script_enum(row.which, row.steps.data(), static_cast<DWORD>(row.steps.size()));
        CollectTypes t;
        CollectProviders p;
        t.stopAfter = p.stopAfter = row.stopAfter;
        EXPECT_EQ(row.which == types ? t.Enum() : p.Enum(), row.result);
        EXPECT_EQ(enumLog(row.which), row.calls);
    }
}

TEST_F(Providers, SecondWalkStartsAgainFromTheInnerBuffer) {
    const QVFAKE_ENUM_STEP steps[] = {{ERROR_MORE_DATA, 1000}, {0, 0}, {0, 0}, {0, 0}, {ERROR_NO_MORE_ITEMS, 0},
                                      {ERROR_MORE_DATA, 128}};
    qvfake_prov_script_enum(QVFAKE_ENUM_TYPES, steps, 6);
    CollectTypes types;
    EXPECT_EQ(types.Enum(), S_OK);
    // The second walk offers 128 again, so 128 reported is no help.
    EXPECT_EQ(types.Enum(), HRESULT(0x800700EA));
    EXPECT_EQ(enumLog(QVFAKE_ENUM_TYPES).back(), std::make_pair(DWORD(0), DWORD(128)));

    const QVFAKE_ENUM_STEP huge[] = {{ERROR_MORE_DATA, 0x80000000u}};
    qvfake_prov_script_enum(QVFAKE_ENUM_PROVIDERS, huge, 1);
    CollectProviders provs;
    EXPECT_EQ(thrownHr([&] { provs.Enum(); }), E_OUTOFMEMORY);  // too large to double
}

TEST_F(Providers, TryNextProv) {
    {
        Quorvane::CFindAlgIdIn finder(CALG_GR3411_2012_256);
        EXPECT_FALSE(finder.TryNextProv(PROV_RSA_AES, nullptr));
        EXPECT_EQ(provName(finder.m_hProv), kRsaAes);  // kept open after a miss
        EXPECT_TRUE(finder.TryNextProv(PROV_GOST_2001_DH, kGost));
        EXPECT_EQ(provName(finder.m_hProv), kGost);
        // The first context was released before the second was opened.
        EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    }
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);

    Quorvane::CFindAlgIdIn finder(CALG_SHA1);
    EXPECT_EQ(thrownHr([&] { finder.TryNextProv(99, nullptr); }), NTE_PROV_TYPE_NOT_DEF);
    EXPECT_EQ(thrownHr([&] { finder.TryNextProv(PROV_RSA_AES, "No Such Provider"); }), NTE_KEYSET_NOT_DEF);
    ASSERT_TRUE(finder.TryNextProv(PROV_RSA_FULL, nullptr));
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(thrownHr([&] { finder.TryNextProv(PROV_RSA_AES, nullptr); }), HRESULT(0x80070005));
    EXPECT_NE(finder.m_hProv, 0u);
    // A release that fails with last error 0 is passed over: the walk goes on.
    qvfake_prov_fail_releases(1, 0);
    EXPECT_TRUE(finder.TryNextProv(PROV_RSA_AES, nullptr));
    EXPECT_EQ(provName(finder.m_hProv), kRsaAes);
}

TEST_F(Providers, DefaultProviderSearch) {
    const QVFAKE_ENUM_STEP typesFail[] = {{ERROR_ACCESS_DENIED, 0}};
    const struct {
        const char* name;
        bool cached, typesFail, noProviders, failRelease;
        ALG_ID alg;
        const char* provider;  // null: no context
        HRESULT thrown;
        DWORD typeCalls, providerCalls;
    } rows[] = {
        {"algId 0 touches nothing", true, false, false, false, 0, nullptr, 0, 0, 0},
        {"the cached default comes first", true, false, false, false, CALG_SHA_256, kRsaAes, 0, 0, 0},
        {"search by type", false, false, false, false, CALG_GR3411_2012_512, kGost, 0, 3, 0},
        // Found by no type: the last type tried is the answer.
        {"unknown algorithm", false, false, false, false, kUnknownAlg, kGost, 0, 4, 0},
        {"named providers when no type was tried", false, true, false, false, CALG_SHA_512, kRsaAes, 0, 1, 2},
        {"no providers at all", true, false, true, false, CALG_SHA1, nullptr, 0, 1, 1},
        // The first type does not know SHA-256; releasing its context before the next one fails.
        {"exceptions of the search pass through", false, false, false, true, CALG_SHA_256, nullptr,
         HRESULT(0x80070005), 2, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        qvfake_reset();
        qvfake_prov_set_default(row.cached);
        if (row.typesFail)
            qvfake_prov_script_enum(QVFAKE_ENUM_TYPES, typesFail, 1);
        const QVFAKE_PROVIDER none[1] = {};
        if (row.noProviders)
            qvfake_prov_set_providers(none, 0);
        if (row.failRelease)
            qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
        HCRYPTPROV h = 0;
        if (row.thrown) {
            EXPECT_EQ(thrownHr([&] { h = QVGetDefaultCSPThrow(row.alg); }), row.thrown);
        } else {
            h = QVGetDefaultCSPThrow(row.alg);
        }
        EXPECT_EQ(h ? provName(h) : "", row.provider ? row.provider : "");
        EXPECT_EQ(qvfake_prov_calls_of("QVCAPI_I_CryptGetDefaultCryptProv"), row.alg ? 1u : 0u);
        EXPECT_EQ(qvfake_prov_enum_calls(QVFAKE_ENUM_TYPES), row.typeCalls);
        EXPECT_EQ(qvfake_prov_enum_calls(QVFAKE_ENUM_PROVIDERS), row.providerCalls);
        if (row.alg == 0) {
            EXPECT_EQ(qvfake_prov_calls(), 0u);
        }
        // The caller owns the one reference there is.
        EXPECT_EQ(qvfake_prov_context_refs(), h ? 1u : 0u);
        if (h) {
            EXPECT_TRUE(CryptReleaseContext(h, 0));
        }
        EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    }
}

// MakeHash with the provider from the search: a failing step throws its last error in
// HRESULT form after the hash and the provider reference are released; a step that fails
// with last error 0 is passed over.
TEST_F(Providers, MakeHashSteps) {
    const QVFAKE_PROVIDER none[1] = {};
    const struct {
        const char* name;
        const char* failFunction;
        DWORD failError, lastErrorBefore;
        bool cached, noProviders;
        ALG_ID alg;
        HRESULT thrown;
        const char* digest;
    } rows[] = {
        {"cached default", nullptr, 0, 0, true, false, CALG_SHA1, 0, kSha1Abc},
        {"searched provider", nullptr, 0, 0, false, false, CALG_SHA1, 0, kSha1Abc},
        {"create fails", "CryptCreateHash", ERROR_ACCESS_DENIED, 0, true, false, CALG_SHA1, HRESULT(0x80070005), 0},
        // No hash was made: the next step fails on the empty handle.
        {"create fails with 0", "CryptCreateHash", 0, 0, true, false, CALG_SHA1, NTE_BAD_HASH, 0},
        {"data fails", "CryptHashData", ERROR_INVALID_DATA, 0, true, false, CALG_SHA1, HRESULT(0x8007000D), 0},
        {"data fails, negative", "CryptHashData", DWORD(NTE_BAD_HASH_STATE), 0, true, false, CALG_SHA1,
         NTE_BAD_HASH_STATE, 0},
        {"size fails", "CryptGetHashParam", ERROR_INVALID_PARAMETER, 0, true, false, CALG_SHA1, E_INVALIDARG, 0},
        // The data step skipped silently: the value is the hash of nothing.
        {"data fails with 0", "CryptHashData", 0, 0, true, false, CALG_SHA1, 0,
         "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709"},
        // Known to no provider: the hash cannot be made on the last type's provider.
        {"unknown algorithm", nullptr, 0, 0, false, false, kUnknownAlg, NTE_BAD_ALGID, 0},
        // No provider: the last error as the search left it, the end of the enumeration.
        {"no providers at all", nullptr, 0, 0, true, true, CALG_SHA1, HRESULT(0x80070103), 0},
        // algId 0: no provider, and the last error thrown as it stands.
        {"algId 0, error 5", nullptr, 0, ERROR_ACCESS_DENIED, true, false, 0, HRESULT(0x80070005), 0},
        {"algId 0, error 0", nullptr, 0, 0, true, false, 0, 0, 0},
        {"algId 0, negative error", nullptr, 0, DWORD(NTE_BAD_ALGID), true, false, 0, NTE_BAD_ALGID, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        qvfake_reset();
        qvfake_prov_set_default(row.cached);
        if (row.noProviders)
            qvfake_prov_set_providers(none, 0);
        if (row.failFunction)
            qvfake_prov_fail_next(row.failFunction, row.failError);
        SetLastError(row.lastErrorBefore);
        HCRYPTHASH hHash = 0;
        if (row.digest) {
            EXPECT_EQ(testsupport::hexOf(MakeHash(0, row.alg, abc(), nullptr)), row.digest);
        } else {
            EXPECT_EQ(thrownHr([&] { MakeHash(0, row.alg, abc(), &hHash); }), row.thrown);
            EXPECT_EQ(hHash, 0u);
        }
        if (row.alg == 0) {
            EXPECT_EQ(qvfake_prov_calls(), 0u);
        }
        EXPECT_EQ(qvfake_prov_live_hashes(), 0u);
        EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    }
    // A release failure at the end is ignored.
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(MakeHash(0, CALG_SHA1, abc(), nullptr).cbData(), 20u);
}

TEST_F(Providers, MakeHashWithAGivenProviderAndAHandedOverHash) {
    HCRYPTPROV h = 0;
    ASSERT_TRUE(CryptAcquireContextA(&h, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
    HCRYPTHASH hHash = 0;
    const Quorvane::CBlob value = MakeHash(h, CALG_SHA1, abc(), &hHash);
    EXPECT_EQ(qvfake_prov_calls_of("QVCAPI_I_CryptGetDefaultCryptProv"), 0u);
    // The caller's reference and the live hash's; MakeHash's own is gone.
    EXPECT_EQ(qvfake_prov_context_refs(), 2u);
    ASSERT_EQ(qvfake_prov_live_hashes(), 1u);
    BYTE again[20];
    DWORD cb = sizeof again;
    ASSERT_TRUE(CryptGetHashParam(hHash, HP_HASHVAL, again, &cb, 0));
    EXPECT_EQ(Quorvane::CBlob(again, cb), value);
    EXPECT_TRUE(CryptDestroyHash(hHash));
    EXPECT_TRUE(CryptReleaseContext(h, 0));
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    // A stale handle: the reference cannot be taken, the hash cannot be made on it.
    EXPECT_EQ(thrownHr([&] { MakeHash(h, CALG_SHA1, abc(), nullptr); }), NTE_BAD_UID);
    EXPECT_EQ(qvfake_prov_calls_of("CryptReleaseContext"), 2u);
}

TEST_F(Providers, WrappersReleaseWhatTheyHold) {
    EXPECT_EQ(ATL::CCryptHash::EmptyHash.m_hHash, 0u);
    EXPECT_EQ(ATL::CCryptKey::EmptyKey.m_hKey, 0u);
    EXPECT_EQ(ATL2::EmptyProv.m_hProv, 0u);
    {
        ATL::CCryptKey key(qvfake_prov_make_key());
        HCRYPTHASH hHash = 0;
        MakeHash(0, CALG_MD5, abc(), &hHash);
        ATL::CCryptHash hash(hHash);
        EXPECT_EQ(qvfake_prov_live_keys(), 1u);
        EXPECT_EQ(qvfake_prov_live_hashes(), 1u);
        qvfake_prov_set_default(FALSE);
        Quorvane::CFindAlgIdInDefaultProviders finder(kUnknownAlg);
        EXPECT_EQ(finder.Enum(), S_OK);
        EXPECT_EQ(qvfake_prov_context_refs(), 2u);  // the hash's and the finder's
    }
    EXPECT_EQ(qvfake_prov_live_keys(), 0u);
    EXPECT_EQ(qvfake_prov_live_hashes(), 0u);
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);

    // The provider wrapper keeps its handle when the release fails.
    HCRYPTPROV h = 0;
    ASSERT_TRUE(CryptAcquireContextA(&h, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
    ATL::CCryptProv prov(h);
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(prov.Release());
    EXPECT_EQ(prov.m_hProv, h);
    EXPECT_TRUE(prov.Release());
    EXPECT_EQ(prov.m_hProv, 0u);
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

}  // namespace
