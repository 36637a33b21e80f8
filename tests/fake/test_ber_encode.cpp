// BER writing: each xe_ primitive against its expected octets, the backward buffer with
// its growth and its static limit, and the DER order of SET OF members.
#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "asn1rt/bigint.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

using bertest::Enc;
using bertest::norm;
using testsupport::hex;
using testsupport::toHex;

namespace {

constexpr int kIndef = RT_INDEFINITE_LENGTH;

struct Expect {
    int result;
    std::string out;  // hex of everything written
};

void check(const Enc& e, int result, const Expect& want)
{
    EXPECT_EQ(result, want.result);
    EXPECT_EQ(e.out(), norm(want.out));
}

}  // namespace

TEST(BerEncodeHeader, Lengths)
{
    const struct {
        int length;
        Expect want;
    } cases[] = {
        {0, {1, "00"}},
        {127, {1, "7f"}},
        {128, {2, "8180"}},
        {255, {2, "81ff"}},
        {256, {3, "820100"}},
        {65536, {4, "83010000"}},
        {INT_MAX, {5, "847fffffff"}},
        {kIndef, {1, "80"}},
        {-5, {0, ""}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.length);
        Enc e;
        check(e, xe_len(&e.c, t.length), t.want);
    }
}

TEST(BerEncodeHeader, Tags)
{
    const struct {
        ASN1TAG tag;
        Expect want;
    } cases[] = {
        {0x02, {1, "02"}},
        {0x20000010, {1, "30"}},
        {0x20000011, {1, "31"}},
        {0xa0000002, {1, "a2"}},
        {0x80000000, {1, "80"}},
        {0x40000001, {1, "41"}},
        {0x1e, {1, "1e"}},
        {0x1f, {2, "1f1f"}},
        {0x9f, {3, "1f811f"}},  // class bits clear, number 159
        {0xa0000080, {3, "bf8100"}},
        {0xe000007f, {2, "ff7f"}},
        {0x1fffffff, {6, "1f81ffffff7f"}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.tag);
        Enc e;
        check(e, xe_tag(&e.c, t.tag), t.want);
    }
}

TEST(BerEncodeHeader, TagAndLength)
{
    {
        Enc e;
        const uint8_t content[] = {2, 1, 5};
        ASSERT_EQ(xe_memcpy(&e.c, content, 3), 3);
        check(e, xe_tag_len(&e.c, 0x20000010, 3), {5, "3003020105"});
    }
    {
        Enc e;
        check(e, xe_tag_len(&e.c, 0x20000010, kIndef), {2, "3080"});
    }
    {
        Enc e;
        check(e, xe_tag_len(&e.c, 0x04, 0), {2, "0400"});
    }
    {
        // A failed inner encoder passes straight through, and nothing is written.
        Enc e;
        check(e, xe_tag_len(&e.c, 0x20000010, RT_E_BAD_VALUE), {RT_E_BAD_VALUE, ""});
    }
}

TEST(BerEncodeHeader, Identifiers)
{
    const struct {
        ASN1UINT value;
        Expect want;
    } cases[] = {
        {0, {1, "00"}},
        {127, {1, "7f"}},
        {128, {2, "8100"}},
        {840, {2, "8648"}},
        {113549, {3, "86f70d"}},
        {0xffffffffu, {5, "8fffffff7f"}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.value);
        Enc e;
        check(e, xe_identifier(&e.c, t.value), t.want);
    }
}

