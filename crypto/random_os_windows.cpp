// Windows half of the random seam. This is the only file of the crypto library that includes a
// Windows header; it declares the single bcrypt function it needs itself.
#include "crypto/random.h"

#include <climits>

extern "C" __declspec(dllimport) long __stdcall BCryptGenRandom(void* alg, unsigned char* buf,
                                                                 unsigned long len,
                                                                 unsigned long flags);

namespace nivra::crypto {

namespace {
constexpr unsigned long kUseSystemPreferredRng = 0x00000002;
}

bool RandomFill(uint8_t* out, size_t len) {
  while (len > 0) {
    unsigned long chunk = len > ULONG_MAX ? ULONG_MAX : static_cast<unsigned long>(len);
    if (BCryptGenRandom(nullptr, out, chunk, kUseSystemPreferredRng) != 0) return false;
    out += chunk;
    len -= chunk;
  }
  return true;
}

}  // namespace nivra::crypto
