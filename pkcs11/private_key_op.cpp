// Private-key operations on the token: padding here, raw RSA there, the result cached once.
#include <cstring>

#include "crypto/pkcs1.h"
#include "crypto/wipe.h"
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/result_cache.h"
#include "pkcs11/rsa_blocks.h"
#include "pkcs11/token_keys.h"
#include "pkcs11/token_rsa_ops.h"

namespace nivra::pkcs11 {

using provider::kMaxModulusBytes;
using provider::kOk;

namespace {

bool IsSigningMode(uint32_t mode) { return mode == provider::CardModeSignature || mode == kModePss; }

// The caller's answer from the raw result.
Status FinishPrivate(uint32_t mode, const uint8_t* raw, uint32_t k, uint8_t* out,
                     uint32_t* outLen) {
  if (mode == provider::CardModeEncryption) {
    return ReturnUnpadded(crypto::Pkcs1UnpadType2, raw, k, out, outLen);
  }
  if (mode == provider::CardModeOaep) {
    size_t length = *outLen;
    if (crypto::OaepDecode(out, &length, raw, k) != crypto::kOk) return provider::kNteBadData;
    *outLen = static_cast<uint32_t>(length);
    return kOk;
  }
  return ReturnReversed(raw, k, out, outLen, provider::kErrMoreData);
}

}  // namespace

Status PrivateKeyOp(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                    uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                    uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  Status status = LoadKeyPair(ctx, device, keySpec, false);
  if (status != kOk) return status;
  const uint32_t bits = ctx.KeyPair(keySpec).modulusBits;
  const uint32_t k = (bits + 7) / 8;
  if (k == 0 || k > kMaxModulusBytes) return provider::kNteBadKeyset;

  uint8_t block[kMaxModulusBytes];
  const auto pad = [&] {
    return mode == provider::CardModeSignature ? crypto::Pkcs1PadType1(block, k, in, inLen)
                                               : crypto::PssEncode(bits, block, in, inLen);
  };
  const OutputCheck check =
      IsSigningMode(mode) ? PadInput(out, outLen, k, provider::kErrMoreData, &status, pad)
                          : TakeInputBlock(in, inLen, k, out, outLen, block, &status);
  if (check == OutputCheck::kAnswered) return status;

  uint8_t raw[kMaxModulusBytes];
  PrivateResultCache& cache = device.cache;
  if (const uint8_t* cached = CachedResult(cache, keySpec, mode, in, inLen)) {
    std::memcpy(raw, cached, k);
  } else {
    CacheRequest(cache, keySpec, mode, in, inLen);
    CK_RV rv = RawTokenRsa(*device.slot, device.Keys(keySpec).privateKey, true, block, k, raw);
    if (rv != CKR_OK) {
      ForgetCachedRequest(cache);
      crypto::Wipe(block, sizeof(block));
      return MapCkrToError(rv);
    }
    CacheResult(cache, raw, k);
  }
  status = FinishPrivate(mode, raw, k, out, outLen);
  crypto::Wipe(block, sizeof(block));
  crypto::Wipe(raw, sizeof(raw));
  return status;
}

}  // namespace nivra::pkcs11
