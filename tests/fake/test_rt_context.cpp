// The runtime context, its memory heap and the error block.
#include "asn1rt/lists.h"
#include "rt_alloc_counter.h"

#include <algorithm>
#include <climits>

using namespace rttest;

namespace {

int g_tag;  // an allocator argument to recognise
void* const tag = &g_tag;

static_assert(RT_E_BUFFER_FULL == -1 && RT_E_END_OF_BUFFER == -2 && RT_E_TAG_MISMATCH == -3 && RT_E_BAD_OBJID == -4 &&
              RT_E_BAD_LENGTH == -5 && RT_E_BAD_ENUM == -6 && RT_E_SET_DUPLICATE == -7 && RT_E_MISSING_ELEMENT == -8 &&
              RT_E_SET_UNKNOWN_TAG == -9 && RT_E_EXTRA_ELEMENT == -10 && RT_E_BAD_CHOICE == -11 && RT_E_NO_MEMORY == -12 &&
              RT_E_TOO_LONG == -17 && RT_E_BAD_VALUE == -18 && RT_E_BAD_TAG == -21 && RT_E_CONSTRAINT == -23 &&
              RT_E_BAD_RANGE == -24 && RT_E_BAD_UTF8 == -26 && RT_E_ITER_STALE == -27 && RT_E_ITER_NO_CURRENT == -28 &&
              RT_E_OUT_OF_RANGE == -29 && RT_E_BAD_ARGUMENT == -30 && RT_E_BAD_TIME == -31 && RT_E_NOT_READY == -32 &&
              RT_E_INT_TOO_BIG == -33 && RT_E_NOT_SUPPORTED == -99 && RT_INDEFINITE_LENGTH == -9999, "the status table");
static_assert(RT_FLAG_LEN_UNCHECKED == 0x0040u && RT_FLAG_SAVE_BUFFER == 0x0100u && RT_FLAG_CONSTRUCTED == 0x0400u &&
              RT_FLAG_SHARE_INPUT == 0x0800u && RT_FLAG_LAST_EOC == 0x1000u && RT_FLAG_INDEF_TOP == 0x4000u, "the flags");
constexpr size_t P = sizeof(void*);
#define OFF(field) offsetof(ASN1CTXT, field)
static_assert(OFF(typeHeap) == P && OFF(bufData) == 2 * P && OFF(bufIndex) == 3 * P && OFF(bufSize) == 3 * P + 4 &&
              OFF(bitOffset) == 3 * P + 8 && OFF(bufDynamic) == 3 * P + 10 && OFF(stream) < OFF(savedState) &&
              OFF(savedState) < OFF(errInfo) && OFF(errInfo) < OFF(ctxtListA) && OFF(ctxtListA) < OFF(ctxtListB) &&
              OFF(ctxtListB) < OFF(magic) && OFF(magic) < OFF(flags) && OFF(flags) < OFF(memContext) &&
              sizeof(ASN1CTXT::flags) == 2 && sizeof(ASN1CTXT::bitOffset) == 2 && sizeof(ASN1ErrInfo::status) == 4, "field order");
#undef OFF

class RtContext : public CountedContext {};

TEST(RtContextLife, InitRunFree)
{
    EXPECT_EQ(make_tuple(g_malloc_func, g_realloc_func, g_free_func),
              make_tuple(&rtDefaultMalloc, &rtDefaultRealloc, &rtDefaultFree));
    rtDefaultFree(tag, rtDefaultRealloc(tag, rtDefaultMalloc(tag, 16), 32));  // the defaults ignore the argument
    CountingAllocator alloc;
    ASN1CTXT ctxt, zero;
    std::memset(&ctxt, 0x5A, sizeof ctxt), std::memset(&zero, 0, sizeof zero);
    ASSERT_EQ(rtInitContext(&ctxt, tag), 0);  // one heap, two references, a zeroed record
    ASSERT_NE(ctxt.typeHeap, nullptr);
    EXPECT_EQ(make_tuple(ctxt.magic, ctxt.msgHeap, heapOf(ctxt.typeHeap)->refCnt, heapOf(ctxt.typeHeap)->memContext,
                         ctxt.memContext, ctxt.ctxtListA.pctxt, ctxt.ctxtListB.pctxt, ctxt.flags,
                         std::memcmp(&ctxt.bufData, &zero.bufData, offsetof(ASN1CTXT, ctxtListA) - 2 * P)),
              make_tuple(0x1aa2a34au, ctxt.typeHeap, 2u, tag, tag, &ctxt, &ctxt, ASN1USINT(0), 0));
    // A buffer, values, a growth freed through the other handle (one heap), list entries, a stream.
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 0) + rtStreamInit(&ctxt), 0);
    rtMemHeapFreePtr(&ctxt.msgHeap, rtMemHeapRealloc(&ctxt.typeHeap, rtMemHeapAlloc(&ctxt.typeHeap, 8), 4000));
    rtSListAppend(&ctxt.ctxtListA, rtMemHeapAlloc(&ctxt.typeHeap, 3)), rtSListAppend(&ctxt.ctxtListB, tag);
    const size_t frees = alloc.frees;
    ctxt.magic = 0x12345678;  // a bad magic frees nothing; a second free is harmless
    rtFreeContext(&ctxt), rtFreeContext(nullptr);
    EXPECT_EQ(make_tuple(alloc.frees, alloc.live()), make_tuple(frees, size_t(6)));
    ctxt.magic = RT_CTXT_MAGIC;
    rtFreeContext(&ctxt), rtFreeContext(&ctxt);
    // The type heap's release left a reference (its handle stays, stale); the message heap's nulled it.
    EXPECT_EQ(make_tuple(ctxt.magic, ctxt.stream, ctxt.ctxtListA.count, ctxt.ctxtListA.pctxt, ctxt.typeHeap != nullptr,
                         ctxt.msgHeap), make_tuple(0u, nullptr, 0u, nullptr, true, nullptr));
    // The ended record takes no buffer; every request and every free was with the allocator argument.
    EXPECT_EQ(make_tuple(rtInitContextBuffer(&ctxt, nullptr, 1), alloc.live(), alloc.frees, alloc.badFrees, alloc.contexts,
                         alloc.freeContexts), make_tuple(RT_E_NOT_READY, 0u, alloc.requests.size(), 0u,
                                                         Ptrs(alloc.requests.size(), tag), Ptrs(alloc.frees, tag)));
    std::memset(&ctxt, 0x5A, sizeof ctxt);  // a failed heap creation: zeroed but for the magic
    alloc.failNext();
    EXPECT_EQ(make_tuple(rtInitContext(&ctxt, tag), ctxt.magic), make_tuple(RT_E_NO_MEMORY, 0x1aa2a34au));
    ctxt.magic = 0;
    EXPECT_EQ(std::memcmp(&ctxt, &zero, sizeof ctxt), 0);
}

