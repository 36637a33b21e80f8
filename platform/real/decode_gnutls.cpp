// CryptDecodeObject/CryptEncodeObject of the structures the policies ask for, by GnuTLS.
#include "../common/decode_common.h"
#include "../common/usage.h"
#include "qvcapi/support.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509-ext.h>

extern "C" BOOL CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                  const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                  void* pvStructInfo, DWORD* pcbStructInfo) {
    if ((dwCertEncodingType & X509_ASN_ENCODING) == 0 || pbEncoded == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    gnutls_datum_t d{const_cast<BYTE*>(pbEncoded), cbEncoded};
    if (qvplat::isStructType(lpszStructType, szOID_BASIC_CONSTRAINTS2)) {
        unsigned int ca = 0;
        int pathLen = -1;
        if (gnutls_x509_ext_import_basic_constraints(&d, &ca, &pathLen) < 0) {
            SetLastError(static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
            return FALSE;
        }
        CERT_BASIC_CONSTRAINTS2_INFO info{};
        info.fCA = ca ? TRUE : FALSE;
        info.fPathLenConstraint = pathLen >= 0 ? TRUE : FALSE;
        info.dwPathLenConstraint = pathLen >= 0 ? static_cast<DWORD>(pathLen) : 0;
        return qvplat::deliver(&info, sizeof info, pvStructInfo, pcbStructInfo);
    }
    // The bit blob may point into the caller's bytes (CRYPT_DECODE_NOCOPY_FLAG), so the
    // DER reader decodes it in place rather than GnuTLS's flag word.
    if (qvplat::isStructType(lpszStructType, szOID_KEY_USAGE))
        return qvplat::decodeKeyUsage(pbEncoded, cbEncoded, dwFlags, pvStructInfo, pcbStructInfo);
    SetLastError(static_cast<DWORD>(CRYPT_E_OID_FORMAT));
    return FALSE;
}
