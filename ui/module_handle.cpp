#include "ui/module_handle.h"

namespace nivra::ui {

HMODULE UiResourceModule() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&UiResourceModule), &module)) {
    return nullptr;
  }
  return module;
}

}  // namespace nivra::ui
