// CDateTimeSpan: constants, text form both ways, arithmetic with spans and dates, and
// DateAddA/DateAddW by the first letter of the interval.
#include "core/datetime.h"
#include "support/testsupport.h"

#include <string>

using Quorvane::CDateTime;
using Quorvane::CDateTimeSpan;
using Quorvane::DateAddA;
using Quorvane::DateAddW;
using testsupport::thrownHr;

namespace {

const uint64_t kDay = 864000000000ull, kYear = 365 * kDay, kMonth = 30 * kDay, kHour = 36000000000ull;
const uint64_t kAllOnes = kYear + kMonth + kDay + kHour + 600000000ull + 10000000ull + 10;  // 0001 01 01 01 01 01.000001

CDateTimeSpan ticks(uint64_t t) { return CDateTimeSpan::fromTicks(t); }
std::string text(const CDateTimeSpan& s) { return s.getGeneralizedTime().c_str(); }
std::string gt(const CDateTime& d) { return d.getGeneralizedTime().c_str(); }

TEST(TimeSpan, Constants) {
    const struct {
        const CDateTimeSpan &member, &accessor;
        uint64_t ticks;
    } rows[] = {
        {CDateTimeSpan::oneYear, CDateTimeSpan::OneYear(), kYear},
        {CDateTimeSpan::oneMonth, CDateTimeSpan::OneMonth(), kMonth},
        {CDateTimeSpan::oneDay, CDateTimeSpan::OneDay(), kDay},
        {CDateTimeSpan::oneHour, CDateTimeSpan::OneHour(), kHour},
        {CDateTimeSpan::oneMinute, CDateTimeSpan::OneMinute(), 600000000ull},
        {CDateTimeSpan::oneSecond, CDateTimeSpan::OneSecond(), 10000000ull},
        {CDateTimeSpan::oneMillisecond, CDateTimeSpan::OneMillisecond(), 10000ull},
    };
    for (const auto& r : rows)
        EXPECT_EQ(std::make_tuple(&r.member, r.member.ticks(), r.member.getLowPart(), r.member.getHighPart()),
                  std::make_tuple(&r.accessor, r.ticks, static_cast<uint32_t>(r.ticks), static_cast<uint32_t>(r.ticks >> 32)));
    EXPECT_EQ(std::vector<int>(OS_daysInMonth, OS_daysInMonth + 12),
              (std::vector<int>{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}));
    EXPECT_EQ(CDateTimeSpan().ticks(), 0u);
    EXPECT_EQ(CDateTimeSpan(1u, 5u).ticks(), 10000050u);
    EXPECT_EQ(CDateTimeSpan(0u, 500000000u).ticks(), 5000000000ull & 0xFFFFFFFFull);  // a 32-bit product
    EXPECT_EQ(CDateTimeSpan(4294967295u, 0u).ticks(), 42949672950000000ull);
}

// Years of 365 days, months of 30; leading empty fields are cut, down to "Z".
TEST(TimeSpan, TextBothWays) {
    const struct {
        uint64_t ticks;
        const char* text;
        bool readBack;
    } rows[] = {
        {0, "Z", true}, {kDay, "00000001Z", true}, {kYear, "0001Z", true}, {15000000ull, "00000000000001.5Z", true},
        {10, "00000000000000.000001Z", true}, {9, "Z", false}, {360 * kDay, "000012Z", true},  // 12 months, no year
        {364 * kDay, "00001204Z", true}, {kAllOnes, "00010101010101.000001Z", true}, {10000 * kYear, "1Z", false},
        // Ten years print as "001Z", two years and ten days as "0002001Z": the cut leaves a
        // text that does not parse back.
        {10 * kYear, "001Z", false}, {2 * kYear + 10 * kDay, "0002001Z", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(text(ticks(row.ticks)), row.text);
        if (row.readBack)
            EXPECT_EQ(CDateTimeSpan(row.text).ticks(), row.ticks) << row.text;
    }
    EXPECT_EQ(thrownHr([] { CDateTimeSpan s("001Z"); }), HRESULT(0x8007076D));
    EXPECT_EQ(thrownHr([] { CDateTimeSpan s("0002001Z"); }), HRESULT(0x8007076D));
    // Fields are counts: 99 hours are allowed; the "Z" is optional.
    EXPECT_EQ(CDateTimeSpan("0000000099").ticks(), 99 * kHour);
    EXPECT_EQ(CDateTimeSpan("00000001").ticks(), kDay);
    EXPECT_EQ(CDateTimeSpan("").ticks(), 0u);
    EXPECT_STREQ(CDateTimeSpan::oneDay.tostring().c_str(), "00000001Z");
    EXPECT_EQ(std::wstring(CDateTimeSpan::oneDay.towstring().c_str()) + std::wstring(CDateTimeSpan().towstring().c_str()),
              L"00000001ZZ");
}

TEST(TimeSpan, SpanArithmetic) {
    const CDateTimeSpan a = ticks(1000), b = ticks(300);
    EXPECT_EQ(std::vector<uint64_t>({(a + b).ticks(), (a - b).ticks(), (a - a).ticks(), (a * 3).ticks(),
                                     (a / 3).ticks(), (a % 3).ticks(), a / b, (a % b).ticks()}),
              std::vector<uint64_t>({1300, 700, 0, 3000, 333, 1, 3, 100}));
    EXPECT_EQ(thrownHr([&] { b - a; }), E_FAIL);
    // Sums and products wrap.
    EXPECT_EQ((ticks(~0ull) + ticks(2)).ticks(), 1u);
    EXPECT_EQ((ticks(1ull << 63) * 2).ticks(), 0u);
    CDateTimeSpan c = a;
    std::vector<uint64_t> steps;
    for (auto op : {+[](CDateTimeSpan& s) { s += ticks(300); }, +[](CDateTimeSpan& s) { s -= ticks(300); },
                    +[](CDateTimeSpan& s) { s *= 5; }, +[](CDateTimeSpan& s) { s /= 7; },
                    +[](CDateTimeSpan& s) { s %= 100; }}) {
        op(c);
        steps.push_back(c.ticks());
    }
    EXPECT_EQ(steps, std::vector<uint64_t>({1300, 1000, 5000, 714, 14}));
    CDateTimeSpan d = b;
    EXPECT_EQ(thrownHr([&] { d -= a; }), E_FAIL);
    EXPECT_EQ(d.ticks(), 300u);
    // The remainder clears the high half.
    CDateTimeSpan r = ticks(0x123456789ABCDEFull);
    r %= 1000000u;
    EXPECT_EQ(std::make_tuple(r.getHighPart(), r.getLowPart()), std::make_tuple(0u, uint32_t(0x123456789ABCDEFull % 1000000u)));
    // Comparisons by the whole 64 bits.
    const CDateTimeSpan lowBig = ticks(0xFFFFFFFFull), highSmall = ticks(0x100000000ull);
    EXPECT_TRUE(lowBig < highSmall && highSmall > lowBig && lowBig <= lowBig && highSmall >= lowBig &&
                lowBig != highSmall && ticks(5) == CDateTimeSpan(0u, 0u) + ticks(5));
    CDateTimeSpan x = lowBig, y = highSmall;
    x.swap(y);
    EXPECT_EQ(std::make_tuple(x, y), std::make_tuple(highSmall, lowBig));
}

TEST(TimeSpan, DatesAndSpans) {
    const CDateTime d("20200103120000Z");
    EXPECT_EQ(gt(d + CDateTimeSpan::oneDay) + " " + gt(d - CDateTimeSpan::oneHour), "20200104120000Z 20200103110000Z");
    EXPECT_EQ(CDateTime("20200104120000Z") - d, CDateTimeSpan::oneDay);
    EXPECT_EQ(thrownHr([&] { d - CDateTime("20200104120000Z"); }), E_FAIL);
    const CDateTime first = CDateTime::fromTicks(5);
    EXPECT_EQ(thrownHr([&] { first - ticks(6); }), E_FAIL);
    EXPECT_EQ((first - ticks(5)).ticks(), 0u);
    EXPECT_EQ((d + ticks(3)).ticks(), d.ticks() + 3);  // no rounding to microseconds
    CDateTime e = d;
    e += CDateTimeSpan::oneMinute;
    e -= CDateTimeSpan::oneSecond;
    EXPECT_EQ(gt(e), "20200103120059Z");
    EXPECT_EQ(thrownHr([&] { e -= ticks(~0ull); }), E_FAIL);
    EXPECT_EQ(gt(e), "20200103120059Z");
    EXPECT_EQ((CDateTime::fromTicks(~0ull) + ticks(1)).ticks(), 0u);
}

TEST(TimeSpan, DateAdd) {
    const struct {
        const char* interval;
        int number;
        const char *from, *to;  // to null: fails with `failure`
        HRESULT failure;
    } rows[] = {
        {"m", 1, "20210131000000Z", "20210228000000Z", 0}, {"m", 1, "20200131000000Z", "20200229000000Z", 0},
        {"y", 1, "20200229000000Z", "20210228000000Z", 0}, {"y", 4, "20200229000000Z", "20240229000000Z", 0},
        {"y", 80, "20200229000000Z", "21000228000000Z", 0}, {"m", -13, "20210115000000Z", "20191215000000Z", 0},
        {"m", -1, "20210115000000Z", "20201215000000Z", 0}, {"m", 11, "20210215000000Z", "20220115000000Z", 0},
        {"m", 12, "20210215000000Z", "20220215000000Z", 0}, {"m", -12, "20210215000000Z", "20200215000000Z", 0},
        {"m", 1, "20210131102030.123456Z", "20210228102030.123456Z", 0},
        // Only the first letter counts: "minute" and "month" both count months.
        {"month", 2, "20210115000000Z", "20210315000000Z", 0}, {"minute", 2, "20210115000000Z", "20210315000000Z", 0},
        {"n", 2, "20210115000000Z", "20210115000200Z", 0}, {"", 1, "20210115000000Z", "20210116000000Z", 0},
        {"d", 1, "20210228000000Z", "20210301000000Z", 0}, {"day", -1, "20210301000000Z", "20210228000000Z", 0},
        {"d", 0, "20210115000000.5Z", "20210115000000.5Z", 0}, {"h", 25, "20210115000000Z", "20210116010000Z", 0},
        {"s", -61, "20210115000000Z", "20210114235859Z", 0}, {"w", 2, "20210115000000Z", "20210129000000Z", 0},
        {"weekday", -1, "20210115000000Z", "20210108000000Z", 0},
        {"y", 30, "20200101000000Z", "20500101000000Z", 0}, {"d", 36500, "20200101000000Z", "21191208000000Z", 0},
        // Unknown letters, case included; below 1601.
        {"x", 1, "20210115000000Z", nullptr, E_INVALIDARG}, {"D", 1, "20210115000000Z", nullptr, E_INVALIDARG},
        {"M", 1, "20210115000000Z", nullptr, E_INVALIDARG}, {"d", -1, "16010101000000Z", nullptr, E_FAIL},
        {"s", -2147483647 - 1, "16010101000000Z", nullptr, E_FAIL},
        {"m", -1, "16010115000000Z", nullptr, E_INVALIDARG}, {"y", 2147483647, "20210115000000Z", nullptr, E_INVALIDARG},
    };
    for (const auto& row : rows) {
        const CDateTime from(row.from);
        if (row.to)
            EXPECT_EQ(gt(DateAddA(row.interval, row.number, from)), row.to) << row.interval << " " << row.number;
        else
            EXPECT_EQ(thrownHr([&] { DateAddA(row.interval, row.number, from); }), row.failure) << row.interval;
    }
    const CDateTime d("20210131000000Z");
    EXPECT_EQ(thrownHr([&] { DateAddA(nullptr, 1, d); }), E_INVALIDARG);
    EXPECT_EQ(thrownHr([&] { DateAddW(nullptr, 1, d); }), E_INVALIDARG);
    // Fixed units keep ticks below a millisecond.
    EXPECT_EQ(DateAddA("h", 1, CDateTime::fromTicks(d.ticks() + 7)).ticks(), d.ticks() + 7 + kHour);
    // The wide form takes the first character; one whose low byte is a letter is no letter.
    EXPECT_EQ(gt(DateAddW(L"month", 1, d)) + gt(DateAddW(L"y", 1, d)) + gt(DateAddW(L"", 1, d)) +
                  gt(DateAddW(L"w", -1, d)),
              "20210228000000Z20220131000000Z20210201000000Z20210124000000Z");
    const wchar_t tricky[] = {static_cast<wchar_t>(0x164), 0};  // low byte 'd'
    EXPECT_EQ(thrownHr([&] { DateAddW(tricky, 1, d); }), E_INVALIDARG);
    EXPECT_EQ(thrownHr([&] { DateAddW(L"\u0434", 1, d); }), E_INVALIDARG);
}

}  // namespace