TEST_F(RtContext, InitContextBuffer)
{
    const ASN1OCTET data[5] = {1, 2, 3, 4, 5};
    ctxt.bufIndex = 7;
    ASSERT_EQ(rtInitContextBuffer(&ctxt, data, sizeof data), 0);
    EXPECT_EQ(make_tuple(ctxt.bufData, ctxt.bufSize, ctxt.bufDynamic, ctxt.bufIndex, ctxt.bitOffset),
              make_tuple(const_cast<ASN1OCTET*>(data), 5u, ASN1UINT8(0), 0u, ASN1SINT(8)));
    alloc.failNext();  // returned, not recorded: allocation failure never sets status by itself
    EXPECT_EQ(make_tuple(rtInitContextBuffer(&ctxt, nullptr, 0), ctxt.bufData, ctxt.errInfo.status),
              make_tuple(RT_E_NO_MEMORY, const_cast<ASN1OCTET*>(data), 0));
    for (ASN1UINT size : {0u, 100u}) {  // 0 asks for 16384
        const ASN1UINT expect = size != 0 ? size : 16384u;
        ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, size), 0);
        EXPECT_EQ(make_tuple(alloc.requests.back(), ctxt.bufSize, ctxt.bufDynamic, heapOf(ctxt.msgHeap)->head),
                  make_tuple(expect + 48u, expect, ASN1UINT8(1), blockOf(ctxt.bufData)));
    }
    ASN1CTXT bad{}, to;  // a record never initialised takes no buffer
    EXPECT_EQ(make_tuple(rtInitContextBuffer(&bad, data, 1), bad.bufData, bad.errInfo.status), make_tuple(-32, nullptr, 0));
    ASSERT_EQ(rtInitContext(&to, tag), 0);
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 40), 0);
    ctxt.bufIndex = 12, ctxt.bitOffset = 3, ctxt.errInfo.status = -5, ctxt.savedState.index = 9;
    ctxt.flags = RT_FLAG_INDEF_TOP | RT_FLAG_CONSTRUCTED;
    to.errInfo.status = -2;
    void* toHeap = to.typeHeap;
    rtCopyContext(&to, &ctxt);
    // The buffer state and flags are copied; the error block, saved state, heaps and allocator argument are not.
    EXPECT_EQ(make_tuple(to.bufData, to.bufIndex, to.bufSize, to.bitOffset, to.bufDynamic, to.flags, to.errInfo.status,
                         to.savedState.index, to.typeHeap, to.memContext),
              make_tuple(ctxt.bufData, 12u, 40u, ASN1SINT(3), ASN1UINT8(1), ctxt.flags, -2, 0u, toHeap, tag));
    to.bufDynamic = 0;  // a snapshot must not free the buffer it does not own
    rtFreeContext(&to);
    rtCtxtSetFlag(&ctxt, 0x10000u | RT_FLAG_LEN_UNCHECKED), rtCtxtSetFlag(&ctxt, 0);  // only the low 16 bits, ORed
    EXPECT_EQ(ctxt.flags, RT_FLAG_INDEF_TOP | RT_FLAG_CONSTRUCTED | RT_FLAG_LEN_UNCHECKED);
    ASN1ErrInfo& err = ctxt.errInfo;  // the error block keeps the first status only
    rtErrReset(&err);
    ASN1ErrInfo from{-12};
    // Later statuses are only returned to the caller; any non-zero value counts as the first.
    EXPECT_EQ((Ints{rtErrSetData(&err, -5), rtErrSetData(&err, -3), rtErrSetData(&err, 0), err.status, rtErrReset(&err),
                    rtErrSetData(&err, 7), err.status, rtErrCopyData(&from, &err), err.status, rtErrReset(&err)}),
              (Ints{-5, -3, 0, -5, 0, 7, 7, -12, -12, 0}));
    // Parameter functions do nothing; the text is one shared empty string whatever the status.
    EXPECT_EQ(rtErrAddStrParm(&err, "pvalue->count") + rtErrAddIntParm(&err, 42) + xu_addErrParm(&ctxt, "pvalue->count") +
                  xu_addIntErrParm(&ctxt, -1) + xu_addUnsignedErrParm(&ctxt, 7u) + xu_addTagErrParm(&ctxt, 0xa0000002u), 6);
    xu_freeErrParms(&ctxt);
    xu_log_error(&ctxt, "%d", 1);
    char buf[8] = "zzzzzzz";
    const char* text = rtErrGetText();
    EXPECT_EQ(make_tuple(err.status, std::string(text), xu_fmtErrMsg(&ctxt, buf)), make_tuple(0, std::string(), text));
    EXPECT_EQ((Ints{xu_error(&ctxt, RT_E_MISSING_ELEMENT), xu_error(&ctxt, RT_E_NO_MEMORY)}), (Ints{-8, -12}));
    EXPECT_EQ(make_tuple(err.status, rtErrGetText(), xu_fmtErrMsg(&ctxt, buf), std::string(buf)),
              make_tuple(-8, text, text, std::string("zzzzzzz")));
    for (int status : {-30, 0}) {  // on standard output, through the block or the context, with the count printed
        testing::internal::CaptureStdout();
        const int n = (err.status = status) != 0 ? rtErrPrint(&err) : xu_perror(&ctxt);
        EXPECT_EQ(make_tuple((fflush(stdout), testing::internal::GetCapturedStdout()), n),
                  make_tuple("ASN.1 ERROR: Status " + std::to_string(status) + "\n", status != 0 ? 24 : 22));
    }
}

