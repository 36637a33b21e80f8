// A counting allocator for the runtime's allocator globals (g_malloc_func, g_free_func):
// records every request, can be told to fail, fills fresh memory with 0xCC, and tells how
// many blocks are still live. Installed for the lifetime of the object.
#pragma once

#include "asn1rt/context.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

namespace rttest {

class CountingAllocator {
public:
    CountingAllocator()
    {
        s_current = this;
        m_savedMalloc = g_malloc_func;
        m_savedRealloc = g_realloc_func;
        m_savedFree = g_free_func;
        g_malloc_func = &CountingAllocator::doMalloc;
        g_realloc_func = &CountingAllocator::doRealloc;
        g_free_func = &CountingAllocator::doFree;
    }
    ~CountingAllocator()
    {
        g_malloc_func = m_savedMalloc;
        g_realloc_func = m_savedRealloc;
        g_free_func = m_savedFree;
        // Blocks a test leaked on purpose are not left to LeakSanitizer's report.
        for (void* p : m_live)
            std::free(p);
        s_current = nullptr;
    }
    CountingAllocator(const CountingAllocator&) = delete;
    CountingAllocator& operator=(const CountingAllocator&) = delete;

    size_t live() const { return m_live.size(); }
    bool isLive(const void* p) const { return m_live.count(const_cast<void*>(p)) != 0; }
    size_t mallocCalls() const { return m_requests.size(); }
    size_t freeCalls() const { return m_frees; }
    size_t reallocCalls() const { return m_reallocs; }
    const std::vector<size_t>& requests() const { return m_requests; }
    const std::vector<void*>& contexts() const { return m_contexts; }
    const std::vector<void*>& freeContexts() const { return m_freeContexts; }
    void* lastBlock() const { return m_lastBlock; }

    // The next `n` requests fail (after `skip` that succeed).
    void failNext(size_t n = 1, size_t skip = 0)
    {
        m_failCount = n;
        m_failSkip = skip;
    }
    // Requests above this size fail without allocating.
    void setLimit(size_t limit) { m_limit = limit; }
    // Frees that name no live block are counted here instead of reaching free().
    size_t badFrees() const { return m_badFrees; }

private:
    static void* doMalloc(void* memContext, size_t size)
    {
        CountingAllocator* self = s_current;
        self->m_requests.push_back(size);
        self->m_contexts.push_back(memContext);
        if (self->m_failSkip > 0) {
            self->m_failSkip--;
        } else if (self->m_failCount > 0) {
            self->m_failCount--;
            return nullptr;
        }
        if (size > self->m_limit)
            return nullptr;
        void* p = std::malloc(size == 0 ? 1 : size);
        if (p == nullptr)
            return nullptr;
        std::memset(p, 0xCC, size);
        self->m_live.insert(p);
        self->m_lastBlock = p;
        return p;
    }
    static void* doRealloc(void* memContext, void* ptr, size_t size)
    {
        s_current->m_reallocs++;
        (void)memContext;
        (void)ptr;
        (void)size;
        return nullptr;
    }
    static void doFree(void* memContext, void* ptr)
    {
        CountingAllocator* self = s_current;
        self->m_frees++;
        self->m_freeContexts.push_back(memContext);
        if (ptr == nullptr)
            return;
        auto it = self->m_live.find(ptr);
        if (it == self->m_live.end()) {
            self->m_badFrees++;
            return;
        }
        self->m_live.erase(it);
        std::free(ptr);
    }

    static inline CountingAllocator* s_current = nullptr;
    rtMallocFunc m_savedMalloc;
    rtReallocFunc m_savedRealloc;
    rtFreeFunc m_savedFree;
    std::set<void*> m_live;
    std::vector<size_t> m_requests;
    std::vector<void*> m_contexts;
    std::vector<void*> m_freeContexts;
    void* m_lastBlock = nullptr;
    size_t m_frees = 0;
    size_t m_reallocs = 0;
    size_t m_badFrees = 0;
    size_t m_failCount = 0;
    size_t m_failSkip = 0;
    size_t m_limit = static_cast<size_t>(64) * 1024 * 1024;
};

inline RtMemHeap* heapOf(void* handle) { return static_cast<RtMemHeap*>(handle); }

inline RtMemBlock* blockOf(void* payload)
{
    return reinterpret_cast<RtMemBlock*>(static_cast<unsigned char*>(payload) - RT_MEMBLOCK_HEADER_SIZE);
}

}  // namespace rttest
