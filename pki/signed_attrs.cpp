#include "pki/signed_attrs.h"

#include <climits>
#include <memory>

namespace Quorvane {
namespace ASN1 {

// ---- The signing-certificate attributes --------------------------------------------------------

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
template <class Derived, class List, class Traits, bool PoliciesReencode>
struct CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::Record {
    List certs;
    std::auto_ptr<CPolicyInformationList> policies;
    Record() {}
    Record(const Record& other) : certs(other.certs) { copy_to_auto_ptr(policies, other.policies.get()); }
};
#pragma GCC diagnostic pop

template <class Derived, class List, class Traits, bool PoliciesReencode>
CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::CAttrCertificatesT(const char* oid)
    : CAttrValue(oid), m_record(new Record) {}

template <class Derived, class List, class Traits, bool PoliciesReencode>
CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::CAttrCertificatesT(const CAttrCertificatesT& other)
    : CAttrValue(other), m_record(new Record(*other.m_record)) {}

template <class Derived, class List, class Traits, bool PoliciesReencode>
CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>&
CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::operator=(const CAttrCertificatesT& other) {
    if (this != &other) {
        std::unique_ptr<Record> fresh(new Record(*other.m_record));
        CAttrValue::operator=(other);
        delete m_record;
        m_record = fresh.release();
    }
    return *this;
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::~CAttrCertificatesT() {
    delete m_record;
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
const List& CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::get_certs() const {
    return m_record->certs;
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
const CPolicyInformationList* CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::get_policies() const {
    return m_record->policies.get();
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
void CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::put_certs(const List& certs) {
    m_record->certs = certs;
    encode();
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
void CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::put_policies(const CPolicyInformationList* policies) {
    copy_to_auto_ptr(m_record->policies, policies);
    if (PoliciesReencode)
        encode();
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
void CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::encode() {
    value() = asn1Encode<Traits, Derived>(static_cast<const Derived&>(*this));
}

template <class Derived, class List, class Traits, bool PoliciesReencode>
void CAttrCertificatesT<Derived, List, Traits, PoliciesReencode>::decode() {
    // A copy: decoding writes the value while it reads it.
    const CBlob wire(get_value());
    asn1Decode<Traits, Derived>(wire, static_cast<Derived&>(*this));
}

template class CAttrCertificatesT<CAttrSigningCertificate, CESSCertIDList, ASN1T_SigningCertificate_traits, false>;
template class CAttrCertificatesT<CAttrSigningCertificateV2, CESSCertIDv2List, ASN1T_SigningCertificateV2_traits,
                                  false>;
template class CAttrCertificatesT<CAttrOtherSigningCertificate, COtherCertIDList,
                                  ASN1T_OtherSigningCertificate_traits, true>;

CAttrSigningCertificate::CAttrSigningCertificate() : CAttrCertificatesT("1.2.840.113549.1.9.16.2.12") {}

CAttrSigningCertificate::CAttrSigningCertificate(const CBlob& value) : CAttrCertificatesT("1.2.840.113549.1.9.16.2.12") {
    this->value() = value;
    decode();
}

CAttrSigningCertificate::CAttrSigningCertificate(const CESSCertIDList& certs)
    : CAttrCertificatesT("1.2.840.113549.1.9.16.2.12") {
    put_certs(certs);
}

CAttrSigningCertificateV2::CAttrSigningCertificateV2() : CAttrCertificatesT("1.2.840.113549.1.9.16.2.47") {}

CAttrSigningCertificateV2::CAttrSigningCertificateV2(const CBlob& value)
    : CAttrCertificatesT("1.2.840.113549.1.9.16.2.47") {
    this->value() = value;
    decode();
}

CAttrSigningCertificateV2::CAttrSigningCertificateV2(const CESSCertIDv2List& certs)
    : CAttrCertificatesT("1.2.840.113549.1.9.16.2.47") {
    put_certs(certs);
}

CAttrOtherSigningCertificate::CAttrOtherSigningCertificate() : CAttrCertificatesT("1.2.840.113549.1.9.16.2.19") {}

CAttrOtherSigningCertificate::CAttrOtherSigningCertificate(const CBlob& value)
    : CAttrCertificatesT("1.2.840.113549.1.9.16.2.19") {
    this->value() = value;
    decode();
}

CAttrOtherSigningCertificate::CAttrOtherSigningCertificate(const COtherCertIDList& certs)
    : CAttrCertificatesT("1.2.840.113549.1.9.16.2.19") {
    put_certs(certs);
}

// ---- Signing time ------------------------------------------------------------------------------

CAttrSigningTime::CAttrSigningTime(const CDateTime& time)
    : CAttrValue("1.2.840.113549.1.9.5"), m_time(new CTimeChoice(time)) {
    std::unique_ptr<CTimeChoice> guard(m_time);
    encode();
    guard.release();
}

CAttrSigningTime::CAttrSigningTime(const CBlob& value)
    : CAttrValue("1.2.840.113549.1.9.5", value), m_time(new CTimeChoice) {
    std::unique_ptr<CTimeChoice> guard(m_time);
    decode();
    guard.release();
}

CAttrSigningTime::CAttrSigningTime(const CAttrSigningTime& other)
    : CAttrValue(other), m_time(new CTimeChoice(*other.m_time)) {}

CAttrSigningTime& CAttrSigningTime::operator=(const CAttrSigningTime& other) {
    if (this != &other) {
        *m_time = *other.m_time;
        CAttrValue::operator=(other);
    }
    return *this;
}

CAttrSigningTime::~CAttrSigningTime() { delete m_time; }

void CAttrSigningTime::encode() { value() = m_time->encode(); }

void CAttrSigningTime::decode() { m_time->decode(get_value()); }

CDateTime CAttrSigningTime::get_time() const { return *m_time->get_time(); }

void CAttrSigningTime::put_time(const CDateTime& time) {
    m_time->put_time(time);
    encode();
}

// ---- Content type ------------------------------------------------------------------------------

CAttrContentType::CAttrContentType(const char* contentType)
    : CAttrValue("1.2.840.113549.1.9.3"), m_contentType(contentType) {
    encode();
}

CAttrContentType::CAttrContentType(const CBlob& value) : CAttrValue("1.2.840.113549.1.9.3", value) { decode(); }

void CAttrContentType::encode() { value() = asn1Encode<ASN1TObjId_traits, const char*>(m_contentType.c_str()); }

void CAttrContentType::decode() { asn1Decode<ASN1TObjId_traits, CStringProxy>(get_value(), m_contentType); }

void CAttrContentType::put_contentType(const char* contentType) {
    m_contentType = CStringProxy(contentType);
    encode();
}

// ---- Message digest ----------------------------------------------------------------------------

CAttrMessageDigest::CAttrMessageDigest() : CAttrValue("1.2.840.113549.1.9.4") {}

CAttrMessageDigest::CAttrMessageDigest(const CBlob& value)
    : CAttrValue("1.2.840.113549.1.9.4", value), m_messageDigest(fromOctetString(value)) {}

void CAttrMessageDigest::encode() { value() = toOctetString(m_messageDigest); }

void CAttrMessageDigest::decode() { m_messageDigest = fromOctetString(get_value()); }

void CAttrMessageDigest::put_messageDigest(const CBlob& messageDigest) {
    m_messageDigest = messageDigest;
    encode();
}

// ---- Octet strings -----------------------------------------------------------------------------

namespace {

// A bare runtime context, released on every way out.
struct BareContext {
    ctxt_handle handle;
    BareContext() {
        if (!handle.init()) {
            handle.release();
            ATL::AtlThrowImpl(CRYPT_E_ASN1_MEMORY);
        }
    }
    ~BareContext() { handle.release(); }
};

}  // namespace

CBlob toOctetString(const CBlob& data) {
    // The runtime counts in int.
    if (data.cbData() > static_cast<unsigned long>(INT_MAX) - 16)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    BareContext c;
    if (xe_setp(c.handle.get(), nullptr, 0) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    const int len = asn1Check(xe_octstr(c.handle.get(), data.pbData(), static_cast<ASN1UINT>(data.cbData()), ASN1EXPL));
    return CBlob(xe_getp(c.handle.get()), static_cast<unsigned long>(len));
}

CBlob fromOctetString(const CBlob& encoded) {
    // Nothing to read: a zero length would let the reader run on unbounded.
    if (encoded.cbData() == 0 || encoded.cbData() > static_cast<unsigned long>(INT_MAX))
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    BareContext c;
    xd_setp(c.handle.get(), encoded.pbData(), static_cast<int>(encoded.cbData()), nullptr, nullptr);
    CBlob work(encoded.cbData());
    ASN1UINT count = static_cast<ASN1UINT>(encoded.cbData());
    if (xd_octstr_s(c.handle.get(), work.pbData(), &count, ASN1EXPL, 0) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    return CBlob(work.pbData(), count);
}

}  // namespace ASN1
}  // namespace Quorvane
