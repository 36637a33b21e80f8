// BER reading: tables of hex per family, each row with the exact status, whether it reached the error block,
// the value read and where the cursor stands after. The header walk gives the statuses, nodes and state of the
// value walk wherever the values are not at fault, and leaves contents in place; both walk every corpus file.
#include <cstdio>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "ber_values_a.h"
#include "support/testsupport.h"

using asn1rt::kWalkKeepValues;
using asn1rt::kWalkStructure;
using bertest::Dec;
using bertest::norm;
using bertest::Walked;
using namespace bervalues;
using testsupport::hex;

namespace {

constexpr int kIndef = RT_INDEFINITE_LENGTH;
constexpr ASN1USINT kUnchecked = RT_FLAG_LEN_UNCHECKED, kShare = RT_FLAG_SHARE_INPUT, kCons = RT_FLAG_CONSTRUCTED;

std::string rep(const std::string& h, int n)
{
    std::string s;
    while (n-- > 0)
        s += h;
    return s;
}

std::string cons(const Dec& d) { return d.constructed() ? " cons" : ""; }

// SEQUENCE { INTEGER 5, [1] { OCTET STRING "abc" } }; four elements: INTEGER, empty OCTET STRING,
// empty indefinite SEQUENCE, NULL.
const char *const kSeq = "300a020105a1050403616263", *const kFour = "020105 0400 30800000 0500";

}  // namespace

