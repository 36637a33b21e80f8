// Lists, memory buffers, bit functions and forward-writing buffer functions.
#include "asn1rt/lists.h"
#include "rt_alloc_counter.h"

using namespace rttest;

namespace {

struct OpenType { ASN1UINT numocts; const ASN1OCTET* data; };  // the layout of ASN1OpenType (asn1rt/charstr.h)

class RtLists : public CountedContext {
protected:
    // Data of the list, in order, checked against the back links and the count too.
    Ptrs items()
    {
        Ptrs out;
        const Asn1RTDListNode* prev = nullptr;
        for (const Asn1RTDListNode* n = list.head; n != nullptr; prev = n, n = n->next) {
            EXPECT_EQ(n->prev, prev);
            out.push_back(n->data);
        }
        EXPECT_EQ(tie(list.tail, list.count), make_tuple(prev, ASN1UINT(out.size())));
        return out;
    }
    // A zeroed block of a node and an open-type value, as xd_OpenTypeAppend builds them; linked without allocating.
    void appendOpenType(int octets)
    {
        auto* block = static_cast<char*>(rtMemHeapAllocZ(&ctxt.typeHeap, int(sizeof(Asn1RTDListNode) + sizeof(OpenType))));
        const size_t calls = alloc.mallocCalls();
        auto* value = reinterpret_cast<OpenType*>(block + sizeof(Asn1RTDListNode));
        EXPECT_EQ((std::tuple<void*, size_t>{rtDListAppendNode(&ctxt, &list, value), alloc.mallocCalls()}),
                  make_tuple(block, calls));
        value->data = octets != 0 ? static_cast<ASN1OCTET*>(rtMemHeapAlloc(&ctxt.typeHeap, octets)) : nullptr;
    }
    Asn1RTDList list{0, nullptr, nullptr};
    int v[8] = {0, 1, 2, 3, 4, 5, 6, 7};
};

TEST_F(RtLists, DoublyLinkedListsAndArrays)
{
    rtDListInit(nullptr);
    auto ins = [&](int i, int* d) -> void* { return rtDListInsert(&ctxt, &list, i, d); };
    auto before = [&](Asn1RTDListNode* n, int* d) -> void* { return rtDListInsertBefore(&ctxt, &list, n, d); };
    auto after = [&](Asn1RTDListNode* n, int* d) -> void* { return rtDListInsertAfter(&ctxt, &list, n, d); };
    auto app = [&](void* d) { return rtDListAppend(&ctxt, &list, d); };
    // Above the count: none; into the empty list, at the head, at the count (appends), in the middle.
    const Ptrs made{ins(1, &v[0]), ins(0, &v[2]), ins(0, &v[0]), ins(2, &v[4]), ins(1, &v[1]), ins(3, &v[3]), ins(6, &v[5])};
    auto *n0 = static_cast<Asn1RTDListNode*>(made[2]), *n4 = static_cast<Asn1RTDListNode*>(made[3]);
    EXPECT_EQ(make_tuple(made[0], made[6], items()), make_tuple(nullptr, nullptr, Ptrs{&v[0], &v[1], &v[2], &v[3], &v[4]}));
    before(nullptr, &v[5]), before(n0, &v[6]), before(n4, &v[7]);  // before null appends; before the head, before an inner node
    EXPECT_EQ(items(), (Ptrs{&v[6], &v[0], &v[1], &v[2], &v[3], &v[7], &v[4], &v[5]}));
    rtDListFreeNodes(&ctxt, &list);
    n0 = app(&v[0]);  // after null links at the head; after the tail appends; after an inner node
    after(nullptr, &v[1]), after(n0, &v[2]), after(n0, &v[3]);
    alloc.failNext(4);  // a refused node changes nothing
    EXPECT_EQ((Ptrs{app(&v[5]), ins(1, &v[5]), before(n0, &v[5]), after(n0, &v[5])}), Ptrs(4, nullptr));
    EXPECT_EQ(items(), (Ptrs{&v[1], &v[0], &v[3], &v[2]}));
    rtDListFreeNodes(&ctxt, &list);  // finding and removing, on a new list
    std::vector<Asn1RTDListNode*> nodes;
    for (int i : {0, 1, 2, 3, 2})
        nodes.push_back(app(&v[i]));
    int same = 2;  // under 1: the head; at the count: none; data pointers are compared, not what they point at; the first counts
    EXPECT_EQ(make_tuple(rtDListFindByIndex(&list, -1), rtDListFindByIndex(&list, 2), rtDListFindByIndex(&list, 4),
                         rtDListFindByIndex(&list, 5), rtDListFindByData(&list, &v[2]), rtDListFindByData(&list, &same),
                         rtDListFindIndexByData(&list, &v[2]), rtDListFindIndexByData(&list, &same)),
              make_tuple(nodes[0], nodes[2], nodes[4], nullptr, nodes[2], nullptr, 2, -1));
    const size_t live = alloc.live();
    rtDListRemove(&list, nodes[1]), rtDListRemove(&list, nodes[0]), rtDListRemove(&list, nodes[4]);  // inner, head, tail
    EXPECT_EQ(items(), (Ptrs{&v[2], &v[3]}));
    rtDListRemove(&list, nodes[2]), rtDListRemove(&list, nodes[3]);
    EXPECT_EQ(make_tuple(items(), alloc.live()), make_tuple(Ptrs{}, live));  // not freed
    rtDListFreeNodes(&ctxt, &list);  // freeing nodes, data and open-type values
    void *a = rtMemHeapAlloc(&ctxt.typeHeap, 10), *b = rtMemHeapAlloc(&ctxt.typeHeap, 20);
    app(a), app(a);
    size_t frees = alloc.frees;
    rtDListFreeNodes(&ctxt, &list);  // the data stays
    EXPECT_EQ(make_tuple(alloc.frees, alloc.isLive(blockOf(a)), items()), make_tuple(frees + 2, true, Ptrs{}));
    app(a), app(b);
    rtDListFreeAll(&ctxt, &list), rtDListFreeAll(&ctxt, &list);  // the data goes too; an empty list is just zeroed
    EXPECT_EQ(make_tuple(alloc.frees, alloc.isLive(blockOf(b)), list.head), make_tuple(frees + 6, false, nullptr));
    appendOpenType(0), appendOpenType(0), frees = alloc.frees, rtDListFreeAll(&ctxt, &list);
    EXPECT_EQ(alloc.frees, frees + 2);  // a value right behind its node goes with it
    // rtMemFreeOpenSeqExt frees each value's octets first; a loose value (null octets) and its node go too.
    appendOpenType(4), appendOpenType(4), app(rtMemHeapAllocZ(&ctxt.typeHeap, sizeof(OpenType)));
    const size_t liveBefore = alloc.live();
    rtMemFreeOpenSeqExt(&ctxt, &list);
    EXPECT_EQ(make_tuple(alloc.live(), list.count), make_tuple(liveBefore - 6, 0u));
    int values[3] = {10, 20, 30}, big[4] = {}, small[1] = {-1};
    for (int& x : values)
        app(&x);
    void* arr = big;
    ASN1UINT cap = 3;
    // No capacity: assumed large enough; enough: the same array; short: raised, a new heap array.
    auto toArray = [&](ASN1UINT* capacity, ASN1UINT size) { return rtDListToArray(&ctxt, &list, &arr, capacity, size); };
    EXPECT_EQ((Ints{toArray(nullptr, 4), toArray(&cap, 4), arr == big, int(cap), std::memcmp(big, values, sizeof values),
                    (arr = small, cap = 1, 0), toArray(&cap, 4), arr != small, int(cap), small[0], int(blockOf(arr)->size),
                    std::memcmp(arr, values, sizeof values)}),
              (Ints{3, 3, 1, 3, 0, 0, 3, 1, 3, -1, int(3 * sizeof(int)), 0}));
    // The new array cannot be had, or its size would wrap in 32 bits (3 * 0x55555556 is 0x100000002,
    // a 2-octet array): -12 before any copy, the array pointer as it was, no error block.
    for (ASN1UINT elemSize : {ASN1UINT(sizeof(int)), 0x55555556u}) {
        const size_t calls = (arr = small, cap = 2, alloc.failNext(), alloc.mallocCalls());
        EXPECT_EQ((Ints{toArray(&cap, elemSize), int(alloc.mallocCalls() - calls), arr == small, small[0],
                        ctxt.errInfo.status}), (Ints{RT_E_NO_MEMORY, elemSize == sizeof(int), 1, -1, 0})) << elemSize;
    }
    alloc.failNext(0), rtDListFreeNodes(&ctxt, &list);
    short shorts[4] = {1, 2, 3, 4};
    rtDListAppendArray(&ctxt, &list, shorts, 4, sizeof(short));  // data points into the array
    alloc.failNext(1, 1), rtDListAppendArray(&ctxt, &list, shorts, 3, sizeof(short));  // a failed node skips the element
    EXPECT_EQ(items(), (Ptrs{&shorts[0], &shorts[1], &shorts[2], &shorts[3], &shorts[0], &shorts[2]}));
    rtDListFreeNodes(&ctxt, &list);
    // The copy's count is a total in octets: a heap copy a step; an element count takes fewer (zero-filled).
    const int ints[3] = {7, 8, 0x01020304};
    rtDListAppendArrayCopy(&ctxt, &list, ints, sizeof ints, sizeof(int));
    rtDListAppendArrayCopy(&ctxt, &list, &ints[2], 3, sizeof(int));
    Ints got, expect{7, 8, 0x01020304, 0};
    std::memcpy(&expect[3], &ints[2], 3);
    for (void* p : items())
        got.push_back(blockOf(p)->size == sizeof(int) ? *static_cast<int*>(p) : -1);
    EXPECT_EQ(got, expect);
    rtDListFreeAll(&ctxt, &list);
    // Steps of 2^30 through 2^32 - 1, each copy refused by the allocator's limit: four requests, then the
    // end (a 32-bit offset would wrap to 0 for ever). An element no heap block holds asks nothing.
    const size_t asked = alloc.mallocCalls();
    EXPECT_EQ((Ints{(rtDListAppendArrayCopy(&ctxt, &list, ints, 0xFFFFFFFFu, 0x40000000u), int(alloc.mallocCalls() - asked)),
                    (rtDListAppendArrayCopy(&ctxt, &list, ints, 0xFFFFFFFFu, 0x80000000u), int(alloc.mallocCalls() - asked)),
                    int(list.count)}), (Ints{4, 4, 0}));
}

TEST_F(RtLists, SListMemoryBufferBitsAndWriting)
{
    rtSListInitEx(&ctxt, nullptr), rtSListFree(nullptr);  // the singly linked list, from the type heap or from malloc
    Asn1RTSList sl{5, reinterpret_cast<Asn1RTSListNode*>(&sl), nullptr, nullptr};  // junk to clear
    rtSListInitEx(&ctxt, &sl);
    Asn1RTSListNode *first = rtSListAppend(&sl, &v[0]), *second = rtSListAppend(&sl, &v[1]);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(tie(sl.head, sl.tail, sl.pctxt, first->next, second->next, second->data),
              make_tuple(first, second, &ctxt, second, nullptr, &v[1]));
    alloc.failNext();
    EXPECT_EQ(make_tuple(blockOf(first)->size, rtSListAppend(&sl, &v[2]), sl.count), make_tuple(16u, nullptr, 2u));
    rtSListFree(&sl);  // nodes and the context go, the data stays
    EXPECT_EQ(tie(sl.count, sl.head, sl.tail, sl.pctxt), make_tuple(0u, nullptr, nullptr, nullptr));
    const size_t calls = alloc.mallocCalls();  // without a context the nodes come from malloc (LeakSanitizer sees them go back)
    EXPECT_EQ((std::tuple<bool, size_t>{rtSListAppend(&sl, &v[0]) != nullptr, alloc.mallocCalls()}), make_tuple(true, calls));
    rtSListFree(&sl);
    Asn1RTMemBuf mb;  // the memory buffer grows by segments
    std::memset(&mb, 0x5A, sizeof mb);
    rtMemBufInit(&ctxt, &mb, 16);
    int len = -1;
    EXPECT_EQ((std::tuple<void*, ASN1UINT, ASN1BOOL, ASN1UINT, void*, int>{mb.pctxt, mb.segsize, mb.isDynamic,
                  mb.startidx | mb.usedcnt | mb.bufsize | mb.reserved[0] | mb.reserved[1], rtMemBufGetData(&mb, &len), len}),
              make_tuple(&ctxt, 16u, ASN1BOOL(1), 0u, nullptr, 0));
    // a: append (null data reserves only), s: set to 'A', p: pre-allocate; then used and capacity
    const struct { char op; const char* data; ASN1UINT count, used, size; } steps[] = {
        {'s', "", 0, 0, 0}, {'p', "", 0, 0, 0}, {'a', "", 0, 0, 0},  // count 0: nothing at all
        {'a', "hello", 5, 5, 16}, {'a', " world, again", 13, 18, 32},  // (18 - 1) / 16 + 1 segments
        {'a', "0123456789abcd", 14, 32, 32}, {'a', nullptr, 25, 32, 64}, {'p', nullptr, 40, 32, 80}, {'s', nullptr, 3, 35, 80},
    };
    for (const auto& st : steps) {
        EXPECT_EQ(st.op == 's' ? rtMemBufSet(&mb, 'A', st.count)
                  : st.op == 'p' ? rtMemBufPreAllocate(&mb, st.count) : rtMemBufAppend(&mb, bytes(st.data), st.count), 0);
        EXPECT_EQ(make_tuple(mb.usedcnt, mb.bufsize, mb.buffer == nullptr), make_tuple(st.used, st.size, st.size == 0))
            << st.op << st.count;
    }
    EXPECT_EQ(alloc.requests[alloc.requests.size() - 4], 16u + 48u);
    mb.startidx = 2, mb.reserved[0] = 9;
    ASN1OCTET* data = rtMemBufGetData(&mb, &len);
    EXPECT_EQ(make_tuple(data, len, rtMemBufGetData(&mb, nullptr), std::memcmp(data, "llo world, again0123456789abcdAAA", 33)),
              make_tuple(mb.buffer + 2, 33, data, 0));
    ASN1OCTET* storage = mb.buffer;  // Reset keeps capacity and storage; Free resets nothing
    rtMemBufReset(&mb);
    EXPECT_EQ(make_tuple(mb.startidx, mb.usedcnt, mb.reserved[0], mb.bufsize, mb.buffer), make_tuple(0u, 0u, 0u, 80u, storage));
    rtMemBufFree(&mb);
    EXPECT_EQ(make_tuple(alloc.isLive(blockOf(storage)), mb.bufsize), make_tuple(false, 80u));
    rtMemBufInit(&ctxt, &mb, 8), alloc.failNext();  // failures: nothing changes, and the error block stays untouched
    EXPECT_EQ(make_tuple(rtMemBufAppend(&mb, bytes("x"), 1), mb.buffer, mb.bufsize), make_tuple(RT_E_NO_MEMORY, nullptr, 0u));
    ASSERT_EQ(rtMemBufAppend(&mb, bytes("12345678"), 8), 0);
    alloc.failNext(2);
    EXPECT_EQ((Ints{rtMemBufSet(&mb, 0, 1), rtMemBufPreAllocate(&mb, 1), int(mb.bufsize), int(mb.usedcnt), ctxt.errInfo.status,
                    std::memcmp(mb.buffer, "12345678", 8)}), (Ints{RT_E_NO_MEMORY, RT_E_NO_MEMORY, 8, 8, 0, 0}));
    ASN1OCTET own[4] = {1, 2, 3, 4};  // storage not the record's own: neither freed nor grown in place
    mb.buffer = own, mb.bufsize = mb.usedcnt = 4, mb.isDynamic = 0;
    rtMemBufFree(&mb);
    EXPECT_EQ(rtMemBufPreAllocate(&mb, 1), 0);
    EXPECT_EQ(make_tuple(mb.buffer != own, mb.isDynamic, mb.bufsize), make_tuple(true, ASN1BOOL(1), 8u));
    // Bits. s: rtSetBit, c: rtClearBit, t: rtTestBit; the result (the old bit's place value), then both octets
    ASN1OCTET bits[2] = {0x80, 0x00};
    const struct { char op; ASN1UINT count, index; int result, after; } bitRows[] = {
        {'s', 16, 0, 0x80, 0x8000}, {'s', 16, 9, 0, 0x8040}, {'s', 16, 9, 0x40, 0x8040}, {'s', 10, 10, RT_E_OUT_OF_RANGE, 0x8040},
        {'s', 0, 0, -29, 0x8040}, {'t', 16, 0, 0x80, 0x8040}, {'t', 16, 1, 0, 0x8040}, {'t', 9, 9, 0, 0x8040},
        {'c', 16, 9, 0x40, 0x8000}, {'c', 16, 9, 0, 0x8000}, {'c', 16, 16, RT_E_OUT_OF_RANGE, 0x8000}, {'c', 16, 0, 0x80, 0x0000},
        {'s', 16, 7, 0, 0x0100}, {'t', 8, 7, 1, 0x0100},
    };
    for (const auto& r : bitRows) {
        const int got = r.op == 's' ? rtSetBit(bits, r.count, r.index)
                        : r.op == 'c' ? rtClearBit(bits, r.count, r.index) : rtTestBit(bits, r.count, r.index);
        EXPECT_EQ(make_tuple(got, bits[0] << 8 | bits[1]), make_tuple(r.result, r.after)) << r.op << r.index;
    }
    for (const auto& l : {std::pair<int, int>{0x01, 8}, {0x40, 2}, {0x80, 1}, {0x00, 0}, {0xFF, 8}, {0x0C, 6}, {0x90, 4}})
        EXPECT_EQ(rtOctetBitLen(static_cast<ASN1OCTET>(l.first)), l.second) << l.first;
    ASN1OCTET out[4] = {};  // forward writing: rtCheckBuffer and rtWriteBytes; static: full is -1
    EXPECT_EQ((Ints{rtInitContextBuffer(&ctxt, out, sizeof out), rtWriteBytes(&ctxt, bytes("abc"), 3), rtCheckBuffer(&ctxt, 1),
                    rtCheckBuffer(&ctxt, 2), rtWriteBytes(&ctxt, bytes("de"), 2), ctxt.errInfo.status, int(ctxt.bufIndex),
                    rtWriteBytes(&ctxt, bytes("d"), 1), rtWriteBytes(&ctxt, nullptr, 0), std::memcmp(out, "abcd", 4)}),
              (Ints{0, 0, 0, RT_E_BUFFER_FULL, -1, -1, 3, 0, 0, 0}));
    rtErrReset(&ctxt.errInfo);  // dynamic: grows by 16384, or by the count when that is more
    EXPECT_EQ((Ints{rtInitContextBuffer(&ctxt, nullptr, 8), rtWriteBytes(&ctxt, bytes("12345678"), 8), int(ctxt.bufSize),
                    rtWriteBytes(&ctxt, bytes("9"), 1), int(ctxt.bufSize), std::memcmp(ctxt.bufData, "123456789", 9),
                    (ctxt.bufIndex = ctxt.bufSize, rtCheckBuffer(&ctxt, 20000)), int(ctxt.bufSize), ctxt.errInfo.status,
                    blocks(ctxt.msgHeap)[0] == ctxt.bufData}), (Ints{0, 0, 8, 0, 8 + 16384, 0, 0, 8 + 16384 + 20000, 0, 1}));
    // Growth failures: requests made (0: refused before asking), the size after (raised first but past 2^32).
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 8), 0);
    ASN1OCTET* buffer = ctxt.bufData;
    const ASN1UINT max = static_cast<ASN1UINT>(RT_MEMHEAP_MAX_ALLOC);
    const struct { ASN1UINT count; size_t requests; ASN1UINT sizeAfter; } growthRows[] = {
        {1, 1, 8u + 16384u},
        {0xFFFFFFFBu, 0, 8u},     // 8 plus this passes 2^32: a wrapped 3 would "fit"
        {max - 7u, 0, max + 1u},  // beyond what one heap block holds
        {max - 8u, 1, max},       // the largest growth that still fits is attempted
    };
    for (const auto& row : growthRows) {
        ctxt.bufSize = ctxt.bufIndex = 8;
        const size_t asked = (rtErrReset(&ctxt.errInfo), alloc.failNext(), alloc.mallocCalls());
        EXPECT_EQ(rtCheckBuffer(&ctxt, row.count), RT_E_NO_MEMORY);
        EXPECT_EQ(make_tuple(ctxt.errInfo.status, ctxt.bufSize, ctxt.bufData, alloc.mallocCalls() - asked),
                  make_tuple(-12, row.sizeAfter, buffer, row.requests)) << row.count;
    }
    alloc.failNext(0);
}

}  // namespace
