#include "pki/cert_id.h"

namespace Quorvane {
namespace ASN1 {

CBlob COtherHashAlgAndValue::encode() const {
    return asn1Encode<ASN1T_OtherHashAlgAndValue_traits, COtherHashAlgAndValue>(*this);
}

void COtherHashAlgAndValue::decode(const CBlob& blob) {
    asn1Decode<ASN1T_OtherHashAlgAndValue_traits, COtherHashAlgAndValue>(blob, *this);
}

bool operator==(const COtherHashAlgAndValue& a, const COtherHashAlgAndValue& b) {
    return a.get_hashAlgorithm() == b.get_hashAlgorithm() && a.get_hashValue() == b.get_hashValue();
}

bool operator!=(const COtherHashAlgAndValue& a, const COtherHashAlgAndValue& b) { return !(a == b); }

void ASN1T_OtherHashAlgAndValue_traits::set(ASN1CTXT* ctxt, ASN1_T& dst, const COtherHashAlgAndValue& src) {
    const asn1data::ASN1T_AlgorithmIdentifier* algorithm =
        ASN1T_AlgorithmIdentifier_set(ctxt, src.get_hashAlgorithm().get_algorithm(),
                                      &src.get_hashAlgorithm().get_parameters());
    dst.hashAlgorithm.m = algorithm->m;
    dst.hashAlgorithm.algorithm = algorithm->algorithm;
    dst.hashAlgorithm.parameters = algorithm->parameters;
    ASN1TDynOctStr_traits::set(ctxt, dst.hashValue, src.get_hashValue());
}

void ASN1T_OtherHashAlgAndValue_traits::get(const ASN1_T& src, COtherHashAlgAndValue& dst) {
    CAlgorithmIdentifier algorithm;
    ASN1T_AlgorithmIdentifier_get(algorithm, src.hashAlgorithm);
    dst.put_hashAlgorithm(algorithm);
    CBlob value;
    ASN1TDynOctStr_traits::get(src.hashValue, value);
    dst.put_hashValue(value);
}

}  // namespace ASN1
}  // namespace Quorvane
