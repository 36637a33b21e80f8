// Character strings of the runtime: the class table, deep copies, 8-bit/wide/32-bit
// conversions and UTF-8 in both directions.
#include "asn1rt/charstr.h"
#include "asn1rt/context.h"
#include "asn1rt/lists.h"
#include "rt_der_walk.h"
#include "support/testsupport.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using testsupport::hex;

class RtCharStr : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, rtInitContext(&ctxt, nullptr)); }
    void TearDown() override { rtFreeContext(&ctxt); }
    ASN1CTXT ctxt{};
};

std::string lowerHex(const unsigned char* p, size_t n) {
    static const char d[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += d[p[i] >> 4];
        s += d[p[i] & 15];
    }
    return s;
}

// A terminated copy of the octets, as the UTF-8 readers take their text.
Bytes z(const Bytes& octets) {
    Bytes t = octets;
    t.push_back(0);
    return t;
}

TEST(RtCtypeTable, ClassesOfEveryCharacter) {
    // The C locale's classes are an independent statement of the same table.
    for (int c = 0; c < 256; ++c) {
        SCOPED_TRACE(c);
        unsigned expected = 0;
        if (c < 0x80) {
            expected |= isupper(c) ? 0x01 : 0;
            expected |= islower(c) ? 0x02 : 0;
            expected |= isdigit(c) ? 0x04 : 0;
            expected |= isspace(c) ? 0x08 : 0;
            expected |= ispunct(c) ? 0x10 : 0;
            expected |= iscntrl(c) ? 0x20 : 0;
            expected |= (isxdigit(c) && isalpha(c)) ? 0x40 : 0;
            expected |= c == ' ' ? 0x80 : 0;
        }
        EXPECT_EQ(expected, rtCtypeTable[c]);
    }
    EXPECT_EQ(RT_CTYPE_SPACE | RT_CTYPE_BLANK, rtCtypeTable[' ']);
    EXPECT_EQ(RT_CTYPE_SPACE | RT_CTYPE_CNTRL, rtCtypeTable['\t']);
    EXPECT_EQ(RT_CTYPE_UPPER | RT_CTYPE_HEXLETTER, rtCtypeTable['F']);
    EXPECT_EQ(RT_CTYPE_LOWER, rtCtypeTable['g']);
    EXPECT_EQ(RT_CTYPE_CNTRL, rtCtypeTable[0x7f]);
}

// ---- Deep copies --------------------------------------------------------------------

