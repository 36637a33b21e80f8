// Small values of the CMS world: a content info, a signer info as read from a signed
// message, a list of certificates, and the X.509 Time CHOICE with its text conversions.
#pragma once

#include "pki/algorithm.h"

#include <string>

namespace Quorvane {
namespace ASN1 {

class CTimeChoiceImpl;

class CContentInfo {
public:
    CContentInfo() {}
    CContentInfo(const char* contentType, const CBlob& content) : m_contentType(contentType), m_content(content) {}
    CContentInfo(const CContentInfo& other) = default;
    CContentInfo& operator=(const CContentInfo& other) = default;

    const char* get_contentType() const { return m_contentType.c_str(); }
    // The content element itself, without the [0] around it.
    const CBlob& get_content() const { return m_content; }
    void put_contentType(const char* contentType) { m_contentType = CStringProxy(contentType); }
    void put_content(const CBlob& content) { m_content = content; }

    // Content of a known type must satisfy that type's object, or encode() fails.
    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    CStringProxy m_contentType;
    CBlob m_content;
};

// Read, never written: no encode or decode of its own.
class CSignerInfo {
public:
    CSignerInfo() : m_version(0) {}
    CSignerInfo(const CSignerInfo& other) = default;
    CSignerInfo& operator=(const CSignerInfo& other) = default;

    unsigned int get_version() const { return m_version; }
    // The encoded Name of the issuer.
    const CBlob& get_issuer() const { return m_issuer; }
    const CBigInteger& get_serialNumber() const { return m_serialNumber; }
    const CAlgorithmIdentifier& get_signatureAlgorithm() const { return m_signatureAlgorithm; }
    const CAlgorithmIdentifier& get_digestAlgorithm() const { return m_digestAlgorithm; }
    const CBlob& get_signature() const { return m_signature; }
    void put_version(unsigned int version) { m_version = version; }
    void put_issuer(const CBlob& issuer) { m_issuer = issuer; }
    void put_serialNumber(const CBigInteger& serialNumber) { m_serialNumber = serialNumber; }
    void put_signatureAlgorithm(const CAlgorithmIdentifier& algorithm) { m_signatureAlgorithm = algorithm; }
    void put_digestAlgorithm(const CAlgorithmIdentifier& algorithm) { m_digestAlgorithm = algorithm; }
    void put_signature(const CBlob& signature) { m_signature = signature; }

private:
    unsigned int m_version;
    CBlob m_issuer;
    CBigInteger m_serialNumber;
    CAlgorithmIdentifier m_signatureAlgorithm;
    CAlgorithmIdentifier m_digestAlgorithm;
    CBlob m_signature;
};

// All six fields, each by its own comparison.
bool operator==(const CSignerInfo& a, const CSignerInfo& b);
bool operator!=(const CSignerInfo& a, const CSignerInfo& b);

// Encoded certificates. Each is decoded on encoding and re-encoded on decoding, so a
// certificate that does not parse fails both ways and decoded bytes are the runtime's DER.
class CCertificateValues : public CBlobList {
public:
    CBlob encode() const;
    void decode(const CBlob& blob);
};

// UTCTime (1) or GeneralizedTime (2), chosen by the year alone: after 2049 the latter.
class CTimeChoice {
public:
    // 1 January 1970 as UTCTime.
    CTimeChoice();
    CTimeChoice(const CDateTime& time);
    CTimeChoice(const CTimeChoice& other);
    CTimeChoice& operator=(const CTimeChoice& other);
    ~CTimeChoice();
    // Drops the implementation object: a last step, not a reset.
    void clear();

    // Whole seconds; a year before 1950 still takes UTCTime and comes back a century on.
    CBlob encode() const;
    // The wire's kind is not kept: the year chooses again.
    void decode(const CBlob& blob);

    unsigned int get_type() const;
    const CDateTime* get_time() const;
    void put_time(const CDateTime& time);

private:
    CTimeChoiceImpl* m_impl;
};

// The time's fields into the control as text; milliseconds are dropped.
std::string GetASN1CTimeString(const CDateTime& time, ASN1CTime& control);

// Version, the algorithms and the signature are stored before the signer identifier is
// looked at: one by subjectKeyIdentifier throws CRYPT_E_ASN1_INTERNAL after them.
void ASN1T_SignerInfo_get(CSignerInfo& value, const asn1data::ASN1T_SignerInfo& src);

// Over CContentInfo, and over CBlob for a content info kept as its encoded bytes: set
// decodes the blob into dst, get re-encodes the structure.
struct ASN1T_ContentInfo_traits {
    typedef asn1data::ASN1T_ContentInfo ASN1_T;
    typedef asn1data::ASN1C_ContentInfo ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CContentInfo& src);
    static void get(const ASN1_T& src, CContentInfo& dst);
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src);
    static void get(const ASN1_T& src, CBlob& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_ContentInfo(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_SignerInfo_traits {
    typedef asn1data::ASN1T_SignerInfo ASN1_T;
    typedef asn1data::ASN1C_SignerInfo ASN1_C;
    static void get(const ASN1_T& src, CSignerInfo& dst) { ASN1T_SignerInfo_get(dst, src); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_SignerInfo(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_CertificateValues_traits {
    typedef asn1data::ASN1T_CertificateValues ASN1_T;
    typedef asn1data::ASN1C_CertificateValues ASN1_C;
    typedef ASN1TSeqOfList_traits<asn1data::ASN1T_Certificate, ASN1T_Certificate_traits, CBlob, CBlobList> List;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlobList& src) { List::set(ctxt, dst, src); }
    static void get(const ASN1_T& src, CBlobList& dst) { List::get(src, dst); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_CertificateValues(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

// Other types are not written: the structure keeps what it had.
struct ASN1T_Time_traits {
    typedef asn1data::ASN1T_Time ASN1_T;
    typedef asn1data::ASN1C_Time ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CTimeChoice& src);
    static void get(const ASN1_T& src, CTimeChoice& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_Time(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
