/* The ASN.1 runtime's context, memory heap and error block.
 * Chief header of the runtime: every runtime function works on one ASN1CTXT.
 * All functions here have plain C linkage, fixed names, and are exported. */
#ifndef ASN1RT_CONTEXT_H
#define ASN1RT_CONTEXT_H

#include <stddef.h>
#include <stdint.h>

#include "asn1rt/asn1type.h"
#include "asn1rt/export.h"

/* ---- Status table (only these values occur) ---------------------------------------- */

#define RT_OK 0
#define RT_E_BUFFER_FULL (-1)       /* caller-supplied encode buffer full; general failure of the sequence-of and bit-string classes */
#define RT_E_END_OF_BUFFER (-2)     /* decoding ran into the end of the buffer */
#define RT_E_TAG_MISMATCH (-3)      /* expected tag not there; a time text of the wrong shape */
#define RT_E_BAD_OBJID (-4)         /* object identifier invalid or with too many arcs */
#define RT_E_BAD_LENGTH (-5)        /* length field invalid, or contents that do not fit it */
#define RT_E_BAD_ENUM (-6)          /* enumerated value not in its list */
#define RT_E_SET_DUPLICATE (-7)     /* a member of a SET appeared twice */
#define RT_E_MISSING_ELEMENT (-8)   /* mandatory member absent; sequence-of iterators: nothing left */
#define RT_E_SET_UNKNOWN_TAG (-9)   /* a tag that is no member of a SET with named fields */
#define RT_E_EXTRA_ELEMENT (-10)    /* unexpected element behind the last member */
#define RT_E_BAD_CHOICE (-11)       /* no alternative of a CHOICE fits */
#define RT_E_NO_MEMORY (-12)        /* the heap refused an allocation */
#define RT_E_TOO_LONG (-17)         /* the target of a value is too small */
#define RT_E_BAD_VALUE (-18)        /* null value pointer, or contents that cannot be what they claim */
#define RT_E_BAD_TAG (-21)          /* tag invalid, or wrong type inside a constructed string */
#define RT_E_CONSTRAINT (-23)       /* a generated constraint check failed */
#define RT_E_BAD_RANGE (-24)        /* a range of bit indices with its bounds reversed */
#define RT_E_BAD_UTF8 (-26)         /* invalid UTF-8 */
#define RT_E_ITER_STALE (-27)       /* iterator's list changed behind its back */
#define RT_E_ITER_NO_CURRENT (-28)  /* iterator has no current element */
#define RT_E_OUT_OF_RANGE (-29)     /* bit index outside its string */
#define RT_E_BAD_ARGUMENT (-30)     /* a required pointer or argument is missing or invalid */
#define RT_E_BAD_TIME (-31)         /* a time field out of range */
#define RT_E_NOT_READY (-32)        /* context or stream not initialised, or stream in wrong mode */
#define RT_E_INT_TOO_BIG (-33)      /* an integer does not fit its target */
#define RT_E_NOT_SUPPORTED (-99)    /* operation not available on this object */

/* ---- Flag word of ASN1CTXT ---------------------------------------------------------- */

#define RT_FLAG_LEN_UNCHECKED 0x0040u /* xd_len accepts lengths past the end; xd_setp keeps bufSize */
#define RT_FLAG_SAVE_BUFFER 0x0100u   /* rtFreeContext leaves a dynamic buffer to the heap's release */
#define RT_FLAG_CONSTRUCTED 0x0400u   /* form of the tag read last: 1 constructed */
#define RT_FLAG_SHARE_INPUT 0x0800u   /* xd_octstr/xd_bitstr/xd_OpenType point into the message */
#define RT_FLAG_LAST_EOC 0x1000u      /* with RT_FLAG_INDEF_TOP: xd_tag_len reports the end */
#define RT_FLAG_INDEF_TOP 0x4000u     /* outermost element of indefinite length */

/* ---- Constants ----------------------------------------------------------------------- */

#define RT_CTXT_MAGIC 0x1aa2a34au       /* ASN1CTXT.magic while initialised */
#define RT_DEFAULT_BUFFER_SIZE 16384u   /* rtInitContextBuffer without buffer and size */
#define RT_BUFFER_GROWTH 16384u         /* least growth of a dynamic encode buffer */
#define RT_DEFAULT_BLOCK_SIZE 4096u     /* initial g_defBlkSize */
#define RT_MEMBLOCK_HEADER_SIZE 48      /* RtMemBlock in front of every payload */
#define RT_MEMHEAP_MAX_ALLOC 0x7fffffcf /* 2147483599: largest size rtMemHeapAlloc accepts (signed test) */
#define RT_MH_FREEHEAPDESC 0x10000000u  /* RtMemHeap.flags: free the record with the last release */

/* ---- Allocator hooks ------------------------------------------------------------------ */

typedef void* (*rtMallocFunc)(void* memContext, size_t size);
typedef void* (*rtReallocFunc)(void* memContext, void* ptr, size_t size);
typedef void (*rtFreeFunc)(void* memContext, void* ptr);

