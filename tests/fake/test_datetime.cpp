// CDateTime and CDateTimeSpan: text both ways, zone shifts, past 2038, calendar, DateAddA/W.
#include "core/datetime.h"
#include "support/testsupport.h"

#include <cstdio>
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
const HRESULT kBadDigit = HRESULT(0x8007076D);

std::string gt(const CDateTime& d) { return d.getGeneralizedTime().c_str(); }
CDateTime noonPlus(uint64_t ticks) { return CDateTime::fromTicks(kNoon + ticks); }
CDateTimeSpan ticks(uint64_t t) { return CDateTimeSpan::fromTicks(t); }
// The generalized time f gives, or the HRESULT it throws.
template <class F>
std::string outcome(F f) {
    try {
        return gt(f());
    } catch (const ATL::CAtlException& e) {
        char hr[16];
        std::snprintf(hr, sizeof hr, "hr %08X", static_cast<unsigned>(e.m_hr));
        return hr;
    }
}

TEST(DateTime, GeneralizedTimeParse) {
    const char *fail = "hr 80004005", *digit = "hr 8007076D";
    const std::pair<const char*, const char*> rows[] = {
        {"20200102030405Z", "20200102030405Z"}, {"20200102030405.5Z", "20200102030405.5Z"},
        {"20200102030405.123456789Z", "20200102030405.123456Z"}, {"20200102", "20200102000000Z"},
        {"20200102030405.000001Z", "20200102030405.000001Z"}, {"20200102030405", "20200102030405Z"},
        {"20200102030405x25", "20200102030405.25Z"},  // index 14 is not checked; the fraction starts at 15
        {"2020010203040", "20200102030400Z"}, {"16010101000000Z", "16010101000000Z"},
        {"99991231235959Z", "99991231235959Z"}, {"202001", fail}, {"", fail}, {"20200230000000Z", fail},
        {"21000229000000Z", fail}, {"20201301000000Z", fail}, {"20200101240000Z", fail}, {"16001231235959Z", fail},
        {"2020010203040x", digit}, {"2O200102030405Z", digit}, {"20200102030405.1a3Z", digit},
        // No two-digit years and no zone offsets: both are misread, not refused.
        {"200102030405Z", "20010203040500Z"}, {"20200102030405+0300", "20200102030405.03Z"}};
    for (const auto& [text, printed] : rows)
        EXPECT_EQ(outcome([&, text = text] { return CDateTime(text); }), printed) << text;
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

TEST(DateTime, ConstructorsAndComparisons) {
    _SYSTEMTIME st = {2021, 2, 0, 28, 23, 59, 58, 999};
    const _FILETIME ft = {DWORD(kNoon + 17), DWORD((kNoon + 17) >> 32)}, back = CDateTime(ft).getFileTime();
    const std::pair<CDateTime, uint64_t> made[] = {
        {CDateTime("20200103120000Z"), kNoon}, {CDateTime(0L, 0u), kEpoch}, {CDateTime(1LL, 5u), kEpoch + 10000050},
        {CDateTime(-1L, 0u), kEpoch - 10000000},
        {CDateTime(0L, 500000000u), kEpoch + (5000000000ull & 0xFFFFFFFFull)},  // a 32-bit product
        {CDateTime(ft), kNoon + 10}, {CDateTime(st), 132590303989990000ull},  // rounded down to microseconds
        {CDateTime(2020u, 1u, 3u, 12u, 0u, 0u, 1u, 2u), kNoon + 10020},  // microseconds add on unrounded
        {CDateTime(2020u, 1u, 3u, 12u, 0u, 0u, 0u, 1500000u), kNoon + 15000000}};
    for (const auto& [date, t] : made)
        EXPECT_EQ(date.ticks(), t);
    EXPECT_EQ(uint64_t(back.dwHighDateTime) << 32 | back.dwLowDateTime, kNoon + 10);
    st.wDay = 29;
    EXPECT_EQ(thrownHr([&] { CDateTime x(st); }), E_INVALIDARG);
    // A year that would wrap in 16 bits is refused.
    for (const auto& [y, m, d] : {std::make_tuple(2020u, 13u, 1u), {1600u, 12u, 31u}, {65536u + 2020u, 1u, 1u}})
        EXPECT_EQ(thrownHr([&, y = y, m = m, d = d] { CDateTime x(y, m, d, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
    const CDateTime a = CDateTime::fromTicks(0x0000000100000000ull), b = CDateTime::fromTicks(0x00000000FFFFFFFFull);
    EXPECT_TRUE(b < a && a > b && a >= a && b <= a && a != b && !(a < a) && a == CDateTime(a));
    CDateTime c = a, d = b;
    c.swap(d);
    EXPECT_EQ(std::make_tuple(c, d), std::make_tuple(b, a));
}

TEST(DateTime, FieldsAndTexts) {
    const CDateTime d("20200103040506.007008Z");
    const _SYSTEMTIME st = d.getSystemTime();
    EXPECT_EQ(std::make_tuple(d.year(), d.month(), d.day(), d.hour(), d.minute(), d.second(), d.millisecond(),
                              d.microsecond(), st.wDayOfWeek, st.wMilliseconds),
              std::make_tuple(2020u, 1u, 3u, 4u, 5u, 6u, 7u, 8u, 5, 7));  // a Friday
    const std::tuple<uint64_t, const char*, const char*> rows[] = {  // below a microsecond nothing shows
        {0, "20200103120000Z", "03.01.2020 12:00:00"}, {9, "20200103120000Z", "03.01.2020 12:00:00"},
        {10, "20200103120000.000001Z", "03.01.2020 12:00:00.000001"},
        {10000, "20200103120000.001Z", "03.01.2020 12:00:00.001"},
        {5000, "20200103120000.0005Z", "03.01.2020 12:00:00.000500"},
        {1200000, "20200103120000.12Z", "03.01.2020 12:00:00.120"},
        {1234560, "20200103120000.123456Z", "03.01.2020 12:00:00.123456"}};
    for (const auto& [extra, generalized, display] : rows) {
        const CDateTime t = noonPlus(extra);
        const std::string text = display;
        EXPECT_EQ(gt(t) + " " + t.tostring().c_str(), std::string(generalized) + " " + text);
        EXPECT_EQ(std::wstring(t.towstring().c_str()), std::wstring(text.begin(), text.end()));
    }
    // Under LC_ALL=C "%X" is "%H:%M:%S"; the fraction is dropped. Before 1970 the unsigned
    // difference gives a huge number.
    EXPECT_STREQ(noonPlus(1234560).getGeneralizedTimeTrimMicroseconds().c_str(), "03.01.2020 12:00:00");
    EXPECT_EQ(std::make_tuple(CDateTime("20200103120000Z").getTime(),
                              static_cast<unsigned long long>(CDateTime(-1L, 0u).getTime())),
              std::make_tuple(1578052800, 1844674407369ull));
    // Past 2038: 2100-01-01, and one second past the 32-bit end.
    EXPECT_GE(sizeof(time_t), 8u);
    const CDateTime y2100(4102444800LL, 0u), e("20380119031408Z");
    EXPECT_EQ(std::make_tuple(gt(y2100), y2100.year(), y2100.getTime(), e.getTime(), std::string(e.tostring().c_str())),
              std::make_tuple("21000101000000Z", 2100u, time_t(4102444800LL), time_t(2147483648LL),
                              "19.01.2038 03:14:08"));
    EXPECT_GT(CDateTime::Now(), CDateTime("20200101000000Z"));
}

struct ZoneScope {
    const bool had = std::getenv("TZ") != nullptr;
    const std::string old = had ? std::getenv("TZ") : "";
    explicit ZoneScope(const char* tz) { setenv("TZ", tz, 1), tzset(); }
    ~ZoneScope() { had ? setenv("TZ", old.c_str(), 1) : unsetenv("TZ"), tzset(); }
};

TEST(DateTime, ZoneShifts) {
    {
        ZoneScope utc("UTC");  // only the rounding
        EXPECT_EQ(noonPlus(17).utcToLocal().ticks() + noonPlus(17).localToUtc().ticks(), 2 * (kNoon + 10));
    }
    {
        ZoneScope east("<+03>-3");
        const CDateTime d("20200103120000Z");
        EXPECT_EQ(gt(d.utcToLocal()) + " " + gt(d.localToUtc()), "20200103150000Z 20200103090000Z");
    }
    // The summer time of the present season applies to every value: a zone in summer time
    // all year gives one hour more, whatever the date.
    ZoneScope summer("<+01>-1<+02>,0/0,J365/25");
    std::time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    if (local.tm_isdst <= 0)
        GTEST_SKIP() << "the C library does not report summer time for this zone now";
    EXPECT_EQ(gt(CDateTime("20200103120000Z").utcToLocal()) + gt(CDateTime("20200703120000Z").utcToLocal()),
              "20200103140000Z20200703140000Z");
}

TEST(PlatformTime, RoundTripsAndInvalidFields) {
    _SYSTEMTIME st;
    _FILETIME ft, back;
    for (const char* t : {"16010101000000Z", "16040229235959Z", "17000301000000Z", "19000228120000Z",
                          "20000229000000Z", "20380119031408Z", "99991231235959Z"}) {
        ft = CDateTime(t).getFileTime();
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &st) && SystemTimeToFileTime(&st, &back)) << t;
        EXPECT_EQ(gt(CDateTime(back)), t);
    }
    ft = {0, 0};
    ASSERT_TRUE(FileTimeToSystemTime(&ft, &st));
    EXPECT_EQ(std::make_tuple(st.wYear, st.wDayOfWeek), std::make_tuple(1601, 1));  // a Monday
    st = {2020, 1, 6, 3, 0, 0, 0, 0};  // the day of the week is ignored on the way in
    EXPECT_TRUE(SystemTimeToFileTime(&st, &ft));
    const _SYSTEMTIME bad[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0}, {2020, 0, 0, 1, 0, 0, 0, 0},
        {2020, 13, 0, 1, 0, 0, 0, 0}, {2020, 4, 0, 31, 0, 0, 0, 0}, {1900, 2, 0, 29, 0, 0, 0, 0},
        {2020, 1, 0, 0, 0, 0, 0, 0}, {2020, 1, 0, 1, 24, 0, 0, 0}, {2020, 1, 0, 1, 0, 60, 0, 0},
        {2020, 1, 0, 1, 0, 0, 60, 0}, {2020, 1, 0, 1, 0, 0, 0, 1000}};
    for (const _SYSTEMTIME& b : bad) {
        SetLastError(0);
        const BOOL ok = SystemTimeToFileTime(&b, &ft);
        EXPECT_EQ(std::make_pair(ok, GetLastError()), std::make_pair(FALSE, DWORD(ERROR_INVALID_PARAMETER)))
            << b.wYear << "-" << b.wMonth << "-" << b.wDay;
    }
    // Past 30827 there is no calendar value either.
    const CDateTime last(30827u, 12u, 31u, 23u, 59u, 59u, 999u, 0u);
    EXPECT_EQ(gt(last), "308271231235959.999Z");
    ft = (last + CDateTimeSpan::oneMillisecond).getFileTime();
    SetLastError(0);
    const BOOL ok = FileTimeToSystemTime(&ft, &st);
    EXPECT_EQ(std::make_pair(ok, GetLastError()), std::make_pair(FALSE, DWORD(ERROR_INVALID_PARAMETER)));
}

TEST(TimeSpan, ConstantsAndText) {
    using S = CDateTimeSpan;
    const std::tuple<const S&, const S&, uint64_t> constants[] = {
        {S::oneYear, S::OneYear(), kYear}, {S::oneMonth, S::OneMonth(), kMonth}, {S::oneDay, S::OneDay(), kDay},
        {S::oneHour, S::OneHour(), kHour}, {S::oneMinute, S::OneMinute(), 600000000ull},
        {S::oneSecond, S::OneSecond(), 10000000ull}, {S::oneMillisecond, S::OneMillisecond(), 10000ull}};
    for (const auto& [member, accessor, t] : constants)
        EXPECT_EQ(std::make_tuple(&member, member.ticks(), member.getLowPart(), member.getHighPart()),
                  std::make_tuple(&accessor, t, uint32_t(t), uint32_t(t >> 32)));
    EXPECT_EQ(std::vector<int>(OS_daysInMonth, OS_daysInMonth + 12),
              (std::vector<int>{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}));
    EXPECT_EQ(std::vector<uint64_t>({S().ticks(), S(1u, 5u).ticks(), S(0u, 500000000u).ticks(),
                                     S(4294967295u, 0u).ticks(), S("0000000099").ticks(), S("00000001").ticks(),
                                     S("").ticks()}),  // fields are counts; the "Z" is optional
              std::vector<uint64_t>({0, 10000050, 5000000000ull & 0xFFFFFFFFull, 42949672950000000ull, 99 * kHour,
                                     kDay, 0}));
    // Years of 365 days, months of 30; leading empty fields are cut, down to "Z". Ten years
    // print as "001Z", two years and ten days as "0002001Z": the cut leaves a text that
    // does not parse back.
    const std::tuple<uint64_t, const char*, bool> rows[] = {
        {0, "Z", true}, {kDay, "00000001Z", true}, {kYear, "0001Z", true}, {15000000ull, "00000000000001.5Z", true},
        {10, "00000000000000.000001Z", true}, {9, "Z", false}, {360 * kDay, "000012Z", true},
        {364 * kDay, "00001204Z", true}, {10000 * kYear, "1Z", false}, {10 * kYear, "001Z", false},
        {kYear + kMonth + kDay + kHour + 600000000ull + 10000000ull + 10, "00010101010101.000001Z", true},
        {2 * kYear + 10 * kDay, "0002001Z", false}};
    for (const auto& [t, text, readBack] : rows) {
        EXPECT_EQ(ticks(t).getGeneralizedTime().c_str(), std::string(text));
        if (readBack) {
            EXPECT_EQ(S(text).ticks(), t) << text;
        }
    }
    EXPECT_EQ(thrownHr([] { S s("001Z"); }), kBadDigit);
    EXPECT_EQ(thrownHr([] { S s("0002001Z"); }), kBadDigit);
    EXPECT_EQ(std::string(S::oneDay.tostring().c_str()) + "/" + S(0u, 0u).tostring().c_str(), "00000001Z/Z");
    EXPECT_EQ(std::wstring(S::oneDay.towstring().c_str()) + S().towstring().c_str(), L"00000001ZZ");
}

TEST(TimeSpan, Arithmetic) {
    const CDateTimeSpan a = ticks(1000), b = ticks(300);
    CDateTimeSpan c = a, d = b, r = ticks(0x123456789ABCDEFull);
    EXPECT_EQ(std::vector<uint64_t>({(a + b).ticks(), (a - b).ticks(), (a - a).ticks(), (a * 3).ticks(),
                                     (a / 3).ticks(), (a % 3).ticks(), a / b, (a % b).ticks(),
                                     (ticks(~0ull) + ticks(2)).ticks(), (ticks(1ull << 63) * 2).ticks(),
                                     (c += b).ticks(), (c -= b).ticks(), (c *= 5).ticks(), (c /= 7).ticks(),
                                     (c %= 100).ticks()}),  // sums and products wrap
              std::vector<uint64_t>({1300, 700, 0, 3000, 333, 1, 3, 100, 1, 0, 1300, 1000, 5000, 714, 14}));
    EXPECT_EQ(thrownHr([&] { b - a; }), E_FAIL);
    EXPECT_EQ(thrownHr([&] { d -= a; }), E_FAIL);
    EXPECT_EQ(d.ticks(), 300u);
    r %= 1000000u;  // the remainder clears the high half
    EXPECT_EQ(std::make_tuple(r.getHighPart(), r.getLowPart()),
              std::make_tuple(0u, uint32_t(0x123456789ABCDEFull % 1000000u)));
    // Comparisons by the whole 64 bits.
    const CDateTimeSpan lowBig = ticks(0xFFFFFFFFull), highSmall = ticks(0x100000000ull);
    EXPECT_TRUE(lowBig < highSmall && highSmall > lowBig && lowBig <= lowBig && highSmall >= lowBig &&
                lowBig != highSmall && ticks(5) == CDateTimeSpan(0u, 0u) + ticks(5));
    CDateTimeSpan x = lowBig, y = highSmall;
    x.swap(y);
    EXPECT_EQ(std::make_tuple(x, y), std::make_tuple(highSmall, lowBig));

    // Dates and spans; no rounding to microseconds.
    const CDateTime day("20200103120000Z"), first = CDateTime::fromTicks(5);
    CDateTime e = day;
    EXPECT_EQ(gt(day + CDateTimeSpan::oneDay) + " " + gt(day - CDateTimeSpan::oneHour) + " " +
                  gt((e += CDateTimeSpan::oneMinute) -= CDateTimeSpan::oneSecond),
              "20200104120000Z 20200103110000Z 20200103120059Z");
    EXPECT_EQ(CDateTime("20200104120000Z") - day, CDateTimeSpan::oneDay);
    EXPECT_EQ(thrownHr([&] { day - CDateTime("20200104120000Z"); }), E_FAIL);
    EXPECT_EQ(thrownHr([&] { first - ticks(6); }), E_FAIL);
    EXPECT_EQ(thrownHr([&] { e -= ticks(~0ull); }), E_FAIL);
    EXPECT_EQ(std::make_tuple((first - ticks(5)).ticks(), (day + ticks(3)).ticks(),
                              (CDateTime::fromTicks(~0ull) + ticks(1)).ticks(), gt(e)),
              std::make_tuple(uint64_t(0), day.ticks() + 3, uint64_t(0), "20200103120059Z"));
}

TEST(TimeSpan, DateAdd) {
    const char *arg = "hr 80070057", *fail = "hr 80004005";
    const std::tuple<const char*, int, const char*, std::string> rows[] = {  // eight digits: midnight
        {"m", 1, "20210131", "20210228"}, {"m", 1, "20200131", "20200229"}, {"y", 1, "20200229", "20210228"},
        {"y", 4, "20200229", "20240229"}, {"y", 80, "20200229", "21000228"}, {"m", 12, "20210215", "20220215"},
        {"m", -1, "20210115", "20201215"}, {"m", 11, "20210215", "20220115"}, {"w", 2, "20210115", "20210129"},
        {"m", -12, "20210215", "20200215"}, {"m", -13, "20210115", "20191215"}, {"y", 30, "20200101", "20500101"},
        {"d", 36500, "20200101", "21191208"}, {"m", 1, "20210131102030.123456Z", "20210228102030.123456Z"},
        // Only the first letter counts: "minute" and "month" both count months.
        {"month", 2, "20210115", "20210315"}, {"minute", 2, "20210115", "20210315"}, {"d", 1, "20210228", "20210301"},
        {"n", 2, "20210115", "20210115000200Z"}, {"", 1, "20210115", "20210116"}, {"day", -1, "20210301", "20210228"},
        {"d", 0, "20210115000000.5Z", "20210115000000.5Z"}, {"h", 25, "20210115", "20210116010000Z"},
        {"s", -61, "20210115", "20210114235859Z"}, {"weekday", -1, "20210115", "20210108"},
        {"x", 1, "20210115", arg}, {"D", 1, "20210115", arg}, {"M", 1, "20210115", arg}, {"d", -1, "16010101", fail},
        {"s", -2147483647 - 1, "16010101", fail}, {"m", -1, "16010115", arg}, {"y", 2147483647, "20210115", arg}};
    for (const auto& [interval, number, from, to] : rows)
        EXPECT_EQ(outcome([&, i = interval, n = number, f = from] { return DateAddA(i, n, CDateTime(f)); }),
                  to.size() == 8 ? to + "000000Z" : to)
            << interval << " " << number << " " << from;
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
