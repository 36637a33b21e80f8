// BER reading: tables of hex vectors per family, each with the exact status, whether the
// status reached the error block, the value read and where the cursor stands after.
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "ber_values_a.h"
#include "support/testsupport.h"

using bertest::Dec;
using namespace bervalues;
using testsupport::hex;
using testsupport::toHex;

namespace {

constexpr int kIndef = RT_INDEFINITE_LENGTH;
constexpr ASN1USINT kUnchecked = RT_FLAG_LEN_UNCHECKED;
constexpr ASN1USINT kShare = RT_FLAG_SHARE_INPUT;

std::string repeat(const std::string& h, int n)
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += h;
    return s;
}

// SEQUENCE { INTEGER 5, [1] { OCTET STRING "abc" } }
const char* const kSeq = "300a020105a105040361 6263";
// Four elements: INTEGER, empty OCTET STRING, empty indefinite SEQUENCE, NULL.
const char* const kFour = "020105 0400 30800000 0500";

}  // namespace

// ---- Headers ---------------------------------------------------------------------------

TEST(BerDecodeHeader, Lengths)
{
    // Every failure of xd_len reaches the error block.
    const struct { std::string in; ASN1USINT flags; const char* outcome; } cases[] = {
        {"05", 0, "5 at 1"}, {"7f", 0, "127 at 1"},  // the short form is not checked against the buffer
        {"80", 0, "-9999 at 1"}, {"84ffffd8f1", 0, "-9999 at 5"},  // FF FF D8 F1 reads as indefinite
        {"8180" + repeat("00", 128), 0, "128 at 2"}, {"820100" + repeat("00", 256), 0, "256 at 3"},
        {"8400000003" + repeat("00", 3), 0, "3 at 5"},
        {"8105", 0, "BAD_LENGTH recorded at 2"}, {"8105", kUnchecked, "5 at 2"},  // beyond the buffer
        {"850000000001", 0, "BAD_LENGTH recorded at 1"}, {"ff", 0, "BAD_LENGTH recorded at 1"},  // 5 or more octets
        {"8480000000", 0, "BAD_LENGTH recorded at 5"}, {"8480000000", kUnchecked, "-2147483648 at 5"},
        {"8201", 0, "END_OF_BUFFER recorded at 2"}, {"", 0, "END_OF_BUFFER recorded at 0"},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.in.substr(0, 12));
        Dec d(t.in, t.flags);
        int len = -1;
        const int st = xd_len(&d.c, &len);
        EXPECT_EQ(outcome(d, st, st ? "" : std::to_string(len)), t.outcome);
    }
}

