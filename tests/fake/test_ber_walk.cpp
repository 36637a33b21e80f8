// The generic walk reading headers only: the same statuses, nodes and context state as the
// walk that reads every value, wherever the values themselves are not at fault; contents
// left in place, so that writing back gives DER input unchanged.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

namespace {

// A context and an exact-size copy of the message, so that a read past the end is seen.
struct Walked {
    explicit Walked(const std::string& hexText, asn1rt::BerWalkMode mode, asn1rt::BerWalkNode* storage = nullptr,
                    ASN1UINT storageCount = 0)
        : bytes(testsupport::hex(hexText)), copy(new uint8_t[bytes.size() + 1])
    {
        std::memcpy(copy.get(), bytes.data(), bytes.size());
        EXPECT_EQ(rtInitContext(&c, nullptr), 0);
        status = asn1rt::berWalk(&c, copy.get(), (int)bytes.size(), walk, mode, storage, storageCount);
    }
    ~Walked() { rtFreeContext(&c); }
    Walked(const Walked&) = delete;
    Walked& operator=(const Walked&) = delete;

    std::string writeBack()
    {
        int len = asn1rt::berWriteBack(&c, walk);
        return len < 0 ? "status " + std::to_string(len) : testsupport::toHex(xe_getp(&c), (size_t)len);
    }

    std::vector<uint8_t> bytes;
    std::unique_ptr<uint8_t[]> copy;
    ASN1CTXT c;
    asn1rt::BerWalk walk;
    int status = 0;
};

struct WalkRow {
    const char* name;
    const char* hex;
    int status;
    ASN1UINT count;
    bool der;
    ASN1UINT consumed;  // checked when the status is 0
};

const WalkRow kRows[] = {
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
};

}  // namespace

TEST(BerWalkStructure, HeadersAsTheValueWalkReadsThem)
{
    bertest::LastErrorUntouched platformState;
    for (const WalkRow& r : kRows) {
        SCOPED_TRACE(r.name);
        Walked s(r.hex, asn1rt::kWalkStructure);
        Walked v(r.hex, asn1rt::kWalkKeepValues);
        EXPECT_EQ(s.status, r.status);
        if (r.count != 0) {
            EXPECT_EQ(s.walk.count, r.count);
        }
        if (r.status == 0) {
            EXPECT_EQ(s.walk.der, r.der);
            EXPECT_EQ(s.walk.consumed, r.consumed);
        }

        // The walk that reads every value agrees on all of it, and leaves the context
        // as this one does.
        EXPECT_EQ(v.status, s.status);
        EXPECT_EQ(v.walk.count, s.walk.count);
        EXPECT_EQ(v.walk.der, s.walk.der);
        EXPECT_EQ(v.walk.consumed, s.walk.consumed);
        EXPECT_EQ(v.walk.maxDepth, s.walk.maxDepth);
        for (ASN1UINT k = 0; k < s.walk.count && k < v.walk.count; ++k) {
            SCOPED_TRACE("node " + std::to_string(k));
            const asn1rt::BerWalkNode& a = s.walk.nodes[k];
            const asn1rt::BerWalkNode& b = v.walk.nodes[k];
            EXPECT_EQ(a.tag, b.tag);
            EXPECT_EQ(a.length, b.length);
            EXPECT_EQ(a.offset, b.offset);
            EXPECT_EQ(a.lastChild, b.lastChild);
            EXPECT_EQ(a.depth, b.depth);
        }
        EXPECT_EQ(s.c.bufIndex, v.c.bufIndex);
        EXPECT_EQ(s.c.savedState.index, v.c.savedState.index);
        EXPECT_EQ(s.c.savedState.flags, v.c.savedState.flags);
        EXPECT_EQ(s.c.savedState.bitOffset, v.c.savedState.bitOffset);
        EXPECT_EQ(s.c.flags, v.c.flags);
        EXPECT_EQ(s.c.errInfo.status, v.c.errInfo.status);
    }
}

