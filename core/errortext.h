// English sentences for the stack's status codes, for the programs above the library.
#pragma once

#include "core/export.h"
#include "core/strings.h"

// The text of a Win32 error, HRESULT or one of the stack's own codes; "Internal error."
// for a code without one. The second argument is accepted and has no effect.
CHAINVET_API ATL::CSimpleStringT<wchar_t, false> GetErrorMessage(int code, unsigned int = 0);
