// Big integers of the runtime: text in every radix and sign rule, two's-complement octets,
// text out, comparison, and what each failure leaves in the error block.
#include "asn1rt/bigint.h"
#include "asn1rt/context.h"
#include "rt_der_walk.h"
#include "support/testsupport.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

// Lower-case hex, as the runtime writes it.
std::string toHex(const uint8_t* p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

class RtBigInt : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, rtInitContext(&ctxt, nullptr));
        rtBigIntInit(&value);
    }
    void TearDown() override {
        rtBigIntFree(&ctxt, &value);
        rtFreeContext(&ctxt);
    }

    std::string mag(const ASN1BigInt& v) const {
        return v.numOcts > 0 ? toHex(v.mag, static_cast<size_t>(v.numOcts)) : std::string();
    }

    // The record of a text, which must convert.
    ASN1BigInt& set(const char* text, int radix = 0) {
        rtBigIntFree(&ctxt, &value);
        EXPECT_EQ(0, rtBigIntSetStr(&ctxt, &value, text, radix)) << text;
        return value;
    }

    std::string data(const ASN1BigInt& v) {
        std::vector<uint8_t> out(static_cast<size_t>(rtBigIntGetDataLen(&v)) + 4, 0xEE);
        int n = rtBigIntGetData(&ctxt, &v, out.data(), out.size());
        EXPECT_EQ(rtBigIntGetDataLen(&v), n);
        return n > 0 ? toHex(out.data(), static_cast<size_t>(n)) : std::string();
    }

    std::string text(const ASN1BigInt& v, int radix) {
        std::vector<char> out(4096, '#');
        int status = rtBigIntToString(&ctxt, &v, radix, out.data(), out.size());
        EXPECT_EQ(0, status);
        return status == 0 ? std::string(out.data()) : std::string();
    }

    ASN1CTXT ctxt{};
    ASN1BigInt value{};
};

struct SetStrCase {
    const char* text;
    int radix;
    int status;
    int sign;
    const char* magnitude;  // hex, most significant first
};

TEST_F(RtBigInt, SetStrRadixAndSignTable) {
    const SetStrCase cases[] = {
        // Radix 0 takes its base from a prefix that opens with the digit 0.
        {"0b101", 0, 0, 1, "05"},
        {"0o17", 0, 0, 1, "0f"},
        {"017", 0, 0, 1, "11"},
        {"42", 0, 0, 1, "2a"},
        {"   42", 0, 0, 1, "2a"},
        {"-42", 0, 0, -1, "2a"},
        // Hexadecimal and binary digits with a set top bit and no leading 0 are two's
        // complement.
        {"0xff", 0, 0, -1, "01"},
        {"0x0ff", 0, 0, 1, "ff"},
        {"0x80", 0, 0, -1, "80"},
        {"0xff00", 0, 0, -1, "0100"},
        {"0x7f", 0, 0, 1, "7f"},
        {"0xfff", 0, 0, 1, "0fff"},  // odd digits: the first octet holds one digit
        {"0x123", 0, 0, 1, "0123"},
        {"0xABCDEF", 0, 0, -1, "543211"},
        {"0x0ABCDEF", 0, 0, 1, "abcdef"},
        {"0b10000000", 0, 0, -1, "80"},
        {"0b1000000", 0, 0, 1, "40"},
        {"0b110000000", 0, 0, 1, "0180"},
        // Zero octets only are kept as they are, with sign 1.
        {"0x00", 0, 0, 1, "00"},
        {"0x0000", 0, 0, 1, "0000"},
        {"0x000f", 0, 0, 1, "0f"},
        // An explicit radix takes no prefix.
        {"ff", 16, 0, -1, "01"},
        {"00ff", 16, 0, 1, "ff"},
        {"101", 2, 0, 1, "05"},
        {"17", 8, 0, 1, "0f"},
        {"777", 8, 0, 1, "01ff"},
        {"-777", 8, 0, -1, "01ff"},
        {"377", 8, 0, 1, "ff"},  // radix 8 never reads two's complement
        {"255", 10, 0, 1, "ff"},
        {"-255", 10, 0, -1, "ff"},
        {"256", 10, 0, 1, "0100"},
        {"-128", 10, 0, -1, "80"},
        {"12345678901234567890", 10, 0, 1, "ab54a98ceb1f0ad2"},
        {"-0000012345678901234567890", 10, 0, -1, "ab54a98ceb1f0ad2"},
        // Zero in the arithmetic radices has sign 0 and no octets.
        {"-0", 0, 0, 0, ""},
        {"0", 0, 0, 0, ""},
        {"000", 10, 0, 0, ""},
        {"-00", 8, 0, 0, ""},
        // Each group of digits goes through the C library's conversion, which takes a
        // sign of its own.
        {"+5", 10, 0, 1, "05"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " radix " + std::to_string(c.radix));
        rtBigIntFree(&ctxt, &value);
        rtErrReset(&ctxt.errInfo);
        EXPECT_EQ(c.status, rtBigIntSetStr(&ctxt, &value, c.text, c.radix));
        EXPECT_EQ(c.sign, value.sign);
        EXPECT_EQ(c.magnitude, mag(value));
        EXPECT_EQ(0, ctxt.errInfo.status);
    }
}

