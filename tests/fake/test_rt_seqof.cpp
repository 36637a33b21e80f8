// ASN1CSeqOfList: ownership of the list by constructor, the mutators and their
// modification count, readers, arrays, and the fail-fast iterator walked both ways.
#include "asn1rt/seqoflist.h"

#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

namespace {

int values[8] = {10, 11, 12, 13, 14, 15, 16, 17};

// The data pointers of the list, front to back, as indices into `values`.
std::string order(const Asn1RTDList& list) {
    std::string s;
    for (Asn1RTDListNode* n = list.head; n; n = n->next) {
        if (!s.empty()) s += ",";
        s += std::to_string(*(int*)n->data);
    }
    return s;
}

class SeqOfTest : public ::testing::Test {
protected:
    ASN1BEREncodeBuffer buf;
};

TEST_F(SeqOfTest, OwnListIsAllocatedAndInitialised) {
    ASN1CSeqOfList l(buf);
    ASSERT_NE(nullptr, l.getList());
    EXPECT_TRUE(l.isEmpty());
    EXPECT_EQ(0, l.size());
    EXPECT_EQ(buf.getCtxtPtr(), l.getCtxtPtr());
    l.append(&values[0]);
    l.append(&values[1]);
    EXPECT_EQ("10,11", order(*l.getList()));
}

TEST_F(SeqOfTest, GivenListIsInitialisedOnlyWhenAsked) {
    Asn1RTDList list;
    list.count = 99;  // junk the constructor must clear
    list.head = list.tail = nullptr;
    {
        ASN1CSeqOfList l(buf, list, 1);
        EXPECT_EQ(0, l.size());
        l.append(&values[2]);
    }
    EXPECT_EQ(1u, list.count) << "a given list survives its control";
    EXPECT_EQ("12", order(list));
    ASN1CSeqOfList again(buf, list, 0);
    EXPECT_EQ(1, again.size()) << "left as it is";

    ASN1TSeqOfList tl;
    EXPECT_EQ(0u, tl.count);
    ASN1CSeqOfList overT(buf, tl);
    overT.append(&values[3]);
    EXPECT_EQ(&tl, overT.getList());
    EXPECT_EQ(1u, tl.count);
}

TEST_F(SeqOfTest, ContextConstructorsTakeAReference) {
    ASN1Context* c = new ASN1Context;
    c->_ref();
    {
        ASN1CSeqOfList own(*c);
        ASN1TPDUSeqOfList pdu;
        ASN1CSeqOfList overPdu(*c, pdu);
        EXPECT_EQ(3u, c->getRefCount());
        own.append(&values[0]);
        overPdu.append(&values[1]);
        EXPECT_EQ(1u, pdu.count);
    }
    EXPECT_EQ(1u, c->getRefCount());
    c->_unref();

    // Without buffer or context the control makes a context of its own.
    Asn1RTDList list;
    rtDListInit(&list);
    {
        ASN1CSeqOfList l(list);
        ASSERT_NE(nullptr, l.getCtxtPtr());
        EXPECT_NE(buf.getCtxtPtr(), l.getCtxtPtr());
        l.append(&values[4]);
        EXPECT_EQ(1u, list.count);
    }
}

TEST_F(SeqOfTest, PduListHoldsItsContext) {
    ASN1Context* c = new ASN1Context;
    c->_ref();
    {
        ASN1TPDUSeqOfList a;
        a.setContext(c);
        EXPECT_EQ(2u, c->getRefCount());
        ASN1TPDUSeqOfList b(a);
        EXPECT_EQ(3u, c->getRefCount());
        ASN1TPDUSeqOfList d;
        d = b;
        EXPECT_EQ(4u, c->getRefCount());
        d.setContext(nullptr);
        EXPECT_EQ(3u, c->getRefCount());
    }
    EXPECT_EQ(1u, c->getRefCount());
    c->_unref();
}

TEST_F(SeqOfTest, MutatorsAndTheModificationCount) {
    ASN1CSeqOfList l(buf);
    l.append(&values[0]);
    l.append(&values[1]);
    l.append(&values[2]);
    EXPECT_EQ(3, l.getModCount());

    Asn1RTDListNode* n = l.insert(1, &values[5]);
    ASSERT_NE(nullptr, n);
    EXPECT_EQ(&values[5], n->data);
    EXPECT_EQ("10,15,11,12", order(*l.getList()));
    EXPECT_EQ(nullptr, l.insert(9, &values[6])) << "past the count";
    EXPECT_EQ(5, l.getModCount()) << "the count rises all the same";

    EXPECT_NE(nullptr, l.insertBefore(&values[6], l.getList()->head));
    EXPECT_NE(nullptr, l.insertAfter(&values[7], l.getList()->tail));
    EXPECT_EQ("16,10,15,11,12,17", order(*l.getList()));
    EXPECT_NE(nullptr, l.insertBefore(&values[3], nullptr)) << "null appends";
    EXPECT_NE(nullptr, l.insertAfter(&values[4], nullptr)) << "null links at the head";
    EXPECT_EQ("14,16,10,15,11,12,17,13", order(*l.getList()));
    EXPECT_EQ(9, l.getModCount());

    l.remove(0);
    l.remove((void*)&values[17 - 10]);
    l.remove(l.getList()->tail);
    EXPECT_EQ("16,10,15,11,12", order(*l.getList()));
    EXPECT_EQ(12, l.getModCount());
    l.remove(99);
    l.remove((void*)&values[7]);
    l.remove((Asn1RTDListNode*)nullptr);
    EXPECT_EQ(12, l.getModCount()) << "nothing found, nothing counted";

    EXPECT_EQ(&values[5], l.set(2, &values[7]));
    EXPECT_EQ("16,10,17,11,12", order(*l.getList()));
    EXPECT_EQ(nullptr, l.set(5, &values[0]));
    EXPECT_EQ(13, l.getModCount());

    l.clear();
    EXPECT_TRUE(l.isEmpty());
    EXPECT_EQ(14, l.getModCount());
}

TEST_F(SeqOfTest, Readers) {
    ASN1CSeqOfList l(buf);
    EXPECT_EQ(nullptr, l.getFirst());
    EXPECT_EQ(nullptr, l.getLast());
    EXPECT_EQ(nullptr, l.get(0));
    for (int i = 0; i < 4; ++i) l.append(&values[i]);
    EXPECT_EQ(&values[0], l.getFirst());
    EXPECT_EQ(&values[3], l.getLast());
    EXPECT_EQ(&values[2], l.get(2));
    EXPECT_EQ(nullptr, l.get(4));
    EXPECT_EQ(&values[0], l.get(-1)) << "an index under 1 reads the head";
    EXPECT_EQ(3, l.indexOf(&values[3]));
    int other = 10;
    EXPECT_EQ(-1, l.indexOf(&other)) << "pointers are compared, not values";
    EXPECT_EQ(4, l.size());
}

TEST_F(SeqOfTest, Arrays) {
    ASN1CSeqOfList l(buf);
    int arr[3] = {7, 8, 9};
    l.appendArray(arr, 3, (int)sizeof(int));
    EXPECT_EQ(3, l.size());
    EXPECT_EQ(&arr[1], l.get(1)) << "nodes point into the array";

    int copies[2] = {20, 21};
    l.appendArrayCopy(copies, (int)sizeof copies, (int)sizeof(int));
    EXPECT_EQ(5, l.size()) << "the count is a length in octets";
    EXPECT_NE((void*)&copies[0], l.get(3));
    EXPECT_EQ(20, *(int*)l.get(3));

    int modBefore = l.getModCount();
    l.appendArray(arr, -1, (int)sizeof(int));
    l.appendArrayCopy(copies, -8, (int)sizeof(int));
    EXPECT_EQ(5, l.size()) << "negative counts append nothing";
    EXPECT_EQ(modBefore + 2, l.getModCount());

    int* all = (int*)l.toArray((int)sizeof(int));
    ASSERT_NE(nullptr, all);
    EXPECT_EQ(7, all[0]);
    EXPECT_EQ(21, all[4]);

    int small[2] = {0, 0};
    int* used = (int*)l.toArray(small, (int)sizeof(int), 2);
    EXPECT_NE(small, used) << "too small: a new array from the heap";
    EXPECT_EQ(9, used[2]);
    int big[8] = {0};
    EXPECT_EQ(big, l.toArray(big, (int)sizeof(int), 8));
    EXPECT_EQ(20, big[3]);
}

TEST_F(SeqOfTest, FreeAllFreesHeapCopies) {
    ASN1CSeqOfList l(buf);
    int copies[3] = {1, 2, 3};
    l.appendArrayCopy(copies, (int)sizeof copies, (int)sizeof(int));
    ASSERT_EQ(3, l.size());
    int before = l.getModCount();
    l.freeAll();
    EXPECT_TRUE(l.isEmpty());
    EXPECT_EQ(nullptr, l.getList()->head);
    EXPECT_EQ(before + 1, l.getModCount());
}

TEST_F(SeqOfTest, IteratorWalksForwardAndStopsAtTheEnd) {
    ASN1CSeqOfList l(buf);
    for (int i = 0; i < 3; ++i) l.append(&values[i]);
    ASN1CSeqOfListIterator* it = l.iterator();
    ASSERT_NE(nullptr, it);
    EXPECT_EQ(0, it->getState());
    std::vector<int> seen;
    while (it->hasNext()) seen.push_back(*(int*)it->next());
    EXPECT_EQ((std::vector<int>{10, 11, 12}), seen);
    EXPECT_EQ(nullptr, it->next());
    EXPECT_EQ(-8, it->getState());
    EXPECT_EQ(nullptr, it->prev()) << "no next node: nothing to step back from";
    EXPECT_EQ(-8, it->getState());

    ASN1CSeqOfList empty(buf);
    ASN1CSeqOfListIterator* e = empty.iterator();
    EXPECT_EQ(nullptr, e->next());
    EXPECT_EQ(-8, e->getState());
}

TEST_F(SeqOfTest, IteratorWalksBackward) {
    ASN1CSeqOfList l(buf);
    for (int i = 0; i < 3; ++i) l.append(&values[i]);
    ASN1CSeqOfListIterator* it = l.iteratorFromLast();
    EXPECT_EQ(&values[2], it->prev());
    EXPECT_EQ(&values[1], it->prev());
    EXPECT_EQ(&values[0], it->prev());
    EXPECT_EQ(nullptr, it->prev()) << "past the head";
    EXPECT_EQ(-8, it->getState());

    ASN1CSeqOfListIterator* mid = l.iteratorFrom(&values[1]);
    EXPECT_EQ(&values[1], mid->next());
    EXPECT_EQ(&values[2], mid->next());
    EXPECT_EQ(nullptr, mid->next());

    ASN1CSeqOfListIterator* turn = l.iterator();
    EXPECT_EQ(&values[0], turn->next());
    EXPECT_EQ(&values[1], turn->next());
    EXPECT_EQ(&values[1], turn->prev()) << "turning round returns the same element";
    EXPECT_EQ(&values[0], turn->prev());

    int missing = 0;
    ASN1CSeqOfListIterator* none = l.iteratorFrom(&missing);
    EXPECT_FALSE(none->hasNext());
}

TEST_F(SeqOfTest, StaleIteratorFailsFast) {
    ASN1CSeqOfList l(buf);
    l.append(&values[0]);
    ASN1CSeqOfListIterator* it = l.iterator();
    l.append(&values[1]);
    EXPECT_EQ(nullptr, it->next());
    EXPECT_EQ(-27, it->getState());
    EXPECT_EQ(-27, it->remove());
    EXPECT_EQ(-27, it->set(&values[2]));
    EXPECT_EQ(-27, it->insert(&values[2]));
    EXPECT_EQ(nullptr, it->prev());
    EXPECT_EQ(2, l.size()) << "nothing changed through the stale iterator";
    EXPECT_EQ(0, buf.getStatus()) << "iterators leave the error block alone";
}

TEST_F(SeqOfTest, IteratorRemoveSetInsert) {
    ASN1CSeqOfList l(buf);
    for (int i = 0; i < 4; ++i) l.append(&values[i]);
    ASN1CSeqOfListIterator* it = l.iterator();
    EXPECT_EQ(-28, it->remove()) << "nothing returned yet";
    EXPECT_EQ(-28, it->getState());
    EXPECT_EQ(-28, it->set(&values[7]));

    EXPECT_EQ(&values[0], it->next());
    EXPECT_EQ(&values[1], it->next());
    EXPECT_EQ(0, it->remove());
    EXPECT_EQ(-28, it->remove()) << "twice in a row";
    EXPECT_EQ(&values[2], it->next()) << "still valid after its own removal";
    EXPECT_EQ(0, it->set(&values[6]));
    EXPECT_EQ("10,16,13", order(*l.getList()));

    EXPECT_EQ(0, it->insert(&values[5]));
    EXPECT_EQ("10,16,15,13", order(*l.getList()));
    EXPECT_EQ(-28, it->set(&values[7])) << "insert forgets the element returned last";
    EXPECT_EQ(&values[3], it->next());
    EXPECT_EQ(0, it->insert(&values[4]));
    EXPECT_EQ("10,16,15,13,14", order(*l.getList())) << "at the end it appends";
    EXPECT_EQ(nullptr, it->next());

    // Removing backward moves the next node on to the successor.
    ASN1CSeqOfListIterator* back = l.iteratorFromLast();
    EXPECT_EQ(&values[4], back->prev());
    EXPECT_EQ(0, back->remove());
    EXPECT_EQ(nullptr, back->next()) << "the removed tail had no successor";
    EXPECT_EQ("10,16,15,13", order(*l.getList()));
}

TEST(SeqOfLayout, Sizes) {
    static_assert(sizeof(ASN1CSeqOfList) == (sizeof(void*) == 8 ? 40 : 24),
                  "ASN1CType, list, modification count, flag");
    static_assert(sizeof(ASN1CSeqOfListIterator) == (sizeof(void*) == 8 ? 32 : 20),
                  "list object, next, last returned, expected count, status");
    static_assert(sizeof(ASN1TSeqOfList) == sizeof(Asn1RTDList), "stands for the list");
    static_assert(sizeof(ASN1TPDUSeqOfList) == sizeof(Asn1RTDList) + sizeof(void*),
                  "the context pointer right behind the list header");
    SUCCEED();
}

}  // namespace
