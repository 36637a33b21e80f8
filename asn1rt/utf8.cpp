// UTF-8 of the runtime. Sequences of up to six octets are read and written, and code
// points are taken as they come: overlong forms and surrogates pass, and a text that ends
// inside a sequence yields what was read of it.
#include "asn1rt/charstr.h"

#include <string.h>

namespace {

const ASN1UINT kSizeMasks[4] = {0xfffff800u, 0xffff0000u, 0xffe00000u, 0xfc000000u};
// First octets of sequences of 2 to 6 octets, indexed by the size.
const ASN1OCTET kLeadOctets[7] = {0, 0, 0xc0, 0xe0, 0xf0, 0xf8, 0xfc};

// Following octets announced by a first octet of 0x80 or above, or -1 for none of the
// patterns (a following octet, 0xfe or 0xff).
int followingOctets(ASN1OCTET lead) {
    if ((lead & 0xe0) == 0xc0)
        return 1;
    if ((lead & 0xf0) == 0xe0)
        return 2;
    if ((lead & 0xf8) == 0xf0)
        return 3;
    if ((lead & 0xfc) == 0xf8)
        return 4;
    if ((lead & 0xfe) == 0xfc)
        return 5;
    return -1;
}

inline ASN1UINT leadBits(ASN1OCTET lead, int following) {
    return lead & (0x3fu >> following);
}

inline bool isFollowing(ASN1OCTET octet) {
    return (octet & 0xc0) == 0x80;
}

// Writes `size` octets of the character; the first carries its top bits as they are.
void encodeInto(ASN1UINT c, int size, unsigned char* out) {
    for (int i = size - 1; i > 0; --i) {
        out[i] = static_cast<unsigned char>(0x80u | (c & 0x3fu));
        c >>= 6;
    }
    out[0] = static_cast<unsigned char>(kLeadOctets[size] | c);
}

}  // namespace

extern "C" {

int rtUTF8CharSize(ASN1UINT character) {
    if (character < 0x80)
        return 1;
    int size = 2;
    for (ASN1UINT mask : kSizeMasks) {
        if ((character & mask) == 0)
            break;
        ++size;
    }
    return size;
}

int rtUTF8EncodeChar(ASN1UINT character, unsigned char* destination, size_t capacity) {
    if (destination == nullptr)
        return -1;
    if (character < 0x80) {
        destination[0] = static_cast<unsigned char>(character);
        return 1;
    }
    int size = rtUTF8CharSize(character);
    if (static_cast<size_t>(size) > capacity)
        return -1;
    encodeInto(character, size, destination);
    return size;
}

int rtUTF8DecodeChar(ASN1CTXT* ctxt, const unsigned char* octets, int* size) {
    (void)ctxt;
    if (octets == nullptr || size == nullptr)
        return RT_E_BAD_UTF8;
    ASN1OCTET lead = octets[0];
    if (lead < 0x80) {
        *size = 1;
        return lead;
    }
    int following = followingOctets(lead);
    if (following < 0 || *size < 2)
        return RT_E_BAD_UTF8;
    if (following + 1 > *size)
        return RT_E_BAD_UTF8;
    ASN1UINT c = leadBits(lead, following);
    for (int i = 1; i <= following; ++i) {
        if (!isFollowing(octets[i]))
            return RT_E_BAD_UTF8;
        c = (c << 6) | (octets[i] & 0x3fu);
    }
    *size = following + 1;
    return static_cast<int>(c);
}

int rtUTF8ToWCS(ASN1CTXT* ctxt, const unsigned char* text, wchar_t* destination, size_t capacity) {
    (void)ctxt;
    if (text == nullptr)
        return RT_E_BAD_UTF8;
    const size_t length = strlen(reinterpret_cast<const char*>(text));
    size_t pos = 0;
    size_t count = 0;
    for (;;) {
        if (destination != nullptr && count >= capacity)
            return pos < length ? -1 : static_cast<int>(count);
        if (pos >= length)
            break;
        ASN1OCTET lead = text[pos++];
        ASN1UINT c = lead;
        if (lead >= 0x80) {
            int following = followingOctets(lead);
            if (following < 0)
                return RT_E_BAD_UTF8;
            c = leadBits(lead, following);
            // A text that ends inside the sequence keeps what was read.
            for (int i = 0; i < following && pos < length; ++i) {
                ASN1OCTET octet = text[pos++];
                if (!isFollowing(octet))
                    return RT_E_BAD_UTF8;
                c = (c << 6) | (octet & 0x3fu);
            }
        }
        if (destination != nullptr) {
            destination[count] = static_cast<wchar_t>(c);
            ++count;
        }
    }
    return static_cast<int>(count);
}

int rtWCSToUTF8(ASN1CTXT* ctxt, const wchar_t* characters, size_t count, unsigned char* destination,
                size_t capacity) {
    (void)ctxt;
    if (count == 0)
        return 0;
    if (characters == nullptr)
        return RT_E_BAD_UTF8;
    if (destination == nullptr)
        return -1;
    size_t used = 0;
    for (size_t i = 0; i < count; ++i) {
        ASN1UINT c = static_cast<ASN1UINT>(characters[i]);
        if (c & 0x80000000u)
            return RT_E_BAD_UTF8;
        if (c < 0x80) {
            if (used >= capacity)
                return -1;
            destination[used++] = static_cast<unsigned char>(c);
            continue;
        }
        // A character of several octets needs one octet spare behind it.
        int size = rtUTF8CharSize(c);
        if (used + static_cast<size_t>(size) >= capacity)
            return -1;
        encodeInto(c, size, destination + used);
        used += static_cast<size_t>(size);
    }
    return static_cast<int>(used);
}

int rtUTF8Len(const unsigned char* text) {
    if (text == nullptr)
        return RT_E_BAD_UTF8;
    int count = 0;
    size_t pos = 0;
    while (text[pos] != 0) {
        ASN1OCTET lead = text[pos];
        int following = lead < 0x80 ? 0 : followingOctets(lead);
        if (following < 0)
            return RT_E_BAD_UTF8;
        // Following octets are stepped over unseen; stepping over the terminator would
        // read past the text, and such a truncated sequence counts as bad UTF-8.
        ++pos;
        for (int i = 0; i < following; ++i, ++pos)
            if (text[pos] == 0)
                return RT_E_BAD_UTF8;
        ++count;
    }
    return count;
}

size_t rtUTF8LenBytes(const unsigned char* text) {
    return text == nullptr ? 0 : strlen(reinterpret_cast<const char*>(text));
}

unsigned char* rtUTF8Strdup(ASN1CTXT* ctxt, const unsigned char* text) {
    if (ctxt == nullptr || text == nullptr)
        return nullptr;
    size_t n = strlen(reinterpret_cast<const char*>(text)) + 1;
    if (n > static_cast<size_t>(RT_MEMHEAP_MAX_ALLOC))
        return nullptr;
    unsigned char* copy = static_cast<unsigned char*>(rtMemHeapAlloc(&ctxt->typeHeap, static_cast<int>(n)));
    if (copy != nullptr)
        memcpy(copy, text, n);
    return copy;
}

}  // extern "C"
