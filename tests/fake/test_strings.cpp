// Reference-counted strings, their managers, the temporary buffer and the string proxies.
#include "core/strings.h"
#include "support/testsupport.h"

#include <climits>
#include <cstring>
#include <thread>
#include <vector>

using testsupport::thrownHr;

namespace {

typedef ATL::CSimpleStringT<char, false> CStringA;
typedef ATL::CSimpleStringT<wchar_t, false> CStringW;

struct Strings : ::testing::Test {
    testsupport::CountingHeap heap;
    ATL::CAtlStringMgr mgr{&heap};
};

TEST_F(Strings, NilRecordAndAllocation) {
    ATL::CStringData* nil = mgr.GetNilString();
    const int before = nil->nRefs;
    {
        CStringA a(&mgr), copy(a);
        CStringW w(&mgr);
        EXPECT_EQ(std::make_tuple(a.GetData(), w.GetData(), copy.GetData(), nil->nRefs, a.GetString()[0],
                                  w.GetString()[0], a.GetAllocLength(), nil->pStringMgr),
                  std::make_tuple(nil, nil, nil, before + 3, '\0', L'\0', 0, static_cast<ATL::IAtlStringMgr*>(&mgr)));
        a.SetString("x", 0);  // emptying an empty string keeps the nil record
        EXPECT_EQ(a.GetData(), nil);
    }
    EXPECT_EQ(std::make_tuple(nil->nRefs, heap.allocations + heap.frees), std::make_tuple(before, 0));
    nil->Release();
    // Room is rounded up to 8k - 1 characters.
    for (const auto& row : {std::make_pair(0, 7), {7, 7}, {8, 15}, {100, 103}}) {
        ATL::CStringData* d = mgr.Allocate(row.first, 2);
        ASSERT_NE(d, nullptr);
        EXPECT_EQ(std::make_tuple(d->nAllocLength, d->nDataLength, d->nRefs, heap.lastSize),
                  std::make_tuple(row.second, 0, 1, sizeof(ATL::CStringData) + size_t(row.second + 1) * 2));
        mgr.Free(d);
    }
    // Counts that cannot be represented never reach the heap; on 64 bits INT_MAX
    // characters still fit and the heap is asked for them (and refuses here).
    const int calls = heap.allocations;
    heap.refuse = true;
    EXPECT_EQ(std::make_tuple(mgr.Allocate(-1, 1), mgr.Allocate(INT_MAX, 1)), std::make_tuple(nullptr, nullptr));
    if (sizeof(size_t) == 4) {
        EXPECT_EQ(mgr.Allocate(0x10000000, 16), nullptr);
        EXPECT_EQ(heap.allocations, calls);
    } else {
        EXPECT_EQ(std::make_tuple(int(heap.allocations), heap.lastSize),
                  std::make_tuple(calls + 1, sizeof(ATL::CStringData) + (size_t(1) << 31)));
    }
    heap.refuse = false;
    // Reallocate updates only the room.
    ATL::CStringData* d = mgr.Allocate(3, 1);
    d->nDataLength = 3;
    d = mgr.Reallocate(d, 40, 1);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(std::make_tuple(d->nAllocLength, d->nDataLength, mgr.Reallocate(d, -5, 1), mgr.Clone()),
              std::make_tuple(47, 3, nullptr, static_cast<ATL::IAtlStringMgr*>(&mgr)));
    mgr.Free(d);
}

// A source inside the string itself or inside a shared one is read before it is replaced.
TEST_F(Strings, SetStringAndAppendFromThemselves) {
    {
        CStringA s("Hello, world", &mgr), big("abcdefghijkl", &mgr), a("abcdefgh", &mgr), b(a), c(&mgr);
        s.SetString(s.GetString() + 7, 5);
        big.Append(big.GetString(), big.GetLength());  // from the grown buffer
        b.SetString(b.GetString() + 3, 4);
        EXPECT_EQ(std::string(s.GetString()) + "/" + big.GetString() + "/" + b.GetString() + "/" + a.GetString(),
                  "world/abcdefghijklabcdefghijkl/defg/abcdefgh");
        EXPECT_EQ(a.GetData()->nRefs, 1);
        CStringW w(L"wide characters", &mgr);
        w.SetString(w.GetString() + 5, 5);
        EXPECT_EQ(std::wstring(w.GetString()), L"chara");
        c = a;
        a.Append(a.GetString(), a.GetLength());
        c += "two";
        b.Empty();
        EXPECT_EQ(std::string(a.GetString()) + "/" + c.GetString(), "abcdefghabcdefgh/abcdefghtwo");
    }
    EXPECT_EQ(heap.allocations, heap.frees);  // every block freed once
    CStringA s("abc", &mgr);
    EXPECT_EQ(thrownHr([&] { s.SetString(nullptr, 3); }), E_INVALIDARG);
    EXPECT_EQ(thrownHr([&] { s.SetString("xyz", -1); }), E_INVALIDARG);
    EXPECT_STREQ(s.GetString(), "abc");
    s.SetString(nullptr, 0);  // a null source with length 0 empties the string
    heap.refuse = true;
    EXPECT_EQ(thrownHr([&] { s.SetString("abcdefghijklmnopq", 17); }), E_OUTOFMEMORY);
    EXPECT_TRUE(s.IsEmpty());
    heap.refuse = false;
}

// Below 1025 characters the room doubles, then grows by 1024; a larger need wins; the manager rounds up.
TEST_F(Strings, GrowthRule) {
    CStringA s("a", &mgr);
    const std::pair<int, int> steps[] = {{8, 15},      {16, 31},     {200, 207},   {500, 503},
                                         {1000, 1007}, {1010, 2015}, {2016, 3039}, {3000, 3039}};
    for (const auto& step : steps) {
        const int room = s.GetAllocLength(), reallocs = heap.reallocations;
        s.PrepareWrite2(step.first);
        EXPECT_EQ(std::make_pair(s.GetAllocLength(), heap.reallocations - reallocs),
                  std::make_pair(step.second, step.second != room ? 1 : 0))  // enough room: nothing
            << step.first;
    }
    EXPECT_STREQ(s.GetString(), "a");
}

TEST_F(Strings, LockedString) {
    CStringA s("locked text", &mgr);
    char* p = s.LockBuffer();
    CStringA copy(s);  // a copy of a locked string is its own block
    EXPECT_EQ(std::make_tuple(s.GetData()->nRefs, copy.GetData() != s.GetData()), std::make_tuple(-1, true));
    s.SetString("zz", 0);  // emptying a locked string truncates it in place
    EXPECT_EQ(std::make_tuple(s.GetString(), s.GetLength(), s.GetData()->IsLocked()), std::make_tuple(p, 0, true));
    s = copy;  // assigning onto it copies the characters into it
    EXPECT_EQ(std::make_tuple(s.GetString(), std::string(s.GetString())), std::make_tuple(p, "locked text"));
    s.UnlockBuffer();
    CStringA shared(s);  // unlocked, the next copy shares again
    EXPECT_EQ(std::make_tuple(shared.GetData(), s.GetData()->nRefs), std::make_tuple(s.GetData(), 2));
}

TEST_F(Strings, ThreadsCopyingAndReleasingOneSharedString) {
    {
        CStringA shared("shared between threads", &mgr);
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&shared] {
                for (int i = 0; i < 20000; ++i)
                    CStringA copy(shared), second(copy);
            });
        for (auto& th : threads)
            th.join();
        EXPECT_EQ(std::make_tuple(shared.GetData()->nRefs, int(heap.allocations), int(heap.frees)),
                  std::make_tuple(1, 1, 0));  // no reference was lost or gained
    }
    EXPECT_EQ(heap.frees, 1);
}

