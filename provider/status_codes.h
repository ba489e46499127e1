// Status codes the provider and its card back ends report through SetLastError, each defined once
// here. CryptoAPI and smart-card codes come from <winerror.h>; this header names the values used
// as results and gives every family one place in the module.
#pragma once
#include <windows.h>
#include <winerror.h>

#include <cstdint>

namespace nivra::provider {

using Status = uint32_t;  // 0 for success, otherwise an NTE_*, SCARD_* or Win32 code

constexpr Status kOk = 0;
constexpr Status kErrInvalidParameter = ERROR_INVALID_PARAMETER;   // 87
constexpr Status kErrNotImplemented = ERROR_CALL_NOT_IMPLEMENTED;  // 120
constexpr Status kErrMoreData = ERROR_MORE_DATA;                   // 234
constexpr Status kErrNoMoreItems = ERROR_NO_MORE_ITEMS;            // 259

// NTE_* values are HRESULTs in the headers; the provider passes them around as 32-bit codes.
constexpr Status AsStatus(HRESULT hr) { return static_cast<Status>(hr); }

constexpr Status kNteBadUid = AsStatus(NTE_BAD_UID);
constexpr Status kNteBadHash = AsStatus(NTE_BAD_HASH);
constexpr Status kNteBadKey = AsStatus(NTE_BAD_KEY);
constexpr Status kNteBadLen = AsStatus(NTE_BAD_LEN);
constexpr Status kNteBadData = AsStatus(NTE_BAD_DATA);
constexpr Status kNteBadSignature = AsStatus(NTE_BAD_SIGNATURE);
constexpr Status kNteBadFlags = AsStatus(NTE_BAD_FLAGS);
constexpr Status kNteBadType = AsStatus(NTE_BAD_TYPE);
constexpr Status kNteBadKeyState = AsStatus(NTE_BAD_KEY_STATE);
constexpr Status kNteNoKey = AsStatus(NTE_NO_KEY);
constexpr Status kNteNoMemory = AsStatus(NTE_NO_MEMORY);
constexpr Status kNtePerm = AsStatus(NTE_PERM);
constexpr Status kNteNotFound = AsStatus(NTE_NOT_FOUND);
constexpr Status kNteBadPublicKey = AsStatus(NTE_BAD_PUBLIC_KEY);
constexpr Status kNteBadKeyset = AsStatus(NTE_BAD_KEYSET);
constexpr Status kNteBadKeysetParam = AsStatus(NTE_BAD_KEYSET_PARAM);
constexpr Status kNteFail = AsStatus(NTE_FAIL);
constexpr Status kNteSysErr = AsStatus(NTE_SYS_ERR);
constexpr Status kNteSilentContext = AsStatus(NTE_SILENT_CONTEXT);
constexpr Status kNteInvalidHandle = AsStatus(NTE_INVALID_HANDLE);
constexpr Status kNteInvalidParameter = AsStatus(NTE_INVALID_PARAMETER);
constexpr Status kNteNotSupported = AsStatus(NTE_NOT_SUPPORTED);
constexpr Status kNteProviderDllFail = AsStatus(NTE_PROVIDER_DLL_FAIL);
constexpr Status kNteExists = AsStatus(NTE_EXISTS);
constexpr Status kScardWrongChv = AsStatus(SCARD_W_WRONG_CHV);
constexpr Status kScardChvBlocked = AsStatus(SCARD_W_CHV_BLOCKED);
constexpr Status kScardCancelledByUser = AsStatus(SCARD_W_CANCELLED_BY_USER);
constexpr Status kScardTimeout = AsStatus(SCARD_E_TIMEOUT);
constexpr Status kScardInvalidChv = AsStatus(SCARD_E_INVALID_CHV);
constexpr Status kScardUnknownCard = AsStatus(SCARD_E_UNKNOWN_CARD);
constexpr Status kScardCardNotAuthenticated = AsStatus(SCARD_W_CARD_NOT_AUTHENTICATED);

static_assert(kNteInvalidHandle == 0x80090026u, "NTE_INVALID_HANDLE");
static_assert(kNteBadKeyset == 0x80090016u, "NTE_BAD_KEYSET");
static_assert(kNteProviderDllFail == 0x8009001Du, "NTE_PROVIDER_DLL_FAIL");
static_assert(kNteExists == 0x8009000Fu, "NTE_EXISTS");
static_assert(kScardCancelledByUser == 0x8010006Eu, "SCARD_W_CANCELLED_BY_USER");
static_assert(kScardInvalidChv == 0x8010002Au, "SCARD_E_INVALID_CHV");
static_assert(kScardUnknownCard == 0x8010000Du, "SCARD_E_UNKNOWN_CARD");
static_assert(kScardCardNotAuthenticated == 0x8010006Fu, "SCARD_W_CARD_NOT_AUTHENTICATED");

}  // namespace nivra::provider
