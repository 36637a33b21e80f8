#include "core/datetime.h"

#include "core/exception.h"

#include <sys/time.h>

#include <cstdio>
#include <cwchar>
#include <utility>

namespace Quorvane {

namespace {

constexpr uint64_t kUnixEpoch = 116444736000000000ull;  // 1 January 1970 in ticks
constexpr uint64_t kTicksPerSecond = 10000000ull;
constexpr HRESULT kBadDigit = static_cast<HRESULT>(0x8007076Du);

uint64_t roundToMicroseconds(uint64_t ticks) { return ticks / 10 * 10; }

uint64_t ticksOf(const _FILETIME& ft) {
    return (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

uint64_t systemTimeToTicksThrow(const _SYSTEMTIME& st) {
    _FILETIME ft;
    if (!SystemTimeToFileTime(&st, &ft))
        ATL::AtlThrowLastWin32();
    return ticksOf(ft);
}

// The fixed-width field at offset, or 0 when the text ends before it.
int readIntField(const std::string& text, size_t offset, size_t width) {
    if (offset >= text.size() || offset + width > text.size())
        return 0;
    int value = 0;
    for (size_t i = offset; i < offset + width; ++i) {
        const char c = text[i];
        if (c < '0' || c > '9')
            ATL::AtlThrowImpl(kBadDigit);
        value = value * 10 + (c - '0');
    }
    return value;
}

struct tm utcFields(const _SYSTEMTIME& st) {
    struct tm t = {};
    t.tm_year = st.wYear - 1900;
    t.tm_mon = st.wMonth - 1;
    t.tm_mday = st.wDay;
    t.tm_hour = st.wHour;
    t.tm_min = st.wMinute;
    t.tm_sec = st.wSecond;
    t.tm_wday = st.wDayOfWeek;
    t.tm_yday = 0;
    t.tm_isdst = 0;
    return t;
}

std::string formatNarrow(const _SYSTEMTIME& st, const char* format) {
    const struct tm t = utcFields(st);
    char buffer[256];
    const size_t n = std::strftime(buffer, sizeof buffer, format, &t);
    if (n == 0)
        ATL::AtlThrowImpl(E_FAIL);
    return std::string(buffer, n);
}

std::wstring formatWide(const _SYSTEMTIME& st, const wchar_t* format) {
    const struct tm t = utcFields(st);
    wchar_t buffer[256];
    const size_t n = std::wcsftime(buffer, sizeof buffer / sizeof buffer[0], format, &t);
    if (n == 0)
        ATL::AtlThrowImpl(E_FAIL);
    return std::wstring(buffer, n);
}

// ".mmm" or ".mmmuuu" for a sub-second part in microseconds, nothing for 0.
std::string displayFraction(uint64_t ticks) {
    const unsigned us = static_cast<unsigned>(ticks % kTicksPerSecond / 10);
    if (us == 0)
        return std::string();
    char buffer[16];
    if (us % 1000 != 0)
        std::snprintf(buffer, sizeof buffer, ".%03u%03u", us / 1000, us % 1000);
    else
        std::snprintf(buffer, sizeof buffer, ".%03u", us / 1000);
    return buffer;
}

}  // namespace

struct tm GeneralizedTimeToTm(const std::string& text, unsigned int& microseconds, bool relative) {
    struct tm t = {};
    const int year = readIntField(text, 0, 4);
    const int month = readIntField(text, 4, 2);
    t.tm_mday = readIntField(text, 6, 2);
    t.tm_hour = readIntField(text, 8, 2);
    t.tm_min = readIntField(text, 10, 2);
    t.tm_sec = readIntField(text, 12, 2);
    microseconds = 0;
    if (text.size() >= 16) {
        // Index 14 holds the fractional point and is not checked.
        std::string fraction = text.substr(15);
        if (!fraction.empty() && fraction.back() == 'Z')
            fraction.pop_back();
        if (fraction.size() < 6)
            fraction.append(6 - fraction.size(), '0');
        microseconds = static_cast<unsigned int>(readIntField(fraction, 0, 6));
    }
    t.tm_year = relative ? year : year - 1900;
    t.tm_mon = relative ? month : month - 1;
    return t;
}

CDateTime::CDateTime(long seconds, unsigned int microseconds)
    : CDateTime(kUnixEpoch + static_cast<uint64_t>(static_cast<long long>(seconds)) * kTicksPerSecond +
                    static_cast<uint32_t>(microseconds * 10u),
                RawTicks()) {}

CDateTime::CDateTime(long long seconds, unsigned int microseconds)
    : CDateTime(kUnixEpoch + static_cast<uint64_t>(seconds) * kTicksPerSecond +
                    static_cast<uint32_t>(microseconds * 10u),
                RawTicks()) {}

CDateTime::CDateTime(const char* generalizedTime) : m_high(0), m_low(0) {
    unsigned int us = 0;
    const struct tm t = GeneralizedTimeToTm(generalizedTime ? generalizedTime : "", us, false);
    _SYSTEMTIME st = {};
    st.wYear = static_cast<WORD>(t.tm_year + 1900);
    st.wMonth = static_cast<WORD>(t.tm_mon + 1);
    st.wDay = static_cast<WORD>(t.tm_mday);
    st.wHour = static_cast<WORD>(t.tm_hour);
    st.wMinute = static_cast<WORD>(t.tm_min);
    st.wSecond = static_cast<WORD>(t.tm_sec);
    _FILETIME ft;
    if (!SystemTimeToFileTime(&st, &ft))
        ATL::AtlThrowImpl(E_FAIL);
    const uint64_t sum = ticksOf(ft) + static_cast<uint64_t>(us) * 10;
    if (sum == ~0ull)
        ATL::AtlThrowImpl(E_FAIL);
    setTicks(sum);
}

CDateTime::CDateTime(const _FILETIME& fileTime) : CDateTime(roundToMicroseconds(ticksOf(fileTime)), RawTicks()) {}

CDateTime::CDateTime(const _SYSTEMTIME& systemTime)
    : CDateTime(roundToMicroseconds(systemTimeToTicksThrow(systemTime)), RawTicks()) {}

CDateTime::CDateTime(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
                     unsigned int minute, unsigned int second, unsigned int millisecond,
                     unsigned int microsecond)
    : m_high(0), m_low(0) {
    _SYSTEMTIME st;
    st.wYear = static_cast<WORD>(year);
    st.wMonth = static_cast<WORD>(month);
    st.wDayOfWeek = 0;
    st.wDay = static_cast<WORD>(day);
    st.wHour = static_cast<WORD>(hour);
    st.wMinute = static_cast<WORD>(minute);
    st.wSecond = static_cast<WORD>(second);
    st.wMilliseconds = static_cast<WORD>(millisecond);
    // A field too wide for its 16 bits names no moment; it must not wrap into a valid one.
    if (year > 0xFFFF || month > 0xFFFF || day > 0xFFFF || hour > 0xFFFF || minute > 0xFFFF ||
        second > 0xFFFF || millisecond > 0xFFFF) {
        SetLastError(ERROR_INVALID_PARAMETER);
        ATL::AtlThrowLastWin32();
    }
    setTicks(systemTimeToTicksThrow(st) + static_cast<uint64_t>(microsecond) * 10);
}

void CDateTime::swap(CDateTime& other) noexcept {
    std::swap(m_high, other.m_high);
    std::swap(m_low, other.m_low);
}

CDateTime CDateTime::Now() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return CDateTime(static_cast<long long>(tv.tv_sec), static_cast<unsigned int>(tv.tv_usec));
}

_SYSTEMTIME CDateTime::fields() const {
    _SYSTEMTIME st = {};
    const _FILETIME ft = getFileTime();
    FileTimeToSystemTime(&ft, &st);
    return st;
}

unsigned int CDateTime::year() const { return fields().wYear; }
unsigned int CDateTime::month() const { return fields().wMonth; }
unsigned int CDateTime::day() const { return fields().wDay; }
unsigned int CDateTime::hour() const { return fields().wHour; }
unsigned int CDateTime::minute() const { return fields().wMinute; }
unsigned int CDateTime::second() const { return fields().wSecond; }

unsigned int CDateTime::millisecond() const {
    return static_cast<unsigned int>(ticks() % kTicksPerSecond / 10000);
}

unsigned int CDateTime::microsecond() const {
    return static_cast<unsigned int>(ticks() % kTicksPerSecond / 10 % 1000);
}

time_t CDateTime::getTime() const { return static_cast<time_t>((ticks() - kUnixEpoch) / kTicksPerSecond); }

_FILETIME CDateTime::getFileTime() const {
    _FILETIME ft;
    ft.dwLowDateTime = m_low;
    ft.dwHighDateTime = m_high;
    return ft;
}

_SYSTEMTIME CDateTime::getSystemTime() const { return fields(); }

CStringProxy CDateTime::getGeneralizedTime() const {
    _SYSTEMTIME st;
    const _FILETIME ft = getFileTime();
    if (!FileTimeToSystemTime(&ft, &st))
        ATL::AtlThrowLastWin32();
    char buffer[40];
    int n = std::snprintf(buffer, sizeof buffer, "%04u%02u%02u%02u%02u%02u", st.wYear, st.wMonth, st.wDay,
                          st.wHour, st.wMinute, st.wSecond);
    std::string text(buffer, static_cast<size_t>(n));
    const unsigned us = static_cast<unsigned>(ticks() % kTicksPerSecond / 10);
    if (us != 0) {
        n = std::snprintf(buffer, sizeof buffer, ".%06u", us);
        std::string fraction(buffer, static_cast<size_t>(n));
        while (fraction.back() == '0')
            fraction.pop_back();
        text += fraction;
    }
    text += 'Z';
    return CStringProxy(text.c_str());
}

CStringProxy CDateTime::getGeneralizedTimeTrimMicroseconds() const {
    _SYSTEMTIME st;
    const _FILETIME ft = getFileTime();
    if (!FileTimeToSystemTime(&ft, &st))
        ATL::AtlThrowLastWin32();
    return CStringProxy(formatNarrow(st, "%d.%m.%Y %X").c_str());
}

CStringProxy CDateTime::tostring() const {
    _SYSTEMTIME st;
    const _FILETIME ft = getFileTime();
    if (!FileTimeToSystemTime(&ft, &st))
        ATL::AtlThrowLastWin32();
    const std::string text = formatNarrow(st, "%d.%m.%Y %H:%M:%S") + displayFraction(ticks());
    return CStringProxy(text.c_str());
}

CWStringProxy CDateTime::towstring() const {
    _SYSTEMTIME st;
    const _FILETIME ft = getFileTime();
    if (!FileTimeToSystemTime(&ft, &st))
        ATL::AtlThrowLastWin32();
    std::wstring text = formatWide(st, L"%d.%m.%Y %H:%M:%S");
    for (char c : displayFraction(ticks()))
        text += static_cast<wchar_t>(c);
    return CWStringProxy(text.c_str());
}

CDateTime CDateTime::shiftedByZone(bool toLocal) const {
    // The offset of this moment's season applies to every value.
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    tzset();
    long offset = timezone;
    if (local.tm_isdst > 0)
        offset -= 3600;
    const uint64_t delta = static_cast<uint64_t>(static_cast<long long>(offset)) * kTicksPerSecond;
    const uint64_t shifted = toLocal ? ticks() - delta : ticks() + delta;
    return CDateTime(roundToMicroseconds(shifted), RawTicks());
}

CDateTime CDateTime::utcToLocal() const { return shiftedByZone(true); }
CDateTime CDateTime::localToUtc() const { return shiftedByZone(false); }

bool operator==(const CDateTime& a, const CDateTime& b) noexcept { return a.ticks() == b.ticks(); }
bool operator!=(const CDateTime& a, const CDateTime& b) noexcept { return a.ticks() != b.ticks(); }
bool operator<(const CDateTime& a, const CDateTime& b) noexcept { return a.ticks() < b.ticks(); }
bool operator<=(const CDateTime& a, const CDateTime& b) noexcept { return a.ticks() <= b.ticks(); }
bool operator>(const CDateTime& a, const CDateTime& b) noexcept { return a.ticks() > b.ticks(); }
bool operator>=(const CDateTime& a, const CDateTime& b) noexcept { return a.ticks() >= b.ticks(); }

}  // namespace Quorvane
