// The doubly and singly linked lists of the runtime.
#include "asn1rt/lists.h"

#include <stdlib.h>
#include <string.h>

static_assert(sizeof(Asn1RTDListNode) == 3 * sizeof(void*), "data, next, previous");
static_assert(sizeof(Asn1RTSListNode) <= RT_SLIST_NODE_SIZE, "a singly linked node fits 16 octets");

namespace {

// The layout of ASN1OpenType (asn1rt/charstr.h): a count of octets and a pointer to them.
struct OpenTypeView {
    ASN1UINT numocts;
    const ASN1OCTET* data;
};

Asn1RTDListNode* newNode(ASN1CTXT* pctxt, void* pData)
{
    Asn1RTDListNode* node = static_cast<Asn1RTDListNode*>(
        rtMemHeapAlloc(&pctxt->typeHeap, static_cast<int>(sizeof(Asn1RTDListNode))));
    if (node != nullptr) {
        node->data = pData;
        node->next = nullptr;
        node->prev = nullptr;
    }
    return node;
}

void linkTail(Asn1RTDList* pList, Asn1RTDListNode* node)
{
    node->next = nullptr;
    if (pList->tail != nullptr) {
        pList->tail->next = node;
        node->prev = pList->tail;
    }
    if (pList->head == nullptr) {
        pList->head = node;
        node->prev = nullptr;
    }
    pList->tail = node;
    pList->count++;
}

void linkHead(Asn1RTDList* pList, Asn1RTDListNode* node)
{
    node->prev = nullptr;
    node->next = pList->head;
    if (pList->head != nullptr)
        pList->head->prev = node;
    pList->head = node;
    if (pList->tail == nullptr)
        pList->tail = node;
    pList->count++;
}

// Links `node` in front of `before`, which is in the list and not its head.
void linkBefore(Asn1RTDList* pList, Asn1RTDListNode* before, Asn1RTDListNode* node)
{
    node->next = before;
    node->prev = before->prev;
    if (before->prev != nullptr)
        before->prev->next = node;
    before->prev = node;
    pList->count++;
}

// Links `node` behind `after`, which is in the list and not its tail.
void linkAfter(Asn1RTDList* pList, Asn1RTDListNode* after, Asn1RTDListNode* node)
{
    node->prev = after;
    node->next = after->next;
    if (after->next != nullptr)
        after->next->prev = node;
    after->next = node;
    pList->count++;
}

}  // namespace

