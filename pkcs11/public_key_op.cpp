// Public-key operations on the token: padding here, raw RSA there.
#include <windows.h>
#include <wincrypt.h>

#include "crypto/pkcs1.h"
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/rsa_blocks.h"
#include "pkcs11/token_keys.h"
#include "pkcs11/token_rsa_ops.h"

namespace nivra::pkcs11 {

using provider::kMaxModulusBytes;
using provider::kOk;

namespace {

uint32_t KeyBits(const provider::ProviderContext& ctx, const provider::KeyObject& key) {
  if (key.algId == AT_SIGNATURE) return ctx.signatureKey.modulusBits;
  if (key.algId == AT_KEYEXCHANGE) return ctx.exchangeKey.modulusBits;
  return key.modulusBits;
}

Status FinishPublic(uint32_t mode, const uint8_t* raw, uint32_t k, uint8_t* out,
                    uint32_t* outLen) {
  if (mode == provider::CardModeSignature) {
    return ReturnUnpadded(crypto::Pkcs1UnpadType1, raw, k, out, outLen);
  }
  if (mode == kModePss) return provider::kNteBadFlags;
  return ReturnReversed(raw, k, out, outLen, provider::kNteBadLen);
}

}  // namespace

Status PublicKeyOp(provider::ProviderContext& ctx, SlotDevice& device,
                   const provider::KeyObject& key, uint32_t mode, const uint8_t* in,
                   uint32_t inLen, uint8_t* out, uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  Status status = LoadKeyPair(ctx, device, key.algId, true);
  if (status != kOk) return status;
  const uint32_t k = (KeyBits(ctx, key) + 7) / 8;
  if (k == 0 || k > kMaxModulusBytes) return provider::kNteBadKeyset;

  uint8_t block[kMaxModulusBytes];
  const bool padded = mode == provider::CardModeEncryption || mode == provider::CardModeOaep;
  const auto pad = [&] {
    return mode == provider::CardModeEncryption ? crypto::Pkcs1PadType2(block, k, in, inLen)
                                                : crypto::OaepEncode(block, k, in, inLen);
  };
  const OutputCheck check = padded ? PadInput(out, outLen, k, provider::kNteBadLen, &status, pad)
                                   : TakeInputBlock(in, inLen, k, out, outLen, block, &status);
  if (check == OutputCheck::kAnswered) return status;

  uint8_t raw[kMaxModulusBytes];
  CK_RV rv = RawTokenRsa(*device.slot, device.Keys(key.algId).publicKey, false, block, k, raw);
  if (rv != CKR_OK) return MapCkrToError(rv);
  return FinishPublic(mode, raw, k, out, outLen);
}

}  // namespace nivra::pkcs11
