// The runtime context and the error block.
#include "asn1rt/context.h"
#include "asn1rt/lists.h"
#include "asn1rt/stream.h"
#include "rt_alloc_counter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using rttest::blockOf;
using rttest::CountingAllocator;
using rttest::heapOf;

namespace {

int g_tag;

TEST(RtStatus, TableValues)
{
    EXPECT_EQ(RT_E_BUFFER_FULL, -1);
    EXPECT_EQ(RT_E_END_OF_BUFFER, -2);
    EXPECT_EQ(RT_E_TAG_MISMATCH, -3);
    EXPECT_EQ(RT_E_BAD_OBJID, -4);
    EXPECT_EQ(RT_E_BAD_LENGTH, -5);
    EXPECT_EQ(RT_E_BAD_ENUM, -6);
    EXPECT_EQ(RT_E_SET_DUPLICATE, -7);
    EXPECT_EQ(RT_E_MISSING_ELEMENT, -8);
    EXPECT_EQ(RT_E_SET_UNKNOWN_TAG, -9);
    EXPECT_EQ(RT_E_EXTRA_ELEMENT, -10);
    EXPECT_EQ(RT_E_BAD_CHOICE, -11);
    EXPECT_EQ(RT_E_NO_MEMORY, -12);
    EXPECT_EQ(RT_E_TOO_LONG, -17);
    EXPECT_EQ(RT_E_BAD_VALUE, -18);
    EXPECT_EQ(RT_E_BAD_TAG, -21);
    EXPECT_EQ(RT_E_CONSTRAINT, -23);
    EXPECT_EQ(RT_E_BAD_RANGE, -24);
    EXPECT_EQ(RT_E_BAD_UTF8, -26);
    EXPECT_EQ(RT_E_ITER_STALE, -27);
    EXPECT_EQ(RT_E_ITER_NO_CURRENT, -28);
    EXPECT_EQ(RT_E_OUT_OF_RANGE, -29);
    EXPECT_EQ(RT_E_BAD_ARGUMENT, -30);
    EXPECT_EQ(RT_E_BAD_TIME, -31);
    EXPECT_EQ(RT_E_NOT_READY, -32);
    EXPECT_EQ(RT_E_INT_TOO_BIG, -33);
    EXPECT_EQ(RT_E_NOT_SUPPORTED, -99);
    EXPECT_EQ(RT_INDEFINITE_LENGTH, -9999);
    EXPECT_EQ(RT_FLAG_LEN_UNCHECKED, 0x0040u);
    EXPECT_EQ(RT_FLAG_SAVE_BUFFER, 0x0100u);
    EXPECT_EQ(RT_FLAG_CONSTRUCTED, 0x0400u);
    EXPECT_EQ(RT_FLAG_SHARE_INPUT, 0x0800u);
    EXPECT_EQ(RT_FLAG_LAST_EOC, 0x1000u);
    EXPECT_EQ(RT_FLAG_INDEF_TOP, 0x4000u);
}

TEST(RtContext, RecordLayout)
{
    EXPECT_EQ(offsetof(ASN1CTXT, msgHeap), 0u);
    EXPECT_EQ(offsetof(ASN1CTXT, typeHeap), sizeof(void*));
    EXPECT_EQ(offsetof(ASN1CTXT, bufData), 2 * sizeof(void*));
    EXPECT_EQ(offsetof(ASN1CTXT, bufIndex), 3 * sizeof(void*));
    EXPECT_EQ(offsetof(ASN1CTXT, bufSize), 3 * sizeof(void*) + 4);
    EXPECT_EQ(offsetof(ASN1CTXT, bitOffset), 3 * sizeof(void*) + 8);
    EXPECT_EQ(offsetof(ASN1CTXT, bufDynamic), 3 * sizeof(void*) + 10);
    EXPECT_LT(offsetof(ASN1CTXT, stream), offsetof(ASN1CTXT, savedState));
    EXPECT_LT(offsetof(ASN1CTXT, savedState), offsetof(ASN1CTXT, errInfo));
    EXPECT_LT(offsetof(ASN1CTXT, errInfo), offsetof(ASN1CTXT, ctxtListA));
    EXPECT_LT(offsetof(ASN1CTXT, ctxtListA), offsetof(ASN1CTXT, ctxtListB));
    EXPECT_LT(offsetof(ASN1CTXT, ctxtListB), offsetof(ASN1CTXT, magic));
    EXPECT_LT(offsetof(ASN1CTXT, magic), offsetof(ASN1CTXT, flags));
    EXPECT_LT(offsetof(ASN1CTXT, flags), offsetof(ASN1CTXT, memContext));
    EXPECT_EQ(sizeof(RtBufferState), 8u);
    EXPECT_EQ(sizeof(((ASN1CTXT*)nullptr)->flags), 2u);
    EXPECT_EQ(sizeof(((ASN1CTXT*)nullptr)->bitOffset), 2u);
    EXPECT_EQ(sizeof(((ASN1CTXT*)nullptr)->errInfo.status), 4u);
}

TEST(RtContext, InitSharesOneHeapWithTwoReferences)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    std::memset(&ctxt, 0x5A, sizeof ctxt);
    ASSERT_EQ(rtInitContext(&ctxt, &g_tag), 0);
    EXPECT_EQ(ctxt.magic, 0x1aa2a34au);
    ASSERT_NE(ctxt.typeHeap, nullptr);
    EXPECT_EQ(ctxt.msgHeap, ctxt.typeHeap);
    EXPECT_EQ(heapOf(ctxt.typeHeap)->refCnt, 2u);
    EXPECT_EQ(heapOf(ctxt.typeHeap)->memContext, &g_tag);
    EXPECT_EQ(ctxt.memContext, &g_tag);
    EXPECT_EQ(alloc.contexts()[0], &g_tag);
    EXPECT_EQ(ctxt.bufData, nullptr);
    EXPECT_EQ(ctxt.bufIndex, 0u);
    EXPECT_EQ(ctxt.bufSize, 0u);
    EXPECT_EQ(ctxt.bitOffset, 0);
    EXPECT_EQ(ctxt.bufDynamic, 0);
    EXPECT_EQ(ctxt.stream, nullptr);
    EXPECT_EQ(ctxt.errInfo.status, 0);
    EXPECT_EQ(ctxt.flags, 0);
    EXPECT_EQ(ctxt.savedState.index, 0u);
    EXPECT_EQ(ctxt.ctxtListA.count, 0u);
    EXPECT_EQ(ctxt.ctxtListA.head, nullptr);
    EXPECT_EQ(ctxt.ctxtListA.pctxt, &ctxt);
    EXPECT_EQ(ctxt.ctxtListB.pctxt, &ctxt);
    rtFreeContext(&ctxt);
    EXPECT_EQ(ctxt.magic, 0u);
    // The type heap's release left a reference, so that handle keeps its (stale) value;
    // the message heap's release dropped the last one and nulled its handle.
    EXPECT_NE(ctxt.typeHeap, nullptr);
    EXPECT_EQ(ctxt.msgHeap, nullptr);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, InitFailureLeavesTheRecordZeroedButForTheMagic)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    std::memset(&ctxt, 0x5A, sizeof ctxt);
    alloc.failNext();
    EXPECT_EQ(rtInitContext(&ctxt, &g_tag), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.magic, 0x1aa2a34au);
    EXPECT_EQ(ctxt.typeHeap, nullptr);
    EXPECT_EQ(ctxt.msgHeap, nullptr);
    EXPECT_EQ(ctxt.memContext, nullptr);
    EXPECT_EQ(ctxt.errInfo.status, 0);
    EXPECT_EQ(ctxt.ctxtListA.pctxt, nullptr);
    rtFreeContext(&ctxt);  // harmless
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, InitContextBufferWithACallerBuffer)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    const ASN1OCTET data[5] = {1, 2, 3, 4, 5};
    ctxt.bufIndex = 7;
    ASSERT_EQ(rtInitContextBuffer(&ctxt, data, sizeof data), 0);
    EXPECT_EQ(ctxt.bufData, data);
    EXPECT_EQ(ctxt.bufSize, 5u);
    EXPECT_EQ(ctxt.bufDynamic, 0);
    EXPECT_EQ(ctxt.bufIndex, 0u);
    EXPECT_EQ(ctxt.bitOffset, 8);
    rtFreeContext(&ctxt);  // the caller's buffer is not freed
    EXPECT_EQ(alloc.live(), 0u);
    EXPECT_EQ(alloc.badFrees(), 0u);
}

