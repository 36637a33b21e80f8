// Reference-counted strings, their managers, the temporary buffer and the string proxies.
#include "core/strings.h"
#include "support/testsupport.h"

#include <climits>
#include <cstring>
#include <thread>
#include <vector>

using testsupport::CountingHeap;
using testsupport::thrownHr;

namespace {

typedef ATL::CSimpleStringT<char, false> CStringA;
typedef ATL::CSimpleStringT<wchar_t, false> CStringW;

class Strings : public ::testing::Test {
protected:
    CountingHeap heap;
    ATL::CAtlStringMgr mgr{&heap};
};

TEST_F(Strings, FreshStringSharesTheNilRecordAndAllocatesNothing) {
    ATL::CStringData* nil = mgr.GetNilString();
    const int before = nil->nRefs;
    {
        CStringA a(&mgr), copy(a);
        CStringW w(&mgr);
        EXPECT_EQ(std::make_tuple(a.GetData(), w.GetData(), copy.GetData()), std::make_tuple(nil, nil, nil));
        EXPECT_EQ(nil->nRefs, before + 3);
        EXPECT_STREQ(a.GetString(), "");
        EXPECT_EQ(w.GetString()[0], L'\0');
        EXPECT_EQ(std::make_tuple(a.GetLength(), a.GetAllocLength()), std::make_tuple(0, 0));
        EXPECT_EQ(nil->pStringMgr, &mgr);
        a.SetString("x", 0);  // emptying an empty string keeps the nil record
        EXPECT_EQ(a.GetData(), nil);
    }
    EXPECT_EQ(nil->nRefs, before);
    EXPECT_EQ(heap.allocations + heap.frees, 0);
    nil->Release();
}

TEST_F(Strings, AllocateRoundsUpAndReportsOverflowAsNull) {
    for (const auto& row : {std::make_pair(0, 7), {1, 7}, {7, 7}, {8, 15}, {9, 15}, {100, 103}}) {
        ATL::CStringData* d = mgr.Allocate(row.first, 2);
        ASSERT_NE(d, nullptr);
        EXPECT_EQ(std::make_tuple(d->nAllocLength, d->nDataLength, d->nRefs, d->pStringMgr),
                  std::make_tuple(row.second, 0, 1, static_cast<ATL::IAtlStringMgr*>(&mgr)))
            << row.first;
        EXPECT_EQ(heap.lastSize, sizeof(ATL::CStringData) + size_t(row.second + 1) * 2);
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
    EXPECT_EQ(std::make_tuple(e->nAllocLength, e->nDataLength), std::make_tuple(47, 3));
    EXPECT_EQ(mgr.Reallocate(e, -5, 1), nullptr);
    mgr.Free(e);
    EXPECT_EQ(mgr.Clone(), &mgr);
}

TEST_F(Strings, SetStringFromASliceOfItself) {
    {
        CStringA s("Hello, world", &mgr);
        s.SetString(s.GetString() + 7, 5);  // inside the present buffer: memmove
        EXPECT_STREQ(s.GetString(), "world");
        // Appending a string to itself reads from the grown buffer.
        CStringA big("abcdefghijkl", &mgr);
        EXPECT_EQ(big.GetAllocLength(), 15);
        big.Append(big.GetString(), big.GetLength());
        EXPECT_STREQ(big.GetString(), "abcdefghijklabcdefghijkl");
        // A slice of a shared string: the source survives in the other owner.
        CStringA a("abcdefgh", &mgr), b(a);
        EXPECT_EQ(a.GetData(), b.GetData());
        b.SetString(b.GetString() + 3, 4);
        EXPECT_STREQ(b.GetString(), "defg");
        EXPECT_STREQ(a.GetString(), "abcdefgh");
        EXPECT_EQ(a.GetData()->nRefs, 1);
        CStringW w(L"wide characters", &mgr);
        w.SetString(w.GetString() + 5, 5);
        EXPECT_EQ(std::wstring(w.GetString()), L"chara");
        // Appending a shared string to itself: copied out first, the source still read right.
        CStringA c(&mgr);
        c = a;
        a.Append(a.GetString(), a.GetLength());
        c += "two";
        b.Empty();
        EXPECT_EQ(std::string(a.GetString()) + "/" + c.GetString(), "abcdefghabcdefgh/abcdefghtwo");
    }
    EXPECT_EQ(heap.allocations, heap.frees);  // every block freed once
}

TEST_F(Strings, SetStringArgumentsAndFailures) {
    CStringA s("abc", &mgr);
    EXPECT_EQ(thrownHr([&] { s.SetString(nullptr, 3); }), E_INVALIDARG);
    EXPECT_EQ(thrownHr([&] { s.SetString("xyz", -1); }), E_INVALIDARG);
    EXPECT_STREQ(s.GetString(), "abc");
    s.SetString(nullptr, 0);  // a null source with length 0 empties the string
    EXPECT_TRUE(s.IsEmpty());
    heap.refuse = true;
    EXPECT_EQ(thrownHr([&] { s.SetString("abcdefghijklmnopq", 17); }), E_OUTOFMEMORY);
    EXPECT_EQ(thrownHr([] { CStringA::ThrowMemoryException(); }), E_OUTOFMEMORY);
    heap.refuse = false;
}

// Below 1025 characters the room doubles, then grows by 1024; a larger need wins; the
// manager rounds each request up.
TEST_F(Strings, GrowthRule) {
    CStringA s(&mgr);
    s.SetString("a", 1);
    EXPECT_EQ(s.GetAllocLength(), 7);
    const std::pair<int, int> steps[] = {{8, 15},     {16, 31},    {200, 207},  {500, 503},
                                         {1000, 1007}, {1010, 2015}, {2016, 3039}, {3000, 3039}};
    for (const auto& step : steps) {
        const int room = s.GetAllocLength(), reallocs = heap.reallocations;
        s.PrepareWrite2(step.first);
        EXPECT_EQ(s.GetAllocLength(), step.second) << step.first;
        EXPECT_EQ(heap.reallocations - reallocs, step.second != room ? 1 : 0) << step.first;  // enough room: nothing
    }
    EXPECT_STREQ(s.GetString(), "a");
}

TEST_F(Strings, LockedString) {
    CStringA s("locked text", &mgr);
    char* p = s.LockBuffer();
    EXPECT_EQ(s.GetData()->nRefs, -1);
    CStringA copy(s);  // a copy of a locked string is its own block
    EXPECT_NE(copy.GetData(), s.GetData());
    EXPECT_STREQ(copy.GetString(), "locked text");
    s.SetString("zz", 0);  // emptying a locked string truncates it in place
    EXPECT_EQ(std::make_tuple(s.GetString(), s.GetLength(), s.GetData()->IsLocked()), std::make_tuple(p, 0, true));
    s = copy;  // assigning onto it copies the characters into it
    EXPECT_EQ(s.GetString(), p);
    EXPECT_STREQ(s.GetString(), "locked text");
    s.UnlockBuffer();
    CStringA shared(s);  // unlocked, the next copy shares again
    EXPECT_EQ(shared.GetData(), s.GetData());
    EXPECT_EQ(s.GetData()->nRefs, 2);
}

TEST_F(Strings, ThreadsCopyingAndReleasingOneSharedString) {
    {
        CStringA shared("shared between threads", &mgr);
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&shared] {
                for (int i = 0; i < 20000; ++i) {
                    CStringA copy(shared), second(copy);
                    if (second.GetLength() != 22)
                        std::abort();
                }
            });
        for (auto& th : threads)
            th.join();
        // No reference was lost or gained.
        EXPECT_EQ(shared.GetData()->nRefs, 1);
        EXPECT_EQ(std::make_tuple(int(heap.allocations), int(heap.frees)), std::make_tuple(1, 0));
    }
    EXPECT_EQ(heap.frees, 1);
}

