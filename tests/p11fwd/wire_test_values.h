#pragma once
// Values for tests on both sides of the link: wire attributes, 4-byte CK_ULONGs, text fields.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/p11wire/wire_messages.h"

namespace nivra::p11test {

using Bytes = std::vector<uint8_t>;

// A template attribute carrying `value`.
inline p11wire::WireAttribute ValueAttribute(uint32_t type, Bytes value) {
  uint32_t length = static_cast<uint32_t>(value.size());
  return {type, true, length, std::move(value)};
}

// A query attribute: a buffer of `capacity` bytes, or a size query without one.
inline p11wire::WireAttribute QueryAttribute(uint32_t type, bool buffer, uint32_t capacity) {
  return {type, buffer, capacity, {}};
}

inline Bytes TextBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

// "0x" and the value in hexadecimal, as control commands take slot identifiers.
inline std::string Hex(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

}  // namespace nivra::p11test
