#include "pkcs11/slot_session.h"

#include <cstring>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/remote_slots.h"

namespace nivra::pkcs11 {

using provider::kOk;

Status EnsureSlotSession(P11Slot& slot) {
  if (slot.remote) return kOk;
  CK_FUNCTION_LIST* p11 = P11();
  if (p11 == nullptr) return provider::kNteFail;
  // The session handle is a record field: opened and closed under the slot-table mutex, so two
  // threads never open two sessions for one slot.
  SlotTableLock lock;
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
  SlotTableLock lock;
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
