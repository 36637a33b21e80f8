// CDateTimeSpan: constants, text form both ways, arithmetic with spans and dates, and
// DateAddA/DateAddW by the first letter of the interval.
#include "core/datetime.h"
#include "support/testsupport.h"

#include <string>

using Quorvane::CDateTime;
using Quorvane::CDateTimeSpan;
using Quorvane::DateAddA;
using Quorvane::DateAddW;

namespace {

template <typename F>
HRESULT thrown(F f) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    ADD_FAILURE() << "no exception";
    return 0x7FFFFFFF;
}

CDateTimeSpan ticks(uint64_t t) { return CDateTimeSpan::fromTicks(t); }
std::string text(const CDateTimeSpan& s) { return s.getGeneralizedTime().c_str(); }
std::string gt(const CDateTime& d) { return d.getGeneralizedTime().c_str(); }

TEST(TimeSpan, Constants) {
    struct Row {
        const CDateTimeSpan& member;
        const CDateTimeSpan& accessor;
        uint64_t ticks;
    } rows[] = {
        {CDateTimeSpan::oneYear, CDateTimeSpan::OneYear(), 315360000000000ull},
        {CDateTimeSpan::oneMonth, CDateTimeSpan::OneMonth(), 25920000000000ull},
        {CDateTimeSpan::oneDay, CDateTimeSpan::OneDay(), 864000000000ull},
        {CDateTimeSpan::oneHour, CDateTimeSpan::OneHour(), 36000000000ull},
        {CDateTimeSpan::oneMinute, CDateTimeSpan::OneMinute(), 600000000ull},
        {CDateTimeSpan::oneSecond, CDateTimeSpan::OneSecond(), 10000000ull},
        {CDateTimeSpan::oneMillisecond, CDateTimeSpan::OneMillisecond(), 10000ull},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(&r.member, &r.accessor);
        EXPECT_EQ(r.member.ticks(), r.ticks);
        EXPECT_EQ(r.member.getLowPart(), static_cast<uint32_t>(r.ticks));
        EXPECT_EQ(r.member.getHighPart(), static_cast<uint32_t>(r.ticks >> 32));
    }
}

