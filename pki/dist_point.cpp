#include "pki/dist_point.h"

#include "pki/choice.h"

#include <new>

namespace Quorvane {
namespace ASN1 {

// ---- CDistributionPointName ------------------------------------------------------------------------

CDistributionPointName::CDistributionPointName() : m_impl(new CDistributionPointNameImpl) {}

CDistributionPointName::CDistributionPointName(const CGeneralNames& names) : m_impl(new CDistributionPointNameImpl) {
    put_fullName(names);
}

CDistributionPointName::CDistributionPointName(const CDistributionPointName& other)
    : m_impl(choiceCopy(*other.m_impl)) {}

CDistributionPointName& CDistributionPointName::operator=(const CDistributionPointName& other) {
    choiceAssign(m_impl, other.m_impl);
    return *this;
}

CDistributionPointName::~CDistributionPointName() { delete m_impl; }

void CDistributionPointName::clear() {
    delete m_impl;
    m_impl = nullptr;
}

unsigned int CDistributionPointName::get_type() const { return m_impl->m_type; }

const CGeneralNames* CDistributionPointName::get_fullName() const {
    return choiceGet<CGeneralNames>(*m_impl, fullName);
}

void CDistributionPointName::put_fullName(const CGeneralNames& names) { choicePut(*m_impl, fullName, &names); }

CBlob CDistributionPointName::encode() const {
    return asn1Encode<ASN1T_DistributionPointName_traits, CDistributionPointName>(*this);
}

void CDistributionPointName::decode(const CBlob& blob) {
    asn1Decode<ASN1T_DistributionPointName_traits, CDistributionPointName>(blob, *this);
}

bool operator==(const CDistributionPointName& a, const CDistributionPointName& b) {
    if (a.get_type() != b.get_type())
        return false;
    if (a.get_type() != CDistributionPointName::fullName)
        return true;
    const CGeneralNames &x = *a.get_fullName(), &y = *b.get_fullName();
    CGeneralNames::const_iterator i = x.begin(), j = y.begin();
    for (; i != x.end() && j != y.end(); ++i, ++j)
        if (*i != *j)
            return false;
    return i == x.end() && j == y.end();
}

bool operator!=(const CDistributionPointName& a, const CDistributionPointName& b) { return !(a == b); }

// ---- CDistributionPoint ----------------------------------------------------------------------------

// The three optional fields as owning std::auto_ptr members, as copy_to_auto_ptr wants them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
class CDistributionPointImpl {
public:
    CDistributionPointImpl() {}
    CDistributionPointImpl(const CDistributionPointImpl& other) {
        copy_to_auto_ptr(distributionPoint, other.distributionPoint.get());
        if (other.reasons.get() != nullptr)
            reasons.reset(new CReasonFlags(*other.reasons));
        copy_to_auto_ptr(cRLIssuer, other.cRLIssuer.get());
    }

