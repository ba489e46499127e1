// The seam to slots that the local card service publishes. Such slots live in the service's own
// table (records with the remote flag set) and every operation on them travels over the service
// connection instead of through the PKCS#11 module. The service transport implements this
// interface and registers it; until it does, no remote record exists and the service never
// counts as active.
//
// The card operations a context bound to a remote record needs are those of CardBackend, with
// the same arguments and results (the context's device is the SlotDevice bound to the remote
// record, see slot_device.h); the members below add what the slot table needs.
#pragma once
#include <cstddef>
#include <cstdint>

#include "pkcs11/slot_table.h"
#include "provider/card_backend.h"

namespace nivra::pkcs11 {

class RemoteSlotService : public provider::CardBackend {
 public:
  // True while the local card service is up: its table then replaces the module's.
  virtual bool Active() = 0;
  // The service's slot table (guarded by the slot-table mutex like the module's).
  virtual SlotTable& Table() = 0;
  // Brings the service's table up to date; the caller holds the slot-table mutex.
  virtual Status RefreshSlotList() = 0;
  // Re-reads a remote record's token presence; *presentOut as RefreshSlotToken.
  virtual Status RefreshSlotToken(P11Slot& slot, uint32_t* presentOut) = 0;
  // Looks the container up on a remote record, with the contract of FindContainer
  // (token_containers.h).
  virtual Status FindContainer(P11Slot& slot, char* name, size_t labelCapacity,
                               CK_OBJECT_HANDLE* handleOut) = 0;
  // Drops one context's use of a remote record; the last user closes its connection.
  virtual void ReleaseSlotUser(P11Slot& slot) = 0;
};

// Registers the service transport (null removes it).
void RegisterRemoteSlotService(RemoteSlotService* service);
// The registered service transport, or null.
RemoteSlotService* RemoteSlots();
// A registered service transport that reports itself active.
RemoteSlotService* ActiveRemoteSlots();

}  // namespace nivra::pkcs11
