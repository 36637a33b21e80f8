// Character strings of the runtime: the class table, deep copies, 8-bit/wide/32-bit
// conversions and UTF-8 in both directions.
#include "asn1rt/charstr.h"
#include "asn1rt/context.h"
#include "asn1rt/lists.h"
#include "ber_test_util.h"
#include "support/testsupport.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using bertest::lowerHex;
using testsupport::hex;

class RtCharStr : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, rtInitContext(&ctxt, nullptr)); }
    void TearDown() override { rtFreeContext(&ctxt); }
    ASN1CTXT ctxt{};
};

// A terminated copy of the octets, as the UTF-8 readers take their text.
Bytes z(const std::string& hexText) {
    Bytes t = hex(hexText);
    t.push_back(0);
    return t;
}

std::vector<uint32_t> chars(const Asn132BitCharString& s) { return std::vector<uint32_t>(s.data, s.data + s.nchars); }

TEST(RtCtypeTable, ClassesOfEveryCharacter) {
    // The C locale's classes are an independent statement of the same table.
    for (int c = 0; c < 256; ++c) {
        unsigned expected = 0;
        if (c < 0x80) {
            expected = (isupper(c) ? 0x01 : 0) | (islower(c) ? 0x02 : 0) | (isdigit(c) ? 0x04 : 0) |
                       (isspace(c) ? 0x08 : 0) | (ispunct(c) ? 0x10 : 0) | (iscntrl(c) ? 0x20 : 0) |
                       (isxdigit(c) && isalpha(c) ? 0x40 : 0) | (c == ' ' ? 0x80 : 0);
        }
        EXPECT_EQ(expected, rtCtypeTable[c]) << c;
    }
    EXPECT_EQ(RT_CTYPE_UPPER | RT_CTYPE_HEXLETTER, rtCtypeTable['F']);
    EXPECT_EQ(RT_CTYPE_SPACE | RT_CTYPE_BLANK, rtCtypeTable[' ']);
}

TEST_F(RtCharStr, DeepCopies) {
    // Into the caller's buffer: (bits + 7) / 8 octets. Zero bits or octets store the count
    // and report 0; so does any null pointer.
    const uint8_t octs[] = {0xFF, 0x80, 0x55, 0xEF};
    uint8_t buf[7] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    ASN1UINT count = 99;
    EXPECT_EQ(1, rtCopyBitStr(&ctxt, 12, octs, &count, buf));
    EXPECT_EQ(12u, count);
    EXPECT_EQ(1, rtCopyOctStr(&ctxt, 3, octs + 1, &count, buf + 3));
    EXPECT_EQ(3u, count);
    EXPECT_EQ("ff80ee8055efee", lowerHex(buf, 7));
    for (auto fn : {rtCopyBitStr, rtCopyOctStr}) {
        count = 99;
        EXPECT_EQ(0, fn(&ctxt, 0, octs, &count, buf));
        EXPECT_EQ(0u, count);
        EXPECT_EQ(0, fn(&ctxt, 8, nullptr, &count, buf) + fn(&ctxt, 8, octs, nullptr, buf) +
                         fn(&ctxt, 8, octs, &count, nullptr));
    }

    // Counted records copy to the heap, an empty one as a null pointer with result 1 (unlike
    // rtCopyBitStr); a null record gives 0.
    const uint16_t bmp[] = {0x0054, 0x00E9, 0x4E2D, 0xFFFD};
    const uint32_t ucs[] = {0x41, 0x1F600, 0x10FFFF};
    const auto deep = [&](auto fn, auto src, size_t octets) {
        decltype(src) dst{77, nullptr}, empty{0, src.data};
        const auto [srcCount, srcData] = src;
        auto& [n, data] = dst;
        EXPECT_EQ(1, fn(&ctxt, &src, &dst));
        EXPECT_EQ(srcCount, n);
        EXPECT_NE(srcData, data);
        EXPECT_EQ(0, memcmp(srcData, data, octets));
        EXPECT_EQ(1, fn(&ctxt, &empty, &dst));
        EXPECT_EQ(0u, n);
        EXPECT_EQ(nullptr, data);
        EXPECT_EQ(0, fn(&ctxt, &src, nullptr) + fn(&ctxt, nullptr, &dst));
    };
    deep(rtCopyDynBitStr, ASN1TDynBitStr{9, octs}, 2);
    deep(rtCopyDynOctStr, ASN1TDynOctStr{4, octs}, 4);
    deep(rtCopyOpenType, ASN1OpenType{4, octs}, 4);
    deep(rtCopy16BitCharStr, Asn116BitCharString{4, const_cast<uint16_t*>(bmp)}, sizeof bmp);
    deep(rtCopy32BitCharStr, Asn132BitCharString{3, const_cast<uint32_t*>(ucs)}, sizeof ucs);

    char* out = nullptr;
    EXPECT_EQ(1, rtCopyCharStr(&ctxt, "Test CA", &out));
    EXPECT_STREQ("Test CA", out);
    EXPECT_EQ(1, rtCopyCharStr(&ctxt, "", &out));
    EXPECT_STREQ("", out);
    EXPECT_EQ(0, rtCopyCharStr(&ctxt, nullptr, &out) + rtCopyCharStr(&ctxt, "x", nullptr));
    const unsigned char text[] = "Gr\xC3\xBC\xC3\x9F" "e";
    unsigned char* copy = rtUTF8Strdup(&ctxt, text);
    EXPECT_NE(text, copy);
    EXPECT_STREQ(reinterpret_cast<const char*>(text), reinterpret_cast<const char*>(copy));
}

