// A small, independent DER walker for the runtime tests: it visits every primitive element
// of a definite-length encoding (also inside OCTET STRINGs that hold DER), so that values
// taken from real certificates can be fed to the runtime's text and string functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace rtwalk {

struct Element {
    unsigned tagOctet;  // the identifier octet (low-tag-number form only)
    const uint8_t* data;
    size_t size;
};

using Visitor = std::function<void(const Element&)>;

// Reads one header at p (limit end); false if it is not definite-length DER we can follow.
inline bool readHeader(const uint8_t* p, const uint8_t* end, unsigned& tag, size_t& headerSize,
                       size_t& contentSize) {
    if (end - p < 2)
        return false;
    tag = p[0];
    if ((tag & 0x1f) == 0x1f)
        return false;
    size_t i = 1;
    uint8_t l = p[i++];
    if (l < 0x80) {
        contentSize = l;
    } else {
        size_t n = l & 0x7f;
        if (n == 0 || n > 4 || static_cast<size_t>(end - p) < i + n)
            return false;
        contentSize = 0;
        for (size_t k = 0; k < n; ++k)
            contentSize = (contentSize << 8) | p[i++];
    }
    headerSize = i;
    return contentSize <= static_cast<size_t>(end - p) - i;
}

// True when [p, end) is a whole sequence of well-formed elements.
inline bool wellFormed(const uint8_t* p, const uint8_t* end, int depth = 0) {
    if (depth > 64)
        return false;
    while (p < end) {
        unsigned tag;
        size_t h, n;
        if (!readHeader(p, end, tag, h, n))
            return false;
        if ((tag & 0x20) && !wellFormed(p + h, p + h + n, depth + 1))
            return false;
        p += h + n;
    }
    return true;
}

inline void walk(const uint8_t* p, const uint8_t* end, const Visitor& visit, int depth = 0) {
    if (depth > 64)
        return;
    while (p < end) {
        unsigned tag;
        size_t h, n;
        if (!readHeader(p, end, tag, h, n))
            return;
        const uint8_t* content = p + h;
        if (tag & 0x20) {
            walk(content, content + n, visit, depth + 1);
        } else {
            visit(Element{tag, content, n});
            // OCTET STRINGs of extensions and the like carry DER of their own.
            if (tag == 0x04 && n > 1 && wellFormed(content, content + n, depth + 1))
                walk(content, content + n, visit, depth + 1);
        }
        p += h + n;
    }
}

inline void walk(const std::vector<uint8_t>& der, const Visitor& visit) {
    if (!der.empty() && wellFormed(der.data(), der.data() + der.size()))
        walk(der.data(), der.data() + der.size(), visit);
}

}  // namespace rtwalk
