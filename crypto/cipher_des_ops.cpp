// DES and TDEA plugged into the cipher framework's operation table.
#include "crypto/cipher_context.h"
#include "crypto/des.h"

namespace nivra::crypto {
namespace {

const DesKeySchedule* AsDes(const void* schedule) {
  return static_cast<const DesKeySchedule*>(schedule);
}

Status Setup(const uint8_t* key, size_t keyLen, void** schedule) {
  DesKeySchedule* des = nullptr;
  Status s = DesKeySetup(key, keyLen, &des);
  if (s == kOk) *schedule = des;
  return s;
}

Status Encrypt(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t selector) {
  return DesEncryptBlock(AsDes(schedule), in, out, selector);
}

Status Decrypt(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t selector) {
  return DesDecryptBlock(AsDes(schedule), in, out, selector);
}

Status Free(void* schedule) { return DesFreeKeySchedule(static_cast<DesKeySchedule*>(schedule)); }

Status Clone(const void* schedule, void** copy) {
  DesKeySchedule* des = nullptr;
  Status s = DesCloneKeySchedule(AsDes(schedule), &des);
  if (s == kOk) *copy = des;
  return s;
}

}  // namespace

const CipherOps kDesCipherOps = {Setup, Encrypt, Decrypt, Free, nullptr, nullptr, Clone};

}  // namespace nivra::crypto
