/* Message buffers and control base classes: the object face of the C runtime.
 * ASN1Context makes an ASN1CTXT a reference-counted object; the message buffers own one
 * context and a message; ASN1CType ties a value to a message buffer and is the base of
 * every generated control class.  The class shapes are part of the library's ABI:
 * virtual operations are declared in their fixed slot order. */
#ifndef ASN1RT_MESSAGEBUFFER_H
#define ASN1RT_MESSAGEBUFFER_H

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"
#include "asn1rt/lists.h"

#ifdef __cplusplus

class ASN1Context;

/* A runtime status carried as an exception.  Thrown only by the message-buffer
 * constructors and the stream operators. */
class ASN1RT_API ASN1RTLException {
public:
    explicit ASN1RTLException(int status) : mStatus(status) {}
    virtual ~ASN1RTLException();
    int getStatus() const { return mStatus; }

protected:
    int mStatus;
};

/* An ASN1CTXT with a reference count behind it.  The record comes first, so a pointer to
 * the object is a pointer to the record.  Made with operator new: the last _unref
 * deletes it.  The count is a plain integer; a context belongs to one thread at a time. */
class ASN1RT_API ASN1Context {
public:
    /* Count 0 and a fresh context; a failure throws ASN1MessageBuffer::RTLError. */
    ASN1Context();
    ~ASN1Context();

    ASN1CTXT* GetPtr() { return &mCtxt; }
    const ASN1CTXT* GetPtr() const { return &mCtxt; }
    operator ASN1CTXT*() { return &mCtxt; }

    /* rtErrPrint on the error block. */
    void PrintErrorInfo();
    /* The first status of the run, 0 if none. */
    int getStatus() const { return mCtxt.errInfo.status; }

    void _ref();
    /* Takes one reference off; when the count was 1 the context is freed and deleted. */
    void _unref();
    ASN1UINT getRefCount() const { return refCount; }

private:
    ASN1Context(const ASN1Context&);
    ASN1Context& operator=(const ASN1Context&);

    ASN1CTXT mCtxt;
    ASN1UINT refCount;
};

/* A counted reference to an ASN1Context: holds one reference while it lives and converts
 * to the plain pointer.  A null reference holds nothing. */
class ASN1CtxtPtr {
public:
    ASN1CtxtPtr(ASN1Context* p = 0) : mp(p) {
        if (mp) mp->_ref();
    }
    ASN1CtxtPtr(const ASN1CtxtPtr& o) : mp(o.mp) {
        if (mp) mp->_ref();
    }
    ~ASN1CtxtPtr() {
        if (mp) mp->_unref();
    }
    ASN1CtxtPtr& operator=(const ASN1CtxtPtr& o) {
        if (o.mp) o.mp->_ref(); /* first, so self-assignment keeps the context alive */
        if (mp) mp->_unref();
        mp = o.mp;
        return *this;
    }
    operator ASN1Context*() const { return mp; }
    ASN1Context* operator->() const { return mp; }
    ASN1Context* get() const { return mp; }

private:
    ASN1Context* mp;
};

/* A growing memory buffer on a context's type heap: the source that
 * ASN1MessageBuffer::initBuffer(ASN1MemBuf&) attaches.  It holds a reference to its
 * context (its own one when none is given), so its storage lives as long as it does. */
class ASN1RT_API ASN1MemBuf {
public:
    explicit ASN1MemBuf(ASN1UINT segSize = 1024);
    explicit ASN1MemBuf(ASN1Context& ctxt, ASN1UINT segSize = 1024);
    ~ASN1MemBuf();

    /* 0 or -12. */
    int append(const ASN1OCTET* data, ASN1UINT nbytes);
    void reset() { rtMemBufReset(&mBuf); }
    ASN1OCTET* getData(int* length = 0) { return rtMemBufGetData(&mBuf, length); }
    Asn1RTMemBuf* getBuffer() { return &mBuf; }

private:
    ASN1MemBuf(const ASN1MemBuf&);
    ASN1MemBuf& operator=(const ASN1MemBuf&);

    ASN1Context* mpContext;
    Asn1RTMemBuf mBuf;
};

/* The abstract message-buffer interface. */
class ASN1RT_API ASN1MessageBufferIF {
public:
    enum Type { BEREncode = 0, BERDecode = 1 };

    virtual ~ASN1MessageBufferIF();
    virtual ASN1CtxtPtr getContext() = 0;
    virtual ASN1CTXT* getCtxtPtr() = 0;
    virtual ASN1OCTET* getMsgCopy() = 0;
    virtual const ASN1OCTET* getMsgPtr() = 0;
    virtual int init();
    virtual int initBuffer(ASN1MemBuf& membuf) = 0;
    virtual int initBuffer(unsigned short* unistr) = 0;
    virtual int initBuffer(char* str) = 0;
    virtual bool isA(Type bufferType) = 0;

protected:
    ASN1MessageBufferIF() {}

private:
    ASN1MessageBufferIF(const ASN1MessageBufferIF&);
    ASN1MessageBufferIF& operator=(const ASN1MessageBufferIF&);
};

/* A message buffer that owns one counted context. */
class ASN1RT_API ASN1MessageBuffer : public ASN1MessageBufferIF {
public:
    /* Thrown when a buffer's context or message cannot be set up. */
    class ASN1RT_API RTLError : public ASN1RTLException {
    public:
        explicit RTLError(int status) : ASN1RTLException(status) {}
        virtual ~RTLError();
    };

