// Time texts: the C parsers and writer, and the time classes, on arbitrary text.  What a
// parser accepts must be written back and read again to the same fields; no text may make
// anything read or write out of bounds.
#include "asn1rt/asn1time.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

namespace {

void check(bool ok) {
    if (!ok) abort();
}

bool sameFields(const RtTimeFields& a, const RtTimeFields& b) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second && a.diffHour == b.diffHour &&
           a.diffMin == b.diffMin && a.utc == b.utc && strcmp(a.fraction, b.fraction) == 0;
}

void cParsers(ASN1CTXT* ctxt, const char* text) {
    RtTimeFields f, again;
    int st = rtParseGeneralizedTime(ctxt, text, &f);
    check(st == 0 || st == -31);
    if (st == 0) {
        char out[64];
        char* p = out;
        check(rtMakeGeneralizedTime(ctxt, &f, &p, sizeof out) == 0);
        check(rtParseGeneralizedTime(ctxt, out, &again) == 0);
        check(sameFields(f, again));
    }
    st = rtParseUTCTime(ctxt, text, &f);
    check(st == 0 || st == -31);
    if (st == 0) {
        check(f.year >= 1950 && f.year <= 2049);
        char* heap = nullptr;
        check(rtMakeGeneralizedTime(ctxt, &f, &heap, 0) == 0);
        check(rtParseGeneralizedTime(ctxt, heap, &again) == 0);
        check(sameFields(f, again));
    }
}

// The text is either the caller's, as given, or one the object rebuilt in its own 36
// octets or in the caller's larger buffer.
template <class T>
void exercise(T& t, const uint8_t* ops, size_t n, size_t givenLen) {
    t.getYear();
    t.getMonth();
    t.getDay();
    t.getHour();
    t.getMinute();
    t.getSecond();
    t.getFraction();
    t.getDiff();
    t.getUTC();
    for (size_t i = 0; i + 1 < n && i < 32; i += 2) {
        int v = (int)(int8_t)ops[i + 1];
        switch (ops[i] % 14) {
            case 0: t.setYear(v * 40); break;
            case 1: t.setMonth(v); break;
            case 2: t.setDay(v); break;
            case 3: t.setHour(v); break;
            case 4: t.setMinute(v); break;
            case 5: t.setSecond(v); break;
            case 6: t.setFraction(v); break;
            case 7: t.setDiff(v * 6); break;
            case 8: t.setDiff(v / 10, v); break;
            case 9: t.setUTC((unsigned char)(v & 1)); break;
            case 10: t.clear(); break;
            case 11: t.setDiffHour(v / 8); break;
            case 12: t.setTime((long)v * 86400L * 400L, (unsigned char)(v & 1)); break;
            default: t.compileString(); break;
        }
    }
    int len = t.getTimeStringLen();
    check(len >= 0 && ((size_t)len <= givenLen || len < 36));
    char out[40];
    char* got = t.getTimeString(out, sizeof out);
    check(got == nullptr || (int)strlen(got) == len);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 512) return 0;
    const uint8_t mode = data[0];
    // The text runs to the first 0xFF octet; the rest drives the setters.
    const uint8_t* sep = (const uint8_t*)memchr(data + 1, 0xFF, size - 1);
    size_t textLen = sep ? (size_t)(sep - data - 1) : size - 1;
    std::string text((const char*)data + 1, textLen);
    const uint8_t* ops = sep ? sep + 1 : data + size;
    size_t nops = (size_t)(data + size - ops);

    ASN1CTXT ctxt;
    if (rtInitContext(&ctxt, nullptr) != 0) return 0;
    cParsers(&ctxt, text.c_str());
    rtFreeContext(&ctxt);

    const char* p = text.c_str();
    unsigned char der = mode & 1;
    if (mode & 2) {
        ASN1CUTCTime t(p, der);
        exercise(t, ops, nops, text.size());
        ASN1CUTCTime copy(t);
        check(copy.getTimeStringLen() < 36) /* a copy holds its text in its own buffer */;
    } else if (mode & 4) {
        char buf[48];
        memset(buf, 0, sizeof buf);
        memcpy(buf, text.c_str(), text.size() < 47 ? text.size() : 47);
        char* q = buf;
        ASN1CGeneralizedTime t(q, (int)sizeof buf, der);
        exercise(t, ops, nops, text.size());
        const char* other = "20240101120000Z";
        ASN1CGeneralizedTime o(other);
        t.equals(o);
    } else {
        ASN1CGeneralizedTime t(p, der);
        exercise(t, ops, nops, text.size());
        t.getCentury();
        t.setCentury(mode >> 1);
        t.getTime();
    }
    return 0;
}
