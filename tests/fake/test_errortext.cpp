// GetErrorMessage: every code of the table with its exact text, and the fallback.
#include "core/errortext.h"
#include "support/testsupport.h"

#include <string>

namespace {

std::wstring message(uint32_t code, unsigned int second = 0) {
    const ATL::CSimpleStringT<wchar_t, false> s = GetErrorMessage(static_cast<int>(code), second);
    return std::wstring(s.GetString(), static_cast<size_t>(s.GetLength()));
}

// Texts stand as they are, leading blanks and missing final stops included; several codes
// share one. The second argument has no effect.
TEST(ErrorText, EveryCodeHasItsExactText) {
    const std::pair<std::vector<uint32_t>, const wchar_t*> rows[] = {
        {{0x000000B7u, 0x800700B7u}, L"Cannot create a file when that file already exists."},
        {{0x00000450u}, L"The data you supplied have zero length."},
        {{0x00002098u}, L"Insufficient access rights to perform the operation."}, {{0x80004001u}, L"Not implemented."},
        {{0x80040007u}, L"Uninitialized object."}, {{0x80040154u}, L"Class not registered."},
        {{0x80070002u}, L"The system cannot find the file specified."}, {{0x80070057u}, L"The parameter is incorrect."},
        {{0x8007006Eu}, L"The system cannot open the device or file specified."},
        {{0x800705B9u}, L"The system was unable to parse the requested XML data."},
        {{0x800705BAu}, L"An error was encountered while processing an XML digital signature."},
        {{0x8007139Fu}, L"The group or resource is not in the correct state to perform the requested operation."},
        {{0x80090006u}, L"Invalid Signature."}, {{0x80090008u, 0x80091003u}, L"Invalid algorithm specified."},
        {{0x8009000Fu}, L"Object already exists."}, {{0x80091007u}, L"The hash value is not correct"},
        {{0x80092004u}, L"Cannot find object or property."}, {{0x80092010u}, L"The certificate is revoked."},
        {{0x80092012u}, L"The revocation function was unable to check revocation for the certificate."},
        {{0x800B010Eu}, L"The revocation process could not continue - the certificate(s) could not be checked."},
        {{0x8010001Cu}, L"Wrong name format or an attempt is made to open container of another CSP."},
        {{0x8010006Bu}, L"The private key cannot be accessed because the wrong PIN was presented."},
        {{0x80880230u}, L"The Store object does not represent an opened certificate store."},
        {{0xC00D1328u}, L"The URL contains an invalid scheme."},
        {{0xC2100100u, 0xC2110100u}, L"HTTP error occurred while sending request."},
        {{0xC2100101u, 0xC2110101u}, L"Specified authentication type prohibited by group policy."},
        {{0xC2100102u, 0xC2110102u}, L"Specified proxy authentication type prohibited by group policy."},
        {{0xC2100103u}, L"Specified time-stamp authority prohibited by group policy."},
        {{0xC2100104u}, L"Nonce usage prohibited by group policy."},
        {{0xC2100110u}, L"Specified hash algorithm prohibited by group policy."},
        {{0xC2100111u}, L"Specified PolicyID prohibited by group policy."},
        {{0xC2100120u}, L" The values of request's and stamp's \"Nonce\" fields are not equal."},
        {{0xC2100121u}, L"The URL of TSP service is not specified."},
        {{0xC2100122u}, L"The time stamp is expired (ProducedAt value)."},
        {{0xC2100123u}, L"Request does not contain data hash."}, {{0xC2100124u}, L"TSA response is unsuccessful."},
        {{0xC2110103u}, L"Specified OCSP server authority prohibited by group policy."},
        {{0xC2110104u}, L"Encountered extension (AcceptableTypes or Nonce) prohibited by group policy."},
        {{0xC2110110u}, L"Signed OCSP requests prohibited by group policy."},
        {{0xC2110111u}, L"Unsigned OCSP requests prohibited by group policy."},
        {{0xC2110120u}, L"The values of OCSP-request's and response's \"Nonce\" extensions are not equal."},
        {{0xC2110121u}, L"The URL of OCSP service is not specified."},
        {{0xC2110122u}, L"OCSP-response is expired by ProducedAt or by NextUpdate."},
        {{0xC2110123u}, L"ThisUpdate value of single response is expired."},
        {{0xC2110124u}, L" NextUpdate value of single response is less than ThisUpdate."},
        {{0xC2110125u}, L"OCSP-response does not contain requested certificate status."},
        {{0xC2110126u}, L"Certificate is revoked."}, {{0xC2110127u}, L"Certificate status is unknown."},
        {{0xC2110128u}, L"OCSP-response is unsuccessful."},
        {{0xC2110129u}, L"OCSP-response contains unallowed critical extension."},
        {{0xC2110130u}, L"OCSP Responder time is out of sync with Time Stamping Authority"},
        {{0xC2110F00u}, L"Untrusted sites disabled"},
        // Everything else, 1104's HRESULT twin and the neighbours of the families included.
        {{0u, 1u, 184u, 0x80070450u, 0x80090007u, 0xC2100105u, 0xC2110F01u, 0xC21101FFu, 0xFFFFFFFFu, 0x7FFFFFFFu,
          0x80004005u, 0x00000057u},
         L"Internal error."},
    };
    for (const auto& [codes, text] : rows)
        for (uint32_t code : codes)
            for (unsigned int second : {0u, 0x0419u, 0xFFFFFFFFu})
                EXPECT_EQ(message(code, second), text) << std::hex << code << " " << second;
}

}  // namespace
