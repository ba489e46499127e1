#include "pkcs11/slot_device.h"

#include <windows.h>

namespace nivra::pkcs11 {

SlotDevice::~SlotDevice() { SecureZeroMemory(&cache, sizeof(cache)); }

std::unique_ptr<provider::CardDevice> SlotDevice::Clone() const {
  auto copy = std::make_unique<SlotDevice>(slot);
  copy->selectionValue = selectionValue;
  copy->binding = binding;
  return copy;
}

std::string SlotDevice::Name() const { return slot != nullptr ? std::string(slot->name) : std::string(); }

uint32_t SlotDevice::SlotIdentifier() const { return slot != nullptr ? slot->slotId : 0; }

TokenKeyHandles& SlotDevice::Keys(uint32_t keySpec) {
  return keySpec == AT_SIGNATURE ? signatureKeys : exchangeKeys;
}

SlotDevice* SlotOf(provider::ProviderContext& ctx) {
  auto* device = dynamic_cast<SlotDevice*>(ctx.device.get());
  return device != nullptr && device->slot != nullptr ? device : nullptr;
}

SlotDevice& BindContext(provider::ProviderContext& ctx, P11Slot& slot) {
  auto device = std::make_unique<SlotDevice>(&slot);
  device->owner = &ctx;
  SlotDevice& bound = *device;
  ctx.device = std::move(device);
  return bound;
}

}  // namespace nivra::pkcs11
