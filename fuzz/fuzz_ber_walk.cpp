// Arbitrary input through the BER primitives: the generic walk with every value reader and
// with headers only, the write-back with the encoders, and the navigation functions on
// their own.
//
// The first octet picks context flags (shared input, unchecked lengths) in its low bits
// and, in the others, the size of the caller's node array the header walk starts in; the
// rest is the message.  Beyond "no crash, no leak, no read past the end", two properties hold and
// trap when broken: a walk that calls its input DER writes it back unchanged, and a
// written-back tree walks again to the same octets (unless it held strings in segments,
// which flatten one level per round).
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "asn1rt/ber.h"

namespace {

struct Context {
    ASN1CTXT c;
    bool ok;
    Context() { ok = rtInitContext(&c, nullptr) == 0; }
    ~Context() { rtFreeContext(&c); }
};

void navigate(const uint8_t* msg, int size, ASN1USINT flags)
{
    Context ctx;
    if (!ctx.ok)
        return;
    ASN1TAG tag = 0;
    int len = 0;
    if (xd_setp(&ctx.c, msg, size, &tag, &len) != 0)
        return;
    ctx.c.flags |= flags;
    int count = 0;
    (void)xd_count(&ctx.c, len, &count);
    // Every element in turn by seeking, then the open-type reader over what is left.
    for (int k = 0; k < 64; ++k) {
        if (xd_match(&ctx.c, tag, &len, k == 0 ? RT_MATCH_SEEK : RT_MATCH_SEEK | RT_MATCH_SKIP_FIRST) != 0)
            break;
    }
    ctx.c.bufIndex = 0;
    Asn1RTDList list;
    rtDListInit(&list);
    ASN1DecodeBlock block{0, len};
    (void)xd_OpenTypeExt(&ctx.c, &block, 0xffffffffu, &list);
    ctx.c.bufIndex = 0;
    (void)xd_MovePastEOC(&ctx.c);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > (1u << 20))
        return 0;
    ASN1USINT flags = 0;
    if (data[0] & 1)
        flags |= RT_FLAG_SHARE_INPUT;
    if (data[0] & 2)
        flags |= RT_FLAG_LEN_UNCHECKED;
    // An exact copy, so that a read one octet past the end is seen.
    std::vector<uint8_t> msg(data + 1, data + size);
    const int n = (int)msg.size();
    const uint8_t* p = msg.empty() ? nullptr : msg.data();
    if (!p)
        return 0;

    (void)xd_indeflen_ex(p, n);
    navigate(p, n, flags);

    Context enc;
    if (enc.ok && xe_setp(&enc.c, nullptr, 64) == 0)
        (void)xe_OpenType(&enc.c, p, (ASN1UINT)n);

    {
        // Values read into scratch storage by the caller-storage readers.
        Context light;
        asn1rt::BerWalk dropped;
        if (light.ok) {
            light.c.flags |= flags;
            (void)asn1rt::berWalk(&light.c, p, n, dropped, asn1rt::kWalkScratchValues);
        }
    }

    {
        // Headers only: contents go back as they came, so DER headers give the input back,
        // and whatever it writes walks again to the same octets.
        Context hc;
        asn1rt::BerWalk headers;
        if (!hc.ok)
            return 0;
        hc.c.flags |= flags;
        std::vector<asn1rt::BerWalkNode> storage(data[0] >> 2);
        const int hs = asn1rt::berWalk(&hc.c, p, n, headers, asn1rt::kWalkStructure, storage.data(),
                                       (ASN1UINT)storage.size());
        const int hlen = asn1rt::berWriteBack(&hc.c, headers);
        if (hs == 0 && hlen > 0) {
            if (headers.der && ((ASN1UINT)hlen != headers.consumed || memcmp(xe_getp(&hc.c), p, (size_t)hlen) != 0))
                __builtin_trap();
            std::vector<uint8_t> out(xe_getp(&hc.c), xe_getp(&hc.c) + hlen);
            Context hagain;
            asn1rt::BerWalk rewalked;
            if (!hagain.ok)
                return 0;
            if (asn1rt::berWalk(&hagain.c, out.data(), (int)out.size(), rewalked, asn1rt::kWalkStructure) != 0 ||
                !rewalked.der || rewalked.count != headers.count)
                __builtin_trap();
            if (asn1rt::berWriteBack(&hagain.c, rewalked) != hlen || memcmp(xe_getp(&hagain.c), out.data(), out.size()) != 0)
                __builtin_trap();
        }
    }

    Context ctx;
    if (!ctx.ok)
        return 0;
    ctx.c.flags |= flags;
    asn1rt::BerWalk walk;
    int st = asn1rt::berWalk(&ctx.c, p, n, walk);
    const bool der = st == 0 && walk.der;
    const bool segmented = walk.segmented != 0;
    const ASN1UINT consumed = walk.consumed;
    int len = asn1rt::berWriteBack(&ctx.c, walk);
    if (st != 0 || len <= 0)
        return 0;
    std::vector<uint8_t> once(xe_getp(&ctx.c), xe_getp(&ctx.c) + len);
    if (der && (once.size() != consumed || memcmp(once.data(), p, consumed) != 0))
        __builtin_trap();

    Context again;
    if (!again.ok)
        return 0;
    asn1rt::BerWalk second;
    if (asn1rt::berWalk(&again.c, once.data(), (int)once.size(), second) != 0)
        __builtin_trap();
    int len2 = asn1rt::berWriteBack(&again.c, second);
    if (segmented)
        return 0;
    if (len2 != len || memcmp(xe_getp(&again.c), once.data(), (size_t)len) != 0)
        __builtin_trap();
    return 0;
}
