// The limits answer of a device or service card (0x2041): five 16-bit key-length fields, the two
// 8-bit PIN lengths, and, in a body of at least 16 bytes, the 32-bit PIN flags.
//
//   offset  0  loaded marker (16)     offset  8  key-length increment (16)
//   offset  2  default key bits (16)  offset 10  minimum PIN length (8)
//   offset  4  minimum key bits (16)  offset 11  maximum PIN length (8)
//   offset  6  maximum key bits (16)  offset 12  PIN flags (32), when present
#pragma once
#include <cstddef>
#include <cstdint>

#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

constexpr size_t kLimitsMinBody = 12;
constexpr size_t kLimitsFullBody = 16;

struct CardLimits {
  uint16_t loaded = 0;
  uint16_t defaultBits = 0;
  uint16_t minBits = 0;
  uint16_t maxBits = 0;
  uint16_t incrementBits = 0;
  uint8_t minPin = 0;
  uint8_t maxPin = 0;
  bool hasPinFlags = false;
  uint32_t pinFlags = 0;
};

// Appends the 16-byte body (12 bytes when hasPinFlags is false) to *out.
void WriteCardLimits(const CardLimits& limits, Bytes* out);

// Reads a limits body as it is on the wire (no value is cut): kBadLength below 12 bytes; the PIN
// flags only from a body of 16 bytes or more.
FrameStatus ReadCardLimits(const uint8_t* body, size_t len, CardLimits* limits);

}  // namespace nivra::frames
