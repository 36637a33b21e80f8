#include "catalogue_read.h"

#include <cstdio>

namespace chainvet_tool {

Decoded decodeAs(ASN1CTXT* ctxt, const asn1data::TypeInfo& type, const unsigned char* data, size_t size) {
    Decoded d;
    d.type = &type;
    if (size > 0x7FFFFFFFu) {
        d.status = RT_E_TOO_LONG;
        return d;
    }
    d.value = rtMemHeapAllocZ(&ctxt->typeHeap, (int)type.size);
    if (d.value == nullptr) {
        d.status = RT_E_NO_MEMORY;
        return d;
    }
    d.status = xd_setp(ctxt, data, (int)size, nullptr, nullptr);
    if (d.status == 0) d.status = type.decode(ctxt, d.value, ASN1EXPL, 0);
    d.consumed = ctxt->bufIndex;
    return d;
}

std::string statusText(int status) {
    std::string s = std::to_string(status);
    const char* name = asn1data::statusName(status);
    if (*name) s += std::string(" ") + name;
    return s;
}

Decoded pickType(ASN1CTXT* ctxt, const std::vector<const asn1data::TypeInfo*>& candidates,
                 const std::vector<unsigned char>& der, bool typeGiven, const char* tool,
                 std::vector<Decoded>& refused) {
    Decoded partial;
    for (const asn1data::TypeInfo* t : candidates) {
        Decoded d = decodeAs(ctxt, *t, der.data(), der.size());
        if (d.status == 0 && (typeGiven || d.consumed == der.size())) return d;
        if (d.status == 0 && partial.type == nullptr) partial = d;
        refused.push_back(d);
    }
    if (partial.type != nullptr)
        std::fprintf(stderr, "%s: %zu octets after the %s left alone\n", tool, der.size() - partial.consumed,
                     partial.type->name);
    return partial;
}

}  // namespace chainvet_tool