TEST(RtContext, InitContextBufferAllocates16384ByDefault)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 0), 0);
    EXPECT_EQ(alloc.requests().back(), 16384u + 48u);
    ASSERT_NE(ctxt.bufData, nullptr);
    EXPECT_EQ(ctxt.bufSize, 16384u);
    EXPECT_EQ(ctxt.bufDynamic, 1);
    EXPECT_EQ(ctxt.bitOffset, 8);
    EXPECT_EQ(heapOf(ctxt.msgHeap)->head, blockOf(ctxt.bufData));
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 100), 0);
    EXPECT_EQ(alloc.requests().back(), 148u);
    EXPECT_EQ(ctxt.bufSize, 100u);
    rtFreeContext(&ctxt);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, InitContextBufferFailures)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    std::memset(&ctxt, 0, sizeof ctxt);
    const ASN1OCTET data[1] = {0};
    EXPECT_EQ(rtInitContextBuffer(&ctxt, data, 1), RT_E_NOT_READY);
    EXPECT_EQ(ctxt.bufData, nullptr);
    EXPECT_EQ(ctxt.errInfo.status, 0);  // returned, not recorded

    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    alloc.failNext();
    EXPECT_EQ(rtInitContextBuffer(&ctxt, nullptr, 0), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.bufData, nullptr);
    EXPECT_EQ(ctxt.bufDynamic, 0);
    EXPECT_EQ(ctxt.errInfo.status, 0);  // allocation failure never sets status by itself
    rtFreeContext(&ctxt);
    EXPECT_EQ(rtInitContextBuffer(&ctxt, data, 1), RT_E_NOT_READY);  // after the end
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, FreeContextTwiceIsHarmless)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, &g_tag), 0);
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 64), 0);
    rtMemHeapAlloc(&ctxt.typeHeap, 10);
    rtSListAppend(&ctxt.ctxtListA, &g_tag);
    rtSListAppend(&ctxt.ctxtListB, &g_tag);
    ASSERT_EQ(rtStreamInit(&ctxt), 0);
    rtFreeContext(&ctxt);
    EXPECT_EQ(ctxt.magic, 0u);
    EXPECT_EQ(ctxt.stream, nullptr);
    EXPECT_EQ(ctxt.ctxtListA.count, 0u);
    EXPECT_EQ(ctxt.ctxtListA.pctxt, nullptr);
    EXPECT_EQ(alloc.live(), 0u);
    const size_t frees = alloc.freeCalls();
    rtFreeContext(&ctxt);
    EXPECT_EQ(alloc.freeCalls(), frees);
    EXPECT_EQ(alloc.badFrees(), 0u);
    for (void* c : alloc.freeContexts())
        EXPECT_EQ(c, &g_tag);
}

