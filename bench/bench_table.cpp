// Typed decode and encode of four kinds of corpus objects (certificates, CRLs, OCSP
// responses, CMS signed messages) by the catalogue, OpenSSL, GnuTLS and Botan, in one run.
// Every side of a kind is measured over the same objects: those that all of its sides read.
// The end of the output is one Markdown table of CPU ns per object and ratios to ours.
#include <benchmark/benchmark.h>
#include <botan/data_src.h>
#include <botan/ocsp.h>
#include <botan/x509_crl.h>
#include <botan/x509cert.h>
#include <gnutls/gnutls.h>
#include <gnutls/ocsp.h>
#include <gnutls/pkcs7.h>
#include <gnutls/x509.h>
#include <malloc.h>
#include <openssl/cms.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "asn1data/catalogue.h"

namespace {

// Freed heap stays with the process, so that the figures follow the code, not glibc's
// trimming (see bench_ber_walk).
const bool heapKept = mallopt(M_TRIM_THRESHOLD, 64 << 20) == 1 && mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1;

using Bytes = std::vector<uint8_t>;
using Objects = std::vector<Bytes>;

// One library's typed codec for one kind. reads() is the admission test: the object
// decodes and, where the side has an encoder, encodes again. encodeAll() runs over the
// values a Held made once, outside the timing.
struct Codec {
    virtual ~Codec() = default;
    virtual bool reads(const Bytes& der) const = 0;
    virtual void decodeAll(const Objects& objs) const = 0;
    virtual bool encodes() const { return true; }
    // Whether the new encoding is the input, octet for octet (asked of ours only).
    virtual bool identical(const Bytes&) const { return false; }
    struct Held {
        virtual ~Held() = default;
        virtual void encodeAll() = 0;
    };
    virtual std::unique_ptr<Held> hold(const Objects& objs) const = 0;
};

// ---- The catalogue ---------------------------------------------------------------------
// The open types under OCSPResponse (BasicOCSPResponse) and ContentInfo (SignedData) are
// decoded by the decoder through their object sets, and encoded again from those values.

template <class T, int (*D)(ASN1CTXT*, T*, ASN1TagType, int), int (*E)(ASN1CTXT*, T*, ASN1TagType)>
struct Ours : Codec {
    // A fresh context per object, as a caller with one message does.
    static int decodeOne(const Bytes& der) {
        ASN1CTXT c;
        rtInitContext(&c, nullptr);
        xd_setp(&c, der.data(), (int)der.size(), nullptr, nullptr);
        T value;
        const int stat = D(&c, &value, ASN1EXPL, 0);
        rtFreeContext(&c);
        return stat;
    }
    struct Values : Held {
        std::vector<ASN1CTXT> ctxts;
        std::vector<T> values;
        explicit Values(const Objects& objs) : ctxts(objs.size()), values(objs.size()) {
            for (size_t i = 0; i < objs.size(); ++i) {
                rtInitContext(&ctxts[i], nullptr);
                xd_setp(&ctxts[i], objs[i].data(), (int)objs[i].size(), nullptr, nullptr);
                D(&ctxts[i], &values[i], ASN1EXPL, 0);
            }
        }
        ~Values() override {
            for (ASN1CTXT& c : ctxts) rtFreeContext(&c);
        }
        // Each into a fresh buffer of its own context.
        void encodeAll() override {
            for (T& v : values) {
                ASN1CTXT enc;
                rtInitContext(&enc, nullptr);
                xe_setp(&enc, nullptr, 0);
                benchmark::DoNotOptimize(E(&enc, &v, ASN1EXPL));
                rtFreeContext(&enc);
            }
        }
    };
    bool reads(const Bytes& der) const override { return decodeOne(der) == 0 && reencoded(der) >= 0; }
    bool identical(const Bytes& der) const override { return reencoded(der) > 0; }
    // The length of the new encoding, 0 when it differs from the input, or a status.
    static int reencoded(const Bytes& der) {
        Values v(Objects{der});
        ASN1CTXT enc;
        rtInitContext(&enc, nullptr);
        xe_setp(&enc, nullptr, 0);
        int len = E(&enc, &v.values[0], ASN1EXPL);
        if (len > 0 && ((size_t)len != der.size() || std::memcmp(xe_getp(&enc), der.data(), der.size()) != 0)) len = 0;
        rtFreeContext(&enc);
        return len;
    }
    void decodeAll(const Objects& objs) const override {
        for (const Bytes& der : objs) benchmark::DoNotOptimize(decodeOne(der));
    }
    std::unique_ptr<Held> hold(const Objects& objs) const override { return std::make_unique<Values>(objs); }
};

// ---- OpenSSL ---------------------------------------------------------------------------
// i2d_X509 and i2d_X509_CRL write the signed part kept while parsing, i2d_OCSP_RESPONSE
// the basic response as the octet string it read. Decoding an OCSP response includes its
// basic response (OCSP_response_get1_basic): without it the caller holds an octet string.

template <class T, T* (*D2I)(T**, const unsigned char**, long), int (*I2D)(const T*, unsigned char**),
          void (*FREE)(T*), void (*INNER)(T*) = nullptr>
struct OpenSSL : Codec {
    static T* decodeOne(const Bytes& der) {
        const unsigned char* p = der.data();
        T* x = D2I(nullptr, &p, (long)der.size());
        if (x != nullptr && INNER != nullptr) INNER(x);
        return x;
    }
    bool reads(const Bytes& der) const override {
        T* x = decodeOne(der);
        unsigned char* out = nullptr;
        const bool ok = x != nullptr && I2D(x, &out) > 0;
        OPENSSL_free(out);
        FREE(x);
        return ok;
    }
    void decodeAll(const Objects& objs) const override {
        for (const Bytes& der : objs) FREE(decodeOne(der));
    }
    struct Values : Held {
        std::vector<T*> xs;
        explicit Values(const Objects& objs) {
            for (const Bytes& der : objs) xs.push_back(decodeOne(der));
        }
        ~Values() override {
            for (T* x : xs) FREE(x);
        }
        void encodeAll() override {
            for (T* x : xs) {
                unsigned char* out = nullptr;
                benchmark::DoNotOptimize(I2D(x, &out));
                OPENSSL_free(out);
            }
        }
    };
    std::unique_ptr<Held> hold(const Objects& objs) const override { return std::make_unique<Values>(objs); }
};

void ocspBasic(OCSP_RESPONSE* r) { OCSP_BASICRESP_free(OCSP_response_get1_basic(r)); }

// ---- GnuTLS ----------------------------------------------------------------------------
// The OCSP and PKCS #7 imports decode the basic response and the signed data as well.

struct GnuCert {
    using H = gnutls_x509_crt_t;
    static int init(H* h) { return gnutls_x509_crt_init(h); }
    static int import(H h, const gnutls_datum_t* d) { return gnutls_x509_crt_import(h, d, GNUTLS_X509_FMT_DER); }
    static int exportDer(H h, gnutls_datum_t* out) { return gnutls_x509_crt_export2(h, GNUTLS_X509_FMT_DER, out); }
    static void deinit(H h) { gnutls_x509_crt_deinit(h); }
};
struct GnuCrl {
    using H = gnutls_x509_crl_t;
    static int init(H* h) { return gnutls_x509_crl_init(h); }
    static int import(H h, const gnutls_datum_t* d) { return gnutls_x509_crl_import(h, d, GNUTLS_X509_FMT_DER); }
    static int exportDer(H h, gnutls_datum_t* out) { return gnutls_x509_crl_export2(h, GNUTLS_X509_FMT_DER, out); }
    static void deinit(H h) { gnutls_x509_crl_deinit(h); }
};
struct GnuOcsp {
    using H = gnutls_ocsp_resp_t;
    static int init(H* h) { return gnutls_ocsp_resp_init(h); }
    static int import(H h, const gnutls_datum_t* d) { return gnutls_ocsp_resp_import(h, d); }
    static int exportDer(H h, gnutls_datum_t* out) { return gnutls_ocsp_resp_export(h, out); }
    static void deinit(H h) { gnutls_ocsp_resp_deinit(h); }
};
struct GnuPkcs7 {
    using H = gnutls_pkcs7_t;
    static int init(H* h) { return gnutls_pkcs7_init(h); }
    static int import(H h, const gnutls_datum_t* d) { return gnutls_pkcs7_import(h, d, GNUTLS_X509_FMT_DER); }
    static int exportDer(H h, gnutls_datum_t* out) { return gnutls_pkcs7_export2(h, GNUTLS_X509_FMT_DER, out); }
    static void deinit(H h) { gnutls_pkcs7_deinit(h); }
};

template <class Api>
struct GnuTLS : Codec {
    using H = typename Api::H;
    // Null when the object does not import.
    static H decodeOne(const Bytes& der) {
        H h = nullptr;
        if (Api::init(&h) != 0) return nullptr;
        const gnutls_datum_t d = {const_cast<unsigned char*>(der.data()), (unsigned)der.size()};
        if (Api::import(h, &d) == 0) return h;
        Api::deinit(h);
        return nullptr;
    }
    bool reads(const Bytes& der) const override {
        H h = decodeOne(der);
        if (h == nullptr) return false;
        gnutls_datum_t out = {nullptr, 0};
        const bool ok = Api::exportDer(h, &out) == 0 && out.size > 0;
        gnutls_free(out.data);
        Api::deinit(h);
        return ok;
    }
    void decodeAll(const Objects& objs) const override {
        for (const Bytes& der : objs) Api::deinit(decodeOne(der));
    }
    struct Values : Held {
        std::vector<H> hs;
        explicit Values(const Objects& objs) {
            for (const Bytes& der : objs) hs.push_back(decodeOne(der));
        }
        ~Values() override {
            for (H h : hs) Api::deinit(h);
        }
        void encodeAll() override {
            for (H h : hs) {
                gnutls_datum_t out = {nullptr, 0};
                benchmark::DoNotOptimize(Api::exportDer(h, &out));
                gnutls_free(out.data);
            }
        }
    };
    std::unique_ptr<Held> hold(const Objects& objs) const override { return std::make_unique<Values>(objs); }
};

// ---- Botan -----------------------------------------------------------------------------
// BER_encode() of a certificate or CRL writes the signed body kept while parsing under a
// new outer SEQUENCE; an OCSP response has no encoder (raw_bits() is its input).

Botan::X509_Certificate botanCert(const Bytes& der) { return Botan::X509_Certificate(der.data(), der.size()); }
Botan::X509_CRL botanCrl(const Bytes& der) {
    Botan::DataSource_Memory src(der.data(), der.size());
    return Botan::X509_CRL(src);
}
Botan::OCSP::Response botanOcsp(const Bytes& der) { return Botan::OCSP::Response(der.data(), der.size()); }

template <class T, T (*MAKE)(const Bytes&), bool ENCODES>
struct Botan2 : Codec {
    bool encodes() const override { return ENCODES; }
    static std::vector<uint8_t> encodeOne(const T& value) {
        if constexpr (ENCODES)
            return value.BER_encode();
        else
            return {};
    }
    bool reads(const Bytes& der) const override {
        try {
            const T value = MAKE(der);
            return !ENCODES || !encodeOne(value).empty();
        } catch (const std::exception&) {
            return false;
        }
    }
    void decodeAll(const Objects& objs) const override {
        for (const Bytes& der : objs) {
            T value = MAKE(der);
            benchmark::DoNotOptimize(&value);
        }
    }
    struct Values : Held {
        std::vector<T> values;
        explicit Values(const Objects& objs) {
            for (const Bytes& der : objs) values.push_back(MAKE(der));
        }
        void encodeAll() override {
            for (const T& v : values) benchmark::DoNotOptimize(encodeOne(v));
        }
    };
    std::unique_ptr<Held> hold(const Objects& objs) const override { return std::make_unique<Values>(objs); }
};

// ---- Kinds, sides and the corpus -------------------------------------------------------

enum Side { kOurs, kOpenSSL, kGnuTLS, kBotan, kSides };
const char* const kSideNames[kSides] = {"libchainvet", "OpenSSL", "GnuTLS", "Botan"};

struct Kind {
    const char* manifest;  // MANIFEST.tsv column 3
    const char* label;
    const Codec* codecs[kSides];  // null: the side has no parser for the kind
};

using namespace asn1data;
const Ours<ASN1T_Certificate, asn1D_Certificate, asn1E_Certificate> oursCert;
const Ours<ASN1T_CertificateList, asn1D_CertificateList, asn1E_CertificateList> oursCrl;
const Ours<ASN1T_OCSPResponse, asn1D_OCSPResponse, asn1E_OCSPResponse> oursOcsp;
const Ours<ASN1T_ContentInfo, asn1D_ContentInfo, asn1E_ContentInfo> oursCms;
const OpenSSL<X509, d2i_X509, i2d_X509, X509_free> sslCert;
const OpenSSL<X509_CRL, d2i_X509_CRL, i2d_X509_CRL, X509_CRL_free> sslCrl;
const OpenSSL<OCSP_RESPONSE, d2i_OCSP_RESPONSE, i2d_OCSP_RESPONSE, OCSP_RESPONSE_free, ocspBasic> sslOcsp;
const OpenSSL<CMS_ContentInfo, d2i_CMS_ContentInfo, i2d_CMS_ContentInfo, CMS_ContentInfo_free> sslCms;
const GnuTLS<GnuCert> gnuCert;
const GnuTLS<GnuCrl> gnuCrl;
const GnuTLS<GnuOcsp> gnuOcsp;
const GnuTLS<GnuPkcs7> gnuCms;
const Botan2<Botan::X509_Certificate, botanCert, true> botanCertCodec;
const Botan2<Botan::X509_CRL, botanCrl, true> botanCrlCodec;
const Botan2<Botan::OCSP::Response, botanOcsp, false> botanOcspCodec;

const Kind kKinds[] = {
    {"cert", "certificate", {&oursCert, &sslCert, &gnuCert, &botanCertCodec}},
    {"crl", "CRL", {&oursCrl, &sslCrl, &gnuCrl, &botanCrlCodec}},
    {"ocsp-response", "OCSP response", {&oursOcsp, &sslOcsp, &gnuOcsp, &botanOcspCodec}},
    {"cms-signed", "CMS signed", {&oursCms, &sslCms, &gnuCms, nullptr}},
};
constexpr size_t kKindCount = sizeof kKinds / sizeof kKinds[0];

struct KindData {
    size_t files = 0;                 // in the manifest, outside bad/, readable
    size_t readBy[kSides] = {};       // of those, read by each side
    size_t identical = 0;             // of the common ones, re-encoded by us octet for octet
    Objects common;                   // read by every side that has a parser
    size_t bytes = 0;
};

std::string readFile(const std::string& path, bool& ok) {
    std::ifstream in(path, std::ios::binary);
    ok = bool(in);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// False when there is no manifest.
bool loadCorpus(const std::string& dir, std::vector<KindData>& data) {
    bool ok = false;
    const std::string manifest = readFile(dir + "/MANIFEST.tsv", ok);
    if (!ok) return false;
    data.assign(kKindCount, KindData());
    std::istringstream lines(manifest);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream cols(line);
        std::string path, sha, kind;
        if (!std::getline(cols, path, '\t') || !std::getline(cols, sha, '\t') || !std::getline(cols, kind, '\t'))
            continue;
        if (path.find("bad/") != std::string::npos) continue;
        for (size_t k = 0; k < kKindCount; ++k) {
            if (kind != kKinds[k].manifest) continue;
            const std::string content = readFile(dir + "/" + path, ok);
            if (!ok) break;
            const Bytes der(content.begin(), content.end());
            KindData& d = data[k];
            ++d.files;
            bool all = true;
            for (int s = 0; s < kSides; ++s) {
                if (kKinds[k].codecs[s] == nullptr) continue;
                const bool r = kKinds[k].codecs[s]->reads(der);
                d.readBy[s] += r;
                all = all && r;
            }
            if (!all) break;
            d.identical += kKinds[k].codecs[kOurs]->identical(der);
            d.bytes += der.size();
            d.common.push_back(der);
        }
    }
    return true;
}

// ---- Measuring and the table -----------------------------------------------------------

std::vector<KindData> gData;
std::map<std::string, double> gNs;  // benchmark name -> CPU ns per object

std::string benchName(size_t k, const char* op, int s) {
    return std::string(kKinds[k].manifest) + "/" + op + "/" + kSideNames[s];
}

void registerAll() {
    for (size_t k = 0; k < kKindCount; ++k) {
        const Objects* objs = &gData[k].common;
        if (objs->empty()) continue;
        for (int s = 0; s < kSides; ++s) {
            const Codec* codec = kKinds[k].codecs[s];
            if (codec == nullptr) continue;
            const double n = (double)objs->size();
            const int64_t bytes = (int64_t)gData[k].bytes;
            auto finish = [n, bytes](benchmark::State& state) {
                state.SetItemsProcessed((int64_t)(state.iterations() * (int64_t)n));
                state.SetBytesProcessed(state.iterations() * bytes);
                state.counters["objects"] = n;
                if (!heapKept) state.SetLabel("heap trimmed");
            };
            benchmark::RegisterBenchmark(benchName(k, "decode", s).c_str(),
                                         [codec, objs, finish](benchmark::State& state) {
                                             for (auto _ : state) codec->decodeAll(*objs);
                                             finish(state);
                                         })
                ->Repetitions(3)
                ->ReportAggregatesOnly(true);
            if (!codec->encodes()) continue;
            benchmark::RegisterBenchmark(benchName(k, "encode", s).c_str(),
                                         [codec, objs, finish](benchmark::State& state) {
                                             std::unique_ptr<Codec::Held> held = codec->hold(*objs);
                                             for (auto _ : state) held->encodeAll();
                                             finish(state);
                                         })
                ->Repetitions(3)
                ->ReportAggregatesOnly(true);
        }
    }
}

// Keeps the median CPU time per object of each benchmark: every side is single-threaded,
// and CPU time stays put when other jobs share the cores.
class Collector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
            if (!median && r.run_type != Run::RT_Iteration) continue;
            if (r.error_occurred || r.iterations == 0) continue;
            const auto objects = r.counters.find("objects");
            const double n = objects == r.counters.end() ? 1.0 : (double)objects->second;
            const std::string& name = r.run_name.function_name;
            if (median || !gNs.count(name)) gNs[name] = r.GetAdjustedCPUTime() / n;
        }
    }
};

