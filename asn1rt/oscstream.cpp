// The stream classes.
#include "asn1rt/oscstream.h"

OSCStreamException::~OSCStreamException() {}

void OSCStream::open(bool bufferedRecord)
{
    mpContext = new ASN1Context;
    mpContext->_ref();
    int stat = bufferedRecord ? rtStreamBufInit(mpContext->GetPtr()) : rtStreamInit(mpContext->GetPtr());
    if (stat != 0) {
        // The destructor does not run for a throwing constructor: drop the reference here.
        mpContext->_unref();
        mpContext = 0;
        throw OSCStreamException(stat);
    }
}

OSCStream::OSCStream() : mpContext(0), mBuffered(0) { open(true); }

OSCStream::OSCStream(unsigned char buffered) : mpContext(0), mBuffered(buffered)
{
    open(buffered != 0);
}

OSCStream::~OSCStream()
{
    if (mpContext == 0)
        return;
    ASN1CTXT* pctxt = mpContext->GetPtr();
    if (mBuffered)
        rtStreamBufClose(pctxt);
    else
        rtStreamClose(pctxt);
    mpContext->_unref();
}

int OSCStream::close()
{
    ASN1CTXT* pctxt = mpContext->GetPtr();
    int stat = mBuffered ? rtStreamBufClose(pctxt) : rtStreamClose(pctxt);
    if (stat != 0)
        throw OSCStreamException(stat);
    return stat;
}

int OSCStream::flush()
{
    ASN1CTXT* pctxt = mpContext->GetPtr();
    int stat = mBuffered ? rtStreamBufFlush(pctxt) : rtStreamFlush(pctxt);
    if (stat != 0)
        throw OSCStreamException(stat);
    return stat;
}

OSCInputStream::~OSCInputStream() {}

int OSCInputStream::currentPos() { return rtStreamGetIOBytes(mpContext->GetPtr()); }

int OSCInputStream::read(unsigned char* pDestBuf, unsigned int toReadBytes)
{
    int stat = rtStreamRead(mpContext->GetPtr(), pDestBuf, toReadBytes);
    if (stat < 0)
        throw OSCStreamException(stat);
    return stat;
}