TEST_F(RtCharStr, CopyBitStrIntoTheCallersBuffer) {
    const uint8_t src[] = {0xA5, 0xF0, 0x77};
    uint8_t dst[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    ASN1UINT count = 99;
    EXPECT_EQ(1, rtCopyBitStr(&ctxt, 12, src, &count, dst));
    EXPECT_EQ(12u, count);
    EXPECT_EQ("a5f0eeee", lowerHex(dst, 4));  // (12 + 7) / 8 octets

    // Zero bits: the count is stored and the result is 0.
    count = 99;
    EXPECT_EQ(0, rtCopyBitStr(&ctxt, 0, src, &count, dst));
    EXPECT_EQ(0u, count);

    EXPECT_EQ(0, rtCopyBitStr(&ctxt, 8, nullptr, &count, dst));
    EXPECT_EQ(0, rtCopyBitStr(&ctxt, 8, src, nullptr, dst));
    EXPECT_EQ(0, rtCopyBitStr(&ctxt, 8, src, &count, nullptr));
}

TEST_F(RtCharStr, CopyOctStrIntoTheCallersBuffer) {
    const uint8_t src[] = {1, 2, 3};
    uint8_t dst[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    ASN1UINT count = 99;
    EXPECT_EQ(1, rtCopyOctStr(&ctxt, 3, src, &count, dst));
    EXPECT_EQ(3u, count);
    EXPECT_EQ("010203ee", lowerHex(dst, 4));
    EXPECT_EQ(0, rtCopyOctStr(&ctxt, 0, src, &count, dst));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(0, rtCopyOctStr(&ctxt, 3, src, &count, nullptr));
}

TEST_F(RtCharStr, DynamicCopiesGoToTheHeap) {
    const uint8_t bits[] = {0xFF, 0x80, 0x55};
    ASN1TDynBitStr bsrc{9, bits}, bdst{77, bits};
    EXPECT_EQ(1, rtCopyDynBitStr(&ctxt, &bsrc, &bdst));
    EXPECT_EQ(9u, bdst.numbits);
    ASSERT_NE(bits, bdst.data);
    EXPECT_EQ("ff80", lowerHex(bdst.data, 2));

    // An empty bit string copies with result 1 and no data, unlike rtCopyBitStr.
    ASN1TDynBitStr empty{0, bits};
    EXPECT_EQ(1, rtCopyDynBitStr(&ctxt, &empty, &bdst));
    EXPECT_EQ(0u, bdst.numbits);
    EXPECT_EQ(nullptr, bdst.data);
    EXPECT_EQ(0, rtCopyDynBitStr(&ctxt, nullptr, &bdst));
    EXPECT_EQ(0, rtCopyDynBitStr(&ctxt, &bsrc, nullptr));

    const uint8_t octs[] = {0xDE, 0xAD, 0xBE, 0xEF};
    ASN1TDynOctStr osrc{4, octs}, odst{};
    EXPECT_EQ(1, rtCopyDynOctStr(&ctxt, &osrc, &odst));
    EXPECT_EQ(4u, odst.numocts);
    ASSERT_NE(octs, odst.data);
    EXPECT_EQ("deadbeef", lowerHex(odst.data, 4));
    ASN1TDynOctStr oempty{0, octs};
    EXPECT_EQ(1, rtCopyDynOctStr(&ctxt, &oempty, &odst));
    EXPECT_EQ(nullptr, odst.data);

    const Bytes element = hex("0603550403");
    ASN1OpenType tsrc{static_cast<ASN1UINT>(element.size()), element.data()}, tdst{};
    EXPECT_EQ(1, rtCopyOpenType(&ctxt, &tsrc, &tdst));
    EXPECT_EQ(5u, tdst.numocts);
    ASSERT_NE(element.data(), tdst.data);
    EXPECT_EQ("0603550403", lowerHex(tdst.data, 5));
    EXPECT_EQ(0, rtCopyOpenType(&ctxt, &tsrc, nullptr));
}

TEST_F(RtCharStr, CopyCharStrTerminates) {
    char* out = nullptr;
    EXPECT_EQ(1, rtCopyCharStr(&ctxt, "Test CA", &out));
    ASSERT_NE(nullptr, out);
    EXPECT_STREQ("Test CA", out);
    char* empty = nullptr;
    EXPECT_EQ(1, rtCopyCharStr(&ctxt, "", &empty));
    EXPECT_STREQ("", empty);
    EXPECT_EQ(0, rtCopyCharStr(&ctxt, nullptr, &out));
    EXPECT_EQ(0, rtCopyCharStr(&ctxt, "x", nullptr));
}

TEST_F(RtCharStr, BmpAndUniversalCopies) {
    uint16_t bmp[] = {0x0054, 0x00E9, 0x4E2D, 0xFFFD};
    Asn116BitCharString s16{4, bmp}, d16{};
    EXPECT_EQ(1, rtCopy16BitCharStr(&ctxt, &s16, &d16));
    EXPECT_EQ(4u, d16.nchars);
    ASSERT_NE(bmp, d16.data);
    EXPECT_EQ(0, memcmp(bmp, d16.data, sizeof bmp));
    bmp[0] = 0;  // a deep copy
    EXPECT_EQ(0x0054, d16.data[0]);

    Asn116BitCharString e16{0, bmp};
    EXPECT_EQ(1, rtCopy16BitCharStr(&ctxt, &e16, &d16));
    EXPECT_EQ(0u, d16.nchars);
    EXPECT_EQ(nullptr, d16.data);
    EXPECT_EQ(0, rtCopy16BitCharStr(&ctxt, nullptr, &d16));

    uint32_t ucs[] = {0x41, 0x1F600, 0x10FFFF};
    Asn132BitCharString s32{3, ucs}, d32{};
    EXPECT_EQ(1, rtCopy32BitCharStr(&ctxt, &s32, &d32));
    EXPECT_EQ(3u, d32.nchars);
    ASSERT_NE(ucs, d32.data);
    EXPECT_EQ(0, memcmp(ucs, d32.data, sizeof ucs));
    Asn132BitCharString e32{0, ucs};
    EXPECT_EQ(1, rtCopy32BitCharStr(&ctxt, &e32, &d32));
    EXPECT_EQ(nullptr, d32.data);
    EXPECT_EQ(0, rtCopy32BitCharStr(&ctxt, &s32, nullptr));
}

TEST_F(RtCharStr, CopyOpenTypeExtSkipsNodesWithoutData) {
    const Bytes a = hex("020101"), b = hex("0500");
    ASN1OpenType va{static_cast<ASN1UINT>(a.size()), a.data()};
    ASN1OpenType vb{static_cast<ASN1UINT>(b.size()), b.data()};
    Asn1RTDList src;
    rtDListInit(&src);
    ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, &va));
    ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, nullptr));
    ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, &vb));

    Asn1RTDList dst;
    dst.count = 42;
    EXPECT_EQ(1, rtCopyOpenTypeExt(&ctxt, &src, &dst));
    ASSERT_EQ(2u, dst.count);
    const auto* ca = static_cast<const ASN1OpenType*>(dst.head->data);
    const auto* cb = static_cast<const ASN1OpenType*>(dst.tail->data);
    ASSERT_NE(&va, ca);
    ASSERT_NE(a.data(), ca->data);
    EXPECT_EQ("020101", lowerHex(ca->data, ca->numocts));
    EXPECT_EQ("0500", lowerHex(cb->data, cb->numocts));

    EXPECT_EQ(0, rtCopyOpenTypeExt(&ctxt, nullptr, &dst));
    EXPECT_EQ(0, rtCopyOpenTypeExt(&ctxt, &src, nullptr));
}

