// The provider enumerators, the search for a provider that knows an algorithm, MakeHash
// and the handle wrappers, over the fake platform that scripts failures and counts every
// reference it hands out.
#include "policies/crypt.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

using Quorvane::MakeHash;
using testsupport::thrownHr;

namespace {

const char kRsaAes[] = "Quorvane Enhanced RSA and AES Provider";
const char kGost[] = "Quorvane GOST Provider";
constexpr ALG_ID kUnknownAlg = 0x6610;  // an encryption algorithm no provider hashes with
const DWORD kMore = ERROR_MORE_DATA, kTypes = QVFAKE_ENUM_TYPES, kProvs = QVFAKE_ENUM_PROVIDERS;
const HRESULT kDenied = HRESULT(0x80070005), kMoreHr = HRESULT(0x800700EA);

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
using CollectTypes = Collect<ATL2::CCryptProviderTypesEnumT<char>>;
using CollectProviders = Collect<ATL2::CCryptProvidersEnumT<char>>;

// The HRESULT thrown, 0 if none.
template <class F>
HRESULT outcome(F f) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    return 0;
}

Quorvane::CBlob abc() { return testsupport::blobOf({'a', 'b', 'c'}); }

// A fresh platform as the flags say: c the default provider is cached, t the type walk
// fails with 5, n there are no providers, r the next release fails with 5.
void platform(const char* flags) {
    static const QVFAKE_ENUM_STEP typesFail[] = {{ERROR_ACCESS_DENIED, 0}};
    static const QVFAKE_PROVIDER none[1] = {};
    qvfake_reset();
    qvfake_prov_set_default(std::strchr(flags, 'c') != nullptr);
    if (std::strchr(flags, 't'))
        qvfake_prov_script_enum(kTypes, typesFail, 1);
    if (std::strchr(flags, 'n'))
        qvfake_prov_set_providers(none, 0);
    if (std::strchr(flags, 'r'))
        qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
}

