// CryptEncodeObject for the one structure the library asks for: X509_MULTI_BYTE_INTEGER.
#include "decode_common.h"

#include <vector>

extern "C" BOOL CryptEncodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                  const void* pvStructInfo, BYTE* pbEncoded, DWORD* pcbEncoded) {
    if ((dwCertEncodingType & X509_ASN_ENCODING) == 0 || pvStructInfo == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (lpszStructType != X509_MULTI_BYTE_INTEGER) {
        SetLastError(static_cast<DWORD>(CRYPT_E_OID_FORMAT));
        return FALSE;
    }
    const auto* blob = static_cast<const CRYPT_INTEGER_BLOB*>(pvStructInfo);
    // Little-endian two's complement in, minimal big-endian INTEGER out.
    std::vector<BYTE> be(blob->pbData, blob->pbData + blob->cbData);
    std::vector<BYTE> content(be.rbegin(), be.rend());
    if (content.empty())
        content.push_back(0);
    size_t skip = 0;
    while (skip + 1 < content.size() &&
           ((content[skip] == 0x00 && !(content[skip + 1] & 0x80)) ||
            (content[skip] == 0xFF && (content[skip + 1] & 0x80))))
        ++skip;
    content.erase(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(skip));
    std::vector<BYTE> out{0x02};
    size_t n = content.size();
    if (n < 0x80) {
        out.push_back(static_cast<BYTE>(n));
    } else {
        BYTE lenBytes[4];
        int k = 0;
        for (size_t v = n; v; v >>= 8)
            lenBytes[k++] = static_cast<BYTE>(v);
        out.push_back(static_cast<BYTE>(0x80 | k));
        while (k)
            out.push_back(lenBytes[--k]);
    }
    out.insert(out.end(), content.begin(), content.end());
    return qvplat::deliver(out.data(), static_cast<DWORD>(out.size()), pbEncoded, pcbEncoded);
}