TEST_F(RtBigInt, SetStrFailuresAreRecorded) {
    const struct {
        const char* text;
        int radix;
        int status;
    } cases[] = {
        {"", 0, RT_E_BAD_VALUE},
        {"   ", 0, RT_E_BAD_VALUE},
        {"0x", 0, RT_E_BAD_VALUE},
        {"0b", 0, RT_E_BAD_VALUE},
        {"0o", 0, RT_E_BAD_VALUE},
        {"-", 10, RT_E_BAD_VALUE},
        {"-", 0, RT_E_BAD_VALUE},
        {"0x12", 16, RT_E_BAD_VALUE},  // no prefix with an explicit radix
        {"0X1F", 0, RT_E_BAD_VALUE},   // the prefixes are lower case
        {"1g", 16, RT_E_BAD_VALUE},
        {"-5", 16, RT_E_BAD_VALUE},
        {"102", 2, RT_E_BAD_VALUE},
        {"0b12", 0, RT_E_BAD_VALUE},
        {"19", 8, RT_E_BAD_VALUE},
        {"1a", 10, RT_E_BAD_VALUE},
        {"12 ", 10, RT_E_BAD_VALUE},
        {"1-1", 10, RT_E_BAD_VALUE},
        {"12", 3, RT_E_BAD_ARGUMENT},
        {"12", 4, RT_E_BAD_ARGUMENT},
        {"12", 17, RT_E_BAD_ARGUMENT},
        {"12", -1, RT_E_BAD_ARGUMENT},
        {"", 1, RT_E_BAD_ARGUMENT},  // the radix is tested before the text
        {nullptr, 10, RT_E_BAD_ARGUMENT},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text ? c.text : "(null)") + " radix " + std::to_string(c.radix));
        rtBigIntFree(&ctxt, &value);
        rtErrReset(&ctxt.errInfo);
        EXPECT_EQ(c.status, rtBigIntSetStr(&ctxt, &value, c.text, c.radix));
        EXPECT_EQ(c.status, ctxt.errInfo.status);
    }
}

TEST_F(RtBigInt, FirstFailureOfARunStaysInTheErrorBlock) {
    EXPECT_EQ(RT_E_BAD_VALUE, rtBigIntSetStr(&ctxt, &value, "xyz", 16));
    EXPECT_EQ(RT_E_BAD_ARGUMENT, rtBigIntSetStr(&ctxt, &value, "1", 5));
    EXPECT_EQ(RT_E_BAD_VALUE, ctxt.errInfo.status);
}