// A dynamic buffer outlives its context exactly when the save flag is set and another
// context holds the heap; with no other holder the heap's release frees it all the same.
TEST(RtContextHeaps, SaveBufferAndSharedHeaps)
{
    for (int row = 0; row < 4; row++) {
        const bool save = row & 1, shared = row & 2;
        SCOPED_TRACE(testing::Message() << "save " << save << ", shared " << shared);
        CountingAllocator alloc;
        ASN1CTXT a, b;
        ASSERT_EQ(rtInitContext(&a, nullptr) + rtInitContext(&b, nullptr), 0);
        rtCtxtSetFlag(&a, save ? RT_FLAG_SAVE_BUFFER : 0);
        ASSERT_EQ(rtInitContextBuffer(&a, nullptr, 32), 0);
        ASN1OCTET* buffer = a.bufData;
        rtCtxtSetMsgMemHeap(&b, shared ? &a : nullptr), rtFreeContext(&a);
        EXPECT_EQ(alloc.isLive(blockOf(buffer)), save && shared);
        rtFreeContext(&b);
        EXPECT_EQ(make_tuple(alloc.live(), alloc.badFrees), make_tuple(0u, 0u));
    }
    // rtCtxtSetMemHeap and rtCtxtSetMsgMemHeap share one handle.
    for (void* ASN1CTXT::*moved : {&ASN1CTXT::typeHeap, &ASN1CTXT::msgHeap}) {
        const bool type = moved == &ASN1CTXT::typeHeap;
        SCOPED_TRACE(type ? "type heap" : "message heap");
        auto share = type ? rtCtxtSetMemHeap : rtCtxtSetMsgMemHeap;
        CountingAllocator alloc;
        ASN1CTXT a, b;
        ASSERT_EQ(rtInitContext(&a, nullptr) + rtInitContext(&b, nullptr), 0);
        void* bHeap = b.*moved;
        share(&b, nullptr), share(nullptr, &a), share(&b, &b);  // nothing
        EXPECT_EQ(heapOf(bHeap)->refCnt, 2u);
        share(&b, &a), share(&b, &a);  // the second finds one heap already: nothing
        EXPECT_EQ(make_tuple(b.*moved, type ? b.msgHeap : b.typeHeap, heapOf(a.*moved)->refCnt, heapOf(bHeap)->refCnt),
                  make_tuple(a.*moved, bHeap, 3u, 1u));
        void* value = rtMemHeapAlloc(&(b.*moved), 16);  // outlives a until the last holder goes
        rtFreeContext(&a);
        EXPECT_TRUE(alloc.isLive(blockOf(value)));
        rtFreeContext(&b);
        EXPECT_EQ(alloc.live(), 0u);
    }
}