TEST(BerDecodeHeader, LengthsTagsAndMessages)
{
    // 'L' xd_len (every failure recorded); 'T' xd_tag_len advancing: tag word in hex, length, the form flag
    // after (only xd_len's own failures recorded); '1' xd_match1 for 30 or, on "04..", 04; 'n' the same
    // without a length out; 'S' xd_setp over the message and 'U' of size unknown: the outer length and
    // the buffer's size after (trailing octets stay outside); 'C' xd_consStrIndefLenAndSize behind the
    // header (content and span); 'I' xd_indeflen_ex over the message and 'i' up to octet 9.
    const int seek = RT_MATCH_SEEK, adv = RT_MATCH_ADVANCE, skip = RT_MATCH_SKIP_FIRST;
    const std::string bad = "020105 1f" + rep("80", 9) + "01";
    struct Row { char op; std::string in; const char* outcome; ASN1USINT flags = 0; ASN1TAG tag = 0; int mode = 0; ASN1UINT start = 0; };
    const Row rows[] = {
        {'L', "05", "5 at 1"}, {'L', "7f", "127 at 1"}, {'L', "80", "-9999 at 1"}, {'L', "84ffffd8f1", "-9999 at 5"},
        {'L', "8180" + rep("00", 128), "128 at 2"}, {'L', "8105", "BAD_LENGTH recorded at 2"},
        {'L', "8105", "5 at 2", kUnchecked}, {'L', "850000000001", "BAD_LENGTH recorded at 1"},
        {'L', "8201", "END_OF_BUFFER recorded at 2"}, {'L', "8480000000", "BAD_LENGTH recorded at 5"},
        {'L', "8480000000", "-2147483648 at 5", kUnchecked}, {'L', "", "END_OF_BUFFER recorded at 0"},
        {'T', "3003020105", "20000010 3 at 2 cons"}, {'T', "a200", "a0000002 0 at 2 cons"},
        {'T', "e300", "e0000003 0 at 2 cons"}, {'T', "1f1f00", "1f 0 at 3"}, {'T', "bf810000", "a0000080 0 at 4 cons"},
        {'T', "1f81ffffff7f00", "1fffffff 0 at 7"}, {'T', "1f" + rep("80", 8) + "0100", "1 0 at 11"},
        {'T', "1f828080800000", "BAD_TAG at 6"},  // past 0x1fffffff
        {'T', "1f" + rep("80", 9) + "0100", "BAD_TAG at 10"}, {'T', "308000", "20000010 -9999 at 2 cons"},
        {'T', "048000", "BAD_LENGTH at 2"}, {'T', "30", "END_OF_BUFFER at 1 cons"}, {'T', "1f81", "END_OF_BUFFER at 2"},
        {'T', "3085", "BAD_LENGTH recorded at 2 cons"}, {'1', "3003020105", "3 at 2 cons"},
        {'1', "1003020105", "3 at 2"}, {'1', "0480", "BAD_LENGTH recorded at 2"}, {'1', "2480", "-9999 at 2 cons"},
        {'1', "3100", "TAG_MISMATCH recorded at 0"}, {'n', "0480", "at 2"}, {'1', "30", "END_OF_BUFFER at 1 cons"},
        {'1', "", "END_OF_BUFFER at 0"}, {'S', "3003020105ffff", "20000010 5 5 at 0"},
        {'S', "30050201", "BAD_LENGTH at 0"}, {'S', "30800201050000", "20000010 -9999 7 top at 0"},
        {'U', "3003020105", "20000010 5 5 at 0"}, {'S', "3082010002", "20000010 260 5 at 0", kUnchecked},
        {'C', "2480 0402 6162 0400 0401 63 0000", "3 9 at 2"}, {'C', "2480 0000", "0 0 at 2"},
        {'C', "2480 0001 aa 0000", "1 3 at 2"}, {'C', "2480 2480 040161 0000 0000", "BAD_TAG at 4"},
        {'C', "2480 0302 0061 0000", "BAD_TAG at 4"}, {'C', "2480 0402 6162", "END_OF_BUFFER at 6"},
        {'I', "3080 020105 3080 0000 0000 ffff", "11 at 0"}, {'I', "30800000", "0 at 0"},
        {'I', "3003020105", "-5 at 0"}, {'I', "3080 020105 00", "-2 at 0"},
        {'i', "3080 020105 3080 0000 0000", "-2 at 0"},
        // 'M' xd_match in kSeq from `start` ('m' without a length out): the form bit does not count, running
        // off the end is not found (-3, not -2); skipping the first element enters a constructed one and
        // steps over a primitive one. 'N' xd_count over `mode` octets consumes nothing, a failing step
        // returns at once; 'E' xd_MovePastEOC from `start`.
        {'M', kSeq, "10 at 0", 0, 0x10}, {'m', kSeq, "at 2", 0, 0x20000010, adv}, {'M', kSeq, "TAG_MISMATCH at 0", 0, 2},
        {'M', kSeq, "3 at 9", 0, 4, seek | adv}, {'M', kSeq, "TAG_MISMATCH at 0", 0, 5, seek}, {'M', kSeq, "1 at 2", 0, 2, seek | skip},
        {'M', kSeq, "5 at 5", 0, 0xa0000001, seek | skip, 2}, {'M', kSeq, "TAG_MISMATCH at 5", 0, 2, seek | skip, 2},
        {'M', kSeq, "TAG_MISMATCH at 12", 0, 2, skip, 12}, {'N', kFour, "4 at 0", 0, 0, 11}, {'N', kFour, "2 at 0", 0, 0, 5},
        {'N', std::string(kFour) + "0000 ff", "4 at 0", 0, 0, kIndef}, {'N', bad, "BAD_TAG at 13", 0, 0, 30},
        {'E', "3080 3080 0000 020105 0000 ff", "at 11", 0, 0, 0, 2}, {'E', "3080 3080 0000 020105", "END_OF_BUFFER at 9", 0, 0, 0, 2},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.in.substr(0, 12));
        Dec d(r.in, r.flags | (r.op == 'S' || r.op == 'U' ? RT_FLAG_LAST_EOC : 0));
        ASN1TAG tag = 0;
        int len = -1, span = -1, st = 0;
        char text[32];
        switch (r.op) {
        case 'L': st = xd_len(&d.c, &len); break;
        case 'T': st = xd_tag_len(&d.c, &tag, &len, RT_MATCH_ADVANCE); break;
        case '1': case 'n': st = xd_match1(&d.c, r.in.substr(0, 2) == "04" || r.in == "2480" ? 0x04 : 0x30, r.op == 'n' ? nullptr : &len); break;
        case 'S': case 'U': st = xd_setp(&d.c, d.data(), r.op == 'S' ? (int)d.size() : 0, &tag, &len); span = (int)d.c.bufSize; break;
        case 'C': d.c.bufIndex = 2, st = xd_consStrIndefLenAndSize(&d.c, 4, &len, &span); break;
        case 'M': case 'm': d.c.bufIndex = r.start, st = xd_match(&d.c, r.tag, r.op == 'm' ? nullptr : &len, r.mode); break;
        case 'N': st = xd_count(&d.c, r.mode, &len); break;
        case 'E': d.c.bufIndex = r.start, st = xd_MovePastEOC(&d.c); break;
        default: len = xd_indeflen_ex(d.data(), r.op == 'i' ? 9 : (int)d.size());
        }
        std::snprintf(text, sizeof text, tag ? "%x %d" : "%.0x%d", (unsigned)tag, len);
        const std::string v = text + (span >= 0 ? " " + std::to_string(span) : "") + (d.c.flags & RT_FLAG_INDEF_TOP ? " top" : "");
        EXPECT_EQ(outcome(d, st, st || r.op == 'n' || r.op == 'm' || r.op == 'E' ? "" : v) + (r.op == 'T' || r.op == '1' ? cons(d) : ""), r.outcome);
        EXPECT_TRUE(r.op != 'S' || !(d.c.flags & RT_FLAG_LAST_EOC)) << "an attached message ends no element";
        if (r.op != 'T')
            continue;
        // A peek leaves cursor and flags alone, also on -21; only the indefinite primitive returns at once
        // with the cursor behind the length.
        Dec p(r.in, kCons);
        EXPECT_EQ(xd_tag_len(&p.c, &tag, &len, 0), st);
        EXPECT_EQ(std::to_string(p.at()) + cons(p), r.in == "048000" ? "2" : "0 cons");
    }
    // Both end flags set: the end, for the tag readers with and without a comparison. The bare tag reader
    // shares the identifier reading of the 'T' rows.
    Dec d("3000", RT_FLAG_INDEF_TOP | RT_FLAG_LAST_EOC), f("bf8100"), a("a003020105");
    ASN1TAG tag = 0;
    int len;
    EXPECT_EQ((std::vector<int>{xd_tag_len(&d.c, &tag, &len, RT_MATCH_ADVANCE), xd_Tag1AndLen(&d.c, &len)}), (std::vector<int>(2, RT_E_END_OF_BUFFER)));
    EXPECT_EQ(xd_tag(&f.c, &tag), 0);
    EXPECT_EQ(outcome(f, 0, std::to_string(tag)), std::to_string(0xa0000080u) + " at 3");
    EXPECT_EQ(xd_Tag1AndLen(&a.c, &len), 0);
    EXPECT_EQ(outcome(a, 0, std::to_string(len)) + cons(a), "3 at 2 cons");
}

