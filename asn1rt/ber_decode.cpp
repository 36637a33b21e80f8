// Reading BER: tags, lengths, element navigation and open types.
//
// Every read checks the cursor against bufSize, also where the fast paths skip the
// length-against-buffer test: a read that would pass the end of the message gives -2.
#include "asn1rt/ber.h"

#include <string.h>

#include "asn1rt/ber_decode_internal.h"

using namespace asn1rt::detail;

namespace asn1rt {
namespace detail {

int readIdentifier(ASN1CTXT* pctxt, ASN1TAG* tag)
{
    const ASN1OCTET* p = pctxt->bufData;
    ASN1UINT i = pctxt->bufIndex;
    const ASN1UINT end = pctxt->bufSize;
    if (i >= end)
        return RT_E_END_OF_BUFFER;
    ASN1OCTET id = p[i++];
    unsigned long long number = id & TM_B_IDCODE_MASK;
    if (number == TM_B_LONG_FORM) {
        number = 0;
        for (unsigned octets = 0;; ++octets) {
            if (octets == 9) {
                pctxt->bufIndex = i;
                return RT_E_BAD_TAG;
            }
            if (i >= end) {
                pctxt->bufIndex = i;
                return RT_E_END_OF_BUFFER;
            }
            ASN1OCTET b = p[i++];
            number = (number << 7) | (b & 0x7f);
            if (number > TM_MAX_IDCODE) {
                pctxt->bufIndex = i;
                return RT_E_BAD_TAG;
            }
            if (b < 0x80)
                break;
        }
    }
    pctxt->bufIndex = i;
    setFormFlag(pctxt, id);
    *tag = ((ASN1TAG)(id & 0xe0) << 24) | (ASN1TAG)number;
    return 0;
}

int readShortOrLongLength(ASN1CTXT* pctxt, int* len)
{
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize)
        return RT_E_END_OF_BUFFER;
    ASN1OCTET b = pctxt->bufData[i];
    if (b < 0x80) {
        pctxt->bufIndex = i + 1;
        *len = b;
        return 0;
    }
    return xd_len(pctxt, len);
}

int skipNested(ASN1CTXT* pctxt, unsigned long depth)
{
    // A counter, not recursion: the depth of nesting costs nothing but the counter.
    do {
        ASN1TAG t;
        int l = 0;
        int stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
        if (stat != 0)
            return stat;
        if (l == RT_INDEFINITE_LENGTH) {
            ++depth;
        } else if (l > 0) {
            stat = skipContent(pctxt, l);
            if (stat != 0)
                return stat;
        } else if (l < 0) {
            return RT_E_BAD_LENGTH;
        } else if (t == 0 && depth > 0) {
            --depth;
        }
    } while (depth > 0);
    return 0;
}

int measureIndefinite(ASN1CTXT* pctxt)
{
    int stat = skipNested(pctxt, 0);
    if (stat != 0)
        return stat;
    return pctxt->bufIndex > 0x7fffffffu ? RT_E_BAD_LENGTH : (int)pctxt->bufIndex;
}

int explicitHeader(ASN1CTXT* pctxt, ASN1OCTET identifier, bool clearForm, int* len)
{
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize)
        return RT_E_END_OF_BUFFER;
    if (pctxt->bufData[i] != identifier)
        return RT_E_TAG_MISMATCH;
    if (clearForm)
        pctxt->flags &= (ASN1USINT)~RT_FLAG_CONSTRUCTED;
    pctxt->bufIndex = ++i;
    if (i >= pctxt->bufSize)
        return RT_E_END_OF_BUFFER;
    return readShortOrLongLength(pctxt, len);
}

}  // namespace detail
}  // namespace asn1rt

