// GeneralizedTime and UTCTime: the C parsers and writer over tables of texts, and the
// time control classes (lazy parsing, setters, text rebuild, calendar arithmetic).
#include "asn1rt/asn1time.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

namespace {

// Owns one runtime context for the C-layer tests.
struct Ctxt {
    ASN1CTXT c;
    Ctxt() { EXPECT_EQ(0, rtInitContext(&c, nullptr)); }
    ~Ctxt() { rtFreeContext(&c); }
    ASN1CTXT* operator&() { return &c; }
    int status() const { return c.errInfo.status; }
};

class UtcZone : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

struct ParseRow {
    const char* text;
    int status;
    int year, month, day, hour, minute, second, dh, dm;
    const char* fraction;
    int utc;
};

const ParseRow kGeneralized[] = {
    {"20240229120000Z", 0, 2024, 2, 29, 12, 0, 0, 0, 0, "", 1},
    {"20230229120000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"19000229120000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20000229120000Z", 0, 2000, 2, 29, 12, 0, 0, 0, 0, "", 1},
    {"2024010112.5Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"202401011230.5Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101120000.000Z", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "", 1},
    {"20240101120000.005Z", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "5", 1},
    {"20240101120000.1050Z", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "1050", 1},
    {"20240101120000,25+0130", 0, 2024, 1, 1, 12, 0, 0, 1, 30, "25", 0},
    {"20240101120000.Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101120000+13", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101120000+12", 0, 2024, 1, 1, 12, 0, 0, 12, 0, "", 0},
    {"20240101120000+1260", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101120000+x", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"202401011230-0545", 0, 2024, 1, 1, 12, 30, 0, -5, -45, "", 0},
    {"2024010112", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "", 0},
    {"2024010112 local", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "", 0},
    {"20240101120000Zx", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20241301120000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240001120000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240431120000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101240000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101126000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101120060Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"20240101", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"2024", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"99991231235959Z", 0, 9999, 12, 31, 23, 59, 59, 0, 0, "", 1},
};

const ParseRow kUtc[] = {
    {"240101120000Z", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "", 1},
    {"500101120000Z", 0, 1950, 1, 1, 12, 0, 0, 0, 0, "", 1},
    {"491231235959Z", 0, 2049, 12, 31, 23, 59, 59, 0, 0, "", 1},
    {"000229000000Z", 0, 2000, 2, 29, 0, 0, 0, 0, 0, "", 1},
    {"2401011200Z", 0, 2024, 1, 1, 12, 0, 0, 0, 0, "", 1},
    {"240101120000", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"240101120000+0130", 0, 2024, 1, 1, 12, 0, 0, 1, 30, "", 0},
    {"2401011200-0500", 0, 2024, 1, 1, 12, 0, 0, -5, 0, "", 0},
    {"2401011200-05", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"2401011200+1300", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"2401011200+0160", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"240229120000Z", 0, 2024, 2, 29, 12, 0, 0, 0, 0, "", 1},
    {"230229120000Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"240101120000Zx", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"2401011260Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"2401012400Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"240101120060Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"24010112Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"240101120000.5Z", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
    {"2401", -31, 0, 0, 0, 0, 0, 0, 0, 0, "", 0},
};

void checkRow(const ParseRow& row, int (*parse)(ASN1CTXT*, const char*, RtTimeFields*)) {
    SCOPED_TRACE(row.text);
    Ctxt ctxt;
    RtTimeFields f;
    memset(&f, 0x55, sizeof f);
    int st = parse(&ctxt, row.text, &f);
    ASSERT_EQ(row.status, st);
    if (st != 0) {
        EXPECT_EQ(-31, ctxt.status()) << "the refusal reaches the error block";
        EXPECT_EQ(0x5555, (unsigned short)f.year) << "nothing is stored on failure";
        return;
    }
    EXPECT_EQ(0, ctxt.status());
    EXPECT_EQ(row.year, f.year);
    EXPECT_EQ(row.month, f.month);
    EXPECT_EQ(row.day, f.day);
    EXPECT_EQ(row.hour, f.hour);
    EXPECT_EQ(row.minute, f.minute);
    EXPECT_EQ(row.second, f.second);
    EXPECT_EQ(row.dh, f.diffHour);
    EXPECT_EQ(row.dm, f.diffMin);
    EXPECT_STREQ(row.fraction, f.fraction);
    EXPECT_EQ(row.utc, f.utc);
}

TEST(RtParseGeneralizedTime, Table) {
    for (const ParseRow& row : kGeneralized) checkRow(row, rtParseGeneralizedTime);
}

TEST(RtParseUTCTime, Table) {
    for (const ParseRow& row : kUtc) checkRow(row, rtParseUTCTime);
}

TEST(RtParseGeneralizedTime, FractionKeepsTwentyDigitsThenStops) {
    Ctxt ctxt;
    RtTimeFields f;
    // 22 digits after two leading zeros: 20 are kept, the rest reads as a local zone.
    ASSERT_EQ(0, rtParseGeneralizedTime(&ctxt, "20240101120000.001234567890123456789012Z", &f));
    EXPECT_STREQ("12345678901234567890", f.fraction);
    EXPECT_EQ(0, f.utc);
}

TEST(RtParseGeneralizedTime, FirstErrorOfTheRunStays) {
    Ctxt ctxt;
    RtTimeFields f;
    EXPECT_EQ(-31, rtParseGeneralizedTime(&ctxt, "20231301000000Z", &f));
    EXPECT_EQ(-31, rtParseUTCTime(&ctxt, "x", &f));
    ctxt.c.errInfo.status = 0;
    EXPECT_EQ(0, rtParseGeneralizedTime(&ctxt, "20231201000000Z", &f));
    EXPECT_EQ(0, ctxt.status());
}

RtTimeFields fields(int y, int mo, int d, int h, int mi, int s, int dh, int dm, const char* frac,
                    int utc) {
    RtTimeFields f;
    memset(&f, 0, sizeof f);
    f.year = (ASN1SINT)y;
    f.month = (ASN1SINT)mo;
    f.day = (ASN1SINT)d;
    f.hour = (ASN1SINT)h;
    f.minute = (ASN1SINT)mi;
    f.second = (ASN1SINT)s;
    f.diffHour = (ASN1SINT)dh;
    f.diffMin = (ASN1SINT)dm;
    strncpy(f.fraction, frac, 20);
    f.utc = (ASN1UINT8)utc;
    return f;
}

TEST(RtMakeGeneralizedTime, Table) {
    struct Row {
        RtTimeFields f;
        int status;
        const char* text;
    } rows[] = {
        {fields(2024, 1, 1, 12, 0, 0, 0, 0, "", 1), 0, "20240101120000Z"},
        {fields(2024, 1, 1, 12, 0, 0, 0, 0, "5", 1), 0, "20240101120000.5Z"},
        {fields(2024, 1, 1, 12, 0, 0, 0, 0, "", 0), 0, "20240101120000"},
        {fields(2024, 1, 1, 12, 0, 0, -5, -30, "", 0), 0, "20240101120000-0530"},
        {fields(2024, 1, 1, 12, 0, 0, 0, -30, "", 0), 0, "20240101120000-0030"},
        {fields(2024, 1, 1, 12, 0, 0, 1, 30, "", 0), 0, "20240101120000+0130"},
        {fields(2024, 1, 1, 12, 0, 0, 12, 0, "", 1), 0, "20240101120000Z"},
        {fields(5, 6, 7, 8, 9, 10, 0, 0, "", 1), 0, "00050607080910Z"},
        {fields(2024, 2, 29, 0, 0, 0, 0, 0, "", 1), 0, "20240229000000Z"},
        {fields(2023, 2, 29, 0, 0, 0, 0, 0, "", 1), -31, nullptr},
        {fields(10000, 1, 1, 0, 0, 0, 0, 0, "", 1), -31, nullptr},
        {fields(-1, 1, 1, 0, 0, 0, 0, 0, "", 1), -31, nullptr},
        {fields(2024, 13, 1, 0, 0, 0, 0, 0, "", 1), -31, nullptr},
        {fields(2024, 4, 31, 0, 0, 0, 0, 0, "", 1), -31, nullptr},
        {fields(2024, 1, 1, 24, 0, 0, 0, 0, "", 1), -31, nullptr},
        {fields(2024, 1, 1, 0, 60, 0, 0, 0, "", 1), -31, nullptr},
        {fields(2024, 1, 1, 0, 0, 60, 0, 0, "", 1), -31, nullptr},
        {fields(2024, 1, 1, 0, 0, 0, 13, 0, "", 0), -31, nullptr},
        {fields(2024, 1, 1, 0, 0, 0, -13, 0, "", 0), -31, nullptr},
        {fields(2024, 1, 1, 0, 0, 0, 0, 60, "", 0), -31, nullptr},
    };
    for (const Row& row : rows) {
        Ctxt ctxt;
        char out[64] = "untouched";
        char* p = out;
        int st = rtMakeGeneralizedTime(&ctxt, &row.f, &p, sizeof out);
        ASSERT_EQ(row.status, st) << (row.text ? row.text : "refused");
        if (st == 0) {
            EXPECT_STREQ(row.text, out);
        } else {
            EXPECT_STREQ("untouched", out);
            EXPECT_EQ(-31, ctxt.status());
        }
    }
}

TEST(RtMakeGeneralizedTime, CapacityAndHeapCopy) {
    Ctxt ctxt;
    RtTimeFields f = fields(2024, 1, 1, 12, 0, 0, 0, 0, "", 1);
    char out[16];
    char* p = out;
    EXPECT_EQ(-17, rtMakeGeneralizedTime(&ctxt, &f, &p, 15)) << "15 characters need 16 octets";
    EXPECT_EQ(-17, ctxt.status());
    EXPECT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &p, 16));
    EXPECT_STREQ("20240101120000Z", out);

    char* heap = nullptr;
    EXPECT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &heap, 0));
    ASSERT_NE(nullptr, heap);
    EXPECT_STREQ("20240101120000Z", heap);  // freed with the context's heap
}

TEST(RtTimeRoundTrip, ParseThenMakeGivesTheText) {
    const char* texts[] = {"20240229120000Z",       "19500101000000Z", "20491231235959Z",
                           "20500101000000Z",       "20380119031408Z", "20380119031409Z",
                           "21060207062816Z",       "99991231235959Z", "00010101000000Z",
                           "20240101120000.5Z",     "20240101120000.123456Z",
                           "20240101120000+0130",   "20240101120000-1200",
                           "20240101120000"};
    for (const char* text : texts) {
        SCOPED_TRACE(text);
        Ctxt ctxt;
        RtTimeFields f;
        ASSERT_EQ(0, rtParseGeneralizedTime(&ctxt, text, &f));
        char* out = nullptr;
        ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &out, 0));
        EXPECT_STREQ(text, out);
    }
}

