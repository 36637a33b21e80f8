// CDateTime and CDateTimeSpan: parsing and printing generalized time, rounding to
// microseconds, display text, zone shifts, dates past 2038, the platform's calendar
// conversions; span constants, text both ways, arithmetic, and DateAddA/DateAddW.
#include "core/datetime.h"
#include "support/testsupport.h"

#include <cstdlib>
#include <ctime>
#include <string>

using Quorvane::CDateTime;
using Quorvane::CDateTimeSpan;
using Quorvane::DateAddA;
using Quorvane::DateAddW;
using testsupport::thrownHr;

namespace {

constexpr uint64_t kEpoch = 116444736000000000ull;
const uint64_t kNoon = 132225264000000000ull;  // 2020-01-03 12:00:00
const uint64_t kDay = 864000000000ull, kYear = 365 * kDay, kMonth = 30 * kDay, kHour = 36000000000ull;
// One year, month, day, hour, minute, second and microsecond.
const uint64_t kAllOnes = kYear + kMonth + kDay + kHour + 600000000ull + 10000000ull + 10;


_FILETIME fileTime(uint64_t ticks) { return _FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }
std::string gt(const CDateTime& d) { return d.getGeneralizedTime().c_str(); }
CDateTime noonPlus(uint64_t ticks) { return CDateTime::fromTicks(kNoon + ticks); }
CDateTimeSpan ticks(uint64_t t) { return CDateTimeSpan::fromTicks(t); }
std::string text(const CDateTimeSpan& s) { return s.getGeneralizedTime().c_str(); }

TEST(DateTime, GeneralizedTimeParse) {
    const struct {
        const char* text;
        const char* printed;  // null: the parse fails with `failure`
        HRESULT failure;
    } rows[] = {
        {"20200102030405Z", "20200102030405Z", 0}, {"20200102030405.5Z", "20200102030405.5Z", 0},
        {"20200102030405.123456789Z", "20200102030405.123456Z", 0},
        {"20200102030405.000001Z", "20200102030405.000001Z", 0}, {"20200102030405", "20200102030405Z", 0},
        {"20200102030405x25", "20200102030405.25Z", 0},  // index 14 is not checked; the fraction starts at 15
        {"20200102", "20200102000000Z", 0}, {"2020010203040", "20200102030400Z", 0},  // missing fields are 0
        {"16010101000000Z", "16010101000000Z", 0}, {"99991231235959Z", "99991231235959Z", 0},
        // No valid date: a day or month of 0, a day that does not exist, out of range.
        {"202001", nullptr, E_FAIL}, {"", nullptr, E_FAIL}, {"20200230000000Z", nullptr, E_FAIL},
        {"21000229000000Z", nullptr, E_FAIL}, {"20201301000000Z", nullptr, E_FAIL},
        {"20200101240000Z", nullptr, E_FAIL}, {"16001231235959Z", nullptr, E_FAIL},
        // A non-digit inside a field.
        {"2020010203040x", nullptr, HRESULT(0x8007076D)}, {"2O200102030405Z", nullptr, HRESULT(0x8007076D)},
        {"20200102030405.1a3Z", nullptr, HRESULT(0x8007076D)},
        // No two-digit years and no zone offsets: both are misread, not refused.
        {"200102030405Z", "20010203040500Z", 0}, {"20200102030405+0300", "20200102030405.03Z", 0},
    };
    for (const auto& row : rows) {
        if (row.printed) {
            EXPECT_EQ(gt(CDateTime(row.text)), row.printed) << row.text;
        } else {
            EXPECT_EQ(thrownHr([&] { CDateTime d(row.text); }), row.failure) << row.text;
        }
    }
    EXPECT_EQ(thrownHr([] { CDateTime d(static_cast<const char*>(nullptr)); }), E_FAIL);  // read as ""
    // The parser fills only the calendar fields.
    unsigned int us = 99;
    struct tm t = Quorvane::GeneralizedTimeToTm("20200102030405.5Z", us, false);
    EXPECT_EQ(std::make_tuple(t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday,
                              t.tm_isdst, us),
              std::make_tuple(120, 0, 2, 3, 4, 5, 0, 0, 0, 500000u));
    t = Quorvane::GeneralizedTimeToTm("00010203040506Z", us, true);
    EXPECT_EQ(std::make_tuple(t.tm_year, t.tm_mon, us), std::make_tuple(1, 2, 0u));
}

TEST(DateTime, Constructors) {
    EXPECT_EQ(CDateTime("20200103120000Z").ticks(), kNoon);
    EXPECT_EQ(CDateTime(0L, 0u).ticks(), kEpoch);
    EXPECT_EQ(CDateTime(1LL, 5u).ticks(), kEpoch + 10000000 + 50);
    EXPECT_EQ(CDateTime(-1L, 0u).ticks(), kEpoch - 10000000);
    EXPECT_EQ(CDateTime(0L, 500000000u).ticks(), kEpoch + (5000000000ull & 0xFFFFFFFFull));  // a 32-bit product
    // FILETIME is rounded down to microseconds, and comes back so.
    const CDateTime a{fileTime(kNoon + 13)}, b{fileTime(kNoon + 17)};
    EXPECT_EQ(a.ticks(), kNoon + 10);
    EXPECT_TRUE(a == b && !(a < b));
    const _FILETIME back = a.getFileTime();
    EXPECT_EQ(std::make_tuple(back.dwLowDateTime, back.dwHighDateTime),
              std::make_tuple(static_cast<DWORD>(kNoon + 10), static_cast<DWORD>((kNoon + 10) >> 32)));
    _SYSTEMTIME st = {2021, 2, 0, 28, 23, 59, 58, 999};
    EXPECT_EQ(gt(CDateTime(st)), "20210228235958.999Z");
    st.wDay = 29;
    EXPECT_EQ(thrownHr([&] { CDateTime x(st); }), E_INVALIDARG);
    // Fields: microseconds add on unrounded; a year that would wrap in 16 bits is refused.
    EXPECT_EQ(gt(CDateTime(2020u, 1u, 3u, 12u, 0u, 0u, 1u, 2u)), "20200103120000.001002Z");
    EXPECT_EQ(gt(CDateTime(2020u, 1u, 3u, 12u, 0u, 0u, 0u, 1500000u)), "20200103120001.5Z");
    EXPECT_EQ(thrownHr([] { CDateTime x(2020u, 13u, 1u, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
    EXPECT_EQ(thrownHr([] { CDateTime x(1600u, 12u, 31u, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
    EXPECT_EQ(thrownHr([] { CDateTime x(65536u + 2020u, 1u, 1u, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
}

TEST(DateTime, FieldsAndTexts) {
    const CDateTime d("20200103040506.007008Z");
    EXPECT_EQ(std::make_tuple(d.year(), d.month(), d.day(), d.hour(), d.minute(), d.second(), d.millisecond(),
                              d.microsecond()),
              std::make_tuple(2020u, 1u, 3u, 4u, 5u, 6u, 7u, 8u));
    const _SYSTEMTIME st = d.getSystemTime();
    EXPECT_EQ(std::make_tuple(st.wDayOfWeek, st.wMilliseconds), std::make_tuple(5, 7));  // a Friday
    const struct {
        uint64_t extra;
        const char *generalized, *display;
    } rows[] = {
        {0, "20200103120000Z", "03.01.2020 12:00:00"},
        {10, "20200103120000.000001Z", "03.01.2020 12:00:00.000001"},
        {9, "20200103120000Z", "03.01.2020 12:00:00"},  // below a microsecond nothing shows
        {10000, "20200103120000.001Z", "03.01.2020 12:00:00.001"},
        {5000, "20200103120000.0005Z", "03.01.2020 12:00:00.000500"},
        {1200000, "20200103120000.12Z", "03.01.2020 12:00:00.120"},
        {1234560, "20200103120000.123456Z", "03.01.2020 12:00:00.123456"},
        {9990000, "20200103120000.999Z", "03.01.2020 12:00:00.999"},
    };
    for (const auto& row : rows) {
        const CDateTime t = noonPlus(row.extra);
        const std::string display = row.display;
        EXPECT_EQ(gt(t), row.generalized);
        EXPECT_STREQ(t.tostring().c_str(), row.display);
        EXPECT_EQ(std::wstring(t.towstring().c_str()), std::wstring(display.begin(), display.end()));
    }
    // Under LC_ALL=C "%X" is "%H:%M:%S"; the fraction is dropped.
    EXPECT_STREQ(noonPlus(1234560).getGeneralizedTimeTrimMicroseconds().c_str(), "03.01.2020 12:00:00");
    EXPECT_EQ(CDateTime("20200103120000Z").getTime(), 1578052800);
    // Before 1970 the unsigned difference gives a huge number.
    EXPECT_EQ(static_cast<unsigned long long>(CDateTime(-1L, 0u).getTime()), 1844674407369ull);
}

TEST(DateTime, Comparisons) {
    const CDateTime a = CDateTime::fromTicks(0x0000000100000000ull), b = CDateTime::fromTicks(0x00000000FFFFFFFFull);
    EXPECT_TRUE(b < a && a > b && a >= a && b <= a && a != b);
    CDateTime c = a, d = b;
    c.swap(d);
    EXPECT_EQ(std::make_tuple(c, d), std::make_tuple(b, a));
}

class ZoneScope {
public:
    explicit ZoneScope(const char* tz) : m_had(std::getenv("TZ") != nullptr), m_old(m_had ? std::getenv("TZ") : "") {
        setenv("TZ", tz, 1);
        tzset();
    }
    ~ZoneScope() {
        m_had ? setenv("TZ", m_old.c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    bool m_had;
    std::string m_old;
};

TEST(DateTime, ZoneShifts) {
    {
        ZoneScope utc("UTC");  // only the rounding
        EXPECT_EQ(noonPlus(17).utcToLocal().ticks(), kNoon + 10);
        EXPECT_EQ(noonPlus(17).localToUtc().ticks(), kNoon + 10);
    }
    {
        ZoneScope east("<+03>-3");
        const CDateTime d("20200103120000Z");
        EXPECT_EQ(gt(d.utcToLocal()) + " " + gt(d.localToUtc()), "20200103150000Z 20200103090000Z");
        EXPECT_EQ(d.utcToLocal().localToUtc(), d);
    }
    // The summer time of the present season applies to every value: a zone in summer time
    // all year gives one hour more, whatever the date.
    ZoneScope summer("<+01>-1<+02>,0/0,J365/25");
    std::time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    if (local.tm_isdst <= 0)
        GTEST_SKIP() << "the C library does not report summer time for this zone now";
    EXPECT_EQ(gt(CDateTime("20200103120000Z").utcToLocal()), "20200103140000Z");
    EXPECT_EQ(gt(CDateTime("20200703120000Z").utcToLocal()), "20200703140000Z");
}

TEST(DateTime, DatesAfter2038) {
    EXPECT_GE(sizeof(time_t), 8u);
    const CDateTime d(4102444800LL, 0u);  // 2100-01-01
    EXPECT_EQ(std::make_tuple(gt(d), d.year(), d.getTime()),
              std::make_tuple(std::string("21000101000000Z"), 2100u, static_cast<time_t>(4102444800LL)));
    const CDateTime e("20380119031408Z");  // one second past the 32-bit end
    EXPECT_EQ(e.getTime(), static_cast<time_t>(2147483648LL));
    EXPECT_STREQ(e.tostring().c_str(), "19.01.2038 03:14:08");
    EXPECT_GT(CDateTime::Now(), CDateTime("20200101000000Z"));
}

TEST(PlatformTime, RoundTripsAcrossTheRange) {
    for (const char* t : {"16010101000000Z", "16040229235959Z", "17000301000000Z", "19000228120000Z",
                          "20000229000000Z", "20380119031408Z", "99991231235959Z"}) {
        const CDateTime d(t);
        _SYSTEMTIME st;
        const _FILETIME ft = d.getFileTime();
        _FILETIME back;
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &st) && SystemTimeToFileTime(&st, &back)) << t;
        EXPECT_EQ(CDateTime(back), d) << t;
    }
    _FILETIME zero = {0, 0};
    _SYSTEMTIME st;
    ASSERT_TRUE(FileTimeToSystemTime(&zero, &st));
    EXPECT_EQ(std::make_tuple(st.wYear, st.wDayOfWeek), std::make_tuple(1601, 1));  // a Monday
    // The day of the week is ignored on the way in.
    const _SYSTEMTIME any = {2020, 1, 6, 3, 0, 0, 0, 0};
    _FILETIME ft;
    EXPECT_TRUE(SystemTimeToFileTime(&any, &ft));
}

TEST(PlatformTime, InvalidFieldsFailWith87) {
    const _SYSTEMTIME bad[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0}, {2020, 0, 0, 1, 0, 0, 0, 0},
        {2020, 13, 0, 1, 0, 0, 0, 0},  {2020, 4, 0, 31, 0, 0, 0, 0},  {1900, 2, 0, 29, 0, 0, 0, 0},
        {2020, 1, 0, 0, 0, 0, 0, 0},   {2020, 1, 0, 1, 24, 0, 0, 0},  {2020, 1, 0, 1, 0, 60, 0, 0},
        {2020, 1, 0, 1, 0, 0, 60, 0},  {2020, 1, 0, 1, 0, 0, 0, 1000},
    };
    for (const _SYSTEMTIME& st : bad) {
        SetLastError(0);
        _FILETIME ft;
        EXPECT_FALSE(SystemTimeToFileTime(&st, &ft)) << st.wYear << "-" << st.wMonth << "-" << st.wDay;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    // Past 30827 there is no calendar value either.
    const CDateTime last(30827u, 12u, 31u, 23u, 59u, 59u, 999u, 0u);
    EXPECT_EQ(gt(last), "308271231235959.999Z");
    const _FILETIME past = fileTime(last.ticks() + 10000);
    _SYSTEMTIME st;
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&past, &st));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

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
                  std::make_tuple(&r.accessor, r.ticks, uint32_t(r.ticks), uint32_t(r.ticks >> 32)));
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
        if (row.readBack) {
            EXPECT_EQ(CDateTimeSpan(row.text).ticks(), row.ticks) << row.text;
        }
    }
    EXPECT_EQ(thrownHr([] { CDateTimeSpan s("001Z"); }), HRESULT(0x8007076D));
    EXPECT_EQ(thrownHr([] { CDateTimeSpan s("0002001Z"); }), HRESULT(0x8007076D));
    // Fields are counts: 99 hours are allowed; the "Z" is optional.
    EXPECT_EQ(CDateTimeSpan("0000000099").ticks(), 99 * kHour);
    EXPECT_EQ(CDateTimeSpan("00000001").ticks(), kDay);
    EXPECT_EQ(CDateTimeSpan("").ticks(), 0u);
    EXPECT_STREQ(CDateTimeSpan::oneDay.tostring().c_str(), "00000001Z");
    EXPECT_EQ(std::wstring(CDateTimeSpan::oneDay.towstring().c_str()) + CDateTimeSpan().towstring().c_str(),
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
    EXPECT_EQ(std::make_tuple(r.getHighPart(), r.getLowPart()),
              std::make_tuple(0u, uint32_t(0x123456789ABCDEFull % 1000000u)));
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
        {"m", -1, "16010115000000Z", nullptr, E_INVALIDARG},
        {"y", 2147483647, "20210115000000Z", nullptr, E_INVALIDARG},
    };
    for (const auto& row : rows) {
        const CDateTime from(row.from);
        if (row.to) {
            EXPECT_EQ(gt(DateAddA(row.interval, row.number, from)), row.to) << row.interval << " " << row.number;
        } else {
            EXPECT_EQ(thrownHr([&] { DateAddA(row.interval, row.number, from); }), row.failure) << row.interval;
        }
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