TEST_F(RtBigInt, HalfFilledRecordOnABadDigit) {
    // The room is made before the digits are read.
    EXPECT_EQ(RT_E_BAD_VALUE, rtBigIntSetStr(&ctxt, &value, "12z4", 16));
    EXPECT_EQ(1, value.sign);
    EXPECT_EQ(2, value.numOcts);
    EXPECT_EQ(1, value.dynamic);
    EXPECT_EQ("1200", mag(value));
}

TEST_F(RtBigInt, LocalStorageMovesToTheHeapWhenTooSmall) {
    uint8_t local[2];
    value.mag = local;
    value.capacity = sizeof local;
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &value, "0x7fff", 0));
    EXPECT_EQ(local, value.mag);
    EXPECT_EQ(0, value.dynamic);
    EXPECT_EQ("7fff", mag(value));

    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &value, "0x7fffff", 0));
    EXPECT_NE(local, value.mag);
    EXPECT_EQ(1, value.dynamic);
    EXPECT_EQ(3, value.capacity);
    EXPECT_EQ("7fffff", mag(value));

    // A dynamic record grows in place on the heap; leading zeros go, the capacity stays.
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &value, "0x00000000ff", 0));
    EXPECT_EQ(5, value.capacity);
    EXPECT_EQ("ff", mag(value));
}

TEST_F(RtBigInt, DecimalSizingComesFromTheDigitsAfterLeadingZeros) {
    set("0000000000255", 10);
    EXPECT_EQ(2, value.capacity);  // ((3 * 3402 >> 10) + 8) / 8
    set("99999999999999999999999999999999999999", 10);
    EXPECT_EQ(16, value.capacity);
    EXPECT_EQ("4b3b4ca85a86c47a098a223fffffffff", mag(value));
}

TEST_F(RtBigInt, FreeGivesBackHeapStorageOnly) {
    set("0x7fffffffffff");
    ASSERT_EQ(1, value.dynamic);
    rtBigIntFree(&ctxt, &value);
    EXPECT_EQ(nullptr, value.mag);
    EXPECT_EQ(0, value.capacity);
    EXPECT_EQ(0, value.dynamic);

    uint8_t local[8] = {0x12};
    value.mag = local;
    value.capacity = 8;
    value.numOcts = 1;
    rtBigIntFree(&ctxt, &value);
    EXPECT_EQ(local, value.mag);  // not the heap's to free
    value.mag = nullptr;
}

struct DataCase {
    const char* text;
    int length;
    const char* octets;
};

