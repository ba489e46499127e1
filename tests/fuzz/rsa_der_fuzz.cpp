// Fuzzes DER key import. The first input byte picks the form (any value, so unknown forms are
// reached too); the rest is the DER. Whatever parses must export again, re-import to the same
// bytes, and survive the raw operations (on keys small enough to keep the fuzzer fast).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "crypto/rsa_key.h"

namespace {

using namespace nivra::crypto;

void Check(bool condition) {
  if (!condition) std::abort();
}

std::vector<uint8_t> Export(const CRSA* key, uint32_t what, Status* status) {
  size_t len = 0;
  *status = RsaExportKey(key, what, nullptr, &len);
  std::vector<uint8_t> out(len);
  if (*status == kOk && len > 0) {
    size_t capacity = len;
    Check(RsaExportKey(key, what, out.data(), &capacity) == kOk && capacity == len);
    if (len > 1) {
      size_t small = len - 1;
      Check(RsaExportKey(key, what, out.data(), &small) == kErrBufferTooSmall && small == len);
    }
  }
  return out;
}

void ExerciseRawOperations(const CRSA* key) {
  const uint32_t k = key->ModulusBytes();
  if (k == 0 || key->n.BitLength() > 512 || key->e.BitLength() > 64) return;
  std::vector<uint8_t> in(k, 0), out(k);
  in[k - 1] = 0x02;
  RsaPublic(key, in.data(), k, out.data(), nullptr);
  if (key->d.BitLength() <= 512 && key->dP.BitLength() <= 512 && key->dQ.BitLength() <= 512) {
    RsaPrivate(key, in.data(), k, out.data(), nullptr);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint32_t form = data[0] % 5;  // 0 and 4 are unknown forms
  CRSA* key = nullptr;
  uint32_t bits = 0;
  Status status = RsaImportKey(&key, &bits, form, data + 1, size - 1);
  if (status != kOk) {
    Check(key == nullptr);
    Check(status == kErrMalformedDer || status == kErrUnknownForm);
    return 0;
  }
  Check(bits == key->n.BitLength());
  for (uint32_t what : {1u, 2u, 3u, 128u, 129u, 130u, 131u, 132u, 133u, 134u, 135u}) {
    Status exported = kOk;
    std::vector<uint8_t> der = Export(key, what, &exported);
    if (exported != kOk || what > 3) continue;
    CRSA* again = nullptr;
    Check(RsaImportKey(&again, nullptr, what, der.data(), der.size()) == kOk);
    Status reexported = kOk;
    Check(Export(again, what, &reexported) == der && reexported == kOk);
    RsaDestroyKey(again);
  }
  ExerciseRawOperations(key);
  // Loading the same bytes into a key that already holds components.
  RsaSetKey(key, form, data + 1, size - 1);
  RsaDestroyKey(key);
  return 0;
}
