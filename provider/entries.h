// The provider's exported entries, with the CryptoAPI provider signatures. Each is exported
// under this name and under the standard CP* name that the CryptoAPI loader looks up
// (exports.def). None of them throws.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include "provider/csp_interface.h"

#define NIVRA_ENTRY extern "C" BOOL WINAPI

NIVRA_ENTRY NivraCPAcquireContext(HCRYPTPROV* phProv, LPSTR pszContainer, DWORD dwFlags,
                                  nivra::provider::VTableProvStruc* pVTable) noexcept;
NIVRA_ENTRY NivraCPAcquireContextW(HCRYPTPROV* phProv, LPWSTR pszContainer, DWORD dwFlags,
                                   nivra::provider::VTableProvStrucW* pVTable) noexcept;
NIVRA_ENTRY NivraCPReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) noexcept;
NIVRA_ENTRY NivraCPDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                             HCRYPTKEY* phKey) noexcept;
NIVRA_ENTRY NivraCPDestroyKey(HCRYPTPROV hProv, HCRYPTKEY hKey) noexcept;
NIVRA_ENTRY NivraCPSetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData,
                               DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPGetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData,
                               DWORD* pdwDataLen, DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPSetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData,
                                DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPSetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPGetHashParam(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                DWORD* pdwDataLen, DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPExportKey(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTKEY hPubKey,
                             DWORD dwBlobType, DWORD dwFlags, BYTE* pbData,
                             DWORD* pdwDataLen) noexcept;
NIVRA_ENTRY NivraCPImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen,
                             HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey) noexcept;
NIVRA_ENTRY NivraCPEncrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final,
                           DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen,
                           DWORD dwBufLen) noexcept;
NIVRA_ENTRY NivraCPDecrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final,
                           DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen) noexcept;
NIVRA_ENTRY NivraCPCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                              HCRYPTHASH* phHash) noexcept;
NIVRA_ENTRY NivraCPHashData(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbData,
                            DWORD dwDataLen, DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPHashSessionKey(HCRYPTPROV hProv, HCRYPTHASH hHash, HCRYPTKEY hKey,
                                  DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPSignHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD dwKeySpec,
                            LPCWSTR szDescription, DWORD dwFlags, BYTE* pbSignature,
                            DWORD* pdwSigLen) noexcept;
NIVRA_ENTRY NivraCPDestroyHash(HCRYPTPROV hProv, HCRYPTHASH hHash) noexcept;
NIVRA_ENTRY NivraCPVerifySignature(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbSignature,
                                   DWORD dwSigLen, HCRYPTKEY hPubKey, LPCWSTR szDescription,
                                   DWORD dwFlags) noexcept;
NIVRA_ENTRY NivraCPGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) noexcept;
NIVRA_ENTRY NivraCPGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) noexcept;
NIVRA_ENTRY NivraCPDuplicateHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD* pdwReserved,
                                 DWORD dwFlags, HCRYPTHASH* phHash) noexcept;
NIVRA_ENTRY NivraCPDuplicateKey(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD* pdwReserved,
                                DWORD dwFlags, HCRYPTKEY* phKey) noexcept;
