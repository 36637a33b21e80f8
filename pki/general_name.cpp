#include "pki/general_name.h"

#include "pki/choice.h"

#include <climits>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Quorvane {
namespace ASN1 {

namespace {

// A wide text as narrow text by the default code page, in a buffer of one byte per
// character: a text that needs more does not convert.
std::vector<char> narrow(const wchar_t* text) {
    const size_t count = std::wcslen(text);
    if (count > 0x3FFFFFFFu)
        ATL::AtlThrowImpl(E_INVALIDARG);
    std::vector<char> buffer(count + 1, '\0');
    if (WideCharToMultiByte(0, 0, text, -1, buffer.data(), static_cast<int>(buffer.size()), nullptr, nullptr) == 0)
        ATL::AtlThrowImpl(E_INVALIDARG);
    return buffer;
}

const char* narrowOnHeap(ASN1CTXT* ctxt, const wchar_t* text) {
    const std::vector<char> buffer = narrow(text);
    const size_t size = std::strlen(buffer.data()) + 1;
    char* out = static_cast<char*>(asn1Alloc(ctxt, size));
    std::memcpy(out, buffer.data(), size);
    return out;
}

// Narrow text to wide by the default code page. A failure leaves the buffer unused and
// yields null, which the wide string built from it refuses with std::logic_error.
template <class Put>
void putWide(CGeneralName& name, const char* text, Put put) {
    if (text == nullptr)
        text = "";
    const size_t length = std::strlen(text);
    std::vector<wchar_t> buffer(length + 1, L'\0');
    const bool converted =
        length < static_cast<size_t>(INT_MAX) &&
        MultiByteToWideChar(0, 0, text, -1, buffer.data(), static_cast<int>(buffer.size())) != 0;
    (name.*put)(converted ? buffer.data() : nullptr);
}

const wchar_t* textOf(const CGeneralNameImpl& impl, unsigned int type) {
    const std::wstring* text = choiceGet<std::wstring>(impl, type);
    return text ? text->c_str() : nullptr;
}

// The temporary wide string refuses a null text in the words callers have always seen,
// whatever the standard library of the day says.
void putText(CGeneralNameImpl& impl, unsigned int type, const wchar_t* text) {
    if (text == nullptr)
        throw std::logic_error("basic_string::_S_construct NULL not valid");
    const std::wstring value(text);
    choicePut(impl, type, &value);
}

}  // namespace

CGeneralName::CGeneralName() : m_impl(new CGeneralNameImpl) {}

CGeneralName::CGeneralName(const CGeneralName& other) : m_impl(choiceCopy(*other.m_impl)) {}

CGeneralName& CGeneralName::operator=(const CGeneralName& other) {
    choiceAssign(m_impl, other.m_impl);
    return *this;
}

CGeneralName::~CGeneralName() { delete m_impl; }

void CGeneralName::clear() {
    delete m_impl;
    m_impl = nullptr;
}

unsigned int CGeneralName::get_type() const { return m_impl->m_type; }

const wchar_t* CGeneralName::get_rfc822Name() const { return textOf(*m_impl, rfc822Name); }
const wchar_t* CGeneralName::get_dNSName() const { return textOf(*m_impl, dNSName); }
const CBlob* CGeneralName::get_directoryName() const { return choiceGet<CBlob>(*m_impl, directoryName); }
const wchar_t* CGeneralName::get_uniformResourceIdentifier() const {
    return textOf(*m_impl, uniformResourceIdentifier);
}
const CBlob* CGeneralName::get_iPAddress() const { return choiceGet<CBlob>(*m_impl, iPAddress); }
const wchar_t* CGeneralName::get_registeredID() const { return textOf(*m_impl, registeredID); }

void CGeneralName::put_rfc822Name(const wchar_t* text) { putText(*m_impl, rfc822Name, text); }
void CGeneralName::put_dNSName(const wchar_t* text) { putText(*m_impl, dNSName, text); }
void CGeneralName::put_directoryName(const CBlob& name) { choicePut(*m_impl, directoryName, &name); }
void CGeneralName::put_uniformResourceIdentifier(const wchar_t* text) {
    putText(*m_impl, uniformResourceIdentifier, text);
}
void CGeneralName::put_iPAddress(const CBlob& address) { choicePut(*m_impl, iPAddress, &address); }
void CGeneralName::put_registeredID(const wchar_t* oid) { putText(*m_impl, registeredID, oid); }

// The codec steps written out, so that the temporary's discriminant is cleared first.
CBlob CGeneralName::encode() const {
    ASN1BEREncodeBuffer writer;
    ASN1BERDecodeBuffer scratch;
    asn1data::ASN1T_GeneralName temp;
    temp.t = 0;
    ASN1T_GeneralName_traits::set(scratch.getCtxtPtr(), temp, *this);
    int len;
    {
        asn1data::ASN1C_GeneralName control(writer, temp);
        len = control.Encode();
    }
    asn1Check(len);
    return CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len));
}

void CGeneralName::decode(const CBlob& blob) {
    ASN1BERDecodeBuffer buffer(blob.pbData(), static_cast<int>(blob.cbData()));
    asn1data::ASN1T_GeneralName temp;
    temp.t = 0;
    int stat;
    {
        asn1data::ASN1C_GeneralName control(buffer, temp);
        stat = control.Decode();
    }
    asn1Check(stat);
    ASN1T_GeneralName_traits::get(temp, *this);
}

