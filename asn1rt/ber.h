/* BER reading (xd_) and writing (xe_) primitives of the ASN.1 runtime.
 *
 * Decoders read forward from ASN1CTXT.bufIndex; encoders write backward from the end of
 * the buffer, value first, then length, then tag, so no length is ever patched.  Every
 * function has plain C linkage and a fixed exported name.  The tag word and the status
 * values are those of asn1rt/asn1type.h and asn1rt/context.h. */
#ifndef ASN1RT_BER_H
#define ASN1RT_BER_H

#include "asn1rt/asn1type.h"
#include "asn1rt/charstr.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"
#include "asn1rt/lists.h"
#include "asn1rt/oid.h"

/* ---- Tagging argument ---------------------------------------------------------------
 * 1: the callee reads or writes the type's own universal tag and length.  Any other
 * value: the caller has dealt with the tag and, when decoding, passes the content length. */
#define ASN1EXPL 1
#define ASN1IMPL 0

/* ---- Match modes of xd_tag_len and xd_match (a bit set) ------------------------------ */
#define RT_MATCH_SEEK 0x01       /* xd_match: walk forward over non-matching elements */
#define RT_MATCH_ADVANCE 0x02    /* leave the cursor behind the tag and length read */
#define RT_MATCH_SKIP_FIRST 0x08 /* xd_match: first step over the element at the cursor */

/* The generated decoders' bookkeeping of one constructed element: where its content
 * started (a buffer index) and its length, RT_INDEFINITE_LENGTH for the indefinite form.
 * xd_OpenTypeExt reads it to find the end of the content. */
typedef struct ASN1DecodeBlock {
    ASN1UINT start;
    ASN1INT length;
} ASN1DecodeBlock;

/* Where an encoded value stands in a backward-growing buffer: its size and the distance
 * of its first octet from the buffer's last octet (stable when the buffer grows). */
typedef struct Asn1BufLocDescr {
    ASN1UINT numocts;
    ASN1UINT offset;
} Asn1BufLocDescr;

#ifdef __cplusplus
static_assert(sizeof(Asn1BufLocDescr) == 8, "location record: two 32-bit words");
static_assert(sizeof(ASN1DecodeBlock) == 8, "decode block: index and length");
static_assert(sizeof(RtBufferState) == 8, "buffer state: index, bit offset, flags");
#endif

ASN1RT_BEGIN_C

/* ==== Decoding ======================================================================== */

/* Attaches the message and peeks at its outermost tag and length.  Length out gets the
 * size of the whole first element, or RT_INDEFINITE_LENGTH.  0, -5 (outer length beyond
 * the given size; cursor 0) or the status of the header read. */
ASN1RT_API int xd_setp(ASN1CTXT* pctxt, const ASN1OCTET* msg, int msglen, ASN1TAG* tag, int* len);
/* Reads an identifier into a tag word. */
ASN1RT_API int xd_tag(ASN1CTXT* pctxt, ASN1TAG* tag);
/* Reads a length; RT_INDEFINITE_LENGTH for 0x80 (and for FF FF D8 F1). */
ASN1RT_API int xd_len(ASN1CTXT* pctxt, int* len);
/* Reads tag and length; a peek unless RT_MATCH_ADVANCE is in the mode. */
ASN1RT_API int xd_tag_len(ASN1CTXT* pctxt, ASN1TAG* tag, int* len, int mode);
/* Steps over a one-octet identifier, no comparison, and reads the length. */
ASN1RT_API int xd_Tag1AndLen(ASN1CTXT* pctxt, int* len);
/* Finds a tag (form bit ignored) at the cursor or, with RT_MATCH_SEEK, ahead of it. */
ASN1RT_API int xd_match(ASN1CTXT* pctxt, ASN1TAG tag, int* len, int mode);
/* Compares the identifier octet under mask 0xdf, steps over it and reads the length. */
ASN1RT_API int xd_match1(ASN1CTXT* pctxt, ASN1OCTET tag, int* len);
/* Steps over the element at the cursor. */
ASN1RT_API int xd_NextElement(ASN1CTXT* pctxt);
/* Steps behind the end-of-contents octets that close the element the cursor is in. */
ASN1RT_API int xd_MovePastEOC(ASN1CTXT* pctxt);
/* Counts the elements in the next `length` octets (or up to end-of-contents) without
 * consuming them. */
