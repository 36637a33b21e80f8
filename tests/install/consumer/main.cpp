// A program built against an installed libchainvet: a value type, the BER runtime and the
// policy callbacks, through calls that need the library's symbols and type information.
// Behaviour is the unit tests' business; a failed check prints its line and fails the run.
#include "asn1rt/ber.h"
#include "core/blob.h"
#include "policies/chain_policies.h"

#include <cstdio>
#include <cstring>

namespace {

int failures = 0;
#define CHECK(e) ((e) ? void() : void((++failures, std::printf("consumer: FAILED line %d: %s\n", __LINE__, #e))))

// Catching E needs the library's type information.
template <class E, class F>
bool throws(F f) {
    try {
        f();
    } catch (const E&) {
        return true;
    }
    return false;
}

}  // namespace

int main() {
    Quorvane::CBlob blob;
    blob.readFromHexString("01ab");
    CHECK(std::strcmp(blob.writeToHexString(0).c_str(), "01AB") == 0);
    CHECK(throws<ATL::CAtlException>([] { Quorvane::CBlob().readFromFile(L"/nonexistent"); }));

    ASN1CTXT ctxt;
    ASN1OCTET message[8];
    ASN1INT value = 300, back = 0;
    CHECK(rtInitContext(&ctxt, nullptr) == 0 && xe_setp(&ctxt, message, sizeof message) == 0 &&
          xe_integer(&ctxt, &value, ASN1EXPL) == 4 && xd_setp(&ctxt, xe_getp(&ctxt), 4, nullptr, nullptr) == 0 &&
          xd_integer(&ctxt, &back, ASN1EXPL, 0) == 0 && back == 300);
    rtFreeContext(&ctxt);

    // A status record of the wrong size: each callback answers FALSE, its implementation throws.
    for (const auto& [callback, impl] :
         {std::make_pair(CertDllVerifyBasicConstraintsCertificateChainPolicy, BasicConstraintsImpl),
          std::make_pair(CertDllVerifySignatureCertificateChainPolicy, SignatureImpl),
          std::make_pair(CertDllVerifyTimestampSigningCertificateChainPolicy, TimestampSigningImpl),
          std::make_pair(CertDllVerifyOCSPSigningCertificateChainPolicy, OCSPSigningImpl)}) {
        CERT_CHAIN_POLICY_STATUS status{1, 0, 0, 0, nullptr};
        CHECK(callback("consumer", nullptr, nullptr, &status) == FALSE &&
              throws<ATL::CAtlException>([&, impl = impl] { impl("consumer", nullptr, nullptr, &status); }));
    }
    std::printf("consumer: %s\n", failures == 0 ? "every check passed" : "checks failed");
    return failures == 0 ? 0 : 1;
}