// Lets the first `allowed` allocations of the runtime's heaps through and refuses the
// rest while it lives.
class RationedAllocator {
public:
    explicit RationedAllocator(int allowed) : m_saved(g_malloc_func) {
        s_left = allowed;
        s_next = m_saved;
        g_malloc_func = [](void* mc, size_t n) -> void* { return s_left-- > 0 ? s_next(mc, n) : nullptr; };
    }
    ~RationedAllocator() { g_malloc_func = m_saved; }

private:
    static int s_left;
    static rtMallocFunc s_next;
    rtMallocFunc m_saved;
};
int RationedAllocator::s_left = 0;
rtMallocFunc RationedAllocator::s_next = nullptr;

TEST_F(RtCharStr, RefusedHeapFailsTheCopies) {
    RationedAllocator none(0);
    const uint8_t octs[] = {1, 2, 3};
    ASN1TDynOctStr osrc{3, octs}, odst{};
    EXPECT_EQ(0, rtCopyDynOctStr(&ctxt, &osrc, &odst));
    EXPECT_EQ(nullptr, odst.data);
    ASN1TDynOctStr oempty{0, octs};
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

TEST_F(RtCharStr, CopyOpenTypeExtKeepsWhatWasAddedBeforeAFailure) {
    const Bytes a = hex("020101"), b = hex("0500");
    ASN1OpenType va{static_cast<ASN1UINT>(a.size()), a.data()};
    ASN1OpenType vb{static_cast<ASN1UINT>(b.size()), b.data()};
    Asn1RTDList src;
    rtDListInit(&src);
    ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, &va));
    ASSERT_NE(nullptr, rtDListAppend(&ctxt, &src, &vb));
    Asn1RTDList dst;
    {
        // The record, its octets and its node for the first element; the second record fails.
        RationedAllocator three(3);
        EXPECT_EQ(0, rtCopyOpenTypeExt(&ctxt, &src, &dst));
    }
    ASSERT_EQ(1u, dst.count);
    const auto* ca = static_cast<const ASN1OpenType*>(dst.head->data);
    EXPECT_EQ("020101", lowerHex(ca->data, ca->numocts));
}

