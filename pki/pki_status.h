// CMP-style status values: free text with a language, failure bits, the status record,
// type-and-value lists, the revocation announcement, and the reason flags. PKIFreeText has
// no place for a language, so a tag rides at the start of each string (see CPKIFreeText).
#pragma once

#include "pki/extension.h"

#include <list>
#include <string>

namespace Quorvane {
namespace ASN1 {

// The numbers of PKIStatus.
enum PKIStatusEnum : unsigned int {
    pkiStatusGranted = 0,
    pkiStatusGrantedWithMods = 1,
    pkiStatusRejection = 2,
    pkiStatusWaiting = 3,
    pkiStatusRevocationWarning = 4,
    pkiStatusRevocationNotification = 5,
    pkiStatusKeyUpdateWarning = 6,
};

// A tag lower-cased character by character and not validated otherwise. "*" stands for
// no particular language; the empty tag of the default constructor is neither.
class CLanguageTag {
public:
    CLanguageTag() : m_tag("") {}
    CLanguageTag(const char* tag);
    CLanguageTag(const wchar_t* tag);
    CLanguageTag(const CLanguageTag& other) = default;
    CLanguageTag& operator=(const CLanguageTag& other) = default;
    void assign(const CLanguageTag& other) { *this = other; }

    bool operator==(const CLanguageTag& other) const;
    bool operator!=(const CLanguageTag& other) const { return !(*this == other); }
    CStringProxy tostring() const { return m_tag; }
    static std::string normalize(const char* tag);

private:
    CStringProxy m_tag;
};

class CLanguageTagRuRu : public CLanguageTag {
public:
    CLanguageTagRuRu() : CLanguageTag("ru-ru") {}
};

class CLanguageTagEnUs : public CLanguageTag {
public:
    CLanguageTagEnUs() : CLanguageTag("en-us") {}
};

class CLanguageTagDefaultRead : public CLanguageTag {
public:
    CLanguageTagDefaultRead() : CLanguageTag("*") {}
};

class CPKIFreeTextString {
public:
    explicit CPKIFreeTextString(CLanguageTag language);
    CPKIFreeTextString(const wchar_t* value, CLanguageTag language);
    CPKIFreeTextString(const char* value, CLanguageTag language);
    CPKIFreeTextString(const CPKIFreeTextString& other) = default;
    CPKIFreeTextString& operator=(const CPKIFreeTextString& other) = default;
    void assign(const CPKIFreeTextString& other) { *this = other; }

    const wchar_t* get_value() const { return m_value.c_str(); }
    const CLanguageTag& get_language() const { return m_language; }
    void set_value(const wchar_t* value) { m_value = CWStringProxy(value); }

    // Language and text both.
    bool operator==(const CPKIFreeTextString& other) const;
    bool operator!=(const CPKIFreeTextString& other) const { return !(*this == other); }

private:
    CWStringProxy m_value;
    CLanguageTag m_language;
};

// Each string is written as U+0E01, the tag's characters moved into U+0Exx, U+0E7E, then
// the text; "*" writes the text alone. A parsed string keeps that run in its text, so it
// doubles on the next encoding.
class CPKIFreeText : public std::list<CPKIFreeTextString> {
public:
    using std::list<CPKIFreeTextString>::insert;

    CPKIFreeText() {}
    CPKIFreeText(const wchar_t* value, CLanguageTag language);
    explicit CPKIFreeText(const CPKIFreeTextString& string);

    // "*" (or an empty list) gives begin(). A language matches only an element of that
    // language with an empty text: lookups by language find no text.
    iterator find(const CLanguageTag& language);
    const_iterator find(const CLanguageTag& language) const;
    // The first element, of whatever language; an empty list is E_INVALIDARG.
    operator CPKIFreeTextString();
    operator const CPKIFreeTextString&() const;
    // Erases what find gives until it gives end(): "*" empties the list.
    void remove(const CLanguageTag& language);
    // "*" appends; otherwise what find gives is overwritten, or the string appended.
    void insert(const CPKIFreeTextString& string);
};

// Bit i of the value is named bit i of PKIFailureInfo.
class CPKIFailureInfo {
public:
    CPKIFailureInfo(unsigned int value) : m_value(value) {}
    CPKIFailureInfo(const CPKIFailureInfo& other) = default;
    CPKIFailureInfo& operator=(const CPKIFailureInfo& other) = default;

