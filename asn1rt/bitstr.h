/* Control class of every BIT STRING: a growing set of bits over its own storage or over
 * a caller's value.  Bit 0 is the top bit of the first octet; the bit count follows the
 * highest set bit, except that the set family raises it to the bit it was given. */
#ifndef ASN1RT_BITSTR_H
#define ASN1RT_BITSTR_H

#include "asn1rt/charstr.h"
#include "asn1rt/lists.h"
#include "asn1rt/messagebuffer.h"

#ifdef __cplusplus

class ASN1RT_API ASN1CBitStr : public ASN1CType {
public:
    /* No storage: count 0, limit 0. */
    explicit ASN1CBitStr(ASN1MessageBufferIF& msgBuf);
    explicit ASN1CBitStr(ASN1Context& ctxt);
    ASN1CBitStr();
    /* Own storage for the given bits; 0 means none yet and no limit. */
    ASN1CBitStr(ASN1MessageBufferIF& msgBuf, ASN1UINT nbits);
    ASN1CBitStr(ASN1Context& ctxt, ASN1UINT nbits);
    /* The caller's octets and count; maxNumBits is their capacity in bits. */
    ASN1CBitStr(ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits);
    ASN1CBitStr(ASN1MessageBufferIF& msgBuf, ASN1OCTET* pBits, ASN1UINT& numbits,
                ASN1UINT maxNumBits);
    ASN1CBitStr(ASN1Context& ctxt, ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits);
    /* The fields of a value; no limit. */
    explicit ASN1CBitStr(ASN1TDynBitStr& bitStr);
    ASN1CBitStr(ASN1MessageBufferIF& msgBuf, ASN1TDynBitStr& bitStr);
    ASN1CBitStr(ASN1Context& ctxt, ASN1TDynBitStr& bitStr);
    /* An own copy with the same allocated size, sharing the context. */
    ASN1CBitStr(const ASN1CBitStr& bitStr);
    /* With extendable: 1024 spare octets and no limit. */
    ASN1CBitStr(const ASN1CBitStr& bitStr, unsigned char extendable);
    virtual ~ASN1CBitStr();

    /* Rebinds storage and nothing else: units used becomes numbits times 8 and units
     * allocated maxNumBits times 8, as generated code has always relied on. */
    void init(ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits);
    void init(ASN1TDynBitStr& bitStr);

    int set(ASN1UINT bitIndex);
    int set(ASN1UINT fromIndex, ASN1UINT toIndex);
    int clear(ASN1UINT bitIndex);
    int clear(ASN1UINT fromIndex, ASN1UINT toIndex);
    int clear();
    int invert(ASN1UINT bitIndex);
    int invert(ASN1UINT fromIndex, ASN1UINT toIndex);
    bool get(ASN1UINT bitIndex);
    /* Copies bits [fromIndex, toIndex) packed from the top of the first octet. */
    int get(ASN1UINT fromIndex, ASN1UINT toIndex, ASN1OCTET* pBuf, int bufSz);
    int getBytes(ASN1OCTET* pBuf, int bufSz);

    int length() const;
    int size() const { return mUnitsUsed; }
    int cardinality() const;
    int unusedBitsInLastUnit() const;
    bool isEmpty() const { return length() == 0; }
    ASN1UINT getNumBits() const { return *mpNumBits; }
    ASN1UINT getMaxNumBits() const { return mMaxNumBits; }
    int getUnitsAllocated() const { return mUnitsAllocated; }
    const ASN1OCTET* data() const { return *mpUnits; }

    operator ASN1TDynBitStr() const;
    operator ASN1TDynBitStr*();

    int doAnd(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits);
    int doOr(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits);
    int doXor(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits);
    int doAndNot(const ASN1OCTET* pOctstr, ASN1UINT octsNumbits);
    int shiftLeft(ASN1UINT n);
    int shiftRight(ASN1UINT n);

protected:
    ASN1OCTET* allocateMemory(int nbytes);
    void freeMemory(ASN1OCTET* pmem);
    ASN1OCTET* reallocateMemory(ASN1OCTET* pmem, int oldBufSz, int newBufSz);
    int checkCapacity(int unitsRequired);
    void recalculateUnitsUsed();

    ASN1UINT mOwnNumBits;
    ASN1OCTET* mpOwnBits;
    ASN1OCTET** mpUnits;
    ASN1UINT mMaxNumBits;
    ASN1UINT* mpNumBits;
    ASN1INT mUnitsUsed;
    ASN1INT mUnitsAllocated;
    ASN1UINT8 mDynamic;

private:
    void privateInit(ASN1UINT nbits);
    void bindCaller(ASN1OCTET* pBits, ASN1UINT& numbits, ASN1UINT maxNumBits);
    void bindValue(ASN1TDynBitStr& bitStr);
    void copyFrom(const ASN1CBitStr& src, bool extendable);
    int error(int status);
    bool bit(ASN1UINT i) const;
    void putBit(ASN1UINT i, bool on);
    ASN1CBitStr& operator=(const ASN1CBitStr&);
};

#endif /* __cplusplus */

#endif /* ASN1RT_BITSTR_H */
