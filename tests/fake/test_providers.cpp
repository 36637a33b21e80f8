// The provider enumerators, the search for a provider that knows an algorithm, MakeHash
// and the handle wrappers, over the fake platform that scripts failures and counts every
// reference it hands out.
#include "policies/crypt.h"
#include "qvfake.h"
#include "support/testsupport.h"

#include <string>
#include <utility>
#include <vector>

using Quorvane::CBlob;
using Quorvane::MakeHash;
using Quorvane::QVGetDefaultCSPThrow;

namespace {

const char kRsaAes[] = "Quorvane Enhanced RSA and AES Provider";
const char kGost[] = "Quorvane GOST Provider";
constexpr ALG_ID kUnknownAlg = 0x6610;  // an encryption algorithm no provider hashes with

class Providers : public ::testing::Test {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

template <typename F>
HRESULT thrown(F f) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    ADD_FAILURE() << "no exception";
    return 0x7FFFFFFF;
}

std::string provName(HCRYPTPROV h) {
    char name[256] = {};
    DWORD cb = sizeof name;
    if (!CryptGetProvParam(h, PP_NAME, reinterpret_cast<BYTE*>(name), &cb, 0))
        return "<error>";
    return name;
}

std::vector<std::pair<DWORD, DWORD>> enumLog(DWORD which) {
    std::vector<std::pair<DWORD, DWORD>> log;
    for (DWORD i = 0; i < qvfake_prov_enum_calls(which); ++i) {
        DWORD index = 0, cb = 0;
        qvfake_prov_enum_call(which, i, &index, &cb);
        log.emplace_back(index, cb);
    }
    return log;
}

using Log = std::vector<std::pair<DWORD, DWORD>>;

struct CollectProviders : ATL2::CCryptProvidersEnumT<char> {
    std::vector<std::pair<std::string, DWORD>> seen;
    size_t stopAfter = 1000;
    bool OnProv(const char* name, DWORD type) override {
        seen.emplace_back(name, type);
        return seen.size() < stopAfter;
    }
};

struct CollectTypes : ATL2::CCryptProviderTypesEnumT<char> {
    std::vector<std::pair<DWORD, std::string>> seen;
    size_t stopAfter = 1000;
    bool OnType(DWORD type, const char* name) override {
        seen.emplace_back(type, name);
        return seen.size() < stopAfter;
    }
};

CBlob blobOf(const std::string& s) {
    return CBlob(reinterpret_cast<const unsigned char*>(s.data()), static_cast<unsigned long>(s.size()));
}

std::string hexOf(const CBlob& b) { return testsupport::toHex(b.pbData(), b.cbData()); }

// ---------------------------------------------------------------- enumerators

TEST_F(Providers, EnumeratorsWalkTheBuiltInTable) {
    CollectTypes types;
    EXPECT_EQ(types.Enum(), S_OK);
    ASSERT_EQ(types.seen.size(), 3u);
    EXPECT_EQ(types.seen[0].first, PROV_RSA_FULL);
    EXPECT_EQ(types.seen[1], std::make_pair(PROV_RSA_AES, std::string("RSA Full and AES")));
    EXPECT_EQ(types.seen[2].first, PROV_GOST_2001_DH);

    CollectProviders provs;
    EXPECT_EQ(provs.Enum(), S_OK);
    ASSERT_EQ(provs.seen.size(), 3u);
    EXPECT_EQ(provs.seen[1], std::make_pair(std::string(kRsaAes), PROV_RSA_AES));
    EXPECT_EQ(provs.seen[2], std::make_pair(std::string(kGost), PROV_GOST_2001_DH));
    // Each call offers the initial size of its enumerator; the walk ends on 259.
    EXPECT_EQ(enumLog(QVFAKE_ENUM_TYPES), (Log{{0, 128}, {1, 128}, {2, 128}, {3, 128}}));
    EXPECT_EQ(enumLog(QVFAKE_ENUM_PROVIDERS), (Log{{0, 256}, {1, 256}, {2, 256}, {3, 256}}));
}

TEST_F(Providers, LongProviderNameIsFetchedByOneRetryAtTheSameIndex) {
    const std::string longName(300, 'L');
    const ALG_ID algs[] = {CALG_SHA1};
    const QVFAKE_PROVIDER table[] = {
        {"First", PROV_RSA_FULL, "Type one", algs, 1},
        {longName.c_str(), PROV_RSA_AES, "Type two", algs, 1},
        {"Third", PROV_GOST_2001_DH, "Type three", algs, 1},
    };
    qvfake_prov_set_providers(table, 3);
    CollectProviders provs;
    EXPECT_EQ(provs.Enum(), S_OK);
    ASSERT_EQ(provs.seen.size(), 3u);
    EXPECT_EQ(provs.seen[1].first, longName);
    EXPECT_EQ(provs.seen[2].first, "Third");
    // 301 bytes needed: the retry offers twice that, and the walk keeps the larger buffer.
    EXPECT_EQ(enumLog(QVFAKE_ENUM_PROVIDERS), (Log{{0, 256}, {1, 256}, {1, 602}, {2, 602}, {3, 602}}));
}

TEST_F(Providers, RetryIsAllowedAgainAfterASuccess) {
    const QVFAKE_ENUM_STEP steps[] = {{ERROR_MORE_DATA, 300}, {0, 0}, {ERROR_MORE_DATA, 700}};
    qvfake_prov_script_enum(QVFAKE_ENUM_PROVIDERS, steps, 3);
    CollectProviders provs;
    EXPECT_EQ(provs.Enum(), S_OK);
    EXPECT_EQ(provs.seen.size(), 3u);
    EXPECT_EQ(enumLog(QVFAKE_ENUM_PROVIDERS),
              (Log{{0, 256}, {0, 600}, {1, 600}, {1, 1400}, {2, 1400}, {3, 1400}}));
}

struct ScriptCase {
    const char* name;
    DWORD which;
    std::vector<QVFAKE_ENUM_STEP> steps;
    HRESULT result;
    Log calls;
    size_t callbacks;
};

class EnumScripts : public ::testing::TestWithParam<ScriptCase> {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

TEST_P(EnumScripts, EndsAsScripted) {
    const ScriptCase& c = GetParam();
    qvfake_prov_script_enum(c.which, c.steps.data(), static_cast<DWORD>(c.steps.size()));
    size_t callbacks;
    HRESULT hr;
    if (c.which == QVFAKE_ENUM_TYPES) {
        CollectTypes e;
        hr = e.Enum();
        callbacks = e.seen.size();
    } else {
        CollectProviders e;
        hr = e.Enum();
        callbacks = e.seen.size();
    }
    EXPECT_EQ(hr, c.result);
    EXPECT_EQ(enumLog(c.which), c.calls);
    EXPECT_EQ(callbacks, c.callbacks);
}

void PrintTo(const ScriptCase& c, std::ostream* os) { *os << c.name; }

INSTANTIATE_TEST_SUITE_P(
    Providers, EnumScripts,
    ::testing::Values(
        // A reported size no larger than the buffer cannot be helped by a retry.
        ScriptCase{"types_size_equal", QVFAKE_ENUM_TYPES, {{ERROR_MORE_DATA, 128}}, HRESULT(0x800700EA), {{0, 128}}, 0},
        ScriptCase{"types_size_smaller", QVFAKE_ENUM_TYPES, {{ERROR_MORE_DATA, 5}}, HRESULT(0x800700EA), {{0, 128}}, 0},
        ScriptCase{"providers_size_equal", QVFAKE_ENUM_PROVIDERS, {{0, 0}, {ERROR_MORE_DATA, 256}},
                   HRESULT(0x800700EA), {{0, 256}, {1, 256}}, 1},
        // 234 twice in a row: the second is returned in its HRESULT form.
        ScriptCase{"types_more_data_twice", QVFAKE_ENUM_TYPES, {{ERROR_MORE_DATA, 1000}, {ERROR_MORE_DATA, 5000}},
                   HRESULT(0x800700EA), {{0, 128}, {0, 2000}}, 0},
        ScriptCase{"providers_more_data_twice", QVFAKE_ENUM_PROVIDERS,
                   {{ERROR_MORE_DATA, 257}, {ERROR_MORE_DATA, 514}}, HRESULT(0x800700EA), {{0, 256}, {0, 514}}, 0},
        // 259 is the normal end, at once or later.
        ScriptCase{"types_no_more_items_first", QVFAKE_ENUM_TYPES, {{ERROR_NO_MORE_ITEMS, 0}}, S_OK, {{0, 128}}, 0},
        ScriptCase{"providers_no_more_items_later", QVFAKE_ENUM_PROVIDERS, {{0, 0}, {ERROR_NO_MORE_ITEMS, 0}}, S_OK,
                   {{0, 256}, {1, 256}}, 1},
        // Any other error, in its HRESULT form; a negative value stands.
        ScriptCase{"types_access_denied", QVFAKE_ENUM_TYPES, {{ERROR_ACCESS_DENIED, 0}}, HRESULT(0x80070005),
                   {{0, 128}}, 0},
        ScriptCase{"providers_hresult_stands", QVFAKE_ENUM_PROVIDERS, {{DWORD(NTE_PROV_TYPE_NOT_DEF), 0}},
                   NTE_PROV_TYPE_NOT_DEF, {{0, 256}}, 0},
        ScriptCase{"providers_error_after_retry", QVFAKE_ENUM_PROVIDERS,
                   {{ERROR_MORE_DATA, 400}, {ERROR_ACCESS_DENIED, 0}}, HRESULT(0x80070005), {{0, 256}, {0, 800}}, 0}),
    [](const ::testing::TestParamInfo<ScriptCase>& i) { return std::string(i.param.name); });

TEST_F(Providers, FalseFromTheCallbackEndsAtOnceWithSuccess) {
    CollectTypes types;
    types.stopAfter = 1;
    EXPECT_EQ(types.Enum(), S_OK);
    EXPECT_EQ(types.seen.size(), 1u);
    EXPECT_EQ(qvfake_prov_enum_calls(QVFAKE_ENUM_TYPES), 1u);

    CollectProviders provs;
    provs.stopAfter = 2;
    EXPECT_EQ(provs.Enum(), S_OK);
    EXPECT_EQ(provs.seen.size(), 2u);
    EXPECT_EQ(qvfake_prov_enum_calls(QVFAKE_ENUM_PROVIDERS), 2u);
}

TEST_F(Providers, SecondWalkStartsAgainFromTheInnerBuffer) {
    const QVFAKE_ENUM_STEP steps[] = {{ERROR_MORE_DATA, 1000}, {0, 0}, {0, 0}, {0, 0}, {ERROR_NO_MORE_ITEMS, 0},
                                      {ERROR_MORE_DATA, 128}};
    qvfake_prov_script_enum(QVFAKE_ENUM_TYPES, steps, 6);
    CollectTypes types;
    EXPECT_EQ(types.Enum(), S_OK);
    EXPECT_EQ(types.seen.size(), 3u);
    // The second walk offers 128 again, so 128 reported is no help.
    EXPECT_EQ(types.Enum(), HRESULT(0x800700EA));
    const Log log = enumLog(QVFAKE_ENUM_TYPES);
    ASSERT_EQ(log.size(), 6u);
    EXPECT_EQ(log[5], std::make_pair(DWORD(0), DWORD(128)));
}

TEST_F(Providers, SizeTooLargeToDoubleIsOutOfMemory) {
    const QVFAKE_ENUM_STEP steps[] = {{ERROR_MORE_DATA, 0x80000000u}};
    qvfake_prov_script_enum(QVFAKE_ENUM_PROVIDERS, steps, 1);
    CollectProviders provs;
    EXPECT_EQ(thrown([&] { provs.Enum(); }), E_OUTOFMEMORY);
}

// ---------------------------------------------------------------- TryNextProv

TEST_F(Providers, TryNextProvKeepsTheLastProviderOpen) {
    {
        Quorvane::CFindAlgIdIn finder(CALG_GR3411_2012_256);
        EXPECT_FALSE(finder.TryNextProv(PROV_RSA_AES, nullptr));
        EXPECT_EQ(provName(finder.m_hProv), kRsaAes);
        EXPECT_EQ(qvfake_prov_context_refs(), 1u);
        EXPECT_TRUE(finder.TryNextProv(PROV_GOST_2001_DH, kGost));
        EXPECT_EQ(provName(finder.m_hProv), kGost);
        // The first context was released before the second was opened.
        EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    }
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, TryNextProvFailures) {
    Quorvane::CFindAlgIdIn finder(CALG_SHA1);
    EXPECT_EQ(thrown([&] { finder.TryNextProv(99, nullptr); }), NTE_PROV_TYPE_NOT_DEF);
    EXPECT_EQ(thrown([&] { finder.TryNextProv(PROV_RSA_AES, "No Such Provider"); }), NTE_KEYSET_NOT_DEF);

    ASSERT_TRUE(finder.TryNextProv(PROV_RSA_FULL, nullptr));
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(thrown([&] { finder.TryNextProv(PROV_RSA_AES, nullptr); }), HRESULT(0x80070005));
    EXPECT_NE(finder.m_hProv, 0u);

    // A release that fails with last error 0 is passed over: the walk goes on.
    qvfake_prov_fail_releases(1, 0);
    EXPECT_TRUE(finder.TryNextProv(PROV_RSA_AES, nullptr));
    EXPECT_EQ(provName(finder.m_hProv), kRsaAes);
}

// ---------------------------------------------------------------- QVGetDefaultCSPThrow

TEST_F(Providers, AlgIdZeroTouchesNothing) {
    EXPECT_EQ(QVGetDefaultCSPThrow(0), 0u);
    EXPECT_EQ(qvfake_prov_calls(), 0u);
}

TEST_F(Providers, CachedDefaultComesFirst) {
    const HCRYPTPROV h = QVGetDefaultCSPThrow(CALG_SHA_256);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(provName(h), kRsaAes);
    EXPECT_EQ(qvfake_prov_calls_of("QVCAPI_I_CryptGetDefaultCryptProv"), 1u);
    EXPECT_EQ(qvfake_prov_enum_calls(QVFAKE_ENUM_TYPES), 0u);
    EXPECT_TRUE(CryptReleaseContext(h, 0));
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, SearchByTypeFindsTheProviderAndHoldsOneReference) {
    qvfake_prov_set_default(FALSE);
    const HCRYPTPROV h = QVGetDefaultCSPThrow(CALG_GR3411_2012_512);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(provName(h), kGost);
    EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    EXPECT_EQ(qvfake_prov_enum_calls(QVFAKE_ENUM_PROVIDERS), 0u);
    EXPECT_TRUE(CryptReleaseContext(h, 0));
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, UnknownAlgorithmYieldsTheLastTriedProvider) {
    qvfake_prov_set_default(FALSE);
    const HCRYPTPROV h = QVGetDefaultCSPThrow(kUnknownAlg);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(provName(h), kGost);
    EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    EXPECT_TRUE(CryptReleaseContext(h, 0));

    // MakeHash then fails in CryptCreateHash, and gives everything back.
    EXPECT_EQ(thrown([] { MakeHash(0, kUnknownAlg, blobOf("abc"), nullptr); }), NTE_BAD_ALGID);
    EXPECT_EQ(qvfake_prov_calls_of("CryptCreateHash"), 1u);
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    EXPECT_EQ(qvfake_prov_live_hashes(), 0u);
}

TEST_F(Providers, NamedProvidersAreSearchedWhenNoTypeWasTried) {
    qvfake_prov_set_default(FALSE);
    const QVFAKE_ENUM_STEP typesFail[] = {{ERROR_ACCESS_DENIED, 0}};
    qvfake_prov_script_enum(QVFAKE_ENUM_TYPES, typesFail, 1);
    const HCRYPTPROV h = QVGetDefaultCSPThrow(CALG_SHA_512);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(provName(h), kRsaAes);
    EXPECT_EQ(enumLog(QVFAKE_ENUM_PROVIDERS), (Log{{0, 256}, {1, 256}}));
    EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    EXPECT_TRUE(CryptReleaseContext(h, 0));
}

TEST_F(Providers, NoProvidersAtAll) {
    const QVFAKE_PROVIDER none[1] = {};
    qvfake_prov_set_providers(none, 0);
    EXPECT_EQ(QVGetDefaultCSPThrow(CALG_SHA1), 0u);
    // MakeHash throws the last error as the search left it: the end of the enumeration.
    EXPECT_EQ(thrown([] { MakeHash(0, CALG_SHA1, blobOf("abc"), nullptr); }), HRESULT(0x80070103));
}

TEST_F(Providers, ExceptionsOfTheSearchPassThrough) {
    qvfake_prov_set_default(FALSE);
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    // The first type does not know SHA-256; releasing its context before the next one fails.
    EXPECT_EQ(thrown([] { QVGetDefaultCSPThrow(CALG_SHA_256); }), HRESULT(0x80070005));
}

// ---------------------------------------------------------------- MakeHash

TEST_F(Providers, MakeHashLeavesNoReferenceBehind) {
    const CBlob value = MakeHash(0, CALG_SHA1, blobOf("abc"), nullptr);
    EXPECT_EQ(hexOf(value), "A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
    EXPECT_EQ(qvfake_prov_live_hashes(), 0u);

    qvfake_prov_set_default(FALSE);
    EXPECT_EQ(MakeHash(0, CALG_SHA1, blobOf("abc"), nullptr), value);
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, MakeHashWithGivenProviderKeepsTheCallersReference) {
    HCRYPTPROV h = 0;
    ASSERT_TRUE(CryptAcquireContextA(&h, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
    const CBlob value = MakeHash(h, CALG_SHA_384, blobOf("abc"), nullptr);
    EXPECT_EQ(value.cbData(), 48u);
    EXPECT_EQ(qvfake_prov_calls_of("QVCAPI_I_CryptGetDefaultCryptProv"), 0u);
    EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    EXPECT_TRUE(CryptReleaseContext(h, 0));
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, HashHandedOverIsLive) {
    HCRYPTHASH hHash = 0;
    const CBlob value = MakeHash(0, CALG_SHA1, blobOf("abc"), &hHash);
    ASSERT_NE(hHash, 0u);
    EXPECT_EQ(qvfake_prov_live_hashes(), 1u);
    // The hash holds its provider; MakeHash's own reference is gone.
    EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    BYTE again[20];
    DWORD cb = sizeof again;
    ASSERT_TRUE(CryptGetHashParam(hHash, HP_HASHVAL, again, &cb, 0));
    EXPECT_EQ(CBlob(again, cb), value);
    EXPECT_TRUE(CryptDestroyHash(hHash));
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, AlgIdZeroThrowsTheLastErrorAsItStands) {
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(thrown([] { MakeHash(0, 0, blobOf("abc"), nullptr); }), HRESULT(0x80070005));
    SetLastError(0);
    EXPECT_EQ(thrown([] { MakeHash(0, 0, blobOf("abc"), nullptr); }), 0);
    SetLastError(static_cast<DWORD>(NTE_BAD_ALGID));
    EXPECT_EQ(thrown([] { MakeHash(0, 0, blobOf("abc"), nullptr); }), NTE_BAD_ALGID);
    EXPECT_EQ(qvfake_prov_calls(), 0u);
}

struct StepFailure {
    const char* function;
    DWORD error;
    HRESULT thrownHr;  // 0: no exception
};

class MakeHashFailures : public ::testing::TestWithParam<StepFailure> {
protected:
    void SetUp() override { qvfake_reset(); }
    void TearDown() override { qvfake_reset(); }
};

TEST_P(MakeHashFailures, ReleasesHashAndProviderBeforeThrowing) {
    const StepFailure& f = GetParam();
    qvfake_prov_fail_next(f.function, f.error);
    HCRYPTHASH hHash = 0;
    if (f.thrownHr != 0) {
        EXPECT_EQ(thrown([&] { MakeHash(0, CALG_SHA1, blobOf("abc"), &hHash); }), f.thrownHr);
        EXPECT_EQ(hHash, 0u);
    } else {
        MakeHash(0, CALG_SHA1, blobOf("abc"), nullptr);
    }
    EXPECT_EQ(qvfake_prov_live_hashes(), 0u);
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

void PrintTo(const StepFailure& f, std::ostream* os) { *os << f.function << " " << f.error; }

INSTANTIATE_TEST_SUITE_P(
    Providers, MakeHashFailures,
    ::testing::Values(StepFailure{"CryptCreateHash", ERROR_ACCESS_DENIED, HRESULT(0x80070005)},
                      // No hash was made: the next step fails on the empty handle.
                      StepFailure{"CryptCreateHash", 0, NTE_BAD_HASH},
                      StepFailure{"CryptHashData", ERROR_INVALID_DATA, HRESULT(0x8007000D)},
                      StepFailure{"CryptHashData", DWORD(NTE_BAD_HASH_STATE), NTE_BAD_HASH_STATE},
                      StepFailure{"CryptGetHashParam", ERROR_INVALID_PARAMETER, E_INVALIDARG},
                      StepFailure{"CryptHashData", 0, 0}));

TEST_F(Providers, FailureWithLastErrorZeroRunsTheNextStep) {
    // The data step is skipped silently: the value is the hash of nothing.
    qvfake_prov_fail_next("CryptHashData", 0);
    EXPECT_EQ(hexOf(MakeHash(0, CALG_SHA1, blobOf("abc"), nullptr)), "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
}

TEST_F(Providers, ReleaseFailureAtTheEndIsIgnored) {
    qvfake_prov_fail_releases(1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(MakeHash(0, CALG_SHA1, blobOf("abc"), nullptr).cbData(), 20u);
}

TEST_F(Providers, StaleProviderHandle) {
    HCRYPTPROV h = 0;
    ASSERT_TRUE(CryptAcquireContextA(&h, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    ASSERT_TRUE(CryptReleaseContext(h, 0));
    // The reference cannot be taken; the hash cannot be made on a dead context.
    EXPECT_EQ(thrown([&] { MakeHash(h, CALG_SHA1, blobOf("abc"), nullptr); }), NTE_BAD_UID);
    EXPECT_EQ(qvfake_prov_calls_of("CryptReleaseContext"), 1u);
}

// ---------------------------------------------------------------- wrappers

TEST_F(Providers, WrappersReleaseWhatTheyHold) {
    EXPECT_EQ(ATL::CCryptHash::EmptyHash.m_hHash, 0u);
    EXPECT_EQ(ATL::CCryptKey::EmptyKey.m_hKey, 0u);
    EXPECT_EQ(ATL2::EmptyProv.m_hProv, 0u);
    {
        ATL::CCryptKey key(qvfake_prov_make_key());
        EXPECT_EQ(qvfake_prov_live_keys(), 1u);
    }
    EXPECT_EQ(qvfake_prov_live_keys(), 0u);
    {
        HCRYPTHASH hHash = 0;
        MakeHash(0, CALG_MD5, blobOf("abc"), &hHash);
        ATL::CCryptHash hash(hHash);
        EXPECT_EQ(qvfake_prov_live_hashes(), 1u);
    }
    EXPECT_EQ(qvfake_prov_live_hashes(), 0u);
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

TEST_F(Providers, ProviderWrapperKeepsTheHandleWhenReleaseFails) {
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

TEST_F(Providers, FinderReleasesItsContextOnDestruction) {
    qvfake_prov_set_default(FALSE);
    {
        Quorvane::CFindAlgIdInDefaultProviders finder(kUnknownAlg);
        EXPECT_EQ(finder.Enum(), S_OK);
        EXPECT_NE(finder.m_hProv, 0u);
        EXPECT_EQ(qvfake_prov_context_refs(), 1u);
    }
    EXPECT_EQ(qvfake_prov_context_refs(), 0u);
}

}  // namespace
