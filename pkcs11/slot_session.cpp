#include "pkcs11/slot_session.h"

#include <cstring>
#include <mutex>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/remote_slots.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

// Guards the session field of every record, so that two threads never open two sessions for one
// slot and the monitor never closes a session while a context replaces it. It is the innermost
// lock: taken after the card's lock or the slot-table mutex, never while waiting for another.
std::mutex& SessionFieldLock() {
  // Never destroyed: the monitor thread may be ended inside it when the process exits.
  static std::mutex* lock = new std::mutex;
  return *lock;
}

}  // namespace

Status EnsureSlotSession(P11Slot& slot) {
  if (slot.remote) return kOk;
  CK_FUNCTION_LIST* p11 = P11();
  if (p11 == nullptr) return provider::kNteFail;
  std::lock_guard<std::mutex> lock(SessionFieldLock());
  if (slot.session != 0) {
    CK_SESSION_INFO info{};
    CK_RV rv = p11->C_GetSessionInfo(slot.session, &info);
    if (rv == CKR_OK) return kOk;
    slot.session = 0;
    if (rv != CKR_SESSION_HANDLE_INVALID) return MapCkrToError(rv);
  }
  CK_SESSION_HANDLE session = 0;
  CK_RV rv = p11->C_OpenSession(slot.slotId, kSessionFlags, nullptr, nullptr, &session);
  if (rv == CKR_OK) slot.session = session;
  return MapCkrToError(rv);
}

void CloseSlotSession(P11Slot& slot) {
  CK_FUNCTION_LIST* p11 = P11();
  std::lock_guard<std::mutex> lock(SessionFieldLock());
  if (slot.session != 0 && p11 != nullptr) p11->C_CloseSession(slot.session);
  slot.session = 0;
}

Status ReadTokenSerial(P11Slot& slot) {
  if (slot.remote) return kOk;
  for (uint8_t byte : slot.serial) {
    if (byte != 0) return kOk;
  }
  CK_FUNCTION_LIST* p11 = P11();
  if (p11 == nullptr) return provider::kNteFail;
  CK_TOKEN_INFO info{};
  CK_RV rv = p11->C_GetTokenInfo(slot.slotId, &info);
  if (rv != CKR_OK) return MapCkrToError(rv);
  static_assert(sizeof(info.serialNumber) == kSerialBytes, "serial number width");
  std::memcpy(slot.serial, info.serialNumber, kSerialBytes);
  return kOk;
}

void ReleaseSlotUser(P11Slot& slot) {
  InterlockedDecrement(&slot.userCount);
  if (slot.remote) {
    if (RemoteSlotService* remote = RemoteSlots()) remote->ReleaseSlotUser(slot);
  }
}

}  // namespace nivra::pkcs11