TEST_F(RtCharStr, CopyOpenTypeExt) {
    const Bytes a = hex("020101"), b = hex("0500");
    ASN1OpenType va{3, a.data()}, vb{2, b.data()};
    Asn1RTDList src, dst;
    rtDListInit(&src);
    for (ASN1OpenType* v : {&va, static_cast<ASN1OpenType*>(nullptr), &vb})
        ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, v));
    const auto valueHex = [](const Asn1RTDListNode* n) {
        const auto* v = static_cast<const ASN1OpenType*>(n->data);
        return lowerHex(v->data, v->numocts);
    };
    // Nodes without data are skipped; the copies are deep.
    dst.count = 42;
    EXPECT_EQ(1, rtCopyOpenTypeExt(&ctxt, &src, &dst));
    ASSERT_EQ(2u, dst.count);
    ASSERT_NE(a.data(), static_cast<const ASN1OpenType*>(dst.head->data)->data);
    EXPECT_EQ("020101", valueHex(dst.head));
    EXPECT_EQ("0500", valueHex(dst.tail));
    EXPECT_EQ(0, rtCopyOpenTypeExt(&ctxt, nullptr, &dst) + rtCopyOpenTypeExt(&ctxt, &src, nullptr));
    {
        // The record, its octets and its node for the first element; the second record fails
        // and what was added stays.
        bertest::RationedAllocator three(3);
        EXPECT_EQ(0, rtCopyOpenTypeExt(&ctxt, &src, &dst));
    }
    ASSERT_EQ(1u, dst.count);
    EXPECT_EQ("020101", valueHex(dst.head));
}

TEST_F(RtCharStr, RefusedHeapFailsTheCopies) {
    bertest::RationedAllocator none;
    const uint8_t octs[] = {1, 2, 3};
    ASN1TDynOctStr osrc{3, octs}, odst{}, oempty{0, octs};
    EXPECT_EQ(0, rtCopyDynOctStr(&ctxt, &osrc, &odst));
    EXPECT_EQ(nullptr, odst.data);
    EXPECT_EQ(1, rtCopyDynOctStr(&ctxt, &oempty, &odst));  // nothing to allocate
    char* text = nullptr;
    EXPECT_EQ(0, rtCopyCharStr(&ctxt, "abc", &text));
    EXPECT_EQ(nullptr, text);
    const unsigned char utf8[] = "abc";
    EXPECT_EQ(nullptr, rtUTF8Strdup(&ctxt, utf8));
    Asn132BitCharString ucs{};
    EXPECT_EQ(nullptr, rtCToUCSString(&ctxt, "abc", &ucs, nullptr));
    EXPECT_EQ(0u, ucs.nchars);
    // Copies into the caller's buffer need no heap.
    uint8_t dst[3];
    ASN1UINT n = 0;
    EXPECT_EQ(1, rtCopyOctStr(&ctxt, 3, octs, &n, dst));
    EXPECT_EQ(0, ctxt.errInfo.status);
}