    unsigned int get_value() const { return m_value; }
    void put_value(unsigned int value) { m_value = value; }
    // Bit numbers of 32 and above are E_INVALIDARG.
    bool get_bit(unsigned int bit) const;
    void put_bit(unsigned int bit, bool on);

    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    unsigned int m_value;
};

bool operator==(const CPKIFailureInfo& a, const CPKIFailureInfo& b);
bool operator!=(const CPKIFailureInfo& a, const CPKIFailureInfo& b);

class CPKIStatusInfo {
public:
    CPKIStatusInfo(PKIStatusEnum status) : m_pkiStatus(status), m_failureInfo(0) {}
    CPKIStatusInfo(const CPKIStatusInfo& other) = default;
    CPKIStatusInfo& operator=(const CPKIStatusInfo& other) = default;

    // Failure bits of 0 and an empty text are left out.
    CBlob encode() const;
    // An absent text leaves the one held before.
    void decode(const CBlob& blob);

    PKIStatusEnum get_pkiStatus() const { return m_pkiStatus; }
    const CPKIFailureInfo& get_failureInfo() const { return m_failureInfo; }
    const CPKIFreeText& get_statusString() const { return m_statusString; }
    void put_pkiStatus(PKIStatusEnum status) { m_pkiStatus = status; }
    void put_failureInfo(const CPKIFailureInfo& failureInfo) { m_failureInfo = failureInfo; }
    void put_statusString(const CPKIFreeText& statusString) { m_statusString = statusString; }

private:
    PKIStatusEnum m_pkiStatus;
    CPKIFailureInfo m_failureInfo;
    CPKIFreeText m_statusString;
};

// Bit numbers are taken modulo 32 and never refused; only bits 0 to 15 reach the wire.
class CReasonFlags {
public:
    enum Flag : unsigned int {
        unused = 0x001,
        keyCompromise = 0x002,
        cACompromise = 0x004,
        affiliationChanged = 0x008,
        superseded = 0x010,
        cessationOfOperation = 0x020,
        certificateHold = 0x040,
        privilegeWithdrawn = 0x080,
        aACompromise = 0x100,
    };
    static const Flag sequence[9];

    CReasonFlags(unsigned int value) : m_value(value) {}
    unsigned int get_value() const { return m_value; }
    void put_value(unsigned int value) { m_value = value; }
    bool get_bit(unsigned int bit) const { return (m_value >> (bit % 32)) & 1u; }
    void put_bit(unsigned int bit, bool on);
    void add_flag(Flag flag) { m_value |= flag; }
    void remove_flag(Flag flag) { m_value &= ~static_cast<unsigned int>(flag); }
    // Any bit in common.
    bool get_flag(Flag flag) const { return (m_value & flag) != 0; }

private:
    unsigned int m_value;
};

bool operator==(const CReasonFlags& a, const CReasonFlags& b);
bool operator!=(const CReasonFlags& a, const CReasonFlags& b);

class CInfoTypeAndValue {
public:
    CInfoTypeAndValue() {}
    explicit CInfoTypeAndValue(const char* type) : m_infoType(type) {}
    CInfoTypeAndValue(const char* type, const CBlob& value) : m_infoType(type), m_infoValue(value) {}
    CInfoTypeAndValue(const CInfoTypeAndValue& other) = default;
    CInfoTypeAndValue& operator=(const CInfoTypeAndValue& other) = default;

    const char* get_infoType() const { return m_infoType.c_str(); }
    const CBlob& get_infoValue() const { return m_infoValue; }
    bool operator==(const CInfoTypeAndValue& other) const;
    bool operator!=(const CInfoTypeAndValue& other) const { return !(*this == other); }

private:
    CStringProxy m_infoType;
    CBlob m_infoValue;
};

class CInfoTypeAndValueList : public std::list<CInfoTypeAndValue> {
public:
    using std::list<CInfoTypeAndValue>::insert;

