#include "asn1data/describe.h"

#include <cstdio>
#include <cstring>

namespace asn1data {

namespace {

const char kHex[] = "0123456789abcdef";

std::string hex(const ASN1OCTET* data, size_t n) {
    std::string s;
    s.reserve(n * 2);
    for (size_t i = 0; i < n; ++i) {
        s += kHex[data[i] >> 4];
        s += kHex[data[i] & 15];
    }
    return s;
}

std::string oidText(const ASN1OBJID& oid) {
    std::string s;
    for (ASN1UINT i = 0; i < oid.numids && i < ASN_K_MAXSUBIDS; ++i) {
        if (i) s += '.';
        s += std::to_string(oid.subid[i]);
    }
    return s;
}

void appendUtf8(std::string& out, ASN1UINT c) {
    if (c < 0x80) {
        out += (char)c;
    } else if (c < 0x800) {
        out += (char)(0xC0 | (c >> 6));
        out += (char)(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += (char)(0xE0 | (c >> 12));
        out += (char)(0x80 | ((c >> 6) & 0x3F));
        out += (char)(0x80 | (c & 0x3F));
    } else {
        out += (char)(0xF0 | ((c >> 18) & 0x07));
        out += (char)(0x80 | ((c >> 12) & 0x3F));
        out += (char)(0x80 | ((c >> 6) & 0x3F));
        out += (char)(0x80 | (c & 0x3F));
    }
}

// A quoted string; octets outside printable ASCII as \u00XX (JSON) or \xXX (text), except
// that UTF-8 text passes as it is.
std::string quoted(const std::string& s, DescribeForm form) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += (char)c;
        } else if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, form == DescribeForm::Json ? "\\u%04x" : "\\x%02x", c);
            out += buf;
        } else {
            out += (char)c;
        }
    }
    return out + "\"";
}

// Text of a terminated 8-bit string: UTF-8 stays, other octets above 0x7F map to U+0080..FF.
std::string latinOrUtf8(const char* text, bool utf8) {
    std::string s;
    if (text == 0) return s;
    for (const unsigned char* p = (const unsigned char*)text; *p; ++p) {
        if (utf8 || *p < 0x80)
            s += (char)*p;
        else
            appendUtf8(s, *p);
    }
    return s;
}

bool bitSet(const void* record, unsigned wordOffset, int bit) {
    ASN1UINT word;
    std::memcpy(&word, (const char*)record + wordOffset, sizeof word);
    return (word >> bit) & 1u;
}

class Writer {
public:
    Writer(const TypeRegistry& r, DescribeForm f) : reg(r), form(f) {}
    std::string out;

