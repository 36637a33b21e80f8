// Runtime character strings: class table, deep copies, 32-bit and wide conversions, UTF-8.
#include "asn1rt/charstr.h"
#include "asn1rt/lists.h"
#include "ber_test_util.h"
#include "rt_alloc_counter.h"

#include <cctype>
#include <cstring>

namespace {

using Bytes = std::vector<uint8_t>;
using bertest::lowerHex;
using testsupport::hex;

using RtCharStr = rttest::CountedContext;  // over the counting heap: every copy must go with the context

// A terminated copy of the octets, as the UTF-8 readers take their text.
Bytes z(const std::string& hexText) { return hex(hexText + "00"); }

TEST(RtCtypeTable, ClassesOfEveryCharacter) {
    // The C locale's classes are an independent statement of the same table.
    for (int c = 0; c < 256; ++c) {
        const bool a = c < 0x80;
        EXPECT_EQ((a && isupper(c) ? 0x01u : 0) | (a && islower(c) ? 0x02u : 0) | (a && isdigit(c) ? 0x04u : 0) |
                      (a && isspace(c) ? 0x08u : 0) | (a && ispunct(c) ? 0x10u : 0) | (a && iscntrl(c) ? 0x20u : 0) |
                      (a && isxdigit(c) && isalpha(c) ? 0x40u : 0) | (c == ' ' ? 0x80u : 0), rtCtypeTable[c]) << c;
    }
}

TEST_F(RtCharStr, DeepCopies) {
    // Into the caller's buffer: (bits + 7) / 8 octets. Zero bits or octets, or any null pointer: count stored, 0.
    const uint8_t octs[] = {0xFF, 0x80, 0x55, 0xEF};
    uint8_t buf[7] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    ASN1UINT count = 99, count2 = 99;
    EXPECT_EQ(2, rtCopyBitStr(&ctxt, 12, octs, &count, buf) + rtCopyOctStr(&ctxt, 3, octs + 1, &count2, buf + 3));
    EXPECT_EQ("12 3 ff80ee8055efee", std::to_string(count) + " " + std::to_string(count2) + " " + lowerHex(buf, 7));
    for (auto fn : {rtCopyBitStr, rtCopyOctStr}) {
        EXPECT_EQ(0, fn(&ctxt, 0, octs, &count, buf) + fn(&ctxt, 8, nullptr, &count, buf) +
                         fn(&ctxt, 8, octs, nullptr, buf) + fn(&ctxt, 8, octs, &count, nullptr));
        EXPECT_EQ(0u, count);
    }
    // Counted records copy to the heap; an empty one gives a null pointer and 1 (unlike rtCopyBitStr), null 0.
    const uint16_t bmp[] = {0x0054, 0x00E9, 0x4E2D, 0xFFFD};
    const uint32_t ucs[] = {0x41, 0x1F600, 0x10FFFF};
    const auto deep = [&](auto fn, auto src, size_t octets) {
        decltype(src) dst{77, nullptr}, empty{0, src.data};
        const auto& [srcCount, srcData] = src;
        const auto& [n, data] = dst;
        EXPECT_EQ(1, fn(&ctxt, &src, &dst));
        EXPECT_TRUE(n == srcCount && data && data != srcData && memcmp(srcData, data, octets) == 0);
        EXPECT_EQ(1, fn(&ctxt, &empty, &dst) + fn(&ctxt, &src, nullptr) + fn(&ctxt, nullptr, &dst));
        EXPECT_TRUE(n == 0 && data == nullptr);
    };
    deep(rtCopyDynBitStr, ASN1TDynBitStr{9, octs}, 2);
    deep(rtCopyDynOctStr, ASN1TDynOctStr{4, octs}, 4);
    deep(rtCopyOpenType, ASN1OpenType{4, octs}, 4);
    deep(rtCopy16BitCharStr, Asn116BitCharString{4, const_cast<uint16_t*>(bmp)}, sizeof bmp);
    deep(rtCopy32BitCharStr, Asn132BitCharString{3, const_cast<uint32_t*>(ucs)}, sizeof ucs);

    char* out = nullptr;
    EXPECT_EQ(2, rtCopyCharStr(&ctxt, "", &out) + rtCopyCharStr(&ctxt, "Test CA", &out));
    EXPECT_STREQ("Test CA", out);
    EXPECT_EQ(0, rtCopyCharStr(&ctxt, nullptr, &out) + rtCopyCharStr(&ctxt, "x", nullptr));
    const unsigned char text[] = "Gr\xC3\xBC\xC3\x9F" "e";
    EXPECT_STREQ("Gr\xC3\xBC\xC3\x9F" "e", reinterpret_cast<const char*>(rtUTF8Strdup(&ctxt, text)));

    // Lists of open types: nodes without data are skipped; the copies are deep.
    const Bytes a = hex("020101"), b = hex("0500");
    ASN1OpenType va{3, a.data()}, vb{2, b.data()};
    Asn1RTDList src, dst;
    rtDListInit(&src);
    for (ASN1OpenType* v : {&va, static_cast<ASN1OpenType*>(nullptr), &vb})
        ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, v));
    const auto listHex = [&dst] {
        std::string s = std::to_string(dst.count) + ":";
        for (const Asn1RTDListNode* n = dst.head; n; n = n->next, s += " ")
            s += lowerHex(static_cast<const ASN1OpenType*>(n->data)->data, static_cast<const ASN1OpenType*>(n->data)->numocts);
        return s;
    };
    dst.count = 42;
    EXPECT_EQ(1, rtCopyOpenTypeExt(&ctxt, &src, &dst) + rtCopyOpenTypeExt(&ctxt, nullptr, &dst) +
                     rtCopyOpenTypeExt(&ctxt, &src, nullptr));
    EXPECT_EQ("2:020101 0500 ", listHex());
    EXPECT_NE(a.data(), static_cast<const ASN1OpenType*>(dst.head->data)->data);
    {
        // Record, octets and node of the first element; the second record fails, what was added stays.
        bertest::RationedAllocator three(3);
        EXPECT_EQ(0, rtCopyOpenTypeExt(&ctxt, &src, &dst));
    }
    EXPECT_EQ("1:020101 ", listHex());

    // With no heap, the copies fail; an empty record and copies into the caller's buffer need none.
    bertest::RationedAllocator none;
    ASN1TDynOctStr osrc{3, octs}, odst{}, oempty{0, octs};
    char* textCopy = nullptr;
    const unsigned char utf8[] = "abc";
    Asn132BitCharString wide{};
    EXPECT_EQ((std::vector<int>{0, 1, 0, 1}),
              (std::vector<int>{rtCopyDynOctStr(&ctxt, &osrc, &odst), rtCopyDynOctStr(&ctxt, &oempty, &odst),
                                rtCopyCharStr(&ctxt, "abc", &textCopy), rtCopyOctStr(&ctxt, 3, octs, &count, buf)}));
    EXPECT_TRUE(!rtUTF8Strdup(&ctxt, utf8) && !rtCToUCSString(&ctxt, "abc", &wide, nullptr) && !textCopy && !wide.nchars);
    EXPECT_EQ(0, ctxt.errInfo.status);
}