ASN1RT_API int xd_count(ASN1CTXT* pctxt, int length, int* count);
/* Measures a constructed string of indefinite length without consuming it: the sum of
 * its segments and the distance to its end-of-contents. */
ASN1RT_API int xd_consStrIndefLenAndSize(ASN1CTXT* pctxt, ASN1TAG tagnum, int* content, int* span);
/* Total size of one indefinite-length element at msg, reading no further than limit;
 * 0 when the limit is under 5, or a negative status. */
ASN1RT_API int xd_indeflen_ex(const ASN1OCTET* msg, int limit);
/* One whole element, header included, as an open type. */
ASN1RT_API int xd_OpenType(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numocts);
/* One open type appended to the list (node and value in one block), or skipped. */
ASN1RT_API int xd_OpenTypeAppend(ASN1CTXT* pctxt, Asn1RTDList* list);
/* Collects extension elements until the stop tag, or the element's end for 0xffffffff. */
ASN1RT_API int xd_OpenTypeExt(ASN1CTXT* pctxt, ASN1DecodeBlock* block, ASN1TAG stopTag,
                              Asn1RTDList* list);
/* Copies octets out of the message and advances. */
ASN1RT_API int xd_memcpy(ASN1CTXT* pctxt, ASN1OCTET* dest, int length);

ASN1RT_API int xd_integer(ASN1CTXT* pctxt, ASN1INT* value, int tagging, int length);
ASN1RT_API int xd_unsigned(ASN1CTXT* pctxt, ASN1UINT* value, int tagging, int length);
ASN1RT_API int xd_uint16(ASN1CTXT* pctxt, ASN1USINT* value, int tagging, int length);
ASN1RT_API int xd_enum(ASN1CTXT* pctxt, ASN1ENUM* value, int tagging, int length);
ASN1RT_API int xd_boolean(ASN1CTXT* pctxt, ASN1BOOL* value, int tagging, int length);
ASN1RT_API int xd_null(ASN1CTXT* pctxt, int tagging);
/* INTEGER of any size as "0x" text of its two's-complement octets (type heap). */
ASN1RT_API int xd_bigint(ASN1CTXT* pctxt, const char** text, int tagging, int length);
/* OCTET STRING on the type heap (or into the message with RT_FLAG_SHARE_INPUT). */
ASN1RT_API int xd_octstr(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numocts, int tagging,
                         int length);
/* OCTET STRING into the caller's array: *numocts is the capacity in, the count out. */
ASN1RT_API int xd_octstr_s(ASN1CTXT* pctxt, ASN1OCTET* dest, ASN1UINT* numocts, int tagging,
                           int length);
ASN1RT_API int xd_bitstr(ASN1CTXT* pctxt, const ASN1OCTET** data, ASN1UINT* numbits, int tagging,
                         int length);
/* BIT STRING into the caller's array: *numbits is the capacity in bits in, the count out. */
ASN1RT_API int xd_bitstr_s(ASN1CTXT* pctxt, ASN1OCTET* dest, ASN1UINT* numbits, int tagging,
                           int length);
/* 8-bit character string as terminated text on the type heap. */
ASN1RT_API int xd_charstr(ASN1CTXT* pctxt, const char** text, int tagging, ASN1TAG tag, int length);
ASN1RT_API int xd_16BitCharStr(ASN1CTXT* pctxt, Asn116BitCharString* value, int tagging, ASN1TAG tag,
                               int length);
ASN1RT_API int xd_32BitCharStr(ASN1CTXT* pctxt, Asn132BitCharString* value, int tagging, ASN1TAG tag,
                               int length);
ASN1RT_API int xd_objid(ASN1CTXT* pctxt, ASN1OBJID* value, int tagging, int length);

