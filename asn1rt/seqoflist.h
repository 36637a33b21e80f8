/* Control class of every SEQUENCE OF / SET OF in list form: a face over the runtime's
 * doubly linked list with a modification count and fail-fast iterators. */
#ifndef ASN1RT_SEQOFLIST_H
#define ASN1RT_SEQOFLIST_H

#include "asn1rt/lists.h"
#include "asn1rt/messagebuffer.h"

#ifdef __cplusplus

/* The list value type that generated data classes derive from. */
struct ASN1RT_API ASN1TSeqOfList : public Asn1RTDList {
    ASN1TSeqOfList() { rtDListInit(this); }
};

/* A list value that also holds a counted reference to the context its elements live in,
 * right behind the list header.  Null until someone gives it one. */
struct ASN1RT_API ASN1TPDUSeqOfList : public ASN1TSeqOfList {
    ASN1Context* mpContext;

    ASN1TPDUSeqOfList() : mpContext(0) {}
    /* Shallow: the elements are shared and the context reference is taken again. */
    ASN1TPDUSeqOfList(const ASN1TPDUSeqOfList& o) : ASN1TSeqOfList(o), mpContext(o.mpContext) {
        if (mpContext) mpContext->_ref();
    }
    ASN1TPDUSeqOfList& operator=(const ASN1TPDUSeqOfList& o) {
        Asn1RTDList::operator=(o);
        setContext(o.mpContext);
        return *this;
    }
    ~ASN1TPDUSeqOfList() {
        if (mpContext) mpContext->_unref();
    }
    void setContext(ASN1Context* ctxt) {
        if (ctxt) ctxt->_ref();
        if (mpContext) mpContext->_unref();
        mpContext = ctxt;
    }
};

class ASN1CSeqOfList;

/* Walks a list both ways; any change of the list that did not go through this iterator
 * makes it stale (-27).  Allocated on the type heap and never freed by itself. */
class ASN1RT_API ASN1CSeqOfListIterator {
public:
    bool hasNext() const { return nextNode != 0; }
    /* The next element's data; null with status -8 at the end, -27 when stale. */
    void* next();
    /* Steps back; null with status -8 when there is nothing to step to, -27 when stale. */
    void* prev();
    /* Unlinks the element returned last: 0, -28 without one, -27 when stale. */
    int remove();
    /* Replaces the data of the element returned last: 0, -28 without one, -27 when stale. */
    int set(void* data);
    /* Inserts before the next element: 0, -27 when stale. */
    int insert(void* data);
    int getState() const { return stat; }

protected:
    friend class ASN1CSeqOfList;
    ASN1CSeqOfListIterator(ASN1CSeqOfList* list, Asn1RTDListNode* startNode);
    bool stale();

    ASN1CSeqOfList* pSeqList;
    Asn1RTDListNode* nextNode;
    Asn1RTDListNode* lastNode;
    ASN1INT expectedModCount;
    ASN1INT stat;
};

class ASN1RT_API ASN1CSeqOfList : public ASN1CType {
public:
    ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf, Asn1RTDList& lst, unsigned char initBeforeUse);
    explicit ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf);
    ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf, ASN1TSeqOfList& lst);
    ASN1CSeqOfList(ASN1MessageBufferIF& msgBuf, ASN1TPDUSeqOfList& lst);
    ASN1CSeqOfList(ASN1Context& ctxt, Asn1RTDList& lst, unsigned char initBeforeUse);
    explicit ASN1CSeqOfList(ASN1Context& ctxt);
    ASN1CSeqOfList(ASN1Context& ctxt, ASN1TSeqOfList& lst);
    ASN1CSeqOfList(ASN1Context& ctxt, ASN1TPDUSeqOfList& lst);
    explicit ASN1CSeqOfList(Asn1RTDList& lst);
    explicit ASN1CSeqOfList(ASN1TSeqOfList& lst);
    explicit ASN1CSeqOfList(ASN1TPDUSeqOfList& lst);
    virtual ~ASN1CSeqOfList();

    void append(void* data);
    void appendArray(const void* data, int numElems, int elemSize);
    /* The second argument is the total length in octets. */
    void appendArrayCopy(const void* data, int totalOctets, int elemSize);
    /* The new node, or the data pointer itself when there is no context. */
    Asn1RTDListNode* insert(int index, void* data);
    Asn1RTDListNode* insertBefore(void* data, Asn1RTDListNode* node);
    Asn1RTDListNode* insertAfter(void* data, Asn1RTDListNode* node);
    void remove(int index);
    void remove(void* data);
    void remove(Asn1RTDListNode* node);
    /* The data that was there, or null when there is no such node. */
    void* set(int index, void* data);
    void clear();
    void freeAll();

    int indexOf(void* data) const;
    void* getFirst() const;
    void* getLast() const;
    void* get(int index) const;
    bool isEmpty() const { return !pList || pList->count == 0; }
    int size() const { return pList ? (int)pList->count : 0; }
    /* A new array on the type heap holding a copy of each element. */
    void* toArray(int elemSize);
    /* Copies into the array, or into a new one from the type heap when the capacity is
     * below the count; the array used. */
    void* toArray(void* array, int elemSize, int capacity);

    ASN1CSeqOfListIterator* iterator();
    ASN1CSeqOfListIterator* iteratorFromLast();
    ASN1CSeqOfListIterator* iteratorFrom(void* data);

    Asn1RTDList* getList() const { return pList; }
    ASN1INT getModCount() const { return modCount; }

protected:
    friend class ASN1CSeqOfListIterator;
    void allocList();
    ASN1CSeqOfListIterator* newIterator(Asn1RTDListNode* start);

    /* Shares context, message buffer and list; the copy never frees the list. */
    ASN1CSeqOfList(const ASN1CSeqOfList& other);

    Asn1RTDList* pList;
    ASN1INT modCount;
    ASN1UINT8 wasAssigned;

private:
    ASN1CSeqOfList& operator=(const ASN1CSeqOfList&);
};

#endif /* __cplusplus */

#endif /* ASN1RT_SEQOFLIST_H */
