#include "pki/pki_status.h"

#include <cctype>
#include <cstring>
#include <cwchar>
#include <vector>

#ifndef CRYPT_E_ASN1_UTF8
#define CRYPT_E_ASN1_UTF8 ((HRESULT)0x8009310Eu)
#endif

namespace Quorvane {
namespace ASN1 {

namespace {

const wchar_t kTagOpen = 0x0E01;
const wchar_t kTagClose = 0x0E7E;

bool isAnyLanguage(const CLanguageTag& language) { return std::strcmp(language.tostring().c_str(), "*") == 0; }

}  // namespace

// ---- Language tags and free text -----------------------------------------------------------------

CLanguageTag::CLanguageTag(const char* tag) : m_tag(normalize(tag).c_str()) {}

CLanguageTag::CLanguageTag(const wchar_t* tag) : m_tag(normalize(ASN1::tostring(tag).c_str()).c_str()) {}

bool CLanguageTag::operator==(const CLanguageTag& other) const {
    return std::strcmp(m_tag.c_str(), other.m_tag.c_str()) == 0;
}

std::string CLanguageTag::normalize(const char* tag) {
    std::string out(tag != nullptr ? tag : "");
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

CPKIFreeTextString::CPKIFreeTextString(CLanguageTag language) : m_value(L""), m_language(language) {}

CPKIFreeTextString::CPKIFreeTextString(const wchar_t* value, CLanguageTag language)
    : m_value(value), m_language(language) {}

CPKIFreeTextString::CPKIFreeTextString(const char* value, CLanguageTag language)
    : m_value(towstring(value).c_str()), m_language(language) {}

bool CPKIFreeTextString::operator==(const CPKIFreeTextString& other) const {
    return m_language == other.m_language && std::wcscmp(m_value.c_str(), other.m_value.c_str()) == 0;
}

CPKIFreeText::CPKIFreeText(const wchar_t* value, CLanguageTag language) {
    push_back(CPKIFreeTextString(value, language));
}

CPKIFreeText::CPKIFreeText(const CPKIFreeTextString& string) { push_back(string); }

CPKIFreeText::iterator CPKIFreeText::find(const CLanguageTag& language) {
    if (isAnyLanguage(language) || empty())
        return begin();
    const CPKIFreeTextString probe(language);
    for (iterator it = begin(); it != end(); ++it)
        if (*it == probe)
            return it;
    return end();
}

CPKIFreeText::const_iterator CPKIFreeText::find(const CLanguageTag& language) const {
    return const_cast<CPKIFreeText*>(this)->find(language);
}

CPKIFreeText::operator CPKIFreeTextString() {
    return static_cast<const CPKIFreeText&>(*this).operator const CPKIFreeTextString&();
}

CPKIFreeText::operator const CPKIFreeTextString&() const {
    // No element to read in an empty list.
    if (empty())
        ATL::AtlThrowImpl(E_INVALIDARG);
    return *find(CLanguageTagDefaultRead());
}

void CPKIFreeText::remove(const CLanguageTag& language) {
    for (iterator it = find(language); it != end(); it = find(language))
        erase(it);
}

void CPKIFreeText::insert(const CPKIFreeTextString& string) {
    if (!isAnyLanguage(string.get_language())) {
        const iterator it = find(string.get_language());
        if (it != end()) {
            *it = string;
            return;
        }
    }
    push_back(string);
}

void CPKIFreeText_Encode(ASN1CTXT* ctxt, asn1data::ASN1T_PKIFreeText& dst, const CPKIFreeText& text) {
    const size_t count = text.size();
    if (count > static_cast<size_t>(RT_MEMHEAP_MAX_ALLOC) / sizeof(const char*))
        ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
    dst.n = static_cast<ASN1UINT>(count);
    dst.elem = count != 0 ? static_cast<const char**>(asn1Alloc(ctxt, count * sizeof(const char*))) : nullptr;
    size_t i = 0;
    for (const CPKIFreeTextString& string : text) {
        std::wstring wide;
        if (!isAnyLanguage(string.get_language())) {
            wide += kTagOpen;
            const CStringProxy tag = string.get_language().tostring();
            for (const char* c = tag.c_str(); *c != '\0'; ++c)
                wide += static_cast<wchar_t>(static_cast<unsigned char>(*c) | 0x0E00);
            wide += kTagClose;
        }
        wide += string.get_value();
        size_t size = 1;
        for (const wchar_t c : wide)
            size += static_cast<size_t>(rtUTF8CharSize(static_cast<ASN1UINT>(c)));
        char* out = static_cast<char*>(asn1Alloc(ctxt, size));
        const int n = rtWCSToUTF8(ctxt, wide.data(), wide.size(), reinterpret_cast<unsigned char*>(out), size);
        if (n < 0)
            ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
        out[n] = '\0';
        dst.elem[i++] = out;
    }
}

void CPKIFreeText_Parse(ASN1CTXT* ctxt, CPKIFreeText& text, const asn1data::ASN1T_PKIFreeText& src) {
    for (ASN1UINT i = 0; i < src.n; ++i) {
        const unsigned char* utf8 = reinterpret_cast<const unsigned char*>(src.elem[i]);
        const int length = rtUTF8Len(utf8);
        if (length < 0)
            ATL::AtlThrowImpl(CRYPT_E_ASN1_UTF8);
        std::vector<wchar_t> wide(static_cast<size_t>(length) + 1, L'\0');
        if (rtUTF8ToWCS(ctxt, utf8, wide.data(), wide.size()) < 0)
            ATL::AtlThrowImpl(CRYPT_E_ASN1_UTF8);
        CLanguageTag language("*");
        if (wide[0] == kTagOpen) {
            std::string tag;
            size_t k = 1;
            for (; (wide[k] & ~0xFF) == 0x0E00 && wide[k] != kTagClose; ++k)
                tag += static_cast<char>(wide[k] & 0xFF);
            if (wide[k] != kTagClose)
                ATL::AtlThrowImpl(E_INVALIDARG);
            language = CLanguageTag(tag.c_str());
        }
        // The run stays in the text.
        text.push_back(CPKIFreeTextString(wide.data(), language));
    }
}

// ---- Failure bits, status, reason flags ------------------------------------------------------------

bool CPKIFailureInfo::get_bit(unsigned int bit) const {
    if (bit >= 32)
        ATL::AtlThrowImpl(E_INVALIDARG);
    return (m_value >> bit) & 1u;
}

void CPKIFailureInfo::put_bit(unsigned int bit, bool on) {
    if (bit >= 32)
        ATL::AtlThrowImpl(E_INVALIDARG);
    m_value = on ? m_value | (1u << bit) : m_value & ~(1u << bit);
}

CBlob CPKIFailureInfo::encode() const { return asn1Encode<ASN1T_PKIFailureInfo_traits, CPKIFailureInfo>(*this); }

void CPKIFailureInfo::decode(const CBlob& blob) {
    asn1Decode<ASN1T_PKIFailureInfo_traits, CPKIFailureInfo>(blob, *this);
}

bool operator==(const CPKIFailureInfo& a, const CPKIFailureInfo& b) { return a.get_value() == b.get_value(); }
bool operator!=(const CPKIFailureInfo& a, const CPKIFailureInfo& b) { return !(a == b); }

CBlob CPKIStatusInfo::encode() const { return asn1Encode<ASN1T_PKIStatusInfo_traits, CPKIStatusInfo>(*this); }

void CPKIStatusInfo::decode(const CBlob& blob) { asn1Decode<ASN1T_PKIStatusInfo_traits, CPKIStatusInfo>(blob, *this); }

const CReasonFlags::Flag CReasonFlags::sequence[9] = {unused,     keyCompromise,        cACompromise,
                                                      affiliationChanged, superseded, cessationOfOperation,
                                                      certificateHold,    privilegeWithdrawn, aACompromise};

void CReasonFlags::put_bit(unsigned int bit, bool on) {
    const unsigned int mask = 1u << (bit % 32);
    m_value = on ? m_value | mask : m_value & ~mask;
}

bool operator==(const CReasonFlags& a, const CReasonFlags& b) { return a.get_value() == b.get_value(); }
bool operator!=(const CReasonFlags& a, const CReasonFlags& b) { return !(a == b); }

// ---- Type and value lists ----------------------------------------------------------------------------

bool CInfoTypeAndValue::operator==(const CInfoTypeAndValue& other) const {
    return std::strcmp(get_infoType(), other.get_infoType()) == 0 && m_infoValue == other.m_infoValue;
}

CInfoTypeAndValueList::iterator CInfoTypeAndValueList::find(const char* type) {
    for (iterator it = begin(); it != end(); ++it)
        if (std::strcmp(it->get_infoType(), type) == 0)
            return it;
    return end();
}

CInfoTypeAndValueList::const_iterator CInfoTypeAndValueList::find(const char* type) const {
    return const_cast<CInfoTypeAndValueList*>(this)->find(type);
}

void CInfoTypeAndValueList::insert(const CInfoTypeAndValue& value) {
    const iterator it = find(value.get_infoType());
    if (it != end())
        *it = value;
    else
        push_back(value);
}

void CInfoTypeAndValueList::remove(const char* type) {
    const iterator it = find(type);
    // Unlinking end() would take the list's own node.
    if (it == end())
        ATL::AtlThrowImpl(E_INVALIDARG);
    erase(it);
}

void ASN1TavList_Parse(ASN1TSeqOfList& list, CInfoTypeAndValueList& result) {
    result.clear();
    const Asn1RTDListNode* node = list.head;
    for (ASN1UINT i = 0; i < list.count && node != nullptr; ++i, node = node->next) {
        const asn1data::ASN1T_InfoTypeAndValue& tav = *static_cast<const asn1data::ASN1T_InfoTypeAndValue*>(node->data);
        CStringProxy type;
        ASN1TObjId_traits::get(tav.infoType, type);
        if (tav.m.infoValuePresent)
            result.push_back(CInfoTypeAndValue(type.c_str(), CBlob(tav.infoValue.data, tav.infoValue.numocts)));
        else
            result.push_back(CInfoTypeAndValue(type.c_str()));
    }
}

void ASN1TavList_Encode(const CInfoTypeAndValueList& list, ASN1TSeqOfList& dst, ASN1BERDecodeBuffer& buffer) {
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    for (const CInfoTypeAndValue& value : list) {
        asn1data::ASN1T_InfoTypeAndValue* node = new (asn1Alloc(ctxt, sizeof(asn1data::ASN1T_InfoTypeAndValue), true))
            asn1data::ASN1T_InfoTypeAndValue();
        if (value.get_infoValue().cbData() != 0) {
            node->m.infoValuePresent = 1;
            Asn1TObject_traits::set(ctxt, node->infoValue, value.get_infoValue());
        }
        ASN1TObjId_traits::set(ctxt, node->infoType, value.get_infoType());
        if (asn1data::asn1DTC_InfoTypeAndValue(ctxt, node) != 0)
            ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
        rtDListAppendNode(ctxt, &dst, node);
    }
}

// ---- Certificate identifier and revocation announcement ------------------------------------------------

CBlob CCertId::encode() const { return asn1Encode<ASN1T_CertId_traits, CCertId>(*this); }

void CCertId::decode(const CBlob& blob) { asn1Decode<ASN1T_CertId_traits, CCertId>(blob, *this); }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
struct CRevAnnContent::Record {
    PKIStatusEnum status;
    CCertId certId;
    CDateTime willBeRevokedAt;
    CDateTime badSinceDate;
    std::auto_ptr<CExtensions> crlDetails;

    Record(PKIStatusEnum s, const CCertId& c, const CDateTime& w, const CDateTime& b)
        : status(s), certId(c), willBeRevokedAt(w), badSinceDate(b) {}
    Record(const Record& other)
        : status(other.status), certId(other.certId), willBeRevokedAt(other.willBeRevokedAt),
          badSinceDate(other.badSinceDate) {
        copy_to_auto_ptr(crlDetails, other.crlDetails.get());
    }
};
#pragma GCC diagnostic pop

CRevAnnContent::CRevAnnContent(const PKIStatusEnum& status, const CCertId& certId, const CDateTime& willBeRevokedAt,
                               const CDateTime& badSinceDate)
    : m_record(new Record(status, certId, willBeRevokedAt, badSinceDate)) {}

CRevAnnContent::CRevAnnContent(const CRevAnnContent& other) : m_record(new Record(*other.m_record)) {}

CRevAnnContent& CRevAnnContent::operator=(const CRevAnnContent& other) {
    if (this != &other) {
        Record* fresh = new Record(*other.m_record);
        delete m_record;
        m_record = fresh;
    }
    return *this;
}

CRevAnnContent::~CRevAnnContent() { delete m_record; }

CBlob CRevAnnContent::encode() const { return asn1Encode<ASN1T_RevAnnContent_traits, CRevAnnContent>(*this); }

void CRevAnnContent::decode(const CBlob& blob) { asn1Decode<ASN1T_RevAnnContent_traits, CRevAnnContent>(blob, *this); }

const PKIStatusEnum& CRevAnnContent::get_status() const { return m_record->status; }
const CCertId& CRevAnnContent::get_certId() const { return m_record->certId; }
const CDateTime& CRevAnnContent::get_willBeRevokedAt() const { return m_record->willBeRevokedAt; }
const CDateTime& CRevAnnContent::get_badSinceDate() const { return m_record->badSinceDate; }
const CExtensions* CRevAnnContent::get_crlDetails() const { return m_record->crlDetails.get(); }
void CRevAnnContent::put_status(const PKIStatusEnum& status) { m_record->status = status; }
void CRevAnnContent::put_certId(const CCertId& certId) { m_record->certId = certId; }
void CRevAnnContent::put_willBeRevokedAt(const CDateTime& willBeRevokedAt) { m_record->willBeRevokedAt = willBeRevokedAt; }
void CRevAnnContent::put_badSinceDate(const CDateTime& badSinceDate) { m_record->badSinceDate = badSinceDate; }
void CRevAnnContent::put_crlDetails(const CExtensions* crlDetails) { copy_to_auto_ptr(m_record->crlDetails, crlDetails); }

// ---- Traits ------------------------------------------------------------------------------------------------

void ASN1T_PKIFailureInfo_traits::set(ASN1CTXT*, ASN1_T& dst, const CPKIFailureInfo& src) {
    dst.numbits = 32;
    std::memset(dst.data, 0, sizeof dst.data);
    for (unsigned int i = 0; i < 32; ++i)
        if (src.get_bit(i))
            rtSetBit(dst.data, dst.numbits, i);
    // Named-bit form: no trailing zero bits.
    unsigned int bytes = sizeof dst.data;
    while (bytes > 0 && dst.data[bytes - 1] == 0)
        --bytes;
    dst.numbits = bytes > 0 ? (bytes - 1) * 8 + static_cast<ASN1UINT>(rtOctetBitLen(dst.data[bytes - 1])) : 0;
}

void ASN1T_PKIFailureInfo_traits::get(const ASN1_T& src, CPKIFailureInfo& dst) {
    // Every bit up to the count is written, so a bit clear on the wire clears the value's.
    for (unsigned int i = 0; i < src.numbits; ++i)
        dst.put_bit(i, rtTestBit(src.data, src.numbits, i) != 0);
}

void ASN1T_PKIStatusInfo_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CPKIStatusInfo& src) {
    dst.m.statusStringPresent = 0;
    dst.m.failInfoPresent = 0;
    dst.status = src.get_pkiStatus();
    if (src.get_failureInfo().get_value() != 0) {
        ASN1T_PKIFailureInfo_traits::set(ctxt, dst.failInfo, src.get_failureInfo());
        dst.m.failInfoPresent = 1;
    }
    if (!src.get_statusString().empty()) {
        dst.m.statusStringPresent = 1;
        CPKIFreeText_Encode(ctxt, dst.statusString, src.get_statusString());
    }
}

void ASN1T_PKIStatusInfo_traits::get(const ASN1_T& src, CPKIStatusInfo& dst) {
    dst.put_pkiStatus(static_cast<PKIStatusEnum>(src.status));
    CPKIFailureInfo failure(0);
    if (src.m.failInfoPresent)
        ASN1T_PKIFailureInfo_traits::get(src.failInfo, failure);
    dst.put_failureInfo(failure);
    if (src.m.statusStringPresent) {
        ASN1BERDecodeBuffer scratch;
        CPKIFreeText text;
        CPKIFreeText_Parse(scratch.getCtxtPtr(), text, src.statusString);
        dst.put_statusString(text);
    }
}

void ASN1T_ReasonFlags_traits::set(ASN1CTXT*, ASN1_T& dst, const CReasonFlags& src) {
    dst.numbits = 16;
    std::memset(dst.data, 0, sizeof dst.data);
    // The view keeps the count at the highest set bit; what it refuses is not written.
    ASN1_C view(dst);
    for (unsigned int i = 0; i < 16; ++i)
        src.get_bit(i) ? view.set(i) : view.clear(i);
}

void ASN1T_ReasonFlags_traits::get(const ASN1_T& src, CReasonFlags& dst) {
    dst.put_value(0);
    // Binding clamps the count to the type's nine bits: a copy keeps src as it is.
    ASN1_T bits = src;
    ASN1_C view(bits);
    const int length = view.length();
    for (int i = 0; i < length; ++i)
        if (view.get(static_cast<ASN1UINT>(i)))
            dst.put_bit(static_cast<unsigned int>(i), true);
}

void ASN1T_CertId_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CCertId& src) {
    ASN1T_GeneralName_traits::set(ctxt, dst.issuer, src.get_issuer());
    dst.serialNumber = BigIntegerToASN1String(ctxt, src.get_serialNumber());
}

void ASN1T_CertId_traits::get(const ASN1_T& src, CCertId& dst) {
    CGeneralName issuer;
    ASN1T_GeneralName_traits::get(src.issuer, issuer);
    CBigInteger serialNumber;
    ASN1StringToBigInteger(src.serialNumber, serialNumber);
    dst.put_issuer(issuer);
    dst.put_serialNumber(serialNumber);
}

void ASN1T_RevAnnContent_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CRevAnnContent& src) {
    dst.m.crlDetailsPresent = 0;
    dst.status = src.get_status();
    ASN1T_CertId_traits::set(ctxt, dst.certId, src.get_certId());
    ASN1GeneralizedTime_traits::set(ctxt, dst.willBeRevokedAt, src.get_willBeRevokedAt());
    ASN1GeneralizedTime_traits::set(ctxt, dst.badSinceDate, src.get_badSinceDate());
    if (src.get_crlDetails() != nullptr && !src.get_crlDetails()->empty()) {
        dst.m.crlDetailsPresent = 1;
        ASN1T_Extensions_traits::set(ctxt, dst.crlDetails, *src.get_crlDetails());
    }
}

void ASN1T_RevAnnContent_traits::get(const ASN1_T& src, CRevAnnContent& dst) {
    dst.put_status(static_cast<PKIStatusEnum>(src.status));
    CCertId certId;
    ASN1T_CertId_traits::get(src.certId, certId);
    dst.put_certId(certId);
    CDateTime willBeRevokedAt(0L, 0u), badSinceDate(0L, 0u);
    ASN1GeneralizedTime_traits::get(src.willBeRevokedAt, willBeRevokedAt);
    dst.put_willBeRevokedAt(willBeRevokedAt);
    ASN1GeneralizedTime_traits::get(src.badSinceDate, badSinceDate);
    dst.put_badSinceDate(badSinceDate);
    if (src.m.crlDetailsPresent) {
        CExtensions details;
        ASN1T_Extensions_traits::get(src.crlDetails, details);
        dst.put_crlDetails(&details);
    } else {
        dst.put_crlDetails(nullptr);
    }
}

}  // namespace ASN1
}  // namespace Quorvane
