// Reading BER values: integers, booleans, NULL, big integers, strings, identifiers.
//
// Which failures reach the error block and which are only returned is part of each
// function's contract; the comments name the bare ones.
#include <string.h>

#include "asn1rt/ber.h"
#include "asn1rt/ber_decode_internal.h"

using namespace asn1rt::detail;

namespace {

// The two zero octets that close a constructed string of indefinite length.
int closeIndefiniteString(ASN1CTXT* pctxt, bool constructed, int length)
{
    if (!constructed || length != RT_INDEFINITE_LENGTH)
        return 0;
    ASN1UINT i = pctxt->bufIndex;
    if (i < pctxt->bufSize && pctxt->bufSize - i >= 2 && pctxt->bufData[i] == 0 &&
        pctxt->bufData[i + 1] == 0) {
        pctxt->bufIndex = i + 2;
        return 0;
    }
    return setErr(pctxt, RT_E_BAD_LENGTH);
}

// Content size and span of a string value: measured for the indefinite form, the length
// itself otherwise.
int measureString(ASN1CTXT* pctxt, ASN1TAG number, int length, int* content, int* span)
{
    if (length == RT_INDEFINITE_LENGTH)
        return xd_consStrIndefLenAndSize(pctxt, number, content, span);
    *content = *span = length;
    return 0;
}

// Octets of a string of any kind on the type heap, `extra` zero octets behind them.
int readStringOctets(ASN1CTXT* pctxt, int tagging, ASN1TAG tag, int length, int extra,
                     ASN1OCTET** out, ASN1UINT* count, bool* constructed, int* lengthOut)
{
    int stat;
    if (tagging == ASN1EXPL) {
        stat = xd_match1(pctxt, ASN1_TAG_TO_OCTET(tag), &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    *lengthOut = length;
    *constructed = (pctxt->flags & RT_FLAG_CONSTRUCTED) != 0;
    // Measured as segments, an indefinite span is longer than its content: copied whole by
    // the primitive form it would not fit the allocation.
    if (length == RT_INDEFINITE_LENGTH && !*constructed)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    int content = 0, span = 0;
    stat = measureString(pctxt, ASN_ID_OCTSTR, length, &content, &span);
    if (stat != 0)
        return setErr(pctxt, stat);
    // No content: the copy below refuses the negative length, and the text is still stored.
    if (content < 0)
        content = 0;
    if (content > RT_MEMHEAP_MAX_ALLOC - extra)
        return setErr(pctxt, RT_E_NO_MEMORY);
    ASN1OCTET* p = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, content + extra);
    if (!p)
        return setErr(pctxt, RT_E_NO_MEMORY);
    ASN1UINT n = (ASN1UINT)span;
    stat = xd_octstr_s(pctxt, p, &n, ASN1IMPL, span);
    if (stat != 0) {
        if (extra)
            p[0] = 0;
        *out = p;
        *count = 0;
        return stat;
    }
    *out = p;
    *count = n;
    return 0;
}

}  // namespace

extern "C" {

int xd_integer(ASN1CTXT* pctxt, ASN1INT* value, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        int stat = explicitHeader(pctxt, ASN_ID_INT, true, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    if ((ASN1UINT)length >= 5)
        return setErr(pctxt, RT_E_INT_TOO_BIG);
    if (length == 0)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    if (!contentFits(pctxt, length))
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    const ASN1OCTET* p = pctxt->bufData + pctxt->bufIndex;
    ASN1UINT v = (p[0] & 0x80) ? 0xffffffffu : 0;
    for (int k = 0; k < length; ++k)
        v = (v << 8) | p[k];
    pctxt->bufIndex += (ASN1UINT)length;
    *value = (ASN1INT)v;
    return 0;
}

int xd_unsigned(ASN1CTXT* pctxt, ASN1UINT* value, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        int stat = explicitHeader(pctxt, ASN_ID_INT, true, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    if ((ASN1UINT)length >= 6)
        return setErr(pctxt, RT_E_INT_TOO_BIG);
    if (length == 5) {
        if (pctxt->bufIndex >= pctxt->bufSize)
            return RT_E_END_OF_BUFFER;  // bare, as every octet read here
        if (pctxt->bufData[pctxt->bufIndex] != 0)
            return setErr(pctxt, RT_E_INT_TOO_BIG);
    }
    *value = 0;
    ASN1UINT v = 0;
    for (int k = 0; k < length; ++k) {
        if (pctxt->bufIndex >= pctxt->bufSize)
            return RT_E_END_OF_BUFFER;
        v = (v << 8) | pctxt->bufData[pctxt->bufIndex++];
    }
    *value = v;
    return 0;
}

int xd_uint16(ASN1CTXT* pctxt, ASN1USINT* value, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        ASN1UINT i = pctxt->bufIndex;
        if (i >= pctxt->bufSize || pctxt->bufSize - i < 3)
            return setErr(pctxt, RT_E_END_OF_BUFFER);
        if (pctxt->bufData[i] != ASN_ID_INT)
            return setErr(pctxt, RT_E_TAG_MISMATCH);
        length = pctxt->bufData[i + 1];  // one octet, no long form
        pctxt->bufIndex = i + 2;
    }
    if ((ASN1UINT)length >= 4)
        return setErr(pctxt, RT_E_INT_TOO_BIG);
    // At three octets the leading one must be 0, tested before the two behind it.
    if (length == 3 && pctxt->bufIndex < pctxt->bufSize && pctxt->bufData[pctxt->bufIndex] != 0)
        return setErr(pctxt, RT_E_INT_TOO_BIG);
    // Length 0 still takes one octet: kept as it stands.
    int take = length == 0 ? 1 : length;
    if (!contentFits(pctxt, take))
        return RT_E_END_OF_BUFFER;
    const ASN1OCTET* p = pctxt->bufData + pctxt->bufIndex;
    ASN1USINT v;
    if (length == 3) {
        v = (ASN1USINT)((p[1] << 8) | p[2]);
    } else if (length == 2) {
        v = (ASN1USINT)((p[0] << 8) | p[1]);
    } else {
        v = p[0];
    }
    pctxt->bufIndex += (ASN1UINT)take;
    *value = v;
    return 0;
}

int xd_enum(ASN1CTXT* pctxt, ASN1ENUM* value, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        ASN1UINT i = pctxt->bufIndex;
        if (i >= pctxt->bufSize)
            return RT_E_END_OF_BUFFER;
        if (pctxt->bufData[i] != ASN_ID_ENUM)
            return RT_E_TAG_MISMATCH;  // bare
        pctxt->bufIndex = ++i;
        if (i >= pctxt->bufSize)
            return RT_E_END_OF_BUFFER;  // bare
        int stat = readShortOrLongLength(pctxt, &length);
        if (stat != 0)
            return stat;
    }
    return xd_integer(pctxt, value, ASN1IMPL, length);
}

int xd_boolean(ASN1CTXT* pctxt, ASN1BOOL* value, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        ASN1UINT i = pctxt->bufIndex;
        if (i >= pctxt->bufSize)
            return setErr(pctxt, RT_E_END_OF_BUFFER);
        if (pctxt->bufData[i] != ASN_ID_BOOL)
            return setErr(pctxt, RT_E_TAG_MISMATCH);
        if (pctxt->bufSize - i < 2)
            return setErr(pctxt, RT_E_END_OF_BUFFER);
        length = pctxt->bufData[i + 1];  // taken as it is
        pctxt->bufIndex = i + 2;
    }
    if (length != 1)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    if (pctxt->bufIndex >= pctxt->bufSize)
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    *value = pctxt->bufData[pctxt->bufIndex++];
    return 0;
}

int xd_null(ASN1CTXT* pctxt, int tagging)
{
    if (tagging != ASN1EXPL)
        return 0;
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize)
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    if (pctxt->bufData[i] != ASN_ID_NULL)
        return setErr(pctxt, RT_E_TAG_MISMATCH);
    if (pctxt->bufSize - i < 2)
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    ASN1OCTET len = pctxt->bufData[i + 1];
    pctxt->bufIndex = i + 2;
    return len == 0 ? 0 : setErr(pctxt, RT_E_BAD_LENGTH);
}