TEST_F(RtCharStr, ConversionsTo32BitCharacters) {
    const uint32_t listed[] = {'z', 'q'}, outside[] = {'A'};
    const Asn132BitCharSet lower{0, nullptr, 'a', 'z'}, some{2, listed, 'a', 'z'}, narrow{1, outside, 'a', 'z'};
    const Asn132BitCharSet bmpLow{0, nullptr, 0, 0xFF};
    const struct { const char* text; const wchar_t* wide; const Asn132BitCharSet* set; std::vector<uint32_t> want; }
        cases[] = {
            {"Ab\xE9z", nullptr, nullptr, {'A', 'b', 0xE9, 'z'}}, {"Ab\xE9z", nullptr, &lower, {'b', 'z'}},
            {"Ab\xE9z", nullptr, &some, {'z'}}, {"", nullptr, nullptr, {}},
            {"AAA", nullptr, &narrow, {}},  // a listed character outside the range is refused all the same
            // Wide text keeps the low 16 bits of each character.
            {nullptr, L"a\U0001F600\u4E2D", nullptr, {'a', 0xF600, 0x4E2D}},
            {nullptr, L"a\U0001F600\u00FF", &bmpLow, {'a', 0xFF}},
        };
    for (const auto& c : cases) {
        Asn132BitCharString out{5, nullptr};
        Asn132BitCharString* r = c.text ? rtCToUCSString(&ctxt, c.text, &out, c.set)
                                        : rtWCSToUCSString(&ctxt, c.wide, &out, c.set);
        ASSERT_EQ(&out, r);
        EXPECT_EQ(c.want, chars(out));
    }
    Asn132BitCharString out{};
    EXPECT_EQ(nullptr, rtWCSToUCSString(&ctxt, nullptr, &out, nullptr));

    // Back to wide text: characters above the BMP are dropped; at the capacity, no terminator.
    uint32_t ucs[] = {'A', 0x1F600, 'B', 0xFFFF, 0x10000};
    Asn132BitCharString s{5, ucs}, empty{0, nullptr};
    const struct { const Asn132BitCharString* s; size_t capacity; std::wstring want; } back[] = {
        {&s, 8, std::wstring(L"AB\uFFFF\0####", 8)}, {&s, 2, L"AB######"}, {&s, 3, L"AB\uFFFF#####"},
        {&empty, 8, std::wstring(L"\0#######", 8)}};
    for (const auto& c : back) {
        wchar_t text[8];
        std::fill(text, text + 8, L'#');
        EXPECT_EQ(text, rtUCSToWCSString(c.s, text, c.capacity));
        EXPECT_TRUE(c.want == std::wstring(text, 8)) << c.capacity;
    }
}

// ---- UTF-8 -----------------------------------------------------------------------------

TEST(RtUTF8Char, SizeEncodingAndDecoding) {
    const struct { uint32_t c; const char* octets; } cases[] = {
        {0, "00"}, {0x41, "41"}, {0x7F, "7f"}, {0x80, "c280"}, {0x00E9, "c3a9"}, {0x07FF, "dfbf"}, {0x0800, "e0a080"},
        {0x20AC, "e282ac"}, {0xD800, "eda080"},  // surrogates are ordinary characters here
        {0xFFFF, "efbfbf"}, {0x10000, "f0908080"}, {0x1F600, "f09f9880"}, {0x10FFFF, "f48fbfbf"},
        {0x1FFFFF, "f7bfbfbf"}, {0x200000, "f888808080"}, {0x3FFFFFF, "fbbfbfbfbf"}, {0x4000000, "fc8480808080"},
        {0x7FFFFFFF, "fdbfbfbfbfbf"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.octets);
        Bytes in = hex(c.octets);
        const int size = static_cast<int>(in.size());
        EXPECT_EQ(size, rtUTF8CharSize(c.c));
        unsigned char out[8];
        ASSERT_EQ(size, rtUTF8EncodeChar(c.c, out, sizeof out));
        EXPECT_EQ(c.octets, lowerHex(out, in.size()));
        in.insert(in.end(), 3, 'x');
        int got = static_cast<int>(in.size());
        EXPECT_EQ(static_cast<int>(c.c), rtUTF8DecodeChar(nullptr, in.data(), &got));
        EXPECT_EQ(size, got);
    }
    EXPECT_EQ(6, rtUTF8CharSize(0xFFFFFFFF));
    // The capacity is tested only above 0x7F.
    unsigned char out[4] = {0, 0, 0, 0};
    EXPECT_EQ(1, rtUTF8EncodeChar('x', out, 0));
    EXPECT_EQ('x', out[0]);
    EXPECT_EQ((std::vector<int>{-1, 2, -1, 4}), (std::vector<int>{rtUTF8EncodeChar(0xE9, out, 1),
                                                                  rtUTF8EncodeChar(0xE9, out, 2),
                                                                  rtUTF8EncodeChar(0x1F600, out, 3),
                                                                  rtUTF8EncodeChar(0x1F600, out, 4)}));

    const struct { const char* octets; int size; int result; int sizeAfter; } bad[] = {
        {"c080", 2, 0, 2}, {"e08080", 3, 0, 3},  // overlong forms are read as they are
        {"7f", 0, 0x7F, 1},                       // a single octet needs no size
        {"c3a9", 1, -26, 1},                      // the size given must be at least 2
        {"e282ac", 2, -26, 2},                    // too few octets within the size
        {"c341", 2, -26, 2},                      // a following octet that is not 10xxxxxx
        {"80", 4, -26, 4}, {"fe80", 2, -26, 2}, {"ff", 2, -26, 2},  // no first octet
    };
    for (const auto& c : bad) {
        const Bytes in = hex(c.octets);
        int size = c.size;
        EXPECT_EQ(c.result, rtUTF8DecodeChar(nullptr, in.data(), &size)) << c.octets;
        EXPECT_EQ(c.sizeAfter, size) << c.octets;
    }
    int size = 4;
    const unsigned char a[] = "a";
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8DecodeChar(nullptr, nullptr, &size));
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8DecodeChar(nullptr, a, nullptr));
}