TEST(BerEncodeValue, Integers)
{
    const struct {
        ASN1INT value;
        Expect want;
    } cases[] = {
        {0, {3, "020100"}},
        {127, {3, "02017f"}},
        {128, {4, "02020080"}},
        {256, {4, "02020100"}},
        {-1, {3, "0201ff"}},
        {-128, {3, "020180"}},
        {-129, {4, "0202ff7f"}},
        {INT_MAX, {6, "02047fffffff"}},
        {INT_MIN, {6, "020480000000"}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.value);
        Enc e;
        check(e, xe_integer(&e.c, &t.value, 1), t.want);
        Enc i;
        check(i, xe_integer(&i.c, &t.value, 0), {t.want.result - 2, t.want.out.substr(4)});
    }
    Enc e;
    EXPECT_EQ(xe_integer(&e.c, nullptr, 1), RT_E_BAD_VALUE);

    const struct {
        ASN1UINT value;
        Expect want;
    } unsignedCases[] = {
        {0, {3, "020100"}},
        {0x7f, {3, "02017f"}},
        {0x80, {4, "02020080"}},
        {256, {4, "02020100"}},
        {0xffffffffu, {7, "020500ffffffff"}},
    };
    for (const auto& t : unsignedCases) {
        SCOPED_TRACE(t.value);
        Enc u;
        check(u, xe_unsigned(&u.c, &t.value, 1), t.want);
    }
    EXPECT_EQ(xe_unsigned(&e.c, nullptr, 1), RT_E_BAD_VALUE);

    const struct {
        ASN1USINT value;
        Expect want;
    } shortCases[] = {
        {5, {3, "020105"}},
        {0x80, {4, "02020080"}},
        {0x1234, {4, "02021234"}},
        {0xffff, {5, "020300ffff"}},
    };
    for (const auto& t : shortCases) {
        SCOPED_TRACE(t.value);
        Enc u;
        check(u, xe_uint16(&u.c, &t.value, 1), t.want);
    }

    const ASN1ENUM three = 3, minusOne = -1;
    Enc en;
    check(en, xe_enum(&en.c, &three, 1), {3, "0a0103"});
    Enc en2;
    check(en2, xe_enum(&en2.c, &minusOne, 0), {1, "ff"});
    EXPECT_EQ(xe_enum(&en2.c, nullptr, 1), RT_E_BAD_VALUE);
}

TEST(BerEncodeValue, BooleanAndNull)
{
    const ASN1BOOL five = 5, zero = 0;
    Enc t;
    check(t, xe_boolean(&t.c, &five, 1), {3, "0101ff"});
    Enc f;
    check(f, xe_boolean(&f.c, &zero, 1), {3, "010100"});
    Enc i;
    check(i, xe_boolean(&i.c, &five, 0), {1, "ff"});
    EXPECT_EQ(xe_boolean(&i.c, nullptr, 1), RT_E_BAD_VALUE);

    Enc n;
    check(n, xe_null(&n.c, 1), {2, "0500"});
    Enc m;
    check(m, xe_null(&m.c, 0), {0, ""});
}

TEST(BerEncodeValue, BigIntegers)
{
    const struct {
        const char* text;
        Expect want;
    } cases[] = {
        {"0", {3, "020100"}},
        {"0x0", {3, "020100"}},
        {"0x00ff", {4, "020200ff"}},
        {"0xff", {3, "0201ff"}},  // the number -1
        {"0xffff", {3, "0201ff"}},
        {"0xff7f", {4, "0202ff7f"}},
        {"0x80", {3, "020180"}},  // whole octets with the top bit: negative
        {"0x080", {4, "02020080"}},
        {"0x123", {4, "02020123"}},  // partial top octet, no pad
        {"0xAbCd", {4, "0202abcd"}},
        {"0x0123456789", {7, "02050123456789"}},
        {"0x0abababababababab", {11, "020900abababababababab"}},
        {"0b101", {3, "020105"}},
        {"0b10000000", {3, "020180"}},
        {"0b010000000", {4, "02020080"}},
        {"255", {4, "020200ff"}},
        {"-129", {4, "0202ff7f"}},
        {"12345678901234567890", {11, "020900ab54a98ceb1f0ad2"}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.text);
        Enc e;
        check(e, xe_bigint(&e.c, t.text, 1), t.want);
        EXPECT_EQ(e.c.errInfo.status, 0);
    }
    const struct {
        const char* text;
    } bad[] = {{nullptr}, {""}, {"0xg1"}, {"0x1g"}, {"0b12"}};
    for (const auto& t : bad) {
        SCOPED_TRACE(t.text ? t.text : "(null)");
        Enc e;
        EXPECT_EQ(xe_bigint(&e.c, t.text, 1), RT_E_BAD_VALUE);
        EXPECT_EQ(e.c.errInfo.status, RT_E_BAD_VALUE) << "recorded";
    }
}