TEST(BerWalkStructure, PrimitiveContentIsAViewIntoTheMessage)
{
    Walked s("3008020105040361626300", asn1rt::kWalkStructure);
    ASSERT_EQ(s.status, 0);
    ASSERT_EQ(s.walk.count, 3u);
    const asn1rt::BerWalkNode& seq = s.walk.nodes[0];
    EXPECT_EQ(seq.kind, asn1rt::kWalkConstructed);
    EXPECT_EQ(seq.lastChild, 2u);
    const asn1rt::BerWalkNode& octets = s.walk.nodes[2];
    EXPECT_EQ(octets.kind, asn1rt::kWalkOctets);
    EXPECT_EQ(octets.tag, (ASN1TAG)ASN_ID_OCTSTR);
    EXPECT_EQ(octets.v.octets.numocts, 3u);
    EXPECT_EQ(octets.v.octets.data, s.copy.get() + 7);
    EXPECT_EQ(s.walk.nodes[1].v.octets.data, s.copy.get() + 4);
}

TEST(BerWalkStructure, WritingBack)
{
    struct Row {
        const char* name;
        const char* in;
        const char* out;
    };
    const Row rows[] = {
        {"DER comes back unchanged", "300d020105060355040313033e3c3f", "300d020105060355040313033e3c3f"},
        // Values are not read: an INTEGER with a redundant octet and a BOOLEAN of 01 stand.
        {"contents go back as they came", "30070202007f010101", "30070202007f010101"},
        {"indefinite lengths become definite", "30800201050000", "3003020105"},
        // Segments stay segments, each written back as it was.
        {"a string in segments keeps them", "24800401610401620000", "2406040161040162"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        Walked s(r.in, asn1rt::kWalkStructure);
        ASSERT_EQ(s.status, 0);
        EXPECT_EQ(s.walk.segmented, 0u);
        EXPECT_EQ(s.writeBack(), bertest::norm(r.out));
    }
    // The walk that reads values reads that string whole and writes it back in one piece.
    Walked v("24800401610401620000", asn1rt::kWalkKeepValues);
    ASSERT_EQ(v.status, 0);
    EXPECT_EQ(v.walk.segmented, 1u);
    EXPECT_EQ(v.writeBack(), "04026162");

    // In definite segments, the headers are DER for the header walk, which gives them back
    // as they came; the value walk cannot.
    Walked hs("2406040161040162", asn1rt::kWalkStructure);
    Walked vs("2406040161040162", asn1rt::kWalkKeepValues);
    EXPECT_TRUE(hs.walk.der);
    EXPECT_EQ(hs.writeBack(), "2406040161040162");
    EXPECT_FALSE(vs.walk.der);
    EXPECT_EQ(vs.writeBack(), "04026162");
}

TEST(BerWalkStructure, CallersArrayFirstThenTheHeap)
{
    const char* msg = "300c020101020102020103020104";
    Walked heap(msg, asn1rt::kWalkStructure);
    ASSERT_EQ(heap.status, 0);
    ASSERT_EQ(heap.walk.count, 5u);

    struct Case {
        ASN1UINT slots;
        bool stays;
    };
    for (const Case& k : {Case{5, true}, Case{64, true}, Case{4, false}, Case{1, false}}) {
        SCOPED_TRACE(k.slots);
        std::vector<asn1rt::BerWalkNode> storage(k.slots);
        Walked s(msg, asn1rt::kWalkStructure, storage.data(), k.slots);
        ASSERT_EQ(s.status, 0);
        EXPECT_EQ(s.walk.nodes == storage.data(), k.stays);
        ASSERT_EQ(s.walk.count, 5u);
        for (ASN1UINT n = 0; n < 5; ++n) {
            EXPECT_EQ(s.walk.nodes[n].offset, heap.walk.nodes[n].offset);
            EXPECT_EQ(s.walk.nodes[n].lastChild, heap.walk.nodes[n].lastChild);
        }
        EXPECT_EQ(s.writeBack(), bertest::norm(msg));
    }
    // The reading walk takes the caller's array too.
    std::vector<asn1rt::BerWalkNode> storage(2);
    Walked v(msg, asn1rt::kWalkKeepValues, storage.data(), 2);
    ASSERT_EQ(v.status, 0);
    EXPECT_NE(v.walk.nodes, storage.data());
    EXPECT_EQ(v.walk.nodes[4].v.i32, 4);
    // No array, or one of no slots: the heap from the start.
    Walked none(msg, asn1rt::kWalkStructure, storage.data(), 0);
    EXPECT_EQ(none.walk.storage, nullptr);
}

TEST(BerWalkStructure, OneContextForManyMessages)
{
    // xd_setp attaches each message in turn; the caller's array is reused.
    const char* msgs[] = {"3003020105", "30800201070000", "04026162", "3003020109"};
    std::vector<asn1rt::BerWalkNode> storage(8);
    ASN1CTXT c;
    ASSERT_EQ(rtInitContext(&c, nullptr), 0);
    const ASN1UINT counts[] = {2, 2, 1, 2};
    for (size_t k = 0; k < 4; ++k) {
        std::vector<uint8_t> m = testsupport::hex(msgs[k]);
        asn1rt::BerWalk walk;
        ASSERT_EQ(asn1rt::berWalk(&c, m.data(), (int)m.size(), walk, asn1rt::kWalkStructure, storage.data(), 8), 0);
        EXPECT_EQ(walk.count, counts[k]);
        EXPECT_EQ(walk.consumed, m.size());
    }
    rtFreeContext(&c);
}

TEST(BerWalkStructure, LengthsThatNeedThreeOctets)
{
    // 70,000 octets of content inside a SEQUENCE: both lengths need three octets.
    std::vector<uint8_t> msg = testsupport::hex("30830111750483011170");
    msg.resize(msg.size() + 70000, 0x5a);
    for (asn1rt::BerWalkMode mode : {asn1rt::kWalkStructure, asn1rt::kWalkKeepValues}) {
        ASN1CTXT c;
        ASSERT_EQ(rtInitContext(&c, nullptr), 0);
        asn1rt::BerWalk walk;
        ASSERT_EQ(asn1rt::berWalk(&c, msg.data(), (int)msg.size(), walk, mode), 0);
        EXPECT_EQ(walk.count, 2u);
        EXPECT_TRUE(walk.der);
        EXPECT_EQ(walk.consumed, msg.size());
        EXPECT_EQ(asn1rt::berWriteBack(&c, walk), (int)msg.size());
        rtFreeContext(&c);
    }
}

TEST(BerWalkValues, ObjectIdentifiersJudgedForDer)
{
    // DER for the value walk means that writing back gives the input: an identifier whose
    // arcs do not come back the same way must not pass.
    struct Row {
        const char* name;
        const char* hex;
        bool der;
    };
    const Row rows[] = {
        {"two arcs", "06032a8648", true},
        {"terminated arcs", "06042a864801", true},
        {"arc opening with 80", "0603 2a 80 01", false},
        {"five octets, 32 bits", "0606 2a 8f ff ff ff 7f", true},
        {"five octets, 33 bits", "0606 2a 90 80 80 80 00", false},
        {"six octets", "0607 2a 81 80 80 80 80 00", false},
        {"last arc left open", "0602 2a 81", false},
        {"first octet alone", "0601 2a", true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        Walked v(r.hex, asn1rt::kWalkKeepValues);
        ASSERT_EQ(v.status, 0);
        EXPECT_EQ(v.walk.der, r.der);
        if (r.der) {
            EXPECT_EQ(v.writeBack(), bertest::norm(r.hex));
        }
        // Headers alone know nothing of arcs.
        Walked s(r.hex, asn1rt::kWalkStructure);
        EXPECT_TRUE(s.walk.der);
    }
}