class RtHeap : public testing::Test {
protected:
    void TearDown() override
    {
        rtMemHeapRelease(&h);  // nothing live, no stray free, and g_realloc_func never called
        EXPECT_EQ(make_tuple(alloc.live(), alloc.badFrees, alloc.reallocs), make_tuple(0u, 0u, 0u));
    }
    CountingAllocator alloc;
    void* h = nullptr;
};

TEST_F(RtHeap, CreateReferencesFreePtrAndSizeLimits)
{
    alloc.failNext();
    EXPECT_EQ(make_tuple(rtMemHeapCreate(nullptr, nullptr), rtMemHeapCreate(&h, nullptr), h), make_tuple(-30, -12, nullptr));
    ASSERT_EQ(rtMemHeapCreate(&h, tag), 0);
    const RtMemHeap* r = heapOf(h);
    EXPECT_EQ(make_tuple(r->head, r->defBlkSize, r->refCnt, r->flags, r->memContext, alloc.requests.back(), alloc.contexts.back()),
              make_tuple(nullptr, 4096u, 1u, 0x10000000u, tag, sizeof(RtMemHeap), tag));
    void* first = h;
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);  // the handle is overwritten, the old heap not released
    rtMemHeapAddRef(&first), rtMemHeapAddRef(&first), rtMemHeapAlloc(&first, 5), rtMemHeapAlloc(&first, 6);
    rtMemHeapRelease(&first), rtMemHeapRelease(&first);  // references remain: the handle keeps its value
    EXPECT_EQ(make_tuple(first, heapOf(first)->refCnt, alloc.live()), make_tuple(r, 1u, 4u));
    rtMemHeapRelease(&first);  // the last one: blocks and record go, the handle is nulled
    EXPECT_EQ(make_tuple(first, alloc.live(), alloc.freeContexts.back()), make_tuple(nullptr, 1u, tag));
    rtMemHeapRelease(&h);  // allocations link at the head behind a 48-byte header; FreePtr unlinks
    ASSERT_EQ(rtMemHeapCreate(&h, tag), 0);
    void *a = rtMemHeapAlloc(&h, 10), *b = rtMemHeapAlloc(&h, 20), *c = rtMemHeapAlloc(&h, 0);  // 0: a block all the same
    EXPECT_EQ(make_tuple(blocks(h), blockOf(a)->size, blockOf(c)->size, alloc.requests[alloc.requests.size() - 3]),
              make_tuple(Ptrs{c, b, a}, 10u, 0u, 58u));
    rtMemHeapFreePtr(&h, b), rtMemHeapFreePtr(&h, c);  // middle, head
    EXPECT_EQ(make_tuple(blocks(h), alloc.freeContexts.back()), make_tuple(Ptrs{a}, tag));
    rtMemHeapFreePtr(&h, a);  // the last block
    EXPECT_EQ(make_tuple(heapOf(h)->head, alloc.live()), make_tuple(nullptr, 1u));
    // AllocZ zeroes what the allocator filled with 0xCC; Alloc does not.
    const unsigned char* zp = static_cast<unsigned char*>(rtMemHeapAllocZ(&h, 33));
    ASSERT_NE(zp, nullptr);
    EXPECT_EQ(make_tuple(std::count(zp, zp + 33, 0), *static_cast<unsigned char*>(rtMemHeapAlloc(&h, 4))),
              make_tuple(std::ptrdiff_t(33), 0xCC));
    rtMemHeapRelease(&h), alloc.limit = 1024;  // size limits; the huge requests below are refused by the allocator
    void* kept = rtMemHeapAlloc(&h, 4);
    const size_t calls = alloc.mallocCalls();
    EXPECT_EQ(rtMemHeapAlloc(&h, 2147483599), nullptr);  // attempted: the request is that plus 48
    EXPECT_EQ(alloc.requests.back(), size_t(2147483599) + 48);
    // 2147483600 and above: null without calling the allocator, on every path.
    EXPECT_EQ((Ptrs{rtMemHeapAlloc(&h, 2147483600), rtMemHeapAllocZ(&h, INT_MAX), rtMemHeapRealloc(&h, nullptr, 2147483600),
                    rtMemHeapRealloc(&h, kept, 2147483600)}), Ptrs(4, nullptr));
    EXPECT_EQ(alloc.mallocCalls(), calls + 1);
    // A negative size passes the signed test: the request, sign-extended plus 48, wraps on both
    // widths; -1 asks for 47 octets, which cannot hold the header: the block goes back, null.
    const std::pair<int, size_t> negatives[] = {
        {-100, SIZE_MAX - 51}, {INT_MIN, static_cast<size_t>(static_cast<ptrdiff_t>(INT_MIN)) + 48}, {-1, 47}};
    for (const auto& n : negatives)
        EXPECT_EQ((std::tuple<void*, size_t>{rtMemHeapAlloc(&h, n.first), alloc.requests.back()}), make_tuple(nullptr, n.second));
    EXPECT_EQ(make_tuple(alloc.mallocCalls(), blocks(h)), make_tuple(calls + 4, Ptrs{kept}));
}