namespace {

size_t heapBlocks(ASN1CTXT& c)
{
    size_t n = 0;
    for (const RtMemBlock* b = static_cast<const RtMemHeap*>(c.typeHeap)->head; b; b = b->next)
        ++n;
    return n;
}

}  // namespace

TEST(BerEncodeValue, BigIntegersPastTheLocalStorage)
{
    // 10^1499 needs 623 octets, more than the 512 kept on the stack: the record grows on
    // the type heap, and that block goes back whether the write succeeds or not.
    const std::string decimal = "1" + std::string(1499, '0');
    {
        Enc e;
        const size_t before = heapBlocks(e.c);
        ASSERT_EQ(xe_bigint(&e.c, decimal.c_str(), 1), 4 + 623);
        EXPECT_EQ(heapBlocks(e.c), before);
        EXPECT_EQ(e.c.errInfo.status, 0);
        EXPECT_EQ(e.out().substr(0, 12), norm("0282026f0be0")) << "tag, long length 623, top octet";

        bertest::Dec d(e.out());
        const char* text = nullptr;
        ASSERT_EQ(xd_bigint(&d.c, &text, 1, 0), 0);
        EXPECT_EQ(rtBigIntStrCompare(&d.c, text, decimal.c_str()), 0);
    }
    {
        Enc e(8, true);
        const size_t before = heapBlocks(e.c);
        EXPECT_EQ(xe_bigint(&e.c, decimal.c_str(), 1), RT_E_BUFFER_FULL);
        EXPECT_EQ(e.c.errInfo.status, RT_E_BUFFER_FULL) << "recorded";
        EXPECT_EQ(heapBlocks(e.c), before) << "the grown record is given back";
    }
    {
        const std::string bad = decimal + "z";
        Enc e;
        const size_t before = heapBlocks(e.c);
        EXPECT_EQ(xe_bigint(&e.c, bad.c_str(), 1), RT_E_BAD_VALUE);
        EXPECT_EQ(e.c.errInfo.status, RT_E_BAD_VALUE);
        EXPECT_EQ(heapBlocks(e.c), before);
        EXPECT_EQ(e.out(), "") << "nothing written";
    }
}

TEST(BerEncodeValue, BigIntegerTextsComeBackFromTheReader)
{
    const char* const encodings[] = {"020100", "02017f", "020180", "02020080", "0202ff7f", "020900ffffffffffffffff",
                                     "020880000000000000ff", "02050123456789"};
    for (const char* h : encodings) {
        SCOPED_TRACE(h);
        bertest::Dec d(h);
        const char* text = nullptr;
        ASSERT_EQ(xd_bigint(&d.c, &text, 1, 0), 0);
        Enc e;
        EXPECT_EQ(xe_bigint(&e.c, text, 1), (int)hex(h).size());
        EXPECT_EQ(e.out(), norm(h));
    }
}

