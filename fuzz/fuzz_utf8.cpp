// UTF-8 validation and conversion in both directions, and the 32-bit string forms: no
// input may read or write out of bounds, and what validates converts consistently.
#include "asn1rt/charstr.h"
#include "asn1rt/context.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

namespace {

void check(bool ok) {
    if (!ok)
        abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096)
        return 0;
    std::vector<unsigned char> text(data, data + size);
    text.push_back(0);
    const size_t bytes = rtUTF8LenBytes(text.data());
    check(bytes <= size);

    const int len = rtUTF8Len(text.data());
    check(len == -26 || (len >= 0 && static_cast<size_t>(len) <= bytes));
    const int checked = rtUTF8ToWCS(nullptr, text.data(), nullptr, 0);
    check(checked == 0 || checked == -26);

    // Conversion into exactly as many places as there are octets, the most it can need.
    std::vector<wchar_t> wide(bytes);
    const int count = rtUTF8ToWCS(nullptr, text.data(), wide.data(), wide.size());
    check(count == -26 || count == -1 || (count >= 0 && static_cast<size_t>(count) <= bytes));
    check((count == -26) == (checked == -26));
    if (count >= 0 && len >= 0)
        check(count == len);
    if (count > 0) {
        // A shorter destination is refused, never overrun.
        // new[] of any size gives a real pointer, so even capacity 0 is bounds-checked.
        std::unique_ptr<wchar_t[]> shorter(new wchar_t[static_cast<size_t>(count) - 1]);
        check(rtUTF8ToWCS(nullptr, text.data(), shorter.get(), static_cast<size_t>(count) - 1) == -1);

        // Back to UTF-8 with the one spare octet a multi-octet character asks for.
        size_t need = 1;
        for (int i = 0; i < count; ++i)
            need += static_cast<size_t>(rtUTF8CharSize(static_cast<ASN1UINT>(wide[static_cast<size_t>(i)])));
        std::vector<unsigned char> utf8(need);
        const int n = rtWCSToUTF8(nullptr, wide.data(), static_cast<size_t>(count), utf8.data(), utf8.size());
        check(n >= 0 && static_cast<size_t>(n) < need);
        // The re-encoded text is canonical and decodes to the same characters.
        utf8.resize(static_cast<size_t>(n));
        utf8.push_back(0);
        if (memchr(utf8.data(), 0, static_cast<size_t>(n)) == nullptr) {
            std::vector<wchar_t> again(static_cast<size_t>(count));
            check(rtUTF8ToWCS(nullptr, utf8.data(), again.data(), again.size()) == count);
            check(again == std::vector<wchar_t>(wide.begin(), wide.begin() + count));
            check(rtUTF8Len(utf8.data()) == count);
        }
        // One octet short of what was written is refused.
        std::unique_ptr<unsigned char[]> tight(new unsigned char[static_cast<size_t>(n) - 1]);
        check(rtWCSToUTF8(nullptr, wide.data(), static_cast<size_t>(count), tight.get(), static_cast<size_t>(n) - 1) == -1);
    }

    // One character at a time, within the octets that remain.
    for (size_t pos = 0; pos < size;) {
        int avail = static_cast<int>(size - pos);
        const int c = rtUTF8DecodeChar(nullptr, data + pos, &avail);
        if (c < 0) {
            ++pos;
            continue;
        }
        check(avail >= 1 && static_cast<size_t>(avail) <= size - pos);
        unsigned char enc[6];
        const int e = rtUTF8EncodeChar(static_cast<ASN1UINT>(c), enc, sizeof enc);
        check(e == rtUTF8CharSize(static_cast<ASN1UINT>(c)));
        int back = e;
        check(rtUTF8DecodeChar(nullptr, enc, &back) == c && back == e);
        pos += static_cast<size_t>(avail);
    }

    // The input as 32-bit characters: to UTF-8, and through the 32-bit string forms.
    const size_t nwide = size / sizeof(wchar_t);
    std::vector<wchar_t> chars(nwide + 1, 0);
    if (nwide > 0)
        memcpy(chars.data(), data, nwide * sizeof(wchar_t));
    std::vector<unsigned char> out(nwide * 6 + 1);
    const int w = rtWCSToUTF8(nullptr, chars.data(), nwide, out.data(), out.size());
    check(w == -26 || (w >= 0 && static_cast<size_t>(w) < out.size()));
    const size_t smallCapacity = size % 7;
    std::unique_ptr<unsigned char[]> small(new unsigned char[smallCapacity]);
    const int ws = rtWCSToUTF8(nullptr, chars.data(), nwide, small.get(), smallCapacity);
    check(ws == -26 || ws == -1 || (ws >= 0 && static_cast<size_t>(ws) <= smallCapacity));

    ASN1CTXT ctxt;
    check(rtInitContext(&ctxt, nullptr) == 0);
    Asn132BitCharString ucs{0, nullptr};
    check(rtWCSToUCSString(&ctxt, chars.data(), &ucs, nullptr) == &ucs);
    for (ASN1UINT i = 0; i < ucs.nchars; ++i)
        check(ucs.data[i] <= 0xFFFF);
    std::vector<wchar_t> back(ucs.nchars + 1);
    rtUCSToWCSString(&ucs, back.data(), back.size());
    check(back[ucs.nchars] == 0);
    const size_t cutCapacity = size % 5;
    std::unique_ptr<wchar_t[]> cut(new wchar_t[cutCapacity]);
    rtUCSToWCSString(&ucs, cut.get(), cutCapacity);
    Asn132BitCharString narrow{0, nullptr};
    const Asn132BitCharSet printable{0, nullptr, 0x20, 0x7e};
    check(rtCToUCSString(&ctxt, reinterpret_cast<const char*>(text.data()), &narrow, &printable) == &narrow);
    check(narrow.nchars <= bytes);
    Asn132BitCharString copy{};
    check(rtCopy32BitCharStr(&ctxt, &narrow, &copy) == 1 && copy.nchars == narrow.nchars);
    unsigned char* dup = rtUTF8Strdup(&ctxt, text.data());
    check(dup != nullptr && strcmp(reinterpret_cast<char*>(dup), reinterpret_cast<char*>(text.data())) == 0);
    rtFreeContext(&ctxt);
    return 0;
}