/* Cursor, bit offset and flags into the slot, or into savedState for a null slot. */
ASN1RT_API void xu_SaveBufferState(ASN1CTXT* pctxt, RtBufferState* slot);
/* Puts them back, without RT_FLAG_LAST_EOC. */
ASN1RT_API void xu_RestoreBufferState(ASN1CTXT* pctxt, RtBufferState* slot);

/* ==== Encoding ======================================================================== */

/* A static buffer (pointer and size) or, for a null pointer, a dynamic one of the size
 * or 16384 octets.  The cursor starts at the buffer's last octet, which is never written. */
ASN1RT_API int xe_setp(ASN1CTXT* pctxt, ASN1OCTET* buf, int bufsiz);
/* The first octet of what has been written. */
ASN1RT_API ASN1OCTET* xe_getp(ASN1CTXT* pctxt);
/* Frees a dynamic buffer. */
ASN1RT_API void xe_free(ASN1CTXT* pctxt);
/* Grows a dynamic buffer by the octets needed, at least 16384; -1 for a static one. */
ASN1RT_API int xe_expandBuffer(ASN1CTXT* pctxt, int needed);
/* Writes octets in front of what is written; the count or a status. */
ASN1RT_API int xe_memcpy(ASN1CTXT* pctxt, const ASN1OCTET* data, int length);
ASN1RT_API int xe_tag(ASN1CTXT* pctxt, ASN1TAG tag);
ASN1RT_API int xe_len(ASN1CTXT* pctxt, int length);
/* Length then tag; the total with the content.  A failure status as length comes back. */
ASN1RT_API int xe_tag_len(ASN1CTXT* pctxt, ASN1TAG tag, int length);
/* A value in base 128, as the arcs of an object identifier. */
ASN1RT_API int xe_identifier(ASN1CTXT* pctxt, ASN1UINT value);
ASN1RT_API void xe_getBufLocDescr(ASN1CTXT* pctxt, ASN1UINT length, Asn1BufLocDescr* descr);
/* Puts the encoded members of a SET OF, described by a list of location records, into
 * DER order in place; the total length or a status.  Records and nodes are freed. */
ASN1RT_API int xe_derCanonicalSort(ASN1CTXT* pctxt, Asn1RTSList* list);

ASN1RT_API int xe_boolean(ASN1CTXT* pctxt, const ASN1BOOL* value, int tagging);
ASN1RT_API int xe_integer(ASN1CTXT* pctxt, const ASN1INT* value, int tagging);
ASN1RT_API int xe_unsigned(ASN1CTXT* pctxt, const ASN1UINT* value, int tagging);
ASN1RT_API int xe_uint16(ASN1CTXT* pctxt, const ASN1USINT* value, int tagging);
ASN1RT_API int xe_enum(ASN1CTXT* pctxt, const ASN1ENUM* value, int tagging);
ASN1RT_API int xe_null(ASN1CTXT* pctxt, int tagging);
ASN1RT_API int xe_bigint(ASN1CTXT* pctxt, const char* text, int tagging);
ASN1RT_API int xe_octstr(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numocts, int tagging);
ASN1RT_API int xe_bitstr(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numbits, int tagging);
ASN1RT_API int xe_charstr(ASN1CTXT* pctxt, const char* text, int tagging, ASN1TAG tag);
ASN1RT_API int xe_16BitCharStr(ASN1CTXT* pctxt, const Asn116BitCharString* value, int tagging,
                               ASN1TAG tag);
ASN1RT_API int xe_32BitCharStr(ASN1CTXT* pctxt, const Asn132BitCharString* value, int tagging,
                               ASN1TAG tag);
ASN1RT_API int xe_objid(ASN1CTXT* pctxt, const ASN1OBJID* value, int tagging);
/* Writes one encoded element as it stands (its first element only). */
ASN1RT_API int xe_OpenType(ASN1CTXT* pctxt, const ASN1OCTET* data, ASN1UINT numocts);
/* Writes a list of ASN1OpenType values, tail first. */
ASN1RT_API int xe_OpenTypeExt(ASN1CTXT* pctxt, Asn1RTDList* list);

ASN1RT_END_C

