// The generic walk reading headers only: the same statuses, nodes and context state as the
// walk that reads every value, wherever the values themselves are not at fault; contents
// left in place, so that writing back gives DER input unchanged.
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

using asn1rt::kWalkKeepValues;
using asn1rt::kWalkStructure;

using bertest::Walked;

TEST(BerWalkStructure, HeadersAsTheValueWalkReadsThem)
{
    bertest::LastErrorUntouched platformState;
    // `consumed` is looked at when the status is 0; DER comes back unchanged from both walks.
    const std::string big = "30830111750483011170" + std::string(140000, '5');  // both lengths in three octets
    const struct { const char* name; std::string hex; int status; ASN1UINT count; bool der; ASN1UINT consumed; }
        rows[] = {
        {"one primitive element", "020105", 0, 1, true, 3},
        {"empty SEQUENCE", "3000", 0, 1, true, 2},
        {"SEQUENCE of one INTEGER", "3003020105", 0, 2, true, 5},
        {"nested", "3006300402020100", 0, 3, true, 8},
        {"trailing octets stay unread", "020105ffff", 0, 1, true, 3},
        {"two members after a nested one", "300a3003020101020102050000", 0, 5, true, 12},
        {"length in one octet that fits the short form", "3081030201050000", 0, 2, false, 6},
        {"length in two octets that fit one", "308200030201050000", 0, 2, false, 7},
        {"length in three octets", "30830000030201050000", 0, 2, false, 8},
        {"long tag number 31", "30049f1f0100", 0, 2, true, 6},
        {"long tag for a number that fits the short form", "30049f050100", 0, 2, false, 6},
        // The octet behind a long tag's first one is no length, whatever it looks like.
        {"long tag with a second octet of 81", "30041f811f00", 0, 2, true, 6},
        {"long tag with a second octet of 82", "30041f820100", 0, 2, true, 6},
        {"two zero octets inside a definite element are an element", "30020000", 0, 2, true, 4},
        {"indefinite length", "3080020105000000", 0, 2, false, 7},
        {"nested indefinite lengths", "3080308000000000", 0, 2, false, 8},
        {"indefinite inside definite", "3006308005000000", 0, 3, false, 8},
        {"end-of-contents missing", "3080020105", RT_E_END_OF_BUFFER, 2, false, 0},
        {"member beyond its element, inside the message", "30083003020201000500", RT_E_BAD_LENGTH, 2, false, 0},
        {"member beyond the message", "3003020201", RT_E_END_OF_BUFFER, 1, false, 0},
        {"indefinite member running past its element", "300a3003308000000500050000", RT_E_BAD_LENGTH, 3, false, 0},
        {"outer length beyond the message", "3082ffff", RT_E_BAD_LENGTH, 0, false, 0},
        {"five length octets", "30850000000001", RT_E_BAD_LENGTH, 0, false, 0},
        {"tag of ten octets, outermost", "1f818181818181818181010000", RT_E_BAD_TAG, 0, false, 0},
        {"tag of ten octets, inside", "300c1f8181818181818181810100", RT_E_BAD_TAG, 1, false, 0},
        {"indefinite primitive", "30800480000000000000", RT_E_BAD_LENGTH, 1, false, 0},
        {"header cut short", "30019f", RT_E_END_OF_BUFFER, 1, false, 0},
        {"long length cut short", "3003048200", RT_E_END_OF_BUFFER, 1, false, 0},
        {"70,000 octets of content", big, 0, 2, true, 70010},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        Walked s(r.hex, kWalkStructure), v(r.hex, kWalkKeepValues);
        EXPECT_EQ(s.status, r.status);
        EXPECT_EQ(s.walk.count, r.count);
        if (r.status == 0) {
            EXPECT_EQ(s.walk.der, r.der);
            EXPECT_EQ(s.walk.consumed, r.consumed);
        }
        if (r.der) {
            EXPECT_EQ(s.writeBack(), bertest::norm(r.hex).substr(0, 2 * r.consumed));
            EXPECT_EQ(v.writeBack(), bertest::norm(r.hex).substr(0, 2 * r.consumed));
        }
        // The walk that reads every value agrees on all of it, and leaves the context as
        // this one does.
        EXPECT_TRUE(bertest::sameNodes(s.walk, v.walk));
        EXPECT_EQ(s.walk.der, v.walk.der);
        EXPECT_EQ(s.walk.consumed, v.walk.consumed);
        EXPECT_EQ(s.walk.maxDepth, v.walk.maxDepth);
        EXPECT_EQ(s.status, v.status);
        EXPECT_EQ(s.c.bufIndex, v.c.bufIndex);
        EXPECT_EQ(s.c.savedState.index, v.c.savedState.index);
        EXPECT_EQ(s.c.savedState.flags, v.c.savedState.flags);
        EXPECT_EQ(s.c.savedState.bitOffset, v.c.savedState.bitOffset);
        EXPECT_EQ(s.c.flags, v.c.flags);
        EXPECT_EQ(s.c.errInfo.status, v.c.errInfo.status);
    }
}

