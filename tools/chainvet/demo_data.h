// The demo's bundled certificates (made by tools/make-fixtures.sh), compiled in.
#pragma once

namespace chainvet_tool {

struct DemoCert {
    const char* name;
    const unsigned char* data;
    unsigned size;
};

extern const DemoCert kDemoCerts[];
extern const unsigned kDemoCertCount;

}  // namespace chainvet_tool
