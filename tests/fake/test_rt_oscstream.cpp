// The stream classes OSCStream, OSCInputStream and OSCStreamException.
#include "asn1rt/oscstream.h"
#include "rt_alloc_counter.h"

using namespace rttest;

namespace {

void wire(OSCStream& s, ASN1USINT flags) { FakeTransport::wire(s.getCtxtPtr()->stream, flags); }
template <class F>
int thrown(F call) { return rttest::thrown<OSCStreamException>(call); }

struct RtOSCStream : testing::Test {
    void TearDown() override { EXPECT_EQ(alloc.live(), 0u); }
    CountingAllocator alloc;
    FakeTransport t;
};

TEST_F(RtOSCStream, DefaultConstructorHasABufferedRecordButTakesTheUnbufferedWay)
{
    OSCStream s;
    ASN1CTXT* pctxt = s.getCtxtPtr();
    ASSERT_TRUE(s.getContext() != nullptr && pctxt->stream != nullptr);
    EXPECT_EQ(make_tuple(s.isBuffered(), s.getContext()->getRefCount(), pctxt->stream->flags, pctxt->stream->bufsize,
                         pctxt->bufSize), make_tuple(0, 1u, ASN1USINT(RT_STREAM_BUFFERED), 1024u, 1024u));
    // rtStreamFlush: not open for output; a close leaves neither input nor output.
    EXPECT_EQ((Ints{thrown([&] { s.flush(); }), (wire(s, RT_STREAM_OUTPUT), s.flush()), s.close(), t.flushes, t.closes,
                    pctxt->stream->flags, thrown([&] { s.close(); })}), (Ints{RT_E_BAD_ARGUMENT, 0, 0, 2, 1, 0, RT_E_NOT_READY}));
    // Failures throw, except in the destructor.
    {
        OSCStream s(0);
        EXPECT_EQ(make_tuple(s.getCtxtPtr()->stream->flags, s.getCtxtPtr()->bufData), make_tuple(ASN1USINT(0), nullptr));
        // No close function; then any non-zero result throws.
        EXPECT_EQ((Ints{thrown([&] { s.close(); }), (wire(s, RT_STREAM_OUTPUT), t.closeResult = 2, thrown([&] { s.close(); }))}),
                  (Ints{RT_E_NOT_READY, 2}));
    }
    { OSCStream s(0); }  // rtStreamClose gives -32 and is ignored
    { EXPECT_EQ(OSCStream(1).isBuffered(), 1); }  // rtStreamBufClose gives -32 and is ignored
    // Heap record and stream record succeed; the buffer fails.
    EXPECT_EQ((Ints{(alloc.failNext(1, 2), thrown([] { OSCStream(1); })), (alloc.failNext(1, 2), thrown([] { OSCStream s; }))}),
              (Ints{RT_E_NO_MEMORY, RT_E_NO_MEMORY}));
    t.clear();  // an input stream reads
    OSCInputStream in;
    unsigned char buf[8] = {};
    EXPECT_EQ((Ints{in.isBuffered(), thrown([&] { in.read(buf, 4); })}), (Ints{0, RT_E_NOT_READY}));  // not for input
    wire(in, RT_STREAM_INPUT);
    t.source = "abcdef";
    EXPECT_EQ((Ints{in.currentPos(), in.read(buf, 4), in.currentPos(), in.read(buf + 4, 4), in.read(buf, 4), in.currentPos()}),
              (Ints{0, 4, 4, 2, 0, 6}));
    OSCStream& base = in;  // input: no flush, close
    EXPECT_EQ((Ints{std::memcmp(buf, "abcdef", 6), base.close(), t.flushes, t.closes}), (Ints{0, 0, 0, 1}));
    static_assert(std::is_base_of<ASN1RTLException, OSCStreamException>::value && sizeof(OSCInputStream) == sizeof(OSCStream),
                  "an input stream adds no field");
}

}  // namespace
