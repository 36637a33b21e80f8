// The BER encode and decode buffers.
#include "asn1rt/ber.h"
#include "asn1rt/messagebuffer.h"

#include <string.h>

// ---- ASN1BEREncodeBuffer ------------------------------------------------------------------

ASN1BEREncodeBuffer::ASN1BEREncodeBuffer() : ASN1BERMessageBuffer(BEREncode) {
    int st = xe_setp(getCtxtPtr(), 0, 0);
    if (st != 0) throw RTLError(st);
}

ASN1BEREncodeBuffer::ASN1BEREncodeBuffer(ASN1OCTET* pMsgBuf, int msgBufLen)
    : ASN1BERMessageBuffer(BEREncode) {
    int st = xe_setp(getCtxtPtr(), pMsgBuf, msgBufLen);
    if (st != 0) throw RTLError(st);
}

ASN1BEREncodeBuffer::~ASN1BEREncodeBuffer() {}

ASN1OCTET* ASN1BEREncodeBuffer::getMsgCopy() {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt || ctxt->bufSize == ctxt->bufIndex || ctxt->bufIndex > ctxt->bufSize) return 0;
    const ASN1OCTET* msg = xe_getp(ctxt);
    if (!msg) return 0;
    ASN1UINT n = ctxt->bufSize - ctxt->bufIndex;
    ASN1OCTET* copy = new ASN1OCTET[n];
    memcpy(copy, msg, n);
    return copy;
}

const ASN1OCTET* ASN1BEREncodeBuffer::getMsgPtr() { return xe_getp(getCtxtPtr()); }

int ASN1BEREncodeBuffer::init() {
    ASN1CTXT* ctxt = getCtxtPtr();
    ctxt->bufIndex = ctxt->bufSize - 1;
    return (int)ctxt->bufIndex;
}

bool ASN1BEREncodeBuffer::isA(Type bufferType) { return bufferType == BEREncode; }

int ASN1BEREncodeBuffer::setBuffer(ASN1OCTET* pMsgBuf, int msgBufLen) {
    return xe_setp(getCtxtPtr(), pMsgBuf, msgBufLen);
}

ASN1BEREncodeBuffer& ASN1BEREncodeBuffer::operator<<(ASN1CType& val) {
    int st = val.EncodeTo(*this);
    if (st != 0) throw ASN1RTLException(st);
    return *this;
}

// ---- ASN1BERDecodeBuffer ------------------------------------------------------------------

ASN1BERDecodeBuffer::ASN1BERDecodeBuffer()
    : ASN1BERMessageBuffer(BERDecode), mpMsgBuf(0), mMsgBufLen(0), mbAttached(0) {}

ASN1BERDecodeBuffer::ASN1BERDecodeBuffer(const ASN1OCTET* pMsgBuf, int msgBufLen)
    : ASN1BERMessageBuffer(BERDecode), mpMsgBuf(pMsgBuf), mMsgBufLen(msgBufLen), mbAttached(0) {}

ASN1BERDecodeBuffer::~ASN1BERDecodeBuffer() {}

int ASN1BERDecodeBuffer::init() {
    if (mbAttached) return 0;
    mbAttached = 1;
    return xd_setp(getCtxtPtr(), mpMsgBuf, mMsgBufLen, 0, 0);
}

bool ASN1BERDecodeBuffer::isA(Type bufferType) { return bufferType == BERDecode; }

int ASN1BERDecodeBuffer::setBuffer(const ASN1OCTET* pMsgBuf, int msgBufLen) {
    if (mbAttached && pMsgBuf == mpMsgBuf && msgBufLen == mMsgBufLen) return 0;
    mpMsgBuf = pMsgBuf;
    mMsgBufLen = msgBufLen;
    mbAttached = 1;
    return xd_setp(getCtxtPtr(), mpMsgBuf, mMsgBufLen, 0, 0);
}

const ASN1OCTET* ASN1BERDecodeBuffer::findElement(ASN1TAG tag, int& elemLen, int firstFlag) {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (firstFlag) {
        mbAttached = 1;
        if (xd_setp(ctxt, mpMsgBuf, mMsgBufLen, 0, 0) != 0) return 0;
    }
    int mode = firstFlag ? RT_MATCH_SEEK : (RT_MATCH_SEEK | RT_MATCH_SKIP_FIRST);
    if (xd_match(ctxt, tag, &elemLen, mode) != 0) return 0;
    return ctxt->bufData + ctxt->bufIndex;
}

ASN1BERDecodeBuffer& ASN1BERDecodeBuffer::operator>>(ASN1CType& val) {
    int st = val.DecodeFrom(*this);
    if (st != 0) throw ASN1RTLException(st);
    return *this;
}