TEST_F(RtHeap, NullAndEmptyHandlesAndRealloc)
{
    // Only rtMemHeapAlloc fills an empty handle, with a null allocator argument.
    EXPECT_EQ((Ptrs{rtMemHeapAlloc(nullptr, 8), rtMemHeapRealloc(nullptr, nullptr, 8), rtMemHeapRealloc(&h, nullptr, 8)}),
              Ptrs(3, nullptr));
    rtMemHeapAddRef(nullptr), rtMemHeapAddRef(&h), rtMemHeapRelease(nullptr), rtMemHeapRelease(&h);
    rtMemHeapFreePtr(&h, tag), rtMemHeapFreePtr(nullptr, tag);
    EXPECT_EQ(make_tuple(h, alloc.mallocCalls(), alloc.frees), make_tuple(nullptr, 0u, 0u));
    alloc.failNext();  // the creation fails
    EXPECT_EQ(make_tuple(rtMemHeapAlloc(&h, 8), h), make_tuple(nullptr, nullptr));
    void* p = rtMemHeapAlloc(&h, 8);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(make_tuple(heapOf(h)->memContext, heapOf(h)->refCnt, alloc.mallocCalls()), make_tuple(nullptr, 1u, 3u));
    rtMemHeapFreePtr(&h, nullptr);
    // The guards of generated free functions are always true and mark nothing.
    EXPECT_EQ(make_tuple(rtMemHeapCheckPtr(nullptr, nullptr), rtMemHeapCheckPtr(&h, tag), rtMemHeapMarkSaved(&h, p, 1),
                         blocks(h), alloc.frees), make_tuple(1, 1, 0, Ptrs{p}, 0u));
    rtMemHeapFreePtr(&h, p);  // Realloc keeps a smaller size and copies on growth
    void* below = rtMemHeapAlloc(&h, 4);
    auto* old = static_cast<unsigned char*>(rtMemHeapRealloc(&h, nullptr, 8));  // null: allocates
    void* above = rtMemHeapAlloc(&h, 4);
    std::memcpy(old, "\x01\x02\x03\x04\x05\x06\x07\x08", 8);
    const size_t calls = alloc.mallocCalls();
    alloc.failNext();  // equal or smaller: the same pointer, only the stored size goes down; a failed growth keeps the old block
    EXPECT_EQ((Ptrs{rtMemHeapRealloc(&h, old, 8), rtMemHeapRealloc(&h, old, 4), rtMemHeapRealloc(&h, old, 64)}),
              (Ptrs{old, old, nullptr}));
    EXPECT_EQ(make_tuple(alloc.mallocCalls(), blockOf(old)->size, old[3]), make_tuple(calls + 1, 4u, 4));
    // Growing back copies only the lower size; the new block goes to the head, the old one is unlinked.
    auto* moved = static_cast<unsigned char*>(rtMemHeapRealloc(&h, old, 8));
    ASSERT_TRUE(moved != nullptr && moved != old);
    EXPECT_EQ(std::memcmp(moved, "\x01\x02\x03\x04\xCC\xCC\xCC\xCC", 8), 0);
    EXPECT_EQ(make_tuple(alloc.requests.back(), blockOf(moved)->size, blocks(h), alloc.live()),
              make_tuple(56u, 8u, Ptrs{moved, above, below}, 4u));
    rtMemHeapRelease(&h);  // without the free flag the record stays with its caller
    ASSERT_EQ(rtMemHeapCreate(&h, nullptr), 0);
    RtMemHeap* record = heapOf(h);
    record->flags = 0;
    rtMemHeapAlloc(&h, 5), rtMemHeapRelease(&h);
    EXPECT_EQ(make_tuple(h, alloc.live(), alloc.isLive(record), record->head), make_tuple(nullptr, 1u, true, nullptr));
    g_free_func(nullptr, record);
}

}  // namespace
