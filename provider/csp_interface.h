// The structure the CryptoAPI loader passes to a provider's acquire entry (the provider
// developer's kit layout; the Windows SDK headers of this toolchain hide it).
#pragma once
#include <windows.h>

namespace nivra::provider {

struct VTableProvStruc {
  DWORD Version;
  FARPROC FuncVerifyImage;
  FARPROC FuncReturnhWnd;
  DWORD dwProvType;  // Version 2 and later
  BYTE* pbContextInfo;
  DWORD cbContextInfo;
  LPSTR pszProvName;  // Version 3 and later
};

struct VTableProvStrucW {
  DWORD Version;
  FARPROC FuncVerifyImage;
  FARPROC FuncReturnhWnd;
  DWORD dwProvType;
  BYTE* pbContextInfo;
  DWORD cbContextInfo;
  LPWSTR pszProvName;
};

}  // namespace nivra::provider
