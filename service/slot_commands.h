// Card commands to a published slot on behalf of a provider context: the slot road of
// remote_card.h, whose user authentication is the PIN (cached in the context, else typed into
// the PIN dialog).
#pragma once
#include <cstddef>
#include <cstdint>

#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"
#include "service/frames/card_commands.h"
#include "service/remote_card.h"

namespace nivra::service {

using pkcs11::SlotDevice;

// A published slot as a remote card: commands travel in slot frames on the slot's channel.
class SlotCard : public RemoteCard {
 public:
  explicit SlotCard(SlotDevice& device) : device_(device) {}
  Status Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                  RequestBuffers& list) override;
  Status Authenticate(ProviderContext& ctx, bool lapsed) override;
  std::string LockName() const override;
  CK_OBJECT_HANDLE& Container() override { return device_.container; }
  uint32_t& EnumIndex() override { return device_.remoteEnumIndex; }
  pkcs11::PrivateResultCache& ResultCache() override { return device_.cache; }
  SlotDevice& Device() { return device_; }

 private:
  SlotDevice& device_;
};

// Sends one card command to the device's slot (CardCommand on the slot road).
Status SlotCommand(ProviderContext& ctx, SlotDevice& device, uint16_t command,
                   const frames::CardRequest& request, frames::CardResponse* response,
                   size_t blockLength = 0);

// Logs the channel in unless the card says it is: the context's cached PIN first, then (unless
// the context is silent: NTE_SILENT_CONTEXT) the PIN dialog (cancelled:
// SCARD_W_CANCELLED_BY_USER); a PIN typed there that the card accepts is cached in the context.
Status SlotLogin(ProviderContext& ctx, SlotDevice& device);
// SlotLogin without asking the card first.
Status SlotRelogin(ProviderContext& ctx, SlotDevice& device);

// Verifies pin[0..length) (0x2012): a result of 0 gives SCARD_E_INVALID_CHV.
Status SlotVerifyPin(ProviderContext& ctx, SlotDevice& device, const uint8_t* pin,
                     uint32_t length);

}  // namespace nivra::service