int xd_bigint(ASN1CTXT* pctxt, const char** text, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        int stat = explicitHeader(pctxt, ASN_ID_INT, true, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    if (length < 0)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    if (!contentFits(pctxt, length))
        return RT_E_END_OF_BUFFER;  // bare, and no flag softens it
    const ASN1OCTET* p = pctxt->bufData + pctxt->bufIndex;
    const ASN1OCTET* end = p + length;
    bool leadingZero = false;
    if (p < end && *p == 0) {
        leadingZero = true;
        ++p;
    }
    while (p < end && *p == 0)
        ++p;
    size_t rest = (size_t)(end - p);
    if (rest > (size_t)(RT_MEMHEAP_MAX_ALLOC - 4) / 2)
        return RT_E_NO_MEMORY;
    char* out = (char*)rtMemHeapAlloc(&pctxt->typeHeap, (int)(rest * 2 + 4));
    if (!out)
        return RT_E_NO_MEMORY;  // bare
    static const char digits[] = "0123456789abcdef";
    char* w = out;
    *w++ = '0';
    *w++ = 'x';
    // A zero that went keeps the sign readable in front of a top bit.
    if (rest == 0 || (leadingZero && (*p & 0x80)))
        *w++ = '0';
    for (; p < end; ++p) {
        *w++ = digits[*p >> 4];
        *w++ = digits[*p & 0x0f];
    }
    *w = 0;
    pctxt->bufIndex += (ASN1UINT)length;
    *text = out;
    return 0;
}

int xd_octstr_s(ASN1CTXT* pctxt, ASN1OCTET* dest, ASN1UINT* numocts, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        ASN1UINT i = pctxt->bufIndex;
        if (i >= pctxt->bufSize)
            return setErr(pctxt, RT_E_END_OF_BUFFER);
        if (pctxt->bufData[i] != ASN_ID_OCTSTR)
            return setErr(pctxt, RT_E_TAG_MISMATCH);
        pctxt->flags &= (ASN1USINT)~RT_FLAG_CONSTRUCTED;
        pctxt->bufIndex = ++i;
        // A header cut short is recorded, and the length at hand goes on.
        if (i >= pctxt->bufSize) {
            setErr(pctxt, RT_E_END_OF_BUFFER);
        } else {
            int l = 0;
            int stat = readShortOrLongLength(pctxt, &l);
            if (stat != 0)
                setErr(pctxt, stat);
            else
                length = l;
        }
    }
    if (length < 0)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    const ASN1UINT capacity = *numocts;
    if ((ASN1UINT)length > capacity)
        return setErr(pctxt, RT_E_TOO_LONG);

    if (!(pctxt->flags & RT_FLAG_CONSTRUCTED)) {
        if (length == 0) {
            *numocts = 0;
            return 0;
        }
        int stat = xd_memcpy(pctxt, dest, length);
        if (stat != 0)
            return setErr(pctxt, stat);
        *numocts = (ASN1UINT)length;
        return 0;
    }

    // Segments must be primitive OCTET STRINGs: the segment read demands identifier 4.
    const ASN1UINT start = pctxt->bufIndex;
    ASN1UINT total = 0;
    while ((long long)pctxt->bufIndex - (long long)start < (long long)length &&
           pctxt->bufIndex < pctxt->bufSize) {
        // Each segment may take the whole length, but never more than is left of the
        // destination.
        ASN1UINT room = capacity - total;
        ASN1UINT segment = (ASN1UINT)length < room ? (ASN1UINT)length : room;
        int stat = xd_octstr_s(pctxt, dest + total, &segment, ASN1EXPL, 0);
        if (stat != 0)
            return setErr(pctxt, stat);
        total += segment;
    }
    if ((long long)pctxt->bufIndex - (long long)start != (long long)length)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    *numocts = total;
    return 0;
}

