/* Streams and diagnostics of the ASN.1 runtime.
 * No concrete transport exists: whoever opens a stream fills in the record's functions. */
#ifndef ASN1RT_STREAM_H
#define ASN1RT_STREAM_H

#include <stdio.h>

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"

/* Stream flags. */
#define RT_STREAM_INPUT 0x0001u     /* open for input */
#define RT_STREAM_OUTPUT 0x0002u    /* open for output */
#define RT_STREAM_BUFFERED 0x8000u  /* the context's buffer collects output */

#define RT_STREAM_BUFFER_SIZE 1024u /* buffer of a buffered stream */

struct _Asn1RTStream;

/* Input: count read, or a negative status. */
typedef int (*rtStreamReadFunc)(struct _Asn1RTStream* pStream, ASN1OCTET* pdata, ASN1UINT nbytes);
/* Output: status. */
typedef int (*rtStreamWriteFunc)(struct _Asn1RTStream* pStream, const ASN1OCTET* pdata, ASN1UINT nbytes);
/* Status. */
typedef int (*rtStreamFlushFunc)(struct _Asn1RTStream* pStream);
typedef int (*rtStreamCloseFunc)(struct _Asn1RTStream* pStream);

/* The stream record, held by ASN1CTXT.stream.  Fields in order. */
typedef struct _Asn1RTStream {
    rtStreamReadFunc read;    /* input */
    rtStreamWriteFunc write;  /* output */
    rtStreamFlushFunc flush;  /* may be null */
    rtStreamCloseFunc close;  /* must be set for a stream that can close */
    void* reserved[2];        /* zero */
    ASN1UINT bufsize;         /* 1024 for a buffered stream */
    ASN1UINT reserved2;       /* zero */
    ASN1UINT ioBytes;         /* bytes moved so far */
    ASN1USINT flags;          /* RT_STREAM_* */
} Asn1RTStream;

ASN1RT_BEGIN_C

/* ---- Streams (context first) ----------------------------------------------------------- */

/* A zeroed record from the type heap goes in `stream`; 0.  The allocation is not tested. */
ASN1RT_API int rtStreamInit(ASN1CTXT* pctxt);
/* Frees the record through the message heap handle and nulls the field; 0. */
ASN1RT_API int rtStreamRelease(ASN1CTXT* pctxt);
/* -30 without stream or output flag; 0 with no flush function; else its result. */
ASN1RT_API int rtStreamFlush(ASN1CTXT* pctxt);
/* Flush (output), flags to 0, result of close; -32 when it cannot close. */
ASN1RT_API int rtStreamClose(ASN1CTXT* pctxt);
/* -32 without stream, write function or output flag; counts I/O bytes on success. */
ASN1RT_API int rtStreamWrite(ASN1CTXT* pctxt, const ASN1OCTET* pdata, ASN1UINT nbytes);
/* -32 without stream, read function or input flag; a positive result counts. */
ASN1RT_API int rtStreamRead(ASN1CTXT* pctxt, ASN1OCTET* pdata, ASN1UINT nbytes);
/* The I/O bytes, or -32 with no stream. */
ASN1RT_API int rtStreamGetIOBytes(ASN1CTXT* pctxt);
/* Stream plus a 1024-octet context buffer that collects output. */
ASN1RT_API int rtStreamBufInit(ASN1CTXT* pctxt);
ASN1RT_API int rtStreamBufClose(ASN1CTXT* pctxt);
ASN1RT_API int rtStreamBufFlush(ASN1CTXT* pctxt);
ASN1RT_API int rtStreamBufWrite(ASN1CTXT* pctxt, const ASN1OCTET* pdata, ASN1UINT nbytes);

/* ---- Diagnostics ---------------------------------------------------------------------- */

/* Stores the value in g_debug (declared in asn1rt/context.h). */
ASN1RT_API void rtSetDiag(ASN1UINT value);
/* Printf-style output on standard output when g_debug is not 0. */
ASN1RT_API void rtdiag(const char* fmtspec, ...) ASN1RT_PRINTF(1, 2);
/* rtHexDumpToFile on standard output when g_debug is not 0. */
ASN1RT_API void rtDiagHexDump(const ASN1OCTET* data, ASN1UINT numocts);
/* rtHexDumpToFileEx with word size 1. */
ASN1RT_API void rtHexDumpToFile(FILE* fp, const ASN1OCTET* data, ASN1UINT numocts);
/* Hexadecimal dump: 16/wordSize items a line, a 48-column hex field and a text field.
 * wordSize must not be 0. */
ASN1RT_API void rtHexDumpToFileEx(FILE* fp, const ASN1OCTET* data, ASN1UINT numocts, ASN1UINT wordSize);

ASN1RT_END_C

#endif /* ASN1RT_STREAM_H */
