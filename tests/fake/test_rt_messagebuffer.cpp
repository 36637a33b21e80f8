// Message buffers, the counted context and ASN1CType: construction failures, static and dynamic encode
// buffers, attaching decode buffers, stream operators, element search, context sharing and release order.
// Certificates decoded through ASN1BERDecodeBuffer into a tree whose constructed elements keep their children
// in ASN1CSeqOfList lists (primitives as open types), written back through ASN1BEREncodeBuffer byte for byte;
// the buffer's element search finds their validity times, which go through the time parsers and classes.
#include "asn1rt/asn1time.h"
#include "asn1rt/ber.h"
#include "asn1rt/messagebuffer.h"
#include "asn1rt/seqoflist.h"
#include "rt_alloc_counter.h"
#include "support/testsupport.h"

#include <memory>
#include <new>

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

// A primitive element keeps its whole encoding (data, count), a constructed one its children.
struct Node { ASN1TAG tag; bool constructed; const ASN1OCTET* data; ASN1UINT count; ASN1TSeqOfList children; };

class CertTree : public ASN1CType {
public:
    explicit CertTree(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
    Node* root = nullptr;
    std::vector<std::string> times[2];  // the texts of UTCTime and GeneralizedTime

    int DecodeFrom(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        const int st = (root = newNode(buf.getCtxtPtr())) ? decode(buf, buf.getCtxtPtr(), root, 0) : RT_E_NO_MEMORY;
        return st < 0 ? rtErrSetData(&buf.getCtxtPtr()->errInfo, st) : 0;
    }
    int EncodeTo(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        const int len = root ? encode(buf.getCtxtPtr(), root) : 0;
        return len < 0 ? rtErrSetData(&buf.getCtxtPtr()->errInfo, len) : len;
    }

private:
    static Node* newNode(ASN1CTXT* ctxt) {
        void* mem = rtMemHeapAllocZ(&ctxt->typeHeap, (int)sizeof(Node));
        return mem ? new (mem) Node() : nullptr;
    }
    int decode(ASN1MessageBufferIF& buf, ASN1CTXT* ctxt, Node* node, int depth) {
        int len = 0, st = xd_tag_len(ctxt, &node->tag, &len, 0);
        if (st == 0 && (node->tag & TM_CONS) && len != RT_INDEFINITE_LENGTH && depth < 40) {
            node->constructed = true;
            if ((st = xd_tag_len(ctxt, &node->tag, &len, RT_MATCH_ADVANCE)) != 0)
                return st;
            const ASN1UINT end = ctxt->bufIndex + (ASN1UINT)len;
            ASN1CSeqOfList list(buf, node->children, 1);
            while (st == 0 && ctxt->bufIndex < end) {
                Node* child = newNode(ctxt);
                if ((st = !child ? RT_E_NO_MEMORY : decode(buf, ctxt, child, depth + 1)) == 0)
                    list.append(child);
            }
            return st ? st : ctxt->bufIndex == end ? 0 : RT_E_BAD_LENGTH;
        }
        if (st != 0 || (st = xd_OpenType(ctxt, &node->data, &node->count)) != 0)
            return st;
        if ((node->tag == ASN_ID_UTCTime || node->tag == ASN_ID_GeneralTime) && node->count > 2)
            times[node->tag == ASN_ID_GeneralTime].emplace_back(node->data + 2, node->data + node->count);
        return 0;
    }
    int encode(ASN1CTXT* ctxt, Node* node) {
        if (!node->constructed)
            return xe_OpenType(ctxt, node->data, node->count);
        int sum = 0, len = 0;
        ASN1CSeqOfList list(*getMsgBuf(), node->children);
        ASN1CSeqOfListIterator* it = list.iteratorFromLast();
        for (void* child = it ? it->prev() : nullptr; child && len >= 0; child = it->prev())
            sum += (len = encode(ctxt, (Node*)child));
        return !it ? RT_E_NO_MEMORY : len < 0 ? len : xe_tag_len(ctxt, node->tag, sum);
    }
};

struct RoundTrip { int status = 0; std::string out; std::vector<std::string> times[2]; };

RoundTrip roundTrip(const std::vector<uint8_t>& der) {
    RoundTrip r;
    ASN1BEREncodeBuffer enc;
    std::unique_ptr<CertTree> tree;
    {
        ASN1BERDecodeBuffer dec(der.data(), (int)der.size());
        tree.reset(new CertTree(dec));
        try {
            dec >> *tree;
        } catch (const ASN1RTLException& e) {
            r.status = e.getStatus();
        }
    }  // the tree outlives its buffer: the context stays with the control
    const int len = r.status ? r.status : tree->EncodeTo(enc);
    r.status = len < 0 ? len : 0;
    r.out = len > 0 ? toHex(enc.getMsgPtr(), (size_t)len) : "";
    r.times[0] = tree->times[0], r.times[1] = tree->times[1];
    return r;
}

TEST(CertRoundTrip, HandMadeElements) {
    // SEQUENCE { OID, PrintableString, [0] { BOOLEAN, INTEGER -129 }, BIT STRING, UTCTime, NULL, BMPString }
    const std::string der = "302C060355040313026162A0070101FF0202FF7F030307C080170D3234303232393132333435325A05001E020041";
    RoundTrip r = roundTrip(hex(der));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(der, r.out);
    EXPECT_EQ(std::vector<std::string>{"240229123452Z"}, r.times[0]);
    // The second INTEGER claims two octets where one is left: a bad element.
    EXPECT_EQ(RT_E_BAD_VALUE, roundTrip(hex("3006020105020205")).status);
    EXPECT_LT(roundTrip(hex("30")).status, 0);
}

TEST(CertRoundTrip, CorpusCertificatesAndTheirValidityTimes) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    SetLastError(55);
    int done = 0, utc = 0, generalized = 0, refused = 0;
    ASN1CTXT ctxt;
    ASSERT_EQ(0, rtInitContext(&ctxt, nullptr));
    for (const std::string& path : testsupport::corpusFiles("cert")) {
        const std::vector<uint8_t> der = testsupport::readFile(path);
        if (path.find("/bad/") != std::string::npos || der.empty() || der[0] != 0x30)
            continue;  // malformed, or a text form
        SCOPED_TRACE(path);
        RoundTrip r = roundTrip(der);
        ASSERT_EQ(0, r.status);
        EXPECT_EQ(toHex(der.data(), der.size()), r.out);
        EXPECT_GE(r.times[0].size() + r.times[1].size(), 2u) << "notBefore and notAfter";
        ++done;
        // The decode buffer's own search: the outer element spans the file, then notBefore and notAfter are
        // found (past 2049 the latter is a GeneralizedTime).
        ASN1BERDecodeBuffer dec(der.data(), (int)der.size());
        int len = 0;
        ASSERT_EQ(der.data(), dec.findElement(0x20000010u, len, 1));
        EXPECT_EQ(der.size(), size_t((der[1] < 0x80 ? 2 : 2 + (der[1] & 0x7F)) + len));
        const ASN1TAG kind = r.times[0].empty() ? ASN_ID_GeneralTime : ASN_ID_UTCTime;
        const ASN1OCTET *first = dec.findElement(kind, len, 1), *second = dec.findElement(kind, len, 0);
        if (!second && kind == ASN_ID_UTCTime)
            second = dec.findElement(ASN_ID_GeneralTime, len, 1);
        ASSERT_TRUE(first != nullptr && second > first);
        EXPECT_EQ(std::string(first + 2, first + 2 + first[1]), r.times[kind == ASN_ID_GeneralTime][0]);
        // UTCTime: ten or twelve digits, then Z or an offset; a well-formed one lies in 1950..2049 and
        // goes back as GeneralizedTime, the class reading the same fields and rebuilding the text.
        for (const std::string& t : r.times[0]) {
            RtTimeFields f;
            char* made = nullptr;
            const size_t n = t.find_first_not_of("0123456789"), m = t.find_first_not_of("0123456789", n + 1);
            const bool good = (n == 10 || n == 12) && (t.substr(n) == "Z" || (t.size() == n + 5 && t.find_first_of("+-", n) == n && m == std::string::npos));
            rtErrReset(&ctxt.errInfo);
            const int st = rtParseUTCTime(&ctxt, t.c_str(), &f);
            ++(st ? refused : utc);
            EXPECT_EQ(good ? 0 : -31, st) << t;
            if (st != 0)
                continue;
            const char* text = t.c_str();
            ASN1CUTCTime c(text, f.utc);
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            EXPECT_TRUE(f.year >= 1950 && f.year <= 2049 && (t.size() != 13 || (f.year < 2000 ? "19" : "20") + t == made)) << t;
            EXPECT_EQ((std::vector<int>{f.year, f.second, f.diffHour * 60 + f.diffMin, 0}),
                      (std::vector<int>{c.getYear(), c.getSecond(), c.getDiff(), c.setMonth(f.month)}));
            EXPECT_TRUE((t.size() != 13 && t.size() != 17) || t == text) << t;
        }
        // GeneralizedTime (2050 on) goes through the fields and back unchanged.
        for (const std::string& t : r.times[1]) {
            RtTimeFields f;
            char* made = nullptr;
            const char* text = t.c_str();
            ASSERT_EQ(0, rtParseGeneralizedTime(&ctxt, t.c_str(), &f)) << t;
            ASSERT_EQ(0, rtMakeGeneralizedTime(&ctxt, &f, &made, 0));
            EXPECT_EQ(t, std::string(made));
            EXPECT_EQ(f.year, ASN1CGeneralizedTime(text, 1).getYear());
            ++generalized;
        }
    }
    rtFreeContext(&ctxt);
    EXPECT_GT(done, 50);
    EXPECT_GT(utc, 50);
    EXPECT_GT(generalized, 0);
    EXPECT_GT(refused, 0) << "the corpus holds a time with non-digits";
    EXPECT_EQ(55u, GetLastError()) << "the runtime never touches the thread's last error";
}

}  // namespace
