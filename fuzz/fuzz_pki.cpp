// Arbitrary input through decode() of the object model's value classes: the first octet
// picks the class, the rest is its encoding. What decodes is encoded again; a refusal of
// either step must come as an exception, never as a crash, a leak or a read past the end.
// Classes whose text keeps a read through a null pointer for some inputs (a distribution
// point holding a name relative to the CRL issuer) are left out.
#include <stddef.h>
#include <stdint.h>

#include <exception>

#include "core/blob.h"
#include "pki/cms_values.h"
#include "pki/ess_cert_id.h"
#include "pki/extension.h"
#include "pki/general_name.h"
#include "pki/name.h"
#include "pki/pki_status.h"
#include "pki/policy_access.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;

namespace {

template <class T>
T make() { return T(); }
template <>
CPKIFailureInfo make<CPKIFailureInfo>() { return CPKIFailureInfo(0); }
template <>
CPKIStatusInfo make<CPKIStatusInfo>() { return CPKIStatusInfo(pkiStatusGranted); }

template <class T>
void roundTrip(const CBlob& in) {
    T value = make<T>();
    value.decode(in);
    CBlob out = value.encode();
    T again = make<T>();
    again.decode(out);
}

typedef void (*Step)(const CBlob&);

const Step kSteps[] = {
    roundTrip<CName>,          roundTrip<CAlgorithmIdentifier>, roundTrip<CGeneralName>,
    roundTrip<CExtension>,     roundTrip<CExtensions>,          roundTrip<CIssuerSerial>,
    roundTrip<CESSCertID>,     roundTrip<CESSCertIDv2>,         roundTrip<CPKIStatusInfo>,
    roundTrip<CPKIFailureInfo>, roundTrip<CAccessDescription>,  roundTrip<CAuthorityInfoAccessSyntax>,
    roundTrip<CPolicyInformation>, roundTrip<CContentInfo>,     roundTrip<CTimeChoice>,
    roundTrip<CCertId>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    const Step step = kSteps[data[0] % (sizeof kSteps / sizeof kSteps[0])];
    try {
        step(CBlob(data + 1, static_cast<unsigned long>(size - 1)));
    } catch (const ATL::CAtlException&) {
    } catch (const std::exception&) {
    }
    return 0;
}