TEST_F(RtBigInt, DataLengthAndOctetsTable) {
    const DataCase cases[] = {
        {"0", 1, "00"},
        {"255", 2, "00ff"},
        {"127", 1, "7f"},
        {"128", 2, "0080"},
        {"-1", 1, "ff"},
        {"-128", 1, "80"},
        {"-129", 2, "ff7f"},
        {"-255", 2, "ff01"},
        {"-256", 2, "ff00"},
        {"-32768", 2, "8000"},
        {"-32769", 3, "ff7fff"},
        {"-65536", 3, "ff0000"},
        {"65535", 3, "00ffff"},
        {"0x0000", 2, "0000"},
        {"12345678901234567890", 9, "00ab54a98ceb1f0ad2"},
        // Only the second octet decides between negating and inverting the first one:
        // -0x800001 comes out one octet short, with the sign lost.
        {"-8388609", 3, "7fffff"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        set(c.text);
        EXPECT_EQ(c.length, rtBigIntGetDataLen(&value));
        EXPECT_EQ(c.octets, data(value));
    }
}

TEST_F(RtBigInt, GetDataIntoAShortBufferIsRecorded) {
    set("-32769");
    uint8_t out[3];
    EXPECT_EQ(RT_E_TOO_LONG, rtBigIntGetData(&ctxt, &value, out, 2));
    EXPECT_EQ(RT_E_TOO_LONG, ctxt.errInfo.status);
    rtErrReset(&ctxt.errInfo);
    EXPECT_EQ(3, rtBigIntGetData(&ctxt, &value, out, 3));
    EXPECT_EQ(0, ctxt.errInfo.status);
}

struct ToStringCase {
    const char* text;
    int radix;
    const char* out;
};

TEST_F(RtBigInt, ToStringTable) {
    const ToStringCase cases[] = {
        // Fixed width of the two's-complement octets: positive values keep a leading 00.
        {"255", 16, "00ff"},
        {"127", 16, "7f"},
        {"4095", 16, "0fff"},
        {"-1", 16, "ff"},
        {"-128", 16, "80"},
        {"0", 16, "00"},
        {"0x00", 16, "00"},
        {"12345678901234567890", 16, "00ab54a98ceb1f0ad2"},
        // The places above the magnitude are filled with 0 whatever the sign.
        {"-129", 16, "007f"},
        {"5", 2, "00000101"},
        {"-128", 2, "10000000"},
        {"255", 2, "0000000011111111"},
        {"0", 2, "00000000"},
        {"255", 10, "255"},
        {"-255", 10, "-255"},
        {"100", 10, "100"},
        {"1005", 10, "1005"},
        {"100005", 10, "100005"},
        {"7", 10, "7"},
        {"12345678901234567890", 10, "12345678901234567890"},
        {"-98765432109876543210987654321", 10, "-98765432109876543210987654321"},
        {"511", 8, "777"},
        {"8", 8, "10"},
        {"64", 8, "100"},
        {"4096", 8, "10000"},
        // A negative value in octal is its two's complement, one octet longer.
        {"-1", 8, "177777"},
        {"-256", 8, "77777400"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " radix " + std::to_string(c.radix));
        set(c.text);
        EXPECT_EQ(c.out, text(value, c.radix));
        EXPECT_EQ(0, ctxt.errInfo.status);
    }
}

TEST_F(RtBigInt, ToStringCapacityRules) {
    set("255");
    char out[8];
    // Bit path: the digits made odd must fit, so 4 digits need 5 places.
    EXPECT_EQ(RT_E_TOO_LONG, rtBigIntToString(&ctxt, &value, 16, out, 4));
    EXPECT_EQ(RT_E_TOO_LONG, ctxt.errInfo.status);
    rtErrReset(&ctxt.errInfo);
    EXPECT_EQ(0, rtBigIntToString(&ctxt, &value, 16, out, 5));
    EXPECT_STREQ("00ff", out);

    set("-1");
    EXPECT_EQ(RT_E_TOO_LONG, rtBigIntToString(&ctxt, &value, 16, out, 2));
    rtErrReset(&ctxt.errInfo);
    EXPECT_EQ(0, rtBigIntToString(&ctxt, &value, 16, out, 3));
    EXPECT_STREQ("ff", out);

    // Arithmetic path: the digits and a terminator; running short is only returned.
    set("-255");
    EXPECT_EQ(RT_E_TOO_LONG, rtBigIntToString(&ctxt, &value, 10, out, 4));
    EXPECT_EQ(0, ctxt.errInfo.status);
    EXPECT_EQ(0, rtBigIntToString(&ctxt, &value, 10, out, 5));
    EXPECT_STREQ("-255", out);
    set("1005");
    EXPECT_EQ(RT_E_TOO_LONG, rtBigIntToString(&ctxt, &value, 10, out, 2));
    EXPECT_EQ(RT_E_TOO_LONG, rtBigIntToString(&ctxt, &value, 10, out, 4));
    EXPECT_EQ(0, rtBigIntToString(&ctxt, &value, 10, out, 5));
    EXPECT_STREQ("1005", out);
}

TEST_F(RtBigInt, ToStringFailures) {
    char out[16];
    // Zero has no decimal or octal text; the status is returned, not recorded.
    set("0");
    EXPECT_EQ(RT_E_BAD_ARGUMENT, rtBigIntToString(&ctxt, &value, 10, out, sizeof out));
    EXPECT_EQ(RT_E_BAD_ARGUMENT, rtBigIntToString(&ctxt, &value, 8, out, sizeof out));
    EXPECT_EQ(0, ctxt.errInfo.status);
    // Any radix but 2, 8, 10 and 16 is recorded.
    set("5");
    for (int radix : {0, 3, 4, 12, 36}) {
        rtErrReset(&ctxt.errInfo);
        EXPECT_EQ(RT_E_BAD_ARGUMENT, rtBigIntToString(&ctxt, &value, radix, out, sizeof out)) << radix;
        EXPECT_EQ(RT_E_BAD_ARGUMENT, ctxt.errInfo.status);
    }
}

TEST_F(RtBigInt, DigitsNumIsAnUpperBound) {
    const struct {
        const char* text;
        int radix;
        int digits;
    } cases[] = {
        {"255", 10, 4},   // 1 octet: 16384 / 3402
        {"255", 16, 4},
        {"255", 2, 16},
        {"255", 8, 5},
        {"12345678901234567890", 10, 21},  // 8 octets: 73728 / 3402
        {"0", 10, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        set(c.text);
        EXPECT_EQ(c.digits, rtBigIntDigitsNum(&value, c.radix)) << c.radix;
        if (value.numOcts > 0) {
            EXPECT_LE(text(value, c.radix).size(), static_cast<size_t>(c.digits));
        }
    }
}

struct CompareCase {
    const char* a;
    const char* b;
    int result;
};

TEST_F(RtBigInt, StrCompareTable) {
    const CompareCase cases[] = {
        {"0x10", "16", 0},
        {"0b10000", "0o20", 0},
        {"16", "0x10", 0},
        {"0", "-0", 0},
        {"-5", "3", -1},
        {"3", "-5", 1},
        {"255", "256", -1},
        {"0x0100", "255", 1},
        {"-300", "-200", -1},
        {"-200", "-201", 1},
        {"0xff", "-1", 0},  // two's complement text
        {"1", "0", 1},
        {"0", "-1", 1},
        // The record of a bad text is compared as far as it was filled.
        {"", "0", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        EXPECT_EQ(c.result, rtBigIntStrCompare(&ctxt, c.a, c.b));
    }
    EXPECT_EQ(RT_E_BAD_VALUE, ctxt.errInfo.status);  // from the empty text
}

TEST_F(RtBigInt, StrCompareBeyondLocalStorage) {
    // 700 decimal digits need about 290 octets, more than the 256 of local storage.
    std::string a(700, '9');
    std::string b = a;
    b[699] = '8';
    EXPECT_EQ(1, rtBigIntStrCompare(&ctxt, a.c_str(), b.c_str()));
    EXPECT_EQ(-1, rtBigIntStrCompare(&ctxt, b.c_str(), a.c_str()));
    EXPECT_EQ(0, rtBigIntStrCompare(&ctxt, a.c_str(), a.c_str()));
    EXPECT_EQ(-1, rtBigIntStrCompare(&ctxt, ("-" + a).c_str(), ("-" + b).c_str()));
    EXPECT_EQ(0, ctxt.errInfo.status);
}

TEST_F(RtBigInt, LargeValuesRoundTripBetweenRadices) {
    std::string dec = "1";
    for (int i = 0; i < 60; ++i)
        dec += "0123456789"[(i * 7) % 10];
    set(dec.c_str(), 10);
    const std::string hexText = text(value, 16);
    ASN1BigInt other;
    rtBigIntInit(&other);
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &other, hexText.c_str(), 16));
    EXPECT_EQ(mag(value), mag(other));
    EXPECT_EQ(1, other.sign);
    std::vector<char> out(200);
    ASSERT_EQ(0, rtBigIntToString(&ctxt, &other, 10, out.data(), out.size()));
    EXPECT_EQ(dec, std::string(out.data()));
    ASSERT_EQ(0, rtBigIntToString(&ctxt, &other, 8, out.data(), out.size()));
    ASN1BigInt octal;
    rtBigIntInit(&octal);
    ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &octal, out.data(), 8));
    EXPECT_EQ(mag(value), mag(octal));
    rtBigIntFree(&ctxt, &other);
    rtBigIntFree(&ctxt, &octal);
}

