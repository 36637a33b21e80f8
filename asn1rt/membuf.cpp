// The growing memory buffer, the bit functions and the forward-writing buffer
// functions.
#include "asn1rt/lists.h"
#include "asn1rt/stream.h"

#include <string.h>

namespace {

// Growth common to rtMemBufAppend, rtMemBufSet and rtMemBufPreAllocate (steps 2 and 3).
int reserve(Asn1RTMemBuf* pMemBuf, ASN1UINT nbytes)
{
    if (static_cast<ASN1UINT64>(pMemBuf->usedcnt) + nbytes <= pMemBuf->bufsize)
        return 0;
    if (pMemBuf->segsize == 0)
        return RT_E_BAD_ARGUMENT;  // a segment size of 0 is not allowed
    const ASN1UINT64 segments = (static_cast<ASN1UINT64>(pMemBuf->usedcnt) + nbytes - 1) / pMemBuf->segsize + 1;
    const ASN1UINT64 size = segments * pMemBuf->segsize;
    if (size > RT_MEMHEAP_MAX_ALLOC)
        return RT_E_NO_MEMORY;
    void* data;
    if (pMemBuf->isDynamic && pMemBuf->buffer != nullptr) {
        data = rtMemHeapRealloc(&pMemBuf->pctxt->typeHeap, pMemBuf->buffer, static_cast<int>(size));
    } else {
        data = rtMemHeapAlloc(&pMemBuf->pctxt->typeHeap, static_cast<int>(size));
        if (data != nullptr)
            pMemBuf->isDynamic = 1;
    }
    if (data == nullptr)
        return RT_E_NO_MEMORY;
    pMemBuf->buffer = static_cast<ASN1OCTET*>(data);
    pMemBuf->bufsize = static_cast<ASN1UINT>(size);
    return 0;
}

}  // namespace

