#include "service/slot_operations.h"

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
#include "service/slot_commands.h"

namespace nivra::service {

namespace {

using frames::CardRequest;
using frames::CardResponse;
using provider::kMaxModulusBytes;
using provider::kOk;

constexpr char kCardLockPrefix[] = "NivraCSP_P11_";
constexpr size_t kCardLockNameChars = 260;
constexpr char kDefaultContainer[] = "DefaultContainer";
constexpr uint32_t kCardPublicExponent = 0x10001;

CardRequest KeyRequest(const SlotDevice& device, uint32_t keySpec) {
  CardRequest request;
  request.handle = static_cast<uint32_t>(device.container);
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

Status OpenByName(ProviderContext& ctx, SlotDevice& device) {
  CardRequest request;
  request.text = ctx.containerName;
  CardResponse response;
  Status status = SlotCommand(ctx, device, frames::kCmdOpenContainer, request, &response);
  if (status != kOk) return status;
  device.container = response.value;
  if (ctx.containerName[0] == '\0' && response.name.size() < sizeof(ctx.containerName)) {
    std::memcpy(ctx.containerName, response.name.c_str(), response.name.size() + 1);
  }
  return kOk;
}

void ForgetResult(SlotDevice& device) { pkcs11::ForgetCachedRequest(device.cache); }

// Runs 0x2024 or 0x2025 on block[0..k) into raw.
Status RawOperation(ProviderContext& ctx, SlotDevice& device, uint16_t command, uint32_t keySpec,
                    const uint8_t* block, uint32_t k, uint8_t* raw) {
  CardRequest request = KeyRequest(device, keySpec);
  request.data.assign(block, block + k);
  CardResponse response;
  Status status = SlotCommand(ctx, device, command, request, &response, k);
  crypto::Wipe(request.data.data(), request.data.size());
  if (status != kOk) return status;
  std::memcpy(raw, response.data.data(), k);
  crypto::Wipe(response.data.data(), response.data.size());
  return kOk;
}

uint32_t ModulusBytes(const provider::CardKeyPair& pair) { return (pair.modulusBits + 7) / 8; }

}  // namespace

Status SlotOpenContainer(ProviderContext& ctx, SlotDevice& device, uint32_t flags) {
  if (ctx.verifyOnly) return kOk;
  std::string lockName = std::string(kCardLockPrefix) + device.slot->name;
  if (lockName.size() > kCardLockNameChars) lockName.resize(kCardLockNameChars);
  if (provider::OpenContextLock(ctx, lockName) != kOk) return provider::kNteSysErr;
  platform::NamedMutexLock cardLock(ctx.contextLock);

  const bool create = flags & CRYPT_NEWKEYSET;
  const bool remove = flags & CRYPT_DELETEKEYSET;
  if (device.container == 0) {
    if (ctx.containerName[0] == '\0' && (create || remove)) {
      std::memset(ctx.containerName, 0, sizeof(ctx.containerName));
      std::memcpy(ctx.containerName, kDefaultContainer, sizeof(kDefaultContainer));
    }
    if (create) {
      if (OpenByName(ctx, device) == kOk) {
        device.container = 0;
        return pkcs11::kNteExists;
      }
      CardRequest request;
      request.text = ctx.containerName;
      CardResponse response;
      Status status = SlotCommand(ctx, device, frames::kCmdCreateContainer, request, &response);
      if (status != kOk) return status;
      device.container = response.value;
    } else {
      Status status = OpenByName(ctx, device);
      if (status != kOk) return status;
    }
  }
  if (remove) {
    CardRequest request;
    request.handle = static_cast<uint32_t>(device.container);
    return SlotCommand(ctx, device, frames::kCmdDeleteContainer, request, nullptr);
  }
  return kOk;
}

Status SlotEnumContainers(ProviderContext& ctx, SlotDevice& device, bool restart) {
  device.remoteEnumIndex = restart ? 0 : device.remoteEnumIndex + 1;
  CardRequest request;
  request.index = device.remoteEnumIndex;
  CardResponse response;
  Status status = SlotCommand(ctx, device, frames::kCmdEnumContainers, request, &response);
  if (status != kOk) return status;
  const size_t length = std::min(response.name.size(), sizeof(ctx.enumName) - 1);
  std::memset(ctx.enumName, 0, sizeof(ctx.enumName));
  std::memcpy(ctx.enumName, response.name.data(), length);
  return kOk;
}

Status SlotReadPublicKey(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec) {
  CardResponse response;
  Status status = SlotCommand(ctx, device, frames::kCmdReadPublicKey,
                              KeyRequest(device, keySpec), &response);
  return status != kOk ? status : StorePublicKey(ctx, keySpec, response.publicKey);
}

Status SlotGenKeyPair(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec, uint32_t bits) {
  CardRequest request = KeyRequest(device, keySpec);
  request.bits = bits;
  request.exponent = kCardPublicExponent;
  CardResponse response;
  ForgetResult(device);
  Status status = SlotCommand(ctx, device, frames::kCmdGenerateKeyPair, request, &response);
  return status != kOk ? status : StorePublicKey(ctx, keySpec, response.publicKey);
}

Status SlotPrivateKeyOp(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                        uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                        uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  Status status = SlotReadPublicKey(ctx, device, keySpec);
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
  if (const uint8_t* cached = pkcs11::CachedResult(device.cache, keySpec, mode, in, inLen)) {
    std::memcpy(raw, cached, k);
  } else {
    pkcs11::CacheRequest(device.cache, keySpec, mode, in, inLen);
    status = RawOperation(ctx, device, frames::kCmdPrivateKeyOp, keySpec, block, k, raw);
    crypto::Wipe(block, sizeof(block));
    if (status != kOk) {
      ForgetResult(device);
      return status;
    }
    pkcs11::CacheResult(device.cache, raw, k);
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

Status SlotPublicKeyOp(ProviderContext& ctx, SlotDevice& device, const KeyObject& key,
                       uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                       uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  const uint32_t keySpec = key.algId;
  Status status = SlotReadPublicKey(ctx, device, keySpec);
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
  status = RawOperation(ctx, device, frames::kCmdPublicKeyOp, keySpec, block, k, raw);
  if (status != kOk) return status;
  if (mode == provider::CardModeSignature) {
    return pkcs11::ReturnUnpadded(crypto::Pkcs1UnpadType1, raw, k, out, outLen);
  }
  return pkcs11::ReturnReversed(raw, k, out, outLen, provider::kNteBadData);
}

Status SlotImportKeyPair(ProviderContext& ctx, SlotDevice& device, const KeyObject& key,
                         const uint8_t* blob, uint32_t len) {
  CardRequest request = KeyRequest(device, key.algId);
  request.data.assign(blob, blob + len);
  ForgetResult(device);
  std::memset(&ctx.KeyPair(key.algId), 0, sizeof(provider::CardKeyPair));
  Status status = SlotCommand(ctx, device, frames::kCmdImportKeyPair, request, nullptr);
  crypto::Wipe(request.data.data(), request.data.size());
  return status;
}

Status SlotWriteCert(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                     const uint8_t* der, uint32_t len) {
  CardRequest request = KeyRequest(device, keySpec);
  request.data.assign(der, der + len);
  return SlotCommand(ctx, device, frames::kCmdWriteCertificate, request, nullptr);
}

Status SlotReadCert(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec, uint8_t* out,
                    uint32_t* len) {
  if (len == nullptr) return provider::kErrInvalidParameter;
  CardResponse response;
  Status status = SlotCommand(ctx, device, frames::kCmdReadCertificate,
                              KeyRequest(device, keySpec), &response);
  if (status != kOk) return status;
  const uint32_t size = static_cast<uint32_t>(response.data.size());
  const bool fits = out != nullptr && *len >= size;
  if (fits) std::memcpy(out, response.data.data(), size);
  const bool tooSmall = out != nullptr && !fits;
  *len = size;
  return tooSmall ? provider::kNteNoMemory : kOk;
}

Status SlotPinCommand(ProviderContext& ctx, SlotDevice& device, uint32_t kind, const char* first,
                      const char* second) {
  const uint16_t command = kind == kPinChange    ? frames::kCmdChangePin
                           : kind == kPinUnblock ? frames::kCmdUnblockPin
                                                 : frames::kCmdInitToken;
  CardRequest request;
  request.text = first != nullptr ? first : "";
  request.text2 = second != nullptr ? second : "";
  Status status = SlotCommand(ctx, device, command, request, nullptr);
  crypto::Wipe(request.text.data(), request.text.size());
  crypto::Wipe(request.text2.data(), request.text2.size());
  return status;
}

Status SlotInitTokenPlain(ProviderContext& ctx, SlotDevice& device) {
  return SlotCommand(ctx, device, frames::kCmdInitTokenPlain, {}, nullptr);
}

}  // namespace nivra::service
