// The stream layer, rtdiag and the hexadecimal dump.
#include "asn1rt/context.h"
#include "asn1rt/lists.h"
#include "asn1rt/stream.h"
#include "rt_alloc_counter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

using rttest::blockOf;
using rttest::CountingAllocator;

namespace {

// A transport of the test's own: writes collect in `written`, reads come from `source`.
struct FakeTransport {
    std::string written;
    std::string source;
    size_t readPos = 0;
    int writeCalls = 0;
    int flushCalls = 0;
    int closeCalls = 0;
    int writeResult = 0;
    int flushResult = 0;
    int closeResult = 0;
    int readResult = 0;  // 0: the count read
};
FakeTransport* g_fake = nullptr;

int fakeWrite(Asn1RTStream*, const ASN1OCTET* data, ASN1UINT count)
{
    g_fake->writeCalls++;
    if (g_fake->writeResult < 0)
        return g_fake->writeResult;
    if (count != 0)
        g_fake->written.append(reinterpret_cast<const char*>(data), count);
    return g_fake->writeResult;
}

int fakeRead(Asn1RTStream*, ASN1OCTET* dest, ASN1UINT count)
{
    if (g_fake->readResult != 0)
        return g_fake->readResult;
    size_t n = std::min<size_t>(count, g_fake->source.size() - g_fake->readPos);
    std::memcpy(dest, g_fake->source.data() + g_fake->readPos, n);
    g_fake->readPos += n;
    return static_cast<int>(n);
}

int fakeFlush(Asn1RTStream*)
{
    g_fake->flushCalls++;
    return g_fake->flushResult;
}

int fakeClose(Asn1RTStream*)
{
    g_fake->closeCalls++;
    return g_fake->closeResult;
}

class RtStream : public testing::Test {
protected:
    void SetUp() override
    {
        g_fake = &fake;
        ASSERT_EQ(rtInitContext(&ctxt, nullptr), 0);
    }
    void TearDown() override
    {
        rtFreeContext(&ctxt);
        EXPECT_EQ(alloc.live(), 0u);
        g_fake = nullptr;
    }
    Asn1RTStream* open(ASN1USINT flags)
    {
        EXPECT_EQ(rtStreamInit(&ctxt), 0);
        Asn1RTStream* s = ctxt.stream;
        s->read = fakeRead;
        s->write = fakeWrite;
        s->flush = fakeFlush;
        s->close = fakeClose;
        s->flags = flags;
        return s;
    }
    Asn1RTStream* openBuffered(ASN1USINT flags)
    {
        EXPECT_EQ(rtStreamBufInit(&ctxt), 0);
        Asn1RTStream* s = ctxt.stream;
        s->read = fakeRead;
        s->write = fakeWrite;
        s->flush = fakeFlush;
        s->close = fakeClose;
        s->flags = static_cast<ASN1USINT>(s->flags | flags);
        return s;
    }
    static const ASN1OCTET* bytes(const char* s) { return reinterpret_cast<const ASN1OCTET*>(s); }