TEST(BerDecodeNavigation, NextElementSavedStateAndCopies)
{
    // An indefinite element is left behind its end-of-contents.
    Dec d(kFour);
    std::vector<ASN1UINT> stops;
    while (xd_NextElement(&d.c) == 0)
        stops.push_back(d.at());
    EXPECT_EQ(stops, (std::vector<ASN1UINT>{3, 5, 9, 11}));
    // A saved state comes back without the end-of-contents flag; a null slot is the context's own.
    Dec s(kFour, RT_FLAG_LAST_EOC | kCons);
    RtBufferState slot;
    s.c.bufIndex = 3, s.c.bitOffset = 5;
    xu_SaveBufferState(&s.c, &slot);
    s.c.bufIndex = 7, s.c.bitOffset = 8, s.c.flags = 0;
    xu_RestoreBufferState(&s.c, &slot);
    EXPECT_EQ((std::vector<int>{(int)s.at(), s.c.bitOffset, s.c.flags}), (std::vector<int>{3, 5, kCons}));
    xu_SaveBufferState(&s.c, nullptr);
    s.c.bufIndex = 9;
    xu_RestoreBufferState(&s.c, nullptr);
    EXPECT_EQ(s.c.savedState.index + s.at(), 6u);
    // xd_memcpy stops at the end with a bare status.
    uint8_t out[4] = {};
    EXPECT_EQ((std::vector<int>{xd_memcpy(&s.c, out, 2), xd_memcpy(&s.c, out, 8)}), (std::vector<int>{0, RT_E_END_OF_BUFFER}));
    EXPECT_EQ(outcome(s, 0, testsupport::toHex(out, 2)), "0400 at 5");
}

