#include "crypto/pkcs1_hash.h"

#include "crypto/hash_object.h"

namespace nivra::crypto {

Status Pkcs1Sha1(uint8_t* out, const uint8_t* a, size_t aLen, const uint8_t* b, size_t bLen) {
  HashHandle hash = 0;
  Status status = HashCreate(&hash);
  if (status != kOk) return status;
  status = HashUpdate(hash, a, aLen);
  if (status == kOk) status = HashUpdate(hash, b, bLen);
  if (status == kOk) status = HashFinal(hash, out);
  Status destroyed = HashDestroy(hash);
  return status != kOk ? status : destroyed;
}

}  // namespace nivra::crypto
