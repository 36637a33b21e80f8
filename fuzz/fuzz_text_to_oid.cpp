// Dotted text to object identifier and back: no input may read or write out of bounds,
// and whatever converts must come back from its own text unchanged.
#include "asn1rt/charstr.h"
#include "asn1rt/oid.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

namespace {

void check(bool ok) {
    if (!ok)
        abort();
}

// Text through a buffer of exactly capacity + 1 places, the most the conversion may use.
int toText(const ASN1OBJID& v, size_t capacity, std::vector<char>& out) {
    out.assign(capacity + 1, '\0');
    return rtOidToStr(&v, out.data(), capacity);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 8192)
        return 0;
    std::vector<char> text(data, data + size);
    text.push_back('\0');

    ASN1OBJID v;
    memset(&v, 0, sizeof v);
    const int ok = rtStrToOid(text.data(), &v);
    check(v.numids <= ASN_K_MAXSUBIDS);

    const size_t len = rtOidToStrLen(&v);
    std::vector<char> out;
    check(toText(v, len, out) == 1);
    check(strlen(out.data()) == len);
    if (ok) {
        ASN1OBJID back;
        memset(&back, 0xA5, sizeof back);
        check(rtStrToOid(out.data(), &back) == 1);
        check(back == v);
        ASN1OCTET result = 7;
        check(rtCmpOID(nullptr, &back, &v, &result) == 1 && result == 7);
    }
    // Every shorter capacity stops on a whole arc.
    if (len > 0) {
        const size_t capacity = size > 0 ? data[0] % len : 0;
        check(toText(v, capacity, out) == 0);
        check(strlen(out.data()) <= capacity);
    }

    // The raw input as a record, count included: arcs past the array are never touched.
    ASN1OBJID raw;
    memset(&raw, 0, sizeof raw);
    memcpy(&raw, data, size < sizeof raw ? size : sizeof raw);
    const size_t rawLen = rtOidToStrLen(&raw);
    toText(raw, rawLen, out);
    ASN1OBJID copy;
    const int set = rtSetOID(&copy, &raw);
    check(set >= 1 && set <= ASN_K_MAXSUBIDS + 1);
    check(copy == raw);
    ASN1TObjId cls(raw);
    check(cls == raw);
    ASN1OBJID viaCopy;
    check(rtCopyOID(nullptr, &raw, &viaCopy) == 1 && viaCopy == raw);
    return 0;
}
