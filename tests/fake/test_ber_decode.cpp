// BER reading: tables of hex vectors per family, each with the exact status, whether the
// status reached the error block, the value read and where the cursor stands after.
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

using bertest::Dec;
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

}  // namespace

// ---- Lengths ---------------------------------------------------------------------------

struct LenCase {
    const char* name;
    std::string in;
    ASN1USINT flags;
    int status;
    int length;     // when status is 0
    ASN1UINT at;    // cursor after
};

TEST(BerDecodeLength, Table)
{
    const LenCase cases[] = {
        {"short form", "05", 0, 0, 5, 1},
        {"short form is not checked against the buffer", "7f", 0, 0, 127, 1},
        {"indefinite", "80", 0, 0, kIndef, 1},
        {"one length octet", "8180" + repeat("00", 128), 0, 0, 128, 2},
        {"two length octets", "820100" + repeat("00", 256), 0, 0, 256, 3},
        {"four length octets", "8400000003" + repeat("00", 3), 0, 0, 3, 5},
        {"length beyond the buffer", "8105", 0, RT_E_BAD_LENGTH, 0, 2},
        {"beyond the buffer with lengths unchecked", "8105", kUnchecked, 0, 5, 2},
        {"five length octets", "850000000001", 0, RT_E_BAD_LENGTH, 0, 1},
        {"0xff", "ff", 0, RT_E_BAD_LENGTH, 0, 1},
        {"FF FF D8 F1 reads as indefinite", "84ffffd8f1", 0, 0, kIndef, 5},
        {"negative", "8480000000", 0, RT_E_BAD_LENGTH, 0, 5},
        {"negative with lengths unchecked", "8480000000", kUnchecked, 0, INT_MIN, 5},
        {"length octets cut short", "8201", 0, RT_E_END_OF_BUFFER, 0, 2},
        {"no octet at all", "", 0, RT_E_END_OF_BUFFER, 0, 0},
    };
    for (const LenCase& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in, t.flags);
        int len = -1;
        EXPECT_EQ(xd_len(&d.c, &len), t.status);
        EXPECT_EQ(d.recorded(), t.status) << "every failure of xd_len reaches the error block";
        if (t.status == 0) {
            EXPECT_EQ(len, t.length);
        }
        EXPECT_EQ(d.at(), t.at);
    }
}

// ---- Tags ------------------------------------------------------------------------------

struct TagCase {
    const char* name;
    std::string in;
    int status;
    ASN1TAG tag;
    int length;
    ASN1UINT at;  // with RT_MATCH_ADVANCE
};

TEST(BerDecodeTag, TagLenTable)
{
    const TagCase cases[] = {
        {"universal constructed SEQUENCE", "3003020105", 0, 0x20000010, 3, 2},
        {"universal primitive INTEGER", "020105", 0, 0x00000002, 1, 2},
        {"context constructed [2]", "a200", 0, 0xa0000002, 0, 2},
        {"application primitive [1]", "4100", 0, 0x40000001, 0, 2},
        {"private constructed [3]", "e300", 0, 0xe0000003, 0, 2},
        {"long form 31", "1f1f00", 0, 31, 0, 3},
        {"long form context [128]", "bf810000", 0, 0xa0000080, 0, 4},
        {"largest number", "1f81ffffff7f00", 0, 0x1fffffff, 0, 7},
        {"nine number octets", "1f" + repeat("80", 8) + "0100", 0, 1, 0, 11},
        {"number past 0x1fffffff", "1f828080800000", RT_E_BAD_TAG, 0, 0, 6},
        {"tenth number octet", "1f" + repeat("80", 9) + "0100", RT_E_BAD_TAG, 0, 0, 10},
        {"long length", "048180" + repeat("00", 128), 0, 4, 128, 3},
        {"indefinite constructed", "308000", 0, 0x20000010, kIndef, 2},
        {"indefinite primitive", "048000", RT_E_BAD_LENGTH, 4, 0, 2},
        {"no length octet", "30", RT_E_END_OF_BUFFER, 0x20000010, 0, 1},
        {"identifier cut short", "1f81", RT_E_END_OF_BUFFER, 0, 0, 2},
        {"empty", "", RT_E_END_OF_BUFFER, 0, 0, 0},
        {"bad long length", "3085", RT_E_BAD_LENGTH, 0x20000010, 0, 2},
    };
    for (const TagCase& t : cases) {
        SCOPED_TRACE(t.name);
        {
            Dec d(t.in);
            ASN1TAG tag = 0;
            int len = -1;
            EXPECT_EQ(xd_tag_len(&d.c, &tag, &len, RT_MATCH_ADVANCE), t.status);
            if (t.status == 0) {
                EXPECT_EQ(tag, t.tag);
                EXPECT_EQ(len, t.length);
                EXPECT_EQ(d.constructed(), (t.tag & TM_CONS) != 0);
            }
            EXPECT_EQ(d.at(), t.at);
            // Only xd_len's own failures are recorded.
            bool fromLen = t.status == RT_E_BAD_LENGTH && std::string(t.name) == "bad long length";
            EXPECT_EQ(d.recorded(), fromLen ? t.status : 0);
        }
        {
            // A peek leaves cursor and flags alone, also on -21; only the indefinite
            // primitive returns at once with the cursor behind the length.
            Dec d(t.in, RT_FLAG_CONSTRUCTED);
            ASN1TAG tag = 0;
            int len = -1;
            EXPECT_EQ(xd_tag_len(&d.c, &tag, &len, 0), t.status);
            if (std::string(t.name) == "indefinite primitive") {
                EXPECT_EQ(d.at(), 2u);
            } else {
                EXPECT_EQ(d.at(), 0u);
                EXPECT_TRUE(d.constructed());
            }
        }
    }
}

TEST(BerDecodeTag, EndFlagsAndTheBareTagReader)
{
    Dec d("3000", RT_FLAG_INDEF_TOP | RT_FLAG_LAST_EOC);
    ASN1TAG tag;
    int len;
    EXPECT_EQ(xd_tag_len(&d.c, &tag, &len, RT_MATCH_ADVANCE), RT_E_END_OF_BUFFER);
    EXPECT_EQ(xd_Tag1AndLen(&d.c, &len), RT_E_END_OF_BUFFER);

    Dec e("1f" + repeat("80", 9) + "01");
    EXPECT_EQ(xd_tag(&e.c, &tag), RT_E_BAD_TAG);
    EXPECT_NE(e.at(), 0u) << "xd_tag does not roll back";

    Dec f("bf8100");
    EXPECT_EQ(xd_tag(&f.c, &tag), 0);
    EXPECT_EQ(tag, 0xa0000080u);
    EXPECT_EQ(f.at(), 3u);
    Dec g("bf81");
    EXPECT_EQ(xd_tag(&g.c, &tag), RT_E_END_OF_BUFFER);
}