// The first field of /proc/loadavg, and the processor's name, for the note under the table:
// the figures are CPU time, but cache and memory are shared with whatever else runs.
std::string firstMatch(const char* file, const char* key) {
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, std::strlen(key), key) != 0) continue;
        const size_t colon = line.find(':');
        if (colon == std::string::npos) return line.substr(0, line.find(' '));
        const size_t value = line.find_first_not_of(" \t", colon + 1);
        return value == std::string::npos ? "?" : line.substr(value);
    }
    return "?";
}
std::string loadAverage() { return firstMatch("/proc/loadavg", ""); }

std::string cell(size_t k, const char* op, int s) {
    if (kKinds[k].codecs[s] == nullptr || (std::strcmp(op, "encode") == 0 && !kKinds[k].codecs[s]->encodes()))
        return "n/a";
    const auto it = gNs.find(benchName(k, op, s));
    if (it == gNs.end()) return "-";
    char buf[64];
    if (s == kOurs) {
        std::snprintf(buf, sizeof buf, "%.0f", it->second);
    } else {
        const auto ours = gNs.find(benchName(k, op, kOurs));
        if (ours == gNs.end() || ours->second <= 0)
            std::snprintf(buf, sizeof buf, "%.0f", it->second);
        else
            std::snprintf(buf, sizeof buf, "%.0f (%.3g)", it->second, it->second / ours->second);
    }
    return buf;
}

