// What the Bluetooth and service-card back ends (kinds 3 and 2) share: a device record that is
// also a remote card, and a back end that runs every card operation on the context's device,
// loads the card's limits, and finds a container among the listed devices.
#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "provider/card_backend.h"
#include "service/remote_card.h"

namespace nivra::service {

using provider::CardDeviceList;
using provider::KeyObject;

// The largest key length a card's limits may announce; more is stored as this.
constexpr uint16_t kMaxCardKeyBits = 8192;

class ServiceDevice : public provider::CardDevice, public RemoteCard {
 public:
  // Logs in again after a PIN change or unblock: nothing when the card reports authenticated,
  // else the cached PIN, else (NTE_SILENT_CONTEXT for a silent context) a confirmation.
  virtual Status Relogin(ProviderContext& ctx) = 0;
  // Ends the device's connection (the record stays usable: the next request reconnects).
  virtual void Close() = 0;
  // Asks the card to open the container by its name (0x2003, which needs no login) on the
  // record's own connection, which stays open; the card names the container it opened for an
  // empty name. The record keeps no container handle: a context that takes it opens the
  // container itself.
  Status ProbeContainer(std::string* name) override;

  CK_OBJECT_HANDLE& Container() override { return state_.container; }
  uint32_t& EnumIndex() override { return state_.enumIndex; }
  pkcs11::PrivateResultCache& ResultCache() override { return state_.cache; }

 private:
  RemoteCardState state_;
};

// The context's device when it is a service device, else null.
ServiceDevice* ServiceDeviceOf(ProviderContext& ctx);

class ServiceDeviceBackend : public provider::CardBackend {
 public:
  Status LoadCaps(ProviderContext& ctx) override;
  Status OpenContainer(ProviderContext& ctx, uint32_t flags) override;
  // Tries the device named last by a look-up by name first (and forgets that name when it does
  // not hold the container), then every other device in list order; the first that opens the
  // context's container becomes the context's device. NTE_BAD_KEYSET when none does.
  Status FindContainer(ProviderContext& ctx, CardDeviceList& devices) override;
  void CloseSession(ProviderContext& ctx) override;
  Status EnumContainers(ProviderContext& ctx, bool restart) override;
  Status LoadKeyPair(ProviderContext& ctx, uint32_t keySpec) override;
  Status GenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) override;
  Status PrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode, const uint8_t* in,
                      uint32_t inLen, uint8_t* out, uint32_t* outLen) override;
  Status PublicKeyOp(ProviderContext& ctx, const KeyObject& key, uint32_t mode,
                     const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) override;
  Status WriteCert(ProviderContext& ctx, uint32_t keySpec, const uint8_t* der,
                   uint32_t len) override;
  Status ReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) override;
  Status VerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len) override;
  Status Relogin(ProviderContext& ctx) override;
  Status ChangePin(ProviderContext& ctx, const char* oldPin, const char* newPin) override;
  Status UnblockPin(ProviderContext& ctx, const char* adminPin, const char* newPin) override;
  Status InitToken(ProviderContext& ctx, const char* adminPin, const char* userPin) override;
  Status ImportKeyPair(ProviderContext& ctx, const KeyObject& key, const uint8_t* blob,
                       uint32_t len) override;

 protected:
  virtual uint32_t Kind() const = 0;
  // The kind's last device reached by name (a 64-byte buffer of the module state).
  virtual char* LastDeviceName() const = 0;
};

}  // namespace nivra::service