// ---- 8-bit, wide and 32-bit strings ---------------------------------------------------

std::vector<uint32_t> chars(const Asn132BitCharString& s) {
    return std::vector<uint32_t>(s.data, s.data + s.nchars);
}

TEST_F(RtCharStr, CToUCSStringWithAndWithoutCharacterSet) {
    Asn132BitCharString out{};
    ASSERT_EQ(&out, rtCToUCSString(&ctxt, "Ab\xE9z", &out, nullptr));
    EXPECT_EQ((std::vector<uint32_t>{'A', 'b', 0xE9, 'z'}), chars(out));

    const Asn132BitCharSet lower{0, nullptr, 'a', 'z'};
    ASSERT_EQ(&out, rtCToUCSString(&ctxt, "Ab\xE9z", &out, &lower));
    EXPECT_EQ((std::vector<uint32_t>{'b', 'z'}), chars(out));

    const uint32_t listed[] = {'z', 'q'};
    const Asn132BitCharSet some{2, listed, 'a', 'z'};
    ASSERT_EQ(&out, rtCToUCSString(&ctxt, "Ab\xE9z", &out, &some));
    EXPECT_EQ((std::vector<uint32_t>{'z'}), chars(out));

    // A listed character outside the range is refused all the same.
    const uint32_t outside[] = {'A'};
    const Asn132BitCharSet narrow{1, outside, 'a', 'z'};
    ASSERT_EQ(&out, rtCToUCSString(&ctxt, "AAA", &out, &narrow));
    EXPECT_EQ(0u, out.nchars);

    out.nchars = 5;
    ASSERT_EQ(&out, rtCToUCSString(&ctxt, "", &out, nullptr));
    EXPECT_EQ(0u, out.nchars);
}

TEST_F(RtCharStr, WCSToUCSStringKeepsTheLow16Bits) {
    Asn132BitCharString out{};
    ASSERT_EQ(&out, rtWCSToUCSString(&ctxt, L"a\U0001F600\u4E2D", &out, nullptr));
    EXPECT_EQ((std::vector<uint32_t>{'a', 0xF600, 0x4E2D}), chars(out));

    const Asn132BitCharSet bmpLow{0, nullptr, 0, 0xFF};
    ASSERT_EQ(&out, rtWCSToUCSString(&ctxt, L"a\U0001F600\u00FF", &out, &bmpLow));
    EXPECT_EQ((std::vector<uint32_t>{'a', 0xFF}), chars(out));
    EXPECT_EQ(nullptr, rtWCSToUCSString(&ctxt, nullptr, &out, nullptr));
}

TEST(RtUCSToWCSString, DropsCharactersAboveTheBmpAndStopsAtTheCapacity) {
    uint32_t ucs[] = {'A', 0x1F600, 'B', 0xFFFF, 0x10000};
    Asn132BitCharString s{5, ucs};
    wchar_t out[8];
    std::fill(out, out + 8, L'#');
    EXPECT_EQ(out, rtUCSToWCSString(&s, out, 8));
    EXPECT_EQ(std::wstring(L"AB\uFFFF"), std::wstring(out));

    // Full: no terminator.
    std::fill(out, out + 8, L'#');
    EXPECT_EQ(out, rtUCSToWCSString(&s, out, 2));
    EXPECT_EQ(L'A', out[0]);
    EXPECT_EQ(L'B', out[1]);
    EXPECT_EQ(L'#', out[2]);

    std::fill(out, out + 8, L'#');
    EXPECT_EQ(out, rtUCSToWCSString(&s, out, 3));
    EXPECT_EQ(L'#', out[3]);

    Asn132BitCharString empty{0, nullptr};
    std::fill(out, out + 8, L'#');
    rtUCSToWCSString(&empty, out, 8);
    EXPECT_EQ(L'\0', out[0]);
}

// ---- UTF-8 -----------------------------------------------------------------------------

