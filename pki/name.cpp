#include "pki/name.h"

#include <climits>
#include <cstring>
#include <cwchar>
#include <vector>

namespace Quorvane {
namespace ASN1 {

// The list first: the globals below append themselves to it as they are constructed.
CATAVRegister::List CATAVRegister::registered_;

const CATAVRegister commonNameAttribute("2.5.4.3", L"CN", StringTypeUTF8, 32768);
const CATAVRegister countryNameAttribute("2.5.4.6", L"C", StringTypePrintable, 32768);
const CATAVRegister localityNameAttribute("2.5.4.7", L"L", StringTypeUTF8, 32768);
const CATAVRegister stateOrProvinceNameAttribute("2.5.4.8", L"ST", StringTypeUTF8, 32768);
const CATAVRegister emailAddressAttribute("1.2.840.113549.1.9.1", L"E", StringTypeIA5, 32768);
const CATAVRegister organizationNameAttribute("2.5.4.10", L"O", StringTypeUTF8, 32768);
const CATAVRegister organizationUnitNameAttribute("2.5.4.11", L"OU", StringTypeUTF8, 32768);
const CATAVRegister titleAttribute("2.5.4.12", L"T", StringTypeUTF8, 32768);
const CATAVRegister givenNameAttribute("2.5.4.42", L"GN", StringTypeUTF8, 32768);
const CATAVRegister initialsAttribute("2.5.4.43", L"I", StringTypeUTF8, 32768);
const CATAVRegister surnameAttribute("2.5.4.4", L"SN", StringTypeUTF8, 32768);
const CATAVRegister pseudonymAttribute("2.5.4.65", L"PS", StringTypeUTF8, 32768);
const CATAVRegister ogrnAttribute("1.2.643.100.1", L"OGRN", StringTypeUTF8, 32768);
const CATAVRegister ogrnipAttribute("1.2.643.100.5", L"OGRNIP", StringTypeUTF8, 32768);
const CATAVRegister snilsAttribute("1.2.643.100.3", L"SNILS", StringTypeUTF8, 32768);
const CATAVRegister innAttribute("1.2.643.3.131.1.1", L"INN", StringTypeUTF8, 32768);
const CATAVRegister streetAddressAttribute("2.5.4.9", L"STREET", StringTypeUTF8, 32768);
const CATAVRegister domainComponentAttribute("0.9.2342.19200300.100.1.25", L"DC", StringTypeIA5, 32768);
const CATAVRegister unstructuredNameAttribute("1.2.840.113549.1.9.2", L"UnstructuredName", StringTypeUTF8, 32768);
const CATAVRegister PostalCodeAttribute("2.5.4.17", L"PostalCode", StringTypeUTF8, 32768);

namespace {

const ASN1TAG kUTF8Tag = TM_UNIV | TM_PRIM | ASN_ID_UTF8String;
const ASN1TAG kNumericTag = TM_UNIV | TM_PRIM | ASN_ID_NumericString;
const ASN1TAG kPrintableTag = TM_UNIV | TM_PRIM | ASN_ID_PrintableString;
const ASN1TAG kTeletexTag = TM_UNIV | TM_PRIM | ASN_ID_TeletexString;
const ASN1TAG kIA5Tag = TM_UNIV | TM_PRIM | ASN_ID_IA5String;
const ASN1TAG kUniversalTag = TM_UNIV | TM_PRIM | ASN_ID_UniversalString;
const ASN1TAG kBMPTag = TM_UNIV | TM_PRIM | ASN_ID_BMPString;

typedef ASN1TSeqOfList_traits<asn1data::ASN1T_AttributeTypeAndValue, ASN1T_AttributeTypeAndValue_traits,
                              CAttributeTypeAndValue, CRelativeDistinguishedName>
    ComponentsTraits;
typedef ASN1TSeqOfList_traits<asn1data::ASN1T_RelativeDistinguishedName, ASN1T_RelativeDistinguishedName_traits,
                              CRelativeDistinguishedName, CRDNSequence>
    RDNsTraits;

// A bare context released on every way out, the one after a failed init included.
class LocalContext {
public:
    LocalContext() {
        if (!m_handle.init()) {
            m_handle.release();
            ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
        }
    }
    ~LocalContext() { m_handle.release(); }
    LocalContext(const LocalContext&) = delete;
    LocalContext& operator=(const LocalContext&) = delete;
    ASN1CTXT* get() { return m_handle.get(); }

private:
    ctxt_handle m_handle;
};

void checkStatus(int status) {
    if (status != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
}

// Each piece of text between separators, the empty ones included.
template <class F>
void forEachPiece(const wchar_t* text, wchar_t separator, F f) {
    const std::wstring all(text);
    size_t start = 0;
    for (;;) {
        const size_t at = all.find(separator, start);
        f(all.substr(start, at == std::wstring::npos ? std::wstring::npos : at - start));
        if (at == std::wstring::npos)
            return;
        start = at + 1;
    }
}

}  // namespace

// ---- The register -------------------------------------------------------------------------------

CATAVRegister::CATAVRegister(const char* oid_, const wchar_t* keyword_, StringType type, unsigned long maxLength_)
    : oid(oid_), keyword(keyword_), stringType(type), maxLength(maxLength_) {
    registered_.push_back(*this);
}

CATAVRegister::List::const_iterator CATAVRegister::find(const char* oid) {
    for (List::const_iterator it = registered_.begin(); it != registered_.end(); ++it)
        if (it->oid == oid)
            return it;
    return registered_.end();
}

CATAVRegister::List::const_iterator CATAVRegister::find(const wchar_t* keyword) {
    for (List::const_iterator it = registered_.begin(); it != registered_.end(); ++it)
        if (it->keyword == keyword)
            return it;
    return registered_.end();
}

std::wstring CATAVRegister::typeToStr(const char* oid) {
    const List::const_iterator row = find(oid);
    return row != registered_.end() ? row->keyword : towstring(oid);
}

std::string CATAVRegister::typeFromStr(const wchar_t* keyword) {
    const List::const_iterator row = find(keyword);
    return row != registered_.end() ? row->oid : tostring(keyword);
}

std::wstring CATAVRegister::valueToStr(const char* oid, const CBlob& value) {
    if (find(oid) != registered_.end())
        return decodeCharString(value).c_str();
    return L"#" + towstring(value.writeToHexString(0).c_str());
}

CBlob CATAVRegister::valueFromStr(const char* oid, const wchar_t* text, StringType type) {
    const List::const_iterator row = find(oid);
    if (row != registered_.end()) {
        if (std::wcslen(text) > row->maxLength)
            ATL::AtlThrowImpl(E_INVALIDARG);
        return encodeCharString(text, type == StringTypeDefault ? row->stringType : type);
    }
    // The character dropped is the "#" that valueToStr writes, though nothing checks it.
    const std::wstring digits = std::wstring(text).substr(1);
    CBlob value;
    value.readFromHexString(tostring(digits.c_str()).c_str());
    return value;
}

CAttributeTypeAndValue CATAVRegister::makeATAV(const wchar_t* keyword, const wchar_t* value, StringType type) {
    const std::string oid = typeFromStr(keyword);
    return CAttributeTypeAndValue(oid.c_str(), valueFromStr(oid.c_str(), value, type));
}

CAttributeTypeAndValue CATAVRegister::makeATAV(const wchar_t* text, StringType type) {
    const std::wstring all(text);
    const size_t equals = all.find(L'=');
    if (equals == std::wstring::npos)
        ATL::AtlThrowImpl(E_INVALIDARG);
    return makeATAV(all.substr(0, equals).c_str(), all.substr(equals + 1).c_str(), type);
}

// ---- Character strings ----------------------------------------------------------------------------

CBlob encodeCharString(const wchar_t* text, StringType type) {
    LocalContext local;
    ASN1CTXT* ctxt = local.get();
    // No buffer: the encoder grows its own.
    checkStatus(xe_setp(ctxt, nullptr, 0));
    const size_t count = std::wcslen(text);
    int len;
    switch (type) {
    case StringTypeUTF8: {
        size_t size = 1;
        for (size_t i = 0; i < count; ++i)
            size += static_cast<size_t>(rtUTF8CharSize(static_cast<ASN1UINT>(text[i])));
        unsigned char* utf8 = static_cast<unsigned char*>(asn1Alloc(ctxt, size));
        const int n = rtWCSToUTF8(ctxt, text, count, utf8, size);
        if (n < 0)
            ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
        utf8[n] = 0;
        len = xe_charstr(ctxt, reinterpret_cast<const char*>(utf8), ASN1EXPL, kUTF8Tag);
        break;
    }
    case StringTypePrintable:
        len = xe_charstr(ctxt, tostring(text).c_str(), ASN1EXPL, kPrintableTag);
        break;
    case StringTypeTeletex:
        len = xe_charstr(ctxt, tostring(text).c_str(), ASN1EXPL, kTeletexTag);
        break;
    case StringTypeIA5:
        len = xe_charstr(ctxt, tostring(text).c_str(), ASN1EXPL, kIA5Tag);
        break;
    case StringTypeBMP: {
        if (count > static_cast<size_t>(INT_MAX / 2))
            ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
        Asn116BitCharString units;
        units.nchars = static_cast<ASN1UINT>(count);
        // Room for one unit at least, so that an empty text is no failed allocation.
        units.data = static_cast<ASN1USINT*>(asn1Alloc(ctxt, count != 0 ? count * 2 : 2));
        for (size_t i = 0; i < count; ++i)
            units.data[i] = static_cast<ASN1USINT>(static_cast<uint32_t>(text[i]) & 0xFFFFu);
        len = xe_16BitCharStr(ctxt, &units, ASN1EXPL, kBMPTag);
        break;
    }
    case StringTypeUniversal: {
        Asn132BitCharString chars;
        if (rtWCSToUCSString(ctxt, text, &chars, nullptr) == nullptr)
            ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
        len = xe_32BitCharStr(ctxt, &chars, ASN1EXPL, kUniversalTag);
        break;
    }
    default:
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    }
    asn1Check(len);
    return CBlob(xe_getp(ctxt), static_cast<unsigned long>(len));
}

CWStringProxy decodeCharString(const CBlob& encoded) {
    // The runtime takes a size that is not positive for "unbounded".
    if (encoded.cbData() == 0 || encoded.cbData() > static_cast<unsigned long>(INT_MAX))
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    LocalContext local;
    ASN1CTXT* ctxt = local.get();
    checkStatus(xd_setp(ctxt, encoded.pbData(), static_cast<int>(encoded.cbData()), nullptr, nullptr));
    ASN1TAG tag = 0;
    int length = 0;
    // A peek: the readers below take the tag themselves.
    checkStatus(xd_tag_len(ctxt, &tag, &length, 0));
    switch (tag & ~TM_CONS) {
    case kUTF8Tag: {
        const char* text = nullptr;
        checkStatus(xd_charstr(ctxt, &text, ASN1EXPL, kUTF8Tag, 0));
        const unsigned char* utf8 = reinterpret_cast<const unsigned char*>(text);
        const int chars = asn1Check(rtUTF8Len(utf8));
        std::vector<wchar_t> wide(static_cast<size_t>(chars) + 1, L'\0');
        const int n = asn1Check(rtUTF8ToWCS(ctxt, utf8, wide.data(), wide.size()));
        wide[static_cast<size_t>(n)] = L'\0';
        return CWStringProxy(wide.data());
    }
    case kNumericTag:
    case kPrintableTag:
    case kTeletexTag:
    case kIA5Tag: {
        const char* text = nullptr;
        checkStatus(xd_charstr(ctxt, &text, ASN1EXPL, tag & ~TM_CONS, 0));
        return CWStringProxy(towstring(text).c_str());
    }
    case kUniversalTag: {
        Asn132BitCharString chars = {0, nullptr};
        checkStatus(xd_32BitCharStr(ctxt, &chars, ASN1EXPL, kUniversalTag, 0));
        std::vector<wchar_t> wide(static_cast<size_t>(chars.nchars) + 1, L'\0');
        rtUCSToWCSString(&chars, wide.data(), wide.size());
        return CWStringProxy(wide.data());
    }
    case kBMPTag: {
        Asn116BitCharString units = {0, nullptr};
        checkStatus(xd_16BitCharStr(ctxt, &units, ASN1EXPL, kBMPTag, 0));
        std::wstring wide;
        for (ASN1UINT i = 0; i < units.nchars; ++i)
            wide.push_back(static_cast<wchar_t>(units.data[i]));
        return CWStringProxy(wide.c_str());
    }
    default:
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    }
}

// ---- CAttributeTypeAndValue -----------------------------------------------------------------------

CAttributeTypeAndValue::CAttributeTypeAndValue(const CAttrValue& value)
    : m_type(value.get_oid()), m_value(value.get_value()) {}

CAttributeTypeAndValue::CAttributeTypeAndValue(const char* oid, const CBlob& value) : m_type(oid), m_value(value) {}

CAttributeTypeAndValue::CAttributeTypeAndValue(const wchar_t* keyword, const wchar_t* value, StringType type) {
    *this = CATAVRegister::makeATAV(keyword, value, type);
}

CAttributeTypeAndValue::CAttributeTypeAndValue(const wchar_t* text, StringType type) {
    *this = CATAVRegister::makeATAV(text, type);
}

CWStringProxy CAttributeTypeAndValue::get_type_str() const {
    return CWStringProxy(CATAVRegister::typeToStr(get_type()).c_str());
}

CWStringProxy CAttributeTypeAndValue::get_value_str() const {
    return CWStringProxy(CATAVRegister::valueToStr(get_type(), m_value).c_str());
}

void CAttributeTypeAndValue::put_type(const char* oid) { m_type = CStringProxy(oid); }

void CAttributeTypeAndValue::put_type_str(const wchar_t* keyword) {
    m_type = CStringProxy(CATAVRegister::typeFromStr(keyword).c_str());
}

void CAttributeTypeAndValue::put_value(const CBlob& value) { m_value = value; }

void CAttributeTypeAndValue::put_value_str(const wchar_t* text, StringType type) {
    m_value = CATAVRegister::valueFromStr(get_type(), text, type);
}

CWStringProxy CAttributeTypeAndValue::toString() const {
    const std::wstring text = std::wstring(get_type_str().c_str()) + L"=" + get_value_str().c_str();
    return CWStringProxy(text.c_str());
}

void CAttributeTypeAndValue::fromString(const wchar_t* text, StringType) {
    const CAttributeTypeAndValue parsed = CATAVRegister::makeATAV(text, StringTypeDefault);
    m_type = parsed.m_type;
    m_value = parsed.m_value;
}

CBlob CAttributeTypeAndValue::encode() const {
    return asn1Encode<ASN1T_AttributeTypeAndValue_traits, CAttributeTypeAndValue>(*this);
}

void CAttributeTypeAndValue::decode(const CBlob& blob) {
    asn1Decode<ASN1T_AttributeTypeAndValue_traits, CAttributeTypeAndValue>(blob, *this);
}

bool operator==(const CAttributeTypeAndValue& a, const CAttributeTypeAndValue& b) {
    return std::strcmp(a.get_type(), b.get_type()) == 0 && a.get_value() == b.get_value();
}

bool operator!=(const CAttributeTypeAndValue& a, const CAttributeTypeAndValue& b) { return !(a == b); }

bool operator==(const CAttributeTypeAndValueSet&, const CAttributeTypeAndValueSet&) { return false; }

bool operator!=(const CAttributeTypeAndValueSet&, const CAttributeTypeAndValueSet&) { return false; }

// ---- CRelativeDistinguishedName -----------------------------------------------------------------

CRelativeDistinguishedName::CRelativeDistinguishedName(const wchar_t* text) {
    try {
        fromString(text);
    } catch (...) {
        clear();
        throw;
    }
}

void CRelativeDistinguishedName::fromString(const wchar_t* text) {
    forEachPiece(text, L'+', [this](const std::wstring& piece) {
        push_back(CAttributeTypeAndValue(piece.c_str(), StringTypeDefault));
    });
}

CWStringProxy CRelativeDistinguishedName::toString() const {
    std::wstring text;
    for (const_iterator it = begin(); it != end(); ++it) {
        if (it != begin())
            text += L'+';
        text += it->toString().c_str();
    }
    return CWStringProxy(text.c_str());
}

CBlob CRelativeDistinguishedName::encode() const {
    return asn1Encode<ASN1T_RelativeDistinguishedName_traits, CRelativeDistinguishedName>(*this);
}

void CRelativeDistinguishedName::decode(const CBlob& blob) {
    asn1Decode<ASN1T_RelativeDistinguishedName_traits, CRelativeDistinguishedName>(blob, *this);
}

bool operator==(const CRelativeDistinguishedName& a, const CRelativeDistinguishedName& b) {
    const CAttributeTypeAndValueSet left(a.begin(), a.end()), right(b.begin(), b.end());
    return left == right;
}

bool operator!=(const CRelativeDistinguishedName& a, const CRelativeDistinguishedName& b) { return !(a == b); }

// ---- CName ------------------------------------------------------------------------------------------

CName::CName(const wchar_t* text) {
    try {
        fromString(text);
    } catch (...) {
        clear();
        throw;
    }
}

void CName::fromString(const wchar_t* text) {
    forEachPiece(text, L',', [this](const std::wstring& piece) {
        CRelativeDistinguishedName rdn;
        rdn.fromString(piece.c_str());
        push_back(rdn);
    });
}

CWStringProxy CName::toString() const {
    std::wstring text;
    for (const_iterator it = begin(); it != end(); ++it) {
        if (it != begin())
            text += L',';
        text += it->toString().c_str();
    }
    return CWStringProxy(text.c_str());
}

CBlob CName::encode() const { return asn1Encode<ASN1T_Name_traits, CName>(*this); }

void CName::decode(const CBlob& blob) { asn1Decode<ASN1T_Name_traits, CName>(blob, *this); }

void fromString(CRelativeDistinguishedName& rdn, const unsigned short* text) {
    rdn.fromString(reinterpret_cast<const wchar_t*>(text));
}

void fromString(CName& name, const unsigned short* text) { name.fromString(reinterpret_cast<const wchar_t*>(text)); }

// ---- Name attribute classes -----------------------------------------------------------------------

CAttrStringValue::CAttrStringValue(const char* oid, const char* value)
    : CAttrValue(oid, CATAVRegister::valueFromStr(oid, towstring(value).c_str(), StringTypeDefault)) {}

CAttrStringValue::CAttrStringValue(const char* oid, const wchar_t* value)
    : CAttrValue(oid, CATAVRegister::valueFromStr(oid, value, StringTypeDefault)) {}

CAttrCommonName::CAttrCommonName(const char* value) : CAttrStringValue("2.5.4.3", value) {}
CAttrSurname::CAttrSurname(const char* value) : CAttrStringValue("2.5.4.4", value) {}
CAttrCountry::CAttrCountry(const char* value) : CAttrStringValue("2.5.4.6", value) {}
CAttrLocality::CAttrLocality(const char* value) : CAttrStringValue("2.5.4.7", value) {}
CAttrStateOrProvinceName::CAttrStateOrProvinceName(const char* value) : CAttrStringValue("2.5.4.8", value) {}
CAttrOrganizationName::CAttrOrganizationName(const char* value) : CAttrStringValue("2.5.4.10", value) {}
CAttrOrganizationalUnitName::CAttrOrganizationalUnitName(const char* value) : CAttrStringValue("2.5.4.11", value) {}
CAttrTitle::CAttrTitle(const char* value) : CAttrStringValue("2.5.4.12", value) {}
CAttrGivenName::CAttrGivenName(const char* value) : CAttrStringValue("2.5.4.42", value) {}
CAttrInitials::CAttrInitials(const char* value) : CAttrStringValue("2.5.4.43", value) {}
CAttrPseudonym::CAttrPseudonym(const char* value) : CAttrStringValue("2.5.4.65", value) {}
CAttrEmailAddress::CAttrEmailAddress(const char* value) : CAttrStringValue("1.2.840.113549.1.9.1", value) {}

// ---- Traits -----------------------------------------------------------------------------------------

void ASN1T_AttributeTypeAndValue_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CAttributeTypeAndValue& src) {
    // The scratch context holds the value the check decodes until the copy has taken it.
    ASN1BERDecodeBuffer scratch;
    ASN1CTXT* local = scratch.getCtxtPtr();
    ASN1_T temp;
    ASN1TObjId_traits::set(local, temp.type, src.get_type());
    Asn1TObject_traits::set(local, temp.value, src.get_value());
    if (asn1data::asn1DTC_AttributeTypeAndValue(local, &temp) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    asn1data::asn1Copy_AttributeTypeAndValue(ctxt, &temp, &dst);
}

void ASN1T_AttributeTypeAndValue_traits::get(const ASN1_T& src, CAttributeTypeAndValue& dst) {
    CStringProxy type;
    ASN1TObjId_traits::get(src.type, type);
    CBlob value;
    Asn1TObject_traits::get(src.value, value);
    dst.put_type(type.c_str());
    dst.put_value(value);
}

void ASN1T_AttributeTypeAndValue_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    asn1data::asn1Copy_AttributeTypeAndValue(ctxt, const_cast<ASN1_T*>(&src), &dst);
}

void ASN1T_RelativeDistinguishedName_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CRelativeDistinguishedName& src) {
    ComponentsTraits::set(ctxt, dst, src);
}

void ASN1T_RelativeDistinguishedName_traits::get(const ASN1_T& src, CRelativeDistinguishedName& dst) {
    ComponentsTraits::get(src, dst);
}

void ASN1T_RelativeDistinguishedName_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    rtDListInit(&dst);
    for (const Asn1RTDListNode* n = src.head; n != nullptr; n = n->next) {
        auto* fresh = new (asn1Alloc(ctxt, sizeof(asn1data::ASN1T_AttributeTypeAndValue), true))
            asn1data::ASN1T_AttributeTypeAndValue();
        rtDListAppend(ctxt, &dst, fresh);
        ASN1T_AttributeTypeAndValue_traits::copy(
            ctxt, *static_cast<const asn1data::ASN1T_AttributeTypeAndValue*>(n->data), *fresh);
    }
}

void ASN1T_Name_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CName& src) {
    dst.t = 1;  // rdnSequence, the only alternative
    dst.u.rdnSequence =
        new (asn1Alloc(ctxt, sizeof(asn1data::ASN1T_RDNSequence), true)) asn1data::ASN1T_RDNSequence();
    RDNsTraits::set(ctxt, *dst.u.rdnSequence, src);
}

void ASN1T_Name_traits::get(const ASN1_T& src, CName& dst) {
    // The discriminant is not looked at: rdnSequence is the only alternative.
    if (src.u.rdnSequence == nullptr) {
        dst.clear();
        return;
    }
    RDNsTraits::get(*src.u.rdnSequence, dst);
}

void ASN1T_Name_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
    asn1DecodeT<ASN1T_Name_traits>(src, ctxt, dst);
}

void ASN1T_Name_traits::get(const ASN1_T& src, CBlob& dst) { dst = asn1EncodeT<ASN1T_Name_traits>(src); }

void ASN1T_Name_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    asn1data::asn1Copy_Name(ctxt, const_cast<ASN1_T*>(&src), &dst);
}

}  // namespace ASN1
}  // namespace Quorvane
