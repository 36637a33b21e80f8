// Code-page conversions of the support library. Code page 0 and 65001 are UTF-8, the only
// multi-byte encoding this stack uses; wchar_t holds one code point (32 bits).
#include "qvcapi/support.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace {

constexpr DWORD kMbErrInvalidChars = 0x08;
constexpr DWORD kErrorNoUnicodeTranslation = 1113;
constexpr wchar_t kReplacement = 0xFFFD;

int failWith(DWORD error) {
    SetLastError(error);
    return 0;
}

bool utf8Page(UINT cp) { return cp == CP_ACP || cp == CP_UTF8; }

// Decodes one UTF-8 sequence at p (n bytes left); gives the code point, or -1 for an
// invalid sequence, and the bytes it takes (at least 1).
long decodeOne(const unsigned char* p, size_t n, size_t& used) {
    used = 1;
    const unsigned char c = p[0];
    if (c < 0x80)
        return c;
    size_t len;
    long cp;
    long min;
    if ((c & 0xE0) == 0xC0) {
        len = 2, cp = c & 0x1F, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
        len = 3, cp = c & 0x0F, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
        len = 4, cp = c & 0x07, min = 0x10000;
    } else {
        return -1;
    }
    for (size_t i = 1; i < len; ++i) {
        if (i >= n || (p[i] & 0xC0) != 0x80) {
            used = i;
            return -1;
        }
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    used = len;
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return -1;
    return cp;
}

size_t encodeOne(unsigned long cp, unsigned char out[4]) {
    if (cp >= 0xD800 && cp <= 0xDFFF)
        cp = kReplacement;
    if (cp > 0x10FFFF)
        cp = kReplacement;
    if (cp < 0x80) {
        out[0] = static_cast<unsigned char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<unsigned char>(0xC0 | (cp >> 6));
        out[1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<unsigned char>(0xE0 | (cp >> 12));
        out[1] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<unsigned char>(0xF0 | (cp >> 18));
    out[1] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    return 4;
}

}  // namespace

extern "C" int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                                   LPWSTR lpWideCharStr, int cchWideChar) {
    if (!utf8Page(CodePage) || lpMultiByteStr == nullptr || cbMultiByte == 0 || cbMultiByte < -1 ||
        cchWideChar < 0 || (cchWideChar > 0 && lpWideCharStr == nullptr) || (dwFlags & ~kMbErrInvalidChars))
        return failWith(ERROR_INVALID_PARAMETER);
    const size_t n = cbMultiByte == -1 ? std::strlen(lpMultiByteStr) + 1 : static_cast<size_t>(cbMultiByte);
    const auto* p = reinterpret_cast<const unsigned char*>(lpMultiByteStr);
    size_t out = 0;
    for (size_t i = 0; i < n;) {
        size_t used;
        long cp = decodeOne(p + i, n - i, used);
        if (cp < 0) {
            if (dwFlags & kMbErrInvalidChars)
                return failWith(kErrorNoUnicodeTranslation);
            cp = kReplacement;
        }
        if (cchWideChar != 0) {
            if (out >= static_cast<size_t>(cchWideChar))
                return failWith(ERROR_INSUFFICIENT_BUFFER);
            lpWideCharStr[out] = static_cast<wchar_t>(cp);
        }
        ++out;
        if (out > static_cast<size_t>(INT_MAX))
            return failWith(ERROR_INVALID_PARAMETER);
        i += used;
    }
    return static_cast<int>(out);
}

extern "C" int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                                   LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                                   BOOL* lpUsedDefaultChar) {
    if (!utf8Page(CodePage) || lpWideCharStr == nullptr || cchWideChar == 0 || cchWideChar < -1 ||
        cbMultiByte < 0 || (cbMultiByte > 0 && lpMultiByteStr == nullptr) || dwFlags != 0 ||
        lpDefaultChar != nullptr || lpUsedDefaultChar != nullptr)
        return failWith(ERROR_INVALID_PARAMETER);
    const size_t n = cchWideChar == -1 ? std::wcslen(lpWideCharStr) + 1 : static_cast<size_t>(cchWideChar);
    size_t out = 0;
    for (size_t i = 0; i < n; ++i) {
        unsigned char buf[4];
        const size_t len = encodeOne(static_cast<unsigned long>(static_cast<uint32_t>(lpWideCharStr[i])), buf);
        if (cbMultiByte != 0) {
            if (out + len > static_cast<size_t>(cbMultiByte))
                return failWith(ERROR_INSUFFICIENT_BUFFER);
            std::memcpy(lpMultiByteStr + out, buf, len);
        }
        out += len;
        if (out > static_cast<size_t>(INT_MAX))
            return failWith(ERROR_INVALID_PARAMETER);
    }
    return static_cast<int>(out);
}

// wcsrtombs that does not fail: a character the locale cannot spell becomes '?', and the
// output stops before a character that would not fit in len bytes.
extern "C" size_t safe_wcsrtombs(char* dst, const wchar_t** src, size_t len, mbstate_t* ps) {
    if (src == nullptr || *src == nullptr)
        return 0;
    mbstate_t local{};
    mbstate_t* state = ps ? ps : &local;
    const wchar_t* s = *src;
    size_t written = 0;
    for (;; ++s) {
        char buf[MB_LEN_MAX];
        size_t k = std::wcrtomb(buf, *s, state);
        if (k == static_cast<size_t>(-1)) {
            *state = mbstate_t{};
            buf[0] = '?';
            k = 1;
        }
        if (*s == L'\0') {
            if (dst != nullptr) {
                if (written < len)
                    dst[written] = '\0';
                *src = nullptr;
            }
            return written;
        }
        if (dst != nullptr) {
            if (written + k > len)
                break;
            std::memcpy(dst + written, buf, k);
        }
        written += k;
    }
    *src = s;
    return written;
}