TEST(BerDecodeHeader, TagsAndLengths)
{
    // Tag word in hex and length, with RT_MATCH_ADVANCE; only xd_len's own failures are
    // recorded. "cons": the form flag after.
    const struct { std::string in; const char* outcome; } cases[] = {
        {"3003020105", "20000010 3 at 2 cons"}, {"020105", "2 1 at 2"}, {"a200", "a0000002 0 at 2 cons"},
        {"4100", "40000001 0 at 2"}, {"e300", "e0000003 0 at 2 cons"}, {"1f1f00", "1f 0 at 3"},
        {"bf810000", "a0000080 0 at 4 cons"}, {"1f81ffffff7f00", "1fffffff 0 at 7"},
        {"1f" + repeat("80", 8) + "0100", "1 0 at 11"},        // nine number octets
        {"1f828080800000", "BAD_TAG at 6"},                     // number past 0x1fffffff
        {"1f" + repeat("80", 9) + "0100", "BAD_TAG at 10"},     // a tenth number octet
        {"048180" + repeat("00", 128), "4 128 at 3"}, {"308000", "20000010 -9999 at 2 cons"},
        {"048000", "BAD_LENGTH at 2"},  // indefinite primitive
        {"30", "END_OF_BUFFER at 1 cons"}, {"1f81", "END_OF_BUFFER at 2"}, {"", "END_OF_BUFFER at 0"},
        {"3085", "BAD_LENGTH recorded at 2 cons"},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.in.substr(0, 12));
        Dec d(t.in);
        ASN1TAG tag = 0;
        int len = -1;
        const int st = xd_tag_len(&d.c, &tag, &len, RT_MATCH_ADVANCE);
        char text[32];
        std::snprintf(text, sizeof text, "%x %d", (unsigned)tag, len);
        EXPECT_EQ(outcome(d, st, st ? "" : text) + (d.constructed() ? " cons" : ""), t.outcome);
        // A peek leaves cursor and flags alone, also on -21; only the indefinite primitive
        // returns at once with the cursor behind the length.
        Dec p(t.in, RT_FLAG_CONSTRUCTED);
        EXPECT_EQ(xd_tag_len(&p.c, &tag, &len, 0), st);
        const bool early = t.in == "048000";
        EXPECT_EQ(p.at(), early ? 2u : 0u);
        EXPECT_EQ(p.constructed(), !early);
    }

    // Both end flags set: the end, for the tag readers with and without a comparison.
    Dec d("3000", RT_FLAG_INDEF_TOP | RT_FLAG_LAST_EOC);
    ASN1TAG tag;
    int len;
    EXPECT_EQ(xd_tag_len(&d.c, &tag, &len, RT_MATCH_ADVANCE), RT_E_END_OF_BUFFER);
    EXPECT_EQ(xd_Tag1AndLen(&d.c, &len), RT_E_END_OF_BUFFER);
    // The bare tag reader does not roll back.
    Dec e("1f" + repeat("80", 9) + "01"), f("bf8100"), g("bf81");
    EXPECT_EQ(xd_tag(&e.c, &tag), RT_E_BAD_TAG);
    EXPECT_NE(e.at(), 0u);
    EXPECT_EQ(xd_tag(&g.c, &tag), RT_E_END_OF_BUFFER);
    EXPECT_EQ(xd_tag(&f.c, &tag), 0);
    EXPECT_EQ(tag, 0xa0000080u);
    EXPECT_EQ(f.at(), 3u);
}

TEST(BerDecodeHeader, AttachingAMessage)
{
    // The outer element's length and the buffer's size after (the cursor always back at 0).
    const struct { std::string in; int size; ASN1USINT flags; int status; int length; ASN1UINT bufSize; } cases[] = {
        {"3003020105", -1, 0, 0, 5, 5}, {"3003020105ffff", -1, 0, 0, 5, 5},  // trailing octets stay outside
        {"30050201", -1, 0, RT_E_BAD_LENGTH, 0, 0}, {"308105020105", -1, 0, RT_E_BAD_LENGTH, 0, 0},
        {"3080020105 0000", -1, 0, 0, kIndef, 7}, {"3003020105", 0, 0, 0, 5, 5},  // size unknown
        {"3082010002", -1, kUnchecked, 0, 260, 5},                                 // unchecked: size kept
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.in);
        std::vector<uint8_t> msg = hex(t.in);
        ASN1CTXT c;
        ASSERT_EQ(rtInitContext(&c, nullptr), 0);
        c.flags = (ASN1USINT)(t.flags | RT_FLAG_LAST_EOC);
        ASN1TAG tag = 0;
        int len = 0;
        EXPECT_EQ(xd_setp(&c, msg.data(), t.size < 0 ? (int)msg.size() : t.size, &tag, &len), t.status);
        EXPECT_EQ(c.bufIndex, 0u);
        EXPECT_EQ(c.flags & RT_FLAG_LAST_EOC, 0);
        if (t.status == 0) {
            EXPECT_EQ(tag, 0x20000010u);
            EXPECT_EQ(len, t.length);
            EXPECT_EQ(c.bufSize, t.bufSize);
            EXPECT_EQ((c.flags & RT_FLAG_INDEF_TOP) != 0, t.length == kIndef);
        }
        rtFreeContext(&c);
    }
}

