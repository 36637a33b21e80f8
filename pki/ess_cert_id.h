// ESS (RFC 2634, RFC 5035) and ETSI (RFC 5126) identifiers of a signing certificate: the
// hash of the certificate and, optionally, its issuer and serial number. They are the
// elements of the signing-certificate attributes.
#pragma once

#include "pki/cert_id.h"
#include "pki/general_name.h"

#include <list>

namespace Quorvane {
namespace ASN1 {

class COtherHashImpl;

class CIssuerSerial {
public:
    CIssuerSerial() {}
    CIssuerSerial(const CGeneralNames& issuer, const CBigInteger& serialNumber)
        : m_issuer(issuer), m_serialNumber(serialNumber) {}
    CIssuerSerial(const CIssuerSerial& other) = default;
    CIssuerSerial& operator=(const CIssuerSerial& other);

    const CGeneralNames& get_issuer() const { return m_issuer; }
    const CBigInteger& get_serialNumber() const { return m_serialNumber; }
    void put_issuer(const CGeneralNames& issuer) { m_issuer = issuer; }
    void put_serialNumber(const CBigInteger& serialNumber) { m_serialNumber = serialNumber; }

    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    CGeneralNames m_issuer;
    CBigInteger m_serialNumber;
};

// The names pair by pair in order, with the weak equality of CGeneralName, then the serial
// numbers by value: the same names in another order are a different issuer.
bool operator==(const CIssuerSerial& a, const CIssuerSerial& b);
bool operator!=(const CIssuerSerial& a, const CIssuerSerial& b);

class CESSCertID {
public:
    CESSCertID();
    CESSCertID(const CBlob& certHash);
    CESSCertID(const CESSCertID& other);
    CESSCertID& operator=(const CESSCertID& other);
    ~CESSCertID();

    const CBlob& get_certHash() const;
    // Null when absent.
    const CIssuerSerial* get_issuerSerial() const;
    void put_certHash(const CBlob& certHash);
    // Takes a copy; null removes it.
    void put_issuerSerial(const CIssuerSerial* issuerSerial);

    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    struct Record;
    Record* m_impl;
};

// Hash bytes, then issuer and serial: both absent is equal, one absent is not.
bool operator==(const CESSCertID& a, const CESSCertID& b);
bool operator!=(const CESSCertID& a, const CESSCertID& b);

// SHA-256, the DEFAULT of ESSCertIDv2 (RFC 5035): never written, supplied when absent.
extern const char* const kESSCertIDv2DefaultHashAlgorithm;

class CESSCertIDv2 {
public:
    CESSCertIDv2();
    CESSCertIDv2(const CBlob& certHash);
    CESSCertIDv2(const CBlob& certHash, const CAlgorithmIdentifier& hashAlgorithm);
    CESSCertIDv2(const CESSCertIDv2& other);
    CESSCertIDv2& operator=(const CESSCertIDv2& other);
    ~CESSCertIDv2();

    const CAlgorithmIdentifier& get_hashAlgorithm() const;
    const CBlob& get_certHash() const;
    const CIssuerSerial* get_issuerSerial() const;
    void put_hashAlgorithm(const CAlgorithmIdentifier& hashAlgorithm);
    void put_certHash(const CBlob& certHash);
    void put_issuerSerial(const CIssuerSerial* issuerSerial);

    // The default algorithm is left out by its text alone, so parameters on it are lost.
    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    struct Record;
    Record* m_impl;
};

// Algorithm (text and parameters), hash bytes, issuer and serial as for CESSCertID.
bool operator==(const CESSCertIDv2& a, const CESSCertIDv2& b);
bool operator!=(const CESSCertIDv2& a, const CESSCertIDv2& b);

// OtherHash of RFC 5126: sha1Hash (1) or otherHash (2), a choice value.
class COtherHash {
public:
    enum { sha1Hash = 1, otherHash = 2 };

    // Empty: nothing to copy from or encode yet.
    COtherHash();
    COtherHash(const CBlob& sha1Hash);
    COtherHash(const COtherHashAlgAndValue& otherHash);
    COtherHash(const COtherHash& other);
    COtherHash& operator=(const COtherHash& other);
    virtual ~COtherHash();
    // Drops the implementation object: a last step, not a reset.
    void clear();

    unsigned int get_type() const;
    // Null unless the object holds that alternative.
    const CBlob* get_sha1Hash() const;
    const COtherHashAlgAndValue* get_otherHash() const;
    void put_sha1Hash(const CBlob& hash);
    void put_otherHash(const COtherHashAlgAndValue& hash);

    CBlob encode() const;
    void decode(const CBlob& blob);