CWStringProxy CGeneralName::toString() const {
    std::wostringstream out;
    const wchar_t* text = nullptr;
    switch (get_type()) {
    case rfc822Name:
        out << L"rfc822Name: ";
        text = get_rfc822Name();
        break;
    case dNSName:
        out << L"dNSName: ";
        text = get_dNSName();
        break;
    case directoryName: {
        CName name;
        name.decode(*get_directoryName());
        out << L"directoryName: " << name.toString().c_str();
        break;
    }
    case uniformResourceIdentifier:
        out << L"uniformResourceIdentifier: ";
        text = get_uniformResourceIdentifier();
        break;
    case iPAddress:
        out << L"iPAddress: (to string is not implemented)";
        break;
    case registeredID:
        out << L"registeredID: ";
        text = get_registeredID();
        break;
    default:
        break;
    }
    // One character only; an empty value gives its terminating NUL.
    if (text != nullptr)
        out.write(text, 1);
    return CWStringProxy(out.str().c_str());
}

bool operator==(const CGeneralName& a, const CGeneralName& b) {
    if (a.get_type() != b.get_type())
        return false;
    if (a.get_directoryName() != nullptr)
        return *a.get_directoryName() == *b.get_directoryName();
    if (a.get_iPAddress() != nullptr)
        return *a.get_iPAddress() == *b.get_iPAddress();
    const wchar_t* (CGeneralName::*const texts[])() const = {
        &CGeneralName::get_dNSName, &CGeneralName::get_registeredID, &CGeneralName::get_rfc822Name,
        &CGeneralName::get_uniformResourceIdentifier};
    for (auto text : texts) {
        const wchar_t* x = (a.*text)();
        const wchar_t* y = (b.*text)();
        if (x != nullptr || y != nullptr)
            return x != nullptr && y != nullptr && x[0] == y[0];
    }
    return true;
}

bool operator!=(const CGeneralName& a, const CGeneralName& b) { return !(a == b); }

// ---- Traits ------------------------------------------------------------------------------------

void ASN1T_GeneralName_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CGeneralName& src) {
    const unsigned int type = src.get_type();
    switch (type) {
    case CGeneralName::rfc822Name:
        dst.t = type;
        dst.u.rfc822Name = narrowOnHeap(ctxt, src.get_rfc822Name());
        break;
    case CGeneralName::dNSName:
        dst.t = type;
        dst.u.dNSName = narrowOnHeap(ctxt, src.get_dNSName());
        break;
    case CGeneralName::uniformResourceIdentifier:
        dst.t = type;
        dst.u.uniformResourceIdentifier = narrowOnHeap(ctxt, src.get_uniformResourceIdentifier());
        break;
    case CGeneralName::directoryName:
        dst.t = type;
        dst.u.directoryName = new (asn1Alloc(ctxt, sizeof(asn1data::ASN1T_Name), true)) asn1data::ASN1T_Name();
        ASN1T_Name_traits::set(ctxt, *dst.u.directoryName, *src.get_directoryName());
        break;
    case CGeneralName::iPAddress: {
        dst.t = type;
        ASN1TDynOctStr* address = static_cast<ASN1TDynOctStr*>(asn1Alloc(ctxt, sizeof(ASN1TDynOctStr), true));
        const CBlob& bytes = *src.get_iPAddress();
        // No bytes, no block: the runtime's heap gives none for a size of 0.
        if (bytes.cbData() != 0) {
            ASN1OCTET* data = static_cast<ASN1OCTET*>(asn1Alloc(ctxt, bytes.cbData()));
            std::memcpy(data, bytes.pbData(), bytes.cbData());
            address->data = data;
        }
        address->numocts = static_cast<ASN1UINT>(bytes.cbData());
        dst.u.iPAddress = address;
        break;
    }
    case CGeneralName::registeredID:
        dst.t = type;
        dst.u.registeredID = new (asn1Alloc(ctxt, sizeof(ASN1TObjId), true)) ASN1TObjId();
        if (str2oid(narrow(src.get_registeredID()).data(), dst.u.registeredID) != 0)
            ATL::AtlThrowImpl(E_INVALIDARG);
        break;
    default:
        ATL::AtlThrowImpl(E_INVALIDARG);
    }
}

void ASN1T_GeneralName_traits::get(const ASN1_T& src, CGeneralName& dst) {
    switch (src.t) {
    case CGeneralName::rfc822Name:
        putWide(dst, src.u.rfc822Name, &CGeneralName::put_rfc822Name);
        break;
    case CGeneralName::dNSName:
        putWide(dst, src.u.dNSName, &CGeneralName::put_dNSName);
        break;
    case CGeneralName::uniformResourceIdentifier:
        putWide(dst, src.u.uniformResourceIdentifier, &CGeneralName::put_uniformResourceIdentifier);
        break;
    case CGeneralName::directoryName: {
        CBlob name;
        ASN1T_Name_traits::get(*src.u.directoryName, name);
        dst.put_directoryName(name);
        break;
    }
    case CGeneralName::iPAddress: {
        // Stored as a directory name: the object has type 5 and holds the address bytes.
        CBlob address;
        ASN1TDynOctStr_traits::get(*src.u.iPAddress, address);
        dst.put_directoryName(address);
        break;
    }
    case CGeneralName::registeredID: {
        CStringProxy oid;
        ASN1TObjId_traits::get(*src.u.registeredID, oid);
        putWide(dst, oid.c_str(), &CGeneralName::put_registeredID);
        break;
    }
    default:
        ATL::AtlThrowImpl(E_INVALIDARG);
    }
}

}  // namespace ASN1
}  // namespace Quorvane