TEST(RtUTF8CharSize, SizesByMask) {
    const struct {
        uint32_t c;
        int size;
    } cases[] = {{0, 1},        {0x7F, 1},       {0x80, 2},        {0x7FF, 2},      {0x800, 3},
                 {0xFFFF, 3},   {0x10000, 4},    {0x1FFFFF, 4},    {0x200000, 5},   {0x3FFFFFF, 5},
                 {0x4000000, 6}, {0x7FFFFFFF, 6}, {0xFFFFFFFF, 6}, {0xD800, 3}};
    for (const auto& c : cases)
        EXPECT_EQ(c.size, rtUTF8CharSize(c.c)) << std::hex << c.c;
}

struct Utf8Case {
    uint32_t c;
    const char* octets;
};

const Utf8Case kUtf8Table[] = {
    {0x41, "41"},
    {0x00E9, "c3a9"},
    {0x07FF, "dfbf"},
    {0x0800, "e0a080"},
    {0x20AC, "e282ac"},
    {0xD800, "eda080"},  // surrogates are ordinary characters here
    {0xFFFF, "efbfbf"},
    {0x1F600, "f09f9880"},
    {0x10FFFF, "f48fbfbf"},
    {0x200000, "f888808080"},
    {0x3FFFFFF, "fbbfbfbfbf"},
    {0x4000000, "fc8480808080"},
    {0x7FFFFFFF, "fdbfbfbfbfbf"},
};

TEST(RtUTF8EncodeChar, EncodingTable) {
    for (const auto& c : kUtf8Table) {
        unsigned char out[8];
        int n = rtUTF8EncodeChar(c.c, out, sizeof out);
        ASSERT_GT(n, 0) << std::hex << c.c;
        EXPECT_EQ(c.octets, lowerHex(out, static_cast<size_t>(n))) << std::hex << c.c;
    }
}

TEST(RtUTF8EncodeChar, CapacityIsTestedOnlyAbove0x7F) {
    unsigned char out[4] = {0, 0, 0, 0};
    EXPECT_EQ(1, rtUTF8EncodeChar('x', out, 0));
    EXPECT_EQ('x', out[0]);
    EXPECT_EQ(-1, rtUTF8EncodeChar(0xE9, out, 1));
    EXPECT_EQ(2, rtUTF8EncodeChar(0xE9, out, 2));
    EXPECT_EQ(-1, rtUTF8EncodeChar(0x1F600, out, 3));
    EXPECT_EQ(4, rtUTF8EncodeChar(0x1F600, out, 4));
}

TEST(RtUTF8DecodeChar, DecodingTable) {
    for (const auto& c : kUtf8Table) {
        const Bytes in = hex(c.octets);
        int size = static_cast<int>(in.size()) + 3;
        Bytes padded = in;
        padded.insert(padded.end(), 3, 'x');
        EXPECT_EQ(static_cast<int>(c.c), rtUTF8DecodeChar(nullptr, padded.data(), &size)) << c.octets;
        EXPECT_EQ(static_cast<int>(in.size()), size) << c.octets;
    }
}

TEST(RtUTF8DecodeChar, Failures) {
    const struct {
        const char* octets;
        int size;
        int result;
        int sizeAfter;
    } cases[] = {
        {"c0 80", 2, 0, 2},          // overlong forms are read as they are
        {"e0 80 80", 3, 0, 3},
        {"7f", 0, 0x7F, 1},          // a single octet needs no size
        {"c3 a9", 1, -26, 1},        // the size given must be at least 2
        {"e2 82 ac", 2, -26, 2},     // too few octets within the size
        {"c3 41", 2, -26, 2},        // a following octet that is not 10xxxxxx
        {"80", 4, -26, 4},           // a following octet cannot start
        {"fe 80", 2, -26, 2},
        {"ff", 2, -26, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.octets);
        Bytes in;
        for (const char* p = c.octets; *p;) {
            in.push_back(static_cast<uint8_t>(strtoul(p, const_cast<char**>(&p), 16)));
            while (*p == ' ')
                ++p;
        }
        int size = c.size;
        EXPECT_EQ(c.result, rtUTF8DecodeChar(nullptr, in.data(), &size));
        EXPECT_EQ(c.sizeAfter, size);
    }
    int size = 4;
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8DecodeChar(nullptr, nullptr, &size));
    const unsigned char a[] = "a";
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8DecodeChar(nullptr, a, nullptr));
}

