#include "crypto/wipe.h"

namespace nivra::crypto {

void Wipe(void* p, size_t len) {
  // Stores through a volatile pointer are observable behaviour, so they are never elided.
  volatile unsigned char* bytes = static_cast<volatile unsigned char*>(p);
  for (size_t i = 0; i < len; ++i) bytes[i] = 0;
}

}  // namespace nivra::crypto