TEST(TimeSpan, DaysInMonthTable) {
    const signed char expected[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(OS_daysInMonth[i], expected[i]) << i;
}

TEST(TimeSpan, SecondsConstructor) {
    EXPECT_EQ(CDateTimeSpan().ticks(), 0u);
    EXPECT_EQ(CDateTimeSpan(1u, 5u).ticks(), 10000050u);
    // The microsecond product is a 32-bit value.
    EXPECT_EQ(CDateTimeSpan(0u, 500000000u).ticks(), 5000000000ull & 0xFFFFFFFFull);
    EXPECT_EQ(CDateTimeSpan(4294967295u, 0u).ticks(), 42949672950000000ull);
}

// ---------------------------------------------------------------- text

struct TextCase {
    uint64_t ticks;
    const char* text;
};

class SpanText : public ::testing::TestWithParam<TextCase> {};

TEST_P(SpanText, Prints) { EXPECT_EQ(text(ticks(GetParam().ticks)), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    TimeSpan, SpanText,
    ::testing::Values(TextCase{0, "Z"}, TextCase{864000000000ull, "00000001Z"},
                      TextCase{315360000000000ull, "0001Z"}, TextCase{3153600000000000ull, "001Z"},
                      TextCase{15000000ull, "00000000000001.5Z"}, TextCase{10, "00000000000000.000001Z"},
                      TextCase{9, "Z"},
                      // 360 days are twelve months of 30 and still no year.
                      TextCase{360 * 864000000000ull, "000012Z"},
                      TextCase{364 * 864000000000ull, "00001204Z"},
                      TextCase{315360000000000ull + 25920000000000ull + 864000000000ull + 36000000000ull +
                                   600000000ull + 10000000ull + 10,
                               "00010101010101.000001Z"},
                      TextCase{10000ull * 315360000000000ull, "1Z"}));

struct ParseCase {
    const char* text;
    uint64_t ticks;
};

class SpanParse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(SpanParse, Reads) { EXPECT_EQ(CDateTimeSpan(GetParam().text).ticks(), GetParam().ticks); }

INSTANTIATE_TEST_SUITE_P(TimeSpan, SpanParse,
                         ::testing::Values(ParseCase{"00000001", 864000000000ull},
                                           ParseCase{"00000001Z", 864000000000ull}, ParseCase{"Z", 0},
                                           ParseCase{"", 0}, ParseCase{"000012Z", 360 * 864000000000ull},
                                           ParseCase{"00000000000001.5Z", 15000000ull},
                                           // Fields are counts: 99 hours are allowed.
                                           ParseCase{"0000000099", 99 * 36000000000ull},
                                           ParseCase{"00010101010101.000001Z",
                                                     315360000000000ull + 25920000000000ull + 864000000000ull +
                                                         36000000000ull + 600000000ull + 10000000ull + 10}));

TEST(TimeSpan, TextThatDoesNotParseBack) {
    // Ten years print as "001Z": the cut leaves "Z" where the year wants a digit.
    const CDateTimeSpan tenYears = CDateTimeSpan::oneYear * 10;
    EXPECT_EQ(text(tenYears), "001Z");
    EXPECT_EQ(thrown([] { CDateTimeSpan s("001Z"); }), HRESULT(0x8007076D));
    // Two years and ten days: "000200" plus "1Z" cuts the day field in two.
    const CDateTimeSpan s = CDateTimeSpan::oneYear * 2 + CDateTimeSpan::oneDay * 10;
    EXPECT_EQ(text(s), "0002001Z");
    EXPECT_EQ(thrown([&] { CDateTimeSpan x(text(s).c_str()); }), HRESULT(0x8007076D));
}

TEST(TimeSpan, TextForms) {
    const CDateTimeSpan day = CDateTimeSpan::oneDay;
    EXPECT_STREQ(day.tostring().c_str(), "00000001Z");
    EXPECT_EQ(std::wstring(day.towstring().c_str()), L"00000001Z");
    EXPECT_EQ(std::wstring(CDateTimeSpan().towstring().c_str()), L"Z");
}

// ---------------------------------------------------------------- arithmetic

TEST(TimeSpan, SpanArithmetic) {
    const CDateTimeSpan a = ticks(1000), b = ticks(300);
    EXPECT_EQ((a + b).ticks(), 1300u);
    EXPECT_EQ((a - b).ticks(), 700u);
    EXPECT_EQ((a - a).ticks(), 0u);
    EXPECT_EQ(thrown([&] { b - a; }), E_FAIL);
    EXPECT_EQ((a * 3).ticks(), 3000u);
    EXPECT_EQ((a / 3).ticks(), 333u);
    EXPECT_EQ((a % 3).ticks(), 1u);
    EXPECT_EQ(a / b, 3u);
    EXPECT_EQ((a % b).ticks(), 100u);
    // Sums and products wrap.
    EXPECT_EQ((ticks(~0ull) + ticks(2)).ticks(), 1u);
    EXPECT_EQ((ticks(1ull << 63) * 2).ticks(), 0u);

    CDateTimeSpan c = a;
    c += b;
    EXPECT_EQ(c.ticks(), 1300u);
    c -= b;
    EXPECT_EQ(c.ticks(), 1000u);
    c *= 5;
    EXPECT_EQ(c.ticks(), 5000u);
    c /= 7;
    EXPECT_EQ(c.ticks(), 714u);
    c %= 100;
    EXPECT_EQ(c.ticks(), 14u);
    CDateTimeSpan d = b;
    EXPECT_EQ(thrown([&] { d -= a; }), E_FAIL);
    EXPECT_EQ(d.ticks(), 300u);
}

TEST(TimeSpan, RemainderClearsTheHighHalf) {
    CDateTimeSpan s = ticks(0x123456789ABCDEFull);
    s %= 1000000u;
    EXPECT_EQ(s.getHighPart(), 0u);
    EXPECT_EQ(s.getLowPart(), static_cast<uint32_t>(0x123456789ABCDEFull % 1000000u));
}

TEST(TimeSpan, Comparisons) {
    const CDateTimeSpan lowBig = ticks(0xFFFFFFFFull), highSmall = ticks(0x100000000ull);
    EXPECT_TRUE(lowBig < highSmall);
    EXPECT_TRUE(highSmall > lowBig);
    EXPECT_TRUE(lowBig <= lowBig);
    EXPECT_TRUE(highSmall >= lowBig);
    EXPECT_TRUE(lowBig != highSmall);
    EXPECT_TRUE(ticks(5) == CDateTimeSpan(0u, 0u) + ticks(5));
    CDateTimeSpan x = lowBig, y = highSmall;
    x.swap(y);
    EXPECT_EQ(x, highSmall);
    EXPECT_EQ(y, lowBig);
}

TEST(TimeSpan, DatesAndSpans) {
    const CDateTime d("20200103120000Z");
    EXPECT_EQ(gt(d + CDateTimeSpan::oneDay), "20200104120000Z");
    EXPECT_EQ(gt(d - CDateTimeSpan::oneHour), "20200103110000Z");
    EXPECT_EQ(CDateTime("20200104120000Z") - d, CDateTimeSpan::oneDay);
    EXPECT_EQ(thrown([&] { d - CDateTime("20200104120000Z"); }), E_FAIL);
    const CDateTime first = CDateTime::fromTicks(5);
    EXPECT_EQ(thrown([&] { first - ticks(6); }), E_FAIL);
    EXPECT_EQ((first - ticks(5)).ticks(), 0u);
    // Spans keep what they hold: no rounding to microseconds.
    EXPECT_EQ((d + ticks(3)).ticks(), d.ticks() + 3);
    CDateTime e = d;
    e += CDateTimeSpan::oneMinute;
    EXPECT_EQ(gt(e), "20200103120100Z");
    e -= CDateTimeSpan::oneSecond;
    EXPECT_EQ(gt(e), "20200103120059Z");
    EXPECT_EQ(thrown([&] { e -= ticks(~0ull); }), E_FAIL);
    EXPECT_EQ(gt(e), "20200103120059Z");
    EXPECT_EQ((CDateTime::fromTicks(~0ull) + ticks(1)).ticks(), 0u);
}

// ---------------------------------------------------------------- DateAdd

struct AddCase {
    const char* interval;
    int number;
    const char* from;
    const char* to;  // null: fails with `failure`
    HRESULT failure;
};

class DateAdd : public ::testing::TestWithParam<AddCase> {};

TEST_P(DateAdd, ByFirstLetter) {
    const AddCase& c = GetParam();
    const CDateTime from(c.from);
    if (c.to != nullptr)
        EXPECT_EQ(gt(DateAddA(c.interval, c.number, from)), c.to);
    else
        EXPECT_EQ(thrown([&] { DateAddA(c.interval, c.number, from); }), c.failure);
}

void PrintTo(const AddCase& c, std::ostream* os) { *os << '"' << c.interval << "\" " << c.number << " " << c.from; }

INSTANTIATE_TEST_SUITE_P(
    TimeSpan, DateAdd,
    ::testing::Values(
        AddCase{"m", 1, "20210131000000Z", "20210228000000Z", 0},
        AddCase{"m", 1, "20200131000000Z", "20200229000000Z", 0},
        AddCase{"y", 1, "20200229000000Z", "20210228000000Z", 0},
        AddCase{"y", 4, "20200229000000Z", "20240229000000Z", 0},
        AddCase{"y", 80, "20200229000000Z", "21000228000000Z", 0},
        AddCase{"m", -13, "20210115000000Z", "20191215000000Z", 0},
        AddCase{"m", -1, "20210115000000Z", "20201215000000Z", 0},
        AddCase{"m", 11, "20210215000000Z", "20220115000000Z", 0},
        AddCase{"m", 12, "20210215000000Z", "20220215000000Z", 0},
        AddCase{"m", -12, "20210215000000Z", "20200215000000Z", 0},
        AddCase{"m", 1, "20210131102030.123456Z", "20210228102030.123456Z", 0},
        // Only the first letter counts: "minute" and "month" both count months.
        AddCase{"month", 2, "20210115000000Z", "20210315000000Z", 0},
        AddCase{"minute", 2, "20210115000000Z", "20210315000000Z", 0},
        AddCase{"n", 2, "20210115000000Z", "20210115000200Z", 0},
        AddCase{"", 1, "20210115000000Z", "20210116000000Z", 0},
        AddCase{"d", 1, "20210228000000Z", "20210301000000Z", 0},
        AddCase{"day", -1, "20210301000000Z", "20210228000000Z", 0},
        AddCase{"d", 0, "20210115000000.5Z", "20210115000000.5Z", 0},
        AddCase{"h", 25, "20210115000000Z", "20210116010000Z", 0},
        AddCase{"s", -61, "20210115000000Z", "20210114235859Z", 0},
        AddCase{"w", 2, "20210115000000Z", "20210129000000Z", 0},
        AddCase{"weekday", -1, "20210115000000Z", "20210108000000Z", 0},
        // Dates past 2038.
        AddCase{"y", 30, "20200101000000Z", "20500101000000Z", 0},
        AddCase{"d", 36500, "20200101000000Z", "21191208000000Z", 0},
        // Unknown letters, case included.
        AddCase{"x", 1, "20210115000000Z", nullptr, E_INVALIDARG},
        AddCase{"D", 1, "20210115000000Z", nullptr, E_INVALIDARG},
        AddCase{"M", 1, "20210115000000Z", nullptr, E_INVALIDARG},
        // Below 1601.
        AddCase{"d", -1, "16010101000000Z", nullptr, E_FAIL},
        AddCase{"s", -2147483647 - 1, "16010101000000Z", nullptr, E_FAIL},
        AddCase{"m", -1, "16010115000000Z", nullptr, E_INVALIDARG},
        AddCase{"y", 2147483647, "20210115000000Z", nullptr, E_INVALIDARG}));

TEST(TimeSpan, DateAddNullInterval) {
    const CDateTime d("20210115000000Z");
    EXPECT_EQ(thrown([&] { DateAddA(nullptr, 1, d); }), E_INVALIDARG);
    EXPECT_EQ(thrown([&] { DateAddW(nullptr, 1, d); }), E_INVALIDARG);
}

TEST(TimeSpan, DateAddKeepsSubMillisecondTicksOnFixedUnits) {
    const CDateTime d = CDateTime::fromTicks(CDateTime("20210115000000Z").ticks() + 7);
    EXPECT_EQ(DateAddA("h", 1, d).ticks(), d.ticks() + 36000000000ull);
}

TEST(TimeSpan, DateAddWideUsesTheFirstCharacter) {
    const CDateTime d("20210131000000Z");
    EXPECT_EQ(gt(DateAddW(L"month", 1, d)), "20210228000000Z");
    EXPECT_EQ(gt(DateAddW(L"y", 1, d)), "20220131000000Z");
    EXPECT_EQ(gt(DateAddW(L"", 1, d)), "20210201000000Z");
    EXPECT_EQ(gt(DateAddW(L"w", -1, d)), "20210124000000Z");
    // A wide character whose low byte is a letter is still no letter.
    const wchar_t tricky[] = {static_cast<wchar_t>(0x164), 0};  // low byte 'd'
    EXPECT_EQ(thrown([&] { DateAddW(tricky, 1, d); }), E_INVALIDARG);
    EXPECT_EQ(thrown([&] { DateAddW(L"\u0434", 1, d); }), E_INVALIDARG);
}

}  // namespace
