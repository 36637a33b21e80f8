// Owning storage behind a CERT_CONTEXT made by the stand-in.
#pragma once

#include "qvcapi/cert.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qvplat {

struct CertHolder : CERT_CONTEXT {
    CERT_INFO info{};
    std::vector<uint8_t> encoded;
    std::vector<uint8_t> serial;  // little-endian, as CERT_INFO holds it
    std::string sigOid;
    std::vector<uint8_t> sigParams;
    std::vector<uint8_t> issuer;
    std::vector<uint8_t> subject;
    std::string spkiOid;
    std::vector<uint8_t> spkiParams;
    std::vector<uint8_t> spkiKey;
    DWORD spkiUnused = 0;
    std::vector<std::string> extOids;
    std::vector<std::vector<uint8_t>> extValues;
    std::vector<BOOL> extCritical;
    std::vector<CERT_EXTENSION> exts;

    // Points the published records at the owned storage.
    void wire();
};

// Fills the holder from `encoded` with the DER reader alone; false if the bytes are not a
// certificate this reader understands.
bool parseCertificateDer(CertHolder& h);

// Converts seconds since 1970 to FILETIME ticks.
FILETIME unixToFileTime(int64_t seconds);

// The stand-in's CertCreateCertificateContext body, shared by both builds; `parse` decides
// which parser fills the holder.
PCCERT_CONTEXT createContext(DWORD encodingType, const BYTE* pb, DWORD cb,
                             bool (*parse)(CertHolder&));

}  // namespace qvplat