    // One value; `table` and `key` resolve an open type (TableOpen) through its set.
    void value(const TypeInfo& t, const void* p, int depth, const TableInfo* table = 0,
               const ASN1OBJID* key = 0) {
        switch (t.kind) {
        case Kind::Alias: value(*t.elem, p, depth, table, key); return;
        case Kind::Boolean: leaf(*(const ASN1BOOL*)p ? "true" : "false"); return;
        case Kind::Integer: leaf(std::to_string(*(const ASN1INT*)p)); return;
        case Kind::Unsigned:
        case Kind::Enumerated: leaf(std::to_string(*(const ASN1UINT*)p)); return;
        case Kind::UInt16: leaf(std::to_string(*(const ASN1USINT*)p)); return;
        case Kind::BigInt: {
            const char* s = *(const char* const*)p;
            leaf(form == DescribeForm::Json ? quoted(s ? s : "", form) : std::string(s ? s : ""));
            return;
        }
        case Kind::Null: leaf(form == DescribeForm::Json ? "null" : "NULL"); return;
        case Kind::ObjectId: oid(*(const ASN1OBJID*)p); return;
        case Kind::Octets:
        case Kind::OctetsInline: {
            const ASN1UINT n = *(const ASN1UINT*)p;
            const ASN1OCTET* d = t.kind == Kind::Octets ? ((const ASN1TDynOctStr*)p)->data
                                                        : (const ASN1OCTET*)p + sizeof(ASN1UINT);
            leaf(form == DescribeForm::Json ? quoted(hex(d, n), form) : hex(d, n));
            return;
        }
        case Kind::Bits:
        case Kind::BitsInline: {
            const ASN1UINT n = *(const ASN1UINT*)p;
            const ASN1OCTET* d = t.kind == Kind::Bits ? ((const ASN1TDynBitStr*)p)->data
                                                      : (const ASN1OCTET*)p + sizeof(ASN1UINT);
            const std::string h = hex(d, (n + 7) / 8);
            if (form == DescribeForm::Json)
                leaf("{\"bits\": " + std::to_string(n) + ", \"hex\": \"" + h + "\"}");
            else
                leaf(h + " (" + std::to_string(n) + " bits)");
            return;
        }
        case Kind::Text: {
            const std::string s = latinOrUtf8(*(const char* const*)p, t.tagNum == 12);
            leaf(form == DescribeForm::Json ? quoted(s, form) : std::string(t.name) + " " + quoted(s, form));
            return;
        }
        case Kind::Bmp:
        case Kind::Universal: {
            std::string s;
            if (t.kind == Kind::Bmp) {
                const Asn116BitCharString* v = (const Asn116BitCharString*)p;
                for (ASN1UINT i = 0; v->data && i < v->nchars; ++i) appendUtf8(s, v->data[i]);
            } else {
                const Asn132BitCharString* v = (const Asn132BitCharString*)p;
                for (ASN1UINT i = 0; v->data && i < v->nchars; ++i) appendUtf8(s, v->data[i] & 0x1FFFFF);
            }
            leaf(form == DescribeForm::Json ? quoted(s, form) : std::string(t.name) + " " + quoted(s, form));
            return;
        }
        case Kind::OpenType: {
            const ASN1OpenType* v = (const ASN1OpenType*)p;
            raw(v->data, v->numocts);
            return;
        }
        case Kind::TableOpen: {
            const Asn1TObject* v = (const Asn1TObject*)p;
            const ObjectInfo* obj = table && key ? reg.object(table->set, *key) : 0;
            if (v->decoded == 0 || obj == 0 || obj->value == 0) {
                raw(v->data, v->numocts);
                return;
            }
            open(" (" + std::string(obj->name) + ")", "{\"object\": \"" + std::string(obj->name) + "\", \"value\": ");
            value(*obj->value, v->decoded, depth + 1);
            close("}");
            return;
        }
        case Kind::Sequence:
        case Kind::Set: record(t, p, depth); return;
        case Kind::Choice: choice(t, p, depth); return;
        case Kind::List: {
            const Asn1RTDList* l = (const Asn1RTDList*)p;
            beginList(l->count);
            unsigned i = 0;
            for (const Asn1RTDListNode* n = l->head; n; n = n->next, ++i) {
                item(i, depth + 1);
                value(*t.elem, n->data, depth + 1, table, key);
            }
            endList(depth);
            return;
        }
        case Kind::Array: {
            const ASN1UINT n = *(const ASN1UINT*)((const char*)p + t.mOffset);
            const char* elems = *(const char* const*)((const char*)p + t.uOffset);
            const unsigned size = elementSize(*t.elem);
            beginList(n);
            for (ASN1UINT i = 0; i < n; ++i) {
                item(i, depth + 1);
                value(*t.elem, elems + (size_t)i * size, depth + 1);
            }
            endList(depth);
            return;
        }
        }
    }

private:
    const TypeRegistry& reg;
    DescribeForm form;

    static unsigned elementSize(const TypeInfo& t) {
        const TypeInfo* e = &t;
        while (e->kind == Kind::Alias) e = e->elem;
        return e->size ? e->size : t.size;
    }

    void indent(int depth) { out.append((size_t)depth * 2, ' '); }

    void leaf(const std::string& s) {
        if (form == DescribeForm::Text) out += ' ';
        out += s;
    }

    void oid(const ASN1OBJID& id) {
        const char* name = reg.oidName(id);
        if (form == DescribeForm::Json) {
            out += "{\"oid\": \"" + oidText(id) + "\", \"name\": ";
            out += name ? "\"" + std::string(name) + "\"}" : "null}";
        } else {
            out += ' ' + oidText(id);
            if (name) out += std::string(" (") + name + ")";
        }
    }

    void raw(const ASN1OCTET* data, ASN1UINT n) {
        if (form == DescribeForm::Json)
            out += "{\"raw\": \"" + hex(data, n) + "\"}";
        else
            out += " raw " + hex(data, n);
    }

    // Text: "name" and the members below it; JSON: the opening of an object.
    void open(const std::string& textHead, const std::string& jsonHead) {
        out += form == DescribeForm::Json ? jsonHead : textHead;
    }
    void close(const char* jsonTail) {
        if (form == DescribeForm::Json) out += jsonTail;
    }

    void member(const char* name, int depth, bool& first) {
        if (form == DescribeForm::Json) {
            out += first ? "" : ", ";
            out += "\"" + std::string(name) + "\": ";
        } else {
            out += "\n";
            indent(depth);
            out += name;
            out += ':';
        }
        first = false;
    }

