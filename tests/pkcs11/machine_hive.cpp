#include "machine_hive.h"

#include <gtest/gtest.h>
#include <wincrypt.h>

namespace nivra::p11test {

namespace {

constexpr wchar_t kProviders[] = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider";
constexpr wchar_t kProviderTypes[] = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types";
constexpr wchar_t kConfig[] = L"SOFTWARE\\NivraCSP";

HKEY CreateKey(HKEY parent, const std::wstring& path) {
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(parent, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                            nullptr),
            ERROR_SUCCESS)
      << "cannot create registry key";
  return key;
}

void CopyTree(HKEY to, const wchar_t* path) {
  HKEY source = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &source) != ERROR_SUCCESS) return;
  HKEY target = CreateKey(to, path);
  EXPECT_EQ(RegCopyTreeW(source, nullptr, target), ERROR_SUCCESS) << "cannot copy registry key";
  RegCloseKey(target);
  RegCloseKey(source);
}

void SetValue(HKEY key, const wchar_t* name, DWORD type, const void* data, size_t size) {
  EXPECT_EQ(RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data),
                           static_cast<DWORD>(size)),
            ERROR_SUCCESS);
}

}  // namespace

PrivateMachineHive::PrivateMachineHive() {
  rootPath_ = L"Software\\NivraTests\\Machine-" + std::to_wstring(GetCurrentProcessId());
  RegDeleteTreeW(HKEY_CURRENT_USER, rootPath_.c_str());
  root_ = CreateKey(HKEY_CURRENT_USER, rootPath_);
  CopyTree(root_, kProviders);
  CopyTree(root_, kProviderTypes);
}

PrivateMachineHive::~PrivateMachineHive() {
  Deactivate();
  if (root_ != nullptr) RegCloseKey(root_);
  RegDeleteTreeW(HKEY_CURRENT_USER, rootPath_.c_str());
}

void PrivateMachineHive::SetModulePath(const std::wstring& path) {
  HKEY key = CreateKey(root_, kConfig);
  SetValue(key, L"LibPkcs11", REG_SZ, path.c_str(), (path.size() + 1) * sizeof(wchar_t));
  RegCloseKey(key);
}

void PrivateMachineHive::RemoveModulePath() {
  HKEY key = CreateKey(root_, kConfig);
  RegDeleteValueW(key, L"LibPkcs11");
  RegCloseKey(key);
}

void PrivateMachineHive::RegisterProvider(const std::wstring& name, const std::wstring& imagePath) {
  HKEY key = CreateKey(root_, std::wstring(kProviders) + L"\\" + name);
  const DWORD type = PROV_RSA_FULL, noSignatureFile = 0;
  SetValue(key, L"Image Path", REG_SZ, imagePath.c_str(), (imagePath.size() + 1) * sizeof(wchar_t));
  SetValue(key, L"Type", REG_DWORD, &type, sizeof(type));
  SetValue(key, L"SigInFile", REG_DWORD, &noSignatureFile, sizeof(noSignatureFile));
  RegCloseKey(key);
}

void PrivateMachineHive::Activate() {
  if (active_) return;
  ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_), ERROR_SUCCESS);
  active_ = true;
}

void PrivateMachineHive::Deactivate() {
  if (!active_) return;
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  active_ = false;
}

std::wstring ProgramDirectory() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring dir = path;
  return dir.substr(0, dir.find_last_of(L"\\/") + 1);
}

}  // namespace nivra::p11test
