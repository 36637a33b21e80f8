// Character strings of the runtime: the counted string records, deep copies of the value
// types, UTF-8 and wide-text conversions, and the character class table.
#pragma once

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"
#include "asn1rt/lists.h"
#include "asn1rt/oid.h"

#include <stddef.h>
#include <stdint.h>

typedef struct Asn116BitCharString {
    ASN1UINT nchars;
    ASN1USINT* data;
} Asn116BitCharString;

typedef struct Asn132BitCharString {
    ASN1UINT nchars;
    ASN1UINT* data;
} Asn132BitCharString;

typedef struct ASN1TDynOctStr {
    ASN1UINT numocts;
    const ASN1OCTET* data;
} ASN1TDynOctStr;

typedef struct ASN1TDynBitStr {
    ASN1UINT numbits;
    const ASN1OCTET* data;
} ASN1TDynBitStr;

// One whole encoded element: tag, length and contents as they stand in the message.
typedef struct ASN1OpenType {
    ASN1UINT numocts;
    const ASN1OCTET* data;
} ASN1OpenType;

// Permitted alphabet: a character passes if it lies in [firstChar, lastChar] and, when the
// list is not empty, appears in it.
typedef struct Asn132BitCharSet {
    ASN1UINT nchars;
    const ASN1UINT* data;
    ASN1UINT firstChar;
    ASN1UINT lastChar;
} Asn132BitCharSet;

#ifdef __cplusplus
static_assert(sizeof(wchar_t) == 4, "wide characters are 32 bits");
static_assert(sizeof(Asn116BitCharString) == 2 * sizeof(void*), "count and pointer");
static_assert(sizeof(Asn132BitCharString) == 2 * sizeof(void*), "count and pointer");
static_assert(sizeof(ASN1TDynOctStr) == 2 * sizeof(void*), "count and pointer");
static_assert(sizeof(ASN1TDynBitStr) == 2 * sizeof(void*), "count and pointer");
static_assert(sizeof(ASN1OpenType) == 2 * sizeof(void*), "count and pointer");
static_assert(sizeof(Asn132BitCharSet) == (sizeof(void*) == 8 ? 24 : 16), "character set layout");
#endif

// Classes of rtCtypeTable.
#define RT_CTYPE_UPPER 0x01
#define RT_CTYPE_LOWER 0x02
#define RT_CTYPE_DIGIT 0x04
#define RT_CTYPE_SPACE 0x08
#define RT_CTYPE_PUNCT 0x10
#define RT_CTYPE_CNTRL 0x20
#define RT_CTYPE_HEXLETTER 0x40
#define RT_CTYPE_BLANK 0x80

#ifdef __cplusplus
extern "C" {
#endif

// Character classes of every 8-bit character; octets from 0x80 up have none.
ASN1RT_API extern const unsigned char rtCtypeTable[256];

// Deep copies: 1 on success, 0 otherwise. Heap copies come from the type heap.
ASN1RT_API int rtCopyBitStr(ASN1CTXT* ctxt, ASN1UINT numbits, const ASN1OCTET* source,
                            ASN1UINT* numbitsOut, ASN1OCTET* destination);
ASN1RT_API int rtCopyOctStr(ASN1CTXT* ctxt, ASN1UINT numocts, const ASN1OCTET* source,
                            ASN1UINT* numoctsOut, ASN1OCTET* destination);
ASN1RT_API int rtCopyDynBitStr(ASN1CTXT* ctxt, const ASN1TDynBitStr* source, ASN1TDynBitStr* target);
ASN1RT_API int rtCopyDynOctStr(ASN1CTXT* ctxt, const ASN1TDynOctStr* source, ASN1TDynOctStr* target);
ASN1RT_API int rtCopyCharStr(ASN1CTXT* ctxt, const char* text, char** target);
ASN1RT_API int rtCopy16BitCharStr(ASN1CTXT* ctxt, const Asn116BitCharString* source,
                                  Asn116BitCharString* target);
ASN1RT_API int rtCopy32BitCharStr(ASN1CTXT* ctxt, const Asn132BitCharString* source,
                                  Asn132BitCharString* target);
ASN1RT_API int rtCopyOID(ASN1CTXT* ctxt, const ASN1OBJID* source, ASN1OBJID* target);
ASN1RT_API int rtCopyOpenType(ASN1CTXT* ctxt, const ASN1OpenType* source, ASN1OpenType* target);
ASN1RT_API int rtCopyOpenTypeExt(ASN1CTXT* ctxt, const struct _Asn1RTDList* source,
                                 struct _Asn1RTDList* target);

// 8-bit text to 32-bit characters on the type heap; the record, or null on failure.
ASN1RT_API Asn132BitCharString* rtCToUCSString(ASN1CTXT* ctxt, const char* text,
                                               Asn132BitCharString* target,
                                               const Asn132BitCharSet* charSet);
// Wide text to 32-bit characters, keeping only the low 16 bits of each.
ASN1RT_API Asn132BitCharString* rtWCSToUCSString(ASN1CTXT* ctxt, const wchar_t* text,
                                                 Asn132BitCharString* target,
                                                 const Asn132BitCharSet* charSet);
// 32-bit characters under 0x10000 to wide text; returns the destination.
ASN1RT_API wchar_t* rtUCSToWCSString(const Asn132BitCharString* source, wchar_t* destination,
                                     size_t capacity);

// UTF-8 text to wide characters: the count, -1 when the destination is full, -26 for bad
// UTF-8. With a null destination the text is only checked (0 or -26).
ASN1RT_API int rtUTF8ToWCS(ASN1CTXT* ctxt, const unsigned char* text, wchar_t* destination,
                           size_t capacity);
// Wide characters to UTF-8 without terminator: the octets, -1 when full, -26 for a
// character with the top bit set.
ASN1RT_API int rtWCSToUTF8(ASN1CTXT* ctxt, const wchar_t* characters, size_t count,
                           unsigned char* destination, size_t capacity);
// Characters of a UTF-8 text, or -26.
ASN1RT_API int rtUTF8Len(const unsigned char* text);
// Octets before the terminator; 0 for null.
ASN1RT_API size_t rtUTF8LenBytes(const unsigned char* text);
// Octets of one character in UTF-8, 1 to 6.
ASN1RT_API int rtUTF8CharSize(ASN1UINT character);
// Encodes one character: its size, or -1 when it does not fit.
ASN1RT_API int rtUTF8EncodeChar(ASN1UINT character, unsigned char* destination, size_t capacity);
// Decodes one character from at most *size octets: the character (size set to its
// length), or -26.
ASN1RT_API int rtUTF8DecodeChar(ASN1CTXT* ctxt, const unsigned char* octets, int* size);
// A copy with terminator on the type heap, or null.
ASN1RT_API unsigned char* rtUTF8Strdup(ASN1CTXT* ctxt, const unsigned char* text);

#ifdef __cplusplus
}
#endif
