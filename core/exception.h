// The library's one exception type and its throwers.
#pragma once

#include "core/export.h"
#include "qvcapi/types.h"

namespace ATL {

class CHAINVET_API CAtlException {
public:
    CAtlException() noexcept : m_hr(E_FAIL) {}
    explicit CAtlException(HRESULT hr) noexcept : m_hr(hr) {}
    operator HRESULT() const noexcept { return m_hr; }

    HRESULT m_hr;
};

[[noreturn]] CHAINVET_API void AtlThrowImpl(int hr);
[[noreturn]] CHAINVET_API void AtlThrowLastWin32();

// The HRESULT form of a Win32 error: a positive v becomes (v AND 0xFFFF) OR 0x80070000.
inline HRESULT AtlHresultFromWin32(DWORD v) {
    const int32_t s = static_cast<int32_t>(v);
    return s > 0 ? static_cast<HRESULT>((v & 0xFFFFu) | 0x80070000u) : s;
}

}  // namespace ATL