extern "C" {

void xu_SaveBufferState(ASN1CTXT* pctxt, RtBufferState* slot)
{
    RtBufferState* s = slot ? slot : &pctxt->savedState;
    s->index = pctxt->bufIndex;
    s->bitOffset = pctxt->bitOffset;
    s->flags = pctxt->flags;
}

void xu_RestoreBufferState(ASN1CTXT* pctxt, RtBufferState* slot)
{
    const RtBufferState* s = slot ? slot : &pctxt->savedState;
    pctxt->bufIndex = s->index;
    pctxt->bitOffset = s->bitOffset;
    pctxt->flags = (ASN1USINT)(s->flags & ~RT_FLAG_LAST_EOC);
}

int xd_tag(ASN1CTXT* pctxt, ASN1TAG* tag)
{
    return readIdentifier(pctxt, tag);
}

int xd_len(ASN1CTXT* pctxt, int* len)
{
    const ASN1OCTET* p = pctxt->bufData;
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize)
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    ASN1OCTET first = p[i++];
    pctxt->bufIndex = i;
    if (first == 0x80) {
        *len = RT_INDEFINITE_LENGTH;
        return 0;
    }
    if (first < 0x80) {
        *len = first;
        return 0;
    }
    unsigned n = first & 0x7f;
    if (n >= 5)
        return setErr(pctxt, RT_E_BAD_LENGTH);
    ASN1UINT v = 0;
    for (unsigned k = 0; k < n; ++k) {
        if (i >= pctxt->bufSize) {
            pctxt->bufIndex = i;
            return setErr(pctxt, RT_E_END_OF_BUFFER);
        }
        v = (v << 8) | p[i++];
    }
    pctxt->bufIndex = i;
    int value = (int)v;
    if (value == RT_INDEFINITE_LENGTH) {
        *len = RT_INDEFINITE_LENGTH;
        return 0;
    }
    if (!(pctxt->flags & RT_FLAG_LEN_UNCHECKED)) {
        if (value < 0 || v > pctxt->bufSize - i)
            return setErr(pctxt, RT_E_BAD_LENGTH);
    }
    *len = value;
    return 0;
}

int xd_tag_len(ASN1CTXT* pctxt, ASN1TAG* tag, int* len, int mode)
{
    if (pctxt->flags & RT_FLAG_INDEF_TOP) {
        if (pctxt->flags & RT_FLAG_LAST_EOC)
            return RT_E_END_OF_BUFFER;
    }
    if (pctxt->bufIndex >= pctxt->bufSize)
        return RT_E_END_OF_BUFFER;

    noteState(pctxt);
    ASN1TAG t = 0;
    int lenValue = 0;
    int stat = readIdentifier(pctxt, &t);
    if (stat == 0) {
        if (tag)
            *tag = t;
        if (pctxt->bufIndex >= pctxt->bufSize) {
            stat = RT_E_END_OF_BUFFER;
        } else {
            ASN1OCTET b = pctxt->bufData[pctxt->bufIndex];
            if (b < 0x80) {
                pctxt->bufIndex++;
                lenValue = b;
            } else {
                stat = xd_len(pctxt, &lenValue);
                if (stat == 0 && lenValue == RT_INDEFINITE_LENGTH && !(t & TM_CONS)) {
                    // An indefinite primitive is refused on the spot, peek or not.
                    return RT_E_BAD_LENGTH;
                }
            }
            if (stat == 0 && len)
                *len = lenValue;
        }
    }
    if (mode & RT_MATCH_ADVANCE)
        return stat;
    restoreSaved(pctxt);
    return stat;
}