// ---- Attaching a message ---------------------------------------------------------------

TEST(BerDecodeSetp, OuterElement)
{
    struct Case {
        const char* name;
        std::string in;
        int size;  // -1: the octets given
        ASN1USINT flags;
        int status;
        ASN1TAG tag;
        int length;
        ASN1UINT bufSize;
        bool indefTop;
    };
    const Case cases[] = {
        {"definite", "3003020105", -1, 0, 0, 0x20000010, 5, 5, false},
        {"trailing octets stay outside", "3003020105ffff", -1, 0, 0, 0x20000010, 5, 5, false},
        {"outer length past the size", "30050201", -1, 0, RT_E_BAD_LENGTH, 0, 0, 4, false},
        {"outer long length past the size", "308105020105", -1, 0, RT_E_BAD_LENGTH, 0, 0, 0, false},
        {"indefinite", "3080020105 0000", -1, 0, 0, 0x20000010, kIndef, 7, true},
        {"size unknown", "3003020105", 0, 0, 0, 0x20000010, 5, 5, false},
        {"unchecked: size kept", "3082010002", -1, kUnchecked, 0, 0x20000010, 260, 5, false},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        std::vector<uint8_t> msg = hex(t.in);
        ASN1CTXT c;
        ASSERT_EQ(rtInitContext(&c, nullptr), 0);
        c.flags = (ASN1USINT)(t.flags | RT_FLAG_LAST_EOC);
        ASN1TAG tag = 0;
        int len = 0;
        int size = t.size < 0 ? (int)msg.size() : t.size;
        EXPECT_EQ(xd_setp(&c, msg.data(), size, &tag, &len), t.status);
        EXPECT_EQ(c.bufIndex, 0u);
        EXPECT_EQ(c.flags & RT_FLAG_LAST_EOC, 0);
        if (t.status == 0) {
            EXPECT_EQ(tag, t.tag);
            EXPECT_EQ(len, t.length);
            EXPECT_EQ(c.bufSize, t.bufSize);
            EXPECT_EQ((c.flags & RT_FLAG_INDEF_TOP) != 0, t.indefTop);
        }
        rtFreeContext(&c);
    }
}

// ---- Matching --------------------------------------------------------------------------

// SEQUENCE { INTEGER 5, [1] { OCTET STRING "abc" } }
const char* const kSeq = "300a020105a105040361 6263";

TEST(BerDecodeMatch, Modes)
{
    struct Case {
        const char* name;
        ASN1UINT start;
        ASN1TAG tag;
        int mode;
        int status;
        int length;
        ASN1UINT at;
    };
    const int seek = RT_MATCH_SEEK, adv = RT_MATCH_ADVANCE, skip = RT_MATCH_SKIP_FIRST;
    const Case cases[] = {
        {"match, cursor stays", 0, 0x20000010, 0, 0, 10, 0},
        {"form bit ignored", 0, 0x10, 0, 0, 10, 0},
        {"match with advance", 0, 0x20000010, adv, 0, 10, 2},
        {"mismatch restores", 0, 2, 0, RT_E_TAG_MISMATCH, 0, 0},
        {"seek descends", 0, 4, seek, 0, 3, 7},
        {"seek with advance", 0, 4, seek | adv, 0, 3, 9},
        {"seek that finds nothing", 0, 5, seek, RT_E_TAG_MISMATCH, 0, 0},
        {"skip first enters a constructed element", 0, 2, seek | skip, 0, 1, 2},
        {"skip first steps over a primitive one", 2, 0xa0000001, seek | skip, 0, 5, 5},
        {"skip first, then nothing found", 2, 2, seek | skip, RT_E_TAG_MISMATCH, 0, 5},
        {"skip first at the end", 12, 2, skip, RT_E_TAG_MISMATCH, 0, 12},
        {"at the end", 12, 2, 0, RT_E_TAG_MISMATCH, 0, 12},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(kSeq);
        d.c.bufIndex = t.start;
        int len = -1;
        EXPECT_EQ(xd_match(&d.c, t.tag, &len, t.mode), t.status);
        if (t.status == 0) {
            EXPECT_EQ(len, t.length);
        }
        EXPECT_EQ(d.at(), t.at);
        EXPECT_EQ(d.recorded(), 0);
    }
    Dec d(kSeq);
    EXPECT_EQ(xd_match(&d.c, 0x20000010, nullptr, adv), 0) << "length out may be null";
}

