// Deep copies of the runtime's value types and the conversions between 8-bit, wide and
// 32-bit character strings. Heap copies come from the context's type heap.
#include "asn1rt/charstr.h"

#include <string.h>
#include <wchar.h>

namespace {

// A heap copy of `octets` octets; null when the size is out of the heap's reach or the
// heap refuses.
void* heapCopy(ASN1CTXT* ctxt, const void* source, unsigned long long octets) {
    if (octets > static_cast<unsigned long long>(RT_MEMHEAP_MAX_ALLOC))
        return nullptr;
    void* p = rtMemHeapAlloc(&ctxt->typeHeap, static_cast<int>(octets));
    if (p != nullptr && octets != 0)
        memcpy(p, source, static_cast<size_t>(octets));
    return p;
}

unsigned long long bitOctets(ASN1UINT bits) {
    return (static_cast<unsigned long long>(bits) + 7) / 8;
}

// Copies a count and its heap data; an empty value gets a null pointer.
template <typename Rec>
int copyCounted(ASN1CTXT* ctxt, const Rec* source, Rec* target, ASN1UINT count,
                unsigned long long octets) {
    if (count == 0 || octets == 0) {
        target->data = nullptr;
        return 1;
    }
    void* p = heapCopy(ctxt, source->data, octets);
    if (p == nullptr) {
        target->data = nullptr;
        return 0;
    }
    target->data = static_cast<decltype(target->data)>(p);
    return 1;
}

bool permitted(ASN1UINT c, const Asn132BitCharSet* set) {
    if (set == nullptr)
        return true;
    if (c < set->firstChar || c > set->lastChar)
        return false;
    if (set->nchars == 0 || set->data == nullptr)
        return true;
    for (ASN1UINT i = 0; i < set->nchars; ++i)
        if (set->data[i] == c)
            return true;
    return false;
}

// Shared body of the 8-bit and wide conversions to 32-bit characters.
template <typename Char, typename Narrow>
Asn132BitCharString* toUCS(ASN1CTXT* ctxt, const Char* text, Asn132BitCharString* target,
                           const Asn132BitCharSet* set, size_t length, Narrow narrow) {
    target->nchars = 0;
    if (length > static_cast<size_t>(RT_MEMHEAP_MAX_ALLOC) / 4)
        return nullptr;
    ASN1UINT* data = static_cast<ASN1UINT*>(rtMemHeapAlloc(&ctxt->typeHeap, static_cast<int>(length * 4)));
    if (data == nullptr)
        return nullptr;
    target->data = data;
    ASN1UINT n = 0;
    for (size_t i = 0; i < length; ++i) {
        ASN1UINT c = narrow(text[i]);
        if (permitted(c, set))
            data[n++] = c;
    }
    target->nchars = n;
    return target;
}

}  // namespace

