// A generic walk over any BER element tree with the xd_ primitives, and its way back
// with the xe_ primitives.  Iterative: an explicit stack of open elements replaces
// recursion, so deep nesting costs memory in proportion and no stack.
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "asn1rt/ber.h"
#include "asn1rt/ber_decode_internal.h"

namespace asn1rt {

namespace {

struct Frame {
    ASN1UINT node;
    ASN1UINT end;  // kNoEnd for an indefinite length
};

// The universal types read as eight-bit character strings, one bit per tag number.
constexpr ASN1UINT kCharStrings =
    1u << ASN_ID_OBJDSC | 1u << ASN_ID_UTF8String | 1u << ASN_ID_NumericString | 1u << ASN_ID_PrintableString |
    1u << ASN_ID_TeletexString | 1u << ASN_ID_VideotexString | 1u << ASN_ID_IA5String | 1u << ASN_ID_UTCTime |
    1u << ASN_ID_GeneralTime | 1u << ASN_ID_GraphicString | 1u << ASN_ID_VisibleString |
    1u << ASN_ID_GeneralString;

bool isUniversalString(ASN1UINT number)
{
    return number < 32 && (kCharStrings >> number & 1u) != 0;
}

// The universal string types the value walk reads whole when they come in segments.
bool readsWhole(ASN1TAG tag)
{
    constexpr ASN1UINT kWhole =
        kCharStrings | 1u << ASN_ID_OCTSTR | 1u << ASN_ID_BITSTR | 1u << ASN_ID_BMPString | 1u << ASN_ID_UniversalString;
    const ASN1UINT number = tag & TM_IDCODE_MASK;
    return (tag & TM_CLASS_MASK) == TM_UNIV && number < 32 && (kWhole >> number & 1u) != 0;
}

// Octets of the shortest header for this tag and length.
ASN1UINT minimalHeaderSize(ASN1TAG tag, int length)
{
    ASN1UINT size = 1;
    ASN1TAG number = tag & TM_IDCODE_MASK;
    if (number > 30) {
        do {
            ++size;
            number >>= 7;
        } while (number != 0);
    }
    size += 1;
    if (length >= 128)
        for (ASN1UINT v = (ASN1UINT)length; v != 0; v >>= 8)
            ++size;
    return size;
}

// Whether the object identifier content uses only shortest arcs of at most 32 bits: no
// arc opens with 0x80, none takes more than five octets or 32 bits, the last one closes.
// One pass: `run` counts the octets of the open arc.
bool minimalObjId(const ASN1OCTET* p, int length)
{
    if (length <= 0 || (p[length - 1] & 0x80))
        return false;
    int run = 0;
    for (int k = 0; k < length; ++k) {
        const ASN1OCTET b = p[k];
        if (b & 0x80) {
            if ((run == 0 && b == 0x80) || run == 4)
                return false;
            ++run;
        } else {
            // Five octets carry 35 bits: the first may hold no more than four of them.
            if (run == 4 && (p[k - 4] & 0x7f) > 0x0f)
                return false;
            run = 0;
        }
    }
    return true;
}

class Walker {
public:
    Walker(ASN1CTXT* pctxt, BerWalk& walk, int msglen, BerWalkMode mode)
        : c(pctxt), w(walk), initialCapacity(firstCapacity(msglen)), keep(mode == kWalkKeepValues),
          structure(mode == kWalkStructure),
          share((pctxt->flags & RT_FLAG_SHARE_INPUT) != 0)
    {
    }
    ~Walker()
    {
        if (frames != inlineFrames)
            free(frames);
    }

    int run(const ASN1OCTET* msg, int msglen);

private:
    // Real messages hold about one element in every 8 to 40 octets: one block of nodes
    // covers most of them, small enough to stay clear of the allocator's mapped blocks.
    static ASN1UINT firstCapacity(int msglen)
    {
        if (msglen <= 0)
            return 64;
        ASN1UINT estimate = (ASN1UINT)msglen / 8 + 16;
        return estimate < 2048 ? estimate : 2048;
    }