/* ---- Records -------------------------------------------------------------------------- */

/* Header in front of every heap allocation: 48 bytes on both widths, the payload follows
 * at once.  New blocks go at the head of the heap's list. */
typedef struct RtMemBlock {
    struct RtMemBlock* next;
    struct RtMemBlock* prev;
    void* reserved[(RT_MEMBLOCK_HEADER_SIZE - 8) / sizeof(void*) - 2]; /* zero */
    ASN1UINT64 size; /* size of the payload */
} RtMemBlock;

/* A memory heap.  Handles (ASN1CTXT.msgHeap, .typeHeap) are `void*` naming one of these;
 * the heap functions take the address of a handle. */
typedef struct RtMemHeap {
    RtMemBlock* head;     /* head of the block list */
    ASN1UINT reserved[3]; /* zero */
    ASN1UINT defBlkSize;  /* copied from g_defBlkSize at creation; read by nothing */
    ASN1UINT refCnt;      /* starts at 1 */
    ASN1UINT flags;       /* RT_MH_FREEHEAPDESC at creation */
    void* memContext;     /* allocator argument */
} RtMemHeap;

/* Cursor state saved by xu_SaveBufferState and xd_tag_len. */
typedef struct RtBufferState {
    ASN1UINT index;      /* bufIndex */
    ASN1SINT bitOffset;  /* bitOffset */
    ASN1USINT flags;     /* flags */
} RtBufferState;

/* The error block: one live field.  Nothing else of an error is recorded. */
typedef struct ASN1ErrInfo {
    ASN1INT status; /* 0 until the first failure of the run */
} ASN1ErrInfo;

struct ASN1CTXT;

/* Node of a singly linked list. */
typedef struct _Asn1RTSListNode {
    void* data;
    struct _Asn1RTSListNode* next;
} Asn1RTSListNode;

/* Singly linked list header.  With a null context, nodes come from the C
 * library's malloc and free; otherwise from the context's type heap. */
typedef struct _Asn1RTSList {
    ASN1UINT count;
    Asn1RTSListNode* head;
    Asn1RTSListNode* tail;
    struct ASN1CTXT* pctxt;
} Asn1RTSList;

struct _Asn1RTStream; /* stream record (asn1rt/stream.h) */

/* The runtime context.  Fields in order. */
typedef struct ASN1CTXT {
    void* msgHeap;                  /* handle of the message heap (RtMemHeap*) */
    void* typeHeap;                 /* handle of the type heap (RtMemHeap*) */
    ASN1OCTET* bufData;             /* the message buffer */
    ASN1UINT bufIndex;              /* cursor */
    ASN1UINT bufSize;               /* buffer size, or the end of the outermost element */
    ASN1SINT bitOffset;             /* 8 whenever a buffer is attached */
    ASN1UINT8 bufDynamic;           /* 1 if the runtime allocated bufData */
    struct _Asn1RTStream* stream;   /* stream record (asn1rt/stream.h), or null */
    RtBufferState savedState;       /* default slot of xu_SaveBufferState */
    ASN1ErrInfo errInfo;            /* error block */
    Asn1RTSList ctxtListA;          /* owned by the context; nothing adds to it */
    Asn1RTSList ctxtListB;          /* the same, a second list */
    ASN1UINT magic;                 /* RT_CTXT_MAGIC while initialised, 0 after rtFreeContext */
    ASN1USINT flags;                /* RT_FLAG_* */
    void* memContext;               /* argument of rtInitContext, handed to the allocator */
} ASN1CTXT;

ASN1RT_BEGIN_C

/* ---- Exported globals ---------------------------------------------------------------- */

extern ASN1RT_API ASN1UINT g_defBlkSize;        /* 4096 */
extern ASN1RT_API rtMallocFunc g_malloc_func;   /* rtDefaultMalloc */
extern ASN1RT_API rtReallocFunc g_realloc_func; /* rtDefaultRealloc; never called by the runtime */
extern ASN1RT_API rtFreeFunc g_free_func;       /* rtDefaultFree */
extern ASN1RT_API ASN1UINT g_debug;             /* diagnostics print when not 0 */

/* The default allocator: the C library's malloc, realloc and free; the argument is ignored. */
ASN1RT_API void* rtDefaultMalloc(void* memContext, size_t size);
ASN1RT_API void* rtDefaultRealloc(void* memContext, void* ptr, size_t size);
ASN1RT_API void rtDefaultFree(void* memContext, void* ptr);

/* ---- Context ----------------------------------------------------------------------- */

/* Zeroes the record, sets the magic, creates one heap named by both handles (count 2),
 * initialises the two context lists.  0, or the status of the heap creation. */
ASN1RT_API int rtInitContext(ASN1CTXT* pctxt, void* memContext);
/* Attaches the buffer, or allocates one (size, or 16384 for 0) from the message heap.
 * 0, -32 (bad magic) or -12. */