TEST(BerDecodeValue, ReadersTable)
{
    bertest::LastErrorUntouched platformState;
    // Reads that do not come back the way the writers put them, and every refusal (values that read
    // back are in test_ber_encode.cpp). Implicit reads (tagging 0) take the length given; `arg` is the
    // capacity of the _s readers (which then read the header themselves) or a string's tag.
    struct Row {
        Kind kind; std::string in; std::string outcome; int tagging = 1; int length = 0; ASN1UINT arg = 0;
        ASN1USINT flags = 0;
    };
    const std::string arcs128 = "1.2" + rep(".1", 126), prim = "04026162 0000";  // prim: handed an indefinite length
    const Row rows[] = {
        {kInt, "02810105", "5 at 4"}, {kInt, "02050080000000", "INT_TOO_BIG recorded at 2"},
        {kInt, "0200", "BAD_LENGTH recorded at 2"}, {kInt, "0a0105", "TAG_MISMATCH recorded at 0"},
        {kInt, "220105", "TAG_MISMATCH recorded at 0"}, {kInt, "020201", "END_OF_BUFFER recorded at 2"},
        {kInt, "02", "END_OF_BUFFER recorded at 1"}, {kInt, "ff01", "INT_TOO_BIG recorded at 0", 0, kIndef},
        {kUnsigned, "0204ffffffff", "4294967295 at 6"}, {kUnsigned, "8001", "32769 at 2", 0, 2},  // no sign examined
        {kUnsigned, "02050100000000", "INT_TOO_BIG recorded at 2"}, {kUnsigned, "0200", "0 at 2"},
        {kUnsigned, "0206000000000001", "INT_TOO_BIG recorded at 2"}, {kUnsigned, "020201", "END_OF_BUFFER at 3"},
        {kUnsigned, "0a0101", "TAG_MISMATCH recorded at 0"}, {kUint16, "020007", "7 at 3"},  // length 0 takes one octet
        {kUint16, "09", "9 at 1", 0, 0}, {kUint16, "0203010000", "INT_TOO_BIG recorded at 2"},
        {kUint16, "020400000001", "INT_TOO_BIG recorded at 2"}, {kUint16, "0201", "END_OF_BUFFER recorded at 0"},
        {kUint16, "02810105", "INT_TOO_BIG recorded at 2"}, {kUint16, "0a0105", "TAG_MISMATCH recorded at 0"},
        {kUint16, "020201", "END_OF_BUFFER at 2"},
        // The leading octet of three is judged before the two behind it are looked for.
        {kUint16, "0500", "INT_TOO_BIG recorded at 0", 0, 3}, {kUint16, "0005", "END_OF_BUFFER at 0", 0, 3},
        {kEnum, "020103", "TAG_MISMATCH at 0"}, {kEnum, "0a", "END_OF_BUFFER at 1"}, {kBool, "010105", "5 at 3"},
        {kBool, "01020000", "BAD_LENGTH recorded at 2"}, {kBool, "020100", "TAG_MISMATCH recorded at 0"},
        {kBool, "0101", "END_OF_BUFFER recorded at 2"}, {kNull, "050100", "BAD_LENGTH recorded at 2"},
        {kNull, "0400", "TAG_MISMATCH recorded at 0"}, {kNull, "ffff", "at 0", 0}, {kBigInt, "0203000000", "0x0 at 5"},
        {kBigInt, "0203000001", "0x01 at 5"}, {kBigInt, "", "0x0 at 0", 0}, {kBigInt, "02050102", "END_OF_BUFFER at 2"},
        {kBigInt, "0a0101", "TAG_MISMATCH recorded at 0"},
        {kObjId, "06072a908080808001", "1.2.1 at 9"}, {kObjId, "06022a86", "1.2.6 at 4"},  // arc past 32 bits wraps; open arc
        {kObjId, "067f2a" + rep("01", 126), arcs128 + " at 129"},
        {kObjId, "0681802a" + rep("01", 127), arcs128 + " BAD_OBJID at 130"},
        {kObjId, "0600", "BAD_LENGTH recorded at 2"}, {kObjId, "06052a", "END_OF_BUFFER recorded at 2"},
        {kObjId, "04012a", "TAG_MISMATCH recorded at 0"}, {kOctets, "2409 04026162 0403636465", "6162636465 at 11"},
        {kOctets, "2480 04026162 0400 040163 0000", "616263 at 13"},
        {kOctets, "2406 2404 04026162", "TAG_MISMATCH recorded at 2"},     // a constructed segment
        {kOctets, "2480 2480 040161 0000 0000", "BAD_TAG recorded at 4"},  // in an indefinite string
        {kOctets, "2405 04026162", "BAD_LENGTH recorded at 6"}, {kOctets, "0480 0000", "BAD_LENGTH recorded at 2"},
        {kOctets, "0405 6162", "END_OF_BUFFER recorded at 2"},
        {kOctets, "0403616263", "@2 616263 at 5", 1, 0, 0, kShare},
        {kOctets, "0405616263", "END_OF_BUFFER recorded at 2", 1, 0, 0, kShare},
        {kOctets, "2480 04026162 0000", "6162 at 8", 1, 0, 0, kShare},  // constructed: copied all the same
        {kOctetsS, "0403616263", "616263 at 5", 1, 0, 3}, {kOctetsS, "0403616263", "TOO_LONG recorded at 2", 1, 0, 2},
        {kOctetsS, "2405 0403616263", "TAG_MISMATCH recorded at 0", 1, 0, 8},  // explicit: primitive only
        {kOctetsS, "2409 04026162 0403636465", "6162636465 at 11", 0, 0, 9},
        {kOctetsS, "2409 04026162 0403636465", "TOO_LONG recorded at 2", 0, 0, 8},
        // The last segment may claim the whole length, but not more than is left.
        {kOctetsS, "240a 04056161616161 040a" + rep("62", 10), "TOO_LONG recorded at 11", 0, 0, 10},
        {kOctetsS, "2403 04026162", "BAD_LENGTH recorded at 6", 0, 0, 3},
        {kOctetsS, "2480 04026162 0000", "BAD_LENGTH recorded at 2", 0, 0, 16},
        {kOctetsS, "04", "recorded END_OF_BUFFER at 1", 1, 0, 4},  // a header cut short; the length handed in is used
        {kBits, "0300", "0: at 2"}, {kBits, "030307ff80", "@3 9:FF80 at 5", 1, 0, 0, kShare},
        {kBits, "030101", "BAD_LENGTH at 2"}, {kBits, "030308ffff", "BAD_VALUE at 3"},  // a single octet must be zero
        {kBits, "030308ffff", "BAD_VALUE at 2", 1, 0, 0, kShare},
        // Only the last segment's leading octet is the unused count; the first one's leading 00 stays data.
        {kBits, "2380 0302000a 030204b0 0000", "20:000AB0 at 12"}, {kBits, "2304 030209ff", "BAD_VALUE recorded at 6"},
        {kBits, "2380 0302000a", "END_OF_BUFFER recorded at 6"}, {kBits, "040100", "TAG_MISMATCH recorded at 0"},
        {kBitsS, "030300abcd", "16:ABCD at 5", 1, 0, 16}, {kBitsS, "030300abcd", "16:ABCD at 5", 1, 0, 9},
        {kBitsS, "030300abcd", "TOO_LONG at 3", 1, 0, 8}, {kBitsS, "0300", "0: at 2", 1, 0, 8},
        {kBitsS, "2304 030200ff", "TAG_MISMATCH recorded at 0", 1, 0, 8},
        {kBitsS, "2308 0302000a 030204b0", "20:000AB0 at 10", 0, 0, 24},
        {kBitsS, "2306 030400aabbcc", "TOO_LONG recorded at 4", 0, 0, 16},
        {kBitsS, "2304 030204f0", "4:F0 at 6", 0, 0, 8},  // capacity plus one: the first octet is the unused count
        {kBitsS, "2305 030200ff", "BAD_LENGTH recorded at 6", 0, 0, 16},
        // Found by fuzzing: a segment of only a non-zero unused count would wrap the bit count below
        // zero, and the writer would then read 512 MiB.
        {kBitsS, "2303030101", "BAD_VALUE recorded at 5", 0, 0, 64}, {kChars, "3380 040141 040142 0000", "AB at 10"},
        {kChars, "16024142", "TAG_MISMATCH recorded at 0", 1, 0, 19}, {kBmp, "1e03 0041 00", "41 at 5"},  // odd octet ignored
        {kUcs, "0c024142", "TAG_MISMATCH recorded at 0", 1, 0, 28},
        // An indefinite length after a primitive tag is refused: measured as segments, the span (four
        // octets) is longer than the content. A bit string stays inside its allocation by its capacity
        // test (a bare -17); with the constructed form the same octets are one segment and its end.
        {kOctets, prim, "BAD_LENGTH recorded at 0", 0, kIndef}, {kUcs, prim, "BAD_LENGTH recorded at 0", 0, kIndef, 28},
        {kBits, "03020080 0000", "TOO_LONG at 1", 0, kIndef}, {kOctets, prim, "6162 at 6", 0, kIndef, 0, kCons},
        // Open types: running into the end counts as read, the octets that exist come back.
        {kOpen, "0500 ff", "0500 at 2"}, {kOpen, "3080 020105 0000 ff", "30800201050000 at 7"},
        {kOpen, "0000", "BAD_VALUE at 2"}, {kOpen, "30050201", "BAD_VALUE at 2"},
        {kOpen, "3080 020105", "3080020105 at 5"}, {kOpen, "3003020105 0500", "@0 3003020105 at 5", 1, 0, 0, kShare},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.in.substr(0, 40));
        Dec d(r.in, r.flags);
        int st = -999;
        const std::string value = readValue(d, r.kind, st, r.tagging, r.length, r.arg);
        EXPECT_EQ(outcome(d, st, value), r.outcome);
    }
    // A negative length still stores an empty text.
    Dec n("41");
    const char* text = nullptr;
    const int st = xd_charstr(&n.c, &text, 0, 12, -3);
    EXPECT_EQ(outcome(n, st, text), "BAD_LENGTH recorded at 0");
    // The explicit header clears the form flag, except in xd_enum; implicit reads keep it.
    Dec i("020105 0a0103 ff", kCons);
    ASN1INT v;
    EXPECT_EQ(xd_integer(&i.c, &v, 1, 0), 0);
    EXPECT_FALSE(i.constructed());
    i.c.flags |= kCons;
    EXPECT_EQ((std::vector<int>{xd_enum(&i.c, &v, 1, 0), xd_integer(&i.c, &v, 0, 1)}), (std::vector<int>{0, 0}));
    EXPECT_TRUE(i.constructed());
}