#ifdef __cplusplus
/* ==== Generic walk (internal, not exported) ============================================
 * Reads any BER element tree with the xd_ primitives, keeping every element and its
 * decoded value in a flat array in document order, and writes it back with the xe_
 * primitives.  The walk is iterative, so nesting depth is bounded only by the input. */

namespace asn1rt {

enum BerWalkKind : unsigned char {
    kWalkConstructed,  // children follow in the array
    kWalkBoolean,
    kWalkInteger,      // 1 to 4 octets
    kWalkBigInt,       // longer INTEGER, as text
    kWalkEnum,
    kWalkNull,
    kWalkObjId,
    kWalkBitStr,
    kWalkOctets,       // OCTET STRING, and any primitive this walk has no reader for
    kWalkCharStr,
    kWalkBMPStr,
    kWalkUniversalStr,
};

// What the walk does with the content of a primitive element.
enum BerWalkMode : unsigned char {
    kWalkKeepValues,     // read by its typed reader, kept on the context's type heap
    kWalkScratchValues,  // read and checked by the caller-storage readers, then dropped
    kWalkStructure,      // not read: kept as a view into the message (kWalkOctets)
};

struct BerWalkNode {
    ASN1TAG tag;          // as read, form bit included
    ASN1INT length;       // content length as read, or RT_INDEFINITE_LENGTH
    ASN1UINT offset;      // of the identifier in the message
    ASN1UINT lastChild;   // index of the last node inside this one; itself when none
    ASN1UINT depth;
    BerWalkKind kind;
    union {
        ASN1INT i32;
        ASN1BOOL boolean;
        const char* text;  // kWalkBigInt
        ASN1OBJID* oid;    // holds only its numids arcs: read it through the pointer, never copy it
        Asn116BitCharString s16;
        Asn132BitCharString s32;
        // kWalkOctets, kWalkBitStr (numbits), kWalkCharStr (count; terminated by a zero
        // octet only when copied: under RT_FLAG_SHARE_INPUT it points into the message)
        ASN1TDynOctStr octets;
    } v;
};

struct BerWalk {
    BerWalkNode* nodes = nullptr;  // the caller's storage, or on the context's type heap
    BerWalkNode* storage = nullptr;  // the caller's array, when one was given
    ASN1UINT count = 0;
    ASN1UINT capacity = 0;
    ASN1UINT consumed = 0;   // octets of the first element
    ASN1UINT maxDepth = 0;
    bool der = true;         // minimal definite forms only: writing back gives the input
    ASN1UINT segmented = 0;  // constructed strings read whole; each goes back as one primitive
    BerWalkMode mode = kWalkKeepValues;
    int status = 0;
};

/* Walks the first element of the message.  0 or the first failing status; the nodes
 * read so far stay in `walk`, on the context's type heap.  With kWalkKeepValues values
 * live there too; with kWalkScratchValues they are read into scratch storage by the
 * caller-storage readers (xd_octstr_s, xd_bitstr_s, xd_objid) and dropped, and the walk
 * cannot be written back; with kWalkStructure only headers are read, constructed strings
 * stay in their segments, and `der` speaks of the headers alone (contents go back as they
 * came): the nodes point into the message, which must outlive them.
 * With `storage`, the nodes go into the caller's array of storageCount first, and move
 * to the heap only when it is full: a reader of many messages keeps one array and one
 * context and allocates nothing per message. */
ASN1RT_HIDDEN int berWalk(ASN1CTXT* pctxt, const ASN1OCTET* msg, int msglen, BerWalk& walk,
                          BerWalkMode mode = kWalkKeepValues, BerWalkNode* storage = nullptr,
                          ASN1UINT storageCount = 0);

/* Writes the walked tree back with definite lengths into a fresh dynamic buffer of the
 * same context: the length, with the octets at xe_getp(pctxt), or a status (-99 for a
 * walk that kept no values). */
ASN1RT_HIDDEN int berWriteBack(ASN1CTXT* pctxt, const BerWalk& walk);

}  // namespace asn1rt
#endif

#endif /* ASN1RT_BER_H */
