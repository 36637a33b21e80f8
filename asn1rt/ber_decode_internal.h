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

// Identifier octets into a tag word; sets the form flag.  0, -21 (more than nine number
// octets or a number past 0x1fffffff) or -2 (the identifier runs past bufSize).
int readIdentifier(ASN1CTXT* pctxt, ASN1TAG* tag);

// The length behind a one-octet identifier: one octet under 0x80 directly, else xd_len.
// -2 (bare) when no octet is left for it.
int readShortOrLongLength(ASN1CTXT* pctxt, int* len);

// From just behind an indefinite-length header to behind its end-of-contents, counting
// nesting; the cursor at the end (the element's total size when it started at 0).
int measureIndefinite(ASN1CTXT* pctxt);

// The explicit header of the value readers: the exact primitive identifier, then the
// length.  0, -3, -2 or the status of xd_len; nothing is recorded here but by xd_len.
int explicitHeader(ASN1CTXT* pctxt, ASN1OCTET identifier, bool clearForm, int* len);

}  // namespace detail
}  // namespace asn1rt
