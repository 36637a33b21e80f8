// Helpers of the object-model tests: DER from hex (blanks allowed), and what an encoding
// step gives as hex, or "!" and the HRESULT it throws.
#pragma once

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>

#include "core/blob.h"
#include "core/exception.h"
#include "support/testsupport.h"

namespace pkitest {

inline Quorvane::CBlob der(std::string h) {
    h.erase(std::remove(h.begin(), h.end(), ' '), h.end());
    return testsupport::blobOf(testsupport::hex(h));
}

inline std::string outcome(const std::function<Quorvane::CBlob()>& f) {
    try {
        return testsupport::hexOf(f());
    } catch (const ATL::CAtlException& e) {
        char text[16];
        std::snprintf(text, sizeof text, "!%08X", unsigned(e.m_hr));
        return text;
    }
}

}  // namespace pkitest
