#include "service/card_operations.h"

#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "crypto/pkcs1.h"
#include "crypto/wipe.h"
#include "pkcs11/p11_status.h"
#include "pkcs11/result_cache.h"
#include "pkcs11/rsa_blocks.h"
#include "platform/named_mutex.h"
#include "service/frames/frame_codes.h"
#include "service/card_command.h"
#include "service/string_convert.h"

namespace nivra::service {

namespace {

using frames::CardRequest;
using frames::CardResponse;
using provider::kMaxModulusBytes;
using provider::kOk;

constexpr char kDefaultContainer[] = "DefaultContainer";
constexpr uint32_t kCardPublicExponent = 0x10001;

CardRequest KeyRequest(RemoteCard& card, uint32_t keySpec) {
  CardRequest request;
  request.handle = static_cast<uint32_t>(card.Container());
  request.keySpec = keySpec;
  return request;
}

Status StorePublicKey(ProviderContext& ctx, uint32_t keySpec, const frames::PublicKeyBlock& key) {
  if (key.modulus.size() > kMaxModulusBytes) return provider::kNteBadData;
  provider::CardKeyPair& pair = ctx.KeyPair(keySpec);
  std::memset(&pair, 0, sizeof(pair));
  pair.modulusBits = key.bits;
  pair.publicExponent = key.exponent;
  std::memcpy(pair.modulus, key.modulus.data(), key.modulus.size());
  return kOk;
}


void ForgetResult(RemoteCard& card) { pkcs11::ForgetCachedRequest(card.ResultCache()); }

// Runs 0x2024 or 0x2025 on block[0..k) into raw.
Status RawOperation(ProviderContext& ctx, RemoteCard& card, uint16_t command, uint32_t keySpec,
                    const uint8_t* block, uint32_t k, uint8_t* raw) {
  CardRequest request = KeyRequest(card, keySpec);
  request.data.assign(block, block + k);
  CardResponse response;
  Status status = CardCommand(ctx, card, command, request, &response, k);
  crypto::Wipe(request.data.data(), request.data.size());
  if (status != kOk) return status;
  std::memcpy(raw, response.data.data(), k);
  crypto::Wipe(response.data.data(), response.data.size());
  return kOk;
}

uint32_t ModulusBytes(const provider::CardKeyPair& pair) { return (pair.modulusBits + 7) / 8; }

}  // namespace

Status RemoteOpenByName(ProviderContext& ctx, RemoteCard& card) {
  CardRequest request;
  request.text = ctx.containerName;
  CardResponse response;
  Status status = CardCommand(ctx, card, frames::kCmdOpenContainer, request, &response);
  if (status != kOk) return status;
  card.Container() = response.value;
  if (ctx.containerName[0] == '\0' && response.name.size() < sizeof(ctx.containerName)) {
    std::memcpy(ctx.containerName, response.name.c_str(), response.name.size() + 1);
  }
  return kOk;
}

Status RemoteOpenContainer(ProviderContext& ctx, RemoteCard& card, uint32_t flags) {
  if (ctx.verifyOnly) return kOk;
  if (provider::OpenContextLock(ctx, card.LockName()) != kOk) return provider::kNteSysErr;
  platform::NamedMutexLock cardLock(ctx.contextLock);

  const bool create = flags & CRYPT_NEWKEYSET;
  const bool remove = flags & CRYPT_DELETEKEYSET;
  if (card.Container() == 0) {
    if (ctx.containerName[0] == '\0' && (create || remove)) {
      std::memset(ctx.containerName, 0, sizeof(ctx.containerName));
      std::memcpy(ctx.containerName, kDefaultContainer, sizeof(kDefaultContainer));
    }
    if (create) {
      if (RemoteOpenByName(ctx, card) == kOk) {
        card.Container() = 0;
        return pkcs11::kNteExists;
      }
      CardRequest request;
      request.text = ctx.containerName;
      CardResponse response;
      Status status = CardCommand(ctx, card, frames::kCmdCreateContainer, request, &response);
      if (status != kOk) return status;
      card.Container() = response.value;
    } else {
      Status status = RemoteOpenByName(ctx, card);
      if (status != kOk) return status;
    }
  }
  if (remove) {
    CardRequest request;
    request.handle = static_cast<uint32_t>(card.Container());
    return CardCommand(ctx, card, frames::kCmdDeleteContainer, request, nullptr);
  }
  return kOk;
}

Status RemoteEnumContainers(ProviderContext& ctx, RemoteCard& card, bool restart) {
  card.EnumIndex() = restart ? 0 : card.EnumIndex() + 1;
  CardRequest request;
  request.index = card.EnumIndex();
  CardResponse response;
  Status status = CardCommand(ctx, card, frames::kCmdEnumContainers, request, &response);
  if (status != kOk) return status;
  if (card.AnsiContainerNames()) {
    RequestBuffers list;
    size_t ansiLength = 0;
    const char* ansi = Utf8ToAnsi(response.name.c_str(), &ansiLength, &list);
    if (ansi == nullptr) return provider::kNteNoMemory;
    response.name.assign(ansi, ansiLength);
  }
  const size_t length = std::min(response.name.size(), sizeof(ctx.enumName) - 1);
  std::memset(ctx.enumName, 0, sizeof(ctx.enumName));
  std::memcpy(ctx.enumName, response.name.data(), length);
  return kOk;
}

Status RemoteReadPublicKey(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec) {
  CardResponse response;
  Status status = CardCommand(ctx, card, frames::kCmdReadPublicKey,
                              KeyRequest(card, keySpec), &response);
  return status != kOk ? status : StorePublicKey(ctx, keySpec, response.publicKey);
}

Status RemoteGenKeyPair(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec, uint32_t bits) {
  CardRequest request = KeyRequest(card, keySpec);
  request.bits = bits;
  request.exponent = kCardPublicExponent;
  CardResponse response;
  ForgetResult(card);
  Status status = CardCommand(ctx, card, frames::kCmdGenerateKeyPair, request, &response);
  return status != kOk ? status : StorePublicKey(ctx, keySpec, response.publicKey);
}

Status RemotePrivateKeyOp(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec,
                        uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                        uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  Status status = RemoteReadPublicKey(ctx, card, keySpec);
  if (status != kOk) return status;
  const uint32_t k = ModulusBytes(ctx.KeyPair(keySpec));
  if (k == 0 || k > kMaxModulusBytes) return provider::kNteBadKeyset;

  uint8_t block[kMaxModulusBytes];
  const auto pad = [&] { return crypto::Pkcs1PadType1(block, k, in, inLen); };
  const pkcs11::OutputCheck check =
      mode == provider::CardModeSignature
          ? pkcs11::PadInput(out, outLen, k, provider::kErrMoreData, &status, pad)
          : pkcs11::TakeInputBlock(in, inLen, k, out, outLen, block, &status);
  if (check == pkcs11::OutputCheck::kAnswered) return status;

  uint8_t raw[kMaxModulusBytes];
  if (const uint8_t* cached = pkcs11::CachedResult(card.ResultCache(), keySpec, mode, in, inLen)) {
    std::memcpy(raw, cached, k);
  } else {
    pkcs11::CacheRequest(card.ResultCache(), keySpec, mode, in, inLen);
    status = RawOperation(ctx, card, frames::kCmdPrivateKeyOp, keySpec, block, k, raw);
    crypto::Wipe(block, sizeof(block));
    if (status != kOk) {
      ForgetResult(card);
      return status;
    }
    pkcs11::CacheResult(card.ResultCache(), raw, k);
  }
  if (mode == provider::CardModeEncryption) {
    status = pkcs11::ReturnUnpadded(crypto::Pkcs1UnpadType2, raw, k, out, outLen);
  } else if (mode == provider::CardModeOaep) {
    size_t length = *outLen;
    status = crypto::OaepDecode(out, &length, raw, k) == crypto::kOk ? kOk : provider::kNteBadData;
    if (status == kOk) *outLen = static_cast<uint32_t>(length);
  } else {
    status = pkcs11::ReturnReversed(raw, k, out, outLen, provider::kNteBadData);
  }
  crypto::Wipe(raw, sizeof(raw));
  return status;
}

Status RemotePublicKeyOp(ProviderContext& ctx, RemoteCard& card, const KeyObject& key,
                       uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                       uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  const uint32_t keySpec = key.algId;
  Status status = RemoteReadPublicKey(ctx, card, keySpec);
  if (status != kOk) return status;
  const uint32_t k = ModulusBytes(ctx.KeyPair(keySpec));
  if (k == 0 || k > kMaxModulusBytes) return provider::kNteBadKeyset;

  uint8_t block[kMaxModulusBytes];
  const bool padded = mode == provider::CardModeEncryption || mode == provider::CardModeOaep;
  const auto pad = [&] {
    return mode == provider::CardModeEncryption ? crypto::Pkcs1PadType2(block, k, in, inLen)
                                                : crypto::OaepEncode(block, k, in, inLen);
  };
  const pkcs11::OutputCheck check =
      padded ? pkcs11::PadInput(out, outLen, k, provider::kNteBadLen, &status, pad)
             : pkcs11::TakeInputBlock(in, inLen, k, out, outLen, block, &status);
  if (check == pkcs11::OutputCheck::kAnswered) return status;
  uint8_t raw[kMaxModulusBytes];
  status = RawOperation(ctx, card, frames::kCmdPublicKeyOp, keySpec, block, k, raw);
  if (status != kOk) return status;
  if (mode == provider::CardModeSignature) {
    return pkcs11::ReturnUnpadded(crypto::Pkcs1UnpadType1, raw, k, out, outLen);
  }
  return pkcs11::ReturnReversed(raw, k, out, outLen, provider::kNteBadData);
}

Status RemoteImportKeyPair(ProviderContext& ctx, RemoteCard& card, const KeyObject& key,
                         const uint8_t* blob, uint32_t len) {
  CardRequest request = KeyRequest(card, key.algId);
  request.data.assign(blob, blob + len);
  ForgetResult(card);
  std::memset(&ctx.KeyPair(key.algId), 0, sizeof(provider::CardKeyPair));
  Status status = CardCommand(ctx, card, frames::kCmdImportKeyPair, request, nullptr);
  crypto::Wipe(request.data.data(), request.data.size());
  return status;
}

Status RemoteWriteCert(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec,
                     const uint8_t* der, uint32_t len) {
  CardRequest request = KeyRequest(card, keySpec);
  request.data.assign(der, der + len);
  return CardCommand(ctx, card, frames::kCmdWriteCertificate, request, nullptr);
}

Status RemoteReadCert(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec, uint8_t* out,
                    uint32_t* len) {
  if (len == nullptr) return provider::kErrInvalidParameter;
  CardResponse response;
  Status status = CardCommand(ctx, card, frames::kCmdReadCertificate,
                              KeyRequest(card, keySpec), &response);
  if (status != kOk) return status;
  const uint32_t size = static_cast<uint32_t>(response.data.size());
  const bool fits = out != nullptr && *len >= size;
  if (fits) std::memcpy(out, response.data.data(), size);
  const bool tooSmall = out != nullptr && !fits;
  *len = size;
  return tooSmall ? provider::kNteNoMemory : kOk;
}

Status RemotePinCommand(ProviderContext& ctx, RemoteCard& card, uint32_t kind, const char* first,
                      const char* second) {
  const uint16_t command = kind == kPinChange    ? frames::kCmdChangePin
                           : kind == kPinUnblock ? frames::kCmdUnblockPin
                                                 : frames::kCmdInitToken;
  CardRequest request;
  request.text = first != nullptr ? first : "";
  request.text2 = second != nullptr ? second : "";
  Status status = CardCommand(ctx, card, command, request, nullptr);
  crypto::Wipe(request.text.data(), request.text.size());
  crypto::Wipe(request.text2.data(), request.text2.size());
  return status;
}

Status RemoteInitTokenPlain(ProviderContext& ctx, RemoteCard& card) {
  return CardCommand(ctx, card, frames::kCmdInitTokenPlain, {}, nullptr);
}

}  // namespace nivra::service
