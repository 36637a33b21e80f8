// The generic BER walk over the corpus certificates, beside a minimal DER walk written
// here as the floor and OpenSSL's ASN1_get_object walk.  Each benchmark walks every
// certificate once per iteration; items are certificates, bytes their sizes.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/asn1.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "asn1rt/ber.h"

namespace {

// A warmed-up process keeps its freed heap.  Without this, glibc hands the top of the heap
// back after each large copied value (the corpus holds a 118 KB certificate) and faults
// fresh pages in on the next iteration, so the numbers would follow its trim heuristics,
// which an unrelated allocation can switch off, rather than the walk.
const bool heapKept = mallopt(M_TRIM_THRESHOLD, 64 << 20) == 1;

struct Corpus {
    std::vector<std::vector<uint8_t>> certs;
    size_t bytes = 0;
};

const Corpus& certificates()
{
    static const Corpus corpus = [] {
        Corpus c;
        namespace fs = std::filesystem;
        const fs::path root = fs::path(CHAINVET_CORPUS_DIR) / "cert";
        std::error_code ec;
        std::vector<fs::path> files;
        for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
            if (it->is_regular_file() && it->path().string().find("/bad/") == std::string::npos)
                files.push_back(it->path());
        }
        std::sort(files.begin(), files.end());
        for (const fs::path& f : files) {
            std::ifstream in(f, std::ios::binary);
            std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            if (bytes.size() < 2 || bytes[0] != 0x30)
                continue;
            c.bytes += bytes.size();
            c.certs.push_back(std::move(bytes));
        }
        return c;
    }();
    return corpus;
}

void finish(benchmark::State& state, const Corpus& c, size_t elements)
{
    state.SetItemsProcessed((int64_t)(state.iterations() * c.certs.size()));
    state.SetBytesProcessed((int64_t)(state.iterations() * c.bytes));
    state.counters["certs"] = (double)c.certs.size();
    state.counters["elements"] = (double)elements;
    if (!heapKept)
        state.SetLabel("heap trimmed");
}

// The floor: headers only, definite lengths, no values, no checks beyond the bounds.
size_t floorWalk(const uint8_t* p, size_t n)
{
    size_t elements = 0;
    size_t ends[64];
    int depth = 0;
    size_t i = 0;
    while (i < n) {
        while (depth > 0 && i >= ends[depth - 1])
            --depth;
        uint8_t id = p[i++];
        if ((id & 0x1f) == 0x1f) {
            while (i < n && (p[i] & 0x80))
                ++i;
            ++i;
        }
        if (i >= n)
            break;
        size_t len = p[i++];
        if (len & 0x80) {
            size_t k = len & 0x7f;
            len = 0;
            while (k-- && i < n)
                len = (len << 8) | p[i++];
        }
        ++elements;
        if ((id & 0x20) && depth < 64)
            ends[depth++] = i + len;
        else
            i += len;
    }
    return elements;
}

// OpenSSL's header reader in the same walk.
size_t opensslWalk(const uint8_t* data, size_t n)
{
    size_t elements = 0;
    const unsigned char* p = data;
    const unsigned char* end = data + n;
    while (p < end) {
        long len = 0;
        int tag = 0, cls = 0;
        int r = ASN1_get_object(&p, &len, &tag, &cls, (long)(end - p));
        if (r & 0x80)
            break;
        ++elements;
        if (!(r & V_ASN1_CONSTRUCTED))
            p += len;
    }
    return elements;
}

void BM_ChainvetGenericWalk(benchmark::State& state)
{
    const Corpus& c = certificates();
    if (c.certs.empty()) {
        state.SkipWithError("no certificates in the corpus");
        return;
    }
    const bool share = state.range(0) != 0;
    const bool keep = state.range(1) != 0;
    size_t elements = 0;
    for (auto _ : state) {
        elements = 0;
        for (const auto& cert : c.certs) {
            ASN1CTXT ctxt;
            rtInitContext(&ctxt, nullptr);
            if (share)
                rtCtxtSetFlag(&ctxt, RT_FLAG_SHARE_INPUT);
            asn1rt::BerWalk walk;
            int st = asn1rt::berWalk(&ctxt, cert.data(), (int)cert.size(), walk, keep);
            benchmark::DoNotOptimize(st);
            elements += walk.count;
            rtFreeContext(&ctxt);
        }
    }
    finish(state, c, elements);
}
// shared: strings point into the message; kept: values stay on the heap (0: read into
// scratch storage by the caller-storage readers and dropped).  shared:1/kept:1 is the
// headline: the decode a user of the runtime runs, one context per message, every value
// read by its typed reader and kept, nothing copied that the message already holds.  The
// floor below reads headers only, so it bounds what any decode walk can reach.
BENCHMARK(BM_ChainvetGenericWalk)->ArgNames({"shared", "kept"})->Args({1, 1})->Args({0, 1})->Args({0, 0});

void BM_FloorDerWalk(benchmark::State& state)
{
    const Corpus& c = certificates();
    size_t elements = 0;
    for (auto _ : state) {
        elements = 0;
        for (const auto& cert : c.certs)
            elements += floorWalk(cert.data(), cert.size());
        benchmark::DoNotOptimize(elements);
    }
    finish(state, c, elements);
}
BENCHMARK(BM_FloorDerWalk);

void BM_OpenSSLGetObjectWalk(benchmark::State& state)
{
    const Corpus& c = certificates();
    size_t elements = 0;
    for (auto _ : state) {
        elements = 0;
        for (const auto& cert : c.certs)
            elements += opensslWalk(cert.data(), cert.size());
        benchmark::DoNotOptimize(elements);
    }
    finish(state, c, elements);
}
BENCHMARK(BM_OpenSSLGetObjectWalk);

}  // namespace

BENCHMARK_MAIN();
