// Base types of the CryptoAPI surface, as the published headers spell them.
// DWORD/LONG/BOOL/ALG_ID are 32 bits on both builds; handles are pointer-wide.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define QVCAPI_EXTERN_C extern "C"
#define QVCAPI_BEGIN_C extern "C" {
#define QVCAPI_END_C }
#else
#define QVCAPI_EXTERN_C
#define QVCAPI_BEGIN_C
#define QVCAPI_END_C
#endif

#define QVCAPI_API __attribute__((visibility("default")))

typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int32_t BOOL;
typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef int32_t HRESULT;
typedef uint32_t ALG_ID;
typedef uintptr_t ULONG_PTR;
typedef char CHAR;
typedef wchar_t WCHAR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef wchar_t* LPWSTR;
typedef const wchar_t* LPCWSTR;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* HANDLE;
typedef unsigned int UINT;

// Provider, key and hash handles: pointer-wide, spelled unsigned long long on 64-bit and
// unsigned long on 32-bit, as the stack's callers declare them.
#if UINTPTR_MAX > 0xFFFFFFFFu
typedef unsigned long long HCRYPTPROV;
typedef unsigned long long HCRYPTKEY;
typedef unsigned long long HCRYPTHASH;
#else
typedef unsigned long HCRYPTPROV;
typedef unsigned long HCRYPTKEY;
typedef unsigned long HCRYPTHASH;
#endif
typedef void* HCERTSTORE;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Win32 errors and HRESULTs the stack uses.
#define ERROR_SUCCESS 0u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_INVALID_DATA 13u
#define ERROR_OUTOFMEMORY 14u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_INSUFFICIENT_BUFFER 122u
#define ERROR_MORE_DATA 234u
#define ERROR_NO_MORE_ITEMS 259u

#define S_OK ((HRESULT)0)
#define E_NOTIMPL ((HRESULT)0x80004001u)
#define E_FAIL ((HRESULT)0x80004005u)
#define E_OUTOFMEMORY ((HRESULT)0x8007000Eu)
#define E_INVALIDARG ((HRESULT)0x80070057u)
#define NTE_BAD_ALGID ((HRESULT)0x80090008u)
#define NTE_BAD_HASH ((HRESULT)0x80090002u)
#define NTE_BAD_UID ((HRESULT)0x80090001u)
#define NTE_BAD_FLAGS ((HRESULT)0x80090009u)
#define NTE_BAD_TYPE ((HRESULT)0x8009000Au)
#define NTE_BAD_KEYSET ((HRESULT)0x80090016u)
#define NTE_PROV_TYPE_NOT_DEF ((HRESULT)0x80090017u)
#define NTE_KEYSET_NOT_DEF ((HRESULT)0x80090019u)
#define CRYPT_E_NOT_FOUND ((HRESULT)0x80092004u)
#define CRYPT_E_ASN1_ERROR ((HRESULT)0x80093100u)
#define CRYPT_E_ASN1_INTERNAL ((HRESULT)0x80093101u)
#define CRYPT_E_ASN1_EOD ((HRESULT)0x80093102u)
#define CRYPT_E_ASN1_CORRUPT ((HRESULT)0x80093103u)
#define CRYPT_E_ASN1_LARGE ((HRESULT)0x80093104u)
#define CRYPT_E_ASN1_MEMORY ((HRESULT)0x80093106u)
#define CRYPT_E_ASN1_BADTAG ((HRESULT)0x8009310Bu)
#define CRYPT_E_BAD_ENCODE ((HRESULT)0x80092002u)
#define CRYPT_E_OID_FORMAT ((HRESULT)0x80091003u)
#define TRUST_E_BASIC_CONSTRAINTS ((HRESULT)0x80096019u)
#define CERT_E_WRONG_USAGE ((HRESULT)0x800B0110u)
#define CERT_E_EXPIRED ((HRESULT)0x800B0101u)
