#include "pkcs11/remote_slots.h"

#include <atomic>

namespace nivra::pkcs11 {

namespace {
std::atomic<RemoteSlotService*>& Registered() {
  static std::atomic<RemoteSlotService*> service{nullptr};
  return service;
}
}  // namespace

void RegisterRemoteSlotService(RemoteSlotService* service) { Registered() = service; }

RemoteSlotService* RemoteSlots() { return Registered().load(); }

RemoteSlotService* ActiveRemoteSlots() {
  RemoteSlotService* service = RemoteSlots();
  return service != nullptr && service->Active() ? service : nullptr;
}

}  // namespace nivra::pkcs11
