// The generic walk reading headers only: the same statuses, nodes and context state as the walk that
// reads every value, wherever the values are not at fault; contents left in place, so that DER goes
// back unchanged.
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

using asn1rt::kWalkKeepValues;
using asn1rt::kWalkStructure;
using bertest::norm;
using bertest::Walked;

TEST(BerWalkStructure, HeadersAsTheValueWalkReadsThem)
{
    bertest::LastErrorUntouched platformState;
    // Status, nodes, DER, consumed (for status 0); DER comes back unchanged from both walks.
    const std::string big = "30830111750483011170" + std::string(140000, '5');  // lengths in three octets
    const struct { std::string hex; int status; ASN1UINT count; bool der; ASN1UINT consumed; } rows[] = {
        {"020105", 0, 1, true, 3}, {"3000", 0, 1, true, 2}, {"3003020105", 0, 2, true, 5},
        {"020105ffff", 0, 1, true, 3}, {"3006300402020100", 0, 3, true, 8},
        {"300a3003020101020102050000", 0, 5, true, 12}, {"3081030201050000", 0, 2, false, 6},
        {"308200030201050000", 0, 2, false, 7},  // long lengths, short values
        {"30830000030201050000", 0, 2, false, 8}, {"30049f1f0100", 0, 2, true, 6}, {"30049f050100", 0, 2, false, 6},
        // The octet behind a long tag's first one is no length, whatever it looks like.
        {"30041f811f00", 0, 2, true, 6}, {"30041f820100", 0, 2, true, 6}, {"30020000", 0, 2, true, 4},
        {"30041f811f00", 0, 2, true, 6}, {"30041f820100", 0, 2, true, 6}, {"30020000", 0, 2, true, 4},  // 0000 in a definite one: an element
        {"3080020105000000", 0, 2, false, 7}, {"3080308000000000", 0, 2, false, 8},
        {"3006308005000000", 0, 3, false, 8}, {"3080020105", RT_E_END_OF_BUFFER, 2, false, 0},
        {"30083003020201000500", RT_E_BAD_LENGTH, 2, false, 0}, {"3003020201", RT_E_END_OF_BUFFER, 1, false, 0},
        {"300a3003308000000500050000", RT_E_BAD_LENGTH, 3, false, 0}, {"3082ffff", RT_E_BAD_LENGTH, 0, false, 0},
        {"30850000000001", RT_E_BAD_LENGTH, 0, false, 0}, {"1f818181818181818181010000", RT_E_BAD_TAG, 0, false, 0},
        {"300c1f8181818181818181810100", RT_E_BAD_TAG, 1, false, 0},
        {"30800480000000000000", RT_E_BAD_LENGTH, 1, false, 0}, {"30019f", RT_E_END_OF_BUFFER, 1, false, 0},
        {"3003048200", RT_E_END_OF_BUFFER, 1, false, 0}, {big, 0, 2, true, 70010},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.hex.substr(0, 30));
        Walked s(r.hex, kWalkStructure), v(r.hex, kWalkKeepValues);
        EXPECT_EQ(s.status, r.status);
        EXPECT_EQ(s.walk.count, r.count);
        EXPECT_EQ(s.walk.der, r.status == 0 && r.der);
        EXPECT_EQ(s.walk.consumed, r.status ? s.walk.consumed : r.consumed);
        if (r.der) {
            EXPECT_EQ(s.writeBack(), norm(r.hex).substr(0, 2 * r.consumed));
            EXPECT_EQ(v.writeBack(), norm(r.hex).substr(0, 2 * r.consumed));
        }
        EXPECT_TRUE(bertest::sameNodes(s.walk, v.walk));
        EXPECT_EQ(s.state(), v.state());
    }
}

