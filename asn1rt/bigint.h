// Big integers of the runtime: an unbounded INTEGER travels as text and is turned into a
// sign-and-magnitude record here, and back.
#pragma once

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"

#include <stddef.h>
#include <stdint.h>

typedef struct ASN1BigInt {
    ASN1INT numOcts;   // octets of magnitude in use
    ASN1OCTET* mag;      // magnitude, most significant octet first
    ASN1INT sign;      // 1, -1, or 0 for the value zero
    ASN1INT capacity;  // octets available at mag
    ASN1OCTET dynamic;   // 1 if mag came from the type heap
} ASN1BigInt;

#ifdef __cplusplus
static_assert(sizeof(ASN1BigInt) == (sizeof(void*) == 8 ? 32 : 20), "big integer record layout");
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Zeroes every field.
ASN1RT_API void rtBigIntInit(ASN1BigInt* value);

// Text in radix 0 (prefix 0b/0o/0x or decimal), 2, 8, 10 or 16 to the record. 0 or a
// status recorded in the error block.
ASN1RT_API int rtBigIntSetStr(ASN1CTXT* ctxt, ASN1BigInt* value, const char* text, int radix);

// Octets of the two's-complement form.
ASN1RT_API int rtBigIntGetDataLen(const ASN1BigInt* value);

// Writes the two's-complement octets; their count or a status.
ASN1RT_API int rtBigIntGetData(ASN1CTXT* ctxt, const ASN1BigInt* value, ASN1OCTET* destination,
                               size_t capacity);

// An upper bound on the digits of the value in the radix.
ASN1RT_API int rtBigIntDigitsNum(const ASN1BigInt* value, int radix);

// Text of the value in radix 2, 8, 10 or 16; 0 or a status.
ASN1RT_API int rtBigIntToString(ASN1CTXT* ctxt, const ASN1BigInt* value, int radix,
                                char* destination, size_t capacity);

// Gives back heap storage of the record and leaves it as rtBigIntInit does.
ASN1RT_API void rtBigIntFree(ASN1CTXT* ctxt, ASN1BigInt* value);

// -1, 0 or 1 as the first text's value is below, equal to or above the second's.
ASN1RT_API int rtBigIntStrCompare(ASN1CTXT* ctxt, const char* a, const char* b);

#ifdef __cplusplus
}
#endif