TEST(BerWalkStructure, ContentsAreViewsAndGoBackAsTheyCame)
{
    Walked s("3008020105040361626300", kWalkStructure);
    ASSERT_EQ(s.status, 0);
    ASSERT_EQ(s.walk.count, 3u);
    EXPECT_EQ(s.walk.nodes[0].kind, asn1rt::kWalkConstructed);
    EXPECT_EQ(s.walk.nodes[0].lastChild, 2u);
    const asn1rt::BerWalkNode& octets = s.walk.nodes[2];
    EXPECT_EQ(octets.kind, asn1rt::kWalkOctets);
    EXPECT_EQ(octets.tag, (ASN1TAG)ASN_ID_OCTSTR);
    EXPECT_EQ(octets.v.octets.numocts, 3u);
    EXPECT_EQ(octets.v.octets.data, s.data() + 7);
    EXPECT_EQ(s.walk.nodes[1].v.octets.data, s.data() + 4);

    const struct { const char* name; const char* in; const char* out; } rows[] = {
        // Values are not read: an INTEGER with a redundant octet and a BOOLEAN of 01 stand.
        {"contents go back as they came", "30070202007f010101", "30070202007f010101"},
        {"indefinite lengths become definite", "30800201050000", "3003020105"},
        // Segments stay segments, each written back as it was.
        {"a string in segments keeps them", "24800401610401620000", "2406040161040162"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        Walked w(r.in, kWalkStructure);
        ASSERT_EQ(w.status, 0);
        EXPECT_EQ(w.walk.segmented, 0u);
        EXPECT_EQ(w.writeBack(), bertest::norm(r.out));
    }
    // The walk that reads values reads that string whole and writes it back in one piece.
    Walked v("24800401610401620000", kWalkKeepValues);
    EXPECT_EQ(v.walk.segmented, 1u);
    EXPECT_EQ(v.writeBack(), "04026162");
    // In definite segments, the headers are DER for the header walk, which gives them back
    // as they came; the value walk cannot.
    Walked hs("2406040161040162", kWalkStructure), vs("2406040161040162", kWalkKeepValues);
    EXPECT_TRUE(hs.walk.der);
    EXPECT_EQ(hs.writeBack(), "2406040161040162");
    EXPECT_FALSE(vs.walk.der);
    EXPECT_EQ(vs.writeBack(), "04026162");
}

TEST(BerWalkStructure, CallersArrayFirstThenTheHeap)
{
    const char* msg = "300c020101020102020103020104";
    Walked heap(msg, kWalkStructure);
    ASSERT_EQ(heap.walk.count, 5u);
    // The array is used while the nodes fit; the walk that reads values takes it too.
    const struct { ASN1UINT slots; bool stays; asn1rt::BerWalkMode mode; } cases[] = {
        {5, true, kWalkStructure}, {64, true, kWalkStructure}, {4, false, kWalkStructure},
        {1, false, kWalkStructure}, {2, false, kWalkKeepValues}, {5, true, kWalkKeepValues},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(std::to_string(k.slots) + (k.mode == kWalkStructure ? " headers" : " values"));
        std::vector<asn1rt::BerWalkNode> storage(k.slots);
        Walked s(msg, k.mode, storage.data(), k.slots);
        ASSERT_EQ(s.status, 0);
        EXPECT_EQ(s.walk.nodes == storage.data(), k.stays);
        EXPECT_TRUE(bertest::sameNodes(s.walk, heap.walk));
        if (k.mode == kWalkKeepValues) {
            EXPECT_EQ(s.walk.nodes[4].v.i32, 4);
        }
        EXPECT_EQ(s.writeBack(), bertest::norm(msg));
    }
    // No array, or one of no slots: the heap from the start.
    std::vector<asn1rt::BerWalkNode> storage(2);
    Walked none(msg, kWalkStructure, storage.data(), 0);
    EXPECT_EQ(none.walk.storage, nullptr);

    // One context for many messages, xd_setp attaching each in turn; the caller's array
    // is reused.
    ASN1CTXT c;
    ASSERT_EQ(rtInitContext(&c, nullptr), 0);
    storage.resize(8);
    const struct { const char* msg; ASN1UINT count; } msgs[] = {
        {"3003020105", 2}, {"30800201070000", 2}, {"04026162", 1}, {"3003020109", 2}};
    for (const auto& m : msgs) {
        std::vector<uint8_t> bytes = testsupport::hex(m.msg);
        asn1rt::BerWalk walk;
        ASSERT_EQ(asn1rt::berWalk(&c, bytes.data(), (int)bytes.size(), walk, kWalkStructure, storage.data(), 8), 0);
        EXPECT_EQ(walk.count, m.count);
        EXPECT_EQ(walk.consumed, bytes.size());
    }
    rtFreeContext(&c);
}

TEST(BerWalkValues, ObjectIdentifiersJudgedForDer)
{
    // DER for the value walk means that writing back gives the input: an identifier whose
    // arcs do not come back the same way must not pass. Headers alone know nothing of arcs.
    const struct { const char* name; const char* hex; bool der; } rows[] = {
        {"two arcs", "06032a8648", true}, {"terminated arcs", "06042a864801", true},
        {"arc opening with 80", "0603 2a 80 01", false}, {"five octets, 32 bits", "0606 2a 8f ff ff ff 7f", true},
        {"five octets, 33 bits", "0606 2a 90 80 80 80 00", false}, {"six octets", "0607 2a 81 80 80 80 80 00", false},
        {"last arc left open", "0602 2a 81", false}, {"first octet alone", "0601 2a", true},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        Walked v(r.hex, kWalkKeepValues), s(r.hex, kWalkStructure);
        ASSERT_EQ(v.status, 0);
        EXPECT_EQ(v.walk.der, r.der);
        if (r.der) {
            EXPECT_EQ(v.writeBack(), bertest::norm(r.hex));
        }
        EXPECT_TRUE(s.walk.der);
    }
}
