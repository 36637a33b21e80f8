// Writing BER backward: the buffer, its growth, tags, lengths and the scalar values.
//
// bufIndex is the lowest octet written so far; the room left is exactly bufIndex octets,
// and the buffer's last octet is never written.
#include <stdlib.h>
#include <string.h>

#include "asn1rt/ber.h"

namespace {

// Octets gathered in a small array, most significant first, written in one copy.
struct Octets {
    ASN1OCTET buf[16];
    int first = 16;
    void push(ASN1OCTET b) { buf[--first] = b; }
    ASN1OCTET top() const { return buf[first]; }
    int size() const { return 16 - first; }
    const ASN1OCTET* data() const { return buf + first; }
};

int writeOctets(ASN1CTXT* pctxt, const Octets& o)
{
    return xe_memcpy(pctxt, o.data(), o.size());
}

// Shortest unsigned form: octets up to the last one under 256, then 00 in front of a
// top bit.
Octets unsignedOctets(ASN1UINT v)
{
    Octets o;
    while (v >= 256) {
        o.push((ASN1OCTET)v);
        v >>= 8;
    }
    o.push((ASN1OCTET)v);
    if (o.top() & 0x80)
        o.push(0x00);
    return o;
}

// Wide characters tail first, each as its `Width` octets, most significant first.
template <unsigned Width, typename Char>
int writeWide(ASN1CTXT* pctxt, const Char* data, ASN1UINT nchars, int tagging, ASN1TAG tag)
{
    int len = 0;
    for (ASN1UINT k = nchars; k > 0; --k) {
        const ASN1UINT c = data[k - 1];
        ASN1OCTET octets[Width];
        for (unsigned b = 0; b < Width; ++b)
            octets[b] = (ASN1OCTET)(c >> (8 * (Width - 1 - b)));
        int r = xe_memcpy(pctxt, octets, (int)Width);
        if (r < 0)
            return r;
        len += r;
    }
    if (tagging == ASN1EXPL)
        return xe_tag_len(pctxt, tag, len);
    return len;
}

}  // namespace

extern "C" {

int xe_setp(ASN1CTXT* pctxt, ASN1OCTET* buf, int bufsiz)
{
    int stat = rtInitContextBuffer(pctxt, buf, (ASN1UINT)bufsiz);
    if (stat != 0)
        return stat;
    // A static buffer without room (size 0 or negative) is full from the start.
    if (pctxt->bufSize == 0 || (buf && bufsiz <= 0))
        pctxt->bufIndex = 0;
    else
        pctxt->bufIndex = pctxt->bufSize - 1;
    return 0;
}

ASN1OCTET* xe_getp(ASN1CTXT* pctxt)
{
    return pctxt->bufData + pctxt->bufIndex;
}

void xe_free(ASN1CTXT* pctxt)
{
    if (pctxt->bufDynamic && pctxt->bufData) {
        rtMemHeapFreePtr(&pctxt->typeHeap, pctxt->bufData);
        pctxt->bufData = nullptr;
        pctxt->bufDynamic = 0;
    }
}

int xe_expandBuffer(ASN1CTXT* pctxt, int needed)
{
    if (!pctxt->bufDynamic || !pctxt->bufData)
        return RT_E_BUFFER_FULL;
    // Linear growth: what is needed, at least one default block.
    int step = needed < (int)RT_BUFFER_GROWTH ? (int)RT_BUFFER_GROWTH : needed;
    unsigned long long newSize = (unsigned long long)pctxt->bufSize + (ASN1UINT)step;
    if (newSize > (unsigned long long)RT_MEMHEAP_MAX_ALLOC)
        return RT_E_NO_MEMORY;
    ASN1OCTET* grown = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, (int)newSize);
    if (!grown)
        return RT_E_NO_MEMORY;
    // Only the used tail moves; it keeps its distance from the end.
    ASN1UINT used = pctxt->bufSize - pctxt->bufIndex;
    memcpy(grown + (newSize - used), pctxt->bufData + pctxt->bufIndex, used);
    rtMemHeapFreePtr(&pctxt->typeHeap, pctxt->bufData);
    pctxt->bufData = grown;
    pctxt->bufSize = (ASN1UINT)newSize;
    pctxt->bufIndex += (ASN1UINT)step;
    return 0;
}