TEST(BerDecodeValue, ExtensionLists)
{
    // Content of a SEQUENCE: two known elements ahead of the extension, then two more. The stop tag ends
    // it with the cursor on that tag; one that never comes is recorded. Node and value share one block.
    const std::string content = "020105 0101ff a1020500 0403616263";
    const struct { ASN1UINT start; ASN1TAG stop; const char* outcome; } rows[] = {
        {6, 0xffffffffu, "2 0403616263 0403616263 at 15"}, {0, 0x04, "3 0101FF A1020500 at 10"},
        {0, 0x06, "4 0101FF 0403616263 END_OF_BUFFER recorded at 15"},
    };
    const auto hexOf = [](const Asn1RTDListNode* node) {
        EXPECT_EQ((const char*)node->data, (const char*)node + sizeof(Asn1RTDListNode));
        return testsupport::toHex(static_cast<const ASN1OpenType*>(node->data)->data, static_cast<const ASN1OpenType*>(node->data)->numocts);
    };
    for (const auto& r : rows) {
        Dec d(content);
        Asn1RTDList list;
        rtDListInit(&list);
        ASN1DecodeBlock block{0, (ASN1INT)d.size()};
        d.c.bufIndex = r.start;
        const int st = xd_OpenTypeExt(&d.c, &block, r.stop, &list);
        EXPECT_EQ(outcome(d, st, std::to_string(list.count) + " " + hexOf(list.head->next) + " " + hexOf(list.tail)), r.outcome);
    }
    // Indefinite content ends at two zero octets; a null list only skips.
    Dec d("020105 0500 0000"), e("0000");
    ASN1DecodeBlock block{0, kIndef};
    Asn1RTDList list;
    rtDListInit(&list);
    EXPECT_EQ(xd_OpenTypeExt(&d.c, &block, 0xffffffffu, nullptr), 0);
    EXPECT_EQ(xd_OpenTypeAppend(&e.c, &list), RT_E_BAD_VALUE);
    EXPECT_EQ(outcome(d, 0, "") + " " + outcome(e, RT_E_BAD_VALUE, ""), "at 5 BAD_VALUE recorded at 2");
}

