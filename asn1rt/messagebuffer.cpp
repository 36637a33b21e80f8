// The counted context, the message-buffer base, the memory-buffer face and ASN1CType.
// The BER encode and decode buffers are in berbuffer.cpp.
#include "asn1rt/messagebuffer.h"

ASN1RTLException::~ASN1RTLException() {}
ASN1MessageBuffer::RTLError::~RTLError() {}

// ---- ASN1Context ----------------------------------------------------------------------

ASN1Context::ASN1Context() : refCount(0) {
    int st = rtInitContext(&mCtxt, 0);
    if (st != 0) throw ASN1MessageBuffer::RTLError(st);
}

ASN1Context::~ASN1Context() { rtFreeContext(&mCtxt); }

void ASN1Context::PrintErrorInfo() { rtErrPrint(&mCtxt.errInfo); }

void ASN1Context::_ref() { ++refCount; }

void ASN1Context::_unref() {
    if (refCount-- == 1) {
        rtFreeContext(&mCtxt);
        delete this;
    }
}

// ---- ASN1MemBuf ----------------------------------------------------------------------------

ASN1MemBuf::ASN1MemBuf(ASN1UINT segSize) : mpContext(new ASN1Context) {
    mpContext->_ref();
    rtMemBufInit(mpContext->GetPtr(), &mBuf, segSize ? segSize : 1024);
}

ASN1MemBuf::ASN1MemBuf(ASN1Context& ctxt, ASN1UINT segSize) : mpContext(&ctxt) {
    mpContext->_ref();
    rtMemBufInit(mpContext->GetPtr(), &mBuf, segSize ? segSize : 1024);
}

ASN1MemBuf::~ASN1MemBuf() {
    rtMemBufFree(&mBuf);
    mpContext->_unref();
}

int ASN1MemBuf::append(const ASN1OCTET* data, ASN1UINT nbytes) {
    return rtMemBufAppend(&mBuf, data, nbytes);
}

// ---- ASN1MessageBufferIF / ASN1MessageBuffer ------------------------------------------------

ASN1MessageBufferIF::~ASN1MessageBufferIF() {}

int ASN1MessageBufferIF::init() { return 0; }

ASN1MessageBuffer::ASN1MessageBuffer(Type bufferType) : mpContext(0), mBufferType(bufferType) {
    // A failing context constructor throws RTLError and frees its own storage.
    mpContext = new ASN1Context;
    mpContext->_ref();
}

ASN1MessageBuffer::~ASN1MessageBuffer() {
    if (mpContext) mpContext->_unref();
}

ASN1CtxtPtr ASN1MessageBuffer::getContext() { return ASN1CtxtPtr(mpContext); }

ASN1CTXT* ASN1MessageBuffer::getCtxtPtr() { return mpContext ? mpContext->GetPtr() : 0; }

ASN1OCTET* ASN1MessageBuffer::getMsgCopy() { return 0; }

const ASN1OCTET* ASN1MessageBuffer::getMsgPtr() {
    ASN1CTXT* p = getCtxtPtr();
    return p ? p->bufData : 0;
}

int ASN1MessageBuffer::initBuffer(ASN1MemBuf& membuf) {
    int len = 0;
    ASN1OCTET* data = membuf.getData(&len);
    return rtInitContextBuffer(getCtxtPtr(), data, (ASN1UINT)len);
}

int ASN1MessageBuffer::initBuffer(unsigned short*) { return RT_E_NOT_SUPPORTED; }

int ASN1MessageBuffer::initBuffer(char*) { return RT_E_NOT_SUPPORTED; }

ASN1BERMessageBuffer::~ASN1BERMessageBuffer() {}

// ---- ASN1CType -----------------------------------------------------------------------------------

ASN1CType::ASN1CType(ASN1MessageBufferIF& msgBuf) : mpContext(0), mpMsgBuf(&msgBuf) {
    ASN1CtxtPtr ctxt = msgBuf.getContext();
    mpContext = ctxt.get();
    if (mpContext) mpContext->_ref();
}

ASN1CType::ASN1CType() : mpContext(0), mpMsgBuf(0) {
    mpContext = new ASN1Context;
    mpContext->_ref();
}

ASN1CType::ASN1CType(ASN1Context& ctxt) : mpContext(&ctxt), mpMsgBuf(0) { mpContext->_ref(); }

ASN1CType::ASN1CType(const ASN1CType& other) : mpContext(other.mpContext), mpMsgBuf(other.mpMsgBuf) {
    if (mpContext) mpContext->_ref();
}

ASN1CType::~ASN1CType() {
    if (mpContext) mpContext->_unref();
}

int ASN1CType::Encode() { return mpMsgBuf ? EncodeTo(*mpMsgBuf) : RT_E_BAD_ARGUMENT; }

int ASN1CType::Decode() { return mpMsgBuf ? DecodeFrom(*mpMsgBuf) : RT_E_BAD_ARGUMENT; }

int ASN1CType::EncodeTo(ASN1MessageBufferIF&) { return 0; }

int ASN1CType::DecodeFrom(ASN1MessageBufferIF&) { return 0; }

void ASN1CType::setMsgBuf(ASN1MessageBufferIF& msgBuf) {
    mpMsgBuf = &msgBuf;
    if (mpContext) rtCtxtSetMemHeap(mpContext->GetPtr(), msgBuf.getCtxtPtr());
}
