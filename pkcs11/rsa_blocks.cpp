#include "pkcs11/rsa_blocks.h"

#include <algorithm>
#include <cstring>

#include "pkcs11/module_loader.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

OutputCheck CheckOutput(uint8_t* out, uint32_t* outLen, uint32_t k, Status tooSmall,
                        Status* status) {
  *status = kOk;
  if (out != nullptr && *outLen >= k) return OutputCheck::kProceed;
  if (out != nullptr) *status = tooSmall;
  *outLen = k;
  return OutputCheck::kAnswered;
}

OutputCheck TakeInputBlock(const uint8_t* in, uint32_t inLen, uint32_t k, uint8_t* out,
                           uint32_t* outLen, uint8_t* block, Status* status) {
  *status = kOk;
  if (inLen != k) {
    *status = provider::kNteBadData;
    return OutputCheck::kAnswered;
  }
  if (out == nullptr) {
    *outLen = k;
    return OutputCheck::kAnswered;
  }
  std::reverse_copy(in, in + k, block);
  return OutputCheck::kProceed;
}

CK_RV RawTokenRsa(const P11Slot& slot, CK_OBJECT_HANDLE key, bool privateKey, uint8_t* block,
                  uint32_t k, uint8_t* result) {
  CK_FUNCTION_LIST* p11 = P11();
  OwnSession session;
  CK_RV rv = session.Open(slot.slotId);
  if (rv != CKR_OK) return rv;
  CK_MECHANISM mechanism{CKM_RSA_X_509, nullptr, 0};
  rv = privateKey ? p11->C_DecryptInit(session.handle(), &mechanism, key)
                  : p11->C_EncryptInit(session.handle(), &mechanism, key);
  if (rv != CKR_OK) return rv;
  CK_ULONG length = k;
  return privateKey ? p11->C_Decrypt(session.handle(), block, k, result, &length)
                    : p11->C_Encrypt(session.handle(), block, k, result, &length);
}

Status ReturnReversed(const uint8_t* raw, uint32_t k, uint8_t* out, uint32_t* outLen,
                      Status tooSmall) {
  if (*outLen < k) {
    *outLen = k;
    return tooSmall;
  }
  std::reverse_copy(raw, raw + k, out);
  *outLen = k;
  return kOk;
}

Status ReturnUnpadded(UnpadFunction unpad, const uint8_t* raw, uint32_t k, uint8_t* out,
                      uint32_t* outLen) {
  const uint8_t* data = nullptr;
  size_t length = 0;
  if (unpad(raw, k, &data, &length) != 0) return provider::kNteBadData;
  const uint32_t capacity = *outLen;
  *outLen = static_cast<uint32_t>(length);
  if (length > capacity) return provider::kNteBadData;
  if (length != 0) std::memcpy(out, data, length);
  return kOk;
}

}  // namespace nivra::pkcs11