TEST(RtContext, FreeContextWithABadMagicDoesNothing)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    ctxt.magic = 0x12345678;
    rtFreeContext(&ctxt);
    EXPECT_EQ(alloc.freeCalls(), 0u);
    EXPECT_NE(ctxt.typeHeap, nullptr);
    EXPECT_EQ(ctxt.magic, 0x12345678u);
    ctxt.magic = RT_CTXT_MAGIC;
    rtFreeContext(&ctxt);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, SaveBufferWithoutAnotherHolderIsFreedByTheHeap)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    rtCtxtSetFlag(&ctxt, RT_FLAG_SAVE_BUFFER);
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 32), 0);
    rtFreeContext(&ctxt);
    EXPECT_EQ(alloc.live(), 0u);
    EXPECT_EQ(alloc.badFrees(), 0u);
}

TEST(RtContext, SaveBufferOutlivesTheContextWhenTheHeapIsShared)
{
    CountingAllocator alloc;
    ASN1CTXT a, b;
    ASSERT_EQ(rtInitContext(&a, nullptr), 0);
    ASSERT_EQ(rtInitContext(&b, nullptr), 0);
    rtCtxtSetFlag(&a, RT_FLAG_SAVE_BUFFER);
    ASSERT_EQ(rtInitContextBuffer(&a, nullptr, 32), 0);
    ASN1OCTET* buffer = a.bufData;
    std::memcpy(buffer, "kept", 4);
    rtCtxtSetMsgMemHeap(&b, &a);  // b holds a's heap: count 3
    EXPECT_EQ(heapOf(a.msgHeap)->refCnt, 3u);
    rtFreeContext(&a);
    EXPECT_TRUE(alloc.isLive(blockOf(buffer)));
    EXPECT_EQ(std::memcmp(buffer, "kept", 4), 0);
    rtFreeContext(&b);
    EXPECT_FALSE(alloc.isLive(blockOf(buffer)));
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, WithoutSaveBufferTheBufferGoesWithTheContext)
{
    CountingAllocator alloc;
    ASN1CTXT a, b;
    ASSERT_EQ(rtInitContext(&a, nullptr), 0);
    ASSERT_EQ(rtInitContext(&b, nullptr), 0);
    ASSERT_EQ(rtInitContextBuffer(&a, nullptr, 32), 0);
    ASN1OCTET* buffer = a.bufData;
    rtCtxtSetMsgMemHeap(&b, &a);
    rtFreeContext(&a);
    EXPECT_FALSE(alloc.isLive(blockOf(buffer)));
    rtFreeContext(&b);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, CopyContextCopiesTheCursorOnly)
{
    CountingAllocator alloc;
    ASN1CTXT from, to;
    ASSERT_EQ(rtInitContext(&from, nullptr), 0);
    ASSERT_EQ(rtInitContext(&to, &g_tag), 0);
    ASSERT_EQ(rtInitContextBuffer(&from, nullptr, 40), 0);
    from.bufIndex = 12;
    from.bitOffset = 3;
    from.flags = RT_FLAG_INDEF_TOP | RT_FLAG_CONSTRUCTED;
    from.errInfo.status = -5;
    from.savedState.index = 9;
    to.errInfo.status = -2;
    void* toHeap = to.typeHeap;
    rtCopyContext(&to, &from);
    EXPECT_EQ(to.bufData, from.bufData);
    EXPECT_EQ(to.bufIndex, 12u);
    EXPECT_EQ(to.bufSize, 40u);
    EXPECT_EQ(to.bitOffset, 3);
    EXPECT_EQ(to.bufDynamic, 1);
    EXPECT_EQ(to.flags, RT_FLAG_INDEF_TOP | RT_FLAG_CONSTRUCTED);
    EXPECT_EQ(to.errInfo.status, -2);
    EXPECT_EQ(to.savedState.index, 0u);
    EXPECT_EQ(to.typeHeap, toHeap);
    EXPECT_EQ(to.memContext, &g_tag);
    // The copy is a snapshot: it must not free the buffer it does not own.
    to.bufDynamic = 0;
    rtFreeContext(&to);
    rtFreeContext(&from);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, SetFlagOrsTheLow16Bits)
{
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    rtCtxtSetFlag(&ctxt, RT_FLAG_SHARE_INPUT);
    rtCtxtSetFlag(&ctxt, 0x10000u | RT_FLAG_LEN_UNCHECKED);
    EXPECT_EQ(ctxt.flags, RT_FLAG_SHARE_INPUT | RT_FLAG_LEN_UNCHECKED);
    rtCtxtSetFlag(&ctxt, 0);
    EXPECT_EQ(ctxt.flags, RT_FLAG_SHARE_INPUT | RT_FLAG_LEN_UNCHECKED);
    rtFreeContext(&ctxt);
}