    iterator find(const char* type);
    const_iterator find(const char* type) const;
    // Overwrites the element of that type where it stands, or appends.
    void insert(const CInfoTypeAndValue& value);
    // The type must be there (test with find first); a missing one is E_INVALIDARG.
    void remove(const char* type);
};

class CCertId {
public:
    CCertId() {}
    CCertId(const CGeneralName& issuer, const CBigInteger& serialNumber)
        : m_issuer(issuer), m_serialNumber(serialNumber) {}

    const CGeneralName& get_issuer() const { return m_issuer; }
    const CBigInteger& get_serialNumber() const { return m_serialNumber; }
    void put_issuer(const CGeneralName& issuer) { m_issuer = issuer; }
    void put_serialNumber(const CBigInteger& serialNumber) { m_serialNumber = serialNumber; }

    CBlob encode() const;
    void decode(const CBlob& blob);

private:
    CGeneralName m_issuer;
    CBigInteger m_serialNumber;
};

class CRevAnnContent {
public:
    // No record: such an object can only be assigned to or destroyed.
    CRevAnnContent() : m_record(nullptr) {}
    CRevAnnContent(const PKIStatusEnum& status, const CCertId& certId, const CDateTime& willBeRevokedAt,
                   const CDateTime& badSinceDate);
    CRevAnnContent(const CRevAnnContent& other);
    CRevAnnContent& operator=(const CRevAnnContent& other);
    ~CRevAnnContent();

    CBlob encode() const;
    void decode(const CBlob& blob);

    const PKIStatusEnum& get_status() const;
    const CCertId& get_certId() const;
    const CDateTime& get_willBeRevokedAt() const;
    const CDateTime& get_badSinceDate() const;
    const CExtensions* get_crlDetails() const;
    void put_status(const PKIStatusEnum& status);
    void put_certId(const CCertId& certId);
    void put_willBeRevokedAt(const CDateTime& willBeRevokedAt);
    void put_badSinceDate(const CDateTime& badSinceDate);
    // A copy, or none for null; an empty list is left out on encoding.
    void put_crlDetails(const CExtensions* crlDetails);

private:
    struct Record;
    Record* m_record;
};

// ---- Conversions and traits --------------------------------------------------------------------

void CPKIFreeText_Encode(ASN1CTXT* ctxt, asn1data::ASN1T_PKIFreeText& dst, const CPKIFreeText& text);
// Appends to text; a string that opens a tag run without closing it is E_INVALIDARG.
void CPKIFreeText_Parse(ASN1CTXT* ctxt, CPKIFreeText& text, const asn1data::ASN1T_PKIFreeText& src);
void ASN1TavList_Parse(ASN1TSeqOfList& list, CInfoTypeAndValueList& result);
// Appends to dst on the buffer's context; each value passes the object of its type.
void ASN1TavList_Encode(const CInfoTypeAndValueList& list, ASN1TSeqOfList& dst, ASN1BERDecodeBuffer& buffer);

struct ASN1T_PKIFailureInfo_traits {
    typedef asn1data::ASN1T_PKIFailureInfo ASN1_T;
    typedef asn1data::ASN1C_PKIFailureInfo ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CPKIFailureInfo& src);
    static void get(const ASN1_T& src, CPKIFailureInfo& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_PKIFailureInfo(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_PKIStatusInfo_traits {
    typedef asn1data::ASN1T_PKIStatusInfo ASN1_T;
    typedef asn1data::ASN1C_PKIStatusInfo ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CPKIStatusInfo& src);
    static void get(const ASN1_T& src, CPKIStatusInfo& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_PKIStatusInfo(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_ReasonFlags_traits {
    typedef asn1data::ASN1T_ReasonFlags ASN1_T;
    typedef asn1data::ASN1C_ReasonFlags ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CReasonFlags& src);
    static void get(const ASN1_T& src, CReasonFlags& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_ReasonFlags(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_CertId_traits {
    typedef asn1data::ASN1T_CertId ASN1_T;
    typedef asn1data::ASN1C_CertId ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CCertId& src);
    static void get(const ASN1_T& src, CCertId& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_CertId(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

struct ASN1T_RevAnnContent_traits {
    typedef asn1data::ASN1T_RevAnnContent ASN1_T;
    typedef asn1data::ASN1C_RevAnnContent ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const CRevAnnContent& src);
    static void get(const ASN1_T& src, CRevAnnContent& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_RevAnnContent(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
