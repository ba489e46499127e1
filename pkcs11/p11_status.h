// The token-slot back end reports the provider's status codes (provider/status_codes.h, where
// each one is defined); these are the names it uses unqualified.
#pragma once
#include "provider/status_codes.h"

namespace nivra::pkcs11 {

using provider::AsStatus;
using provider::Status;

using provider::kErrNoMoreItems;
using provider::kNteExists;
using provider::kNteProviderDllFail;
using provider::kScardCardNotAuthenticated;
using provider::kScardInvalidChv;
using provider::kScardUnknownCard;

}  // namespace nivra::pkcs11