    std::auto_ptr<CDistributionPointName> distributionPoint;
    std::auto_ptr<CReasonFlags> reasons;
    std::auto_ptr<CGeneralNames> cRLIssuer;

private:
    CDistributionPointImpl& operator=(const CDistributionPointImpl&) = delete;
};
#pragma GCC diagnostic pop

CDistributionPoint::CDistributionPoint() : m_impl(new CDistributionPointImpl) {}

CDistributionPoint::CDistributionPoint(const CDistributionPoint& other)
    : m_impl(new CDistributionPointImpl(*other.m_impl)) {}

CDistributionPoint& CDistributionPoint::operator=(const CDistributionPoint& other) {
    if (m_impl != other.m_impl) {
        clear();
        m_impl = new CDistributionPointImpl(*other.m_impl);
    }
    return *this;
}

CDistributionPoint::~CDistributionPoint() { delete m_impl; }

void CDistributionPoint::clear() {
    delete m_impl;
    m_impl = nullptr;
}

const CDistributionPointName* CDistributionPoint::get_distributionPoint() const {
    return m_impl->distributionPoint.get();
}
const CReasonFlags* CDistributionPoint::get_reasons() const { return m_impl->reasons.get(); }
const CGeneralNames* CDistributionPoint::get_cRLIssuer() const { return m_impl->cRLIssuer.get(); }

void CDistributionPoint::put_distributionPoint(const CDistributionPointName* distributionPoint) {
    copy_to_auto_ptr(m_impl->distributionPoint, distributionPoint);
}
void CDistributionPoint::put_reasons(const CReasonFlags* reasons) { copy_to_auto_ptr(m_impl->reasons, reasons); }
void CDistributionPoint::put_cRLIssuer(const CGeneralNames* cRLIssuer) {
    copy_to_auto_ptr(m_impl->cRLIssuer, cRLIssuer);
}

CBlob CDistributionPoint::encode() const {
    return asn1Encode<ASN1T_DistributionPoint_traits, CDistributionPoint>(*this);
}

void CDistributionPoint::decode(const CBlob& blob) {
    asn1Decode<ASN1T_DistributionPoint_traits, CDistributionPoint>(blob, *this);
}

namespace {

// Both absent is equal, one absent is unequal, else the values decide.
template <class T>
bool sameOptional(const T* a, const T* b) {
    return a == nullptr || b == nullptr ? a == b : *a == *b;
}

}  // namespace

bool operator==(const CDistributionPoint& a, const CDistributionPoint& b) {
    return sameOptional(a.get_cRLIssuer(), b.get_cRLIssuer()) &&
           sameOptional(a.get_distributionPoint(), b.get_distributionPoint()) &&
           sameOptional(a.get_reasons(), b.get_reasons());
}

bool operator!=(const CDistributionPoint& a, const CDistributionPoint& b) { return !(a == b); }

CBlob CCRLDistPointsSyntax::encode() const {
    return asn1Encode<ASN1T_CRLDistPointsSyntax_traits, CCRLDistPointsSyntax>(*this);
}

void CCRLDistPointsSyntax::decode(const CBlob& blob) {
    asn1Decode<ASN1T_CRLDistPointsSyntax_traits, CCRLDistPointsSyntax>(blob, *this);
}

// ---- Traits ------------------------------------------------------------------------------------

void ASN1T_DistributionPointName_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CDistributionPointName& src) {
    dst.t = 0;
    dst.u.fullName = nullptr;
    if (src.get_type() != CDistributionPointName::fullName)
        return;
    dst.t = CDistributionPointName::fullName;
    dst.u.fullName =
        new (asn1Alloc(ctxt, sizeof(asn1data::ASN1T_GeneralNames), true)) asn1data::ASN1T_GeneralNames();
    ASN1T_GeneralNames_traits::set(ctxt, *dst.u.fullName, *src.get_fullName());
}

void ASN1T_DistributionPointName_traits::get(const ASN1_T& src, CDistributionPointName& dst) {
    if (src.t != CDistributionPointName::fullName)
        return;
    CGeneralNames names;
    ASN1T_GeneralNames_traits::get(*src.u.fullName, names);
    dst.put_fullName(names);
}

void ASN1T_DistributionPoint_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CDistributionPoint& src) {
    dst.m.distributionPointPresent = 0;
    dst.m.reasonsPresent = 0;
    dst.m.cRLIssuerPresent = 0;
    if (src.get_distributionPoint() != nullptr) {
        dst.m.distributionPointPresent = 1;
        ASN1T_DistributionPointName_traits::set(ctxt, dst.distributionPoint, *src.get_distributionPoint());
    }
    if (src.get_reasons() != nullptr) {
        dst.m.reasonsPresent = 1;
        ASN1T_ReasonFlags_traits::set(ctxt, dst.reasons, *src.get_reasons());
    }
    // Unlike the reasons, an issuer list without members is left out.
    if (src.get_cRLIssuer() != nullptr && !src.get_cRLIssuer()->empty()) {
        dst.m.cRLIssuerPresent = 1;
        ASN1T_GeneralNames_traits::set(ctxt, dst.cRLIssuer, *src.get_cRLIssuer());
    }
}

void ASN1T_DistributionPoint_traits::get(const ASN1_T& src, CDistributionPoint& dst) {
    dst.put_distributionPoint(nullptr);
    dst.put_reasons(nullptr);
    dst.put_cRLIssuer(nullptr);
    if (src.m.distributionPointPresent) {
        CDistributionPointName name;
        ASN1T_DistributionPointName_traits::get(src.distributionPoint, name);
        dst.put_distributionPoint(&name);
    }
    if (src.m.reasonsPresent) {
        CReasonFlags reasons(0);
        ASN1T_ReasonFlags_traits::get(src.reasons, reasons);
        dst.put_reasons(&reasons);
    }
    if (src.m.cRLIssuerPresent) {
        CGeneralNames issuer;
        ASN1T_GeneralNames_traits::get(src.cRLIssuer, issuer);
        dst.put_cRLIssuer(&issuer);
    }
}

}  // namespace ASN1
}  // namespace Quorvane
