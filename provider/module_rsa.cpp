#include "provider/module_rsa.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "crypto/bignum.h"
#include "crypto/pkcs1.h"
#include "provider/card_backend.h"

namespace nivra::provider {

namespace {

constexpr uint32_t kModeNotSupported = 17;
constexpr size_t kMinSignaturePadding = 8;

// out = in^e mod n over k-byte big-endian blocks; false when the arithmetic fails or in >= n.
bool RaiseToPublicExponent(const KeyObject& key, const uint8_t* in, uint8_t* out) {
  const uint32_t k = key.modulusBytes;
  crypto::CBigNumber base, exponent, modulus, result;
  if (base.FromBytes(in, 0, k) != 0 || modulus.FromBytes(key.modulus, 0, k) != 0 ||
      exponent.SetWord(key.publicExponent) != 0) {
    return false;
  }
  if (modulus.IsZero() || base.Compare(modulus) >= 0) return false;
  if (result.ModExp(base, exponent, modulus) != 0) return false;
  result.ToBytesFixed(out, k);
  return true;
}

// Signature block: 00 01 FF.. (at least 8) 00 payload.
Status UnwrapSignature(const KeyObject& key, const uint8_t* in, uint32_t inLen, uint8_t* out,
                       uint32_t* outLen) {
  const uint32_t k = key.modulusBytes;
  if (inLen != k) return kNteBadData;
  std::vector<uint8_t> block(in, in + k);
  std::reverse(block.begin(), block.end());
  if (!RaiseToPublicExponent(key, block.data(), block.data())) return kNteFail;
  if (k < 3 || block[0] != 0x00 || block[1] != 0x01) return kNteBadData;
  size_t i = 2;
  while (i < k && block[i] == 0xFF) ++i;
  if (i == k || block[i] != 0x00 || i - 2 < kMinSignaturePadding) return kNteBadData;
  const uint32_t payload = static_cast<uint32_t>(k - i - 1);
  if (*outLen < payload) return kNteBadData;
  std::memcpy(out, block.data() + i + 1, payload);
  *outLen = payload;
  return kOk;
}

// Pads with block type 2 or OAEP, encrypts, and writes the result little-endian.
Status EncryptWithModuleKey(const KeyObject& key, uint32_t mode, const uint8_t* in,
                            uint32_t inLen, uint8_t* out, uint32_t* outLen) {
  const uint32_t k = key.modulusBytes;
  if (out == nullptr) {
    *outLen = k;
    return kOk;
  }
  if (*outLen < k) return kNteBadLen;
  std::vector<uint8_t> block(k);
  const crypto::Status padded = mode == CardModeOaep
                                    ? crypto::OaepEncode(block.data(), k, in, inLen)
                                    : crypto::Pkcs1PadType2(block.data(), k, in, inLen);
  if (padded == crypto::kErrMessageTooLong) return kNteBadLen;
  if (padded != crypto::kOk || !RaiseToPublicExponent(key, block.data(), block.data())) {
    return kNteFail;
  }
  std::reverse_copy(block.begin(), block.end(), out);
  *outLen = k;
  return kOk;
}

}  // namespace

Status ModuleRsaPublicOp(const KeyObject& key, uint32_t mode, const uint8_t* in, uint32_t inLen,
                         uint8_t* out, uint32_t* outLen) {
  switch (mode) {
    case CardModeSignature:
      return UnwrapSignature(key, in, inLen, out, outLen);
    case CardModeEncryption:
    case CardModeOaep:
      return EncryptWithModuleKey(key, mode, in, inLen, out, outLen);
    case kModeNotSupported:
      return kNteBadFlags;
    default:
      return kNteFail;
  }
}

}  // namespace nivra::provider
