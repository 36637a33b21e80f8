// The small leaf values of the object model: an algorithm identifier (with a cached
// ALG_ID in its Ex form), the byte-string integer, and the text conversions of both.
#pragma once

#include "pki/codec.h"
#include "qvcapi.h"

#include <string>

namespace Quorvane {
namespace ASN1 {

class CAlgorithmIdentifier {
public:
    CAlgorithmIdentifier();
    CAlgorithmIdentifier(const char* oid);
    CAlgorithmIdentifier(const CAlgorithmIdentifier& other);
    virtual ~CAlgorithmIdentifier();

    void assign(const CAlgorithmIdentifier& other);
    void swap(CAlgorithmIdentifier& other);
    // Copy and swap, so a failure leaves this object as it was.
    CAlgorithmIdentifier& operator=(const CAlgorithmIdentifier& other);

    const char* get_algorithm() const { return m_algorithm.c_str(); }
    const CBlob& get_parameters() const { return m_parameters; }
    virtual void put_algorithm(const char* oid);
    void put_parameters(const CBlob& parameters);

    // Empty parameters are absent on the wire; there is no implied NULL.
    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    CStringProxy m_algorithm;
    CBlob m_parameters;
};

// Equal text and equal parameter bytes: an empty blob and an encoded NULL differ.
bool operator==(const CAlgorithmIdentifier& a, const CAlgorithmIdentifier& b);
bool operator!=(const CAlgorithmIdentifier& a, const CAlgorithmIdentifier& b);

// Caches CertOIDToAlgId of its identifier, which users fill on demand through a const
// object; 0 means not resolved yet.
class CAlgorithmIdentifierEx : public CAlgorithmIdentifier {
public:
    CAlgorithmIdentifierEx() : m_algId(0) {}
    CAlgorithmIdentifierEx(const char* oid) : CAlgorithmIdentifier(oid), m_algId(0) {}

    // Only a different text clears the cache.
    void put_algorithm(const char* oid) override;
    ALG_ID get_algId() const { return m_algId; }
    void put_algId(ALG_ID algId) const { m_algId = algId; }

private:
    mutable ALG_ID m_algId;
};

// Big-endian two's complement content octets, as in a BER INTEGER.
class CBigInteger : public CBlob {
public:
    CBigInteger() {}
    CBigInteger(const unsigned char* data, unsigned long length) : CBlob(data, length) {}
    // A blob of that many bytes, not a value.
    explicit CBigInteger(unsigned long length) : CBlob(length) {}
    CBigInteger(const CBigInteger& other) = default;
    CBigInteger& operator=(const CBigInteger& other) = default;

    // From the last byte up: 0xFF wraps with a carry; the index reaching `stop` ends it.
    void increment(int stop);
    // Equal sizes only (E_INVALIDARG otherwise); the final carry, never grown.
    int add(const CBigInteger& other);
    CBigInteger& operator++();
    CBigInteger operator++(int);

    // Order of values, except that a longer negative number compares greater.
    int compare(const CBigInteger& other) const;
    // Clears the sign bit; not a negation.
    CBigInteger abs() const;

    CBlob encode() const;
    void decode(const CBlob& blob);
};

bool operator==(const CBigInteger& a, const CBigInteger& b);
bool operator!=(const CBigInteger& a, const CBigInteger& b);
bool operator<(const CBigInteger& a, const CBigInteger& b);
bool operator>(const CBigInteger& a, const CBigInteger& b);
bool operator<=(const CBigInteger& a, const CBigInteger& b);
bool operator>=(const CBigInteger& a, const CBigInteger& b);

// The structure of an identifier, new on the context's heap; the parameters pass the
// information object set's check first.
asn1data::ASN1T_AlgorithmIdentifier* ASN1T_AlgorithmIdentifier_set(ASN1CTXT* ctxt, const char* oid,
                                                                    const CBlob* parameters);
// Through the virtual put_algorithm, so an Ex target drops its cache.
void ASN1T_AlgorithmIdentifier_get(CAlgorithmIdentifier& value, const asn1data::ASN1T_AlgorithmIdentifier& src);

struct ASN1T_AlgorithmIdentifier_traits {
    typedef asn1data::ASN1T_AlgorithmIdentifier ASN1_T;
    typedef asn1data::ASN1C_AlgorithmIdentifier ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CAlgorithmIdentifier& src);
    static void get(const ASN1_T& src, CAlgorithmIdentifier& dst) { ASN1T_AlgorithmIdentifier_get(dst, src); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_AlgorithmIdentifier(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

// "0x" and hexadecimal digits; anything shorter than "0x?" is CRYPT_E_ASN1_INTERNAL.
void StringToBigInteger(const char* text, CBigInteger& value);
// "0x" and upper-case digits with the NUL, in out.
void BigIntegerToString(const CBigInteger& value, CBlob& out);
void ASN1StringToBigInteger(const char* text, CBigInteger& value);
const char* BigIntegerToASN1String(ASN1CTXT* ctxt, const CBigInteger& value);
// All four bytes are kept: a top bit reads as negative on the wire.
char* DWORDToASN1BigInteger(ASN1CTXT* ctxt, unsigned int value);
// Folds the bytes with a factor of 11, not 256: only one-byte values come back as such.
unsigned int ASN1BigIntegerToDWORD(const char* text);
// From the last byte up; the last byte touched.
unsigned char* ASN1T_BigInt_inc(unsigned char* data, int length, int stop);

// Code page 0 conversions; one output unit per input character, so text that needs more
// fails with the last error.
std::string tostring(const wchar_t* text);
std::string tostring(const unsigned short* text);
std::string tostring(int value);
std::wstring towstring(const char* text);
std::wstring towstring(int value);

}  // namespace ASN1
}  // namespace Quorvane
