// The stream layer, the stream classes OSCStream, OSCInputStream and OSCStreamException, rtdiag and the
// hexadecimal dump.
#include "asn1rt/lists.h"
#include "asn1rt/oscstream.h"
#include "rt_alloc_counter.h"

#include <cstdio>

using namespace rttest;

namespace {

std::string dump(const void* data, ASN1UINT count, ASN1UINT wordSize)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* f = open_memstream(&text, &size);
    const auto* octets = static_cast<const ASN1OCTET*>(data);
    wordSize == 1 ? rtHexDumpToFile(f, octets, count) : rtHexDumpToFileEx(f, octets, count, wordSize);
    fclose(f);
    const std::string out(text, size);
    return free(text), out;
}

std::string captured(void (*body)())
{
    testing::internal::CaptureStdout();
    return body(), fflush(stdout), testing::internal::GetCapturedStdout();
}

class RtStream : public CountedContext {
protected:
    // A stream record wired to the fake transport, unbuffered or with the 1024-octet buffer.
    Asn1RTStream* open(ASN1USINT flags, bool buffered = false)
    {
        EXPECT_EQ(buffered ? rtStreamBufInit(&ctxt) : rtStreamInit(&ctxt), 0);
        FakeTransport::wire(ctxt.stream, flags);
        return ctxt.stream;
    }
    FakeTransport fake;
};

