// The fake's providers and hashing: the same provider path as the real stand-in, with a
// replaceable provider table, scripted enumerator answers, failing calls on demand and
// counters of every call and reference, so that tests can see what the library holds.
#include "fake_internal.h"
#include "qvfake.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

struct Prov {
    std::string name;
    DWORD type;
    std::string typeName;
    std::vector<ALG_ID> algs;
};

struct Ctx {
    size_t prov;
    DWORD refs;
    size_t algCursor;
};

struct HashObj {
    HCRYPTPROV ctx;  // holds one reference
    ALG_ID alg;
    DWORD size;
    uint64_t fnv;
    // SHA-1 state
    uint32_t h[5];
    uint8_t block[64];
    size_t blockLen;
    uint64_t total;
    bool finished;
    uint8_t digest[64];
};

struct EnumLog {
    std::vector<QVFAKE_ENUM_STEP> script;
    size_t next = 0;
    std::vector<std::pair<DWORD, DWORD>> calls;
};

struct State {
    std::recursive_mutex lock;
    std::vector<Prov> provs;
    std::map<HCRYPTPROV, Ctx> ctxs;
    std::map<HCRYPTHASH, HashObj> hashes;
    std::map<HCRYPTKEY, int> keys;
    uintptr_t nextHandle = 0x1000;
    EnumLog enums[2];
    DWORD failReleases = 0, failReleaseError = 0;
    std::map<std::string, DWORD> failNext;
    bool defaultOn = true;
    DWORD calls = 0;
    std::map<std::string, DWORD> callsOf;
};

const ALG_ID kRsaBaseAlgs[] = {CALG_MD5, CALG_SHA1};
const ALG_ID kRsaAesAlgs[] = {CALG_MD5, CALG_SHA1, CALG_SHA_256, CALG_SHA_384, CALG_SHA_512};
const ALG_ID kGostAlgs[] = {CALG_GR3411, CALG_GR3411_2012_256, CALG_GR3411_2012_512};

std::vector<Prov> builtinProviders() {
    return {
        {"Quorvane Base RSA Provider", PROV_RSA_FULL, "RSA Full (Signature and Key Exchange)",
         {std::begin(kRsaBaseAlgs), std::end(kRsaBaseAlgs)}},
        {"Quorvane Enhanced RSA and AES Provider", PROV_RSA_AES, "RSA Full and AES",
         {std::begin(kRsaAesAlgs), std::end(kRsaAesAlgs)}},
        {"Quorvane GOST Provider", PROV_GOST_2001_DH,
         "GOST R 34.10-2001 Signature with Diffie-Hellman Key Exchange",
         {std::begin(kGostAlgs), std::end(kGostAlgs)}},
    };
}

State& st() {
    static State s;
    return s;
}

void resetState() {
    State& s = st();
    std::lock_guard<std::recursive_mutex> g(s.lock);
    s.provs = builtinProviders();
    s.ctxs.clear();
    s.hashes.clear();
    s.keys.clear();
    for (EnumLog& e : s.enums)
        e = EnumLog{};
    s.failReleases = 0;
    s.failReleaseError = 0;
    s.failNext.clear();
    s.defaultOn = true;
    s.calls = 0;
    s.callsOf.clear();
}

struct Init {
    Init() {
        resetState();
    }
} g_init;
qvfake::ResetRegistrar g_reset(&resetState);

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

void count(const char* fn) {
    ++st().calls;
    ++st().callsOf[fn];
}

// A scripted failure of the named function, consumed by this call.
bool takeFailure(const char* fn, DWORD& error) {
    auto it = st().failNext.find(fn);
    if (it == st().failNext.end())
        return false;
    error = it->second;
    st().failNext.erase(it);
    return true;
}

DWORD digestSize(ALG_ID alg) {
    switch (alg) {
    case CALG_MD5: return 16;
    case CALG_SHA1: return 20;
    case CALG_SHA_384: return 48;
    case CALG_SHA_512:
    case CALG_GR3411_2012_512: return 64;
    default: return 32;
    }
}

uint32_t rol(uint32_t v, int n) { return (v << n) | (v >> (32 - n)); }

