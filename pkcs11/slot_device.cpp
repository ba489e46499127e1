#include "pkcs11/slot_device.h"

#include <windows.h>

#include <cstring>

#include "pkcs11/token_containers.h"

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

bool SlotDevice::Present() const { return slot != nullptr && slot->tokenPresent != 0; }

provider::Status SlotDevice::ProbeContainer(std::string* name) {
  if (slot == nullptr) return provider::kNteBadKeyset;
  char label[kContainerLabelCapacity + 1] = {};
  if (name->size() > kContainerLabelCapacity) return provider::kNteBadKeyset;
  std::memcpy(label, name->data(), name->size());
  provider::Status status = FindContainer(*slot, label, kContainerLabelCapacity, nullptr);
  if (status == provider::kOk) name->assign(label);
  return status;
}

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
