// The frame's calls into the card back ends. Each reads the context's `backendKind` once, picks
// that kind's back end and returns its status; no operation is ever retried on another back end.
// A kind without a back end gives NTE_BAD_DATA (NTE_BAD_TYPE for CardLoadCaps).
#pragma once
#include <string>

#include "provider/card_backend.h"
#include "provider/provider_context.h"

namespace nivra::provider {

Status CardConnectByName(ProviderContext& ctx, const std::string& name);
Status CardLoadCaps(ProviderContext& ctx);
Status CardOpenContainer(ProviderContext& ctx, uint32_t acquireFlags);
void CardCloseSession(ProviderContext& ctx);
Status CardEnumContainers(ProviderContext& ctx, bool restart);
Status CardLoadKeyPair(ProviderContext& ctx, uint32_t keySpec);
Status CardGenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits);
Status CardPrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode, const uint8_t* in,
                        uint32_t inLen, uint8_t* out, uint32_t* outLen);
Status CardPublicKeyOp(ProviderContext& ctx, const KeyObject& key, uint32_t mode,
                       const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen);
Status CardWriteCert(ProviderContext& ctx, uint32_t keySpec, const uint8_t* der, uint32_t len);
Status CardReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len);
Status CardVerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len);
Status CardRelogin(ProviderContext& ctx);
Status CardChangePin(ProviderContext& ctx, const char* oldPin, const char* newPin);
Status CardUnblockPin(ProviderContext& ctx, const char* adminPin, const char* newPin);
Status CardInitToken(ProviderContext& ctx, const char* adminPin, const char* userPin);
Status CardImportKeyPair(ProviderContext& ctx, const KeyObject& key, const uint8_t* blob,
                         uint32_t len);
Status CardGetCardId(ProviderContext& ctx, uint8_t out[16]);
Status CardPromptPin(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len);
Status CardDeviceCommand(ProviderContext& ctx);
Status CardApplyModeToken(ProviderContext& ctx, const uint8_t* token);

// Makes sure ctx.caps is loaded: token slots get the fixed limits (2048 default, 1024 to 2048 in
// steps of 512, PINs of 2 to 8 bytes, no empty PIN), the other kinds ask their card.
Status EnsureCardCaps(ProviderContext& ctx);

}  // namespace nivra::provider
