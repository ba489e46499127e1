#include "platform/module_handle.h"

namespace nivra::platform {

HMODULE CurrentModule() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&CurrentModule), &module)) {
    return nullptr;
  }
  return module;
}

}  // namespace nivra::platform