TEST(DefaultStringManager, UsesTheCHeap) {
    CStringA s("default", &ATL::g_defaultStrMgr);
    EXPECT_EQ(s.GetData()->pStringMgr, &ATL::g_defaultStrMgr);
    EXPECT_EQ(ATL::g_defaultStrMgr.Clone(), &ATL::g_defaultStrMgr);
    EXPECT_EQ(ATL::CFixedStringMgr::s_pLog, nullptr);
    ATL::CCRTHeap heap;
    void* p = heap.Reallocate(heap.Allocate(10), 100);
    ASSERT_NE(p, nullptr);
    heap.Free(p);
    // It cannot tell a block's size and ends the process.
    EXPECT_DEATH(heap.GetSize(nullptr), "");
}

TEST(TempBuffer, InnerBufferUntilItsSizeThenTheHeap) {
    ATL2::CTempBufferEx<char, 256> buf;
    char* inner = buf.Reallocate(256);
    EXPECT_TRUE(buf.IsInner());
    std::memset(inner, 'x', 256);
    char* outer = buf.Reallocate(257);
    EXPECT_FALSE(buf.IsInner());
    EXPECT_EQ(std::string(outer, 256), std::string(256, 'x'));  // copied out of the inner buffer
    outer[256] = 'y';
    char* larger = buf.Reallocate(5000);
    EXPECT_EQ(std::make_tuple(larger[0], larger[256]), std::make_tuple('x', 'y'));
    // A shrink back switches to the inner buffer without copying or freeing (kept as is).
    EXPECT_EQ(buf.Reallocate(10), inner);
    std::free(larger);  // now nobody's
    ATL2::CTempBufferEx<char, 128> small, direct;
    small.Reallocate(129);
    direct.Reallocate(128);
    EXPECT_EQ(std::make_tuple(small.IsInner(), direct.IsInner()), std::make_tuple(false, true));
}

TEST(StringProxy, CopiesAreIndependent) {
    Quorvane::CStringProxy a("text"), b(a), c(nullptr);
    EXPECT_NE(a.c_str(), b.c_str());
    EXPECT_STREQ(c.c_str(), "");
    c = a;
    a = Quorvane::CStringProxy("changed");
    c = c;
    EXPECT_EQ(std::string(a.c_str()) + "/" + b.c_str() + "/" + c.c_str(), "changed/text/text");
    Quorvane::CWStringProxy w(L"wide"), w2(w), empty(nullptr);
    w = Quorvane::CWStringProxy(L"other");
    EXPECT_EQ(std::wstring(w.c_str()) + L"/" + w2.c_str() + L"/" + empty.c_str(), L"other/wide/");
}

}  // namespace
