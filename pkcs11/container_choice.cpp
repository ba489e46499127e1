// Which slot serves a context that named none, when the frame searches silently: the slot of the
// last acquisition by name first, then every slot in table order.
#include <cstring>

#include "pkcs11/backend_state.h"
#include "pkcs11/remote_slots.h"
#include "pkcs11/token_containers.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

// Looks the context's container up on the slot and, when it is there, binds the context to it.
bool BindIfHeld(provider::ProviderContext& ctx, P11Slot& slot) {
  CK_OBJECT_HANDLE container = 0;
  if (FindContainer(slot, ctx.containerName, kContainerLabelCapacity, &container) != kOk) {
    return false;
  }
  BindContext(ctx, slot).container = container;
  return true;
}

}  // namespace

Status ChooseSlotForContainer(provider::ProviderContext& ctx) {
  BackendState& backend = Backend();
  if (!backend.moduleAvailable) return provider::kNteBadKeyset;

  const P11Slot* tried = nullptr;
  if (backend.lastSlotName[0] != '\0') {
    P11Slot* last = FindSlotByName(backend.lastSlotName);
    if (last != nullptr && last->tokenPresent) {
      if (BindIfHeld(ctx, *last)) return kOk;
      tried = last;
    } else {
      ForgetLastSlot();
    }
  }

  SlotTable& table = ActiveSlotTable();
  if (table.count == 0) return provider::kNteBadKeyset;
  for (uint32_t i = 0; i < kMaxSlots; ++i) {
    platform::NamedMutexLock lock(SlotTableMutex());
    RefreshSlotList();
    if (i >= table.count) break;
    P11Slot& slot = table.records[i];
    if (!slot.tokenPresent) continue;
    if (tried != nullptr && slot.slotId == tried->slotId) continue;
    if (BindIfHeld(ctx, slot)) return kOk;
  }
  return provider::kNteBadKeyset;
}

}  // namespace nivra::pkcs11