TEST_F(RtCharStr, ConversionsTo32BitCharacters) {
    const uint32_t listed[] = {'z', 'q'}, outside[] = {'A'};
    const Asn132BitCharSet lower{0, nullptr, 'a', 'z'}, some{2, listed, 'a', 'z'}, narrow{1, outside, 'a', 'z'},
        bmpLow{0, nullptr, 0, 0xFF};
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
        ASSERT_EQ(&out, c.text ? rtCToUCSString(&ctxt, c.text, &out, c.set) : rtWCSToUCSString(&ctxt, c.wide, &out, c.set));
        EXPECT_EQ(c.want, std::vector<uint32_t>(out.data, out.data + out.nchars));
    }
    EXPECT_EQ(nullptr, rtWCSToUCSString(&ctxt, nullptr, nullptr, nullptr));

    // Back to wide text: characters above the BMP are dropped; at the capacity, no terminator.
    uint32_t ucs[] = {'A', 0x1F600, 'B', 0xFFFF, 0x10000};
    Asn132BitCharString s{5, ucs}, empty{0, nullptr};
    const struct { const Asn132BitCharString* s; size_t capacity; std::wstring want; } back[] = {
        {&s, 8, std::wstring(L"AB\uFFFF\0####", 8)}, {&s, 2, L"AB######"}, {&s, 3, L"AB\uFFFF#####"},
        {&empty, 8, std::wstring(L"\0#######", 8)}};
    for (const auto& c : back) {
        std::wstring text(8, L'#');
        EXPECT_EQ(&text[0], rtUCSToWCSString(c.s, &text[0], c.capacity));
        EXPECT_TRUE(c.want == text) << c.capacity;
    }
}

