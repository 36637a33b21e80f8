// What every generated type of the catalogue shares: the open-type field of the table
// constraints, the counted context pointer of the data classes, the decoders' common
// tests, constraint reports, and the life cycle of data and control classes. The generated
// code (tools/asn1gen) calls these; nothing here knows a particular type.
#pragma once

#include "asn1rt/asn1time.h"
#include "asn1rt/ber.h"
#include "asn1rt/bigint.h"
#include "asn1rt/bitstr.h"
#include "asn1rt/charstr.h"
#include "asn1rt/context.h"
#include "asn1rt/lists.h"
#include "asn1rt/messagebuffer.h"
#include "asn1rt/oid.h"
#include "asn1rt/seqoflist.h"

#include <atomic>
#include <cstring>
#include <initializer_list>
#include <new>

// Tagging argument of the generated encoders and decoders: ASN1EXPL (1) or ASN1IMPL (0).
typedef int ASN1TagType;

namespace asn1data {

// An open type under a table constraint: the element as it stands in the message and, when
// the identifier beside it names an information object, the value decoded by that object.
struct Asn1TObject {
    ASN1UINT numocts;
    const ASN1OCTET* data;
    void* decoded;
    Asn1TObject() : numocts(0), data(0), decoded(0) {}
};

// The context pointer a data class opens with: null for a record filled by a decoder (its
// memory dies with the context), a counted reference for a record that owns a copy.
// Copies of the record share the pointer and take their own reference.
class CtxRef {
public:
    CtxRef() : p(0) {}
    CtxRef(const CtxRef& o) : p(o.p) {
        if (p) p->_ref();
    }
    CtxRef& operator=(const CtxRef& o) {
        if (o.p) o.p->_ref();
        if (p) p->_unref();
        p = o.p;
        return *this;
    }
    ~CtxRef() {
        if (p) p->_unref();
    }
    // Takes a reference.
    void set(ASN1Context* c) {
        if (c) c->_ref();
        if (p) p->_unref();
        p = c;
    }
    // Without a reference: for a record that lives on that context's own heap, which could
    // otherwise never be released.
    void attach(ASN1Context* c) { p = c; }
    operator ASN1Context*() const { return p; }
    ASN1Context* operator->() const { return p; }

private:
    ASN1Context* p;
};
static_assert(sizeof(CtxRef) == sizeof(void*), "a data class opens with one pointer");

// ---- Decoders --------------------------------------------------------------------------------

// End of the contents of a constructed element: with an indefinite length, fewer than two
// octets left or two zero octets next; with a definite one, the length consumed or the end
// of the buffer reached.
inline bool atEnd(const ASN1CTXT* pctxt, const ASN1DecodeBlock* block) {
    const ASN1UINT i = pctxt->bufIndex;
    if (block->length == RT_INDEFINITE_LENGTH)
        return (unsigned long long)i + 2 > pctxt->bufSize || (pctxt->bufData[i] == 0 && pctxt->bufData[i + 1] == 0);
    return (long long)i - (long long)block->start >= (long long)block->length || i >= pctxt->bufSize;
}

// The identifier octet under the cursor, compared without its form bit.
inline bool atTag(const ASN1CTXT* pctxt, ASN1OCTET octet) {
    return pctxt->bufIndex < pctxt->bufSize && (pctxt->bufData[pctxt->bufIndex] & 0xDFu) == octet;
}

// Points the context at an open type's own octets for its object's decoder (xd_setp, whose
// result the open-type form does not look at). An empty value has nothing to read: -2, as
// the decoder would meet the end at once; xd_setp would take the size 0 as unbounded.
inline int pointAtValue(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numocts) {
    if (numocts == 0) return RT_E_END_OF_BUFFER;
    xd_setp(pctxt, data, (int)numocts, 0, 0);
    return 0;
}

// Steps over the two zero octets that end an indefinite length; -5 when they are not there.
int consumeEOC(ASN1CTXT* pctxt);

// Reports a violated constraint with its text and value: -23.
int constraintFail(ASN1CTXT* pctxt, const char* text, int value);

// Length of 8-bit text, 0 for none; characters of UTF-8 text (or rtUTF8Len's status).
inline ASN1UINT textLength(const char* text) { return text ? (ASN1UINT)std::strlen(text) : 0u; }
inline int utf8Length(const char* text) { return text ? rtUTF8Len((const unsigned char*)text) : 0; }

// A big-integer field that still holds its DEFAULT text.
inline bool isDefaultText(const char* value, const char* literal) {
    return value == literal || (value != 0 && std::strcmp(value, literal) == 0);
}

// ---- Encoders ---------------------------------------------------------------------------------

// A heap copy of the `length` octets just written at the cursor: the value a table
// constraint encoded, kept as a block of its own so that a later free is safe. The fresh
// dynamic buffer they were written to is given back (the caller restores its own).
const ASN1OCTET* keepEncoding(ASN1CTXT* pctxt, int length);

// ---- Copy and free ------------------------------------------------------------------------------

// Gives a value's memory back to the type heap.
inline void freePtr(ASN1CTXT* pctxt, const void* p) {
    if (p != 0 && rtMemHeapCheckPtr(&pctxt->typeHeap, p))
        rtMemHeapFreePtr(&pctxt->typeHeap, const_cast<void*>(p));
}

inline ASN1OBJID makeOid(std::initializer_list<ASN1UINT> arcs) {
    ASN1OBJID oid;
    std::memset(&oid, 0, sizeof oid);
    for (ASN1UINT a : arcs)
        if (oid.numids < ASN_K_MAXSUBIDS) oid.subid[oid.numids++] = a;
    return oid;
}

// Context pointer of a record that has one (records, choices, arrays; lists through their
// own member), set only where it is still null.
template <class T>
auto adoptContext(T& r, ASN1Context* c, bool counted, int) -> decltype(r.mpContext.set(c), void()) {
    if (!r.mpContext) {
        if (counted)
            r.mpContext.set(c);
        else
            r.mpContext.attach(c);
    }
}
template <class T>
auto adoptContext(T& r, ASN1Context* c, bool counted, long) -> decltype(r.setContext(c), void()) {
    if (!r.mpContext) {
        if (counted)
            r.setContext(c);
        else
            r.mpContext = c;
    }
}
template <class T>
void adoptContext(T&, ASN1Context*, bool, ...) {}

// ASN1T_X(ASN1C_X&): the control's value copied into this record in the control's context.
template <class T, class C>
void recordFromControl(C& control, T& self, void (*copy)(ASN1CTXT*, T*, T*)) {
    if (&control.getData() == &self) return;
    copy(control.getCtxtPtr(), &control.getData(), &self);
    adoptContext(self, control.getContext().get(), true, 0);
}
template <class T, class C>
void listFromControl(C& control, T& self, void (*copy)(ASN1CTXT*, T*, T*)) {
    recordFromControl(control, self, copy);
}

// ASN1C_X(ASN1C_X&): a copy of the other control's data on the shared context's heap.
template <class T>
T* controlCopyData(ASN1CType& control, T* src, void (*copy)(ASN1CTXT*, T*, T*)) {
    if (src == 0) return 0;
    ASN1CTXT* pctxt = control.getCtxtPtr();
    if (pctxt == 0) return 0;
    T* dst = (T*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)sizeof(T));
    if (dst == 0) return 0;
    if (copy) copy(pctxt, src, dst);
    adoptContext(*dst, control.getContext().get(), false, 0);
    return dst;
}

