// The service transport behind the token-slot back end: contexts bound to a slot that the local
// card service publishes reach this object for every card operation.
#include <cstring>
#include <memory>

#include "pkcs11/remote_slots.h"
#include "pkcs11/slot_device.h"
#include "service/frames/frame_codes.h"
#include "service/remote_slot_table.h"
#include "service/service_link.h"
#include "service/slot_channel.h"
#include "service/slot_commands.h"
#include "service/card_operations.h"

namespace nivra::service {

namespace {

using pkcs11::SlotOf;
using provider::kOk;

// Runs operation on the context's published slot, as a remote card.
template <class Operation>
Status OnDevice(ProviderContext& ctx, Operation operation) {
  SlotDevice* device = SlotOf(ctx);
  if (device == nullptr || !device->slot->remote) return provider::kNteFail;
  SlotCard card(*device);
  return operation(card);
}

class ServiceSlots : public pkcs11::RemoteSlotService {
 public:
  bool Active() override { return WaitForService(); }
  SlotTable& Table() override { return RemoteTable(); }
  Status RefreshSlotList() override { return ServiceRefreshSlots(); }
  Status RefreshSlotToken(P11Slot& slot, uint32_t* presentOut) override {
    return ServiceRefreshSlot(slot, presentOut);
  }

  Status FindContainer(P11Slot& slot, char* name, size_t labelCapacity,
                       CK_OBJECT_HANDLE* handleOut) override {
    if (handleOut != nullptr) *handleOut = 0;
    // A context of its own, so that the search never prompts and never touches the caller's.
    auto probe = std::make_unique<ProviderContext>();
    probe->silent = 1;
    SlotDevice device(&slot);
    std::strncpy(probe->containerName, name, sizeof(probe->containerName) - 1);
    frames::CardRequest request;
    request.text = probe->containerName;
    frames::CardResponse response;
    Status status = SlotCommand(*probe, device, frames::kCmdOpenContainer, request, &response);
    if (status != kOk) return status;
    if (name[0] == '\0' && labelCapacity > response.name.size()) {
      std::memcpy(name, response.name.c_str(), response.name.size() + 1);
    }
    if (handleOut != nullptr) *handleOut = response.value;
    return kOk;
  }

  void ReleaseSlotUser(P11Slot& slot) override {
    if (slot.userCount > 0) return;
    RemoteSlotLink& link = LinkOf(slot);
    std::lock_guard<std::mutex> use(link.use);
    SlotChannelClose(slot);
  }

  Status ConnectByName(ProviderContext&, const std::string&) override {
    return provider::kNteFail;  // the token-slot back end binds published slots itself
  }
  Status OpenContainer(ProviderContext& ctx, uint32_t flags) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteOpenContainer(ctx, d, flags); });
  }
  Status EnumContainers(ProviderContext& ctx, bool restart) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteEnumContainers(ctx, d, restart); });
  }
  Status LoadKeyPair(ProviderContext& ctx, uint32_t keySpec) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteReadPublicKey(ctx, d, keySpec); });
  }
  Status GenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteGenKeyPair(ctx, d, keySpec, bits); });
  }
  Status PrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode, const uint8_t* in,
                      uint32_t inLen, uint8_t* out, uint32_t* outLen) override {
    return OnDevice(ctx, [&](SlotCard& d) {
      return RemotePrivateKeyOp(ctx, d, keySpec, mode, in, inLen, out, outLen);
    });
  }
  Status PublicKeyOp(ProviderContext& ctx, const KeyObject& key, uint32_t mode, const uint8_t* in,
                     uint32_t inLen, uint8_t* out, uint32_t* outLen) override {
    return OnDevice(ctx, [&](SlotCard& d) {
      return RemotePublicKeyOp(ctx, d, key, mode, in, inLen, out, outLen);
    });
  }
  Status WriteCert(ProviderContext& ctx, uint32_t keySpec, const uint8_t* der,
                   uint32_t len) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteWriteCert(ctx, d, keySpec, der, len); });
  }
  Status ReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteReadCert(ctx, d, keySpec, out, len); });
  }
  Status VerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len) override {
    return OnDevice(ctx, [&](SlotCard& d) { return SlotVerifyPin(ctx, d.Device(), pin, len); });
  }
  Status Relogin(ProviderContext& ctx) override {
    return OnDevice(ctx, [&](SlotCard& d) { return SlotRelogin(ctx, d.Device()); });
  }
  Status ChangePin(ProviderContext& ctx, const char* oldPin, const char* newPin) override {
    return OnDevice(ctx,
                    [&](SlotCard& d) { return RemotePinCommand(ctx, d, kPinChange, oldPin, newPin); });
  }
  Status UnblockPin(ProviderContext& ctx, const char* adminPin, const char* newPin) override {
    return OnDevice(
        ctx, [&](SlotCard& d) { return RemotePinCommand(ctx, d, kPinUnblock, adminPin, newPin); });
  }
  Status InitToken(ProviderContext& ctx, const char* adminPin, const char* userPin) override {
    return OnDevice(ctx, [&](SlotCard& d) {
      return adminPin == provider::kNoPin ? RemoteInitTokenPlain(ctx, d)
                                          : RemotePinCommand(ctx, d, kPinInitialise, adminPin, userPin);
    });
  }
  Status ImportKeyPair(ProviderContext& ctx, const KeyObject& key, const uint8_t* blob,
                       uint32_t len) override {
    return OnDevice(ctx, [&](SlotCard& d) { return RemoteImportKeyPair(ctx, d, key, blob, len); });
  }
  Status GetCardId(ProviderContext& ctx, uint8_t out[16]) override {
    return OnDevice(ctx, [&](SlotCard& d) {
      std::memcpy(out, d.Device().slot->serial, pkcs11::kSerialBytes);
      return kOk;
    });
  }
  Status PromptPin(ProviderContext& ctx, uint32_t, uint8_t*, uint32_t* len) override {
    return OnDevice(ctx, [&](SlotCard& d) {
      if (len != nullptr) *len = 0;
      return SlotRelogin(ctx, d.Device());
    });
  }
};

ServiceSlots g_serviceSlots;

struct Registration {
  Registration() { pkcs11::RegisterRemoteSlotService(&g_serviceSlots); }
} g_registration;

}  // namespace

}  // namespace nivra::service
