// Compares OCSP CertIDs with a known issuer: its name and key bytes are kept raw, and
// their hashes are made on demand, once for each algorithm a CertID names.
#pragma once

#include "core/blob.h"
#include "pki/algorithm.h"

#include <map>
#include <string>
#include <utility>

namespace Quorvane {
namespace PKI {
namespace OCSP {

class CCertIDChecker {
public:
    // First the name hash, then the key hash (empty without a key).
    typedef std::pair<CBlob, CBlob> Hashes;
    // Keyed by the identifier's text, so two spellings of one algorithm are two entries.
    typedef std::map<std::string, Hashes> Entries;

    // A required key that is empty is E_INVALIDARG, before any hashing.
    CCertIDChecker(bool keyRequired, const CBlob& name, const CBlob& key);
    virtual ~CCertIDChecker();

    // Computes and stores the hashes under the algorithm, resolving its ALG_ID on demand.
    virtual void createEntry(const ASN1::CAlgorithmIdentifierEx& algorithm) const;
    // The stored element, made through createEntry at the first use of the algorithm;
    // valid while the checker lives.
    const Entries::value_type& findEntry(const ASN1::CAlgorithmIdentifierEx& algorithm) const;

protected:
    CBlob m_issuerName;
    CBlob m_issuerKey;
    mutable Entries m_entries;
    bool m_keyRequired;
    int m_hashCount;
};

}  // namespace OCSP
}  // namespace PKI
}  // namespace Quorvane
