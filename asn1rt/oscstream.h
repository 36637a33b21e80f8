/* The stream classes over the C stream layer of asn1rt/stream.h.
 * Class shapes are ABI: virtual operations are declared in their fixed slot order. */
#ifndef ASN1RT_OSCSTREAM_H
#define ASN1RT_OSCSTREAM_H

#include "asn1rt/context.h"
#include "asn1rt/export.h"
#include "asn1rt/messagebuffer.h"
#include "asn1rt/stream.h"

#ifdef __cplusplus

/* A stream status carried as an exception. */
class ASN1RT_API OSCStreamException : public ASN1RTLException {
public:
    explicit OSCStreamException(int status) : ASN1RTLException(status) {}
    virtual ~OSCStreamException();
};

/* A stream on a counted context of its own.  Slots: destructor, deleting destructor,
 * close(), flush(). */
class ASN1RT_API OSCStream {
public:
    /* A buffered stream record (rtStreamBufInit), but the buffered flag stays 0, so the
     * destructor and the operations take the unbuffered way. */
    OSCStream();
    /* rtStreamBufInit when `buffered` is set, rtStreamInit otherwise. */
    explicit OSCStream(unsigned char buffered);
    /* Runs the close of its kind, ignores the result, drops the reference. */
    virtual ~OSCStream();
    /* rtStreamBufClose or rtStreamClose; a non-zero result throws OSCStreamException. */
    virtual int close();
    /* rtStreamBufFlush or rtStreamFlush; a non-zero result throws OSCStreamException. */
    virtual int flush();

    ASN1Context* getContext() const { return mpContext; }
    ASN1CTXT* getCtxtPtr() const { return mpContext ? mpContext->GetPtr() : 0; }
    unsigned char isBuffered() const { return mBuffered; }

protected:
    ASN1Context* mpContext; /* counted */
    ASN1UINT8 mBuffered;

private:
    void open(bool bufferedRecord);
    OSCStream(const OSCStream&);
    OSCStream& operator=(const OSCStream&);
};

/* An input stream.  Slots after the four of its base: currentPos(), read(). */
class ASN1RT_API OSCInputStream : public OSCStream {
public:
    OSCInputStream() : OSCStream(0) {}
    virtual ~OSCInputStream();
    /* rtStreamGetIOBytes. */
    virtual int currentPos();
    /* rtStreamRead; a negative result throws OSCStreamException, else the count read. */
    virtual int read(unsigned char* pDestBuf, unsigned int toReadBytes);
};

#endif /* __cplusplus */

#endif /* ASN1RT_OSCSTREAM_H */
