// The chain-policy callbacks of libchainvet and the library's own extra records that
// travel through pvExtraPolicyPara and pvExtraPolicyStatus. Record layouts are ABI.
#pragma once

#include "core/export.h"
#include "qvcapi.h"

// Policy identifiers, the first argument of a policy callback.
#define QVCERT_CHAIN_POLICY_SIGNATURE "{B52FF66F-13A5-402C-B958-A3A6B5300FB6}"
#define QVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD "{C03D5610-26C8-4B6F-9549-245B5B3AB743}"

// Failure bits this library sets in an extra status' dwError.
#define QVCERT_CHAIN_POLICY_ERR_CERT_ID 0x10u
#define QVCERT_CHAIN_POLICY_ERR_KEY_USAGE 0x20u
#define QVCERT_CHAIN_POLICY_ERR_OCSP_EKU 0x40u

typedef struct _QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA {
    DWORD cbSize;
    void* pvUsagePeriodArg;
} QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA,
    *PQVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA;

typedef struct _QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS {
    DWORD cbSize;
    DWORD dwError;
    LONG lChainIndex;
    LONG lElementIndex;
} QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS,
    *PQVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS;

typedef struct _QVOCSP_CERT_ID {
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
    CRYPT_HASH_BLOB IssuerNameHash;
    CRYPT_HASH_BLOB IssuerKeyHash;
    CRYPT_INTEGER_BLOB SerialNumber;
} QVOCSP_CERT_ID, *PQVOCSP_CERT_ID;

typedef BOOL (*PFN_QVOCSP_ANY_CERT_AUTHORIZED)(PCCERT_CONTEXT pCertContext);

typedef struct _QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA {
    DWORD cbSize;
    void* pvUsagePeriodArg;
    DWORD cCertId;
    PQVOCSP_CERT_ID rgCertId;
    PFN_QVOCSP_ANY_CERT_AUTHORIZED pfnAnyCertAuthorized;
} QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA, *PQVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA;

typedef struct _QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS {
    DWORD cbSize;
    DWORD dwError;
    LONG lChainIndex;
    LONG lElementIndex;
    DWORD fOcspNoCheck;
    DWORD* rgdwCertIdChecked;
} QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS, *PQVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS;

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA) == 8, "usage para");
static_assert(sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA) == 20, "ocsp para");
static_assert(sizeof(QVOCSP_CERT_ID) == 36, "ocsp cert id");
static_assert(sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS) == 24, "ocsp status");
#else
static_assert(sizeof(QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA) == 16, "usage para");
static_assert(sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA) == 40, "ocsp para");
static_assert(sizeof(QVOCSP_CERT_ID) == 72, "ocsp cert id");
static_assert(sizeof(QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS) == 32, "ocsp status");
#endif
static_assert(sizeof(QVPRIVATEKEY_USAGE_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS) == 16, "usage status");

// The basic-constraints callback is exported under its C++ (signature-encoded) name;
// its implementation under the bare one.
CHAINVET_API BOOL CertDllVerifyBasicConstraintsCertificateChainPolicy(
    LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
    PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

extern "C" {
CHAINVET_API void BasicConstraintsImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                       PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                       PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
}

// The signature callback is exported under its bare name.
extern "C" {
CHAINVET_API BOOL CertDllVerifySignatureCertificateChainPolicy(LPCSTR pszPolicyOID,
                                                               PCCERT_CHAIN_CONTEXT pChainContext,
                                                               PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                               PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
CHAINVET_API void SignatureImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
}

// Timestamp-signing flags: the low 16 bits go on to the signature policy; these two relax
// the usage check; every other bit is refused.
#define QVTIMESTAMP_SIGNING_NO_CERT_USAGE_ANY_FLAG 0x00020000u
#define QVTIMESTAMP_SIGNING_NO_CHAIN_USAGE_ANY_FLAG 0x00040000u
#define QVTIMESTAMP_SIGNING_UNKNOWN_FLAGS 0xFFF90000u

// The timestamp-signing callback is exported under its C++ (signature-encoded) name.
CHAINVET_API BOOL CertDllVerifyTimestampSigningCertificateChainPolicy(
    LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
    PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

extern "C" {
CHAINVET_API void TimestampSigningImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                       PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                       PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
}

// OCSP-signing flags: only the low 16 bits exist; they go on to the signature policy.
#define QVOCSP_SIGNING_UNKNOWN_FLAGS 0xFFFF0000u

// The OCSP-signing callback is exported under its C++ (signature-encoded) name.
CHAINVET_API BOOL CertDllVerifyOCSPSigningCertificateChainPolicy(
    LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
    PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

extern "C" {
CHAINVET_API void OCSPSigningImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                  PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                  PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
}
