// Hashing through the CryptoAPI layer: thin owners of provider, key and hash handles, the
// provider enumerators, the search for a provider that knows an algorithm, and MakeHash.
#pragma once

#include "core/blob.h"
#include "core/exception.h"
#include "core/export.h"
#include "core/strings.h"
#include "qvcapi.h"

#include <new>

namespace ATL {

// Owns a hash handle; 0 is empty.
class CHAINVET_API CCryptHash {
public:
    CCryptHash() noexcept : m_hHash(0) {}
    explicit CCryptHash(HCRYPTHASH hHash) noexcept : m_hHash(hHash) {}
    CCryptHash(const CCryptHash&) = delete;
    CCryptHash& operator=(const CCryptHash&) = delete;
    ~CCryptHash() noexcept { Destroy(); }

    // A failure of the platform is swallowed; the handle is forgotten either way.
    void Destroy() noexcept {
        if (m_hHash != 0) {
            CryptDestroyHash(m_hHash);
            m_hHash = 0;
        }
    }
    void Attach(HCRYPTHASH hHash) noexcept {
        Destroy();
        m_hHash = hHash;
    }
    HCRYPTHASH Detach() noexcept {
        const HCRYPTHASH h = m_hHash;
        m_hHash = 0;
        return h;
    }
    operator HCRYPTHASH() const noexcept { return m_hHash; }

    HCRYPTHASH m_hHash;

    static CCryptHash EmptyHash;
};

// Owns a key handle; 0 is empty.
class CHAINVET_API CCryptKey {
public:
    CCryptKey() noexcept : m_hKey(0) {}
    explicit CCryptKey(HCRYPTKEY hKey) noexcept : m_hKey(hKey) {}
    CCryptKey(const CCryptKey&) = delete;
    CCryptKey& operator=(const CCryptKey&) = delete;
    ~CCryptKey() noexcept { Destroy(); }

    void Destroy() noexcept {
        if (m_hKey != 0) {
            CryptDestroyKey(m_hKey);
            m_hKey = 0;
        }
    }
    void Attach(HCRYPTKEY hKey) noexcept {
        Destroy();
        m_hKey = hKey;
    }
    HCRYPTKEY Detach() noexcept {
        const HCRYPTKEY h = m_hKey;
        m_hKey = 0;
        return h;
    }
    operator HCRYPTKEY() const noexcept { return m_hKey; }

    HCRYPTKEY m_hKey;

    static CCryptKey EmptyKey;
};

// Owns one reference to a provider context; 0 is empty. A failed release keeps the handle.
class CHAINVET_API CCryptProv {
public:
    CCryptProv() noexcept : m_hProv(0) {}
    explicit CCryptProv(HCRYPTPROV hProv) noexcept : m_hProv(hProv) {}
    CCryptProv(const CCryptProv&) = delete;
    CCryptProv& operator=(const CCryptProv&) = delete;
    ~CCryptProv() noexcept { Release(); }

    // True if the handle is empty afterwards.
    bool Release() noexcept {
        if (m_hProv != 0 && CryptReleaseContext(m_hProv, 0))
            m_hProv = 0;
        return m_hProv == 0;
    }
    void Attach(HCRYPTPROV hProv) noexcept {
        Release();
        m_hProv = hProv;
    }
    HCRYPTPROV Detach() noexcept {
        const HCRYPTPROV h = m_hProv;
        m_hProv = 0;
        return h;
    }
    operator HCRYPTPROV() const noexcept { return m_hProv; }

    HCRYPTPROV m_hProv;
};

}  // namespace ATL

