// Writing BER values that need more than a few octets: big integers from their text and
// open types copied as they stand.
#include <string.h>

#include "asn1rt/ber.h"
#include "asn1rt/ber_decode_internal.h"
#include "asn1rt/bigint.h"

namespace {

int setErr(ASN1CTXT* pctxt, int status)
{
    return rtErrSetData(&pctxt->errInfo, status);
}

int digitValue(char c, bool hex)
{
    if (c >= '0' && c <= '1')
        return c - '0';
    if (!hex)
        return -1;
    if (c >= '2' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// One octet in front of what is written; an empty room grows by the least step.
int storeOctet(ASN1CTXT* pctxt, ASN1OCTET b)
{
    if (pctxt->bufIndex == 0) {
        int stat = xe_expandBuffer(pctxt, 1);
        if (stat != 0)
            return stat;
    }
    pctxt->bufData[--pctxt->bufIndex] = b;
    return 0;
}

// "0x..." and "0b..." texts, written digit group by digit group with no arithmetic:
// the form that xd_bigint produces.
int writeDirect(ASN1CTXT* pctxt, const char* digits, bool hex)
{
    const size_t perOctet = hex ? 2 : 8;
    const unsigned bitsPerDigit = hex ? 4 : 1;
    const int maxDigit = hex ? 15 : 1;
    const size_t n = strlen(digits);

    const int first = digitValue(digits[0], hex);
    const bool negative = n % perOctet == 0 && first >= 0 && (first & (1 << (bitsPerDigit - 1)));
    size_t s = 0;
    if (negative) {
        // Leading groups of all ones carry nothing but the sign.
        while (n - s >= perOctet) {
            size_t k = 0;
            while (k < perOctet && digitValue(digits[s + k], hex) == maxDigit)
                ++k;
            if (k < perOctet)
                break;
            s += perOctet;
        }
    } else {
        while (s < n && digits[s] == '0')
            ++s;
    }

    int len = 0;
    bool partial = false;
    ASN1OCTET last = 0;
    for (size_t e = n; e > s;) {
        const size_t take = e - s < perOctet ? e - s : perOctet;
        unsigned v = 0;
        for (size_t k = e - take; k < e; ++k) {
            int d = digitValue(digits[k], hex);
            if (d < 0)
                return setErr(pctxt, RT_E_BAD_VALUE);
            v = (v << bitsPerDigit) | (unsigned)d;
        }
        int stat = storeOctet(pctxt, (ASN1OCTET)v);
        if (stat != 0)
            return setErr(pctxt, stat);
        ++len;
        last = (ASN1OCTET)v;
        partial = take < perOctet;
        e -= take;
    }
    if (!partial) {
        int stat = 0;
        if (!negative && (len == 0 || (last & 0x80))) {
            stat = storeOctet(pctxt, 0x00);
            ++len;
        } else if (negative && (len == 0 || !(last & 0x80))) {
            stat = storeOctet(pctxt, 0xff);
            ++len;
        }
        if (stat != 0)
            return setErr(pctxt, stat);
    }
    return len;
}

// Any other text goes through a big integer record with 512 octets of local storage.
int writeArithmetic(ASN1CTXT* pctxt, const char* text)
{
    ASN1OCTET local[512];
    ASN1BigInt value;
    rtBigIntInit(&value);
    value.mag = local;
    value.capacity = (ASN1INT)sizeof local;
    value.dynamic = 0;
    // A value past the local storage lives on the type heap: given back on every way out.
    int stat = rtBigIntSetStr(pctxt, &value, text, 0);
    int n = stat == 0 ? rtBigIntGetDataLen(&value) : 0;
    if (stat == 0 && n < 0)
        stat = RT_E_BAD_VALUE;
    if (stat == 0 && (long long)pctxt->bufIndex < (long long)n + 2)
        stat = xe_expandBuffer(pctxt, n);
    if (stat == 0) {
        pctxt->bufIndex -= (ASN1UINT)n;
        int got = rtBigIntGetData(pctxt, &value, pctxt->bufData + pctxt->bufIndex, (size_t)n);
        if (got < 0)
            stat = got;
    }
    rtBigIntFree(pctxt, &value);
    return stat != 0 ? setErr(pctxt, stat) : n;
}

}  // namespace

extern "C" {

int xe_bigint(ASN1CTXT* pctxt, const char* text, int tagging)
{
    if (!text || !*text)
        return setErr(pctxt, RT_E_BAD_VALUE);
    int len;
    if (strcmp(text, "0") == 0) {
        const ASN1OCTET zero = 0;
        len = xe_memcpy(pctxt, &zero, 1);
    } else if (strlen(text) >= 3 && text[0] == '0' && (text[1] == 'x' || text[1] == 'b')) {
        len = writeDirect(pctxt, text + 2, text[1] == 'x');
    } else {
        len = writeArithmetic(pctxt, text);
    }
    if (len < 0)
        return len;
    if (tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_INT, len);
    return len;
}

int xe_OpenType(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numocts)
{
    if (numocts == 0)
        return 0;
    if (!data || numocts > 0x7fffffffu)
        return RT_E_BAD_VALUE;

    ASN1CTXT local;
    int stat = rtInitContext(&local, pctxt->memContext);
    if (stat != 0)
        return stat;
    ASN1TAG tag = 0;
    int size = 0, content = 0;
    stat = xd_setp(&local, data, (int)numocts, &tag, &size);
    if (stat == 0)
        stat = xd_tag_len(&local, &tag, &content, 0);
    if (stat == 0 && size == RT_INDEFINITE_LENGTH) {
        // Measured within the given octets, so no read passes them.
        local.bufIndex = 0;
        size = asn1rt::detail::measureIndefinite(&local);
    }
    rtFreeContext(&local);
    if (stat != 0)
        return stat;
    if (tag == 0 && content == 0)
        return RT_E_BAD_VALUE;
    if (size < 0)
        return size;
    // Encoded in place already: nothing to copy.
    if (data == pctxt->bufData + pctxt->bufIndex)
        return size;
    return xe_memcpy(pctxt, data, size);
}

int xe_OpenTypeExt(ASN1CTXT* pctxt, Asn1RTDList* list)
{
    if (!list)
        return 0;
    int total = 0;
    for (Asn1RTDListNode* n = list->tail; n; n = n->prev) {
        const ASN1OpenType* value = (const ASN1OpenType*)n->data;
        if (!value)
            continue;
        int len = xe_OpenType(pctxt, value->data, value->numocts);
        if (len < 0)
            return setErr(pctxt, len);
        total += len;
    }
    return total;
}

}  // extern "C"