TEST(RtTimeRoundTrip, UtcTextBecomesGeneralizedWithItsCentury) {
    struct {
        const char* utc;
        const char* generalized;
    } rows[] = {
        {"491231235959Z", "20491231235959Z"},
        {"500101000000Z", "19500101000000Z"},
        {"380119031408Z", "20380119031408Z"},
        {"991231235959Z", "19991231235959Z"},
        {"000101000000Z", "20000101000000Z"},
    };
    for (const auto& row : rows) {
        Ctxt ctxt;
        RtTimeFields f;
        ASSERT_EQ(0, rtParseUTCTime(&ctxt, row.utc, &f));
        char* out = nullptr;
        ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &out, 0));
        EXPECT_STREQ(row.generalized, out);
    }
}

// ---- classes ---------------------------------------------------------------------------

TEST_F(UtcZone, GeneralizedLazyParseKeepsTheCallersText) {
    const char* text = "20240229123456Z";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(2024, t.getYear());
    EXPECT_EQ(20, t.getCentury());
    EXPECT_EQ(2, t.getMonth());
    EXPECT_EQ(29, t.getDay());
    EXPECT_EQ(12, t.getHour());
    EXPECT_EQ(34, t.getMinute());
    EXPECT_EQ(56, t.getSecond());
    EXPECT_EQ(1, t.getUTC());
    EXPECT_EQ(0, t.getDiff());
    EXPECT_STREQ("20240229123456Z", text);
    EXPECT_EQ(0, t.getStatus());
}

