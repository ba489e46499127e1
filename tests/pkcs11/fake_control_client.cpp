// Test side of the fake module's controls.
#include "fake_module/fake_control.h"

namespace {
template <class Fn>
bool Resolve(HMODULE module, const char* name, Fn* out) {
  *out = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  return *out != nullptr;
}
}  // namespace

bool FakeModuleControl::Load(const wchar_t* path) {
  module = LoadLibraryW(path);
  if (module == nullptr) return false;
  CK_C_GetFunctionList getList = nullptr;
  const bool resolved =
      Resolve(module, "FakeP11Reset", &Reset) &&
      Resolve(module, "FakeP11SetInitializeResult", &SetInitializeResult) &&
      Resolve(module, "FakeP11SetFunctionListResult", &SetFunctionListResult) &&
      Resolve(module, "FakeP11SetSlots", &SetSlots) &&
      Resolve(module, "FakeP11SetTokenPresent", &SetTokenPresent) &&
      Resolve(module, "FakeP11SetSlotDescription", &SetSlotDescription) &&
      Resolve(module, "FakeP11SetStrictTemplates", &SetStrictTemplates) &&
      Resolve(module, "FakeP11SetCreateResult", &SetCreateResult) &&
      Resolve(module, "FakeP11SetWaitMode", &SetWaitMode) &&
      Resolve(module, "FakeP11RaiseEvent", &RaiseEvent) &&
      Resolve(module, "FakeP11SetLoginResult", &SetLoginResult) &&
      Resolve(module, "FakeP11SetDecryptResult", &SetDecryptResult) &&
      Resolve(module, "FakeP11CallCount", &CallCount) &&
      Resolve(module, "FakeP11Initialised", &Initialised) &&
      Resolve(module, "C_GetFunctionList", &getList);
  return resolved && getList(&functions) == CKR_OK && functions != nullptr;
}
