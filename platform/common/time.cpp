// Conversions between FILETIME ticks (100 ns since 1 January 1601 UTC) and calendar fields
// of the proleptic Gregorian calendar, years 1601 to 30827.
#include "qvcapi/support.h"

namespace {

constexpr uint64_t kTicksPerMs = 10000;
constexpr uint64_t kTicksPerDay = 864000000000ull;
constexpr int64_t kDaysTo1601 = -134774;  // days from 1970-01-01 back to 1601-01-01

// Days since 1970-01-01 of a civil date (all months and days in range).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += m <= 2;
}

bool isLeap(unsigned y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

unsigned daysIn(unsigned y, unsigned m) {
    static const unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && isLeap(y) ? 29 : kDays[m - 1];
}

// Ticks of the first moment after 31 December 30827: the end of the range.
uint64_t endTicks() {
    return static_cast<uint64_t>(daysFromCivil(30828, 1, 1) - kDaysTo1601) * kTicksPerDay;
}

BOOL invalid() {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

}  // namespace

extern "C" BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime) {
    if (lpFileTime == nullptr || lpSystemTime == nullptr)
        return invalid();
    const uint64_t v = (static_cast<uint64_t>(lpFileTime->dwHighDateTime) << 32) | lpFileTime->dwLowDateTime;
    if (v >= endTicks())
        return invalid();
    const uint64_t days = v / kTicksPerDay;
    uint64_t rest = v % kTicksPerDay;
    int64_t y;
    unsigned m, d;
    civilFromDays(static_cast<int64_t>(days) + kDaysTo1601, y, m, d);
    SYSTEMTIME st;
    st.wYear = static_cast<WORD>(y);
    st.wMonth = static_cast<WORD>(m);
    st.wDay = static_cast<WORD>(d);
    st.wDayOfWeek = static_cast<WORD>((days + 1) % 7);  // 1 January 1601 was a Monday
    st.wHour = static_cast<WORD>(rest / (3600 * 1000 * kTicksPerMs));
    rest %= 3600 * 1000 * kTicksPerMs;
    st.wMinute = static_cast<WORD>(rest / (60 * 1000 * kTicksPerMs));
    rest %= 60 * 1000 * kTicksPerMs;
    st.wSecond = static_cast<WORD>(rest / (1000 * kTicksPerMs));
    rest %= 1000 * kTicksPerMs;
    st.wMilliseconds = static_cast<WORD>(rest / kTicksPerMs);
    *lpSystemTime = st;
    return TRUE;
}

extern "C" BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime) {
    if (lpSystemTime == nullptr || lpFileTime == nullptr)
        return invalid();
    const SYSTEMTIME& st = *lpSystemTime;
    if (st.wYear < 1601 || st.wYear > 30827 || st.wMonth < 1 || st.wMonth > 12 || st.wDay < 1 ||
        st.wDay > daysIn(st.wYear, st.wMonth) || st.wHour > 23 || st.wMinute > 59 || st.wSecond > 59 ||
        st.wMilliseconds > 999)
        return invalid();
    const uint64_t days = static_cast<uint64_t>(daysFromCivil(st.wYear, st.wMonth, st.wDay) - kDaysTo1601);
    const uint64_t v = days * kTicksPerDay +
                       ((static_cast<uint64_t>(st.wHour) * 60 + st.wMinute) * 60 + st.wSecond) * 1000 * kTicksPerMs +
                       static_cast<uint64_t>(st.wMilliseconds) * kTicksPerMs;
    lpFileTime->dwLowDateTime = static_cast<DWORD>(v);
    lpFileTime->dwHighDateTime = static_cast<DWORD>(v >> 32);
    return TRUE;
}
