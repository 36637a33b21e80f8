// Object identifiers: dotted text in and out, copy and comparison.
#include "asn1rt/oid.h"

#include <stdlib.h>
#include <string.h>

namespace {

// Arcs that can be read from a value without passing its array.
inline ASN1UINT storedArcs(ASN1UINT count) {
    return count < ASN_K_MAXSUBIDS ? count : ASN_K_MAXSUBIDS;
}

int decimalDigits(ASN1UINT v) {
    int n = 1;
    while (v >= 10) {
        v /= 10;
        ++n;
    }
    return n;
}

bool sameValue(const ASN1OBJID* a, const ASN1OBJID* b) {
    if (a->numids != b->numids)
        return false;
    ASN1UINT n = storedArcs(a->numids);
    for (ASN1UINT i = 0; i < n; ++i)
        if (a->subid[i] != b->subid[i])
            return false;
    return true;
}

}  // namespace

extern "C" {

int rtStrToOid(const char* text, ASN1OBJID* value) {
    if (text == nullptr || value == nullptr)
        return 0;
    value->numids = 0;
    const char* p = text;
    for (;;) {
        // The 64-bit conversion gives the same wrap-around of large arcs on both widths.
        char* end = nullptr;
        unsigned long long arc = strtoull(p, &end, 10);
        if (value->numids == ASN_K_MAXSUBIDS)
            return 0;  // a 129th arc has no slot
        value->subid[value->numids++] = static_cast<ASN1UINT>(arc);
        if (*end != '.')
            return *end == '\0' ? 1 : 0;
        p = end + 1;
    }
}

int rtOidToStr(const ASN1OBJID* value, char* destination, size_t capacity) {
    if (value == nullptr || destination == nullptr)
        return 0;
    destination[0] = '\0';
    if (value->numids == 0)
        return 1;
    size_t used = 0;
    for (ASN1UINT i = 0; i < value->numids; ++i) {
        if (i == ASN_K_MAXSUBIDS)
            return 0;  // arcs past the array are not there to write
        char arc[16];
        int n = 0;
        if (i > 0)
            arc[n++] = '.';
        ASN1UINT v = value->subid[i];
        int digits = decimalDigits(v);
        for (int d = digits - 1; d >= 0; --d) {
            arc[n + d] = static_cast<char>('0' + v % 10);
            v /= 10;
        }
        n += digits;
        if (static_cast<size_t>(n) > capacity - used) {
            destination[used] = '\0';
            return 0;
        }
        memcpy(destination + used, arc, static_cast<size_t>(n));
        used += static_cast<size_t>(n);
        destination[used] = '\0';
    }
    return 1;
}

size_t rtOidToStrLen(const ASN1OBJID* value) {
    if (value == nullptr || value->numids == 0)
        return 0;
    ASN1UINT n = storedArcs(value->numids);
    size_t len = n - 1;  // dots
    for (ASN1UINT i = 0; i < n; ++i)
        len += static_cast<size_t>(decimalDigits(value->subid[i]));
    return len;
}

int rtSetOID(ASN1OBJID* to, const ASN1OBJID* from) {
    if (to == nullptr || from == nullptr)
        return 0;
    to->numids = from->numids;
    ASN1UINT n = storedArcs(from->numids);
    for (ASN1UINT i = 0; i < n; ++i)
        to->subid[i] = from->subid[i];
    if (from->numids == 0)
        return 1;
    return from->numids > ASN_K_MAXSUBIDS ? ASN_K_MAXSUBIDS + 1 : static_cast<int>(from->numids);
}

int rtCmpOID(ASN1CTXT* ctxt, const ASN1OBJID* a, const ASN1OBJID* b, ASN1OCTET* result) {
    (void)ctxt;
    if (a != nullptr && b != nullptr && sameValue(a, b))
        return 1;
    if (result != nullptr)
        *result = 0;
    return 0;
}

int rtCmpOIDValue(ASN1CTXT* ctxt, const ASN1OBJID* a, const ASN1OBJID* b, ASN1OCTET* result) {
    return rtCmpOID(ctxt, a, b, result);
}

}  // extern "C"

bool operator==(ASN1OBJID const& a, ASN1OBJID const& b) {
    return sameValue(&a, &b);
}

// The class forms copy the count as given and the arcs that fit the array.

ASN1TObjId::ASN1TObjId() : ASN1OBJID() {}

ASN1TObjId::ASN1TObjId(unsigned char count, const ASN1UINT* arcs) : ASN1OBJID() {
    numids = count;
    ASN1UINT n = storedArcs(count);
    if (arcs != nullptr)
        for (ASN1UINT i = 0; i < n; ++i)
            subid[i] = arcs[i];
}

ASN1TObjId::ASN1TObjId(ASN1OBJID const& other) : ASN1OBJID() {
    *this = other;
}

ASN1TObjId::ASN1TObjId(ASN1TObjId const& other) : ASN1OBJID() {
    *this = static_cast<ASN1OBJID const&>(other);
}

ASN1TObjId& ASN1TObjId::operator=(ASN1OBJID const& other) {
    numids = other.numids;
    ASN1UINT n = storedArcs(other.numids);
    if (&other != this)
        memmove(subid, other.subid, n * sizeof(ASN1UINT));
    return *this;
}

ASN1TObjId& ASN1TObjId::operator=(ASN1TObjId const& other) {
    return *this = static_cast<ASN1OBJID const&>(other);
}

ASN1TObjId64::ASN1TObjId64() : ASN1OID64() {}

ASN1TObjId64::ASN1TObjId64(unsigned char count, const long long* arcs) : ASN1OID64() {
    numids = count;
    ASN1UINT n = storedArcs(count);
    if (arcs != nullptr)
        for (ASN1UINT i = 0; i < n; ++i)
            subid[i] = arcs[i];
}

ASN1TObjId64::ASN1TObjId64(ASN1OID64 const& other) : ASN1OID64() {
    *this = other;
}

ASN1TObjId64::ASN1TObjId64(ASN1TObjId64 const& other) : ASN1OID64() {
    *this = static_cast<ASN1OID64 const&>(other);
}

ASN1TObjId64& ASN1TObjId64::operator=(ASN1OID64 const& other) {
    numids = other.numids;
    ASN1UINT n = storedArcs(other.numids);
    if (&other != this)
        memmove(subid, other.subid, n * sizeof(ASN1INT64));
    return *this;
}

ASN1TObjId64& ASN1TObjId64::operator=(ASN1TObjId64 const& other) {
    return *this = static_cast<ASN1OID64 const&>(other);
}
