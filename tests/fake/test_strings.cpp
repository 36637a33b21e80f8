// Reference-counted strings, their managers, the temporary buffer and the string proxies.
#include "core/strings.h"
#include "support/testsupport.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

typedef ATL::CSimpleStringT<char, false> CStringA;
typedef ATL::CSimpleStringT<wchar_t, false> CStringW;

// A heap that counts what passes through it and can be told to refuse.
class CountingHeap : public ATL::IAtlMemMgr {
public:
    void* Allocate(size_t n) noexcept override {
        ++allocations;
        lastSize = n;
        return refuse ? nullptr : std::malloc(n);
    }
    void Free(void* p) noexcept override {
        if (p)
            ++frees;
        std::free(p);
    }
    void* Reallocate(void* p, size_t n) noexcept override {
        ++reallocations;
        lastSize = n;
        return refuse ? nullptr : std::realloc(p, n);
    }
    size_t GetSize(void*) noexcept override { return 0; }
    std::atomic<int> allocations{0}, frees{0}, reallocations{0};
    size_t lastSize = 0;
    bool refuse = false;
};

HRESULT thrown(void (*fn)(void*), void* arg) {
    try {
        fn(arg);
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    return 0;
}

class Strings : public ::testing::Test {
protected:
    CountingHeap heap;
    ATL::CAtlStringMgr mgr{&heap};
};

TEST_F(Strings, FreshStringSharesTheNilRecordAndAllocatesNothing) {
    ATL::CStringData* nil = mgr.GetNilString();
    const int before = nil->nRefs;
    {
        CStringA a(&mgr);
        CStringW w(&mgr);
        CStringA copy(a);
        EXPECT_EQ(a.GetData(), nil);
        EXPECT_EQ(w.GetData(), nil);
        EXPECT_EQ(copy.GetData(), nil);
        EXPECT_EQ(nil->nRefs, before + 3);
        EXPECT_STREQ(a.GetString(), "");
        EXPECT_EQ(w.GetString()[0], L'\0');
        EXPECT_EQ(a.GetLength(), 0);
        EXPECT_EQ(a.GetAllocLength(), 0);
        EXPECT_EQ(nil->pStringMgr, &mgr);
        // Emptying an empty string keeps the nil record.
        a.SetString("x", 0);
        EXPECT_EQ(a.GetData(), nil);
    }
    EXPECT_EQ(nil->nRefs, before);
    EXPECT_EQ(heap.allocations, 0);
    EXPECT_EQ(heap.frees, 0);
    nil->Release();
}

TEST_F(Strings, AllocateRoundsUpAndReportsOverflowAsNull) {
    struct Row {
        int chars;
        int allocLength;
    } rows[] = {{0, 7}, {1, 7}, {7, 7}, {8, 15}, {9, 15}, {100, 103}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.chars);
        ATL::CStringData* d = mgr.Allocate(row.chars, 2);
        ASSERT_NE(d, nullptr);
        EXPECT_EQ(d->nAllocLength, row.allocLength);
        EXPECT_EQ(d->nDataLength, 0);
        EXPECT_EQ(d->nRefs, 1);
        EXPECT_EQ(d->pStringMgr, &mgr);
        EXPECT_EQ(heap.lastSize, sizeof(ATL::CStringData) + size_t(row.allocLength + 1) * 2);
        mgr.Free(d);
    }
    // Counts that cannot be represented never reach the heap.
    const int calls = heap.allocations;
    EXPECT_EQ(mgr.Allocate(-1, 1), nullptr);
    if (sizeof(size_t) == 4) {
        EXPECT_EQ(mgr.Allocate(INT_MAX, 1), nullptr);
        EXPECT_EQ(mgr.Allocate(0x10000000, 16), nullptr);
        EXPECT_EQ(heap.allocations, calls);
    } else {
        // INT_MAX characters still fit: the heap is asked for them (and refuses here).
        heap.refuse = true;
        EXPECT_EQ(mgr.Allocate(INT_MAX, 1), nullptr);
        EXPECT_EQ(heap.lastSize, sizeof(ATL::CStringData) + (size_t(1) << 31));
        EXPECT_EQ(heap.allocations, calls + 1);
        heap.refuse = false;
    }
    // Reallocate updates only the room.
    ATL::CStringData* d = mgr.Allocate(3, 1);
    d->nDataLength = 3;
    ATL::CStringData* e = mgr.Reallocate(d, 40, 1);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->nAllocLength, 47);
    EXPECT_EQ(e->nDataLength, 3);
    EXPECT_EQ(mgr.Reallocate(e, -5, 1), nullptr);
    mgr.Free(e);
    EXPECT_EQ(mgr.Clone(), &mgr);
}