int xd_setp(ASN1CTXT* pctxt, const ASN1OCTET* msg, int msglen, ASN1TAG* tag, int* len)
{
    int stat = rtInitContextBuffer(pctxt, msg, msglen > 0 ? (ASN1UINT)msglen : 0x7fffffffu);
    if (stat != 0)
        return stat;
    pctxt->flags &= (ASN1USINT)~(RT_FLAG_LAST_EOC | RT_FLAG_INDEF_TOP);

    ASN1TAG t = 0;
    int l = 0;
    stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
    if (stat == RT_E_BAD_LENGTH) {
        pctxt->bufIndex = 0;
        return stat;
    }
    if (stat != 0)
        return stat;

    if (l == RT_INDEFINITE_LENGTH) {
        pctxt->flags |= RT_FLAG_INDEF_TOP;
        if (len)
            *len = RT_INDEFINITE_LENGTH;
    } else {
        long long end = (long long)pctxt->bufIndex + l;
        if (end < 0)
            end = 0;
        if (!((pctxt->flags & RT_FLAG_LEN_UNCHECKED) && end > (long long)pctxt->bufSize))
            pctxt->bufSize = (ASN1UINT)end;
        if (len)
            *len = (int)end;
        if (msglen > 0 && pctxt->bufSize > (ASN1UINT)msglen) {
            // The element claims more than was given; the cursor must not follow it.
            pctxt->bufSize = (ASN1UINT)msglen;
            stat = RT_E_BAD_LENGTH;
        }
    }
    pctxt->bufIndex = 0;
    if (tag)
        *tag = t;
    return stat;
}

int xd_match(ASN1CTXT* pctxt, ASN1TAG tag, int* len, int mode)
{
    ASN1TAG t = 0;
    int l = 0;
    int stat;
    if (mode & RT_MATCH_SKIP_FIRST) {
        // Noted here too, for a read that fails before xd_tag_len notes anything.
        xu_SaveBufferState(pctxt, nullptr);
        stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
        if (stat != 0) {
            restoreSaved(pctxt);
            return stat == RT_E_END_OF_BUFFER ? RT_E_TAG_MISMATCH : stat;
        }
        if (!(t & TM_CONS)) {
            stat = skipContent(pctxt, l);
            if (stat != 0)
                return stat;
        }
    }

    RtBufferState local;
    xu_SaveBufferState(pctxt, &local);
    for (;;) {
        stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
        if (stat != 0)
            break;
        if ((t & TM_MATCH_MASK) == (tag & TM_MATCH_MASK)) {
            if (len)
                *len = l;
            if (!(mode & RT_MATCH_ADVANCE))
                restoreSaved(pctxt);
            return 0;
        }
        if (!(mode & RT_MATCH_SEEK)) {
            stat = RT_E_TAG_MISMATCH;
            break;
        }
        // Constructed elements are entered, so the search reaches their members.
        if (!(t & TM_CONS)) {
            stat = skipContent(pctxt, l);
            if (stat != 0)
                break;
        }
    }
    xu_RestoreBufferState(pctxt, &local);
    return stat == RT_E_END_OF_BUFFER ? RT_E_TAG_MISMATCH : stat;
}

int xd_match1(ASN1CTXT* pctxt, ASN1OCTET tag, int* len)
{
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize)
        return RT_E_END_OF_BUFFER;
    ASN1OCTET b = pctxt->bufData[i];
    if ((b & TM_B_MATCH_MASK) != (tag & TM_B_MATCH_MASK))
        return setErr(pctxt, RT_E_TAG_MISMATCH);
    pctxt->bufIndex = i + 1;
    setFormFlag(pctxt, b);
    int l = 0;
    int stat = readShortOrLongLength(pctxt, &l);
    if (stat != 0)
        return stat;
    if (len) {
        if (l == RT_INDEFINITE_LENGTH && !(b & TM_B_CONS))
            return setErr(pctxt, RT_E_BAD_LENGTH);
        *len = l;
    }
    return 0;
}

int xd_Tag1AndLen(ASN1CTXT* pctxt, int* len)
{
    if ((pctxt->flags & RT_FLAG_INDEF_TOP) && (pctxt->flags & RT_FLAG_LAST_EOC))
        return RT_E_END_OF_BUFFER;
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize)
        return RT_E_END_OF_BUFFER;
    setFormFlag(pctxt, pctxt->bufData[i]);
    pctxt->bufIndex = i + 1;
    int l = 0;
    int stat = readShortOrLongLength(pctxt, &l);
    if (stat == 0 && len)
        *len = l;
    return stat;
}

