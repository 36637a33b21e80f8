#include "der.h"

#include <cstring>

namespace qvplat {

bool DerReader::next(Tlv& out) {
    const uint8_t* p = m_p;
    if (p >= m_end)
        return false;
    out.hdr = p;
    out.tag = *p++;
    if ((out.tag & 0x1F) == 0x1F)
        return false;
    if (p >= m_end)
        return false;
    size_t len = *p++;
    if (len & 0x80) {
        size_t n = len & 0x7F;
        if (n == 0 || n > 4 || static_cast<size_t>(m_end - p) < n)
            return false;
        len = 0;
        for (size_t i = 0; i < n; ++i)
            len = (len << 8) | *p++;
    }
    if (static_cast<size_t>(m_end - p) < len)
        return false;
    out.val = p;
    out.len = len;
    m_p = p + len;
    return true;
}

bool DerReader::peekTag(uint8_t& tag) const {
    if (m_p >= m_end)
        return false;
    tag = *m_p;
    return true;
}

bool DerReader::nextIf(uint8_t tag, Tlv& out) {
    uint8_t t;
    if (!peekTag(t) || t != tag)
        return false;
    return next(out);
}

bool oidToText(const uint8_t* p, size_t n, std::string& out) {
    out.clear();
    if (n == 0)
        return false;
    uint64_t arc = 0;
    bool first = true;
    for (size_t i = 0; i < n; ++i) {
        if (arc > (UINT64_MAX >> 7))
            return false;
        arc = (arc << 7) | (p[i] & 0x7F);
        if (p[i] & 0x80) {
            if (i + 1 == n)
                return false;
            continue;
        }
        if (first) {
            uint64_t a = arc < 80 ? arc / 40 : 2;
            out += std::to_string(a);
            out += '.';
            out += std::to_string(arc - a * 40);
            first = false;
        } else {
            out += '.';
            out += std::to_string(arc);
        }
        arc = 0;
    }
    return true;
}

bool decodeBasicConstraints(const uint8_t* p, size_t n, bool& ca, bool& hasPathLen,
                            uint32_t& pathLen) {
    ca = false;
    hasPathLen = false;
    pathLen = 0;
    DerReader outer(p, n);
    Tlv seq;
    if (!outer.next(seq) || seq.tag != 0x30 || !outer.atEnd())
        return false;
    DerReader in(seq.val, seq.len);
    Tlv t;
    if (in.nextIf(0x01, t)) {
        if (t.len != 1)
            return false;
        ca = t.val[0] != 0;
    }
    if (in.nextIf(0x02, t)) {
        if (t.len == 0 || t.len > 5 || (t.val[0] & 0x80))
            return false;
        uint64_t v = 0;
        for (size_t i = 0; i < t.len; ++i)
            v = (v << 8) | t.val[i];
        if (v > 0xFFFFFFFFu)
            return false;
        hasPathLen = true;
        pathLen = static_cast<uint32_t>(v);
    }
    return in.atEnd();
}

bool decodeEku(const uint8_t* p, size_t n, std::vector<std::string>& oids) {
    oids.clear();
    DerReader outer(p, n);
    Tlv seq;
    if (!outer.next(seq) || seq.tag != 0x30 || !outer.atEnd())
        return false;
    DerReader in(seq.val, seq.len);
    while (!in.atEnd()) {
        Tlv t;
        std::string s;
        if (!in.next(t) || t.tag != 0x06 || !oidToText(t.val, t.len, s))
            return false;
        oids.push_back(s);
    }
    return true;
}

bool pemDecode(const std::string& text, const char* label, std::vector<uint8_t>& der) {
    const std::string begin = std::string("-----BEGIN ") + label + "-----";
    const std::string end = std::string("-----END ") + label + "-----";
    size_t b = text.find(begin);
    if (b == std::string::npos)
        return false;
    b += begin.size();
    size_t e = text.find(end, b);
    if (e == std::string::npos)
        return false;
    der.clear();
    uint32_t acc = 0;
    int bits = 0;
    for (size_t i = b; i < e; ++i) {
        char c = text[i];
        int v;
        if (c >= 'A' && c <= 'Z') v = c - 'A';
        else if (c >= 'a' && c <= 'z') v = c - 'a' + 26;
        else if (c >= '0' && c <= '9') v = c - '0' + 52;
        else if (c == '+') v = 62;
        else if (c == '/') v = 63;
        else if (c == '=') break;
        else if (c == '\r' || c == '\n' || c == ' ' || c == '\t') continue;
        else return false;
        acc = (acc << 6) | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            der.push_back(static_cast<uint8_t>(acc >> bits));
        }
    }
    return !der.empty();
}

}  // namespace qvplat