int xd_octstr(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numocts, int tagging, int length)
{
    int stat;
    if (tagging == ASN1EXPL) {
        stat = xd_match1(pctxt, ASN_ID_OCTSTR, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    const bool constructed = (pctxt->flags & RT_FLAG_CONSTRUCTED) != 0;
    // The primitive form would copy the whole measured span into the content's allocation.
    if (length == RT_INDEFINITE_LENGTH && !constructed)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    int content = 0, span = 0;
    stat = measureString(pctxt, ASN_ID_OCTSTR, length, &content, &span);
    if (stat != 0)
        return setErr(pctxt, stat);
    if (content < 0) {
        *data = nullptr;
        *numocts = 0;
        return 0;
    }
    if ((pctxt->flags & RT_FLAG_SHARE_INPUT) && !constructed && length != RT_INDEFINITE_LENGTH)
        return shareOctets(pctxt, data, numocts, length);
    ASN1OCTET* p = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, content);
    if (!p)
        return setErr(pctxt, RT_E_NO_MEMORY);
    *numocts = (ASN1UINT)span;
    stat = xd_octstr_s(pctxt, p, numocts, ASN1IMPL, span);
    if (stat != 0)
        return stat;
    *data = p;
    return closeIndefiniteString(pctxt, constructed, length);
}

int xd_bitstr_s(ASN1CTXT* pctxt, ASN1OCTET* dest, ASN1UINT* numbits, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        int stat = explicitHeader(pctxt, ASN_ID_BITSTR, true, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    const ASN1UINT bits = *numbits;
    const ASN1UINT capacity = bits == 0 ? 1 : (bits - 1) / 8 + 1;

    if (!(pctxt->flags & RT_FLAG_CONSTRUCTED)) {
        // Every failure of the primitive form is returned bare.
        if (length == 0) {
            *numbits = 0;
            return 0;
        }
        if (length < 0)
            return RT_E_BAD_LENGTH;
        if (pctxt->bufIndex >= pctxt->bufSize)
            return RT_E_END_OF_BUFFER;
        ASN1OCTET unused = pctxt->bufData[pctxt->bufIndex++];
        if (length == 1) {
            if (unused != 0)
                return RT_E_BAD_LENGTH;
            *numbits = 0;
            return 0;
        }
        if (unused > 7)
            return RT_E_BAD_VALUE;
        ASN1UINT octets = (ASN1UINT)length - 1;
        if (octets > capacity)
            return RT_E_TOO_LONG;
        int stat = xd_memcpy(pctxt, dest, (int)octets);
        if (stat != 0)
            return stat;
        *numbits = octets * 8 - unused;
        return 0;
    }

    // Constructed: only the last segment's leading octet counts as the unused-bits octet;
    // the leading octets of earlier segments stay in the data.
    const ASN1UINT start = pctxt->bufIndex;
    ASN1UINT total = 0;
    ASN1UINT unused = 0;
    bool lastWhole = false;
    ASN1UINT lastPos = 0, lastLen = 0;
    for (;;) {
        bool more;
        if (length == RT_INDEFINITE_LENGTH)
            more = !atIndefiniteEnd(pctxt);
        else
            more = (long long)pctxt->bufIndex - (long long)start < (long long)length &&
                   pctxt->bufIndex < pctxt->bufSize;
        if (!more)
            break;
        int segment = 0;
        int stat = xd_match1(pctxt, ASN_ID_BITSTR, &segment);
        if (stat != 0)
            return setErr(pctxt, stat);
        if (segment < 0)
            return setErr(pctxt, RT_E_BAD_LENGTH);
        if ((unsigned long long)total + (ASN1UINT)segment == (unsigned long long)capacity + 1) {
            if (pctxt->bufIndex >= pctxt->bufSize)
                return setErr(pctxt, RT_E_END_OF_BUFFER);
            unused = pctxt->bufData[pctxt->bufIndex++];
            stat = xd_memcpy(pctxt, dest + total, segment - 1);
            if (stat != 0)
                return setErr(pctxt, stat);
            total += (ASN1UINT)segment - 1;
            lastWhole = false;
        } else {
            if ((unsigned long long)total + (ASN1UINT)segment > capacity)
                return setErr(pctxt, RT_E_TOO_LONG);
            stat = xd_memcpy(pctxt, dest + total, segment);
            if (stat != 0)
                return setErr(pctxt, stat);
            lastWhole = true;
            lastPos = total;
            lastLen = (ASN1UINT)segment;
            total += (ASN1UINT)segment;
        }
    }
    if (lastWhole && lastLen > 0) {
        unused = dest[lastPos];
        memmove(dest + lastPos, dest + lastPos + 1, lastLen - 1);
        total -= 1;
    }
    // Unused bits with no octet to hold them would make the count wrap below zero.
    if (unused > 7 || (total == 0 && unused != 0))
        return setErr(pctxt, RT_E_BAD_VALUE);
    if (length != RT_INDEFINITE_LENGTH && (long long)pctxt->bufIndex - (long long)start != (long long)length)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    *numbits = total * 8 - unused;
    return 0;
}

int xd_bitstr(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numbits, int tagging, int length)
{
    int stat;
    if (tagging == ASN1EXPL) {
        stat = xd_match1(pctxt, ASN_ID_BITSTR, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    const bool constructed = (pctxt->flags & RT_FLAG_CONSTRUCTED) != 0;
    int content = 0, span = 0;
    stat = measureString(pctxt, ASN_ID_BITSTR, length, &content, &span);
    if (stat != 0)
        return setErr(pctxt, stat);
    if (content < 0) {
        *data = nullptr;
        *numbits = 0;
        return 0;
    }
    if (content == 0) {
        *numbits = 0;
        *data = nullptr;
        return closeIndefiniteString(pctxt, constructed, length);
    }
    if (content == 1) {
        if (pctxt->bufIndex >= pctxt->bufSize || pctxt->bufData[pctxt->bufIndex] != 0)
            return RT_E_BAD_LENGTH;  // bare
        pctxt->bufIndex++;
        *numbits = 0;
        *data = nullptr;
        return closeIndefiniteString(pctxt, constructed, length);
    }
    if ((pctxt->flags & RT_FLAG_SHARE_INPUT) && !constructed && length != RT_INDEFINITE_LENGTH)
        return shareBits(pctxt, data, numbits, length);
    ASN1OCTET* p = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, content - 1);
    if (!p)
        return setErr(pctxt, RT_E_NO_MEMORY);
    *numbits = (ASN1UINT)content * 8 - 8;
    stat = xd_bitstr_s(pctxt, p, numbits, ASN1IMPL, span);
    if (stat != 0)
        return stat;
    *data = p;
    return closeIndefiniteString(pctxt, constructed, length);
}

int xd_charstr(ASN1CTXT* pctxt, const char** text, int tagging, ASN1TAG tag, int length)
{
    ASN1OCTET* p = nullptr;
    ASN1UINT count = 0;
    bool constructed = false;
    int stat = readStringOctets(pctxt, tagging, tag, length, 1, &p, &count, &constructed, &length);
    if (!p)
        return stat;
    p[count] = 0;
    *text = (const char*)p;
    if (stat != 0)
        return stat;
    return closeIndefiniteString(pctxt, constructed, length);
}

extern "C++" {
namespace {

// BMPString and UniversalString: the content octets turned in place into host values of
// the character's width (big-endian units; a trailing partial unit is ignored).
template <class Char, class Record>
int decodeWideString(ASN1CTXT* pctxt, Record* value, int tagging, ASN1TAG tag, int length)
{
    if (tagging == ASN1EXPL) {
        int stat = xd_match1(pctxt, ASN1_TAG_TO_OCTET(tag), &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    if (length == 0) {
        value->nchars = 0;
        value->data = nullptr;
        return 0;
    }
    ASN1OCTET* p = nullptr;
    ASN1UINT count = 0;
    bool constructed = false;
    int stat = readStringOctets(pctxt, ASN1IMPL, tag, length, 0, &p, &count, &constructed, &length);
    if (stat != 0)
        return stat;
    const ASN1UINT n = count / sizeof(Char);
    for (ASN1UINT k = 0; k < n; ++k) {
        const ASN1OCTET* q = p + sizeof(Char) * k;
        Char c = 0;
        for (size_t i = 0; i < sizeof(Char); ++i)
            c = (Char)((c << 8) | q[i]);
        memcpy(p + sizeof(Char) * k, &c, sizeof c);
    }
    value->nchars = n;
    value->data = (Char*)(void*)p;
    return closeIndefiniteString(pctxt, constructed, length);
}

}  // namespace
}  // extern "C++"

int xd_16BitCharStr(ASN1CTXT* pctxt, Asn116BitCharString* value, int tagging, ASN1TAG tag, int length)
{
    return decodeWideString<ASN1USINT>(pctxt, value, tagging, tag, length);
}

int xd_32BitCharStr(ASN1CTXT* pctxt, Asn132BitCharString* value, int tagging, ASN1TAG tag, int length)
{
    return decodeWideString<ASN1UINT>(pctxt, value, tagging, tag, length);
}

int xd_objid(ASN1CTXT* pctxt, ASN1OBJID* value, int tagging, int length)
{
    if (tagging == ASN1EXPL) {
        int stat = explicitHeader(pctxt, ASN_ID_OBJID, true, &length);
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    if (length <= 0)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    if (!contentFits(pctxt, length))
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    const ASN1OCTET* const base = pctxt->bufData;
    const ASN1OCTET* q = base + pctxt->bufIndex;
    const ASN1OCTET* const end = q + length;
    // Seven bits an octet; an unterminated last arc is accepted, and bits past 32 are lost.
    ASN1UINT arc = 0;
    ASN1OCTET b;
    do {
        b = *q++;
        arc = (arc << 7) | (b & 0x7f);
    } while ((b & 0x80) && q < end);
    if (arc < 80) {
        value->subid[0] = arc / 40;
        value->subid[1] = arc % 40;
    } else {
        value->subid[0] = 2;
        value->subid[1] = arc - 80;
    }
    ASN1UINT count = 2;
    while (q < end) {
        if (count >= ASN_K_MAXSUBIDS) {
            value->numids = ASN_K_MAXSUBIDS;
            pctxt->bufIndex = (ASN1UINT)(q - base);
            return RT_E_BAD_OBJID;  // bare
        }
        arc = 0;
        do {
            b = *q++;
            arc = (arc << 7) | (b & 0x7f);
        } while ((b & 0x80) && q < end);
        value->subid[count++] = arc;
    }
    pctxt->bufIndex = (ASN1UINT)(q - base);
    value->numids = count;
    return 0;
}

}  // extern "C"
