// MakeHash of a 100-byte name through the whole provider path, beside Nettle called
// directly: the cost of the provider search, the handles and the reference counting.
#include "policies/crypt.h"

#include <benchmark/benchmark.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>
#include <nettle/streebog.h>

#include <vector>

namespace {

// A 100-byte DER name stands in for an issuer name.
const std::vector<unsigned char>& name100() {
    static const std::vector<unsigned char> name = [] {
        std::vector<unsigned char> n(100);
        n[0] = 0x30;
        n[1] = 98;
        for (size_t i = 2; i < n.size(); ++i)
            n[i] = static_cast<unsigned char>('A' + i % 26);
        return n;
    }();
    return name;
}

void MakeHashDefaultProvider(benchmark::State& state, ALG_ID alg) {
    const Quorvane::CBlob data(name100().data(), static_cast<unsigned long>(name100().size()));
    for (auto _ : state) {
        Quorvane::CBlob h = Quorvane::MakeHash(0, alg, data, nullptr);
        benchmark::DoNotOptimize(h.pbData());
    }
}

void MakeHashGivenProvider(benchmark::State& state, ALG_ID alg) {
    const Quorvane::CBlob data(name100().data(), static_cast<unsigned long>(name100().size()));
    const HCRYPTPROV prov = Quorvane::QVGetDefaultCSPThrow(alg);
    for (auto _ : state) {
        Quorvane::CBlob h = Quorvane::MakeHash(prov, alg, data, nullptr);
        benchmark::DoNotOptimize(h.pbData());
    }
    CryptReleaseContext(prov, 0);
}

void NettleSha1(benchmark::State& state) {
    uint8_t out[SHA1_DIGEST_SIZE];
    for (auto _ : state) {
        sha1_ctx ctx;
        sha1_init(&ctx);
        sha1_update(&ctx, name100().size(), name100().data());
        sha1_digest(&ctx, sizeof out, out);
        benchmark::DoNotOptimize(out);
    }
}

void NettleSha256(benchmark::State& state) {
    uint8_t out[SHA256_DIGEST_SIZE];
    for (auto _ : state) {
        sha256_ctx ctx;
        sha256_init(&ctx);
        sha256_update(&ctx, name100().size(), name100().data());
        sha256_digest(&ctx, sizeof out, out);
        benchmark::DoNotOptimize(out);
    }
}

void NettleStreebog256(benchmark::State& state) {
    uint8_t out[STREEBOG256_DIGEST_SIZE];
    for (auto _ : state) {
        streebog256_ctx ctx;
        streebog256_init(&ctx);
        streebog256_update(&ctx, name100().size(), name100().data());
        streebog256_digest(&ctx, sizeof out, out);
        benchmark::DoNotOptimize(out);
    }
}

// The search by provider type alone, without the cached default context.
void ProviderSearch(benchmark::State& state) {
    for (auto _ : state) {
        Quorvane::CFindAlgIdInDefaultProviders finder(CALG_GR3411_2012_256);
        benchmark::DoNotOptimize(finder.Enum());
    }
}

}  // namespace

BENCHMARK(NettleSha1);
BENCHMARK_CAPTURE(MakeHashDefaultProvider, sha1, CALG_SHA1);
BENCHMARK_CAPTURE(MakeHashGivenProvider, sha1, CALG_SHA1);
BENCHMARK(NettleSha256);
BENCHMARK_CAPTURE(MakeHashDefaultProvider, sha256, CALG_SHA_256);
BENCHMARK_CAPTURE(MakeHashGivenProvider, sha256, CALG_SHA_256);
BENCHMARK(NettleStreebog256);
BENCHMARK_CAPTURE(MakeHashDefaultProvider, streebog256, CALG_GR3411_2012_256);
BENCHMARK_CAPTURE(MakeHashGivenProvider, streebog256, CALG_GR3411_2012_256);
BENCHMARK(ProviderSearch);

BENCHMARK_MAIN();
