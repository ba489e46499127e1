// Conversions between CBigNumber and big-endian byte strings, and its DER INTEGER form.
#include "crypto/bignum.h"
#include "crypto/bignum_words.h"
#include "crypto/der.h"

namespace nivra::crypto {

namespace {

constexpr uint8_t kDerIntegerTag = 0x02;

// Byte `pos` of the value, counted from the least significant byte (0 beyond the top).
uint8_t ByteAt(const CBigNumber& a, uint32_t pos) {
  uint32_t w = pos / 4;
  if (w >= a.used) return 0;
  return static_cast<uint8_t>(a.words[w] >> (8 * (pos % 4)));
}

}  // namespace

int CBigNumber::FromBytes(const uint8_t* bytes, uint32_t offset, uint32_t len) {
  if (len == 0) return 0;
  uint64_t end = static_cast<uint64_t>(offset) + len;  // one past the highest byte position
  if (end > 0xFFFFFFFCull) return -1;
  uint32_t need = static_cast<uint32_t>((end + 3) / 4);
  if (need > used) {
    if (GrowZeroed(need) != 0) return -1;
    used = need;
  }
  for (uint32_t k = 0; k < len; ++k) {
    uint32_t pos = offset + k;
    uint32_t shift = 8 * (pos % 4);
    uint32_t& w = words[pos / 4];
    w = (w & ~(0xFFu << shift)) | (static_cast<uint32_t>(bytes[len - 1 - k]) << shift);
  }
  Trim();
  return 0;
}

void CBigNumber::ToBytesFixed(uint8_t* out, uint32_t len) const {
  for (uint32_t k = 0; k < len; ++k) out[len - 1 - k] = ByteAt(*this, k);
}

int CBigNumber::ToBytes(uint8_t* out, uint32_t len, uint32_t* needed) const {
  uint32_t size = (BitLength() + 7) / 8;
  if (needed != nullptr) *needed = size;
  if (len < size) return 0;
  ToBytesFixed(out, len);
  return 1;
}

uint32_t CBigNumber::DerIntegerLength() const {
  uint32_t content = (BitLength() + 8) / 8;
  return 1 + DerLengthSize(content) + content;
}

uint32_t CBigNumber::ToDerInteger(uint8_t* out) const {
  uint32_t content = (BitLength() + 8) / 8;
  uint32_t total = 1 + DerLengthSize(content) + content;
  if (out == nullptr) return total;
  out[0] = kDerIntegerTag;
  uint32_t header = 1 + WriteDerLength(out + 1, content);
  ToBytesFixed(out + header, content);
  return total;
}

}  // namespace nivra::crypto
