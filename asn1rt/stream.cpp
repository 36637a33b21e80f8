// The stream layer on an ASN1CTXT. No concrete transport exists here: whoever
// opens a stream fills in the record's read, write, flush and close functions.
#include "asn1rt/stream.h"

#include "asn1rt/lists.h"

#include <string.h>

extern "C" {

ASN1RT_API int rtStreamInit(ASN1CTXT* pctxt)
{
    // The allocation is not tested.
    pctxt->stream = static_cast<Asn1RTStream*>(
        rtMemHeapAllocZ(&pctxt->typeHeap, static_cast<int>(sizeof(Asn1RTStream))));
    return 0;
}

ASN1RT_API int rtStreamRelease(ASN1CTXT* pctxt)
{
    rtMemHeapFreePtr(&pctxt->msgHeap, pctxt->stream);
    pctxt->stream = nullptr;
    return 0;
}

ASN1RT_API int rtStreamFlush(ASN1CTXT* pctxt)
{
    Asn1RTStream* s = pctxt->stream;
    if (s == nullptr || !(s->flags & RT_STREAM_OUTPUT))
        return rtErrSetData(&pctxt->errInfo, RT_E_BAD_ARGUMENT);
    if (s->flush == nullptr)
        return 0;
    return s->flush(s);
}

ASN1RT_API int rtStreamClose(ASN1CTXT* pctxt)
{
    Asn1RTStream* s = pctxt->stream;
    if (s == nullptr || s->close == nullptr)
        return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
    if (s->flags & RT_STREAM_OUTPUT) {
        if (s->flush != nullptr) {
            int stat = s->flush(s);
            if (stat != 0)
                return stat;  // the stream stays open
        }
    } else if (!(s->flags & RT_STREAM_INPUT)) {
        return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
    }
    s->flags = 0;
    return s->close(s);
}

ASN1RT_API int rtStreamWrite(ASN1CTXT* pctxt, const ASN1OCTET* pdata, ASN1UINT nbytes)
{
    Asn1RTStream* s = pctxt->stream;
    if (s == nullptr || s->write == nullptr || !(s->flags & RT_STREAM_OUTPUT))
        return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
    int stat = s->write(s, pdata, nbytes);
    if (stat < 0)
        return stat;
    s->ioBytes += nbytes;
    return stat;
}

ASN1RT_API int rtStreamRead(ASN1CTXT* pctxt, ASN1OCTET* pdata, ASN1UINT nbytes)
{
    Asn1RTStream* s = pctxt->stream;
    if (s == nullptr || s->read == nullptr || !(s->flags & RT_STREAM_INPUT))
        return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
    int stat = s->read(s, pdata, nbytes);
    if (stat > 0)
        s->ioBytes += static_cast<ASN1UINT>(stat);
    return stat;
}

ASN1RT_API int rtStreamGetIOBytes(ASN1CTXT* pctxt)
{
    if (pctxt->stream == nullptr)
        return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
    return static_cast<int>(pctxt->stream->ioBytes);
}

ASN1RT_API int rtStreamBufInit(ASN1CTXT* pctxt)
{
    rtStreamInit(pctxt);
    int stat = rtInitContextBuffer(pctxt, nullptr, RT_STREAM_BUFFER_SIZE);
    if (stat != 0)
        return rtErrSetData(&pctxt->errInfo, stat);
    pctxt->stream->bufsize = RT_STREAM_BUFFER_SIZE;
    pctxt->savedState.index = 0xffffffffu;
    pctxt->stream->flags = static_cast<ASN1USINT>(pctxt->stream->flags | RT_STREAM_BUFFERED);
    return 0;
}

ASN1RT_API int rtStreamBufFlush(ASN1CTXT* pctxt)
{
    Asn1RTStream* s = pctxt->stream;
    if (s == nullptr || !(s->flags & (RT_STREAM_BUFFERED | RT_STREAM_OUTPUT)))
        return rtErrSetData(&pctxt->errInfo, RT_E_BAD_ARGUMENT);
    if (pctxt->bufIndex != 0) {
        if (s->write == nullptr)
            return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
        int stat = s->write(s, pctxt->bufData, pctxt->bufIndex);
        if (stat < 0)
            return rtErrSetData(&pctxt->errInfo, stat);
        pctxt->bufIndex = 0;
    }
    return rtStreamFlush(pctxt);
}

ASN1RT_API int rtStreamBufWrite(ASN1CTXT* pctxt, const ASN1OCTET* pdata, ASN1UINT nbytes)
{
    if (static_cast<ASN1UINT64>(pctxt->bufIndex) + nbytes > pctxt->bufSize) {
        int stat = rtStreamWrite(pctxt, pctxt->bufData, pctxt->bufIndex);
        if (stat < 0)
            return stat;
        pctxt->bufIndex = 0;
    }
    if (pctxt->bufSize <= nbytes) {
        int stat = rtStreamWrite(pctxt, pdata, nbytes);
        if (stat != 0)
            return rtErrSetData(&pctxt->errInfo, stat);
        return 0;
    }
    memcpy(pctxt->bufData + pctxt->bufIndex, pdata, nbytes);
    pctxt->bufIndex += nbytes;
    return 0;
}

ASN1RT_API int rtStreamBufClose(ASN1CTXT* pctxt)
{
    Asn1RTStream* s = pctxt->stream;
    if (s == nullptr)
        return rtErrSetData(&pctxt->errInfo, RT_E_BAD_ARGUMENT);
    if (s->flags & (RT_STREAM_BUFFERED | RT_STREAM_OUTPUT)) {
        int stat = rtStreamBufFlush(pctxt);
        if (stat != 0)
            return rtErrSetData(&pctxt->errInfo, stat);
    } else if (!(s->flags & RT_STREAM_INPUT)) {
        return rtErrSetData(&pctxt->errInfo, RT_E_NOT_READY);
    }
    return rtStreamClose(pctxt);
}

}  // extern "C"
