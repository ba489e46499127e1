// Logging in to a slot's token and the PIN administration. The login state belongs to the slot's
// shared session, so one context's login serves every context on the slot until the token is
// removed.
#pragma once
#include <cstdint>
#include <string>

#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"

namespace nivra::pkcs11 {

// Makes sure the slot session is logged in as the user. A session already in the
// CKS_RW_USER_FUNCTIONS state needs nothing. Otherwise the PIN the application set on the context
// is tried (CKR_FUNCTION_NOT_SUPPORTED: NTE_NOT_SUPPORTED; any other refusal goes on; a token
// that says it is logged in already is logged out and the PIN submitted again); then a
// silent context gets NTE_SILENT_CONTEXT, any other asks the user in the PIN dialog (cancelled:
// SCARD_W_CANCELLED_BY_USER) and submits what was typed once: a wrong PIN gives
// SCARD_W_WRONG_CHV, a locked one SCARD_W_CHV_BLOCKED, any other refusal NTE_FAIL.
Status EnsureLogin(provider::ProviderContext& ctx, SlotDevice& device);

// C_Login as the user with the given PIN on the slot session, mapped with MapCkrToError (a wrong
// PIN gives SCARD_E_INVALID_CHV here). A token logged in already (by another context on the slot)
// is logged out and the PIN submitted again, so the PIN is always checked; a wrong one leaves the
// token logged out.
Status LoginWithPin(SlotDevice& device, const uint8_t* pin, uint32_t pinLength);

// C_SetPIN on the slot session.
Status ChangePin(SlotDevice& device, const char* oldPin, const char* newPin);

// Logs the security officer in, sets the new user PIN, logs the officer out and the user in with
// the new PIN. The first failure is returned mapped.
Status UnblockPin(SlotDevice& device, const char* soPin, const char* newPin);

// Re-initialises the token under its current label. soPin == provider::kNoPin: C_InitToken
// without a PIN and nothing else. Otherwise C_InitToken with the officer PIN, then in a new slot
// session the officer logs in, sets the user PIN and logs out. NTE_FAIL when the back end is not
// initialised; the first failure is returned mapped.
Status InitToken(SlotDevice& device, const char* soPin, const char* newPin);

// The PIN dialog: asks the user for the PIN, owned by `owner` (may be null). False when the user
// cancelled or the dialog could not be shown; otherwise the PIN in the ANSI code page.
bool AskUserForPin(uintptr_t owner, std::string* pin);

}  // namespace nivra::pkcs11
