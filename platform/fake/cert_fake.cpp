// The fake's certificate contexts: the DER reader alone, no GnuTLS.
#include "../common/certholder.h"
#include "qvfake.h"

extern "C" PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                       const BYTE* pbCertEncoded,
                                                       DWORD cbCertEncoded) {
    return qvplat::createContext(dwCertEncodingType, pbCertEncoded, cbCertEncoded,
                                 qvplat::parseCertificateDer);
}