// Every refusal of a stream function in the wrong state: the status it returns and the one
// the error block keeps (none for a refused direct read or flush of the transport).
TEST_F(RtStream, RefusalsPlainAndBufferedStreams)
{
    const ASN1USINT IN = RT_STREAM_INPUT, OUT = RT_STREAM_OUTPUT, BUF = RT_STREAM_BUFFERED;
    // stream: 0 none, 1 plain, 2 buffered with an octet pending; missing: the transport function left null
    const struct { const char* call; int stream; ASN1USINT flags; char missing; int result; } rows[] = {
        {"flush", 0, 0, 0, -30}, {"flush", 1, IN, 0, -30}, {"flush", 1, OUT, 'f', 0}, {"write", 0, 0, 0, -32},
        {"write", 1, IN, 0, -32}, {"write", 1, OUT, 'w', -32}, {"read", 0, 0, 0, -32}, {"read", 1, OUT, 0, -32},
        {"read", 1, IN, 'r', -32}, {"iobytes", 0, 0, 0, -32}, {"close", 0, 0, 0, -32}, {"close", 1, OUT, 'c', -32},
        {"close", 1, 0, 0, -32} /* neither input nor output */, {"close", 1, OUT, 'f', 0}, {"close", 1, IN, 0, 0},
        {"bufflush", 0, 0, 0, -30}, {"bufflush", 2, BUF | OUT, 'w', -32} /* octets pending, no write */,
        {"bufflush", 1, IN, 0, -30}, {"bufclose", 0, 0, 0, -30}, {"bufclose", 1, 0, 0, -32},
        {"bufflush", 2, BUF, 0, -30},  // buffered but not for output: the octets go, rtStreamFlush refuses
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.call << ", stream " << r.stream << ", flags " << r.flags);
        EXPECT_EQ(make_tuple(rtStreamRelease(&ctxt), ctxt.stream), make_tuple(0, nullptr));  // also with no stream
        rtErrReset(&ctxt.errInfo), fake.clear();
        if (Asn1RTStream* s = r.stream != 0 ? open(0, r.stream == 2) : nullptr) {
            s->flags = r.flags, ctxt.bufIndex = r.stream == 2 ? 1 : 0;
            s->flush = r.missing == 'f' ? nullptr : s->flush, s->close = r.missing == 'c' ? nullptr : s->close;
            s->read = r.missing == 'r' ? nullptr : s->read, s->write = r.missing == 'w' ? nullptr : s->write;
        }
        ASN1OCTET buf[4] = {};
        const std::string c = r.call;
        const int got = c == "flush" ? rtStreamFlush(&ctxt) : c == "write" ? rtStreamWrite(&ctxt, buf, 1)
                      : c == "read" ? rtStreamRead(&ctxt, buf, 1) : c == "iobytes" ? rtStreamGetIOBytes(&ctxt)
                      : c == "close" ? rtStreamClose(&ctxt) : c == "bufflush" ? rtStreamBufFlush(&ctxt)
                                     : rtStreamBufClose(&ctxt);
        const int writes = r.stream == 2 && r.flags == BUF;
        EXPECT_EQ(make_tuple(got, ctxt.errInfo.status, fake.writes, fake.flushes), make_tuple(r.result, r.result, writes, 0));
        EXPECT_TRUE(c != "close" || r.result != 0 || ctxt.stream->flags == 0) << "a good close clears the flags";
    }
    rtStreamRelease(&ctxt), rtErrReset(&ctxt.errInfo), fake.clear();
    Asn1RTStream* s = open(RT_STREAM_OUTPUT);
    // A positive result still counts the octets, a negative one is returned bare and counts nothing.
    EXPECT_EQ((Ints{rtStreamWrite(&ctxt, bytes("abc"), 3), (fake.writeResult = 1, rtStreamWrite(&ctxt, bytes("de"), 2)),
                    (fake.writeResult = -1, rtStreamWrite(&ctxt, bytes("fg"), 2)), int(s->ioBytes), rtStreamGetIOBytes(&ctxt),
                    ctxt.errInfo.status}), (Ints{0, 1, -1, 5, 5, 0}));
    EXPECT_EQ(fake.written, "abcde");
    // Close of an output stream: a failing flush is returned and the stream stays open.
    EXPECT_EQ((Ints{(fake.flushResult = 5, rtStreamFlush(&ctxt)), (fake.flushResult = -7, rtStreamClose(&ctxt)), s->flags,
                    fake.closes, ctxt.errInfo.status}), (Ints{5, -7, RT_STREAM_OUTPUT, 0, 0}));
    EXPECT_EQ((Ints{(fake.flushResult = 0, fake.closeResult = 3, rtStreamClose(&ctxt)), s->flags, fake.closes, fake.flushes}),
              (Ints{3, 0, 1, 3}));  // then the result of close
    s->flags = RT_STREAM_INPUT, s->ioBytes = 0, fake.source = "hello";
    ASN1OCTET buf[8] = {};
    EXPECT_EQ((Ints{rtStreamRead(&ctxt, buf, 3), rtStreamRead(&ctxt, buf + 3, 8), rtStreamRead(&ctxt, buf, 8),
                    (fake.readResult = -2, rtStreamRead(&ctxt, buf, 8)), std::memcmp(buf, "hello", 5),
                    rtStreamGetIOBytes(&ctxt), ctxt.errInfo.status}), (Ints{3, 2, 0, -2, 0, 5, 0}));
    rtStreamRelease(&ctxt), rtErrReset(&ctxt.errInfo), fake.clear();  // buffered streams
    alloc.failNext(1, 1);  // the stream record succeeds, the buffer fails
    EXPECT_EQ((Ints{rtStreamBufInit(&ctxt), ctxt.errInfo.status, ctxt.stream->flags}), (Ints{RT_E_NO_MEMORY, -12, 0}));
    rtStreamRelease(&ctxt), rtErrReset(&ctxt.errInfo);
    Asn1RTStream* buffered = open(RT_STREAM_OUTPUT, true);
    EXPECT_EQ(make_tuple(buffered->bufsize, buffered->flags, ctxt.bufSize, ctxt.bufDynamic, ctxt.bufIndex, ctxt.bitOffset,
                         ctxt.savedState.index, rtStreamBufWrite(&ctxt, bytes("abc"), 3)),
              make_tuple(1024u, ASN1USINT(RT_STREAM_BUFFERED | RT_STREAM_OUTPUT), 1024u, ASN1UINT8(1), 3u, ASN1SINT(8),
                         0xffffffffu, 0));
    // 3 + 1022 > 1024: the buffered octets go first, then the new ones are buffered.
    const std::string x(1022, 'x'), y(1024, 'y'), w(5000, 'w');
    EXPECT_EQ((Ints{fake.writes, rtStreamBufWrite(&ctxt, bytes(x.c_str()), 1022), fake.written == "abc", int(buffered->ioBytes),
                    int(ctxt.bufIndex), std::memcmp(ctxt.bufData, x.data(), 1022)}), (Ints{0, 0, 1, 3, 1022, 0}));
    // 1024 octets or more go past the buffer, directly to the write function.
    EXPECT_EQ((std::vector<int>{rtStreamBufWrite(&ctxt, bytes(y.c_str()), 1024), rtStreamBufWrite(&ctxt, bytes("z"), 1),
                                rtWriteBytes(&ctxt, bytes(w.c_str()), 5000)}), std::vector<int>(3, 0));  // rtWriteBytes too
    EXPECT_EQ(make_tuple(fake.written, buffered->ioBytes, ctxt.bufIndex), make_tuple("abc" + x + y + "z" + w, 7050u, 0u));
    // Flush writes the pending octets directly (not counted), then flushes.
    EXPECT_EQ((Ints{rtWriteBytes(&ctxt, bytes("hello"), 5), rtStreamBufFlush(&ctxt), rtStreamBufFlush(&ctxt)}), Ints(3, 0));
    EXPECT_EQ(make_tuple(fake.written.substr(fake.written.size() - 5), buffered->ioBytes, fake.writes, fake.flushes,
                         ctxt.errInfo.status), make_tuple(std::string("hello"), 7050u, 6, 2, 0));

    ctxt.bufIndex = 1000;  // rtCheckBuffer flushes a stream first; still too large, the dynamic buffer grows
    EXPECT_EQ((Ints{rtCheckBuffer(&ctxt, 100), int(fake.written.size()), int(ctxt.bufIndex), int(ctxt.bufSize),
                    rtCheckBuffer(&ctxt, 2000), int(ctxt.bufSize)}), (Ints{0, 8055, 0, 1024, 0, 1024 + 16384}));
    // Close flushes what is pending and closes.
    EXPECT_EQ((std::vector<int>{rtStreamBufWrite(&ctxt, bytes("tail"), 4), rtStreamBufClose(&ctxt)}), std::vector<int>(2, 0));
    EXPECT_EQ(make_tuple(fake.written.substr(fake.written.size() - 4), fake.closes, buffered->flags),
              make_tuple(std::string("tail"), 1, ASN1USINT(0)));
    // Transport failures in the buffered layer: which are recorded in the error block.
    Asn1RTStream* failing = (fake.clear(), open(RT_STREAM_OUTPUT, true));
    const std::string big(2000, 'q');
    // Even a positive result of a direct write is recorded; buffered octets that cannot go are returned bare and kept;
    // a failing flush is recorded, by rtCheckBuffer too; a failing flush on close is recorded and nothing is closed;
    // input only: straight to rtStreamClose.
    EXPECT_EQ((Ints{(fake.writeResult = 4, rtStreamBufWrite(&ctxt, bytes(big.c_str()), 2000)), ctxt.errInfo.status,
                    (rtErrReset(&ctxt.errInfo), fake.writeResult = 0, rtStreamBufWrite(&ctxt, bytes("abc"), 3)),
                    (fake.writeResult = -9, rtStreamBufWrite(&ctxt, bytes(big.c_str()), 1022)), int(ctxt.bufIndex),
                    ctxt.errInfo.status,
                    (fake.writeResult = -4, rtStreamBufFlush(&ctxt)), int(ctxt.bufIndex), ctxt.errInfo.status,
                    (rtErrReset(&ctxt.errInfo), fake.writeResult = -3, ctxt.bufIndex = ctxt.bufSize, rtCheckBuffer(&ctxt, 1)),
                    ctxt.errInfo.status}), (Ints{4, 4, 0, -9, 3, 0, -4, 3, -4, -3, -3}));
    rtErrReset(&ctxt.errInfo), fake.writeResult = 0, fake.flushResult = -6;
    failing->flags = RT_STREAM_BUFFERED | RT_STREAM_OUTPUT;
    EXPECT_EQ((Ints{rtStreamBufClose(&ctxt), ctxt.errInfo.status, fake.closes,
                    (failing->flags = RT_STREAM_INPUT, rtStreamBufClose(&ctxt)), fake.closes}), (Ints{-6, -6, 0, 0, 1}));
    // Diagnostics print only with g_debug set.
    auto both = [] { rtdiag("value %d of %s\n", 3, "x"), rtDiagHexDump(reinterpret_cast<const ASN1OCTET*>("A"), 1); };
    EXPECT_EQ(make_tuple(g_debug, captured(both)), make_tuple(0u, std::string()));
    rtSetDiag(0x100);
    EXPECT_EQ(make_tuple(g_debug, captured(both)), make_tuple(0x100u, "value 3 of x\n41" + std::string(46, ' ') + " A\n"));
    rtSetDiag(0);
    const ASN1UINT one = 1;  // the hexadecimal dump
    const bool le = *reinterpret_cast<const unsigned char*>(&one) == 1;  // words print most significant first
    const std::string b40(40, ' ');
    const struct { const char* data; ASN1UINT count, wordSize; std::string expect; } dumps[] = {
        {"ABCDEFGHIJKLMNOPQ", 17, 1,  // a full line and a partial one of one item
         "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n51" + std::string(46, ' ') + " Q\n"},
        {"\x00\x01\x1f\x20\x21\x30\x39\x41\x5a\x61\x7a\x7e\x7f\x80\xc3\xff", 16, 1,
         "00 01 1f 20 21 30 39 41 5a 61 7a 7e 7f 80 c3 ff  ... !09AZaz~....\n"},
        // 0x7F prints ".", a blank a blank; trailing blanks of a partial line's text go.
        {"\x20\x7f\x41", 3, 1, "20 7f 41" + b40 + "  .A\n"}, {"\x41\x20\x20", 3, 1, "41 20 20" + b40 + " A\n"},
        {" ", 1, 1, "20" + std::string(46, ' ') + " \n"}, {"", 0, 1, ""}, {"abc", 3, 4, ""},  // nothing, or under one word
        {"\x01\x02\x41\x42\x05\x06", 6, 4, (le ? "42410201" : "01024142") + b40 + " ..AB\n"},  // whole words only
        {"ABCDEFGHIJKL", 12, 8,  // 16 / 8 = 2 items a line, each a 4-octet word
         (le ? "44434241 48474645 " : "41424344 45464748 ") + std::string(30, ' ') + " ABCDEFGH        \n" +
             (le ? "4c4b4a49" : "494a4b4c") + b40 + " IJKL\n"},
    };
    for (const auto& d : dumps)
        EXPECT_EQ(dump(d.data, d.count, d.wordSize), d.expect) << d.count << " octets, word size " << d.wordSize;
}

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