TEST(BerDecodeMatch, OneOctetForm)
{
    struct Case {
        const char* name;
        std::string in;
        ASN1OCTET id;
        bool wantLength;
        int status;
        bool recorded;
        int length;
        ASN1UINT at;
        bool constructed;
    };
    const Case cases[] = {
        {"SEQUENCE", "3003020105", 0x30, true, 0, false, 3, 2, true},
        {"primitive form passes the mask", "1003020105", 0x30, true, 0, false, 3, 2, false},
        {"constructed OCTET STRING for 4", "2480", 0x04, true, 0, false, kIndef, 2, true},
        {"mismatch", "3100", 0x30, true, RT_E_TAG_MISMATCH, true, 0, 0, false},
        {"indefinite primitive", "0480", 0x04, true, RT_E_BAD_LENGTH, true, 0, 2, false},
        {"indefinite primitive without length out", "0480", 0x04, false, 0, false, 0, 2, false},
        {"no length octet", "30", 0x30, true, RT_E_END_OF_BUFFER, false, 0, 1, true},
        {"empty", "", 0x30, true, RT_E_END_OF_BUFFER, false, 0, 0, false},
        {"bad long length", "3085", 0x30, true, RT_E_BAD_LENGTH, true, 0, 2, true},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        int len = -1;
        EXPECT_EQ(xd_match1(&d.c, t.id, t.wantLength ? &len : nullptr), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (t.status == 0 && t.wantLength) {
            EXPECT_EQ(len, t.length);
        }
        EXPECT_EQ(d.at(), t.at);
        if (t.status != RT_E_TAG_MISMATCH && !t.in.empty()) {
            EXPECT_EQ(d.constructed(), t.constructed);
        }
    }

    Dec e("a003020105");
    int len = 0;
    EXPECT_EQ(xd_Tag1AndLen(&e.c, &len), 0);
    EXPECT_EQ(len, 3);
    EXPECT_EQ(e.at(), 2u);
    EXPECT_TRUE(e.constructed());
}

// ---- Navigation ------------------------------------------------------------------------

// Four elements: INTEGER, empty OCTET STRING, empty indefinite SEQUENCE, NULL.
const char* const kFour = "020105 0400 30800000 0500";

TEST(BerDecodeNavigation, CountNextElementAndEndOfContents)
{
    {
        Dec d(kFour);
        int n = -1;
        EXPECT_EQ(xd_count(&d.c, 11, &n), 0);
        EXPECT_EQ(n, 4);
        EXPECT_EQ(d.at(), 0u) << "counting consumes nothing";
        EXPECT_EQ(xd_count(&d.c, 5, &n), 0);
        EXPECT_EQ(n, 2);
    }
    {
        Dec d(std::string(kFour) + "0000 ff");
        int n = -1;
        EXPECT_EQ(xd_count(&d.c, kIndef, &n), 0);
        EXPECT_EQ(n, 4);
        EXPECT_EQ(d.at(), 0u);
    }
    {
        // A failing step returns at once and leaves the cursor where it failed.
        Dec d("020105 1f" + repeat("80", 9) + "01");
        int n = 99;
        EXPECT_EQ(xd_count(&d.c, 30, &n), RT_E_BAD_TAG);
        EXPECT_EQ(n, 99);
        EXPECT_EQ(d.at(), 13u);
    }
    {
        Dec d(kFour);
        EXPECT_EQ(xd_NextElement(&d.c), 0);
        EXPECT_EQ(d.at(), 3u);
        EXPECT_EQ(xd_NextElement(&d.c), 0);
        EXPECT_EQ(xd_NextElement(&d.c), 0);
        EXPECT_EQ(d.at(), 9u) << "an indefinite element is left behind its end-of-contents";
        EXPECT_EQ(xd_NextElement(&d.c), 0);
        EXPECT_EQ(xd_NextElement(&d.c), RT_E_END_OF_BUFFER);
    }
    {
        Dec d("3080 3080 0000 020105 0000 ff");
        d.c.bufIndex = 2;
        EXPECT_EQ(xd_MovePastEOC(&d.c), 0);
        EXPECT_EQ(d.at(), 11u);
    }
    {
        Dec d("3080 3080 0000 020105");
        d.c.bufIndex = 2;
        EXPECT_EQ(xd_MovePastEOC(&d.c), RT_E_END_OF_BUFFER);
    }
}

TEST(BerDecodeNavigation, ConstructedStringMeasure)
{
    struct Case {
        const char* name;
        std::string in;
        ASN1TAG number;
        int status;
        int content;
        int span;
    };
    const Case cases[] = {
        {"segments", "2480 0402 6162 0400 0401 63 0000", 4, 0, 3, 9},
        {"no segments", "2480 0000", 4, 0, 0, 0},
        {"end-of-contents segment with content", "2480 0001 aa 0000", 4, 0, 1, 3},
        {"constructed segment", "2480 2480 040161 0000 0000", 4, RT_E_BAD_TAG, 0, 0},
        {"wrong type", "2480 0302 0061 0000", 4, RT_E_BAD_TAG, 0, 0},
        {"no end", "2480 0402 6162", 4, RT_E_END_OF_BUFFER, 0, 0},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        d.c.bufIndex = 2;
        int content = -1, span = -1;
        EXPECT_EQ(xd_consStrIndefLenAndSize(&d.c, t.number, &content, &span), t.status);
        if (t.status == 0) {
            EXPECT_EQ(content, t.content);
            EXPECT_EQ(span, t.span);
            EXPECT_EQ(d.at(), 2u) << "nothing consumed";
        }
    }
}

TEST(BerDecodeNavigation, IndefiniteLengthOfAWholeElement)
{
    struct Case {
        const char* name;
        std::string in;
        int limit;  // -1: the octets given
        int result;
    };
    const Case cases[] = {
        {"nested", "3080 020105 3080 0000 0000 ffff", -1, 11},
        {"limit under 5", "30800000", -1, 0},
        {"definite", "3003020105", -1, RT_E_BAD_LENGTH},
        {"cut short", "3080 020105 00", -1, RT_E_END_OF_BUFFER},
        {"limit short of the end", "3080 020105 3080 0000 0000", 9, RT_E_END_OF_BUFFER},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        std::vector<uint8_t> msg = hex(t.in);
        EXPECT_EQ(xd_indeflen_ex(msg.data(), t.limit < 0 ? (int)msg.size() : t.limit), t.result);
    }
}

TEST(BerDecodeNavigation, SaveAndRestoreState)
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
}

TEST(BerDecodeNavigation, MemcpyStopsAtTheEnd)
{
    Dec d("010203");
    uint8_t out[4] = {};
    EXPECT_EQ(xd_memcpy(&d.c, out, 2), 0);
    EXPECT_EQ(out[1], 2);
    EXPECT_EQ(xd_memcpy(&d.c, out, 2), RT_E_END_OF_BUFFER);
    EXPECT_EQ(d.recorded(), 0);
    EXPECT_EQ(d.at(), 2u);
}

// ---- Integers --------------------------------------------------------------------------

struct IntCase {
    const char* name;
    std::string in;
    int tagging;
    int length;  // for implicit tagging
    int status;
    bool recorded;
    long long value;
    ASN1UINT at;
};

// Each case through one reader, starting from `initial`: its status, whether the error
// block has it, where the cursor stands, and on success what `onSuccess` checks.
template <typename T, size_t N, typename Read, typename Check>
void runIntCases(const IntCase (&cases)[N], ASN1USINT flags, T initial, Read read, Check onSuccess)
{
    for (const IntCase& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in, flags);
        T v = initial;
        EXPECT_EQ(read(&d.c, &v, t), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (t.status == 0)
            onSuccess(t, d, v);
        EXPECT_EQ(d.at(), t.at);
    }
}

