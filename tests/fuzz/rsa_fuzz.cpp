// Fuzzes the RSA input parsers. With the top bit of input byte 0 clear, DER key import: byte 0
// picks the form (any value, so unknown forms are reached too) and the rest is the DER; whatever
// parses must export again, re-import to the same bytes, and survive the raw operations (on keys
// small enough to keep the fuzzer fast). With it set, OAEP decoding and the v1.5 unpadding: raw
// encoded blocks (bit 0 set), or a data block and seed taken from the input and masked properly,
// so that the decoder's separator search and length handling are reached behind a correct label
// hash (bit 1 set).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"
#include "crypto/rsa_key.h"

namespace {

using namespace nivra::crypto;
using Bytes = std::vector<uint8_t>;

constexpr size_t kSeedLen = 20;

void Check(bool condition) {
  if (!condition) std::abort();
}

// What key exports as `what`, when it can; empty otherwise.
Bytes Export(const CRSA* key, uint32_t what) {
  size_t len = 0;
  if (RsaExportKey(key, what, nullptr, &len) != kOk) return {};
  Bytes out(len);
  Check(RsaExportKey(key, what, out.data(), &len) == kOk && len == out.size());
  return out;
}

void FuzzDer(uint32_t form, const uint8_t* der, size_t size) {
  CRSA* key = nullptr;
  uint32_t bits = 0;
  const Status status = RsaImportKey(&key, &bits, form, der, size);
  if (status != kOk) {
    Check(key == nullptr && (status == kErrMalformedDer || status == kErrUnknownForm));
    return;
  }
  Check(bits == key->n.BitLength());
  for (uint32_t what : {1u, 2u, 3u, 128u, 129u, 130u, 131u, 132u, 133u, 134u, 135u}) {
    const Bytes again = Export(key, what);
    CRSA* copy = nullptr;
    if (again.empty() || what > 3) continue;
    Check(RsaImportKey(&copy, nullptr, what, again.data(), again.size()) == kOk);
    Check(Export(copy, what) == again);
    RsaDestroyKey(copy);
  }
  const uint32_t k = key->ModulusBytes();
  if (k > 0 && key->n.BitLength() <= 512 && key->e.BitLength() <= 64) {
    Bytes in(k, 0), out(k);
    in[k - 1] = 0x02;
    RsaPublic(key, in.data(), k, out.data(), nullptr);
    if (key->d.BitLength() <= 512 && key->dP.BitLength() <= 512 && key->dQ.BitLength() <= 512) {
      RsaPrivate(key, in.data(), k, out.data(), nullptr);
    }
  }
  RsaSetKey(key, form, der, size);  // the same bytes into a key that holds components
  RsaDestroyKey(key);
}

void Decode(const Bytes& em) {
  Bytes out(em.size());
  size_t outLen = out.size();
  const Status status = OaepDecode(out.data(), &outLen, em.data(), em.size());
  Check(status == kOk ? outLen + 42 <= em.size()
                      : status == kErrOaepDecoding || status == kErrOaepLabel ||
                            status == kErrGeneric);
}

void Xor(uint8_t* target, size_t len, const uint8_t* seed, size_t seedLen) {
  Bytes mask(len);
  Check(Mgf1Sha1(mask.data(), len, seed, seedLen) == kOk);
  for (size_t i = 0; i < len; ++i) target[i] ^= mask[i];
}

void FuzzBlocks(uint8_t shape, const uint8_t* data, size_t size) {
  if ((shape & 1) != 0 || size < kSeedLen) {
    if (size == 0) return;
    const Bytes block(data, data + size);
    Decode(block);
    const uint8_t* message = nullptr;
    size_t len = 0;
    for (auto unpad : {Pkcs1UnpadType1, Pkcs1UnpadType2}) {
      if (unpad(block.data(), block.size(), &message, &len) == kOk) {
        Check(message + len == block.data() + block.size() && len + 11 <= block.size());
      }
    }
    return;
  }
  // em = 00 || maskedSeed || maskedDB, the data block's first 20 bytes replaced by the
  // empty-label hash when bit 1 is set.
  const size_t dbLen = size - kSeedLen;
  Bytes em(1 + size, 0);
  std::memcpy(em.data() + 1, data, size);
  if ((shape & 2) != 0 && dbLen >= kSeedLen) {
    Check(Pkcs1Sha1(em.data() + 1 + kSeedLen, nullptr, 0, nullptr, 0) == kOk);
  }
  Xor(em.data() + 1 + kSeedLen, dbLen, em.data() + 1, kSeedLen);
  Xor(em.data() + 1, kSeedLen, em.data() + 1 + kSeedLen, dbLen);
  Decode(em);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  if ((data[0] & 0x80) == 0) FuzzDer(data[0] % 5, data + 1, size - 1);  // forms 0 and 4 unknown
  else if (size <= 1024) FuzzBlocks(data[0], data + 1, size - 1);
  return 0;
}
