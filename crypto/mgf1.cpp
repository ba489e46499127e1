// MGF1 with SHA-1.
#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"
#include "crypto/sha1.h"
#include "crypto/wipe.h"

namespace nivra::crypto {

Status Mgf1Sha1(uint8_t* mask, size_t maskLen, const uint8_t* seed, size_t seedLen) {
  if ((mask == nullptr && maskLen > 0) || (seed == nullptr && seedLen > 0)) {
    return kErrNullArgument;
  }
  uint8_t block[kSha1DigestLength];
  Status status = kOk;
  size_t done = 0;
  for (uint32_t counter = 0; done < maskLen && status == kOk; ++counter) {
    const uint8_t c[4] = {static_cast<uint8_t>(counter >> 24), static_cast<uint8_t>(counter >> 16),
                          static_cast<uint8_t>(counter >> 8), static_cast<uint8_t>(counter)};
    status = Pkcs1Sha1(block, seed, seedLen, c, sizeof(c));
    for (size_t i = 0; i < sizeof(block) && done < maskLen && status == kOk; ++i) {
      mask[done++] = block[i];
    }
  }
  Wipe(block, sizeof(block));
  return status;
}

}  // namespace nivra::crypto
