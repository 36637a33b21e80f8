// A point in time as the CryptoAPI's FILETIME count (100 ns ticks since 1 January 1601
// UTC), with microsecond precision, and its conversions: generalized time, Unix time,
// SYSTEMTIME and display text. Spans and the operators that mix both are in timespan.h.
#pragma once

#include "core/export.h"
#include "core/strings.h"
#include "qvcapi/support.h"

#include <cstdint>
#include <ctime>
#include <string>

namespace Quorvane {

class CHAINVET_API CDateTime {
public:
    // Unix seconds and microseconds; the microsecond product is taken in 32 bits.
    CDateTime(long seconds, unsigned int microseconds);
    CDateTime(long long seconds, unsigned int microseconds);
    // "YYYYMMDDHHMMSS[.ffffff][Z]"; throws 0x80004005 for no valid date, 0x8007076D for a
    // non-digit in a field. A null text reads as empty.
    explicit CDateTime(const char* generalizedTime);
    // Both round down to whole microseconds.
    explicit CDateTime(const _FILETIME& fileTime);
    explicit CDateTime(const _SYSTEMTIME& systemTime);
    // UTC calendar fields; not rounded.
    CDateTime(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
              unsigned int minute, unsigned int second, unsigned int millisecond,
              unsigned int microsecond);
    CDateTime(const CDateTime&) = default;
    CDateTime& operator=(const CDateTime&) = default;
    void swap(CDateTime& other) noexcept;

    static CDateTime Now();

    unsigned int year() const;
    unsigned int month() const;
    unsigned int day() const;
    unsigned int hour() const;
    unsigned int minute() const;
    unsigned int second() const;
    unsigned int millisecond() const;
    // Only the microseconds beyond the milliseconds: 0 to 999.
    unsigned int microsecond() const;

    // Unix seconds; before 1970 the unsigned difference gives a huge number.
    time_t getTime() const;
    _FILETIME getFileTime() const;
    _SYSTEMTIME getSystemTime() const;
    // "YYYYMMDDHHMMSS[.f]Z", the fraction without trailing zeros.
    CStringProxy getGeneralizedTime() const;
    // "%d.%m.%Y %X": display text that follows the locale, not generalized time.
    CStringProxy getGeneralizedTimeTrimMicroseconds() const;
    // "dd.mm.yyyy hh:mm:ss" with ".mmm" or ".mmmuuu" when there is a fraction.
    CStringProxy tostring() const;
    CWStringProxy towstring() const;

    // Shifted by the zone offset of the present moment (summer time as one hour).
    CDateTime utcToLocal() const;
    CDateTime localToUtc() const;

    // The 64-bit tick count.
    uint64_t ticks() const noexcept { return (static_cast<uint64_t>(m_high) << 32) | m_low; }
    static CDateTime fromTicks(uint64_t ticks) noexcept { return CDateTime(ticks, RawTicks()); }

private:
    struct RawTicks {};
    CDateTime(uint64_t ticks, RawTicks) noexcept
        : m_high(static_cast<uint32_t>(ticks >> 32)), m_low(static_cast<uint32_t>(ticks)) {}
    void setTicks(uint64_t ticks) noexcept {
        m_high = static_cast<uint32_t>(ticks >> 32);
        m_low = static_cast<uint32_t>(ticks);
    }
    CHAINVET_HIDDEN _SYSTEMTIME fields() const;
    CHAINVET_HIDDEN CDateTime shiftedByZone(bool toLocal) const;

    uint32_t m_high;
    uint32_t m_low;
};

static_assert(sizeof(CDateTime) == 8, "CDateTime is two 32-bit halves");

CHAINVET_API bool operator==(const CDateTime& a, const CDateTime& b) noexcept;
CHAINVET_API bool operator!=(const CDateTime& a, const CDateTime& b) noexcept;
CHAINVET_API bool operator<(const CDateTime& a, const CDateTime& b) noexcept;
CHAINVET_API bool operator<=(const CDateTime& a, const CDateTime& b) noexcept;
CHAINVET_API bool operator>(const CDateTime& a, const CDateTime& b) noexcept;
CHAINVET_API bool operator>=(const CDateTime& a, const CDateTime& b) noexcept;

// Generalized-time fields by position: the calendar form (relative false: tm_year from
// 1900, tm_mon from 0) or counts as written (relative true). Missing fields are 0.
struct tm GeneralizedTimeToTm(const std::string& text, unsigned int& microseconds, bool relative);

}  // namespace Quorvane

#include "core/timespan.h"