ASN1RT_API int rtInitContextBuffer(ASN1CTXT* pctxt, const ASN1OCTET* bufaddr, ASN1UINT bufsiz);
/* Ends the context; does nothing unless the magic is right. */
ASN1RT_API void rtFreeContext(ASN1CTXT* pctxt);
/* Copies bufData, bufIndex, bufSize, bitOffset, bufDynamic and flags; nothing else. */
ASN1RT_API void rtCopyContext(ASN1CTXT* pdest, ASN1CTXT* psrc);
/* ORs the low 16 bits of the mask into flags.  No clearing counterpart. */
ASN1RT_API void rtCtxtSetFlag(ASN1CTXT* pctxt, ASN1UINT mask);
/* Makes `pdest` share `psrc`'s type heap (release the old one, add a reference). */
ASN1RT_API void rtCtxtSetMemHeap(ASN1CTXT* pdest, ASN1CTXT* psrc);
/* The same on the message heap. */
ASN1RT_API void rtCtxtSetMsgMemHeap(ASN1CTXT* pdest, ASN1CTXT* psrc);

/* ---- Memory heap (first argument: the address of a heap handle) ------------------------ */

/* 0, -30 for a null handle, -12 if the allocator fails.  Overwrites, does not release. */
ASN1RT_API int rtMemHeapCreate(void** ppvMemHeap, void* memContext);
/* Payload pointer or null.  Creates the heap lazily in an empty handle. */
ASN1RT_API void* rtMemHeapAlloc(void** ppvMemHeap, int nbytes);
/* The same, payload zeroed. */
ASN1RT_API void* rtMemHeapAllocZ(void** ppvMemHeap, int nbytes);
/* Payload pointer or null.  Never shrinks memory; a smaller size only lowers the stored size. */
ASN1RT_API void* rtMemHeapRealloc(void** ppvMemHeap, void* mem_p, int nbytes);
/* Frees one block; null pointer, null or empty handle: nothing. */
ASN1RT_API void rtMemHeapFreePtr(void** ppvMemHeap, void* mem_p);
/* Adds one reference, if handle and heap are not null. */
ASN1RT_API void rtMemHeapAddRef(void** ppvMemHeap);
/* Takes one reference away; at 0 frees every block and the record, and nulls the handle. */
ASN1RT_API void rtMemHeapRelease(void** ppvMemHeap);
/* Always 1. */
ASN1RT_API int rtMemHeapCheckPtr(void** ppvMemHeap, const void* mem_p);
/* Always 0; marks nothing. */
ASN1RT_API int rtMemHeapMarkSaved(void** ppvMemHeap, const void* mem_p, ASN1BOOL saved);

/* ---- Error block (first argument: the address of errInfo) ------------------------------ */

/* Stores the status if none is stored yet; returns the argument either way. */
ASN1RT_API int rtErrSetData(ASN1ErrInfo* pErrInfo, int status);
/* Sets the status to 0; returns 0. */
ASN1RT_API int rtErrReset(ASN1ErrInfo* pErrInfo);
/* Copies the status from `from` to `to`; returns it. */
ASN1RT_API int rtErrCopyData(ASN1ErrInfo* pSrcErrInfo, ASN1ErrInfo* pDestErrInfo);
/* Prints "ASN.1 ERROR: Status %d\n" on standard output; returns printf's result. */
ASN1RT_API int rtErrPrint(ASN1ErrInfo* pErrInfo);
/* One shared empty string. */
ASN1RT_API const char* rtErrGetText(void);
/* Do nothing; return 1. */
ASN1RT_API int rtErrAddStrParm(ASN1ErrInfo* pErrInfo, const char* errprm_p);
ASN1RT_API int rtErrAddIntParm(ASN1ErrInfo* pErrInfo, int errParm);

/* ---- xu_ error functions (first argument: the context) -------------------------------- */

/* rtErrSetData on errInfo. */
ASN1RT_API int xu_error(ASN1CTXT* pctxt, int status);
/* rtErrPrint on errInfo. */
ASN1RT_API int xu_perror(ASN1CTXT* pctxt);
/* Do nothing; return 1. */
ASN1RT_API int xu_addErrParm(ASN1CTXT* pctxt, const char* errprm_p);
ASN1RT_API int xu_addIntErrParm(ASN1CTXT* pctxt, int errParm);
ASN1RT_API int xu_addUnsignedErrParm(ASN1CTXT* pctxt, unsigned int errParm);
ASN1RT_API int xu_addTagErrParm(ASN1CTXT* pctxt, ASN1TAG errParm);
/* Do nothing. */
ASN1RT_API void xu_freeErrParms(ASN1CTXT* pctxt);
ASN1RT_API void xu_log_error(ASN1CTXT* pctxt, const char* fmtspec, ...);
/* The shared empty string of rtErrGetText; the buffer is not written. */
ASN1RT_API const char* xu_fmtErrMsg(ASN1CTXT* pctxt, char* bufp);

ASN1RT_END_C

#endif /* ASN1RT_CONTEXT_H */
