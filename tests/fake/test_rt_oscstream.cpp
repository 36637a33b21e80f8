// The stream classes OSCStream, OSCInputStream and OSCStreamException.
#include "asn1rt/oscstream.h"
#include "rt_alloc_counter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using rttest::CountingAllocator;

namespace {

struct Transport {
    std::string written;
    std::string source;
    size_t pos = 0;
    int flushes = 0;
    int closes = 0;
    int closeResult = 0;
};
Transport* g_t = nullptr;

int tWrite(Asn1RTStream*, const ASN1OCTET* data, ASN1UINT count)
{
    g_t->written.append(reinterpret_cast<const char*>(data), count);
    return 0;
}
int tRead(Asn1RTStream*, ASN1OCTET* dest, ASN1UINT count)
{
    size_t n = std::min<size_t>(count, g_t->source.size() - g_t->pos);
    std::memcpy(dest, g_t->source.data() + g_t->pos, n);
    g_t->pos += n;
    return static_cast<int>(n);
}
int tFlush(Asn1RTStream*)
{
    g_t->flushes++;
    return 0;
}
int tClose(Asn1RTStream*)
{
    g_t->closes++;
    return g_t->closeResult;
}

void wire(OSCStream& s, ASN1USINT flags)
{
    Asn1RTStream* r = s.getCtxtPtr()->stream;
    r->read = tRead;
    r->write = tWrite;
    r->flush = tFlush;
    r->close = tClose;
    r->flags = static_cast<ASN1USINT>(r->flags | flags);
}

class RtOSCStream : public testing::Test {
protected:
    void SetUp() override { g_t = &t; }
    void TearDown() override
    {
        EXPECT_EQ(alloc.live(), 0u);
        g_t = nullptr;
    }
    CountingAllocator alloc;
    Transport t;
};

TEST_F(RtOSCStream, DefaultConstructorHasABufferedRecordButTakesTheUnbufferedWay)
{
    OSCStream s;
    EXPECT_EQ(s.isBuffered(), 0);
    ASSERT_NE(s.getContext(), nullptr);
    EXPECT_EQ(s.getContext()->getRefCount(), 1u);
    ASN1CTXT* pctxt = s.getCtxtPtr();
    ASSERT_NE(pctxt->stream, nullptr);
    EXPECT_EQ(pctxt->stream->flags, RT_STREAM_BUFFERED);
    EXPECT_EQ(pctxt->stream->bufsize, 1024u);
    EXPECT_EQ(pctxt->bufSize, 1024u);
    // rtStreamFlush: not open for output.
    try {
        s.flush();
        FAIL() << "no exception";
    } catch (const OSCStreamException& e) {
        EXPECT_EQ(e.getStatus(), RT_E_BAD_ARGUMENT);
    }
    wire(s, RT_STREAM_OUTPUT);
    EXPECT_EQ(s.flush(), 0);
    EXPECT_EQ(t.flushes, 1);
    EXPECT_EQ(s.close(), 0);
    EXPECT_EQ(t.closes, 1);
    EXPECT_EQ(pctxt->stream->flags, 0);
    // A second close: neither input nor output.
    EXPECT_THROW(s.close(), OSCStreamException);
}

TEST_F(RtOSCStream, BufferedStreamCollectsAndFlushes)
{
    {
        OSCStream s(1);
        EXPECT_EQ(s.isBuffered(), 1);
        ASN1CTXT* pctxt = s.getCtxtPtr();
        wire(s, RT_STREAM_OUTPUT);
        ASSERT_EQ(rtWriteBytes(pctxt, reinterpret_cast<const ASN1OCTET*>("abc"), 3), 0);
        EXPECT_EQ(t.written, "");
        EXPECT_EQ(s.flush(), 0);
        EXPECT_EQ(t.written, "abc");
        ASSERT_EQ(rtWriteBytes(pctxt, reinterpret_cast<const ASN1OCTET*>("de"), 2), 0);
    }
    // The destructor closed it: buffered octets flushed, close called.
    EXPECT_EQ(t.written, "abcde");
    EXPECT_EQ(t.closes, 1);
}

TEST_F(RtOSCStream, UnbufferedStream)
{
    OSCStream s(0);
    ASN1CTXT* pctxt = s.getCtxtPtr();
    ASSERT_NE(pctxt->stream, nullptr);
    EXPECT_EQ(pctxt->stream->flags, 0);
    EXPECT_EQ(pctxt->bufData, nullptr);
    EXPECT_THROW(s.close(), OSCStreamException);  // no close function
    wire(s, RT_STREAM_OUTPUT);
    t.closeResult = 2;
    try {
        s.close();
        FAIL() << "no exception";
    } catch (const OSCStreamException& e) {
        EXPECT_EQ(e.getStatus(), 2);  // any non-zero result throws
    }
}

TEST_F(RtOSCStream, DestructorIgnoresACloseFailure)
{
    { OSCStream s(0); }  // rtStreamClose gives -32 and is ignored
    { OSCStream s(1); }  // rtStreamBufClose gives -32 and is ignored
    SUCCEED();
}

TEST_F(RtOSCStream, ConstructorFailureThrows)
{
    alloc.failNext(1, 2);  // heap record, stream record succeed; the 1024-octet buffer fails
    try {
        OSCStream s(1);
        FAIL() << "no exception";
    } catch (const OSCStreamException& e) {
        EXPECT_EQ(e.getStatus(), RT_E_NO_MEMORY);
    }
    alloc.failNext(1, 2);
    EXPECT_THROW(OSCStream s, OSCStreamException);
}

TEST_F(RtOSCStream, InputStreamReads)
{
    OSCInputStream in;
    EXPECT_EQ(in.isBuffered(), 0);
    unsigned char buf[8] = {};
    try {
        in.read(buf, 4);  // not open for input
        FAIL() << "no exception";
    } catch (const OSCStreamException& e) {
        EXPECT_EQ(e.getStatus(), RT_E_NOT_READY);
    }
    wire(in, RT_STREAM_INPUT);
    t.source = "abcdef";
    EXPECT_EQ(in.currentPos(), 0);
    EXPECT_EQ(in.read(buf, 4), 4);
    EXPECT_EQ(in.currentPos(), 4);
    EXPECT_EQ(in.read(buf + 4, 4), 2);
    EXPECT_EQ(std::memcmp(buf, "abcdef", 6), 0);
    EXPECT_EQ(in.read(buf, 4), 0);
    EXPECT_EQ(in.currentPos(), 6);
    OSCStream& base = in;
    EXPECT_EQ(base.close(), 0);  // input: no flush, close
    EXPECT_EQ(t.flushes, 0);
    EXPECT_EQ(t.closes, 1);
}

TEST(RtOSCStreamShape, ExceptionDerivesFromTheRuntimeException)
{
    OSCStreamException e(-32);
    ASN1RTLException& base = e;
    EXPECT_EQ(base.getStatus(), -32);
    EXPECT_TRUE((std::is_polymorphic<OSCStream>::value));
    EXPECT_TRUE((std::is_base_of<OSCStream, OSCInputStream>::value));
    EXPECT_EQ(sizeof(OSCInputStream), sizeof(OSCStream));
}

}  // namespace
