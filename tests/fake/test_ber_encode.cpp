// BER writing: each xe_ primitive against its octets (read back by its xd_ reader where the form is the
// one the reader gives), the backward buffer with its growth and static limit, and DER SET OF order.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "asn1rt/bigint.h"
#include "ber_test_util.h"
#include "ber_values_a.h"
#include "rt_alloc_counter.h"
#include "support/testsupport.h"

using bertest::Enc;
using bertest::norm;
using namespace bervalues;
using testsupport::hex;

namespace {

constexpr int kIndef = RT_INDEFINITE_LENGTH;

// A location record on the type heap for what was written last, as a SET OF encoder keeps.
void record(Enc& e, Asn1RTSList& list, int len)
{
    auto* rec = static_cast<Asn1BufLocDescr*>(rtMemHeapAlloc(&e.c.typeHeap, (int)sizeof(Asn1BufLocDescr)));
    xe_getBufLocDescr(&e.c, (ASN1UINT)len, rec);
    ASSERT_NE(rtSListAppend(&list, rec), nullptr);
}

size_t heapBlocks(ASN1CTXT& c) { return rttest::blocks(c.typeHeap).size(); }

}  // namespace

TEST(BerEncodeHeader, LengthsTagsAndIdentifiers)
{
    // 'L' xe_len, 'T' xe_tag, 'I' xe_identifier; each returns the octets it wrote.
    const struct { char fn; long long value; const char* out; } cases[] = {
        {'L', 0, "00"}, {'L', 127, "7f"}, {'L', 128, "8180"}, {'L', 256, "820100"}, {'L', INT_MAX, "847fffffff"},
        {'L', kIndef, "80"}, {'L', -5, ""}, {'T', 0x20000010, "30"}, {'T', 0xa0000002, "a2"}, {'T', 0x1e, "1e"},
        {'T', 0x1f, "1f1f"}, {'T', 0x9f, "1f811f"},  // class bits clear
        {'T', 0xa0000080, "bf8100"}, {'T', 0xe000007f, "ff7f"}, {'T', 0x1fffffff, "1f81ffffff7f"}, {'I', 0, "00"},
        {'I', 128, "8100"}, {'I', 113549, "86f70d"}, {'I', 0xffffffff, "8fffffff7f"},
    };
    for (const auto& t : cases) {
        Enc e;
        const int n = t.fn == 'L' ? xe_len(&e.c, (int)t.value) : t.fn == 'T' ? xe_tag(&e.c, (ASN1TAG)t.value) : xe_identifier(&e.c, (ASN1UINT)t.value);
        EXPECT_EQ(std::to_string(n) + " " + e.out(), std::to_string(norm(t.out).size() / 2) + " " + norm(t.out)) << t.fn << t.value;
    }
    // Tag and length together count the content; a failed inner encoder passes straight through.
    Enc e;
    ASSERT_EQ(xe_memcpy(&e.c, hex("020105").data(), 3), 3);
    EXPECT_EQ((std::vector<int>{xe_tag_len(&e.c, 0x20000010, 3), xe_tag_len(&e.c, 0x20000010, kIndef), xe_tag_len(&e.c, 0x04, 0)}),
              (std::vector<int>{5, 2, 2}));
    EXPECT_EQ(xe_tag_len(&e.c, 0x20000010, RT_E_BAD_VALUE), RT_E_BAD_VALUE);
    EXPECT_EQ(e.out(), norm("0400 3080 3003020105"));
}