int xe_memcpy(ASN1CTXT* pctxt, const ASN1OCTET* data, int length)
{
    if (!data || length < 0)
        return RT_E_BAD_VALUE;
    if (pctxt->bufIndex < (ASN1UINT)length) {
        int stat = xe_expandBuffer(pctxt, length);
        if (stat != 0)
            return stat;
    }
    pctxt->bufIndex -= (ASN1UINT)length;
    if (length == 1)
        pctxt->bufData[pctxt->bufIndex] = *data;
    else if (length > 1)
        memcpy(pctxt->bufData + pctxt->bufIndex, data, (size_t)length);
    return length;
}

int xe_len(ASN1CTXT* pctxt, int length)
{
    if (length == RT_INDEFINITE_LENGTH) {
        const ASN1OCTET b = 0x80;
        return xe_memcpy(pctxt, &b, 1);
    }
    if (length < 0)
        return 0;
    Octets o;
    ASN1UINT v = (ASN1UINT)length;
    do {
        o.push((ASN1OCTET)v);
        v >>= 8;
    } while (v != 0);
    if (length >= 128)
        o.push((ASN1OCTET)(0x80 | o.size()));
    return writeOctets(pctxt, o);
}

int xe_tag(ASN1CTXT* pctxt, ASN1TAG tag)
{
    ASN1TAG number = tag & TM_IDCODE_MASK;
    ASN1OCTET top = (ASN1OCTET)((tag >> 24) & 0xe0);
    Octets o;
    if (number <= 30) {
        o.push((ASN1OCTET)(top | number));
    } else {
        o.push((ASN1OCTET)(number & 0x7f));
        for (number >>= 7; number != 0; number >>= 7)
            o.push((ASN1OCTET)(0x80 | (number & 0x7f)));
        o.push((ASN1OCTET)(top | TM_B_LONG_FORM));
    }
    return writeOctets(pctxt, o);
}

int xe_tag_len(ASN1CTXT* pctxt, ASN1TAG tag, int length)
{
    // A failure handed in as the length comes straight back.
    if (length < 0 && length != RT_INDEFINITE_LENGTH)
        return length;
    int lenOctets = xe_len(pctxt, length);
    if (lenOctets < 0)
        return lenOctets;
    int total = (int)((ASN1UINT)(length == RT_INDEFINITE_LENGTH ? 0 : length) + (ASN1UINT)lenOctets);
    if (total < 1)
        return total;
    int tagOctets = xe_tag(pctxt, tag);
    if (tagOctets < 0)
        return tagOctets;
    return (int)((ASN1UINT)total + (ASN1UINT)tagOctets);
}

int xe_identifier(ASN1CTXT* pctxt, ASN1UINT value)
{
    Octets o;
    o.push((ASN1OCTET)(value & 0x7f));
    for (value >>= 7; value != 0; value >>= 7)
        o.push((ASN1OCTET)(0x80 | (value & 0x7f)));
    return writeOctets(pctxt, o);
}

void xe_getBufLocDescr(ASN1CTXT* pctxt, ASN1UINT length, Asn1BufLocDescr* descr)
{
    descr->numocts = length;
    descr->offset = pctxt->bufSize - 1 - pctxt->bufIndex;
}

