// The out-of-line parts of what every generated type shares.
#include "asn1data/asn1data_rt.h"

namespace asn1data {

int consumeEOC(ASN1CTXT* pctxt) {
    const ASN1UINT i = pctxt->bufIndex;
    if ((unsigned long long)i + 2 > pctxt->bufSize || pctxt->bufData[i] != 0 || pctxt->bufData[i + 1] != 0)
        return rtErrSetData(&pctxt->errInfo, RT_E_BAD_LENGTH);
    pctxt->bufIndex = i + 2;
    return 0;
}

int constraintFail(ASN1CTXT* pctxt, const char* text, int value) {
    rtErrAddStrParm(&pctxt->errInfo, text);
    rtErrAddIntParm(&pctxt->errInfo, value);
    return rtErrSetData(&pctxt->errInfo, RT_E_CONSTRAINT);
}

const ASN1OCTET* keepEncoding(ASN1CTXT* pctxt, int length) {
    ASN1OCTET* copy = (ASN1OCTET*)rtMemHeapAlloc(&pctxt->typeHeap, length > 0 ? length : 1);
    if (copy != 0 && length > 0)
        std::memcpy(copy, xe_getp(pctxt), (size_t)length);
    // The scratch buffer goes back at once: a revocation list of many entries would
    // otherwise hold one 16 KB buffer per encoded value until its context ends.
    if (pctxt->bufDynamic && pctxt->bufData != 0) {
        rtMemHeapFreePtr(&pctxt->msgHeap, pctxt->bufData);
        pctxt->bufData = 0;
        pctxt->bufDynamic = 0;
    }
    return copy;
}

}  // namespace asn1data

namespace asn1data {

#define ASN1DATA_BUILTIN(var, name, kind, size) \
    const TypeInfo var = {name, Kind::kind, size, 0, 0, 0, 0, 0, 0, 0, 0};
ASN1DATA_BUILTIN(kBuiltinBoolean, "BOOLEAN", Boolean, sizeof(ASN1BOOL))
ASN1DATA_BUILTIN(kBuiltinInteger, "INTEGER", Integer, sizeof(ASN1INT))
ASN1DATA_BUILTIN(kBuiltinUnsigned, "INTEGER", Unsigned, sizeof(ASN1UINT))
ASN1DATA_BUILTIN(kBuiltinUInt16, "INTEGER", UInt16, sizeof(ASN1USINT))
ASN1DATA_BUILTIN(kBuiltinBigInt, "INTEGER", BigInt, sizeof(const char*))
ASN1DATA_BUILTIN(kBuiltinEnumerated, "ENUMERATED", Enumerated, sizeof(ASN1UINT))
ASN1DATA_BUILTIN(kBuiltinNull, "NULL", Null, 0)
ASN1DATA_BUILTIN(kBuiltinObjectId, "OBJECT IDENTIFIER", ObjectId, sizeof(ASN1TObjId))
ASN1DATA_BUILTIN(kBuiltinOctets, "OCTET STRING", Octets, sizeof(ASN1TDynOctStr))
ASN1DATA_BUILTIN(kBuiltinOctetsInline, "OCTET STRING", OctetsInline, 0)
ASN1DATA_BUILTIN(kBuiltinBits, "BIT STRING", Bits, sizeof(ASN1TDynBitStr))
ASN1DATA_BUILTIN(kBuiltinBitsInline, "BIT STRING", BitsInline, 0)
ASN1DATA_BUILTIN(kBuiltinBmp, "BMPString", Bmp, sizeof(Asn116BitCharString))
ASN1DATA_BUILTIN(kBuiltinUniversal, "UniversalString", Universal, sizeof(Asn132BitCharString))
ASN1DATA_BUILTIN(kBuiltinOpenType, "ANY", OpenType, sizeof(ASN1OpenType))
ASN1DATA_BUILTIN(kBuiltinTableOpen, "ANY", TableOpen, sizeof(Asn1TObject))
#undef ASN1DATA_BUILTIN

#define ASN1DATA_TEXT(tag, name) {name, Kind::Text, sizeof(char*), tag, 0, 0, 0, 0, 0, 0, 0}
#define ASN1DATA_NONE {0, Kind::Null, 0, 0, 0, 0, 0, 0, 0, 0, 0}
// Indexed by universal tag; the entries between are unused.
const TypeInfo kBuiltinText[32] = {
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_TEXT(12, "UTF8String"),
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_TEXT(18, "NumericString"),
    ASN1DATA_TEXT(19, "PrintableString"),
    ASN1DATA_TEXT(20, "TeletexString"),
    ASN1DATA_TEXT(21, "VideotexString"),
    ASN1DATA_TEXT(22, "IA5String"),
    ASN1DATA_TEXT(23, "UTCTime"),
    ASN1DATA_TEXT(24, "GeneralizedTime"),
    ASN1DATA_TEXT(25, "GraphicString"),
    ASN1DATA_TEXT(26, "VisibleString"),
    ASN1DATA_TEXT(27, "GeneralString"),
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
    ASN1DATA_NONE,
};
#undef ASN1DATA_TEXT
#undef ASN1DATA_NONE

const TypeInfo* TypeRegistry::find(const char* name) const {
    unsigned lo = 0, hi = ntypes;
    while (lo < hi) {
        const unsigned mid = (lo + hi) / 2;
        const int c = std::strcmp(types[mid]->name, name);
        if (c == 0) return types[mid];
        if (c < 0)
            lo = mid + 1;
        else
            hi = mid;
    }
    return 0;
}

const char* TypeRegistry::oidName(const ASN1OBJID& oid) const {
    for (unsigned i = 0; i < noids; ++i)
        if (*oids[i].oid == oid) return oids[i].name;
    return 0;
}

const ObjectInfo* TypeRegistry::object(const char* set, const ASN1OBJID& oid) const {
    for (unsigned i = 0; i < nobjects; ++i)
        if (objects[i].set != 0 && std::strcmp(objects[i].set, set) == 0 && objects[i].oid == oid)
            return &objects[i];
    return 0;
}

}  // namespace asn1data
