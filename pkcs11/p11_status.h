// Status codes that only the token-slot back end reports, in the provider's Status family
// (provider/status_codes.h holds the ones the frame shares with every back end).
#pragma once
#include <windows.h>
#include <winerror.h>

#include "provider/status_codes.h"

namespace nivra::pkcs11 {

using provider::AsStatus;
using provider::Status;

constexpr Status kErrNoMoreItems = ERROR_NO_MORE_ITEMS;  // 259
constexpr Status kNteProviderDllFail = AsStatus(NTE_PROVIDER_DLL_FAIL);
constexpr Status kNteExists = AsStatus(NTE_EXISTS);
constexpr Status kScardInvalidChv = AsStatus(SCARD_E_INVALID_CHV);
constexpr Status kScardUnknownCard = AsStatus(SCARD_E_UNKNOWN_CARD);
constexpr Status kScardCardNotAuthenticated = AsStatus(SCARD_W_CARD_NOT_AUTHENTICATED);

static_assert(kNteProviderDllFail == 0x8009001Du, "NTE_PROVIDER_DLL_FAIL");
static_assert(kNteExists == 0x8009000Fu, "NTE_EXISTS");
static_assert(kScardInvalidChv == 0x8010002Au, "SCARD_E_INVALID_CHV");
static_assert(kScardUnknownCard == 0x8010000Du, "SCARD_E_UNKNOWN_CARD");
static_assert(kScardCardNotAuthenticated == 0x8010006Fu, "SCARD_W_CARD_NOT_AUTHENTICATED");

}  // namespace nivra::pkcs11