// Scripted answers of the platform (an empty script: the built-in table, where each call
// offers the initial size of its enumerator). A reported size no larger than the buffer
// cannot be helped by a retry; 234 twice in a row is returned in its HRESULT form; a retry
// is allowed again after a success; 259 is the normal end, at once or later; any other
// error in its HRESULT form, a negative value as it stands; false from the callback ends
// the walk at once with success.
TEST_F(Providers, EnumeratorsEndAsScripted) {
    const std::tuple<const char*, DWORD, std::vector<QVFAKE_ENUM_STEP>, size_t, HRESULT, Log> rows[] = {
        {"types, size equal", kTypes, {{kMore, 128}}, 9, kMoreHr, {{0, 128}}},
        {"types, 234 twice", kTypes, {{kMore, 1000}, {kMore, 5000}}, 9, kMoreHr, {{0, 128}, {0, 2000}}},
        {"providers, retry again", kProvs, {{kMore, 300}, {0, 0}, {kMore, 700}}, 9, S_OK,
         {{0, 256}, {0, 600}, {1, 600}, {1, 1400}, {2, 1400}, {3, 1400}}},
        {"types, 259 first", kTypes, {{ERROR_NO_MORE_ITEMS, 0}}, 9, S_OK, {{0, 128}}},
        {"providers, 259 later", kProvs, {{0, 0}, {ERROR_NO_MORE_ITEMS, 0}}, 9, S_OK, {{0, 256}, {1, 256}}},
        {"types, access denied", kTypes, {{ERROR_ACCESS_DENIED, 0}}, 9, kDenied, {{0, 128}}},
        {"providers, HRESULT", kProvs, {{DWORD(NTE_PROV_TYPE_NOT_DEF), 0}}, 9, NTE_PROV_TYPE_NOT_DEF, {{0, 256}}},
        {"providers, error after retry", kProvs, {{kMore, 400}, {ERROR_ACCESS_DENIED, 0}}, 9, kDenied,
         {{0, 256}, {0, 800}}},
        {"types, built-in", kTypes, {}, 9, S_OK, {{0, 128}, {1, 128}, {2, 128}, {3, 128}}},
        {"providers, built-in", kProvs, {}, 9, S_OK, {{0, 256}, {1, 256}, {2, 256}, {3, 256}}},
        {"types, callback stops", kTypes, {}, 1, S_OK, {{0, 128}}},
        {"providers, callback stops", kProvs, {}, 2, S_OK, {{0, 256}, {1, 256}}}};
    for (const auto& [name, which, steps, stopAfter, result, calls] : rows) {
        SCOPED_TRACE(name);
        qvfake_reset();
        qvfake_prov_script_enum(which, steps.data(), static_cast<DWORD>(steps.size()));
        CollectTypes t;
        CollectProviders p;
        t.stopAfter = p.stopAfter = stopAfter;
        EXPECT_EQ(which == kTypes ? t.Enum() : p.Enum(), result);
        EXPECT_EQ(enumLog(which), calls);
    }
    // A long name is fetched by one retry at the same index: 301 bytes needed, the retry
    // offers twice that, and the walk keeps the larger buffer.
    qvfake_reset();
    const std::string longName(300, 'L');
    const ALG_ID algs[] = {CALG_SHA1};
    const QVFAKE_PROVIDER table[] = {{"First", PROV_RSA_FULL, "Type one", algs, 1},
                                     {longName.c_str(), PROV_RSA_AES, "Type two", algs, 1},
                                     {"Third", PROV_GOST_2001_DH, "Type three", algs, 1}};
    qvfake_prov_set_providers(table, 3);
    CollectProviders provs;
    EXPECT_EQ(provs.Enum(), S_OK);
    EXPECT_EQ(provs.seen, (std::vector<std::string>{"First/1", longName + "/24", "Third/75"}));
    EXPECT_EQ(enumLog(kProvs), (Log{{0, 256}, {1, 256}, {1, 602}, {2, 602}, {3, 602}}));

    // A second walk offers the inner 128 again, so 128 reported is no help.
    const QVFAKE_ENUM_STEP steps[] = {{kMore, 1000}, {0, 0}, {0, 0}, {0, 0}, {ERROR_NO_MORE_ITEMS, 0}, {kMore, 128}};
    qvfake_prov_script_enum(kTypes, steps, 6);
    CollectTypes types;
    EXPECT_EQ(types.Enum(), S_OK);
    EXPECT_EQ(types.Enum(), kMoreHr);
    EXPECT_EQ(enumLog(kTypes).back(), std::make_pair(DWORD(0), DWORD(128)));
    const QVFAKE_ENUM_STEP huge[] = {{kMore, 0x80000000u}};
    qvfake_prov_script_enum(kProvs, huge, 1);
    EXPECT_EQ(thrownHr([&] { provs.Enum(); }), E_OUTOFMEMORY);  // too large to double
}

TEST_F(Providers, TryNextProv) {
    {
        Quorvane::CFindAlgIdIn finder(CALG_GR3411_2012_256);
        EXPECT_FALSE(finder.TryNextProv(PROV_RSA_AES, nullptr));
        EXPECT_EQ(provName(finder.m_hProv), kRsaAes);  // kept open after a miss
        EXPECT_TRUE(finder.TryNextProv(PROV_GOST_2001_DH, kGost));
        // The first context was released before the second was opened.
        EXPECT_EQ(std::make_tuple(provName(finder.m_hProv), qvfake_prov_context_refs()), std::make_tuple(kGost, 1u));
    }
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    Quorvane::CFindAlgIdIn finder(CALG_SHA1);
    EXPECT_EQ(thrownHr([&] { finder.TryNextProv(99, nullptr); }), NTE_PROV_TYPE_NOT_DEF);
    EXPECT_EQ(thrownHr([&] { finder.TryNextProv(PROV_RSA_AES, "No Such Provider"); }), NTE_KEYSET_NOT_DEF);
    ASSERT_TRUE(finder.TryNextProv(PROV_RSA_FULL, nullptr));
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(thrownHr([&] { finder.TryNextProv(PROV_RSA_AES, nullptr); }), kDenied);
    EXPECT_NE(finder.m_hProv, 0u);
    // A release that fails with last error 0 is passed over: the walk goes on.
    qvfake_prov_fail_releases(1, 0);
    EXPECT_TRUE(finder.TryNextProv(PROV_RSA_AES, nullptr));
    EXPECT_EQ(provName(finder.m_hProv), kRsaAes);
}

