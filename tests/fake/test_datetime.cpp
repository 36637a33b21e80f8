// CDateTime: parsing and printing generalized time, rounding to microseconds, display
// text, zone shifts, dates past 2038, and the platform's calendar conversions under it.
#include "core/datetime.h"
#include "support/testsupport.h"

#include <cstdlib>
#include <ctime>
#include <string>

using Quorvane::CDateTime;

namespace {

constexpr uint64_t kEpoch = 116444736000000000ull;

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

_FILETIME fileTime(uint64_t ticks) {
    _FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
}

std::string gt(const CDateTime& d) { return d.getGeneralizedTime().c_str(); }

// ---------------------------------------------------------------- parsing

struct ParseCase {
    const char* text;
    const char* printed;  // null: the parse fails
    HRESULT failure;
};

class GeneralizedTimeParse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(GeneralizedTimeParse, ReadsOrRefuses) {
    const ParseCase& c = GetParam();
    if (c.printed != nullptr)
        EXPECT_EQ(gt(CDateTime(c.text)), c.printed);
    else
        EXPECT_EQ(thrown([&] { CDateTime d(c.text); }), c.failure);
}

void PrintTo(const ParseCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

INSTANTIATE_TEST_SUITE_P(
    DateTime, GeneralizedTimeParse,
    ::testing::Values(ParseCase{"20200102030405Z", "20200102030405Z", 0},
                      ParseCase{"20200102030405.5Z", "20200102030405.5Z", 0},
                      ParseCase{"20200102030405.123456789Z", "20200102030405.123456Z", 0},
                      ParseCase{"20200102030405.000001Z", "20200102030405.000001Z", 0},
                      ParseCase{"20200102030405", "20200102030405Z", 0},
                      // Index 14 is not checked; the fraction starts at 15.
                      ParseCase{"20200102030405x25", "20200102030405.25Z", 0},
                      // Missing trailing fields are 0.
                      ParseCase{"20200102", "20200102000000Z", 0},
                      ParseCase{"2020010203040", "20200102030400Z", 0},
                      ParseCase{"16010101000000Z", "16010101000000Z", 0},
                      ParseCase{"99991231235959Z", "99991231235959Z", 0},
                      // No valid date: a day or month of 0, a day that does not exist, out of range.
                      ParseCase{"202001", nullptr, E_FAIL},
                      ParseCase{"", nullptr, E_FAIL},
                      ParseCase{"20200230000000Z", nullptr, E_FAIL},
                      ParseCase{"21000229000000Z", nullptr, E_FAIL},
                      ParseCase{"20201301000000Z", nullptr, E_FAIL},
                      ParseCase{"20200101240000Z", nullptr, E_FAIL},
                      ParseCase{"16001231235959Z", nullptr, E_FAIL},
                      // A non-digit inside a field.
                      ParseCase{"2020010203040x", nullptr, HRESULT(0x8007076D)},
                      ParseCase{"2O200102030405Z", nullptr, HRESULT(0x8007076D)},
                      ParseCase{"20200102030405.1a3Z", nullptr, HRESULT(0x8007076D)},
                      // No two-digit years and no zone offsets: both are misread, not refused.
                      ParseCase{"200102030405Z", "20010203040500Z", 0},
                      ParseCase{"20200102030405+0300", "20200102030405.03Z", 0}));

TEST(DateTime, ParserFillsOnlyTheCalendarFields) {
    unsigned int us = 99;
    struct tm t = Quorvane::GeneralizedTimeToTm("20200102030405.5Z", us, false);
    EXPECT_EQ(t.tm_year, 120);
    EXPECT_EQ(t.tm_mon, 0);
    EXPECT_EQ(t.tm_mday, 2);
    EXPECT_EQ(t.tm_hour, 3);
    EXPECT_EQ(t.tm_min, 4);
    EXPECT_EQ(t.tm_sec, 5);
    EXPECT_EQ(t.tm_wday, 0);
    EXPECT_EQ(t.tm_yday, 0);
    EXPECT_EQ(t.tm_isdst, 0);
    EXPECT_EQ(us, 500000u);
    t = Quorvane::GeneralizedTimeToTm("00010203040506Z", us, true);
    EXPECT_EQ(t.tm_year, 1);
    EXPECT_EQ(t.tm_mon, 2);
    EXPECT_EQ(us, 0u);
}

TEST(DateTime, NullTextReadsAsEmpty) { EXPECT_EQ(thrown([] { CDateTime d(static_cast<const char*>(nullptr)); }), E_FAIL); }

// ---------------------------------------------------------------- values and fields

TEST(DateTime, UnixSecondsConstructors) {
    EXPECT_EQ(CDateTime(0L, 0u).ticks(), kEpoch);
    EXPECT_EQ(CDateTime(1LL, 5u).ticks(), kEpoch + 10000000 + 50);
    EXPECT_EQ(CDateTime(-1L, 0u).ticks(), kEpoch - 10000000);
    // The microsecond product is a 32-bit value.
    EXPECT_EQ(CDateTime(0L, 500000000u).ticks(), kEpoch + (5000000000ull & 0xFFFFFFFFull));
    EXPECT_EQ(gt(CDateTime(0L, 0u)), "19700101000000Z");
}

TEST(DateTime, SubSecondAccessors) {
    const CDateTime d = CDateTime::fromTicks(CDateTime("20200103120000Z").ticks() + 1234560);
    EXPECT_EQ(d.millisecond(), 123u);
    EXPECT_EQ(d.microsecond(), 456u);
    EXPECT_EQ(d.second(), 0u);
    EXPECT_EQ(gt(d), "20200103120000.123456Z");
}

TEST(DateTime, FieldsAndSystemTime) {
    const CDateTime d("20200103040506.007008Z");
    EXPECT_EQ(d.year(), 2020u);
    EXPECT_EQ(d.month(), 1u);
    EXPECT_EQ(d.day(), 3u);
    EXPECT_EQ(d.hour(), 4u);
    EXPECT_EQ(d.minute(), 5u);
    EXPECT_EQ(d.second(), 6u);
    EXPECT_EQ(d.millisecond(), 7u);
    EXPECT_EQ(d.microsecond(), 8u);
    const _SYSTEMTIME st = d.getSystemTime();
    EXPECT_EQ(st.wDayOfWeek, 5);  // a Friday
    EXPECT_EQ(st.wMilliseconds, 7);
}

TEST(DateTime, FileTimeRoundsDownToMicroseconds) {
    const uint64_t base = CDateTime("20200103120000Z").ticks();
    const CDateTime a{fileTime(base + 13)};
    const CDateTime b{fileTime(base + 17)};
    EXPECT_EQ(a.ticks(), base + 10);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a < b);
    const _FILETIME back = a.getFileTime();
    EXPECT_EQ(back.dwLowDateTime, static_cast<DWORD>(base + 10));
    EXPECT_EQ(back.dwHighDateTime, static_cast<DWORD>((base + 10) >> 32));
}

TEST(DateTime, SystemTimeConstructor) {
    _SYSTEMTIME st = {2021, 2, 0, 28, 23, 59, 58, 999};
    const CDateTime d(st);
    EXPECT_EQ(gt(d), "20210228235958.999Z");
    st.wDay = 29;
    EXPECT_EQ(thrown([&] { CDateTime x(st); }), E_INVALIDARG);
}

TEST(DateTime, FieldConstructorAddsMicrosecondsUnrounded) {
    const CDateTime d(2020u, 1u, 3u, 12u, 0u, 0u, 1u, 2u);
    EXPECT_EQ(gt(d), "20200103120000.001002Z");
    // Microseconds beyond 999 simply add on.
    EXPECT_EQ(gt(CDateTime(2020u, 1u, 3u, 12u, 0u, 0u, 0u, 1500000u)), "20200103120001.5Z");
    EXPECT_EQ(thrown([] { CDateTime x(2020u, 13u, 1u, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
    EXPECT_EQ(thrown([] { CDateTime x(1600u, 12u, 31u, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
    // A year that would wrap in 16 bits into a valid one is refused.
    EXPECT_EQ(thrown([] { CDateTime x(65536u + 2020u, 1u, 1u, 0u, 0u, 0u, 0u, 0u); }), E_INVALIDARG);
}

TEST(DateTime, GeneralizedTimeFraction) {
    const uint64_t base = CDateTime("20200103120000Z").ticks();
    EXPECT_EQ(gt(CDateTime::fromTicks(base + 1200000)), "20200103120000.12Z");
    EXPECT_EQ(gt(CDateTime::fromTicks(base + 10)), "20200103120000.000001Z");
    // Ticks below a microsecond print nothing.
    EXPECT_EQ(gt(CDateTime::fromTicks(base + 9)), "20200103120000Z");
}

TEST(DateTime, UnixTime) {
    EXPECT_EQ(CDateTime(0L, 0u).getTime(), 0);
    EXPECT_EQ(CDateTime("20200103120000Z").getTime(), 1578052800);
    // Before 1970 the unsigned difference gives a huge number.
    EXPECT_EQ(static_cast<unsigned long long>(CDateTime(-1L, 0u).getTime()), 1844674407369ull);
}

TEST(DateTime, Comparisons) {
    const CDateTime a = CDateTime::fromTicks(0x0000000100000000ull);
    const CDateTime b = CDateTime::fromTicks(0x00000000FFFFFFFFull);
    EXPECT_TRUE(b < a);
    EXPECT_TRUE(a > b);
    EXPECT_TRUE(a >= a);
    EXPECT_TRUE(b <= a);
    EXPECT_TRUE(a != b);
    CDateTime c = a, d = b;
    c.swap(d);
    EXPECT_EQ(c, b);
    EXPECT_EQ(d, a);
}

// ---------------------------------------------------------------- display text

TEST(DateTime, DisplayText) {
    const uint64_t base = CDateTime("20200103120000Z").ticks();
    struct Row {
        uint64_t extra;
        const char* text;
    } rows[] = {
        {0, "03.01.2020 12:00:00"},
        {10000, "03.01.2020 12:00:00.001"},
        {5000, "03.01.2020 12:00:00.000500"},
        {1234560, "03.01.2020 12:00:00.123456"},
        {9990000, "03.01.2020 12:00:00.999"},
    };
    for (const Row& r : rows) {
        const CDateTime d = CDateTime::fromTicks(base + r.extra);
        EXPECT_STREQ(d.tostring().c_str(), r.text);
        const std::string narrow = r.text;
        EXPECT_EQ(std::wstring(d.towstring().c_str()), std::wstring(narrow.begin(), narrow.end()));
    }
}

TEST(DateTime, TrimMicrosecondsIsLocaleDisplayText) {
    // Under LC_ALL=C "%X" is "%H:%M:%S"; the fraction is dropped.
    const CDateTime d = CDateTime::fromTicks(CDateTime("20200103120000Z").ticks() + 1234560);
    EXPECT_STREQ(d.getGeneralizedTimeTrimMicroseconds().c_str(), "03.01.2020 12:00:00");
}

// ---------------------------------------------------------------- zone

class ZoneScope {
public:
    explicit ZoneScope(const char* tz) {
        const char* old = std::getenv("TZ");
        m_had = old != nullptr;
        if (m_had)
            m_old = old;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~ZoneScope() {
        if (m_had)
            setenv("TZ", m_old.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    bool m_had;
    std::string m_old;
};

TEST(DateTime, ZoneShiftUnderUtcIsOnlyRounding) {
    ZoneScope utc("UTC");
    const CDateTime d = CDateTime::fromTicks(CDateTime("20200103120000Z").ticks() + 17);
    EXPECT_EQ(d.utcToLocal().ticks(), d.ticks() - 7);
    EXPECT_EQ(d.localToUtc().ticks(), d.ticks() - 7);
}

TEST(DateTime, ZoneShiftEastOfUtc) {
    ZoneScope east("<+03>-3");
    const CDateTime d("20200103120000Z");
    EXPECT_EQ(gt(d.utcToLocal()), "20200103150000Z");
    EXPECT_EQ(gt(d.localToUtc()), "20200103090000Z");
    EXPECT_EQ(d.utcToLocal().localToUtc(), d);
}

TEST(DateTime, SummerTimeOfThePresentSeasonAppliesToEveryValue) {
    // A zone in summer time all year: one hour more, whatever the date.
    ZoneScope summer("<+01>-1<+02>,0/0,J365/25");
    std::time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    if (local.tm_isdst <= 0)
        GTEST_SKIP() << "the C library does not report summer time for this zone now";
    EXPECT_EQ(gt(CDateTime("20200103120000Z").utcToLocal()), "20200103140000Z");
    EXPECT_EQ(gt(CDateTime("20200703120000Z").utcToLocal()), "20200703140000Z");
}

// ---------------------------------------------------------------- past 2038

TEST(DateTime, DatesAfter2038) {
    const CDateTime d(4102444800LL, 0u);  // 2100-01-01
    EXPECT_EQ(gt(d), "21000101000000Z");
    EXPECT_EQ(d.year(), 2100u);
    EXPECT_EQ(d.getTime(), static_cast<time_t>(4102444800LL));
    EXPECT_GE(sizeof(time_t), 8u);
    const CDateTime e("20380119031408Z");  // one second past the 32-bit end
    EXPECT_EQ(e.getTime(), static_cast<time_t>(2147483648LL));
    EXPECT_STREQ(e.tostring().c_str(), "19.01.2038 03:14:08");
    EXPECT_GT(CDateTime::Now(), CDateTime("20200101000000Z"));
}

// ---------------------------------------------------------------- platform conversions

TEST(PlatformTime, RoundTripsAcrossTheRange) {
    const char* texts[] = {"16010101000000Z", "16040229235959Z", "17000301000000Z", "19000228120000Z",
                           "20000229000000Z", "20380119031408Z", "99991231235959Z"};
    for (const char* t : texts) {
        const CDateTime d(t);
        _SYSTEMTIME st;
        const _FILETIME ft = d.getFileTime();
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &st)) << t;
        _FILETIME back;
        ASSERT_TRUE(SystemTimeToFileTime(&st, &back)) << t;
        EXPECT_EQ(CDateTime(back), d) << t;
    }
    _FILETIME zero = {0, 0};
    _SYSTEMTIME st;
    ASSERT_TRUE(FileTimeToSystemTime(&zero, &st));
    EXPECT_EQ(st.wYear, 1601);
    EXPECT_EQ(st.wDayOfWeek, 1);  // 1 January 1601 was a Monday
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
    const _FILETIME end = last.getFileTime();
    const _FILETIME past = fileTime(((static_cast<uint64_t>(end.dwHighDateTime) << 32) | end.dwLowDateTime) + 10000);
    _SYSTEMTIME st;
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&past, &st));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    // The day of the week is ignored on the way in.
    const _SYSTEMTIME any = {2020, 1, 6, 3, 0, 0, 0, 0};
    _FILETIME ft;
    EXPECT_TRUE(SystemTimeToFileTime(&any, &ft));
}

}  // namespace