TEST_F(UtcZone, GeneralizedWritesOnlyTheHourWithoutDerRules) {
    const char* text = "20240101120000Z";
    ASN1CGeneralizedTime t(text);
    ASSERT_EQ(0, t.setHour(12));
    EXPECT_STREQ("2024010112Z", text);
    ASSERT_EQ(0, t.setMinute(30));
    EXPECT_STREQ("202401011230Z", text);
    ASSERT_EQ(0, t.setFraction(5));
    EXPECT_STREQ("20240101123000.5Z", text);
    ASSERT_EQ(0, t.setUTC(0));
    EXPECT_STREQ("20240101123000.5", text);
}

TEST_F(UtcZone, GeneralizedDerRulesWriteEveryPartAndZ) {
    const char* text = "20240101120000Z";
    ASN1CGeneralizedTime t(text, 1);
    ASSERT_EQ(0, t.setHour(12));
    EXPECT_STREQ("20240101120000Z", text);
    EXPECT_EQ(0, t.setUTC(0)) << "with DER rules setUTC does nothing";
    EXPECT_EQ(1, t.getUTC());
    EXPECT_STREQ("20240101120000Z", text);
}

TEST_F(UtcZone, DifferenceMovesTheWrittenTimeToUtc) {
    const char* text = "20240101120000+0300";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(180, t.getDiff());
    ASSERT_EQ(0, t.setUTC(1));
    EXPECT_STREQ("2024010109Z", text);
    EXPECT_EQ(12, t.getHour()) << "the fields themselves stay local";

    const char* der = "20240101010000Z";
    ASN1CGeneralizedTime d(der, 1);
    ASSERT_EQ(0, d.setDiff(3, 0));
    EXPECT_STREQ("20231231220000Z", der) << "crosses the year boundary";
}