TEST(RtContext, SetMemHeapSharesTheTypeHeap)
{
    CountingAllocator alloc;
    ASN1CTXT a, b;
    ASSERT_EQ(rtInitContext(&a, nullptr), 0);
    ASSERT_EQ(rtInitContext(&b, nullptr), 0);
    void* bHeap = b.typeHeap;
    rtCtxtSetMemHeap(&b, nullptr);
    rtCtxtSetMemHeap(nullptr, &a);
    EXPECT_EQ(b.typeHeap, bHeap);
    rtCtxtSetMemHeap(&b, &b);  // one heap already: nothing
    EXPECT_EQ(heapOf(bHeap)->refCnt, 2u);

    rtCtxtSetMemHeap(&b, &a);
    EXPECT_EQ(b.typeHeap, a.typeHeap);
    EXPECT_EQ(b.msgHeap, bHeap);
    EXPECT_EQ(heapOf(a.typeHeap)->refCnt, 3u);
    EXPECT_EQ(heapOf(bHeap)->refCnt, 1u);
    rtCtxtSetMemHeap(&b, &a);  // now both name one heap: nothing
    EXPECT_EQ(heapOf(a.typeHeap)->refCnt, 3u);

    // A value decoded into b's type heap outlives a and b's control until the last holder.
    void* value = rtMemHeapAlloc(&b.typeHeap, 16);
    rtFreeContext(&a);
    EXPECT_TRUE(alloc.isLive(blockOf(value)));
    rtFreeContext(&b);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, SetMsgMemHeapSharesTheMessageHeap)
{
    CountingAllocator alloc;
    ASN1CTXT a, b;
    ASSERT_EQ(rtInitContext(&a, nullptr), 0);
    ASSERT_EQ(rtInitContext(&b, nullptr), 0);
    void* bHeap = b.msgHeap;
    rtCtxtSetMsgMemHeap(&b, nullptr);
    EXPECT_EQ(b.msgHeap, bHeap);
    rtCtxtSetMsgMemHeap(&b, &a);
    EXPECT_EQ(b.msgHeap, a.msgHeap);
    EXPECT_EQ(b.typeHeap, bHeap);
    EXPECT_EQ(heapOf(a.msgHeap)->refCnt, 3u);
    EXPECT_EQ(heapOf(bHeap)->refCnt, 1u);
    rtFreeContext(&b);
    rtFreeContext(&a);
    EXPECT_EQ(alloc.live(), 0u);
}