TEST(BerEncodeValue, Strings)
{
    const uint8_t abc[] = {'a', 'b', 'c'};
    Enc o;
    check(o, xe_octstr(&o.c, abc, 3, 1), {5, "0403616263"});
    Enc o0;
    check(o0, xe_octstr(&o0.c, abc, 0, 1), {2, "0400"});
    Enc on;
    check(on, xe_octstr(&on.c, nullptr, 5, 1), {2, "0400"});
    Enc oi;
    check(oi, xe_octstr(&oi.c, abc, 3, 0), {3, "616263"});

    const uint8_t bits[] = {0xff, 0x80};
    const uint8_t whole[] = {0xab, 0xcd};
    Enc b0;
    check(b0, xe_bitstr(&b0.c, nullptr, 0, 1), {3, "030100"});
    Enc b9;
    check(b9, xe_bitstr(&b9.c, bits, 9, 1), {5, "030307ff80"});
    Enc b16;
    check(b16, xe_bitstr(&b16.c, whole, 16, 1), {5, "030300abcd"});
    Enc b1;
    check(b1, xe_bitstr(&b1.c, bits, 1, 1), {4, "030207ff"});  // unused bits as they stand
    Enc bn;
    check(bn, xe_bitstr(&bn.c, nullptr, 5, 1), {0, ""});

    Enc c;
    check(c, xe_charstr(&c.c, "AB", 1, 19), {4, "13024142"});
    Enc c0;
    check(c0, xe_charstr(&c0.c, "", 1, 12), {2, "0c00"});
    Enc ci;
    check(ci, xe_charstr(&ci.c, "AB", 0, 19), {2, "4142"});
    EXPECT_EQ(xe_charstr(&ci.c, nullptr, 1, 19), RT_E_BAD_VALUE);

    ASN1USINT wide[] = {0x41, 0x43f};
    Asn116BitCharString s16{2, wide};
    Enc w;
    check(w, xe_16BitCharStr(&w.c, &s16, 1, 30), {6, "1e040041043f"});
    Asn116BitCharString empty16{0, nullptr};
    Enc w0;
    check(w0, xe_16BitCharStr(&w0.c, &empty16, 1, 30), {2, "1e00"});
    Enc w0i;
    check(w0i, xe_16BitCharStr(&w0i.c, &empty16, 0, 30), {0, ""});
    EXPECT_EQ(xe_16BitCharStr(&w0i.c, nullptr, 1, 30), RT_E_BAD_VALUE);

    ASN1UINT quad[] = {0x1f600, 0x41};
    Asn132BitCharString s32{2, quad};
    Enc q;
    check(q, xe_32BitCharStr(&q.c, &s32, 1, 28), {10, "1c080001f60000000041"});
    EXPECT_EQ(xe_32BitCharStr(&q.c, nullptr, 1, 28), RT_E_BAD_VALUE);
}

TEST(BerEncodeValue, ObjectIdentifiers)
{
    const struct {
        std::vector<ASN1UINT> arcs;
        Expect want;
    } cases[] = {
        {{1, 2, 840}, {5, "06032a8648"}},
        {{1, 2, 840, 113549}, {8, "06062a864886f70d"}},
        {{2, 999}, {4, "06028837"}},
        {{2, 40}, {3, "060178"}},
        {{0, 39}, {3, "060127"}},
        {{1, 2, 0xffffffffu}, {8, "06062a8fffffff7f"}},
        {{2, 0xffffffffu}, {3, "06014f"}},  // 2 * 40 + second arc, in 32 bits
        {{1}, {RT_E_BAD_OBJID, ""}},
        {{3, 1}, {RT_E_BAD_OBJID, ""}},
        {{1, 40}, {RT_E_BAD_OBJID, ""}},
        {{0, 40}, {RT_E_BAD_OBJID, ""}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.arcs.size());
        ASN1OBJID oid{};
        oid.numids = (ASN1UINT)t.arcs.size();
        std::copy(t.arcs.begin(), t.arcs.end(), oid.subid);
        Enc e;
        check(e, xe_objid(&e.c, &oid, 1), t.want);
    }
    Enc e;
    EXPECT_EQ(xe_objid(&e.c, nullptr, 1), RT_E_BAD_OBJID);
    ASN1OBJID many{};
    many.numids = 129;
    EXPECT_EQ(xe_objid(&e.c, &many, 1), RT_E_BAD_OBJID);
}

TEST(BerEncodeValue, OpenTypes)
{
    const struct {
        const char* name;
        std::string data;
        Expect want;
    } cases[] = {
        {"definite", "3003020105", {5, "3003020105"}},
        {"only the first element", "3003020105 0500", {5, "3003020105"}},
        {"indefinite", "3080 020105 0000 ffff", {7, "30800201050000"}},
        {"primitive", "0500", {2, "0500"}},
        {"end-of-contents", "0000", {RT_E_BAD_VALUE, ""}},
        {"outer length past the count", "30050201", {RT_E_BAD_LENGTH, ""}},
        {"indefinite with no end", "3080 020105", {RT_E_END_OF_BUFFER, ""}},
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.name);
        std::vector<uint8_t> data = hex(t.data);
        Enc e;
        check(e, xe_OpenType(&e.c, data.data(), (ASN1UINT)data.size()), t.want);
    }
    Enc e;
    const uint8_t one = 5;
    check(e, xe_OpenType(&e.c, &one, 0), {0, ""});
    EXPECT_EQ(xe_OpenType(&e.c, nullptr, 3), RT_E_BAD_VALUE);

    // A value that already stands at the cursor is not copied again.
    const ASN1INT five = 5;
    ASSERT_EQ(xe_integer(&e.c, &five, 1), 3);
    EXPECT_EQ(xe_OpenType(&e.c, xe_getp(&e.c), 3), 3);
    EXPECT_EQ(e.out(), "020105");
}

