#include "service/device_backend.h"

#include <cstring>

#include "crypto/wipe.h"
#include "service/card_command.h"
#include "service/card_operations.h"
#include "service/frames/frame_codes.h"

namespace nivra::service {

namespace {

using provider::kOk;

template <class Operation>
Status OnDevice(ProviderContext& ctx, Operation operation) {
  ServiceDevice* device = ServiceDeviceOf(ctx);
  if (device == nullptr) return provider::kNteFail;
  return operation(*device);
}

// A copy of device that holds the container; null when it does not.
std::unique_ptr<provider::CardDevice> TryDevice(ProviderContext& ctx,
                                                const provider::CardDevice& device) {
  std::unique_ptr<provider::CardDevice> copy = device.Clone();
  auto* candidate = dynamic_cast<ServiceDevice*>(copy.get());
  if (candidate == nullptr) return nullptr;
  candidate->owner = &ctx;
  if (RemoteOpenByName(ctx, *candidate) == kOk) return copy;
  candidate->Close();
  return nullptr;
}

}  // namespace

Status ServiceDevice::ProbeContainer(std::string* name) {
  frames::CardRequest request;
  request.text = *name;
  frames::CardResponse response;
  Status status = CardExchange(*this, frames::kCmdOpenContainer, request, &response);
  if (status == kOk && name->empty()) *name = response.name;
  return status;
}

ServiceDevice* ServiceDeviceOf(ProviderContext& ctx) {
  return dynamic_cast<ServiceDevice*>(ctx.device.get());
}

Status ServiceDeviceBackend::LoadCaps(ProviderContext& ctx) {
  if (ctx.caps.defaultBits != 0) return kOk;
  return OnDevice(ctx, [&](ServiceDevice& device) {
    frames::CardResponse response;
    Status status = CardExchange(device, frames::kCmdCardLimits, {}, &response);
    if (status != kOk) return status;
    const frames::CardLimits& limits = response.limits;
    ctx.caps.loaded = limits.loaded;
    ctx.caps.defaultBits = limits.defaultBits;
    ctx.caps.minBits = limits.minBits;
    ctx.caps.maxBits = limits.maxBits > kMaxCardKeyBits ? kMaxCardKeyBits : limits.maxBits;
    ctx.caps.incrementBits = limits.incrementBits;
    ctx.caps.minPinLength = limits.minPin;
    ctx.caps.maxPinLength = limits.maxPin;
    ctx.caps.pinFlags = static_cast<uint8_t>(limits.pinFlags);
    return kOk;
  });
}

Status ServiceDeviceBackend::OpenContainer(ProviderContext& ctx, uint32_t flags) {
  return OnDevice(ctx, [&](ServiceDevice& d) { return RemoteOpenContainer(ctx, d, flags); });
}

Status ServiceDeviceBackend::FindContainer(ProviderContext& ctx, CardDeviceList& devices) {
  if (devices.empty()) return provider::kNteBadKeyset;
  char* last = LastDeviceName();
  const provider::CardDevice* tried = nullptr;
  if (last[0] != '\0') {
    for (const auto& device : devices) {
      if (device->Name() != last) continue;
      tried = device.get();
      if (auto found = TryDevice(ctx, *device)) {
        ctx.device = std::move(found);
        ctx.backendKind = Kind();
        return kOk;
      }
      last[0] = '\0';
      break;
    }
  }
  for (const auto& device : devices) {
    if (device.get() == tried) continue;
    if (auto found = TryDevice(ctx, *device)) {
      ctx.device = std::move(found);
      ctx.backendKind = Kind();
      return kOk;
    }
  }
  return provider::kNteBadKeyset;
}

void ServiceDeviceBackend::CloseSession(ProviderContext& ctx) {
  if (ServiceDevice* device = ServiceDeviceOf(ctx)) device->Close();
}

Status ServiceDeviceBackend::EnumContainers(ProviderContext& ctx, bool restart) {
  return OnDevice(ctx, [&](ServiceDevice& d) { return RemoteEnumContainers(ctx, d, restart); });
}

Status ServiceDeviceBackend::LoadKeyPair(ProviderContext& ctx, uint32_t keySpec) {
  return OnDevice(ctx, [&](ServiceDevice& d) { return RemoteReadPublicKey(ctx, d, keySpec); });
}

Status ServiceDeviceBackend::GenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) {
  return OnDevice(ctx,
                  [&](ServiceDevice& d) { return RemoteGenKeyPair(ctx, d, keySpec, bits); });
}

Status ServiceDeviceBackend::PrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode,
                                          const uint8_t* in, uint32_t inLen, uint8_t* out,
                                          uint32_t* outLen) {
  return OnDevice(ctx, [&](ServiceDevice& d) {
    return RemotePrivateKeyOp(ctx, d, keySpec, mode, in, inLen, out, outLen);
  });
}

Status ServiceDeviceBackend::PublicKeyOp(ProviderContext& ctx, const KeyObject& key,
                                         uint32_t mode, const uint8_t* in, uint32_t inLen,
                                         uint8_t* out, uint32_t* outLen) {
  return OnDevice(ctx, [&](ServiceDevice& d) {
    return RemotePublicKeyOp(ctx, d, key, mode, in, inLen, out, outLen);
  });
}

Status ServiceDeviceBackend::WriteCert(ProviderContext& ctx, uint32_t keySpec,
                                       const uint8_t* der, uint32_t len) {
  return OnDevice(ctx,
                  [&](ServiceDevice& d) { return RemoteWriteCert(ctx, d, keySpec, der, len); });
}

Status ServiceDeviceBackend::ReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out,
                                      uint32_t* len) {
  return OnDevice(ctx,
                  [&](ServiceDevice& d) { return RemoteReadCert(ctx, d, keySpec, out, len); });
}

Status ServiceDeviceBackend::VerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len) {
  return OnDevice(ctx, [&](ServiceDevice& d) {
    std::string text(reinterpret_cast<const char*>(pin), len);
    Status status = CardVerifyPinText(d, text);
    crypto::Wipe(text.data(), text.size());
    return status;
  });
}

Status ServiceDeviceBackend::Relogin(ProviderContext& ctx) {
  return OnDevice(ctx, [&](ServiceDevice& d) { return d.Relogin(ctx); });
}

Status ServiceDeviceBackend::ChangePin(ProviderContext& ctx, const char* oldPin,
                                       const char* newPin) {
  return OnDevice(
      ctx, [&](ServiceDevice& d) { return RemotePinCommand(ctx, d, kPinChange, oldPin, newPin); });
}

Status ServiceDeviceBackend::UnblockPin(ProviderContext& ctx, const char* adminPin,
                                        const char* newPin) {
  return OnDevice(ctx, [&](ServiceDevice& d) {
    return RemotePinCommand(ctx, d, kPinUnblock, adminPin, newPin);
  });
}

Status ServiceDeviceBackend::InitToken(ProviderContext& ctx, const char* adminPin,
                                       const char* userPin) {
  return OnDevice(ctx, [&](ServiceDevice& d) {
    return adminPin == provider::kNoPin
               ? RemoteInitTokenPlain(ctx, d)
               : RemotePinCommand(ctx, d, kPinInitialise, adminPin, userPin);
  });
}

Status ServiceDeviceBackend::ImportKeyPair(ProviderContext& ctx, const KeyObject& key,
                                           const uint8_t* blob, uint32_t len) {
  return OnDevice(ctx,
                  [&](ServiceDevice& d) { return RemoteImportKeyPair(ctx, d, key, blob, len); });
}

}  // namespace nivra::service
