// The CryptoAPI size protocol of CryptDecodeObject/CryptEncodeObject.
#pragma once

#include "qvcapi/support.h"

#include <cstring>

namespace qvplat {

// null output: report the size; short buffer: FALSE, 234 and the size needed; else copy.
inline BOOL deliver(const void* src, DWORD need, void* out, DWORD* pcb) {
    if (pcb == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (out == nullptr) {
        *pcb = need;
        return TRUE;
    }
    if (*pcb < need) {
        *pcb = need;
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    std::memcpy(out, src, need);
    *pcb = need;
    return TRUE;
}

inline bool isStructType(LPCSTR type, const char* oid) {
    return reinterpret_cast<uintptr_t>(type) > 0xFFFF && std::strcmp(type, oid) == 0;
}

}  // namespace qvplat