// The cached default comes first; then the types in turn, the last type tried being the
// answer when none knows the algorithm; the named providers only when no type was tried.
// The caller owns the one reference there is.
TEST_F(Providers, DefaultProviderSearch) {
    const std::tuple<const char*, const char*, ALG_ID, const char*, HRESULT, DWORD, DWORD> rows[] = {
        // name, platform, algorithm, provider found, thrown, type and provider enumerations
        {"algId 0 touches nothing", "c", 0, "", 0, 0, 0},
        {"cached default", "c", CALG_SHA_256, kRsaAes, 0, 0, 0},
        {"search by type", "", CALG_GR3411_2012_512, kGost, 0, 3, 0},
        {"unknown algorithm", "", kUnknownAlg, kGost, 0, 4, 0},
        {"named providers", "t", CALG_SHA_512, kRsaAes, 0, 1, 2},
        {"no providers at all", "cn", CALG_SHA1, "", 0, 1, 1},
        // The first type does not know SHA-256; releasing its context before the next one fails.
        {"exceptions of the search pass through", "r", CALG_SHA_256, "", kDenied, 2, 0}};
    for (const auto& [name, flags, alg, provider, thrown, typeCalls, providerCalls] : rows) {
        SCOPED_TRACE(name);
        platform(flags);
        HCRYPTPROV h = 0;
        EXPECT_EQ(outcome([&, alg = alg] { h = Quorvane::QVGetDefaultCSPThrow(alg); }), thrown);
        EXPECT_EQ(std::make_tuple(h ? provName(h) : "", qvfake_prov_context_refs(),
                                  qvfake_prov_calls_of("QVCAPI_I_CryptGetDefaultCryptProv"),
                                  qvfake_prov_enum_calls(kTypes), qvfake_prov_enum_calls(kProvs)),
                  std::make_tuple(provider, h ? 1u : 0u, alg ? 1u : 0u, typeCalls, providerCalls));
        EXPECT_TRUE(alg != 0 || qvfake_prov_calls() == 0);
        EXPECT_TRUE(h == 0 || CryptReleaseContext(h, 0));
        EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    }
}

// MakeHash with the provider from the search: a failing step throws its last error in
// HRESULT form after the hash and the provider reference are released; a step that fails
// with last error 0 is passed over. With algId 0 there is no provider, and the last error
// is thrown as it stands.
TEST_F(Providers, MakeHashSteps) {
    const char* abcSha1 = "A9993E364706816ABA3E25717850C26C9CD0D89D";
    const std::tuple<const char*, const char*, const char*, DWORD, DWORD, ALG_ID, HRESULT, const char*> rows[] = {
        // name, platform, failing step, its error, last error before, algorithm, thrown, value
        {"cached default", "c", nullptr, 0, 0, CALG_SHA1, 0, abcSha1},
        {"searched provider", "", nullptr, 0, 0, CALG_SHA1, 0, abcSha1},
        {"create fails", "c", "CryptCreateHash", ERROR_ACCESS_DENIED, 0, CALG_SHA1, kDenied, ""},
        // No hash was made: the next step fails on the empty handle.
        {"create fails with 0", "c", "CryptCreateHash", 0, 0, CALG_SHA1, NTE_BAD_HASH, ""},
        {"data fails", "c", "CryptHashData", ERROR_INVALID_DATA, 0, CALG_SHA1, HRESULT(0x8007000D), ""},
        {"data fails, negative", "c", "CryptHashData", DWORD(NTE_BAD_HASH_STATE), 0, CALG_SHA1, NTE_BAD_HASH_STATE, ""},
        {"size fails", "c", "CryptGetHashParam", ERROR_INVALID_PARAMETER, 0, CALG_SHA1, E_INVALIDARG, ""},
        // The data step skipped silently: the value is the hash of nothing.
        {"data fails with 0", "c", "CryptHashData", 0, 0, CALG_SHA1, 0, "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709"},
        // Known to no provider: the hash cannot be made on the last type's provider.
        {"unknown algorithm", "", nullptr, 0, 0, kUnknownAlg, NTE_BAD_ALGID, ""},
        // No provider: the last error as the search left it, the end of the enumeration.
        {"no providers at all", "cn", nullptr, 0, 0, CALG_SHA1, HRESULT(0x80070103), ""},
        {"algId 0, error 5", "c", nullptr, 0, ERROR_ACCESS_DENIED, 0, kDenied, ""},
        {"algId 0, error 0", "c", nullptr, 0, 0, 0, 0, ""},
        {"algId 0, negative error", "c", nullptr, 0, DWORD(NTE_BAD_ALGID), 0, NTE_BAD_ALGID, ""},
        // A release that fails at the end is ignored; the fake then keeps that reference.
        {"release fails", "cr", nullptr, 0, 0, CALG_SHA1, 0, abcSha1}};
    for (const auto& [name, flags, failFunction, failError, lastError, alg, thrown, digest] : rows) {
        SCOPED_TRACE(name);
        platform(flags);
        if (failFunction)
            qvfake_prov_fail_next(failFunction, failError);
        SetLastError(lastError);
        HCRYPTHASH hHash = 0;
        std::string value;
        EXPECT_EQ(outcome([&, alg = alg, give = *digest == 0] {
                      value = testsupport::hexOf(MakeHash(0, alg, abc(), give ? &hHash : nullptr));
                  }),
                  thrown);
        EXPECT_EQ(std::make_tuple(value, hHash, qvfake_prov_live_hashes(), qvfake_prov_context_refs()),
                  std::make_tuple(digest, 0u, 0u, std::strchr(flags, 'r') ? 1u : 0u));
        EXPECT_TRUE(alg != 0 || qvfake_prov_calls() == 0);
    }
}

