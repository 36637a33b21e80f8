// ASN1CSeqOfList and its iterator.
#include "asn1rt/seqoflist.h"

#include <new>

// ---- ASN1CSeqOfList ------------------------------------------------------------------------

void ASN1CSeqOfList::allocList() {
    ASN1CTXT* ctxt = getCtxtPtr();
    // Without memory the list stays null: readers see it empty, mutators do nothing.
    pList = ctxt ? (Asn1RTDList*)rtMemHeapAllocZ(&ctxt->typeHeap, (int)sizeof(Asn1RTDList)) : 0;
    if (pList) rtDListInit(pList);
}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf, Asn1RTDList& lst,
                               unsigned char initBeforeUse)
    : ASN1CType(msgBuf), pList(&lst), modCount(0), wasAssigned(1) {
    if (initBeforeUse) rtDListInit(pList);
}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf)
    : ASN1CType(msgBuf), pList(0), modCount(0), wasAssigned(0) {
    allocList();
}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf, ASN1TSeqOfList& lst)
    : ASN1CType(msgBuf), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf, ASN1TPDUSeqOfList& lst)
    : ASN1CType(msgBuf), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1Context& ctxt, Asn1RTDList& lst, unsigned char initBeforeUse)
    : ASN1CType(ctxt), pList(&lst), modCount(0), wasAssigned(1) {
    if (initBeforeUse) rtDListInit(pList);
}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1Context& ctxt)
    : ASN1CType(ctxt), pList(0), modCount(0), wasAssigned(0) {
    allocList();
}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1Context& ctxt, ASN1TSeqOfList& lst)
    : ASN1CType(ctxt), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1Context& ctxt, ASN1TPDUSeqOfList& lst)
    : ASN1CType(ctxt), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(Asn1RTDList& lst)
    : ASN1CType(), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1TSeqOfList& lst)
    : ASN1CType(), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(ASN1TPDUSeqOfList& lst)
    : ASN1CType(), pList(&lst), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::ASN1CSeqOfList(const ASN1CSeqOfList& other)
    : ASN1CType(other), pList(other.pList), modCount(0), wasAssigned(1) {}

ASN1CSeqOfList::~ASN1CSeqOfList() {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!wasAssigned && ctxt && pList) {
        rtDListFreeNodes(ctxt, pList);
        rtMemHeapFreePtr(&ctxt->typeHeap, pList);
    }
}

void ASN1CSeqOfList::append(void* data) {
    if (!pList) return;
    if (ASN1CTXT* ctxt = getCtxtPtr()) rtDListAppend(ctxt, pList, data);
    ++modCount;
}

void ASN1CSeqOfList::appendArray(const void* data, int numElems, int elemSize) {
    if (!pList) return;
    // A negative count or size would read as a huge unsigned one: nothing is appended.
    ASN1CTXT* ctxt = getCtxtPtr();
    if (ctxt && numElems >= 0 && elemSize >= 0)
        rtDListAppendArray(ctxt, pList, const_cast<void*>(data), (ASN1UINT)numElems,
                           (ASN1UINT)elemSize);
    ++modCount;
}

void ASN1CSeqOfList::appendArrayCopy(const void* data, int totalOctets, int elemSize) {
    if (!pList) return;
    ASN1CTXT* ctxt = getCtxtPtr();
    if (ctxt && totalOctets >= 0 && elemSize > 0)
        rtDListAppendArrayCopy(ctxt, pList, data, (ASN1UINT)totalOctets, (ASN1UINT)elemSize);
    ++modCount;
}

Asn1RTDListNode* ASN1CSeqOfList::insert(int index, void* data) {
    if (!pList) return 0;
    ++modCount;
    ASN1CTXT* ctxt = getCtxtPtr();
    return ctxt ? rtDListInsert(ctxt, pList, index, data) : (Asn1RTDListNode*)data;
}

Asn1RTDListNode* ASN1CSeqOfList::insertBefore(void* data, Asn1RTDListNode* node) {
    if (!pList) return 0;
    ++modCount;
    ASN1CTXT* ctxt = getCtxtPtr();
    return ctxt ? rtDListInsertBefore(ctxt, pList, node, data) : (Asn1RTDListNode*)data;
}

Asn1RTDListNode* ASN1CSeqOfList::insertAfter(void* data, Asn1RTDListNode* node) {
    if (!pList) return 0;
    ++modCount;
    ASN1CTXT* ctxt = getCtxtPtr();
    return ctxt ? rtDListInsertAfter(ctxt, pList, node, data) : (Asn1RTDListNode*)data;
}

void ASN1CSeqOfList::remove(int index) {
    if (!pList) return;
    Asn1RTDListNode* node = rtDListFindByIndex(pList, index);
    if (node) {
        rtDListRemove(pList, node);
        ++modCount;
    }
}

void ASN1CSeqOfList::remove(void* data) {
    if (!pList) return;
    Asn1RTDListNode* node = rtDListFindByData(pList, data);
    if (node) {
        rtDListRemove(pList, node);
        ++modCount;
    }
}

void ASN1CSeqOfList::remove(Asn1RTDListNode* node) {
    if (!pList) return;
    if (node) {
        rtDListRemove(pList, node);
        ++modCount;
    }
}

