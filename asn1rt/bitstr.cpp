// ASN1CBitStr: a set of bits over own or borrowed storage.
#include "asn1rt/bitstr.h"

#include <string.h>

namespace {

const ASN1UINT kNoLimit = 0xFFFFFFFFu;

// Octets that hold the given number of bits.
int unitsFor(ASN1UINT bits) { return bits == 0 ? 0 : (int)((bits - 1) / 8 + 1); }

enum RangeOp { kSet, kClear, kFlip };

// Applies the operation to bits [from, to), whole octets at a time where it can.
void applyRange(ASN1OCTET* d, ASN1UINT from, ASN1UINT to, RangeOp op) {
    ASN1UINT i = from;
    while (i < to) {
        if (i % 8 == 0 && to - i >= 8) {
            ASN1OCTET& o = d[i / 8];
            o = op == kSet ? 0xFF : op == kClear ? 0x00 : (ASN1OCTET)~o;
            i += 8;
        } else {
            ASN1OCTET mask = (ASN1OCTET)(0x80u >> (i % 8));
            ASN1OCTET& o = d[i / 8];
            o = op == kSet ? (ASN1OCTET)(o | mask)
                           : op == kClear ? (ASN1OCTET)(o & ~mask) : (ASN1OCTET)(o ^ mask);
            ++i;
        }
    }
}

// The operand's octet at i, with the bits behind its bit count cleared.
ASN1OCTET operandOctet(const ASN1OCTET* p, int i, ASN1UINT bits) {
    ASN1OCTET v = p[i];
    if ((ASN1UINT)(i + 1) * 8 > bits && bits % 8 != 0) v &= (ASN1OCTET)(0xFF00u >> (bits % 8));
    return v;
}

int popcount8(ASN1OCTET v) {
    int n = 0;
    for (; v; v &= (ASN1OCTET)(v - 1)) ++n;
    return n;
}

}  // namespace

// ---- construction ----------------------------------------------------------------------

void ASN1CBitStr::privateInit(ASN1UINT nbits) {
    mOwnNumBits = 0;
    mpOwnBits = 0;
    mpUnits = &mpOwnBits;
    mpNumBits = &mOwnNumBits;
    mUnitsUsed = 0;
    mUnitsAllocated = 0;
    mDynamic = 1;
    if (nbits == 0) {
        mMaxNumBits = kNoLimit;
        return;
    }
    mMaxNumBits = nbits;
    mpOwnBits = allocateMemory(unitsFor(nbits));
    if (mpOwnBits) mUnitsAllocated = unitsFor(nbits);
}

void ASN1CBitStr::bindCaller(ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits) {
    mOwnNumBits = 0;
    mpOwnBits = pBits;
    mpUnits = &mpOwnBits;
    mpNumBits = &numbits;
    mMaxNumBits = maxNumBits;
    mDynamic = 0;
    if (!pBits) {
        mUnitsUsed = mUnitsAllocated = 0;
        return;
    }
    if (numbits > maxNumBits) numbits = maxNumBits;
    mUnitsUsed = unitsFor(numbits);
    mUnitsAllocated = unitsFor(maxNumBits);
    if (mUnitsUsed > 0 && numbits % 8 != 0)
        pBits[mUnitsUsed - 1] &= (ASN1OCTET)(0xFF00u >> (numbits % 8));
    if (mUnitsAllocated > mUnitsUsed)
        memset(pBits + mUnitsUsed, 0, (size_t)(mUnitsAllocated - mUnitsUsed));
}

void ASN1CBitStr::bindValue(ASN1TDynBitStr& bitStr) {
    mOwnNumBits = 0;
    mpOwnBits = 0;
    mpUnits = const_cast<ASN1OCTET**>(&bitStr.data);
    mpNumBits = &bitStr.numbits;
    mMaxNumBits = kNoLimit;
    mDynamic = 0;
    mUnitsUsed = mUnitsAllocated = bitStr.data ? unitsFor(bitStr.numbits) : 0;
    // The lowest bit of the last octet goes, whatever the count says.
    if (mUnitsUsed > 0) (*mpUnits)[mUnitsUsed - 1] &= 0xFE;
}

