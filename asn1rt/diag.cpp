// The runtime's diagnostic outputs, rtdiag and the hexadecimal dump.
#include "asn1rt/stream.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

extern "C" {
ASN1RT_API ASN1UINT g_debug = 0;
}

namespace {

// The classes 0x97 of rtCtypeTable: upper- and lower-case letters, digits,
// punctuation and the blank, i.e. the octets 0x20 to 0x7e.
inline bool shown(ASN1OCTET c) { return c >= 0x20 && c <= 0x7e; }

constexpr int kHexColumn = 48;
constexpr int kTextColumn = 16;

}  // namespace

extern "C" {

ASN1RT_API void rtSetDiag(ASN1UINT value) { g_debug = value; }

ASN1RT_API void rtdiag(const char* fmtspec, ...)
{
    if (g_debug == 0)
        return;
    va_list args;
    va_start(args, fmtspec);
    vprintf(fmtspec, args);
    va_end(args);
}

ASN1RT_API void rtDiagHexDump(const ASN1OCTET* data, ASN1UINT numocts)
{
    if (g_debug != 0)
        rtHexDumpToFile(stdout, data, numocts);
}

ASN1RT_API void rtHexDumpToFile(FILE* fp, const ASN1OCTET* data, ASN1UINT numocts)
{
    rtHexDumpToFileEx(fp, data, numocts, 1);
}

ASN1RT_API void rtHexDumpToFileEx(FILE* fp, const ASN1OCTET* data, ASN1UINT numocts, ASN1UINT wordSize)
{
    if (wordSize == 0)
        return;  // not allowed
    ASN1UINT perLine = 16 / wordSize;
    if (perLine == 0)
        perLine = 1;  // a word wider than a line still shows one item a line
    const ASN1UINT step = wordSize > 4 ? 4 : wordSize;
    const ASN1UINT items = numocts / step;
    if (items == 0)
        return;

    char hex[kHexColumn + 1];
    char text[kTextColumn + 1];
    memset(hex, ' ', kHexColumn);
    hex[kHexColumn] = '\0';
    memset(text, ' ', kTextColumn);
    text[kTextColumn] = '\0';

    ASN1UINT inLine = 0;
    for (ASN1UINT k = 0; k < items; k++) {
        const ASN1OCTET* p = data + static_cast<size_t>(k) * step;
        // The word in host order, printed most significant octet first.
        ASN1UINT word = 0;
        memcpy(&word, p, step);
        char* h = hex + inLine * (2 * step + 1);
        for (ASN1UINT b = step; b-- > 0;) {
            ASN1OCTET octet;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
            octet = static_cast<ASN1OCTET>(word >> (8 * (sizeof(word) - step + b)));
#else
            octet = static_cast<ASN1OCTET>(word >> (8 * b));
#endif
            static const char digits[] = "0123456789abcdef";
            *h++ = digits[octet >> 4];
            *h++ = digits[octet & 0x0f];
        }
        for (ASN1UINT j = 0; j < step; j++) {
            const ASN1UINT pos = inLine * step + j;
            if (pos < static_cast<ASN1UINT>(kTextColumn))
                text[pos] = shown(p[j]) ? static_cast<char>(p[j]) : '.';
        }
        if (++inLine == perLine) {
            fprintf(fp, "%48s %16s\n", hex, text);
            inLine = 0;
            if (k + 1 < items) {
                memset(hex, ' ', kHexColumn);
                memset(text, ' ', kTextColumn);
            }
        }
    }
    if (inLine != 0) {
        size_t len = strlen(text);
        while (len > 0 && text[len - 1] == ' ')
            text[--len] = '\0';
        fprintf(fp, "%48s %s\n", hex, text);
    }
}

}  // extern "C"
