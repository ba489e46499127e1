// Test access to a provider DLL's exported entries, as the CryptoAPI loader reaches them.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <string>

#include "fake_card_control.h"

struct VTableProv {  // the loader's VTableProvStruc, version 3
  DWORD Version;
  FARPROC FuncVerifyImage;
  FARPROC FuncReturnhWnd;
  DWORD dwProvType;
  BYTE* pbContextInfo;
  DWORD cbContextInfo;
  LPSTR pszProvName;
};

struct ProviderDll {
  HMODULE module = nullptr;
  BOOL(WINAPI* AcquireContext)(HCRYPTPROV*, LPSTR, DWORD, VTableProv*) = nullptr;
  BOOL(WINAPI* AcquireContextW)(HCRYPTPROV*, LPWSTR, DWORD, void*) = nullptr;
  BOOL(WINAPI* ReleaseContext)(HCRYPTPROV, DWORD) = nullptr;
  BOOL(WINAPI* GenKey)(HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*) = nullptr;
  BOOL(WINAPI* DeriveKey)(HCRYPTPROV, ALG_ID, HCRYPTHASH, DWORD, HCRYPTKEY*) = nullptr;
  BOOL(WINAPI* DestroyKey)(HCRYPTPROV, HCRYPTKEY) = nullptr;
  BOOL(WINAPI* SetKeyParam)(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD) = nullptr;
  BOOL(WINAPI* GetKeyParam)(HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD) = nullptr;
  BOOL(WINAPI* SetProvParam)(HCRYPTPROV, DWORD, BYTE*, DWORD) = nullptr;
  BOOL(WINAPI* GetProvParam)(HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD) = nullptr;
  BOOL(WINAPI* SetHashParam)(HCRYPTPROV, HCRYPTHASH, DWORD, BYTE*, DWORD) = nullptr;
  BOOL(WINAPI* GetHashParam)(HCRYPTPROV, HCRYPTHASH, DWORD, BYTE*, DWORD*, DWORD) = nullptr;
  BOOL(WINAPI* ExportKey)(HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*) = nullptr;
  BOOL(WINAPI* ImportKey)(HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*) = nullptr;
  BOOL(WINAPI* Encrypt)(HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, BYTE*, DWORD*, DWORD) = nullptr;
  BOOL(WINAPI* Decrypt)(HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, BYTE*, DWORD*) = nullptr;
  BOOL(WINAPI* CreateHash)(HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*) = nullptr;
  BOOL(WINAPI* HashData)(HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, DWORD) = nullptr;
  BOOL(WINAPI* HashSessionKey)(HCRYPTPROV, HCRYPTHASH, HCRYPTKEY, DWORD) = nullptr;
  BOOL(WINAPI* SignHash)(HCRYPTPROV, HCRYPTHASH, DWORD, LPCWSTR, DWORD, BYTE*, DWORD*) = nullptr;
  BOOL(WINAPI* DestroyHash)(HCRYPTPROV, HCRYPTHASH) = nullptr;
  BOOL(WINAPI* VerifySignature)(HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, HCRYPTKEY, LPCWSTR, DWORD) = nullptr;
  BOOL(WINAPI* GenRandom)(HCRYPTPROV, DWORD, BYTE*) = nullptr;
  BOOL(WINAPI* GetUserKey)(HCRYPTPROV, DWORD, HCRYPTKEY*) = nullptr;
  BOOL(WINAPI* DuplicateHash)(HCRYPTPROV, HCRYPTHASH, DWORD*, DWORD, HCRYPTHASH*) = nullptr;
  BOOL(WINAPI* DuplicateKey)(HCRYPTPROV, HCRYPTKEY, DWORD*, DWORD, HCRYPTKEY*) = nullptr;
  FakeCardResetFn FakeReset = nullptr;
  FakeCardSetOpenResultFn FakeSetOpenResult = nullptr;
  FakeCardRecordGetFn FakeRecordGet = nullptr;

  // Loads the DLL next to the test program and resolves every entry under `prefix`
  // ("NivraCP" or "CP"). Returns false (with a message) when anything is missing.
  bool Load(const wchar_t* dllName, const char* prefix, std::string* error);
  FakeCardRecord Record() const;
};

// The two provider builds: the product, and the one whose service cards and Bluetooth cards are
// the test back end.
constexpr wchar_t kProductDll[] = L"nivracsp.dll";
constexpr wchar_t kFakeCardDll[] = L"nivracsp_fake.dll";

// The same software provider the frame opens, for cross-checks.
HCRYPTPROV OpenWineSoftwareProvider();
