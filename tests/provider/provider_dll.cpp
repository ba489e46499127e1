#include "provider_dll.h"

#include <cstring>

namespace {
template <class Fn>
bool Resolve(HMODULE module, const std::string& name, Fn* out, std::string* error) {
  *out = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name.c_str())));
  if (*out == nullptr) *error += "missing export " + name + "\n";
  return *out != nullptr;
}
}  // namespace

bool ProviderDll::Load(const wchar_t* dllName, const char* prefix, std::string* error) {
  error->clear();
  module = LoadLibraryW(dllName);
  if (module == nullptr) {
    *error = "LoadLibrary failed: " + std::to_string(GetLastError());
    return false;
  }
  const std::string p = prefix;
  bool ok = true;
#define NIVRA_RESOLVE_ENTRY(name, ...) ok &= Resolve(module, p + #name, &name, error);
  NIVRA_PROVIDER_ENTRIES(NIVRA_RESOLVE_ENTRY)
#undef NIVRA_RESOLVE_ENTRY
  if (std::wcscmp(dllName, kFakeCardDll) == 0) {
    ok &= Resolve(module, "FakeCardReset", &FakeReset, error);
    ok &= Resolve(module, "FakeCardSetOpenResult", &FakeSetOpenResult, error);
    ok &= Resolve(module, "FakeCardRecordGet", &FakeRecordGet, error);
  }
  return ok;
}

FakeCardRecord ProviderDll::Record() const {
  FakeCardRecord record{};
  FakeRecordGet(&record);
  return record;
}

HCRYPTPROV OpenWineSoftwareProvider() {
  HCRYPTPROV prov = 0;
  CryptAcquireContextW(&prov, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT);
  return prov;
}