TEST(BerEncodeValue, WrittenAndReadBack)
{
    bertest::LastErrorUntouched platformState;
    // The text of each value, as its reader gives it back unless `back` is false; tagging 0 writes the
    // content alone. A string's tag is the first octet's. Refusals name their status: those of big integer
    // texts are recorded, the rest not (an open type of end-of-contents, an outer length past the count,
    // an indefinite one with no end).
    const struct { Kind kind; const char* value; const char* out; int tagging = 1; bool back = true; } rows[] = {
        {kInt, "0", "020100"}, {kInt, "127", "02017f"}, {kInt, "128", "02020080"}, {kInt, "-128", "020180"},
        {kInt, "-129", "0202ff7f"}, {kInt, "2147483647", "02047fffffff"}, {kInt, "-2147483648", "020480000000"},
        {kInt, "128", "0080", 0}, {kUnsigned, "128", "02020080"}, {kUnsigned, "4294967295", "020500ffffffff"},
        {kUnsigned, "32769", "008001", 0}, {kUint16, "128", "02020080"}, {kUint16, "65535", "020300ffff"},
        {kEnum, "3", "0a0103"}, {kEnum, "-1", "ff", 0}, {kBool, "255", "0101ff"}, {kBool, "0", "010100"},
        {kBool, "5", "0101ff", 1, false} /* non-zero written as FF */, {kNull, "", "0500"}, {kNull, "", "", 0},
        // Big integers: the reader's hex text goes back the direct way, any other through a big integer record.
        {kBigInt, "0x0", "020100"}, {kBigInt, "0x80", "020180"}, {kBigInt, "0xff", "0201ff"},
        {kBigInt, "0xff7f", "0202ff7f"}, {kBigInt, "0x0123456789", "02050123456789"},
        {kBigInt, "0x80000000000000ff", "020880000000000000ff"}, {kBigInt, "0", "020100", 1, false},
        {kBigInt, "0x0ffffffffffffffff", "020900ffffffffffffffff"}, {kBigInt, "0x00ff", "020200ff", 1, false},
        {kBigInt, "0xffff", "0201ff", 1, false}, {kBigInt, "0x123", "02020123", 1, false},
        {kBigInt, "0xAbCd", "0202abcd", 1, false} /* partial top octet */, {kBigInt, "0b101", "020105", 1, false},
        {kBigInt, "0b010000000", "02020080", 1, false}, {kBigInt, "-129", "0202ff7f", 1, false},
        {kBigInt, "12345678901234567890", "020900ab54a98ceb1f0ad2", 1, false},
        {kObjId, "1.2.840.113549", "06062a864886f70d"}, {kObjId, "2.999", "06028837"}, {kObjId, "2.40", "060178"},
        {kObjId, "0.39", "060127"}, {kObjId, "1.2.4294967295", "06062a8fffffff7f"},
        {kObjId, "2.4294967295", "06014f", 1, false},  // 2 * 40 + second arc, in 32 bits
        {kOctets, "616263", "0403616263"}, {kOctets, "", "0400"}, {kOctets, "616263", "616263", 0},
        {kBits, "9:FF80", "030307ff80"}, {kBits, "0:", "030100"}, {kBits, "1:80", "03020780"},
        {kBits, "1:FF", "030207ff"},  // unused bits as they stand
        {kChars, "AB", "13024142"}, {kChars, "\xc3\xa9x", "0c03c3a978"}, {kChars, "", "0c00"}, {kChars, "AB", "4142", 0},
        {kBmp, "41 43f", "1e040041043f"}, {kBmp, "", "1e00"}, {kUcs, "1f600 41", "1c080001f60000000041"},
        {kOpen, "3003020105", "3003020105"}, {kOpen, "30800201050000", "30800201050000"},
        {kOpen, "3003020105 0500", "3003020105", 1, false}, {kOpen, "3080020105 0000 ffff", "30800201050000", 1, false},
        {kBigInt, "", "BAD_VALUE recorded", 1, false}, {kBigInt, "0xg1", "BAD_VALUE recorded", 1, false},
        {kBigInt, "0b12", "BAD_VALUE recorded", 1, false}, {kObjId, "1", "BAD_OBJID", 1, false},
        {kObjId, "3.1", "BAD_OBJID", 1, false}, {kObjId, "1.40", "BAD_OBJID", 1, false},
        {kOpen, "0000", "BAD_VALUE", 1, false}, {kOpen, "30050201", "BAD_LENGTH", 1, false},
        {kOpen, "3080020105", "END_OF_BUFFER", 1, false},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.value) + " as " + r.out);
        const bool refused = std::string(r.out).find('_') != std::string::npos;
        const std::vector<uint8_t> want = refused ? std::vector<uint8_t>() : hex(r.out);
        Enc e;
        const int st = writeValue(e, r.kind, r.value, r.tagging, want.empty() ? 0 : want[0] & 0x1f);
        const std::string recorded = e.c.errInfo.status ? " recorded" : "";
        EXPECT_EQ(st < 0 ? bertest::statusName(st) + recorded + e.out() : e.out() + recorded, refused ? r.out : norm(r.out));
        EXPECT_EQ(st, refused ? st : (int)want.size());
        bertest::Dec d(refused ? "" : r.out);
        int got = -999;
        const std::string value = readValue(d, r.kind, got, r.tagging, (int)want.size());
        const std::string at = "at " + std::to_string(want.size());
        if (r.back) {
            EXPECT_EQ(outcome(d, got, value), *r.value ? r.value + (" " + at) : at);
        }
    }
}