    bool grow();
    bool growFrames(ASN1UINT used);
    // Not inlined into berWalk: the loop gets the registers to itself.
    template <bool Values>
    __attribute__((noinline)) int walkTree();
    void settle(ASN1USINT entryFlags, ASN1UINT nodeCount);
    bool readWhole(BerWalkNode* n, ASN1TAG tag, int length);
    int longHeader(bool settleFirst, ASN1USINT entryFlags, ASN1UINT count, ASN1UINT i, ASN1UINT limit,
                   ASN1TAG* tag, ASN1UINT* length);
    int readPrimitive(BerWalkNode* n, ASN1TAG tag, int length);
    int readIntoScratch(ASN1TAG tag, int length);
    int readWholeString(BerWalkNode* n, ASN1TAG tag, int length);
    ASN1OBJID* oidStorage(int length);

    ASN1CTXT* c;
    BerWalk& w;
    const ASN1UINT initialCapacity;
    // Without kept values, contents are read into these with the caller-storage readers.
    const bool keep;
    // Headers only: a primitive's content stays where it is in the message.
    const bool structure;
    // With shared input, character strings are kept as views into the message as well.
    const bool share;
    // Kept identifiers are carved from blocks of the type heap, each sized to its arcs.
    ASN1OCTET* oidArea = nullptr;
    size_t oidLeft = 0;
    ASN1OBJID scratchOid;
    ASN1OCTET scratch[4096];
    // Most messages nest a few levels: their open elements live here, not on the heap.
    Frame inlineFrames[32];
    Frame* frames = inlineFrames;
    ASN1UINT frameCapacity = 32;
};

bool Walker::grow()
{
    // A caller's array may be of any size: doubled in 64 bits, checked, then narrowed.
    const unsigned long long next = w.capacity ? 2ull * w.capacity : initialCapacity;
    if (next > (unsigned long long)(RT_MEMHEAP_MAX_ALLOC / sizeof(BerWalkNode)))
        return false;
    void* p;
    if (w.nodes != nullptr && w.nodes == w.storage) {
        // The caller's array is full: the walk goes on in the heap.
        p = rtMemHeapAlloc(&c->typeHeap, (int)(next * sizeof(BerWalkNode)));
        if (p)
            memcpy(p, w.nodes, (size_t)w.count * sizeof(BerWalkNode));
    } else {
        p = rtMemHeapRealloc(&c->typeHeap, w.nodes, (int)(next * sizeof(BerWalkNode)));
    }
    if (!p)
        return false;
    w.nodes = (BerWalkNode*)p;
    w.capacity = (ASN1UINT)next;
    return true;
}

// Room for an identifier of `length` content octets: each octet ends at most one arc and
// the first arc splits in two, so length + 1 arcs (at most the 128 slots) always suffice.
// Only the slots xd_objid may write are carved; numids starts at 0.
ASN1OBJID* Walker::oidStorage(int length)
{
    const ASN1UINT arcs = length >= ASN_K_MAXSUBIDS ? ASN_K_MAXSUBIDS : (ASN1UINT)length + 1;
    const size_t bytes = offsetof(ASN1OBJID, subid) + (size_t)arcs * sizeof(ASN1UINT);
    if (bytes > oidLeft) {
        const size_t block = bytes > 1024 ? bytes : 1024;
        oidArea = (ASN1OCTET*)rtMemHeapAlloc(&c->typeHeap, (int)block);
        if (!oidArea) {
            oidLeft = 0;
            return nullptr;
        }
        oidLeft = block;
    }
    ASN1OBJID* oid = (ASN1OBJID*)(void*)oidArea;
    oid->numids = 0;
    oidArea += bytes;
    oidLeft -= bytes;
    return oid;
}

// Room for twice as many open elements, the first `used` of them kept.
bool Walker::growFrames(ASN1UINT used)
{
    const ASN1UINT next = frameCapacity * 2;
    if (next < frameCapacity || (size_t)next > (size_t)-1 / sizeof(Frame))
        return false;
    void* p = malloc((size_t)next * sizeof(Frame));
    if (!p)
        return false;
    memcpy(p, frames, (size_t)used * sizeof(Frame));
    if (frames != inlineFrames)
        free(frames);
    frames = (Frame*)p;
    frameCapacity = next;
    return true;
}

int Walker::readWholeString(BerWalkNode* node, ASN1TAG tag, int length)
{
    const ASN1UINT number = tag & TM_IDCODE_MASK;
    BerWalkNode& n = *node;
    int stat;
    if (number == ASN_ID_OCTSTR) {
        n.kind = kWalkOctets;
        stat = xd_octstr(c, &n.v.octets.data, &n.v.octets.numocts, ASN1IMPL, length);
    } else if (number == ASN_ID_BITSTR) {
        n.kind = kWalkBitStr;
        stat = xd_bitstr(c, &n.v.octets.data, &n.v.octets.numocts, ASN1IMPL, length);
    } else if (number == ASN_ID_BMPString) {
        n.kind = kWalkBMPStr;
        stat = xd_16BitCharStr(c, &n.v.s16, ASN1IMPL, tag, length);
    } else if (number == ASN_ID_UniversalString) {
        n.kind = kWalkUniversalStr;
        stat = xd_32BitCharStr(c, &n.v.s32, ASN1IMPL, tag, length);
    } else {
        n.kind = kWalkCharStr;
        const char* text = nullptr;
        stat = xd_charstr(c, &text, ASN1IMPL, tag, length);
        n.v.octets.data = (const ASN1OCTET*)text;
        n.v.octets.numocts = (stat == 0 && text) ? (ASN1UINT)strlen(text) : 0;
    }
    return stat;
}

int Walker::readIntoScratch(ASN1TAG tag, int length)
{
    const ASN1UINT number = tag & TM_IDCODE_MASK;
    if ((tag & TM_CLASS_MASK) == TM_UNIV && number == ASN_ID_OBJID)
        return xd_objid(c, &scratchOid, ASN1IMPL, length);
    if ((tag & TM_CLASS_MASK) == TM_UNIV && number == ASN_ID_BITSTR && length >= 1) {
        ASN1UINT bits = (ASN1UINT)sizeof scratch * 8;
        return xd_bitstr_s(c, scratch, &bits, ASN1IMPL, length);
    }
    ASN1UINT count = (ASN1UINT)sizeof scratch;
    return xd_octstr_s(c, scratch, &count, ASN1IMPL, length);
}

// Content of a primitive element whose length lies inside the message (the caller checked).
int Walker::readPrimitive(BerWalkNode* node, ASN1TAG tag, int length)
{
    BerWalkNode& n = *node;
    const ASN1OCTET* p = c->bufData + c->bufIndex;
    const ASN1UINT number = tag & TM_IDCODE_MASK;
    if ((tag & TM_CLASS_MASK) == TM_UNIV) {
        switch (number) {
        case ASN_ID_BOOL:
            n.kind = kWalkBoolean;
            {
                int stat = xd_boolean(c, &n.v.boolean, ASN1IMPL, length);
                if (stat == 0 && n.v.boolean != 0 && n.v.boolean != 0xff)
                    w.der = false;
                return stat;
            }
        case ASN_ID_INT:
        case ASN_ID_ENUM:
            if (length >= 2 && ((p[0] == 0 && !(p[1] & 0x80)) || (p[0] == 0xff && (p[1] & 0x80))))
                w.der = false;
            if (length >= 1 && length <= 4) {
                n.kind = number == ASN_ID_INT ? kWalkInteger : kWalkEnum;
                return number == ASN_ID_INT ? xd_integer(c, &n.v.i32, ASN1IMPL, length)
                                            : xd_enum(c, &n.v.i32, ASN1IMPL, length);
            }
            if (number == ASN_ID_INT && length > 4) {
                n.kind = kWalkBigInt;
                if (!keep && length <= (int)sizeof scratch)
                    return readIntoScratch(tag, length);
                return xd_bigint(c, &n.v.text, ASN1IMPL, length);
            }
            break;
        case ASN_ID_NULL:
            if (length == 0) {
                // xd_null with implicit tagging reads nothing and succeeds.
                n.kind = kWalkNull;
                return 0;
            }
            break;
        case ASN_ID_OBJID:
            if (!minimalObjId(p, length))
                w.der = false;
            n.kind = kWalkObjId;
            if (!keep)
                return readIntoScratch(tag, length);
            n.v.oid = oidStorage(length);
            if (!n.v.oid)
                return RT_E_NO_MEMORY;
            return xd_objid(c, n.v.oid, ASN1IMPL, length);
        case ASN_ID_BITSTR:
        case ASN_ID_OCTSTR:
        case ASN_ID_BMPString:
        case ASN_ID_UniversalString:
            // An empty BIT STRING lacks its unused-bits octet; odd wide strings lose octets.
            if ((number == ASN_ID_BITSTR && length == 0) || (number == ASN_ID_BMPString && length % 2) ||
                (number == ASN_ID_UniversalString && length % 4))
                w.der = false;
            if (!keep && length <= (int)sizeof scratch) {
                n.kind = number == ASN_ID_BITSTR ? kWalkBitStr : kWalkOctets;
                return readIntoScratch(tag, length);
            }
            // What xd_octstr and xd_bitstr do under shared input, without the calls.
            if (share && number == ASN_ID_OCTSTR) {
                n.kind = kWalkOctets;
                return detail::shareOctets(c, &n.v.octets.data, &n.v.octets.numocts, length);
            }
            if (share && number == ASN_ID_BITSTR && length >= 2) {
                n.kind = kWalkBitStr;
                return detail::shareBits(c, &n.v.octets.data, &n.v.octets.numocts, length);
            }
            return readWholeString(node, tag, length);
        default:
            if (isUniversalString(number)) {
                n.kind = kWalkCharStr;
                if (!keep && length <= (int)sizeof scratch)
                    return readIntoScratch(tag, length);
                if (share) {
                    // The octets as they stand in the message, as xd_octstr shares them.
                    return detail::shareOctets(c, &n.v.octets.data, &n.v.octets.numocts, length);
                }
                const char* text = nullptr;
                int stat = xd_charstr(c, &text, ASN1IMPL, tag, length);
                n.v.octets.data = (const ASN1OCTET*)text;
                n.v.octets.numocts = (ASN1UINT)length;
                return stat;
            }
            break;
        }
    }
    // Anything else keeps its content octets as they stand.
    w.der = w.der && !((tag & TM_CLASS_MASK) == TM_UNIV && number == ASN_ID_NULL);
    n.kind = kWalkOctets;
    if (!keep && length <= (int)sizeof scratch)
        return readIntoScratch(tag, length);
    if (share)
        return detail::shareOctets(c, &n.v.octets.data, &n.v.octets.numocts, length);
    return xd_octstr(c, &n.v.octets.data, &n.v.octets.numocts, ASN1IMPL, length);
}

int Walker::run(const ASN1OCTET* msg, int msglen)
{
    ASN1TAG firstTag = 0;
    int firstSize = 0;
    int stat = xd_setp(c, msg, msglen, &firstTag, &firstSize);
    if (stat != 0)
        return stat;
    stat = structure ? walkTree<false>() : walkTree<true>();
    w.consumed = c->bufIndex;
    return stat;
}

// Both walks are one tight loop: the common header (one identifier octet, a length in the
// short form or in one or two octets, content inside the enclosing element) is read in it;
// anything else, and an end-of-contents, leaves the loop's fast path for xd_tag_len.  An
// element with an indefinite length has no end to compare with: its end-of-contents
// closes it.
constexpr ASN1UINT kNoEnd = 0xffffffffu;

// savedState and the form flag as xd_tag_len leaves them after reading the header at
// `offset` with `cons` as its form, `before` being the flag word it found.
inline void noteHeader(ASN1CTXT* ctx, ASN1UINT offset, ASN1USINT before, bool cons)
{
    ctx->savedState.index = offset;
    ctx->savedState.bitOffset = ctx->bitOffset;
    ctx->savedState.flags = before;
    ctx->flags = cons ? (ASN1USINT)(before | RT_FLAG_CONSTRUCTED) : (ASN1USINT)(before & ~RT_FLAG_CONSTRUCTED);
}

// The tag word of each identifier octet that holds its whole tag; kSlowTag for a long tag
// and for 00, which may be an end-of-contents.
constexpr ASN1TAG kSlowTag = 0xffffffffu;
struct TagTable {
    ASN1TAG word[256];
    constexpr TagTable() : word()
    {
        for (unsigned id = 0; id < 256; ++id)
            word[id] = (id == 0 || (id & TM_B_IDCODE_MASK) == TM_B_LONG_FORM)
                           ? kSlowTag
                           : ((ASN1TAG)(id & 0xe0) << 24) | (ASN1TAG)(id & TM_B_IDCODE_MASK);
    }
};
constexpr TagTable kTagOf{};

// savedState and the form flag as xd_tag_len leaves them after the last of `nodeCount`
// nodes, from the flag word the walk started with.
void Walker::settle(ASN1USINT entryFlags, ASN1UINT nodeCount)
{
    if (nodeCount == 0)
        return;
    const BerWalkNode* const all = w.nodes;
    const auto withForm = [entryFlags](ASN1TAG tag) {
        return (tag & TM_CONS) ? (ASN1USINT)(entryFlags | RT_FLAG_CONSTRUCTED)
                               : (ASN1USINT)(entryFlags & ~RT_FLAG_CONSTRUCTED);
    };
    const ASN1USINT before = nodeCount == 1 ? entryFlags : withForm(all[nodeCount - 2].tag);
    noteHeader(c, all[nodeCount - 1].offset, before, (all[nodeCount - 1].tag & TM_CONS) != 0);
}

// Any header the loop does not read itself, through xd_tag_len, and the checks of its
// length against the message and the enclosing element.  The context is brought up to
// date first, so that it is left exactly as xd_tag_len leaves it.
__attribute__((noinline)) int Walker::longHeader(bool settleFirst, ASN1USINT entryFlags, ASN1UINT count,
                                                 ASN1UINT i, ASN1UINT limit, ASN1TAG* tag, ASN1UINT* length)
{
    w.count = count;
    if (settleFirst)
        settle(entryFlags, count);
    c->bufIndex = i;
    ASN1TAG readTag = 0;
    int readLength = 0;
    int stat = xd_tag_len(c, &readTag, &readLength, RT_MATCH_ADVANCE);
    if (stat != 0)
        return stat;
    const ASN1UINT next = c->bufIndex;
    if (readLength == RT_INDEFINITE_LENGTH || next - i != minimalHeaderSize(readTag, readLength))
        w.der = false;
    if (readLength != RT_INDEFINITE_LENGTH) {
        if (readLength < 0)
            return RT_E_BAD_LENGTH;
        if ((unsigned long long)next + (ASN1UINT)readLength > c->bufSize)
            return RT_E_END_OF_BUFFER;
        if ((unsigned long long)next + (ASN1UINT)readLength > limit)
            return RT_E_BAD_LENGTH;  // inside the message, not inside its element
    }
    *tag = readTag;
    *length = (ASN1UINT)readLength;
    return 0;
}

// A string in segments is read whole; when the readers refuse its shape, the context goes
// back to behind its header and the segments are walked as elements instead.
bool Walker::readWhole(BerWalkNode* n, ASN1TAG tag, int length)
{
    w.der = false;
    ++w.segmented;
    RtBufferState state;
    xu_SaveBufferState(c, &state);
    const int errBefore = c->errInfo.status;
    if (readWholeString(n, tag, length) == 0)
        return true;
    xu_RestoreBufferState(c, &state);
    c->errInfo.status = errBefore;
    memset(&n->v, 0, sizeof n->v);
    return false;
}

// With Values, the context is kept up to date at every header, since the value readers
// read it.
template <bool Values>
int Walker::walkTree()
{
    ASN1CTXT* const ctx = c;
    const ASN1OCTET* const data = ctx->bufData;
    const ASN1UINT size = ctx->bufSize;
    // Nothing here sets RT_FLAG_LAST_EOC (xd_setp cleared it), so only the form bit of the
    // flag word changes: the context is brought up to date from the nodes when xd_tag_len
    // is to read it and on the way out, not at every header.
    const ASN1USINT entryFlags = ctx->flags;
    ASN1UINT i = ctx->bufIndex;
    BerWalkNode* nodes = w.nodes;
    ASN1UINT capacity = w.capacity;
    ASN1UINT count = w.count;
    ASN1UINT depth = 0;
    // frames[0 .. depth-1] are the open elements, innermost last.  The end of the innermost
    // one's content is at hand in topEnd (kNoEnd for an indefinite length, 0 while there is
    // none), and `limit` is where its members' content must end, no further than the
    // message.
    ASN1UINT topEnd = 0;
    ASN1UINT limit = size;
    // Set where the loop leaves with the context saying more than the nodes do: xd_tag_len
    // read (or failed to read) a header that became no node.
    bool ctxAhead = false;
    int stat = 0;

    for (;;) {
        const ASN1UINT offset = i;
        ASN1TAG tag = kSlowTag;
        ASN1UINT length = 0;
        ASN1UINT next = 0;
        // The cursor never passes size; four octets hold the longest header read here.
        if (__builtin_expect(size - i >= 4, 1)) {
            tag = kTagOf.word[data[i]];
            const ASN1OCTET first = data[i + 1];
            length = first;
            next = i + 2;
            if (first >= 0x80) {
                if (first == 0x81) {
                    length = data[i + 2];
                    next = i + 3;
                    // Behind a long tag this octet is no length: the long way judges it.
                    if (length < 0x80 && tag != kSlowTag)
                        w.der = false;  // the length would fit the short form
                } else if (first == 0x82) {
                    length = ((ASN1UINT)data[i + 2] << 8) | data[i + 3];
                    next = i + 4;
                    if (length < 0x100 && tag != kSlowTag)
                        w.der = false;  // or one octet
                } else {
                    next = 0;
                }
            }
            // A content beyond the element goes the long way too, for its status.  No sum
            // wraps: next stays within the message and length below 65536.
            if (tag == kSlowTag || next + length > limit)
                next = 0;
        }
        if (__builtin_expect(next == 0, 0)) {
            if (topEnd == kNoEnd && size - i >= 2 && data[i] == 0 && data[i + 1] == 0) {
                // The end-of-contents of the innermost element.
                i += 2;
                if (Values)
                    ctx->bufIndex = i;
                goto closeTop;
            }
            // Read into locals of their own: tag and length, whose addresses are never
            // taken, stay in registers on the common way.
            ASN1TAG longTag = 0;
            ASN1UINT longLength = 0;
            stat = longHeader(!Values, entryFlags, count, i, limit, &longTag, &longLength);
            tag = longTag;
            length = longLength;
            i = ctx->bufIndex;
            ctxAhead = true;
            if (stat != 0)
                break;
        } else {
            if (Values) {
                noteHeader(ctx, offset, ctx->flags, (tag & TM_CONS) != 0);
                ctx->bufIndex = next;
            }
            i = next;
        }

        if (count == capacity) {
            w.count = count;
            if (!grow()) {
                if (!ctxAhead) {
                    settle(entryFlags, count);
                    noteHeader(ctx, offset, ctx->flags, (tag & TM_CONS) != 0);
                    ctxAhead = true;
                }
                stat = RT_E_NO_MEMORY;
                break;
            }
            nodes = w.nodes;
            capacity = w.capacity;
        }
        ctxAhead = Values;
        {
            const ASN1UINT index = count++;
            BerWalkNode* const n = &nodes[index];
            if (Values)
                memset(n, 0, sizeof *n);
            n->tag = tag;
            n->length = (ASN1INT)length;
            n->offset = offset;
            n->lastChild = index;
            n->depth = depth;
            if (!(tag & TM_CONS)) {
                if (Values) {
                    stat = readPrimitive(n, tag, (int)length);
                    if (stat != 0)
                        break;
                    i = ctx->bufIndex;
                } else {
                    // Inside the message: both header readers saw to that.
                    n->kind = kWalkOctets;
                    n->v.octets.numocts = length;
                    n->v.octets.data = data + i;
                    i += length;
                }
                if (i < topEnd)
                    continue;
            } else if (Values && readsWhole(tag) && readWhole(n, tag, (int)length)) {
                i = ctx->bufIndex;
                if (i < topEnd)
                    continue;
            } else {
                n->kind = kWalkConstructed;
                n->v.octets.numocts = 0;
                n->v.octets.data = nullptr;
                if (depth == frameCapacity && !growFrames(depth)) {
                    stat = RT_E_NO_MEMORY;
                    break;
                }
                if (length == (ASN1UINT)RT_INDEFINITE_LENGTH) {
                    topEnd = kNoEnd;
                    limit = size;
                } else {
                    topEnd = i + length;
                    limit = topEnd;
                }
                frames[depth] = Frame{index, topEnd};
                if (++depth > w.maxDepth)
                    w.maxDepth = depth;
                if (i < topEnd)
                    continue;
            }
        }
        if (depth == 0)
            break;  // the first element was primitive
        // Close every element with a definite length that ends here.  Only an element with
        // an indefinite length can have run past its parent's end.
        while (i >= topEnd) {
            if (i > topEnd) {
                stat = RT_E_BAD_LENGTH;
                break;
            }
        closeTop:
            nodes[frames[depth - 1].node].lastChild = count - 1;
            if (--depth == 0)
                break;
            topEnd = frames[depth - 1].end;
            limit = topEnd == kNoEnd ? size : topEnd;
        }
        if (stat != 0 || depth == 0)
            break;
    }
    w.count = count;
    // What xd_tag_len would have left in the context after the last header.
    if (!ctxAhead)
        settle(entryFlags, count);
    ctx->bufIndex = i;
    return stat;
}

}  // namespace

int berWalk(ASN1CTXT* pctxt, const ASN1OCTET* msg, int msglen, BerWalk& walk, BerWalkMode mode,
            BerWalkNode* storage, ASN1UINT storageCount)
{
    walk = BerWalk{};
    walk.mode = mode;
    if (storage != nullptr && storageCount != 0) {
        walk.storage = storage;
        walk.nodes = storage;
        walk.capacity = storageCount;
    }
    Walker walker(pctxt, walk, msglen, mode);
    walk.status = walker.run(msg, msglen);
    if (walk.status != 0)
        walk.der = false;
    return walk.status;
}

int berWriteBack(ASN1CTXT* pctxt, const BerWalk& walk)
{
    if (walk.mode == kWalkScratchValues)
        return RT_E_NOT_SUPPORTED;
    int stat = xe_setp(pctxt, nullptr, 0);
    if (stat != 0)
        return stat;
    // written[i]: octets written once node i and everything behind it are out.
    ASN1UINT* written = (ASN1UINT*)malloc(((size_t)walk.count + 1) * sizeof(ASN1UINT));
    if (!written)
        return RT_E_NO_MEMORY;
    written[walk.count] = 0;
    auto total = [pctxt]() { return pctxt->bufSize - 1 - pctxt->bufIndex; };
    int result = 0;
    for (ASN1UINT k = walk.count; k > 0 && result >= 0; --k) {
        const BerWalkNode& n = walk.nodes[k - 1];
        const auto& v = n.v;
        ASN1TAG tag = n.tag;
        int len = 0;
        switch (n.kind) {
        case kWalkConstructed: {
            ASN1UINT inner = written[k] - written[n.lastChild + 1];
            len = (int)inner;
            break;
        }
        case kWalkBoolean: len = xe_boolean(pctxt, &v.boolean, ASN1IMPL); break;
        case kWalkInteger: len = xe_integer(pctxt, &v.i32, ASN1IMPL); break;
        case kWalkEnum: len = xe_enum(pctxt, &v.i32, ASN1IMPL); break;
        case kWalkBigInt: len = xe_bigint(pctxt, v.text, ASN1IMPL); break;
        case kWalkNull: len = xe_null(pctxt, ASN1IMPL); break;
        case kWalkObjId: len = xe_objid(pctxt, v.oid, ASN1IMPL); break;
        case kWalkBitStr: len = xe_bitstr(pctxt, v.octets.data, v.octets.numocts, ASN1IMPL); break;
        case kWalkOctets: len = xe_octstr(pctxt, v.octets.data, v.octets.numocts, ASN1IMPL); break;
        // A character string goes back as its counted octets: under shared input they are a
        // view into the message with no terminator behind them.
        case kWalkCharStr: len = xe_octstr(pctxt, v.octets.data, v.octets.numocts, ASN1IMPL); break;
        case kWalkBMPStr: len = xe_16BitCharStr(pctxt, &v.s16, ASN1IMPL, tag); break;
        case kWalkUniversalStr: len = xe_32BitCharStr(pctxt, &v.s32, ASN1IMPL, tag); break;
        }
        // A string read whole goes back in one piece.
        if (n.kind != kWalkConstructed)
            tag &= ~TM_CONS;
        if (len >= 0)
            len = xe_tag_len(pctxt, tag, len);
        if (len < 0)
            result = len;
        written[k - 1] = total();
    }
    if (result >= 0)
        result = (int)total();
    free(written);
    return result;
}

}  // namespace asn1rt