    CountingAllocator alloc;
    FakeTransport fake;
    ASN1CTXT ctxt;
};

TEST_F(RtStream, InitAndRelease)
{
    EXPECT_EQ(rtStreamRelease(&ctxt), 0);  // no stream: nothing
    ASSERT_EQ(rtStreamInit(&ctxt), 0);
    Asn1RTStream* s = ctxt.stream;
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(blockOf(s)->size, sizeof(Asn1RTStream));
    EXPECT_EQ(s->read, nullptr);
    EXPECT_EQ(s->write, nullptr);
    EXPECT_EQ(s->flush, nullptr);
    EXPECT_EQ(s->close, nullptr);
    EXPECT_EQ(s->bufsize, 0u);
    EXPECT_EQ(s->ioBytes, 0u);
    EXPECT_EQ(s->flags, 0);
    EXPECT_EQ(rtStreamRelease(&ctxt), 0);
    EXPECT_EQ(ctxt.stream, nullptr);
    EXPECT_FALSE(alloc.isLive(blockOf(s)));
}

TEST_F(RtStream, FlushNeedsAnOutputStream)
{
    EXPECT_EQ(rtStreamFlush(&ctxt), RT_E_BAD_ARGUMENT);
    EXPECT_EQ(ctxt.errInfo.status, -30);
    rtErrReset(&ctxt.errInfo);
    Asn1RTStream* s = open(RT_STREAM_INPUT);
    EXPECT_EQ(rtStreamFlush(&ctxt), -30);  // an input stream
    EXPECT_EQ(ctxt.errInfo.status, -30);
    rtErrReset(&ctxt.errInfo);
    s->flags = RT_STREAM_OUTPUT;
    fake.flushResult = 5;
    EXPECT_EQ(rtStreamFlush(&ctxt), 5);
    EXPECT_EQ(fake.flushCalls, 1);
    s->flush = nullptr;
    EXPECT_EQ(rtStreamFlush(&ctxt), 0);
    EXPECT_EQ(ctxt.errInfo.status, 0);
}

TEST_F(RtStream, WriteCountsIOBytes)
{
    EXPECT_EQ(rtStreamWrite(&ctxt, bytes("ab"), 2), RT_E_NOT_READY);
    EXPECT_EQ(ctxt.errInfo.status, -32);
    rtErrReset(&ctxt.errInfo);
    Asn1RTStream* s = open(RT_STREAM_INPUT);
    EXPECT_EQ(rtStreamWrite(&ctxt, bytes("ab"), 2), -32);  // not open for output
    s->flags = RT_STREAM_OUTPUT;
    s->write = nullptr;
    EXPECT_EQ(rtStreamWrite(&ctxt, bytes("ab"), 2), -32);
    s->write = fakeWrite;
    EXPECT_EQ(rtStreamWrite(&ctxt, bytes("abc"), 3), 0);
    EXPECT_EQ(fake.written, "abc");
    EXPECT_EQ(s->ioBytes, 3u);
    fake.writeResult = 1;  // a positive result still counts the octets
    EXPECT_EQ(rtStreamWrite(&ctxt, bytes("de"), 2), 1);
    EXPECT_EQ(s->ioBytes, 5u);
    fake.writeResult = -1;
    EXPECT_EQ(rtStreamWrite(&ctxt, bytes("fg"), 2), -1);
    EXPECT_EQ(s->ioBytes, 5u);
    EXPECT_EQ(rtStreamGetIOBytes(&ctxt), 5);
    EXPECT_EQ(ctxt.errInfo.status, -32);  // the bare -1 was not recorded
}

TEST_F(RtStream, ReadOnAnOutputStreamIsNotReady)
{
    Asn1RTStream* s = open(RT_STREAM_OUTPUT);
    ASN1OCTET buf[8] = {};
    EXPECT_EQ(rtStreamRead(&ctxt, buf, 8), RT_E_NOT_READY);
    EXPECT_EQ(ctxt.errInfo.status, -32);
    s->flags = RT_STREAM_INPUT;
    s->read = nullptr;
    EXPECT_EQ(rtStreamRead(&ctxt, buf, 8), -32);
    s->read = fakeRead;
    fake.source = "hello";
    EXPECT_EQ(rtStreamRead(&ctxt, buf, 3), 3);
    EXPECT_EQ(s->ioBytes, 3u);
    EXPECT_EQ(rtStreamRead(&ctxt, buf + 3, 8), 2);
    EXPECT_EQ(std::memcmp(buf, "hello", 5), 0);
    EXPECT_EQ(rtStreamRead(&ctxt, buf, 8), 0);
    EXPECT_EQ(rtStreamGetIOBytes(&ctxt), 5);
    fake.readResult = -2;
    EXPECT_EQ(rtStreamRead(&ctxt, buf, 8), -2);
    EXPECT_EQ(rtStreamGetIOBytes(&ctxt), 5);
}

TEST_F(RtStream, TheFirstStreamFailureIsKept)
{
    EXPECT_EQ(rtStreamFlush(&ctxt), -30);
    EXPECT_EQ(rtStreamRead(&ctxt, nullptr, 0), -32);
    EXPECT_EQ(rtStreamWrite(&ctxt, nullptr, 0), -32);
    EXPECT_EQ(rtStreamBufClose(&ctxt), -30);
    EXPECT_EQ(rtStreamClose(&ctxt), -32);
    EXPECT_EQ(ctxt.errInfo.status, -30);
}

TEST_F(RtStream, GetIOBytesWithoutAStream)
{
    EXPECT_EQ(rtStreamGetIOBytes(&ctxt), RT_E_NOT_READY);
    EXPECT_EQ(ctxt.errInfo.status, -32);
}

TEST_F(RtStream, Close)
{
    EXPECT_EQ(rtStreamClose(&ctxt), RT_E_NOT_READY);  // no stream
    EXPECT_EQ(ctxt.errInfo.status, -32);
    rtErrReset(&ctxt.errInfo);
    Asn1RTStream* s = open(RT_STREAM_OUTPUT);
    s->close = nullptr;
    EXPECT_EQ(rtStreamClose(&ctxt), -32);  // no close function
    s->close = fakeClose;
    rtErrReset(&ctxt.errInfo);
    // Output: a failing flush is returned and the stream stays open.
    fake.flushResult = -7;
    EXPECT_EQ(rtStreamClose(&ctxt), -7);
    EXPECT_EQ(s->flags, RT_STREAM_OUTPUT);
    EXPECT_EQ(fake.closeCalls, 0);
    EXPECT_EQ(ctxt.errInfo.status, 0);
    fake.flushResult = 0;
    fake.closeResult = 3;
    EXPECT_EQ(rtStreamClose(&ctxt), 3);
    EXPECT_EQ(s->flags, 0);
    EXPECT_EQ(fake.closeCalls, 1);
    // Neither input nor output: not ready.
    EXPECT_EQ(rtStreamClose(&ctxt), -32);
    EXPECT_EQ(ctxt.errInfo.status, -32);
    // Input: no flush, flags to 0, the result of close.
    s->flags = RT_STREAM_INPUT;
    fake.closeResult = 0;
    const int flushes = fake.flushCalls;
    EXPECT_EQ(rtStreamClose(&ctxt), 0);
    EXPECT_EQ(fake.flushCalls, flushes);
    EXPECT_EQ(s->flags, 0);
    // Output without a flush function.
    s->flags = RT_STREAM_OUTPUT;
    s->flush = nullptr;
    EXPECT_EQ(rtStreamClose(&ctxt), 0);
}

TEST_F(RtStream, BufInit)
{
    Asn1RTStream* s = openBuffered(RT_STREAM_OUTPUT);
    EXPECT_EQ(s->bufsize, 1024u);
    EXPECT_EQ(s->flags, RT_STREAM_BUFFERED | RT_STREAM_OUTPUT);
    EXPECT_EQ(ctxt.bufSize, 1024u);
    EXPECT_EQ(ctxt.bufDynamic, 1);
    EXPECT_EQ(ctxt.bufIndex, 0u);
    EXPECT_EQ(ctxt.bitOffset, 8);
    EXPECT_EQ(ctxt.savedState.index, 0xffffffffu);
    EXPECT_EQ(ctxt.errInfo.status, 0);
}

TEST_F(RtStream, BufInitBufferFailure)
{
    alloc.failNext(1, 1);  // the stream record succeeds, the buffer fails
    EXPECT_EQ(rtStreamBufInit(&ctxt), RT_E_NO_MEMORY);
    EXPECT_EQ(ctxt.errInfo.status, -12);
    EXPECT_NE(ctxt.stream, nullptr);
    EXPECT_EQ(ctxt.stream->flags, 0);
}

TEST_F(RtStream, BufWriteCollectsThenSends)
{
    Asn1RTStream* s = openBuffered(RT_STREAM_OUTPUT);
    EXPECT_EQ(rtStreamBufWrite(&ctxt, bytes("abc"), 3), 0);
    EXPECT_EQ(ctxt.bufIndex, 3u);
    EXPECT_EQ(fake.writeCalls, 0);
    std::string big(1022, 'x');
    // 3 + 1022 > 1024: the buffered octets go first, then the new ones are buffered.
    EXPECT_EQ(rtStreamBufWrite(&ctxt, bytes(big.c_str()), 1022), 0);
    EXPECT_EQ(fake.written, "abc");
    EXPECT_EQ(s->ioBytes, 3u);
    EXPECT_EQ(ctxt.bufIndex, 1022u);
    EXPECT_EQ(std::memcmp(ctxt.bufData, big.data(), 1022), 0);
    EXPECT_EQ(ctxt.errInfo.status, 0);
}

TEST_F(RtStream, BufWriteOf1024OrMoreGoesDirectly)
{
    Asn1RTStream* s = openBuffered(RT_STREAM_OUTPUT);
    std::string big(1024, 'y');
    EXPECT_EQ(rtStreamBufWrite(&ctxt, bytes(big.c_str()), 1024), 0);
    EXPECT_EQ(ctxt.bufIndex, 0u);
    EXPECT_EQ(fake.written, big);
    EXPECT_EQ(s->ioBytes, 1024u);
    ASSERT_EQ(rtStreamBufWrite(&ctxt, bytes("z"), 1), 0);
    std::string bigger(5000, 'w');
    EXPECT_EQ(rtStreamBufWrite(&ctxt, bytes(bigger.c_str()), 5000), 0);
    EXPECT_EQ(fake.written, big + "z" + bigger);
    EXPECT_EQ(s->ioBytes, 6025u);
}

TEST_F(RtStream, BufWriteRecordsEvenAPositiveDirectResult)
{
    openBuffered(RT_STREAM_OUTPUT);
    std::string big(2000, 'q');
    fake.writeResult = 4;
    EXPECT_EQ(rtStreamBufWrite(&ctxt, bytes(big.c_str()), 2000), 4);
    EXPECT_EQ(ctxt.errInfo.status, 4);
}

TEST_F(RtStream, BufWriteFailureOfTheBufferedOctets)
{
    openBuffered(RT_STREAM_OUTPUT);
    ASSERT_EQ(rtStreamBufWrite(&ctxt, bytes("abc"), 3), 0);
    fake.writeResult = -9;
    std::string big(1022, 'x');
    EXPECT_EQ(rtStreamBufWrite(&ctxt, bytes(big.c_str()), 1022), -9);
    EXPECT_EQ(ctxt.bufIndex, 3u);
}

TEST_F(RtStream, BufFlush)
{
    EXPECT_EQ(rtStreamBufFlush(&ctxt), RT_E_BAD_ARGUMENT);  // no stream
    EXPECT_EQ(ctxt.errInfo.status, -30);
    rtErrReset(&ctxt.errInfo);
    Asn1RTStream* s = openBuffered(RT_STREAM_OUTPUT);
    ASSERT_EQ(rtStreamBufWrite(&ctxt, bytes("hello"), 5), 0);
    EXPECT_EQ(rtStreamBufFlush(&ctxt), 0);
    EXPECT_EQ(fake.written, "hello");
    EXPECT_EQ(ctxt.bufIndex, 0u);
    EXPECT_EQ(s->ioBytes, 0u);  // written directly: not counted
    EXPECT_EQ(fake.flushCalls, 1);
    // Nothing buffered: only the flush.
    EXPECT_EQ(rtStreamBufFlush(&ctxt), 0);
    EXPECT_EQ(fake.writeCalls, 1);
    EXPECT_EQ(fake.flushCalls, 2);
    // A null write with octets pending.
    ASSERT_EQ(rtStreamBufWrite(&ctxt, bytes("x"), 1), 0);
    s->write = nullptr;
    EXPECT_EQ(rtStreamBufFlush(&ctxt), RT_E_NOT_READY);
    EXPECT_EQ(ctxt.errInfo.status, -32);
    s->write = fakeWrite;
    rtErrReset(&ctxt.errInfo);
    fake.writeResult = -4;
    EXPECT_EQ(rtStreamBufFlush(&ctxt), -4);
    EXPECT_EQ(ctxt.errInfo.status, -4);
    EXPECT_EQ(ctxt.bufIndex, 1u);
    // Buffered but not open for output: the octets go, then rtStreamFlush refuses.
    fake.writeResult = 0;
    rtErrReset(&ctxt.errInfo);
    s->flags = RT_STREAM_BUFFERED;
    EXPECT_EQ(rtStreamBufFlush(&ctxt), -30);
    EXPECT_EQ(fake.written, "hellox");
    // Neither flag.
    s->flags = RT_STREAM_INPUT;
    rtErrReset(&ctxt.errInfo);
    EXPECT_EQ(rtStreamBufFlush(&ctxt), -30);
    EXPECT_EQ(ctxt.errInfo.status, -30);
}

TEST_F(RtStream, BufClose)
{
    EXPECT_EQ(rtStreamBufClose(&ctxt), RT_E_BAD_ARGUMENT);
    EXPECT_EQ(ctxt.errInfo.status, -30);
    rtErrReset(&ctxt.errInfo);
    Asn1RTStream* s = openBuffered(RT_STREAM_OUTPUT);
    ASSERT_EQ(rtStreamBufWrite(&ctxt, bytes("tail"), 4), 0);
    fake.closeResult = 0;
    EXPECT_EQ(rtStreamBufClose(&ctxt), 0);
    EXPECT_EQ(fake.written, "tail");
    EXPECT_EQ(fake.closeCalls, 1);
    EXPECT_EQ(s->flags, 0);
    // Neither buffered/output nor input.
    EXPECT_EQ(rtStreamBufClose(&ctxt), -32);
    EXPECT_EQ(ctxt.errInfo.status, -32);
    // Input only: straight to rtStreamClose.
    s->flags = RT_STREAM_INPUT;
    EXPECT_EQ(rtStreamBufClose(&ctxt), 0);
    EXPECT_EQ(fake.closeCalls, 2);
    // A failing flush is recorded and returned; no close.
    rtErrReset(&ctxt.errInfo);
    s->flags = RT_STREAM_BUFFERED | RT_STREAM_OUTPUT;
    fake.flushResult = -6;
    EXPECT_EQ(rtStreamBufClose(&ctxt), -6);
    EXPECT_EQ(ctxt.errInfo.status, -6);
    EXPECT_EQ(fake.closeCalls, 2);
}

TEST_F(RtStream, WriteBytesGoesThroughTheStream)
{
    Asn1RTStream* s = openBuffered(RT_STREAM_OUTPUT);
    ASSERT_EQ(rtWriteBytes(&ctxt, bytes("abc"), 3), 0);
    EXPECT_EQ(ctxt.bufIndex, 3u);
    std::string big(1500, 'b');
    ASSERT_EQ(rtWriteBytes(&ctxt, bytes(big.c_str()), 1500), 0);
    EXPECT_EQ(fake.written, "abc" + big);
    EXPECT_EQ(s->ioBytes, 1503u);
}

TEST_F(RtStream, CheckBufferFlushesAStream)
{
    openBuffered(RT_STREAM_OUTPUT);
    ctxt.bufIndex = 1000;
    std::memset(ctxt.bufData, 'k', 1000);
    EXPECT_EQ(rtCheckBuffer(&ctxt, 100), 0);
    EXPECT_EQ(fake.written, std::string(1000, 'k'));
    EXPECT_EQ(ctxt.bufIndex, 0u);
    EXPECT_EQ(ctxt.bufSize, 1024u);
    // Still too large after the flush: the dynamic buffer grows.
    EXPECT_EQ(rtCheckBuffer(&ctxt, 2000), 0);
    EXPECT_EQ(ctxt.bufSize, 1024u + 16384u);
    // A failing flush is recorded and returned.
    ctxt.bufIndex = ctxt.bufSize;
    fake.writeResult = -3;
    EXPECT_EQ(rtCheckBuffer(&ctxt, 1), -3);
    EXPECT_EQ(ctxt.errInfo.status, -3);
}

// ---- Diagnostics -----------------------------------------------------------------------------

class RtDiag : public testing::Test {
protected:
    void TearDown() override { rtSetDiag(0); }
    static std::string captured(void (*body)())
    {
        testing::internal::CaptureStdout();
        body();
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(RtDiag, RtdiagPrintsOnlyWithDebug)
{
    EXPECT_EQ(g_debug, 0u);
    EXPECT_EQ(captured([] { rtdiag("value %d of %s\n", 3, "x"); }), "");
    rtSetDiag(1);
    EXPECT_EQ(g_debug, 1u);
    EXPECT_EQ(captured([] { rtdiag("value %d of %s\n", 3, "x"); }), "value 3 of x\n");
    rtSetDiag(0x100);
    EXPECT_EQ(g_debug, 0x100u);
    EXPECT_EQ(captured([] { rtdiag("%s", "on"); }), "on");
}

TEST_F(RtDiag, DiagHexDumpOnlyWithDebug)
{
    EXPECT_EQ(captured([] { rtDiagHexDump(reinterpret_cast<const ASN1OCTET*>("A"), 1); }), "");
    rtSetDiag(1);
    EXPECT_EQ(captured([] { rtDiagHexDump(reinterpret_cast<const ASN1OCTET*>("A"), 1); }),
              "41" + std::string(46, ' ') + " A\n");
}

std::string dump(const void* data, ASN1UINT count, ASN1UINT wordSize = 0)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* f = open_memstream(&text, &size);
    if (wordSize == 0)
        rtHexDumpToFile(f, static_cast<const ASN1OCTET*>(data), count);
    else
        rtHexDumpToFileEx(f, static_cast<const ASN1OCTET*>(data), count, wordSize);
    fclose(f);
    std::string out(text, size);
    free(text);
    return out;
}

TEST(RtHexDump, SeventeenOctetsMakeTwoLines)
{
    const char* in = "ABCDEFGHIJKLMNOPQ";
    EXPECT_EQ(dump(in, 17),
              "41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n"
              "51" + std::string(46, ' ') + " Q\n");
}

TEST(RtHexDump, SixteenOctetsMakeOneFullLine)
{
    const ASN1OCTET in[16] = {0x00, 0x01, 0x1f, 0x20, 0x21, 0x30, 0x39, 0x41,
                              0x5a, 0x61, 0x7a, 0x7e, 0x7f, 0x80, 0xc3, 0xff};
    EXPECT_EQ(dump(in, 16), "00 01 1f 20 21 30 39 41 5a 61 7a 7e 7f 80 c3 ff  ... !09AZaz~....\n");
}

TEST(RtHexDump, TextColumnOfAPartialLine)
{
    // 0x7F prints ".", a blank prints a blank; trailing blanks of a partial line go.
    const ASN1OCTET a[3] = {0x20, 0x7f, 0x41};
    EXPECT_EQ(dump(a, 3), "20 7f 41" + std::string(40, ' ') + "  .A\n");
    const ASN1OCTET b[3] = {0x41, 0x20, 0x20};
    EXPECT_EQ(dump(b, 3), "41 20 20" + std::string(40, ' ') + " A\n");
    const ASN1OCTET c[1] = {0x20};
    EXPECT_EQ(dump(c, 1), "20" + std::string(46, ' ') + " \n");
}

TEST(RtHexDump, ThirtyTwoOctetsMakeTwoFullLines)
{
    ASN1OCTET in[32];
    for (int i = 0; i < 32; i++)
        in[i] = static_cast<ASN1OCTET>('a' + (i % 26));
    EXPECT_EQ(dump(in, 32),
              "61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70  abcdefghijklmnop\n"
              "71 72 73 74 75 76 77 78 79 7a 61 62 63 64 65 66  qrstuvwxyzabcdef\n");
}

TEST(RtHexDump, NothingToShow)
{
    EXPECT_EQ(dump("", 0), "");
    EXPECT_EQ(dump("abc", 3, 4), "");  // fewer octets than one word
}

bool littleEndian()
{
    const ASN1UINT one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

TEST(RtHexDump, WordSizeFourShowsWholeWordsOnly)
{
    const ASN1OCTET in[6] = {0x01, 0x02, 0x41, 0x42, 0x05, 0x06};
    const std::string word = littleEndian() ? "42410201" : "01024142";
    EXPECT_EQ(dump(in, 6, 4), word + std::string(40, ' ') + " ..AB\n");
}

TEST(RtHexDump, WordSizeTwoFullLine)
{
    const char* in = "0123456789abcdef";
    const std::string line = littleEndian()
        ? "3130 3332 3534 3736 3938 6261 6463 6665 "
        : "3031 3233 3435 3637 3839 6162 6364 6566 ";
    EXPECT_EQ(dump(in, 16, 2), line + std::string(8, ' ') + " 0123456789abcdef\n");
    // Seventeen octets with word size 2: eight items, the odd octet is not shown.
    EXPECT_EQ(dump("0123456789abcdefg", 17, 2), line + std::string(8, ' ') + " 0123456789abcdef\n");
}

TEST(RtHexDump, WordSizeFourTwoLines)
{
    const char* in = "ABCDEFGHIJKLMNOPQRST";
    const std::string l1 = littleEndian() ? "44434241 48474645 4c4b4a49 504f4e4d "
                                          : "41424344 45464748 494a4b4c 4d4e4f50 ";
    const std::string l2 = littleEndian() ? "54535251" : "51525354";
    EXPECT_EQ(dump(in, 20, 4), l1 + std::string(12, ' ') + " ABCDEFGHIJKLMNOP\n" + l2 +
                                   std::string(40, ' ') + " QRST\n");
}

TEST(RtHexDump, WordSizeEightStepsByFour)
{
    // 16 / 8 = 2 items a line, each a 4-octet word.
    const char* in = "ABCDEFGHIJKL";
    const std::string l1 = littleEndian() ? "44434241 48474645 " : "41424344 45464748 ";
    const std::string l2 = littleEndian() ? "4c4b4a49" : "494a4b4c";
    EXPECT_EQ(dump(in, 12, 8), l1 + std::string(30, ' ') + " ABCDEFGH        \n" + l2 +
                                   std::string(40, ' ') + " IJKL\n");
}

}  // namespace
