// Reading an encoding with the catalogue when its type may not be known: dump and show
// choose the type the same way and report a refusal the same way.
#pragma once

#include "asn1data/describe.h"

#include <stddef.h>

#include <string>
#include <vector>

namespace chainvet_tool {

struct Decoded {
    const asn1data::TypeInfo* type = nullptr;
    int status = 0;
    ASN1UINT consumed = 0;
    void* value = nullptr;
};

// Decodes into the context's type heap; the value lives until the context is freed.
Decoded decodeAs(ASN1CTXT* ctxt, const asn1data::TypeInfo& type, const unsigned char* data, size_t size);

// The status number with its name, e.g. "-3 RT_E_TAG_MISMATCH".
std::string statusText(int status);

// The first candidate that takes the whole input (with a type given, one that decodes at
// all); else the first that takes its beginning, with a warning from `tool` on stderr.
// The others tried are left in `refused`; a null type in the result means none decoded.
Decoded pickType(ASN1CTXT* ctxt, const std::vector<const asn1data::TypeInfo*>& candidates,
                 const std::vector<unsigned char>& der, bool typeGiven, const char* tool,
                 std::vector<Decoded>& refused);

}  // namespace chainvet_tool
