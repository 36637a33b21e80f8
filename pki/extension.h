// X.509 extensions: an identifier with the inner bytes of extnValue, the critical flag
// beside them, lists with lookup by identifier, and five typed values that keep their
// decoded member next to the bytes.
#pragma once

#include "pki/general_name.h"

#include <list>
#include <memory>

namespace Quorvane {
namespace ASN1 {

class CExtValue {
public:
    CExtValue() {}
    explicit CExtValue(const char* oid) : m_oid(oid) {}
    CExtValue(const char* oid, const CBlob& value) : m_oid(oid), m_value(value) {}
    CExtValue(const CExtValue& other) = default;
    CExtValue& operator=(const CExtValue& other) = default;

    const char* get_oid() const { return m_oid.c_str(); }
    // What the OCTET STRING extnValue contains.
    const CBlob& get_value() const { return m_value; }
    CBlob& value() { return m_value; }

private:
    CStringProxy m_oid;
    CBlob m_value;
};

bool operator==(const CExtValue& a, const CExtValue& b);
bool operator!=(const CExtValue& a, const CExtValue& b);

class CExtension : public CExtValue {
public:
    CExtension() : m_critical(false) {}
    CExtension(const CExtValue& value, bool critical) : CExtValue(value), m_critical(critical) {}
    CExtension(const CExtension& other) = default;
    CExtension& operator=(const CExtension& other) = default;

    const char* get_extnID() const { return get_oid(); }
    const CBlob& get_extnValue() const { return get_value(); }
    bool get_critical() const { return m_critical; }

    // A value of a known type must parse as that type, or encode() fails; it is then
    // written as the catalogue writes that type.
    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    bool m_critical;
};

// Critical flags, identifiers and value bytes.
bool operator==(const CExtension& a, const CExtension& b);
bool operator!=(const CExtension& a, const CExtension& b);

class CExtensions : public std::list<CExtension> {
public:
    using std::list<CExtension>::insert;
    using std::list<CExtension>::erase;

    iterator find(const char* oid);
    const_iterator find(const char* oid) const;
    // Overwrites the member of the same identifier where it stands, or appends. Decoding
    // does not come through here, so a decoded list may hold one identifier twice.
    void insert(const CExtension& extension);
    // The first match only.
    void erase(const char* oid);

    // An empty list does not encode: Extensions has SIZE (1..MAX).
    CBlob encode() const;
    void decode(const CBlob& blob);
};

// Equal counts and equal members pairwise: the order counts.
bool operator==(const CExtensions& a, const CExtensions& b);
bool operator!=(const CExtensions& a, const CExtensions& b);

// ---- Typed values: no critical flag; CExtension(value, critical) adds one -------------------

// The reason is not range-checked here; the encoder refuses 11 and above, not 7.
class CExtCRLReason : public CExtValue {
public:
    CExtCRLReason();
    explicit CExtCRLReason(CrlReason reason);
    explicit CExtCRLReason(const CBlob& value);

    void encode();
    void decode();
    CrlReason get_reason() const { return m_reason; }
    void put_reason(CrlReason reason);

private:
    CrlReason m_reason;
};

class CExtHoldInstructionCode : public CExtValue {
public:
    CExtHoldInstructionCode();
    // A text that is no identifier is E_INVALIDARG.
    explicit CExtHoldInstructionCode(const char* code);
    explicit CExtHoldInstructionCode(const CBlob& value);

    void encode();
    void decode();
    const char* get_code() const { return m_code.c_str(); }
    void put_code(const char* code);

private:
    CStringProxy m_code;
};

// A bare GeneralizedTime; the fraction of a second is cut off on encoding.
class CExtInvalidityDate : public CExtValue {
public:
    CExtInvalidityDate();
    explicit CExtInvalidityDate(const CDateTime& invalidityDate);
    explicit CExtInvalidityDate(const CBlob& value);

    void encode();
    void decode();
    const CDateTime& get_invalidityDate() const { return m_invalidityDate; }
    void put_invalidityDate(const CDateTime& invalidityDate);

private:
    CDateTime m_invalidityDate;
};

class CExtCertificateIssuer : public CExtValue {
public:
    CExtCertificateIssuer();
    explicit CExtCertificateIssuer(const CGeneralNames& issuer);
    explicit CExtCertificateIssuer(const CBlob& value);

    void encode();
    void decode();
    const CGeneralNames& get_issuer() const { return m_issuer; }
    void put_issuer(const CGeneralNames& issuer);

private:
    CGeneralNames m_issuer;
};

// Either date may be absent. Decoding puts each date, and each put re-encodes, so after a
// decode the bytes are rebuilt from the dates.
class CExtPrivateKeyUsagePeriod : public CExtValue {
public:
    CExtPrivateKeyUsagePeriod(const CDateTime* notBefore, const CDateTime* notAfter);
    explicit CExtPrivateKeyUsagePeriod(const CBlob& value);
    CExtPrivateKeyUsagePeriod(const CExtPrivateKeyUsagePeriod& other);
    CExtPrivateKeyUsagePeriod& operator=(const CExtPrivateKeyUsagePeriod& other);

    void encode();
    void decode();
    const CDateTime* get_notBefore() const { return m_notBefore.get(); }
    const CDateTime* get_notAfter() const { return m_notAfter.get(); }
    // Copy first, then replace: putting the date already held is safe.
    void put_notBefore(const CDateTime* notBefore);
    void put_notAfter(const CDateTime* notAfter);

private:
    std::unique_ptr<CDateTime> m_notBefore;
    std::unique_ptr<CDateTime> m_notAfter;
};

// ---- Traits ------------------------------------------------------------------------------------

struct ASN1T_Extension_traits {
    typedef asn1data::ASN1T_Extension ASN1_T;
    typedef asn1data::ASN1C_Extension ASN1_C;
    // The value passes the object of its identifier before it reaches dst.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CExtension& src);
    static void get(const ASN1_T& src, CExtension& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_Extension(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_Extensions_traits {
    typedef asn1data::ASN1T_Extensions ASN1_T;
    typedef asn1data::ASN1C_Extensions ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CExtensions& src);
    static void get(const ASN1_T& src, CExtensions& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1T_PrivateKeyUsagePeriod_traits {
    typedef asn1data::ASN1T_PrivateKeyUsagePeriod ASN1_T;
    typedef asn1data::ASN1C_PrivateKeyUsagePeriod ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CExtPrivateKeyUsagePeriod& src);
    // Through put_notBefore and put_notAfter, null for an absent date.
    static void get(const ASN1_T& src, CExtPrivateKeyUsagePeriod& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_PrivateKeyUsagePeriod(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
