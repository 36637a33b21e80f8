#include "pki/ess_cert_id.h"

#include "pki/choice.h"

#include <cstring>
#include <new>

namespace Quorvane {
namespace ASN1 {

const char* const kESSCertIDv2DefaultHashAlgorithm = "2.16.840.1.101.3.4.2.1";

// The optional issuer and serial are owning std::auto_ptr members, as copy_to_auto_ptr
// wants them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

struct CESSCertID::Record {
    CBlob certHash;
    std::auto_ptr<CIssuerSerial> issuerSerial;
    void assign(const Record& other) {
        certHash = other.certHash;
        copy_to_auto_ptr(issuerSerial, other.issuerSerial.get());
    }
};

struct CESSCertIDv2::Record {
    CAlgorithmIdentifier hashAlgorithm;
    CBlob certHash;
    std::auto_ptr<CIssuerSerial> issuerSerial;
    void assign(const Record& other) {
        hashAlgorithm = other.hashAlgorithm;
        certHash = other.certHash;
        copy_to_auto_ptr(issuerSerial, other.issuerSerial.get());
    }
};

struct COtherCertID::Record {
    COtherHash otherCertHash;
    std::auto_ptr<CIssuerSerial> issuerSerial;
    // The hash choice is copied through its own copy step, never shared.
    void assign(const Record& other) {
        otherCertHash = other.otherCertHash;
        copy_to_auto_ptr(issuerSerial, other.issuerSerial.get());
    }
};
#pragma GCC diagnostic pop

namespace {

// A deep copy of a private record.
template <class Record>
Record* copyRecord(const Record& source) {
    std::unique_ptr<Record> fresh(new Record);
    fresh->assign(source);
    return fresh.release();
}

// Nothing for the same record; otherwise a deep copy replaces the old one, which goes
// only once the copy stands.
template <class Record>
void assignRecord(Record*& target, const Record* source) {
    if (target == source)
        return;
    Record* fresh = copyRecord(*source);
    delete target;
    target = fresh;
}

// Both absent is equal, one absent is not.
bool sameIssuerSerial(const CIssuerSerial* a, const CIssuerSerial* b) {
    if (a == nullptr || b == nullptr)
        return a == b;
    return *a == *b;
}

void setIssuerSerial(ASN1CTXT* ctxt, asn1data::ASN1T_IssuerSerial& dst, const CIssuerSerial* src) {
    if (src != nullptr)
        ASN1T_IssuerSerial_traits::set(ctxt, dst, *src);
}

template <class Value>
void getIssuerSerial(const asn1data::ASN1T_IssuerSerial& src, bool present, Value& dst) {
    if (!present) {
        dst.put_issuerSerial(nullptr);
        return;
    }
    CIssuerSerial issuerSerial;
    ASN1T_IssuerSerial_traits::get(src, issuerSerial);
    dst.put_issuerSerial(&issuerSerial);
}

CBlob octets(const ASN1TDynOctStr& src) {
    CBlob bytes;
    ASN1TDynOctStr_traits::get(src, bytes);
    return bytes;
}

}  // namespace

// ---- CIssuerSerial -----------------------------------------------------------------------------

CIssuerSerial& CIssuerSerial::operator=(const CIssuerSerial& other) {
    if (this != &other) {
        m_issuer = other.m_issuer;
        m_serialNumber = other.m_serialNumber;
    }
    return *this;
}

CBlob CIssuerSerial::encode() const { return asn1Encode<ASN1T_IssuerSerial_traits, CIssuerSerial>(*this); }

void CIssuerSerial::decode(const CBlob& blob) { asn1Decode<ASN1T_IssuerSerial_traits, CIssuerSerial>(blob, *this); }

bool operator==(const CIssuerSerial& a, const CIssuerSerial& b) {
    CGeneralNames::const_iterator i = a.get_issuer().begin(), j = b.get_issuer().begin();
    for (; i != a.get_issuer().end() && j != b.get_issuer().end(); ++i, ++j)
        if (*i != *j)
            return false;
    return i == a.get_issuer().end() && j == b.get_issuer().end() &&
           a.get_serialNumber().compare(b.get_serialNumber()) == 0;
}

bool operator!=(const CIssuerSerial& a, const CIssuerSerial& b) { return !(a == b); }

// ---- CESSCertID --------------------------------------------------------------------------------

CESSCertID::CESSCertID() : m_impl(new Record) {}

CESSCertID::CESSCertID(const CBlob& certHash) : m_impl(new Record) { m_impl->certHash = certHash; }

CESSCertID::CESSCertID(const CESSCertID& other) : m_impl(copyRecord(*other.m_impl)) {}

CESSCertID& CESSCertID::operator=(const CESSCertID& other) {
    assignRecord(m_impl, other.m_impl);
    return *this;
}

CESSCertID::~CESSCertID() { delete m_impl; }

const CBlob& CESSCertID::get_certHash() const { return m_impl->certHash; }
const CIssuerSerial* CESSCertID::get_issuerSerial() const { return m_impl->issuerSerial.get(); }
void CESSCertID::put_certHash(const CBlob& certHash) { m_impl->certHash = certHash; }
void CESSCertID::put_issuerSerial(const CIssuerSerial* issuerSerial) {
    copy_to_auto_ptr(m_impl->issuerSerial, issuerSerial);
}

CBlob CESSCertID::encode() const { return asn1Encode<ASN1T_ESSCertID_traits, CESSCertID>(*this); }

void CESSCertID::decode(const CBlob& blob) { asn1Decode<ASN1T_ESSCertID_traits, CESSCertID>(blob, *this); }

bool operator==(const CESSCertID& a, const CESSCertID& b) {
    return a.get_certHash() == b.get_certHash() && sameIssuerSerial(a.get_issuerSerial(), b.get_issuerSerial());
}

bool operator!=(const CESSCertID& a, const CESSCertID& b) { return !(a == b); }

// ---- CESSCertIDv2 ------------------------------------------------------------------------------

CESSCertIDv2::CESSCertIDv2() : m_impl(new Record) {
    m_impl->hashAlgorithm.put_algorithm(kESSCertIDv2DefaultHashAlgorithm);
}

CESSCertIDv2::CESSCertIDv2(const CBlob& certHash) : m_impl(new Record) {
    m_impl->hashAlgorithm.put_algorithm(kESSCertIDv2DefaultHashAlgorithm);
    m_impl->certHash = certHash;
}

CESSCertIDv2::CESSCertIDv2(const CBlob& certHash, const CAlgorithmIdentifier& hashAlgorithm) : m_impl(new Record) {
    m_impl->hashAlgorithm = hashAlgorithm;
    m_impl->certHash = certHash;
}

CESSCertIDv2::CESSCertIDv2(const CESSCertIDv2& other) : m_impl(copyRecord(*other.m_impl)) {}

CESSCertIDv2& CESSCertIDv2::operator=(const CESSCertIDv2& other) {
    assignRecord(m_impl, other.m_impl);
    return *this;
}

CESSCertIDv2::~CESSCertIDv2() { delete m_impl; }

const CAlgorithmIdentifier& CESSCertIDv2::get_hashAlgorithm() const { return m_impl->hashAlgorithm; }
const CBlob& CESSCertIDv2::get_certHash() const { return m_impl->certHash; }
const CIssuerSerial* CESSCertIDv2::get_issuerSerial() const { return m_impl->issuerSerial.get(); }
void CESSCertIDv2::put_hashAlgorithm(const CAlgorithmIdentifier& hashAlgorithm) {
    m_impl->hashAlgorithm = hashAlgorithm;
}
void CESSCertIDv2::put_certHash(const CBlob& certHash) { m_impl->certHash = certHash; }
void CESSCertIDv2::put_issuerSerial(const CIssuerSerial* issuerSerial) {
    copy_to_auto_ptr(m_impl->issuerSerial, issuerSerial);
}

CBlob CESSCertIDv2::encode() const { return asn1Encode<ASN1T_ESSCertIDv2_traits, CESSCertIDv2>(*this); }

void CESSCertIDv2::decode(const CBlob& blob) { asn1Decode<ASN1T_ESSCertIDv2_traits, CESSCertIDv2>(blob, *this); }

bool operator==(const CESSCertIDv2& a, const CESSCertIDv2& b) {
    return a.get_hashAlgorithm() == b.get_hashAlgorithm() && a.get_certHash() == b.get_certHash() &&
           sameIssuerSerial(a.get_issuerSerial(), b.get_issuerSerial());
}

bool operator!=(const CESSCertIDv2& a, const CESSCertIDv2& b) { return !(a == b); }

// ---- COtherHash --------------------------------------------------------------------------------

COtherHash::COtherHash() : m_impl(new COtherHashImpl) {}

COtherHash::COtherHash(const CBlob& hash) : m_impl(new COtherHashImpl) { put_sha1Hash(hash); }

COtherHash::COtherHash(const COtherHashAlgAndValue& hash) : m_impl(new COtherHashImpl) { put_otherHash(hash); }

COtherHash::COtherHash(const COtherHash& other) : m_impl(choiceCopy(*other.m_impl)) {}

COtherHash& COtherHash::operator=(const COtherHash& other) {
    choiceAssign(m_impl, other.m_impl);
    return *this;
}

COtherHash::~COtherHash() { delete m_impl; }

void COtherHash::clear() {
    delete m_impl;
    m_impl = nullptr;
}

unsigned int COtherHash::get_type() const { return m_impl->m_type; }
const CBlob* COtherHash::get_sha1Hash() const { return choiceGet<CBlob>(*m_impl, sha1Hash); }
const COtherHashAlgAndValue* COtherHash::get_otherHash() const {
    return choiceGet<COtherHashAlgAndValue>(*m_impl, otherHash);
}
void COtherHash::put_sha1Hash(const CBlob& hash) { choicePut(*m_impl, sha1Hash, &hash); }
void COtherHash::put_otherHash(const COtherHashAlgAndValue& hash) { choicePut(*m_impl, otherHash, &hash); }

CBlob COtherHash::encode() const { return asn1Encode<ASN1T_OtherHash_traits, COtherHash>(*this); }

void COtherHash::decode(const CBlob& blob) { asn1Decode<ASN1T_OtherHash_traits, COtherHash>(blob, *this); }

namespace {

// Same discriminant, then by alternative; two empty choices are equal.
bool sameHash(const COtherHash& a, const COtherHash& b, bool withAlgorithm) {
    if (a.get_type() != b.get_type())
        return false;
    if (a.get_type() == COtherHash::sha1Hash) {
        const CBlob *x = a.get_sha1Hash(), *y = b.get_sha1Hash();
        return x == nullptr || y == nullptr ? x == y : *x == *y;
    }
    if (a.get_type() == COtherHash::otherHash)
        return withAlgorithm ? *a.get_otherHash() == *b.get_otherHash()
                             : a.get_otherHash()->compare_hashValue(*b.get_otherHash());
    return true;
}

}  // namespace

bool COtherHash::compare_hashValue(const COtherHash& other) const { return sameHash(*this, other, false); }

bool operator==(const COtherHash& a, const COtherHash& b) { return sameHash(a, b, true); }

bool operator!=(const COtherHash& a, const COtherHash& b) { return !(a == b); }

// ---- COtherCertID ------------------------------------------------------------------------------

COtherCertID::COtherCertID() : m_impl(new Record) {}

COtherCertID::COtherCertID(const CBlob& sha1Hash) : m_impl(new Record) {
    m_impl->otherCertHash.put_sha1Hash(sha1Hash);
}

COtherCertID::COtherCertID(const CBlob& hash, const CAlgorithmIdentifier& hashAlgorithm) : m_impl(new Record) {
    m_impl->otherCertHash.put_otherHash(COtherHashAlgAndValue(hash, hashAlgorithm));
}

COtherCertID::COtherCertID(const COtherCertID& other) : m_impl(copyRecord(*other.m_impl)) {}

COtherCertID& COtherCertID::operator=(const COtherCertID& other) {
    assignRecord(m_impl, other.m_impl);
    return *this;
}

COtherCertID::~COtherCertID() { delete m_impl; }

const COtherHash& COtherCertID::get_otherCertHash() const { return m_impl->otherCertHash; }
const CIssuerSerial* COtherCertID::get_issuerSerial() const { return m_impl->issuerSerial.get(); }
void COtherCertID::put_otherCertHash(const COtherHash& hash) { m_impl->otherCertHash = hash; }
void COtherCertID::put_issuerSerial(const CIssuerSerial* issuerSerial) {
    copy_to_auto_ptr(m_impl->issuerSerial, issuerSerial);
}

CBlob COtherCertID::encode() const { return asn1Encode<ASN1T_OtherCertID_traits, COtherCertID>(*this); }

void COtherCertID::decode(const CBlob& blob) { asn1Decode<ASN1T_OtherCertID_traits, COtherCertID>(blob, *this); }

bool COtherCertID::compare_noHashParam(const COtherCertID& other) const {
    return get_otherCertHash().compare_hashValue(other.get_otherCertHash()) &&
           sameIssuerSerial(get_issuerSerial(), other.get_issuerSerial());
}

bool operator==(const COtherCertID& a, const COtherCertID& b) {
    return a.get_otherCertHash() == b.get_otherCertHash() &&
           sameIssuerSerial(a.get_issuerSerial(), b.get_issuerSerial());
}

bool operator!=(const COtherCertID& a, const COtherCertID& b) { return !(a == b); }

// ---- Traits ------------------------------------------------------------------------------------

void ASN1T_IssuerSerial_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CIssuerSerial& src) {
    ASN1T_GeneralNames_traits::set(ctxt, dst.issuer, src.get_issuer());
    dst.serial = BigIntegerToASN1String(ctxt, src.get_serialNumber());
}

void ASN1T_IssuerSerial_traits::get(const ASN1_T& src, CIssuerSerial& dst) {
    CGeneralNames issuer;
    ASN1T_GeneralNames_traits::get(src.issuer, issuer);
    dst.put_issuer(issuer);
    CBigInteger serialNumber;
    ASN1StringToBigInteger(src.serial, serialNumber);
    dst.put_serialNumber(serialNumber);
}

void ASN1T_ESSCertID_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CESSCertID& src) {
    dst.m.issuerSerialPresent = 0;
    ASN1TDynOctStr_traits::set(ctxt, dst.certHash, src.get_certHash());
    if (src.get_issuerSerial() != nullptr)
        dst.m.issuerSerialPresent = 1;
    setIssuerSerial(ctxt, dst.issuerSerial, src.get_issuerSerial());
}