int xd_NextElement(ASN1CTXT* pctxt)
{
    ASN1TAG t;
    int l = 0;
    int stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
    if (stat != 0)
        return stat;
    if (l == RT_INDEFINITE_LENGTH)
        return xd_MovePastEOC(pctxt);
    return skipContent(pctxt, l);
}

int xd_MovePastEOC(ASN1CTXT* pctxt)
{
    return skipNested(pctxt, 1);
}

int xd_count(ASN1CTXT* pctxt, int length, int* count)
{
    ASN1SINT bitOffset = pctxt->bitOffset;
    ASN1UINT8 dynamic = pctxt->bufDynamic;
    ASN1OCTET* data = pctxt->bufData;
    ASN1UINT index = pctxt->bufIndex;
    ASN1UINT size = pctxt->bufSize;

    int n = 0;
    if (length == RT_INDEFINITE_LENGTH) {
        while (!atIndefiniteEnd(pctxt)) {
            int stat = xd_NextElement(pctxt);
            if (stat != 0)
                return stat;
            ++n;
        }
    } else {
        while ((long long)pctxt->bufIndex - (long long)index < (long long)length &&
               pctxt->bufIndex < pctxt->bufSize) {
            int stat = xd_NextElement(pctxt);
            if (stat != 0)
                return stat;
            ++n;
        }
    }
    pctxt->bitOffset = bitOffset;
    pctxt->bufDynamic = dynamic;
    pctxt->bufData = data;
    pctxt->bufIndex = index;
    pctxt->bufSize = size;
    *count = n;
    return 0;
}

int xd_consStrIndefLenAndSize(ASN1CTXT* pctxt, ASN1TAG tagnum, int* content, int* span)
{
    RtBufferState local;
    xu_SaveBufferState(pctxt, &local);
    ASN1UINT start = pctxt->bufIndex;
    long long sum = 0;
    ASN1UINT eoc = start;
    for (;;) {
        eoc = pctxt->bufIndex;
        ASN1TAG t;
        int l = 0;
        int stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
        if (stat != 0)
            return stat;
        // The whole word counts here, form bit included: a constructed segment is refused.
        if (t != 0 && t != tagnum)
            return RT_E_BAD_TAG;
        if (t == 0 && l == 0)
            break;
        if (l == 0)
            continue;
        if (l < 0)
            return RT_E_BAD_LENGTH;
        stat = skipContent(pctxt, l);
        if (stat != 0)
            return stat;
        sum += l;
        if (sum > 0x7fffffffLL)
            return RT_E_BAD_LENGTH;
    }
    *content = (int)sum;
    *span = (int)(eoc - start);
    xu_RestoreBufferState(pctxt, &local);
    return 0;
}

int xd_indeflen_ex(const ASN1OCTET* msg, int limit)
{
    if (limit < 5)
        return 0;
    ASN1CTXT local;
    int stat = rtInitContext(&local, nullptr);
    if (stat != 0)
        return stat;
    // The limit doubles as the message size, so that no read passes it.
    int l = 0;
    stat = xd_setp(&local, msg, limit, nullptr, &l);
    if (stat == 0 && l != RT_INDEFINITE_LENGTH)
        stat = RT_E_BAD_LENGTH;
    if (stat == 0) {
        local.bufSize = (ASN1UINT)limit;
        stat = measureIndefinite(&local);
    }
    rtFreeContext(&local);
    return stat;
}

int xd_memcpy(ASN1CTXT* pctxt, ASN1OCTET* dest, int length)
{
    if (length < 0 || (unsigned long long)pctxt->bufIndex + (ASN1UINT)length > pctxt->bufSize)
        return RT_E_END_OF_BUFFER;
    if (length > 0)
        memcpy(dest, pctxt->bufData + pctxt->bufIndex, (size_t)length);
    pctxt->bufIndex += (ASN1UINT)length;
    return 0;
}