TEST(BerDecodeDepth, HundredThousandIndefiniteLevels)
{
    bertest::LastErrorUntouched platformState;
    const int levels = 100000;
    Dec d(rep("3080", levels) + "0500" + rep("0000", levels));
    EXPECT_EQ(xd_indeflen_ex(d.data(), (int)d.size()), (int)d.size());
    ASSERT_EQ(xd_setp(&d.c, d.data(), (int)d.size(), nullptr, nullptr), 0);
    EXPECT_EQ(xd_NextElement(&d.c), 0);
    EXPECT_EQ(d.at(), d.size());
    // Values and headers only: the same elements, the same way back.
    int len = 0;
    for (asn1rt::BerWalkMode mode : {asn1rt::kWalkKeepValues, asn1rt::kWalkStructure}) {
        asn1rt::BerWalk walk;
        ASSERT_EQ(asn1rt::berWalk(&d.c, d.data(), (int)d.size(), walk, mode), 0);
        EXPECT_EQ((std::vector<size_t>{walk.count, walk.maxDepth, walk.consumed, walk.nodes[0].lastChild}),
                  (std::vector<size_t>{levels + 1, levels, d.size(), levels}));
        const int back = asn1rt::berWriteBack(&d.c, walk);
        ASSERT_GT(back, 0);
        EXPECT_EQ(xe_getp(&d.c)[back - 2], 0x05);
        EXPECT_EQ(back, len ? len : back);
        len = back;
    }
}

