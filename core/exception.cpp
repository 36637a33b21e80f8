#include "core/exception.h"

#include "qvcapi/support.h"

namespace ATL {

void AtlThrowImpl(int hr) { throw CAtlException(static_cast<HRESULT>(hr)); }

void AtlThrowLastWin32() { throw CAtlException(AtlHresultFromWin32(GetLastError())); }

}  // namespace ATL