int xd_OpenType(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numocts)
{
    ASN1UINT start = pctxt->bufIndex;
    ASN1TAG t = 0;
    int l = 0;
    int stat = xd_tag_len(pctxt, &t, &l, RT_MATCH_ADVANCE);
    bool headerRead = stat == 0;
    if (headerRead) {
        if (l > 0) {
            if ((unsigned long long)pctxt->bufIndex + (ASN1UINT)l > pctxt->bufSize)
                return RT_E_BAD_VALUE;
            pctxt->bufIndex += (ASN1UINT)l;
        } else if (l == RT_INDEFINITE_LENGTH) {
            stat = xd_MovePastEOC(pctxt);
        } else if (l == 0 && t == 0) {
            return RT_E_BAD_VALUE;
        } else if (l < 0) {
            return RT_E_BAD_VALUE;
        }
    }
    // What exists of the element, never more than the message holds.
    ASN1UINT available = pctxt->bufSize > start ? pctxt->bufSize - start : 0;
    if (headerRead) {
        ASN1UINT size = pctxt->bufIndex - start;
        *numocts = size < available ? size : available;
    } else if (*numocts > available) {
        *numocts = available;
    }
    if (pctxt->flags & RT_FLAG_SHARE_INPUT) {
        *data = pctxt->bufData + start;
    } else {
        ASN1OCTET* copy = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, (int)*numocts);
        if (!copy)
            return RT_E_NO_MEMORY;
        if (*numocts)
            memcpy(copy, pctxt->bufData + start, *numocts);
        *data = copy;
    }
    // Running into the end of the message still counts as read.
    return stat == RT_E_END_OF_BUFFER ? 0 : stat;
}

int xd_OpenTypeAppend(ASN1CTXT* pctxt, Asn1RTDList* list)
{
    if (!list) {
        int stat = xd_NextElement(pctxt);
        return stat != 0 ? setErr(pctxt, stat) : 0;
    }
    void* block = rtMemHeapAllocZ(&pctxt->typeHeap, (int)(sizeof(Asn1RTDListNode) + sizeof(ASN1OpenType)));
    if (!block)
        return setErr(pctxt, RT_E_NO_MEMORY);
    ASN1OpenType* value = (ASN1OpenType*)((char*)block + sizeof(Asn1RTDListNode));
    int stat = xd_OpenType(pctxt, &value->data, &value->numocts);
    if (stat != 0)
        return setErr(pctxt, stat);
    rtDListAppendNode(pctxt, list, value);
    return 0;
}

int xd_OpenTypeExt(ASN1CTXT* pctxt, ASN1DecodeBlock* block, ASN1TAG stopTag, Asn1RTDList* list)
{
    for (;;) {
        if (stopTag != 0xffffffffu) {
            int stat = xd_match(pctxt, stopTag, nullptr, 0);
            if (stat != RT_E_TAG_MISMATCH)
                return stat != 0 ? setErr(pctxt, stat) : 0;
        }
        bool end;
        if (block->length == RT_INDEFINITE_LENGTH)
            end = atIndefiniteEnd(pctxt);
        else
            end = (long long)pctxt->bufIndex - (long long)block->start >= (long long)block->length ||
                  pctxt->bufIndex >= pctxt->bufSize;
        if (end)
            return stopTag == 0xffffffffu ? 0 : setErr(pctxt, RT_E_END_OF_BUFFER);
        ASN1UINT before = pctxt->bufIndex;
        int stat = xd_OpenTypeAppend(pctxt, list);
        if (stat != 0)
            return stat;
        // An open type that ran into the end reads as success without moving.
        if (pctxt->bufIndex == before)
            return setErr(pctxt, RT_E_END_OF_BUFFER);
    }
}

}  // extern "C"