TEST(BerWalkStructure, ContentsAreViewsAndGoBackAsTheyCame)
{
    Walked s("3008020105040361626300", kWalkStructure);
    ASSERT_EQ(s.walk.count, 3u);
    EXPECT_EQ(s.walk.nodes[0].kind, asn1rt::kWalkConstructed);
    EXPECT_EQ(s.walk.nodes[0].lastChild, 2u);
    EXPECT_EQ(s.walk.nodes[2].kind, asn1rt::kWalkOctets);
    EXPECT_EQ(s.walk.nodes[2].v.octets.numocts, 3u);
    EXPECT_EQ(s.walk.nodes[2].v.octets.data, s.data() + 7);
    EXPECT_EQ(s.walk.nodes[1].v.octets.data, s.data() + 4);
    // What each walk writes back, and whether the value walk calls it DER (the header walk does, for all
    // of these): the header walk leaves values as they came (an INTEGER with a redundant octet, a BOOLEAN
    // of 01) and segments as segments; the value walk rewrites both, and takes identifiers for DER only
    // when their arcs come back the same way.
    const struct { const char* in; const char* headers; const char* values; const char* der; } rows[] = {
        {"30070202007f010101", "30070202007f010101", "300602017f0101ff", "h"},
        {"30800201050000", "3003020105", "3003020105", ""},
        {"24800401610401620000", "2406040161040162", "04026162", ""},
        {"2406040161040162", "2406040161040162", "04026162", "h"}, {"06032a8648", "06032a8648", "06032a8648", "hv"},
        {"06042a864801", "06042a864801", "06042a864801", "hv"}, {"06032a8001", "06032a8001", "06022a01", "h"},
        {"06062a8fffffff7f", "06062a8fffffff7f", "06062a8fffffff7f", "hv"},
        {"06062a9080808000", "06062a9080808000", "06022a00", "h"},
        {"06072a818080808000", "06072a818080808000", "06022a00", "h"}, {"06022a81", "06022a81", "06022a01", "h"},
        {"06012a", "06012a", "06012a", "hv"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.in);
        Walked h(r.in, kWalkStructure), v(r.in, kWalkKeepValues);
        EXPECT_EQ(std::string(h.walk.der ? "h" : "") + (v.walk.der ? "v" : ""), r.der);
        EXPECT_EQ(std::to_string(h.walk.segmented) + " " + h.writeBack(), "0 " + norm(r.headers));
        EXPECT_EQ(std::to_string(v.walk.segmented) + " " + v.writeBack(), (r.in[0] == '2' ? "1 " : "0 ") + norm(r.values));
    }
}

TEST(BerWalkStructure, CallersArrayFirstThenTheHeap)
{
    const char* msg = "300c020101020102020103020104";
    Walked heap(msg, kWalkStructure);
    ASSERT_EQ(heap.walk.count, 5u);
    // The array is used while the nodes fit; the walk that reads values takes it too.
    const struct { ASN1UINT slots; bool stays; asn1rt::BerWalkMode mode; } cases[] = {
        {5, true, kWalkStructure}, {64, true, kWalkStructure}, {4, false, kWalkStructure}, {1, false, kWalkStructure},
        {2, false, kWalkKeepValues}, {5, true, kWalkKeepValues}, {0, false, kWalkStructure},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(std::to_string(k.slots) + (k.mode == kWalkStructure ? " headers" : " values"));
        std::vector<asn1rt::BerWalkNode> storage(k.slots + 1);
        Walked s(msg, k.mode, storage.data(), k.slots);
        EXPECT_EQ(s.walk.nodes == storage.data(), k.stays);
        EXPECT_TRUE(bertest::sameNodes(s.walk, heap.walk));
        EXPECT_EQ(s.walk.nodes[4].v.i32, k.mode == kWalkKeepValues ? 4 : s.walk.nodes[4].v.i32);
        EXPECT_EQ(s.writeBack(), norm(msg));
    }
    // One context for many messages, xd_setp attaching each in turn; the caller's array is reused.
    bertest::Dec c("");
    std::vector<asn1rt::BerWalkNode> storage(8);
    for (const char* m : {"3003020105", "30800201070000", "04026162", "3003020109"}) {
        std::vector<uint8_t> bytes = testsupport::hex(m);
        asn1rt::BerWalk walk;
        ASSERT_EQ(asn1rt::berWalk(&c.c, bytes.data(), (int)bytes.size(), walk, kWalkStructure, storage.data(), 8), 0);
        EXPECT_EQ(std::to_string(walk.count) + " " + std::to_string(walk.consumed), (m[0] == '3' ? "2 " : "1 ") + std::to_string(bytes.size()));
    }
}
