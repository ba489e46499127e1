#include "crypto/cipher_padding.h"

#include <cstring>

#include "crypto/cipher.h"
#include "crypto/random.h"

namespace nivra::crypto {

Status CipherPadBlock(uint16_t rule, uint8_t* block, size_t dataLen, size_t blockSize) {
  const size_t padLen = blockSize - dataLen;
  uint8_t* pad = block + dataLen;
  const uint8_t lengthByte = static_cast<uint8_t>(padLen);
  switch (rule) {
    case kCipherPadPkcs7:
      std::memset(pad, lengthByte, padLen);
      return kOk;
    case kCipherPadAnsiX923:
      std::memset(pad, 0, padLen - 1);
      pad[padLen - 1] = lengthByte;
      return kOk;
    case kCipherPadIso10126:
      if (!RandomFill(pad, padLen - 1)) return kErrGeneric;
      pad[padLen - 1] = lengthByte;
      return kOk;
    case kCipherPadZero:
      std::memset(pad, 0, padLen);
      return kOk;
    default:
      return kErrBadPaddingRule;
  }
}

Status CipherUnpadBlock(uint16_t rule, const uint8_t* block, size_t blockSize, size_t* dataLen) {
  if (rule != kCipherPadPkcs7 && rule != kCipherPadAnsiX923 && rule != kCipherPadIso10126) {
    return kErrBadPaddingRule;
  }
  const size_t padLen = block[blockSize - 1];
  if (padLen < 1 || padLen > blockSize) return kErrPaddingCheck;
  const uint8_t* pad = block + blockSize - padLen;
  for (size_t i = 0; i + 1 < padLen; ++i) {
    if (rule == kCipherPadPkcs7 && pad[i] != padLen) return kErrPaddingCheck;
    if (rule == kCipherPadAnsiX923 && pad[i] != 0) return kErrPaddingCheck;
  }
  *dataLen = blockSize - padLen;
  return kOk;
}

}  // namespace nivra::crypto
