// Object identifiers of the runtime: fixed arrays of arcs, their dotted text form and
// comparison. Plain C functions with fixed exported names; the class forms add nothing
// but constructors and assignment.
#pragma once

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"

#include <stddef.h>
#include <stdint.h>

// Arc slots of one identifier; values with more arcs are refused or cut where they enter.
#define ASN_K_MAXSUBIDS 128

typedef struct ASN1OBJID {
    ASN1UINT numids;                  // arcs in use
    ASN1UINT subid[ASN_K_MAXSUBIDS];  // arcs, first to last
} ASN1OBJID;

typedef struct ASN1OID64 {
    ASN1UINT numids;
    ASN1INT64 subid[ASN_K_MAXSUBIDS];
} ASN1OID64;

#ifdef __cplusplus
static_assert(sizeof(ASN1OBJID) == 516, "ASN1OBJID: count and 128 arcs of 32 bits");
static_assert(sizeof(ASN1OID64) == (sizeof(void*) == 8 ? 1032 : 1028),
              "ASN1OID64: count and 128 arcs of 64 bits");
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Dotted decimal text to arcs: 1 when the whole text was read, 0 otherwise (also for more
// than 128 arcs, where the count stops at 128).
ASN1RT_API int rtStrToOid(const char* text, ASN1OBJID* value);

// Arcs to dotted text. 1 on success, 0 when an arc does not fit; the terminator may take
// one place past the capacity.
ASN1RT_API int rtOidToStr(const ASN1OBJID* value, char* destination, size_t capacity);

// Length of the dotted text without its terminator.
ASN1RT_API size_t rtOidToStrLen(const ASN1OBJID* value);

// Copies count and arcs; 1 for an empty value, the count up to 128, 129 above.
ASN1RT_API int rtSetOID(ASN1OBJID* to, const ASN1OBJID* from);

// 1 when equal (nothing stored); 0 with 0 stored through result otherwise. The context
// is not used.
ASN1RT_API int rtCmpOID(ASN1CTXT* ctxt, const ASN1OBJID* a, const ASN1OBJID* b, ASN1OCTET* result);
ASN1RT_API int rtCmpOIDValue(ASN1CTXT* ctxt, const ASN1OBJID* a, const ASN1OBJID* b,
                             ASN1OCTET* result);

#ifdef __cplusplus
}

// Same count and same arcs; two empty values are equal.
ASN1RT_API bool operator==(ASN1OBJID const& a, ASN1OBJID const& b);

// Class form of ASN1OBJID, as held inline by generated types.
struct ASN1RT_API ASN1TObjId : public ASN1OBJID {
    ASN1TObjId();
    ASN1TObjId(unsigned char count, const ASN1UINT* arcs);
    ASN1TObjId(ASN1OBJID const& other);
    ASN1TObjId(ASN1TObjId const& other);
    ASN1TObjId& operator=(ASN1OBJID const& other);
    ASN1TObjId& operator=(ASN1TObjId const& other);
};

struct ASN1RT_API ASN1TObjId64 : public ASN1OID64 {
    ASN1TObjId64();
    ASN1TObjId64(unsigned char count, const long long* arcs);
    ASN1TObjId64(ASN1OID64 const& other);
    ASN1TObjId64(ASN1TObjId64 const& other);
    ASN1TObjId64& operator=(ASN1OID64 const& other);
    ASN1TObjId64& operator=(ASN1TObjId64 const& other);
};

static_assert(sizeof(ASN1TObjId) == sizeof(ASN1OBJID), "no fields of its own");
static_assert(sizeof(ASN1TObjId64) == sizeof(ASN1OID64), "no fields of its own");
#endif