TEST(BerEncodeValue, MissingValues)
{
    // Missing values: a refusal, or nothing to write; a value already at the cursor is not copied again.
    Enc e;
    const uint8_t abc[] = {'a', 'b', 'c'};
    ASN1OBJID many{};
    many.numids = 129;
    for (int st : {xe_integer(&e.c, nullptr, 1), xe_unsigned(&e.c, nullptr, 1), xe_enum(&e.c, nullptr, 1),
                   xe_boolean(&e.c, nullptr, 1), xe_charstr(&e.c, nullptr, 1, 19), xe_OpenType(&e.c, nullptr, 3),
                   xe_16BitCharStr(&e.c, nullptr, 1, 30), xe_32BitCharStr(&e.c, nullptr, 1, 28),
                   xe_memcpy(&e.c, nullptr, 1), xe_bigint(&e.c, nullptr, 1)})
        EXPECT_EQ(st, RT_E_BAD_VALUE);
    EXPECT_EQ(xe_objid(&e.c, nullptr, 1) + xe_objid(&e.c, &many, 1), 2 * RT_E_BAD_OBJID);
    EXPECT_EQ((std::vector<int>{xe_bitstr(&e.c, nullptr, 5, 1), xe_OpenType(&e.c, abc, 0), xe_OpenTypeExt(&e.c, nullptr)}), (std::vector<int>(3, 0)));
    EXPECT_EQ((std::vector<int>{xe_octstr(&e.c, nullptr, 5, 1), xe_OpenType(&e.c, xe_getp(&e.c), 2)}), (std::vector<int>{2, 2}));
    EXPECT_EQ(e.out(), "0400");
}

TEST(BerEncodeValue, BigIntegersPastTheLocalStorageAndOpenTypeLists)
{
    // 10^1499 needs 623 octets, more than the 512 kept on the stack: the record grows on the type heap, and
    // that block goes back whether the write succeeds or not; only a written one reads back.
    const std::string decimal = "1" + std::string(1499, '0');
    Enc e, bad, full(8, true);
    const std::vector<size_t> before{heapBlocks(e.c), heapBlocks(bad.c), heapBlocks(full.c)};
    EXPECT_EQ(xe_bigint(&e.c, decimal.c_str(), 1), 4 + 623);
    EXPECT_EQ(xe_bigint(&bad.c, (decimal + "z").c_str(), 1) + xe_bigint(&full.c, decimal.c_str(), 1), RT_E_BAD_VALUE + RT_E_BUFFER_FULL);
    EXPECT_EQ(e.out().substr(0, 12) + bad.out(), "0282026F0BE0") << "tag, long length 623, top octet; nothing else";
    EXPECT_EQ(before, (std::vector<size_t>{heapBlocks(e.c), heapBlocks(bad.c), heapBlocks(full.c)}));
    EXPECT_EQ((std::vector<int>{e.c.errInfo.status, bad.c.errInfo.status, full.c.errInfo.status}),
              (std::vector<int>{0, RT_E_BAD_VALUE, RT_E_BUFFER_FULL}));
    bertest::Dec d(e.out());
    const char* back = nullptr;
    ASSERT_EQ(xd_bigint(&d.c, &back, 1, 0), 0);
    EXPECT_EQ(rtBigIntStrCompare(&d.c, back, decimal.c_str()), 0);
    // Lists of open types go out from the tail, a null entry skipped; a bad one is recorded.
    Asn1RTDList list;
    rtDListInit(&list);
    std::vector<uint8_t> a = hex("020105"), b = hex("0403616263"), eoc = hex("0000");
    ASN1OpenType va{3, a.data()}, vb{5, b.data()}, vbad{2, eoc.data()};
    for (ASN1OpenType* v : {&va, &vb, static_cast<ASN1OpenType*>(nullptr)})
        ASSERT_NE(rtDListAppend(&e.c, &list, v), nullptr);
    Enc l;
    EXPECT_EQ(xe_OpenTypeExt(&l.c, &list), 8);
    ASSERT_NE(rtDListAppend(&e.c, &list, &vbad), nullptr);
    EXPECT_EQ(xe_OpenTypeExt(&l.c, &list), RT_E_BAD_VALUE);
    EXPECT_EQ(l.out() + " " + bertest::statusName(l.c.errInfo.status), "0201050403616263 BAD_VALUE");
}

