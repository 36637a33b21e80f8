// Published certificate and chain records of the CryptoAPI, and the functions
// of the stack's CryptoAPI layer that work on them.
#pragma once

#include "qvcapi/types.h"

typedef struct _CRYPTOAPI_BLOB {
    DWORD cbData;
    BYTE* pbData;
} CRYPT_INTEGER_BLOB, *PCRYPT_INTEGER_BLOB, CRYPT_UINT_BLOB, *PCRYPT_UINT_BLOB,
    CRYPT_OBJID_BLOB, *PCRYPT_OBJID_BLOB, CERT_NAME_BLOB, *PCERT_NAME_BLOB,
    CERT_RDN_VALUE_BLOB, *PCERT_RDN_VALUE_BLOB, CERT_BLOB, *PCERT_BLOB, CRL_BLOB, *PCRL_BLOB,
    DATA_BLOB, *PDATA_BLOB, CRYPT_DATA_BLOB, *PCRYPT_DATA_BLOB, CRYPT_HASH_BLOB,
    *PCRYPT_HASH_BLOB, CRYPT_DIGEST_BLOB, *PCRYPT_DIGEST_BLOB, CRYPT_DER_BLOB, *PCRYPT_DER_BLOB,
    CRYPT_ATTR_BLOB, *PCRYPT_ATTR_BLOB;

typedef struct _CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
} CRYPT_BIT_BLOB, *PCRYPT_BIT_BLOB;

typedef struct _CRYPT_ALGORITHM_IDENTIFIER {
    LPSTR pszObjId;
    CRYPT_OBJID_BLOB Parameters;
} CRYPT_ALGORITHM_IDENTIFIER, *PCRYPT_ALGORITHM_IDENTIFIER;

typedef struct _CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
} CERT_PUBLIC_KEY_INFO, *PCERT_PUBLIC_KEY_INFO;

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _CERT_EXTENSION {
    LPSTR pszObjId;
    BOOL fCritical;
    CRYPT_OBJID_BLOB Value;
} CERT_EXTENSION, *PCERT_EXTENSION;
typedef const CERT_EXTENSION* PCCERT_EXTENSION;

typedef struct _CERT_INFO {
    DWORD dwVersion;
    CRYPT_INTEGER_BLOB SerialNumber;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    CRYPT_BIT_BLOB IssuerUniqueId;
    CRYPT_BIT_BLOB SubjectUniqueId;
    DWORD cExtension;
    PCERT_EXTENSION rgExtension;
} CERT_INFO, *PCERT_INFO;

typedef struct _CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    PCERT_INFO pCertInfo;
    HCERTSTORE hCertStore;
} CERT_CONTEXT, *PCERT_CONTEXT;
typedef const CERT_CONTEXT* PCCERT_CONTEXT;

typedef struct _CERT_TRUST_STATUS {
    DWORD dwErrorStatus;
    DWORD dwInfoStatus;
} CERT_TRUST_STATUS, *PCERT_TRUST_STATUS;

typedef struct _CTL_USAGE {
    DWORD cUsageIdentifier;
    LPSTR* rgpszUsageIdentifier;
} CTL_USAGE, *PCTL_USAGE, CERT_ENHKEY_USAGE, *PCERT_ENHKEY_USAGE;
typedef const CERT_ENHKEY_USAGE* PCCERT_ENHKEY_USAGE;

typedef struct _CERT_REVOCATION_INFO CERT_REVOCATION_INFO, *PCERT_REVOCATION_INFO;
typedef struct _CERT_TRUST_LIST_INFO CERT_TRUST_LIST_INFO, *PCERT_TRUST_LIST_INFO;

typedef struct _CERT_CHAIN_ELEMENT {
    DWORD cbSize;
    PCCERT_CONTEXT pCertContext;
    CERT_TRUST_STATUS TrustStatus;
    PCERT_REVOCATION_INFO pRevocationInfo;
    PCERT_ENHKEY_USAGE pIssuanceUsage;
    PCERT_ENHKEY_USAGE pApplicationUsage;
    LPCWSTR pwszExtendedErrorInfo;
} CERT_CHAIN_ELEMENT, *PCERT_CHAIN_ELEMENT;
typedef const CERT_CHAIN_ELEMENT* PCCERT_CHAIN_ELEMENT;

typedef struct _CERT_SIMPLE_CHAIN {
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cElement;
    PCERT_CHAIN_ELEMENT* rgpElement;
    PCERT_TRUST_LIST_INFO pTrustListInfo;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
} CERT_SIMPLE_CHAIN, *PCERT_SIMPLE_CHAIN;
typedef const CERT_SIMPLE_CHAIN* PCCERT_SIMPLE_CHAIN;

typedef struct _GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} GUID;

typedef struct _CERT_CHAIN_CONTEXT CERT_CHAIN_CONTEXT, *PCERT_CHAIN_CONTEXT;
typedef const CERT_CHAIN_CONTEXT* PCCERT_CHAIN_CONTEXT;

struct _CERT_CHAIN_CONTEXT {
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cChain;
    PCERT_SIMPLE_CHAIN* rgpChain;
    DWORD cLowerQualityChainContext;
    PCCERT_CHAIN_CONTEXT* rgpLowerQualityChainContext;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
    DWORD dwCreateFlags;
    GUID ChainId;
};

typedef struct _CERT_CHAIN_POLICY_PARA {
    DWORD cbSize;
    DWORD dwFlags;
    void* pvExtraPolicyPara;
} CERT_CHAIN_POLICY_PARA, *PCERT_CHAIN_POLICY_PARA;

typedef struct _CERT_CHAIN_POLICY_STATUS {
    DWORD cbSize;
    DWORD dwError;
    LONG lChainIndex;
    LONG lElementIndex;
    void* pvExtraPolicyStatus;
} CERT_CHAIN_POLICY_STATUS, *PCERT_CHAIN_POLICY_STATUS;