namespace ATL2 {

CHAINVET_API extern ATL::CCryptProv EmptyProv;

// The platform's enumeration functions by character type; only the narrow ones exist.
template <typename T>
struct CCryptEnumCalls;

template <>
struct CCryptEnumCalls<char> {
    static BOOL Types(DWORD i, DWORD* type, char* name, DWORD* cb) {
        return CryptEnumProviderTypesA(i, nullptr, 0, type, name, cb);
    }
    static BOOL Providers(DWORD i, DWORD* type, char* name, DWORD* cb) {
        return CryptEnumProvidersA(i, nullptr, 0, type, name, cb);
    }
};

// The walk both enumerators share: index by index, a name that does not fit fetched by
// one retry at the same index with twice the size reported.
template <typename T, int t_nInitial, typename Visit, typename Call>
HRESULT CryptEnumWalk(CTempBufferEx<T, t_nInitial>& buffer, Call call, Visit visit) {
    // Back to the inner storage; a buffer grown by an earlier walk is handed back first.
    buffer.~CTempBufferEx<T, t_nInitial>();
    new (&buffer) CTempBufferEx<T, t_nInitial>();
    buffer.Reallocate(t_nInitial);
    DWORD index = 0;
    DWORD current = t_nInitial;
    bool retry = true;
    for (;;) {
        DWORD type = 0;
        DWORD size = current;
        static_cast<T*>(buffer)[0] = T();
        if (call(index, &type, static_cast<T*>(buffer), &size)) {
            if (!visit(type, static_cast<const T*>(buffer)))
                return S_OK;
            ++index;
            retry = true;
            continue;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_NO_MORE_ITEMS)
            return S_OK;
        if (error == ERROR_MORE_DATA && retry) {
            const DWORD needed = size;
            if (needed <= current)
                return ATL::AtlHresultFromWin32(ERROR_MORE_DATA);
            // Twice the size must still fit the platform's 32-bit size.
            if (needed > 0x7FFFFFFFu)
                ATL::AtlThrowImpl(E_OUTOFMEMORY);
            current = needed * 2;
            buffer.Reallocate(current);
            retry = false;
            continue;
        }
        return ATL::AtlHresultFromWin32(error);
    }
}

template <typename T>
class CHAINVET_API CCryptProviderTypesEnumT {
public:
    CCryptProviderTypesEnumT() = default;
    CCryptProviderTypesEnumT(const CCryptProviderTypesEnumT&) = delete;
    CCryptProviderTypesEnumT& operator=(const CCryptProviderTypesEnumT&) = delete;

    // True goes on with the next type; false ends the walk with success.
    virtual bool OnType(DWORD type, const T* name) = 0;
    virtual ~CCryptProviderTypesEnumT() = default;

    HRESULT Enum() {
        return CryptEnumWalk(m_buffer, &CCryptEnumCalls<T>::Types,
                             [this](DWORD type, const T* name) { return OnType(type, name); });
    }

protected:
    CTempBufferEx<T, 128> m_buffer;
};

template <typename T>
class CHAINVET_API CCryptProvidersEnumT {
public:
    CCryptProvidersEnumT() = default;
    CCryptProvidersEnumT(const CCryptProvidersEnumT&) = delete;
    CCryptProvidersEnumT& operator=(const CCryptProvidersEnumT&) = delete;

    // True goes on with the next provider; false ends the walk with success.
    virtual bool OnProv(const T* name, DWORD type) = 0;
    virtual ~CCryptProvidersEnumT() = default;

    HRESULT Enum() {
        return CryptEnumWalk(m_buffer, &CCryptEnumCalls<T>::Providers,
                             [this](DWORD type, const T* name) { return OnProv(name, type); });
    }

protected:
    CTempBufferEx<T, 256> m_buffer;
};

}  // namespace ATL2

namespace Quorvane {

// Looks for a provider that knows m_algId; m_hProv is the context of the provider tried last.
class CHAINVET_API CFindAlgIdIn {
public:
    explicit CFindAlgIdIn(ALG_ID algId) noexcept : m_algId(algId), m_hProv(0) {}
    CFindAlgIdIn(const CFindAlgIdIn&) = delete;
    CFindAlgIdIn& operator=(const CFindAlgIdIn&) = delete;
    CHAINVET_HIDDEN ~CFindAlgIdIn();

    // Opens a verify context of the provider (name null: the type's default) and says
    // whether it offers m_algId. A miss leaves that context open in m_hProv.
    CHAINVET_HIDDEN bool TryNextProv(DWORD type, const char* name);

    ALG_ID m_algId;
    HCRYPTPROV m_hProv;
};

class CHAINVET_API CFindAlgIdInDefaultProviders : public CFindAlgIdIn,
                                                  public ATL2::CCryptProviderTypesEnumT<char> {
public:
    explicit CFindAlgIdInDefaultProviders(ALG_ID algId) noexcept : CFindAlgIdIn(algId) {}
    CHAINVET_HIDDEN bool OnType(DWORD type, const char* name) override;
};

class CHAINVET_API CFindAlgIdInProviders : public CFindAlgIdIn, public ATL2::CCryptProvidersEnumT<char> {
public:
    explicit CFindAlgIdInProviders(ALG_ID algId) noexcept : CFindAlgIdIn(algId) {}
    CHAINVET_HIDDEN bool OnProv(const char* name, DWORD type) override;
};

// A provider context that knows algId, owned by the caller; 0 for algId 0 or when no
// provider type exists at all. After a fruitless search the last provider tried is given.
CHAINVET_HIDDEN HCRYPTPROV QVGetDefaultCSPThrow(unsigned int algId);

// The hash of data under algId. hProv 0 means a provider found by QVGetDefaultCSPThrow;
// with phHash given, the hash object is handed over to the caller.
CHAINVET_HIDDEN CBlob MakeHash(HCRYPTPROV hProv, ALG_ID algId, const CBlob& data, HCRYPTHASH* phHash);

}  // namespace Quorvane
