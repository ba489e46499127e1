// The token-slot back end (kind 1): the frame's card operations for contexts bound to a slot of
// the PKCS#11 module. Contexts bound to a slot that the local card service publishes are handed
// to the service transport (remote_slots.h) with the same arguments.
#include <windows.h>

#include <cstring>
#include <memory>

#include "pkcs11/backend_state.h"
#include "pkcs11/remote_slots.h"
#include "pkcs11/slot_device.h"
#include "pkcs11/slot_session.h"
#include "pkcs11/slot_table.h"
#include "pkcs11/token_certificates.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_keys.h"
#include "pkcs11/token_login.h"
#include "pkcs11/token_rsa_ops.h"

namespace nivra::pkcs11 {

using provider::CardBackend;
using provider::CardDeviceList;
using provider::KeyObject;
using provider::kOk;
using provider::ProviderContext;

namespace {

constexpr int kConnectRefreshes = 3;
constexpr DWORD kConnectRefreshPauseMs = 100;

// Runs `local` on the context's slot device, or `remote` on the service transport when the slot
// is one the service publishes.
template <class Local, class Remote>
Status OnSlot(ProviderContext& ctx, Local local, Remote remote) {
  SlotDevice* device = SlotOf(ctx);
  if (device == nullptr) return provider::kNteFail;
  if (device->slot->remote) {
    RemoteSlotService* service = RemoteSlots();
    return service != nullptr ? remote(*service) : provider::kNteFail;
  }
  return local(*device);
}

// A slot that shows no token is refreshed up to three times, 100 ms apart, before it counts as
// empty.
Status WaitForToken(P11Slot& slot) {
  for (int attempt = 0; attempt < kConnectRefreshes; ++attempt) {
    uint32_t present = 0;
    Status status = RefreshSlotToken(slot, &present);
    if (status != kOk) return status;
    if (present) return kOk;
    if (attempt + 1 < kConnectRefreshes) Sleep(kConnectRefreshPauseMs);
  }
  return provider::kNteBadKeyset;
}

class TokenSlotBackend : public CardBackend {
 public:
  bool ModuleStartup() override {
    const bool available = InitPkcs11Backend() == kOk;
    Backend().moduleAvailable = available;
    return available;
  }

  HANDLE DeviceTableMutex() override { return SlotTableMutex(); }

  Status EnumDevices(ProviderContext&, CardDeviceList& out) override {
    Status status = RefreshSlotList();
    if (status != kOk) return status;
    SlotTable& table = ActiveSlotTable();
    for (uint32_t i = 0; i < table.count && i < kMaxSlots; ++i) {
      P11Slot& slot = table.records[i];
      uint32_t present = slot.tokenPresent;
      if (!present && RefreshSlotToken(slot, &present) != kOk) present = 0;
      if (present) out.push_back(std::make_unique<SlotDevice>(&slot));
    }
    return kOk;
  }

  Status SelectionDevices(CardDeviceList& out) override {
    SlotTable& table = ActiveSlotTable();
    for (uint32_t i = 0; i < table.count && i < kMaxSlots; ++i) {
      out.push_back(std::make_unique<SlotDevice>(&table.records[i]));
    }
    return kOk;
  }

  Status ConnectByName(ProviderContext& ctx, const std::string& name) override {
    P11Slot* slot = FindSlotByName(name.c_str());
    if (slot == nullptr) return provider::kNteBadKeyset;
    if (!slot->tokenPresent) {
      Status status = WaitForToken(*slot);
      if (status != kOk) return status;
    }
    BindContext(ctx, *slot);
    RememberLastSlot(slot->name);
    return kOk;
  }

  Status OpenContainer(ProviderContext& ctx, uint32_t acquireFlags) override {
    SlotDevice* device = SlotOf(ctx);
    if (device == nullptr) return provider::kNteFail;
    return pkcs11::OpenContainer(ctx, *device, acquireFlags);
  }

  Status FindContainer(ProviderContext& ctx, CardDeviceList&) override {
    return ChooseSlotForContainer(ctx);
  }

  void CloseSession(ProviderContext& ctx) override {
    SlotDevice* device = SlotOf(ctx);
    if (device == nullptr) return;
    if (!device->slot->remote) EndContainerEnumeration(*device);
    if (device->holdsSlotUser) {
      device->holdsSlotUser = false;
      ReleaseSlotUser(*device->slot);
    }
  }

