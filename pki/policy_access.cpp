#include "pki/policy_access.h"

#include <cstring>

namespace Quorvane {
namespace ASN1 {

// ---- CAccessDescription, CAuthorityInfoAccessSyntax ----------------------------------------

CBlob CAccessDescription::encode() const {
    return asn1Encode<ASN1T_AccessDescription_traits, CAccessDescription>(*this);
}

void CAccessDescription::decode(const CBlob& blob) {
    asn1Decode<ASN1T_AccessDescription_traits, CAccessDescription>(blob, *this);
}

bool operator==(const CAccessDescription& a, const CAccessDescription& b) {
    return std::strcmp(a.get_accessMethod(), b.get_accessMethod()) == 0 &&
           a.get_accessLocation() == b.get_accessLocation();
}

bool operator!=(const CAccessDescription& a, const CAccessDescription& b) { return !(a == b); }

CBlob CAuthorityInfoAccessSyntax::encode() const {
    return asn1Encode<ASN1T_AuthorityInfoAccessSyntax_traits, CAuthorityInfoAccessSyntax>(*this);
}

void CAuthorityInfoAccessSyntax::decode(const CBlob& blob) {
    asn1Decode<ASN1T_AuthorityInfoAccessSyntax_traits, CAuthorityInfoAccessSyntax>(blob, *this);
}

// ---- CPolicyInformation ------------------------------------------------------------------------

CBlob CPolicyInformation::encode() const {
    return asn1Encode<ASN1T_PolicyInformation_traits, CPolicyInformation>(*this);
}

void CPolicyInformation::decode(const CBlob& blob) {
    asn1Decode<ASN1T_PolicyInformation_traits, CPolicyInformation>(blob, *this);
}

bool operator==(const CPolicyInformation& a, const CPolicyInformation& b) {
    return std::strcmp(a.get_policyIdentifier(), b.get_policyIdentifier()) == 0;
}

bool operator!=(const CPolicyInformation& a, const CPolicyInformation& b) { return !(a == b); }

// ---- Traits ------------------------------------------------------------------------------------

void ASN1T_AccessDescription_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CAccessDescription& src) {
    if (str2oid(src.get_accessMethod(), &dst.accessMethod) != 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
    ASN1T_GeneralName_traits::set(ctxt, dst.accessLocation, src.get_accessLocation());
}

void ASN1T_AccessDescription_traits::get(const ASN1_T& src, CAccessDescription& dst) {
    CStringProxy method;
    ASN1TObjId_traits::get(src.accessMethod, method);
    dst.put_accessMethod(method.c_str());
    CGeneralName location;
    ASN1T_GeneralName_traits::get(src.accessLocation, location);
    dst.put_accessLocation(location);
}

void ASN1T_PolicyInformation_traits::set(ASN1CTXT*, ASN1_T& dst, const CPolicyInformation& src) {
    if (str2oid(src.get_policyIdentifier(), &dst.policyIdentifier) != 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
    dst.m.policyQualifiersPresent = 0;
}

void ASN1T_PolicyInformation_traits::get(const ASN1_T& src, CPolicyInformation& dst) {
    CStringProxy identifier;
    ASN1TObjId_traits::get(src.policyIdentifier, identifier);
    dst.put_policyIdentifier(identifier.c_str());
}

}  // namespace ASN1
}  // namespace Quorvane
