// Big integers: text in radix 2, 8, 10 or 16 to a sign-and-magnitude record, the record
// to two's-complement octets and back to text.
#include "asn1rt/bigint.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

namespace {

// Indexed by the radix divided by 2.
const int kBitsPerDigit[9] = {0, 1024, 2048, 2648, 3072, 3402, 3672, 3899, 4096};
const int kDigitsPerByte[9] = {0, 8, 0, 0, 2, 2, 0, 0, 2};
const int kByteRadix[9] = {0, 256, 0, 0, 64, 100, 0, 0, 256};

const int kLocalOctets = 256;  // local storage of each side in rtBigIntStrCompare

int fail(ASN1CTXT* ctxt, int status) {
    return rtErrSetData(&ctxt->errInfo, status);
}

// Gives the record room for `need` octets of magnitude and zeroes them.
int makeRoom(ASN1CTXT* ctxt, ASN1BigInt* v, long long need) {
    if (need > RT_MEMHEAP_MAX_ALLOC)
        return fail(ctxt, RT_E_NO_MEMORY);
    int n = static_cast<int>(need);
    if (v->capacity < n || v->mag == nullptr) {
        void* p;
        if (v->dynamic && v->mag != nullptr)
            p = rtMemHeapRealloc(&ctxt->typeHeap, v->mag, n);
        else
            p = rtMemHeapAlloc(&ctxt->typeHeap, n);
        if (p == nullptr)
            return fail(ctxt, RT_E_NO_MEMORY);
        v->mag = static_cast<ASN1OCTET*>(p);
        v->capacity = n;
        v->dynamic = 1;
    }
    v->numOcts = n;
    memset(v->mag, 0, static_cast<size_t>(n));
    return 0;
}

// Two's-complement negation in place: invert every octet, add 1 from the low end.
void negate(ASN1OCTET* mag, int n) {
    for (int i = 0; i < n; ++i)
        mag[i] = static_cast<ASN1OCTET>(~mag[i]);
    for (int i = n - 1; i >= 0; --i)
        if (++mag[i] != 0)
            break;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// One group of one or two digits through the C library's conversion; -1 if the
// conversion stops short or comes out negative.
long groupValue(const char* digits, int count, int radix) {
    char group[3] = {0, 0, 0};
    memcpy(group, digits, static_cast<size_t>(count));
    char* end = nullptr;
    long v = strtol(group, &end, radix);
    if (end != group + count || static_cast<ASN1INT>(v) < 0)
        return -1;
    return v;
}

// The first octet of the magnitude negated or inverted, as the length rule of a negative
// value looks at it: only the second octet decides which.
ASN1OCTET negativeLead(const ASN1BigInt* v) {
    ASN1OCTET first = v->mag[0];
    if (v->numOcts == 1 || (v->numOcts >= 2 && v->mag[1] == 0))
        return static_cast<ASN1OCTET>(-first);
    return static_cast<ASN1OCTET>(~first);
}

bool hasMagnitude(const ASN1BigInt* v) {
    return v->numOcts > 0 && v->mag != nullptr;
}

// Divides mag (n octets, most significant first) by d in place; returns the remainder.
unsigned divideInPlace(ASN1OCTET* mag, int n, unsigned d) {
    unsigned rem = 0;
    for (int i = 0; i < n; ++i) {
        unsigned cur = (rem << 8) | mag[i];
        mag[i] = static_cast<ASN1OCTET>(cur / d);
        rem = cur % d;
    }
    return rem;
}

bool isZero(const ASN1OCTET* mag, int n) {
    for (int i = 0; i < n; ++i)
        if (mag[i] != 0)
            return false;
    return true;
}

int toStringBits(ASN1CTXT* ctxt, const ASN1BigInt* v, int radix, char* dest, size_t capacity) {
    const long long len = rtBigIntGetDataLen(v);
    const int bitsPerDigit = radix == 2 ? 1 : 4;
    const long long digits = len * (radix == 2 ? 8 : 2);
    if (static_cast<unsigned long long>(digits | 1) > capacity)
        return fail(ctxt, RT_E_TOO_LONG);
    dest[digits] = '\0';
    long long pos = digits;
    const bool negative = v->sign < 0;
    bool carry = true;  // the +1 of the negation, moving up from the low end
    if (hasMagnitude(v) && v->sign != 0) {
        for (int i = v->numOcts - 1; i >= 0 && pos > 0; --i) {
            unsigned octet = v->mag[i];
            if (negative) {
                octet = (~octet & 0xFFu) + (carry ? 1u : 0u);
                carry = octet > 0xFFu;
                octet &= 0xFFu;
            }
            for (int k = 0; k < 8 / bitsPerDigit && pos > 0; ++k) {
                unsigned d = octet & ((1u << bitsPerDigit) - 1);
                dest[--pos] = "0123456789abcdef"[d];
                octet >>= bitsPerDigit;
            }
        }
    }
    while (pos > 0)
        dest[--pos] = '0';
    return 0;
}

int toStringArith(ASN1CTXT* ctxt, const ASN1BigInt* v, int radix, char* dest, size_t capacity) {
    if (v->numOcts <= 0 || v->mag == nullptr)
        return RT_E_BAD_ARGUMENT;
    const unsigned byteRadix = static_cast<unsigned>(kByteRadix[radix / 2]);
    int n = v->numOcts;
    const bool negative = v->sign < 0;
    ASN1OCTET* work;
    if (radix == 8 && negative) {
        // The two's-complement octets, one octet longer, read as a positive number.
        if (n >= RT_MEMHEAP_MAX_ALLOC)
            return fail(ctxt, RT_E_NO_MEMORY);
        work = static_cast<ASN1OCTET*>(rtMemHeapAlloc(&ctxt->typeHeap, n + 1));
        if (work == nullptr)
            return fail(ctxt, RT_E_NO_MEMORY);
        work[0] = 0;
        memcpy(work + 1, v->mag, static_cast<size_t>(n));
        ++n;
        negate(work, n);
    } else {
        work = static_cast<ASN1OCTET*>(rtMemHeapAlloc(&ctxt->typeHeap, n));
        if (work == nullptr)
            return fail(ctxt, RT_E_NO_MEMORY);
        memcpy(work, v->mag, static_cast<size_t>(n));
    }
    // Digits are written backward from the end of the destination, then moved down.
    size_t pos = capacity;
    int status = 0;
    for (;;) {
        unsigned rem = divideInPlace(work, n, byteRadix);
        bool more = !isZero(work, n);
        int groupDigits = 0;
        do {
            if (pos == 0) {
                status = RT_E_TOO_LONG;
                break;
            }
            dest[--pos] = static_cast<char>('0' + rem % static_cast<unsigned>(radix));
            rem /= static_cast<unsigned>(radix);
            ++groupDigits;
        } while (rem != 0 || (more && groupDigits < 2));
        if (status != 0 || !more)
            break;
    }
    if (status == 0 && radix == 10 && negative) {
        if (pos == 0)
            status = RT_E_TOO_LONG;
        else
            dest[--pos] = '-';
    }
    if (status == 0) {
        size_t len = capacity - pos;
        if (len >= capacity) {
            status = RT_E_TOO_LONG;  // no place left for the terminator
        } else {
            memmove(dest, dest + pos, len);
            dest[len] = '\0';
        }
    }
    rtMemHeapFreePtr(&ctxt->typeHeap, work);
    return status;
}

}  // namespace

extern "C" {

void rtBigIntInit(ASN1BigInt* value) {
    if (value == nullptr)
        return;
    value->numOcts = 0;
    value->mag = nullptr;
    value->sign = 0;
    value->capacity = 0;
    value->dynamic = 0;
}

int rtBigIntSetStr(ASN1CTXT* ctxt, ASN1BigInt* value, const char* text, int radix) {
    if (value == nullptr || text == nullptr)
        return fail(ctxt, RT_E_BAD_ARGUMENT);
    const char* p = text;
    while (*p == ' ')
        ++p;
    if (radix < 0 || radix > 16 ||
        (radix != 0 && radix != 2 && radix != 8 && radix != 10 && radix != 16))
        return fail(ctxt, RT_E_BAD_ARGUMENT);
    if (radix == 0) {
        radix = 10;
        if (p[0] == '0') {
            if (p[1] == 'b')
                radix = 2;
            else if (p[1] == 'o')
                radix = 8;
            else if (p[1] == 'x')
                radix = 16;
            if (radix != 10)
                p += 2;
        }
    }
    if (*p == '\0')
        return fail(ctxt, RT_E_BAD_VALUE);

    if (radix == 2 || radix == 16) {
        value->sign = 1;
        const size_t digits = strlen(p);
        const int perOctet = kDigitsPerByte[radix / 2];
        const int bits = radix == 2 ? 1 : 4;
        const unsigned long long octets = (digits + static_cast<size_t>(perOctet) - 1) / static_cast<size_t>(perOctet);
        if (octets > static_cast<unsigned long long>(RT_MEMHEAP_MAX_ALLOC))
            return fail(ctxt, RT_E_NO_MEMORY);
        int status = makeRoom(ctxt, value, static_cast<long long>(octets));
        if (status != 0)
            return status;
        // The digit at position i from the end lands in the octet and place it belongs to,
        // so the first octet takes the odd digits.
        for (size_t i = 0; i < digits; ++i) {
            int d = hexValue(p[i]);
            if (d < 0 || d >= radix)
                return fail(ctxt, RT_E_BAD_VALUE);
            size_t fromEnd = digits - 1 - i;
            size_t octet = value->numOcts - 1 - fromEnd / static_cast<size_t>(perOctet);
            unsigned shift = static_cast<unsigned>(fromEnd % static_cast<size_t>(perOctet)) * static_cast<unsigned>(bits);
            value->mag[octet] = static_cast<ASN1OCTET>(value->mag[octet] | (d << shift));
        }
        // A set top bit without a leading 0 digit means the digits were two's complement.
        if ((value->mag[0] & 0x80) && p[0] != '0') {
            negate(value->mag, value->numOcts);
            value->sign = -value->sign;
        }
    } else {
        bool minus = false;
        if (*p == '-') {
            minus = true;
            ++p;
            if (*p == '\0')
                return fail(ctxt, RT_E_BAD_VALUE);
        }
        value->sign = minus ? -1 : 1;
        while (*p == '0')
            ++p;
        const size_t digits = strlen(p);
        if (digits == 0) {
            value->sign = 0;
            value->numOcts = 0;
            return 0;
        }
        const unsigned long long bitsTimes1024 =
            static_cast<unsigned long long>(digits) * static_cast<unsigned long long>(kBitsPerDigit[radix / 2]);
        const unsigned long long need = ((bitsTimes1024 >> 10) + 8) / 8;
        if (need > static_cast<unsigned long long>(RT_MEMHEAP_MAX_ALLOC))
            return fail(ctxt, RT_E_NO_MEMORY);
        int status = makeRoom(ctxt, value, static_cast<long long>(need));
        if (status != 0)
            return status;
        const int n = value->numOcts;
        const unsigned byteRadix = static_cast<unsigned>(kByteRadix[radix / 2]);
        int first = static_cast<int>(digits % 2);
        if (first == 0)
            first = 2;
        long firstValue = groupValue(p, first, radix);
        if (firstValue < 0)
            return fail(ctxt, RT_E_BAD_VALUE);
        value->mag[n - 1] = static_cast<ASN1OCTET>(firstValue);
        for (size_t i = static_cast<size_t>(first); i < digits; i += 2) {
            long pair = groupValue(p + i, 2, radix);
            if (pair < 0)
                return fail(ctxt, RT_E_BAD_VALUE);
            unsigned carry = static_cast<unsigned>(pair);
            for (int k = n - 1; k >= 0; --k) {
                unsigned cur = value->mag[k] * byteRadix + carry;
                value->mag[k] = static_cast<ASN1OCTET>(cur & 0xFFu);
                carry = cur >> 8;
            }
        }
        // The two's-complement reading of radix 8 looks at the first group, which stays
        // under 0x80, so it never applies.
        if (radix != 10 && !minus && (firstValue & 0x80) && p[0] != '0') {
            negate(value->mag, n);
            value->sign = -value->sign;
        }
    }

    // Leading zero octets go; a magnitude of zeros only keeps them all.
    int lead = 0;
    while (lead < value->numOcts && value->mag[lead] == 0)
        ++lead;
    if (lead > 0 && lead < value->numOcts) {
        memmove(value->mag, value->mag + lead, static_cast<size_t>(value->numOcts - lead));
        value->numOcts -= lead;
    }
    return 0;
}

int rtBigIntGetDataLen(const ASN1BigInt* value) {
    if (value == nullptr || value->sign == 0 || !hasMagnitude(value))
        return 1;
    if (value->sign > 0)
        return value->numOcts + ((value->mag[0] & 0x80) ? 1 : 0);
    return value->numOcts + ((negativeLead(value) & 0x80) ? 0 : 1);
}

int rtBigIntGetData(ASN1CTXT* ctxt, const ASN1BigInt* value, ASN1OCTET* destination, size_t capacity) {
    if (value == nullptr || destination == nullptr)
        return fail(ctxt, RT_E_BAD_ARGUMENT);
    const int len = rtBigIntGetDataLen(value);
    if (static_cast<size_t>(len) > capacity)
        return fail(ctxt, RT_E_TOO_LONG);
    if (value->sign == 0 || !hasMagnitude(value)) {
        destination[0] = 0;
        return 1;
    }
    const int n = value->numOcts;
    const int pad = len > n ? 1 : 0;
    if (value->sign > 0) {
        if (pad)
            destination[0] = 0;
        memcpy(destination + pad, value->mag, static_cast<size_t>(n));
        return len;
    }
    // Negation from the low end: up to the first non-zero octet negated, the rest inverted.
    bool seenNonZero = false;
    for (int i = n - 1; i >= 0; --i) {
        ASN1OCTET m = value->mag[i];
        if (!seenNonZero) {
            destination[pad + i] = static_cast<ASN1OCTET>(-m);
            seenNonZero = m != 0;
        } else {
            destination[pad + i] = static_cast<ASN1OCTET>(~m);
        }
    }
    if (pad)
        destination[0] = 0xFF;
    return len;
}

int rtBigIntDigitsNum(const ASN1BigInt* value, int radix) {
    if (value == nullptr || radix < 2 || radix / 2 > 8 || kBitsPerDigit[radix / 2] == 0)
        return 0;
    long long octs = value->numOcts > 0 ? value->numOcts : 0;
    long long digits = ((octs << 13) + 8192) / kBitsPerDigit[radix / 2];
    return digits > INT_MAX ? INT_MAX : static_cast<int>(digits);
}

int rtBigIntToString(ASN1CTXT* ctxt, const ASN1BigInt* value, int radix, char* destination, size_t capacity) {
    if (value == nullptr || destination == nullptr)
        return fail(ctxt, RT_E_BAD_ARGUMENT);
    if (radix == 2 || radix == 16)
        return toStringBits(ctxt, value, radix, destination, capacity);
    if (radix == 8 || radix == 10)
        return toStringArith(ctxt, value, radix, destination, capacity);
    return fail(ctxt, RT_E_BAD_ARGUMENT);
}

void rtBigIntFree(ASN1CTXT* ctxt, ASN1BigInt* value) {
    if (value == nullptr)
        return;
    if (value->dynamic && value->mag != nullptr && value->capacity != 0) {
        rtMemHeapFreePtr(&ctxt->typeHeap, value->mag);
        rtBigIntInit(value);
    }
}

int rtBigIntStrCompare(ASN1CTXT* ctxt, const char* a, const char* b) {
    ASN1OCTET storeA[kLocalOctets];
    ASN1OCTET storeB[kLocalOctets];
    ASN1BigInt va, vb;
    rtBigIntInit(&va);
    rtBigIntInit(&vb);
    va.mag = storeA;
    va.capacity = kLocalOctets;
    vb.mag = storeB;
    vb.capacity = kLocalOctets;
    rtBigIntSetStr(ctxt, &va, a, 0);
    rtBigIntSetStr(ctxt, &vb, b, 0);

    int result = 0;
    if (va.sign != vb.sign) {
        result = va.sign > vb.sign ? 1 : -1;
    } else if (va.numOcts != vb.numOcts) {
        result = va.numOcts < vb.numOcts ? -va.sign : va.sign;
    } else {
        for (int i = 0; i < va.numOcts; ++i) {
            if (va.mag[i] != vb.mag[i]) {
                result = va.mag[i] < vb.mag[i] ? -va.sign : va.sign;
                break;
            }
        }
    }
    rtBigIntFree(ctxt, &va);
    rtBigIntFree(ctxt, &vb);
    return result;
}

}  // extern "C"
