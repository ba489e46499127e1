#include "service/frames/public_key_block.h"

#include "service/frames/byte_order.h"

namespace nivra::frames {

namespace {
constexpr size_t kBitsOffset = 0;
constexpr size_t kExponentOffset = 4;
constexpr size_t kCountOffset = 8;

uint64_t ModulusBytesFor(uint32_t bits) { return (uint64_t{bits} + 7) / 8; }
}  // namespace

FrameStatus WritePublicKeyBlock(const PublicKeyBlock& key, Bytes* out) {
  if (key.bits == 0 || key.modulus.size() != ModulusBytesFor(key.bits)) {
    return FrameStatus::kBadField;
  }
  if (kPublicKeyFieldsSize + key.modulus.size() > kMaxBodyLength) return FrameStatus::kTooLong;
  const size_t at = out->size();
  out->resize(at + kPublicKeyFieldsSize);
  StoreLe32(out->data() + at + kBitsOffset, key.bits);
  StoreLe32(out->data() + at + kExponentOffset, key.exponent);
  StoreLe32(out->data() + at + kCountOffset, static_cast<uint32_t>(key.modulus.size()));
  out->insert(out->end(), key.modulus.begin(), key.modulus.end());
  return FrameStatus::kOk;
}

FrameStatus ReadPublicKeyBlock(const uint8_t* body, size_t len, PublicKeyBlock* key) {
  if (len < kPublicKeyFieldsSize) return FrameStatus::kTruncated;
  const uint32_t bits = LoadLe32(body + kBitsOffset);
  const uint32_t count = LoadLe32(body + kCountOffset);
  if (bits == 0) return FrameStatus::kBadField;
  if (count != ModulusBytesFor(bits) || len != kPublicKeyFieldsSize + count) {
    return FrameStatus::kBadLength;
  }
  key->bits = bits;
  key->exponent = LoadLe32(body + kExponentOffset);
  key->modulus.assign(body + kPublicKeyFieldsSize, body + len);
  return FrameStatus::kOk;
}

}  // namespace nivra::frames
