// Runtime big integers: text in every radix, two's-complement octets, text out, comparison.
#include "asn1rt/bigint.h"
#include "ber_test_util.h"
#include "rt_alloc_counter.h"

#include <cstring>
#include <utility>

namespace {

using bertest::lowerHex;
using bertest::statusName;

class RtBigInt : public rttest::CountedContext {  // over the counting heap: nothing may stay live
protected:
    void TearDown() override { rtBigIntFree(&ctxt, &value), CountedContext::TearDown(); }
    static std::string state(const ASN1BigInt& v) {
        return std::to_string(v.sign) + " " + std::to_string(v.numOcts) + "/" + std::to_string(v.capacity) + " " +
               std::to_string(v.dynamic) + " " + mag(v);
    }
    static std::string mag(const ASN1BigInt& v) { return lowerHex(v.mag, v.numOcts > 0 ? (size_t)v.numOcts : 0); }

    ASN1BigInt& set(const std::string& text, int radix = 0) {
        rtBigIntFree(&ctxt, &value);
        EXPECT_EQ(0, rtBigIntSetStr(&ctxt, &value, text.c_str(), radix)) << text;
        return value;
    }

    // The two's-complement octets, whose count rtBigIntGetDataLen gives beforehand.
    std::string data(const ASN1BigInt& v) {
        std::vector<uint8_t> out(static_cast<size_t>(rtBigIntGetDataLen(&v)) + 4, 0xEE);
        const int n = rtBigIntGetData(&ctxt, &v, out.data(), out.size());
        return n == rtBigIntGetDataLen(&v) ? lowerHex(out.data(), n > 0 ? static_cast<size_t>(n) : 0) : "length differs";
    }

    // The text in a radix with room `capacity`, or the status and whether it was recorded.
    std::string text(const ASN1BigInt& v, int radix, size_t capacity = 4096) {
        std::vector<char> out(capacity + 1, '#');
        rtErrReset(&ctxt.errInfo);
        const int st = rtBigIntToString(&ctxt, &v, radix, out.data(), capacity);
        if (st == 0 && v.sign >= 0 && strlen(out.data()) > (size_t)rtBigIntDigitsNum(&v, radix))
            return "digit count exceeded";
        return st == 0 ? out.data() : statusName(st) + (ctxt.errInfo.status == st ? " recorded" : "");
    }