TEST(BerEncodeValue, OpenTypeLists)
{
    ASN1CTXT c;
    ASSERT_EQ(rtInitContext(&c, nullptr), 0);
    Asn1RTDList list;
    rtDListInit(&list);
    std::vector<uint8_t> a = hex("020105"), b = hex("0403616263");
    ASN1OpenType va{(ASN1UINT)a.size(), a.data()}, vb{(ASN1UINT)b.size(), b.data()};
    ASSERT_NE(rtDListAppend(&c, &list, &va), nullptr);
    ASSERT_NE(rtDListAppend(&c, &list, &vb), nullptr);
    ASSERT_NE(rtDListAppend(&c, &list, nullptr), nullptr);
    {
        Enc e;
        check(e, xe_OpenTypeExt(&e.c, &list), {8, "0201050403616263"});
        EXPECT_EQ(xe_OpenTypeExt(&e.c, nullptr), 0);
    }
    {
        std::vector<uint8_t> bad = hex("0000");
        ASN1OpenType vbad{2, bad.data()};
        ASSERT_NE(rtDListAppend(&c, &list, &vbad), nullptr);
        Enc e;
        EXPECT_EQ(xe_OpenTypeExt(&e.c, &list), RT_E_BAD_VALUE);
        EXPECT_EQ(e.c.errInfo.status, RT_E_BAD_VALUE) << "recorded";
    }
    rtFreeContext(&c);
}

// ---- The buffer --------------------------------------------------------------------------

TEST(BerEncodeBuffer, StaticBufferOfNHoldsNMinusOne)
{
    for (int n : {1, 2, 8, 100}) {
        SCOPED_TRACE(n);
        Enc e(n, true);
        std::vector<uint8_t> fill((size_t)n - 1, 0x11);
        if (n > 1) {
            ASSERT_EQ(xe_memcpy(&e.c, fill.data(), n - 1), n - 1);
        }
        EXPECT_EQ(e.c.bufIndex, 0u);
        const uint8_t more = 0x22;
        EXPECT_EQ(xe_memcpy(&e.c, &more, 1), RT_E_BUFFER_FULL);
        EXPECT_EQ(xe_len(&e.c, 5), RT_E_BUFFER_FULL);
        EXPECT_EQ(e.used(), (ASN1UINT)n - 1) << "nothing more written";
        EXPECT_EQ(xe_expandBuffer(&e.c, 1), RT_E_BUFFER_FULL);
    }
    {
        Enc e(8, true);
        std::vector<uint8_t> eight(8, 0x33);
        EXPECT_EQ(xe_memcpy(&e.c, eight.data(), 8), RT_E_BUFFER_FULL);
        EXPECT_EQ(xe_bigint(&e.c, "0x01020304050607", 0), 7);
        EXPECT_EQ(xe_bigint(&e.c, "0x01", 0), RT_E_BUFFER_FULL);
    }
    {
        // A decimal text wants two octets to spare beyond its own: 2^40 - 1 takes six
        // octets, which a room of seven holds only through the direct path.
        Enc tight(8, true);
        EXPECT_EQ(xe_bigint(&tight.c, "1099511627775", 0), RT_E_BUFFER_FULL);
        EXPECT_EQ(tight.c.errInfo.status, RT_E_BUFFER_FULL) << "recorded";
        EXPECT_EQ(tight.used(), 0u);
        EXPECT_EQ(xe_bigint(&tight.c, "0x00ffffffffff", 0), 6);
        Enc roomy(9, true);
        EXPECT_EQ(xe_bigint(&roomy.c, "1099511627775", 0), 6);
        EXPECT_EQ(roomy.out(), norm("00ffffffffff"));
    }
    {
        uint8_t none[1];
        ASN1CTXT c;
        ASSERT_EQ(rtInitContext(&c, nullptr), 0);
        ASSERT_EQ(xe_setp(&c, none, 0), 0);
        const uint8_t b = 1;
        EXPECT_EQ(xe_memcpy(&c, &b, 1), RT_E_BUFFER_FULL);
        rtFreeContext(&c);
    }
}

