#include "service/frames/mode_token.h"

#include <cstring>

#include "crypto/cipher.h"
#include "service/frames/byte_order.h"
#include "service/frames/crypto_guards.h"

namespace nivra::frames {

// Shared with the companion program that issues tokens (tools/modetoken).
const uint8_t kModeTokenKey[16] = {0x5E, 0x93, 0x2C, 0xB7, 0x41, 0xD8, 0x6A, 0x0F,
                                   0xE2, 0x37, 0x9C, 0x54, 0xAB, 0x16, 0xF0, 0x7D};

namespace {

constexpr size_t kLengthOffset = 0;
constexpr size_t kStampOffset = 4;
constexpr size_t kPayloadOffset = 12;
constexpr size_t kBlock = 8;

// One ECB block through a fresh context keyed with key[0..keyLen).
bool OneBlock(const uint8_t* key, size_t keyLen, const uint8_t in[kBlock], uint8_t out[kBlock],
              bool encrypt) {
  CipherOwner cipher;
  size_t written = kBlock;
  return crypto::CipherCreate(cipher.Out(), key, keyLen) == crypto::kOk &&
         crypto::CipherUpdate(cipher.Get(), in, kBlock, out, &written, encrypt) == crypto::kOk &&
         written == kBlock;
}

// The payload mask: the encryption of a zero block under single DES keyed with the stamp.
bool PayloadMask(const uint8_t stamp[kBlock], uint8_t mask[kBlock]) {
  const uint8_t zeros[kBlock] = {};
  return OneBlock(stamp, kBlock, zeros, mask, true);
}

}  // namespace

bool IssueModeToken(uint64_t now, bool flag, uint8_t token[kModeTokenSize]) {
  std::memset(token, 0, kModeTokenSize);
  uint8_t stamp[kBlock];
  for (size_t i = 0; i < kBlock; ++i) stamp[i] = static_cast<uint8_t>(now >> (8 * i));
  uint8_t mask[kBlock];
  if (!OneBlock(kModeTokenKey, sizeof(kModeTokenKey), stamp, token + kStampOffset, true) ||
      !PayloadMask(stamp, mask)) {
    return false;
  }
  StoreLe32(token + kLengthOffset, 1);
  token[kPayloadOffset] = static_cast<uint8_t>((flag ? 1 : 0) ^ mask[0]);
  return true;
}

bool ReadModeToken(const uint8_t token[kModeTokenSize], uint64_t now, bool* flag) {
  const uint32_t length = LoadLe32(token + kLengthOffset);
  if (length < 1 || length > kModeTokenMaxPayload) return false;
  uint8_t stamp[kBlock];
  if (!OneBlock(kModeTokenKey, sizeof(kModeTokenKey), token + kStampOffset, stamp, false)) {
    return false;
  }
  uint64_t issued = 0;
  for (size_t i = 0; i < kBlock; ++i) issued |= uint64_t{stamp[i]} << (8 * i);
  if (now < issued || now - issued > kModeTokenLifetimeMs) return false;
  uint8_t mask[kBlock];
  if (!PayloadMask(stamp, mask)) return false;
  *flag = (token[kPayloadOffset] ^ mask[0]) != 0;
  return true;
}

}  // namespace nivra::frames
