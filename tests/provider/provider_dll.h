// Test access to a provider DLL's exported entries, as the CryptoAPI loader reaches them.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <string>

#include "fake_card_control.h"
#include "provider/csp_interface.h"

using VTableProv = nivra::provider::VTableProvStruc;  // the loader's table, version 3

// The CryptoAPI entries the tests call (the duplicate entries only answer that they are not
// implemented): each name without prefix and its arguments.
#define NIVRA_PROVIDER_ENTRIES(X) \
  X(AcquireContext, HCRYPTPROV*, LPSTR, DWORD, VTableProv*) \
  X(AcquireContextW, HCRYPTPROV*, LPWSTR, DWORD, void*) \
  X(ReleaseContext, HCRYPTPROV, DWORD) \
  X(GenKey, HCRYPTPROV, ALG_ID, DWORD, HCRYPTKEY*) \
  X(DeriveKey, HCRYPTPROV, ALG_ID, HCRYPTHASH, DWORD, HCRYPTKEY*) \
  X(DestroyKey, HCRYPTPROV, HCRYPTKEY) \
  X(SetKeyParam, HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD) \
  X(GetKeyParam, HCRYPTPROV, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD) \
  X(SetProvParam, HCRYPTPROV, DWORD, BYTE*, DWORD) \
  X(GetProvParam, HCRYPTPROV, DWORD, BYTE*, DWORD*, DWORD) \
  X(SetHashParam, HCRYPTPROV, HCRYPTHASH, DWORD, BYTE*, DWORD) \
  X(GetHashParam, HCRYPTPROV, HCRYPTHASH, DWORD, BYTE*, DWORD*, DWORD) \
  X(ExportKey, HCRYPTPROV, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD, BYTE*, DWORD*) \
  X(ImportKey, HCRYPTPROV, const BYTE*, DWORD, HCRYPTKEY, DWORD, HCRYPTKEY*) \
  X(Encrypt, HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, BYTE*, DWORD*, DWORD) \
  X(Decrypt, HCRYPTPROV, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD, BYTE*, DWORD*) \
  X(CreateHash, HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*) \
  X(HashData, HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, DWORD) \
  X(HashSessionKey, HCRYPTPROV, HCRYPTHASH, HCRYPTKEY, DWORD) \
  X(SignHash, HCRYPTPROV, HCRYPTHASH, DWORD, LPCWSTR, DWORD, BYTE*, DWORD*) \
  X(DestroyHash, HCRYPTPROV, HCRYPTHASH) \
  X(VerifySignature, HCRYPTPROV, HCRYPTHASH, const BYTE*, DWORD, HCRYPTKEY, LPCWSTR, DWORD) \
  X(GenRandom, HCRYPTPROV, DWORD, BYTE*) \
  X(GetUserKey, HCRYPTPROV, DWORD, HCRYPTKEY*)

struct ProviderDll {
  HMODULE module = nullptr;
#define NIVRA_DECLARE_ENTRY(name, ...) BOOL(WINAPI* name)(__VA_ARGS__) = nullptr;
  NIVRA_PROVIDER_ENTRIES(NIVRA_DECLARE_ENTRY)
#undef NIVRA_DECLARE_ENTRY
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
