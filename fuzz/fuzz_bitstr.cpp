// ASN1CBitStr driven by arbitrary operations over its several kinds of storage: nothing
// may read or write out of bounds, and after every operation the count and the readers
// agree with the octets themselves.
#include "asn1rt/bitstr.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

namespace {

void check(bool ok) {
    if (!ok) abort();
}

int bitLen(const ASN1OCTET* d, int used) {
    if (!d || used <= 0) return 0;
    return (used - 1) * 8 + rtOctetBitLen(d[used - 1]);
}

void invariants(ASN1CBitStr& b) {
    const ASN1OCTET* d = b.data();
    int used = b.size();
    check(used >= 0 && used <= b.getUnitsAllocated());
    check(b.length() == bitLen(d, used));
    int ones = 0;
    for (int i = 0; i < used; ++i)
        for (int k = 0; k < 8; ++k) ones += (d[i] >> k) & 1;
    check(b.cardinality() == ones);
    for (int i = 0; i < used * 8 && i < 256; ++i)
        check(b.get((ASN1UINT)i) == (((d[i / 8] >> (7 - i % 8)) & 1) != 0));
    std::vector<ASN1OCTET> out((size_t)used + 2);
    check(b.getBytes(out.data(), (int)out.size()) == 0);
    check(used == 0 || memcmp(out.data(), d, (size_t)used) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 1024) return 0;
    ASN1BEREncodeBuffer buf;
    ASN1OCTET storage[16] = {0};
    ASN1UINT count = data[1] % 200;
    ASN1OCTET valueBytes[4] = {0xA5, 0x5A, 0xFF, 0x01};
    ASN1TDynBitStr value;
    value.numbits = data[1] % 33;
    value.data = valueBytes;

    ASN1CBitStr* b;
    switch (data[0] % 4) {
        case 0: b = new ASN1CBitStr(buf, 0u); break;
        case 1: b = new ASN1CBitStr(buf, (ASN1UINT)(data[1] % 120) + 1); break;
        case 2: b = new ASN1CBitStr(buf, storage, count, 128); break;
        default: b = new ASN1CBitStr(buf, value); break;
    }
    invariants(*b);
    const uint8_t* p = data + 2;
    size_t n = size - 2;
    for (size_t i = 0; i + 2 < n; i += 3) {
        ASN1UINT x = p[i + 1] * 2u, y = p[i + 2] * 2u;
        ASN1OCTET operand[64];
        for (int k = 0; k < 64; ++k) operand[k] = (ASN1OCTET)(p[(i + k) % n] * 37u);
        switch (p[i] % 16) {
            case 0: b->set(x); break;
            case 1: b->set(x, y); break;
            case 2: b->clear(x); break;
            case 3: b->clear(x, y); break;
            case 4: b->invert(x); break;
            case 5: b->invert(x, y); break;
            case 6: b->doAnd(operand, x); break;
            case 7: b->doOr(operand, x); break;
            case 8: b->doXor(operand, x); break;
            case 9: b->doAndNot(operand, x); break;
            case 10: b->shiftLeft(x % 64); break;
            case 11: b->shiftRight(x % 64); break;
            case 12: {
                ASN1OCTET dest[8];
                b->get(x, y, dest, (int)sizeof dest);
                break;
            }
            case 13: b->clear(); break;
            case 14: {
                ASN1CBitStr copy(*b, (unsigned char)(x & 1));
                invariants(copy);
                break;
            }
            default: {
                ASN1TDynBitStr* rec = *b;
                check(rec == nullptr || rec->numbits == (ASN1UINT)b->length());
                break;
            }
        }
        invariants(*b);
    }
    delete b;
    return 0;
}