extern "C" {

int rtCopyBitStr(ASN1CTXT* ctxt, ASN1UINT numbits, const ASN1OCTET* source, ASN1UINT* numbitsOut,
                 ASN1OCTET* destination) {
    (void)ctxt;
    if (source == nullptr || numbitsOut == nullptr || destination == nullptr)
        return 0;
    *numbitsOut = numbits;
    if (numbits == 0)
        return 0;
    memcpy(destination, source, static_cast<size_t>(bitOctets(numbits)));
    return 1;
}

int rtCopyOctStr(ASN1CTXT* ctxt, ASN1UINT numocts, const ASN1OCTET* source, ASN1UINT* numoctsOut,
                 ASN1OCTET* destination) {
    (void)ctxt;
    if (source == nullptr || numoctsOut == nullptr || destination == nullptr)
        return 0;
    *numoctsOut = numocts;
    if (numocts == 0)
        return 0;
    memcpy(destination, source, numocts);
    return 1;
}

int rtCopyDynBitStr(ASN1CTXT* ctxt, const ASN1TDynBitStr* source, ASN1TDynBitStr* target) {
    if (source == nullptr || target == nullptr)
        return 0;
    target->numbits = source->numbits;
    return copyCounted(ctxt, source, target, source->numbits, bitOctets(source->numbits));
}

int rtCopyDynOctStr(ASN1CTXT* ctxt, const ASN1TDynOctStr* source, ASN1TDynOctStr* target) {
    if (source == nullptr || target == nullptr)
        return 0;
    target->numocts = source->numocts;
    return copyCounted(ctxt, source, target, source->numocts, source->numocts);
}

int rtCopyCharStr(ASN1CTXT* ctxt, const char* text, char** target) {
    if (text == nullptr || target == nullptr)
        return 0;
    void* p = heapCopy(ctxt, text, static_cast<unsigned long long>(strlen(text)) + 1);
    if (p == nullptr)
        return 0;
    *target = static_cast<char*>(p);
    return 1;
}

int rtCopy16BitCharStr(ASN1CTXT* ctxt, const Asn116BitCharString* source, Asn116BitCharString* target) {
    if (source == nullptr || target == nullptr)
        return 0;
    target->nchars = source->nchars;
    return copyCounted(ctxt, source, target, source->nchars, 2ull * source->nchars);
}

int rtCopy32BitCharStr(ASN1CTXT* ctxt, const Asn132BitCharString* source, Asn132BitCharString* target) {
    if (source == nullptr || target == nullptr)
        return 0;
    target->nchars = source->nchars;
    return copyCounted(ctxt, source, target, source->nchars, 4ull * source->nchars);
}

int rtCopyOID(ASN1CTXT* ctxt, const ASN1OBJID* source, ASN1OBJID* target) {
    (void)ctxt;
    if (source == nullptr || target == nullptr)
        return 0;
    target->numids = source->numids;
    ASN1UINT n = source->numids < ASN_K_MAXSUBIDS ? source->numids : ASN_K_MAXSUBIDS;
    memmove(target->subid, source->subid, n * sizeof(ASN1UINT));
    return 1;
}

int rtCopyOpenType(ASN1CTXT* ctxt, const ASN1OpenType* source, ASN1OpenType* target) {
    if (source == nullptr || target == nullptr)
        return 0;
    target->numocts = source->numocts;
    return copyCounted(ctxt, source, target, source->numocts, source->numocts);
}

int rtCopyOpenTypeExt(ASN1CTXT* ctxt, const struct _Asn1RTDList* source, struct _Asn1RTDList* target) {
    if (ctxt == nullptr || source == nullptr || target == nullptr)
        return 0;
    rtDListInit(target);
    for (const Asn1RTDListNode* node = source->head; node != nullptr; node = node->next) {
        if (node->data == nullptr)
            continue;
        const ASN1OpenType* value = static_cast<const ASN1OpenType*>(node->data);
        ASN1OpenType* copy = static_cast<ASN1OpenType*>(rtMemHeapAlloc(&ctxt->typeHeap, sizeof(ASN1OpenType)));
        if (copy == nullptr)
            return 0;
        copy->numocts = value->numocts;
        copy->data = nullptr;
        if (value->numocts != 0) {
            // A record whose octets could not be copied is not added at all.
            copy->data = static_cast<const ASN1OCTET*>(heapCopy(ctxt, value->data, value->numocts));
            if (copy->data == nullptr)
                return 0;
        }
        if (rtDListAppend(ctxt, target, copy) == nullptr)
            return 0;
    }
    return 1;
}

Asn132BitCharString* rtCToUCSString(ASN1CTXT* ctxt, const char* text, Asn132BitCharString* target,
                                    const Asn132BitCharSet* charSet) {
    if (ctxt == nullptr || text == nullptr || target == nullptr)
        return nullptr;
    return toUCS(ctxt, text, target, charSet, strlen(text),
                 [](char c) { return static_cast<ASN1UINT>(static_cast<unsigned char>(c)); });
}

Asn132BitCharString* rtWCSToUCSString(ASN1CTXT* ctxt, const wchar_t* text, Asn132BitCharString* target,
                                      const Asn132BitCharSet* charSet) {
    if (ctxt == nullptr || text == nullptr || target == nullptr)
        return nullptr;
    // Only the low 16 bits of each wide character are kept.
    return toUCS(ctxt, text, target, charSet, wcslen(text),
                 [](wchar_t c) { return static_cast<ASN1UINT>(c) & 0xFFFFu; });
}

wchar_t* rtUCSToWCSString(const Asn132BitCharString* source, wchar_t* destination, size_t capacity) {
    if (destination == nullptr || capacity == 0)
        return destination;
    size_t n = 0;
    if (source != nullptr && source->data != nullptr) {
        for (ASN1UINT i = 0; i < source->nchars; ++i) {
            ASN1UINT c = source->data[i];
            if (c >= 0x10000u)
                continue;
            destination[n++] = static_cast<wchar_t>(c);
            if (n == capacity)
                return destination;  // full: no terminator
        }
    }
    destination[n] = L'\0';
    return destination;
}

}  // extern "C"
