// Distinguished names: their encoded form (a component's value is always held as the
// complete encoded ASN.1 string) and their text form "CN=a+O=b,C=RU", which has no
// escapes and keeps the order of the list.
#pragma once

#include "pki/attribute.h"

#include <list>
#include <string>

namespace Quorvane {
namespace ASN1 {

// The kind of character string to write.
enum StringType {
    StringTypeDefault = 0,  // the register's default for the attribute
    StringTypeUTF8 = 1,
    StringTypePrintable = 2,
    StringTypeTeletex = 3,
    StringTypeBMP = 4,
    StringTypeIA5 = 5,
    StringTypeUniversal = 6,
};

class CAttributeTypeAndValue;

// One well-known name attribute. Constructing an object appends a copy of it to
// registered_, so the globals below make the table, in their order of definition.
class CATAVRegister {
public:
    typedef std::list<CATAVRegister> List;

    CATAVRegister(const char* oid, const wchar_t* keyword, StringType type, unsigned long maxLength);

    std::string oid;
    std::wstring keyword;
    StringType stringType;
    unsigned long maxLength;  // wide characters

    static List registered_;

    // Exact, case-sensitive; registered_.end() when nothing matches.
    static List::const_iterator find(const char* oid);
    static List::const_iterator find(const wchar_t* keyword);
    // Unregistered identifiers pass through as dotted text.
    static std::wstring typeToStr(const char* oid);
    static std::string typeFromStr(const wchar_t* keyword);
    // Unregistered: "#" and the hexadecimal of the encoded value.
    static std::wstring valueToStr(const char* oid, const CBlob& value);
    // Unregistered: the first character is dropped unread and the rest is the encoded
    // value in hexadecimal; type plays no part then.
    static CBlob valueFromStr(const char* oid, const wchar_t* text, StringType type);
    static CAttributeTypeAndValue makeATAV(const wchar_t* keyword, const wchar_t* value, StringType type);
    // "keyword=value", cut at the first "="; no "=" is E_INVALIDARG.
    static CAttributeTypeAndValue makeATAV(const wchar_t* text, StringType type);
};

extern const CATAVRegister commonNameAttribute;
extern const CATAVRegister countryNameAttribute;
extern const CATAVRegister localityNameAttribute;
extern const CATAVRegister stateOrProvinceNameAttribute;
extern const CATAVRegister emailAddressAttribute;
extern const CATAVRegister organizationNameAttribute;
extern const CATAVRegister organizationUnitNameAttribute;
extern const CATAVRegister titleAttribute;
extern const CATAVRegister givenNameAttribute;
extern const CATAVRegister initialsAttribute;
extern const CATAVRegister surnameAttribute;
extern const CATAVRegister pseudonymAttribute;
extern const CATAVRegister ogrnAttribute;
extern const CATAVRegister ogrnipAttribute;
extern const CATAVRegister snilsAttribute;
extern const CATAVRegister innAttribute;
extern const CATAVRegister streetAddressAttribute;
extern const CATAVRegister domainComponentAttribute;
extern const CATAVRegister unstructuredNameAttribute;
extern const CATAVRegister PostalCodeAttribute;

class CAttributeTypeAndValue {
public:
    CAttributeTypeAndValue() {}
    CAttributeTypeAndValue(const CAttrValue& value);
    CAttributeTypeAndValue(const char* oid, const CBlob& value);
    CAttributeTypeAndValue(const wchar_t* keyword, const wchar_t* value, StringType type);
    CAttributeTypeAndValue(const wchar_t* text, StringType type);
    CAttributeTypeAndValue(const CAttributeTypeAndValue& other) = default;
    CAttributeTypeAndValue& operator=(const CAttributeTypeAndValue& other) = default;

    const char* get_type() const { return m_type.c_str(); }
    CWStringProxy get_type_str() const;
    CBlob get_value() const { return m_value; }
    CWStringProxy get_value_str() const;
    void put_type(const char* oid);
    void put_type_str(const wchar_t* keyword);
    void put_value(const CBlob& value);
    // On the current type; a failure leaves the old value.
    void put_value_str(const wchar_t* text, StringType type);

    CWStringProxy toString() const;
    // The type argument is ignored: the register's default kind always applies.
    void fromString(const wchar_t* text, StringType type);

    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    CStringProxy m_type;
    CBlob m_value;
};

// Type text and value bytes: the same text in two string kinds differs.
bool operator==(const CAttributeTypeAndValue& a, const CAttributeTypeAndValue& b);
bool operator!=(const CAttributeTypeAndValue& a, const CAttributeTypeAndValue& b);

typedef std::list<CAttributeTypeAndValue> CAttributeTypeAndValueSet;

// Both false whatever the sets hold; one is not the other's negation.
bool operator==(const CAttributeTypeAndValueSet& a, const CAttributeTypeAndValueSet& b);
bool operator!=(const CAttributeTypeAndValueSet& a, const CAttributeTypeAndValueSet& b);

class CRelativeDistinguishedName : public std::list<CAttributeTypeAndValue> {
public:
    CRelativeDistinguishedName() {}
    // A failure drops what was parsed and passes the exception on.
    explicit CRelativeDistinguishedName(const wchar_t* text);

