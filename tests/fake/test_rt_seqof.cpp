// ASN1CSeqOfList: list ownership, mutators and their modification count, fail-fast iterators.
#include "asn1rt/seqoflist.h"
#include "rt_alloc_counter.h"

using namespace rttest;
using Step = std::tuple<void*, int>;  // braced lists of these run the calls left to right
using Strs = std::vector<std::string>;

namespace {

int values[8] = {10, 11, 12, 13, 14, 15, 16, 17};
void* v(int i) { return &values[i - 10]; }  // the value i, by its address

std::string order(const Asn1RTDList* list)  // the values of the list, front to back: "10,11"
{
    std::string s;
    for (Asn1RTDListNode* n = list->head; n; n = n->next)
        s += (s.empty() ? "" : ",") + std::to_string(*(int*)n->data);
    return s;
}

struct SeqOfTest : ::testing::Test {
    ASN1BEREncodeBuffer buf;
};

TEST_F(SeqOfTest, OwnershipMutatorsArraysAndIterators)
{
    ASN1CSeqOfList own(buf);  // allocated on the type heap, initialised
    EXPECT_EQ(make_tuple(own.getList() != nullptr, own.isEmpty(), own.size(), own.getCtxtPtr()),
              make_tuple(true, true, 0, buf.getCtxtPtr()));
    Asn1RTDList list{99, nullptr, nullptr};  // junk the constructor must clear
    ASN1TSeqOfList tl;
    ASN1CSeqOfList(buf, list, 1).append(v(12)), ASN1CSeqOfList(buf, tl).append(v(13));
    // Initialised when asked, else left as it is; a given list survives its control.
    EXPECT_EQ(make_tuple(order(&list), list.count, ASN1CSeqOfList(buf, list, 0).size(), tl.count), make_tuple("12", 1u, 1, 1u));

    ASN1Context* c = new ASN1Context;  // the context constructors take a reference
    c->_ref();
    {
        ASN1TSeqOfList overC;
        ASN1CSeqOfList ownC(*c), overList(*c, overC);
        ASN1TPDUSeqOfList pdu;
        ASN1CSeqOfList overPdu(*c, pdu);
        ownC.append(v(10)), overPdu.append(v(11)), overList.append(v(12));
        EXPECT_EQ(make_tuple(c->getRefCount(), pdu.count, order(&overC)), make_tuple(4u, 1u, "12"));
        pdu.setContext(c);  // a PDU list holds its context, copies too
        ASN1TPDUSeqOfList copy(pdu), assigned;
        assigned = copy;
        EXPECT_EQ((Ints{int(c->getRefCount()), (assigned.setContext(nullptr), int(c->getRefCount()))}), (Ints{7, 6}));
    }
    EXPECT_EQ(c->getRefCount(), 1u);
    c->_unref();
    ASN1CSeqOfList l(list);  // without buffer or context: a context of its own
    l.append(v(14));
    EXPECT_EQ(make_tuple(l.getCtxtPtr() != nullptr, l.getCtxtPtr() != buf.getCtxtPtr(), list.count), make_tuple(true, true, 2u));
    // Mutators raise the modification count: an insert past the count makes nothing and is counted all the same; before
    // null appends, after null links at the head; a removal that finds nothing counts nothing, a set counts once.
    ASN1CSeqOfList ml(buf);
    auto state = [&] { return order(ml.getList()) + " #" + std::to_string(ml.getModCount()); };
    ml.append(v(10)), ml.append(v(11)), ml.append(v(12));
    Asn1RTDListNode* n = ml.insert(1, v(15));
    EXPECT_EQ((Ptrs{n ? n->data : nullptr, ml.insert(9, v(16))}), (Ptrs{v(15), nullptr}));
    const std::string afterInsert = state();
    ml.insertBefore(v(16), ml.getList()->head), ml.insertAfter(v(17), ml.getList()->tail);
    ml.insertBefore(v(13), nullptr), ml.insertAfter(v(14), nullptr);
    const std::string afterLinks = state();
    ml.remove(0), ml.remove(v(17)), ml.remove(ml.getList()->tail);
    ml.remove(99), ml.remove(v(17)), ml.remove((Asn1RTDListNode*)nullptr);
    const std::string afterRemove = state();
    EXPECT_EQ((Ptrs{ml.set(2, v(17)), ml.set(5, v(10))}), (Ptrs{v(15), nullptr}));
    EXPECT_EQ((Strs{afterInsert, afterLinks, afterRemove, state()}),
              (Strs{"10,15,11,12 #5", "14,16,10,15,11,12,17,13 #9", "16,10,15,11,12 #12", "16,10,17,11,12 #13"}));
    int other = 10;  // readers: an index under 1 reads the head; pointers are compared, not values
    EXPECT_EQ(make_tuple(ml.getFirst(), ml.getLast(), ml.get(2), ml.get(5), ml.get(-1), ml.indexOf(v(11)), ml.indexOf(&other)),
              make_tuple(v(16), v(12), v(17), nullptr, v(16), 3, -1));
    ml.clear();
    EXPECT_EQ(make_tuple(ml.isEmpty(), ml.getModCount(), ml.getFirst(), ml.getLast()), make_tuple(true, 14, nullptr, nullptr));
    ASN1CSeqOfList al(buf);  // arrays
    int arr[3] = {7, 8, 9}, copies[2] = {20, 21};
    al.appendArray(arr, 3, (int)sizeof(int));
    al.appendArrayCopy(copies, (int)sizeof copies, (int)sizeof(int));  // a length in octets
    EXPECT_EQ(make_tuple(al.size(), al.get(1), *(int*)al.get(3), al.get(3) != copies), make_tuple(5, (void*)&arr[1], 20, true));
    const int mod = al.getModCount();
    al.appendArray(arr, -1, (int)sizeof(int)), al.appendArrayCopy(copies, -8, (int)sizeof(int));  // negative: nothing
    EXPECT_EQ(make_tuple(al.size(), al.getModCount()), make_tuple(5, mod + 2));
    int small[2] = {0, 0}, big[8] = {0};
    int* all = (int*)al.toArray((int)sizeof(int));
    int* used = (int*)al.toArray(small, (int)sizeof(int), 2);  // too small: a new array from the heap
    ASSERT_TRUE(all != nullptr && used != small && al.toArray(big, (int)sizeof(int), 8) == big);
    EXPECT_EQ(make_tuple(all[0], all[4], used[2], big[3]), make_tuple(7, 21, 9, 20));
    ASN1CSeqOfList freed(buf);  // freeAll frees the heap copies too
    freed.appendArrayCopy(copies, (int)sizeof copies, (int)sizeof(int)), freed.freeAll();
    EXPECT_EQ(make_tuple(freed.isEmpty(), freed.getList()->head, freed.getModCount()), make_tuple(true, nullptr, 2));
    ASN1CSeqOfList walked(buf), empty(buf);  // the iterator, both ways
    walked.append(v(10)), walked.append(v(11)), walked.append(v(12));
    ASN1CSeqOfListIterator *it = walked.iterator(), *e = empty.iterator();
    ASSERT_EQ(it ? it->getState() : -1, 0);
    Ptrs seen;
    while (it->hasNext())
        seen.push_back(it->next());
    // At the end: null and -8; no next node, so nothing to step back from either.
    EXPECT_EQ((Ptrs{it->next(), it->prev(), e->next()}), (Ptrs{nullptr, nullptr, nullptr}));
    EXPECT_EQ(make_tuple(seen, it->getState(), e->getState()), make_tuple(Ptrs{v(10), v(11), v(12)}, -8, -8));

    ASN1CSeqOfListIterator* back = walked.iteratorFromLast();
    EXPECT_EQ((Ptrs{back->prev(), back->prev(), back->prev()}), (Ptrs{v(12), v(11), v(10)}));
    EXPECT_EQ((Step{back->prev(), back->getState()}), Step(nullptr, -8)) << "past the head";
    ASN1CSeqOfListIterator* mid = walked.iteratorFrom(v(11));
    EXPECT_EQ((Ptrs{mid->next(), mid->next(), mid->next()}), (Ptrs{v(11), v(12), nullptr}));
    ASN1CSeqOfListIterator* turn = walked.iterator();  // turning round returns the same element
    EXPECT_EQ((Ptrs{turn->next(), turn->next(), turn->prev(), turn->prev()}), (Ptrs{v(10), v(11), v(11), v(10)}));
    int missing = 0;
    EXPECT_FALSE(walked.iteratorFrom(&missing)->hasNext());
    ASN1CSeqOfList edited(buf);  // remove, set and insert through the iterator
    for (int i = 10; i < 14; ++i)
        edited.append(v(i));
    ASN1CSeqOfListIterator* cur = edited.iterator();
    EXPECT_EQ((std::tuple<int, int, int>{cur->remove(), cur->getState(), cur->set(v(17))}), make_tuple(-28, -28, -28));
    EXPECT_EQ((Ptrs{cur->next(), cur->next()}), (Ptrs{v(10), v(11)}));
    EXPECT_EQ((Ints{cur->remove(), cur->remove()}), (Ints{0, -28})) << "twice in a row";
    EXPECT_EQ(cur->next(), v(12)) << "still valid after its own removal";
    EXPECT_EQ((Ints{cur->set(v(16)), cur->insert(v(15)), cur->set(v(17))}), (Ints{0, 0, -28})) << "insert forgets the last";
    EXPECT_EQ(order(edited.getList()), "10,16,15,13");
    EXPECT_EQ((Step{cur->next(), cur->insert(v(14))}), Step(v(13), 0));
    EXPECT_EQ(make_tuple(order(edited.getList()), cur->next()), make_tuple("10,16,15,13,14", nullptr)) << "at the end it appends";
    ASN1CSeqOfListIterator* rev = edited.iteratorFromLast();  // removing backward moves the next node on to the successor
    EXPECT_EQ((Step{rev->prev(), rev->remove()}), Step(v(14), 0));
    EXPECT_EQ(make_tuple(rev->next(), order(edited.getList())), make_tuple(nullptr, "10,16,15,13")) << "no successor";

    // A change behind its back makes an iterator stale; nothing goes through it.
    ASN1CSeqOfListIterator* stale = edited.iterator();
    edited.append(v(11));
    EXPECT_EQ((Step{stale->next(), stale->getState()}), Step(nullptr, -27));
    EXPECT_EQ((Step{stale->prev(), stale->remove() + stale->set(v(12)) + stale->insert(v(12))}), Step(nullptr, -81));
    EXPECT_EQ(make_tuple(edited.size(), buf.getStatus()), make_tuple(5, 0)) << "iterators leave the error block alone";
}

static_assert(sizeof(ASN1CSeqOfList) == (sizeof(void*) == 8 ? 40 : 24), "ASN1CType, list, modification count, flag");
static_assert(sizeof(ASN1CSeqOfListIterator) == (sizeof(void*) == 8 ? 32 : 20),
              "list object, next, last returned, expected count, status");
static_assert(sizeof(ASN1TSeqOfList) == sizeof(Asn1RTDList) &&
              sizeof(ASN1TPDUSeqOfList) == sizeof(Asn1RTDList) + sizeof(void*), "the context pointer behind the list");

}  // namespace