TEST(BerDecodeHeader, Matching)
{
    const int seek = RT_MATCH_SEEK, adv = RT_MATCH_ADVANCE, skip = RT_MATCH_SKIP_FIRST;
    // In kSeq; the form bit does not count. Running off the end is not found (-3), not -2.
    const struct { ASN1UINT start; ASN1TAG tag; int mode; const char* outcome; } cases[] = {
        {0, 0x20000010, 0, "10 at 0"}, {0, 0x10, 0, "10 at 0"}, {0, 0x20000010, adv, "10 at 2"},
        {0, 2, 0, "TAG_MISMATCH at 0"}, {0, 4, seek, "3 at 7"}, {0, 4, seek | adv, "3 at 9"},
        {0, 5, seek, "TAG_MISMATCH at 0"},
        {0, 2, seek | skip, "1 at 2"},           // skipping the first enters a constructed element
        {2, 0xa0000001, seek | skip, "5 at 5"},  // and steps over a primitive one
        {2, 2, seek | skip, "TAG_MISMATCH at 5"}, {12, 2, skip, "TAG_MISMATCH at 12"}, {12, 2, 0, "TAG_MISMATCH at 12"},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(std::to_string(t.start) + " " + std::to_string(t.tag) + " " + std::to_string(t.mode));
        Dec d(kSeq);
        d.c.bufIndex = t.start;
        int len = -1;
        const int st = xd_match(&d.c, t.tag, &len, t.mode);
        EXPECT_EQ(outcome(d, st, st ? "" : std::to_string(len)), t.outcome);
    }
    Dec d(kSeq);
    EXPECT_EQ(xd_match(&d.c, 0x20000010, nullptr, adv), 0) << "length out may be null";

    // The one-octet form compares under the mask 0xdf; "cons": the form flag after.
    const struct { std::string in; ASN1OCTET id; bool wantLength; const char* outcome; } ones[] = {
        {"3003020105", 0x30, true, "3 at 2 cons"}, {"1003020105", 0x30, true, "3 at 2"},
        {"2480", 0x04, true, "-9999 at 2 cons"}, {"3100", 0x30, true, "TAG_MISMATCH recorded at 0"},
        {"0480", 0x04, true, "BAD_LENGTH recorded at 2"}, {"0480", 0x04, false, "at 2"},  // indefinite primitive
        {"30", 0x30, true, "END_OF_BUFFER at 1 cons"}, {"", 0x30, true, "END_OF_BUFFER at 0"},
        {"3085", 0x30, true, "BAD_LENGTH recorded at 2 cons"},
    };
    for (const auto& t : ones) {
        SCOPED_TRACE(t.in);
        Dec d(t.in);
        int len = -1;
        const int st = xd_match1(&d.c, t.id, t.wantLength ? &len : nullptr);
        EXPECT_EQ(outcome(d, st, st || !t.wantLength ? "" : std::to_string(len)) + (d.constructed() ? " cons" : ""),
                  t.outcome);
    }
    Dec e("a003020105");
    int len = 0;
    EXPECT_EQ(xd_Tag1AndLen(&e.c, &len), 0);
    EXPECT_EQ(outcome(e, 0, std::to_string(len)) + (e.constructed() ? " cons" : ""), "3 at 2 cons");
}

// ---- Navigation ------------------------------------------------------------------------

TEST(BerDecodeNavigation, CountNextElementAndEndOfContents)
{
    Dec d(kFour), i(std::string(kFour) + "0000 ff"), bad("020105 1f" + repeat("80", 9) + "01");
    int n = -1;
    EXPECT_EQ(xd_count(&d.c, 11, &n), 0);
    EXPECT_EQ(n, 4);
    EXPECT_EQ(xd_count(&d.c, 5, &n), 0);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(xd_count(&i.c, kIndef, &n), 0);
    EXPECT_EQ(n, 4);
    EXPECT_EQ(d.at() + i.at(), 0u) << "counting consumes nothing";
    // A failing step returns at once and leaves the cursor where it failed.
    EXPECT_EQ(xd_count(&bad.c, 30, &n), RT_E_BAD_TAG);
    EXPECT_EQ(n, 4);
    EXPECT_EQ(bad.at(), 13u);

    std::vector<ASN1UINT> stops;
    while (xd_NextElement(&d.c) == 0)
        stops.push_back(d.at());
    // An indefinite element is left behind its end-of-contents.
    EXPECT_EQ(stops, (std::vector<ASN1UINT>{3, 5, 9, 11}));
    EXPECT_EQ(xd_NextElement(&d.c), RT_E_END_OF_BUFFER);

    Dec e("3080 3080 0000 020105 0000 ff"), f("3080 3080 0000 020105");
    e.c.bufIndex = f.c.bufIndex = 2;
    EXPECT_EQ(xd_MovePastEOC(&e.c), 0);
    EXPECT_EQ(e.at(), 11u);
    EXPECT_EQ(xd_MovePastEOC(&f.c), RT_E_END_OF_BUFFER);
}

