// The support library's code-page conversions: code page 0 is UTF-8, the size protocol,
// invalid sequences, and the wcsrtombs that never fails.
#include "support/testsupport.h"

#include <cstring>
#include <string>

namespace {

TEST(CodePage, Utf8ToWide) {
    const char text[] = "h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80";  // e-acute, euro, an emoji
    const int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    ASSERT_EQ(n, 10);  // nine characters and the terminator
    wchar_t out[10];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, out, n), n);
    EXPECT_EQ(std::wstring(out), std::wstring(L"h\u00E9llo \u20AC \U0001F600"));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 3, out, 10), 2);  // no terminator counted
}

TEST(CodePage, WideToUtf8) {
    const wchar_t text[] = L"h\u00E9llo \u20AC \U0001F600";
    const int n = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    ASSERT_EQ(n, 16);
    char out[16];
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, text, -1, out, n, nullptr, nullptr), n);
    EXPECT_STREQ(out, "h\xC3\xA9llo \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(CodePage, TooSmallBufferGivesZeroAnd122) {
    wchar_t w[3];
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, w, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    char n[4];
    SetLastError(0);
    // The euro sign needs three bytes: "a" plus it fits in 4, the terminator does not.
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"a\u20AC", -1, n, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(CodePage, InvalidSequences) {
    const char bad[] = {'a', '\xC3', 'b', '\xFF', '\xE2', '\x82', 0};  // cut and impossible sequences
    wchar_t out[8];
    const int n = MultiByteToWideChar(CP_ACP, 0, bad, -1, out, 8);
    ASSERT_EQ(n, 6);
    EXPECT_EQ(std::wstring(out), std::wstring(L"a\uFFFDb\uFFFD\uFFFD"));
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0x08, bad, -1, out, 8), 0);
    EXPECT_EQ(GetLastError(), 1113u);
    // Overlong forms and encoded surrogates are not characters either.
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0x08, "\xC0\xAF", 2, out, 8), 0);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0x08, "\xED\xA0\x80", 3, out, 8), 0);
    // A lone surrogate or a value past U+10FFFF is written as U+FFFD.
    const wchar_t wbad[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), 0};
    char bytes[8];
    ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wbad, -1, bytes, 8, nullptr, nullptr), 7);
    EXPECT_STREQ(bytes, "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CodePage, BadArguments) {
    wchar_t w[4];
    const struct {
        UINT cp;
        const char* src;
        int cb;
    } rows[] = {{1252, "a", 1}, {CP_ACP, nullptr, 1}, {CP_ACP, "a", 0}, {CP_ACP, "a", -2}};
    for (const auto& r : rows) {
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(r.cp, 0, r.src, r.cb, w, 4), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    BOOL used = FALSE;
    char n[4];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"a", -1, n, 4, nullptr, &used), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(CodePage, SafeWcsrtombsNeverFails) {
    // Under LC_ALL=C a character the locale cannot spell becomes '?'.
    const wchar_t path[] = L"/tmp/\u00E9t\u00E9.der";
    const wchar_t* src = path;
    char out[32];
    std::memset(out, 'X', sizeof out);
    const size_t n = safe_wcsrtombs(out, &src, sizeof out, nullptr);
    EXPECT_EQ(n, 12u);
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
