/* Lists and memory buffers of the ASN.1 runtime.
 * Every node and buffer comes from the context's type heap unless said otherwise.
 * The singly linked list types (Asn1RTSList, Asn1RTSListNode) live in asn1rt/context.h,
 * since ASN1CTXT holds two of them. */
#ifndef ASN1RT_LISTS_H
#define ASN1RT_LISTS_H

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"

/* Node of the doubly linked list that carries every SEQUENCE OF and SET OF. */
typedef struct _Asn1RTDListNode {
    void* data;
    struct _Asn1RTDListNode* next;
    struct _Asn1RTDListNode* prev;
} Asn1RTDListNode;

/* Doubly linked list header. */
typedef struct _Asn1RTDList {
    ASN1UINT count;
    Asn1RTDListNode* head;
    Asn1RTDListNode* tail;
} Asn1RTDList;

/* Size of a singly linked list node as rtSListAppend requests it. */
#define RT_SLIST_NODE_SIZE 16

/* Growing memory buffer. */
typedef struct _Asn1RTMemBuf {
    ASN1CTXT* pctxt;      /* the heap's owner */
    ASN1UINT segsize;     /* growth unit; 0 is not allowed */
    ASN1UINT startidx;    /* offset of the first valid octet */
    ASN1UINT usedcnt;     /* end of the valid octets */
    ASN1UINT bufsize;     /* octets allocated */
    ASN1UINT reserved[2]; /* zero */
    ASN1OCTET* buffer;    /* storage */
    ASN1BOOL isDynamic;   /* 1 when the storage is the record's own */
} Asn1RTMemBuf;

ASN1RT_BEGIN_C

/* ---- Doubly linked list ----------------------------------------------------------- */

/* Zeroes the list; null is tolerated. */
ASN1RT_API void rtDListInit(Asn1RTDList* pList);
/* New node at the tail, or null. */
ASN1RT_API Asn1RTDListNode* rtDListAppend(ASN1CTXT* pctxt, Asn1RTDList* pList, void* pData);
/* Links the node placed right in front of pData in one block (no allocation); that node. */
ASN1RT_API Asn1RTDListNode* rtDListAppendNode(ASN1CTXT* pctxt, Asn1RTDList* pList, void* pData);
/* New node at the index (0 head, count appends), or null if the index is above the count. */
ASN1RT_API Asn1RTDListNode* rtDListInsert(ASN1CTXT* pctxt, Asn1RTDList* pList, int idx, void* pData);
/* Null node appends. */
ASN1RT_API Asn1RTDListNode* rtDListInsertBefore(ASN1CTXT* pctxt, Asn1RTDList* pList,
                                                Asn1RTDListNode* node, void* pData);
/* Null node links at the head. */
ASN1RT_API Asn1RTDListNode* rtDListInsertAfter(ASN1CTXT* pctxt, Asn1RTDList* pList,
                                               Asn1RTDListNode* node, void* pData);
/* Null at or above the count (signed test); the head for an index under 1. */
ASN1RT_API Asn1RTDListNode* rtDListFindByIndex(Asn1RTDList* pList, int idx);
/* Compares data pointers. */
ASN1RT_API Asn1RTDListNode* rtDListFindByData(Asn1RTDList* pList, void* data);
ASN1RT_API int rtDListFindIndexByData(Asn1RTDList* pList, void* data);
/* Unlinks the node (not freed). */
ASN1RT_API void rtDListRemove(Asn1RTDList* pList, Asn1RTDListNode* node);
/* Frees every node, leaving the data; zeroes the list. */
ASN1RT_API void rtDListFreeNodes(ASN1CTXT* pctxt, Asn1RTDList* pList);
/* Frees every node and its data (unless the data sits right behind the node); zeroes. */
ASN1RT_API void rtDListFreeAll(ASN1CTXT* pctxt, Asn1RTDList* pList);
/* Copies each element (elemSize octets) into *ppArray; with a capacity below the count a
 * new array comes from the type heap and the capacity rises.  Returns the count. */
ASN1RT_API int rtDListToArray(ASN1CTXT* pctxt, Asn1RTDList* pList, void** ppArray,
                              ASN1UINT* pElemCount, ASN1UINT elemSize);