void ASN1CBitStr::copyFrom(const ASN1CBitStr& src, bool extendable) {
    mOwnNumBits = *src.mpNumBits;
    mpOwnBits = 0;
    mpUnits = &mpOwnBits;
    mpNumBits = &mOwnNumBits;
    mDynamic = 1;
    mUnitsUsed = src.mUnitsUsed;
    if (extendable) {
        mUnitsAllocated = src.mUnitsUsed + 1024;
        mMaxNumBits = kNoLimit;
    } else {
        mUnitsAllocated = src.mUnitsAllocated > src.mUnitsUsed ? src.mUnitsAllocated : src.mUnitsUsed;
        mMaxNumBits = src.mMaxNumBits;
    }
    mpOwnBits = allocateMemory(mUnitsAllocated);
    if (!mpOwnBits) {
        mUnitsAllocated = mUnitsUsed = 0;
        mOwnNumBits = 0;
        return;
    }
    if (mUnitsUsed > 0 && *src.mpUnits) memcpy(mpOwnBits, *src.mpUnits, (size_t)mUnitsUsed);
}

ASN1CBitStr::ASN1CBitStr(ASN1MessageBufferIF& msgBuf) : ASN1CType(msgBuf) {
    privateInit(0);
    mMaxNumBits = 0;
    mDynamic = 0;
}

ASN1CBitStr::ASN1CBitStr(ASN1Context& ctxt) : ASN1CType(ctxt) {
    privateInit(0);
    mMaxNumBits = 0;
    mDynamic = 0;
}

ASN1CBitStr::ASN1CBitStr() : ASN1CType() {
    privateInit(0);
    mMaxNumBits = 0;
    mDynamic = 0;
}

ASN1CBitStr::ASN1CBitStr(ASN1MessageBufferIF& msgBuf, ASN1UINT nbits) : ASN1CType(msgBuf) {
    privateInit(nbits);
}

ASN1CBitStr::ASN1CBitStr(ASN1Context& ctxt, ASN1UINT nbits) : ASN1CType(ctxt) {
    privateInit(nbits);
}

ASN1CBitStr::ASN1CBitStr(ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits) : ASN1CType() {
    bindCaller(pBits, numbits, maxNumBits);
}

ASN1CBitStr::ASN1CBitStr(ASN1MessageBufferIF& msgBuf, ASN1OCTET* pBits, ASN1UINT& numbits,
                         ASN1UINT maxNumBits)
    : ASN1CType(msgBuf) {
    bindCaller(pBits, numbits, maxNumBits);
}

ASN1CBitStr::ASN1CBitStr(ASN1Context& ctxt, ASN1OCTET* pBits, ASN1UINT& numbits,
                         ASN1UINT maxNumBits)
    : ASN1CType(ctxt) {
    bindCaller(pBits, numbits, maxNumBits);
}

ASN1CBitStr::ASN1CBitStr(ASN1TDynBitStr& bitStr) : ASN1CType() { bindValue(bitStr); }

ASN1CBitStr::ASN1CBitStr(ASN1MessageBufferIF& msgBuf, ASN1TDynBitStr& bitStr) : ASN1CType(msgBuf) {
    bindValue(bitStr);
}

ASN1CBitStr::ASN1CBitStr(ASN1Context& ctxt, ASN1TDynBitStr& bitStr) : ASN1CType(ctxt) {
    bindValue(bitStr);
}

ASN1CBitStr::ASN1CBitStr(const ASN1CBitStr& bitStr) : ASN1CType(bitStr) { copyFrom(bitStr, false); }