extern "C" {

ASN1RT_API void rtDListInit(Asn1RTDList* pList)
{
    if (pList == nullptr)
        return;
    pList->count = 0;
    pList->head = nullptr;
    pList->tail = nullptr;
}

ASN1RT_API Asn1RTDListNode* rtDListAppend(ASN1CTXT* pctxt, Asn1RTDList* pList, void* pData)
{
    Asn1RTDListNode* node = newNode(pctxt, pData);
    if (node != nullptr)
        linkTail(pList, node);
    return node;
}

ASN1RT_API Asn1RTDListNode* rtDListAppendNode(ASN1CTXT* /*pctxt*/, Asn1RTDList* pList, void* pData)
{
    Asn1RTDListNode* node =
        reinterpret_cast<Asn1RTDListNode*>(static_cast<unsigned char*>(pData) - sizeof(Asn1RTDListNode));
    node->data = pData;
    linkTail(pList, node);
    return node;
}

ASN1RT_API Asn1RTDListNode* rtDListInsert(ASN1CTXT* pctxt, Asn1RTDList* pList, int idx, void* pData)
{
    if (static_cast<ASN1UINT>(idx) > pList->count)
        return nullptr;
    Asn1RTDListNode* node = newNode(pctxt, pData);
    if (node == nullptr)
        return nullptr;
    if (idx == 0) {
        linkHead(pList, node);
    } else if (static_cast<ASN1UINT>(idx) == pList->count) {
        linkTail(pList, node);
    } else {
        Asn1RTDListNode* at = pList->head;
        for (int i = 0; i < idx && at != nullptr; i++)
            at = at->next;
        linkBefore(pList, at, node);
    }
    return node;
}

ASN1RT_API Asn1RTDListNode* rtDListInsertBefore(ASN1CTXT* pctxt, Asn1RTDList* pList,
                                                Asn1RTDListNode* node, void* pData)
{
    Asn1RTDListNode* fresh = newNode(pctxt, pData);
    if (fresh == nullptr)
        return nullptr;
    if (node == nullptr)
        linkTail(pList, fresh);
    else if (node == pList->head)
        linkHead(pList, fresh);
    else
        linkBefore(pList, node, fresh);
    return fresh;
}

ASN1RT_API Asn1RTDListNode* rtDListInsertAfter(ASN1CTXT* pctxt, Asn1RTDList* pList,
                                               Asn1RTDListNode* node, void* pData)
{
    Asn1RTDListNode* fresh = newNode(pctxt, pData);
    if (fresh == nullptr)
        return nullptr;
    if (node == nullptr)
        linkHead(pList, fresh);
    else if (node == pList->tail)
        linkTail(pList, fresh);
    else
        linkAfter(pList, node, fresh);
    return fresh;
}

ASN1RT_API Asn1RTDListNode* rtDListFindByIndex(Asn1RTDList* pList, int idx)
{
    if (static_cast<long long>(idx) >= static_cast<long long>(static_cast<int>(pList->count)))
        return nullptr;
    Asn1RTDListNode* node = pList->head;
    for (int i = 0; i < idx && node != nullptr; i++)
        node = node->next;
    return node;
}

ASN1RT_API Asn1RTDListNode* rtDListFindByData(Asn1RTDList* pList, void* data)
{
    for (Asn1RTDListNode* node = pList->head; node != nullptr; node = node->next)
        if (node->data == data)
            return node;
    return nullptr;
}

ASN1RT_API int rtDListFindIndexByData(Asn1RTDList* pList, void* data)
{
    int idx = 0;
    for (Asn1RTDListNode* node = pList->head; node != nullptr; node = node->next, idx++)
        if (node->data == data)
            return idx;
    return -1;
}

ASN1RT_API void rtDListRemove(Asn1RTDList* pList, Asn1RTDListNode* node)
{
    if (node->next != nullptr)
        node->next->prev = node->prev;
    else
        pList->tail = node->prev;
    if (node->prev != nullptr)
        node->prev->next = node->next;
    else
        pList->head = node->next;
    pList->count--;
}

ASN1RT_API void rtDListFreeNodes(ASN1CTXT* pctxt, Asn1RTDList* pList)
{
    Asn1RTDListNode* node = pList->head;
    while (node != nullptr) {
        Asn1RTDListNode* next = node->next;
        rtMemHeapFreePtr(&pctxt->typeHeap, node);
        node = next;
    }
    rtDListInit(pList);
}

ASN1RT_API void rtDListFreeAll(ASN1CTXT* pctxt, Asn1RTDList* pList)
{
    Asn1RTDListNode* node = pList->head;
    while (node != nullptr) {
        Asn1RTDListNode* next = node->next;
        // Data right behind the node (rtDListAppendNode, xd_OpenTypeAppend) shares its block.
        if (node->data != static_cast<void*>(reinterpret_cast<unsigned char*>(node) + sizeof(Asn1RTDListNode)))
            rtMemHeapFreePtr(&pctxt->typeHeap, node->data);
        rtMemHeapFreePtr(&pctxt->typeHeap, node);
        node = next;
    }
    rtDListInit(pList);
}

ASN1RT_API int rtDListToArray(ASN1CTXT* pctxt, Asn1RTDList* pList, void** ppArray,
                              ASN1UINT* pElemCount, ASN1UINT elemSize)
{
    if (pElemCount != nullptr && *pElemCount < pList->count) {
        *pElemCount = pList->count;
        // The size in octets is taken in 64 bits: a product that wrapped would give a
        // short array that the copy below runs past.
        const ASN1UINT64 octets = static_cast<ASN1UINT64>(pList->count) * elemSize;
        if (octets > static_cast<ASN1UINT64>(RT_MEMHEAP_MAX_ALLOC))
            return RT_E_NO_MEMORY;
        void* array = rtMemHeapAlloc(&pctxt->typeHeap, static_cast<int>(octets));
        if (array == nullptr)
            return RT_E_NO_MEMORY;
        *ppArray = array;  // the old array is not freed
    }
    unsigned char* out = static_cast<unsigned char*>(*ppArray);
    for (Asn1RTDListNode* node = pList->head; node != nullptr; node = node->next, out += elemSize)
        memcpy(out, node->data, elemSize);
    return static_cast<int>(pList->count);
}

ASN1RT_API void rtDListAppendArray(ASN1CTXT* pctxt, Asn1RTDList* pList, void* pArray,
                                   ASN1UINT numElements, ASN1UINT elemSize)
{
    unsigned char* p = static_cast<unsigned char*>(pArray);
    for (ASN1UINT i = 0; i < numElements; i++)
        rtDListAppend(pctxt, pList, p + static_cast<size_t>(i) * elemSize);  // a failure skips it
}

ASN1RT_API void rtDListAppendArrayCopy(ASN1CTXT* pctxt, Asn1RTDList* pList, const void* pArray,
                                       ASN1UINT totalOctets, ASN1UINT elemSize)
{
    if (elemSize == 0)
        return;  // the loop would not advance
    if (elemSize > static_cast<ASN1UINT>(RT_MEMHEAP_MAX_ALLOC))
        return;  // no heap block holds one element: every allocation would fail
    const unsigned char* p = static_cast<const unsigned char*>(pArray);
    // The offset is 64 bits wide: a 32-bit one would wrap past a failed step and start over.
    for (ASN1UINT64 off = 0; off < totalOctets; off += elemSize) {
        void* copy = rtMemHeapAlloc(&pctxt->typeHeap, static_cast<int>(elemSize));
        if (copy == nullptr)
            continue;
        // A last, partial element is copied as far as the array goes, the rest zeroed.
        const ASN1UINT n = totalOctets - off < elemSize ? static_cast<ASN1UINT>(totalOctets - off) : elemSize;
        memcpy(copy, p + off, n);
        if (n < elemSize)
            memset(static_cast<unsigned char*>(copy) + n, 0, elemSize - n);
        if (rtDListAppend(pctxt, pList, copy) == nullptr)
            rtMemHeapFreePtr(&pctxt->typeHeap, copy);
        if (totalOctets - off < elemSize)
            break;
    }
}

ASN1RT_API void rtMemFreeOpenSeqExt(ASN1CTXT* pctxt, Asn1RTDList* pList)
{
    for (Asn1RTDListNode* node = pList->head; node != nullptr; node = node->next) {
        OpenTypeView* value = static_cast<OpenTypeView*>(node->data);
        if (value != nullptr)
            rtMemHeapFreePtr(&pctxt->typeHeap, const_cast<ASN1OCTET*>(value->data));
    }
    rtDListFreeAll(pctxt, pList);
}

ASN1RT_API void rtSListInitEx(ASN1CTXT* pctxt, Asn1RTSList* pList)
{
    if (pList == nullptr)
        return;
    pList->count = 0;
    pList->head = nullptr;
    pList->tail = nullptr;
    pList->pctxt = pctxt;
}

ASN1RT_API Asn1RTSListNode* rtSListAppend(Asn1RTSList* pList, void* pData)
{
    Asn1RTSListNode* node;
    if (pList->pctxt != nullptr)
        node = static_cast<Asn1RTSListNode*>(rtMemHeapAlloc(&pList->pctxt->typeHeap, RT_SLIST_NODE_SIZE));
    else
        node = static_cast<Asn1RTSListNode*>(malloc(RT_SLIST_NODE_SIZE));
    if (node == nullptr)
        return nullptr;
    node->data = pData;
    node->next = nullptr;
    if (pList->tail != nullptr)
        pList->tail->next = node;
    else
        pList->head = node;
    pList->tail = node;
    pList->count++;
    return node;
}

ASN1RT_API void rtSListFree(Asn1RTSList* pList)
{
    if (pList == nullptr)
        return;
    Asn1RTSListNode* node = pList->head;
    while (node != nullptr) {
        Asn1RTSListNode* next = node->next;
        if (pList->pctxt != nullptr)
            rtMemHeapFreePtr(&pList->pctxt->typeHeap, node);
        else
            free(node);
        node = next;
    }
    pList->count = 0;
    pList->head = nullptr;
    pList->tail = nullptr;
    pList->pctxt = nullptr;
}

}  // extern "C"