  Status EnumContainers(ProviderContext& ctx, bool restart) override {
    SlotDevice* device = SlotOf(ctx);
    if (device == nullptr) return provider::kNteFail;
    return pkcs11::EnumContainers(ctx, *device, restart);
  }

  Status LoadKeyPair(ProviderContext& ctx, uint32_t keySpec) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return pkcs11::LoadKeyPair(ctx, d, keySpec, true); },
        [&](CardBackend& s) { return s.LoadKeyPair(ctx, keySpec); });
  }

  Status GenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return GenerateKeyPair(ctx, d, keySpec, bits); },
        [&](CardBackend& s) { return s.GenKeyPair(ctx, keySpec, bits); });
  }

  Status PrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode, const uint8_t* in,
                      uint32_t inLen, uint8_t* out, uint32_t* outLen) override {
    return OnSlot(
        ctx,
        [&](SlotDevice& d) {
          return pkcs11::PrivateKeyOp(ctx, d, keySpec, mode, in, inLen, out, outLen);
        },
        [&](CardBackend& s) { return s.PrivateKeyOp(ctx, keySpec, mode, in, inLen, out, outLen); });
  }

  Status PublicKeyOp(ProviderContext& ctx, const KeyObject& key, uint32_t mode, const uint8_t* in,
                     uint32_t inLen, uint8_t* out, uint32_t* outLen) override {
    return OnSlot(
        ctx,
        [&](SlotDevice& d) { return pkcs11::PublicKeyOp(ctx, d, key, mode, in, inLen, out, outLen); },
        [&](CardBackend& s) { return s.PublicKeyOp(ctx, key, mode, in, inLen, out, outLen); });
  }

  Status WriteCert(ProviderContext& ctx, uint32_t keySpec, const uint8_t* der,
                   uint32_t len) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return WriteCertificate(ctx, d, keySpec, der, len); },
        [&](CardBackend& s) { return s.WriteCert(ctx, keySpec, der, len); });
  }

  Status ReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return ReadCertificate(ctx, d, keySpec, out, len); },
        [&](CardBackend& s) { return s.ReadCert(ctx, keySpec, out, len); });
  }

  Status VerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return LoginWithPin(d, pin, len); },
        [&](CardBackend& s) { return s.VerifyPin(ctx, pin, len); });
  }

  Status Relogin(ProviderContext& ctx) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return EnsureLogin(ctx, d); },
        [&](CardBackend& s) { return s.Relogin(ctx); });
  }

  Status ChangePin(ProviderContext& ctx, const char* oldPin, const char* newPin) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return pkcs11::ChangePin(d, oldPin, newPin); },
        [&](CardBackend& s) { return s.ChangePin(ctx, oldPin, newPin); });
  }

  Status UnblockPin(ProviderContext& ctx, const char* adminPin, const char* newPin) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return pkcs11::UnblockPin(d, adminPin, newPin); },
        [&](CardBackend& s) { return s.UnblockPin(ctx, adminPin, newPin); });
  }

  Status InitToken(ProviderContext& ctx, const char* adminPin, const char* userPin) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return pkcs11::InitToken(d, adminPin, userPin); },
        [&](CardBackend& s) { return s.InitToken(ctx, adminPin, userPin); });
  }

  Status ImportKeyPair(ProviderContext& ctx, const KeyObject& key, const uint8_t* blob,
                       uint32_t len) override {
    return OnSlot(
        ctx, [&](SlotDevice& d) { return pkcs11::ImportKeyPair(ctx, d, key.algId, blob, len); },
        [&](CardBackend& s) { return s.ImportKeyPair(ctx, key, blob, len); });
  }

  Status GetCardId(ProviderContext& ctx, uint8_t out[16]) override {
    return OnSlot(
        ctx,
        [&](SlotDevice& d) {
          Status status = ReadTokenSerial(*d.slot);
          if (status == kOk) std::memcpy(out, d.slot->serial, kSerialBytes);
          return status;
        },
        [&](CardBackend& s) { return s.GetCardId(ctx, out); });
  }

  // Prompting for a PIN on request is a service-slot command; module slots log in on demand.
  Status PromptPin(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) override {
    return OnSlot(
        ctx, [&](SlotDevice&) { return provider::kNteNotSupported; },
        [&](CardBackend& s) { return s.PromptPin(ctx, keySpec, out, len); });
  }
};

TokenSlotBackend g_tokenSlots;
provider::CardBackendRegistration g_registration(provider::BackendTokenSlot, &g_tokenSlots);

}  // namespace

}  // namespace nivra::pkcs11
