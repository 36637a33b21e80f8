// X.509 GeneralName for the six alternatives the object model knows, and lists of them.
// Texts are held wide, the directory name as the DER of its Name, the address as bytes.
// Text forms and comparisons look at the first character of a text only.
#pragma once

#include "pki/name.h"

#include <list>

namespace Quorvane {
namespace ASN1 {

class CGeneralNameImpl;

class CGeneralName {
public:
    // The discriminants of the generated GeneralName.
    enum {
        otherName = 1,
        rfc822Name = 2,
        dNSName = 3,
        x400Address = 4,
        directoryName = 5,
        ediPartyName = 6,
        uniformResourceIdentifier = 7,
        iPAddress = 8,
        registeredID = 9,
    };

    // Type 0: nothing to copy from or encode yet.
    CGeneralName();
    CGeneralName(const CGeneralName& other);
    CGeneralName& operator=(const CGeneralName& other);
    ~CGeneralName();
    // Drops the implementation object: a last step, not a reset. Only an assignment brings
    // the object back.
    void clear();

    unsigned int get_type() const;
    // Null unless the object holds that alternative.
    const wchar_t* get_rfc822Name() const;
    const wchar_t* get_dNSName() const;
    const CBlob* get_directoryName() const;
    const wchar_t* get_uniformResourceIdentifier() const;
    const CBlob* get_iPAddress() const;
    const wchar_t* get_registeredID() const;

    // A null text throws std::logic_error "basic_string::_S_construct NULL not valid".
    void put_rfc822Name(const wchar_t* text);
    void put_dNSName(const wchar_t* text);
    void put_directoryName(const CBlob& name);
    void put_uniformResourceIdentifier(const wchar_t* text);
    void put_iPAddress(const CBlob& address);
    // Not checked here: a text that is no identifier fails at encode().
    void put_registeredID(const wchar_t* oid);

    CBlob encode() const;
    // An alternative without a model is E_INVALIDARG and leaves the object as it was. A
    // decoded iPAddress becomes a directoryName holding the address bytes.
    void decode(const CBlob& blob);

    // "dNSName: e" for "example.org": one character of a text, the whole of a directory
    // name; empty for other types.
    CWStringProxy toString() const;

private:
    CGeneralNameImpl* m_impl;
};

// Same type, and equal blobs or the same first character of the texts; an unmodelled type
// and two empty objects are equal.
bool operator==(const CGeneralName& a, const CGeneralName& b);
bool operator!=(const CGeneralName& a, const CGeneralName& b);

typedef std::list<CGeneralName> CGeneralNames;

struct ASN1T_GeneralName_traits {
    typedef asn1data::ASN1T_GeneralName ASN1_T;
    typedef asn1data::ASN1C_GeneralName ASN1_C;
    // Texts go narrow by the default code page with one byte per character; a text that
    // needs more, and any type without a model, is E_INVALIDARG.
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CGeneralName& src);
    static void get(const ASN1_T& src, CGeneralName& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_GeneralName(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_GeneralNames_traits {
    typedef asn1data::ASN1T_GeneralNames ASN1_T;
    typedef asn1data::ASN1C_GeneralNames ASN1_C;
    typedef ASN1TSeqOfList_traits<asn1data::ASN1T_GeneralName, ASN1T_GeneralName_traits, CGeneralName, CGeneralNames>
        List;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CGeneralNames& src) { List::set(ctxt, dst, src); }
    static void get(const ASN1_T& src, CGeneralNames& dst) { List::get(src, dst); }
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_GeneralNames(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