TEST_F(Strings, SetStringFromASliceOfItself) {
    CStringA s("Hello, world", &mgr);
    // Inside the present buffer: memmove from the same characters.
    s.SetString(s.GetString() + 7, 5);
    EXPECT_STREQ(s.GetString(), "world");
    s.SetString(s.GetString() + 1, 3);
    EXPECT_STREQ(s.GetString(), "orl");

    // Appending a string to itself reads from the grown buffer.
    CStringA big("abcdefghijkl", &mgr);
    EXPECT_EQ(big.GetAllocLength(), 15);
    big.Append(big.GetString(), big.GetLength());
    EXPECT_STREQ(big.GetString(), "abcdefghijklabcdefghijkl");

    // A slice of a shared string: the source survives in the other owner.
    CStringA a("abcdefgh", &mgr);
    CStringA b(a);
    EXPECT_EQ(a.GetData(), b.GetData());
    b.SetString(b.GetString() + 3, 4);
    EXPECT_STREQ(b.GetString(), "defg");
    EXPECT_STREQ(a.GetString(), "abcdefgh");
    EXPECT_NE(a.GetData(), b.GetData());
    EXPECT_EQ(a.GetData()->nRefs, 1);

    // Wide strings work the same way.
    CStringW w(L"wide characters", &mgr);
    w.SetString(w.GetString() + 5, 5);
    EXPECT_EQ(std::wstring(w.GetString()), L"chara");
}

TEST_F(Strings, SetStringArgumentsAndFailures) {
    CStringA s("abc", &mgr);
    struct Ctx {
        CStringA* s;
    } ctx{&s};
    EXPECT_EQ(thrown([](void* p) { static_cast<Ctx*>(p)->s->SetString(nullptr, 3); }, &ctx), E_INVALIDARG);
    EXPECT_EQ(thrown([](void* p) { static_cast<Ctx*>(p)->s->SetString("xyz", -1); }, &ctx), E_INVALIDARG);
    EXPECT_STREQ(s.GetString(), "abc");
    // A null source with length 0 empties the string.
    s.SetString(nullptr, 0);
    EXPECT_TRUE(s.IsEmpty());

    heap.refuse = true;
    EXPECT_EQ(thrown([](void* p) { static_cast<Ctx*>(p)->s->SetString("abcdefghijklmnopq", 17); }, &ctx),
              E_OUTOFMEMORY);
    EXPECT_EQ(thrown([](void*) { CStringA::ThrowMemoryException(); }, nullptr), E_OUTOFMEMORY);
    heap.refuse = false;
}

TEST_F(Strings, GrowthRule) {
    CStringA s(&mgr);
    s.SetString("a", 1);
    EXPECT_EQ(s.GetAllocLength(), 7);
    // Below 1025 the room doubles, then the manager rounds (14 -> 15).
    s.PrepareWrite2(8);
    EXPECT_EQ(s.GetAllocLength(), 15);
    s.PrepareWrite2(16);
    EXPECT_EQ(s.GetAllocLength(), 31);
    // A larger need wins over doubling.
    s.PrepareWrite2(200);
    EXPECT_EQ(s.GetAllocLength(), 207);
    s.PrepareWrite2(500);
    EXPECT_EQ(s.GetAllocLength(), 503);  // need 500 beats 414
    s.PrepareWrite2(1000);
    EXPECT_EQ(s.GetAllocLength(), 1007);
    s.PrepareWrite2(1010);
    EXPECT_EQ(s.GetAllocLength(), 2015);  // 1007 < 1025: doubled to 2014
    // From 1025 on, steps of 1024.
    s.PrepareWrite2(2016);
    EXPECT_EQ(s.GetAllocLength(), 3039);  // 2015 + 1024
    // Enough room: nothing happens.
    const int reallocs = heap.reallocations;
    s.PrepareWrite2(3000);
    EXPECT_EQ(heap.reallocations, reallocs);
    EXPECT_STREQ(s.GetString(), "a");
}

TEST_F(Strings, LockedString) {
    CStringA s("locked text", &mgr);
    char* p = s.LockBuffer();
    EXPECT_TRUE(s.GetData()->IsLocked());
    EXPECT_EQ(s.GetData()->nRefs, -1);
    // A copy of a locked string is its own block.
    CStringA copy(s);
    EXPECT_NE(copy.GetData(), s.GetData());
    EXPECT_STREQ(copy.GetString(), "locked text");
    // Emptying a locked string truncates it in place.
    s.SetString("zz", 0);
    EXPECT_EQ(s.GetString(), p);
    EXPECT_EQ(s.GetLength(), 0);
    EXPECT_TRUE(s.GetData()->IsLocked());
    // Assigning onto a locked string copies the characters into it.
    s = copy;
    EXPECT_EQ(s.GetString(), p);
    EXPECT_STREQ(s.GetString(), "locked text");
    s.UnlockBuffer();
    EXPECT_EQ(s.GetData()->nRefs, 1);
    // Unlocked, the next copy shares again.
    CStringA shared(s);
    EXPECT_EQ(shared.GetData(), s.GetData());
    EXPECT_EQ(s.GetData()->nRefs, 2);
}