    ASN1BigInt value{};
};

TEST_F(RtBigInt, SetStrRadixAndSignTable) {
    bertest::LastErrorUntouched platformState;
    // Sign and magnitude in hex, or the status, which each failure records. Radix 0 reads a prefix.
    const struct { const char* text; int radix; const char* result; } cases[] = {
        {"0b101", 0, "+05"}, {"0o17", 0, "+0f"}, {"017", 0, "+11"}, {"42", 0, "+2a"}, {"   42", 0, "+2a"},
        {"-42", 0, "-2a"}, {"0X1F", 0, "BAD_VALUE"}, {"0x", 0, "BAD_VALUE"}, {"0b", 0, "BAD_VALUE"},
        {"0o", 0, "BAD_VALUE"}, {"0b12", 0, "BAD_VALUE"}, {"", 0, "BAD_VALUE"}, {"   ", 0, "BAD_VALUE"},
        // Hex and binary digits with a set top bit and no leading 0 are two's complement.
        {"0xff", 0, "-01"}, {"0x0ff", 0, "+ff"}, {"0x80", 0, "-80"}, {"0xff00", 0, "-0100"}, {"0x7f", 0, "+7f"},
        {"0x123", 0, "+0123"}, {"0x0ABCDEF", 0, "+abcdef"},
        {"0xfff", 0, "+0fff"},  // odd digits: the first octet holds one digit
        {"0b10000000", 0, "-80"}, {"0b1000000", 0, "+40"}, {"0b110000000", 0, "+0180"},
        {"0x00", 0, "+00"}, {"0x0000", 0, "+0000"}, {"0x000f", 0, "+0f"},
        // An explicit radix takes no prefix; radix 8 never reads two's complement.
        {"ff", 16, "-01"}, {"00ff", 16, "+ff"}, {"101", 2, "+05"}, {"17", 8, "+0f"}, {"777", 8, "+01ff"},
        {"-777", 8, "-01ff"}, {"377", 8, "+ff"}, {"255", 10, "+ff"}, {"256", 10, "+0100"}, {"-128", 10, "-80"},
        {"12345678901234567890", 10, "+ab54a98ceb1f0ad2"}, {"-0000012345678901234567890", 10, "-ab54a98ceb1f0ad2"},
        {"0x12", 16, "BAD_VALUE"}, {"1g", 16, "BAD_VALUE"}, {"-5", 16, "BAD_VALUE"}, {"102", 2, "BAD_VALUE"},
        {"19", 8, "BAD_VALUE"}, {"1a", 10, "BAD_VALUE"}, {"12 ", 10, "BAD_VALUE"}, {"1-1", 10, "BAD_VALUE"},
        {"-", 10, "BAD_VALUE"}, {"-", 0, "BAD_VALUE"}, {"-0", 0, "0"}, {"0", 0, "0"}, {"000", 10, "0"}, {"-00", 8, "0"},
        // Each group of digits goes through the C library's conversion, which takes a sign of its own.
        {"+5", 10, "+05"},
        // The radix is tested before the text.
        {"12", 3, "BAD_ARGUMENT"}, {"12", 4, "BAD_ARGUMENT"}, {"12", 17, "BAD_ARGUMENT"}, {"12", -1, "BAD_ARGUMENT"},
        {"", 1, "BAD_ARGUMENT"}, {nullptr, 10, "BAD_ARGUMENT"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text ? c.text : "(null)") + " radix " + std::to_string(c.radix));
        rtBigIntFree(&ctxt, &value), rtErrReset(&ctxt.errInfo);
        const int st = rtBigIntSetStr(&ctxt, &value, c.text, c.radix);
        EXPECT_EQ(st, ctxt.errInfo.status);
        const char* sign = value.sign > 0 ? "+" : value.sign ? "-" : "0";
        EXPECT_EQ(c.result, st ? statusName(st) : sign + mag(value));
    }
    // The first failure of a run stays in the error block.
    EXPECT_EQ(RT_E_BAD_VALUE, rtBigIntSetStr(&ctxt, &value, "xyz", 16));
    EXPECT_EQ(RT_E_BAD_ARGUMENT, ctxt.errInfo.status);
}

TEST_F(RtBigInt, StorageOfTheRecord) {
    // The room is made before the digits are read: a bad digit leaves it half filled.
    EXPECT_EQ(RT_E_BAD_VALUE, rtBigIntSetStr(&ctxt, &value, "12z4", 16));
    EXPECT_EQ("1 2/2 1 1200", state(value));
    // Local storage serves while it is large enough, then the record moves to the heap.
    uint8_t local[2];
    rtBigIntFree(&ctxt, &value);
    value = ASN1BigInt{0, local, 0, 2, 0};
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &value, "0x7fff", 0));
    EXPECT_TRUE(value.mag == local && !value.dynamic);
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &value, "0x7fffff", 0));
    EXPECT_NE(local, value.mag);
    EXPECT_EQ("1 3/3 1 7fffff", state(value));
    // A dynamic record grows in place on the heap; leading zeros go, the capacity stays.
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &value, "0x00000000ff", 0));
    EXPECT_EQ("1 1/5 1 ff", state(value));
    rtBigIntFree(&ctxt, &value);
    EXPECT_TRUE(value.capacity == 0 && value.dynamic == 0 && value.mag == nullptr);
    // Storage that is not the heap's is left alone.
    uint8_t other[8] = {0x12};
    value = ASN1BigInt{1, other, 1, 8, 0};
    rtBigIntFree(&ctxt, &value);
    EXPECT_EQ(other, std::exchange(value.mag, nullptr));
    // Decimal sizing comes from the digits after the leading zeros.
    EXPECT_EQ(2, set("0000000000255", 10).capacity);  // ((3 * 3402 >> 10) + 8) / 8
    EXPECT_EQ("1 16/16 1 4b3b4ca85a86c47a098a223fffffffff", state(set("99999999999999999999999999999999999999", 10)));
    // A refused heap is recorded as NO_MEMORY.
    rtBigIntFree(&ctxt, &value), rtErrReset(&ctxt.errInfo);
    {
        bertest::RationedAllocator none;
        EXPECT_EQ(RT_E_NO_MEMORY, rtBigIntSetStr(&ctxt, &value, "0x7f", 0));
        EXPECT_TRUE(value.mag == nullptr && value.capacity == 0);
    }
    EXPECT_EQ(RT_E_NO_MEMORY, ctxt.errInfo.status);
    set("-255");
    uint8_t room[4];
    ASN1BigInt v{0, room, 0, 4, 0};
    bertest::RationedAllocator none;
    // The decimal text works on a heap copy; local storage that is large enough needs no heap.
    EXPECT_EQ("NO_MEMORY recorded", text(value, 10));
    EXPECT_EQ(0, rtBigIntSetStr(&ctxt, &v, "65535", 10));
    EXPECT_EQ("00ffff", text(v, 16));
}

