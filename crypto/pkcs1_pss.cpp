// EMSA-PSS encoding with SHA-1, MGF1-SHA-1 and an empty salt.
#include <cstring>

#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"
#include "crypto/sha1.h"

namespace nivra::crypto {

namespace {
constexpr uint8_t kTrailer = 0xBC;
constexpr uint8_t kZeroPrefix[8] = {};
}  // namespace

Status PssEncode(uint32_t modBits, uint8_t* out, const uint8_t* mHash, size_t mHashLen) {
  if (out == nullptr || (mHash == nullptr && mHashLen > 0)) return kErrNullArgument;
  const size_t emLen = (static_cast<size_t>(modBits) + 7) / 8;
  // With modBits = 8j + 1 the encoded message has only 8j bits: a whole leading zero byte.
  const bool leadingZero = modBits % 8 == 1;
  const size_t len = emLen - (leadingZero ? 1 : 0);
  if (emLen == 0 || len < kPssMinLength) return kErrModulusTooShort;

  uint8_t h[kSha1DigestLength];
  Status status = Pkcs1Sha1(h, kZeroPrefix, sizeof(kZeroPrefix), mHash, mHashLen);
  if (status != kOk) return status;
  uint8_t* em = out + (leadingZero ? 1 : 0);
  const size_t dbLen = len - kSha1DigestLength - 1;
  // DB = zero padding || 01 (no salt), so maskedDB is the mask with its last byte flipped.
  status = Mgf1Sha1(em, dbLen, h, sizeof(h));
  if (status != kOk) return status;
  em[dbLen - 1] ^= 0x01;
  if (!leadingZero) em[0] &= static_cast<uint8_t>(0xFF >> (8 - (modBits - 1) % 8));
  std::memcpy(em + dbLen, h, sizeof(h));
  em[len - 1] = kTrailer;
  if (leadingZero) out[0] = 0x00;
  return kOk;
}

}  // namespace nivra::crypto
