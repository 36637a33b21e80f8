// The memory heap. Each allocation is its own request to the host allocator,
// linked into the heap's list behind a 48-byte header, so that a whole heap can be dropped
// at once and a single pointer can still be freed at any time.
#include "asn1rt/context.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(RtMemBlock) == RT_MEMBLOCK_HEADER_SIZE, "the block header takes 48 bytes");
static_assert(offsetof(RtMemBlock, size) == 40, "the payload size is the header's last word");

extern "C" {

ASN1RT_API void* rtDefaultMalloc(void* /*memContext*/, size_t size) { return malloc(size); }

ASN1RT_API void* rtDefaultRealloc(void* /*memContext*/, void* ptr, size_t size)
{
    return realloc(ptr, size);
}

ASN1RT_API void rtDefaultFree(void* /*memContext*/, void* ptr) { free(ptr); }

ASN1RT_API ASN1UINT g_defBlkSize = RT_DEFAULT_BLOCK_SIZE;
ASN1RT_API rtMallocFunc g_malloc_func = rtDefaultMalloc;
ASN1RT_API rtReallocFunc g_realloc_func = rtDefaultRealloc;
ASN1RT_API rtFreeFunc g_free_func = rtDefaultFree;

}  // extern "C"

namespace {

inline RtMemBlock* blockOf(void* payload)
{
    return reinterpret_cast<RtMemBlock*>(static_cast<unsigned char*>(payload) - RT_MEMBLOCK_HEADER_SIZE);
}

inline void* payloadOf(RtMemBlock* block)
{
    return reinterpret_cast<unsigned char*>(block) + RT_MEMBLOCK_HEADER_SIZE;
}

// Steps 3 and 4 of rtMemHeapAlloc: the size is sign-extended, 48 added, and the block
// linked at the head of the list. A negative size is not caught by the limit; when the
// sign-extended request wraps below the header's own size, the block the allocator gave
// cannot hold the header, so it goes back to the allocator and the result is null (the
// text's behaviour would write past that block).
void* allocBlock(RtMemHeap* heap, int nbytes)
{
    const size_t request = static_cast<size_t>(static_cast<ptrdiff_t>(nbytes)) + RT_MEMBLOCK_HEADER_SIZE;
    void* raw = g_malloc_func(heap->memContext, request);
    if (raw == nullptr)
        return nullptr;
    if (request < static_cast<size_t>(RT_MEMBLOCK_HEADER_SIZE)) {
        g_free_func(heap->memContext, raw);
        return nullptr;
    }
    RtMemBlock* block = static_cast<RtMemBlock*>(raw);
    memset(block, 0, sizeof(RtMemBlock));
    block->next = heap->head;
    block->prev = nullptr;
    if (heap->head != nullptr)
        heap->head->prev = block;
    heap->head = block;
    block->size = static_cast<ASN1UINT64>(static_cast<ASN1INT64>(nbytes));
    return payloadOf(block);
}

void unlinkBlock(RtMemHeap* heap, RtMemBlock* block)
{
    if (block->prev != nullptr)
        block->prev->next = block->next;
    if (block->next != nullptr)
        block->next->prev = block->prev;
    if (heap->head == block)
        heap->head = block->next;
    block->next = block->prev = nullptr;
}

}  // namespace

