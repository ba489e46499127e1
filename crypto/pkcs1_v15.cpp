// PKCS#1 v1.5 blocks: type 1 (signatures) and type 2 (encryption), padding and unpadding.
#include <cstring>

#include "crypto/pkcs1.h"
#include "crypto/random.h"

namespace nivra::crypto {

namespace {

constexpr uint8_t kBlockTypeSignature = 0x01;
constexpr uint8_t kBlockTypeEncryption = 0x02;
constexpr uint8_t kSignaturePaddingByte = 0xFF;

// Checks the arguments, moves data to the end of out (data may overlap out) and writes the
// 00 type header and the 00 separator; *psLen = length of the padding string at out + 2.
Status Frame(uint8_t* out, size_t k, const uint8_t* data, size_t dataLen, uint8_t type,
             size_t* psLen) {
  if (out == nullptr || (data == nullptr && dataLen > 0)) return kErrNullArgument;
  if (k < kPkcs1V15Overhead || dataLen > k - kPkcs1V15Overhead) return kErrMessageTooLong;
  if (dataLen > 0) std::memmove(out + k - dataLen, data, dataLen);
  *psLen = k - dataLen - 3;
  out[0] = 0x00;
  out[1] = type;
  out[2 + *psLen] = 0x00;
  return kOk;
}

// Finds the data of a v1.5 block of the given type; acceptPad tells a valid padding byte.
template <class AcceptPad>
Status Unframe(const uint8_t* block, size_t k, uint8_t type, AcceptPad acceptPad,
               const uint8_t** data, size_t* dataLen) {
  if (block == nullptr || data == nullptr || dataLen == nullptr) return kErrNullArgument;
  if (k < kPkcs1V15Overhead || block[0] != 0x00 || block[1] != type) return kErrBlockPadding;
  size_t i = 2;
  while (i < k && block[i] != 0x00) {
    if (!acceptPad(block[i])) return kErrBlockPadding;
    ++i;
  }
  if (i == k || i - 2 < kPkcs1V15MinPadding) return kErrBlockPadding;
  *data = block + i + 1;
  *dataLen = k - i - 1;
  return kOk;
}

}  // namespace

Status Pkcs1PadType1(uint8_t* out, size_t k, const uint8_t* data, size_t dataLen) {
  size_t psLen = 0;
  Status status = Frame(out, k, data, dataLen, kBlockTypeSignature, &psLen);
  if (status != kOk) return status;
  std::memset(out + 2, kSignaturePaddingByte, psLen);
  return kOk;
}

Status Pkcs1PadType2(uint8_t* out, size_t k, const uint8_t* data, size_t dataLen) {
  size_t psLen = 0;
  Status status = Frame(out, k, data, dataLen, kBlockTypeEncryption, &psLen);
  if (status != kOk) return status;
  uint8_t* ps = out + 2;
  if (!RandomFill(ps, psLen)) return kErrGeneric;
  for (size_t i = 0; i < psLen; ++i) {
    while (ps[i] == 0) {
      if (!RandomFill(ps + i, 1)) return kErrGeneric;
    }
  }
  return kOk;
}

Status Pkcs1UnpadType1(const uint8_t* block, size_t k, const uint8_t** data, size_t* dataLen) {
  return Unframe(block, k, kBlockTypeSignature,
                 [](uint8_t b) { return b == kSignaturePaddingByte; }, data, dataLen);
}

Status Pkcs1UnpadType2(const uint8_t* block, size_t k, const uint8_t** data, size_t* dataLen) {
  return Unframe(block, k, kBlockTypeEncryption, [](uint8_t) { return true; }, data, dataLen);
}

}  // namespace nivra::crypto
