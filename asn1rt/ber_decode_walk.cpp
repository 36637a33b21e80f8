// A generic walk over any BER element tree with the xd_ primitives, and its way back
// with the xe_ primitives.  Iterative: an explicit stack of open elements replaces
// recursion, so deep nesting costs memory in proportion and no stack.
#include <stdlib.h>
#include <string.h>

#include "asn1rt/ber.h"

namespace asn1rt {

namespace {

struct Frame {
    ASN1UINT node;
    ASN1UINT end;
    bool indefinite;
};

bool isUniversalString(ASN1UINT number)
{
    switch (number) {
    case ASN_ID_OBJDSC:
    case ASN_ID_UTF8String:
    case ASN_ID_NumericString:
    case ASN_ID_PrintableString:
    case ASN_ID_TeletexString:
    case ASN_ID_VideotexString:
    case ASN_ID_IA5String:
    case ASN_ID_UTCTime:
    case ASN_ID_GeneralTime:
    case ASN_ID_GraphicString:
    case ASN_ID_VisibleString:
    case ASN_ID_GeneralString:
        return true;
    default:
        return false;
    }
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

// Whether the object identifier content uses only shortest arcs of at most 32 bits.
bool minimalObjId(const ASN1OCTET* p, int length)
{
    bool arcStart = true;
    int arcOctets = 0;
    ASN1OCTET firstOfArc = 0;
    for (int k = 0; k < length; ++k) {
        if (arcStart) {
            if (p[k] == 0x80)
                return false;
            firstOfArc = p[k];
            arcOctets = 0;
        }
        ++arcOctets;
        if (arcOctets > 5 || (arcOctets == 5 && (firstOfArc & 0x7f) > 0x0f))
            return false;
        arcStart = (p[k] & 0x80) == 0;
    }
    return arcStart;
}

class Walker {
public:
    // Every element takes two octets at least: one allocation covers a whole small message.
    Walker(ASN1CTXT* pctxt, BerWalk& walk, int msglen, bool keepValues)
        : c(pctxt), w(walk), initialCapacity(msglen > 2 && msglen < 16384 ? (ASN1UINT)msglen / 2 : 64),
          keep(keepValues)
    {
    }
    ~Walker()
    {
        if (frames != inlineFrames)
            free(frames);
    }

    int run(const ASN1OCTET* msg, int msglen);

private:
    BerWalkNode* append();
    bool push(ASN1UINT node, ASN1UINT end, bool indefinite);
    int closeFinished();
    int readElement();
    int readPrimitive(ASN1UINT index, ASN1TAG tag, int length);
    int readIntoScratch(ASN1TAG tag, int length);
    int readWholeString(ASN1UINT index, ASN1TAG tag, int length);

    ASN1CTXT* c;
    BerWalk& w;
    const ASN1UINT initialCapacity;
    // Without kept values, contents are read into these with the caller-storage readers.
    bool keep = true;
    ASN1OBJID scratchOid;
    ASN1OCTET scratch[4096];
    // Most messages nest a few levels: their open elements live here, not on the heap.
    Frame inlineFrames[32];
    Frame* frames = inlineFrames;
    ASN1UINT depth = 0;
    ASN1UINT frameCapacity = 32;
};

BerWalkNode* Walker::append()
{
    if (w.count == w.capacity) {
        ASN1UINT next = w.capacity ? w.capacity * 2 : initialCapacity;
        if (next > (ASN1UINT)(RT_MEMHEAP_MAX_ALLOC / sizeof(BerWalkNode)))
            return nullptr;
        void* p = rtMemHeapRealloc(&c->typeHeap, w.nodes, (int)(next * sizeof(BerWalkNode)));
        if (!p)
            return nullptr;
        w.nodes = (BerWalkNode*)p;
        w.capacity = next;
    }
    BerWalkNode* n = &w.nodes[w.count];
    memset(n, 0, sizeof *n);
    n->lastChild = w.count;
    ++w.count;
    return n;
}

bool Walker::push(ASN1UINT node, ASN1UINT end, bool indefinite)
{
    if (depth == frameCapacity) {
        ASN1UINT next = frameCapacity * 2;
        void* p = malloc((size_t)next * sizeof(Frame));
        if (!p)
            return false;
        memcpy(p, frames, (size_t)depth * sizeof(Frame));
        if (frames != inlineFrames)
            free(frames);
        frames = (Frame*)p;
        frameCapacity = next;
    }
    frames[depth++] = Frame{node, end, indefinite};
    if (depth > w.maxDepth)
        w.maxDepth = depth;
    return true;
}

int Walker::closeFinished()
{
    while (depth > 0) {
        const Frame& f = frames[depth - 1];
        const ASN1UINT i = c->bufIndex;
        if (f.indefinite) {
            if (i < c->bufSize && c->bufSize - i >= 2 && c->bufData[i] == 0 && c->bufData[i + 1] == 0)
                c->bufIndex = i + 2;
            else if (i >= c->bufSize)
                return RT_E_END_OF_BUFFER;  // end-of-contents missing
            else
                return 0;
        } else {
            if (i > f.end)
                return RT_E_BAD_LENGTH;  // a member ran past its element
            if (i < f.end)
                return 0;
        }
        w.nodes[f.node].lastChild = w.count - 1;
        --depth;
    }
    return 0;
}

int Walker::readWholeString(ASN1UINT index, ASN1TAG tag, int length)
{
    const ASN1UINT number = tag & TM_IDCODE_MASK;
    BerWalkNode& n = w.nodes[index];
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

int Walker::readPrimitive(ASN1UINT index, ASN1TAG tag, int length)
{
    BerWalkNode& n = w.nodes[index];
    const ASN1OCTET* p = c->bufData + c->bufIndex;
    const bool fits = (unsigned long long)c->bufIndex + (ASN1UINT)length <= c->bufSize;
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
            if (fits && length >= 2 &&
                ((p[0] == 0 && !(p[1] & 0x80)) || (p[0] == 0xff && (p[1] & 0x80))))
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
                n.kind = kWalkNull;
                return xd_null(c, ASN1IMPL);
            }
            break;
        case ASN_ID_OBJID:
            if (!fits || !minimalObjId(p, length))
                w.der = false;
            n.kind = kWalkObjId;
            if (!keep)
                return readIntoScratch(tag, length);
            n.v.oid = (ASN1OBJID*)rtMemHeapAlloc(&c->typeHeap, (int)sizeof(ASN1OBJID));
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
            if (!keep && length >= 0 && length <= (int)sizeof scratch) {
                n.kind = number == ASN_ID_BITSTR ? kWalkBitStr : kWalkOctets;
                return readIntoScratch(tag, length);
            }
            return readWholeString(index, tag, length);
        default:
            if (isUniversalString(number)) {
                n.kind = kWalkCharStr;
                if (!keep && length >= 0 && length <= (int)sizeof scratch)
                    return readIntoScratch(tag, length);
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
    if (!keep && length >= 0 && length <= (int)sizeof scratch)
        return readIntoScratch(tag, length);
    return xd_octstr(c, &n.v.octets.data, &n.v.octets.numocts, ASN1IMPL, length);
}

int Walker::readElement()
{
    const ASN1UINT offset = c->bufIndex;
    ASN1TAG tag = 0;
    int length = 0;
    int stat = xd_tag_len(c, &tag, &length, RT_MATCH_ADVANCE);
    if (stat != 0)
        return stat;
    const ASN1UINT headerEnd = c->bufIndex;
    if (length == RT_INDEFINITE_LENGTH ||
        headerEnd - offset != minimalHeaderSize(tag, length))
        w.der = false;
    if (length != RT_INDEFINITE_LENGTH) {
        if (length < 0)
            return RT_E_BAD_LENGTH;
        unsigned long long end = (unsigned long long)headerEnd + (ASN1UINT)length;
        if (end > c->bufSize)
            return RT_E_END_OF_BUFFER;
        if (depth > 0 && !frames[depth - 1].indefinite && end > frames[depth - 1].end)
            return RT_E_BAD_LENGTH;
    }

    const ASN1UINT index = w.count;
    BerWalkNode* n = append();
    if (!n)
        return RT_E_NO_MEMORY;
    n->tag = tag;
    n->length = length;
    n->offset = offset;
    n->depth = depth;

    if (!(tag & TM_CONS))
        return readPrimitive(index, tag, length);

    const ASN1UINT number = tag & TM_IDCODE_MASK;
    if ((tag & TM_CLASS_MASK) == TM_UNIV &&
        (number == ASN_ID_OCTSTR || number == ASN_ID_BITSTR || number == ASN_ID_BMPString ||
         number == ASN_ID_UniversalString || isUniversalString(number))) {
        // A string in segments is read whole; when the readers refuse its shape, the
        // segments are walked as elements instead.
        w.der = false;
        ++w.segmented;
        RtBufferState state;
        xu_SaveBufferState(c, &state);
        const int errBefore = c->errInfo.status;
        if (readWholeString(index, tag, length) == 0)
            return 0;
        xu_RestoreBufferState(c, &state);
        c->errInfo.status = errBefore;
        memset(&w.nodes[index].v, 0, sizeof w.nodes[index].v);
    }
    w.nodes[index].kind = kWalkConstructed;
    const bool indefinite = length == RT_INDEFINITE_LENGTH;
    if (!push(index, indefinite ? 0 : headerEnd + (ASN1UINT)length, indefinite))
        return RT_E_NO_MEMORY;
    return 0;
}

int Walker::run(const ASN1OCTET* msg, int msglen)
{
    ASN1TAG tag = 0;
    int size = 0;
    int stat = xd_setp(c, msg, msglen, &tag, &size);
    if (stat != 0)
        return stat;
    do {
        stat = readElement();
        if (stat == 0)
            stat = closeFinished();
    } while (stat == 0 && depth > 0);
    w.consumed = c->bufIndex;
    return stat;
}

}  // namespace

int berWalk(ASN1CTXT* pctxt, const ASN1OCTET* msg, int msglen, BerWalk& walk, bool keepValues)
{
    walk = BerWalk{};
    walk.valuesKept = keepValues;
    Walker walker(pctxt, walk, msglen, keepValues);
    walk.status = walker.run(msg, msglen);
    if (walk.status != 0)
        walk.der = false;
    return walk.status;
}

int berWriteBack(ASN1CTXT* pctxt, const BerWalk& walk)
{
    if (!walk.valuesKept)
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
        case kWalkCharStr: {
            const char* text = (const char*)v.octets.data;
            if (text && strlen(text) == v.octets.numocts)
                len = xe_charstr(pctxt, text, ASN1IMPL, tag);
            else
                len = xe_octstr(pctxt, v.octets.data, v.octets.numocts, ASN1IMPL);
            break;
        }
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