TEST(RtContext, CountingAllocatorFindsNoLeakAfterAFullRun)
{
    CountingAllocator alloc;
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, &g_tag), 0);
    ASSERT_EQ(rtInitContextBuffer(&ctxt, nullptr, 0), 0);
    Asn1RTDList list;
    rtDListInit(&list);
    for (int i = 0; i < 50; i++) {
        void* v = rtMemHeapAlloc(&ctxt.typeHeap, i);
        rtDListAppend(&ctxt, &list, v);
    }
    void* grow = rtMemHeapAlloc(&ctxt.typeHeap, 8);
    grow = rtMemHeapRealloc(&ctxt.typeHeap, grow, 4000);
    rtMemHeapFreePtr(&ctxt.msgHeap, grow);  // the two handles name one heap
    Asn1RTMemBuf mb;
    rtMemBufInit(&ctxt, &mb, 64);
    ASSERT_EQ(rtMemBufSet(&mb, 0xAB, 1000), 0);
    ASSERT_EQ(rtWriteBytes(&ctxt, reinterpret_cast<const ASN1OCTET*>("x"), 1), 0);
    EXPECT_GT(alloc.live(), 50u);
    rtFreeContext(&ctxt);
    EXPECT_EQ(alloc.live(), 0u);
    EXPECT_EQ(alloc.badFrees(), 0u);
    EXPECT_EQ(alloc.reallocCalls(), 0u);
    for (void* c : alloc.contexts())
        EXPECT_EQ(c, &g_tag);
}

// ---- Error block -------------------------------------------------------------------------