void* ASN1CSeqOfList::set(int index, void* data) {
    if (!pList) return 0;
    Asn1RTDListNode* node = rtDListFindByIndex(pList, index);
    if (!node) return 0;
    void* old = node->data;
    node->data = data;
    ++modCount;
    return old;
}

void ASN1CSeqOfList::clear() {
    if (!pList) return;
    if (ASN1CTXT* ctxt = getCtxtPtr()) rtDListFreeNodes(ctxt, pList);
    ++modCount;
}

void ASN1CSeqOfList::freeAll() {
    if (!pList) return;
    if (ASN1CTXT* ctxt = getCtxtPtr()) rtDListFreeAll(ctxt, pList);
    ++modCount;
}

int ASN1CSeqOfList::indexOf(void* data) const { return pList ? rtDListFindIndexByData(pList, data) : -1; }

void* ASN1CSeqOfList::getFirst() const { return pList && pList->head ? pList->head->data : 0; }

void* ASN1CSeqOfList::getLast() const { return pList && pList->tail ? pList->tail->data : 0; }

void* ASN1CSeqOfList::get(int index) const {
    if (!pList) return 0;
    Asn1RTDListNode* node = rtDListFindByIndex(pList, index);
    return node ? node->data : 0;
}

void* ASN1CSeqOfList::toArray(int elemSize) {
    if (!pList) return 0;
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt || elemSize < 0) return 0;
    unsigned long long total = (unsigned long long)pList->count * (unsigned)elemSize;
    if (total > 0x7fffffffULL) return 0;
    void* array = rtMemHeapAlloc(&ctxt->typeHeap, (int)total);
    if (!array) return 0;
    rtDListToArray(ctxt, pList, &array, 0, (ASN1UINT)elemSize);
    return array;
}

void* ASN1CSeqOfList::toArray(void* array, int elemSize, int capacity) {
    if (!pList) return 0;
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt || elemSize < 0) return 0;
    ASN1UINT cap = capacity < 0 ? 0 : (ASN1UINT)capacity;
    rtDListToArray(ctxt, pList, &array, &cap, (ASN1UINT)elemSize);
    return array;
}

ASN1CSeqOfListIterator* ASN1CSeqOfList::newIterator(Asn1RTDListNode* start) {
    if (!pList) return 0;
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt) return 0;
    void* mem = rtMemHeapAlloc(&ctxt->typeHeap, (int)sizeof(ASN1CSeqOfListIterator));
    return mem ? new (mem) ASN1CSeqOfListIterator(this, start) : 0;
}

ASN1CSeqOfListIterator* ASN1CSeqOfList::iterator() { return pList ? newIterator(pList->head) : 0; }

ASN1CSeqOfListIterator* ASN1CSeqOfList::iteratorFromLast() {
    return pList ? newIterator(pList->tail) : 0;
}

ASN1CSeqOfListIterator* ASN1CSeqOfList::iteratorFrom(void* data) {
    return pList ? newIterator(rtDListFindByData(pList, data)) : 0;
}

// ---- ASN1CSeqOfListIterator ---------------------------------------------------------------------

ASN1CSeqOfListIterator::ASN1CSeqOfListIterator(ASN1CSeqOfList* list, Asn1RTDListNode* startNode)
    : pSeqList(list), nextNode(startNode), lastNode(0), expectedModCount(list->modCount), stat(0) {}

bool ASN1CSeqOfListIterator::stale() {
    if (expectedModCount == pSeqList->modCount) return false;
    stat = RT_E_ITER_STALE;
    return true;
}

void* ASN1CSeqOfListIterator::next() {
    if (stale()) return 0;
    if (!nextNode) {
        stat = RT_E_MISSING_ELEMENT;
        return 0;
    }
    lastNode = nextNode;
    nextNode = nextNode->next;
    return lastNode->data;
}

void* ASN1CSeqOfListIterator::prev() {
    if (stale()) return 0;
    if (!nextNode) {
        stat = RT_E_MISSING_ELEMENT;
        return 0;
    }
    if (lastNode) nextNode = nextNode->prev;
    if (!nextNode) {
        // Stepped past the head: nothing there to return.
        lastNode = 0;
        stat = RT_E_MISSING_ELEMENT;
        return 0;
    }
    lastNode = nextNode;
    return lastNode->data;
}

int ASN1CSeqOfListIterator::remove() {
    if (stale()) return RT_E_ITER_STALE;
    if (!lastNode) return stat = RT_E_ITER_NO_CURRENT;
    Asn1RTDListNode* successor = lastNode->next;
    rtDListRemove(pSeqList->pList, lastNode);
    ++pSeqList->modCount;
    if (nextNode == lastNode) nextNode = successor;
    lastNode = 0;
    expectedModCount = pSeqList->modCount;
    return 0;
}

int ASN1CSeqOfListIterator::set(void* data) {
    if (stale()) return RT_E_ITER_STALE;
    if (!lastNode) return stat = RT_E_ITER_NO_CURRENT;
    lastNode->data = data;
    return 0;
}

int ASN1CSeqOfListIterator::insert(void* data) {
    if (stale()) return RT_E_ITER_STALE;
    if (ASN1CTXT* ctxt = pSeqList->getCtxtPtr()) {
        rtDListInsertBefore(ctxt, pSeqList->pList, nextNode, data);
        ++pSeqList->modCount;
    }
    lastNode = 0;
    expectedModCount = pSeqList->modCount;
    return 0;
}