TEST(BerDecodeNavigation, IndefiniteLengthsMeasured)
{
    // A constructed string's content and span, from behind its header, nothing consumed.
    const struct { const char* name; std::string in; int status; int content; int span; } strings[] = {
        {"segments", "2480 0402 6162 0400 0401 63 0000", 0, 3, 9},
        {"no segments", "2480 0000", 0, 0, 0},
        {"end-of-contents segment with content", "2480 0001 aa 0000", 0, 1, 3},
        {"constructed segment", "2480 2480 040161 0000 0000", RT_E_BAD_TAG, 0, 0},
        {"wrong type", "2480 0302 0061 0000", RT_E_BAD_TAG, 0, 0},
        {"no end", "2480 0402 6162", RT_E_END_OF_BUFFER, 0, 0},
    };
    for (const auto& t : strings) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        d.c.bufIndex = 2;
        int content = -1, span = -1;
        EXPECT_EQ(xd_consStrIndefLenAndSize(&d.c, 4, &content, &span), t.status);
        if (t.status == 0) {
            EXPECT_EQ(content, t.content);
            EXPECT_EQ(span, t.span);
            EXPECT_EQ(d.at(), 2u);
        }
    }
    // The whole size of one indefinite element.
    const struct { const char* name; std::string in; int limit; int result; } elements[] = {
        {"nested", "3080 020105 3080 0000 0000 ffff", -1, 11},
        {"limit under 5", "30800000", -1, 0},
        {"definite", "3003020105", -1, RT_E_BAD_LENGTH},
        {"cut short", "3080 020105 00", -1, RT_E_END_OF_BUFFER},
        {"limit short of the end", "3080 020105 3080 0000 0000", 9, RT_E_END_OF_BUFFER},
    };
    for (const auto& t : elements) {
        SCOPED_TRACE(t.name);
        std::vector<uint8_t> msg = hex(t.in);
        EXPECT_EQ(xd_indeflen_ex(msg.data(), t.limit < 0 ? (int)msg.size() : t.limit), t.result);
    }
}

TEST(BerDecodeNavigation, SavedStateAndCopies)
{
    Dec d(kFour, RT_FLAG_LAST_EOC | RT_FLAG_CONSTRUCTED);
    RtBufferState slot;
    d.c.bufIndex = 3;
    d.c.bitOffset = 5;
    xu_SaveBufferState(&d.c, &slot);
    d.c.bufIndex = 7;
    d.c.bitOffset = 8;
    d.c.flags = 0;
    xu_RestoreBufferState(&d.c, &slot);
    EXPECT_EQ(d.at(), 3u);
    EXPECT_EQ(d.c.bitOffset, 5);
    EXPECT_EQ(d.c.flags, RT_FLAG_CONSTRUCTED) << "the end-of-contents flag does not come back";
    xu_SaveBufferState(&d.c, nullptr);
    EXPECT_EQ(d.c.savedState.index, 3u);
    d.c.bufIndex = 9;
    xu_RestoreBufferState(&d.c, nullptr);
    EXPECT_EQ(d.at(), 3u);

    // xd_memcpy stops at the end with a bare status.
    uint8_t out[4] = {};
    EXPECT_EQ(xd_memcpy(&d.c, out, 2), 0);
    EXPECT_EQ(toHex(out, 2), "0400");
    EXPECT_EQ(xd_memcpy(&d.c, out, 8), RT_E_END_OF_BUFFER);
    EXPECT_EQ(d.recorded(), 0);
    EXPECT_EQ(d.at(), 5u);
}

