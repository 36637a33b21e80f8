// Providers and hashing of the real stand-in: three named providers of three types, hashes
// computed by Nettle. Contexts and hashes are reference-counted heap objects whose handles
// are checked against a registry, so that a stale or foreign handle fails instead of crashing.
#include "qvcapi/prov.h"
#include "qvcapi/support.h"

#include <nettle/nettle-meta.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <vector>

namespace {

struct AlgDef {
    ALG_ID id;
    const char* name;      // short name, at most 19 characters
    const char* longName;  // at most 39 characters
    const nettle_hash* hash;
};

const AlgDef kMd5{CALG_MD5, "MD5", "Message Digest 5 (MD5)", &nettle_md5};
const AlgDef kSha1{CALG_SHA1, "SHA-1", "Secure Hash Algorithm (SHA-1)", &nettle_sha1};
const AlgDef kSha256{CALG_SHA_256, "SHA-256", "Secure Hash Algorithm (SHA-256)", &nettle_sha256};
const AlgDef kSha384{CALG_SHA_384, "SHA-384", "Secure Hash Algorithm (SHA-384)", &nettle_sha384};
const AlgDef kSha512{CALG_SHA_512, "SHA-512", "Secure Hash Algorithm (SHA-512)", &nettle_sha512};
// GOST R 34.11-94 in PKI uses the parameter set of RFC 4357 (1.2.643.2.2.30.1).
const AlgDef kGost94{CALG_GR3411, "GR 34.11-94", "GOST R 34.11-94", &nettle_gosthash94cp};
const AlgDef kGost256{CALG_GR3411_2012_256, "GR 34.11-2012 256", "GOST R 34.11-2012 256 bit",
                      &nettle_streebog256};
const AlgDef kGost512{CALG_GR3411_2012_512, "GR 34.11-2012 512", "GOST R 34.11-2012 512 bit",
                      &nettle_streebog512};

struct ProvDef {
    const char* name;
    DWORD type;
    const char* typeName;
    std::vector<const AlgDef*> algs;
};

// Ordered by type: the type enumeration and the default provider of a type follow this order.
const std::vector<ProvDef>& providers() {
    static const std::vector<ProvDef> table = {
        {"Quorvane Base RSA Provider", PROV_RSA_FULL, "RSA Full (Signature and Key Exchange)",
         {&kMd5, &kSha1}},
        {"Quorvane Enhanced RSA and AES Provider", PROV_RSA_AES, "RSA Full and AES",
         {&kMd5, &kSha1, &kSha256, &kSha384, &kSha512}},
        {"Quorvane GOST Provider", PROV_GOST_2001_DH,
         "GOST R 34.10-2001 Signature with Diffie-Hellman Key Exchange",
         {&kGost94, &kGost256, &kGost512}},
    };
    return table;
}

struct Context {
    const ProvDef* prov;
    std::atomic<long> refs{1};
    size_t algCursor = 0;
    std::mutex cursorLock;
};

struct Hash {
    Context* ctx;  // holds one reference
    const AlgDef* alg;
    std::vector<uint8_t> state;
    bool finished = false;
    uint8_t digest[64] = {};
};

std::mutex g_lock;
std::set<const void*>& liveObjects() {
    static auto* live = new std::set<const void*>;  // outlives every static destructor
    return *live;
}

bool fail(DWORD error) {
    SetLastError(error);
    return false;
}

Context* findContext(HCRYPTPROV h) {
    auto* p = reinterpret_cast<Context*>(static_cast<uintptr_t>(h));
    std::lock_guard<std::mutex> g(g_lock);
    return liveObjects().count(p) ? p : nullptr;
}

Hash* findHash(HCRYPTHASH h) {
    auto* p = reinterpret_cast<Hash*>(static_cast<uintptr_t>(h));
    std::lock_guard<std::mutex> g(g_lock);
    return liveObjects().count(p) ? p : nullptr;
}

Context* newContext(const ProvDef* prov) {
    auto* c = new Context;
    c->prov = prov;
    std::lock_guard<std::mutex> g(g_lock);
    liveObjects().insert(c);
    return c;
}

void releaseContext(Context* c) {
    if (c->refs.fetch_sub(1) == 1) {
        {
            std::lock_guard<std::mutex> g(g_lock);
            liveObjects().erase(c);
        }
        delete c;
    }
}

HCRYPTPROV handleOf(const void* p) { return static_cast<HCRYPTPROV>(reinterpret_cast<uintptr_t>(p)); }

// The size protocol of the enumerators: null buffer gives the size, a short one 234.
BOOL deliverText(const char* text, LPSTR out, DWORD* pcb) {
    const DWORD needed = static_cast<DWORD>(std::strlen(text) + 1);
    if (out == nullptr) {
        *pcb = needed;
        return TRUE;
    }
    if (*pcb < needed) {
        *pcb = needed;
        return fail(ERROR_MORE_DATA);
    }
    std::memcpy(out, text, needed);
    *pcb = needed;
    return TRUE;
}

const AlgDef* algOf(const ProvDef* prov, ALG_ID id) {
    for (const AlgDef* a : prov->algs)
        if (a->id == id)
            return a;
    return nullptr;
}

}  // namespace

