#include "pki/attribute.h"

#include <cstring>
#include <iterator>

namespace Quorvane {
namespace ASN1 {

namespace {

typedef ASN1TSeqOfList_traits<asn1data::Asn1TObject, Asn1TObject_traits, CBlob, CBlobList> ValuesTraits;
typedef ASN1TSeqOfList_traits<asn1data::ASN1T_Attribute, ASN1T_Attribute_traits, CAttribute, CAttributes>
    AttributesListTraits;

}  // namespace

bool operator==(const CAttrValue& a, const CAttrValue& b) {
    return std::strcmp(a.get_oid(), b.get_oid()) == 0 && a.get_value() == b.get_value();
}

bool operator!=(const CAttrValue& a, const CAttrValue& b) { return !(a == b); }

bool operator==(const CAttrValueList&, const CAttrValueList&) { return false; }

bool operator!=(const CAttrValueList&, const CAttrValueList&) { return false; }

// ---- CAttribute -------------------------------------------------------------------------------

struct CAttribute::Record {
    CAttrValueList values;
    std::string oid;
};

CAttribute::CAttribute() : m_record(new Record) {}

CAttribute::CAttribute(const char* oid) : m_record(new Record) { m_record->oid = oid != nullptr ? oid : ""; }

CAttribute::CAttribute(const CAttribute& other) : m_record(new Record(*other.m_record)) {}

CAttribute::~CAttribute() { delete m_record; }

CAttribute& CAttribute::operator=(const CAttribute& other) {
    if (this == &other)
        return *this;
    // The new record first, so that a failed copy leaves this one whole.
    Record* fresh = new Record(*other.m_record);
    delete m_record;
    m_record = fresh;
    return *this;
}

const char* CAttribute::get_oid() const { return m_record->oid.c_str(); }
CAttribute::const_iterator CAttribute::begin() const { return m_record->values.begin(); }
CAttribute::const_iterator CAttribute::end() const { return m_record->values.end(); }
CAttribute::iterator CAttribute::begin() { return m_record->values.begin(); }
CAttribute::iterator CAttribute::end() { return m_record->values.end(); }
void CAttribute::add(const CBlob& value) { m_record->values.push_back(CAttrValue(get_oid(), value)); }
void CAttribute::add(const CAttrValue& value) { m_record->values.push_back(value); }
void CAttribute::erase(iterator it) { m_record->values.erase(it); }

size_t CAttribute::size() const {
    return static_cast<size_t>(std::distance(m_record->values.begin(), m_record->values.end()));
}

CBlob CAttribute::encode() const { return asn1Encode<ASN1T_Attribute_traits, CAttribute>(*this); }

void CAttribute::decode(const CBlob& blob) { asn1Decode<ASN1T_Attribute_traits, CAttribute>(blob, *this); }

bool operator==(const CAttribute& a, const CAttribute& b) {
    const CAttrValueList left(a.begin(), a.end()), right(b.begin(), b.end());
    return std::strcmp(a.get_oid(), b.get_oid()) == 0 && left == right;
}

bool operator!=(const CAttribute& a, const CAttribute& b) { return !(a == b); }

// ---- CAttributes ------------------------------------------------------------------------------

CBlob CAttributes::encode() const { return asn1Encode<ASN1T_Attributes_traits, CAttributes>(*this); }

void CAttributes::decode(const CBlob& blob) { asn1Decode<ASN1T_Attributes_traits, CAttributes>(blob, *this); }

CAttributes::iterator CAttributes::find(const char* oid) {
    for (iterator it = begin(); it != end(); ++it)
        if (std::strcmp(it->get_oid(), oid) == 0)
            return it;
    return end();
}

CAttributes::const_iterator CAttributes::find(const char* oid) const {
    for (const_iterator it = begin(); it != end(); ++it)
        if (std::strcmp(it->get_oid(), oid) == 0)
            return it;
    return end();
}

void CAttributes::erase(const char* oid) {
    const iterator it = find(oid);
    if (it != end())
        erase(it);
}

// ---- Traits ---------------------------------------------------------------------------------------

void ASN1T_Attribute_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CAttribute& src) {
    // The scratch context holds the values the check decodes until the copy has taken them.
    ASN1BERDecodeBuffer scratch;
    ASN1CTXT* local = scratch.getCtxtPtr();
    ASN1_T temp;
    ASN1TObjId_traits::set(local, temp.type, src.get_oid());
    CBlobList values;
    for (const CAttrValue& value : src)
        values.push_back(value.get_value());
    ValuesTraits::set(local, temp.values, values);
    if (asn1data::asn1DTC_Attribute(local, &temp) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    asn1data::asn1Copy_Attribute(ctxt, &temp, &dst);
}

void ASN1T_Attribute_traits::get(const ASN1_T& src, CAttribute& dst) {
    CStringProxy oid;
    ASN1TObjId_traits::get(src.type, oid);
    CAttribute local(oid.c_str());
    CBlobList values;
    ValuesTraits::get(src.values, values);
    for (const CBlob& value : values)
        local.add(value);
    dst = local;
}

void ASN1T_Attribute_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    asn1data::asn1Copy_Attribute(ctxt, const_cast<ASN1_T*>(&src), &dst);
}

void ASN1T_Attributes_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CAttributes& src) {
    AttributesListTraits::set(ctxt, dst, src);
}

void ASN1T_Attributes_traits::get(const ASN1_T& src, CAttributes& dst) { AttributesListTraits::get(src, dst); }

void ASN1T_Attributes_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    asn1data::asn1Copy_SignedAttributes(ctxt, const_cast<ASN1_T*>(&src), &dst);
}

}  // namespace ASN1
}  // namespace Quorvane
