// Message buffers, the counted context and ASN1CType: construction failures, static and
// dynamic encode buffers, attaching decode buffers, stream operators, element search,
// context sharing and release order.
#include "asn1rt/ber.h"
#include "asn1rt/messagebuffer.h"

#include <gtest/gtest.h>

#include <string.h>

#include <memory>
#include <vector>

#include "support/testsupport.h"

using testsupport::hex;
using testsupport::toHex;

namespace {

// A control over one OCTET STRING, written the way generated control classes are.
class OctetsControl : public ASN1CType {
public:
    explicit OctetsControl(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
    OctetsControl() : ASN1CType() {}
    std::vector<ASN1OCTET> value;
    const ASN1OCTET* decoded = nullptr;
    ASN1UINT decodedLen = 0;

    int EncodeTo(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        ASN1CTXT* ctxt = buf.getCtxtPtr();
        int len = xe_octstr(ctxt, value.data(), (ASN1UINT)value.size(), 1);
        return len < 0 ? rtErrSetData(&ctxt->errInfo, len) : len;
    }
    int DecodeFrom(ASN1MessageBufferIF& buf) override {
        setMsgBuf(buf);
        buf.init();
        ASN1CTXT* ctxt = buf.getCtxtPtr();
        int st = xd_octstr(ctxt, &decoded, &decodedLen, 1, 0);
        return st < 0 ? rtErrSetData(&ctxt->errInfo, st) : st;
    }
};

// A value that encodes to nothing.
class EmptyControl : public ASN1CType {
public:
    explicit EmptyControl(ASN1MessageBufferIF& buf) : ASN1CType(buf) {}
};

// An allocator that refuses from a given call on.
int g_allowed = -1;
void* limitedMalloc(void* ctx, size_t n) {
    if (g_allowed == 0) return nullptr;
    if (g_allowed > 0) --g_allowed;
    return rtDefaultMalloc(ctx, n);
}

struct MallocLimit {
    rtMallocFunc saved;
    explicit MallocLimit(int allowed) : saved(g_malloc_func) {
        g_allowed = allowed;
        g_malloc_func = limitedMalloc;
    }
    ~MallocLimit() {
        g_malloc_func = saved;
        g_allowed = -1;
    }
};

TEST(MessageBufferConstruction, ContextFailureThrowsRtlError) {
    MallocLimit limit(0);
    try {
        ASN1BERDecodeBuffer buf;
        FAIL() << "no exception";
    } catch (const ASN1MessageBuffer::RTLError& e) {
        EXPECT_EQ(-12, e.getStatus());
    }
    try {
        ASN1Context ctxt;
        FAIL() << "no exception";
    } catch (const ASN1RTLException& e) {
        EXPECT_EQ(-12, e.getStatus()) << "caught through the base as well";
    }
}

TEST(MessageBufferConstruction, EncodeBufferFailureThrowsAndReleases) {
    MallocLimit limit(1);  // the heap record, then no message buffer
    EXPECT_THROW(
        {
            try {
                ASN1BEREncodeBuffer buf;
            } catch (const ASN1MessageBuffer::RTLError& e) {
                EXPECT_EQ(-12, e.getStatus());
                throw;
            }
        },
        ASN1MessageBuffer::RTLError);
}

TEST(MessageBufferConstruction, StaticEncodeBufferNeedsNoMemory) {
    ASN1OCTET storage[8];
    MallocLimit limit(1);
    ASN1BEREncodeBuffer buf(storage, sizeof storage);
    ASN1CTXT* ctxt = buf.getCtxtPtr();
    EXPECT_EQ(storage, ctxt->bufData);
    EXPECT_EQ(0, ctxt->bufDynamic);
    EXPECT_EQ(7u, ctxt->bufIndex);
}

TEST(EncodeBuffer, FreshBufferCopiesOneOctet) {
    ASN1BEREncodeBuffer buf;
    ASN1CTXT* ctxt = buf.getCtxtPtr();
    EXPECT_EQ(16384u, ctxt->bufSize);
    EXPECT_EQ(1, ctxt->bufDynamic);
    std::unique_ptr<ASN1OCTET[]> copy(buf.getMsgCopy());
    ASSERT_NE(nullptr, copy.get()) << "bufSize - bufIndex is 1 before any encoding";
    EXPECT_EQ(ctxt->bufData + 16383, buf.getMsgPtr());
}

TEST(EncodeBuffer, StreamOperatorThrowsTheLength) {
    ASN1BEREncodeBuffer buf;
    OctetsControl v(buf);
    v.value = {0xAA, 0xBB, 0xCC};
    try {
        buf << v;
        FAIL() << "a positive length is thrown";
    } catch (const ASN1RTLException& e) {
        EXPECT_EQ(5, e.getStatus());
    }
    EXPECT_EQ("0403AABBCC", toHex(buf.getMsgPtr(), 5));

    std::unique_ptr<ASN1OCTET[]> copy(buf.getMsgCopy());
    EXPECT_EQ("0403AABBCC", toHex(copy.get(), 5)) << "the copy holds the message first";

    EmptyControl empty(buf);
    EXPECT_NO_THROW(buf << empty) << "only an encode of zero octets is quiet";
}

TEST(EncodeBuffer, InitRewindsAndEncodeToGivesTheLength) {
    ASN1BEREncodeBuffer buf;
    OctetsControl v(buf);
    v.value = {1, 2};
    EXPECT_EQ(4, v.EncodeTo(buf));
    EXPECT_EQ(4, v.Encode()) << "Encode uses the stored buffer";
    EXPECT_EQ("04020102", toHex(buf.getMsgPtr(), 4)) << "each encode starts the buffer over";
    EXPECT_EQ(16383, buf.init());
    EXPECT_EQ(16383u, buf.getCtxtPtr()->bufIndex);
}

TEST(EncodeBuffer, StaticBufferFillsThenRefuses) {
    ASN1OCTET storage[8];
    ASN1BEREncodeBuffer buf(storage, sizeof storage);
    OctetsControl v(buf);
    v.value = std::vector<ASN1OCTET>(5, 0x11);
    EXPECT_EQ(7, v.EncodeTo(buf)) << "N-1 octets fit";
    EXPECT_EQ(storage, buf.getMsgPtr());
    v.value.push_back(0x22);
    EXPECT_EQ(-1, v.EncodeTo(buf));
    EXPECT_EQ(-1, buf.getStatus());
    EXPECT_THROW(buf << v, ASN1RTLException);
}

TEST(EncodeBuffer, DynamicBufferGrowsAndKeepsTheBytes) {
    ASN1BEREncodeBuffer buf;
    OctetsControl v(buf);
    v.value.resize(40000);
    for (size_t i = 0; i < v.value.size(); ++i) v.value[i] = (ASN1OCTET)(i * 7);
    int len = v.EncodeTo(buf);
    ASSERT_EQ(40004, len);
    const ASN1OCTET* msg = buf.getMsgPtr();
    EXPECT_EQ("04829C40", toHex(msg, 4));
    EXPECT_EQ(0, memcmp(msg + 4, v.value.data(), v.value.size()));
    EXPECT_GE(buf.getCtxtPtr()->bufSize, 40005u);
}

TEST(EncodeBuffer, SetBufferSwitchesToStatic) {
    ASN1BEREncodeBuffer buf;
    ASN1OCTET storage[16];
    EXPECT_EQ(0, buf.setBuffer(storage, sizeof storage));
    EXPECT_EQ(storage + 15, buf.getMsgPtr());
}

TEST(MessageBuffers, StringInitialisersAreNotSupported) {
    ASN1BEREncodeBuffer enc;
    ASN1BERDecodeBuffer dec;
    char text[] = "x";
    unsigned short wide[] = {0x78, 0};
    EXPECT_EQ(-99, enc.initBuffer(text));
    EXPECT_EQ(-99, enc.initBuffer(wide));
    EXPECT_EQ(-99, dec.initBuffer(text));
    EXPECT_EQ(-99, dec.initBuffer(wide));
    EXPECT_EQ(nullptr, dec.getMsgCopy()) << "a decode buffer has no copy";
}

TEST(MessageBuffers, TypeTests) {
    ASN1BEREncodeBuffer enc;
    ASN1BERDecodeBuffer dec;
    EXPECT_TRUE(enc.isA(ASN1MessageBufferIF::BEREncode));
    EXPECT_FALSE(enc.isA(ASN1MessageBufferIF::BERDecode));
    EXPECT_FALSE(dec.isA(ASN1MessageBufferIF::BEREncode));
    EXPECT_TRUE(dec.isA(ASN1MessageBufferIF::BERDecode));
    EXPECT_EQ(0, (int)ASN1MessageBufferIF::BEREncode);
    EXPECT_EQ(1, (int)ASN1MessageBufferIF::BERDecode);
}

TEST(MessageBuffers, InitBufferFromMemoryBuffer) {
    ASN1MemBuf mem;
    const std::vector<uint8_t> bytes = hex("0403010203");
    ASSERT_EQ(0, mem.append(bytes.data(), (ASN1UINT)bytes.size()));
    ASN1BERDecodeBuffer dec;
    ASSERT_EQ(0, dec.initBuffer(mem));
    ASN1CTXT* ctxt = dec.getCtxtPtr();
    int len = 0;
    EXPECT_EQ(mem.getData(&len), ctxt->bufData);
    EXPECT_EQ(5u, ctxt->bufSize);
    EXPECT_EQ(0u, ctxt->bufIndex);
    const ASN1OCTET* data = nullptr;
    ASN1UINT n = 0;
    EXPECT_EQ(0, xd_octstr(ctxt, &data, &n, 1, 0));
    EXPECT_EQ("010203", toHex(data, n));
}

TEST(DecodeBuffer, AttachesOnceAndReadsInTurn) {
    const std::vector<uint8_t> msg = hex("04020a0b");
    ASN1BERDecodeBuffer dec(msg.data(), (int)msg.size());
    EXPECT_FALSE(dec.isAttached()) << "no parsing at construction";
    OctetsControl v(dec);
    EXPECT_EQ(0, v.DecodeFrom(dec));
    EXPECT_EQ("0A0B", toHex(v.decoded, v.decodedLen));
    EXPECT_TRUE(dec.isAttached());
    ASN1CTXT* ctxt = dec.getCtxtPtr();
    EXPECT_EQ(4u, ctxt->bufIndex);
    EXPECT_EQ(0, dec.init());
    EXPECT_EQ(4u, ctxt->bufIndex) << "a second init does not rewind";
    EXPECT_EQ(msg.data(), dec.getMsgPtr());

    EXPECT_EQ(0, dec.setBuffer(msg.data(), (int)msg.size()));
    EXPECT_EQ(4u, ctxt->bufIndex) << "the same message again does not rewind";
    const std::vector<uint8_t> other = hex("0401ff");
    EXPECT_EQ(0, dec.setBuffer(other.data(), (int)other.size()));
    EXPECT_EQ(0u, ctxt->bufIndex);
    EXPECT_EQ(3u, ctxt->bufSize);
}

TEST(DecodeBuffer, StreamOperatorThrowsTheStatus) {
    const std::vector<uint8_t> msg = hex("020105");
    ASN1BERDecodeBuffer dec(msg.data(), (int)msg.size());
    OctetsControl v(dec);
    try {
        dec >> v;
        FAIL() << "no exception";
    } catch (const ASN1RTLException& e) {
        EXPECT_EQ(-3, e.getStatus()) << "an INTEGER is no OCTET STRING";
    }
    EXPECT_EQ(-3, dec.getStatus());
    EXPECT_EQ(-3, v.getStatus()) << "the status is shared through the context";

    const std::vector<uint8_t> good = hex("0400");
    ASN1BERDecodeBuffer dec2(good.data(), (int)good.size());
    OctetsControl w(dec2);
    EXPECT_NO_THROW(dec2 >> w);
    EXPECT_EQ(0u, w.decodedLen);
}

TEST(DecodeBuffer, BadOuterHeaderShowsUpOnInit) {
    const std::vector<uint8_t> msg = hex("0405aa");  // length past the end
    ASN1BERDecodeBuffer dec(msg.data(), (int)msg.size());
    EXPECT_EQ(-5, dec.init());
    EXPECT_EQ(0, dec.init()) << "attached all the same";
}

TEST(DecodeBuffer, FindElementSearchesInTurn) {
    // SEQUENCE { INTEGER 5, OCTET STRING 'ab', [0] { INTEGER 7 } }
    const std::vector<uint8_t> msg = hex("300c020105040261" "62a003020107");
    ASN1BERDecodeBuffer dec(msg.data(), (int)msg.size());
    int len = -1;
    const ASN1OCTET* p = dec.findElement(0x20000010u, len, 1);
    EXPECT_EQ(msg.data(), p);
    EXPECT_EQ(12, len);

    p = dec.findElement(0x00000002u, len, 1);
    ASSERT_EQ(msg.data() + 2, p) << "a new search starts at the message";
    EXPECT_EQ(1, len);
    p = dec.findElement(0x00000002u, len, 0);
    ASSERT_EQ(msg.data() + 11, p) << "the search goes on inside [0]";
    EXPECT_EQ(1, len);
    EXPECT_EQ(nullptr, dec.findElement(0x00000002u, len, 0));
    EXPECT_EQ(nullptr, dec.findElement(0x00000006u, len, 1));
}

// A decode buffer over the bytes of a certificate file: the outer element spans the file,
// and a search for UTCTime or GeneralizedTime finds notBefore, then notAfter.
TEST(DecodeBuffer, OverCorpusFiles) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int found = 0;
    for (const std::string& path : testsupport::corpusFiles("cert")) {
        if (path.find("/bad/") != std::string::npos) continue;
        const std::vector<uint8_t> der = testsupport::readFile(path);
        if (der.size() < 4 || der[0] != 0x30) continue;
        SCOPED_TRACE(path);
        ASN1BERDecodeBuffer dec(der.data(), (int)der.size());
        int len = 0;
        ASSERT_EQ(der.data(), dec.findElement(0x20000010u, len, 1));
        const int header = der[1] < 0x80 ? 2 : 2 + (der[1] & 0x7F);
        EXPECT_EQ(der.size(), (size_t)(header + len));
        const ASN1OCTET* first = dec.findElement(ASN_ID_UTCTime, len, 1);
        ASN1TAG kind = ASN_ID_UTCTime;
        if (!first) {
            kind = ASN_ID_GeneralTime;
            first = dec.findElement(kind, len, 1);
        }
        ASSERT_NE(nullptr, first);
        EXPECT_EQ(kind, (ASN1TAG)first[0]);
        const ASN1OCTET* second = dec.findElement(kind, len, 0);
        if (!second && kind == ASN_ID_UTCTime) {
            // notAfter past 2049 is a GeneralizedTime
            second = dec.findElement(ASN_ID_GeneralTime, len, 1);
        }
        ASSERT_NE(nullptr, second);
        EXPECT_GT(second, first);
        ++found;
    }
    EXPECT_GT(found, 50);
}

TEST(ContextSharing, ControlSharesTheBuffersContext) {
    ASN1BERDecodeBuffer dec;
    ASN1CTXT* ctxt = dec.getCtxtPtr();
    {
        ASN1CtxtPtr ref = dec.getContext();
        EXPECT_EQ(2u, ref->getRefCount()) << "the buffer and this reference";
        EXPECT_EQ(ctxt, ref->GetPtr());
        EXPECT_EQ((void*)ctxt, (void*)ref.get()) << "the record is the object's first member";
    }
    OctetsControl v(dec);
    EXPECT_EQ(ctxt, v.getCtxtPtr());
    EXPECT_EQ(2u, v.getContext()->getRefCount() - 1);
    rtErrSetData(&ctxt->errInfo, -18);
    EXPECT_EQ(-18, v.getStatus());
}

TEST(ContextSharing, ControlOutlivesItsBuffer) {
    const std::vector<uint8_t> msg = hex("0403c0ffee");
    OctetsControl* v = nullptr;
    {
        ASN1BERDecodeBuffer dec(msg.data(), (int)msg.size());
        v = new OctetsControl(dec);
        ASSERT_EQ(0, v->DecodeFrom(dec));
    }
    // The buffer is gone; its context, with the decoded copy on its heap, is not.
    ASN1CTXT* ctxt = v->getCtxtPtr();
    ASSERT_NE(nullptr, ctxt);
    EXPECT_EQ(0x1aa2a34au, ctxt->magic);
    EXPECT_EQ(1u, v->getContext()->getRefCount() - 1);
    EXPECT_EQ("C0FFEE", toHex(v->decoded, v->decodedLen));
    delete v;
}

TEST(ContextSharing, SetMsgBufMovesTheTypeHeap) {
    ASN1BEREncodeBuffer buf;
    OctetsControl own;  // a context of its own
    ASN1CTXT* mine = own.getCtxtPtr();
    ASN1CTXT* theirs = buf.getCtxtPtr();
    ASSERT_NE(mine, theirs);
    ASSERT_NE(mine->typeHeap, theirs->typeHeap);
    unsigned before = ((RtMemHeap*)theirs->typeHeap)->refCnt;
    own.setMsgBuf(buf);
    EXPECT_EQ(&buf, own.getMsgBuf());
    EXPECT_EQ(mine->typeHeap, theirs->typeHeap);
    EXPECT_EQ(before + 1, ((RtMemHeap*)theirs->typeHeap)->refCnt);
    own.value = {9};
    EXPECT_EQ(3, own.Encode());
}

TEST(ContextSharing, ControlWithoutBufferCannotEncode) {
    OctetsControl own;
    EXPECT_EQ(nullptr, own.getMsgBuf());
    EXPECT_EQ(-30, own.Encode());
    EXPECT_EQ(-30, own.Decode());
}

TEST(CountedContext, LastUnrefDeletes) {
    ASN1Context* c = new ASN1Context;
    EXPECT_EQ(0u, c->getRefCount());
    c->_ref();
    c->_ref();
    {
        ASN1CtxtPtr p(c);
        ASN1CtxtPtr q = p;
        ASN1CtxtPtr r;
        r = q;
        EXPECT_EQ(5u, c->getRefCount());
        EXPECT_EQ(nullptr, (ASN1Context*)ASN1CtxtPtr());
    }
    EXPECT_EQ(2u, c->getRefCount());
    c->_unref();
    EXPECT_EQ(1u, c->getRefCount());
    EXPECT_EQ(0x1aa2a34au, c->GetPtr()->magic);
    c->_unref();  // deleted here; a leak checker sees it
}

TEST(MemBuf, SharesAGivenContext) {
    ASN1Context* c = new ASN1Context;
    c->_ref();
    {
        ASN1MemBuf mem(*c, 4);
        EXPECT_EQ(2u, c->getRefCount());
        const ASN1OCTET bytes[] = {1, 2, 3, 4, 5, 6};
        EXPECT_EQ(0, mem.append(bytes, 6));
        int len = 0;
        EXPECT_EQ("010203040506", toHex(mem.getData(&len), 6));
        EXPECT_EQ(6, len);
        EXPECT_EQ(8u, mem.getBuffer()->bufsize) << "grows by whole segments";
    }
    EXPECT_EQ(1u, c->getRefCount());
    c->_unref();
}

// Buffer failures are statuses and exceptions only: the thread's last error stays.
TEST(MessageBufferConstruction, FailuresLeaveTheLastErrorAlone) {
    SetLastError(4321);
    {
        MallocLimit limit(0);
        EXPECT_THROW(ASN1BEREncodeBuffer(), ASN1MessageBuffer::RTLError);
    }
    ASN1OCTET storage[4];
    ASN1BEREncodeBuffer buf(storage, sizeof storage);
    OctetsControl v(buf);
    v.value = {1, 2, 3};
    EXPECT_EQ(-1, v.EncodeTo(buf));
    EXPECT_EQ(4321u, GetLastError());
}

TEST(Layout, ContextRecordComesFirst) {
    static_assert(sizeof(ASN1RTLException) == 2 * sizeof(void*), "vtable and status");
    static_assert(sizeof(ASN1MessageBuffer::RTLError) == sizeof(ASN1RTLException), "adds nothing");
    static_assert(sizeof(ASN1CType) == 3 * sizeof(void*), "vtable, context, buffer");
    static_assert(sizeof(ASN1BEREncodeBuffer) == sizeof(ASN1MessageBuffer), "no own field");
    static_assert(sizeof(ASN1MessageBuffer) == 3 * sizeof(void*), "vtable, context, type");
    static_assert(sizeof(ASN1BERDecodeBuffer) == (sizeof(void*) == 8 ? 40 : 24),
                  "message, size and flag behind the base");
    ASN1Context* c = new ASN1Context;
    c->_ref();
    EXPECT_EQ((void*)c, (void*)c->GetPtr());
    c->_unref();
}

}  // namespace