TEST(RtUTF8, LengthAndConversionTable) {
    bertest::LastErrorUntouched platformState;
    // `length` is what rtUTF8Len gives, `count` what rtUTF8ToWCS gives.
    const struct { const char* octets; int length; int count; std::vector<uint32_t> wide; } cases[] = {
        {"", 0, 0, {}}, {"68c3a96c6c6f", 5, 5, {'h', 0xE9, 'l', 'l', 'o'}}, {"e282ac", 1, 1, {0x20AC}},
        {"f09f9880", 1, 1, {0x1F600}}, {"fdbfbfbfbfbf", 1, 1, {0x7FFFFFFF}},
        // Overlong forms and surrogates pass.
        {"c08041", 2, 2, {0, 'A'}}, {"eda080edb080", 2, 2, {0xD800, 0xDC00}},
        // A text that ends inside a sequence: the conversion keeps what was read, while
        // the length, which would step over the terminator, refuses it.
        {"c3", -26, 1, {3}}, {"61c3", -26, 2, {'a', 3}}, {"61e282", -26, 2, {'a', 0x82}},
        // Bad first octets.
        {"80", -26, -26, {}}, {"61ff", -26, -26, {}}, {"fe", -26, -26, {}},
        // The length does not look at following octets; the conversion does.
        {"c341", 1, -26, {}}, {"e2414141", 2, -26, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.octets);
        const Bytes text = z(c.octets);
        EXPECT_EQ(c.length, rtUTF8Len(text.data()));
        EXPECT_EQ(text.size() - 1, rtUTF8LenBytes(text.data()));
        std::vector<wchar_t> out(16, L'#');
        const int n = rtUTF8ToWCS(nullptr, text.data(), out.data(), out.size());
        EXPECT_EQ(c.count, n);
        if (n >= 0) {
            EXPECT_EQ(c.wide, std::vector<uint32_t>(out.begin(), out.begin() + n));
            EXPECT_EQ(L'#', out[static_cast<size_t>(n)]);  // no terminator
        }
        // Without a destination the text is only checked.
        EXPECT_EQ(c.count < 0 ? c.count : 0, rtUTF8ToWCS(nullptr, text.data(), nullptr, 0));
    }
    EXPECT_EQ(0u, rtUTF8LenBytes(nullptr));
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8Len(nullptr));
    // The capacity is checked before each character.
    const Bytes five = z("68c3a96c6c6f"), empty = z("");
    wchar_t out[8];
    EXPECT_EQ((std::vector<int>{5, -1, -1, 0}), (std::vector<int>{rtUTF8ToWCS(nullptr, five.data(), out, 5),
                                                                  rtUTF8ToWCS(nullptr, five.data(), out, 4),
                                                                  rtUTF8ToWCS(nullptr, five.data(), out, 0),
                                                                  rtUTF8ToWCS(nullptr, empty.data(), out, 0)}));
}

