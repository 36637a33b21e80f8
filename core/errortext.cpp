#include "core/errortext.h"

#include <cwchar>

namespace {

// One branch per code; several codes share a text on purpose.
const wchar_t* errorText(int code) {
    switch (code) {
    case static_cast<int>(0x000000B7u):
    case static_cast<int>(0x800700B7u):
        return L"Cannot create a file when that file already exists.";
    case static_cast<int>(0x00000450u):
        return L"The data you supplied have zero length.";
    case static_cast<int>(0x00002098u):
        return L"Insufficient access rights to perform the operation.";
    case static_cast<int>(0x80004001u):
        return L"Not implemented.";
    case static_cast<int>(0x80040007u):
        return L"Uninitialized object.";
    case static_cast<int>(0x80040154u):
        return L"Class not registered.";
    case static_cast<int>(0x80070002u):
        return L"The system cannot find the file specified.";
    case static_cast<int>(0x80070057u):
        return L"The parameter is incorrect.";
    case static_cast<int>(0x8007006Eu):
        return L"The system cannot open the device or file specified.";
    case static_cast<int>(0x800705B9u):
        return L"The system was unable to parse the requested XML data.";
    case static_cast<int>(0x800705BAu):
        return L"An error was encountered while processing an XML digital signature.";
    case static_cast<int>(0x8007139Fu):
        return L"The group or resource is not in the correct state to perform the requested operation.";
    case static_cast<int>(0x80090006u):
        return L"Invalid Signature.";
    case static_cast<int>(0x80090008u):
    case static_cast<int>(0x80091003u):
        return L"Invalid algorithm specified.";
    case static_cast<int>(0x8009000Fu):
        return L"Object already exists.";
    case static_cast<int>(0x80091007u):
        return L"The hash value is not correct";
    case static_cast<int>(0x80092004u):
        return L"Cannot find object or property.";
    case static_cast<int>(0x80092010u):
        return L"The certificate is revoked.";
    case static_cast<int>(0x80092012u):
        return L"The revocation function was unable to check revocation for the certificate.";
    case static_cast<int>(0x800B010Eu):
        return L"The revocation process could not continue - the certificate(s) could not be checked.";
    case static_cast<int>(0x8010001Cu):
        return L"Wrong name format or an attempt is made to open container of another CSP.";
    case static_cast<int>(0x8010006Bu):
        return L"The private key cannot be accessed because the wrong PIN was presented.";
    case static_cast<int>(0x80880230u):
        return L"The Store object does not represent an opened certificate store.";
    case static_cast<int>(0xC00D1328u):
        return L"The URL contains an invalid scheme.";
    case static_cast<int>(0xC2100100u):
    case static_cast<int>(0xC2110100u):
        return L"HTTP error occurred while sending request.";
    case static_cast<int>(0xC2100101u):
    case static_cast<int>(0xC2110101u):
        return L"Specified authentication type prohibited by group policy.";
    case static_cast<int>(0xC2100102u):
    case static_cast<int>(0xC2110102u):
        return L"Specified proxy authentication type prohibited by group policy.";
    case static_cast<int>(0xC2100103u):
        return L"Specified time-stamp authority prohibited by group policy.";
    case static_cast<int>(0xC2100104u):
        return L"Nonce usage prohibited by group policy.";
    case static_cast<int>(0xC2100110u):
        return L"Specified hash algorithm prohibited by group policy.";
    case static_cast<int>(0xC2100111u):
        return L"Specified PolicyID prohibited by group policy.";
    case static_cast<int>(0xC2100120u):
        return L" The values of request's and stamp's \"Nonce\" fields are not equal.";
    case static_cast<int>(0xC2100121u):
        return L"The URL of TSP service is not specified.";
    case static_cast<int>(0xC2100122u):
        return L"The time stamp is expired (ProducedAt value).";
    case static_cast<int>(0xC2100123u):
        return L"Request does not contain data hash.";
    case static_cast<int>(0xC2100124u):
        return L"TSA response is unsuccessful.";
    case static_cast<int>(0xC2110103u):
        return L"Specified OCSP server authority prohibited by group policy.";
    case static_cast<int>(0xC2110104u):
        return L"Encountered extension (AcceptableTypes or Nonce) prohibited by group policy.";
    case static_cast<int>(0xC2110110u):
        return L"Signed OCSP requests prohibited by group policy.";
    case static_cast<int>(0xC2110111u):
        return L"Unsigned OCSP requests prohibited by group policy.";
    case static_cast<int>(0xC2110120u):
        return L"The values of OCSP-request's and response's \"Nonce\" extensions are not equal.";
    case static_cast<int>(0xC2110121u):
        return L"The URL of OCSP service is not specified.";
    case static_cast<int>(0xC2110122u):
        return L"OCSP-response is expired by ProducedAt or by NextUpdate.";
    case static_cast<int>(0xC2110123u):
        return L"ThisUpdate value of single response is expired.";
    case static_cast<int>(0xC2110124u):
        return L" NextUpdate value of single response is less than ThisUpdate.";
    case static_cast<int>(0xC2110125u):
        return L"OCSP-response does not contain requested certificate status.";
    case static_cast<int>(0xC2110126u):
        return L"Certificate is revoked.";
    case static_cast<int>(0xC2110127u):
        return L"Certificate status is unknown.";
    case static_cast<int>(0xC2110128u):
        return L"OCSP-response is unsuccessful.";
    case static_cast<int>(0xC2110129u):
        return L"OCSP-response contains unallowed critical extension.";
    case static_cast<int>(0xC2110130u):
        return L"OCSP Responder time is out of sync with Time Stamping Authority";
    case static_cast<int>(0xC2110F00u):
        return L"Untrusted sites disabled";
    default:
        return L"Internal error.";
    }
}

}  // namespace

ATL::CSimpleStringT<wchar_t, false> GetErrorMessage(int code, unsigned int) {
    ATL::CSimpleStringT<wchar_t, false> text(&ATL::g_defaultStrMgr);
    const wchar_t* row = errorText(code);
    text.SetString(row, static_cast<int>(std::wcslen(row)));
    return text;
}
