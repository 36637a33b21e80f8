// ESS and ETSI identifiers of a signing certificate by its hash. For now the hash under a
// named algorithm, the second alternative of OtherHash.
#pragma once

#include "pki/algorithm.h"

namespace Quorvane {
namespace ASN1 {

class COtherHashAlgAndValue {
public:
    COtherHashAlgAndValue() {}
    COtherHashAlgAndValue(const CBlob& hashValue, const CAlgorithmIdentifier& hashAlgorithm)
        : m_hashAlgorithm(hashAlgorithm), m_hashValue(hashValue) {}
    COtherHashAlgAndValue(const COtherHashAlgAndValue& other) = default;
    COtherHashAlgAndValue& operator=(const COtherHashAlgAndValue& other) = default;

    const CAlgorithmIdentifier& get_hashAlgorithm() const { return m_hashAlgorithm; }
    const CBlob& get_hashValue() const { return m_hashValue; }
    void put_hashAlgorithm(const CAlgorithmIdentifier& hashAlgorithm) { m_hashAlgorithm = hashAlgorithm; }
    void put_hashValue(const CBlob& hashValue) { m_hashValue = hashValue; }

    CBlob encode() const;
    void decode(const CBlob& blob);

    // The hash bytes alone; the algorithm does not count.
    bool compare_hashValue(const COtherHashAlgAndValue& other) const { return m_hashValue == other.m_hashValue; }

private:
    CAlgorithmIdentifier m_hashAlgorithm;
    CBlob m_hashValue;
};

// Algorithm (text and parameters), then the hash bytes.
bool operator==(const COtherHashAlgAndValue& a, const COtherHashAlgAndValue& b);
bool operator!=(const COtherHashAlgAndValue& a, const COtherHashAlgAndValue& b);

struct ASN1T_OtherHashAlgAndValue_traits {
    typedef asn1data::ASN1T_OtherHashAlgAndValue ASN1_T;
    typedef asn1data::ASN1C_OtherHashAlgAndValue ASN1_C;
    static void set(ASN1CTXT* ctxt, ASN1_T& dst, const COtherHashAlgAndValue& src);
    static void get(const ASN1_T& src, COtherHashAlgAndValue& dst);
    static void copy(ASN1CTXT* ctxt, const ASN1_T& src, ASN1_T& dst) {
        asn1data::asn1Copy_OtherHashAlgAndValue(ctxt, const_cast<ASN1_T*>(&src), &dst);
    }
};

}  // namespace ASN1
}  // namespace Quorvane
