// Certificate contexts parsed by GnuTLS.
#include "../common/certholder.h"
#include "../common/der.h"
#include "qvcapi/support.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <algorithm>

namespace {

struct Crt {
    gnutls_x509_crt_t crt = nullptr;
    Crt() { gnutls_x509_crt_init(&crt); }
    ~Crt() { gnutls_x509_crt_deinit(crt); }
};

bool fillFromGnutls(qvplat::CertHolder& h) {
    Crt c;
    gnutls_datum_t d{h.encoded.data(), static_cast<unsigned>(h.encoded.size())};
    if (c.crt == nullptr || gnutls_x509_crt_import(c.crt, &d, GNUTLS_X509_FMT_DER) < 0)
        return false;
    // The DER reader supplies what GnuTLS does not hand out raw (key bits, parameters).
    if (!qvplat::parseCertificateDer(h))
        return false;

    int version = gnutls_x509_crt_get_version(c.crt);
    if (version >= 1)
        h.info.dwVersion = static_cast<DWORD>(version - 1);

    uint8_t serial[64];
    size_t serialLen = sizeof serial;
    if (gnutls_x509_crt_get_serial(c.crt, serial, &serialLen) < 0)
        return false;
    h.serial.assign(serial, serial + serialLen);
    std::reverse(h.serial.begin(), h.serial.end());

    gnutls_datum_t dn{};
    if (gnutls_x509_crt_get_raw_issuer_dn(c.crt, &dn) < 0)
        return false;
    h.issuer.assign(dn.data, dn.data + dn.size);
    gnutls_free(dn.data);
    if (gnutls_x509_crt_get_raw_dn(c.crt, &dn) < 0)
        return false;
    h.subject.assign(dn.data, dn.data + dn.size);
    gnutls_free(dn.data);

    time_t nb = gnutls_x509_crt_get_activation_time(c.crt);
    time_t na = gnutls_x509_crt_get_expiration_time(c.crt);
    if (nb != static_cast<time_t>(-1))
        h.info.NotBefore = qvplat::unixToFileTime(static_cast<int64_t>(nb));
    if (na != static_cast<time_t>(-1))
        h.info.NotAfter = qvplat::unixToFileTime(static_cast<int64_t>(na));

    h.extOids.clear();
    h.extValues.clear();
    h.extCritical.clear();
    for (unsigned i = 0;; ++i) {
        char oid[128];
        size_t oidLen = sizeof oid;
        unsigned int critical = 0;
        int rc = gnutls_x509_crt_get_extension_info(c.crt, i, oid, &oidLen, &critical);
        if (rc == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE)
            break;
        if (rc < 0)
            return false;
        gnutls_datum_t value{};
        if (gnutls_x509_crt_get_extension_data2(c.crt, i, &value) < 0)
            return false;
        h.extOids.emplace_back(oid);
        h.extCritical.push_back(critical ? TRUE : FALSE);
        h.extValues.emplace_back(value.data, value.data + value.size);
        gnutls_free(value.data);
    }
    return true;
}

}  // namespace

extern "C" PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                       const BYTE* pbCertEncoded,
                                                       DWORD cbCertEncoded) {
    return qvplat::createContext(dwCertEncodingType, pbCertEncoded, cbCertEncoded, fillFromGnutls);
}