TEST(BerEncodeBuffer, StaticLimitGrowthAndRefusedGrowth)
{
    // A static buffer of n holds n - 1 octets, and nothing more is written.
    for (int n : {1, 2, 100}) {
        Enc e(n, true);
        std::vector<uint8_t> fill((size_t)n, 0x11);
        EXPECT_EQ(xe_memcpy(&e.c, fill.data(), n - 1), n - 1);
        for (int st : {xe_memcpy(&e.c, fill.data(), 1), xe_len(&e.c, 5), xe_expandBuffer(&e.c, 1)})
            EXPECT_EQ(st, RT_E_BUFFER_FULL) << n;
        EXPECT_EQ(e.c.bufIndex + e.used(), (ASN1UINT)n - 1);
    }
    // A decimal text wants two octets to spare beyond its own: 2^40 - 1 takes six octets, which a room of
    // seven holds only through the direct path; the refusal is recorded.
    Enc e(8, true), tight(8, true), roomy(9, true), grown(16);
    std::vector<uint8_t> big(40, 0x33);
    EXPECT_EQ((std::vector<int>{xe_memcpy(&e.c, big.data(), 8), xe_bigint(&e.c, "0x01020304050607", 0), xe_bigint(&e.c, "0x01", 0)}),
              (std::vector<int>{RT_E_BUFFER_FULL, 7, RT_E_BUFFER_FULL}));
    EXPECT_EQ(xe_bigint(&tight.c, "1099511627775", 0), RT_E_BUFFER_FULL);
    EXPECT_EQ(tight.c.errInfo.status + (int)tight.used(), RT_E_BUFFER_FULL);
    EXPECT_EQ(xe_bigint(&tight.c, "0x00ffffffffff", 0) + xe_bigint(&roomy.c, "1099511627775", 0), 12);
    EXPECT_EQ(roomy.out(), "00FFFFFFFFFF");
    // An empty static buffer, and a context that was never initialised.
    uint8_t none[1];
    bertest::Dec c("");
    ASN1CTXT raw{};
    ASSERT_EQ(xe_setp(&c.c, none, 0), 0);
    EXPECT_EQ(xe_memcpy(&c.c, none, 1), RT_E_BUFFER_FULL);
    EXPECT_EQ(xe_setp(&raw, nullptr, 0), RT_E_NOT_READY);
    // Refused growth keeps the old buffer; the big integer's low octets went in before the room ran out
    // (nothing is rolled back), and only xe_bigint records. With the allocator back the write grows it.
    const ASN1INT v = 0x1234;
    ASSERT_EQ(xe_integer(&grown.c, &v, 1), 4);
    ASN1OCTET* const old = grown.c.bufData;
    {
        bertest::RationedAllocator refuse;
        EXPECT_EQ((std::vector<int>{xe_memcpy(&grown.c, big.data(), 40), xe_expandBuffer(&grown.c, 1)}), (std::vector<int>(2, RT_E_NO_MEMORY)));
        EXPECT_EQ(xe_bigint(&grown.c, "0x0102030405060708090a0b0c0d0e0f", 1), RT_E_NO_MEMORY);
    }
    EXPECT_EQ(grown.c.bufData, old);
    EXPECT_EQ(grown.out() + " " + bertest::statusName(grown.c.errInfo.status), "05060708090A0B0C0D0E0F02021234 NO_MEMORY");
    EXPECT_EQ(xe_memcpy(&grown.c, big.data(), 40), 40);
    EXPECT_EQ(grown.c.bufSize, 16u + 16384u);
}