    void record(const TypeInfo& t, const void* p, int depth) {
        if (form == DescribeForm::Json) out += "{";
        bool first = true;
        for (unsigned i = 0; i < t.nfields; ++i) {
            const FieldInfo& f = t.fields[i];
            if (f.presentBit >= 0 && !bitSet(p, t.mOffset, f.presentBit)) continue;
            member(f.name, depth + 1, first);
            if (f.type->kind == Kind::Null) {
                leaf(form == DescribeForm::Json ? "null" : "NULL");
                continue;
            }
            const void* fp = (const char*)p + f.offset;
            const ASN1OBJID* key = f.table ? (const ASN1OBJID*)((const char*)p + f.table->keyOffset) : 0;
            if (f.table && f.table->siblingOffset != ~0u) {
                // An OCTET STRING whose value an object decoded: show the decoded sibling.
                const Asn1TObject* sib = (const Asn1TObject*)((const char*)p + f.table->siblingOffset);
                if (sib->decoded) {
                    value(kBuiltinTableOpen, sib, depth + 1, f.table, key);
                    continue;
                }
            }
            value(*f.type, fp, depth + 1, f.table, key);
        }
        if (form == DescribeForm::Json) out += "}";
    }

    void choice(const TypeInfo& t, const void* p, int depth) {
        const ASN1UINT sel = *(const ASN1UINT*)((const char*)p + t.mOffset);
        if (sel < 1 || sel > t.nfields) {
            out += form == DescribeForm::Json ? "null" : " (nothing selected)";
            return;
        }
        const FieldInfo& f = t.fields[sel - 1];
        if (form == DescribeForm::Json) out += "{";
        bool first = true;
        member(f.name, depth + 1, first);
        const void* up = (const char*)p + t.uOffset;
        if (f.type->kind == Kind::Null)
            leaf(form == DescribeForm::Json ? "null" : "NULL");
        else
            value(*f.type, f.byPointer ? *(const void* const*)up : up, depth + 1);
        if (form == DescribeForm::Json) out += "}";
    }

    void beginList(unsigned n) {
        if (form == DescribeForm::Json)
            out += "[";
        else
            out += " (" + std::to_string(n) + ")";
    }
    void item(unsigned i, int depth) {
        if (form == DescribeForm::Json) {
            out += i ? ", " : "";
        } else {
            out += "\n";
            indent(depth);
            out += "[" + std::to_string(i) + "]";
        }
    }
    void endList(int) {
        if (form == DescribeForm::Json) out += "]";
    }
};

}  // namespace

std::string describeValue(const TypeRegistry& registry, const TypeInfo& type, const void* value,
                          DescribeForm form) {
    Writer w(registry, form);
    if (form == DescribeForm::Json) {
        w.out += "{\"type\": \"" + std::string(type.name) + "\", \"value\": ";
        w.value(type, value, 0);
        w.out += "}\n";
    } else {
        w.out += type.name;
        w.out += ':';
        w.value(type, value, 0);
        w.out += "\n";
    }
    return w.out;
}

const char* statusName(int status) {
    switch (status) {
    case RT_OK: return "RT_OK";
    case RT_E_BUFFER_FULL: return "RT_E_BUFFER_FULL";
    case RT_E_END_OF_BUFFER: return "RT_E_END_OF_BUFFER";
    case RT_E_TAG_MISMATCH: return "RT_E_TAG_MISMATCH";
    case RT_E_BAD_OBJID: return "RT_E_BAD_OBJID";
    case RT_E_BAD_LENGTH: return "RT_E_BAD_LENGTH";
    case RT_E_BAD_ENUM: return "RT_E_BAD_ENUM";
    case RT_E_SET_DUPLICATE: return "RT_E_SET_DUPLICATE";
    case RT_E_MISSING_ELEMENT: return "RT_E_MISSING_ELEMENT";
    case RT_E_SET_UNKNOWN_TAG: return "RT_E_SET_UNKNOWN_TAG";
    case RT_E_EXTRA_ELEMENT: return "RT_E_EXTRA_ELEMENT";
    case RT_E_BAD_CHOICE: return "RT_E_BAD_CHOICE";
    case RT_E_NO_MEMORY: return "RT_E_NO_MEMORY";
    case RT_E_TOO_LONG: return "RT_E_TOO_LONG";
    case RT_E_BAD_VALUE: return "RT_E_BAD_VALUE";
    case RT_E_BAD_TAG: return "RT_E_BAD_TAG";
    case RT_E_CONSTRAINT: return "RT_E_CONSTRAINT";
    case RT_E_BAD_RANGE: return "RT_E_BAD_RANGE";
    case RT_E_BAD_UTF8: return "RT_E_BAD_UTF8";
    case RT_E_ITER_STALE: return "RT_E_ITER_STALE";
    case RT_E_ITER_NO_CURRENT: return "RT_E_ITER_NO_CURRENT";
    case RT_E_OUT_OF_RANGE: return "RT_E_OUT_OF_RANGE";
    case RT_E_BAD_ARGUMENT: return "RT_E_BAD_ARGUMENT";
    case RT_E_BAD_TIME: return "RT_E_BAD_TIME";
    case RT_E_NOT_READY: return "RT_E_NOT_READY";
    case RT_E_INT_TOO_BIG: return "RT_E_INT_TOO_BIG";
    case RT_E_NOT_SUPPORTED: return "RT_E_NOT_SUPPORTED";
    }
    return "";
}

}  // namespace asn1data
