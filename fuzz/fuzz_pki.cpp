// Arbitrary input through decode() of every value class of the object model, and of the
// typed extension and signed-attribute values read from their value octets: the first octet
// picks the class, the rest is its encoding. What decodes is encoded and decoded again; a
// refusal of any step must come as an exception, never as a crash, a leak or a read past
// the end.
#include <stddef.h>
#include <stdint.h>

#include <exception>

#include "core/blob.h"
#include "pki/attribute.h"
#include "pki/cert_id.h"
#include "pki/cms_values.h"
#include "pki/dist_point.h"
#include "pki/ess_cert_id.h"
#include "pki/extension.h"
#include "pki/general_name.h"
#include "pki/name.h"
#include "pki/pki_status.h"
#include "pki/policy_access.h"
#include "pki/signed_attrs.h"

using namespace Quorvane;
using namespace Quorvane::ASN1;

namespace {

template <class T>
T make() { return T(); }
template <>
CPKIFailureInfo make<CPKIFailureInfo>() { return CPKIFailureInfo(0); }
template <>
CPKIStatusInfo make<CPKIStatusInfo>() { return CPKIStatusInfo(pkiStatusGranted); }
// A default CRevAnnContent has no record to decode into.
template <>
CRevAnnContent make<CRevAnnContent>() {
    const CDateTime t(2026u, 1, 1, 0, 0, 0, 0, 0);
    return CRevAnnContent(pkiStatusGranted, CCertId(), t, t);
}

template <class T>
void roundTrip(const CBlob& in) {
    T value = make<T>();
    value.decode(in);
    CBlob out = value.encode();
    T again = make<T>();
    again.decode(out);
}

// A typed extension or attribute value: read from the octets, written back into them, and
// read once more from what was written.
template <class T>
void viewRoundTrip(const CBlob& in) {
    T value(in);
    value.decode();
    value.encode();
    T again(value.get_value());
    again.decode();
}

typedef void (*Step)(const CBlob&);

const Step kSteps[] = {
    roundTrip<CName>,          roundTrip<CAlgorithmIdentifier>, roundTrip<CGeneralName>,
    roundTrip<CExtension>,     roundTrip<CExtensions>,          roundTrip<CIssuerSerial>,
    roundTrip<CESSCertID>,     roundTrip<CESSCertIDv2>,         roundTrip<CPKIStatusInfo>,
    roundTrip<CPKIFailureInfo>, roundTrip<CAccessDescription>,  roundTrip<CAuthorityInfoAccessSyntax>,
    roundTrip<CPolicyInformation>, roundTrip<CContentInfo>,     roundTrip<CTimeChoice>,
    roundTrip<CCertId>,
    // 16 on: the classes added after the first sixteen, so that the corpus keeps its picks.
    roundTrip<CBigInteger>,    roundTrip<CAttribute>,           roundTrip<CAttributes>,
    roundTrip<COtherHashAlgAndValue>, roundTrip<CCertificateValues>, roundTrip<CDistributionPointName>,
    roundTrip<CDistributionPoint>, roundTrip<CCRLDistPointsSyntax>, roundTrip<COtherHash>,
    roundTrip<COtherCertID>,   roundTrip<CAttributeTypeAndValue>, roundTrip<CRelativeDistinguishedName>,
    roundTrip<CRevAnnContent>,
    viewRoundTrip<CExtCRLReason>, viewRoundTrip<CExtHoldInstructionCode>, viewRoundTrip<CExtInvalidityDate>,
    viewRoundTrip<CExtCertificateIssuer>, viewRoundTrip<CExtPrivateKeyUsagePeriod>,
    viewRoundTrip<CAttrSigningCertificate>, viewRoundTrip<CAttrSigningCertificateV2>,
    viewRoundTrip<CAttrOtherSigningCertificate>, viewRoundTrip<CAttrSigningTime>,
    viewRoundTrip<CAttrContentType>, viewRoundTrip<CAttrMessageDigest>,
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
