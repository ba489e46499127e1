#include "crypto/der.h"

namespace nivra::crypto {

namespace {
constexpr uint8_t kLongFormFlag = 0x80;
constexpr uint32_t kMaxLengthOctets = 4;
}  // namespace

uint32_t DerLengthSize(uint32_t len) {
  if (len < kLongFormFlag) return 1;
  uint32_t octets = 1;
  while (octets < kMaxLengthOctets && (len >> (8 * octets)) != 0) ++octets;
  return 1 + octets;
}

uint32_t WriteDerLength(uint8_t* out, uint32_t len) {
  uint32_t size = DerLengthSize(len);
  if (size == 1) {
    out[0] = static_cast<uint8_t>(len);
    return 1;
  }
  uint32_t octets = size - 1;
  out[0] = static_cast<uint8_t>(kLongFormFlag | octets);
  for (uint32_t i = 0; i < octets; ++i) {
    out[1 + i] = static_cast<uint8_t>(len >> (8 * (octets - 1 - i)));
  }
  return size;
}

bool ReadDerHeader(const uint8_t* in, size_t avail, uint8_t* tag, size_t* headerLen,
                   size_t* contentLen) {
  if (avail < 2) return false;
  *tag = in[0];
  uint8_t first = in[1];
  if ((first & kLongFormFlag) == 0) {
    *headerLen = 2;
    *contentLen = first;
    return true;
  }
  uint32_t octets = first & 0x7Fu;
  if (octets == 0 || octets > kMaxLengthOctets || avail < 2 + static_cast<size_t>(octets)) {
    return false;
  }
  size_t len = 0;
  for (uint32_t i = 0; i < octets; ++i) len = (len << 8) | in[2 + i];
  *headerLen = 2 + octets;
  *contentLen = len;
  return true;
}

}  // namespace nivra::crypto