void sha1Block(uint32_t h[5], const uint8_t* p) {
    uint32_t w[80];
    for (int i = 0; i < 16; ++i)
        w[i] = (uint32_t(p[4 * i]) << 24) | (uint32_t(p[4 * i + 1]) << 16) | (uint32_t(p[4 * i + 2]) << 8) |
               p[4 * i + 3];
    for (int i = 16; i < 80; ++i)
        w[i] = rol(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    for (int i = 0; i < 80; ++i) {
        uint32_t f, k;
        if (i < 20) {
            f = (b & c) | (~b & d);
            k = 0x5A827999;
        } else if (i < 40) {
            f = b ^ c ^ d;
            k = 0x6ED9EBA1;
        } else if (i < 60) {
            f = (b & c) | (b & d) | (c & d);
            k = 0x8F1BBCDC;
        } else {
            f = b ^ c ^ d;
            k = 0xCA62C1D6;
        }
        const uint32_t t = rol(a, 5) + f + e + k + w[i];
        e = d;
        d = c;
        c = rol(b, 30);
        b = a;
        a = t;
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
}

void hashUpdate(HashObj& o, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        o.fnv = (o.fnv ^ p[i]) * 0x100000001B3ull;
        o.block[o.blockLen++] = p[i];
        if (o.blockLen == 64) {
            sha1Block(o.h, o.block);
            o.blockLen = 0;
        }
    }
    o.total += n;
}

void hashFinish(HashObj& o) {
    if (o.alg == CALG_SHA1) {
        const uint64_t bits = o.total * 8;
        const uint8_t one = 0x80, zero = 0;
        hashUpdate(o, &one, 1);
        while (o.blockLen != 56)
            hashUpdate(o, &zero, 1);
        uint8_t len[8];
        for (int i = 0; i < 8; ++i)
            len[i] = uint8_t(bits >> (56 - 8 * i));
        hashUpdate(o, len, 8);
        for (int i = 0; i < 20; ++i)
            o.digest[i] = uint8_t(o.h[i / 4] >> (24 - 8 * (i % 4)));
    } else {
        uint64_t x = o.fnv ^ o.alg;
        for (DWORD i = 0; i < o.size; ++i) {
            x += 0x9E3779B97F4A7C15ull;
            uint64_t z = x;
            z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
            o.digest[i] = uint8_t(z ^ (z >> 31));
        }
    }
    o.finished = true;
}

BOOL deliverText(const std::string& text, LPSTR out, DWORD* pcb) {
    const DWORD needed = static_cast<DWORD>(text.size() + 1);
    if (out == nullptr) {
        *pcb = needed;
        return TRUE;
    }
    if (*pcb < needed) {
        *pcb = needed;
        return fail(ERROR_MORE_DATA);
    }
    std::memcpy(out, text.c_str(), needed);
    *pcb = needed;
    return TRUE;
}

bool knows(const Prov& p, ALG_ID alg) {
    for (ALG_ID a : p.algs)
        if (a == alg)
            return true;
    return false;
}

HCRYPTPROV newContext(size_t prov) {
    const HCRYPTPROV h = st().nextHandle;
    st().nextHandle += 0x10;
    st().ctxs[h] = Ctx{prov, 1, 0};
    return h;
}

void dropRef(HCRYPTPROV h) {
    auto it = st().ctxs.find(h);
    if (it != st().ctxs.end() && --it->second.refs == 0)
        st().ctxs.erase(it);
}

// Runs a scripted step for an enumerator call, if one is pending; true if it answered.
bool scripted(DWORD which, DWORD index, DWORD* pcb, BOOL& result) {
    EnumLog& e = st().enums[which];
    e.calls.emplace_back(index, *pcb);
    if (e.next >= e.script.size())
        return false;
    const QVFAKE_ENUM_STEP step = e.script[e.next++];
    if (step.dwError == 0)
        return false;
    if (step.dwError == ERROR_MORE_DATA)
        *pcb = step.cbReported;
    result = fail(step.dwError);
    return true;
}

}  // namespace

extern "C" {

void qvfake_prov_set_providers(const QVFAKE_PROVIDER* providers, DWORD count) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    if (providers == nullptr) {
        st().provs = builtinProviders();
        return;
    }
    st().provs.clear();
    for (DWORD i = 0; i < count; ++i) {
        const QVFAKE_PROVIDER& p = providers[i];
        st().provs.push_back(Prov{p.name ? p.name : "", p.type, p.typeName ? p.typeName : "",
                                  std::vector<ALG_ID>(p.algs, p.algs + (p.algs ? p.cAlgs : 0))});
    }
}

void qvfake_prov_script_enum(DWORD which, const QVFAKE_ENUM_STEP* steps, DWORD count) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    if (which > 1)
        return;
    st().enums[which].script.assign(steps, steps + (steps ? count : 0));
    st().enums[which].next = 0;
}

DWORD qvfake_prov_enum_calls(DWORD which) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    return which > 1 ? 0 : static_cast<DWORD>(st().enums[which].calls.size());
}

BOOL qvfake_prov_enum_call(DWORD which, DWORD i, DWORD* pdwIndex, DWORD* pcbBuffer) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    if (which > 1 || i >= st().enums[which].calls.size())
        return FALSE;
    if (pdwIndex)
        *pdwIndex = st().enums[which].calls[i].first;
    if (pcbBuffer)
        *pcbBuffer = st().enums[which].calls[i].second;
    return TRUE;
}