TEST(RtWCSToUTF8, OctetsAndCapacity) {
    unsigned char out[16];
    memset(out, '#', sizeof out);
    EXPECT_EQ(10, rtWCSToUTF8(nullptr, L"h\u00E9\u20AC\U0001F600", 4, out, sizeof out));
    EXPECT_EQ("68c3a9e282acf09f9880", lowerHex(out, 10));
    EXPECT_EQ('#', out[10]);  // no terminator
    // A one-octet character may fill the last place; a longer one needs one spare.
    const struct { const wchar_t* text; size_t capacity; int result; } cases[] = {
        {L"A", 1, 1}, {L"AB", 1, -1}, {L"\u00E9", 2, -1}, {L"\u00E9", 3, 2}, {L"A\u00E9", 3, -1}, {L"A\u00E9", 4, 3},
        {L"", 0, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(c.result, rtWCSToUTF8(nullptr, c.text, wcslen(c.text), out, c.capacity)) << c.capacity;
    const wchar_t high[] = {L'a', static_cast<wchar_t>(0x80000000u)};
    EXPECT_EQ(RT_E_BAD_UTF8, rtWCSToUTF8(nullptr, high, 2, out, sizeof out));
    // Surrogates and values beyond 0x10FFFF are written like any other.
    const wchar_t odd[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x7FFFFFFF)};
    EXPECT_EQ(9, rtWCSToUTF8(nullptr, odd, 2, out, sizeof out));
    EXPECT_EQ("eda080fdbfbfbfbfbf", lowerHex(out, 9));
}

// Every UTF8String and BMPString of the corpus certificates and CMS messages: lengths agree,
// UTF-8 converts to wide text and back octet for octet, and the counted strings copy deep.
TEST_F(RtCharStr, StringsOfRealCertificatesRoundTrip) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    size_t utf8 = 0, bmp = 0;
    std::vector<std::string> files = testsupport::corpusFiles("cert"), cms = testsupport::corpusFiles("cms");
    files.insert(files.end(), cms.begin(), cms.end());
    for (const auto& path : files) {
        bertest::forEachPrimitive(testsupport::readFile(path), [&](ASN1TAG tag, const uint8_t* data, size_t size) {
            if (tag == ASN_ID_UTF8String) {
                const Bytes text = z(testsupport::toHex(data, size));
                const int len = rtUTF8Len(text.data());
                if (std::find(data, data + size, 0) != data + size || len < 0)
                    return;  // not ours to judge here
                std::vector<wchar_t> wide(static_cast<size_t>(len) + 1);
                ASSERT_EQ(len, rtUTF8ToWCS(&ctxt, text.data(), wide.data(), wide.size())) << path;
                size_t need = 1;
                for (int i = 0; i < len; ++i)
                    need += static_cast<size_t>(rtUTF8CharSize(static_cast<uint32_t>(wide[static_cast<size_t>(i)])));
                std::vector<unsigned char> back(need);
                const int n = rtWCSToUTF8(&ctxt, wide.data(), static_cast<size_t>(len), back.data(), back.size());
                ASSERT_EQ(static_cast<int>(size), n) << path;
                EXPECT_EQ(0, memcmp(back.data(), data, size)) << path;
                ++utf8;
            } else if (tag == ASN_ID_BMPString && size % 2 == 0) {
                std::vector<uint16_t> units;
                for (size_t i = 0; i < size; i += 2)
                    units.push_back(static_cast<uint16_t>(data[i] << 8 | data[i + 1]));
                Asn116BitCharString src{static_cast<ASN1UINT>(units.size()), units.data()}, dst{};
                ASSERT_EQ(1, rtCopy16BitCharStr(&ctxt, &src, &dst)) << path;
                EXPECT_EQ(units, std::vector<uint16_t>(dst.data, dst.data + dst.nchars)) << path;
                // Through wide text and the 32-bit form, characters of the BMP stay.
                std::wstring w(units.begin(), units.end());
                Asn132BitCharString ucs{};
                ASSERT_NE(nullptr, rtWCSToUCSString(&ctxt, w.c_str(), &ucs, nullptr));
                std::vector<wchar_t> out(w.size() + 1);
                rtUCSToWCSString(&ucs, out.data(), out.size());
                EXPECT_EQ(w.substr(0, wcslen(w.c_str())), std::wstring(out.data())) << path;
                ++bmp;
            }
        });
    }
    EXPECT_GT(utf8, 50u);
    EXPECT_GT(bmp, 0u);
    EXPECT_EQ(0, ctxt.errInfo.status);
}

}  // namespace