TEST(BerEncodeBuffer, GrowsLinearlyAndKeepsWhatWasWritten)
{
    bertest::LastErrorUntouched platformState;
    Enc e(16);
    EXPECT_EQ(e.c.bufSize, 16u);
    EXPECT_EQ(e.c.bufIndex, 15u);
    EXPECT_EQ(e.c.bufDynamic, 1);

    const ASN1INT first = 0x1234;
    ASSERT_EQ(xe_integer(&e.c, &first, 1), 4);
    Asn1BufLocDescr where;
    xe_getBufLocDescr(&e.c, 4, &where);
    EXPECT_EQ(where.numocts, 4u);
    EXPECT_EQ(where.offset, 4u);

    // 5000 INTEGERs of three octets each, growing the buffer several times.
    std::vector<ASN1UINT> sizes;
    int total = 4;
    for (ASN1INT i = 0; i < 5000; ++i) {
        ASN1INT v = i % 100;
        int r = xe_integer(&e.c, &v, 1);
        ASSERT_EQ(r, 3);
        total += r;
        if (sizes.empty() || sizes.back() != e.c.bufSize)
            sizes.push_back(e.c.bufSize);
    }
    ASSERT_GE(sizes.size(), 2u);
    for (size_t k = 1; k < sizes.size(); ++k)
        EXPECT_GE(sizes[k] - sizes[k - 1], 16384u) << "at least one default step";
    EXPECT_EQ(sizes[1], 16u + 16384u) << "linear, not geometric";
    EXPECT_EQ(e.used(), (ASN1UINT)total);

    // The location record still finds the first value after the moves.
    const ASN1OCTET* firstValue = e.c.bufData + (e.c.bufSize - 1 - where.offset);
    EXPECT_EQ(toHex(firstValue, where.numocts), "02021234");

    // Read back: 5000 small INTEGERs, then the first one.
    ASSERT_GT(xe_tag_len(&e.c, 0x20000010, total), 0);
    bertest::Dec d(e.out());
    int len = 0;
    ASSERT_EQ(xd_match1(&d.c, 0x30, &len), 0);
    for (ASN1INT i = 0; i < 5000; ++i) {
        ASN1INT v = -1;
        ASSERT_EQ(xd_integer(&d.c, &v, 1, 0), 0);
        ASSERT_EQ(v, (4999 - i) % 100) << i;
    }
    ASN1INT v = 0;
    ASSERT_EQ(xd_integer(&d.c, &v, 1, 0), 0);
    EXPECT_EQ(v, 0x1234);

    // A large need takes one step of that size.
    ASN1UINT before = e.c.bufSize;
    ASSERT_EQ(xe_expandBuffer(&e.c, 40000), 0);
    EXPECT_EQ(e.c.bufSize, before + 40000);

    xe_free(&e.c);
    EXPECT_EQ(e.c.bufData, nullptr);
    EXPECT_EQ(e.c.bufDynamic, 0);
}

TEST(BerEncodeBuffer, DefaultDynamicSize)
{
    Enc e;
    EXPECT_EQ(e.c.bufSize, 16384u);
    EXPECT_EQ(e.c.bufIndex, 16383u);
    const uint8_t b = 7;
    EXPECT_EQ(xe_memcpy(&e.c, &b, 1), 1);
    EXPECT_EQ(xe_getp(&e.c), e.c.bufData + 16382);
    EXPECT_EQ(xe_memcpy(&e.c, nullptr, 1), RT_E_BAD_VALUE);

    // Filling the room to index 0 takes no growth.
    Enc small(16);
    std::vector<uint8_t> fifteen(15, 0x44);
    EXPECT_EQ(xe_memcpy(&small.c, fifteen.data(), 15), 15);
    EXPECT_EQ(small.c.bufIndex, 0u);
    EXPECT_EQ(small.c.bufSize, 16u);

    // A context that was never initialised passes the buffer's refusal on.
    ASN1CTXT raw;
    std::memset(&raw, 0, sizeof raw);
    EXPECT_EQ(xe_setp(&raw, nullptr, 0), RT_E_NOT_READY);
}

