#include "provider/card_dispatch.h"

namespace nivra::provider {

namespace {
template <class Op>
Status Dispatch(const ProviderContext& ctx, Status unknownKind, Op op) {
  CardBackend* backend = FindCardBackend(ctx.backendKind);
  return backend != nullptr ? op(*backend) : unknownKind;
}
}  // namespace

Status CardConnectByName(ProviderContext& ctx, const std::string& name) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.ConnectByName(ctx, name); });
}
Status CardLoadCaps(ProviderContext& ctx) {
  return Dispatch(ctx, kNteBadType, [&](CardBackend& b) { return b.LoadCaps(ctx); });
}
Status CardOpenContainer(ProviderContext& ctx, uint32_t acquireFlags) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.OpenContainer(ctx, acquireFlags); });
}
void CardCloseSession(ProviderContext& ctx) {
  Dispatch(ctx, kOk, [&](CardBackend& b) {
    b.CloseSession(ctx);
    return kOk;
  });
}
Status CardEnumContainers(ProviderContext& ctx, bool restart) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.EnumContainers(ctx, restart); });
}
Status CardLoadKeyPair(ProviderContext& ctx, uint32_t keySpec) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.LoadKeyPair(ctx, keySpec); });
}
Status CardGenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.GenKeyPair(ctx, keySpec, bits); });
}
Status CardPrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode, const uint8_t* in,
                        uint32_t inLen, uint8_t* out, uint32_t* outLen) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) {
    return b.PrivateKeyOp(ctx, keySpec, mode, in, inLen, out, outLen);
  });
}
Status CardPublicKeyOp(ProviderContext& ctx, const KeyObject& key, uint32_t mode,
                       const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) {
    return b.PublicKeyOp(ctx, key, mode, in, inLen, out, outLen);
  });
}
Status CardWriteCert(ProviderContext& ctx, uint32_t keySpec, const uint8_t* der, uint32_t len) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.WriteCert(ctx, keySpec, der, len); });
}
Status CardReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.ReadCert(ctx, keySpec, out, len); });
}
Status CardVerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.VerifyPin(ctx, pin, len); });
}
Status CardRelogin(ProviderContext& ctx) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.Relogin(ctx); });
}
Status CardChangePin(ProviderContext& ctx, const char* oldPin, const char* newPin) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.ChangePin(ctx, oldPin, newPin); });
}
Status CardUnblockPin(ProviderContext& ctx, const char* adminPin, const char* newPin) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.UnblockPin(ctx, adminPin, newPin); });
}
Status CardInitToken(ProviderContext& ctx, const char* adminPin, const char* userPin) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.InitToken(ctx, adminPin, userPin); });
}
Status CardImportKeyPair(ProviderContext& ctx, const KeyObject& key, const uint8_t* blob,
                         uint32_t len) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.ImportKeyPair(ctx, key, blob, len); });
}
Status CardGetCardId(ProviderContext& ctx, uint8_t out[16]) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.GetCardId(ctx, out); });
}
Status CardPromptPin(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) {
  return Dispatch(ctx, kNteBadData,
                  [&](CardBackend& b) { return b.PromptPin(ctx, keySpec, out, len); });
}
Status CardDeviceCommand(ProviderContext& ctx) {
  return Dispatch(ctx, kNteBadData, [&](CardBackend& b) { return b.DeviceCommand(ctx); });
}
Status CardApplyModeToken(ProviderContext& ctx, const uint8_t* token) {
  return Dispatch(ctx, kNteBadType, [&](CardBackend& b) { return b.ApplyModeToken(ctx, token); });
}

Status EnsureCardCaps(ProviderContext& ctx) {
  if (ctx.caps.defaultBits != 0) return kOk;
  switch (ctx.backendKind) {
    case BackendServiceCard:
    case BackendBluetoothCard:
      return CardLoadCaps(ctx);
    case BackendTokenSlot:
      ctx.caps = CardCaps{1, 2048, 1024, 2048, 512, 2, 8, 2};
      return kOk;
    default:
      return kNteBadType;
  }
}

}  // namespace nivra::provider
