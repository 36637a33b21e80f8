#include "policies/ocsp_certid.h"

#include "policies/crypt.h"

namespace Quorvane {
namespace PKI {
namespace OCSP {

namespace {

const HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFu);

ALG_ID resolve(const ASN1::CAlgorithmIdentifierEx& algorithm) {
    if (algorithm.get_algId() == 0)
        algorithm.put_algId(CertOIDToAlgId(algorithm.get_algorithm()));
    return algorithm.get_algId();
}

}  // namespace

CCertIDChecker::CCertIDChecker(bool keyRequired, const CBlob& name, const CBlob& key)
    : m_issuerName(name), m_issuerKey(key), m_keyRequired(keyRequired), m_hashCount(keyRequired ? 2 : 1) {
    if (keyRequired && (key.cbData() == 0 || key.pbData() == nullptr))
        ATL::AtlThrowImpl(E_INVALIDARG);
}

CCertIDChecker::~CCertIDChecker() {}

void CCertIDChecker::createEntry(const ASN1::CAlgorithmIdentifierEx& algorithm) const {
    // An ALG_ID of 0 is left to MakeHash to refuse.
    CBlob nameHash = MakeHash(0, resolve(algorithm), m_issuerName, nullptr);
    CBlob keyHash;
    if (m_issuerKey.cbData() > 0)
        keyHash = MakeHash(0, resolve(algorithm), m_issuerKey, nullptr);
    // Only now is the map touched, so a failed hash leaves no half entry behind.
    Hashes& entry = m_entries[algorithm.get_algorithm()];
    entry.first.swap(nameHash);
    entry.second.swap(keyHash);
}

const CCertIDChecker::Entries::value_type& CCertIDChecker::findEntry(
    const ASN1::CAlgorithmIdentifierEx& algorithm) const {
    Entries::const_iterator it = m_entries.find(algorithm.get_algorithm());
    if (it != m_entries.end())
        return *it;
    createEntry(algorithm);
    it = m_entries.find(algorithm.get_algorithm());
    if (it == m_entries.end())
        ATL::AtlThrowImpl(kUnexpected);
    return *it;
}

}  // namespace OCSP
}  // namespace PKI
}  // namespace Quorvane
