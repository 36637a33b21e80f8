// The values of the authority information access and certificate policies extensions
// (RFC 5280): access descriptions and policy identifiers. A policy list is also the
// policies field of the signing-certificate attributes. Policy qualifiers are not kept.
#pragma once

#include "pki/general_name.h"

#include <list>

namespace Quorvane {
namespace ASN1 {

class CAccessDescription {
public:
    CAccessDescription() {}
    CAccessDescription(const char* accessMethod, const CGeneralName& accessLocation)
        : m_accessMethod(accessMethod), m_accessLocation(accessLocation) {}
    CAccessDescription(const CAccessDescription& other) = default;
    CAccessDescription& operator=(const CAccessDescription& other) = default;

    const char* get_accessMethod() const { return m_accessMethod.c_str(); }
    const CGeneralName& get_accessLocation() const { return m_accessLocation; }
    void put_accessMethod(const char* accessMethod) { m_accessMethod = CStringProxy(accessMethod); }
    void put_accessLocation(const CGeneralName& accessLocation) { m_accessLocation = accessLocation; }

    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    CStringProxy m_accessMethod;
    CGeneralName m_accessLocation;
};

// The method as text, the location by the weak equality of CGeneralName.
bool operator==(const CAccessDescription& a, const CAccessDescription& b);
bool operator!=(const CAccessDescription& a, const CAccessDescription& b);

class CAuthorityInfoAccessSyntax : public std::list<CAccessDescription> {
public:
    // SIZE (1..MAX): an empty list does not encode.
    CBlob encode() const;
    // Replaces what the list held.
    void decode(const CBlob& blob);
};

class CPolicyInformation {
public:
    CPolicyInformation() {}
    explicit CPolicyInformation(const char* policyIdentifier) : m_policyIdentifier(policyIdentifier) {}
    CPolicyInformation(const CPolicyInformation& other) = default;
    CPolicyInformation& operator=(const CPolicyInformation& other) = default;

    const char* get_policyIdentifier() const { return m_policyIdentifier.c_str(); }
    void put_policyIdentifier(const char* policyIdentifier) { m_policyIdentifier = CStringProxy(policyIdentifier); }

    CBlob encode() const;
    // Qualifiers on the wire are dropped, so they are gone from the next encoding.
    void decode(const CBlob& blob);

private:
    CStringProxy m_policyIdentifier;
};

// The identifiers as text.
bool operator==(const CPolicyInformation& a, const CPolicyInformation& b);
bool operator!=(const CPolicyInformation& a, const CPolicyInformation& b);

typedef std::list<CPolicyInformation> CPolicyInformationList;

// ---- Traits ------------------------------------------------------------------------------------

struct ASN1T_AccessDescription_traits {
    typedef asn1data::ASN1T_AccessDescription ASN1_T;
    typedef asn1data::ASN1C_AccessDescription ASN1_C;
    // A method that is no identifier is E_INVALIDARG, and so is an empty location.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CAccessDescription& src);
    static void get(const ASN1_T& src, CAccessDescription& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_AccessDescription(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_AuthorityInfoAccessSyntax_traits {
    typedef asn1data::ASN1T_AuthorityInfoAccessSyntax ASN1_T;
    typedef asn1data::ASN1C_AuthorityInfoAccessSyntax ASN1_C;
    typedef ASN1TSeqOfList_traits<asn1data::ASN1T_AccessDescription, ASN1T_AccessDescription_traits,
                                  CAccessDescription, CAuthorityInfoAccessSyntax>
        List;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CAuthorityInfoAccessSyntax& src) { List::set(ctxt, dst, src); }
    static void get(const ASN1_T& src, CAuthorityInfoAccessSyntax& dst) { List::get(src, dst); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_AuthorityInfoAccessSyntax(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_PolicyInformation_traits {
    typedef asn1data::ASN1T_PolicyInformation ASN1_T;
    typedef asn1data::ASN1C_PolicyInformation ASN1_C;
    // Never writes qualifiers; get leaves those on the wire behind.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CPolicyInformation& src);
    static void get(const ASN1_T& src, CPolicyInformation& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_PolicyInformation(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

typedef ASN1TSeqOfList_traits<asn1data::ASN1T_PolicyInformation, ASN1T_PolicyInformation_traits, CPolicyInformation,
                              CPolicyInformationList>
    ASN1T_PolicyInformationList_traits;

// The certificate policies extension's value as a whole, for asn1Encode and asn1Decode
// of a CPolicyInformationList.
struct ASN1T_CertificatePoliciesSyntax_traits {
    typedef asn1data::ASN1T_CertificatePoliciesSyntax ASN1_T;
    typedef asn1data::ASN1C_CertificatePoliciesSyntax ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CPolicyInformationList& src) {
        ASN1T_PolicyInformationList_traits::set(ctxt, dst, src);
    }
    static void get(const ASN1_T& src, CPolicyInformationList& dst) { ASN1T_PolicyInformationList_traits::get(src, dst); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_CertificatePoliciesSyntax(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