TEST_F(RtBigInt, OctetsAndTextTables) {
    const struct { const char* text; const char* octets; } octetCases[] = {
        {"0", "00"}, {"255", "00ff"}, {"127", "7f"}, {"128", "0080"}, {"-1", "ff"}, {"-128", "80"},
        {"-129", "ff7f"}, {"-255", "ff01"}, {"-256", "ff00"}, {"-32768", "8000"}, {"-32769", "ff7fff"},
        {"0x0000", "0000"}, {"12345678901234567890", "00ab54a98ceb1f0ad2"},
        // Only the second octet decides between negating and inverting the first one:
        // -0x800001 comes out one octet short, with the sign lost.
        {"-8388609", "7fffff"},
    };
    for (const auto& c : octetCases) EXPECT_EQ(c.octets, data(set(c.text))) << c.text;
    uint8_t out[3];
    EXPECT_EQ(2 * RT_E_TOO_LONG, rtBigIntGetData(&ctxt, &set("-32769"), out, 2) + ctxt.errInfo.status);

    // `capacity` 0: room enough. Radix 16 and 2 write the two's-complement octets at full width.
    const struct { const char* text; int radix; size_t capacity; const char* out; } cases[] = {
        {"255", 16, 0, "00ff"}, {"127", 16, 0, "7f"}, {"4095", 16, 0, "0fff"}, {"-1", 16, 0, "ff"},
        {"-128", 16, 0, "80"}, {"0", 16, 0, "00"}, {"0x00", 16, 0, "00"},
        {"12345678901234567890", 16, 0, "00ab54a98ceb1f0ad2"},
        // The places above the magnitude are filled with 0 whatever the sign.
        {"-129", 16, 0, "007f"}, {"5", 2, 0, "00000101"}, {"-128", 2, 0, "10000000"},
        {"255", 2, 0, "0000000011111111"}, {"0", 2, 0, "00000000"},
        {"255", 10, 0, "255"}, {"-255", 10, 0, "-255"}, {"1005", 10, 0, "1005"}, {"100005", 10, 0, "100005"},
        {"7", 10, 0, "7"}, {"12345678901234567890", 10, 0, "12345678901234567890"},
        {"-98765432109876543210987654321", 10, 0, "-98765432109876543210987654321"}, {"511", 8, 0, "777"},
        {"8", 8, 0, "10"}, {"4096", 8, 0, "10000"}, {"-1", 8, 0, "177777"}, {"-256", 8, 0, "77777400"},
        // Bit path: the digits made odd must fit, so 4 digits need 5 places; recorded.
        {"255", 16, 4, "TOO_LONG recorded"}, {"255", 16, 5, "00ff"}, {"-1", 16, 2, "TOO_LONG recorded"},
        {"-1", 16, 3, "ff"},
        // Arithmetic path: the digits and a terminator; running short is only returned.
        {"-255", 10, 4, "TOO_LONG"}, {"-255", 10, 5, "-255"}, {"1005", 10, 2, "TOO_LONG"}, {"1005", 10, 4, "TOO_LONG"},
        {"1005", 10, 5, "1005"},
        // Zero has no decimal or octal text (returned); any radix but 2, 8, 10, 16 is recorded.
        {"0", 10, 0, "BAD_ARGUMENT"}, {"0", 8, 0, "BAD_ARGUMENT"}, {"5", 0, 0, "BAD_ARGUMENT recorded"},
        {"5", 3, 0, "BAD_ARGUMENT recorded"}, {"5", 4, 0, "BAD_ARGUMENT recorded"}, {"5", 36, 0, "BAD_ARGUMENT recorded"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.out, text(set(c.text), c.radix, c.capacity ? c.capacity : 4096)) << c.text << " radix " << c.radix;
    // The digit count: 1 octet is 16384 / 3402 decimal digits, 8 octets 73728 / 3402.
    const auto digits = [&](const char* t, int radix) { return rtBigIntDigitsNum(&set(t), radix); };
    EXPECT_EQ((std::vector<int>{4, 4, 16, 5, 2, 21}),
              (std::vector<int>{digits("255", 10), digits("255", 16), digits("255", 2), digits("255", 8),
                                digits("0", 10), digits("12345678901234567890", 10)}));
}

TEST_F(RtBigInt, StrCompareTable) {
    // 700 decimal digits need about 290 octets, more than the 256 of local storage.
    const std::string big(700, '9'), lower = big.substr(0, 699) + "8";
    const struct { std::string a, b; int result; } cases[] = {
        {"0x10", "16", 0}, {"0b10000", "0o20", 0}, {"0", "-0", 0}, {"-5", "3", -1},
        {"3", "-5", 1}, {"255", "256", -1}, {"0x0100", "255", 1}, {"-300", "-200", -1}, {"-200", "-201", 1},
        {"0xff", "-1", 0},  // two's complement text
        {"1", "0", 1}, {"0", "-1", 1}, {big, lower, 1}, {lower, big, -1}, {big, big, 0}, {"-" + big, "-" + lower, -1},
        // The record of a bad text is compared as far as it was filled.
        {"", "0", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.result, rtBigIntStrCompare(&ctxt, c.a.c_str(), c.b.c_str())) << c.a.substr(0, 20) << " vs " << c.b.substr(0, 20);
        EXPECT_EQ(c.a.empty() ? RT_E_BAD_VALUE : 0, ctxt.errInfo.status);
    }
}

// Corpus INTEGERs in positive minimal DER: their hex text comes back octet for octet, and through decimal.
TEST_F(RtBigInt, IntegersOfRealCertificatesRoundTrip) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    size_t checked = 0;
    for (const auto& path : testsupport::corpusFiles("cert")) {
        bertest::forEachPrimitive(testsupport::readFile(path), [&](ASN1TAG tag, const uint8_t* octets, size_t size) {
            if (tag != ASN_ID_INT || size == 0 || size > 1024 || (octets[0] & 0x80) ||
                (size > 1 && octets[0] == 0 && !(octets[1] & 0x80)))
                return;  // negative or not minimal
            const std::string hexText = lowerHex(octets, size);
            EXPECT_EQ(hexText, data(set(hexText, 16))) << path;
            EXPECT_EQ(hexText, text(value, 16)) << path;
            if (!(size == 1 && octets[0] == 0)) {
                const std::string dec = text(value, 10);
                EXPECT_EQ(0, rtBigIntStrCompare(&ctxt, dec.c_str(), ("0x" + hexText).c_str())) << path;
                EXPECT_EQ(hexText, data(set(dec, 10))) << path;
            }
            ++checked;
        });
    }
    EXPECT_GT(checked, 300u);
    EXPECT_EQ(0, ctxt.errInfo.status);
}

}  // namespace
