// The catalogue's Certificate decoder and encoder over the corpus certificates, beside a
// minimal DER header walk (the floor), OpenSSL's d2i_X509/i2d_X509 and GnuTLS'
// gnutls_x509_crt_import, in one run; the table at the end gives ns per certificate and
// the ratios. Items are certificates, bytes their sizes.
#include <benchmark/benchmark.h>
#include <gnutls/x509.h>
#include <malloc.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "asn1data/catalogue.h"

namespace {

// Freed heap stays with the process, so that the figures follow the code, not glibc's
// trimming (see bench_ber_walk).
const bool heapKept = mallopt(M_TRIM_THRESHOLD, 64 << 20) == 1 && mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1;

struct Corpus {
    std::vector<std::vector<uint8_t>> certs;
    size_t bytes = 0;
};

bool decodes(const std::vector<uint8_t>& der) {
    ASN1CTXT c;
    rtInitContext(&c, nullptr);
    xd_setp(&c, der.data(), (int)der.size(), nullptr, nullptr);
    asn1data::ASN1T_Certificate cert;
    const bool ok = asn1data::asn1D_Certificate(&c, &cert, ASN1EXPL, 0) == 0;
    rtFreeContext(&c);
    return ok;
}

// The corpus certificates that every side reads.
const Corpus& certificates() {
    static const Corpus corpus = [] {
        Corpus c;
        namespace fs = std::filesystem;
        std::vector<fs::path> files;
        std::error_code ec;
        for (fs::recursive_directory_iterator it(fs::path(CHAINVET_CORPUS_DIR) / "cert", ec), end;
             !ec && it != end; it.increment(ec))
            if (it->is_regular_file() && it->path().string().find("/bad/") == std::string::npos)
                files.push_back(it->path());
        std::sort(files.begin(), files.end());
        for (const fs::path& f : files) {
            std::ifstream in(f, std::ios::binary);
            std::vector<uint8_t> der((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            const unsigned char* p = der.data();
            X509* x = d2i_X509(nullptr, &p, (long)der.size());
            gnutls_x509_crt_t g;
            gnutls_x509_crt_init(&g);
            const gnutls_datum_t d = {der.data(), (unsigned)der.size()};
            const bool all = x != nullptr && gnutls_x509_crt_import(g, &d, GNUTLS_X509_FMT_DER) == 0 && decodes(der);
            X509_free(x);
            gnutls_x509_crt_deinit(g);
            if (!all) continue;
            c.bytes += der.size();
            c.certs.push_back(std::move(der));
        }
        return c;
    }();
    return corpus;
}

void finish(benchmark::State& state, const Corpus& c) {
    state.SetItemsProcessed((int64_t)(state.iterations() * c.certs.size()));
    state.SetBytesProcessed((int64_t)(state.iterations() * c.bytes));
    state.counters["certs"] = (double)c.certs.size();
    if (!heapKept) state.SetLabel("heap trimmed");
}

size_t floorWalk(const uint8_t* p, size_t n) {
    size_t elements = 0, ends[64];
    int depth = 0;
    size_t i = 0;
    while (i < n) {
        while (depth > 0 && i >= ends[depth - 1]) --depth;
        const uint8_t id = p[i++];
        if ((id & 0x1f) == 0x1f) {
            while (i < n && (p[i] & 0x80)) ++i;
            ++i;
        }
        if (i >= n) break;
        size_t len = p[i++];
        if (len & 0x80) {
            size_t k = len & 0x7f;
            len = 0;
            while (k-- && i < n) len = (len << 8) | p[i++];
        }
        ++elements;
        if ((id & 0x20) && depth < 64)
            ends[depth++] = i + len;
        else
            i += len;
    }
    return elements;
}

void Floor(benchmark::State& state) {
    const Corpus& c = certificates();
    for (auto _ : state)
        for (const auto& der : c.certs) benchmark::DoNotOptimize(floorWalk(der.data(), der.size()));
    finish(state, c);
}

// Decoded into a fresh record on a fresh context, as a caller with one certificate does.
void CatalogueDecode(benchmark::State& state) {
    const Corpus& c = certificates();
    for (auto _ : state) {
        for (const auto& der : c.certs) {
            ASN1CTXT ctxt;
            rtInitContext(&ctxt, nullptr);
            xd_setp(&ctxt, der.data(), (int)der.size(), nullptr, nullptr);
            asn1data::ASN1T_Certificate cert;
            benchmark::DoNotOptimize(asn1data::asn1D_Certificate(&ctxt, &cert, ASN1EXPL, 0));
            rtFreeContext(&ctxt);
        }
    }
    finish(state, c);
}

// The same with RT_FLAG_SHARE_INPUT: octet strings, bit strings and open types point into
// the message instead of being copied to the heap.
void CatalogueDecodeShared(benchmark::State& state) {
    const Corpus& c = certificates();
    for (auto _ : state) {
        for (const auto& der : c.certs) {
            ASN1CTXT ctxt;
            rtInitContext(&ctxt, nullptr);
            xd_setp(&ctxt, der.data(), (int)der.size(), nullptr, nullptr);
            rtCtxtSetFlag(&ctxt, RT_FLAG_SHARE_INPUT);
            asn1data::ASN1T_Certificate cert;
            benchmark::DoNotOptimize(asn1data::asn1D_Certificate(&ctxt, &cert, ASN1EXPL, 0));
            rtFreeContext(&ctxt);
        }
    }
    finish(state, c);
}

// The runtime asks its allocator hooks for every block; a program that decodes many
// messages may hand it an arena instead, reset after each message. This measures the
// decoders with allocation taken out of the picture.
struct Arena {
    std::vector<unsigned char> memory = std::vector<unsigned char>(8 << 20);
    size_t used = 0;
};
Arena* gArena = nullptr;
void* arenaMalloc(void*, size_t size) {
    const size_t at = (gArena->used + 15) & ~size_t(15);
    if (at + size > gArena->memory.size()) return std::malloc(size);  // rare: the 118 KB certificate's copies
    gArena->used = at + size;
    return gArena->memory.data() + at;
}
void arenaFree(void*, void* p) {
    if (p < (void*)gArena->memory.data() || p >= (void*)(gArena->memory.data() + gArena->memory.size())) std::free(p);
}

void CatalogueDecodeArena(benchmark::State& state) {
    const Corpus& c = certificates();
    Arena arena;
    gArena = &arena;
    const rtMallocFunc savedMalloc = g_malloc_func;
    const rtFreeFunc savedFree = g_free_func;
    g_malloc_func = arenaMalloc;
    g_free_func = arenaFree;
    for (auto _ : state) {
        for (const auto& der : c.certs) {
            arena.used = 0;
            ASN1CTXT ctxt;
            rtInitContext(&ctxt, nullptr);
            xd_setp(&ctxt, der.data(), (int)der.size(), nullptr, nullptr);
            asn1data::ASN1T_Certificate cert;
            benchmark::DoNotOptimize(asn1data::asn1D_Certificate(&ctxt, &cert, ASN1EXPL, 0));
            rtFreeContext(&ctxt);
        }
    }
    g_malloc_func = savedMalloc;
    g_free_func = savedFree;
    gArena = nullptr;
    finish(state, c);
}

// Encoding of the decoded values, each into a fresh buffer of its context.
void CatalogueEncode(benchmark::State& state) {
    const Corpus& c = certificates();
    std::vector<ASN1CTXT> ctxts(c.certs.size());
    std::vector<asn1data::ASN1T_Certificate> certs(c.certs.size());
    for (size_t i = 0; i < c.certs.size(); ++i) {
        rtInitContext(&ctxts[i], nullptr);
        xd_setp(&ctxts[i], c.certs[i].data(), (int)c.certs[i].size(), nullptr, nullptr);
        asn1data::asn1D_Certificate(&ctxts[i], &certs[i], ASN1EXPL, 0);
    }
    for (auto _ : state) {
        for (size_t i = 0; i < c.certs.size(); ++i) {
            ASN1CTXT enc;
            rtInitContext(&enc, nullptr);
            xe_setp(&enc, nullptr, 0);
            benchmark::DoNotOptimize(asn1data::asn1E_Certificate(&enc, &certs[i], ASN1EXPL));
            rtFreeContext(&enc);
        }
    }
    for (ASN1CTXT& x : ctxts) rtFreeContext(&x);
    finish(state, c);
}

void OpenSSLDecode(benchmark::State& state) {
    const Corpus& c = certificates();
    for (auto _ : state) {
        for (const auto& der : c.certs) {
            const unsigned char* p = der.data();
            X509* x = d2i_X509(nullptr, &p, (long)der.size());
            X509_free(x);
        }
    }
    finish(state, c);
}

// i2d_X509 of a parsed certificate writes the encoding it kept while parsing.
void OpenSSLEncode(benchmark::State& state) {
    const Corpus& c = certificates();
    std::vector<X509*> xs;
    for (const auto& der : c.certs) {
        const unsigned char* p = der.data();
        xs.push_back(d2i_X509(nullptr, &p, (long)der.size()));
    }
    for (auto _ : state) {
        for (X509* x : xs) {
            unsigned char* out = nullptr;
            benchmark::DoNotOptimize(i2d_X509(x, &out));
            OPENSSL_free(out);
        }
    }
    for (X509* x : xs) X509_free(x);
    finish(state, c);
}

void GnuTLSImport(benchmark::State& state) {
    const Corpus& c = certificates();
    for (auto _ : state) {
        for (const auto& der : c.certs) {
            gnutls_x509_crt_t g;
            gnutls_x509_crt_init(&g);
            const gnutls_datum_t d = {const_cast<unsigned char*>(der.data()), (unsigned)der.size()};
            benchmark::DoNotOptimize(gnutls_x509_crt_import(g, &d, GNUTLS_X509_FMT_DER));
            gnutls_x509_crt_deinit(g);
        }
    }
    finish(state, c);
}

BENCHMARK(Floor);
BENCHMARK(CatalogueDecode);
BENCHMARK(CatalogueDecodeShared);
BENCHMARK(CatalogueDecodeArena);
BENCHMARK(CatalogueEncode);
BENCHMARK(OpenSSLDecode);
BENCHMARK(OpenSSLEncode);
BENCHMARK(GnuTLSImport);

// Keeps the CPU time per certificate of each benchmark for the table of ratios: every
// side is single-threaded, and CPU time stays put when other jobs share the cores.
class Collector : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> nsPerCert;
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.iterations == 0) continue;
            const double certs = r.counters.count("certs") ? (double)r.counters.at("certs") : 1.0;
            nsPerCert[r.benchmark_name()] = r.GetAdjustedCPUTime() / certs;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    const auto& t = collector.nsPerCert;
    auto at = [&t](const char* n) { auto i = t.find(n); return i == t.end() ? 0.0 : i->second; };
    const double floorNs = at("Floor"), dec = at("CatalogueDecode"), enc = at("CatalogueEncode");
    std::printf("\n%zu corpus certificates, %.0f bytes on average\n", certificates().certs.size(),
                certificates().certs.empty() ? 0.0 : (double)certificates().bytes / (double)certificates().certs.size());
    std::printf("%-22s %12s %10s %12s\n", "per certificate", "CPU ns", "vs floor", "vs catalogue");
    for (const char* n : {"Floor", "CatalogueDecode", "CatalogueDecodeShared", "CatalogueDecodeArena", "CatalogueEncode",
                          "OpenSSLDecode", "OpenSSLEncode", "GnuTLSImport"}) {
        if (at(n) == 0) continue;
        std::printf("%-22s %12.0f %9.2fx %11.2fx\n", n, at(n), floorNs ? at(n) / floorNs : 0.0,
                    dec ? at(n) / dec : 0.0);
    }
    if (dec > 0)
        std::printf("aims: decode %.2fx the floor (6x or less), GnuTLS import %.1fx the decode (10x or more), "
                    "encode %.2fx the decode (2x or less)\n",
                    floorNs ? dec / floorNs : 0.0, at("GnuTLSImport") / dec, enc / dec);
    return 0;
}
