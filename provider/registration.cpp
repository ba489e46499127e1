// regsvr32 support: the CryptoAPI loader finds the provider under
// HKLM\SOFTWARE\Microsoft\Cryptography\Defaults\Provider\<name>.
#include <windows.h>

namespace {

constexpr wchar_t kProviderKey[] =
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Nivra pkcs11 CSP";
constexpr DWORD kProvRsaFull = 1;

HMODULE ThisModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                         GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ThisModule), &module);
  return module;
}

LONG SetDword(HKEY key, const wchar_t* name, DWORD value) {
  return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                        sizeof(value));
}

}  // namespace

extern "C" HRESULT WINAPI DllRegisterServer() {
  wchar_t path[MAX_PATH];
  DWORD length = GetModuleFileNameW(ThisModule(), path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return E_FAIL;
  HKEY key = nullptr;
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProviderKey, 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                      nullptr) != ERROR_SUCCESS) {
    return E_FAIL;
  }
  LONG result = RegSetValueExW(key, L"Image Path", 0, REG_SZ, reinterpret_cast<const BYTE*>(path),
                               (length + 1) * sizeof(wchar_t));
  if (result == ERROR_SUCCESS) result = SetDword(key, L"Type", kProvRsaFull);
  if (result == ERROR_SUCCESS) result = SetDword(key, L"SigInFile", 0);
  RegCloseKey(key);
  return result == ERROR_SUCCESS ? S_OK : E_FAIL;
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
  LONG result = RegDeleteKeyW(HKEY_LOCAL_MACHINE, kProviderKey);
  return result == ERROR_SUCCESS || result == ERROR_FILE_NOT_FOUND ? S_OK : E_FAIL;
}
