// The error block. One live field, the first status of a run; nothing else of an
// error is recorded, and the parameter functions that look as though they did are no-ops.
#include "asn1rt/context.h"

#include <stdio.h>

namespace {
const char kEmptyText[] = "";
}

extern "C" {

ASN1RT_API int rtErrSetData(ASN1ErrInfo* pErrInfo, int status)
{
    if (pErrInfo->status == 0)
        pErrInfo->status = status;
    return status;
}

ASN1RT_API int rtErrReset(ASN1ErrInfo* pErrInfo)
{
    pErrInfo->status = 0;
    return 0;
}

ASN1RT_API int rtErrCopyData(ASN1ErrInfo* pSrcErrInfo, ASN1ErrInfo* pDestErrInfo)
{
    pDestErrInfo->status = pSrcErrInfo->status;
    return pDestErrInfo->status;
}

ASN1RT_API int rtErrPrint(ASN1ErrInfo* pErrInfo) { return printf("ASN.1 ERROR: Status %d\n", pErrInfo->status); }

ASN1RT_API const char* rtErrGetText(void) { return kEmptyText; }

ASN1RT_API int rtErrAddStrParm(ASN1ErrInfo* /*pErrInfo*/, const char* /*errprm_p*/) { return 1; }

ASN1RT_API int rtErrAddIntParm(ASN1ErrInfo* /*pErrInfo*/, int /*errParm*/) { return 1; }

ASN1RT_API int xu_error(ASN1CTXT* pctxt, int status) { return rtErrSetData(&pctxt->errInfo, status); }

ASN1RT_API int xu_perror(ASN1CTXT* pctxt) { return rtErrPrint(&pctxt->errInfo); }

ASN1RT_API int xu_addErrParm(ASN1CTXT* /*pctxt*/, const char* /*errprm_p*/) { return 1; }

ASN1RT_API int xu_addIntErrParm(ASN1CTXT* /*pctxt*/, int /*errParm*/) { return 1; }

ASN1RT_API int xu_addUnsignedErrParm(ASN1CTXT* /*pctxt*/, unsigned int /*errParm*/) { return 1; }

ASN1RT_API int xu_addTagErrParm(ASN1CTXT* /*pctxt*/, ASN1TAG /*errParm*/) { return 1; }

ASN1RT_API void xu_freeErrParms(ASN1CTXT* /*pctxt*/) {}

ASN1RT_API void xu_log_error(ASN1CTXT* /*pctxt*/, const char* /*fmtspec*/, ...) {}

ASN1RT_API const char* xu_fmtErrMsg(ASN1CTXT* /*pctxt*/, char* /*bufp*/) { return kEmptyText; }

}  // extern "C"