struct ToWcsCase {
    const char* octets;  // hex, without terminator
    int length;          // rtUTF8Len
    int count;           // rtUTF8ToWCS
    std::vector<uint32_t> wide;
};

TEST(RtUTF8, LengthAndConversionTable) {
    const ToWcsCase cases[] = {
        {"", 0, 0, {}},
        {"68c3a96c6c6f", 5, 5, {'h', 0xE9, 'l', 'l', 'o'}},
        {"e282ac", 1, 1, {0x20AC}},
        {"f09f9880", 1, 1, {0x1F600}},
        {"fdbfbfbfbfbf", 1, 1, {0x7FFFFFFF}},
        // Overlong forms and surrogates pass.
        {"c08041", 2, 2, {0, 'A'}},
        {"eda080edb080", 2, 2, {0xD800, 0xDC00}},
        // A text that ends inside a sequence: the conversion keeps what was read, while
        // the length, which would step over the terminator, refuses it.
        {"c3", -26, 1, {3}},
        {"61c3", -26, 2, {'a', 3}},
        {"61e282", -26, 2, {'a', 0x82}},
        // Bad first octets.
        {"80", -26, -26, {}},
        {"61ff", -26, -26, {}},
        {"fe", -26, -26, {}},
        // The length does not look at following octets; the conversion does.
        {"c341", 1, -26, {}},
        {"e2414141", 2, -26, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.octets);
        const Bytes text = z(hex(c.octets));
        EXPECT_EQ(c.length, rtUTF8Len(text.data()));
        EXPECT_EQ(text.size() - 1, rtUTF8LenBytes(text.data()));
        std::vector<wchar_t> out(16, L'#');
        const int n = rtUTF8ToWCS(nullptr, text.data(), out.data(), out.size());
        EXPECT_EQ(c.count, n);
        if (n >= 0) {
            std::vector<uint32_t> got(out.begin(), out.begin() + n);
            EXPECT_EQ(c.wide, got);
            EXPECT_EQ(L'#', out[static_cast<size_t>(n)]);  // no terminator
        }
        // Without a destination the text is only checked.
        EXPECT_EQ(c.count < 0 ? c.count : 0, rtUTF8ToWCS(nullptr, text.data(), nullptr, 0));
    }
}

TEST(RtUTF8ToWCS, CapacityIsCheckedBeforeEachCharacter) {
    const Bytes text = z(hex("68c3a96c6c6f"));  // 5 characters
    wchar_t out[8];
    EXPECT_EQ(5, rtUTF8ToWCS(nullptr, text.data(), out, 5));
    EXPECT_EQ(-1, rtUTF8ToWCS(nullptr, text.data(), out, 4));
    EXPECT_EQ(-1, rtUTF8ToWCS(nullptr, text.data(), out, 0));
    const Bytes empty = z({});
    EXPECT_EQ(0, rtUTF8ToWCS(nullptr, empty.data(), out, 0));
}

TEST(RtUTF8LenBytes, NullIsZero) {
    EXPECT_EQ(0u, rtUTF8LenBytes(nullptr));
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8Len(nullptr));
}

TEST(RtWCSToUTF8, OctetsAndCapacity) {
    unsigned char out[16];
    memset(out, '#', sizeof out);
    const wchar_t text[] = L"h\u00E9\u20AC\U0001F600";
    EXPECT_EQ(10, rtWCSToUTF8(nullptr, text, 4, out, sizeof out));
    EXPECT_EQ("68c3a9e282acf09f9880", lowerHex(out, 10));
    EXPECT_EQ('#', out[10]);  // no terminator

    // A one-octet character may fill the last place; a longer one needs one spare.
    EXPECT_EQ(1, rtWCSToUTF8(nullptr, L"A", 1, out, 1));
    EXPECT_EQ(-1, rtWCSToUTF8(nullptr, L"AB", 2, out, 1));
    EXPECT_EQ(-1, rtWCSToUTF8(nullptr, L"\u00E9", 1, out, 2));
    EXPECT_EQ(2, rtWCSToUTF8(nullptr, L"\u00E9", 1, out, 3));
    EXPECT_EQ(-1, rtWCSToUTF8(nullptr, L"A\u00E9", 2, out, 3));
    EXPECT_EQ(3, rtWCSToUTF8(nullptr, L"A\u00E9", 2, out, 4));

    EXPECT_EQ(0, rtWCSToUTF8(nullptr, L"abc", 0, out, 0));
    const wchar_t high[] = {L'a', static_cast<wchar_t>(0x80000000u)};
    EXPECT_EQ(RT_E_BAD_UTF8, rtWCSToUTF8(nullptr, high, 2, out, sizeof out));
    // Surrogates and values beyond 0x10FFFF are written like any other.
    const wchar_t odd[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x7FFFFFFF)};
    EXPECT_EQ(9, rtWCSToUTF8(nullptr, odd, 2, out, sizeof out));
    EXPECT_EQ("eda080fdbfbfbfbfbf", lowerHex(out, 9));
}

