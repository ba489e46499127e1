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
  ok &= Resolve(module, p + "AcquireContext", &AcquireContext, error);
  ok &= Resolve(module, p + "AcquireContextW", &AcquireContextW, error);
  ok &= Resolve(module, p + "ReleaseContext", &ReleaseContext, error);
  ok &= Resolve(module, p + "GenKey", &GenKey, error);
  ok &= Resolve(module, p + "DeriveKey", &DeriveKey, error);
  ok &= Resolve(module, p + "DestroyKey", &DestroyKey, error);
  ok &= Resolve(module, p + "SetKeyParam", &SetKeyParam, error);
  ok &= Resolve(module, p + "GetKeyParam", &GetKeyParam, error);
  ok &= Resolve(module, p + "SetProvParam", &SetProvParam, error);
  ok &= Resolve(module, p + "GetProvParam", &GetProvParam, error);
  ok &= Resolve(module, p + "SetHashParam", &SetHashParam, error);
  ok &= Resolve(module, p + "GetHashParam", &GetHashParam, error);
  ok &= Resolve(module, p + "ExportKey", &ExportKey, error);
  ok &= Resolve(module, p + "ImportKey", &ImportKey, error);
  ok &= Resolve(module, p + "Encrypt", &Encrypt, error);
  ok &= Resolve(module, p + "Decrypt", &Decrypt, error);
  ok &= Resolve(module, p + "CreateHash", &CreateHash, error);
  ok &= Resolve(module, p + "HashData", &HashData, error);
  ok &= Resolve(module, p + "HashSessionKey", &HashSessionKey, error);
  ok &= Resolve(module, p + "SignHash", &SignHash, error);
  ok &= Resolve(module, p + "DestroyHash", &DestroyHash, error);
  ok &= Resolve(module, p + "VerifySignature", &VerifySignature, error);
  ok &= Resolve(module, p + "GenRandom", &GenRandom, error);
  ok &= Resolve(module, p + "GetUserKey", &GetUserKey, error);
  ok &= Resolve(module, p + "DuplicateHash", &DuplicateHash, error);
  ok &= Resolve(module, p + "DuplicateKey", &DuplicateKey, error);
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
