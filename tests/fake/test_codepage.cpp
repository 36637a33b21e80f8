// The support library's code-page conversions: code page 0 is UTF-8, the size protocol,
// invalid sequences, and the wcsrtombs that never fails.
#include "support/testsupport.h"

#include <cstring>
#include <string>

namespace {

TEST(CodePage, Utf8RoundTripAndSizes) {
    const char text[] = "h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80";  // e-acute, euro, an emoji
    const std::wstring wide = L"h\u00E9llo \u20AC \U0001F600";
    wchar_t w[10];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0), 10);  // nine characters and the terminator
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, w, 10), 10);
    EXPECT_EQ(std::wstring(w), wide);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 3, w, 10), 2);  // no terminator counted
    char n[16];
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr), 16);
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, n, 16, nullptr, nullptr), 16);
    EXPECT_STREQ(n, text);
    // Too small a buffer: 0 and 122. "a" and the euro sign fit into 4 bytes, the terminator not.
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, w, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"a\u20AC", -1, n, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(CodePage, InvalidSequencesAndArguments) {
    const char bad[] = {'a', '\xC3', 'b', '\xFF', '\xE2', '\x82', 0};  // cut and impossible sequences
    wchar_t out[8];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, bad, -1, out, 8), 6);
    EXPECT_EQ(std::wstring(out), std::wstring(L"a\uFFFDb\uFFFD\uFFFD"));
    // Refused under MB_ERR_INVALID_CHARS, so are overlong forms and encoded surrogates.
    for (const std::string& s : {std::string(bad), std::string("\xC0\xAF"), std::string("\xED\xA0\x80")}) {
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0x08, s.data(), static_cast<int>(s.size()), out, 8), 0);
        EXPECT_EQ(GetLastError(), 1113u);
    }
    // A lone surrogate or a value past U+10FFFF is written as U+FFFD.
    const wchar_t wbad[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), 0};
    char bytes[8];
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wbad, -1, bytes, 8, nullptr, nullptr), 7);
    EXPECT_STREQ(bytes, "\xEF\xBF\xBD\xEF\xBF\xBD");
    // Another code page, no source, a length of 0 or below -1, a default-char flag pointer.
    const std::tuple<UINT, const char*, int> rows[] = {{1252, "a", 1}, {CP_ACP, nullptr, 1}, {CP_ACP, "a", 0},
                                                       {CP_ACP, "a", -2}};
    for (const auto& r : rows) {
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(std::get<0>(r), 0, std::get<1>(r), std::get<2>(r), out, 4), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    BOOL used = FALSE;
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"a", -1, bytes, 4, nullptr, &used), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(CodePage, SafeWcsrtombsNeverFails) {
    // Under LC_ALL=C a character the locale cannot spell becomes '?'.
    const wchar_t path[] = L"/tmp/\u00E9t\u00E9.der";
    const wchar_t* src = path;
    char out[32];
    std::memset(out, 'X', sizeof out);
    EXPECT_EQ(safe_wcsrtombs(out, &src, sizeof out, nullptr), 12u);
    EXPECT_STREQ(out, "/tmp/?t?.der");
    EXPECT_EQ(src, nullptr);
    // At most len bytes: the rest stays where it was, and src points at it.
    src = path;
    std::memset(out, 'X', sizeof out);
    EXPECT_EQ(safe_wcsrtombs(out, &src, 4, nullptr), 4u);
    EXPECT_EQ(std::string(out, 5), "/tmpX");
    EXPECT_EQ(src, path + 4);
    // Without a destination it counts.
    src = path;
    EXPECT_EQ(safe_wcsrtombs(nullptr, &src, 0, nullptr), 12u);
    EXPECT_EQ(src, path);
}

}  // namespace