// ---- Values ------------------------------------------------------------------------------

TEST(BerDecodeValue, ReadersTable)
{
    bertest::LastErrorUntouched platformState;
    // Reads that do not come back the way the writers put them, and every refusal (written
    // values that read back are in test_ber_encode.cpp). Values as ber_values_a.h writes
    // them; implicit reads (tagging 0) take the length given; `arg` is the capacity of the
    // _s readers (which then read the header themselves) or a string's tag.
    struct Row {
        Kind kind; std::string in; std::string outcome; int tagging = 1; int length = 0; ASN1UINT arg = 0;
        ASN1USINT flags = 0;
    };
    const std::string arcs128 = "1.2" + repeat(".1", 126);
    const std::string prim = "04026162 0000";  // a primitive header, handed an indefinite length
    const Row rows[] = {
        {kInt, "02810105", "5 at 4"}, {kInt, "02050080000000", "INT_TOO_BIG recorded at 2"},
        {kInt, "0200", "BAD_LENGTH recorded at 2"}, {kInt, "0a0105", "TAG_MISMATCH recorded at 0"},
        {kInt, "220105", "TAG_MISMATCH recorded at 0"},  // a constructed identifier
        {kInt, "020201", "END_OF_BUFFER recorded at 2"}, {kInt, "02", "END_OF_BUFFER recorded at 1"},
        {kInt, "ff01", "INT_TOO_BIG recorded at 0", 0, kIndef},
        {kUnsigned, "0204ffffffff", "4294967295 at 6"}, {kUnsigned, "8001", "32769 at 2", 0, 2},  // no sign examined
        {kUnsigned, "02050100000000", "INT_TOO_BIG recorded at 2"}, {kUnsigned, "0200", "0 at 2"},
        {kUnsigned, "0206000000000001", "INT_TOO_BIG recorded at 2"}, {kUnsigned, "020201", "END_OF_BUFFER at 3"},
        {kUnsigned, "0a0101", "TAG_MISMATCH recorded at 0"},
        {kUint16, "020007", "7 at 3"},  // a length of 0 still takes one octet
        {kUint16, "09", "9 at 1", 0, 0}, {kUint16, "0203010000", "INT_TOO_BIG recorded at 2"},
        {kUint16, "020400000001", "INT_TOO_BIG recorded at 2"}, {kUint16, "0201", "END_OF_BUFFER recorded at 0"},
        {kUint16, "02810105", "INT_TOO_BIG recorded at 2"},  // no long form
        {kUint16, "0a0105", "TAG_MISMATCH recorded at 0"}, {kUint16, "020201", "END_OF_BUFFER at 2"},
        // The leading octet of three is judged before the two behind it are looked for.
        {kUint16, "0500", "INT_TOO_BIG recorded at 0", 0, 3}, {kUint16, "0005", "END_OF_BUFFER at 0", 0, 3},
        {kEnum, "020103", "TAG_MISMATCH at 0"}, {kEnum, "0a", "END_OF_BUFFER at 1"},
        {kEnum, "0a050000000001", "INT_TOO_BIG recorded at 2"},  // through the integer reader
        {kBool, "010105", "5 at 3"}, {kBool, "01020000", "BAD_LENGTH recorded at 2"},
        {kBool, "020100", "TAG_MISMATCH recorded at 0"}, {kBool, "0101", "END_OF_BUFFER recorded at 2"},
        {kNull, "050100", "BAD_LENGTH recorded at 2"}, {kNull, "0400", "TAG_MISMATCH recorded at 0"},
        {kNull, "ffff", "at 0", 0},
        {kBigInt, "0203000000", "0x0 at 5"}, {kBigInt, "0203000001", "0x01 at 5"}, {kBigInt, "", "0x0 at 0", 0},
        {kBigInt, "02050102", "END_OF_BUFFER at 2"}, {kBigInt, "0a0101", "TAG_MISMATCH recorded at 0"},
        {kObjId, "06072a908080808001", "1.2.1 at 9"},  // an arc of more than 32 bits wraps
        {kObjId, "06022a86", "1.2.6 at 4"},             // the last arc left open
        {kObjId, "067f2a" + repeat("01", 126), arcs128 + " at 129"},
        {kObjId, "0681802a" + repeat("01", 127), arcs128 + " BAD_OBJID at 130"},
        {kObjId, "0600", "BAD_LENGTH recorded at 2"}, {kObjId, "06052a", "END_OF_BUFFER recorded at 2"},
        {kObjId, "04012a", "TAG_MISMATCH recorded at 0"},
        {kOctets, "2409 04026162 0403636465", "6162636465 at 11"}, {kOctets, "2480 0000", "at 4"},
        {kOctets, "2480 04026162 0400 040163 0000", "616263 at 13"},
        {kOctets, "2406 2404 04026162", "TAG_MISMATCH recorded at 2"},       // a constructed segment
        {kOctets, "2480 2480 040161 0000 0000", "BAD_TAG recorded at 4"},    // in an indefinite string
        {kOctets, "2405 04026162", "BAD_LENGTH recorded at 6"}, {kOctets, "0480 0000", "BAD_LENGTH recorded at 2"},
        {kOctets, "0405 6162", "END_OF_BUFFER recorded at 2"}, {kOctets, "0301 00", "TAG_MISMATCH recorded at 0"},
        {kOctets, "0403616263", "@2 616263 at 5", 1, 0, 0, kShare},
        {kOctets, "0405616263", "END_OF_BUFFER recorded at 2", 1, 0, 0, kShare},
        {kOctets, "2480 04026162 0000", "6162 at 8", 1, 0, 0, kShare},  // constructed: copied all the same
        {kOctetsS, "0403616263", "616263 at 5", 1, 0, 3}, {kOctetsS, "0403616263", "TOO_LONG recorded at 2", 1, 0, 2},
        {kOctetsS, "2405 0403616263", "TAG_MISMATCH recorded at 0", 1, 0, 8},  // explicit: primitive only
        {kOctetsS, "2409 04026162 0403636465", "6162636465 at 11", 0, 0, 9},
        {kOctetsS, "2409 04026162 0403636465", "TOO_LONG recorded at 2", 0, 0, 8},
        // The last segment may claim the whole length, but not more than is left.
        {kOctetsS, "240a 04056161616161 040a" + repeat("62", 10), "TOO_LONG recorded at 11", 0, 0, 10},
        {kOctetsS, "2406 2404 04026162", "TAG_MISMATCH recorded at 2", 0, 0, 6},
        {kOctetsS, "2403 04026162", "BAD_LENGTH recorded at 6", 0, 0, 3},
        {kOctetsS, "2480 04026162 0000", "BAD_LENGTH recorded at 2", 0, 0, 16},
        {kBits, "0300", "0: at 2"}, {kBits, "030307ff80", "@3 9:FF80 at 5", 1, 0, 0, kShare},
        {kBits, "030101", "BAD_LENGTH at 2"},  // a single octet must be zero
        {kBits, "030308ffff", "BAD_VALUE at 3"}, {kBits, "030308ffff", "BAD_VALUE at 2", 1, 0, 0, kShare},
        // Only the last segment's leading octet is the unused count; the first segment's
        // leading 00 stays in the data.
        {kBits, "2308 0302000a 030204b0", "20:000AB0 at 10"}, {kBits, "2380 0302000a 030204b0 0000", "20:000AB0 at 12"},
        {kBits, "2304 030209ff", "BAD_VALUE recorded at 6"}, {kBits, "2380 0302000a", "END_OF_BUFFER recorded at 6"},
        {kBits, "040100", "TAG_MISMATCH recorded at 0"},
        {kBitsS, "030300abcd", "16:ABCD at 5", 1, 0, 16}, {kBitsS, "030300abcd", "16:ABCD at 5", 1, 0, 9},
        {kBitsS, "030300abcd", "TOO_LONG at 3", 1, 0, 8}, {kBitsS, "030209ff", "BAD_VALUE at 3", 1, 0, 8},
        {kBitsS, "0300", "0: at 2", 1, 0, 8}, {kBitsS, "2304 030200ff", "TAG_MISMATCH recorded at 0", 1, 0, 8},
        {kBitsS, "2308 0302000a 030204b0", "20:000AB0 at 10", 0, 0, 24},
        {kBitsS, "2306 030400aabbcc", "TOO_LONG recorded at 4", 0, 0, 16},
        // A segment that reaches the capacity plus one gives up its first octet as the unused count.
        {kBitsS, "2304 030204f0", "4:F0 at 6", 0, 0, 8},
        {kBitsS, "2305 030200ff", "BAD_LENGTH recorded at 6", 0, 0, 16},
        // Found by fuzzing: a segment of only a non-zero unused count would wrap the bit
        // count below zero, and the writer would then read 512 MiB.
        {kBitsS, "2303030101", "BAD_VALUE recorded at 5", 0, 0, 64},
        {kChars, "3380 040141 040142 0000", "AB at 10"}, {kChars, "3306 040141 040142", "AB at 8"},
        {kChars, "16024142", "TAG_MISMATCH recorded at 0", 1, 0, 19},
        {kChars, "13054142", "END_OF_BUFFER recorded at 2"},
        {kBmp, "1e03 0041 00", "41 at 5"},  // an odd last octet is ignored
        {kBmp, "3e80 04020041 04020042 0000", "41 42 at 12"},
        {kUcs, "0c024142", "TAG_MISMATCH recorded at 0", 1, 0, 28},
        // Handed an indefinite length while the tag read last was primitive, the readers
        // refuse it: measured as segments, the span (four octets) is longer than the content.
        {kOctets, prim, "BAD_LENGTH recorded at 0", 0, kIndef},
        {kChars, prim, "BAD_LENGTH recorded at 0", 0, kIndef, 12},
        {kBmp, prim, "BAD_LENGTH recorded at 0", 0, kIndef, 30},
        {kUcs, prim, "BAD_LENGTH recorded at 0", 0, kIndef, 28},
        // A bit string stays inside its allocation by its capacity test: a bare -17.
        {kBits, "03020080 0000", "TOO_LONG at 1", 0, kIndef},
        // With the constructed form the same octets are one segment and its end.
        {kOctets, prim, "6162 at 6", 0, kIndef, 0, RT_FLAG_CONSTRUCTED},
        // Open types: running into the end counts as read, the octets that exist come back.
        {kOpen, "0500 ff", "0500 at 2"}, {kOpen, "3080 020105 0000 ff", "30800201050000 at 7"},
        {kOpen, "0000", "BAD_VALUE at 2"}, {kOpen, "30050201", "BAD_VALUE at 2"},
        {kOpen, "3080 020105", "3080020105 at 5"},
        {kOpen, "3003020105 0500", "@0 3003020105 at 5", 1, 0, 0, kShare},
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
    EXPECT_EQ(xd_charstr(&n.c, &text, 0, 12, -3), RT_E_BAD_LENGTH);
    EXPECT_EQ(n.recorded(), RT_E_BAD_LENGTH);
    EXPECT_STREQ(text, "");
    // The explicit header clears the form flag, except in xd_enum; implicit reads keep it.
    Dec i("020105 0a0103 ff", RT_FLAG_CONSTRUCTED);
    ASN1INT v;
    EXPECT_EQ(xd_integer(&i.c, &v, 1, 0), 0);
    EXPECT_FALSE(i.constructed());
    i.c.flags |= RT_FLAG_CONSTRUCTED;
    EXPECT_EQ(xd_enum(&i.c, &v, 1, 0), 0);
    EXPECT_EQ(xd_integer(&i.c, &v, 0, 1), 0);
    EXPECT_TRUE(i.constructed());
    // A header cut short is recorded, and the length handed in is used.
    Dec h("04");
    int st = -1;
    const std::string empty = readValue(h, kOctetsS, st, 1, 0, 4);
    EXPECT_EQ(outcome(h, st, empty), "recorded END_OF_BUFFER at 1");
}

TEST(BerDecodeValue, ExtensionLists)
{
    // Content of a SEQUENCE: two known elements ahead of the extension, then two more.
    const std::string content = "020105 0101ff a1020500 0403616263";
    const auto valueHex = [](const Asn1RTDListNode* node) {
        const auto* v = static_cast<const ASN1OpenType*>(node->data);
        return toHex(v->data, v->numocts);
    };
    const struct { ASN1UINT start; ASN1TAG stop; int status; ASN1UINT count, at; const char* last; } cases[] = {
        {6, 0xffffffffu, 0, 2, 15, "0403616263"},
        {0, 0x04, 0, 3, 10, "A1020500"},                   // the stop tag ends it, the cursor on that tag
        {0, 0x06, RT_E_END_OF_BUFFER, 4, 15, "0403616263"},  // a stop tag that never comes: recorded
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.stop);
        Dec d(content);
        d.c.bufIndex = t.start;
        Asn1RTDList list;
        rtDListInit(&list);
        ASN1DecodeBlock block{0, (ASN1INT)d.size()};
        EXPECT_EQ(xd_OpenTypeExt(&d.c, &block, t.stop, &list), t.status);
        EXPECT_EQ(d.recorded(), t.status);
        ASSERT_EQ(list.count, t.count);
        EXPECT_EQ(d.at(), t.at);
        EXPECT_EQ(valueHex(list.tail), t.last);
        EXPECT_EQ(valueHex(list.head->next), t.start ? "0403616263" : "0101FF");
        EXPECT_EQ((char*)list.head->data, (char*)list.head + sizeof(Asn1RTDListNode)) << "node and value in one block";
    }
    // Indefinite content ends at two zero octets; a null list only skips.
    Dec d("020105 0500 0000");
    ASN1DecodeBlock block{0, kIndef};
    ASSERT_EQ(xd_OpenTypeExt(&d.c, &block, 0xffffffffu, nullptr), 0);
    EXPECT_EQ(d.at(), 5u);
    Dec e("0000");
    Asn1RTDList list;
    rtDListInit(&list);
    EXPECT_EQ(xd_OpenTypeAppend(&e.c, &list), RT_E_BAD_VALUE);
    EXPECT_EQ(e.recorded(), RT_E_BAD_VALUE);
}