// Makes every allocation of the runtime's heaps fail while it lives.
class FailingAllocator {
public:
    FailingAllocator() : m_saved(g_malloc_func) {
        g_malloc_func = [](void*, size_t) -> void* { return nullptr; };
    }
    ~FailingAllocator() { g_malloc_func = m_saved; }

private:
    rtMallocFunc m_saved;
};

TEST_F(RtBigInt, RefusedHeapIsRecordedAsNoMemory) {
    {
        FailingAllocator failing;
        EXPECT_EQ(RT_E_NO_MEMORY, rtBigIntSetStr(&ctxt, &value, "0x7f", 0));
        EXPECT_EQ(nullptr, value.mag);
        EXPECT_EQ(0, value.capacity);
    }
    EXPECT_EQ(RT_E_NO_MEMORY, ctxt.errInfo.status);
    rtErrReset(&ctxt.errInfo);
    set("-255");
    char out[16];
    {
        FailingAllocator failing;
        // The decimal text works on a heap copy.
        EXPECT_EQ(RT_E_NO_MEMORY, rtBigIntToString(&ctxt, &value, 10, out, sizeof out));
        // Local storage that is large enough needs no heap.
        uint8_t local[4];
        ASN1BigInt v;
        rtBigIntInit(&v);
        v.mag = local;
        v.capacity = sizeof local;
        EXPECT_EQ(0, rtBigIntSetStr(&ctxt, &v, "65535", 10));
        EXPECT_EQ(0, rtBigIntToString(&ctxt, &v, 16, out, sizeof out));
        EXPECT_STREQ("00ffff", out);
    }
    EXPECT_EQ(RT_E_NO_MEMORY, ctxt.errInfo.status);
}