    // As ==, except that an otherHash is compared by its hash bytes alone.
    bool compare_hashValue(const COtherHash& other) const;

private:
    COtherHashImpl* m_impl;
};

// Same alternative, then the bytes, or the algorithm and the bytes; never sha1Hash against
// otherHash, whatever the bytes.
bool operator==(const COtherHash& a, const COtherHash& b);
bool operator!=(const COtherHash& a, const COtherHash& b);

class COtherCertID {
public:
    // An empty hash choice: such an object is not to be copied until a hash is put.
    COtherCertID();
    COtherCertID(const CBlob& sha1Hash);
    COtherCertID(const CBlob& hash, const CAlgorithmIdentifier& hashAlgorithm);
    COtherCertID(const COtherCertID& other);
    COtherCertID& operator=(const COtherCertID& other);
    ~COtherCertID();

    const COtherHash& get_otherCertHash() const;
    const CIssuerSerial* get_issuerSerial() const;
    void put_otherCertHash(const COtherHash& hash);
    void put_issuerSerial(const CIssuerSerial* issuerSerial);

    CBlob encode() const;
    void decode(const CBlob& blob);

    // For a hash made under the same algorithm written differently: the hash bytes without
    // the algorithm, then issuer and serial.
    bool compare_noHashParam(const COtherCertID& other) const;

private:
    struct Record;
    Record* m_impl;
};

bool operator==(const COtherCertID& a, const COtherCertID& b);
bool operator!=(const COtherCertID& a, const COtherCertID& b);

typedef std::list<CESSCertID> CESSCertIDList;
typedef std::list<CESSCertIDv2> CESSCertIDv2List;
typedef std::list<COtherCertID> COtherCertIDList;

// ---- Traits ------------------------------------------------------------------------------------

struct ASN1T_IssuerSerial_traits {
    typedef asn1data::ASN1T_IssuerSerial ASN1_T;
    typedef asn1data::ASN1C_IssuerSerial ASN1_C;
    // issuerUID is neither written nor read.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CIssuerSerial& src);
    static void get(const ASN1_T& src, CIssuerSerial& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_IssuerSerial(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_ESSCertID_traits {
    typedef asn1data::ASN1T_ESSCertID ASN1_T;
    typedef asn1data::ASN1C_ESSCertID ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CESSCertID& src);
    static void get(const ASN1_T& src, CESSCertID& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_ESSCertID(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_ESSCertIDv2_traits {
    typedef asn1data::ASN1T_ESSCertIDv2 ASN1_T;
    typedef asn1data::ASN1C_ESSCertIDv2 ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CESSCertIDv2& src);
    static void get(const ASN1_T& src, CESSCertIDv2& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_ESSCertIDv2(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_OtherHash_traits {
    typedef asn1data::ASN1T_OtherHash ASN1_T;
    typedef asn1data::ASN1C_OtherHash ASN1_C;
    // An empty choice leaves dst as it is, so the encoder meets what the caller put there;
    // a discriminant other than 1 and 2 leaves the value as it is.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const COtherHash& src);
    static void get(const ASN1_T& src, COtherHash& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_OtherHash(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_OtherCertID_traits {
    typedef asn1data::ASN1T_OtherCertID ASN1_T;
    typedef asn1data::ASN1C_OtherCertID ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const COtherCertID& src);
    static void get(const ASN1_T& src, COtherCertID& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_OtherCertID(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

// The certs lists of the three signing-certificate attributes, as SEQUENCE OF on their own.
template <class SeqT, class SeqC, void (*Copy)(ASN1CTXT*, SeqT*, SeqT*), class ElemTraits, class Elem>
struct ASN1TCertIDList_traits {
    typedef SeqT ASN1_T;
    typedef SeqC ASN1_C;
    typedef std::list<Elem> List;
    typedef ASN1TSeqOfList_traits<typename ElemTraits::ASN1_T, ElemTraits, Elem, List> Elements;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const List& src) { Elements::set(ctxt, dst, src); }
    static void get(const ASN1_T& src, List& dst) { Elements::get(src, dst); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) { Copy(ctxt, const_cast<ASN1_T*>(&src), &dst); }
};

typedef ASN1TCertIDList_traits<asn1data::ASN1T__SeqOfESSCertID, asn1data::ASN1C__SeqOfESSCertID,
                               asn1data::asn1Copy__SeqOfESSCertID, ASN1T_ESSCertID_traits, CESSCertID>
    ASN1T_ESSCertIDList_traits;
typedef ASN1TCertIDList_traits<asn1data::ASN1T__SeqOfESSCertIDv2, asn1data::ASN1C__SeqOfESSCertIDv2,
                               asn1data::asn1Copy__SeqOfESSCertIDv2, ASN1T_ESSCertIDv2_traits, CESSCertIDv2>
    ASN1T_ESSCertIDv2List_traits;
typedef ASN1TCertIDList_traits<asn1data::ASN1T__SeqOfOtherCertID, asn1data::ASN1C__SeqOfOtherCertID,
                               asn1data::asn1Copy__SeqOfOtherCertID, ASN1T_OtherCertID_traits, COtherCertID>
    ASN1T_OtherCertIDList_traits;

}  // namespace ASN1
}  // namespace Quorvane
