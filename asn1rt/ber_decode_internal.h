// Helpers shared by the BER reading files; not part of the runtime's interface.
#pragma once

#include "asn1rt/ber.h"

namespace asn1rt {
namespace detail {

inline int setErr(ASN1CTXT* pctxt, int status)
{
    return rtErrSetData(&pctxt->errInfo, status);
}

inline void setFormFlag(ASN1CTXT* pctxt, ASN1OCTET identifier)
{
    if (identifier & TM_B_CONS)
        pctxt->flags |= RT_FLAG_CONSTRUCTED;
    else
        pctxt->flags &= (ASN1USINT)~RT_FLAG_CONSTRUCTED;
}

// xu_SaveBufferState into savedState, without a call through the exported name.
inline void noteState(ASN1CTXT* pctxt)
{
    pctxt->savedState.index = pctxt->bufIndex;
    pctxt->savedState.bitOffset = pctxt->bitOffset;
    pctxt->savedState.flags = pctxt->flags;
}

// Cursor, bit offset and flags back exactly as xd_tag_len noted them.
inline void restoreSaved(ASN1CTXT* pctxt)
{
    pctxt->bufIndex = pctxt->savedState.index;
    pctxt->bitOffset = pctxt->savedState.bitOffset;
    pctxt->flags = pctxt->savedState.flags;
}

// Fewer than two octets left, or two zero octets at the cursor.
inline bool atIndefiniteEnd(const ASN1CTXT* pctxt)
{
    ASN1UINT i = pctxt->bufIndex;
    if (i >= pctxt->bufSize || pctxt->bufSize - i < 2)
        return true;
    return pctxt->bufData[i] == 0 && pctxt->bufData[i + 1] == 0;
}

// Moves the cursor over a definite content length.  The cursor may end behind bufSize,
// where the next read fails; a negative length (only with unchecked lengths) is refused.
inline int skipContent(ASN1CTXT* pctxt, int length)
{
    if (length < 0)
        return RT_E_BAD_LENGTH;
    unsigned long long next = (unsigned long long)pctxt->bufIndex + (ASN1UINT)length;
    pctxt->bufIndex = next > 0xffffffffull ? 0xffffffffu : (ASN1UINT)next;
    return 0;
}

// Whether `length` content octets lie between the cursor and bufSize.
inline bool contentFits(const ASN1CTXT* pctxt, int length)
{
    return length >= 0 && (unsigned long long)pctxt->bufIndex + (ASN1UINT)length <= pctxt->bufSize;
}

// A primitive OCTET STRING of definite length under RT_FLAG_SHARE_INPUT: a view into the
// message, the cursor behind it.  Inline so that a walk over many strings pays no call.
inline int shareOctets(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numocts, int length)
{
    if (!contentFits(pctxt, length))
        return setErr(pctxt, RT_E_END_OF_BUFFER);
    *numocts = (ASN1UINT)length;
    *data = pctxt->bufData + pctxt->bufIndex;
    pctxt->bufIndex += (ASN1UINT)length;
    return 0;
}

// The same for a primitive BIT STRING of at least two content octets: data behind the
// unused-bits octet; an unused count of 8 or more is a bare -18 with null data.
inline int shareBits(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numbits, int length)
{
    if (!contentFits(pctxt, length))
        return RT_E_END_OF_BUFFER;  // bare
    const ASN1OCTET unused = pctxt->bufData[pctxt->bufIndex];
    if (unused >= 8) {
        *data = nullptr;
        return RT_E_BAD_VALUE;  // bare
    }
    *numbits = (ASN1UINT)length * 8 - 8 - unused;
    *data = pctxt->bufData + pctxt->bufIndex + 1;
    pctxt->bufIndex += (ASN1UINT)length;
    return 0;
}

// Identifier octets into a tag word; sets the form flag.  0, -21 (more than nine number
// octets or a number past 0x1fffffff) or -2 (the identifier runs past bufSize).
int readIdentifier(ASN1CTXT* pctxt, ASN1TAG* tag);

// The length behind a one-octet identifier: one octet under 0x80 directly, else xd_len.
// -2 (bare) when no octet is left for it.
int readShortOrLongLength(ASN1CTXT* pctxt, int* len);

// Reads elements until `depth` open indefinite-length elements have closed at their
// end-of-contents (with 0: one whole element, whatever its form).  0 or a status.
int skipNested(ASN1CTXT* pctxt, unsigned long depth);

// From the first octet of an indefinite-length element (its header included) to behind
// its end-of-contents, counting nesting; the cursor at the end (the element's total size
// when it started at 0).
int measureIndefinite(ASN1CTXT* pctxt);

// The explicit header of the value readers: the exact primitive identifier, then the
// length.  0, -3, -2 or the status of xd_len; nothing is recorded here but by xd_len.
int explicitHeader(ASN1CTXT* pctxt, ASN1OCTET identifier, bool clearForm, int* len);

}  // namespace detail
}  // namespace asn1rt
