// Typed signed attributes of CMS (RFC 5652), ESS (RFC 2634, RFC 5035) and ETSI (RFC 5126):
// each keeps its encoded value in the CAttrValue it derives from and a decoded view
// beside it. encode() writes the view into the value, decode() reads the value back.
#pragma once

#include "pki/attribute.h"
#include "pki/cms_values.h"
#include "pki/ess_cert_id.h"
#include "pki/policy_access.h"

namespace Quorvane {
namespace ASN1 {

// The certificate identifiers and the optional policies of a signing-certificate
// attribute. PoliciesReencode says whether put_policies writes the value again at once.
template <class Derived, class List, class Traits, bool PoliciesReencode>
class CAttrCertificatesT : public CAttrValue {
public:
    ~CAttrCertificatesT();

    const List& get_certs() const;
    // Null when absent.
    const CPolicyInformationList* get_policies() const;
    // Re-encodes into the value.
    void put_certs(const List& certs);
    // Takes a copy; null removes them.
    void put_policies(const CPolicyInformationList* policies);

    // The value is left as it was when encoding throws.
    void encode();
    void decode();

protected:
    explicit CAttrCertificatesT(const char* oid);
    CAttrCertificatesT(const CAttrCertificatesT& other);
    CAttrCertificatesT& operator=(const CAttrCertificatesT& other);

private:
    struct Record;
    Record* m_record;
};

// Over a signing-certificate structure: the certs by their list traits, the policies
// only when there is at least one.
template <class T, class C, void (*Copy)(ASN1CTXT*, T*, T*), class CertsTraits, class Attr>
struct ASN1TSigningCertificateT_traits {
    typedef T ASN1_T;
    typedef C ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const Attr& src) {
        dst.m.policiesPresent = 0;
        CertsTraits::Elements::set(ctxt, dst.certs, src.get_certs());
        const CPolicyInformationList* policies = src.get_policies();
        if (policies != nullptr && !policies->empty()) {
            dst.m.policiesPresent = 1;
            ASN1T_PolicyInformationList_traits::set(ctxt, dst.policies, *policies);
        }
    }
    // put_certs writes the value while the old policies still stand; put_policies then
    // writes it again only where the attribute does so.
    static void get(const ASN1_T& src, Attr& dst) {
        typename CertsTraits::List certs;
        CertsTraits::Elements::get(src.certs, certs);
        dst.put_certs(certs);
        if (src.m.policiesPresent) {
            CPolicyInformationList policies;
            ASN1T_PolicyInformationList_traits::get(src.policies, policies);
            dst.put_policies(&policies);
        } else {
            dst.put_policies(nullptr);
        }
    }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) { Copy(ctxt, const_cast<ASN1_T*>(&src), &dst); }
};

class CAttrSigningCertificate;
class CAttrSigningCertificateV2;
class CAttrOtherSigningCertificate;

typedef ASN1TSigningCertificateT_traits<asn1data::ASN1T_SigningCertificate, asn1data::ASN1C_SigningCertificate,
                                        asn1data::asn1Copy_SigningCertificate, ASN1T_ESSCertIDList_traits,
                                        CAttrSigningCertificate>
    ASN1T_SigningCertificate_traits;
typedef ASN1TSigningCertificateT_traits<asn1data::ASN1T_SigningCertificateV2, asn1data::ASN1C_SigningCertificateV2,
                                        asn1data::asn1Copy_SigningCertificateV2, ASN1T_ESSCertIDv2List_traits,
                                        CAttrSigningCertificateV2>
    ASN1T_SigningCertificateV2_traits;
typedef ASN1TSigningCertificateT_traits<asn1data::ASN1T_OtherSigningCertificate,
                                        asn1data::ASN1C_OtherSigningCertificate,
                                        asn1data::asn1Copy_OtherSigningCertificate, ASN1T_OtherCertIDList_traits,
                                        CAttrOtherSigningCertificate>
    ASN1T_OtherSigningCertificate_traits;

// signingCertificate, 1.2.840.113549.1.9.16.2.12. put_policies leaves the value stale
// until the next encode().
class CAttrSigningCertificate
    : public CAttrCertificatesT<CAttrSigningCertificate, CESSCertIDList, ASN1T_SigningCertificate_traits, false> {
public:
    CAttrSigningCertificate();
    explicit CAttrSigningCertificate(const CBlob& value);
    explicit CAttrSigningCertificate(const CESSCertIDList& certs);
};

// signingCertificateV2, 1.2.840.113549.1.9.16.2.47. put_policies leaves the value stale
// until the next encode().
class CAttrSigningCertificateV2
    : public CAttrCertificatesT<CAttrSigningCertificateV2, CESSCertIDv2List, ASN1T_SigningCertificateV2_traits, false> {
public:
    CAttrSigningCertificateV2();
    explicit CAttrSigningCertificateV2(const CBlob& value);
    explicit CAttrSigningCertificateV2(const CESSCertIDv2List& certs);
};

// otherSigningCertificate, 1.2.840.113549.1.9.16.2.19. put_policies re-encodes.
class CAttrOtherSigningCertificate
    : public CAttrCertificatesT<CAttrOtherSigningCertificate, COtherCertIDList, ASN1T_OtherSigningCertificate_traits,
                                true> {
public:
    CAttrOtherSigningCertificate();
    explicit CAttrOtherSigningCertificate(const CBlob& value);
    explicit CAttrOtherSigningCertificate(const COtherCertIDList& certs);
};

// signingTime, 1.2.840.113549.1.9.5: UTCTime up to 2049, GeneralizedTime after, whole
// seconds.
class CAttrSigningTime : public CAttrValue {
public:
    explicit CAttrSigningTime(const CDateTime& time);
    explicit CAttrSigningTime(const CBlob& value);
    CAttrSigningTime(const CAttrSigningTime& other);
    CAttrSigningTime& operator=(const CAttrSigningTime& other);
    ~CAttrSigningTime();

    void encode();
    void decode();
    CDateTime get_time() const;
    void put_time(const CDateTime& time);

private:
    CTimeChoice* m_time;
};

// contentType, 1.2.840.113549.1.9.3.
class CAttrContentType : public CAttrValue {
public:
    explicit CAttrContentType(const char* contentType);
    explicit CAttrContentType(const CBlob& value);

    void encode();
    void decode();
    const char* get_contentType() const { return m_contentType.c_str(); }
    void put_contentType(const char* contentType);

private:
    CStringProxy m_contentType;
};

// messageDigest, 1.2.840.113549.1.9.4: the digest's plain bytes beside their OCTET STRING.
class CAttrMessageDigest : public CAttrValue {
public:
    CAttrMessageDigest();
    // The encoded OCTET STRING, not the digest.
    explicit CAttrMessageDigest(const CBlob& value);

    void encode();
    void decode();
    const CBlob& get_messageDigest() const { return m_messageDigest; }
    void put_messageDigest(const CBlob& messageDigest);

private:
    CBlob m_messageDigest;
};

// A bare OCTET STRING and back; anything else, or nothing, is CRYPT_E_ASN1_INTERNAL.
CBlob toOctetString(const CBlob& data);
CBlob fromOctetString(const CBlob& encoded);

}  // namespace ASN1
}  // namespace Quorvane
