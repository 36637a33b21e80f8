// Arbitrary input through the decoder of every top-level type of the catalogue. What
// decodes is encoded again; when that succeeds, the encoding must decode, and encode to the
// same octets (the first round may normalise: BER to DER, defaults dropped). An encoding
// may fail: an open type cut short by the end of its input counts as read, and cannot be
// written back. Beyond that: no crash, no leak, no read past the end, under ASan and UBSan.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "asn1data/catalogue.h"

namespace {

const char* const kTopLevel[] = {"Certificate", "CertificateList", "CertificationRequest",
                                 "ContentInfo", "OCSPResponse", "OCSPRequest", "TimeStampResp",
                                 "TimeStampReq", "PKIMessage"};

struct Context {
    ASN1CTXT c;
    bool ok;
    Context() { ok = rtInitContext(&c, nullptr) == 0; }
    ~Context() { rtFreeContext(&c); }
};

// Decodes `msg` as `type` on a context of its own and encodes it back: the octets, or
// false when the decoder or the encoder refuses.
bool round(const asn1data::TypeInfo& type, const uint8_t* msg, size_t size, std::vector<uint8_t>& out) {
    Context ctx;
    if (!ctx.ok) return false;
    void* value = rtMemHeapAllocZ(&ctx.c.typeHeap, (int)type.size);
    if (value == nullptr || xd_setp(&ctx.c, msg, (int)size, nullptr, nullptr) != 0) return false;
    if (type.decode(&ctx.c, value, 1, 0) != 0) return false;
    int len = xe_setp(&ctx.c, nullptr, 0);
    if (len == 0) len = type.encode(&ctx.c, value, 1);
    if (len < 0) return false;
    out.assign(xe_getp(&ctx.c), xe_getp(&ctx.c) + len);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    const asn1data::TypeRegistry& reg = asn1data::typeRegistry();
    // An exact-size copy, so that any read past the end is seen.
    std::vector<uint8_t> msg(data, data + size);
    for (const char* name : kTopLevel) {
        const asn1data::TypeInfo* type = reg.find(name);
        if (type == nullptr) continue;
        std::vector<uint8_t> first, second;
        if (!round(*type, msg.data(), msg.size(), first)) continue;
        if (!round(*type, first.data(), first.size(), second)) __builtin_trap();
        if (second != first) __builtin_trap();  // one round reaches the fixed point
    }
    return 0;
}
