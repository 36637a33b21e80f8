#include "core/timespan.h"

#include "core/datetime.h"
#include "core/exception.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

extern "C" const signed char OS_daysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

namespace Quorvane {

namespace {

constexpr uint64_t kTicksPerSecond = 10000000ull;
constexpr uint64_t kYear = 315360000000000ull;

// Integer division by zero: the fault the processor raises, without undefined behaviour.
void divisionFault() {
    std::raise(SIGFPE);
    std::abort();
}

}  // namespace

const CDateTimeSpan CDateTimeSpan::oneYear = CDateTimeSpan::fromTicks(kYear);
const CDateTimeSpan CDateTimeSpan::oneMonth = CDateTimeSpan::fromTicks(25920000000000ull);
const CDateTimeSpan CDateTimeSpan::oneDay = CDateTimeSpan::fromTicks(864000000000ull);
const CDateTimeSpan CDateTimeSpan::oneHour = CDateTimeSpan::fromTicks(36000000000ull);
const CDateTimeSpan CDateTimeSpan::oneMinute = CDateTimeSpan::fromTicks(600000000ull);
const CDateTimeSpan CDateTimeSpan::oneSecond = CDateTimeSpan::fromTicks(10000000ull);
const CDateTimeSpan CDateTimeSpan::oneMillisecond = CDateTimeSpan::fromTicks(10000ull);

CDateTimeSpan::CDateTimeSpan(unsigned int seconds, unsigned int microseconds) noexcept
    : CDateTimeSpan(static_cast<uint64_t>(seconds) * kTicksPerSecond + static_cast<uint32_t>(microseconds * 10u),
                    RawTicks()) {}

CDateTimeSpan::CDateTimeSpan(const char* text) : m_high(0), m_low(0) {
    unsigned int us = 0;
    const struct tm t = GeneralizedTimeToTm(text ? text : "", us, true);
    // The day count is a 32-bit sum.
    const uint32_t days = static_cast<uint32_t>(t.tm_year) * 365u + static_cast<uint32_t>(t.tm_mon) * 30u +
                          static_cast<uint32_t>(t.tm_mday);
    const uint64_t seconds = ((static_cast<uint64_t>(days) * 24 + static_cast<uint64_t>(t.tm_hour)) * 60 +
                              static_cast<uint64_t>(t.tm_min)) * 60 +
                             static_cast<uint64_t>(t.tm_sec);
    *this = fromTicks(seconds * kTicksPerSecond + static_cast<uint64_t>(us) * 10);
}

void CDateTimeSpan::swap(CDateTimeSpan& other) noexcept {
    std::swap(m_high, other.m_high);
    std::swap(m_low, other.m_low);
}

CStringProxy CDateTimeSpan::getGeneralizedTime() const {
    const uint64_t t = ticks();
    const uint64_t years = t / kYear;
    uint64_t rest = t % kYear / kTicksPerSecond;
    const unsigned months = static_cast<unsigned>(rest / 2592000);
    rest %= 2592000;
    const unsigned days = static_cast<unsigned>(rest / 86400);
    rest %= 86400;
    const unsigned hours = static_cast<unsigned>(rest / 3600);
    rest %= 3600;
    const unsigned minutes = static_cast<unsigned>(rest / 60);
    const unsigned seconds = static_cast<unsigned>(rest % 60);
    const unsigned us = static_cast<unsigned>(t % kTicksPerSecond / 10);
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, "%04llu%02u%02u%02u%02u%02u.%06u",
                                static_cast<unsigned long long>(years), months, days, hours, minutes, seconds, us);
    std::string text(buffer, static_cast<size_t>(n));
    // The cut runs on into the integer fields as far as the zeros go.
    while (!text.empty() && (text.back() == '0' || text.back() == '.'))
        text.pop_back();
    text += 'Z';
    return CStringProxy(text.c_str());
}

