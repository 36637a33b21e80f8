#include "pki/cms_values.h"

#include "pki/choice.h"

#include <vector>

namespace Quorvane {
namespace ASN1 {

namespace {

const unsigned int kUtcTime = 1;
const unsigned int kGeneralTime = 2;

// The time text of one kind, written with DER rules on a local writer and copied to ctxt.
template <class Control>
const char* timeText(ASN1CTXT* ctxt, const CDateTime& time) {
    ASN1BEREncodeBuffer writer;
    const char* text = nullptr;
    Control control(writer, text, 1);
    const std::string result = GetASN1CTimeString(time, control);
    char* copy = nullptr;
    if (rtCopyCharStr(ctxt, result.c_str(), &copy) == 0 || copy == nullptr)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
    return copy;
}

// Fields read without DER rules; a field that does not parse comes back negative and the
// date-time refuses it as too wide.
template <class Control>
CDateTime readTime(const char* text) {
    ASN1BEREncodeBuffer writer;
    Control control(writer, text, 0);
    const int year = control.getYear(), month = control.getMonth(), day = control.getDay();
    const int hour = control.getHour(), minute = control.getMinute(), second = control.getSecond();
    return CDateTime(static_cast<unsigned int>(year), static_cast<unsigned int>(month), static_cast<unsigned int>(day),
                     static_cast<unsigned int>(hour), static_cast<unsigned int>(minute),
                     static_cast<unsigned int>(second), 0, 0);
}

}  // namespace

// ---- Content info ------------------------------------------------------------------------------

CBlob CContentInfo::encode() const { return asn1Encode<ASN1T_ContentInfo_traits, CContentInfo>(*this); }

void CContentInfo::decode(const CBlob& blob) { asn1Decode<ASN1T_ContentInfo_traits, CContentInfo>(blob, *this); }

void ASN1T_ContentInfo_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CContentInfo& src) {
    ASN1_T local;
    ASN1TObjId_traits::set(ctxt, local.contentType, src.get_contentType());
    Asn1TObject_traits::set(ctxt, local.content, src.get_content());
    // The scratch context holds the decoded content until the copy has taken it.
    ASN1BERDecodeBuffer scratch;
    if (asn1data::asn1DTC_ContentInfo(scratch.getCtxtPtr(), &local) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    asn1data::asn1Copy_ContentInfo(ctxt, &local, &dst);
}

void ASN1T_ContentInfo_traits::get(const ASN1_T& src, CContentInfo& dst) {
    CStringProxy contentType;
    ASN1TObjId_traits::get(src.contentType, contentType);
    CBlob content;
    Asn1TObject_traits::get(src.content, content);
    dst.put_contentType(contentType.c_str());
    dst.put_content(content);
}

void ASN1T_ContentInfo_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CBlob& src) {
    asn1DecodeT<ASN1T_ContentInfo_traits>(src, ctxt, dst);
}

void ASN1T_ContentInfo_traits::get(const ASN1_T& src, CBlob& dst) { dst = asn1EncodeT<ASN1T_ContentInfo_traits>(src); }

// ---- Signer info ---------------------------------------------------------------------------------

bool operator==(const CSignerInfo& a, const CSignerInfo& b) {
    return a.get_version() == b.get_version() && a.get_issuer() == b.get_issuer() &&
           a.get_serialNumber() == b.get_serialNumber() && a.get_signatureAlgorithm() == b.get_signatureAlgorithm() &&
           a.get_digestAlgorithm() == b.get_digestAlgorithm() && a.get_signature() == b.get_signature();
}

bool operator!=(const CSignerInfo& a, const CSignerInfo& b) { return !(a == b); }

void ASN1T_SignerInfo_get(CSignerInfo& value, const asn1data::ASN1T_SignerInfo& src) {
    value.put_version(src.version);
    CAlgorithmIdentifier digest;
    ASN1T_AlgorithmIdentifier_get(digest, src.digestAlgorithm);
    value.put_digestAlgorithm(digest);
    CAlgorithmIdentifier signatureAlgorithm;
    ASN1T_AlgorithmIdentifier_get(signatureAlgorithm, src.signatureAlgorithm);
    value.put_signatureAlgorithm(signatureAlgorithm);
    CBlob signature;
    ASN1TDynOctStr_traits::get(src.signature, signature);
    value.put_signature(signature);

    // Only issuerAndSerialNumber names a signer here.
    if (src.sid.t != 1 || src.sid.u.issuerAndSerialNumber == nullptr)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    const asn1data::ASN1T_IssuerAndSerialNumber& sid = *src.sid.u.issuerAndSerialNumber;
    CBigInteger serialNumber;
    ASN1StringToBigInteger(sid.serialNumber, serialNumber);
    value.put_serialNumber(serialNumber);

    ASN1BEREncodeBuffer writer;
    int len;
    {
        asn1data::ASN1C_Name control(writer, const_cast<asn1data::ASN1T_Name&>(sid.issuer));
        len = control.Encode();
    }
    if (len < 1)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    value.put_issuer(CBlob(writer.getMsgPtr(), static_cast<unsigned long>(len)));
}

// ---- Certificate values ------------------------------------------------------------------------------

CBlob CCertificateValues::encode() const {
    return asn1Encode<ASN1T_CertificateValues_traits, CCertificateValues>(*this);
}

void CCertificateValues::decode(const CBlob& blob) {
    asn1Decode<ASN1T_CertificateValues_traits, CCertificateValues>(blob, *this);
}

// ---- Time ----------------------------------------------------------------------------------------------

std::string GetASN1CTimeString(const CDateTime& time, ASN1CTime& control) {
    control.clear();
    if (control.setYear(static_cast<int>(time.year())) != 0 || control.setMonth(static_cast<int>(time.month())) != 0 ||
        control.setDay(static_cast<int>(time.day())) != 0 || control.setHour(static_cast<int>(time.hour())) != 0 ||
        control.setMinute(static_cast<int>(time.minute())) != 0 ||
        control.setSecond(static_cast<int>(time.second())) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    const int length = control.getTimeStringLen();
    std::vector<char> buffer(static_cast<size_t>(length < 0 ? 0 : length) + 1, '\0');
    if (control.getTimeString(buffer.data(), static_cast<int>(buffer.size())) == nullptr)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    return std::string(buffer.data());
}

CTimeChoice::CTimeChoice() : m_impl(new CTimeChoiceImpl) {
    std::unique_ptr<CTimeChoiceImpl> guard(m_impl);
    const CDateTime epoch(0L, 0u);
    choicePut(*m_impl, kUtcTime, &epoch);
    guard.release();
}

CTimeChoice::CTimeChoice(const CDateTime& time) : m_impl(new CTimeChoiceImpl) {
    std::unique_ptr<CTimeChoiceImpl> guard(m_impl);
    put_time(time);
    guard.release();
}

CTimeChoice::CTimeChoice(const CTimeChoice& other) : m_impl(choiceCopy(*other.m_impl)) {}

CTimeChoice& CTimeChoice::operator=(const CTimeChoice& other) {
    choiceAssign(m_impl, other.m_impl);
    return *this;
}

CTimeChoice::~CTimeChoice() { delete m_impl; }

void CTimeChoice::clear() {
    delete m_impl;
    m_impl = nullptr;
}

CBlob CTimeChoice::encode() const { return asn1Encode<ASN1T_Time_traits, CTimeChoice>(*this); }

void CTimeChoice::decode(const CBlob& blob) { asn1Decode<ASN1T_Time_traits, CTimeChoice>(blob, *this); }

unsigned int CTimeChoice::get_type() const { return m_impl->m_type; }

const CDateTime* CTimeChoice::get_time() const {
    if (m_impl->m_type == kUtcTime || m_impl->m_type == kGeneralTime)
        return static_cast<const CDateTime*>(m_impl->m_value);
    return nullptr;
}

void CTimeChoice::put_time(const CDateTime& time) {
    choicePut(*m_impl, time.year() > 2049 ? kGeneralTime : kUtcTime, &time);
}

void ASN1T_Time_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CTimeChoice& src) {
    switch (src.get_type()) {
    case kUtcTime:
        dst.t = kUtcTime;
        dst.u.utcTime = timeText<ASN1CUTCTime>(ctxt, *src.get_time());
        break;
    case kGeneralTime:
        dst.t = kGeneralTime;
        dst.u.generalTime = timeText<ASN1CGeneralizedTime>(ctxt, *src.get_time());
        break;
    default:
        break;
    }
}

void ASN1T_Time_traits::get(const ASN1_T& src, CTimeChoice& dst) {
    switch (src.t) {
    case kUtcTime:
        dst.put_time(readTime<ASN1CUTCTime>(src.u.utcTime));
        break;
    case kGeneralTime:
        dst.put_time(readTime<ASN1CGeneralizedTime>(src.u.generalTime));
        break;
    default:
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    }
}

}  // namespace ASN1
}  // namespace Quorvane