TEST_F(UtcZone, DifferenceSetters) {
    const char* text = "20240101120000";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(-31, t.setDiff(721));
    EXPECT_EQ(-31, t.getStatus());
    EXPECT_EQ(0, t.setDiff(-90));
    EXPECT_EQ(-1, t.getDiffHour());
    EXPECT_EQ(-30, t.getDiffMinute());
    EXPECT_STREQ("2024010112-0130", text);
    EXPECT_EQ(0, t.setDiff(-2, 15));
    EXPECT_EQ(-15, t.getDiffMinute()) << "minutes take the sign of the hours";
    EXPECT_EQ(0, t.setDiff(0, -30));
    EXPECT_STREQ("2024010112-0030", text);
    EXPECT_EQ(0, t.setDiff(5, 0));
    EXPECT_STREQ("2024010112+05", text);
    EXPECT_EQ(-31, t.setDiff(13, 0));
    EXPECT_EQ(-31, t.setDiff(1, 60));
    EXPECT_EQ(-31, t.setDiffHour(-13));
    EXPECT_EQ(0, t.setDiffHour(-12));
    EXPECT_EQ(-12, t.getDiffHour());
}

TEST_F(UtcZone, SetterRanges) {
    const char* text = "20240229120000Z";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(2024, t.getYear());
    EXPECT_EQ(-31, t.setYear(2023)) << "29 February would not exist";
    EXPECT_EQ(0, t.setYear(2028));
    EXPECT_EQ(-31, t.setDay(30));
    EXPECT_EQ(0, t.setMonth(4));
    EXPECT_EQ(-31, t.setDay(31));
    EXPECT_EQ(0, t.setDay(30));
    EXPECT_EQ(-31, t.setMonth(2));
    EXPECT_EQ(-31, t.setDay(0));
    EXPECT_EQ(-31, t.setMonth(13));
    EXPECT_EQ(-31, t.setHour(24));
    EXPECT_EQ(-31, t.setMinute(60));
    EXPECT_EQ(-31, t.setSecond(-1));
    EXPECT_EQ(-31, t.setYear(-1));
    EXPECT_EQ(-31, t.setCentury(100));
    EXPECT_EQ(0, t.setCentury(19));
    EXPECT_EQ(1928, t.getYear());
    EXPECT_STREQ("1928043012Z", text);
}

