// Shared by the runtime tests: decode contexts over exact-size copies of hex (so that ASan sees any
// read past the end), encode contexts with their output as hex, guards for the platform's last error
// and the runtime's allocator, and the generic walk in a context of its own.
#pragma once

#include <algorithm>
#include <cctype>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "asn1rt/ber.h"
#include "support/testsupport.h"

namespace bertest {

class Dec {
public:
    explicit Dec(const std::string& hexText, ASN1USINT flags = 0) : m_size(testsupport::hex(hexText).size())
    {
        const std::vector<uint8_t> v = testsupport::hex(hexText);
        m_mem.reset(new uint8_t[std::max<size_t>(m_size, 1)]);
        std::copy(v.begin(), v.end(), m_mem.get());
        EXPECT_EQ(rtInitContext(&c, nullptr), 0);
        EXPECT_EQ(rtInitContextBuffer(&c, m_mem.get(), (ASN1UINT)m_size), 0);
        c.flags |= flags;
    }
    ~Dec() { rtFreeContext(&c); }
    Dec(const Dec&) = delete;
    Dec& operator=(const Dec&) = delete;
    int recorded() const { return c.errInfo.status; }
    ASN1UINT at() const { return c.bufIndex; }
    const uint8_t* data() const { return m_mem.get(); }
    size_t size() const { return m_size; }
    bool constructed() const { return (c.flags & RT_FLAG_CONSTRUCTED) != 0; }
    ASN1CTXT c;

private:
    size_t m_size;
    std::unique_ptr<uint8_t[]> m_mem;
};

// A dynamic buffer of `size` octets (16384 for 0), or a static one of that size.
class Enc {
public:
    explicit Enc(int size = 0, bool isStatic = false) : m_static(isStatic ? (size_t)size : 0, 0xA5)
    {
        EXPECT_EQ(rtInitContext(&c, nullptr), 0);
        EXPECT_EQ(xe_setp(&c, isStatic ? m_static.data() : nullptr, size), 0);
    }
    ~Enc() { rtFreeContext(&c); }
    Enc(const Enc&) = delete;
    Enc& operator=(const Enc&) = delete;
    std::string out() const { return testsupport::toHex(xe_getp(const_cast<ASN1CTXT*>(&c)), used()); }
    ASN1UINT used() const { return c.bufSize - 1 - c.bufIndex; }
    ASN1CTXT c;

private:
    std::vector<uint8_t> m_static;
};

// The runtime stands on the C library alone: the platform's last error stays as it was.
class LastErrorUntouched {
public:
    LastErrorUntouched() { SetLastError(kMark); }
    ~LastErrorUntouched() { EXPECT_EQ(GetLastError(), kMark); }

private:
    static constexpr DWORD kMark = 0x13572468;
};

// The runtime's heaps get the first `allowed` allocations and nothing after, while this lives.
class RationedAllocator {
public:
    explicit RationedAllocator(int allowed = 0) : m_saved(g_malloc_func)
    {
        s_left = allowed;
        s_next = m_saved;
        g_malloc_func = [](void* mc, size_t n) -> void* { return s_left-- > 0 ? s_next(mc, n) : nullptr; };
    }
    ~RationedAllocator() { g_malloc_func = m_saved; }
    RationedAllocator(const RationedAllocator&) = delete;
    RationedAllocator& operator=(const RationedAllocator&) = delete;

private:
    static inline int s_left = 0;
    static inline rtMallocFunc s_next = nullptr;
    rtMallocFunc m_saved;
};

struct Walked : Dec {
    Walked(const std::string& hexText, asn1rt::BerWalkMode mode, asn1rt::BerWalkNode* slots = nullptr, ASN1UINT n = 0)
        : Dec(hexText), status(asn1rt::berWalk(&c, data(), (int)size(), walk, mode, slots, n)) {}
    // What writing back gives, as hex, or its status.
    std::string writeBack()
    {
        const int len = asn1rt::berWriteBack(&c, walk);
        return len < 0 ? "status " + std::to_string(len) : testsupport::toHex(xe_getp(&c), (size_t)len);
    }
    // All a walk leaves but its nodes: status, counts, form, and the context's cursor, saved state and flags.
    std::string state() const
    {
        std::string s;
        for (ASN1UINT x : {(ASN1UINT)status, walk.count, (ASN1UINT)walk.der, walk.consumed, walk.maxDepth, walk.segmented,
                           c.bufIndex, c.savedState.index, (ASN1UINT)c.savedState.flags, (ASN1UINT)c.savedState.bitOffset,
                           (ASN1UINT)c.flags, (ASN1UINT)c.errInfo.status})
            s += std::to_string((int)x) + " ";
        return s;
    }
    asn1rt::BerWalk walk;
    int status;
};

// Each primitive element of a DER message by its tag word, also inside OCTET STRINGs that hold DER, as
// the header walk finds them: values of real files for the text functions.
inline void forEachPrimitive(const std::vector<uint8_t>& der, const std::function<void(ASN1TAG, const uint8_t*, size_t)>& visit)
{
    Walked w(testsupport::toHex(der.data(), der.size()), asn1rt::kWalkStructure);
    for (ASN1UINT k = 0; w.status == 0 && w.walk.der && w.walk.consumed == der.size() && k < w.walk.count; ++k) {
        const asn1rt::BerWalkNode& n = w.walk.nodes[k];
        if (n.kind != asn1rt::kWalkConstructed)
            visit(n.tag, n.v.octets.data, n.v.octets.numocts);
        if (n.tag == ASN_ID_OCTSTR && n.v.octets.numocts > 1)
            forEachPrimitive(std::vector<uint8_t>(n.v.octets.data, n.v.octets.data + n.v.octets.numocts), visit);
    }
}

// Two walks that saw the same elements: each node's header, place, last child and depth.
inline ::testing::AssertionResult sameNodes(const asn1rt::BerWalk& a, const asn1rt::BerWalk& b)
{
    for (ASN1UINT k = 0; a.count == b.count && k < a.count; ++k) {
        const asn1rt::BerWalkNode &x = a.nodes[k], &y = b.nodes[k];
        if (x.tag != y.tag || x.length != y.length || x.offset != y.offset || x.lastChild != y.lastChild || x.depth != y.depth)
            return ::testing::AssertionFailure() << "node " << k << " differs";
    }
    return a.count == b.count ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << a.count << " against " << b.count;
}

inline std::string statusName(int st)
{
    static const std::pair<int, const char*> names[] = {
        {RT_E_BUFFER_FULL, "BUFFER_FULL"}, {RT_E_END_OF_BUFFER, "END_OF_BUFFER"}, {RT_E_TAG_MISMATCH, "TAG_MISMATCH"},
        {RT_E_BAD_OBJID, "BAD_OBJID"}, {RT_E_BAD_LENGTH, "BAD_LENGTH"}, {RT_E_NO_MEMORY, "NO_MEMORY"},
        {RT_E_TOO_LONG, "TOO_LONG"}, {RT_E_BAD_VALUE, "BAD_VALUE"}, {RT_E_BAD_TAG, "BAD_TAG"},
        {RT_E_BAD_ARGUMENT, "BAD_ARGUMENT"}, {RT_E_INT_TOO_BIG, "INT_TOO_BIG"}};
    const auto* n = std::find_if(std::begin(names), std::end(names), [st](const auto& p) { return p.first == st; });
    return n != std::end(names) ? n->second : std::to_string(st);
}

// The hex form toHex gives (upper case, no spaces), and the lower case the runtime's own texts use.
inline std::string norm(const std::string& h) { return testsupport::toHex(testsupport::hex(h).data(), testsupport::hex(h).size()); }
inline std::string lowerHex(const uint8_t* p, size_t n)
{
    std::string s = testsupport::toHex(p, n);
    std::transform(s.begin(), s.end(), s.begin(), [](char ch) { return (char)std::tolower((unsigned char)ch); });
    return s;
}

}  // namespace bertest