extern "C" {

ASN1RT_API void rtMemBufInit(ASN1CTXT* pctxt, Asn1RTMemBuf* pMemBuf, ASN1UINT segsize)
{
    memset(pMemBuf, 0, sizeof(Asn1RTMemBuf));
    pMemBuf->pctxt = pctxt;
    pMemBuf->segsize = segsize;
    pMemBuf->isDynamic = 1;
}

ASN1RT_API void rtMemBufFree(Asn1RTMemBuf* pMemBuf)
{
    if (pMemBuf->isDynamic && pMemBuf->buffer != nullptr)
        rtMemHeapFreePtr(&pMemBuf->pctxt->typeHeap, pMemBuf->buffer);
}

ASN1RT_API void rtMemBufReset(Asn1RTMemBuf* pMemBuf)
{
    pMemBuf->startidx = 0;
    pMemBuf->usedcnt = 0;
    pMemBuf->reserved[0] = 0;
    pMemBuf->reserved[1] = 0;
}

ASN1RT_API int rtMemBufAppend(Asn1RTMemBuf* pMemBuf, const ASN1OCTET* pdata, ASN1UINT nbytes)
{
    if (nbytes == 0)
        return 0;
    int stat = reserve(pMemBuf, nbytes);
    if (stat != 0)
        return stat;
    if (pdata == nullptr)
        return 0;  // reserves only
    memcpy(pMemBuf->buffer + pMemBuf->usedcnt, pdata, nbytes);
    pMemBuf->usedcnt += nbytes;
    return 0;
}

ASN1RT_API int rtMemBufSet(Asn1RTMemBuf* pMemBuf, ASN1OCTET value, ASN1UINT nbytes)
{
    if (nbytes == 0)
        return 0;
    int stat = reserve(pMemBuf, nbytes);
    if (stat != 0)
        return stat;
    memset(pMemBuf->buffer + pMemBuf->usedcnt, value, nbytes);
    pMemBuf->usedcnt += nbytes;
    return 0;
}

ASN1RT_API int rtMemBufPreAllocate(Asn1RTMemBuf* pMemBuf, ASN1UINT nbytes)
{
    if (nbytes == 0)
        return 0;
    return reserve(pMemBuf, nbytes);
}

ASN1RT_API ASN1OCTET* rtMemBufGetData(Asn1RTMemBuf* pMemBuf, int* length)
{
    if (length != nullptr)
        *length = static_cast<int>(pMemBuf->usedcnt - pMemBuf->startidx);
    if (pMemBuf->buffer == nullptr)
        return nullptr;
    return pMemBuf->buffer + pMemBuf->startidx;
}

ASN1RT_API int rtSetBit(ASN1OCTET* pBits, ASN1UINT numbits, ASN1UINT bitIndex)
{
    if (bitIndex >= numbits)
        return RT_E_OUT_OF_RANGE;
    const ASN1OCTET mask = static_cast<ASN1OCTET>(0x80u >> (bitIndex % 8));
    const int old = pBits[bitIndex / 8] & mask;
    pBits[bitIndex / 8] = static_cast<ASN1OCTET>(pBits[bitIndex / 8] | mask);
    return old;
}

ASN1RT_API int rtClearBit(ASN1OCTET* pBits, ASN1UINT numbits, ASN1UINT bitIndex)
{
    if (bitIndex >= numbits)
        return RT_E_OUT_OF_RANGE;
    const ASN1OCTET mask = static_cast<ASN1OCTET>(0x80u >> (bitIndex % 8));
    const int old = pBits[bitIndex / 8] & mask;
    pBits[bitIndex / 8] = static_cast<ASN1OCTET>(pBits[bitIndex / 8] & ~mask);
    return old;
}

ASN1RT_API int rtTestBit(const ASN1OCTET* pBits, ASN1UINT numbits, ASN1UINT bitIndex)
{
    if (bitIndex >= numbits)
        return 0;
    return pBits[bitIndex / 8] & (0x80u >> (bitIndex % 8));
}

ASN1RT_API int rtOctetBitLen(ASN1OCTET w)
{
    if (w == 0)
        return 0;
    int len = 8;
    while ((w & 1u) == 0) {
        w = static_cast<ASN1OCTET>(w >> 1);
        len--;
    }
    return len;
}

ASN1RT_API int rtCheckBuffer(ASN1CTXT* pctxt, ASN1UINT nbytes)
{
    if (static_cast<ASN1UINT64>(pctxt->bufIndex) + nbytes <= pctxt->bufSize)
        return 0;
    if (pctxt->stream != nullptr) {
        int stat = rtStreamBufFlush(pctxt);
        if (stat != 0)
            return rtErrSetData(&pctxt->errInfo, stat);
        if (static_cast<ASN1UINT64>(pctxt->bufIndex) + nbytes <= pctxt->bufSize)
            return 0;
    }
    if (pctxt->bufDynamic) {
        const ASN1UINT grow = nbytes > RT_BUFFER_GROWTH ? nbytes : RT_BUFFER_GROWTH;
        // A size past 32 bits would wrap bufSize below the octets still to be written:
        // refused before anything is raised.
        const ASN1UINT64 wanted = static_cast<ASN1UINT64>(pctxt->bufSize) + grow;
        if (wanted > 0xFFFFFFFFu)
            return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);
        pctxt->bufSize = static_cast<ASN1UINT>(wanted);  // raised first: it stays raised after a failure
        // Past the heap's reach the int size of the heap call would turn negative.
        if (wanted > static_cast<ASN1UINT64>(RT_MEMHEAP_MAX_ALLOC))
            return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);
        void* data = rtMemHeapRealloc(&pctxt->msgHeap, pctxt->bufData, static_cast<int>(pctxt->bufSize));
        if (data == nullptr)
            return rtErrSetData(&pctxt->errInfo, RT_E_NO_MEMORY);
        pctxt->bufData = static_cast<ASN1OCTET*>(data);
        return 0;
    }
    return rtErrSetData(&pctxt->errInfo, RT_E_BUFFER_FULL);
}

ASN1RT_API int rtWriteBytes(ASN1CTXT* pctxt, const ASN1OCTET* pdata, ASN1UINT nbytes)
{
    if (nbytes == 0)
        return 0;
    if (pctxt->stream != nullptr)
        return rtStreamBufWrite(pctxt, pdata, nbytes);
    int stat = rtCheckBuffer(pctxt, nbytes);
    if (stat != 0)
        return stat;
    memcpy(pctxt->bufData + pctxt->bufIndex, pdata, nbytes);
    pctxt->bufIndex += nbytes;
    return 0;
}

}  // extern "C"