TEST(BerWalkStructure, HeadersAsTheValueWalkReadsThem)
{
    bertest::LastErrorUntouched platformState;
    // Status, nodes, DER, consumed (for status 0); DER comes back unchanged from both walks.
    const std::string big = "30830111750483011170" + std::string(140000, '5');  // lengths in three octets
    const struct { std::string hex; int status; ASN1UINT count; bool der; ASN1UINT consumed; } rows[] = {
        {"020105", 0, 1, true, 3}, {"3000", 0, 1, true, 2}, {"3003020105", 0, 2, true, 5}, {"020105ffff", 0, 1, true, 3},
        {"3006300402020100", 0, 3, true, 8}, {"300a3003020101020102050000", 0, 5, true, 12},
        {"3081030201050000", 0, 2, false, 6}, {"308200030201050000", 0, 2, false, 7},  // long lengths, short values
        {"30830000030201050000", 0, 2, false, 8}, {"30049f1f0100", 0, 2, true, 6}, {"30049f050100", 0, 2, false, 6},
        // The octet behind a long tag's first one is no length, whatever it looks like; 0000 in a definite one
        // is an element.
        {"30041f811f00", 0, 2, true, 6}, {"30041f820100", 0, 2, true, 6}, {"30020000", 0, 2, true, 4},
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
    const asn1rt::BerWalkNode* n = s.walk.nodes;  // kind, last child, count, place in the message
    EXPECT_EQ((std::vector<long long>{n[0].kind, n[0].lastChild, n[2].kind, n[2].v.octets.numocts,
                                      n[2].v.octets.data - s.data(), n[1].v.octets.data - s.data()}),
              (std::vector<long long>{asn1rt::kWalkConstructed, 2, asn1rt::kWalkOctets, 3, 7, 4}));
    // What each walk writes back, and whether the value walk calls it DER (the header walk does, for all
    // of these): the header walk leaves values as they came (an INTEGER with a redundant octet, a BOOLEAN
    // of 01) and segments as segments; the value walk rewrites both, and takes identifiers for DER only
    // when their arcs come back the same way. An empty column: as it came.
    const struct { const char* in; const char* headers; const char* values; const char* der; } rows[] = {
        {"30070202007f010101", "", "300602017f0101ff", "h"}, {"30800201050000", "3003020105", "3003020105", ""},
        {"24800401610401620000", "2406040161040162", "04026162", ""}, {"2406040161040162", "", "04026162", "h"},
        {"06032a8648", "", "", "hv"}, {"06012a", "", "", "hv"}, {"06062a8fffffff7f", "", "", "hv"},
        {"06032a8001", "", "06022a01", "h"}, {"06062a9080808000", "", "06022a00", "h"} /* wraps */,
        {"06072a818080808000", "", "06022a00", "h"} /* wraps, one octet longer */,
        {"06022a81", "", "06022a01", "h"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.in);
        Walked h(r.in, kWalkStructure), v(r.in, kWalkKeepValues);
        EXPECT_EQ(std::string(h.walk.der ? "h" : "") + (v.walk.der ? "v" : ""), r.der);
        EXPECT_EQ(std::to_string(h.walk.segmented) + " " + h.writeBack(), "0 " + norm(*r.headers ? r.headers : r.in));
        const std::string values = norm(*r.values ? r.values : r.in);
        EXPECT_EQ(std::to_string(v.walk.segmented) + " " + v.writeBack(), (r.in[0] == '2' ? "1 " : "0 ") + values);
    }
}

TEST(BerWalkStructure, CallersArrayFirstThenTheHeap)
{
    const char* msg = "300c020101020102020103020104";
    Walked heap(msg, kWalkStructure);
    ASSERT_EQ(heap.walk.count, 5u);
    // The array is used while the nodes fit; the walk that reads values takes it too.
    const struct { ASN1UINT slots; bool stays; asn1rt::BerWalkMode mode; } cases[] = {{5, true, kWalkStructure},
        {4, false, kWalkStructure}, {0, false, kWalkStructure}, {2, false, kWalkKeepValues}, {5, true, kWalkKeepValues}};
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

TEST(BerCorpus, EveryFileWalksAndWritesBack)
{
    CHAINVET_SKIP_WITHOUT_CORPUS();
    bertest::LastErrorUntouched platformState;
    int good = 0, der = 0;
    for (const char* kind : {"cert", "crl", "csr", "cms", "ocsp", "tsp", "cmp", "gost", "other"}) {
        for (const std::string& path : testsupport::corpusFiles(kind)) {
            SCOPED_TRACE(path);
            const std::vector<uint8_t> bytes = testsupport::readFile(path);
            const std::string hex = testsupport::toHex(bytes.data(), bytes.size());
            Walked values(hex, asn1rt::kWalkKeepValues), scratch(hex, asn1rt::kWalkScratchValues),
                headers(hex, asn1rt::kWalkStructure);
            if (path.find("/bad/") != std::string::npos)
                continue;  // any status will do, as long as nothing breaks
            ++good;
            der += values.walk.der;
            ASSERT_TRUE(values.status == 0 && headers.status == 0 && values.walk.count > 0);
            // Scratch storage instead of the heap: the same elements, but nothing to write back.
            EXPECT_EQ(scratch.state(), values.state());
            EXPECT_EQ(asn1rt::berWriteBack(&scratch.c, scratch.walk), RT_E_NOT_SUPPORTED);
            // Without strings read whole the two walks see the same elements.
            EXPECT_EQ(headers.walk.consumed, values.walk.consumed);
            if (values.walk.segmented == 0) {
                EXPECT_TRUE(bertest::sameNodes(headers.walk, values.walk));
                EXPECT_EQ(headers.c.savedState.index, values.c.savedState.index);
                EXPECT_EQ(headers.c.flags, values.c.flags);
            } else {
                EXPECT_GT(headers.walk.count, values.walk.count);
            }
            // DER goes back as it came; anything else in a definite form that walks again to itself
            // (DER headers, for the header walk).
            for (Walked* w : {&values, &headers}) {
                const std::string once = w->writeBack();
                if (w->walk.der) {
                    EXPECT_TRUE(once == hex.substr(0, 2 * w->walk.consumed));
                    continue;
                }
                Walked again(once, w->walk.mode);
                ASSERT_EQ(again.status, 0);
                EXPECT_TRUE(again.walk.count == w->walk.count && 2 * again.walk.consumed == once.size());
                EXPECT_TRUE(again.walk.der || w == &values);
                EXPECT_TRUE(again.writeBack() == once);
            }
        }
    }
    EXPECT_GT(good, 0);
    EXPECT_GT(der, 0);
}
