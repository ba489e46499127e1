#include "crypto/random.h"

#include <sys/random.h>

#include <cerrno>

namespace nivra::crypto {

bool RandomFill(uint8_t* out, size_t len) {
  while (len > 0) {
    ssize_t got = getrandom(out, len, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    out += got;
    len -= static_cast<size_t>(got);
  }
  return true;
}

}  // namespace nivra::crypto