extern "C" {

ASN1RT_API int rtMemHeapCreate(void** ppvMemHeap, void* memContext)
{
    if (ppvMemHeap == nullptr)
        return RT_E_BAD_ARGUMENT;
    RtMemHeap* heap = static_cast<RtMemHeap*>(g_malloc_func(memContext, sizeof(RtMemHeap)));
    if (heap == nullptr)
        return RT_E_NO_MEMORY;
    memset(heap, 0, sizeof(RtMemHeap));
    heap->defBlkSize = g_defBlkSize;
    heap->refCnt = 1;
    heap->flags = RT_MH_FREEHEAPDESC;
    heap->memContext = memContext;
    *ppvMemHeap = heap;  // an existing heap is overwritten, not released
    return 0;
}

ASN1RT_API void* rtMemHeapAlloc(void** ppvMemHeap, int nbytes)
{
    if (ppvMemHeap == nullptr || nbytes > RT_MEMHEAP_MAX_ALLOC)
        return nullptr;
    if (*ppvMemHeap == nullptr && rtMemHeapCreate(ppvMemHeap, nullptr) != 0)
        return nullptr;
    return allocBlock(static_cast<RtMemHeap*>(*ppvMemHeap), nbytes);
}

ASN1RT_API void* rtMemHeapAllocZ(void** ppvMemHeap, int nbytes)
{
    void* p = rtMemHeapAlloc(ppvMemHeap, nbytes);
    if (p != nullptr && nbytes > 0)
        memset(p, 0, static_cast<size_t>(nbytes));
    return p;
}

ASN1RT_API void* rtMemHeapRealloc(void** ppvMemHeap, void* mem_p, int nbytes)
{
    if (ppvMemHeap == nullptr || *ppvMemHeap == nullptr)
        return nullptr;
    RtMemHeap* heap = static_cast<RtMemHeap*>(*ppvMemHeap);
    if (mem_p == nullptr) {
        if (nbytes > RT_MEMHEAP_MAX_ALLOC)
            return nullptr;
        return allocBlock(heap, nbytes);
    }
    RtMemBlock* old = blockOf(mem_p);
    if (old->size >= static_cast<ASN1UINT64>(static_cast<ASN1UINT>(nbytes))) {
        // No shrinking of memory: only the stored size goes down.
        old->size = static_cast<ASN1UINT64>(static_cast<ASN1INT64>(nbytes));
        return mem_p;
    }
    if (nbytes > RT_MEMHEAP_MAX_ALLOC)
        return nullptr;
    const ASN1UINT64 oldSize = old->size;
    void* fresh = allocBlock(heap, nbytes);
    if (fresh == nullptr)
        return nullptr;  // the old block survives
    memcpy(fresh, mem_p, static_cast<size_t>(oldSize));
    unlinkBlock(heap, old);
    g_free_func(heap->memContext, old);
    return fresh;
}

ASN1RT_API void rtMemHeapFreePtr(void** ppvMemHeap, void* mem_p)
{
    if (mem_p == nullptr || ppvMemHeap == nullptr || *ppvMemHeap == nullptr)
        return;
    RtMemHeap* heap = static_cast<RtMemHeap*>(*ppvMemHeap);
    RtMemBlock* block = blockOf(mem_p);
    unlinkBlock(heap, block);
    g_free_func(heap->memContext, block);
}

ASN1RT_API void rtMemHeapAddRef(void** ppvMemHeap)
{
    if (ppvMemHeap == nullptr || *ppvMemHeap == nullptr)
        return;
    static_cast<RtMemHeap*>(*ppvMemHeap)->refCnt++;
}

ASN1RT_API void rtMemHeapRelease(void** ppvMemHeap)
{
    if (ppvMemHeap == nullptr || *ppvMemHeap == nullptr)
        return;
    RtMemHeap* heap = static_cast<RtMemHeap*>(*ppvMemHeap);
    if (--heap->refCnt != 0)
        return;
    void* memContext = heap->memContext;
    RtMemBlock* block = heap->head;
    while (block != nullptr) {
        RtMemBlock* next = block->next;
        g_free_func(memContext, block);
        block = next;
    }
    heap->head = nullptr;
    if (heap->flags & RT_MH_FREEHEAPDESC)
        g_free_func(memContext, heap);
    *ppvMemHeap = nullptr;
}

ASN1RT_API int rtMemHeapCheckPtr(void** /*ppvMemHeap*/, const void* /*mem_p*/) { return 1; }

ASN1RT_API int rtMemHeapMarkSaved(void** /*ppvMemHeap*/, const void* /*mem_p*/, ASN1BOOL /*saved*/)
{
    return 0;
}

}  // extern "C"