    virtual ~ASN1MessageBuffer();
    virtual ASN1CtxtPtr getContext();
    virtual ASN1CTXT* getCtxtPtr();
    virtual ASN1OCTET* getMsgCopy();
    virtual const ASN1OCTET* getMsgPtr();
    virtual int initBuffer(ASN1MemBuf& membuf);
    virtual int initBuffer(unsigned short* unistr);
    virtual int initBuffer(char* str);

    /* The first status recorded on the context, 0 if none. */
    int getStatus() const { return mpContext ? mpContext->getStatus() : 0; }
    void printErrorInfo() {
        if (mpContext) mpContext->PrintErrorInfo();
    }

protected:
    explicit ASN1MessageBuffer(Type bufferType);

    ASN1Context* mpContext;
    Type mBufferType;
};

class ASN1CType;

/* A level of the class tree that adds nothing. */
class ASN1RT_API ASN1BERMessageBuffer : public ASN1MessageBuffer {
public:
    virtual ~ASN1BERMessageBuffer();

protected:
    explicit ASN1BERMessageBuffer(Type bufferType) : ASN1MessageBuffer(bufferType) {}
};

/* Writes backward, from the end of its buffer; dynamic (16384 octets, growing) or over a
 * caller's static buffer. */
class ASN1RT_API ASN1BEREncodeBuffer : public ASN1BERMessageBuffer {
public:
    ASN1BEREncodeBuffer();
    ASN1BEREncodeBuffer(ASN1OCTET* pMsgBuf, int msgBufLen);
    virtual ~ASN1BEREncodeBuffer();

    /* A new[] array with everything from the message start to the buffer's end, the one
     * never-written octet included; the caller deletes it with delete[]. */
    virtual ASN1OCTET* getMsgCopy();
    virtual const ASN1OCTET* getMsgPtr();
    /* Drops what was encoded and keeps the buffer; returns the new index. */
    virtual int init();
    virtual bool isA(Type bufferType);

    int setBuffer(ASN1OCTET* pMsgBuf, int msgBufLen);
    /* Encodes the value; any non-zero result, a positive length too, is thrown. */
    ASN1BEREncodeBuffer& operator<<(ASN1CType& val);
};

/* Reads a caller's message, which it does not own or copy. */
class ASN1RT_API ASN1BERDecodeBuffer : public ASN1BERMessageBuffer {
public:
    ASN1BERDecodeBuffer();
    ASN1BERDecodeBuffer(const ASN1OCTET* pMsgBuf, int msgBufLen);
    virtual ~ASN1BERDecodeBuffer();

    /* Attaches the message once; later calls do nothing, so values are read in turn. */
    virtual int init();
    virtual bool isA(Type bufferType);

    int setBuffer(const ASN1OCTET* pMsgBuf, int msgBufLen);
    /* Seeks an element by tag: a search starts with firstFlag set and goes on with it
     * clear.  The address of the element's first octet, or null. */
    const ASN1OCTET* findElement(ASN1TAG tag, int& elemLen, int firstFlag = 1);
    /* Decodes the value; any non-zero status is thrown. */
    ASN1BERDecodeBuffer& operator>>(ASN1CType& val);

    bool isAttached() const { return mbAttached != 0; }
    const ASN1OCTET* getMsgBuf() const { return mpMsgBuf; }
    int getMsgBufLen() const { return mMsgBufLen; }

protected:
    const ASN1OCTET* mpMsgBuf;
    int mMsgBufLen;
    ASN1UINT8 mbAttached;
};

/* Base of every control class: a counted context and a message buffer it does not own. */
class ASN1RT_API ASN1CType {
public:
    /* Shares the buffer's context. */
    explicit ASN1CType(ASN1MessageBufferIF& msgBuf);
    virtual ~ASN1CType();
    /* EncodeTo / DecodeFrom on the stored buffer; -30 when there is none. */
    virtual int Encode();
    virtual int Decode();
    virtual int EncodeTo(ASN1MessageBufferIF& msgBuf);
    virtual int DecodeFrom(ASN1MessageBufferIF& msgBuf);

    /* Stores the buffer and makes the control's type heap the buffer's. */
    void setMsgBuf(ASN1MessageBufferIF& msgBuf);
    ASN1MessageBufferIF* getMsgBuf() const { return mpMsgBuf; }
    ASN1CtxtPtr getContext() const { return ASN1CtxtPtr(mpContext); }
    ASN1CTXT* getCtxtPtr() const { return mpContext ? mpContext->GetPtr() : 0; }
    int getStatus() const { return mpContext ? mpContext->getStatus() : 0; }

protected:
    /* A new context of its own, no message buffer. */
    ASN1CType();
    /* A reference to the given context (made with operator new), no message buffer. */
    explicit ASN1CType(ASN1Context& ctxt);
    /* Shares context and message buffer. */
    ASN1CType(const ASN1CType& other);

    ASN1Context* mpContext;
    ASN1MessageBufferIF* mpMsgBuf;

private:
    ASN1CType& operator=(const ASN1CType&);
};

#endif /* __cplusplus */

#endif /* ASN1RT_MESSAGEBUFFER_H */
