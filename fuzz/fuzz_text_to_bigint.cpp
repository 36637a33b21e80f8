// Text to big integer and back in every radix: no input may read or write out of bounds or
// leak, and the decimal text of a value reads back as the same value.
#include "asn1rt/bigint.h"
#include "asn1rt/context.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

namespace {

void check(bool ok) {
    if (!ok)
        abort();
}

const int kRadices[] = {0, 2, 8, 10, 16, 3, -1, 17};

bool sameMagnitude(const ASN1BigInt& a, const ASN1BigInt& b) {
    return a.sign == b.sign && a.numOcts == b.numOcts &&
           (a.numOcts == 0 || memcmp(a.mag, b.mag, static_cast<size_t>(a.numOcts)) == 0);
}

bool allZero(const ASN1BigInt& v) {
    for (int i = 0; i < v.numOcts; ++i)
        if (v.mag[i] != 0)
            return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 2048)
        return 0;
    const int radix = kRadices[data[0] % (sizeof kRadices / sizeof kRadices[0])];
    const size_t smallCapacity = data[1];
    std::vector<char> text(data + 2, data + size);
    text.push_back('\0');

    ASN1CTXT ctxt;
    check(rtInitContext(&ctxt, nullptr) == 0);

    // Local storage as the encoder gives it, so that both the local and the heap paths run.
    ASN1OCTET local[16];
    ASN1BigInt v;
    rtBigIntInit(&v);
    v.mag = local;
    v.capacity = sizeof local;
    const int status = rtBigIntSetStr(&ctxt, &v, text.data(), radix);
    if (status == 0) {
        const int len = rtBigIntGetDataLen(&v);
        check(len >= 1 && len <= v.numOcts + 1);
        std::vector<ASN1OCTET> octets(static_cast<size_t>(len));
        check(rtBigIntGetData(&ctxt, &v, octets.data(), octets.size()) == len);
        const size_t fewCapacity = smallCapacity % (octets.size() + 1);
        // new[] of any size gives a real pointer, so even capacity 0 is bounds-checked.
        std::unique_ptr<ASN1OCTET[]> few(new ASN1OCTET[fewCapacity]);
        int n = rtBigIntGetData(&ctxt, &v, few.get(), fewCapacity);
        check(n == len || n == -17);

        for (int r : {2, 8, 10, 16, 5}) {
            const int digits = rtBigIntDigitsNum(&v, r);
            // Exactly the places needed; the digits made odd plus sign and terminator.
            std::vector<char> out(static_cast<size_t>(digits) + static_cast<size_t>(len) * 8 + 3);
            int s = rtBigIntToString(&ctxt, &v, r, out.data(), out.size());
            check(s == 0 || s == -30);
            if (s == 0)
                check(strlen(out.data()) < out.size());
            if (s == 0 && r == 10 && !allZero(v)) {
                ASN1BigInt back;
                rtBigIntInit(&back);
                check(rtBigIntSetStr(&ctxt, &back, out.data(), 10) == 0);
                check(sameMagnitude(v, back));
                rtBigIntFree(&ctxt, &back);
            }
            const size_t tightCapacity = smallCapacity % (out.size() + 1);
            std::unique_ptr<char[]> tight(new char[tightCapacity]);
            s = rtBigIntToString(&ctxt, &v, r, tight.get(), tightCapacity);
            check(s == 0 || s == -17 || s == -30);
        }
    }
    rtBigIntFree(&ctxt, &v);

    // Comparison of a text with itself and with a fixed value.
    check(rtBigIntStrCompare(&ctxt, text.data(), text.data()) == 0);
    const int c = rtBigIntStrCompare(&ctxt, text.data(), "0x10");
    check(c >= -1 && c <= 1);
    rtFreeContext(&ctxt);
    return 0;
}