void ASN1T_ESSCertID_traits::get(const ASN1_T& src, CESSCertID& dst) {
    dst.put_certHash(octets(src.certHash));
    getIssuerSerial(src.issuerSerial, src.m.issuerSerialPresent != 0, dst);
}

void ASN1T_ESSCertIDv2_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const CESSCertIDv2& src) {
    dst.m.hashAlgorithmPresent = 0;
    dst.m.issuerSerialPresent = 0;
    // The default goes unwritten by its text alone, whatever parameters it carries.
    const CAlgorithmIdentifier& algorithm = src.get_hashAlgorithm();
    if (std::strcmp(algorithm.get_algorithm(), kESSCertIDv2DefaultHashAlgorithm) != 0) {
        dst.m.hashAlgorithmPresent = 1;
        ASN1T_AlgorithmIdentifier_traits::set(ctxt, dst.hashAlgorithm, algorithm);
    }
    ASN1TDynOctStr_traits::set(ctxt, dst.certHash, src.get_certHash());
    if (src.get_issuerSerial() != nullptr)
        dst.m.issuerSerialPresent = 1;
    setIssuerSerial(ctxt, dst.issuerSerial, src.get_issuerSerial());
}

void ASN1T_ESSCertIDv2_traits::get(const ASN1_T& src, CESSCertIDv2& dst) {
    if (src.m.hashAlgorithmPresent) {
        CAlgorithmIdentifier algorithm;
        ASN1T_AlgorithmIdentifier_get(algorithm, src.hashAlgorithm);
        dst.put_hashAlgorithm(algorithm);
    } else {
        dst.put_hashAlgorithm(CAlgorithmIdentifier(kESSCertIDv2DefaultHashAlgorithm));
    }
    dst.put_certHash(octets(src.certHash));
    getIssuerSerial(src.issuerSerial, src.m.issuerSerialPresent != 0, dst);
}