int xe_derCanonicalSort(ASN1CTXT* pctxt, Asn1RTSList* list)
{
    if (!list || !list->head)
        return 0;
    const ASN1UINT used = pctxt->bufSize - 1 - pctxt->bufIndex;
    unsigned long long sum = 0;
    for (Asn1RTSListNode* n = list->head; n; n = n->next) {
        const Asn1BufLocDescr* d = (const Asn1BufLocDescr*)n->data;
        // A record that does not describe written octets would send the sort astray.
        if (!d || d->offset >= pctxt->bufSize || d->numocts > d->offset ||
            pctxt->bufSize - 1 - d->offset < pctxt->bufIndex)
            return RT_E_BAD_VALUE;
        sum += d->numocts;
    }
    if (sum > used)
        return RT_E_BAD_VALUE;
    const ASN1UINT total = (ASN1UINT)sum;
    auto valueAt = [pctxt](const Asn1BufLocDescr* d) {
        return pctxt->bufData + (pctxt->bufSize - 1 - d->offset);
    };

    // Bubble passes into descending order; with the head at the high end of the buffer
    // the message reads ascending, a prefix before the longer value, equal values stable.
    bool everSwapped = false;
    bool swapped;
    do {
        swapped = false;
        for (Asn1RTSListNode* n = list->head; n && n->next; n = n->next) {
            const Asn1BufLocDescr* a = (const Asn1BufLocDescr*)n->data;
            const Asn1BufLocDescr* b = (const Asn1BufLocDescr*)n->next->data;
            ASN1UINT common = a->numocts < b->numocts ? a->numocts : b->numocts;
            int cmp = common ? memcmp(valueAt(a), valueAt(b), common) : 0;
            if (cmp < 0 || (cmp == 0 && a->numocts < b->numocts)) {
                void* t = n->data;
                n->data = n->next->data;
                n->next->data = t;
                swapped = true;
                everSwapped = true;
            }
        }
    } while (swapped);

    ASN1OCTET* scratch = nullptr;
    if (everSwapped) {
        scratch = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, (int)total);
        if (!scratch)
            return RT_E_NO_MEMORY;
    }
    ASN1UINT pos = total;
    for (Asn1RTSListNode* n = list->head; n;) {
        Asn1RTSListNode* next = n->next;
        Asn1BufLocDescr* d = (Asn1BufLocDescr*)n->data;
        if (scratch) {
            pos -= d->numocts;
            memcpy(scratch + pos, valueAt(d), d->numocts);
        }
        rtMemHeapFreePtr(&pctxt->typeHeap, d);
        // Nodes go back the way the list took them.
        if (list->pctxt)
            rtMemHeapFreePtr(&list->pctxt->typeHeap, n);
        else
            free(n);
        n = next;
    }
    list->count = 0;
    list->head = list->tail = nullptr;
    if (scratch) {
        memcpy(pctxt->bufData + pctxt->bufIndex, scratch, total);
        rtMemHeapFreePtr(&pctxt->typeHeap, scratch);
    }
    return (int)total;
}

int xe_boolean(ASN1CTXT* pctxt, const ASN1BOOL* value, int tagging)
{
    if (!value)
        return RT_E_BAD_VALUE;
    const ASN1OCTET b = *value ? 0xff : 0x00;
    int len = xe_memcpy(pctxt, &b, 1);
    if (len >= 0 && tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_BOOL, len);
    return len;
}

int xe_integer(ASN1CTXT* pctxt, const ASN1INT* value, int tagging)
{
    if (!value)
        return RT_E_BAD_VALUE;
    const ASN1INT v = *value;
    Octets o;
    ASN1INT rest = v;
    do {
        o.push((ASN1OCTET)(rest & 0xff));
        rest >>= 8;  // arithmetic: a negative value ends at -1
    } while (rest != 0 && rest != -1);
    if (v >= 0 && (o.top() & 0x80))
        o.push(0x00);
    else if (v < 0 && !(o.top() & 0x80))
        o.push(0xff);
    int len = writeOctets(pctxt, o);
    if (len >= 1 && tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_INT, len);
    return len;
}

// The unsigned writers of every width share one body.
static int writeUnsigned(ASN1CTXT* pctxt, ASN1UINT value, int tagging)
{
    int len = writeOctets(pctxt, unsignedOctets(value));
    if (len >= 1 && tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_INT, len);
    return len;
}

