// Reading certificate validity times: the runtime's C parsers, the lazily parsing time
// classes, and OpenSSL's ASN1_TIME parsing beside them.  Each iteration reads every text
// of the table once; items are texts.
#include <benchmark/benchmark.h>
#include <openssl/asn1.h>

#include <cstring>
#include <ctime>
#include <vector>

#include "asn1rt/asn1time.h"

namespace {

struct Text {
    const char* text;
    bool utc;
};

// Shapes that real certificates carry: UTCTime up to 2049, GeneralizedTime after.
const Text kTexts[] = {
    {"240229120000Z", true},        {"491231235959Z", true},     {"500101000000Z", true},
    {"130102030405Z", true},        {"380119031408Z", true},     {"20500101000000Z", false},
    {"99991231235959Z", false},     {"20380119031409Z", false},  {"21060207062816Z", false},
    {"20240101120000Z", false},
};
const size_t kCount = sizeof kTexts / sizeof kTexts[0];

void BM_RuntimeParse(benchmark::State& state) {
    ASN1CTXT ctxt;
    rtInitContext(&ctxt, nullptr);
    RtTimeFields f;
    for (auto _ : state) {
        for (const Text& t : kTexts) {
            int st = t.utc ? rtParseUTCTime(&ctxt, t.text, &f) : rtParseGeneralizedTime(&ctxt, t.text, &f);
            benchmark::DoNotOptimize(st);
            benchmark::DoNotOptimize(f.year);
        }
    }
    rtFreeContext(&ctxt);
    state.SetItemsProcessed((int64_t)(state.iterations() * kCount));
}
BENCHMARK(BM_RuntimeParse);

void BM_RuntimeParseAndMake(benchmark::State& state) {
    ASN1CTXT ctxt;
    rtInitContext(&ctxt, nullptr);
    RtTimeFields f;
    char out[32];
    char* p = out;
    for (auto _ : state) {
        for (const Text& t : kTexts) {
            if (t.utc)
                rtParseUTCTime(&ctxt, t.text, &f);
            else
                rtParseGeneralizedTime(&ctxt, t.text, &f);
            benchmark::DoNotOptimize(rtMakeGeneralizedTime(&ctxt, &f, &p, sizeof out));
        }
    }
    rtFreeContext(&ctxt);
    state.SetItemsProcessed((int64_t)(state.iterations() * kCount));
}
BENCHMARK(BM_RuntimeParseAndMake);

// A control per text, as generated code makes them: construction, one getter that
// parses, a second that does not.
void BM_TimeClasses(benchmark::State& state) {
    ASN1Context* ctxt = new ASN1Context;
    ctxt->_ref();
    for (auto _ : state) {
        for (const Text& t : kTexts) {
            const char* text = t.text;
            if (t.utc) {
                ASN1CUTCTime c(*ctxt, text, 1);
                benchmark::DoNotOptimize(c.getYear() + c.getSecond());
            } else {
                ASN1CGeneralizedTime c(*ctxt, text, 1);
                benchmark::DoNotOptimize(c.getYear() + c.getSecond());
            }
        }
    }
    ctxt->_unref();
    state.SetItemsProcessed((int64_t)(state.iterations() * kCount));
}
BENCHMARK(BM_TimeClasses);

void BM_OpenSSLParse(benchmark::State& state) {
    ASN1_TIME* t = ASN1_TIME_new();
    struct tm tmv;
    for (auto _ : state) {
        for (const Text& x : kTexts) {
            int ok = ASN1_TIME_set_string(t, x.text) && ASN1_TIME_to_tm(t, &tmv);
            benchmark::DoNotOptimize(ok);
            benchmark::DoNotOptimize(tmv.tm_year);
        }
    }
    ASN1_TIME_free(t);
    state.SetItemsProcessed((int64_t)(state.iterations() * kCount));
}
BENCHMARK(BM_OpenSSLParse);

}  // namespace

BENCHMARK_MAIN();
