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
// which an unrelated allocation can switch off, rather than the walk.  Setting the trim
// threshold freezes the mapping threshold at 128 KB, so that one is raised as well: a
// node array of more than 3,000 elements would otherwise be mapped and faulted in anew
// for every walk.
const bool heapKept = mallopt(M_TRIM_THRESHOLD, 64 << 20) == 1 && mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1;

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

// One context per message, as a user of the runtime decodes: initialised, walked, freed.
size_t chainvetWalk(const Corpus& c, asn1rt::BerWalkMode mode, bool share)
{
    size_t elements = 0;
    for (const auto& cert : c.certs) {
        ASN1CTXT ctxt;
        rtInitContext(&ctxt, nullptr);
        if (share)
            rtCtxtSetFlag(&ctxt, RT_FLAG_SHARE_INPUT);
        asn1rt::BerWalk walk;
        int st = asn1rt::berWalk(&ctxt, cert.data(), (int)cert.size(), walk, mode);
        benchmark::DoNotOptimize(st);
        elements += walk.count;
        rtFreeContext(&ctxt);
    }
    return elements;
}

// The generic decode walk: every header read as xd_tag_len reads it and checked against
// its enclosing element, DER header forms judged, the element tree kept (tag, length,
// offset, nesting) with each primitive's content as a view into the message.  It does what
// the floor does plus those checks and the tree, so the floor bounds it.
// fresh:1 is a one-off reader: a context per message, the nodes on its heap.  fresh:0 is
// a reader of many messages: one context, one node array, nothing allocated per message.
void BM_ChainvetGenericWalk(benchmark::State& state)
{
    const Corpus& c = certificates();
    if (c.certs.empty()) {
        state.SkipWithError("no certificates in the corpus");
        return;
    }
    size_t elements = 0;
    if (state.range(0) != 0) {
        for (auto _ : state)
            elements = chainvetWalk(c, asn1rt::kWalkStructure, false);
    } else {
        std::vector<asn1rt::BerWalkNode> storage(4096);
        ASN1CTXT ctxt;
        rtInitContext(&ctxt, nullptr);
        for (auto _ : state) {
            elements = 0;
            for (const auto& cert : c.certs) {
                asn1rt::BerWalk walk;
                int st = asn1rt::berWalk(&ctxt, cert.data(), (int)cert.size(), walk, asn1rt::kWalkStructure,
                                         storage.data(), (ASN1UINT)storage.size());
                benchmark::DoNotOptimize(st);
                elements += walk.count;
                if (walk.nodes != storage.data())
                    rtMemHeapFreePtr(&ctxt.typeHeap, walk.nodes);
                if (st != 0)
                    rtErrReset(&ctxt.errInfo);
            }
        }
        rtFreeContext(&ctxt);
    }
    finish(state, c, elements);
}
BENCHMARK(BM_ChainvetGenericWalk)->ArgName("fresh")->Arg(1)->Arg(0);

// The same walk reading every value with its typed reader as well (xd_integer, xd_objid,
// xd_bigint, xd_boolean, the string readers), DER value forms judged.  shared: strings
// point into the message; kept: values stay on the heap (0: read into scratch storage by
// the caller-storage readers and dropped).
void BM_ChainvetValueWalk(benchmark::State& state)
{
    const Corpus& c = certificates();
    if (c.certs.empty()) {
        state.SkipWithError("no certificates in the corpus");
        return;
    }
    const bool share = state.range(0) != 0;
    const auto mode = state.range(1) != 0 ? asn1rt::kWalkKeepValues : asn1rt::kWalkScratchValues;
    size_t elements = 0;
    for (auto _ : state)
        elements = chainvetWalk(c, mode, share);
    finish(state, c, elements);
}
BENCHMARK(BM_ChainvetValueWalk)->ArgNames({"shared", "kept"})->Args({1, 1})->Args({0, 1})->Args({0, 0});

// A walk written here, over every certificate once per iteration.
template <size_t (*Walk)(const uint8_t*, size_t)>
void plainWalk(benchmark::State& state)
{
    const Corpus& c = certificates();
    size_t elements = 0;
    for (auto _ : state) {
        elements = 0;
        for (const auto& cert : c.certs)
            elements += Walk(cert.data(), cert.size());
        benchmark::DoNotOptimize(elements);
    }
    finish(state, c, elements);
}

void BM_FloorDerWalk(benchmark::State& state) { plainWalk<floorWalk>(state); }
BENCHMARK(BM_FloorDerWalk);

void BM_OpenSSLGetObjectWalk(benchmark::State& state) { plainWalk<opensslWalk>(state); }
BENCHMARK(BM_OpenSSLGetObjectWalk);

}  // namespace

BENCHMARK_MAIN();