CStringProxy CDateTimeSpan::tostring() const { return getGeneralizedTime(); }

CWStringProxy CDateTimeSpan::towstring() const {
    const CStringProxy narrow = getGeneralizedTime();
    const int n = MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, nullptr, 0);
    if (n <= 0)
        ATL::AtlThrowLastWin32();
    std::wstring wide(static_cast<size_t>(n), L'\0');
    if (MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, &wide[0], n) != n)
        ATL::AtlThrowLastWin32();
    return CWStringProxy(wide.c_str());
}

bool operator==(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a.ticks() == b.ticks(); }
bool operator!=(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a.ticks() != b.ticks(); }
bool operator<(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a.ticks() < b.ticks(); }
bool operator<=(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a.ticks() <= b.ticks(); }
bool operator>(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a.ticks() > b.ticks(); }
bool operator>=(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a.ticks() >= b.ticks(); }

CDateTimeSpan operator+(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept {
    return CDateTimeSpan::fromTicks(a.ticks() + b.ticks());
}

CDateTimeSpan& operator+=(CDateTimeSpan& a, const CDateTimeSpan& b) noexcept { return a = a + b; }

CDateTimeSpan operator-(const CDateTimeSpan& a, const CDateTimeSpan& b) {
    if (b.ticks() > a.ticks())
        ATL::AtlThrowImpl(E_FAIL);
    return CDateTimeSpan::fromTicks(a.ticks() - b.ticks());
}

CDateTimeSpan& operator-=(CDateTimeSpan& a, const CDateTimeSpan& b) { return a = a - b; }

CDateTime operator+(const CDateTime& date, const CDateTimeSpan& span) noexcept {
    return CDateTime::fromTicks(date.ticks() + span.ticks());
}

CDateTime& operator+=(CDateTime& date, const CDateTimeSpan& span) noexcept { return date = date + span; }

CDateTime operator-(const CDateTime& date, const CDateTimeSpan& span) {
    if (span.ticks() > date.ticks())
        ATL::AtlThrowImpl(E_FAIL);
    return CDateTime::fromTicks(date.ticks() - span.ticks());
}

CDateTime& operator-=(CDateTime& date, const CDateTimeSpan& span) { return date = date - span; }

CDateTimeSpan operator-(const CDateTime& later, const CDateTime& earlier) {
    if (earlier.ticks() > later.ticks())
        ATL::AtlThrowImpl(E_FAIL);
    return CDateTimeSpan::fromTicks(later.ticks() - earlier.ticks());
}

CDateTimeSpan operator*(const CDateTimeSpan& a, unsigned int n) noexcept {
    return CDateTimeSpan::fromTicks(a.ticks() * n);
}

CDateTimeSpan& operator*=(CDateTimeSpan& a, unsigned int n) noexcept { return a = a * n; }

CDateTimeSpan operator/(const CDateTimeSpan& a, unsigned int n) noexcept {
    if (n == 0)
        divisionFault();
    return CDateTimeSpan::fromTicks(a.ticks() / n);
}

CDateTimeSpan& operator/=(CDateTimeSpan& a, unsigned int n) noexcept { return a = a / n; }

CDateTimeSpan operator%(const CDateTimeSpan& a, unsigned int n) noexcept {
    if (n == 0)
        divisionFault();
    return CDateTimeSpan::fromTicks(a.ticks() % n);
}

CDateTimeSpan& operator%=(CDateTimeSpan& a, unsigned int n) noexcept { return a = a % n; }

uint64_t operator/(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept {
    if (b.ticks() == 0)
        divisionFault();
    return a.ticks() / b.ticks();
}

CDateTimeSpan operator%(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept {
    if (b.ticks() == 0)
        divisionFault();
    return CDateTimeSpan::fromTicks(a.ticks() % b.ticks());
}

namespace {

bool isLeapYear(long long y) { return y % 400 == 0 || (y % 4 == 0 && y % 100 != 0); }

CDateTime DateAddMonth(long long months, const CDateTime& date) {
    static const unsigned char maxDaysLeap[13] = {0, 31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    static const unsigned char maxDaysNonLeap[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const _SYSTEMTIME st = date.getSystemTime();
    long long year = st.wYear + months / 12;
    long long month = st.wMonth + months - 12 * (months / 12);
    if (month < 1) {
        month += 12;
        year -= 1;
    } else if (month >= 13) {
        month -= 12;
        year += 1;
    }
    // A year beyond 16 bits names no moment; it must not wrap into one.
    if (year < 0 || year > 0xFFFF || month < 1 || month > 12) {
        SetLastError(ERROR_INVALID_PARAMETER);
        ATL::AtlThrowLastWin32();
    }
    const unsigned char* table = isLeapYear(year) ? maxDaysLeap : maxDaysNonLeap;
    const uint64_t subSecond = date.ticks() % kTicksPerSecond;
    _SYSTEMTIME out;
    out.wYear = static_cast<WORD>(year);
    out.wMonth = static_cast<WORD>(month);
    out.wDayOfWeek = 0;
    out.wDay = static_cast<WORD>(st.wDay < table[month] ? st.wDay : table[month]);
    out.wHour = st.wHour;
    out.wMinute = st.wMinute;
    out.wSecond = st.wSecond;
    out.wMilliseconds = static_cast<WORD>(subSecond / 10000);
    _FILETIME ft;
    if (!SystemTimeToFileTime(&out, &ft))
        ATL::AtlThrowLastWin32();
    const uint64_t ticks = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    return CDateTime::fromTicks(ticks + subSecond / 10 % 1000 * 10);
}

}  // namespace

CDateTime DateAddA(const char* interval, int number, const CDateTime& date) {
    if (interval == nullptr)
        ATL::AtlThrowImpl(E_INVALIDARG);
    uint64_t unit;
    switch (interval[0]) {
    case '\0':
    case 'd': unit = CDateTimeSpan::oneDay.ticks(); break;
    case 'h': unit = CDateTimeSpan::oneHour.ticks(); break;
    case 'n': unit = CDateTimeSpan::oneMinute.ticks(); break;
    case 's': unit = CDateTimeSpan::oneSecond.ticks(); break;
    case 'w': unit = 7 * CDateTimeSpan::oneDay.ticks(); break;
    case 'm': return DateAddMonth(number, date);
    case 'y': return DateAddMonth(static_cast<long long>(number) * 12, date);
    default: ATL::AtlThrowImpl(E_INVALIDARG);
    }
    const uint64_t magnitude = number < 0 ? 0ull - static_cast<uint64_t>(static_cast<long long>(number))
                                          : static_cast<uint64_t>(number);
    const uint64_t amount = magnitude * unit;
    if (number > 0)
        return CDateTime::fromTicks(date.ticks() + amount);
    if (amount > date.ticks())
        ATL::AtlThrowImpl(E_FAIL);
    return CDateTime::fromTicks(date.ticks() - amount);
}

CDateTime DateAddW(const wchar_t* interval, int number, const CDateTime& date) {
    if (interval == nullptr)
        ATL::AtlThrowImpl(E_INVALIDARG);
    char narrow[2] = {0, 0};
    switch (interval[0]) {
    case L'\0': break;
    case L'd': narrow[0] = 'd'; break;
    case L'h': narrow[0] = 'h'; break;
    case L'n': narrow[0] = 'n'; break;
    case L's': narrow[0] = 's'; break;
    case L'w': narrow[0] = 'w'; break;
    case L'm': narrow[0] = 'm'; break;
    case L'y': narrow[0] = 'y'; break;
    default: narrow[0] = '?'; break;  // any other character is refused as in DateAddA
    }
    return DateAddA(narrow, number, date);
}

}  // namespace Quorvane
