// The BER primitives over every real-world file of the corpus: a generic walk reads each
// one to its end, malformed files end in a status, and DER files written back with the
// encoding primitives come out byte for byte as they went in.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

namespace {

struct Context {
    ASN1CTXT c;
    Context() { EXPECT_EQ(rtInitContext(&c, nullptr), 0); }
    ~Context() { rtFreeContext(&c); }
};

const char* const kKinds[] = {"cert", "crl", "csr", "cms", "ocsp", "tsp", "cmp", "gost", "other"};

bool isBad(const std::string& path) { return path.find("/bad/") != std::string::npos; }

}  // namespace

TEST(BerCorpus, GoodFilesWalkToTheEndAndDerFilesWriteBackUnchanged)
{
    CHAINVET_SKIP_WITHOUT_CORPUS();
    bertest::LastErrorUntouched platformState;
    int good = 0, der = 0, ber = 0, trailing = 0, bad = 0, badFailed = 0;
    for (const char* kind : kKinds) {
        for (const std::string& path : testsupport::corpusFiles(kind)) {
            std::vector<uint8_t> bytes = testsupport::readFile(path);
            if (isBad(path)) {
                // Malformed on purpose: any status will do, as long as nothing breaks.
                Context ctx;
                asn1rt::BerWalk walk;
                int st = asn1rt::berWalk(&ctx.c, bytes.data(), (int)bytes.size(), walk);
                ++bad;
                if (st != 0)
                    ++badFailed;
                continue;
            }
            ++good;
            Context ctx;
            asn1rt::BerWalk walk;
            int st = asn1rt::berWalk(&ctx.c, bytes.data(), (int)bytes.size(), walk);
            ASSERT_EQ(st, 0) << path;
            ASSERT_GT(walk.count, 0u) << path;
            ASSERT_LE(walk.consumed, bytes.size()) << path;
            {
                // Read into scratch storage instead of the heap, the same elements come out.
                Context light;
                asn1rt::BerWalk scratch;
                EXPECT_EQ(asn1rt::berWalk(&light.c, bytes.data(), (int)bytes.size(), scratch, asn1rt::kWalkScratchValues), 0) << path;
                EXPECT_EQ(scratch.count, walk.count) << path;
                EXPECT_EQ(scratch.der, walk.der) << path;
                EXPECT_EQ(asn1rt::berWriteBack(&light.c, scratch), RT_E_NOT_SUPPORTED);
            }
            if (walk.consumed < bytes.size())
                ++trailing;
            if (!walk.der) {
                ++ber;
                // Written back, BER comes out in definite form, and that form is stable.
                int len = asn1rt::berWriteBack(&ctx.c, walk);
                ASSERT_GT(len, 0) << path;
                std::vector<uint8_t> once(xe_getp(&ctx.c), xe_getp(&ctx.c) + len);
                Context again;
                asn1rt::BerWalk second;
                ASSERT_EQ(asn1rt::berWalk(&again.c, once.data(), (int)once.size(), second), 0) << path;
                EXPECT_EQ(second.count, walk.count) << path;
                EXPECT_EQ(second.consumed, once.size()) << path;
                int len2 = asn1rt::berWriteBack(&again.c, second);
                ASSERT_EQ(len2, len) << path;
                EXPECT_EQ(testsupport::toHex(xe_getp(&again.c), len2), testsupport::toHex(once.data(), once.size()))
                    << path;
                continue;
            }
            ++der;
            int len = asn1rt::berWriteBack(&ctx.c, walk);
            ASSERT_EQ(len, (int)walk.consumed) << path;
            std::vector<uint8_t> back(xe_getp(&ctx.c), xe_getp(&ctx.c) + len);
            std::vector<uint8_t> first(bytes.begin(), bytes.begin() + walk.consumed);
            ASSERT_EQ(testsupport::toHex(back.data(), back.size()),
                      testsupport::toHex(first.data(), first.size()))
                << path;
        }
    }
    std::printf("[ corpus ] %d good files (%d DER written back unchanged, %d BER only, %d with "
                "trailing octets), %d malformed (%d refused)\n",
                good, der, ber, trailing, bad, badFailed);
    EXPECT_GT(good, 0);
    EXPECT_GT(der, 0);
}

TEST(BerCorpus, HeaderWalkAgreesWithTheValueWalkAndWritesBack)
{
    CHAINVET_SKIP_WITHOUT_CORPUS();
    bertest::LastErrorUntouched platformState;
    int files = 0, same = 0, segmented = 0, unchanged = 0, bad = 0;
    for (const char* kind : kKinds) {
        for (const std::string& path : testsupport::corpusFiles(kind)) {
            std::vector<uint8_t> bytes = testsupport::readFile(path);
            Context hc;
            asn1rt::BerWalk headers;
            int st = asn1rt::berWalk(&hc.c, bytes.data(), (int)bytes.size(), headers, asn1rt::kWalkStructure);
            if (isBad(path)) {
                ++bad;  // a status or a walk, never a crash
                continue;
            }
            ++files;
            ASSERT_EQ(st, 0) << path;
            Context vc;
            asn1rt::BerWalk values;
            ASSERT_EQ(asn1rt::berWalk(&vc.c, bytes.data(), (int)bytes.size(), values), 0) << path;
            EXPECT_EQ(headers.consumed, values.consumed) << path;
            if (values.segmented == 0) {
                // Without strings read whole the two walks see the same elements.
                ++same;
                ASSERT_EQ(headers.count, values.count) << path;
                for (ASN1UINT k = 0; k < headers.count; ++k) {
                    const asn1rt::BerWalkNode& a = headers.nodes[k];
                    const asn1rt::BerWalkNode& b = values.nodes[k];
                    ASSERT_TRUE(a.tag == b.tag && a.length == b.length && a.offset == b.offset &&
                                a.lastChild == b.lastChild && a.depth == b.depth)
                        << path << " node " << k;
                }
                EXPECT_EQ(hc.c.savedState.index, vc.c.savedState.index) << path;
                EXPECT_EQ(hc.c.flags, vc.c.flags) << path;
            } else {
                ++segmented;
                EXPECT_GT(headers.count, values.count) << path;
            }
            // Contents go back as they came: DER headers give the input, anything else a
            // definite form that walks again to itself.
            int len = asn1rt::berWriteBack(&hc.c, headers);
            ASSERT_GT(len, 0) << path;
            std::vector<uint8_t> once(xe_getp(&hc.c), xe_getp(&hc.c) + len);
            if (headers.der) {
                ++unchanged;
                ASSERT_EQ(once.size(), headers.consumed) << path;
                ASSERT_TRUE(std::equal(once.begin(), once.end(), bytes.begin())) << path;
            } else {
                Context again;
                asn1rt::BerWalk second;
                ASSERT_EQ(asn1rt::berWalk(&again.c, once.data(), (int)once.size(), second, asn1rt::kWalkStructure), 0)
                    << path;
                EXPECT_TRUE(second.der) << path;
                EXPECT_EQ(second.count, headers.count) << path;
                ASSERT_EQ(asn1rt::berWriteBack(&again.c, second), len) << path;
                EXPECT_TRUE(std::equal(once.begin(), once.end(), xe_getp(&again.c))) << path;
            }
        }
    }
    std::printf("[ corpus ] header walk: %d good files (%d with the value walk's elements, %d with strings in "
                "segments, %d written back unchanged), %d malformed\n",
                files, same, segmented, unchanged, bad);
    EXPECT_GT(files, 0);
}
