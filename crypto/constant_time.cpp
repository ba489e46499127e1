#include "crypto/constant_time.h"

namespace nivra::crypto {

bool ConstantTimeEqual(const void* a, const void* b, size_t len) {
  // Reads through volatile pointers so that the loop is not turned into an early-exit compare.
  const volatile unsigned char* x = static_cast<const volatile unsigned char*>(a);
  const volatile unsigned char* y = static_cast<const volatile unsigned char*>(b);
  unsigned char difference = 0;
  for (size_t i = 0; i < len; ++i) difference |= x[i] ^ y[i];
  return difference == 0;
}

}  // namespace nivra::crypto
