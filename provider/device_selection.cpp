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

Status EnumerateKind(ProviderContext& ctx, uint32_t kind, CardDeviceList& out) {
  CardBackend* backend = FindCardBackend(kind);
  return backend != nullptr ? backend->EnumDevices(ctx, out) : kOk;
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

}  // namespace

Status SelectDeviceAndOpenContainer(ProviderContext& ctx, const ContainerString& parsed,
                                    uint32_t acquireFlags) {
  if (parsed.hasDevice) return ConnectByName(ctx, parsed, acquireFlags);

  CardDeviceList serviceCards;
  CardDeviceList bluetoothCards;
  Status status = EnumerateKind(ctx, BackendServiceCard, serviceCards);
  if (status != kOk) return status;
  if (ctx.verifyOnly && !serviceCards.empty()) {
    TakeDevice(ctx, BackendServiceCard, *serviceCards.front());
    return OpenContainer(ctx, acquireFlags);
  }
  status = EnumerateKind(ctx, BackendBluetoothCard, bluetoothCards);
  if (status != kOk) return status;
  if (ctx.verifyOnly && !bluetoothCards.empty()) {
    TakeDevice(ctx, BackendBluetoothCard, *bluetoothCards.front());
    return OpenContainer(ctx, acquireFlags);
  }

  CardDeviceList slots;
  if (Module().moduleAvailable) {
    CardBackend* tokenSlots = FindCardBackend(BackendTokenSlot);
    platform::NamedMutexLock tableLock(tokenSlots->DeviceTableMutex());
    status = tokenSlots->EnumDevices(ctx, slots);
    if (status != kOk) return status;
    if (ctx.verifyOnly && !slots.empty()) {
      // Opened while the slot table is still held, so the slot cannot go away in between.
      TakeDevice(ctx, BackendTokenSlot, *slots.front());
      return OpenContainer(ctx, acquireFlags);
    }
  }

  const size_t total = serviceCards.size() + bluetoothCards.size() + slots.size();
  if (total == 0) return kNteNotFound;
  if (total == 1) {
    if (!serviceCards.empty()) {
      TakeDevice(ctx, BackendServiceCard, *serviceCards.front());
    } else if (!bluetoothCards.empty()) {
      TakeDevice(ctx, BackendBluetoothCard, *bluetoothCards.front());
    } else {
      TakeDevice(ctx, BackendTokenSlot, *slots.front());
    }
    return OpenContainer(ctx, acquireFlags);
  }

  CardSelector selector = FindCardSelector();
  if (ctx.silent || selector == nullptr) {
    status = FindContainerSilently(ctx, serviceCards, bluetoothCards);
  } else {
    CardSelectionRequest request{ctx.CardContainerName(), acquireFlags, &serviceCards,
                                 &bluetoothCards, &slots};
    uint32_t kind = BackendNone;
    std::unique_ptr<CardDevice> chosen;
    status = selector(ctx, request, &kind, &chosen);
    if (status == kOk && chosen != nullptr) {
      ctx.backendKind = kind;
      ctx.device = std::move(chosen);
      ctx.device->owner = &ctx;
    } else if (status == kOk) {
      status = kScardCancelledByUser;
    }
  }
  if (status != kOk) return status;
  return OpenContainer(ctx, acquireFlags);
}

}  // namespace nivra::provider
