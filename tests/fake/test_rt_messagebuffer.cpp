// Message buffers, the counted context and ASN1CType: construction failures, static and
// dynamic encode buffers, attaching decode buffers, stream operators, element search,
// context sharing and release order.
#include "asn1rt/ber.h"
#include "asn1rt/messagebuffer.h"
#include "rt_alloc_counter.h"
#include "support/testsupport.h"

#include <memory>

using namespace rttest;
using testsupport::hex;
using testsupport::toHex;

namespace {

// A control over one OCTET STRING, written the way generated control classes are: failures go to the error block.
struct OctetsControl : ASN1CType {
    explicit OctetsControl(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
    OctetsControl() = default;
    std::vector<ASN1OCTET> value;
    const ASN1OCTET* decoded = nullptr;
    ASN1UINT decodedLen = 0;

    static int recorded(ASN1MessageBufferIF& buf, int st) { return st < 0 ? rtErrSetData(&buf.getCtxtPtr()->errInfo, st) : st; }
    int EncodeTo(ASN1MessageBufferIF& buf) override
    {
        return setMsgBuf(buf), buf.init(), recorded(buf, xe_octstr(buf.getCtxtPtr(), value.data(), (ASN1UINT)value.size(), 1));
    }
    int DecodeFrom(ASN1MessageBufferIF& buf) override
    {
        return setMsgBuf(buf), buf.init(), recorded(buf, xd_octstr(buf.getCtxtPtr(), &decoded, &decodedLen, 1, 0));
    }
};

struct EmptyControl : ASN1CType {  // a value that encodes to nothing
    explicit EmptyControl(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
};

// Buffer failures are statuses and exceptions only: the thread's last error stays.
TEST(MessageBuffers, ConstructionEncodeDecodeAndSharing)
{
    SetLastError(4321);
    {
        CountingAllocator alloc;
        alloc.failNext(100);  // no heap record; the base catches it as well
        EXPECT_EQ((Ints{thrown<ASN1MessageBuffer::RTLError>([] { ASN1BERDecodeBuffer buf; }),
                        thrown<ASN1RTLException>([] { ASN1Context ctxt; }), (alloc.failNext(100, 1), 0),
                        thrown<ASN1MessageBuffer::RTLError>([] { ASN1BEREncodeBuffer buf; }), int(alloc.live())}),
                  (Ints{-12, -12, 0, -12, 0}));  // the heap record, then no message buffer: the context goes too
        alloc.failNext(100, 1);  // a static buffer needs no more memory: N-1 octets fit
        ASN1OCTET storage[8];
        ASN1BEREncodeBuffer buf(storage, sizeof storage);
        OctetsControl v(buf);
        v.value = std::vector<ASN1OCTET>(5, 0x11);
        EXPECT_EQ((std::tuple<ASN1UINT8, int, const ASN1OCTET*>{buf.getCtxtPtr()->bufDynamic, v.EncodeTo(buf), buf.getMsgPtr()}),
                  make_tuple(ASN1UINT8(0), 7, storage));
        v.value.push_back(0x22);  // no room for the tag, then none for the length
        EXPECT_EQ(v.EncodeTo(buf), -1);
        v.value.push_back(0x33);
        EXPECT_EQ((Ints{thrown<ASN1RTLException>([&] { buf << v; }), buf.getStatus()}), (Ints{-1, -1}));
    }
    EXPECT_EQ(GetLastError(), 4321u);
    ASN1BEREncodeBuffer encoder;  // encode buffers
    ASN1CTXT* ec = encoder.getCtxtPtr();
    EXPECT_EQ(make_tuple(ec->bufSize, ec->bufDynamic, encoder.getMsgPtr() - ec->bufData),
              make_tuple(16384u, ASN1UINT8(1), 16383));
    std::unique_ptr<ASN1OCTET[]> fresh(encoder.getMsgCopy());  // bufSize - bufIndex is 1 before any encoding
    OctetsControl octets(encoder);
    EmptyControl empty(encoder);
    octets.value = {0xAA, 0xBB, 0xCC};  // a positive length is thrown; only an encode of nothing is quiet
    EXPECT_EQ((Ints{thrown<ASN1RTLException>([&] { encoder << octets; }), thrown<ASN1RTLException>([&] { encoder << empty; })}),
              (Ints{5, 0}));
    std::unique_ptr<ASN1OCTET[]> copy(encoder.getMsgCopy());
    EXPECT_EQ(make_tuple(fresh.get() != nullptr, toHex(copy.get(), 5)), make_tuple(true, "0403AABBCC"));
    octets.value = {1, 2};  // each encode starts the buffer over; Encode uses the stored buffer
    EXPECT_EQ(octets.EncodeTo(encoder) + octets.Encode(), 8);
    EXPECT_EQ((std::tuple<std::string, int, ASN1UINT>{toHex(encoder.getMsgPtr(), 4), encoder.init(), ec->bufIndex}),
              make_tuple("04020102", 16383, 16383u));
    ASN1OCTET storage16[16];
    EXPECT_EQ(encoder.setBuffer(storage16, sizeof storage16), 0);  // now static
    EXPECT_EQ(encoder.getMsgPtr(), storage16 + 15);
    ASN1BEREncodeBuffer enc;  // the kinds, and the base's initialisers that both share; a decode buffer has no copy
    ASN1BERDecodeBuffer dec;
    char text[] = "x";
    unsigned short wide[] = {0x78, 0};
    static_assert(ASN1MessageBufferIF::BEREncode == 0 && ASN1MessageBufferIF::BERDecode == 1, "the kinds");
    EXPECT_EQ(make_tuple(enc.initBuffer(text), dec.initBuffer(wide), dec.getMsgCopy(),
                         enc.isA(ASN1MessageBufferIF::BERDecode), dec.isA(ASN1MessageBufferIF::BERDecode)),
              make_tuple(-99, -99, nullptr, false, true));
    ASN1MemBuf mem;
    const std::vector<uint8_t> bytes = hex("0403010203");
    ASSERT_EQ(mem.append(bytes.data(), (ASN1UINT)bytes.size()) + dec.initBuffer(mem), 0);
    ASN1CTXT* dctxt = dec.getCtxtPtr();
    int len = 0;
    const ASN1OCTET* data = nullptr;
    ASN1UINT n = 0;
    EXPECT_EQ((std::tuple<ASN1OCTET*, ASN1UINT, int, std::string>{mem.getData(&len), dctxt->bufSize,
                  xd_octstr(dctxt, &data, &n, 1, 0), toHex(data, n)}), make_tuple(dctxt->bufData, 5u, 0, "010203"));
    // Decode buffers: attached at the first init, not before; a second init or the same message again does not rewind.
    const std::vector<uint8_t> message = hex("04020a0b"), other = hex("0401ff");
    ASN1BERDecodeBuffer decoder(message.data(), (int)message.size());
    OctetsControl reader(decoder);
    ASN1CTXT* dc = decoder.getCtxtPtr();
    EXPECT_EQ((Ints{decoder.isAttached(), reader.DecodeFrom(decoder), decoder.isAttached(), int(dc->bufIndex), decoder.init(),
                    int(dc->bufIndex), decoder.setBuffer(message.data(), (int)message.size()), int(dc->bufIndex),
                    decoder.setBuffer(other.data(), (int)other.size()), int(dc->bufIndex), int(dc->bufSize)}),
              (Ints{0, 0, 1, 4, 0, 4, 0, 4, 0, 0, 3}));
    EXPECT_EQ(make_tuple(toHex(reader.decoded, reader.decodedLen), decoder.getMsgPtr()), make_tuple("0A0B", other.data()));
    // An INTEGER is no OCTET STRING: thrown, status shared; a length past the end shows in init, once.
    const std::vector<uint8_t> integer = hex("020105"), good = hex("0400"), bad = hex("0405aa");
    ASN1BERDecodeBuffer d1(integer.data(), (int)integer.size()), d2(good.data(), (int)good.size());
    ASN1BERDecodeBuffer d3(bad.data(), (int)bad.size());
    OctetsControl i(d1), w(d2);
    EXPECT_EQ((Ints{thrown<ASN1RTLException>([&] { d1 >> i; }), d1.getStatus(), i.getStatus(),
                    thrown<ASN1RTLException>([&] { d2 >> w; }), int(w.decodedLen), d3.init(), d3.init()}),
              (Ints{-3, -3, -3, 0, 0, -5, 0}));
    // findElement: SEQUENCE { INTEGER 5, OCTET STRING 'ab', [0] { INTEGER 7 } }; a new search (flag 1) starts at the
    // message, one with 0 goes on, here into [0].
    const std::vector<uint8_t> seq = hex("300c020105040261" "62a003020107");
    ASN1BERDecodeBuffer d4(seq.data(), (int)seq.size());
    int f[3] = {};
    const auto* m = seq.data();
    using Found = std::vector<const ASN1OCTET*>;
    EXPECT_EQ((Found{d4.findElement(0x20000010u, f[0], 1), d4.findElement(2u, f[1], 1), d4.findElement(2u, f[2], 0),
                     d4.findElement(2u, len, 0), d4.findElement(6u, len, 1)}), (Found{m, m + 2, m + 11, nullptr, nullptr}));
    EXPECT_EQ((Ints{f[0], f[1], f[2]}), (Ints{12, 1, 1}));
    // Controls share the buffer's context and outlive it, with the decoded copy on its heap.
    const std::vector<uint8_t> coffee = hex("0403c0ffee");
    OctetsControl* control = nullptr;
    {
        ASN1BERDecodeBuffer shortLived(coffee.data(), (int)coffee.size());
        ASN1CTXT* shared = shortLived.getCtxtPtr();
        {
            ASN1CtxtPtr ref = shortLived.getContext();  // the record is the object's first member
            EXPECT_EQ(make_tuple(ref->getRefCount(), ref->GetPtr(), (void*)ref.get()), make_tuple(2u, shared, (void*)shared));
        }
        control = new OctetsControl(shortLived);
        EXPECT_EQ(make_tuple(control->getCtxtPtr(), control->getContext()->getRefCount()), make_tuple(shared, 3u));
        ASSERT_EQ(control->DecodeFrom(shortLived), 0);
        rtErrSetData(&shared->errInfo, -18);
    }
    EXPECT_EQ(make_tuple(control->getCtxtPtr()->magic, control->getContext()->getRefCount(), control->getStatus(),
                         toHex(control->decoded, control->decodedLen)), make_tuple(0x1aa2a34au, 2u, -18, "C0FFEE"));
    delete control;
    ASN1BEREncodeBuffer target;
    OctetsControl own;  // a context of its own, and no buffer to encode to
    EXPECT_EQ(make_tuple(own.getMsgBuf(), own.Encode(), own.Decode()), make_tuple(nullptr, -30, -30));
    ASN1CTXT *mine = own.getCtxtPtr(), *theirs = target.getCtxtPtr();
    const unsigned before = ((RtMemHeap*)theirs->typeHeap)->refCnt;
    own.setMsgBuf(target), own.value = {9};  // takes the buffer's type heap
    EXPECT_EQ(make_tuple(own.getMsgBuf(), mine->typeHeap, ((RtMemHeap*)theirs->typeHeap)->refCnt, own.Encode()),
              make_tuple(static_cast<ASN1MessageBufferIF*>(&target), theirs->typeHeap, before + 1, 3));
    // The counted context: references by hand and by ASN1CtxtPtr; only the last unref deletes.
    ASN1Context* counted = new ASN1Context;
    EXPECT_EQ(counted->getRefCount(), 0u);
    counted->_ref(), counted->_ref();
    {
        ASN1CtxtPtr p(counted), q = p, r;
        r = q;
        ASN1MemBuf seg(*counted, 4);  // a memory buffer shares a given context, and grows by whole segments
        const ASN1OCTET six[] = {1, 2, 3, 4, 5, 6};
        EXPECT_EQ((Ints{int(counted->getRefCount()), seg.append(six, 6), int(seg.getBuffer()->bufsize)}), (Ints{6, 0, 8}));
        EXPECT_EQ((std::tuple<std::string, int, ASN1Context*>{toHex(seg.getData(&len), 6), len, ASN1CtxtPtr()}),
                  make_tuple("010203040506", 6, nullptr));
    }
    EXPECT_EQ((Ints{int(counted->getRefCount()), (counted->_unref(), int(counted->getRefCount()))}), (Ints{2, 1}));
    EXPECT_EQ(make_tuple(counted->GetPtr()->magic, (void*)counted->GetPtr()), make_tuple(0x1aa2a34au, (void*)counted));
    counted->_unref();  // deleted here; a leak checker sees it
}

// Exceptions: vtable and status; ASN1CType: vtable, context, buffer; message buffers: vtable, context and type,
// the decode buffer with message, size and flag behind that.
static_assert(sizeof(ASN1RTLException) == 2 * sizeof(void*) && sizeof(ASN1MessageBuffer::RTLError) == sizeof(ASN1RTLException) &&
                  sizeof(ASN1CType) == 3 * sizeof(void*) && sizeof(ASN1MessageBuffer) == 3 * sizeof(void*) &&
                  sizeof(ASN1BEREncodeBuffer) == sizeof(ASN1MessageBuffer) &&
                  sizeof(ASN1BERDecodeBuffer) == (sizeof(void*) == 8 ? 40 : 24), "class layouts");

}  // namespace