// ---- SET OF order ----------------------------------------------------------------------------

namespace {

// Writes members in the order given, as a generated SET OF encoder does (last member
// first), records each, sorts, and returns the octets of the members.
std::string sortedSet(const std::vector<std::string>& membersInWriteOrder, int* result = nullptr)
{
    Enc e;
    Asn1RTSList list;
    rtSListInitEx(&e.c, &list);
    for (const std::string& m : membersInWriteOrder) {
        std::vector<uint8_t> bytes = hex(m);
        int len = xe_memcpy(&e.c, bytes.data(), (int)bytes.size());
        EXPECT_EQ(len, (int)bytes.size());
        auto* rec = static_cast<Asn1BufLocDescr*>(rtMemHeapAlloc(&e.c.typeHeap, (int)sizeof(Asn1BufLocDescr)));
        xe_getBufLocDescr(&e.c, (ASN1UINT)len, rec);
        EXPECT_NE(rtSListAppend(&list, rec), nullptr);
    }
    int total = xe_derCanonicalSort(&e.c, &list);
    if (result)
        *result = total;
    EXPECT_EQ(list.count, 0u) << "records and nodes are given back";
    return e.out();
}

}  // namespace

TEST(BerEncodeSetOf, DerOrder)
{
    int total = 0;
    // Written 05 first, so 03 stands lower in the buffer already: no move needed.
    EXPECT_EQ(sortedSet({"020105", "020103"}, &total), norm("020103020105"));
    EXPECT_EQ(total, 6);
    EXPECT_EQ(sortedSet({"020103", "020105"}, &total), norm("020103020105"));
    // Of a value and its own prefix, the prefix comes first, whichever was written first.
    EXPECT_EQ(sortedSet({"aabb", "aa"}), norm("aaaabb"));
    EXPECT_EQ(sortedSet({"aa", "aabb"}), norm("aaaabb"));
    // Equal prefixes, different lengths, different tails.
    EXPECT_EQ(sortedSet({"0403616263", "0402 6162", "0403616262"}), norm("04026162 0403616262 0403616263"));
    // Equal values stay as they are.
    EXPECT_EQ(sortedSet({"0500", "0500", "0101ff"}), norm("0101ff 0500 0500"));
    EXPECT_EQ(sortedSet({}, &total), "");
    EXPECT_EQ(total, 0);
    EXPECT_EQ(sortedSet({"3100"}), "3100");
}

TEST(BerEncodeSetOf, ManyMembersMatchASortOfTheirOctets)
{
    std::vector<std::string> members;
    unsigned x = 12345;
    for (int i = 0; i < 60; ++i) {
        x = x * 1103515245u + 12345u;
        int n = 1 + (int)((x >> 16) % 4);
        std::string m;
        for (int k = 0; k < n; ++k) {
            x = x * 1103515245u + 12345u;
            m += toHex(std::vector<uint8_t>{(uint8_t)((x >> 16) % 3)}.data(), 1);
        }
        members.push_back(m);
    }
    std::vector<std::vector<uint8_t>> values;
    for (const std::string& m : members)
        values.push_back(hex(m));
    std::sort(values.begin(), values.end());
    std::string want;
    for (const auto& v : values)
        want += toHex(v.data(), v.size());
    EXPECT_EQ(sortedSet(members), want);
}

TEST(BerEncodeSetOf, WrappedInASetTag)
{
    Enc e;
    Asn1RTSList list;
    rtSListInitEx(&e.c, &list);
    for (ASN1INT v : {9, 1, 5}) {
        int len = xe_integer(&e.c, &v, 1);
        auto* rec = static_cast<Asn1BufLocDescr*>(rtMemHeapAlloc(&e.c.typeHeap, (int)sizeof(Asn1BufLocDescr)));
        xe_getBufLocDescr(&e.c, (ASN1UINT)len, rec);
        rtSListAppend(&list, rec);
    }
    int total = xe_derCanonicalSort(&e.c, &list);
    EXPECT_EQ(total, 9);
    EXPECT_EQ(xe_tag_len(&e.c, 0x20000011, total), 11);
    EXPECT_EQ(e.out(), norm("3109 020101 020105 020109"));
}