ASN1CBitStr::ASN1CBitStr(const ASN1CBitStr& bitStr, unsigned char extendable) : ASN1CType(bitStr) {
    copyFrom(bitStr, extendable != 0);
}

ASN1CBitStr::~ASN1CBitStr() {
    if (mDynamic && *mpUnits) freeMemory(*mpUnits);
}

void ASN1CBitStr::init(ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits) {
    mpOwnBits = pBits;
    mpUnits = &mpOwnBits;
    mpNumBits = &numbits;
    mMaxNumBits = maxNumBits;
    mUnitsUsed = (ASN1INT)(numbits * 8u);
    mUnitsAllocated = (ASN1INT)(maxNumBits * 8u);
    // The storage is the caller's now: it must never reach the heap's free.
    mDynamic = 0;
}

void ASN1CBitStr::init(ASN1TDynBitStr& bitStr) {
    mpUnits = const_cast<ASN1OCTET**>(&bitStr.data);
    mpNumBits = &bitStr.numbits;
    mMaxNumBits = kNoLimit;
    mUnitsUsed = mUnitsAllocated = bitStr.data ? unitsFor(bitStr.numbits) : 0;
    mDynamic = 0;
}

// ---- memory ------------------------------------------------------------------------------

ASN1OCTET* ASN1CBitStr::allocateMemory(int nbytes) {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt || nbytes < 0) return 0;
    return (ASN1OCTET*)rtMemHeapAllocZ(&ctxt->typeHeap, nbytes);
}

void ASN1CBitStr::freeMemory(ASN1OCTET* pmem) {
    if (ASN1CTXT* ctxt = getCtxtPtr()) rtMemHeapFreePtr(&ctxt->typeHeap, pmem);
}

ASN1OCTET* ASN1CBitStr::reallocateMemory(ASN1OCTET* pmem, int oldBufSz, int newBufSz) {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt || newBufSz < 0) return 0;
    ASN1OCTET* p = (ASN1OCTET*)rtMemHeapRealloc(&ctxt->typeHeap, pmem, newBufSz);
    if (p && newBufSz > oldBufSz) {
        int from = oldBufSz < 0 ? 0 : oldBufSz;
        memset(p + from, 0, (size_t)(newBufSz - from));
    }
    return p;
}

int ASN1CBitStr::checkCapacity(int unitsRequired) {
    if (mUnitsAllocated < unitsRequired) {
        if (mMaxNumBits != kNoLimit) return RT_E_BAD_LENGTH;
        if (unitsRequired > 0x7fffffff - 1024) return RT_E_NO_MEMORY;
        int newSize = unitsRequired + 1024;
        ASN1OCTET* data = *mpUnits;
        ASN1OCTET* p;
        if (!data) {
            p = allocateMemory(newSize);
        } else if (mDynamic) {
            p = reallocateMemory(data, mUnitsAllocated, newSize);
        } else {
            p = allocateMemory(newSize);
            if (p && mUnitsAllocated > 0) memcpy(p, data, (size_t)mUnitsAllocated);
            if (p) mDynamic = 1;
        }
        if (!p) return RT_E_NO_MEMORY;
        *mpUnits = p;
        mUnitsAllocated = newSize;
    }
    if (mUnitsUsed < unitsRequired) mUnitsUsed = unitsRequired;
    return 0;
}

void ASN1CBitStr::recalculateUnitsUsed() {
    const ASN1OCTET* d = *mpUnits;
    if (!d) mUnitsUsed = 0;
    while (mUnitsUsed > 0 && d[mUnitsUsed - 1] == 0) --mUnitsUsed;
    *mpNumBits = mUnitsUsed > 0 ? (ASN1UINT)(mUnitsUsed - 1) * 8 + (ASN1UINT)rtOctetBitLen(d[mUnitsUsed - 1]) : 0;
}

