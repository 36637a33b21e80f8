// Helpers of the runtime's tests: a counting allocator for the allocator globals (records each request and its
// argument, fails on demand, fills fresh memory with 0xCC, knows the live blocks); a walk of a heap's blocks; a
// context over that allocator; a stream transport recording what it is given; the status of a thrown exception.
#pragma once

#include "asn1rt/context.h"
#include "asn1rt/stream.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace rttest {

using std::make_tuple;
using std::tie;
using Ptrs = std::vector<void*>;
using Ints = std::vector<int>;  // braced lists run their calls left to right: Ints{f(), g()}

class CountingAllocator {
public:
    CountingAllocator() : m_saved(g_malloc_func, g_realloc_func, g_free_func)
    {
        s_current = this, g_malloc_func = &doMalloc, g_realloc_func = &doRealloc, g_free_func = &doFree;
    }
    ~CountingAllocator()
    {
        std::tie(g_malloc_func, g_realloc_func, g_free_func) = m_saved, s_current = nullptr;
        for (void* p : m_live)  // blocks a test leaked on purpose
            std::free(p);
    }
    size_t live() const { return m_live.size(); }
    bool isLive(const void* p) const { return m_live.count(const_cast<void*>(p)) != 0; }
    size_t mallocCalls() const { return requests.size(); }
    void failNext(size_t n = 1, size_t skip = 0) { m_failCount = n, m_failSkip = skip; }  // after `skip` successes

    std::vector<size_t> requests;                     // sizes asked for
    std::vector<void*> contexts, freeContexts;        // allocator arguments of the requests and of the frees
    size_t frees = 0, reallocs = 0, badFrees = 0;     // badFrees: frees naming no live block (kept from free())
    size_t limit = size_t(64) << 20;                  // requests above it fail without allocating

private:
    static void* doMalloc(void* memContext, size_t size)
    {
        CountingAllocator* self = s_current;
        self->requests.push_back(size), self->contexts.push_back(memContext);
        const bool fail = self->m_failSkip > 0 ? (self->m_failSkip--, false) : self->m_failCount > 0 && self->m_failCount--;
        void* p = fail || size > self->limit ? nullptr : std::malloc(size == 0 ? 1 : size);
        if (p != nullptr)
            std::memset(p, 0xCC, size), self->m_live.insert(p);
        return p;
    }
    static void* doRealloc(void*, void*, size_t) { return s_current->reallocs++, nullptr; }
    static void doFree(void* memContext, void* ptr)
    {
        s_current->frees++, s_current->freeContexts.push_back(memContext);
        if (ptr != nullptr)
            s_current->m_live.erase(ptr) == 0 ? (void)s_current->badFrees++ : std::free(ptr);
    }
    static inline CountingAllocator* s_current = nullptr;
    std::tuple<rtMallocFunc, rtReallocFunc, rtFreeFunc> m_saved;
    std::set<void*> m_live;
    size_t m_failCount = 0, m_failSkip = 0;
};

inline RtMemHeap* heapOf(void* handle) { return static_cast<RtMemHeap*>(handle); }
inline RtMemBlock* blockOf(void* payload) { return reinterpret_cast<RtMemBlock*>(static_cast<char*>(payload) - 48); }

// The payloads of a heap's blocks from the head on, the back links checked on the way.
inline Ptrs blocks(void* handle)
{
    Ptrs out;
    const RtMemBlock* prev = nullptr;
    for (RtMemBlock* b = heapOf(handle)->head; b != nullptr; prev = b, b = b->next) {
        EXPECT_EQ(b->prev, prev);
        out.push_back(reinterpret_cast<char*>(b) + 48);
    }
    return out;
}

// A context over the counting allocator; at the end nothing may be live, and no free may name an unknown block.
class CountedContext : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0); }
    void TearDown() override
    {
        rtFreeContext(&ctxt);
        EXPECT_EQ(make_tuple(alloc.live(), alloc.badFrees), make_tuple(0u, 0u));
    }
    static const ASN1OCTET* bytes(const char* s) { return reinterpret_cast<const ASN1OCTET*>(s); }
    CountingAllocator alloc;
    ASN1CTXT ctxt;
};

// Writes collect in `written`, reads come from `source`; each function counts its calls and returns its result
// field (a read its count while that field is 0).
struct FakeTransport {
    std::string written, source;
    int writes = 0, flushes = 0, closes = 0, writeResult = 0, flushResult = 0, closeResult = 0, readResult = 0;

    FakeTransport() { s_current = this; }
    ~FakeTransport() { s_current = nullptr; }
    void clear() { written = source = "", writes = flushes = closes = writeResult = flushResult = closeResult = readResult = 0; }
    // Points the record's four functions here and adds the flags.
    static void wire(Asn1RTStream* s, ASN1USINT flags)
    {
        s->read = &read, s->write = &write, s->flush = &flush, s->close = &close;
        s->flags = static_cast<ASN1USINT>(s->flags | flags);
    }
    static int write(Asn1RTStream*, const ASN1OCTET* data, ASN1UINT count)
    {
        if (s_current->writes++, s_current->writeResult >= 0)
            s_current->written.append(reinterpret_cast<const char*>(data), count);
        return s_current->writeResult;
    }
    static int read(Asn1RTStream*, ASN1OCTET* dest, ASN1UINT count)
    {
        const std::string part = s_current->source.substr(0, count);
        std::memcpy(dest, part.data(), part.size()), s_current->source.erase(0, part.size());
        return s_current->readResult != 0 ? s_current->readResult : static_cast<int>(part.size());
    }
    static int flush(Asn1RTStream*) { return s_current->flushes++, s_current->flushResult; }
    static int close(Asn1RTStream*) { return s_current->closes++, s_current->closeResult; }
    static inline FakeTransport* s_current = nullptr;
};

// The status of the exception of type E that the call throws, or 0 when it throws none.
template <class E, class F>
int thrown(F call)
{
    try { call(); } catch (const E& e) { return e.getStatus(); }
    return 0;
}

}  // namespace rttest
