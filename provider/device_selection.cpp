// Which card serves a new context: the one named in the container string, the only one present,
// the one that holds the container (silent contexts), or the one the user picks.
#include <cstring>

#include "platform/named_mutex.h"
#include "provider/card_dispatch.h"
#include "provider/card_selection.h"
#include "provider/context_lifecycle.h"
#include "provider/module_state.h"

namespace nivra::provider {

namespace {

void CopyName(char* dst, size_t size, const std::string& name) {
  std::memset(dst, 0, size);
  std::memcpy(dst, name.data(), name.size() < size ? name.size() : size - 1);
}

void RememberDevice(uint32_t kind, const std::string& name) {
  ModuleState& m = Module();
  switch (kind) {
    case BackendTokenSlot:
      CopyName(m.lastSelectedSlot, sizeof(m.lastSelectedSlot), name);
      break;
    case BackendServiceCard:
      CopyName(m.lastSelectedServiceCard, sizeof(m.lastSelectedServiceCard), name);
      break;
    case BackendBluetoothCard:
      CopyName(m.lastSelectedBluetoothCard, sizeof(m.lastSelectedBluetoothCard), name);
      break;
    default:
      break;
  }
}

void TakeDevice(ProviderContext& ctx, uint32_t kind, const CardDevice& device) {
  ctx.backendKind = kind;
  ctx.device = device.Clone();
  ctx.device->owner = &ctx;
}

Status OpenContainer(ProviderContext& ctx, uint32_t acquireFlags) {
  Status status = EnsureCardCaps(ctx);
  if (status != kOk) return status;
  return CardOpenContainer(ctx, acquireFlags);
}

Status ConnectByName(ProviderContext& ctx, const ContainerString& parsed, uint32_t acquireFlags) {
  ctx.backendKind = parsed.kind;
  Status status = CardConnectByName(ctx, parsed.deviceName);
  if (status != kOk) return status;
  if (ctx.device != nullptr) ctx.device->owner = &ctx;
  RememberDevice(parsed.kind, parsed.deviceName);
  return OpenContainer(ctx, acquireFlags);
}

// Silent search for the container: Bluetooth cards, then service cards, then token slots; the
// token slots' error is the answer when nobody has it.
Status FindContainerSilently(ProviderContext& ctx, CardDeviceList& serviceCards,
                             CardDeviceList& bluetoothCards) {
  struct Candidate {
    uint32_t kind;
    CardDeviceList* devices;
  };
  CardDeviceList noDevices;
  const Candidate order[] = {{BackendBluetoothCard, &bluetoothCards},
                             {BackendServiceCard, &serviceCards},
                             {BackendTokenSlot, &noDevices}};
  Status status = kNteNotFound;
  for (const Candidate& candidate : order) {
    CardBackend* backend = FindCardBackend(candidate.kind);
    if (backend == nullptr) continue;
    if (candidate.kind == BackendTokenSlot && !Module().moduleAvailable) continue;
    ctx.backendKind = candidate.kind;
    status = backend->FindContainer(ctx, *candidate.devices);
    if (status == kOk) {
      if (ctx.device != nullptr) ctx.device->owner = &ctx;
      return kOk;
    }
  }
  ctx.backendKind = BackendNone;
  return status;
}

// The devices of one kind, listed for a new context.
struct KindListing {
  uint32_t kind;
  CardDeviceList* devices;
};

// Lists the devices of every kind in order (service cards, Bluetooth cards, token slots while the
// module is loaded), each under its back end's device-table mutex. A verify-only context takes
// the first device of the first kind that has one and opens it before that mutex is let go, so
// the device cannot go away in between; *opened then says so and the result is the open's.
Status ListDevices(ProviderContext& ctx, const KindListing (&listings)[3], uint32_t acquireFlags,
                   bool* opened) {
  *opened = false;
  for (const KindListing& listing : listings) {
    CardBackend* backend = FindCardBackend(listing.kind);
    if (backend == nullptr) continue;
    if (listing.kind == BackendTokenSlot && !Module().moduleAvailable) continue;
    platform::NamedMutexLock tableLock(backend->DeviceTableMutex());
    Status status = backend->EnumDevices(ctx, *listing.devices);
    if (status != kOk) return status;
    if (ctx.verifyOnly && !listing.devices->empty()) {
      TakeDevice(ctx, listing.kind, *listing.devices->front());
      *opened = true;
      return OpenContainer(ctx, acquireFlags);
    }
  }
  return kOk;
}

// More than one device: the card selection chooses, or a silent context (or a module without a
// selection) searches for the container.
Status ChooseAmongDevices(ProviderContext& ctx, uint32_t acquireFlags, CardDeviceList& serviceCards,
                          CardDeviceList& bluetoothCards, CardDeviceList& slots) {
  CardSelector selector = FindCardSelector();
  if (ctx.silent || selector == nullptr) {
    return FindContainerSilently(ctx, serviceCards, bluetoothCards);
  }
  // The dialog lists every slot of the table, with or without a token, and follows their tokens.
  CardDeviceList slotRows;
  CardBackend* slotBackend = FindCardBackend(BackendTokenSlot);
  if (slotBackend != nullptr && Module().moduleAvailable) {
    platform::NamedMutexLock tableLock(slotBackend->DeviceTableMutex());
    Status status = slotBackend->SelectionDevices(slotRows);
    if (status != kOk) return status;
  }
  CardSelectionRequest request{ctx.CardContainerName(), acquireFlags, &serviceCards,
                               &bluetoothCards, slotRows.empty() ? &slots : &slotRows};
  uint32_t kind = BackendNone;
  std::unique_ptr<CardDevice> chosen;
  Status status = selector(ctx, request, &kind, &chosen);
  if (status != kOk) return status;
  if (chosen == nullptr) return kScardCancelledByUser;
  ctx.backendKind = kind;
  ctx.device = std::move(chosen);
  ctx.device->owner = &ctx;
  return kOk;
}

}  // namespace

Status SelectDeviceAndOpenContainer(ProviderContext& ctx, const ContainerString& parsed,
                                    uint32_t acquireFlags) {
  if (parsed.hasDevice) return ConnectByName(ctx, parsed, acquireFlags);

  CardDeviceList serviceCards;
  CardDeviceList bluetoothCards;
  CardDeviceList slots;
  const KindListing listings[] = {{BackendServiceCard, &serviceCards},
                                  {BackendBluetoothCard, &bluetoothCards},
                                  {BackendTokenSlot, &slots}};
  bool opened = false;
  Status status = ListDevices(ctx, listings, acquireFlags, &opened);
  if (status != kOk || opened) return status;

  const size_t total = serviceCards.size() + bluetoothCards.size() + slots.size();
  if (total == 0) return kNteNotFound;
  if (total == 1) {
    for (const KindListing& listing : listings) {
      if (!listing.devices->empty()) TakeDevice(ctx, listing.kind, *listing.devices->front());
    }
  } else {
    status = ChooseAmongDevices(ctx, acquireFlags, serviceCards, bluetoothCards, slots);
    if (status != kOk) return status;
  }
  return OpenContainer(ctx, acquireFlags);
}

}  // namespace nivra::provider
