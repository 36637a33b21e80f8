// X.501 and CMS attributes: one value tagged with its type, an attribute of several
// values, a set of attributes. Values stay encoded; only the attribute's own identifier
// reaches the wire.
#pragma once

#include "pki/algorithm.h"

#include <list>
#include <string>

namespace Quorvane {
namespace ASN1 {

class CAttrValue {
public:
    CAttrValue() {}
    explicit CAttrValue(const char* oid) : m_oid(oid) {}
    CAttrValue(const char* oid, const CBlob& value) : m_oid(oid), m_value(value) {}
    CAttrValue(const CAttrValue& other) = default;
    CAttrValue& operator=(const CAttrValue& other) = default;

    const char* get_oid() const { return m_oid.c_str(); }
    const CBlob& get_value() const { return m_value; }
    CBlob& value() { return m_value; }

private:
    CStringProxy m_oid;
    CBlob m_value;
};

bool operator==(const CAttrValue& a, const CAttrValue& b);
bool operator!=(const CAttrValue& a, const CAttrValue& b);

typedef std::list<CAttrValue> CAttrValueList;

// Both are false whatever the lists hold; nothing here compares value lists, and the
// attribute comparison inherits it.
bool operator==(const CAttrValueList& a, const CAttrValueList& b);
bool operator!=(const CAttrValueList& a, const CAttrValueList& b);

class CAttribute {
public:
    typedef CAttrValueList::iterator iterator;
    typedef CAttrValueList::const_iterator const_iterator;

    CAttribute();
    explicit CAttribute(const char* oid);
    CAttribute(const CAttribute& other);
    ~CAttribute();
    CAttribute& operator=(const CAttribute& other);

    const char* get_oid() const;
    const_iterator begin() const;
    const_iterator end() const;
    iterator begin();
    iterator end();
    // A value under this attribute's identifier.
    void add(const CBlob& value);
    // Taken as it stands, whatever identifier it carries.
    void add(const CAttrValue& value);
    void erase(iterator it);
    size_t size() const;

    // No values fail to encode: the value list has SIZE (1..MAX).
    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    struct Record;
    Record* m_record;
};

// Identifier and value lists; the lists never compare equal, so neither do attributes.
bool operator==(const CAttribute& a, const CAttribute& b);
bool operator!=(const CAttribute& a, const CAttribute& b);

class CAttributes : public std::list<CAttribute> {
public:
    using std::list<CAttribute>::erase;

    CBlob encode() const;
    void decode(const CBlob& blob);
    iterator find(const char* oid);
    const_iterator find(const char* oid) const;
    // The first attribute of that identifier only.
    void erase(const char* oid);
};

struct ASN1T_Attribute_traits {
    typedef asn1data::ASN1T_Attribute ASN1_T;
    typedef asn1data::ASN1C_Attribute ASN1_C;
    // The values pass the information object of the type before they reach dst.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CAttribute& src);
    static void get(const ASN1_T& src, CAttribute& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

// A SET OF Attribute, as SignedAttributes.
struct ASN1T_Attributes_traits {
    typedef asn1data::ASN1T_SignedAttributes ASN1_T;
    typedef asn1data::ASN1C_SignedAttributes ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CAttributes& src);
    static void get(const ASN1_T& src, CAttributes& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

}  // namespace ASN1
}  // namespace Quorvane
