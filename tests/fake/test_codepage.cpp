// Code-page conversions: code page 0 is UTF-8, sizes, bad sequences, safe_wcsrtombs.
#include "support/testsupport.h"

#include <cstring>
#include <string>

namespace {

// The result and the last error it left.
template <class F>
std::pair<int, DWORD> call(F f) {
    SetLastError(0);
    const int n = f();
    return {n, GetLastError()};
}

TEST(CodePage, Utf8RoundTripSizesAndFailures) {
    const char text[] = "h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80";  // e-acute, euro, an emoji
    const std::wstring wide = L"h\u00E9llo \u20AC \U0001F600";
    wchar_t w[10];
    char n[16];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0), 10);  // nine characters and the terminator
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, w, 10), 10);
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr), 16);
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, n, 16, nullptr, nullptr), 16);
    EXPECT_EQ(std::make_tuple(std::wstring(w), std::string(n)), std::make_tuple(wide, text));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 3, w, 10), 2);  // no terminator counted
    // Cut and impossible sequences become U+FFFD, a lone surrogate or a value past U+10FFFF too.
    const char bad[] = {'a', '\xC3', 'b', '\xFF', '\xE2', '\x82', 0};
    const wchar_t wbad[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), 0};
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, bad, -1, w, 8), 6);
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wbad, -1, n, 8, nullptr, nullptr), 7);
    EXPECT_EQ(std::make_tuple(std::wstring(w), std::string(n)),
              std::make_tuple(L"a\uFFFDb\uFFFD\uFFFD", "\xEF\xBF\xBD\xEF\xBF\xBD"));
    // Too small a buffer ("a" and the euro sign fit into 4 bytes, the terminator not): 122.
    // Under MB_ERR_INVALID_CHARS the cut sequences, overlong forms and encoded surrogates:
    // 1113. Another code page, no source, a length of 0 or below -1, a default-char flag: 87.
    BOOL used = FALSE;
    const std::pair<int, DWORD> small(0, 122), refused(0, 1113), invalid(0, 87);
    EXPECT_EQ((std::vector<std::pair<int, DWORD>>{
                  call([&] { return MultiByteToWideChar(CP_ACP, 0, "abcd", -1, w, 3); }),
                  call([&] { return WideCharToMultiByte(CP_ACP, 0, L"a\u20AC", -1, n, 4, nullptr, nullptr); }),
                  call([&] { return MultiByteToWideChar(CP_ACP, 0x08, bad, 6, w, 8); }),
                  call([&] { return MultiByteToWideChar(CP_ACP, 0x08, "\xC0\xAF", 2, w, 8); }),
                  call([&] { return MultiByteToWideChar(CP_ACP, 0x08, "\xED\xA0\x80", 3, w, 8); }),
                  call([&] { return MultiByteToWideChar(1252, 0, "a", 1, w, 4); }),
                  call([&] { return MultiByteToWideChar(CP_ACP, 0, nullptr, 1, w, 4); }),
                  call([&] { return MultiByteToWideChar(CP_ACP, 0, "a", 0, w, 4); }),
                  call([&] { return MultiByteToWideChar(CP_ACP, 0, "a", -2, w, 4); }),
                  call([&] { return WideCharToMultiByte(CP_ACP, 0, L"a", -1, n, 4, nullptr, &used); })}),
              (std::vector<std::pair<int, DWORD>>{small, small, refused, refused, refused, invalid, invalid, invalid,
                                                  invalid, invalid}));
}

// Under LC_ALL=C a character the locale cannot spell becomes '?'. At most len bytes: the
// rest stays where it was, and src points at it. Without a destination it counts.
TEST(CodePage, SafeWcsrtombsNeverFails) {
    const wchar_t path[] = L"/tmp/\u00E9t\u00E9.der";
    for (const auto& [len, written, text, rest] : {std::make_tuple(size_t(32), size_t(12), "/tmp/?t?.der", -1),
                                                   std::make_tuple(size_t(4), size_t(4), "/tmpX", 4),
                                                   std::make_tuple(size_t(0), size_t(12), "", 0)}) {
        const wchar_t* src = path;
        char out[32];
        std::memset(out, 'X', sizeof out);
        EXPECT_EQ(safe_wcsrtombs(len ? out : nullptr, &src, len, nullptr), written) << len;
        EXPECT_EQ(std::make_pair(std::string(out, std::strlen(text)), src),
                  std::make_pair(std::string(text), rest < 0 ? nullptr : path + rest));
    }
}

}  // namespace
