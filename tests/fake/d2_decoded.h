// One decode of a generated type over an exact-size copy of some hex, kept for inspection,
// and the value written back on the decoder's own context, where its memory lives.
#pragma once

#include "asn1data/asn1data_rt.h"
#include "ber_test_util.h"

namespace d2test {

struct Decoded {
    Decoded(const asn1data::TypeInfo* type, const std::string& in) : dec(in), info(type) {
        value = rtMemHeapAllocZ(&dec.c.typeHeap, (int)info->size);
        status = info->decode(&dec.c, value, ASN1EXPL, 0);
    }
    std::string reencoded() {
        int len = xe_setp(&dec.c, nullptr, 0);
        if (len == 0) len = info->encode(&dec.c, value, ASN1EXPL);
        return len < 0 ? "error " + std::to_string(len) : bertest::lowerHex(xe_getp(&dec.c), (size_t)len);
    }
    template <class T>
    T& as() { return *static_cast<T*>(value); }
    bertest::Dec dec;
    const asn1data::TypeInfo* info;
    void* value;
    int status;
};

}  // namespace d2test