void printTable(const std::string& loadBefore) {
    std::printf("\n| kind | operation | libchainvet ns/object | OpenSSL ns (ratio) | GnuTLS ns (ratio) | "
                "Botan ns (ratio) | objects | avg bytes |\n");
    std::printf("|---|---|---:|---:|---:|---:|---:|---:|\n");
    for (size_t k = 0; k < kKindCount; ++k) {
        const KindData& d = gData[k];
        if (d.common.empty()) continue;
        for (const char* op : {"decode", "encode"}) {
            bool measured = false;  // a row left out by --benchmark_filter stays out
            for (int s = 0; s < kSides; ++s) measured = measured || gNs.count(benchName(k, op, s));
            if (!measured) continue;
            std::printf("| %s | %s |", kKinds[k].label, op);
            for (int s = 0; s < kSides; ++s) std::printf(" %s |", cell(k, op, s).c_str());
            std::printf(" %zu | %.0f |\n", d.common.size(), (double)d.bytes / (double)d.common.size());
        }
    }
    std::printf("\nCPU time per object, median of 3 runs; ratio = peer time / libchainvet time (above 1: "
                "libchainvet is faster). Each kind is measured over the objects every side with a parser "
                "reads (decodes and, where it has an encoder, encodes again):\n");
    for (size_t k = 0; k < kKindCount; ++k) {
        const KindData& d = gData[k];
        std::printf("- %s: %zu corpus files, read by", kKinds[k].label, d.files);
        for (int s = 0; s < kSides; ++s)
            if (kKinds[k].codecs[s] != nullptr) std::printf("%s %s %zu", s ? "," : "", kSideNames[s], d.readBy[s]);
        std::printf("; all of them read %zu, of which libchainvet re-encodes %zu octet for octet\n", d.common.size(),
                    d.identical);
    }
    std::printf("\nMachine: %s, %u logical CPUs, load average %s at the start and %s at the end.\n",
                firstMatch("/proc/cpuinfo", "model name").c_str(), std::thread::hardware_concurrency(),
                loadBefore.c_str(), loadAverage().c_str());
    std::printf("\nDecoding an OCSP response includes its basic response on every side (OpenSSL through "
                "OCSP_response_get1_basic), decoding a CMS signed message its SignedData. Ours encodes from "
                "the decoded values throughout, the inner values too; a peer may write octets kept from "
                "parsing instead (OpenSSL and Botan the signed part of certificates and CRLs, OpenSSL an "
                "OCSP response's basic response as the octet string it read). Botan has no CMS parser and "
                "no OCSP encoder.\n");
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!loadCorpus(CHAINVET_CORPUS_DIR, gData)) {
        std::printf("bench_table: no corpus at %s (MANIFEST.tsv not found); nothing to measure\n",
                    CHAINVET_CORPUS_DIR);
        return 0;
    }
    const std::string loadBefore = loadAverage();
    registerAll();
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::Shutdown();
    printTable(loadBefore);
    return 0;
}