TEST(RtError, SetDataKeepsTheFirstStatus)
{
    ASN1ErrInfo err;
    std::memset(&err, 0, sizeof err);
    EXPECT_EQ(rtErrSetData(&err, RT_E_BAD_LENGTH), -5);
    EXPECT_EQ(err.status, -5);
    EXPECT_EQ(rtErrSetData(&err, RT_E_TAG_MISMATCH), -3);  // returned to the caller...
    EXPECT_EQ(err.status, -5);                             // ...the first one survives
    EXPECT_EQ(rtErrSetData(&err, 0), 0);
    EXPECT_EQ(err.status, -5);
    EXPECT_EQ(rtErrReset(&err), 0);
    EXPECT_EQ(err.status, 0);
    EXPECT_EQ(rtErrSetData(&err, 7), 7);  // any non-zero value is stored first
    EXPECT_EQ(err.status, 7);
}

TEST(RtError, CopyData)
{
    ASN1ErrInfo from{-12}, to{-3};
    EXPECT_EQ(rtErrCopyData(&from, &to), -12);
    EXPECT_EQ(to.status, -12);
    EXPECT_EQ(from.status, -12);
}

TEST(RtError, PrintWritesTheStatusOnStandardOutput)
{
    ASN1ErrInfo err{-30};
    testing::internal::CaptureStdout();
    int n = rtErrPrint(&err);
    fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "ASN.1 ERROR: Status -30\n");
    EXPECT_EQ(n, static_cast<int>(out.size()));

    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    testing::internal::CaptureStdout();
    n = xu_perror(&ctxt);
    fflush(stdout);
    out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "ASN.1 ERROR: Status 0\n");
    EXPECT_EQ(n, 22);
    rtFreeContext(&ctxt);
}

TEST(RtError, TextIsAlwaysTheSharedEmptyString)
{
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    const char* t = rtErrGetText();
    ASSERT_NE(t, nullptr);
    EXPECT_STREQ(t, "");
    char buf[8] = "zzzzzzz";
    EXPECT_EQ(xu_fmtErrMsg(&ctxt, buf), t);
    xu_error(&ctxt, RT_E_BAD_TAG);
    EXPECT_EQ(rtErrGetText(), t);
    EXPECT_EQ(xu_fmtErrMsg(&ctxt, buf), t);
    EXPECT_STREQ(buf, "zzzzzzz");
    rtFreeContext(&ctxt);
}

TEST(RtError, ParameterFunctionsDoNothing)
{
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    EXPECT_EQ(rtErrAddStrParm(&ctxt.errInfo, "pvalue->count"), 1);
    EXPECT_EQ(rtErrAddIntParm(&ctxt.errInfo, 42), 1);
    EXPECT_EQ(xu_addErrParm(&ctxt, "pvalue->count"), 1);
    EXPECT_EQ(xu_addIntErrParm(&ctxt, -1), 1);
    EXPECT_EQ(xu_addUnsignedErrParm(&ctxt, 7u), 1);
    EXPECT_EQ(xu_addTagErrParm(&ctxt, 0xa0000002u), 1);
    xu_freeErrParms(&ctxt);
    xu_log_error(&ctxt, "%d", 1);
    EXPECT_EQ(ctxt.errInfo.status, 0);
    EXPECT_EQ(xu_error(&ctxt, RT_E_MISSING_ELEMENT), -8);
    EXPECT_EQ(xu_error(&ctxt, RT_E_NO_MEMORY), -12);
    EXPECT_EQ(ctxt.errInfo.status, -8);
    EXPECT_EQ(rtErrAddIntParm(&ctxt.errInfo, 42), 1);
    EXPECT_EQ(ctxt.errInfo.status, -8);
    rtFreeContext(&ctxt);
}

TEST(RtError, ANewBufferDoesNotClearTheStatus)
{
    ASN1CTXT ctxt;
    ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    xu_error(&ctxt, RT_E_END_OF_BUFFER);
    const ASN1OCTET data[2] = {5, 0};
    ASSERT_EQ(rtInitContextBuffer(&ctxt, data, 2), 0);
    EXPECT_EQ(ctxt.errInfo.status, -2);
    rtErrReset(&ctxt.errInfo);
    EXPECT_EQ(ctxt.errInfo.status, 0);
    rtFreeContext(&ctxt);
}

}  // namespace
