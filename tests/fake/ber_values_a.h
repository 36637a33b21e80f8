// One reader and one writer per kind of BER value, the value as text, so that both directions are tables
// of hex and text: integers in decimal, big integers as the reader's hex text, identifiers dotted, octets
// in hex, bits as "count:hex", strings as they are, 16- and 32-bit characters as hex numbers with a space
// between. A value read by reference into the message carries "@offset " in front.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "ber_test_util.h"

namespace bervalues {

enum Kind { kInt, kUnsigned, kUint16, kEnum, kBool, kNull, kBigInt, kObjId, kOctets, kOctetsS, kBits, kBitsS,
            kChars, kBmp, kUcs, kOpen };

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

// Reads one value at the cursor. `arg` is the capacity of the _s readers (octets or bits), whose implicit
// form reads the header here first, and the tag of the string readers (0: the first octet's number).
inline std::string readValue(bertest::Dec& d, Kind k, int& st, int tagging = 1, int length = 0, ASN1UINT arg = 0)
{
    ASN1CTXT* c = &d.c;
    const ASN1TAG tag = arg ? arg : d.size() ? (d.data()[0] & 0x1f) : 0;
    const ASN1OCTET* p = nullptr;
    ASN1UINT n = arg ? arg : 999;
    std::vector<ASN1OCTET> dest(k == kBitsS ? (arg + 7) / 8 : arg, 0xcc);  // exactly the capacity
    if ((k == kOctetsS || k == kBitsS) && tagging != 1 && xd_tag_len(c, nullptr, &length, RT_MATCH_ADVANCE) != 0)
        return "(no header)";
    ASN1INT i = 0;
    ASN1UINT u = 0;
    ASN1USINT u16 = 0;
    ASN1BOOL b = 0;
    const char* t = nullptr;
    switch (k) {
    case kInt: st = xd_integer(c, &i, tagging, length); return st ? "" : std::to_string(i);
    case kEnum: st = xd_enum(c, &i, tagging, length); return st ? "" : std::to_string(i);
    case kUnsigned: st = xd_unsigned(c, &u, tagging, length); return st ? "" : std::to_string(u);
    case kUint16: st = xd_uint16(c, &u16, tagging, length); return st ? "" : std::to_string(u16);
    case kBool: st = xd_boolean(c, &b, tagging, length); return st ? "" : std::to_string(b);
    case kNull: st = xd_null(c, tagging); return "";
    case kBigInt: st = xd_bigint(c, &t, tagging, length); return st ? "" : t;
    case kChars: st = xd_charstr(c, &t, tagging, tag, length); return st ? "" : t;
    case kObjId: {
        ASN1OBJID v;
        v.numids = 7777;
        std::string s;
        st = xd_objid(c, &v, tagging, length);
        for (ASN1UINT j = 0; (st == 0 || st == RT_E_BAD_OBJID) && j < v.numids && j < 128; ++j)
            s += (j ? "." : "") + std::to_string(v.subid[j]);
        return s;
    }
    case kBmp: { Asn116BitCharString s{5, nullptr}; st = xd_16BitCharStr(c, &s, tagging, tag, length);
                 return st ? "" : chars(s); }
    case kUcs: { Asn132BitCharString s{5, nullptr}; st = xd_32BitCharStr(c, &s, tagging, tag, length);
                 return st ? "" : chars(s); }
    case kOctets: st = xd_octstr(c, &p, &n, tagging, length); break;
    case kOctetsS: st = xd_octstr_s(c, dest.data(), &n, tagging, length); p = dest.data(); break;
    case kBits: st = xd_bitstr(c, &p, &n, tagging, length); break;
    case kBitsS: st = xd_bitstr_s(c, dest.data(), &n, tagging, length); p = dest.data(); break;
    case kOpen: st = xd_OpenType(c, &p, &n); break;
    }
    const bool bits = k == kBits || k == kBitsS, inside = p && p >= d.data() && p < d.data() + d.size();
    return st ? "" : (inside ? "@" + std::to_string(p - d.data()) + " " : "") + (bits ? std::to_string(n) + ":" : "") +
                         testsupport::toHex(p, bits ? (n + 7) / 8 : n);
}

inline std::vector<uint32_t> numbers(const std::string& text, int base, char sep)
{
    std::vector<uint32_t> v;
    for (size_t i = 0; i < text.size(); i = text.find(sep, i) == std::string::npos ? text.size() : text.find(sep, i) + 1)
        v.push_back((uint32_t)std::stoul(text.substr(i, text.find(sep, i) - i), nullptr, base));
    return v;
}

// Writes the value the text stands for; the tag of a string is the universal number `tag`.
inline int writeValue(bertest::Enc& e, Kind k, const std::string& text, int tagging = 1, ASN1TAG tag = 0)
{
    ASN1CTXT* c = &e.c;
    const bool octets = k == kOctets || k == kOctetsS || k == kBits || k == kBitsS || k == kOpen;
    std::vector<uint8_t> bytes = testsupport::hex(octets ? text.substr(text.find(':') + 1) : "");
    ASN1INT i = k <= kEnum && k != kUnsigned && k != kUint16 ? (ASN1INT)std::stoll(text) : 0;
    ASN1UINT u = k == kUnsigned || k == kUint16 ? (ASN1UINT)std::stoull(text) : 0;
    ASN1USINT u16 = (ASN1USINT)u;
    ASN1BOOL b = k == kBool ? (ASN1BOOL)std::stoi(text) : 0;
    ASN1OBJID oid{};
    std::vector<uint32_t> w = k == kBmp || k == kUcs ? numbers(text, 16, ' ') : std::vector<uint32_t>();
    std::vector<ASN1USINT> w16(w.begin(), w.end());
    Asn116BitCharString s16{(ASN1UINT)w.size(), w16.data()};
    Asn132BitCharString s32{(ASN1UINT)w.size(), w.data()};
    switch (k) {
    case kInt: return xe_integer(c, &i, tagging);
    case kEnum: return xe_enum(c, &i, tagging);
    case kUnsigned: return xe_unsigned(c, &u, tagging);
    case kUint16: return xe_uint16(c, &u16, tagging);
    case kBool: return xe_boolean(c, &b, tagging);
    case kNull: return xe_null(c, tagging);
    case kBigInt: return xe_bigint(c, text.c_str(), tagging);
    case kObjId:
        for (uint32_t a : numbers(text, 10, '.'))
            oid.subid[oid.numids++] = a;
        return xe_objid(c, &oid, tagging);
    case kOctets: case kOctetsS: return xe_octstr(c, bytes.data(), (ASN1UINT)bytes.size(), tagging);
    case kBits: case kBitsS: return xe_bitstr(c, bytes.data(), (ASN1UINT)std::stoul(text), tagging);
    case kChars: return xe_charstr(c, text.c_str(), tagging, tag);
    case kBmp: return xe_16BitCharStr(c, &s16, tagging, tag);
    case kUcs: return xe_32BitCharStr(c, &s32, tagging, tag);
    case kOpen: return xe_OpenType(c, bytes.data(), (ASN1UINT)bytes.size());
    }
    return 0;
}

// What a read did, in one line: the value it gave or its status, what the error block holds ("recorded"
// when it holds that status), and where the cursor stands.
inline std::string outcome(const bertest::Dec& d, int st, const std::string& value)
{
    std::string s = value;
    if (st != 0)
        s += (s.empty() ? "" : " ") + bertest::statusName(st);
    if (d.recorded() != 0)
        s += std::string(s.empty() ? "" : " ") + "recorded" + (d.recorded() == st ? "" : " " + bertest::statusName(d.recorded()));
    return s + (s.empty() ? "" : " ") + "at " + std::to_string(d.at());
}

}  // namespace bervalues
