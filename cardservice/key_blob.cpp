#include "cardservice/key_blob.h"

#include <algorithm>

#include "service/frames/byte_order.h"
#include "crypto/wipe.h"

namespace nivra::cardservice {

namespace {

constexpr uint8_t kPrivateKeyBlobType = 7;
constexpr uint8_t kBlobVersion = 2;
constexpr uint32_t kRsa2Magic = 0x32415352;  // "RSA2" read little-endian
constexpr size_t kBlobHeaderLength = 8 + 12;

std::vector<uint8_t> BigEndian(const uint8_t* littleEndian, size_t length) {
  std::vector<uint8_t> out(littleEndian, littleEndian + length);
  std::reverse(out.begin(), out.end());
  size_t first = 0;
  while (first < out.size() && out[first] == 0) ++first;
  out.erase(out.begin(), out.begin() + first);
  return out;
}

void Wipe(std::vector<uint8_t>& value) {
  if (!value.empty()) crypto::Wipe(value.data(), value.size());
}

}  // namespace

RsaKeyParts::~RsaKeyParts() {
  for (auto* part : {&modulus, &publicExponent, &privateExponent, &prime1, &prime2, &exponent1,
                     &exponent2, &coefficient}) {
    Wipe(*part);
  }
}

bool ParsePrivateKeyBlob(const uint8_t* blob, size_t length, RsaKeyParts* key) {
  if (length < kBlobHeaderLength || blob[0] != kPrivateKeyBlobType || blob[1] != kBlobVersion) {
    return false;
  }
  uint32_t magic = frames::LoadLe32(blob + 8), bits = frames::LoadLe32(blob + 12),
           exponent = frames::LoadLe32(blob + 16);
  if (magic != kRsa2Magic || bits == 0 || bits % 16 != 0) return false;
  size_t whole = bits / 8, half = bits / 16;
  if (length != kBlobHeaderLength + 2 * whole + 5 * half) return false;
  const uint8_t* at = blob + kBlobHeaderLength;
  key->modulus = BigEndian(at, whole);
  at += whole;
  for (auto* part : {&key->prime1, &key->prime2, &key->exponent1, &key->exponent2,
                     &key->coefficient}) {
    *part = BigEndian(at, half);
    at += half;
  }
  key->privateExponent = BigEndian(at, whole);
  uint8_t exponentBytes[4];
  frames::StoreLe32(exponentBytes, exponent);
  key->publicExponent = BigEndian(exponentBytes, sizeof exponentBytes);
  return !key->modulus.empty() && !key->publicExponent.empty() && !key->prime1.empty() &&
         !key->prime2.empty();
}

}  // namespace nivra::cardservice
