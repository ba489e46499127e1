// The module that holds the dialog resources: whichever module this code is linked into
// (nivracsp.dll in use, a test program in tests), found from an address inside it.
#pragma once
#include <windows.h>

namespace nivra::ui {

// Handle of the module containing this function; no reference is added. nullptr only if the
// loader cannot map the address to a module.
HMODULE UiResourceModule();

}  // namespace nivra::ui
