// The DigestInfo prefixes as constant byte strings.
#include "crypto/digest_info.h"

#include <cstring>

namespace nivra::crypto {
namespace {

// SEQUENCE { SEQUENCE { OID 1.2.840.113549.2.2, NULL }, OCTET STRING (16) }
constexpr uint8_t kMd2Prefix[18] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                                    0x86, 0xf7, 0x0d, 0x02, 0x02, 0x05, 0x00, 0x04, 0x10};
// SEQUENCE { SEQUENCE { OID 1.2.840.113549.2.5, NULL }, OCTET STRING (16) }
constexpr uint8_t kMd5Prefix[18] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                                    0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
// SEQUENCE { SEQUENCE { OID 1.3.14.3.2.26, NULL }, OCTET STRING (20) }
constexpr uint8_t kSha1Prefix[15] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e,
                                     0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};

constexpr DigestInfoPrefix kPrefixes[] = {
    {kMd2Prefix, sizeof(kMd2Prefix), 16},
    {kMd5Prefix, sizeof(kMd5Prefix), 16},
    {kSha1Prefix, sizeof(kSha1Prefix), 20},
};

}  // namespace

const DigestInfoPrefix* DigestInfoPrefixOf(DigestAlgorithm algorithm) {
  const auto index = static_cast<uint32_t>(algorithm);
  if (index >= sizeof(kPrefixes) / sizeof(kPrefixes[0])) return nullptr;
  return &kPrefixes[index];
}

Status DigestInfoEncode(DigestAlgorithm algorithm, const uint8_t* digest, size_t digestLength,
                        uint8_t* out, size_t capacity, size_t* written) {
  if (digest == nullptr || out == nullptr || written == nullptr) return kErrNullArgument;
  const DigestInfoPrefix* prefix = DigestInfoPrefixOf(algorithm);
  if (prefix == nullptr || digestLength != prefix->digestLength) return kErrInputLength;
  const size_t total = prefix->length + digestLength;
  *written = total;
  if (capacity < total) return kErrBufferTooSmall;
  std::memcpy(out, prefix->bytes, prefix->length);
  std::memcpy(out + prefix->length, digest, digestLength);
  return kOk;
}

}  // namespace nivra::crypto
