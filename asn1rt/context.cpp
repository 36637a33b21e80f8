// The runtime context.
#include "asn1rt/context.h"

#include "asn1rt/lists.h"
#include "asn1rt/stream.h"

#include <string.h>

static_assert(sizeof(RtBufferState) == 8, "index, bit offset, flags");
static_assert(offsetof(ASN1CTXT, msgHeap) == 0, "the message heap handle comes first");

extern "C" {

ASN1RT_API int rtInitContext(ASN1CTXT* pctxt, void* memContext)
{
    memset(pctxt, 0, sizeof(ASN1CTXT));
    pctxt->magic = RT_CTXT_MAGIC;
    int stat = rtMemHeapCreate(&pctxt->typeHeap, memContext);
    if (stat != 0)
        return stat;
    pctxt->memContext = memContext;
    pctxt->msgHeap = pctxt->typeHeap;
    rtMemHeapAddRef(&pctxt->msgHeap);
    rtSListInitEx(pctxt, &pctxt->ctxtListB);
    rtSListInitEx(pctxt, &pctxt->ctxtListA);
    return 0;
}

ASN1RT_API int rtInitContextBuffer(ASN1CTXT* pctxt, const ASN1OCTET* bufaddr, ASN1UINT bufsiz)
{
    if (pctxt->magic != RT_CTXT_MAGIC)
        return RT_E_NOT_READY;
    if (bufaddr != nullptr) {
        pctxt->bufData = const_cast<ASN1OCTET*>(bufaddr);
        pctxt->bufSize = bufsiz;
        pctxt->bufDynamic = 0;
    } else {
        ASN1UINT size = bufsiz != 0 ? bufsiz : RT_DEFAULT_BUFFER_SIZE;
        ASN1OCTET* data = static_cast<ASN1OCTET*>(rtMemHeapAlloc(&pctxt->msgHeap, static_cast<int>(size)));
        if (data == nullptr)
            return RT_E_NO_MEMORY;
        pctxt->bufData = data;
        pctxt->bufSize = size;
        pctxt->bufDynamic = 1;
    }
    pctxt->bufIndex = 0;
    pctxt->bitOffset = 8;
    return 0;
}

ASN1RT_API void rtFreeContext(ASN1CTXT* pctxt)
{
    if (pctxt == nullptr || pctxt->magic != RT_CTXT_MAGIC)
        return;
    if (pctxt->bufDynamic && pctxt->bufData != nullptr) {
        if (pctxt->flags & RT_FLAG_SAVE_BUFFER)
            rtMemHeapMarkSaved(&pctxt->msgHeap, pctxt->bufData, 1);  // stays in the heap's list
        else
            rtMemHeapFreePtr(&pctxt->msgHeap, pctxt->bufData);
    }
    rtStreamRelease(pctxt);
    rtSListFree(&pctxt->ctxtListA);
    rtSListFree(&pctxt->ctxtListB);
    rtMemHeapRelease(&pctxt->typeHeap);
    rtMemHeapRelease(&pctxt->msgHeap);
    pctxt->magic = 0;
}

ASN1RT_API void rtCopyContext(ASN1CTXT* pdest, ASN1CTXT* psrc)
{
    pdest->bufData = psrc->bufData;
    pdest->bufIndex = psrc->bufIndex;
    pdest->bufSize = psrc->bufSize;
    pdest->bitOffset = psrc->bitOffset;
    pdest->bufDynamic = psrc->bufDynamic;
    pdest->flags = psrc->flags;
}

ASN1RT_API void rtCtxtSetFlag(ASN1CTXT* pctxt, ASN1UINT mask)
{
    pctxt->flags = static_cast<ASN1USINT>(pctxt->flags | (mask & 0xffffu));
}

ASN1RT_API void rtCtxtSetMemHeap(ASN1CTXT* pdest, ASN1CTXT* psrc)
{
    if (pdest == nullptr || psrc == nullptr || pdest->typeHeap == psrc->typeHeap)
        return;
    rtMemHeapRelease(&pdest->typeHeap);
    pdest->typeHeap = psrc->typeHeap;
    rtMemHeapAddRef(&pdest->typeHeap);
}

ASN1RT_API void rtCtxtSetMsgMemHeap(ASN1CTXT* pdest, ASN1CTXT* psrc)
{
    if (pdest == nullptr || psrc == nullptr || pdest->msgHeap == psrc->msgHeap)
        return;
    rtMemHeapRelease(&pdest->msgHeap);
    pdest->msgHeap = psrc->msgHeap;
    rtMemHeapAddRef(&pdest->msgHeap);
}

}  // extern "C"