TEST_F(Providers, GivenProviderHandedOverHashAndWrappers) {
    EXPECT_EQ(std::make_tuple(ATL::CCryptHash::EmptyHash.m_hHash, ATL::CCryptKey::EmptyKey.m_hKey,
                              ATL2::EmptyProv.m_hProv),
              std::make_tuple(0u, 0u, 0u));
    HCRYPTPROV h = 0;
    ASSERT_TRUE(CryptAcquireContextA(&h, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
    {
        ATL::CCryptKey key(qvfake_prov_make_key());
        HCRYPTHASH hHash = 0;
        const Quorvane::CBlob value = MakeHash(h, CALG_MD5, abc(), &hHash);
        ATL::CCryptHash hash(hHash);
        EXPECT_EQ(qvfake_prov_calls_of("QVCAPI_I_CryptGetDefaultCryptProv"), 0u);
        // The caller's reference and the live hash's; MakeHash's own is gone.
        EXPECT_EQ(std::make_tuple(qvfake_prov_context_refs(), qvfake_prov_live_hashes(), qvfake_prov_live_keys()),
                  std::make_tuple(2u, 1u, 1u));
        BYTE again[16];
        DWORD cb = sizeof again;
        ASSERT_TRUE(CryptGetHashParam(hHash, HP_HASHVAL, again, &cb, 0));
        EXPECT_EQ(Quorvane::CBlob(again, cb), value);
        qvfake_prov_set_default(FALSE);
        Quorvane::CFindAlgIdInDefaultProviders finder(kUnknownAlg);
        EXPECT_EQ(finder.Enum(), S_OK);
        EXPECT_EQ(qvfake_prov_context_refs(), 3u);  // the caller's, the hash's and the finder's
    }
    EXPECT_EQ(std::make_tuple(qvfake_prov_context_refs(), qvfake_prov_live_hashes(), qvfake_prov_live_keys()),
              std::make_tuple(1u, 0u, 0u));
    // The provider wrapper keeps its handle when the release fails.
    ATL::CCryptProv prov(h);
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(prov.Release());
    EXPECT_EQ(prov.m_hProv, h);
    EXPECT_TRUE(prov.Release());
    EXPECT_EQ(std::make_tuple(prov.m_hProv, qvfake_prov_context_refs()), std::make_tuple(0u, 0u));
    // A stale handle: the reference cannot be taken, the hash cannot be made on it.
    const DWORD releases = qvfake_prov_calls_of("CryptReleaseContext");
    EXPECT_EQ(thrownHr([&] { MakeHash(h, CALG_SHA1, abc(), nullptr); }), NTE_BAD_UID);
    EXPECT_EQ(qvfake_prov_calls_of("CryptReleaseContext"), releases);
}

}  // namespace
