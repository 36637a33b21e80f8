#include "pki/extension.h"

#include <cstring>

namespace Quorvane {
namespace ASN1 {

namespace {

typedef ASN1TSeqOfList_traits<asn1data::ASN1T_Extension, ASN1T_Extension_traits, CExtension, CExtensions>
    ExtensionListTraits;

const char kReasonCode[] = "2.5.29.21";
const char kHoldInstructionCode[] = "2.5.29.23";
const char kInvalidityDate[] = "2.5.29.24";
const char kCertificateIssuer[] = "2.5.29.29";
const char kPrivateKeyUsagePeriod[] = "2.5.29.16";

// The copy is made before the old date goes, so that a date put back into its own slot
// survives.
void putDate(std::unique_ptr<CDateTime>& slot, const CDateTime* date) {
    std::unique_ptr<CDateTime> fresh(date != nullptr ? new CDateTime(*date) : nullptr);
    if (slot.get() != fresh.get())
        slot = std::move(fresh);
}

}  // namespace

bool operator==(const CExtValue& a, const CExtValue& b) {
    return std::strcmp(a.get_oid(), b.get_oid()) == 0 && a.get_value() == b.get_value();
}

bool operator!=(const CExtValue& a, const CExtValue& b) { return !(a == b); }

// ---- CExtension, CExtensions -------------------------------------------------------------------

CBlob CExtension::encode() const { return asn1Encode<ASN1T_Extension_traits, CExtension>(*this); }

void CExtension::decode(const CBlob& blob) { asn1Decode<ASN1T_Extension_traits, CExtension>(blob, *this); }

bool operator==(const CExtension& a, const CExtension& b) {
    return a.get_critical() == b.get_critical() && std::strcmp(a.get_extnID(), b.get_extnID()) == 0 &&
           a.get_extnValue() == b.get_extnValue();
}

bool operator!=(const CExtension& a, const CExtension& b) { return !(a == b); }

CExtensions::iterator CExtensions::find(const char* oid) {
    for (iterator it = begin(); it != end(); ++it)
        if (std::strcmp(it->get_extnID(), oid) == 0)
            return it;
    return end();
}

CExtensions::const_iterator CExtensions::find(const char* oid) const {
    for (const_iterator it = begin(); it != end(); ++it)
        if (std::strcmp(it->get_extnID(), oid) == 0)
            return it;
    return end();
}

void CExtensions::insert(const CExtension& extension) {
    const iterator it = find(extension.get_extnID());
    if (it != end())
        *it = extension;
    else
        push_back(extension);
}

void CExtensions::erase(const char* oid) {
    const iterator it = find(oid);
    if (it != end())
        erase(it);
}

CBlob CExtensions::encode() const { return asn1Encode<ASN1T_Extensions_traits, CExtensions>(*this); }

void CExtensions::decode(const CBlob& blob) { asn1Decode<ASN1T_Extensions_traits, CExtensions>(blob, *this); }

bool operator==(const CExtensions& a, const CExtensions& b) {
    if (a.size() != b.size())
        return false;
    for (CExtensions::const_iterator i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
        if (*i != *j)
            return false;
    return true;
}

bool operator!=(const CExtensions& a, const CExtensions& b) { return !(a == b); }

// ---- Typed values --------------------------------------------------------------------------------

// No default reason: zero only so that reading it is defined.
CExtCRLReason::CExtCRLReason() : CExtValue(kReasonCode), m_reason(crlReasonUnspecified) {}

CExtCRLReason::CExtCRLReason(CrlReason reason) : CExtValue(kReasonCode), m_reason(reason) { encode(); }

CExtCRLReason::CExtCRLReason(const CBlob& value) : CExtValue(kReasonCode, value), m_reason(crlReasonUnspecified) {
    decode();
}

void CExtCRLReason::encode() { value() = asn1Encode<ASN1T_CRLReason_traits, CrlReason>(m_reason); }

void CExtCRLReason::decode() { asn1Decode<ASN1T_CRLReason_traits, CrlReason>(get_value(), m_reason); }

void CExtCRLReason::put_reason(CrlReason reason) {
    m_reason = reason;
    encode();
}

CExtHoldInstructionCode::CExtHoldInstructionCode() : CExtValue(kHoldInstructionCode), m_code("") {}

CExtHoldInstructionCode::CExtHoldInstructionCode(const char* code) : CExtValue(kHoldInstructionCode), m_code(code) {
    encode();
}

CExtHoldInstructionCode::CExtHoldInstructionCode(const CBlob& value) : CExtValue(kHoldInstructionCode, value) {
    decode();
}

void CExtHoldInstructionCode::encode() { value() = asn1Encode<ASN1TObjId_traits, const char*>(m_code.c_str()); }

void CExtHoldInstructionCode::decode() { asn1Decode<ASN1TObjId_traits, CStringProxy>(get_value(), m_code); }

void CExtHoldInstructionCode::put_code(const char* code) {
    m_code = CStringProxy(code);
    encode();
}

CExtInvalidityDate::CExtInvalidityDate() : CExtValue(kInvalidityDate), m_invalidityDate(0L, 0u) {}

CExtInvalidityDate::CExtInvalidityDate(const CDateTime& invalidityDate)
    : CExtValue(kInvalidityDate), m_invalidityDate(invalidityDate) {
    encode();
}

CExtInvalidityDate::CExtInvalidityDate(const CBlob& value) : CExtValue(kInvalidityDate, value), m_invalidityDate(0L, 0u) {
    decode();
}

void CExtInvalidityDate::encode() { value() = asn1Encode<ASN1GeneralizedTime_traits, CDateTime>(m_invalidityDate); }

void CExtInvalidityDate::decode() { asn1Decode<ASN1GeneralizedTime_traits, CDateTime>(get_value(), m_invalidityDate); }

void CExtInvalidityDate::put_invalidityDate(const CDateTime& invalidityDate) {
    m_invalidityDate = invalidityDate;
    encode();
}

CExtCertificateIssuer::CExtCertificateIssuer() : CExtValue(kCertificateIssuer) {}

CExtCertificateIssuer::CExtCertificateIssuer(const CGeneralNames& issuer) : CExtValue(kCertificateIssuer), m_issuer(issuer) {
    encode();
}

CExtCertificateIssuer::CExtCertificateIssuer(const CBlob& value) : CExtValue(kCertificateIssuer, value) { decode(); }

void CExtCertificateIssuer::encode() { value() = asn1Encode<ASN1T_GeneralNames_traits, CGeneralNames>(m_issuer); }

void CExtCertificateIssuer::decode() { asn1Decode<ASN1T_GeneralNames_traits, CGeneralNames>(get_value(), m_issuer); }

void CExtCertificateIssuer::put_issuer(const CGeneralNames& issuer) {
    m_issuer = issuer;
    encode();
}

CExtPrivateKeyUsagePeriod::CExtPrivateKeyUsagePeriod(const CDateTime* notBefore, const CDateTime* notAfter)
    : CExtValue(kPrivateKeyUsagePeriod) {
    putDate(m_notBefore, notBefore);
    putDate(m_notAfter, notAfter);
    encode();
}

CExtPrivateKeyUsagePeriod::CExtPrivateKeyUsagePeriod(const CBlob& value) : CExtValue(kPrivateKeyUsagePeriod, value) {
    decode();
}

CExtPrivateKeyUsagePeriod::CExtPrivateKeyUsagePeriod(const CExtPrivateKeyUsagePeriod& other) : CExtValue(other) {
    putDate(m_notBefore, other.get_notBefore());
    putDate(m_notAfter, other.get_notAfter());
}

CExtPrivateKeyUsagePeriod& CExtPrivateKeyUsagePeriod::operator=(const CExtPrivateKeyUsagePeriod& other) {
    CExtValue::operator=(other);
    putDate(m_notBefore, other.get_notBefore());
    putDate(m_notAfter, other.get_notAfter());
    return *this;
}

void CExtPrivateKeyUsagePeriod::encode() {
    value() = asn1Encode<ASN1T_PrivateKeyUsagePeriod_traits, CExtPrivateKeyUsagePeriod>(*this);
}

void CExtPrivateKeyUsagePeriod::decode() {
    // The bytes are read from a copy: each put below replaces them.
    const CBlob bytes(get_value());
    asn1Decode<ASN1T_PrivateKeyUsagePeriod_traits, CExtPrivateKeyUsagePeriod>(bytes, *this);
}

void CExtPrivateKeyUsagePeriod::put_notBefore(const CDateTime* notBefore) {
    putDate(m_notBefore, notBefore);
    encode();
}

void CExtPrivateKeyUsagePeriod::put_notAfter(const CDateTime* notAfter) {
    putDate(m_notAfter, notAfter);
    encode();
}

// ---- Traits ------------------------------------------------------------------------------------------

void ASN1T_Extension_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CExtension& src) {
    // The scratch context holds the decoded value until the copy has taken it.
    ASN1BERDecodeBuffer scratch;
    ASN1_T local;
    ASN1TObjId_traits::set(ctxt, local.extnID, src.get_extnID());
    local.critical = src.get_critical() ? 1 : 0;
    local.extnValueObj.decoded = nullptr;
    ASN1TDynOctStr_traits::set(ctxt, local.extnValue, src.get_extnValue());
    if (asn1data::asn1DTC_Extension(scratch.getCtxtPtr(), &local) != 0)
        ATL::AtlThrowImpl(CRYPT_E_ASN1_INTERNAL);
    asn1data::asn1Copy_Extension(ctxt, &local, &dst);
}

void ASN1T_Extension_traits::get(const ASN1_T& src, CExtension& dst) {
    const CStringProxy oid = toOID(src.extnID);
    const CBlob value(src.extnValue.data, src.extnValue.numocts);
    dst = CExtension(CExtValue(oid.c_str(), value), src.critical != 0);
}

void ASN1T_Extensions_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CExtensions& src) {
    ExtensionListTraits::set(ctxt, dst, src);
}

void ASN1T_Extensions_traits::get(const ASN1_T& src, CExtensions& dst) { ExtensionListTraits::get(src, dst); }

void ASN1T_Extensions_traits::copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
    rtDListInit(&dst);
    for (const Asn1RTDListNode* n = src.head; n != nullptr; n = n->next) {
        ASN1T_Extension_traits::ASN1_T* fresh =
            new (asn1Alloc(ctxt, sizeof(ASN1T_Extension_traits::ASN1_T), true)) ASN1T_Extension_traits::ASN1_T();
        rtDListAppend(ctxt, &dst, fresh);
        asn1data::asn1Copy_Extension(ctxt, static_cast<ASN1T_Extension_traits::ASN1_T*>(n->data), fresh);
    }
}