TEST(BerEncodeBuffer, GrowsLinearlyAndKeepsWhatWasWritten)
{
    bertest::LastErrorUntouched platformState;
    Enc e(16);
    const ASN1INT first = 0x1234;
    ASSERT_EQ(xe_integer(&e.c, &first, 1), 4);
    Asn1BufLocDescr where;
    xe_getBufLocDescr(&e.c, 4, &where);
    // Filling the room to index 0 takes no growth; 6000 INTEGERs of three octets grow the buffer twice,
    // linearly, and what was written stays, found by its location record after the moves.
    std::vector<uint8_t> eleven(11, 0x44);
    EXPECT_EQ(xe_memcpy(&e.c, eleven.data(), 11), 11);
    std::vector<ASN1UINT> sizes{e.c.bufIndex, e.c.bufSize};
    std::string want;
    for (ASN1INT i = 0; i < 6000; ++i) {
        ASN1INT v = i % 100;
        ASSERT_EQ(xe_integer(&e.c, &v, 1), 3);
        if (sizes.back() != e.c.bufSize)
            sizes.push_back(e.c.bufSize);
        char octets[8];
        std::snprintf(octets, sizeof octets, "0201%02X", (5999 - i) % 100);
        want += octets;
    }
    EXPECT_EQ(sizes, (std::vector<ASN1UINT>{0, 16, 16 + 16384, 16 + 2 * 16384}));
    EXPECT_EQ(e.out(), want + std::string(22, '4') + "02021234");
    EXPECT_EQ(testsupport::toHex(e.c.bufData + (e.c.bufSize - 1 - where.offset), where.numocts), "02021234");
    // A large need takes one step of that size.
    const ASN1UINT before = e.c.bufSize;
    ASSERT_EQ(xe_expandBuffer(&e.c, 40000), 0);
    EXPECT_EQ(e.c.bufSize, before + 40000);
    xe_free(&e.c);
    EXPECT_EQ(e.c.bufData, nullptr);
    EXPECT_EQ(e.c.bufDynamic, 0);
}

TEST(BerEncodeSetOf, DerOrder)
{
    // Members written in the order given, as a generated SET OF encoder does (last member first), each
    // recorded, then sorted: a value's own prefix comes first, equal values stay as they are. Many members
    // come out as a sort of their octets (hex of equal widths per octet sorts the same).
    std::vector<std::vector<std::string>> sets{
        {"020105", "020103"}, {"aabb", "aa"}, {"0403616263", "04026162", "0403616262"}, {"0500", "0500", "0101ff"}, {}, {"3100"}};
    const char* const sorted[] = {"020103020105", "aaaabb", "04026162 0403616262 0403616263", "0101ff 0500 0500", "", "3100", ""};
    sets.emplace_back();
    for (unsigned i = 0, x = 12345; i < 60; ++i) {
        std::string m;
        for (unsigned k = 0, n = 1 + ((x = x * 1103515245u + 12345u) >> 16) % 4; k < n; ++k)
            m += "0" + std::to_string(((x = x * 1103515245u + 12345u) >> 16) % 3);
        sets.back().push_back(m);
    }
    std::vector<std::string> many = sets.back();
    std::sort(many.begin(), many.end());
    for (size_t k = 0; k < sets.size(); ++k) {
        Enc e;
        Asn1RTSList list;
        rtSListInitEx(&e.c, &list);
        for (const std::string& m : sets[k])
            record(e, list, xe_memcpy(&e.c, hex(m).data(), (int)hex(m).size()));
        EXPECT_EQ(xe_derCanonicalSort(&e.c, &list), (int)e.used()) << "the total";
        EXPECT_EQ(list.count, 0u) << "records and nodes are given back";
        std::string want = norm(sorted[k]);
        for (size_t j = 0; *sorted[k] == 0 && k + 1 == sets.size() && j < many.size(); ++j)
            want += many[j];
        EXPECT_EQ(e.out(), want);
    }
}

TEST(BerEncodeSetOf, WrappedInASetTagAndRefusedScratch)
{
    Enc e, f;
    Asn1RTSList list, ordered;
    rtSListInitEx(&e.c, &list);
    for (ASN1INT v : {9, 1, 5})
        record(e, list, xe_integer(&e.c, &v, 1));
    EXPECT_EQ(xe_tag_len(&e.c, 0x20000011, xe_derCanonicalSort(&e.c, &list)), 11);
    EXPECT_EQ(e.out(), norm("3109 020101 020105 020109"));
    // Members out of order need a scratch area; refused, records, nodes and octets stay as they were.
    // Members already in order need none.
    rtSListInitEx(&f.c, &list);
    rtSListInitEx(&f.c, &ordered);
    for (ASN1INT v : {1, 9})
        record(f, list, xe_integer(&f.c, &v, 1));
    {
        bertest::RationedAllocator refuse;
        EXPECT_EQ(xe_derCanonicalSort(&f.c, &list), RT_E_NO_MEMORY);
    }
    EXPECT_EQ(list.count, 2u);
    EXPECT_EQ(f.out(), norm("020109 020101"));
    for (ASN1INT v : {9, 1})
        record(f, ordered, xe_integer(&f.c, &v, 1));
    bertest::RationedAllocator refuse;
    EXPECT_EQ(xe_derCanonicalSort(&f.c, &ordered), 6);
    EXPECT_EQ(ordered.count, 0u);
}