int xe_unsigned(ASN1CTXT* pctxt, const ASN1UINT* value, int tagging)
{
    if (!value)
        return RT_E_BAD_VALUE;
    return writeUnsigned(pctxt, *value, tagging);
}

int xe_uint16(ASN1CTXT* pctxt, const ASN1USINT* value, int tagging)
{
    if (!value)
        return RT_E_BAD_VALUE;
    return writeUnsigned(pctxt, *value, tagging);
}

int xe_enum(ASN1CTXT* pctxt, const ASN1ENUM* value, int tagging)
{
    if (!value)
        return RT_E_BAD_VALUE;
    int len = xe_integer(pctxt, value, ASN1IMPL);
    if (tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_ENUM, len);
    return len;
}

int xe_null(ASN1CTXT* pctxt, int tagging)
{
    if (tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_NULL, 0);
    return 0;
}

int xe_octstr(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numocts, int tagging)
{
    int len = 0;
    if (data && numocts) {
        if (numocts > 0x7fffffffu)
            return RT_E_BAD_VALUE;
        len = xe_memcpy(pctxt, data, (int)numocts);
        if (len < 0)
            return len;
    }
    if (tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_OCTSTR, len);
    return len;
}

int xe_bitstr(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numbits, int tagging)
{
    int len;
    if (numbits == 0) {
        const ASN1OCTET zero = 0;
        len = xe_memcpy(pctxt, &zero, 1);
    } else {
        if (!data)
            return 0;
        const ASN1OCTET unused = (ASN1OCTET)((numbits % 8) ? 8 - numbits % 8 : 0);
        // The unused bits go out as they stand, unmasked.
        const ASN1UINT octets = numbits / 8 + ((numbits % 8) ? 1 : 0);
        len = xe_memcpy(pctxt, data, (int)octets);
        if (len < 0)
            return len;
        int u = xe_memcpy(pctxt, &unused, 1);
        if (u < 0)
            return u;
        len += u;
    }
    if (len >= 1 && tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_BITSTR, len);
    return len;
}

int xe_charstr(ASN1CTXT* pctxt, const char* text, int tagging, ASN1TAG tag)
{
    if (!text)
        return RT_E_BAD_VALUE;
    int len = xe_octstr(pctxt, (const ASN1OCTET*)text, (ASN1UINT)strlen(text), ASN1IMPL);
    if (tagging == ASN1EXPL)
        return xe_tag_len(pctxt, tag, len);
    return len;
}

int xe_16BitCharStr(ASN1CTXT* pctxt, const Asn116BitCharString* value, int tagging, ASN1TAG tag)
{
    if (!value)
        return RT_E_BAD_VALUE;
    return writeWide<2>(pctxt, value->data, value->nchars, tagging, tag);
}

int xe_32BitCharStr(ASN1CTXT* pctxt, const Asn132BitCharString* value, int tagging, ASN1TAG tag)
{
    if (!value)
        return RT_E_BAD_VALUE;
    return writeWide<4>(pctxt, value->data, value->nchars, tagging, tag);
}

int xe_objid(ASN1CTXT* pctxt, const ASN1OBJID* value, int tagging)
{
    if (!value || value->numids < 2 || value->numids > ASN_K_MAXSUBIDS || value->subid[0] > 2 ||
        (value->subid[0] < 2 && value->subid[1] > 39))
        return RT_E_BAD_OBJID;
    int len = 0;
    for (ASN1UINT k = value->numids; k > 2; --k) {
        int r = xe_identifier(pctxt, value->subid[k - 1]);
        if (r < 0)
            return r;
        len += r;
    }
    int r = xe_identifier(pctxt, value->subid[0] * 40 + value->subid[1]);
    if (r < 0)
        return r;
    len += r;
    if (len >= 1 && tagging == ASN1EXPL)
        return xe_tag_len(pctxt, ASN_ID_OBJID, len);
    return len;
}

}  // extern "C"
