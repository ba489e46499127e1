#include "pkcs11/token_login.h"

#include <cstring>
#include <string>

#include "pkcs11/backend_state.h"
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/slot_session.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

CK_UTF8CHAR_PTR PinBytes(const void* pin) {
  return reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<void*>(pin));
}

CK_ULONG PinLength(const char* pin) { return static_cast<CK_ULONG>(std::strlen(pin)); }

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, const void* pin, CK_ULONG length) {
  return P11()->C_Login(session, user, PinBytes(pin), length);
}

// A PIN the application submits is always checked by the token: the slot session is shared, so
// another context may have logged it in already, and a wrong PIN must not pass merely because of
// that. The login is ended and made again with this PIN; a wrong one leaves the token logged out.
CK_RV SubmitUserPin(CK_SESSION_HANDLE session, const void* pin, CK_ULONG length) {
  CK_RV rv = Login(session, CKU_USER, pin, length);
  if (rv != CKR_USER_ALREADY_LOGGED_IN) return rv;
  P11()->C_Logout(session);
  return Login(session, CKU_USER, pin, length);
}

// The outcome of the PIN the user typed: the dialog's own mapping, not MapCkrToError's.
Status DialogLoginResult(CK_RV rv) {
  switch (rv) {
    case CKR_OK:
      return kOk;
    case CKR_PIN_INCORRECT:
      return provider::kScardWrongChv;
    case CKR_PIN_LOCKED:
      return provider::kScardChvBlocked;
    default:
      return provider::kNteFail;
  }
}

}  // namespace

Status EnsureLogin(provider::ProviderContext& ctx, SlotDevice& device) {
  P11Slot& slot = *device.slot;
  Status status = EnsureSlotSession(slot);
  if (status != kOk) return status;
  CK_FUNCTION_LIST* p11 = P11();
  CK_SESSION_INFO info{};
  CK_RV rv = p11->C_GetSessionInfo(slot.session, &info);
  if (rv != CKR_OK) return MapCkrToError(rv);
  if (info.state == CKS_RW_USER_FUNCTIONS) return kOk;

  if (ctx.pinLength != 0) {
    rv = SubmitUserPin(slot.session, ctx.pin, ctx.pinLength);
    if (rv == CKR_OK) return kOk;
    if (rv == CKR_FUNCTION_NOT_SUPPORTED) return provider::kNteNotSupported;
  }
  if (ctx.silent) return provider::kNteSilentContext;

  std::string typed;
  if (!AskUserForPin(ctx.clientWindow, &typed)) return provider::kScardCancelledByUser;
  rv = Login(slot.session, CKU_USER, typed.data(), static_cast<CK_ULONG>(typed.size()));
  SecureZeroMemory(&typed[0], typed.size());
  return DialogLoginResult(rv);
}

Status LoginWithPin(SlotDevice& device, const uint8_t* pin, uint32_t pinLength) {
  Status status = EnsureSlotSession(*device.slot);
  if (status != kOk) return status;
  return MapCkrToError(SubmitUserPin(device.slot->session, pin, pinLength));
}

Status ChangePin(SlotDevice& device, const char* oldPin, const char* newPin) {
  Status status = EnsureSlotSession(*device.slot);
  if (status != kOk) return status;
  return MapCkrToError(P11()->C_SetPIN(device.slot->session, PinBytes(oldPin), PinLength(oldPin),
                                       PinBytes(newPin), PinLength(newPin)));
}

Status UnblockPin(SlotDevice& device, const char* soPin, const char* newPin) {
  Status status = EnsureSlotSession(*device.slot);
  if (status != kOk) return status;
  const CK_SESSION_HANDLE session = device.slot->session;
  CK_RV rv = Login(session, CKU_SO, soPin, PinLength(soPin));
  if (rv == CKR_OK) rv = P11()->C_InitPIN(session, PinBytes(newPin), PinLength(newPin));
  // The officer's login would stay on the shared session and refuse the user's.
  if (rv == CKR_OK) rv = P11()->C_Logout(session);
  if (rv == CKR_OK) rv = Login(session, CKU_USER, newPin, PinLength(newPin));
  return MapCkrToError(rv);
}

Status InitToken(SlotDevice& device, const char* soPin, const char* newPin) {
  if (!Backend().initialised) return provider::kNteFail;
  P11Slot& slot = *device.slot;
  CK_FUNCTION_LIST* p11 = P11();
  CloseSlotSession(slot);
  CK_TOKEN_INFO info{};
  CK_RV rv = p11->C_GetTokenInfo(slot.slotId, &info);
  if (rv != CKR_OK) return MapCkrToError(rv);
  if (soPin == provider::kNoPin) {
    return MapCkrToError(p11->C_InitToken(slot.slotId, PinBytes(soPin), 0, info.label));
  }
  rv = p11->C_InitToken(slot.slotId, PinBytes(soPin), PinLength(soPin), info.label);
  if (rv != CKR_OK) return MapCkrToError(rv);
  Status status = EnsureSlotSession(slot);
  if (status != kOk) return status;
  rv = Login(slot.session, CKU_SO, soPin, PinLength(soPin));
  if (rv == CKR_OK) rv = p11->C_InitPIN(slot.session, PinBytes(newPin), PinLength(newPin));
  if (rv == CKR_OK) rv = p11->C_Logout(slot.session);
  return MapCkrToError(rv);
}

}  // namespace nivra::pkcs11
