// A generated value as text a person reads, or as JSON, walked through the description
// tables of the catalogue: field names, identifiers with the name of their constant, open
// types through their information object (decoded) or as raw hexadecimal.
#pragma once

#include "asn1data/asn1data_rt.h"

#include <string>

namespace asn1data {

enum class DescribeForm { Text, Json };

// The value at `value` of the described type; `registry` names identifiers and objects.
std::string describeValue(const TypeRegistry& registry, const TypeInfo& type, const void* value,
                          DescribeForm form);

// "RT_E_CONSTRAINT" for -23 and so on; "" for a status the runtime does not define.
const char* statusName(int status);

}  // namespace asn1data