TEST(RtUTF8Char, SizeEncodingAndDecoding) {
    const struct { uint32_t c; const char* octets; } cases[] = {
        {0, "00"}, {0x7F, "7f"}, {0x80, "c280"}, {0x07FF, "dfbf"}, {0x0800, "e0a080"}, {0xFFFF, "efbfbf"},
        {0xD800, "eda080"},  // surrogates are ordinary characters here
        {0x10000, "f0908080"}, {0x10FFFF, "f48fbfbf"}, {0x1FFFFF, "f7bfbfbf"}, {0x200000, "f888808080"},
        {0x3FFFFFF, "fbbfbfbfbf"}, {0x4000000, "fc8480808080"}, {0x7FFFFFFF, "fdbfbfbfbfbf"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.octets);
        Bytes in = hex(c.octets);
        const int size = static_cast<int>(in.size());
        unsigned char out[8];
        EXPECT_EQ(size, rtUTF8CharSize(c.c));
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
    EXPECT_EQ((std::vector<int>{1, 'x', -1, 2, -1, 4}),
              (std::vector<int>{rtUTF8EncodeChar('x', out, 0), out[0], rtUTF8EncodeChar(0xE9, out, 1),
                                rtUTF8EncodeChar(0xE9, out, 2), rtUTF8EncodeChar(0x1F600, out, 3),
                                rtUTF8EncodeChar(0x1F600, out, 4)}));

    // Overlong forms are read as they are, a single octet needs no size; refused: a size under
    // 2 for a sequence, too few octets within it, a following octet not 10xxxxxx, no first octet.
    const struct { const char* octets; int size; int result; int sizeAfter; } bad[] = {
        {"c080", 2, 0, 2}, {"e08080", 3, 0, 3}, {"7f", 0, 0x7F, 1}, {"c3a9", 1, -26, 1}, {"e282ac", 2, -26, 2},
        {"c341", 2, -26, 2}, {"80", 4, -26, 4}, {"fe80", 2, -26, 2}, {"ff", 2, -26, 2}};
    for (const auto& c : bad) {
        const Bytes in = hex(c.octets);
        int size = c.size;
        EXPECT_EQ(c.result, rtUTF8DecodeChar(nullptr, in.data(), &size)) << c.octets;
        EXPECT_EQ(c.sizeAfter, size) << c.octets;
    }
    int size = 4;
    EXPECT_EQ(2 * RT_E_BAD_UTF8, rtUTF8DecodeChar(nullptr, nullptr, &size) + rtUTF8DecodeChar(nullptr, hex("61").data(), nullptr));
}

TEST(RtUTF8, LengthAndConversionTable) {
    bertest::LastErrorUntouched platformState;
    // `length` is what rtUTF8Len gives, `count` what rtUTF8ToWCS gives.
    const struct { const char* octets; int length; int count; std::vector<uint32_t> wide; } cases[] = {
        {"", 0, 0, {}}, {"68c3a96c6c6f", 5, 5, {'h', 0xE9, 'l', 'l', 'o'}}, {"f09f9880", 1, 1, {0x1F600}},
        {"fdbfbfbfbfbf", 1, 1, {0x7FFFFFFF}}, {"c08041", 2, 2, {0, 'A'}}, {"eda080edb080", 2, 2, {0xD800, 0xDC00}},
        // Ending inside a sequence: the conversion keeps what was read; the length would pass the terminator.
        {"c3", -26, 1, {3}}, {"61c3", -26, 2, {'a', 3}}, {"61e282", -26, 2, {'a', 0x82}},
        {"80", -26, -26, {}}, {"61ff", -26, -26, {}}, {"fe", -26, -26, {}},  // bad first octets
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
        // What was read, and no terminator.
        EXPECT_EQ(c.wide, std::vector<uint32_t>(out.begin(), out.begin() + std::max(n, 0)));
        EXPECT_TRUE(n < 0 || out[static_cast<size_t>(n)] == L'#');
        // Without a destination the text is only checked.
        EXPECT_EQ(c.count < 0 ? c.count : 0, rtUTF8ToWCS(nullptr, text.data(), nullptr, 0));
    }
    // The capacity is checked before each character.
    const Bytes five = z("68c3a96c6c6f"), empty = z("");
    wchar_t out[8];
    EXPECT_EQ((std::vector<int>{0, RT_E_BAD_UTF8, 5, -1, -1, 0}),
              (std::vector<int>{(int)rtUTF8LenBytes(nullptr), rtUTF8Len(nullptr), rtUTF8ToWCS(nullptr, five.data(), out, 5),
                                rtUTF8ToWCS(nullptr, five.data(), out, 4), rtUTF8ToWCS(nullptr, five.data(), out, 0),
                                rtUTF8ToWCS(nullptr, empty.data(), out, 0)}));

    // rtWCSToUTF8: a one-octet character may fill the last place; a longer one needs one spare. Surrogates
    // and values beyond 0x10FFFF are written like any other; none gets a terminator.
    const wchar_t odd[] = {0xD800, 0x7FFFFFFF, 0}, high[] = {L'a', static_cast<wchar_t>(0x80000000u), 0};
    const struct { const wchar_t* text; size_t capacity; int result; const char* octets; } back[] = {
        {L"h\u00E9\u20AC\U0001F600", 16, 10, "68c3a9e282acf09f9880"}, {odd, 16, 9, "eda080fdbfbfbfbfbf"},
        {high, 16, RT_E_BAD_UTF8, ""}, {L"A", 1, 1, "41"}, {L"AB", 1, -1, ""}, {L"\u00E9", 2, -1, ""},
        {L"\u00E9", 3, 2, "c3a9"}, {L"A\u00E9", 3, -1, ""}, {L"A\u00E9", 4, 3, "41c3a9"}, {L"", 0, 0, ""}};
    for (const auto& c : back) {
        unsigned char octets[17];
        memset(octets, '#', sizeof octets);
        const int n = rtWCSToUTF8(nullptr, c.text, c.text == high ? 2 : wcslen(c.text), octets, c.capacity);
        EXPECT_EQ(c.result, n) << c.octets;
        EXPECT_EQ(n < 0 ? "" : std::string(c.octets) + "23", n < 0 ? "" : lowerHex(octets, (size_t)n + 1)) << c.octets;
    }
}

// Corpus UTF8Strings go to wide text and back octet for octet; BMPStrings copy deep and return via 32 bits.
TEST_F(RtCharStr, StringsOfRealCertificatesRoundTrip) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    size_t utf8 = 0, bmp = 0;
    const auto visit = [&](ASN1TAG tag, const uint8_t* data, size_t size) {
        std::vector<wchar_t> wide(size + 1);
        if (tag == ASN_ID_UTF8String && std::find(data, data + size, 0) == data + size) {
            const Bytes text = z(testsupport::toHex(data, size));
            const int len = rtUTF8Len(text.data());
            if (len < 0) return;  // not ours to judge here
            std::vector<unsigned char> back(size + 1);
            ASSERT_EQ(len, rtUTF8ToWCS(&ctxt, text.data(), wide.data(), wide.size()));
            ASSERT_EQ((int)size, rtWCSToUTF8(&ctxt, wide.data(), (size_t)len, back.data(), back.size()));
            EXPECT_EQ(0, memcmp(back.data(), data, size));
            ++utf8;
        } else if (tag == ASN_ID_BMPString && size % 2 == 0) {
            std::vector<uint16_t> units;
            for (size_t i = 0; i < size; i += 2) units.push_back(static_cast<uint16_t>(data[i] << 8 | data[i + 1]));
            Asn116BitCharString src{static_cast<ASN1UINT>(units.size()), units.data()}, dst{};
            Asn132BitCharString ucs{};
            ASSERT_EQ(1, rtCopy16BitCharStr(&ctxt, &src, &dst));
            const std::wstring w(dst.data, dst.data + dst.nchars);
            ASSERT_NE(nullptr, rtWCSToUCSString(&ctxt, w.c_str(), &ucs, nullptr));
            rtUCSToWCSString(&ucs, wide.data(), wide.size());
            EXPECT_EQ(std::wstring(units.begin(), units.end()).substr(0, wcslen(w.c_str())), std::wstring(wide.data()));
            ++bmp;
        }
    };
    for (const char* sub : {"cert", "cms"})
        for (const auto& path : testsupport::corpusFiles(sub)) {
            SCOPED_TRACE(path);
            bertest::forEachPrimitive(testsupport::readFile(path), visit);
        }
    EXPECT_GT(utf8, 50u);
    EXPECT_GT(bmp, 0u);
    EXPECT_EQ(0, ctxt.errInfo.status);
}

}  // namespace