TEST_F(UtcZone, ShortTextSetsNothing) {
    const char* text = "2024";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(-3, t.getYear());
    EXPECT_EQ(-3, t.getHour());
    EXPECT_EQ(0, t.getStatus());

    const char* text7 = "2024010";
    ASN1CGeneralizedTime t7(text7);
    EXPECT_EQ(-3, t7.getMonth());
    EXPECT_EQ(0, t7.getStatus());

    const char* u = "2401";
    ASN1CUTCTime ut(u);
    EXPECT_EQ(-3, ut.getYear());
    EXPECT_EQ(-3, ut.getMinute());
    EXPECT_EQ(0, ut.getStatus());
}

TEST_F(UtcZone, BadTextFailsEveryGetterThroughTheContext) {
    const char* text = "20241301120000Z";
    ASN1CGeneralizedTime t(text, 1);
    EXPECT_EQ(1, t.getUTC()) << "with DER rules the flag is read without parsing";
    EXPECT_EQ(0, t.getStatus());
    EXPECT_EQ(-31, t.getMonth());
    EXPECT_EQ(-31, t.getStatus());

    const char* comma = "20240101120000,5Z";
    ASN1CGeneralizedTime der(comma, 1);
    EXPECT_EQ(-31, der.getYear()) << "DER refuses the comma";
    ASN1CGeneralizedTime ber(comma);
    EXPECT_EQ(5, ber.getFraction());

    const char* zone = "20240101120000+0100";
    ASN1CGeneralizedTime derZone(zone, 1);
    EXPECT_EQ(-31, derZone.getYear()) << "DER needs Z";
}

TEST_F(UtcZone, UtcTimeClass) {
    const char* text = "240101120000Z";
    ASN1CUTCTime t(text);
    EXPECT_EQ(2024, t.getYear());
    EXPECT_EQ(0, t.getFraction());
    EXPECT_EQ(-99, t.setFraction(3));
    EXPECT_EQ(-99, t.getStatus());
    EXPECT_EQ(0, t.setYear(24));
    EXPECT_EQ(24, t.getYear()) << "two digits stay as given";
    EXPECT_STREQ("240101120000Z", text);
    EXPECT_EQ(0, t.setYear(2050));
    EXPECT_STREQ("500101120000Z", text) << "written modulo 100: reads back as 1950";
    EXPECT_EQ(0, t.setMinute(5));
    EXPECT_STREQ("500101120500Z", text);
}

