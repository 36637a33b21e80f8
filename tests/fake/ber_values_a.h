// One reader and one writer per kind of BER value, the value given as text, so that the
// tests of both directions can be tables of hex and text: integers in decimal, big integers
// as the reader's hex text, identifiers dotted, octets in hex, bits as "count:hex", strings
// as they are, 16- and 32-bit characters as hex numbers with a space between. A value read
// by reference into the message carries "@offset " in front.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "ber_test_util.h"

namespace bervalues {

enum Kind { kInt, kUnsigned, kUint16, kEnum, kBool, kNull, kBigInt, kObjId, kOctets, kOctetsS, kBits, kBitsS,
            kChars, kBmp, kUcs, kOpen };

inline std::string where(const bertest::Dec& d, const ASN1OCTET* p)
{
    const bool inside = p && p >= d.data() && p < d.data() + d.size();
    return inside ? "@" + std::to_string(p - d.data()) + " " : "";
}

template <typename T>
std::string chars(const T& s)
{
    std::string out;
    for (ASN1UINT i = 0; i < s.nchars; ++i) {
        char b[16];
        std::snprintf(b, sizeof b, "%s%x", i ? " " : "", (unsigned)s.data[i]);
        out += b;
    }
    return out;
}

// Reads one value at the cursor. `arg` is the capacity of the _s readers (octets or bits),
// whose implicit form reads the header here first, and the tag of the string readers (0:
// the universal number of the first octet).
inline std::string readValue(bertest::Dec& d, Kind k, int& st, int tagging = 1, int length = 0, ASN1UINT arg = 0)
{
    ASN1CTXT* c = &d.c;
    const ASN1TAG tag = arg ? arg : d.size() ? (d.data()[0] & 0x1f) : 0;
    const ASN1OCTET* p = nullptr;
    ASN1UINT n = arg ? arg : 999;
    std::vector<ASN1OCTET> dest(k == kBitsS ? (arg + 7) / 8 : arg, 0xcc);  // exactly the capacity
    if ((k == kOctetsS || k == kBitsS) && tagging != 1 && xd_tag_len(c, nullptr, &length, RT_MATCH_ADVANCE) != 0)
        return "(no header)";
    switch (k) {
    case kInt: case kEnum: { ASN1INT v = 0; st = k == kInt ? xd_integer(c, &v, tagging, length)
                                                            : xd_enum(c, &v, tagging, length);
                             return st ? "" : std::to_string(v); }
    case kUnsigned: { ASN1UINT v = 0; st = xd_unsigned(c, &v, tagging, length); return st ? "" : std::to_string(v); }
    case kUint16: { ASN1USINT v = 0; st = xd_uint16(c, &v, tagging, length); return st ? "" : std::to_string(v); }
    case kBool: { ASN1BOOL v = 0; st = xd_boolean(c, &v, tagging, length); return st ? "" : std::to_string(v); }
    case kNull: st = xd_null(c, tagging); return "";
    case kBigInt: { const char* t = nullptr; st = xd_bigint(c, &t, tagging, length); return st ? "" : t; }
    case kObjId: {
        ASN1OBJID v;
        v.numids = 7777;
        std::string s;
        st = xd_objid(c, &v, tagging, length);
        for (ASN1UINT i = 0; (st == 0 || st == RT_E_BAD_OBJID) && i < v.numids && i < 128; ++i)
            s += (i ? "." : "") + std::to_string(v.subid[i]);
        return s;
    }
    case kOctets: st = xd_octstr(c, &p, &n, tagging, length); break;
    case kOctetsS: st = xd_octstr_s(c, dest.data(), &n, tagging, length); p = dest.data(); break;
    case kBits: st = xd_bitstr(c, &p, &n, tagging, length); break;
    case kBitsS: st = xd_bitstr_s(c, dest.data(), &n, tagging, length); p = dest.data(); break;
    case kChars: { const char* t = nullptr; st = xd_charstr(c, &t, tagging, tag, length); return st ? "" : t; }
    case kBmp: { Asn116BitCharString s{5, nullptr}; st = xd_16BitCharStr(c, &s, tagging, tag, length);
                 return st ? "" : chars(s); }
    case kUcs: { Asn132BitCharString s{5, nullptr}; st = xd_32BitCharStr(c, &s, tagging, tag, length);
                 return st ? "" : chars(s); }
    case kOpen: st = xd_OpenType(c, &p, &n); break;
    }
    if (st != 0)
        return "";
    const bool bits = k == kBits || k == kBitsS;
    return where(d, p) + (bits ? std::to_string(n) + ":" : "") + testsupport::toHex(p, bits ? (n + 7) / 8 : n);
}

inline std::vector<uint32_t> numbers(const std::string& text, int base, char sep)
{
    std::vector<uint32_t> v;
    for (size_t i = 0; i < text.size();) {
        size_t end = text.find(sep, i);
        v.push_back((uint32_t)std::stoul(text.substr(i, end - i), nullptr, base));
        i = end == std::string::npos ? end : end + 1;
    }
    return v;
}

// Writes the value the text stands for; the tag of a string is the universal number `tag`.
inline int writeValue(bertest::Enc& e, Kind k, const std::string& text, int tagging = 1, ASN1TAG tag = 0)
{
    ASN1CTXT* c = &e.c;
    const bool octets = k == kOctets || k == kOctetsS || k == kBits || k == kBitsS || k == kOpen;
    std::vector<uint8_t> bytes = testsupport::hex(octets ? text.substr(text.find(':') + 1) : "");
    switch (k) {
    case kInt: case kEnum: { ASN1INT v = (ASN1INT)std::stoll(text);
                             return k == kInt ? xe_integer(c, &v, tagging) : xe_enum(c, &v, tagging); }
    case kUnsigned: { ASN1UINT v = (ASN1UINT)std::stoull(text); return xe_unsigned(c, &v, tagging); }
    case kUint16: { ASN1USINT v = (ASN1USINT)std::stoul(text); return xe_uint16(c, &v, tagging); }
    case kBool: { ASN1BOOL v = (ASN1BOOL)std::stoi(text); return xe_boolean(c, &v, tagging); }
    case kNull: return xe_null(c, tagging);
    case kBigInt: return xe_bigint(c, text.c_str(), tagging);
    case kObjId: {
        ASN1OBJID v{};
        for (uint32_t a : numbers(text, 10, '.'))
            v.subid[v.numids++] = a;
        return xe_objid(c, &v, tagging);
    }
    case kOctets: case kOctetsS: return xe_octstr(c, bytes.data(), (ASN1UINT)bytes.size(), tagging);
    case kBits: case kBitsS: return xe_bitstr(c, bytes.data(), (ASN1UINT)std::stoul(text), tagging);
    case kChars: return xe_charstr(c, text.c_str(), tagging, tag);
    case kBmp: {
        std::vector<ASN1USINT> w;
        for (uint32_t ch : numbers(text, 16, ' '))
            w.push_back((ASN1USINT)ch);
        Asn116BitCharString s{(ASN1UINT)w.size(), w.data()};
        return xe_16BitCharStr(c, &s, tagging, tag);
    }
    case kUcs: {
        std::vector<ASN1UINT> w = numbers(text, 16, ' ');
        Asn132BitCharString s{(ASN1UINT)w.size(), w.data()};
        return xe_32BitCharStr(c, &s, tagging, tag);
    }
    case kOpen: return xe_OpenType(c, bytes.data(), (ASN1UINT)bytes.size());
    }
    return 0;
}

// What a read did, in one line: the value it gave or its status, what the error block
// holds ("recorded" when it holds that status), and where the cursor stands.
inline std::string outcome(const bertest::Dec& d, int st, const std::string& value)
{
    std::string s = value;
    if (st != 0)
        s += (s.empty() ? "" : " ") + bertest::statusName(st);
    if (d.recorded() != 0)
        s += std::string(s.empty() ? "" : " ") + "recorded" +
             (d.recorded() == st ? "" : " " + bertest::statusName(d.recorded()));
    return s + (s.empty() ? "" : " ") + "at " + std::to_string(d.at());
}

}  // namespace bervalues
