#pragma once
// Builders of wire attributes for tests on both sides.
#include <cstdint>
#include <string>
#include <vector>

#include "tools/p11wire/wire_messages.h"

namespace nivra::p11test {

using Bytes = std::vector<uint8_t>;

// A template attribute carrying `value`.
inline p11wire::WireAttribute ValueAttribute(uint32_t type, Bytes value) {
  p11wire::WireAttribute a;
  a.type = type;
  a.hasValue = true;
  a.length = static_cast<uint32_t>(value.size());
  a.value = std::move(value);
  return a;
}

// A query attribute: a buffer of `capacity` bytes, or a size query without one.
inline p11wire::WireAttribute QueryAttribute(uint32_t type, bool buffer, uint32_t capacity) {
  p11wire::WireAttribute a;
  a.type = type;
  a.hasValue = buffer;
  a.length = capacity;
  return a;
}

// A 4-byte little-endian value, as the Windows caller's CK_ULONG.
inline Bytes Ulong32(uint32_t v) {
  return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
          static_cast<uint8_t>(v >> 24)};
}

inline Bytes TextBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

}  // namespace nivra::p11test