TEST_F(UtcZone, UtcTimeLocalFormIsRefused) {
    const char* text = "240101120000+0100";
    ASN1CUTCTime t(text);
    EXPECT_EQ(60, t.getDiff());
    EXPECT_EQ(0, t.setUTC(0));
    EXPECT_STREQ("240101120000+0100", text);
    EXPECT_EQ(0, t.setDiff(0)) << "the setter itself succeeds";
    EXPECT_EQ(-31, t.getStatus()) << "but the rebuild of a local UTCTime fails";
    EXPECT_STREQ("240101120000+0100", text) << "and leaves the text as it was";
    EXPECT_EQ(0, t.setUTC(0)) << "no flag and no difference: nothing happens";
    EXPECT_EQ(-31, t.compileString()) << "UTCTime has no local form";
    EXPECT_EQ(0, t.setUTC(1));
    EXPECT_STREQ("240101120000Z", text);
    EXPECT_EQ(-31, t.setYear(-1));

    const char* leap = "240229000000Z";
    ASN1CUTCTime l(leap);
    EXPECT_EQ(-31, l.setYear(23));
    EXPECT_EQ(0, l.setYear(28));
}

TEST_F(UtcZone, UtcTimeDerRefusesZones) {
    const char* text = "2401011200+0100";
    ASN1CUTCTime t(text, 1);
    EXPECT_EQ(-31, t.getYear());
    const char* z = "2401011200Z";
    ASN1CUTCTime tz(z, 1);
    EXPECT_EQ(0, tz.getSecond());
    EXPECT_EQ(0, tz.setHour(13));
    EXPECT_STREQ("240101130000Z", z) << "seconds are always written";
}

TEST_F(UtcZone, ClearEmptiesTheText) {
    const char* text = "20240101120000Z";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(2024, t.getYear());
    t.clear();
    EXPECT_STREQ("", text);
    EXPECT_EQ(-3, t.getYear());
    EXPECT_EQ(0, t.getStatus());

    const char* u = "240101120000Z";
    ASN1CUTCTime ut(u);
    ut.clear();
    EXPECT_EQ(-3, ut.getMinute());
    EXPECT_EQ(1, ut.getUTC());
}

TEST_F(UtcZone, CallersBufferReceivesTheRebuiltText) {
    char big[40] = "20240101120000Z";
    char* p = big;
    ASN1CGeneralizedTime t(p, (int)sizeof big, 1);
    ASSERT_EQ(0, t.setYear(2025));
    EXPECT_EQ(big, p);
    EXPECT_STREQ("20250101120000Z", big);

    char small[20] = "20240101120000Z";
    char* q = small;
    ASN1CGeneralizedTime s(q, (int)sizeof small, 1);
    ASSERT_EQ(0, s.setYear(2025));
    EXPECT_NE(small, q) << "under 30 octets the object's own buffer is used";
    EXPECT_STREQ("20250101120000Z", q);
    EXPECT_STREQ("20240101120000Z", small);
}

TEST_F(UtcZone, CopyHasItsOwnText) {
    const char* text = "20240101120000Z";
    ASN1CGeneralizedTime a(text, 1);
    ASN1CGeneralizedTime b(a);
    ASN1CtxtPtr shared = a.getContext();
    EXPECT_EQ(3u, shared->getRefCount()) << "both objects and this reference";
    ASSERT_EQ(0, b.setYear(2030));
    EXPECT_STREQ("20240101120000Z", text);
    EXPECT_STREQ("20300101120000Z", *b.getTimeStringPtr());
    EXPECT_EQ(15, b.getTimeStringLen());

    char out[16];
    EXPECT_EQ(nullptr, b.getTimeString(out, 15));
    EXPECT_EQ(out, b.getTimeString(out, 16));
    EXPECT_STREQ("20300101120000Z", out);

    const char* other = "19991231235959Z";
    ASN1CGeneralizedTime c(other);
    a = c;
    EXPECT_EQ(1999, a.getYear());
}

TEST_F(UtcZone, ContextAndBufferConstructors) {
    ASN1Context* ctxt = new ASN1Context;
    ctxt->_ref();
    {
        const char* text = "20240101120000Z";
        ASN1CGeneralizedTime t(*ctxt, text);
        EXPECT_EQ(2u, ctxt->getRefCount());
        EXPECT_EQ(-31, t.setHour(99));
        EXPECT_EQ(-31, ctxt->getStatus()) << "failures reach the given context";
    }
    EXPECT_EQ(1u, ctxt->getRefCount());
    ctxt->_unref();
}

