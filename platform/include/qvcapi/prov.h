// Cryptographic service providers and hashing of the CryptoAPI layer, and the mapping of
// algorithm object identifiers to ALG_ID values.
#pragma once

#include "qvcapi/types.h"

// ALG_ID values of the hash algorithms the providers offer.
#define CALG_MD5 0x00008003u
#define CALG_SHA1 0x00008004u
#define CALG_SHA_256 0x0000800Cu
#define CALG_SHA_384 0x0000800Du
#define CALG_SHA_512 0x0000800Eu
#define CALG_GR3411 0x0000801Eu
#define CALG_GR3411_2012_256 0x00008021u
#define CALG_GR3411_2012_512 0x00008022u

// Provider types the stand-in knows.
#define PROV_RSA_FULL 1u
#define PROV_RSA_AES 24u
#define PROV_GOST_2001_DH 75u

#define CRYPT_VERIFYCONTEXT 0xF0000000u

// CryptGetProvParam parameters and flags.
#define PP_NAME 4u
#define PP_PROVTYPE 16u
#define PP_ENUMALGS_EX 22u
#define CRYPT_FIRST 1u
#define CRYPT_NEXT 2u

// CryptGetHashParam parameters.
#define HP_ALGID 1u
#define HP_HASHVAL 2u
#define HP_HASHSIZE 4u

#define NTE_BAD_KEY ((HRESULT)0x80090003u)
#define NTE_BAD_HASH_STATE ((HRESULT)0x8009000Cu)
#define NTE_PROV_TYPE_NO_MATCH ((HRESULT)0x8009001Bu)

typedef struct _PROV_ENUMALGS_EX {
    ALG_ID aiAlgid;
    DWORD dwDefaultLen;
    DWORD dwMinLen;
    DWORD dwMaxLen;
    DWORD dwProtocols;
    DWORD dwNameLen;
    CHAR szName[20];
    DWORD dwLongNameLen;
    CHAR szLongName[40];
} PROV_ENUMALGS_EX;

#ifdef __cplusplus
static_assert(sizeof(PROV_ENUMALGS_EX) == 88, "PROV_ENUMALGS_EX");
static_assert(sizeof(HCRYPTPROV) == sizeof(void*), "HCRYPTPROV is pointer-wide");
#endif

QVCAPI_BEGIN_C

QVCAPI_API BOOL CryptEnumProviderTypesA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags,
                                        DWORD* pdwProvType, LPSTR szTypeName, DWORD* pcbTypeName);
QVCAPI_API BOOL CryptEnumProvidersA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags,
                                    DWORD* pdwProvType, LPSTR szProvName, DWORD* pcbProvName);
QVCAPI_API BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                                     DWORD dwProvType, DWORD dwFlags);
QVCAPI_API BOOL CryptContextAddRef(HCRYPTPROV hProv, DWORD* pdwReserved, DWORD dwFlags);
QVCAPI_API BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags);
QVCAPI_API BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData,
                                  DWORD* pdwDataLen, DWORD dwFlags);
QVCAPI_API BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                                HCRYPTHASH* phHash);
QVCAPI_API BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags);
QVCAPI_API BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                  DWORD* pdwDataLen, DWORD dwFlags);
QVCAPI_API BOOL CryptDestroyHash(HCRYPTHASH hHash);
QVCAPI_API BOOL CryptDestroyKey(HCRYPTKEY hKey);

// The stack's cached default context for an algorithm: a context the caller owns
// (ends with CryptReleaseContext), or 0 when no provider offers the algorithm.
QVCAPI_API HCRYPTPROV QVCAPI_I_CryptGetDefaultCryptProv(ALG_ID algId);

// ALG_ID of a dotted algorithm identifier (hash or hash-with-signature), 0 if unknown.
QVCAPI_API ALG_ID CertOIDToAlgId(LPCSTR pszObjId);

QVCAPI_END_C