int ASN1CBitStr::error(int status) {
    ASN1CTXT* ctxt = getCtxtPtr();
    return ctxt ? rtErrSetData(&ctxt->errInfo, status) : status;
}

bool ASN1CBitStr::bit(ASN1UINT i) const { return ((*mpUnits)[i / 8] & (0x80u >> (i % 8))) != 0; }

void ASN1CBitStr::putBit(ASN1UINT i, bool on) {
    ASN1OCTET mask = (ASN1OCTET)(0x80u >> (i % 8));
    ASN1OCTET& o = (*mpUnits)[i / 8];
    o = on ? (ASN1OCTET)(o | mask) : (ASN1OCTET)(o & ~mask);
}

// ---- single bits and ranges ------------------------------------------------------------------

int ASN1CBitStr::set(ASN1UINT bitIndex) {
    if (bitIndex > mMaxNumBits || bitIndex == kNoLimit) return error(RT_E_OUT_OF_RANGE);
    int st = checkCapacity((int)(bitIndex / 8) + 1);
    if (st != 0) return error(st);
    putBit(bitIndex, true);
    if (*mpNumBits < bitIndex + 1) *mpNumBits = bitIndex + 1;
    return 0;
}

int ASN1CBitStr::set(ASN1UINT fromIndex, ASN1UINT toIndex) {
    if (fromIndex > mMaxNumBits || toIndex > mMaxNumBits) return error(RT_E_OUT_OF_RANGE);
    if (fromIndex > toIndex) return error(RT_E_BAD_RANGE);
    if (toIndex > 0) {
        int st = checkCapacity(unitsFor(toIndex));
        if (st != 0) return error(st);
    }
    applyRange(*mpUnits, fromIndex, toIndex, kSet);
    if (*mpNumBits < toIndex) *mpNumBits = toIndex;
    return 0;
}

