#include "pkcs11/module_loader.h"

#include <windows.h>

namespace nivra::pkcs11 {

namespace {

constexpr wchar_t kConfigKey[] = L"SOFTWARE\\NivraCSP";
constexpr wchar_t kModulePathValue[] = L"LibPkcs11";

// One character more than the registry read may fill, so the path always ends in a NUL.
wchar_t g_modulePath[kModulePathChars + 1];
CK_FUNCTION_LIST* g_functions = nullptr;

}  // namespace

Status ReadModulePath() {
  if (g_modulePath[0] != L'\0') return provider::kOk;
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kConfigKey, 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return provider::kNteFail;
  }
  DWORD size = kModulePathChars * sizeof(wchar_t);
  LONG result = RegQueryValueExW(key, kModulePathValue, nullptr, nullptr,
                                 reinterpret_cast<BYTE*>(g_modulePath), &size);
  RegCloseKey(key);
  if (result != ERROR_SUCCESS) {
    g_modulePath[0] = L'\0';
    return provider::kNteFail;
  }
  g_modulePath[size / sizeof(wchar_t) < kModulePathChars ? size / sizeof(wchar_t)
                                                          : kModulePathChars] = L'\0';
  return provider::kOk;
}

Status LoadPkcs11Module() {
  Status status = ReadModulePath();
  if (status != provider::kOk) return status;
  HMODULE module = LoadLibraryW(g_modulePath);
  if (module == nullptr) return kNteProviderDllFail;
  // GetProcAddress knows no signatures; the export's type is the standard one.
  auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(
      reinterpret_cast<void*>(GetProcAddress(module, "C_GetFunctionList")));
  CK_FUNCTION_LIST* list = nullptr;
  if (getFunctionList == nullptr || getFunctionList(&list) != CKR_OK || list == nullptr) {
    FreeLibrary(module);
    return kNteProviderDllFail;
  }
  g_functions = list;
  return provider::kOk;
}

CK_FUNCTION_LIST* P11() { return g_functions; }

const wchar_t* ModulePath() { return g_modulePath; }

}  // namespace nivra::pkcs11
