// GeneralizedTime and UTCTime: the C layer and the time control classes.
#include "asn1rt/asn1time.h"

#include "asn1rt/charstr.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>

namespace {

const int kBadTime = RT_E_BAD_TIME;
// Returned by the date scanner when the leading numbers could not be read at all.
const int kNoItems = 1;

// Days of each month of a common year, January first.
const signed char kDaysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool isLeap(long year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int daysOf(int month, long year) {
    return kDaysInMonth[month - 1] + ((month == 2 && isLeap(year)) ? 1 : 0);
}

int setError(ASN1CTXT* pctxt, int status) {
    return pctxt ? rtErrSetData(&pctxt->errInfo, status) : status;
}

// Bounded reads: a position past the terminator reads as 0, so a short text simply fails
// its next test instead of being read past its end.
struct Text {
    const char* s;
    size_t len;
    explicit Text(const char* t) : s(t), len(t ? strlen(t) : 0) {}
    char at(size_t i) const { return i < len ? s[i] : '\0'; }
    bool digit(size_t i) const { return (rtCtypeTable[(unsigned char)at(i)] & RT_CTYPE_DIGIT) != 0; }
};

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads one decimal number as the scanf conversion "%<width>d" does (width 0: no limit):
// leading white space, an optional sign that counts toward the width, at least one
// digit.  Saturates instead of overflowing.  Returns the characters consumed, 0 if no
// number was read.
size_t scanInt(const Text& t, size_t pos, int width, int* out) {
    size_t p = pos;
    while (isSpace(t.at(p))) ++p;
    int left = width > 0 ? width : INT_MAX;
    bool neg = false;
    char c = t.at(p);
    if (c == '+' || c == '-') {
        neg = c == '-';
        ++p;
        --left;
    }
    long long v = 0;
    int ndig = 0;
    while (left > 0 && t.digit(p)) {
        if (v < 10000000000LL) v = v * 10 + (t.at(p) - '0');
        ++p;
        --left;
        ++ndig;
    }
    if (ndig == 0) return 0;
    if (neg) v = -v;
    if (v > INT_MAX) v = INT_MAX;
    if (v < INT_MIN) v = INT_MIN;
    *out = (int)v;
    return p - pos;
}

// Reads up to three numbers in turn, as "%<w1>d%<w2>d%<w3>d" does; the count read.
int scan3(const Text& t, int w1, int w2, int w3, int* a, int* b, int* c) {
    size_t p = 0, n;
    if (!(n = scanInt(t, p, w1, a))) return 0;
    p += n;
    if (!(n = scanInt(t, p, w2, b))) return 1;
    p += n;
    if (!scanInt(t, p, w3, c)) return 2;
    return 3;
}

// Date and time of day of a GeneralizedTime: "%4d%2d%2d", the hour at index 8, the
// minute at 10 and the second at 12 when digits stand there.
struct GtScan {
    int year = -3, month = -3, day = -3, hour = -3, minute = 0, second = 0;
    int parts = 0;   // 1 hour only, 2 with minute, 3 with second
    size_t pos = 0;  // index of the character behind the time of day
};

int scanGeneralizedDateTime(const Text& t, GtScan& g) {
    if (scan3(t, 4, 2, 2, &g.year, &g.month, &g.day) < 3) return kNoItems;
    if (g.year < 0 || g.month < 1 || g.month > 12 || g.day < 1 || g.day > daysOf(g.month, g.year))
        return kBadTime;
    if (!t.digit(8) || !scanInt(t, 8, 2, &g.hour)) return kBadTime;
    g.parts = 1;
    g.pos = 10;
    if (t.digit(10)) {
        scanInt(t, 10, 2, &g.minute);
        g.parts = 2;
        g.pos = 12;
        if (t.digit(12)) {
            scanInt(t, 12, 2, &g.second);
            g.parts = 3;
            g.pos = 14;
        }
    }
    if (g.hour >= 24) return kBadTime;
    if (g.parts >= 2 && g.minute >= 60) return kBadTime;
    if (g.parts >= 3 && g.second >= 60) return kBadTime;
    return 0;
}

// Date and time of a UTCTime: "%2d%2d%2d" with the century rule, hour at 6, minute at 8,
// the second when a digit stands at 10.
struct UtcScan {
    int year = -3, month = -3, day = -3, hour = -3, minute = -3, second = 0;
    size_t pos = 0;
};

int scanUtcDateTime(const Text& t, UtcScan& u) {
    if (scan3(t, 2, 2, 2, &u.year, &u.month, &u.day) < 3) return kNoItems;
    if (u.year < 0) return kBadTime;
    if (u.year < 100) u.year += u.year < 50 ? 2000 : 1900;
    if (u.month < 1 || u.month > 12 || u.day < 1 || u.day > daysOf(u.month, u.year))
        return kBadTime;
    if (!t.digit(6) || !scanInt(t, 6, 2, &u.hour)) return kBadTime;
    if (!scanInt(t, 8, 2, &u.minute)) return kBadTime;
    u.pos = 10;
    if (t.digit(10)) {
        scanInt(t, 10, 2, &u.second);
        u.pos = 12;
    }
    if (u.hour >= 24 || u.minute < 0 || u.minute >= 60 || u.second >= 60) return kBadTime;
    return 0;
}

// "+hhmm" / "-hhmm" of a UTCTime: both pairs of digits are required.
int scanUtcZone(const Text& t, size_t pos, int& dh, int& dm) {
    for (size_t i = 1; i <= 4; ++i)
        if (!t.digit(pos + i)) return kBadTime;
    scanInt(t, pos + 1, 2, &dh);
    scanInt(t, pos + 3, 2, &dm);
    if (dh >= 13 || dm >= 60) return kBadTime;
    if (t.at(pos) == '-') {
        dh = -dh;
        dm = -dm;
    }
    return 0;
}

// Copies a built text into storage of the given capacity, cutting it if need be.
void storeText(char* dst, int capacity, const char* src) {
    if (!dst || capacity <= 0) return;
    size_t n = strlen(src);
    if (n >= (size_t)capacity) n = (size_t)capacity - 1;
    memcpy(dst, src, n);
    dst[n] = '\0';
}

int iabs(int v) { return v < 0 ? -v : v; }

long long floorDiv(long long a, long long b) {
    long long q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

long long dayNumber(long long y, int m, int d) {
    if (m < 1 || m > 12) m = 1;
    long long ym1 = y - 1;
    long long n = d + ASN1CTime::daysAfterMonth[m - 1] + ym1 / 4 - ym1 / 100 + ym1 / 400 + ym1 * 365;
    if (m >= 3 && isLeap((long)y)) ++n;
    return n;
}

}  // namespace

// ---- C layer -------------------------------------------------------------------------

extern "C" int rtParseGeneralizedTime(ASN1CTXT* pctxt, const char* text, RtTimeFields* fields) {
    if (!text || !fields) return setError(pctxt, kBadTime);
    Text t(text);
    GtScan g;
    if (scanGeneralizedDateTime(t, g) != 0) return setError(pctxt, kBadTime);

    char frac[21] = {0};
    size_t pos = g.pos;
    char c = t.at(pos);
    if (c == '.' || c == ',') {
        if (g.parts < 3) return setError(pctxt, kBadTime);
        size_t q = pos + 1, stored = 0;
        bool anyDigit = false;
        while (t.digit(q)) {
            anyDigit = true;
            char d = t.at(q++);
            if (stored == 0 && d == '0') continue;  // leading zeros are not kept
            frac[stored++] = d;
            if (stored == 20) break;
        }
        if (!anyDigit) return setError(pctxt, kBadTime);
        pos = q;
        c = t.at(pos);
    }

    int dh = 0, dm = 0;
    ASN1UINT8 utc = 0;
    if (c == 'Z') {
        if (t.at(pos + 1) != '\0') return setError(pctxt, kBadTime);
        utc = 1;
    } else if (c == '+' || c == '-') {
        if (!t.digit(pos + 1)) return setError(pctxt, kBadTime);
        scanInt(t, pos + 1, 2, &dh);
        if (dh >= 13) return setError(pctxt, kBadTime);
        if (t.digit(pos + 3)) {
            scanInt(t, pos + 3, 2, &dm);
            if (dm >= 60) return setError(pctxt, kBadTime);
        }
        if (c == '-') {
            dh = -dh;
            dm = -dm;
        }
    }
    // Any other character: accepted, and the time is local.

    fields->year = (ASN1SINT)g.year;
    fields->month = (ASN1SINT)g.month;
    fields->day = (ASN1SINT)g.day;
    fields->hour = (ASN1SINT)g.hour;
    fields->minute = (ASN1SINT)g.minute;
    fields->second = (ASN1SINT)g.second;
    fields->diffHour = (ASN1SINT)dh;
    fields->diffMin = (ASN1SINT)dm;
    memcpy(fields->fraction, frac, sizeof frac);
    fields->utc = utc;
    return 0;
}

extern "C" int rtParseUTCTime(ASN1CTXT* pctxt, const char* text, RtTimeFields* fields) {
    if (!text || !fields) return setError(pctxt, kBadTime);
    Text t(text);
    UtcScan u;
    if (scanUtcDateTime(t, u) != 0) return setError(pctxt, kBadTime);

    int dh = 0, dm = 0;
    ASN1UINT8 utc = 0;
    char c = t.at(u.pos);
    if (c == 'Z') {
        if (t.at(u.pos + 1) != '\0') return setError(pctxt, kBadTime);
        utc = 1;
    } else if (c == '+' || c == '-') {
        if (scanUtcZone(t, u.pos, dh, dm) != 0) return setError(pctxt, kBadTime);
    } else {
        return setError(pctxt, kBadTime);
    }

    fields->year = (ASN1SINT)u.year;
    fields->month = (ASN1SINT)u.month;
    fields->day = (ASN1SINT)u.day;
    fields->hour = (ASN1SINT)u.hour;
    fields->minute = (ASN1SINT)u.minute;
    fields->second = (ASN1SINT)u.second;
    fields->diffHour = (ASN1SINT)dh;
    fields->diffMin = (ASN1SINT)dm;
    fields->fraction[0] = '\0';
    fields->utc = utc;
    return 0;
}

extern "C" int rtMakeGeneralizedTime(ASN1CTXT* pctxt, const RtTimeFields* f, char** text,
                                     int capacity) {
    if (!f || !text) return setError(pctxt, RT_E_BAD_ARGUMENT);
    if (f->year < 0 || f->year > 9999 || f->month < 1 || f->month > 12 || f->day < 1 ||
        f->day > 31 || f->hour < 0 || f->hour >= 24 || f->minute < 0 || f->minute >= 60 ||
        f->second < 0 || f->second >= 60 || f->diffHour < -12 || f->diffHour > 12 ||
        f->diffMin < -59 || f->diffMin > 59 || f->day > daysOf(f->month, f->year))
        return setError(pctxt, kBadTime);

    char buf[64];
    int n = snprintf(buf, sizeof buf, "%.4d%.2d%.2d%.2d%.2d%.2d", f->year, f->month, f->day,
                     f->hour, f->minute, f->second);
    if (f->fraction[0] != '\0')
        n += snprintf(buf + n, sizeof buf - (size_t)n, ".%.20s", f->fraction);
    if (f->utc) {
        n += snprintf(buf + n, sizeof buf - (size_t)n, "Z");
    } else if (f->diffHour != 0 || f->diffMin != 0) {
        char sign = (f->diffHour < 0 || f->diffMin < 0) ? '-' : '+';
        n += snprintf(buf + n, sizeof buf - (size_t)n, "%c%02d%02d", sign, iabs(f->diffHour),
                      iabs(f->diffMin));
    }

    if (capacity == 0) {
        if (!pctxt) return RT_E_BAD_ARGUMENT;
        char* copy = (char*)rtUTF8Strdup(pctxt, (const unsigned char*)buf);
        if (!copy) return setError(pctxt, RT_E_NO_MEMORY);
        *text = copy;
        return 0;
    }
    if (n >= capacity || !*text) return setError(pctxt, RT_E_TOO_LONG);
    memcpy(*text, buf, (size_t)n + 1);
    return 0;
}

// ---- ASN1CTime -------------------------------------------------------------------------

const ASN1SINT ASN1CTime::daysInMonth[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const ASN1SINT ASN1CTime::daysAfterMonth[12] = {0,   31,  59,  90,  120, 151,
                                                181, 212, 243, 273, 304, 334};

ASN1CTime::ASN1CTime(ASN1MessageBufferIF& msgBuf, char*& buf, int bufSize,
                     unsigned char useDerRules)
    : ASN1CType(msgBuf), derRules(useDerRules ? 1 : 0), timeStr(&buf), timeStrSize(bufSize) {
    privateInit();
}

ASN1CTime::ASN1CTime(ASN1MessageBufferIF& msgBuf, const char*& buf, unsigned char useDerRules)
    : ASN1CType(msgBuf), derRules(useDerRules ? 1 : 0), timeStr(const_cast<char**>(&buf)),
      timeStrSize(0) {
    privateInit();
}

ASN1CTime::ASN1CTime(ASN1Context& ctxt, char*& buf, int bufSize, unsigned char useDerRules)
    : ASN1CType(ctxt), derRules(useDerRules ? 1 : 0), timeStr(&buf), timeStrSize(bufSize) {
    privateInit();
}

ASN1CTime::ASN1CTime(ASN1Context& ctxt, const char*& buf, unsigned char useDerRules)
    : ASN1CType(ctxt), derRules(useDerRules ? 1 : 0), timeStr(const_cast<char**>(&buf)),
      timeStrSize(0) {
    privateInit();
}

ASN1CTime::ASN1CTime(char*& buf, int bufSize, unsigned char useDerRules)
    : ASN1CType(), derRules(useDerRules ? 1 : 0), timeStr(&buf), timeStrSize(bufSize) {
    privateInit();
}

ASN1CTime::ASN1CTime(const char*& buf, unsigned char useDerRules)
    : ASN1CType(), derRules(useDerRules ? 1 : 0), timeStr(const_cast<char**>(&buf)),
      timeStrSize(0) {
    privateInit();
}

ASN1CTime::ASN1CTime(const ASN1CTime& o)
    : ASN1CType(o), year(o.year), month(o.month), day(o.day), hour(o.hour), minute(o.minute),
      second(o.second), diffHour(o.diffHour), diffMinute(o.diffMinute), fraction(o.fraction),
      utc(o.utc), parsed(o.parsed), derRules(o.derRules), timeStr(&timeStrOwn), timeStrSize(0) {
    timeStrOwn = timeStrBuf;
    storeText(timeStrBuf, (int)sizeof timeStrBuf, o.currentText() ? o.currentText() : "");
}

ASN1CTime::~ASN1CTime() {}

void ASN1CTime::setUnset() {
    year = month = day = hour = -3;
    minute = second = diffHour = diffMinute = 0;
    fraction = 0;
}

void ASN1CTime::privateInit() {
    setUnset();
    utc = derRules;
    parsed = 0;
    timeStrBuf[0] = '\0';
    timeStrOwn = timeStrBuf;
}

int ASN1CTime::fail(int status) {
    return mpContext ? rtErrSetData(&mpContext->GetPtr()->errInfo, status) : status;
}

int ASN1CTime::ensureParsed() {
    if (parsed) return 0;
    int st = parseString(currentText());
    return st != 0 ? fail(st) : 0;
}

void ASN1CTime::checkCapacity() {
    if (timeStrSize < 30) *timeStr = timeStrBuf;
}

char* ASN1CTime::textStorage(int& capacity) {
    checkCapacity();
    if (timeStrSize >= 30 && *timeStr) {
        capacity = timeStrSize;
        return *timeStr;
    }
    *timeStr = timeStrBuf;
    capacity = (int)sizeof timeStrBuf;
    return timeStrBuf;
}

int ASN1CTime::getYear() {
    int st = ensureParsed();
    return st ? st : year;
}
int ASN1CTime::getMonth() {
    int st = ensureParsed();
    return st ? st : month;
}
int ASN1CTime::getDay() {
    int st = ensureParsed();
    return st ? st : day;
}
int ASN1CTime::getHour() {
    int st = ensureParsed();
    return st ? st : hour;
}
int ASN1CTime::getMinute() {
    int st = ensureParsed();
    return st ? st : minute;
}
int ASN1CTime::getSecond() {
    int st = ensureParsed();
    return st ? st : second;
}
int ASN1CTime::getFraction() {
    int st = ensureParsed();
    return st ? st : fraction;
}
int ASN1CTime::getDiffHour() {
    int st = ensureParsed();
    return st ? st : diffHour;
}
int ASN1CTime::getDiffMinute() {
    int st = ensureParsed();
    return st ? st : diffMinute;
}
int ASN1CTime::getDiff() {
    int st = ensureParsed();
    return st ? st : diffHour * 60 + diffMinute;
}
int ASN1CTime::getUTC() {
    if (!derRules) {
        int st = ensureParsed();
        if (st) return st;
    }
    return utc;
}

time_t ASN1CTime::getTime() {
    int st = ensureParsed();
    if (st) return st;
    struct tm tmv;
    memset(&tmv, 0, sizeof tmv);
    tmv.tm_year = year - 1900;
    tmv.tm_mon = month - 1;
    tmv.tm_mday = day;
    tmv.tm_hour = hour;
    tmv.tm_min = minute;
    tmv.tm_sec = second;
    tmv.tm_isdst = -1;
    time_t t = mktime(&tmv);
    // The offset is added to the local reading, as this class has always done.
    if (diffHour != 0 || diffMinute != 0) t += (time_t)diffHour * 3600 + (time_t)diffMinute * 60;
    return t;
}

int ASN1CTime::setUTC(unsigned char flag) {
    if (derRules) return 0;
    ensureParsed();
    utc = flag ? 1 : 0;
    compileString();
    return 0;
}

int ASN1CTime::setField(ASN1SINT* field, int value, bool valid) {
    if (!valid) return fail(kBadTime);
    ensureParsed();
    *field = (ASN1SINT)value;
    compileString();
    return 0;
}

// The date checks read the fields as they stand, before the text is parsed.
int ASN1CTime::setYear(int y) { return setField(&year, y, y >= 0 && y <= SHRT_MAX && checkDate(day, month, y)); }

int ASN1CTime::setMonth(int m) { return setField(&month, m, m >= 1 && m <= 12 && checkDate(day, m, year)); }

int ASN1CTime::setDay(int d) { return setField(&day, d, d >= 1 && d <= 31 && checkDate(d, month, year)); }

int ASN1CTime::setHour(int h) { return setField(&hour, h, h >= 0 && h <= 23); }

int ASN1CTime::setMinute(int m) { return setField(&minute, m, m >= 0 && m <= 59); }

int ASN1CTime::setSecond(int s) { return setField(&second, s, s >= 0 && s <= 59); }

int ASN1CTime::setFraction(int f) {
    ensureParsed();
    fraction = f;
    compileString();
    return 0;
}

int ASN1CTime::setDiffHour(int dh) { return setField(&diffHour, dh, dh >= -12 && dh <= 12); }

int ASN1CTime::setDiff(int dh, int dm) {
    if (dh < -12 || dh > 12 || dm < -59 || dm > 59) return fail(kBadTime);
    ensureParsed();
    diffHour = (ASN1SINT)dh;
    // The minutes follow the sign of the hours; with zero hours they stand as given.
    if (dh < 0)
        diffMinute = (ASN1SINT)-iabs(dm);
    else if (dh > 0)
        diffMinute = (ASN1SINT)iabs(dm);
    else
        diffMinute = (ASN1SINT)dm;
    compileString();
    return 0;
}

int ASN1CTime::setDiff(int inMinutes) {
    if (inMinutes < -720 || inMinutes > 720) return fail(kBadTime);
    ensureParsed();
    diffHour = (ASN1SINT)(inMinutes / 60);
    diffMinute = (ASN1SINT)(inMinutes % 60);
    compileString();
    return 0;
}

void ASN1CTime::clear() {
    setUnset();
    utc = derRules;
    int cap = 0;
    char* out = textStorage(cap);
    out[0] = '\0';
    parsed = 1;
}

int ASN1CTime::equals(ASN1CTime& other) {
    ensureParsed();
    other.ensureParsed();
    long d1 = getDaysNum(), d2 = other.getDaysNum();
    if (d1 != d2) return (int)(d1 - d2);
    long long diff = getMillisNum() - other.getMillisNum();
    if (diff > INT_MAX) return INT_MAX;
    if (diff < INT_MIN) return INT_MIN;
    return (int)diff;
}

bool ASN1CTime::operator==(ASN1CTime& other) { return equals(other) == 0; }
bool ASN1CTime::operator!=(ASN1CTime& other) { return equals(other) != 0; }
bool ASN1CTime::operator>(ASN1CTime& other) { return equals(other) > 0; }
bool ASN1CTime::operator<(ASN1CTime& other) { return equals(other) < 0; }
bool ASN1CTime::operator>=(ASN1CTime& other) { return equals(other) >= 0; }
bool ASN1CTime::operator<=(ASN1CTime& other) { return equals(other) <= 0; }

bool ASN1CTime::checkDate(int d, int m, int y) {
    if (d < 1 || m < 1) return true;
    if (m > 12) return false;
    int limit = daysInMonth[m] + ((m == 2 && (y < 0 || isLeap(y))) ? 1 : 0);
    return d <= limit;
}

const char* const* ASN1CTime::getTimeStringPtr() {
    compileString();
    return timeStr;
}

int ASN1CTime::getTimeStringLen() {
    compileString();
    const char* s = currentText();
    return s ? (int)strlen(s) : 0;
}

char* ASN1CTime::getTimeString(char* buf, int bufSize) {
    compileString();
    const char* s = currentText();
    if (!s) s = "";
    size_t n = strlen(s);
    if (!buf || bufSize <= 0 || n >= (size_t)bufSize) return 0;
    memcpy(buf, s, n + 1);
    return buf;
}

long ASN1CTime::getDaysNum() { return (long)dayNumber(year, month, day); }

long long ASN1CTime::getMillisNum() {
    long long ms = ((long long)second + minute * 60LL + hour * 3600LL) * 1000 + fraction * 100LL;
    if (diffHour + diffMinute != 0) ms -= (diffHour * 60LL + diffMinute) * 60000;
    return ms;
}

void ASN1CTime::addMilliseconds(long long msecs, int& y, int& mo, int& d, int& h, int& mi,
                                int& s, int& f) {
    long long total = msecs + (long long)f * 100 + ((long long)h * 3600 + mi * 60LL + s) * 1000;
    long long days = floorDiv(total, 86400000LL);
    long long rest = total - days * 86400000LL;
    addDays((long)days, y, mo, d);
    h = (int)(rest / 3600000);
    rest %= 3600000;
    mi = (int)(rest / 60000);
    rest %= 60000;
    s = (int)(rest / 1000);
    f = (int)((rest % 1000) / 100);
}

void ASN1CTime::addDays(long days, int& y, int& mo, int& d) {
    long long n = dayNumber(y, mo, d) + days - 1;  // days since 1 January of year 1
    long long cycles400 = floorDiv(n, 146097);
    n -= cycles400 * 146097;
    long long c100 = n / 36524;
    if (c100 == 4) c100 = 3;  // the last day of a 400-year cycle
    n -= c100 * 36524;
    long long c4 = n / 1461;
    n -= c4 * 1461;
    long long c1 = n / 365;
    if (c1 == 4) c1 = 3;  // the leap day closing a 4-year cycle
    n -= c1 * 365;
    long long yr = cycles400 * 400 + c100 * 100 + c4 * 4 + c1 + 1;
    bool leap = isLeap((long)yr);
    int doy = (int)n;  // day of the year, from 0
    int v = doy;
    if (doy >= 59 + (leap ? 1 : 0)) v += leap ? 1 : 2;
    int month = (v * 12 + 6) / 367 + 1;
    int dd = doy - daysAfterMonth[month - 1] + 1;
    if (month > 2 && leap) --dd;
    y = (int)yr;
    mo = month;
    d = dd;
}

ASN1CTime& ASN1CTime::operator=(const ASN1CTime& o) {
    if (this == &o) return *this;
    year = o.year;
    month = o.month;
    day = o.day;
    hour = o.hour;
    minute = o.minute;
    second = o.second;
    diffHour = o.diffHour;
    diffMinute = o.diffMinute;
    fraction = o.fraction;
    utc = o.utc;
    parsed = o.parsed;
    if (parsed) {
        compileString();
    } else {
        int cap = 0;
        char* out = textStorage(cap);
        const char* src = o.currentText();
        if (src != out) storeText(out, cap, src ? src : "");
    }
    return *this;
}

// ---- ASN1CGeneralizedTime ------------------------------------------------------------------

ASN1CGeneralizedTime::ASN1CGeneralizedTime(ASN1MessageBufferIF& msgBuf, char*& buf, int bufSize,
                                           unsigned char useDerRules)
    : ASN1CTime(msgBuf, buf, bufSize, useDerRules) {}
ASN1CGeneralizedTime::ASN1CGeneralizedTime(ASN1MessageBufferIF& msgBuf, const char*& buf,
                                           unsigned char useDerRules)
    : ASN1CTime(msgBuf, buf, useDerRules) {}
ASN1CGeneralizedTime::ASN1CGeneralizedTime(ASN1Context& ctxt, char*& buf, int bufSize,
                                           unsigned char useDerRules)
    : ASN1CTime(ctxt, buf, bufSize, useDerRules) {}
ASN1CGeneralizedTime::ASN1CGeneralizedTime(ASN1Context& ctxt, const char*& buf,
                                           unsigned char useDerRules)
    : ASN1CTime(ctxt, buf, useDerRules) {}
ASN1CGeneralizedTime::ASN1CGeneralizedTime(char*& buf, int bufSize, unsigned char useDerRules)
    : ASN1CTime(buf, bufSize, useDerRules) {}
ASN1CGeneralizedTime::ASN1CGeneralizedTime(const char*& buf, unsigned char useDerRules)
    : ASN1CTime(buf, useDerRules) {}
ASN1CGeneralizedTime::~ASN1CGeneralizedTime() {}

int ASN1CGeneralizedTime::parseString(const char* string) {
    utc = 0;
    Text t(string);
    GtScan g;
    int st = t.len < 8 ? kNoItems : scanGeneralizedDateTime(t, g);
    if (st == kNoItems) {
        // Not a time at all: nothing is set and nothing is reported.
        setUnset();
        parsed = 1;
        if (string && string != currentText()) compileString();
        return 0;
    }
    if (st != 0) return fail(kBadTime);

    int frac = 0;
    size_t pos = g.pos;
    char c = t.at(pos);
    if (c == '.' || c == ',') {
        if ((c == ',' && derRules) || g.parts < 3) return fail(kBadTime);
        int v = 0;
        if (scanInt(t, pos + 1, 0, &v)) frac = v;
        pos += 2;  // one fraction digit is expected
        c = t.at(pos);
    }

    int dh = 0, dm = 0;
    ASN1UINT8 isUtc = 0;
    if (c == 'Z') {
        if (t.at(pos + 1) != '\0') return fail(kBadTime);
        isUtc = 1;
    } else if (derRules) {
        return fail(kBadTime);
    } else if (c == '+' || c == '-') {
        if (!t.digit(pos + 1) || !scanInt(t, pos + 1, 2, &dh) || dh >= 13) return fail(kBadTime);
        if (t.digit(pos + 3)) {
            scanInt(t, pos + 3, 2, &dm);
            if (dm >= 60) return fail(kBadTime);
        }
        if (c == '-') {
            dh = -dh;
            dm = -dm;
        }
    }

    year = (ASN1SINT)g.year;
    month = (ASN1SINT)g.month;
    day = (ASN1SINT)g.day;
    hour = (ASN1SINT)g.hour;
    minute = (ASN1SINT)g.minute;
    second = (ASN1SINT)g.second;
    fraction = frac;
    diffHour = (ASN1SINT)dh;
    diffMinute = (ASN1SINT)dm;
    utc = isUtc;
    parsed = 1;
    if (string != currentText()) compileString();
    return 0;
}

int ASN1CGeneralizedTime::compileString() {
    if (year < 0 || month < 1 || day < 1 || hour < 0) return fail(kBadTime);
    int cap = 0;
    char* out = textStorage(cap);

    int y = year, mo = month, d = day, h = hour, mi = minute, s = second, f = fraction;
    if ((derRules || utc) && (diffHour != 0 || diffMinute != 0))
        addMilliseconds(-(diffHour * 60LL + diffMinute) * 60000, y, mo, d, h, mi, s, f);

    char buf[80];
    int n = snprintf(buf, sizeof buf, "%.4d%.2d%.2d%.2d", y, mo, d, h);
    bool withSecond = false;
    if (derRules || !(mi < 1 && s < 1 && f < 1)) {
        if (!derRules && s < 1 && f < 1) {
            n += snprintf(buf + n, sizeof buf - (size_t)n, "%.2d", mi);
        } else {
            n += snprintf(buf + n, sizeof buf - (size_t)n, "%.2d%.2d", mi, s);
            withSecond = true;
        }
    }
    if (withSecond && f > 0) n += snprintf(buf + n, sizeof buf - (size_t)n, ".%d", f);
    if (derRules || utc) {
        n += snprintf(buf + n, sizeof buf - (size_t)n, "Z");
    } else if (diffHour != 0 || diffMinute != 0) {
        n += snprintf(buf + n, sizeof buf - (size_t)n, "%c%.2d", diffHour > 0 ? '+' : '-',
                      iabs(diffHour));
        if (diffMinute != 0) n += snprintf(buf + n, sizeof buf - (size_t)n, "%.2d", iabs(diffMinute));
    }
    storeText(out, cap, buf);
    return 0;
}

int ASN1CGeneralizedTime::setTime(long timeValue, unsigned char diffTime) {
    time_t t = (time_t)timeValue;
    struct tm lt;
    if (!localtime_r(&t, &lt) || lt.tm_year + 1900 < 0 || lt.tm_year + 1900 > SHRT_MAX)
        return fail(kBadTime);
    if (diffTime || derRules) {
        struct tm gt;
        if (!gmtime_r(&t, &gt)) return fail(kBadTime);
        struct tm lcopy = lt;
        gt.tm_isdst = lt.tm_isdst;
        long diff = (long)(mktime(&lcopy) - mktime(&gt));
        diffHour = (ASN1SINT)(diff / 3600);
        diffMinute = (ASN1SINT)(diff % 60);
    } else {
        diffHour = diffMinute = 0;
        utc = 0;
    }
    year = (ASN1SINT)(lt.tm_year + 1900);
    month = (ASN1SINT)(lt.tm_mon + 1);
    day = (ASN1SINT)lt.tm_mday;
    hour = (ASN1SINT)lt.tm_hour;
    minute = (ASN1SINT)lt.tm_min;
    second = (ASN1SINT)lt.tm_sec;
    fraction = 0;
    parsed = 1;
    compileString();
    return 0;
}

int ASN1CGeneralizedTime::getCentury() {
    int y = getYear();
    return y < 0 ? y : y / 100;
}

int ASN1CGeneralizedTime::setCentury(int century) {
    if (century < 0 || century > 99) return fail(kBadTime);
    ensureParsed();
    year = (ASN1SINT)(century * 100 + (year < 0 ? 0 : year % 100));
    compileString();
    return 0;
}

// ---- ASN1CUTCTime -----------------------------------------------------------------------------

void ASN1CUTCTime::utcInit() {
    hour = minute = -3;
    utc = 1;
}

ASN1CUTCTime::ASN1CUTCTime(ASN1MessageBufferIF& msgBuf, char*& buf, int bufSize,
                           unsigned char useDerRules)
    : ASN1CTime(msgBuf, buf, bufSize, useDerRules) {
    utcInit();
}
ASN1CUTCTime::ASN1CUTCTime(ASN1MessageBufferIF& msgBuf, const char*& buf,
                           unsigned char useDerRules)
    : ASN1CTime(msgBuf, buf, useDerRules) {
    utcInit();
}
ASN1CUTCTime::ASN1CUTCTime(ASN1Context& ctxt, char*& buf, int bufSize, unsigned char useDerRules)
    : ASN1CTime(ctxt, buf, bufSize, useDerRules) {
    utcInit();
}
ASN1CUTCTime::ASN1CUTCTime(ASN1Context& ctxt, const char*& buf, unsigned char useDerRules)
    : ASN1CTime(ctxt, buf, useDerRules) {
    utcInit();
}
ASN1CUTCTime::ASN1CUTCTime(char*& buf, int bufSize, unsigned char useDerRules)
    : ASN1CTime(buf, bufSize, useDerRules) {
    utcInit();
}
ASN1CUTCTime::ASN1CUTCTime(const char*& buf, unsigned char useDerRules)
    : ASN1CTime(buf, useDerRules) {
    utcInit();
}
ASN1CUTCTime::~ASN1CUTCTime() {}

int ASN1CUTCTime::getFraction() { return 0; }

int ASN1CUTCTime::setFraction(int) {
    fraction = 0;
    return fail(RT_E_NOT_SUPPORTED);
}

int ASN1CUTCTime::setUTC(unsigned char flag) {
    if (flag || diffHour + diffMinute != 0) return ASN1CTime::setUTC(flag);
    return 0;
}

int ASN1CUTCTime::setYear(int y) {
    if (y < 0) return fail(kBadTime);
    ensureParsed();
    // The full year first, so that the day check sees the right leap rule; the two
    // digits are what stays, and compileString writes the year modulo 100 anyway.
    if (y < 100) ASN1CTime::setYear(y < 50 ? 2000 + y : 1900 + y);
    return ASN1CTime::setYear(y);
}

void ASN1CUTCTime::clear() {
    ASN1CTime::clear();
    hour = minute = -3;
    utc = 1;
}

int ASN1CUTCTime::parseString(const char* string) {
    fraction = 0;
    Text t(string);
    UtcScan u;
    int st = (!string || t.len < 8) ? kNoItems : scanUtcDateTime(t, u);
    if (st == kNoItems) {
        setUnset();
        hour = minute = -3;
        parsed = 1;
        if (string && string != currentText()) compileString();
        return 0;
    }
    if (st != 0) return fail(kBadTime);

    int dh = 0, dm = 0;
    ASN1UINT8 isUtc = 0;
    char c = t.at(u.pos);
    if (c == 'Z') {
        if (t.at(u.pos + 1) != '\0') return fail(kBadTime);
        isUtc = 1;
    } else if (derRules) {
        return fail(kBadTime);
    } else if (c == '+' || c == '-') {
        if (scanUtcZone(t, u.pos, dh, dm) != 0) return fail(kBadTime);
    } else {
        return fail(kBadTime);
    }

    year = (ASN1SINT)u.year;
    month = (ASN1SINT)u.month;
    day = (ASN1SINT)u.day;
    hour = (ASN1SINT)u.hour;
    minute = (ASN1SINT)u.minute;
    second = (ASN1SINT)u.second;
    diffHour = (ASN1SINT)dh;
    diffMinute = (ASN1SINT)dm;
    utc = isUtc;
    parsed = 1;
    if (string != currentText()) compileString();
    return 0;
}

int ASN1CUTCTime::compileString() {
    if (year < 0 || month < 1 || day < 1 || hour < 0 || minute < 0) return fail(kBadTime);
    // UTCTime has no local form.  Refused before the storage is touched, so that the
    // caller's text stays as it was.
    if (!derRules && !utc && diffHour == 0 && diffMinute == 0) return fail(kBadTime);
    int cap = 0;
    char* out = textStorage(cap);

    int y = year, mo = month, d = day, h = hour, mi = minute, s = second, f = fraction;
    if ((derRules || utc) && (diffHour != 0 || diffMinute != 0))
        addMilliseconds(-(diffHour * 60LL + diffMinute) * 60000, y, mo, d, h, mi, s, f);

    char buf[64];
    int n = snprintf(buf, sizeof buf, "%.2d%.2d%.2d%.2d%.2d%.2d", y % 100, mo, d, h, mi, s);
    if (derRules || utc) {
        snprintf(buf + n, sizeof buf - (size_t)n, "Z");
    } else {
        snprintf(buf + n, sizeof buf - (size_t)n, "%c%.2d%.2d", diffHour > 0 ? '+' : '-',
                 iabs(diffHour), iabs(diffMinute));
    }
    storeText(out, cap, buf);
    return 0;
}

int ASN1CUTCTime::setTime(long timeValue, unsigned char diffTime) {
    time_t t = (time_t)timeValue;
    struct tm lt;
    if (!localtime_r(&t, &lt) || lt.tm_year + 1900 < 0 || lt.tm_year + 1900 > SHRT_MAX)
        return fail(kBadTime);
    if (diffTime) {
        struct tm gt;
        if (!gmtime_r(&t, &gt)) return fail(kBadTime);
        struct tm lcopy = lt;
        gt.tm_isdst = lt.tm_isdst;
        long diff = (long)(mktime(&lcopy) - mktime(&gt));
        diffHour = (ASN1SINT)(diff / 3600);
        diffMinute = (ASN1SINT)(diff % 60);
    } else {
        diffHour = diffMinute = 0;
        utc = 0;
    }
    year = (ASN1SINT)(lt.tm_year + 1900);
    month = (ASN1SINT)(lt.tm_mon + 1);
    day = (ASN1SINT)lt.tm_mday;
    hour = (ASN1SINT)lt.tm_hour;
    minute = (ASN1SINT)lt.tm_min;
    second = (ASN1SINT)lt.tm_sec;
    fraction = 0;
    parsed = 1;
    compileString();
    return 0;
}