// ---- Refused allocations ---------------------------------------------------------------------

namespace {

// The runtime's heaps get nothing from the allocator while this lives.
class RefusingAllocator {
public:
    RefusingAllocator() : m_saved(g_malloc_func)
    {
        g_malloc_func = [](void*, size_t) -> void* { return nullptr; };
    }
    ~RefusingAllocator() { g_malloc_func = m_saved; }
    RefusingAllocator(const RefusingAllocator&) = delete;
    RefusingAllocator& operator=(const RefusingAllocator&) = delete;

private:
    rtMallocFunc m_saved;
};

}  // namespace

TEST(BerEncodeBuffer, RefusedGrowthKeepsTheOldBuffer)
{
    Enc e(16);
    const ASN1INT v = 0x1234;
    ASSERT_EQ(xe_integer(&e.c, &v, 1), 4);
    ASN1OCTET* const before = e.c.bufData;
    std::vector<uint8_t> big(40, 0x55);
    {
        RefusingAllocator refuse;
        EXPECT_EQ(xe_memcpy(&e.c, big.data(), (int)big.size()), RT_E_NO_MEMORY);
        EXPECT_EQ(xe_expandBuffer(&e.c, 1), RT_E_NO_MEMORY);
        EXPECT_EQ(xe_bigint(&e.c, "0x0102030405060708090a0b0c0d0e0f", 1), RT_E_NO_MEMORY);
    }
    EXPECT_EQ(e.c.bufData, before);
    EXPECT_EQ(e.c.bufSize, 16u);
    // The big integer's low octets went in before the room ran out: nothing is rolled back.
    EXPECT_EQ(e.out(), norm("05060708090a0b0c0d0e0f 0202 1234")) << "octets written stay";
    EXPECT_EQ(e.c.errInfo.status, RT_E_NO_MEMORY) << "only xe_bigint records";
    // With the allocator back, the same write grows the buffer.
    EXPECT_EQ(xe_memcpy(&e.c, big.data(), (int)big.size()), 40);
    EXPECT_EQ(e.c.bufSize, 16u + 16384u);
}

TEST(BerEncodeSetOf, RefusedScratchLeavesTheMembers)
{
    Enc e;
    Asn1RTSList list;
    rtSListInitEx(&e.c, &list);
    for (ASN1INT v : {1, 9}) {  // 09 ends up lower: the sort must move them
        int len = xe_integer(&e.c, &v, 1);
        auto* rec = static_cast<Asn1BufLocDescr*>(rtMemHeapAlloc(&e.c.typeHeap, (int)sizeof(Asn1BufLocDescr)));
        xe_getBufLocDescr(&e.c, (ASN1UINT)len, rec);
        ASSERT_NE(rtSListAppend(&list, rec), nullptr);
    }
    {
        RefusingAllocator refuse;
        EXPECT_EQ(xe_derCanonicalSort(&e.c, &list), RT_E_NO_MEMORY);
    }
    EXPECT_EQ(list.count, 2u) << "records and nodes stay";
    EXPECT_EQ(e.out(), norm("020109 020101")) << "octets unmoved";

    // Members already in order need no scratch area at all.
    Asn1RTSList ordered;
    rtSListInitEx(&e.c, &ordered);
    for (ASN1INT v : {9, 1}) {
        int len = xe_integer(&e.c, &v, 1);
        auto* rec = static_cast<Asn1BufLocDescr*>(rtMemHeapAlloc(&e.c.typeHeap, (int)sizeof(Asn1BufLocDescr)));
        xe_getBufLocDescr(&e.c, (ASN1UINT)len, rec);
        ASSERT_NE(rtSListAppend(&ordered, rec), nullptr);
    }
    RefusingAllocator refuse;
    EXPECT_EQ(xe_derCanonicalSort(&e.c, &ordered), 6);
    EXPECT_EQ(ordered.count, 0u);
}