// getCopy: into the caller's record (which then holds a reference to the context), or into
// a zeroed record on the context's heap.
template <class T>
T* controlGetCopy(ASN1CType& control, T* own, T* dst, void (*copy)(ASN1CTXT*, T*, T*)) {
    if (dst == own) return dst;
    ASN1CTXT* pctxt = control.getCtxtPtr();
    if (pctxt == 0) return 0;
    const bool onHeap = dst == 0;
    if (onHeap) {
        dst = (T*)rtMemHeapAllocZ(&pctxt->typeHeap, (int)sizeof(T));
        if (dst == 0) return 0;
    }
    if (copy) copy(pctxt, own, dst);
    adoptContext(*dst, control.getContext().get(), !onHeap, 0);
    return dst;
}

// newCopy: a record of its own (operator new), holding a reference; the caller deletes it.
template <class T>
T* controlNewCopy(ASN1CType& control, T* own, void (*copy)(ASN1CTXT*, T*, T*)) {
    ASN1CTXT* pctxt = control.getCtxtPtr();
    T* dst = new T();
    if (copy && pctxt) copy(pctxt, own, dst);
    adoptContext(*dst, control.getContext().get(), true, 0);
    return dst;
}

}  // namespace asn1data

// ---- Description of the generated types ------------------------------------------------------
// Each generated type is described by a TypeInfo, so that generic code (the dump of the
// chainvet program, tests, fuzz targets) can walk any value without knowing its type.
namespace asn1data {

enum class Kind : unsigned char {
    Boolean, Integer, Unsigned, UInt16, BigInt, Enumerated, Null, ObjectId,
    Octets,        // ASN1TDynOctStr
    OctetsInline,  // numocts and an inline array
    Bits,          // ASN1TDynBitStr
    BitsInline,    // numbits and an inline array
    Text,          // terminated 8-bit text: character strings, times
    Bmp, Universal,
    OpenType,      // ASN1OpenType
    TableOpen,     // Asn1TObject
    Sequence, Set, Choice, List, Array,
    Alias,         // the same value as `elem`, under another name
};

struct TypeInfo;
struct ObjectInfo {
    const char* name;
    const char* set;       // null for an object that no set holds
    ASN1OBJID oid;
    const TypeInfo* value;  // null when the object has no value type (yet)
};
struct TableInfo {
    const char* set;
    unsigned keyOffset;     // of the OBJECT IDENTIFIER field in the record
    unsigned siblingOffset; // of the Asn1TObject beside an OCTET STRING, or ~0u
};
struct FieldInfo {
    const char* name;
    const TypeInfo* type;
    unsigned offset;        // in the record, or in the union of a CHOICE
    signed char presentBit; // bit of m, or -1
    bool byPointer;         // a CHOICE alternative held through a pointer
    const TableInfo* table; // a table-constrained field
};
struct TypeInfo {
    const char* name;
    Kind kind;
    unsigned size;
    unsigned short tagNum;  // universal tag of a Text kind
    const FieldInfo* fields;
    unsigned nfields;
    const TypeInfo* elem;   // element of a list or array, target of an alias
    unsigned mOffset;       // presence word of a record; selector of a CHOICE
    unsigned uOffset;       // union of a CHOICE
    int (*encode)(ASN1CTXT*, void*, int);
    int (*decode)(ASN1CTXT*, void*, int, int);
};
struct OidName {
    const char* name;
    const ASN1OBJID* oid;
};
struct TypeRegistry {
    const TypeInfo* const* types;  // sorted by name
    unsigned ntypes;
    const ObjectInfo* objects;
    unsigned nobjects;
    const OidName* oids;
    unsigned noids;
    const TypeInfo* find(const char* name) const;
    const char* oidName(const ASN1OBJID& oid) const;  // the first constant with this value
    const ObjectInfo* object(const char* set, const ASN1OBJID& oid) const;
};

// The builtin types of fields that name no type of their own.
extern const TypeInfo kBuiltinBoolean, kBuiltinInteger, kBuiltinUnsigned, kBuiltinUInt16,
    kBuiltinBigInt, kBuiltinEnumerated, kBuiltinNull, kBuiltinObjectId, kBuiltinOctets,
    kBuiltinOctetsInline, kBuiltinBits, kBuiltinBitsInline, kBuiltinBmp, kBuiltinUniversal,
    kBuiltinOpenType, kBuiltinTableOpen;
// Text kinds, by universal tag (12 UTF8String ... 27 GeneralString; 23 and 24 the times).
extern const TypeInfo kBuiltinText[32];

}  // namespace asn1data