TEST_F(UtcZone, Comparison) {
    const char* a = "20240101120000Z";
    const char* b = "20240101120001Z";
    const char* c = "20240101120000.5Z";
    ASN1CGeneralizedTime ta(a), tb(b), tc(c);
    EXPECT_TRUE(ta < tb);
    EXPECT_TRUE(tb > ta);
    EXPECT_TRUE(ta <= tc);
    EXPECT_TRUE(ta != tc);
    EXPECT_EQ(-500, ta.equals(tc));
    const char* a2 = "202401011200Z";
    ASN1CGeneralizedTime ta2(a2);
    EXPECT_TRUE(ta == ta2);
    EXPECT_TRUE(ta >= ta2);

    // The same instant on two sides of midnight compares by its local day.
    const char* east = "20240102003000+0100";
    const char* west = "20240101233000Z";
    ASN1CGeneralizedTime te(east), tw(west);
    EXPECT_EQ(1, te.equals(tw));

    // The difference counts within one day.
    const char* plus = "20240101120000+0100";
    const char* zulu = "20240101110000Z";
    ASN1CGeneralizedTime tp(plus), tz(zulu);
    EXPECT_TRUE(tp == tz);
}

TEST(AsnTimeCalendar, DaysNumber) {
    struct {
        const char* text;
        long days;
    } rows[] = {{"00010101000000Z", 1},
                {"20000101000000Z", 730120},
                {"20000301000000Z", 730180},
                {"20240102000000Z", 738887}};
    for (const auto& row : rows) {
        const char* text = row.text;
        ASN1CGeneralizedTime t(text);
        ASSERT_GT(t.getYear(), 0);
        EXPECT_EQ(row.days, t.getDaysNum()) << row.text;
    }
}

TEST(AsnTimeCalendar, AddDays) {
    struct {
        long days;
        int y, m, d;
        int ey, em, ed;
    } rows[] = {
        {1, 2024, 2, 28, 2024, 2, 29},   {1, 2023, 2, 28, 2023, 3, 1},
        {1, 1900, 2, 28, 1900, 3, 1},    {1, 2000, 2, 28, 2000, 2, 29},
        {-1, 2024, 1, 1, 2023, 12, 31},  {366, 2000, 1, 1, 2001, 1, 1},
        {146097, 2000, 1, 1, 2400, 1, 1}, {-730119, 2000, 1, 1, 1, 1, 1},
        {0, 2024, 12, 31, 2024, 12, 31}, {1, 2024, 12, 31, 2025, 1, 1},
        {-1, 2024, 3, 1, 2024, 2, 29},   {60, 2024, 1, 1, 2024, 3, 1},
        {24855, 1970, 1, 1, 2038, 1, 19}, {1, 2399, 12, 31, 2400, 1, 1},
    };
    for (const auto& r : rows) {
        int y = r.y, m = r.m, d = r.d;
        ASN1CTime::addDays(r.days, y, m, d);
        EXPECT_EQ(r.ey, y) << r.days << " from " << r.y << "-" << r.m << "-" << r.d;
        EXPECT_EQ(r.em, m);
        EXPECT_EQ(r.ed, d);
    }
}

TEST(AsnTimeCalendar, AddMillisecondsBorrowsAcrossMidnight) {
    int y = 2024, mo = 1, d = 1, h = 0, mi = 0, s = 0, f = 0;
    ASN1CTime::addMilliseconds(-100, y, mo, d, h, mi, s, f);
    EXPECT_EQ(2023, y);
    EXPECT_EQ(12, mo);
    EXPECT_EQ(31, d);
    EXPECT_EQ(23, h);
    EXPECT_EQ(59, mi);
    EXPECT_EQ(59, s);
    EXPECT_EQ(9, f);
    ASN1CTime::addMilliseconds(100 + 86400000LL * 2, y, mo, d, h, mi, s, f);
    EXPECT_EQ(2024, y);
    EXPECT_EQ(1, mo);
    EXPECT_EQ(3, d);
    EXPECT_EQ(0, h);
    EXPECT_EQ(0, f);
}