int ASN1CBitStr::clear(ASN1UINT bitIndex) {
    if (bitIndex > mMaxNumBits) return error(RT_E_OUT_OF_RANGE);
    if (bitIndex / 8 >= (ASN1UINT)mUnitsUsed || !*mpUnits) return 0;
    putBit(bitIndex, false);
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::clear(ASN1UINT fromIndex, ASN1UINT toIndex) {
    if (fromIndex > mMaxNumBits || toIndex > mMaxNumBits) return error(RT_E_OUT_OF_RANGE);
    if (fromIndex > toIndex) return error(RT_E_BAD_RANGE);
    unsigned long long usedBits = *mpUnits ? (unsigned long long)mUnitsUsed * 8 : 0;
    ASN1UINT end = toIndex < usedBits ? toIndex : (ASN1UINT)usedBits;
    if (fromIndex >= end) return 0;
    applyRange(*mpUnits, fromIndex, end, kClear);
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::clear() {
    if (*mpUnits && mUnitsUsed > 0) memset(*mpUnits, 0, (size_t)mUnitsUsed);
    mUnitsUsed = 0;
    *mpNumBits = 0;
    return 0;
}

int ASN1CBitStr::invert(ASN1UINT bitIndex) {
    if (bitIndex > mMaxNumBits || bitIndex == kNoLimit) return error(RT_E_OUT_OF_RANGE);
    int st = checkCapacity((int)(bitIndex / 8) + 1);
    if (st != 0) return error(st);
    (*mpUnits)[bitIndex / 8] ^= (ASN1OCTET)(0x80u >> (bitIndex % 8));
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::invert(ASN1UINT fromIndex, ASN1UINT toIndex) {
    if (fromIndex > mMaxNumBits || toIndex > mMaxNumBits) return error(RT_E_OUT_OF_RANGE);
    if (fromIndex > toIndex) return error(RT_E_BAD_RANGE);
    if (fromIndex == toIndex) return 0;
    int st = checkCapacity(unitsFor(toIndex));
    if (st != 0) return error(st);
    applyRange(*mpUnits, fromIndex, toIndex, kFlip);
    recalculateUnitsUsed();
    return 0;
}

bool ASN1CBitStr::get(ASN1UINT bitIndex) {
    if (bitIndex > mMaxNumBits || bitIndex / 8 >= (ASN1UINT)mUnitsUsed || !*mpUnits) return false;
    return bit(bitIndex);
}

int ASN1CBitStr::get(ASN1UINT fromIndex, ASN1UINT toIndex, ASN1OCTET* pBuf, int bufSz) {
    if (fromIndex > mMaxNumBits || toIndex > mMaxNumBits) return error(RT_E_OUT_OF_RANGE);
    if (fromIndex > toIndex) return error(RT_E_BAD_RANGE);
    if (bufSz < 0 || (unsigned long long)(toIndex - fromIndex) > (unsigned long long)bufSz * 8)
        return error(RT_E_TOO_LONG);
    if (!pBuf) return error(RT_E_BAD_ARGUMENT);
    memset(pBuf, 0, (size_t)bufSz);
    unsigned long long usedBits = *mpUnits ? (unsigned long long)mUnitsUsed * 8 : 0;
    unsigned long long end = toIndex;
    if (end > *mpNumBits) end = *mpNumBits;
    if (end > usedBits) end = usedBits;
    for (unsigned long long i = fromIndex; i < end; ++i) {
        if (bit((ASN1UINT)i)) {
            unsigned long long j = i - fromIndex;
            pBuf[j / 8] |= (ASN1OCTET)(0x80u >> (j % 8));
        }
    }
    return 0;
}

int ASN1CBitStr::getBytes(ASN1OCTET* pBuf, int bufSz) {
    if (mUnitsUsed > bufSz) return error(RT_E_BAD_LENGTH);
    if (!pBuf) return error(RT_E_BAD_ARGUMENT);
    if (mUnitsUsed > 0 && *mpUnits) memcpy(pBuf, *mpUnits, (size_t)mUnitsUsed);
    memset(pBuf + mUnitsUsed, 0, (size_t)(bufSz - mUnitsUsed));
    return 0;
}

// ---- reading the whole ---------------------------------------------------------------------------

int ASN1CBitStr::length() const {
    if (mUnitsUsed <= 0 || !*mpUnits) return 0;
    return (mUnitsUsed - 1) * 8 + rtOctetBitLen((*mpUnits)[mUnitsUsed - 1]);
}

int ASN1CBitStr::cardinality() const {
    if (!*mpUnits) return 0;
    int n = 0;
    for (int i = 0; i < mUnitsUsed; ++i) n += popcount8((*mpUnits)[i]);
    return n;
}

int ASN1CBitStr::unusedBitsInLastUnit() const {
    if (mUnitsUsed <= 0 || !*mpUnits) return 0;
    return 8 - rtOctetBitLen((*mpUnits)[mUnitsUsed - 1]);
}

ASN1CBitStr::operator ASN1TDynBitStr() const {
    ASN1TDynBitStr v;
    v.numbits = (ASN1UINT)length();
    v.data = *mpUnits;
    return v;
}

ASN1CBitStr::operator ASN1TDynBitStr*() {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!ctxt) return 0;
    ASN1TDynBitStr* rec = (ASN1TDynBitStr*)rtMemHeapAllocZ(&ctxt->typeHeap, (int)sizeof(ASN1TDynBitStr));
    if (!rec) return 0;
    ASN1OCTET* copy = (ASN1OCTET*)rtMemHeapAlloc(&ctxt->typeHeap, mUnitsUsed);
    if (!copy) return 0;
    if (mUnitsUsed > 0 && *mpUnits) memcpy(copy, *mpUnits, (size_t)mUnitsUsed);
    rec->numbits = (ASN1UINT)length();
    rec->data = copy;
    return rec;
}

// ---- bitwise operations ---------------------------------------------------------------------------

int ASN1CBitStr::doAnd(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits) {
    if (!pOctstr || pOctstr == *mpUnits) return error(RT_E_BAD_ARGUMENT);
    if (octsNumbits == 0) return clear();
    int n = unitsFor(octsNumbits);
    int m = n < mUnitsUsed ? n : mUnitsUsed;
    ASN1OCTET* d = *mpUnits;
    for (int i = 0; i < m; ++i) d[i] &= pOctstr[i];
    if (mUnitsUsed > m) memset(d + m, 0, (size_t)(mUnitsUsed - m));
    mUnitsUsed = m;
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::doOr(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits) {
    if (!pOctstr || pOctstr == *mpUnits) return error(RT_E_BAD_ARGUMENT);
    if (octsNumbits == 0) {
        if (mMaxNumBits == kNoLimit) return error(RT_E_BAD_ARGUMENT);
        return set(0, mMaxNumBits);
    }
    if (mMaxNumBits != kNoLimit && octsNumbits > mMaxNumBits) octsNumbits = mMaxNumBits;
    int n = unitsFor(octsNumbits);
    int st = checkCapacity(n);
    if (st != 0) return error(st);
    ASN1OCTET* d = *mpUnits;
    for (int i = 0; i < n; ++i) d[i] |= operandOctet(pOctstr, i, octsNumbits);
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::doXor(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits) {
    if (!pOctstr) return error(RT_E_BAD_ARGUMENT);
    if (octsNumbits == 0) return 0;
    if (mMaxNumBits != kNoLimit && octsNumbits > mMaxNumBits) octsNumbits = mMaxNumBits;
    int n = unitsFor(octsNumbits);
    if (pOctstr == *mpUnits) {
        // With itself: every octet both hold becomes zero, whatever growth would move.
        int m = n < mUnitsUsed ? n : mUnitsUsed;
        for (int i = 0; i < m; ++i) (*mpUnits)[i] ^= operandOctet(pOctstr, i, octsNumbits);
        recalculateUnitsUsed();
        return 0;
    }
    int st = checkCapacity(n);
    if (st != 0) return error(st);
    ASN1OCTET* d = *mpUnits;
    for (int i = 0; i < n; ++i) d[i] ^= operandOctet(pOctstr, i, octsNumbits);
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::doAndNot(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits) {
    if (!pOctstr) return error(RT_E_BAD_ARGUMENT);
    if (octsNumbits == 0) return 0;
    int n = unitsFor(octsNumbits);
    int m = n < mUnitsUsed ? n : mUnitsUsed;
    ASN1OCTET* d = *mpUnits;
    for (int i = 0; i < m; ++i) d[i] &= (ASN1OCTET)~operandOctet(pOctstr, i, octsNumbits);
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::shiftLeft(ASN1UINT n) {
    ASN1UINT len = (ASN1UINT)length();
    if (len == 0) return 0;
    for (ASN1UINT i = 0; i < len; ++i) {
        unsigned long long src = (unsigned long long)i + n;
        putBit(i, src < len && bit((ASN1UINT)src));
    }
    recalculateUnitsUsed();
    return 0;
}

int ASN1CBitStr::shiftRight(ASN1UINT n) {
    ASN1UINT len = (ASN1UINT)length();
    if (len == 0) return 0;
    ASN1UINT top;  // bits at or past it are dropped
    if (mMaxNumBits == kNoLimit) {
        unsigned long long want = (unsigned long long)len + n;
        if (want >= 0x7fffffffULL) return error(RT_E_OUT_OF_RANGE);
        int st = checkCapacity(unitsFor((ASN1UINT)want));
        if (st != 0) return error(st);
        top = (ASN1UINT)want;
    } else {
        if (n >= len) return clear();
        top = len;
    }
    for (ASN1UINT i = top; i-- > 0;) putBit(i, i >= n && bit(i - n));
    recalculateUnitsUsed();
    return 0;
}
