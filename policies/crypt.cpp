// Finding a provider that knows an algorithm, and making one hash through it.
#include "policies/crypt.h"

#include <cstring>

namespace ATL {
CCryptHash CCryptHash::EmptyHash;
CCryptKey CCryptKey::EmptyKey;
}  // namespace ATL

namespace ATL2 {
ATL::CCryptProv EmptyProv;
}  // namespace ATL2

namespace Quorvane {

namespace {

// Throws the thread's last error in its HRESULT form; a last error of 0 throws nothing.
void throwLastErrorUnlessZero() {
    const DWORD error = GetLastError();
    if (error != 0)
        ATL::AtlThrowImpl(ATL::AtlHresultFromWin32(error));
}

}  // namespace

CFindAlgIdIn::~CFindAlgIdIn() {
    if (m_hProv != 0 && CryptReleaseContext(m_hProv, 0))
        m_hProv = 0;
}

bool CFindAlgIdIn::TryNextProv(DWORD type, const char* name) {
    if (m_hProv != 0) {
        if (CryptReleaseContext(m_hProv, 0))
            m_hProv = 0;
        else
            throwLastErrorUnlessZero();
    }
    if (!CryptAcquireContextA(&m_hProv, nullptr, name, type, CRYPT_VERIFYCONTEXT))
        throwLastErrorUnlessZero();
    DWORD flags = CRYPT_FIRST;
    for (;;) {
        PROV_ENUMALGS_EX record;
        std::memset(&record, 0, sizeof record);
        DWORD size = sizeof record;
        if (!CryptGetProvParam(m_hProv, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&record), &size, flags)) {
            if (GetLastError() == ERROR_NO_MORE_ITEMS)
                return false;
            ATL::AtlThrowLastWin32();
        }
        if (record.aiAlgid == m_algId)
            return true;
        flags = 0;
    }
}

bool CFindAlgIdInDefaultProviders::OnType(DWORD type, const char* /*name*/) {
    return !TryNextProv(type, nullptr);
}

bool CFindAlgIdInProviders::OnProv(const char* name, DWORD type) { return !TryNextProv(type, name); }

namespace {

// The finder's last context, with a reference of the caller's own; 0 if none was tried.
HCRYPTPROV takeReference(const CFindAlgIdIn& finder) {
    if (finder.m_hProv == 0)
        return 0;
    if (!CryptContextAddRef(finder.m_hProv, nullptr, 0))
        ATL::AtlThrowLastWin32();
    return finder.m_hProv;
}

}  // namespace

HCRYPTPROV QVGetDefaultCSPThrow(unsigned int algId) {
    if (algId == 0)
        return 0;
    if (const HCRYPTPROV cached = QVCAPI_I_CryptGetDefaultCryptProv(algId))
        return cached;
    CFindAlgIdInDefaultProviders byType(algId);
    byType.Enum();
    if (const HCRYPTPROV h = takeReference(byType))
        return h;
    CFindAlgIdInProviders byName(algId);
    byName.Enum();
    return takeReference(byName);
}

CBlob MakeHash(HCRYPTPROV hProv, ALG_ID algId, const CBlob& data, HCRYPTHASH* phHash) {
    // Declared before the hash, so that a failure destroys the hash first.
    ATL::CCryptProv prov;
    if (hProv != 0) {
        // Only a reference actually taken is given back at the end.
        if (CryptContextAddRef(hProv, nullptr, 0))
            prov.m_hProv = hProv;
    } else {
        prov.m_hProv = QVGetDefaultCSPThrow(algId);
        if (prov.m_hProv == 0)
            ATL::AtlThrowLastWin32();
        hProv = prov.m_hProv;
    }

    ATL::CCryptHash hash;
    if (!CryptCreateHash(hProv, algId, 0, 0, &hash.m_hHash))
        throwLastErrorUnlessZero();

    // The platform takes 32-bit lengths; larger data goes in pieces.
    const unsigned char* pb = data.pbData();
    unsigned long left = data.cbData();
    do {
        const DWORD piece = left > 0x40000000ul ? 0x40000000u : static_cast<DWORD>(left);
        if (!CryptHashData(hash.m_hHash, pb, piece, 0))
            throwLastErrorUnlessZero();
        pb += piece;
        left -= piece;
    } while (left != 0);

    DWORD size = 0;
    DWORD four = sizeof size;
    if (!CryptGetHashParam(hash.m_hHash, HP_HASHSIZE, reinterpret_cast<BYTE*>(&size), &four, 0))
        throwLastErrorUnlessZero();

    CBlob value(static_cast<unsigned long>(size));
    if (!CryptGetHashParam(hash.m_hHash, HP_HASHVAL, value.pbData(), &size, 0))
        throwLastErrorUnlessZero();

    if (phHash != nullptr)
        *phHash = hash.Detach();
    return value;
}

}  // namespace Quorvane