typedef struct _CERT_BASIC_CONSTRAINTS2_INFO {
    BOOL fCA;
    BOOL fPathLenConstraint;
    DWORD dwPathLenConstraint;
} CERT_BASIC_CONSTRAINTS2_INFO, *PCERT_BASIC_CONSTRAINTS2_INFO;

#ifdef __cplusplus
#define QVCAPI_STATIC_ASSERT static_assert
#else
#define QVCAPI_STATIC_ASSERT _Static_assert
#endif

#if UINTPTR_MAX == 0xFFFFFFFFu
QVCAPI_STATIC_ASSERT(sizeof(CERT_CHAIN_POLICY_PARA) == 12, "CERT_CHAIN_POLICY_PARA");
QVCAPI_STATIC_ASSERT(sizeof(CERT_CHAIN_POLICY_STATUS) == 20, "CERT_CHAIN_POLICY_STATUS");
QVCAPI_STATIC_ASSERT(sizeof(CRYPT_ALGORITHM_IDENTIFIER) == 12, "CRYPT_ALGORITHM_IDENTIFIER");
QVCAPI_STATIC_ASSERT(sizeof(CRYPT_INTEGER_BLOB) == 8, "CRYPTOAPI_BLOB");
QVCAPI_STATIC_ASSERT(sizeof(CERT_EXTENSION) == 16, "CERT_EXTENSION");
#else
QVCAPI_STATIC_ASSERT(sizeof(CERT_CHAIN_POLICY_PARA) == 16, "CERT_CHAIN_POLICY_PARA");
QVCAPI_STATIC_ASSERT(sizeof(CERT_CHAIN_POLICY_STATUS) == 24, "CERT_CHAIN_POLICY_STATUS");
QVCAPI_STATIC_ASSERT(sizeof(CRYPT_ALGORITHM_IDENTIFIER) == 24, "CRYPT_ALGORITHM_IDENTIFIER");
QVCAPI_STATIC_ASSERT(sizeof(CRYPT_INTEGER_BLOB) == 16, "CRYPTOAPI_BLOB");
QVCAPI_STATIC_ASSERT(sizeof(CERT_EXTENSION) == 32, "CERT_EXTENSION");
#endif
QVCAPI_STATIC_ASSERT(sizeof(CERT_BASIC_CONSTRAINTS2_INFO) == 12, "CERT_BASIC_CONSTRAINTS2_INFO");
QVCAPI_STATIC_ASSERT(sizeof(FILETIME) == 8, "FILETIME");

// Encoding types and structure types.
#define X509_ASN_ENCODING 0x00000001u
#define PKCS_7_ASN_ENCODING 0x00010000u
#define X509_MULTI_BYTE_INTEGER ((LPCSTR)(uintptr_t)28)
#define CRYPT_DECODE_NOCOPY_FLAG 0x1u

#define szOID_BASIC_CONSTRAINTS "2.5.29.10"
#define szOID_BASIC_CONSTRAINTS2 "2.5.29.19"
#define szOID_KEY_USAGE "2.5.29.15"
#define szOID_PRIVATEKEY_USAGE_PERIOD "2.5.29.16"
#define szOID_ENHANCED_KEY_USAGE "2.5.29.37"
#define szOID_ANY_ENHANCED_KEY_USAGE "2.5.29.37.0"
#define szOID_PKIX_KP_TIMESTAMP_SIGNING "1.3.6.1.5.5.7.3.8"
#define szOID_PKIX_KP_OCSP_SIGNING "1.3.6.1.5.5.7.3.9"
#define szOID_PKIX_OCSP_NOCHECK "1.3.6.1.5.5.7.48.1.5"

// Trust status bits.
#define CERT_TRUST_NO_ERROR 0x00000000u
#define CERT_TRUST_IS_PARTIAL_CHAIN 0x00010000u
#define CERT_TRUST_IS_SELF_SIGNED 0x00000008u

// Chain policy identifiers and flags.
#define CERT_CHAIN_POLICY_BASE ((LPCSTR)(uintptr_t)1)
#define CERT_CHAIN_POLICY_BASIC_CONSTRAINTS ((LPCSTR)(uintptr_t)5)
#define BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG 0x80000000u
#define BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_END_ENTITY_FLAG 0x40000000u

typedef BOOL (*PFN_CERT_DLL_VERIFY_CERTIFICATE_CHAIN_POLICY)(LPCSTR pszPolicyOID,
                                                             PCCERT_CHAIN_CONTEXT pChainContext,
                                                             PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                             PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

QVCAPI_BEGIN_C

QVCAPI_API PCERT_EXTENSION CertFindExtension(LPCSTR pszObjId, DWORD cExtensions,
                                             CERT_EXTENSION rgExtensions[]);

QVCAPI_API BOOL CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                  const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                                  void* pvStructInfo, DWORD* pcbStructInfo);

QVCAPI_API BOOL CryptEncodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                  const void* pvStructInfo, BYTE* pbEncoded, DWORD* pcbEncoded);

QVCAPI_API PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                       const BYTE* pbCertEncoded,
                                                       DWORD cbCertEncoded);
QVCAPI_API BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);

// The stand-in's own helpers (not published names): a certificate from a DER or PEM
// file, and a chain of one simple chain over certificates given end first.
QVCAPI_API PCCERT_CONTEXT QVCertLoadFile(const char* path);
QVCAPI_API PCCERT_CHAIN_CONTEXT QVCertBuildChain(const PCCERT_CONTEXT* rgCert, DWORD cCert);
QVCAPI_API void QVCertFreeChain(PCCERT_CHAIN_CONTEXT pChain);

QVCAPI_END_C