void ASN1T_OtherHash_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const COtherHash& src) {
    switch (src.get_type()) {
    case COtherHash::sha1Hash:
        dst.t = COtherHash::sha1Hash;
        dst.u.sha1Hash = static_cast<ASN1TDynOctStr*>(asn1Alloc(ctxt, sizeof(ASN1TDynOctStr), true));
        ASN1TDynOctStr_traits::set(ctxt, *dst.u.sha1Hash, *src.get_sha1Hash());
        break;
    case COtherHash::otherHash:
        dst.t = COtherHash::otherHash;
        dst.u.otherHash = new (asn1Alloc(ctxt, sizeof(asn1data::ASN1T_OtherHashAlgAndValue), true))
            asn1data::ASN1T_OtherHashAlgAndValue();
        ASN1T_OtherHashAlgAndValue_traits::set(ctxt, *dst.u.otherHash, *src.get_otherHash());
        break;
    default:
        break;
    }
}

void ASN1T_OtherHash_traits::get(const ASN1_T& src, COtherHash& dst) {
    if (src.t == COtherHash::sha1Hash) {
        dst.put_sha1Hash(octets(*src.u.sha1Hash));
    } else if (src.t == COtherHash::otherHash) {
        COtherHashAlgAndValue hash;
        ASN1T_OtherHashAlgAndValue_traits::get(*src.u.otherHash, hash);
        dst.put_otherHash(hash);
    }
}

void ASN1T_OtherCertID_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const COtherCertID& src) {
    dst.m.issuerSerialPresent = 0;
    ASN1T_OtherHash_traits::set(ctxt, dst.otherCertHash, src.get_otherCertHash());
    if (src.get_issuerSerial() != nullptr)
        dst.m.issuerSerialPresent = 1;
    setIssuerSerial(ctxt, dst.issuerSerial, src.get_issuerSerial());
}

void ASN1T_OtherCertID_traits::get(const ASN1_T& src, COtherCertID& dst) {
    COtherHash hash;
    ASN1T_OtherHash_traits::get(src.otherCertHash, hash);
    dst.put_otherCertHash(hash);
    getIssuerSerial(src.issuerSerial, src.m.issuerSerialPresent != 0, dst);
}

}  // namespace ASN1
}  // namespace Quorvane