// The default manager is on the C heap, which cannot tell a block's size and ends the process.
TEST(DefaultStringManager, UsesTheCHeap) {
    CStringA s("default", &ATL::g_defaultStrMgr);
    EXPECT_EQ(std::make_tuple(s.GetData()->pStringMgr, ATL::g_defaultStrMgr.Clone(), ATL::CFixedStringMgr::s_pLog),
              std::make_tuple(&ATL::g_defaultStrMgr, &ATL::g_defaultStrMgr, nullptr));
    ATL::CCRTHeap heap;
    heap.Free(heap.Reallocate(heap.Allocate(10), 100));
    EXPECT_DEATH(heap.GetSize(nullptr), "");
}

// A shrink back switches to the inner buffer without copying or freeing (kept as is).
TEST(TempBuffer, InnerBufferUntilItsSizeThenTheHeap) {
    ATL2::CTempBufferEx<char, 256> buf;
    ATL2::CTempBufferEx<char, 128> small, direct;
    char* inner = static_cast<char*>(std::memset(buf.Reallocate(256), 'x', 256));
    const bool wasInner = buf.IsInner();
    char* outer = buf.Reallocate(257);
    outer[256] = 'y';
    char* larger = buf.Reallocate(5000);
    small.Reallocate(129);
    direct.Reallocate(128);
    EXPECT_EQ(std::make_tuple(wasInner, buf.IsInner(), std::string(larger, 257), small.IsInner(), direct.IsInner()),
              std::make_tuple(true, false, std::string(256, 'x') + 'y', false, true));  // copied out of the inner one
    EXPECT_EQ(buf.Reallocate(10), inner);
    std::free(larger);  // now nobody's
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
