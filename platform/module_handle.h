// The module this code is linked into (nivracsp.dll in use, a test program in tests), found from
// an address inside it: where the dialog resources live.
#pragma once
#include <windows.h>

namespace nivra::platform {

// Handle of the module containing this function; no reference is added. nullptr only if the
// loader cannot map the address to a module.
HMODULE CurrentModule();

}  // namespace nivra::platform
