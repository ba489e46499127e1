// Fuzzes OAEP decoding and the v1.5 unpadding. Input byte 0 chooses the shape: raw encoded blocks
// (bit 0 set), or a data block and seed taken from the input and masked properly, so that the
// decoder's separator search and length handling are reached behind a correct label hash.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"

namespace {

using namespace nivra::crypto;

constexpr size_t kSeedLen = 20;
constexpr size_t kMaxBlock = 1024;

void Check(bool condition) {
  if (!condition) std::abort();
}

void Xor(uint8_t* target, size_t len, const uint8_t* seed, size_t seedLen) {
  std::vector<uint8_t> mask(len);
  Check(Mgf1Sha1(mask.data(), len, seed, seedLen) == kOk);
  for (size_t i = 0; i < len; ++i) target[i] ^= mask[i];
}

// em = 00 || maskedSeed || maskedDB for db[0..dbLen) with its first 20 bytes replaced by the
// empty-label hash when withLabel is set.
std::vector<uint8_t> Mask(const uint8_t* seed, const uint8_t* db, size_t dbLen, bool withLabel) {
  std::vector<uint8_t> em(1 + kSeedLen + dbLen, 0);
  std::memcpy(em.data() + 1, seed, kSeedLen);
  std::memcpy(em.data() + 1 + kSeedLen, db, dbLen);
  if (withLabel && dbLen >= kSeedLen) {
    Check(Pkcs1Sha1(em.data() + 1 + kSeedLen, nullptr, 0, nullptr, 0) == kOk);
  }
  Xor(em.data() + 1 + kSeedLen, dbLen, em.data() + 1, kSeedLen);
  Xor(em.data() + 1, kSeedLen, em.data() + 1 + kSeedLen, dbLen);
  return em;
}

void Decode(const std::vector<uint8_t>& em) {
  std::vector<uint8_t> out(em.size());
  size_t outLen = out.size();
  Status status = OaepDecode(out.data(), &outLen, em.data(), em.size());
  if (status == kOk) {
    Check(outLen + 42 <= em.size());
    // The same block decoded into a buffer one byte short must refuse and report the length.
    if (outLen > 0) {
      size_t shortLen = outLen - 1;
      Check(OaepDecode(out.data(), &shortLen, em.data(), em.size()) == kErrBufferTooSmall);
      Check(shortLen == outLen);
    }
  } else {
    Check(status == kErrOaepDecoding || status == kErrOaepLabel || status == kErrGeneric);
  }
}

void Unpad(const std::vector<uint8_t>& block) {
  const uint8_t* data = nullptr;
  size_t len = 0;
  if (Pkcs1UnpadType1(block.data(), block.size(), &data, &len) == kOk) {
    Check(data + len == block.data() + block.size() && len + 11 <= block.size());
  }
  if (Pkcs1UnpadType2(block.data(), block.size(), &data, &len) == kOk) {
    Check(data + len == block.data() + block.size() && len + 11 <= block.size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > kMaxBlock) return 0;
  const uint8_t shape = data[0];
  if ((shape & 1) != 0 || size < 1 + kSeedLen) {
    std::vector<uint8_t> em(data + 1, data + size);
    if (em.empty()) return 0;
    Decode(em);
    Unpad(em);
    return 0;
  }
  const uint8_t* seed = data + 1;
  const uint8_t* db = seed + kSeedLen;
  const size_t dbLen = size - 1 - kSeedLen;
  std::vector<uint8_t> em = Mask(seed, db, dbLen, (shape & 2) != 0);
  Decode(em);
  return 0;
}