/* One node per element, data pointing into the array. */
ASN1RT_API void rtDListAppendArray(ASN1CTXT* pctxt, Asn1RTDList* pList, void* pArray,
                                   ASN1UINT numElements, ASN1UINT elemSize);
/* Steps through `totalOctets` in units of elemSize, appending a heap copy of each. */
ASN1RT_API void rtDListAppendArrayCopy(ASN1CTXT* pctxt, Asn1RTDList* pList, const void* pArray,
                                       ASN1UINT totalOctets, ASN1UINT elemSize);
/* For a list of ASN1OpenType values: frees each value's octets, then rtDListFreeAll. */
ASN1RT_API void rtMemFreeOpenSeqExt(ASN1CTXT* pctxt, Asn1RTDList* pList);

/* ---- Singly linked list ------------------------------------------------------------- */

/* Zeroes count, head, tail and stores the context; null list tolerated. */
ASN1RT_API void rtSListInitEx(ASN1CTXT* pctxt, Asn1RTSList* pList);
/* Node at the tail, or null. */
ASN1RT_API Asn1RTSListNode* rtSListAppend(Asn1RTSList* pList, void* pData);
/* Frees every node as it was allocated (data stays), then zeroes all four fields. */
ASN1RT_API void rtSListFree(Asn1RTSList* pList);

/* ---- Memory buffer ----------------------------------------------------------------- */

ASN1RT_API void rtMemBufInit(ASN1CTXT* pctxt, Asn1RTMemBuf* pMemBuf, ASN1UINT segsize);
/* If dynamic, frees the data through the type heap; fields are not reset. */
ASN1RT_API void rtMemBufFree(Asn1RTMemBuf* pMemBuf);
/* start and used to 0, reserved words to 0; capacity and data stay. */
ASN1RT_API void rtMemBufReset(Asn1RTMemBuf* pMemBuf);
/* Status: 0 or -12.  Null data reserves only. */
ASN1RT_API int rtMemBufAppend(Asn1RTMemBuf* pMemBuf, const ASN1OCTET* pdata, ASN1UINT nbytes);
/* Status: fills with the octet. */
ASN1RT_API int rtMemBufSet(Asn1RTMemBuf* pMemBuf, ASN1OCTET value, ASN1UINT nbytes);
/* Status: reserves only. */
ASN1RT_API int rtMemBufPreAllocate(Asn1RTMemBuf* pMemBuf, ASN1UINT nbytes);
/* Data plus start; *length (if given) gets used minus start. */
ASN1RT_API ASN1OCTET* rtMemBufGetData(Asn1RTMemBuf* pMemBuf, int* length);

/* ---- Bits (numbered from the top bit of the first octet) ------------------------------ */

/* -29 if bitIndex >= numbits; otherwise sets, returns the old bit's place value. */
ASN1RT_API int rtSetBit(ASN1OCTET* pBits, ASN1UINT numbits, ASN1UINT bitIndex);
/* The same, clearing. */
ASN1RT_API int rtClearBit(ASN1OCTET* pBits, ASN1UINT numbits, ASN1UINT bitIndex);
/* 0 if bitIndex >= numbits; otherwise the bit's place value. */
ASN1RT_API int rtTestBit(const ASN1OCTET* pBits, ASN1UINT numbits, ASN1UINT bitIndex);
/* Bits up to and including the lowest set bit, from the top: 0x01 -> 8, 0x80 -> 1, 0 -> 0. */
ASN1RT_API int rtOctetBitLen(ASN1OCTET w);

/* ---- Forward-writing buffer functions ------------------------------------------------- */

/* Status: makes room for nbytes at bufIndex (stream flush, dynamic growth, or -1). */
ASN1RT_API int rtCheckBuffer(ASN1CTXT* pctxt, ASN1UINT nbytes);
/* Status: writes at bufIndex and advances, or through the stream. */
ASN1RT_API int rtWriteBytes(ASN1CTXT* pctxt, const ASN1OCTET* pdata, ASN1UINT nbytes);

ASN1RT_END_C

#endif /* ASN1RT_LISTS_H */