void ASN1T_PrivateKeyUsagePeriod_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CExtPrivateKeyUsagePeriod& src) {
    dst.m.notBeforePresent = 0;
    dst.m.notAfterPresent = 0;
    if (src.get_notBefore() != nullptr) {
        ASN1GeneralizedTime_traits::set(ctxt, dst.notBefore, *src.get_notBefore());
        dst.m.notBeforePresent = 1;
    }
    if (src.get_notAfter() != nullptr) {
        ASN1GeneralizedTime_traits::set(ctxt, dst.notAfter, *src.get_notAfter());
        dst.m.notAfterPresent = 1;
    }
}

void ASN1T_PrivateKeyUsagePeriod_traits::get(const ASN1_T& src, CExtPrivateKeyUsagePeriod& dst) {
    CDateTime notBefore(0L, 0u), notAfter(0L, 0u);
    if (src.m.notBeforePresent)
        ASN1GeneralizedTime_traits::get(src.notBefore, notBefore);
    dst.put_notBefore(src.m.notBeforePresent ? &notBefore : nullptr);
    if (src.m.notAfterPresent)
        ASN1GeneralizedTime_traits::get(src.notAfter, notAfter);
    dst.put_notAfter(src.m.notAfterPresent ? &notAfter : nullptr);
}

}  // namespace ASN1
}  // namespace Quorvane