extern "C" {

BOOL CryptEnumProviderTypesA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                             LPSTR szTypeName, DWORD* pcbTypeName) {
    if (pdwReserved != nullptr || pdwProvType == nullptr || pcbTypeName == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    DWORD seen = 0;
    const ProvDef* prev = nullptr;
    for (const ProvDef& p : providers()) {
        if (prev != nullptr && prev->type == p.type)
            continue;
        prev = &p;
        if (seen++ == dwIndex) {
            *pdwProvType = p.type;
            return deliverText(p.typeName, szTypeName, pcbTypeName);
        }
    }
    return fail(ERROR_NO_MORE_ITEMS);
}

BOOL CryptEnumProvidersA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                         LPSTR szProvName, DWORD* pcbProvName) {
    if (pdwReserved != nullptr || pdwProvType == nullptr || pcbProvName == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    if (dwIndex >= providers().size())
        return fail(ERROR_NO_MORE_ITEMS);
    const ProvDef& p = providers()[dwIndex];
    *pdwProvType = p.type;
    return deliverText(p.name, szProvName, pcbProvName);
}

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
    if (phProv == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    // Only verify contexts: the stand-in has no key containers.
    if (dwFlags != CRYPT_VERIFYCONTEXT || (szContainer != nullptr && *szContainer != '\0'))
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    const ProvDef* found = nullptr;
    bool nameSeen = false;
    for (const ProvDef& p : providers()) {
        if (szProvider != nullptr && *szProvider != '\0') {
            if (std::strcmp(p.name, szProvider) != 0)
                continue;
            nameSeen = true;
        }
        if (p.type == dwProvType) {
            found = &p;
            break;
        }
    }
    if (found == nullptr)
        return fail(static_cast<DWORD>(nameSeen ? NTE_PROV_TYPE_NO_MATCH
                                       : (szProvider && *szProvider ? NTE_KEYSET_NOT_DEF
                                                                    : NTE_PROV_TYPE_NOT_DEF)));
    *phProv = handleOf(newContext(found));
    return TRUE;
}

BOOL CryptContextAddRef(HCRYPTPROV hProv, DWORD* pdwReserved, DWORD dwFlags) {
    if (pdwReserved != nullptr || dwFlags != 0)
        return fail(ERROR_INVALID_PARAMETER);
    Context* c = findContext(hProv);
    if (c == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    ++c->refs;
    return TRUE;
}

BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
    Context* c = findContext(hProv);
    if (c == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    releaseContext(c);
    return TRUE;
}

BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    Context* c = findContext(hProv);
    if (c == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    if (pdwDataLen == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    switch (dwParam) {
    case PP_NAME:
        return deliverText(c->prov->name, reinterpret_cast<LPSTR>(pbData), pdwDataLen);
    case PP_PROVTYPE: {
        if (pbData == nullptr) {
            *pdwDataLen = sizeof(DWORD);
            return TRUE;
        }
        if (*pdwDataLen < sizeof(DWORD)) {
            *pdwDataLen = sizeof(DWORD);
            return fail(ERROR_MORE_DATA);
        }
        std::memcpy(pbData, &c->prov->type, sizeof(DWORD));
        *pdwDataLen = sizeof(DWORD);
        return TRUE;
    }
    case PP_ENUMALGS_EX: {
        if (pbData == nullptr) {
            *pdwDataLen = sizeof(PROV_ENUMALGS_EX);
            return TRUE;
        }
        if (*pdwDataLen < sizeof(PROV_ENUMALGS_EX)) {
            *pdwDataLen = sizeof(PROV_ENUMALGS_EX);
            return fail(ERROR_MORE_DATA);
        }
        std::lock_guard<std::mutex> g(c->cursorLock);
        if (dwFlags & CRYPT_FIRST)
            c->algCursor = 0;
        if (c->algCursor >= c->prov->algs.size())
            return fail(ERROR_NO_MORE_ITEMS);
        const AlgDef* a = c->prov->algs[c->algCursor++];
        PROV_ENUMALGS_EX rec{};
        rec.aiAlgid = a->id;
        rec.dwDefaultLen = rec.dwMinLen = rec.dwMaxLen = a->hash->digest_size * 8;
        rec.dwNameLen = static_cast<DWORD>(std::strlen(a->name) + 1);
        std::strncpy(rec.szName, a->name, sizeof rec.szName - 1);
        rec.dwLongNameLen = static_cast<DWORD>(std::strlen(a->longName) + 1);
        std::strncpy(rec.szLongName, a->longName, sizeof rec.szLongName - 1);
        std::memcpy(pbData, &rec, sizeof rec);
        *pdwDataLen = sizeof rec;
        return TRUE;
    }
    default:
        return fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
}

BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags, HCRYPTHASH* phHash) {
    Context* c = findContext(hProv);
    if (c == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    if (phHash == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    if (hKey != 0)
        return fail(static_cast<DWORD>(NTE_BAD_KEY));
    const AlgDef* a = algOf(c->prov, Algid);
    if (a == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_ALGID));
    auto* h = new Hash;
    ++c->refs;
    h->ctx = c;
    h->alg = a;
    h->state.resize(a->hash->context_size);
    a->hash->init(h->state.data());
    {
        std::lock_guard<std::mutex> g(g_lock);
        liveObjects().insert(h);
    }
    *phHash = handleOf(h);
    return TRUE;
}

BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) {
    Hash* h = findHash(hHash);
    if (h == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_HASH));
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    if (pbData == nullptr && dwDataLen != 0)
        return fail(ERROR_INVALID_PARAMETER);
    if (h->finished)
        return fail(static_cast<DWORD>(NTE_BAD_HASH_STATE));
    if (dwDataLen != 0)
        h->alg->hash->update(h->state.data(), dwDataLen, pbData);
    return TRUE;
}

BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    Hash* h = findHash(hHash);
    if (h == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_HASH));
    if (pdwDataLen == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    const DWORD size = h->alg->hash->digest_size;
    DWORD value = 0;
    const BYTE* src = nullptr;
    DWORD needed = sizeof(DWORD);
    switch (dwParam) {
    case HP_ALGID:
        value = h->alg->id;
        src = reinterpret_cast<const BYTE*>(&value);
        break;
    case HP_HASHSIZE:
        value = size;
        src = reinterpret_cast<const BYTE*>(&value);
        break;
    case HP_HASHVAL:
        needed = size;
        break;
    default:
        return fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
    if (pbData == nullptr) {
        *pdwDataLen = needed;
        return TRUE;
    }
    if (*pdwDataLen < needed) {
        *pdwDataLen = needed;
        return fail(ERROR_MORE_DATA);
    }
    if (dwParam == HP_HASHVAL) {
        // The first read ends the hash; later reads give the same value.
        if (!h->finished) {
            h->alg->hash->digest(h->state.data(), size, h->digest);
            h->finished = true;
        }
        src = h->digest;
    }
    std::memcpy(pbData, src, needed);
    *pdwDataLen = needed;
    return TRUE;
}

BOOL CryptDestroyHash(HCRYPTHASH hHash) {
    Hash* h = findHash(hHash);
    if (h == nullptr)
        return fail(static_cast<DWORD>(NTE_BAD_HASH));
    {
        std::lock_guard<std::mutex> g(g_lock);
        liveObjects().erase(h);
    }
    releaseContext(h->ctx);
    delete h;
    return TRUE;
}

BOOL CryptDestroyKey(HCRYPTKEY hKey) {
    // The providers hand out no keys, so no key handle is ever valid here.
    (void)hKey;
    return fail(static_cast<DWORD>(NTE_BAD_KEY));
}

HCRYPTPROV QVCAPI_I_CryptGetDefaultCryptProv(ALG_ID algId) {
    static std::mutex cacheLock;
    // One reference each, held for the life of the process: never destroyed, so that
    // no context goes away under a late caller during exit.
    static auto* cache = new std::map<ALG_ID, Context*>;
    std::lock_guard<std::mutex> g(cacheLock);
    auto it = cache->find(algId);
    if (it == cache->end()) {
        const ProvDef* chosen = nullptr;
        for (const ProvDef& p : providers())
            if (algOf(&p, algId) != nullptr) {
                chosen = &p;
                break;
            }
        if (chosen == nullptr) {
            SetLastError(static_cast<DWORD>(NTE_BAD_ALGID));
            return 0;
        }
        it = cache->emplace(algId, newContext(chosen)).first;
    }
    ++it->second->refs;
    return handleOf(it->second);
}

}  // extern "C"
