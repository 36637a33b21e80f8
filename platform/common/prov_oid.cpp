// ALG_ID of an algorithm object identifier, the same for the real and the fake stand-in:
// the hash algorithms and the signature algorithms named after their hash.
#include "qvcapi/prov.h"

#include <cstring>

namespace {
struct OidAlg {
    const char* oid;
    ALG_ID alg;
};
const OidAlg kOidAlgs[] = {
    {"1.2.840.113549.2.5", CALG_MD5},
    {"1.3.14.3.2.26", CALG_SHA1},
    {"2.16.840.1.101.3.4.2.1", CALG_SHA_256},
    {"2.16.840.1.101.3.4.2.2", CALG_SHA_384},
    {"2.16.840.1.101.3.4.2.3", CALG_SHA_512},
    {"1.2.643.2.2.9", CALG_GR3411},
    {"1.2.643.7.1.1.2.2", CALG_GR3411_2012_256},
    {"1.2.643.7.1.1.2.3", CALG_GR3411_2012_512},
    {"1.2.840.113549.1.1.4", CALG_MD5},
    {"1.2.840.113549.1.1.5", CALG_SHA1},
    {"1.3.14.3.2.29", CALG_SHA1},
    {"1.2.840.113549.1.1.11", CALG_SHA_256},
    {"1.2.840.113549.1.1.12", CALG_SHA_384},
    {"1.2.840.113549.1.1.13", CALG_SHA_512},
    {"1.2.840.10045.4.1", CALG_SHA1},
    {"1.2.840.10045.4.3.2", CALG_SHA_256},
    {"1.2.840.10045.4.3.3", CALG_SHA_384},
    {"1.2.840.10045.4.3.4", CALG_SHA_512},
    {"1.2.643.2.2.3", CALG_GR3411},
    {"1.2.643.7.1.1.3.2", CALG_GR3411_2012_256},
    {"1.2.643.7.1.1.3.3", CALG_GR3411_2012_512},
};
}  // namespace

extern "C" ALG_ID CertOIDToAlgId(LPCSTR pszObjId) {
    if (pszObjId == nullptr)
        return 0;
    for (const OidAlg& e : kOidAlgs)
        if (std::strcmp(e.oid, pszObjId) == 0)
            return e.alg;
    return 0;
}