TEST_F(RtBigInt, FailuresLeaveTheLastErrorAlone) {
    SetLastError(4321);
    EXPECT_EQ(RT_E_BAD_VALUE, rtBigIntSetStr(&ctxt, &value, "", 0));
    EXPECT_EQ(4321u, GetLastError());
}

// INTEGER contents of real certificates (serial numbers, key moduli and exponents): the
// hexadecimal text of positive minimal DER comes back octet for octet, and through decimal.
TEST_F(RtBigInt, IntegersOfRealCertificatesRoundTrip) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    size_t checked = 0;
    for (const auto& path : testsupport::corpusFiles("cert")) {
        const auto der = testsupport::readFile(path);
        rtwalk::walk(der, [&](const rtwalk::Element& e) {
            if (e.tagOctet != 0x02 || e.size == 0 || e.size > 1024 || (e.data[0] & 0x80))
                return;
            if (e.size > 1 && e.data[0] == 0 && !(e.data[1] & 0x80))
                return;  // not minimal
            const std::string hexText = toHex(e.data, e.size);
            ASN1BigInt v;
            rtBigIntInit(&v);
            ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &v, hexText.c_str(), 16)) << path;
            ASSERT_EQ(static_cast<int>(e.size), rtBigIntGetDataLen(&v)) << path;
            EXPECT_EQ(hexText, data(v)) << path;
            EXPECT_EQ(hexText, text(v, 16)) << path;
            if (!(e.size == 1 && e.data[0] == 0)) {
                const std::string dec = text(v, 10);
                ASN1BigInt back;
                rtBigIntInit(&back);
                ASSERT_EQ(0, rtBigIntSetStr(&ctxt, &back, dec.c_str(), 10)) << path;
                EXPECT_EQ(hexText, data(back)) << path;
                EXPECT_EQ(0, rtBigIntStrCompare(&ctxt, dec.c_str(), ("0x" + hexText).c_str()));
                rtBigIntFree(&ctxt, &back);
            }
            rtBigIntFree(&ctxt, &v);
            ++checked;
        });
    }
    EXPECT_GT(checked, 300u);
    EXPECT_EQ(0, ctxt.errInfo.status);
}

}  // namespace
