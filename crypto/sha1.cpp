// SHA-1 state handling: buffering of partial blocks, the bit count, padding and the digest.
#include "crypto/sha1.h"

#include <cstring>
#include <new>

#include "crypto/sha1_compress.h"

namespace nivra::crypto {
namespace {

constexpr uint32_t kInitialChaining[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476,
                                          0xC3D2E1F0};
// The 64-bit bit count sits in the last eight bytes of the final block.
constexpr uint32_t kLengthOffset = kSha1BlockLength - 8;

void StoreBigEndian32(uint32_t v, uint8_t* p) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

// Allocates a zero-filled state; null when memory is short.
Sha1State* AllocateState() {
  auto* state = new (std::nothrow) Sha1State;
  if (state != nullptr) std::memset(state, 0, sizeof(*state));
  return state;
}

}  // namespace

Status Sha1Init(Sha1State** out) {
  if (out == nullptr) return kErrNullArgument;
  *out = AllocateState();
  if (*out == nullptr) return kErrNoMemory;
  std::memcpy((*out)->h, kInitialChaining, sizeof(kInitialChaining));
  return kOk;
}

Status Sha1Update(Sha1State* state, const uint8_t* data, size_t len) {
  if (state == nullptr || (data == nullptr && len != 0)) return kErrNullArgument;
  if (len == 0) return kOk;

  // len * 8 may exceed 32 bits: its low half joins bitCountLow (with carry), and len >> 29
  // holds the bits that reach into the high half.
  const uint32_t lowBits = static_cast<uint32_t>(len) << 3;
  state->bitCountLow += lowBits;
  if (state->bitCountLow < lowBits) ++state->bitCountHigh;
  state->bitCountHigh += static_cast<uint32_t>(static_cast<uint64_t>(len) >> 29);

  if (state->blockFill != 0) {
    const size_t room = kSha1BlockLength - state->blockFill;
    const size_t take = len < room ? len : room;
    std::memcpy(state->block + state->blockFill, data, take);
    state->blockFill += static_cast<uint32_t>(take);
    data += take;
    len -= take;
    if (state->blockFill < kSha1BlockLength) return kOk;
    Sha1Compress(state->h, state->block, 1);
    std::memset(state->block, 0, sizeof(state->block));
    state->blockFill = 0;
  }

  const size_t wholeBlocks = len / kSha1BlockLength;
  if (wholeBlocks != 0) {
    Sha1Compress(state->h, data, wholeBlocks);
    data += wholeBlocks * kSha1BlockLength;
    len -= wholeBlocks * kSha1BlockLength;
  }
  if (len != 0) {
    std::memcpy(state->block, data, len);
    state->blockFill = static_cast<uint32_t>(len);
  }
  return kOk;
}

Status Sha1Final(Sha1State* state, uint8_t out[kSha1DigestLength]) {
  if (state == nullptr || out == nullptr) return kErrNullArgument;
  uint32_t fill = state->blockFill;
  state->block[fill++] = 0x80;
  if (fill > kLengthOffset) {
    // No room for the length: pad this block out and put the length in one more.
    std::memset(state->block + fill, 0, kSha1BlockLength - fill);
    Sha1Compress(state->h, state->block, 1);
    fill = 0;
  }
  std::memset(state->block + fill, 0, kLengthOffset - fill);
  StoreBigEndian32(state->bitCountHigh, state->block + kLengthOffset);
  StoreBigEndian32(state->bitCountLow, state->block + kLengthOffset + 4);
  Sha1Compress(state->h, state->block, 1);
  std::memset(state->block, 0, sizeof(state->block));
  state->blockFill = 0;
  for (int i = 0; i < 5; ++i) StoreBigEndian32(state->h[i], out + 4 * i);
  return kOk;
}

Status Sha1Free(Sha1State* state) {
  if (state == nullptr) return kOk;
  // Wipe through a volatile pointer so the clearing of the message tail is not dropped.
  volatile uint8_t* bytes = reinterpret_cast<volatile uint8_t*>(state);
  for (size_t i = 0; i < sizeof(*state); ++i) bytes[i] = 0;
  delete state;
  return kOk;
}

Status Sha1Clone(const Sha1State* state, Sha1State** out) {
  if (state == nullptr) return kErrInvalidHandle;
  if (out == nullptr) return kErrNullArgument;
  *out = AllocateState();
  if (*out == nullptr) return kErrNoMemory;
  **out = *state;
  return kOk;
}

}  // namespace nivra::crypto