    // Appends the components of "a=x+b=y" to the list as it is.
    void fromString(const wchar_t* text);
    CWStringProxy toString() const;

    CBlob encode() const;
    void decode(const CBlob& blob);
};

// Through the set comparison, so never equal, not even to itself.
bool operator==(const CRelativeDistinguishedName& a, const CRelativeDistinguishedName& b);
bool operator!=(const CRelativeDistinguishedName& a, const CRelativeDistinguishedName& b);

typedef std::list<CRelativeDistinguishedName> CRDNSequence;

// No comparison of its own.
class CName : public CRDNSequence {
public:
    CName() {}
    // A failure drops what was parsed and passes the exception on.
    explicit CName(const wchar_t* text);

    // Appends the RDNs of "CN=a,O=b" to the list as it is; after a failure the RDNs
    // appended before it stay.
    void fromString(const wchar_t* text);
    // RDNs joined by "," in list order, with no blank and no reversal.
    CWStringProxy toString() const;

    CBlob encode() const;
    void decode(const CBlob& blob);
};

// The unsigned short stands for the wide character type; the text is read as wchar_t.
void fromString(CRelativeDistinguishedName& rdn, const unsigned short* text);
void fromString(CName& name, const unsigned short* text);

// A wide text and a complete encoded character string. StringTypeDefault is no kind
// here (CRYPT_E_ASN1_INTERNAL); the narrow kinds take the default code page's bytes
// unchecked against their alphabet.
CBlob encodeCharString(const wchar_t* text, StringType type);
// Reads tags 12, 18, 19, 20, 22, 28, 30; any other is CRYPT_E_ASN1_INTERNAL.
CWStringProxy decodeCharString(const CBlob& encoded);

// A name attribute value in the register's default kind.
class CAttrStringValue : public CAttrValue {
public:
    CAttrStringValue(const char* oid, const char* value);
    CAttrStringValue(const char* oid, const wchar_t* value);
};

// One fixed type each; the value in the register's default kind.
class CAttrCommonName : public CAttrStringValue { public: explicit CAttrCommonName(const char* value); };
class CAttrSurname : public CAttrStringValue { public: explicit CAttrSurname(const char* value); };
class CAttrCountry : public CAttrStringValue { public: explicit CAttrCountry(const char* value); };
class CAttrLocality : public CAttrStringValue { public: explicit CAttrLocality(const char* value); };
class CAttrStateOrProvinceName : public CAttrStringValue { public: explicit CAttrStateOrProvinceName(const char* value); };
class CAttrOrganizationName : public CAttrStringValue { public: explicit CAttrOrganizationName(const char* value); };
class CAttrOrganizationalUnitName : public CAttrStringValue { public: explicit CAttrOrganizationalUnitName(const char* value); };
class CAttrTitle : public CAttrStringValue { public: explicit CAttrTitle(const char* value); };
class CAttrGivenName : public CAttrStringValue { public: explicit CAttrGivenName(const char* value); };
class CAttrInitials : public CAttrStringValue { public: explicit CAttrInitials(const char* value); };
class CAttrPseudonym : public CAttrStringValue { public: explicit CAttrPseudonym(const char* value); };
class CAttrEmailAddress : public CAttrStringValue { public: explicit CAttrEmailAddress(const char* value); };

// ---- Traits ------------------------------------------------------------------------------------

struct ASN1T_AttributeTypeAndValue_traits {
    typedef asn1data::ASN1T_AttributeTypeAndValue ASN1_T;
    typedef asn1data::ASN1C_AttributeTypeAndValue ASN1_C;
    // The value passes the information object of its type before it reaches dst.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CAttributeTypeAndValue& src);
    static void get(const ASN1_T& src, CAttributeTypeAndValue& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

struct ASN1T_RelativeDistinguishedName_traits {
    typedef asn1data::ASN1T_RelativeDistinguishedName ASN1_T;
    typedef asn1data::ASN1C_RelativeDistinguishedName ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CRelativeDistinguishedName& src);
    static void get(const ASN1_T& src, CRelativeDistinguishedName& dst);
    // Node by node, each component through ASN1T_AttributeTypeAndValue_traits::copy.
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

// Over CName, and over CBlob for a name kept as its encoded bytes: set decodes the blob
// into dst, get re-encodes the structure.
struct ASN1T_Name_traits {
    typedef asn1data::ASN1T_Name ASN1_T;
    typedef asn1data::ASN1C_Name ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CName& src);
    static void get(const ASN1_T& src, CName& dst);
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src);
    static void get(const ASN1_T& src, CBlob& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst);
};

}  // namespace ASN1
}  // namespace Quorvane