// ---- Deep nesting ----------------------------------------------------------------------

TEST(BerDecodeDepth, HundredThousandIndefiniteLevels)
{
    bertest::LastErrorUntouched platformState;
    const int levels = 100000;
    std::vector<uint8_t> msg;
    for (int i = 0; i < levels; ++i)
        msg.insert(msg.end(), {0x30, 0x80});
    msg.insert(msg.end(), {0x05, 0x00});
    msg.resize(msg.size() + 2 * levels, 0x00);

    EXPECT_EQ(xd_indeflen_ex(msg.data(), (int)msg.size()), (int)msg.size());
    ASN1CTXT c;
    ASSERT_EQ(rtInitContext(&c, nullptr), 0);
    ASSERT_EQ(xd_setp(&c, msg.data(), (int)msg.size(), nullptr, nullptr), 0);
    EXPECT_EQ(xd_NextElement(&c), 0);
    EXPECT_EQ(c.bufIndex, msg.size());

    // Values and headers only: the same elements, the same way back.
    int len = 0;
    for (asn1rt::BerWalkMode mode : {asn1rt::kWalkKeepValues, asn1rt::kWalkStructure}) {
        asn1rt::BerWalk walk;
        ASSERT_EQ(asn1rt::berWalk(&c, msg.data(), (int)msg.size(), walk, mode), 0);
        EXPECT_EQ(walk.count, (ASN1UINT)levels + 1);
        EXPECT_EQ(walk.maxDepth, (ASN1UINT)levels);
        EXPECT_EQ(walk.consumed, msg.size());
        EXPECT_EQ(walk.nodes[0].lastChild, (ASN1UINT)levels);
        const int back = asn1rt::berWriteBack(&c, walk);
        ASSERT_GT(back, 0);
        EXPECT_EQ(xe_getp(&c)[back - 2], 0x05);
        EXPECT_EQ(back, len ? len : back);
        len = back;
    }
    rtFreeContext(&c);
}
