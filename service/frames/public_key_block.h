// The public-key block that answers key generation (0x2021) and public-key reads (0x2022):
// bit length b, public exponent, modulus byte count m = (b + 7) / 8, each 32-bit little-endian,
// then the modulus in m bytes, big-endian. The block is 12 + m bytes.
#pragma once
#include <cstddef>
#include <cstdint>

#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

constexpr size_t kPublicKeyFieldsSize = 12;

struct PublicKeyBlock {
  uint32_t bits = 0;
  uint32_t exponent = 0;
  Bytes modulus;  // big-endian, exactly (bits + 7) / 8 bytes
};

// Appends the block to *out. kBadField for a bit length of 0 or a modulus whose length is not
// (bits + 7) / 8; kTooLong for a block above 65535 bytes.
FrameStatus WritePublicKeyBlock(const PublicKeyBlock& key, Bytes* out);

// Reads a block from body[0..len): kTruncated below 12 bytes; kBadField for a bit length of 0;
// kBadLength when the byte count is not (bits + 7) / 8 or len is not 12 + that count.
FrameStatus ReadPublicKeyBlock(const uint8_t* body, size_t len, PublicKeyBlock* key);

}  // namespace nivra::frames