TEST_F(Strings, EveryBlockIsFreedOnce) {
    {
        CStringA a("one", &mgr);
        CStringA b(a);
        CStringA c(&mgr);
        c = b;
        c += "two";
        b.Empty();
        a.Append(a.GetString(), a.GetLength());
        EXPECT_STREQ(a.GetString(), "oneone");
        EXPECT_STREQ(c.GetString(), "onetwo");
    }
    EXPECT_EQ(heap.allocations, heap.frees);
}

TEST_F(Strings, ThreadsCopyingAndReleasingOneSharedString) {
    const int kThreads = 8;
    const int kRounds = 20000;
    {
        CStringA shared("shared between threads", &mgr);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&shared] {
                for (int i = 0; i < kRounds; ++i) {
                    CStringA copy(shared);
                    CStringA second(copy);
                    if (second.GetLength() != 22)
                        std::abort();
                }
            });
        for (auto& th : threads)
            th.join();
        // No reference was lost or gained.
        EXPECT_EQ(shared.GetData()->nRefs, 1);
        EXPECT_EQ(heap.allocations, 1);
        EXPECT_EQ(heap.frees, 0);
    }
    EXPECT_EQ(heap.frees, 1);
}

TEST(DefaultStringManager, UsesTheCHeap) {
    CStringA s("default", &ATL::g_defaultStrMgr);
    EXPECT_EQ(s.GetData()->pStringMgr, &ATL::g_defaultStrMgr);
    EXPECT_EQ(ATL::g_defaultStrMgr.Clone(), &ATL::g_defaultStrMgr);
    EXPECT_EQ(ATL::CFixedStringMgr::s_pLog, nullptr);
    ATL::CCRTHeap heap;
    void* p = heap.Allocate(10);
    p = heap.Reallocate(p, 100);
    ASSERT_NE(p, nullptr);
    heap.Free(p);
}

TEST(DefaultStringManagerDeathTest, CrtHeapCannotTellASizeAndEndsTheProcess) {
    ATL::CCRTHeap heap;
    EXPECT_DEATH(heap.GetSize(nullptr), "");
}

TEST(TempBuffer, InnerBufferUntilItsSizeThenTheHeap) {
    ATL2::CTempBufferEx<char, 256> buf;
    char* inner = buf.Reallocate(256);
    EXPECT_TRUE(buf.IsInner());
    std::memset(inner, 'x', 256);
    char* outer = buf.Reallocate(257);
    EXPECT_FALSE(buf.IsInner());
    EXPECT_NE(outer, inner);
    // Growing out of the inner buffer copies its bytes.
    EXPECT_EQ(std::string(outer, 256), std::string(256, 'x'));
    outer[256] = 'y';
    char* larger = buf.Reallocate(5000);
    EXPECT_EQ(larger[256], 'y');
    EXPECT_EQ(larger[0], 'x');
    // A shrink back switches to the inner buffer without copying or freeing (kept as is).
    char* back = buf.Reallocate(10);
    EXPECT_TRUE(buf.IsInner());
    EXPECT_EQ(back, inner);
    // The heap block is now nobody's: hand it back here so that the test does not leak.
    std::free(larger);

    ATL2::CTempBufferEx<char, 128> small;
    EXPECT_NE(small.Reallocate(129), nullptr);
    EXPECT_FALSE(small.IsInner());
    ATL2::CTempBufferEx<char, 128> direct;
    direct.Reallocate(128);
    EXPECT_TRUE(direct.IsInner());
}

TEST(StringProxy, CopiesAreIndependent) {
    Quorvane::CStringProxy a("text");
    Quorvane::CStringProxy b(a);
    EXPECT_NE(a.c_str(), b.c_str());
    EXPECT_STREQ(b.c_str(), "text");
    Quorvane::CStringProxy c(nullptr);
    EXPECT_STREQ(c.c_str(), "");
    c = a;
    EXPECT_STREQ(c.c_str(), "text");
    a = Quorvane::CStringProxy("changed");
    EXPECT_STREQ(c.c_str(), "text");
    EXPECT_STREQ(a.c_str(), "changed");
    c = c;
    EXPECT_STREQ(c.c_str(), "text");

    Quorvane::CWStringProxy w(L"wide");
    Quorvane::CWStringProxy w2(w);
    Quorvane::CWStringProxy empty(nullptr);
    EXPECT_EQ(std::wstring(empty.c_str()), L"");
    w = Quorvane::CWStringProxy(L"other");
    EXPECT_EQ(std::wstring(w2.c_str()), L"wide");
    EXPECT_EQ(std::wstring(w.c_str()), L"other");
}

}  // namespace
