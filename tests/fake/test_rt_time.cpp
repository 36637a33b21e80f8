// GeneralizedTime and UTCTime: the C parsers and writer, and the time control classes.
#include "asn1rt/asn1time.h"
#include "rt_alloc_counter.h"

#include <cstdio>
#include <ctime>

using rttest::Ints;
using std::make_tuple;
using Strs = std::vector<std::string>;  // braced: the calls run left to right

namespace {

struct Ctxt : ASN1CTXT {  // one runtime context for the C-layer tests
    Ctxt() { EXPECT_EQ(0, rtInitContext(this, nullptr)); }
    ~Ctxt() { rtFreeContext(this); }
};

struct UtcZone : ::testing::Test {
    void SetUp() override { setenv("TZ", "UTC", 1), tzset(); }
};

// The fields as "2024-02-29 12:00:00 +01+30 L .25" (Z: UTC flag, L: local; a fraction only when set), and back.
std::string show(const RtTimeFields& f)
{
    char out[96];
    snprintf(out, sizeof out, "%04d-%02d-%02d %02d:%02d:%02d %+03d%+03d %c%s%s", f.year, f.month, f.day, f.hour, f.minute,
             f.second, f.diffHour, f.diffMin, f.utc ? 'Z' : 'L', *f.fraction ? " ." : "", f.fraction);
    return out;
}
RtTimeFields fields(const char* s)
{
    RtTimeFields f{};
    char zone = 'L';
    sscanf(s, "%hd-%hd-%hd %hd:%hd:%hd %hd%hd %c .%20s", &f.year, &f.month, &f.day, &f.hour, &f.minute, &f.second,
           &f.diffHour, &f.diffMin, &zone, f.fraction);
    return f.utc = zone == 'Z', f;
}

// A parse as text: the fields or the status ("-31"), noting an error block that missed it or a field stored anyway.
std::string parse(int (*parser)(ASN1CTXT*, const char*, RtTimeFields*), const char* text)
{
    Ctxt c;
    RtTimeFields f;
    memset(&f, 0x55, sizeof f);
    const int st = parser(&c, text, &f);
    if (st == 0)
        return show(f) + (c.errInfo.status != 0 ? " (block set)" : "");
    return std::to_string(st) + (c.errInfo.status != st ? " (not in the block)" : "") +
           ((unsigned short)f.year != 0x5555 ? " (stored)" : "");
}

// A setter's result and the object's text after it: "0 2024022912Z".
std::string set(int result, const char* const& text) { return std::to_string(result) + " " + text; }

// A time object over a text variable of its own: GT t("2024..."); t(t->setYear(2025)) gives "0 2025...".
template <class T>
struct Over {
    const char* text;
    T t;
    explicit Over(const char* s, int der = 0) : text(s), t(text, static_cast<unsigned char>(der)) {}
    T* operator->() { return &t; }
    std::string operator()(int result) const { return set(result, text); }
};
using GT = Over<ASN1CGeneralizedTime>;
using UT = Over<ASN1CUTCTime>;

TEST_F(UtcZone, ParseAndMakeTables)
{
    const char* const rows[][2] = {
        {"20240229120000Z", "2024-02-29 12:00:00 +00+00 Z"}, {"20000229120000Z", "2000-02-29 12:00:00 +00+00 Z"},
        {"20240101120000.000Z", "2024-01-01 12:00:00 +00+00 Z"},  // leading zeros are not kept
        {"20240101120000.005Z", "2024-01-01 12:00:00 +00+00 Z .5"},
        {"20240101120000.1050Z", "2024-01-01 12:00:00 +00+00 Z .1050"},
        {"20240101120000,25+0130", "2024-01-01 12:00:00 +01+30 L .25"}, {"20240101120000+12", "2024-01-01 12:00:00 +12+00 L"},
        {"202401011230-0545", "2024-01-01 12:30:00 -05-45 L"}, {"2024010112", "2024-01-01 12:00:00 +00+00 L"},
        {"2024010112 local", "2024-01-01 12:00:00 +00+00 L"}, {"99991231235959Z", "9999-12-31 23:59:59 +00+00 Z"},
        // 22 digits after two leading zeros: 20 are kept, the rest reads as a local zone.
        {"20240101120000.001234567890123456789012Z", "2024-01-01 12:00:00 +00+00 L .12345678901234567890"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(parse(rtParseGeneralizedTime, row[0]), row[1]) << row[0];
    for (const char* text : {"20230229120000Z", "19000229120000Z", "2024010112.5Z", "202401011230.5Z", "20240101120000.Z",
                             "20240101120000+13", "20240101120000+1260", "20240101120000+x", "20240101120000Zx",
                             "20241301120000Z", "20240001120000Z", "20240431120000Z", "20240101240000Z", "20240101126000Z",
                             "20240101120060Z", "20240101", "2024", ""})
        EXPECT_EQ(parse(rtParseGeneralizedTime, text), "-31") << text;
    // UTCTime, with the 2049/2050 century rule.
    const char* const utcRows[][2] = {
        {"240101120000Z", "2024-01-01 12:00:00 +00+00 Z"}, {"500101120000Z", "1950-01-01 12:00:00 +00+00 Z"},
        {"491231235959Z", "2049-12-31 23:59:59 +00+00 Z"}, {"000229000000Z", "2000-02-29 00:00:00 +00+00 Z"},
        {"2401011200Z", "2024-01-01 12:00:00 +00+00 Z"}, {"240101120000+0130", "2024-01-01 12:00:00 +01+30 L"},
        {"2401011200-0500", "2024-01-01 12:00:00 -05+00 L"}, {"240229120000Z", "2024-02-29 12:00:00 +00+00 Z"},
    };
    for (const auto& row : utcRows)
        EXPECT_EQ(parse(rtParseUTCTime, row[0]), row[1]) << row[0];
    for (const char* text : {"240101120000", "2401011200-05", "2401011200+1300", "2401011200+0160", "230229120000Z",
                             "240101120000Zx", "2401011260Z", "2401012400Z", "240101120060Z", "24010112Z", "240101120000.5Z",
                             "2401"})
        EXPECT_EQ(parse(rtParseUTCTime, text), "-31") << text;
    Ctxt ctxt;
    RtTimeFields f;
    const char* const makeRows[][2] = {  // the writer; null: refused with -31
        {"2024-01-01 12:00:00 +00+00 Z", "20240101120000Z"}, {"2024-01-01 12:00:00 +00+00 Z .5", "20240101120000.5Z"},
        {"2024-01-01 12:00:00 +00+00 L", "20240101120000"}, {"2024-01-01 12:00:00 -05-30 L", "20240101120000-0530"},
        {"2024-01-01 12:00:00 +00-30 L", "20240101120000-0030"}, {"2024-01-01 12:00:00 +01+30 L", "20240101120000+0130"},
        {"2024-01-01 12:00:00 +12+00 Z", "20240101120000Z"}, {"0005-06-07 08:09:10 +00+00 Z", "00050607080910Z"},
        {"2024-02-29 00:00:00 +00+00 Z", "20240229000000Z"}, {"2023-02-29 00:00:00 +00+00 Z"}, {"10000-01-01 00:00:00 +00+00 Z"},
        {"-001-01-01 00:00:00 +00+00 Z"}, {"2024-13-01 00:00:00 +00+00 Z"}, {"2024-04-31 00:00:00 +00+00 Z"},
        {"2024-01-01 24:00:00 +00+00 Z"}, {"2024-01-01 00:60:00 +00+00 Z"}, {"2024-01-01 00:00:60 +00+00 Z"},
        {"2024-01-01 00:00:00 +13+00 L"}, {"2024-01-01 00:00:00 -13+00 L"}, {"2024-01-01 00:00:00 +00+60 L"},
    };
    for (const auto& row : makeRows) {
        Ctxt c;
        char buf[64] = "untouched", *p = buf;
        f = fields(row[0]);
        const int st = rtMakeGeneralizedTime(&c, &f, &p, sizeof buf);
        EXPECT_EQ(std::to_string(st) + " " + buf + " " + std::to_string(c.errInfo.status),
                  row[1] ? std::string("0 ") + row[1] + " 0" : "-31 untouched -31") << row[0];
    }
    f = fields("2024-01-01 12:00:00 +00+00 Z");  // 15 characters need 16 octets; capacity 0: a copy on the context's heap
    char out[16], *p = out, *heap = nullptr;
    EXPECT_EQ((Ints{rtMakeGeneralizedTime(&ctxt, &f, &p, 15), ctxt.errInfo.status, rtMakeGeneralizedTime(&ctxt, &f, &p, 16),
                    rtMakeGeneralizedTime(&ctxt, &f, &heap, 0)}), (Ints{-17, -17, 0, 0}));
    EXPECT_EQ(make_tuple(std::string(out), std::string(heap)), make_tuple("20240101120000Z", "20240101120000Z"));
    // Parse, then write, across boundaries: GeneralizedTime gives its text back, UTCTime its century (49: 2049, 50: 1950).
    const char* const tripRows[][2] = {
        {"20380119031408Z", nullptr}, {"20380119031409Z", nullptr}, {"20491231235959Z", nullptr}, {"20500101000000Z", nullptr},
        {"21060207062816Z", nullptr}, {"20240101120000.123456-1200", nullptr}, {"491231235959Z", "20491231235959Z"},
        {"500101000000Z", "19500101000000Z"}, {"380119031408Z", "20380119031408Z"}, {"000101000000Z", "20000101000000Z"},
    };
    for (const auto& row : tripRows) {
        Ctxt c;
        char* text = nullptr;
        auto parser = row[1] ? rtParseUTCTime : rtParseGeneralizedTime;
        EXPECT_EQ((Ints{parser(&c, row[0], &f), rtMakeGeneralizedTime(&c, &f, &text, 0)}), (Ints{0, 0})) << row[0];
        EXPECT_STREQ(row[1] ? row[1] : row[0], text);
    }
}

TEST_F(UtcZone, GeneralizedAndUtcTimeClasses)
{
    GT t("20240229123456Z"), d("20240101120000Z", 1), z("20240101120000+0300"), l("20240101120000"), lt("20240229120000Z");
    EXPECT_EQ(make_tuple(t->getYear(), t->getCentury(), t->getMonth(), t->getDay(), t->getHour(), t->getMinute(), t->getSecond(),
                         t->getUTC(), t->getDiff(), t->getStatus(), std::string(t.text)),
              make_tuple(2024, 20, 2, 29, 12, 34, 56, 1, 0, 0, "20240229123456Z")) << "the caller's text stays";
    // Without DER rules only what is set is written: the hour alone, the minute, the fraction. With DER rules every part
    // and "Z", setUTC does nothing, and a difference moves the written time to UTC, across the year boundary too.
    EXPECT_EQ((Strs{t(t->setMinute(0) + t->setSecond(0)), t(t->setMinute(30)), t(t->setFraction(5)), t(t->setUTC(0)),
                    d(d->setHour(12) + d->setUTC(0) + d->getUTC()), d(d->setDiff(11, 0)), d(d->setHour(1) + d->setDiff(3, 0))}),
              (Strs{"0 2024022912Z", "0 202402291230Z", "0 20240229123000.5Z", "0 20240229123000.5", "1 20240101120000Z",
                    "0 20240101010000Z", "0 20231231220000Z"}));
    EXPECT_EQ((Ints{z->getDiff(), z->setUTC(1), z->getHour()}), (Ints{180, 0, 12}));  // the fields themselves stay local
    EXPECT_STREQ(z.text, "2024010109Z");
    // Setter ranges; minutes take the sign of the hours.
    EXPECT_EQ((Ints{l->setDiff(721), l->getStatus(), l->setDiff(13, 0), l->setDiff(1, 60), l->setDiffHour(-13),
                    l->setDiffHour(-12), l->setDiff(-90), l->getDiffHour(), l->getDiffMinute(), l->setDiff(-2, 15),
                    l->getDiffMinute()}),
              (Ints{-31, -31, -31, -31, -31, 0, 0, -1, -30, 0, -15}));
    EXPECT_EQ((Strs{l(l->setDiff(-90)), l(l->setDiff(0, -30)), l(l->setDiff(5, 0))}),
              (Strs{"0 2024010112-0130", "0 2024010112-0030", "0 2024010112+05"}));
    // Once parsed, day and month are set: 29 February 2023 would not exist, 30 February neither.
    EXPECT_EQ((Ints{lt->getYear(), lt->setYear(2023), lt->setYear(2028), lt->setDay(30), lt->setMonth(4), lt->setDay(31),
                    lt->setDay(30)}), (Ints{2024, -31, 0, -31, 0, -31, 0}));
    EXPECT_EQ(-31 * 9, lt->setMonth(2) + lt->setDay(0) + lt->setMonth(13) + lt->setHour(24) + lt->setMinute(60) +
                           lt->setSecond(-1) + lt->setYear(-1) + lt->setCentury(100) + lt->setHour(99));
    EXPECT_EQ(lt(lt->setCentury(19)), "0 1928043012Z");
    // Short or bad texts: under eight characters nothing is set, and the result is 0. With DER rules the flag is read
    // without parsing, the month is refused through the context; DER refuses the comma and any zone but "Z".
    GT t4("2024"), bad("20241301120000Z", 1), derComma("20240101120000,5Z", 1), berComma("20240101120000,5Z");
    GT derZone("20240101120000+0100", 1);
    UT u("2401");
    EXPECT_EQ((Ints{t4->getYear(), t4->getHour(), u->getYear(), u->getMinute(), t4->getStatus() + u->getStatus(), bad->getUTC(),
                    bad->getStatus(), bad->getMonth(), bad->getStatus(), derComma->getYear(), berComma->getFraction(),
                    derZone->getYear()}), (Ints{-3, -3, -3, -3, 0, 1, 0, -31, -31, -31, 5, -31}));
    // UTCTime: two digits of a year stay as given, more are written modulo 100 (2050 reads back as 1950).
    UT utc("240101120000Z"), lu("240101120000+0100"), leapUtc("240229000000Z"), derZoneUtc("2401011200+0100", 1);
    UT derUtc("2401011200Z", 1);
    EXPECT_EQ((Ints{utc->getYear(), utc->getFraction(), utc->setFraction(3), utc->getStatus(), utc->setYear(24), utc->getYear()}),
              (Ints{2024, 0, -99, -99, 0, 24}));
    EXPECT_EQ((Strs{utc(utc->setYear(2050)), utc(utc->setMinute(5))}), (Strs{"0 500101120000Z", "0 500101120500Z"}));
    // setUTC(0) and the setter of a difference succeed, but the rebuild of a local UTCTime fails and leaves the text.
    EXPECT_EQ((Strs{std::to_string(lu->getDiff()), lu(lu->setUTC(0)), lu(lu->setDiff(0))}),
              (Strs{"60", "0 240101120000+0100", "0 240101120000+0100"}));
    // No flag and no difference: setUTC does nothing; UTCTime has no local form.
    EXPECT_EQ((Ints{lu->getStatus(), lu->setUTC(0), lu->compileString(), lu->setYear(-1)}), (Ints{-31, 0, -31, -31}));
    EXPECT_EQ(lu(lu->setUTC(1)), "0 240101120000Z");
    // DER: no zones, seconds always written.
    EXPECT_EQ((Ints{leapUtc->setYear(23), leapUtc->setYear(28), derZoneUtc->getYear(), derUtc->getSecond()}),
              (Ints{-31, 0, -31, 0}));
    EXPECT_EQ(derUtc(derUtc->setHour(13)), "0 240101130000Z");
}

TEST_F(UtcZone, TextsCopiesComparisonCalendarAndTimeT)
{
    ASN1Context* ctxt = new ASN1Context;  // a context given takes a reference and the statuses; clear() empties the text
    ctxt->_ref();
    {
        const char *t2 = "20240101120000Z", *u = "240101120000Z";
        ASN1CGeneralizedTime t(*ctxt, t2);
        ASN1CUTCTime ut(u);
        EXPECT_EQ((Ints{int(ctxt->getRefCount()), t.setHour(99), ctxt->getStatus(), (t.clear(), ut.clear(), t.getYear()), *t2,
                        ut.getMinute(), ut.getUTC()}), (Ints{2, -31, -31, -3, 0, -3, 1}));
    }
    EXPECT_EQ(1u, ctxt->getRefCount());
    ctxt->_unref();
    const char *orig = "20240101120000Z", *other = "19991231235959Z";
    ASN1CGeneralizedTime a(orig, 1), o(other);
    char big[40] = "20240101120000Z", small[20] = "20240101120000Z", out[16];
    char *p = big, *q = small;
    ASN1CGeneralizedTime b(p, (int)sizeof big, 1), s(q, (int)sizeof small, 1);
    // Under 30 octets the object's own buffer is used.
    EXPECT_EQ((Strs{set(b.setYear(2025), p), set(s.setYear(2025), q)}), (Strs{"0 20250101120000Z", "0 20250101120000Z"}));
    EXPECT_EQ(make_tuple(p, q != small, std::string(small)), make_tuple(big, true, "20240101120000Z"));
    ASN1CGeneralizedTime c(a);  // shares the context (with a and the reference asked for), copies the text
    EXPECT_EQ(make_tuple(a.getContext()->getRefCount(), c.setYear(2030)), make_tuple(3u, 0));
    EXPECT_EQ(make_tuple(std::string(orig), std::string(*c.getTimeStringPtr()), c.getTimeStringLen(), c.getTimeString(out, 15),
                         c.getTimeString(out, 16)), make_tuple("20240101120000Z", "20300101120000Z", 15, nullptr, out));
    EXPECT_EQ(make_tuple(std::string(out), (a = o).getYear()), make_tuple("20300101120000Z", 1999));
    // Comparison: the same instant on two sides of midnight compares by its local day; within one day the difference counts.
    GT t12("20240101120000Z"), t12s1("20240101120001Z"), t12half("20240101120000.5Z"), t12short("202401011200Z");
    GT east("20240102003000+0100"), west("20240101233000Z"), plus("20240101120000+0100"), zulu("20240101110000Z");
    EXPECT_TRUE(t12.t < t12s1.t && t12s1.t > t12.t && t12.t <= t12half.t && t12.t != t12half.t && t12.t == t12short.t &&
                t12.t >= t12short.t && plus.t == zulu.t);
    EXPECT_EQ(make_tuple(t12->equals(t12half.t), east->equals(west.t)), make_tuple(-500, 1));
    // Calendar arithmetic.
    const struct { long days; int y, m, day, ey, em, ed; } rows[] = {
        {1, 2024, 2, 28, 2024, 2, 29}, {1, 2023, 2, 28, 2023, 3, 1}, {1, 1900, 2, 28, 1900, 3, 1}, {1, 2000, 2, 28, 2000, 2, 29},
        {-1, 2024, 1, 1, 2023, 12, 31}, {366, 2000, 1, 1, 2001, 1, 1}, {146097, 2000, 1, 1, 2400, 1, 1},
        {-730119, 2000, 1, 1, 1, 1, 1}, {0, 2024, 12, 31, 2024, 12, 31}, {1, 2024, 12, 31, 2025, 1, 1},
        {-1, 2024, 3, 1, 2024, 2, 29}, {60, 2024, 1, 1, 2024, 3, 1}, {24855, 1970, 1, 1, 2038, 1, 19},
        {1, 2399, 12, 31, 2400, 1, 1},
    };
    for (const auto& r : rows) {
        int y = r.y, m = r.m, day = r.day;
        ASN1CTime::addDays(r.days, y, m, day);
        EXPECT_EQ(make_tuple(y, m, day), make_tuple(r.ey, r.em, r.ed)) << r.days << " from " << r.y << "-" << r.m;
    }
    int y = 2024, mo = 1, day = 1, h = 0, mi = 0, sec = 0, tenths = 0;  // a negative total borrows a day
    ASN1CTime::addMilliseconds(-100, y, mo, day, h, mi, sec, tenths);
    EXPECT_EQ(make_tuple(y, mo, day, h, mi, sec, tenths), make_tuple(2023, 12, 31, 23, 59, 59, 9));
    ASN1CTime::addMilliseconds(100 + 86400000LL * 2, y, mo, day, h, mi, sec, tenths);
    EXPECT_EQ(make_tuple(y, mo, day, h, mi, sec, tenths), make_tuple(2024, 1, 3, 0, 0, 0, 0));
    auto ok = &ASN1CTime::checkDate;  // an unset day or month passes; an unset (negative) year allows the leap day
    EXPECT_EQ(make_tuple(ok(0, 2, 2023), ok(29, 0, 2023), ok(29, 2, 2024), ok(29, 2, 2023), ok(29, 2, -3), ok(30, 2, -3),
                         ok(31, 4, 2024)), make_tuple(true, true, true, false, true, false, false));
    // time_t is 64 bits on both widths, so dates past 2038 convert.
    static_assert(sizeof(time_t) == 8, "64-bit time_t on every build");
    const char *g2040 = "20400101000000Z", *u2038 = "380119031408Z", *epoch = "19700101000000Z";
    ASN1CGeneralizedTime t2040(g2040), tEpoch(epoch);
    ASN1CUTCTime t2038(u2038);
    EXPECT_EQ(make_tuple(t2040.getTime(), t2038.getTime(), tEpoch.getTime()),
              make_tuple((time_t)2208988800LL, (time_t)2147483648LL, (time_t)0));
    // setTime: local without a zone writes only the hour; the zone here is UTC, so no difference; past 2038 where long
    // holds it; the local UTCTime's setter succeeds but the text cannot be written.
    GT ge(""), gd("", 1);
    UT ud("", 1), ul("");
    const long y2040 = sizeof(long) == 8 ? (long)2208988800LL : 0L;
    EXPECT_EQ((Strs{ge(ge->setTime(86400L + 3600L, 0)), ge(ge->setTime(86400L + 3661L, 1)), gd(gd->setTime(0L, 0)),
                    gd(gd->setTime(y2040, 0)), ud(ud->setTime(0L, 0)), ul(ul->setTime(0L, 0)), std::to_string(ul->getStatus())}),
              (Strs{"0 1970010201", "0 19700102010101", "0 19700101000000Z", y2040 ? "0 20400101000000Z" : "0 19700101000000Z",
                    "0 700101000000Z", "0 ", "-31"}));
}

// The field record: eight 16-bit fields, 21 octets of fraction, the flag. ASN1CTime: ASN1CType, eight 16-bit fields,
// fraction, three flags, the text variable, its capacity, 36 octets of own text, the pointer standing in for copies.
static_assert(sizeof(RtTimeFields) == 38 && offsetof(RtTimeFields, fraction) == 16 && offsetof(RtTimeFields, utc) == 37 &&
                  sizeof(ASN1CTime) == (sizeof(void*) == 8 ? 104 : 84) && sizeof(ASN1CGeneralizedTime) == sizeof(ASN1CTime) &&
                  sizeof(ASN1CUTCTime) == sizeof(ASN1CTime), "time layouts");

}  // namespace