TEST(BerDecodeInteger, Signed)
{
    const IntCase cases[] = {
        {"zero", "020100", 1, 0, 0, false, 0, 3},
        {"127", "02017f", 1, 0, 0, false, 127, 3},
        {"-128", "020180", 1, 0, 0, false, -128, 3},
        {"128", "02020080", 1, 0, 0, false, 128, 4},
        {"-129", "0202ff7f", 1, 0, 0, false, -129, 4},
        {"largest", "02047fffffff", 1, 0, 0, false, INT_MAX, 6},
        {"smallest", "020480000000", 1, 0, 0, false, INT_MIN, 6},
        {"long form length", "02810105", 1, 0, 0, false, 5, 4},
        {"five octets", "02050080000000", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
        {"empty", "0200", 1, 0, RT_E_BAD_LENGTH, true, 0, 2},
        {"wrong tag", "0a0105", 1, 0, RT_E_TAG_MISMATCH, true, 0, 0},
        {"constructed identifier", "220105", 1, 0, RT_E_TAG_MISMATCH, true, 0, 0},
        {"content past the end", "020201", 1, 0, RT_E_END_OF_BUFFER, true, 0, 2},
        {"identifier only", "02", 1, 0, RT_E_END_OF_BUFFER, true, 0, 1},
        {"implicit", "ff01", 0, 2, 0, false, -255, 2},
        {"implicit indefinite", "ff01", 0, kIndef, RT_E_INT_TOO_BIG, true, 0, 0},
    };
    runIntCases(
        cases, RT_FLAG_CONSTRUCTED, (ASN1INT)12345,
        [](ASN1CTXT* c, ASN1INT* v, const IntCase& t) { return xd_integer(c, v, t.tagging, t.length); },
        [](const IntCase& t, const Dec& d, ASN1INT v) {
            EXPECT_EQ(v, t.value);
            EXPECT_EQ(d.constructed(), t.tagging != 1) << "the explicit header clears the form flag";
        });
}

TEST(BerDecodeInteger, Unsigned)
{
    const IntCase cases[] = {
        {"zero", "020100", 1, 0, 0, false, 0, 3},
        {"no sign examined", "0204ffffffff", 1, 0, 0, false, 0xffffffffLL, 6},
        {"five octets, leading zero", "020500ffffffff", 1, 0, 0, false, 0xffffffffLL, 7},
        {"five octets, no leading zero", "02050100000000", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
        {"six octets", "0206000000000001", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
        {"empty gives 0", "0200", 1, 0, 0, false, 0, 2},
        {"content past the end is bare", "020201", 1, 0, RT_E_END_OF_BUFFER, false, 0, 3},
        {"wrong tag", "0a0101", 1, 0, RT_E_TAG_MISMATCH, true, 0, 0},
        {"implicit", "8001", 0, 2, 0, false, 0x8001, 2},
    };
    runIntCases(
        cases, 0, (ASN1UINT)777,
        [](ASN1CTXT* c, ASN1UINT* v, const IntCase& t) { return xd_unsigned(c, v, t.tagging, t.length); },
        [](const IntCase& t, const Dec&, ASN1UINT v) { EXPECT_EQ((long long)v, t.value); });
}

TEST(BerDecodeInteger, Uint16)
{
    const IntCase cases[] = {
        {"one octet", "020105", 1, 0, 0, false, 5, 3},
        {"two octets", "02020102", 1, 0, 0, false, 0x102, 4},
        {"three octets", "020300ffff", 1, 0, 0, false, 0xffff, 5},
        {"three octets, no leading zero", "0203010000", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
        {"four octets", "020400000001", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
        {"length 0 still takes one octet", "020007", 1, 0, 0, false, 7, 3},
        {"header needs three octets", "0201", 1, 0, RT_E_END_OF_BUFFER, true, 0, 0},
        {"no long form", "02810105", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
        {"wrong tag", "0a0105", 1, 0, RT_E_TAG_MISMATCH, true, 0, 0},
        {"second content octet missing", "020201", 1, 0, RT_E_END_OF_BUFFER, false, 0, 2},
        // The leading octet of three is judged before the two behind it are looked for.
        {"three octets cut short, no leading zero", "0500", 0, 3, RT_E_INT_TOO_BIG, true, 0, 0},
        {"three octets cut short, leading zero", "0005", 0, 3, RT_E_END_OF_BUFFER, false, 0, 0},
        {"implicit length 0", "09", 0, 0, 0, false, 9, 1},
    };
    runIntCases(
        cases, 0, (ASN1USINT)777,
        [](ASN1CTXT* c, ASN1USINT* v, const IntCase& t) { return xd_uint16(c, v, t.tagging, t.length); },
        [](const IntCase& t, const Dec&, ASN1USINT v) { EXPECT_EQ((long long)v, t.value); });
}

TEST(BerDecodeInteger, EnumBooleanNull)
{
    const IntCase enums[] = {
        {"value", "0a0103", 1, 0, 0, false, 3, 3},
        {"negative", "0a01ff", 1, 0, 0, false, -1, 3},
        {"wrong tag is bare", "020103", 1, 0, RT_E_TAG_MISMATCH, false, 0, 0},
        {"identifier only is bare", "0a", 1, 0, RT_E_END_OF_BUFFER, false, 0, 1},
        {"too long goes through the integer reader", "0a050000000001", 1, 0, RT_E_INT_TOO_BIG, true, 0, 2},
    };
    runIntCases(
        enums, RT_FLAG_CONSTRUCTED, (ASN1ENUM)99,
        [](ASN1CTXT* c, ASN1ENUM* v, const IntCase& t) { return xd_enum(c, v, t.tagging, t.length); },
        [](const IntCase& t, const Dec& d, ASN1ENUM v) {
            EXPECT_EQ(v, t.value);
            EXPECT_TRUE(d.constructed()) << "xd_enum leaves the form flag";
        });

    const IntCase booleans[] = {
        {"true", "0101ff", 1, 0, 0, false, 0xff, 3},
        {"any non-zero stays", "010105", 1, 0, 0, false, 5, 3},
        {"false", "010100", 1, 0, 0, false, 0, 3},
        {"two octets", "01020000", 1, 0, RT_E_BAD_LENGTH, true, 0, 2},
        {"wrong tag", "020100", 1, 0, RT_E_TAG_MISMATCH, true, 0, 0},
        {"content missing", "0101", 1, 0, RT_E_END_OF_BUFFER, true, 0, 2},
        {"implicit", "01", 0, 1, 0, false, 1, 1},
    };
    runIntCases(
        booleans, 0, (ASN1BOOL)0x42,
        [](ASN1CTXT* c, ASN1BOOL* v, const IntCase& t) { return xd_boolean(c, v, t.tagging, t.length); },
        [](const IntCase& t, const Dec&, ASN1BOOL v) { EXPECT_EQ(v, t.value); });

    const IntCase nulls[] = {
        {"explicit", "0500", 1, 0, 0, false, 0, 2},
        {"with content", "050100", 1, 0, RT_E_BAD_LENGTH, true, 0, 2},
        {"wrong tag", "0400", 1, 0, RT_E_TAG_MISMATCH, true, 0, 0},
        {"implicit reads nothing", "ffff", 0, 0, 0, false, 0, 0},
    };
    runIntCases(
        nulls, 0, 0, [](ASN1CTXT* c, int*, const IntCase& t) { return xd_null(c, t.tagging); },
        [](const IntCase&, const Dec&, int) {});
}

TEST(BerDecodeInteger, BigIntegerText)
{
    struct Case {
        const char* name;
        std::string in;
        int tagging;
        int length;
        int status;
        bool recorded;
        const char* text;
    };
    const Case cases[] = {
        {"leading zero before a top bit", "02020080", 1, 0, 0, false, "0x080"},
        {"all zeros", "0203000000", 1, 0, 0, false, "0x0"},
        {"one zero octet", "020100", 1, 0, 0, false, "0x0"},
        {"minus one", "0201ff", 1, 0, 0, false, "0xff"},
        {"leading zeros go", "0203000001", 1, 0, 0, false, "0x01"},
        {"negative", "0202ff7f", 1, 0, 0, false, "0xff7f"},
        {"long", "020900" + repeat("ab", 8), 1, 0, 0, false, "0x0abababababababab"},
        {"empty content", "", 0, 0, 0, false, "0x0"},
        {"content past the end is bare", "02050102", 1, 0, RT_E_END_OF_BUFFER, false, nullptr},
        {"wrong tag is recorded", "0a0101", 1, 0, RT_E_TAG_MISMATCH, true, nullptr},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        const char* text = nullptr;
        EXPECT_EQ(xd_bigint(&d.c, &text, t.tagging, t.length), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (t.text) {
            ASSERT_NE(text, nullptr);
            EXPECT_STREQ(text, t.text);
            EXPECT_EQ(d.at(), d.size());
        }
    }
}

// ---- Object identifiers ----------------------------------------------------------------

TEST(BerDecodeObjId, Arcs)
{
    struct Case {
        const char* name;
        std::string in;
        int status;
        bool recorded;
        std::vector<ASN1UINT> arcs;
    };
    std::string arcs127 = repeat("01", 127);
    std::vector<ASN1UINT> expect128 = {1, 2};
    expect128.insert(expect128.end(), 126, 1);
    std::vector<ASN1UINT> expect128b = {1, 2};
    expect128b.insert(expect128b.end(), 126, 1);
    const Case cases[] = {
        {"1.2.840", "06032a8648", 0, false, {1, 2, 840}},
        {"joint arc 80", "060150", 0, false, {2, 0}},
        {"2.999", "06028837", 0, false, {2, 999}},
        {"0.39", "060127", 0, false, {0, 39}},
        {"32-bit arc", "06062a8fffffff7f", 0, false, {1, 2, 0xffffffffu}},
        {"arc of more than 32 bits wraps", "06072a908080808001", 0, false, {1, 2, 1}},
        {"unterminated last arc", "06022a86", 0, false, {1, 2, 6}},
        {"128 arcs", "067f2a" + repeat("01", 126), 0, false, expect128},
        {"129 arcs stop at 128", "0681802a" + arcs127, RT_E_BAD_OBJID, false, expect128b},
        {"empty", "0600", RT_E_BAD_LENGTH, true, {}},
        {"content past the end", "06052a", RT_E_END_OF_BUFFER, true, {}},
        {"wrong tag", "04012a", RT_E_TAG_MISMATCH, true, {}},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        ASN1OBJID oid;
        oid.numids = 7777;
        EXPECT_EQ(xd_objid(&d.c, &oid, 1, 0), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (!t.arcs.empty()) {
            ASSERT_EQ(oid.numids, t.arcs.size());
            EXPECT_EQ(std::vector<ASN1UINT>(oid.subid, oid.subid + oid.numids), t.arcs);
        }
    }
}

// ---- Octet strings ---------------------------------------------------------------------

struct StrCase {
    const char* name;
    std::string in;
    ASN1USINT flags;
    int status;
    bool recorded;
    std::string value;  // hex
    ASN1UINT at;
};

TEST(BerDecodeOctetString, Forms)
{
    const StrCase cases[] = {
        {"primitive", "0403616263", 0, 0, false, "616263", 5},
        {"empty", "0400", 0, 0, false, "", 2},
        {"constructed definite", "2409 04026162 0403636465", 0, 0, false, "6162636465", 11},
        {"constructed indefinite", "2480 04026162 0400 040163 0000", 0, 0, false, "616263", 13},
        {"constructed indefinite, no segments", "2480 0000", 0, 0, false, "", 4},
        {"nested constructed segment, definite", "2406 2404 04026162", 0, RT_E_TAG_MISMATCH, true, "", 0},
        {"nested constructed segment, indefinite", "2480 2480 040161 0000 0000", 0, RT_E_BAD_TAG, true, "", 0},
        {"segments shorter than the length", "2405 04026162", 0, RT_E_BAD_LENGTH, true, "", 0},
        {"indefinite primitive", "0480 0000", 0, RT_E_BAD_LENGTH, true, "", 0},
        {"content past the end", "0405 6162", 0, RT_E_END_OF_BUFFER, true, "", 0},
        {"wrong tag", "0301 00", 0, RT_E_TAG_MISMATCH, true, "", 0},
    };
    for (const StrCase& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in, t.flags);
        const ASN1OCTET* data = nullptr;
        ASN1UINT n = 999;
        EXPECT_EQ(xd_octstr(&d.c, &data, &n, 1, 0), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (t.status == 0) {
            EXPECT_EQ(toHex(data, n), bertest::norm(t.value));
            EXPECT_EQ(d.at(), t.at);
        }
    }
}

TEST(BerDecodeOctetString, SharedInputPointsIntoTheMessage)
{
    Dec d("0403616263", kShare);
    const ASN1OCTET* data = nullptr;
    ASN1UINT n = 0;
    ASSERT_EQ(xd_octstr(&d.c, &data, &n, 1, 0), 0);
    EXPECT_EQ(data, d.data() + 2);
    EXPECT_EQ(n, 3u);

    Dec e("0405616263", kShare);
    EXPECT_EQ(xd_octstr(&e.c, &data, &n, 1, 0), RT_E_END_OF_BUFFER);

    // Constructed values are still copied.
    Dec f("2480 04026162 0000", kShare);
    ASSERT_EQ(xd_octstr(&f.c, &data, &n, 1, 0), 0);
    EXPECT_EQ(toHex(data, n), "6162");
    EXPECT_TRUE(data < f.data() || data >= f.data() + f.size());
}

TEST(BerDecodeOctetString, IntoACallersArray)
{
    struct Case {
        const char* name;
        std::string in;
        int tagging;  // implicit: the caller has read the two-octet header
        ASN1UINT capacity;
        int status;
        std::string value;
    };
    const Case cases[] = {
        {"fits exactly", "0403616263", 1, 3, 0, "616263"},
        {"too long", "0403616263", 1, 2, RT_E_TOO_LONG, ""},
        {"explicit demands the primitive identifier", "2405 0403616263", 1, 8, RT_E_TAG_MISMATCH, ""},
        {"constructed", "2409 04026162 0403636465", 0, 9, 0, "6162636465"},
        {"constructed length above the capacity", "2409 04026162 0403636465", 0, 8, RT_E_TOO_LONG, ""},
        // The last segment may claim the whole length, but not more than is left.
        {"segment past the destination", "240a 04056161616161 040a" + repeat("62", 10), 0, 10, RT_E_TOO_LONG,
         ""},
        {"constructed segment refused", "2406 2404 04026162", 0, 6, RT_E_TAG_MISMATCH, ""},
        {"segments past the length", "2403 04026162", 0, 3, RT_E_BAD_LENGTH, ""},
        {"indefinite is a bad length", "2480 04026162 0000", 0, 16, RT_E_BAD_LENGTH, ""},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        int length = 0;
        if (t.tagging != 1) {
            ASSERT_EQ(xd_tag_len(&d.c, nullptr, &length, RT_MATCH_ADVANCE), 0);
        }
        std::vector<uint8_t> dest(t.capacity, 0xcc);
        ASN1UINT n = t.capacity;
        EXPECT_EQ(xd_octstr_s(&d.c, dest.data(), &n, t.tagging, length), t.status);
        EXPECT_EQ(d.recorded(), t.status);
        if (t.status == 0) {
            EXPECT_EQ(toHex(dest.data(), n), bertest::norm(t.value));
        }
    }

    // A header cut short is recorded, and the length handed in is used.
    Dec d("04");
    uint8_t out[4];
    ASN1UINT n = 4;
    EXPECT_EQ(xd_octstr_s(&d.c, out, &n, 1, 0), 0);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(d.recorded(), RT_E_END_OF_BUFFER);
}

// ---- Bit strings -----------------------------------------------------------------------

TEST(BerDecodeBitString, Forms)
{
    struct Case {
        const char* name;
        std::string in;
        ASN1USINT flags;
        int status;
        bool recorded;
        ASN1UINT bits;
        std::string value;
    };
    const Case cases[] = {
        {"one bit", "03020780", 0, 0, false, 1, "80"},
        {"nine bits", "030307ff80", 0, 0, false, 9, "ff80"},
        {"whole octets", "030300abcd", 0, 0, false, 16, "abcd"},
        {"empty", "030100", 0, 0, false, 0, ""},
        {"no content", "0300", 0, 0, false, 0, ""},
        {"single octet must be zero", "030101", 0, RT_E_BAD_LENGTH, false, 0, ""},
        {"unused count 8", "030308ffff", 0, RT_E_BAD_VALUE, false, 0, ""},
        {"unused count 8, shared", "030308ffff", kShare, RT_E_BAD_VALUE, false, 0, ""},
        // Only the last segment's leading octet is the unused count; the first
        // segment's leading 00 stays in the data.
        {"constructed definite", "2308 0302000a 030204b0", 0, 0, false, 20, "000ab0"},
        {"constructed indefinite", "2380 0302000a 030204b0 0000", 0, 0, false, 20, "000ab0"},
        {"constructed, unused count over 7", "2304 030209ff", 0, RT_E_BAD_VALUE, true, 0, ""},
        {"constructed indefinite, no end", "2380 0302000a", 0, RT_E_END_OF_BUFFER, true, 0, ""},
        {"wrong tag", "040100", 0, RT_E_TAG_MISMATCH, true, 0, ""},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in, t.flags);
        const ASN1OCTET* data = nullptr;
        ASN1UINT bits = 999;
        EXPECT_EQ(xd_bitstr(&d.c, &data, &bits, 1, 0), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (t.status == 0) {
            EXPECT_EQ(bits, t.bits);
            EXPECT_EQ(toHex(data, (bits + 7) / 8), bertest::norm(t.value));
            EXPECT_EQ(d.at(), d.size());
            if (t.bits == 0) {
                EXPECT_EQ(data, nullptr);
            }
        }
    }

    Dec s("030307ff80", kShare);
    const ASN1OCTET* data = nullptr;
    ASN1UINT bits = 0;
    ASSERT_EQ(xd_bitstr(&s.c, &data, &bits, 1, 0), 0);
    EXPECT_EQ(data, s.data() + 3);
    EXPECT_EQ(bits, 9u);
}

TEST(BerDecodeBitString, IntoACallersArray)
{
    struct Case {
        const char* name;
        std::string in;
        int tagging;  // implicit: the caller has read the two-octet header
        ASN1UINT capacityBits;
        int status;
        bool recorded;
        ASN1UINT bits;
        std::string value;
    };
    const Case cases[] = {
        {"fits", "030300abcd", 1, 16, 0, false, 16, "abcd"},
        {"capacity rounds up to octets", "030300abcd", 1, 9, 0, false, 16, "abcd"},
        {"too long is bare", "030300abcd", 1, 8, RT_E_TOO_LONG, false, 0, ""},
        {"unused count over 7 is bare", "030209ff", 1, 8, RT_E_BAD_VALUE, false, 0, ""},
        {"empty", "0300", 1, 8, 0, false, 0, ""},
        {"explicit demands the primitive identifier", "2304 030200ff", 1, 8, RT_E_TAG_MISMATCH, true, 0, ""},
        {"constructed", "2308 0302000a 030204b0", 0, 24, 0, false, 20, "000ab0"},
        {"constructed segment too long is recorded", "2306 030400aabbcc", 0, 16, RT_E_TOO_LONG, true, 0, ""},
        // A segment that reaches the capacity plus one gives up its first octet as the
        // unused count.
        {"segment one past the capacity", "2304 030204f0", 0, 8, 0, false, 4, "f0"},
        {"constructed, length not met", "2305 030200ff", 0, 16, RT_E_BAD_LENGTH, true, 0, ""},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        int length = 0;
        if (t.tagging != 1) {
            ASSERT_EQ(xd_tag_len(&d.c, nullptr, &length, RT_MATCH_ADVANCE), 0);
        }
        std::vector<uint8_t> dest((t.capacityBits + 7) / 8, 0xcc);
        ASN1UINT bits = t.capacityBits;
        EXPECT_EQ(xd_bitstr_s(&d.c, dest.data(), &bits, t.tagging, length), t.status);
        EXPECT_EQ(d.recorded(), t.recorded ? t.status : 0);
        if (t.status == 0) {
            EXPECT_EQ(bits, t.bits);
            EXPECT_EQ(toHex(dest.data(), (bits + 7) / 8), bertest::norm(t.value));
        }
    }
}

// ---- Character strings -----------------------------------------------------------------

TEST(BerDecodeCharString, EightBit)
{
    struct Case {
        const char* name;
        std::string in;
        ASN1TAG tag;
        int status;
        const char* text;
    };
    const Case cases[] = {
        {"PrintableString", "13024142", 19, 0, "AB"},
        {"UTF8String", "0c03c3a978", 12, 0, "\xc3\xa9x"},
        {"IA5String", "1603612e62", 22, 0, "a.b"},
        {"UTCTime", "170d3235303130313030303030305a", 23, 0, "250101000000Z"},
        {"GeneralizedTime", "180f32303235303130313030303030305a", 24, 0, "20250101000000Z"},
        {"TeletexString", "1401e9", 20, 0, "\xe9"},
        {"VisibleString", "1a0141", 26, 0, "A"},
        {"NumericString", "12023132", 18, 0, "12"},
        {"empty", "0c00", 12, 0, ""},
        {"constructed, octet string segments", "3380 040141 040142 0000", 19, 0, "AB"},
        {"constructed definite", "3306 040141 040142", 19, 0, "AB"},
        {"wrong tag", "16024142", 19, RT_E_TAG_MISMATCH, nullptr},
        {"content past the end", "13054142", 19, RT_E_END_OF_BUFFER, nullptr},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        const char* text = nullptr;
        EXPECT_EQ(xd_charstr(&d.c, &text, 1, t.tag, 0), t.status);
        if (t.text) {
            ASSERT_NE(text, nullptr);
            EXPECT_STREQ(text, t.text);
            EXPECT_EQ(d.at(), d.size());
        } else {
            EXPECT_EQ(d.recorded(), t.status);
        }
    }
}

TEST(BerDecodeCharString, WideKinds)
{
    {
        Dec d("1e04 0041 043f");
        Asn116BitCharString s{};
        ASSERT_EQ(xd_16BitCharStr(&d.c, &s, 1, 30, 0), 0);
        ASSERT_EQ(s.nchars, 2u);
        EXPECT_EQ(s.data[0], 0x41);
        EXPECT_EQ(s.data[1], 0x43f);
    }
    {
        Dec d("1e03 0041 00");
        Asn116BitCharString s{};
        ASSERT_EQ(xd_16BitCharStr(&d.c, &s, 1, 30, 0), 0);
        EXPECT_EQ(s.nchars, 1u) << "an odd last octet is ignored";
        EXPECT_EQ(d.at(), 5u);
    }
    {
        Dec d("1e00");
        Asn116BitCharString s{5, reinterpret_cast<ASN1USINT*>(&d)};
        ASSERT_EQ(xd_16BitCharStr(&d.c, &s, 1, 30, 0), 0);
        EXPECT_EQ(s.nchars, 0u);
        EXPECT_EQ(s.data, nullptr);
    }
    {
        Dec d("3e80 04020041 04020042 0000");
        Asn116BitCharString s{};
        ASSERT_EQ(xd_16BitCharStr(&d.c, &s, 1, 30, 0), 0);
        ASSERT_EQ(s.nchars, 2u);
        EXPECT_EQ(s.data[1], 0x42);
        EXPECT_EQ(d.at(), d.size());
    }
    {
        Dec d("1c08 0001f600 00000041");
        Asn132BitCharString s{};
        ASSERT_EQ(xd_32BitCharStr(&d.c, &s, 1, 28, 0), 0);
        ASSERT_EQ(s.nchars, 2u);
        EXPECT_EQ(s.data[0], 0x1f600u);
        EXPECT_EQ(s.data[1], 0x41u);
    }
    {
        Dec d("0c024142");
        Asn132BitCharString s{};
        EXPECT_EQ(xd_32BitCharStr(&d.c, &s, 1, 28, 0), RT_E_TAG_MISMATCH);
        EXPECT_EQ(d.recorded(), RT_E_TAG_MISMATCH);
    }
}

TEST(BerDecodeCharString, IndefiniteLengthNeedsTheConstructedForm)
{
    // Handed an indefinite length while the tag read last was primitive, the readers refuse
    // it: measured as segments, the span (four octets) is longer than the content (two).
    const std::string in = "04026162 0000";
    {
        Dec d(in);
        const ASN1OCTET* data = nullptr;
        ASN1UINT n = 0;
        EXPECT_EQ(xd_octstr(&d.c, &data, &n, 0, kIndef), RT_E_BAD_LENGTH);
        EXPECT_EQ(d.recorded(), RT_E_BAD_LENGTH);
        EXPECT_EQ(d.at(), 0u);
    }
    {
        Dec d(in);
        const char* text = nullptr;
        EXPECT_EQ(xd_charstr(&d.c, &text, 0, 12, kIndef), RT_E_BAD_LENGTH);
        EXPECT_EQ(d.recorded(), RT_E_BAD_LENGTH);
    }
    {
        Dec d(in);
        Asn116BitCharString s{};
        EXPECT_EQ(xd_16BitCharStr(&d.c, &s, 0, 30, kIndef), RT_E_BAD_LENGTH);
        EXPECT_EQ(d.recorded(), RT_E_BAD_LENGTH);
    }
    {
        Dec d(in);
        Asn132BitCharString s{};
        EXPECT_EQ(xd_32BitCharStr(&d.c, &s, 0, 28, kIndef), RT_E_BAD_LENGTH);
        EXPECT_EQ(d.recorded(), RT_E_BAD_LENGTH);
    }
    {
        // A bit string stays inside its allocation by its capacity test: a bare -17.
        Dec d("03020080 0000");
        const ASN1OCTET* data = nullptr;
        ASN1UINT n = 0;
        EXPECT_EQ(xd_bitstr(&d.c, &data, &n, 0, kIndef), RT_E_TOO_LONG);
        EXPECT_EQ(d.recorded(), 0);
    }
    {
        // With the constructed form the same octets are one segment and its end.
        Dec d(in);
        d.c.flags |= RT_FLAG_CONSTRUCTED;
        const ASN1OCTET* data = nullptr;
        ASN1UINT n = 0;
        ASSERT_EQ(xd_octstr(&d.c, &data, &n, 0, kIndef), 0);
        EXPECT_EQ(toHex(data, n), "6162");
        EXPECT_EQ(d.at(), d.size());
    }
}

TEST(BerDecodeCharString, NegativeLengthStillStoresAnEmptyText)
{
    Dec d("41");
    const char* text = nullptr;
    EXPECT_EQ(xd_charstr(&d.c, &text, 0, 12, -3), RT_E_BAD_LENGTH);
    EXPECT_EQ(d.recorded(), RT_E_BAD_LENGTH);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "");
}

// ---- Open types ------------------------------------------------------------------------

TEST(BerDecodeOpenType, WholeElements)
{
    struct Case {
        const char* name;
        std::string in;
        int status;
        std::string value;
    };
    const Case cases[] = {
        {"definite", "3003020105 0500", 0, "3003020105"},
        {"primitive", "0500 ff", 0, "0500"},
        {"indefinite", "3080 020105 0000 ff", 0, "30800201050000"},
        {"end-of-contents alone", "0000", RT_E_BAD_VALUE, ""},
        {"definite length past the end", "30050201", RT_E_BAD_VALUE, ""},
        // Running into the end counts as read: the octets that exist come back.
        {"truncated indefinite", "3080 020105", 0, "3080020105"},
    };
    for (const Case& t : cases) {
        SCOPED_TRACE(t.name);
        Dec d(t.in);
        const ASN1OCTET* data = nullptr;
        ASN1UINT n = 0;
        EXPECT_EQ(xd_OpenType(&d.c, &data, &n), t.status);
        EXPECT_EQ(d.recorded(), 0);
        if (t.status == 0) {
            EXPECT_EQ(toHex(data, n), bertest::norm(t.value));
        }
    }

    Dec s("3003020105", kShare);
    const ASN1OCTET* data = nullptr;
    ASN1UINT n = 0;
    ASSERT_EQ(xd_OpenType(&s.c, &data, &n), 0);
    EXPECT_EQ(data, s.data());
    EXPECT_EQ(n, 5u);
}

TEST(BerDecodeOpenType, ExtensionLists)
{
    // Content of a SEQUENCE: two known elements ahead of the extension, then two more.
    const std::string content = "020105 0101ff a1020500 0403616263";
    {
        Dec d(content);
        d.c.bufIndex = 6;
        Asn1RTDList list;
        rtDListInit(&list);
        ASN1DecodeBlock block{0, (ASN1INT)d.size()};
        ASSERT_EQ(xd_OpenTypeExt(&d.c, &block, 0xffffffffu, &list), 0);
        ASSERT_EQ(list.count, 2u);
        auto* first = static_cast<ASN1OpenType*>(list.head->data);
        auto* second = static_cast<ASN1OpenType*>(list.tail->data);
        EXPECT_EQ(toHex(first->data, first->numocts), "A1020500");
        EXPECT_EQ(toHex(second->data, second->numocts), "0403616263");
        EXPECT_EQ((char*)first, (char*)list.head + sizeof(Asn1RTDListNode)) << "node and value in one block";
    }
    {
        // A stop tag ends the collection with the cursor on it.
        Dec d(content);
        Asn1RTDList list;
        rtDListInit(&list);
        ASN1DecodeBlock block{0, (ASN1INT)d.size()};
        ASSERT_EQ(xd_OpenTypeExt(&d.c, &block, 0x04, &list), 0);
        EXPECT_EQ(list.count, 3u);
        EXPECT_EQ(d.at(), 10u);
    }
    {
        // A stop tag that never comes: the end of the content is an error here.
        Dec d(content);
        Asn1RTDList list;
        rtDListInit(&list);
        ASN1DecodeBlock block{0, (ASN1INT)d.size()};
        EXPECT_EQ(xd_OpenTypeExt(&d.c, &block, 0x06, &list), RT_E_END_OF_BUFFER);
        EXPECT_EQ(d.recorded(), RT_E_END_OF_BUFFER);
        EXPECT_EQ(list.count, 4u);
    }
    {
        // Indefinite content ends at two zero octets; a null list only skips.
        Dec d("020105 0500 0000");
        ASN1DecodeBlock block{0, kIndef};
        ASSERT_EQ(xd_OpenTypeExt(&d.c, &block, 0xffffffffu, nullptr), 0);
        EXPECT_EQ(d.at(), 5u);
    }
    {
        Dec d("0000");
        Asn1RTDList list;
        rtDListInit(&list);
        EXPECT_EQ(xd_OpenTypeAppend(&d.c, &list), RT_E_BAD_VALUE);
        EXPECT_EQ(d.recorded(), RT_E_BAD_VALUE);
    }
}

// ---- Deep nesting ----------------------------------------------------------------------

TEST(BerDecodeDepth, HundredThousandIndefiniteLevels)
{
    bertest::LastErrorUntouched platformState;
    const int levels = 100000;
    std::vector<uint8_t> msg;
    msg.reserve(levels * 4 + 3);
    for (int i = 0; i < levels; ++i) {
        msg.push_back(0x30);
        msg.push_back(0x80);
    }
    msg.push_back(0x05);
    msg.push_back(0x00);
    for (int i = 0; i < levels; ++i) {
        msg.push_back(0x00);
        msg.push_back(0x00);
    }

    EXPECT_EQ(xd_indeflen_ex(msg.data(), (int)msg.size()), (int)msg.size());

    ASN1CTXT c;
    ASSERT_EQ(rtInitContext(&c, nullptr), 0);
    ASSERT_EQ(xd_setp(&c, msg.data(), (int)msg.size(), nullptr, nullptr), 0);
    EXPECT_EQ(xd_NextElement(&c), 0);
    EXPECT_EQ(c.bufIndex, msg.size());

    asn1rt::BerWalk walk;
    ASSERT_EQ(asn1rt::berWalk(&c, msg.data(), (int)msg.size(), walk), 0);
    EXPECT_EQ(walk.count, (ASN1UINT)levels + 1);
    EXPECT_EQ(walk.maxDepth, (ASN1UINT)levels);
    EXPECT_EQ(walk.consumed, msg.size());
    int len = asn1rt::berWriteBack(&c, walk);
    ASSERT_GT(len, 0);
    EXPECT_EQ(xe_getp(&c)[len - 2], 0x05);

    // Headers only: the same elements, the same way back.
    asn1rt::BerWalk headers;
    ASSERT_EQ(asn1rt::berWalk(&c, msg.data(), (int)msg.size(), headers, asn1rt::kWalkStructure), 0);
    EXPECT_EQ(headers.count, (ASN1UINT)levels + 1);
    EXPECT_EQ(headers.maxDepth, (ASN1UINT)levels);
    EXPECT_EQ(headers.consumed, msg.size());
    EXPECT_EQ(headers.nodes[0].lastChild, (ASN1UINT)levels);
    EXPECT_EQ(asn1rt::berWriteBack(&c, headers), len);
    rtFreeContext(&c);
}
