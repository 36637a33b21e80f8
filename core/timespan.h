// A non-negative length of time in 100 ns ticks, with its own text form (a year of 365
// days, a month of 30), the operators between dates and spans, and DateAddA/DateAddW.
#pragma once

#include "core/export.h"
#include "core/strings.h"

#include <cstdint>

// Days of January to December of a common year, read by the ASN.1 time code.
extern "C" CHAINVET_API const signed char OS_daysInMonth[12];

namespace Quorvane {

class CDateTime;

class CHAINVET_API CDateTimeSpan {
public:
    CDateTimeSpan() noexcept : m_high(0), m_low(0) {}
    // The microsecond product is taken in 32 bits.
    CDateTimeSpan(unsigned int seconds, unsigned int microseconds) noexcept;
    // "YYYYMMDDHHMMSS[.ffffff][Z]" read as counts; throws 0x8007076D for a non-digit.
    explicit CDateTimeSpan(const char* text);
    CDateTimeSpan(const CDateTimeSpan&) = default;
    CDateTimeSpan& operator=(const CDateTimeSpan&) = default;
    void swap(CDateTimeSpan& other) noexcept;

    uint32_t getLowPart() const noexcept { return m_low; }
    uint32_t getHighPart() const noexcept { return m_high; }

    // Years, months, days, hours, minutes, seconds and microseconds, trailing zeros cut, "Z".
    CStringProxy getGeneralizedTime() const;
    CStringProxy tostring() const;
    CWStringProxy towstring() const;

    static const CDateTimeSpan& OneYear() noexcept { return oneYear; }
    static const CDateTimeSpan& OneMonth() noexcept { return oneMonth; }
    static const CDateTimeSpan& OneDay() noexcept { return oneDay; }
    static const CDateTimeSpan& OneHour() noexcept { return oneHour; }
    static const CDateTimeSpan& OneMinute() noexcept { return oneMinute; }
    static const CDateTimeSpan& OneSecond() noexcept { return oneSecond; }
    static const CDateTimeSpan& OneMillisecond() noexcept { return oneMillisecond; }

    static const CDateTimeSpan oneYear;
    static const CDateTimeSpan oneMonth;
    static const CDateTimeSpan oneDay;
    static const CDateTimeSpan oneHour;
    static const CDateTimeSpan oneMinute;
    static const CDateTimeSpan oneSecond;
    static const CDateTimeSpan oneMillisecond;

    uint64_t ticks() const noexcept { return (static_cast<uint64_t>(m_high) << 32) | m_low; }
    static constexpr CDateTimeSpan fromTicks(uint64_t ticks) noexcept { return CDateTimeSpan(ticks, RawTicks()); }

private:
    struct RawTicks {};
    constexpr CDateTimeSpan(uint64_t ticks, RawTicks) noexcept
        : m_high(static_cast<uint32_t>(ticks >> 32)), m_low(static_cast<uint32_t>(ticks)) {}

    uint32_t m_high;
    uint32_t m_low;
};

static_assert(sizeof(CDateTimeSpan) == 8, "CDateTimeSpan is two 32-bit halves");

CHAINVET_API bool operator==(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API bool operator!=(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API bool operator<(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API bool operator<=(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API bool operator>(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API bool operator>=(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;

// Sums and products wrap; differences that would fall below zero throw 0x80004005.
CHAINVET_API CDateTimeSpan operator+(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API CDateTimeSpan& operator+=(CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API CDateTimeSpan operator-(const CDateTimeSpan& a, const CDateTimeSpan& b);
CHAINVET_API CDateTimeSpan& operator-=(CDateTimeSpan& a, const CDateTimeSpan& b);
CHAINVET_API CDateTime operator+(const CDateTime& date, const CDateTimeSpan& span) noexcept;
CHAINVET_API CDateTime& operator+=(CDateTime& date, const CDateTimeSpan& span) noexcept;
CHAINVET_API CDateTime operator-(const CDateTime& date, const CDateTimeSpan& span);
CHAINVET_API CDateTime& operator-=(CDateTime& date, const CDateTimeSpan& span);
CHAINVET_API CDateTimeSpan operator-(const CDateTime& later, const CDateTime& earlier);
CHAINVET_API CDateTimeSpan operator*(const CDateTimeSpan& a, unsigned int n) noexcept;
CHAINVET_API CDateTimeSpan& operator*=(CDateTimeSpan& a, unsigned int n) noexcept;
// A divisor of 0 raises the division fault (SIGFPE), as integer division does.
CHAINVET_API CDateTimeSpan operator/(const CDateTimeSpan& a, unsigned int n) noexcept;
CHAINVET_API CDateTimeSpan& operator/=(CDateTimeSpan& a, unsigned int n) noexcept;
CHAINVET_API CDateTimeSpan operator%(const CDateTimeSpan& a, unsigned int n) noexcept;
CHAINVET_API CDateTimeSpan& operator%=(CDateTimeSpan& a, unsigned int n) noexcept;
CHAINVET_API uint64_t operator/(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;
CHAINVET_API CDateTimeSpan operator%(const CDateTimeSpan& a, const CDateTimeSpan& b) noexcept;

// Adds number units to date; only the first character of interval counts: "d" (also the
// empty text), "h", "n" (minutes), "s", "w", "m" (calendar months), "y"; any other
// throws 0x80070057. A date before 1601 throws 0x80004005.
CHAINVET_API CDateTime DateAddA(const char* interval, int number, const CDateTime& date);
CHAINVET_API CDateTime DateAddW(const wchar_t* interval, int number, const CDateTime& date);

}  // namespace Quorvane