TEST_F(RtCharStr, Utf8StrdupCopiesOntoTheHeap) {
    const unsigned char text[] = "Gr\xC3\xBC\xC3\x9F" "e";
    unsigned char* copy = rtUTF8Strdup(&ctxt, text);
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(text, copy);
    EXPECT_STREQ(reinterpret_cast<const char*>(text), reinterpret_cast<const char*>(copy));
}

TEST(RtUTF8, FailuresLeaveTheLastErrorAlone) {
    SetLastError(777);
    const Bytes bad = z(hex("ff"));
    EXPECT_EQ(RT_E_BAD_UTF8, rtUTF8Len(bad.data()));
    EXPECT_EQ(777u, GetLastError());
}

// ---- Real strings ------------------------------------------------------------------------

// Every UTF8String, BMPString and UniversalString of the corpus certificates and CMS
// messages: lengths agree, UTF-8 converts to wide text and back octet for octet, and
// the counted strings copy deep.
TEST_F(RtCharStr, StringsOfRealCertificatesRoundTrip) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    size_t utf8 = 0, bmp = 0;
    std::vector<std::string> files = testsupport::corpusFiles("cert");
    for (const auto& f : testsupport::corpusFiles("cms"))
        files.push_back(f);
    for (const auto& path : files) {
        const auto der = testsupport::readFile(path);
        rtwalk::walk(der, [&](const rtwalk::Element& e) {
            if (e.tagOctet == 0x0C) {
                Bytes text(e.data, e.data + e.size);
                if (std::find(text.begin(), text.end(), 0) != text.end())
                    return;
                text.push_back(0);
                const int len = rtUTF8Len(text.data());
                if (len < 0)
                    return;  // not ours to judge here
                std::vector<wchar_t> wide(static_cast<size_t>(len) + 1);
                ASSERT_EQ(len, rtUTF8ToWCS(&ctxt, text.data(), wide.data(), wide.size())) << path;
                size_t need = 1;
                for (int i = 0; i < len; ++i)
                    need += static_cast<size_t>(rtUTF8CharSize(static_cast<uint32_t>(wide[static_cast<size_t>(i)])));
                std::vector<unsigned char> back(need);
                const int n = rtWCSToUTF8(&ctxt, wide.data(), static_cast<size_t>(len), back.data(), back.size());
                ASSERT_EQ(static_cast<int>(e.size), n) << path;
                EXPECT_EQ(0, memcmp(back.data(), e.data, e.size)) << path;
                ++utf8;
            } else if (e.tagOctet == 0x1E && e.size % 2 == 0) {
                std::vector<uint16_t> units;
                for (size_t i = 0; i < e.size; i += 2)
                    units.push_back(static_cast<uint16_t>(e.data[i] << 8 | e.data[i + 1]));
                Asn116BitCharString src{static_cast<ASN1UINT>(units.size()), units.data()}, dst{};
                ASSERT_EQ(1, rtCopy16BitCharStr(&ctxt, &src, &dst)) << path;
                ASSERT_EQ(src.nchars, dst.nchars);
                if (dst.nchars) {
                    EXPECT_EQ(0, memcmp(units.data(), dst.data, units.size() * 2)) << path;
                }
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
