// Session and login entries of the fake. Login state belongs to the token, as in PKCS#11: every
// session of the application on the slot shares it.
#include <cstring>

#include "fake_state.h"

using namespace fake;

namespace {

std::string PinText(const CK_UTF8CHAR* pin, CK_ULONG length) {
  return std::string(reinterpret_cast<const char*>(pin), length);
}

CK_RV OpenSession(CK_SLOT_ID id, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
  FAKE_ENTRY("C_OpenSession");
  Slot* slot = FindSlot(s, id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  if (!slot->tokenPresent) return CKR_TOKEN_NOT_PRESENT;
  if (!(flags & CKF_SERIAL_SESSION)) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
  const CK_SESSION_HANDLE handle = s.nextHandle++;
  s.sessions[handle].slot = id;
  *session = handle;
  return CKR_OK;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  FAKE_ENTRY("C_CloseSession");
  auto it = s.sessions.find(session);
  if (it == s.sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  const CK_SLOT_ID id = it->second.slot;
  s.sessions.erase(it);
  for (const auto& other : s.sessions) {
    if (other.second.slot == id) return CKR_OK;
  }
  // The last session of the slot is gone: so is the login.
  if (Slot* slot = FindSlot(s, id)) slot->token.userLoggedIn = slot->token.soLoggedIn = false;
  return CKR_OK;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info) {
  FAKE_ENTRY("C_GetSessionInfo");
  auto it = s.sessions.find(session);
  if (it == s.sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_DEVICE_REMOVED;
  std::memset(info, 0, sizeof(*info));
  info->slotID = it->second.slot;
  info->flags = CKF_SERIAL_SESSION | CKF_RW_SESSION;
  info->state = slot->token.userLoggedIn ? CKS_RW_USER_FUNCTIONS
                : slot->token.soLoggedIn ? CKS_RW_SO_FUNCTIONS
                                         : CKS_RW_PUBLIC_SESSION;
  return CKR_OK;
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR* pin, CK_ULONG length) {
  FAKE_ENTRY("C_Login");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (s.loginResult != CKR_OK) return s.loginResult;
  Token& token = slot->token;
  if (user == CKU_USER) {
    if (token.userLoggedIn) return CKR_USER_ALREADY_LOGGED_IN;
    if (token.soLoggedIn) return CKR_USER_ANOTHER_ALREADY_LOGGED_IN;
    if (token.userPin.empty()) return CKR_USER_PIN_NOT_INITIALIZED;
    if (PinText(pin, length) != token.userPin) return CKR_PIN_INCORRECT;
    token.userLoggedIn = true;
    return CKR_OK;
  }
  if (user == CKU_SO) {
    if (token.soLoggedIn) return CKR_USER_ALREADY_LOGGED_IN;
    if (token.userLoggedIn) return CKR_USER_ANOTHER_ALREADY_LOGGED_IN;
    if (PinText(pin, length) != token.soPin) return CKR_PIN_INCORRECT;
    token.soLoggedIn = true;
    return CKR_OK;
  }
  return CKR_USER_TYPE_INVALID;
}

CK_RV Logout(CK_SESSION_HANDLE session) {
  FAKE_ENTRY("C_Logout");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (!slot->token.userLoggedIn && !slot->token.soLoggedIn) return CKR_USER_NOT_LOGGED_IN;
  slot->token.userLoggedIn = slot->token.soLoggedIn = false;
  return CKR_OK;
}

CK_RV InitPIN(CK_SESSION_HANDLE session, CK_UTF8CHAR* pin, CK_ULONG length) {
  FAKE_ENTRY("C_InitPIN");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (!slot->token.soLoggedIn) return CKR_USER_NOT_LOGGED_IN;
  slot->token.userPin = PinText(pin, length);
  return CKR_OK;
}

CK_RV SetPIN(CK_SESSION_HANDLE session, CK_UTF8CHAR* oldPin, CK_ULONG oldLength,
             CK_UTF8CHAR* newPin, CK_ULONG newLength) {
  FAKE_ENTRY("C_SetPIN");
  Slot* slot = SessionSlot(s, session);
  if (slot == nullptr) return CKR_SESSION_HANDLE_INVALID;
  std::string& current = slot->token.soLoggedIn ? slot->token.soPin : slot->token.userPin;
  if (PinText(oldPin, oldLength) != current) return CKR_PIN_INCORRECT;
  current = PinText(newPin, newLength);
  return CKR_OK;
}

}  // namespace

void FillSessionFunctions(CK_FUNCTION_LIST& list) {
  list.C_OpenSession = OpenSession;
  list.C_CloseSession = CloseSession;
  list.C_GetSessionInfo = GetSessionInfo;
  list.C_Login = Login;
  list.C_Logout = Logout;
  list.C_InitPIN = InitPIN;
  list.C_SetPIN = SetPIN;
}