void qvfake_prov_fail_releases(DWORD count, DWORD error) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    st().failReleases = count;
    st().failReleaseError = error;
}

void qvfake_prov_fail_next(const char* function, DWORD error) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    if (function)
        st().failNext[function] = error;
}

void qvfake_prov_set_default(BOOL enabled) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    st().defaultOn = enabled != FALSE;
}

DWORD qvfake_prov_context_refs(void) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    DWORD n = 0;
    for (const auto& c : st().ctxs)
        n += c.second.refs;
    return n;
}

DWORD qvfake_prov_live_hashes(void) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    return static_cast<DWORD>(st().hashes.size());
}

DWORD qvfake_prov_live_keys(void) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    return static_cast<DWORD>(st().keys.size());
}

DWORD qvfake_prov_calls(void) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    return st().calls;
}

DWORD qvfake_prov_calls_of(const char* function) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    auto it = st().callsOf.find(function ? function : "");
    return it == st().callsOf.end() ? 0 : it->second;
}

HCRYPTKEY qvfake_prov_make_key(void) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    const HCRYPTKEY h = st().nextHandle;
    st().nextHandle += 0x10;
    st().keys[h] = 1;
    return h;
}

BOOL CryptEnumProviderTypesA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                             LPSTR szTypeName, DWORD* pcbTypeName) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (pdwReserved != nullptr || pdwProvType == nullptr || pcbTypeName == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    BOOL result = FALSE;
    if (scripted(QVFAKE_ENUM_TYPES, dwIndex, pcbTypeName, result))
        return result;
    DWORD seen = 0;
    for (size_t i = 0; i < st().provs.size(); ++i) {
        bool first = true;
        for (size_t j = 0; j < i; ++j)
            if (st().provs[j].type == st().provs[i].type)
                first = false;
        if (!first)
            continue;
        if (seen++ == dwIndex) {
            *pdwProvType = st().provs[i].type;
            return deliverText(st().provs[i].typeName, szTypeName, pcbTypeName);
        }
    }
    return fail(ERROR_NO_MORE_ITEMS);
}

BOOL CryptEnumProvidersA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                         LPSTR szProvName, DWORD* pcbProvName) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (pdwReserved != nullptr || pdwProvType == nullptr || pcbProvName == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    BOOL result = FALSE;
    if (scripted(QVFAKE_ENUM_PROVIDERS, dwIndex, pcbProvName, result))
        return result;
    if (dwIndex >= st().provs.size())
        return fail(ERROR_NO_MORE_ITEMS);
    *pdwProvType = st().provs[dwIndex].type;
    return deliverText(st().provs[dwIndex].name, szProvName, pcbProvName);
}

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (phProv == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != CRYPT_VERIFYCONTEXT || (szContainer != nullptr && *szContainer != '\0'))
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    const bool named = szProvider != nullptr && *szProvider != '\0';
    bool nameSeen = false;
    for (size_t i = 0; i < st().provs.size(); ++i) {
        const Prov& p = st().provs[i];
        if (named) {
            if (p.name != szProvider)
                continue;
            nameSeen = true;
        }
        if (p.type == dwProvType) {
            *phProv = newContext(i);
            return TRUE;
        }
    }
    return fail(static_cast<DWORD>(nameSeen ? NTE_PROV_TYPE_NO_MATCH
                                   : (named ? NTE_KEYSET_NOT_DEF : NTE_PROV_TYPE_NOT_DEF)));
}

BOOL CryptContextAddRef(HCRYPTPROV hProv, DWORD* pdwReserved, DWORD dwFlags) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (pdwReserved != nullptr || dwFlags != 0)
        return fail(ERROR_INVALID_PARAMETER);
    auto it = st().ctxs.find(hProv);
    if (it == st().ctxs.end())
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    ++it->second.refs;
    return TRUE;
}

BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (st().failReleases > 0) {
        --st().failReleases;
        return fail(st().failReleaseError);
    }
    if (st().ctxs.find(hProv) == st().ctxs.end())
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    dropRef(hProv);
    return TRUE;
}

BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    auto it = st().ctxs.find(hProv);
    if (it == st().ctxs.end())
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    if (pdwDataLen == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    Ctx& c = it->second;
    const Prov& p = st().provs.at(c.prov);
    switch (dwParam) {
    case PP_NAME:
        return deliverText(p.name, reinterpret_cast<LPSTR>(pbData), pdwDataLen);
    case PP_ENUMALGS_EX: {
        if (pbData == nullptr) {
            *pdwDataLen = sizeof(PROV_ENUMALGS_EX);
            return TRUE;
        }
        if (*pdwDataLen < sizeof(PROV_ENUMALGS_EX)) {
            *pdwDataLen = sizeof(PROV_ENUMALGS_EX);
            return fail(ERROR_MORE_DATA);
        }
        if (dwFlags & CRYPT_FIRST)
            c.algCursor = 0;
        if (c.algCursor >= p.algs.size())
            return fail(ERROR_NO_MORE_ITEMS);
        PROV_ENUMALGS_EX rec{};
        rec.aiAlgid = p.algs[c.algCursor++];
        rec.dwDefaultLen = rec.dwMinLen = rec.dwMaxLen = digestSize(rec.aiAlgid) * 8;
        std::memcpy(pbData, &rec, sizeof rec);
        *pdwDataLen = sizeof rec;
        return TRUE;
    }
    default:
        return fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
}

BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags, HCRYPTHASH* phHash) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    DWORD scriptedError;
    if (takeFailure(__func__, scriptedError))
        return fail(scriptedError);
    auto it = st().ctxs.find(hProv);
    if (it == st().ctxs.end())
        return fail(static_cast<DWORD>(NTE_BAD_UID));
    if (phHash == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    if (hKey != 0)
        return fail(static_cast<DWORD>(NTE_BAD_KEY));
    if (!knows(st().provs.at(it->second.prov), Algid))
        return fail(static_cast<DWORD>(NTE_BAD_ALGID));
    HashObj o{};
    o.ctx = hProv;
    o.alg = Algid;
    o.size = digestSize(Algid);
    o.fnv = 0xCBF29CE484222325ull;
    o.h[0] = 0x67452301;
    o.h[1] = 0xEFCDAB89;
    o.h[2] = 0x98BADCFE;
    o.h[3] = 0x10325476;
    o.h[4] = 0xC3D2E1F0;
    ++it->second.refs;
    const HCRYPTHASH h = st().nextHandle;
    st().nextHandle += 0x10;
    st().hashes[h] = o;
    *phHash = h;
    return TRUE;
}

BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    DWORD scriptedError;
    if (takeFailure(__func__, scriptedError))
        return fail(scriptedError);
    auto it = st().hashes.find(hHash);
    if (it == st().hashes.end())
        return fail(static_cast<DWORD>(NTE_BAD_HASH));
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    if (pbData == nullptr && dwDataLen != 0)
        return fail(ERROR_INVALID_PARAMETER);
    if (it->second.finished)
        return fail(static_cast<DWORD>(NTE_BAD_HASH_STATE));
    hashUpdate(it->second, pbData, dwDataLen);
    return TRUE;
}

BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    DWORD scriptedError;
    if (takeFailure(__func__, scriptedError))
        return fail(scriptedError);
    auto it = st().hashes.find(hHash);
    if (it == st().hashes.end())
        return fail(static_cast<DWORD>(NTE_BAD_HASH));
    if (pdwDataLen == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    if (dwFlags != 0)
        return fail(static_cast<DWORD>(NTE_BAD_FLAGS));
    HashObj& o = it->second;
    DWORD value = 0, needed = sizeof(DWORD);
    switch (dwParam) {
    case HP_ALGID: value = o.alg; break;
    case HP_HASHSIZE: value = o.size; break;
    case HP_HASHVAL: needed = o.size; break;
    default: return fail(static_cast<DWORD>(NTE_BAD_TYPE));
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
        if (!o.finished)
            hashFinish(o);
        std::memcpy(pbData, o.digest, needed);
    } else {
        std::memcpy(pbData, &value, needed);
    }
    *pdwDataLen = needed;
    return TRUE;
}

BOOL CryptDestroyHash(HCRYPTHASH hHash) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    auto it = st().hashes.find(hHash);
    if (it == st().hashes.end())
        return fail(static_cast<DWORD>(NTE_BAD_HASH));
    const HCRYPTPROV ctx = it->second.ctx;
    st().hashes.erase(it);
    dropRef(ctx);
    return TRUE;
}

BOOL CryptDestroyKey(HCRYPTKEY hKey) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (st().keys.erase(hKey) == 0)
        return fail(static_cast<DWORD>(NTE_BAD_KEY));
    return TRUE;
}

HCRYPTPROV QVCAPI_I_CryptGetDefaultCryptProv(ALG_ID algId) {
    std::lock_guard<std::recursive_mutex> g(st().lock);
    count(__func__);
    if (!st().defaultOn) {
        SetLastError(static_cast<DWORD>(NTE_BAD_ALGID));
        return 0;
    }
    for (size_t i = 0; i < st().provs.size(); ++i)
        if (knows(st().provs[i], algId))
            return newContext(i);
    SetLastError(static_cast<DWORD>(NTE_BAD_ALGID));
    return 0;
}

}  // extern "C"