TEST(AsnTimeCalendar, CheckDate) {
    EXPECT_TRUE(ASN1CTime::checkDate(0, 2, 2023)) << "unset day passes";
    EXPECT_TRUE(ASN1CTime::checkDate(29, 0, 2023)) << "unset month passes";
    EXPECT_TRUE(ASN1CTime::checkDate(29, 2, 2024));
    EXPECT_FALSE(ASN1CTime::checkDate(29, 2, 2023));
    EXPECT_TRUE(ASN1CTime::checkDate(29, 2, -3)) << "an unset year allows the leap day";
    EXPECT_FALSE(ASN1CTime::checkDate(30, 2, -3));
    EXPECT_FALSE(ASN1CTime::checkDate(31, 4, 2024));
}

// time_t is 64 bits on both widths, so dates past 2038 convert.
TEST_F(UtcZone, GetTimeAfter2038) {
    static_assert(sizeof(time_t) == 8, "64-bit time_t on every build");
    const char* text = "20400101000000Z";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ((time_t)2208988800LL, t.getTime());
    const char* u = "380119031408Z";
    ASN1CUTCTime ut(u);
    EXPECT_EQ((time_t)2147483648LL, ut.getTime());
    const char* epoch = "19700101000000Z";
    ASN1CGeneralizedTime te(epoch);
    EXPECT_EQ((time_t)0, te.getTime());
}

TEST_F(UtcZone, SetTime) {
    const char* text = "";
    ASN1CGeneralizedTime t(text);
    EXPECT_EQ(0, t.setTime(86400L + 3600L, 0));
    EXPECT_STREQ("1970010201", text) << "local, no zone, only the hour";
    EXPECT_EQ(0, t.setTime(86400L + 3661L, 1));
    EXPECT_EQ(0, t.getDiff()) << "the zone here is UTC";

    const char* der = "";
    ASN1CGeneralizedTime d(der, 1);
    EXPECT_EQ(0, d.setTime(0L, 0));
    EXPECT_STREQ("19700101000000Z", der);
    if (sizeof(long) == 8) {
        EXPECT_EQ(0, d.setTime((long)2208988800LL, 0));
        EXPECT_STREQ("20400101000000Z", der);
    }

    const char* u = "";
    ASN1CUTCTime ut(u, 1);
    EXPECT_EQ(0, ut.setTime(0L, 0));
    EXPECT_STREQ("700101000000Z", u);
    const char* ul = "";
    ASN1CUTCTime utl(ul);
    EXPECT_EQ(0, utl.setTime(0L, 0)) << "the setter succeeds";
    EXPECT_EQ(-31, utl.getStatus()) << "but the local UTCTime cannot be written";
}

TEST(AsnTimeLayout, FieldRecord) {
    static_assert(sizeof(RtTimeFields) == 38, "eight 16-bit fields, 21 octets, one flag");
    static_assert(offsetof(RtTimeFields, fraction) == 16, "fraction behind the fields");
    static_assert(offsetof(RtTimeFields, utc) == 37, "flag last");
    // ASN1CType, eight 16-bit fields, fraction, three flags, the text variable and its
    // capacity, 36 octets of own text and the pointer that stands in for copies.
    static_assert(sizeof(ASN1CTime) == (sizeof(void*) == 8 ? 104 : 84), "time control layout");
    static_assert(sizeof(ASN1CGeneralizedTime) == sizeof(ASN1CTime), "adds no field");
    static_assert(sizeof(ASN1CUTCTime) == sizeof(ASN1CTime), "adds no field");
    SUCCEED();
}

}  // namespace
