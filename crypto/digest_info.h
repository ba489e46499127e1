// DER DigestInfo prefixes (PKCS#1, RFC 8017 section 9.2, note 1): the bytes that precede a
// digest inside a PKCS#1 v1.5 signature block. The prefix already encodes the digest's length,
// so prefix followed by exactly that many digest bytes is the complete DigestInfo.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

enum class DigestAlgorithm : uint32_t { kMd2, kMd5, kSha1 };

struct DigestInfoPrefix {
  const uint8_t* bytes;
  size_t length;        // 18 for MD2 and MD5, 15 for SHA-1
  size_t digestLength;  // 16 for MD2 and MD5, 20 for SHA-1
};

// The prefix of algorithm, or null for a value outside DigestAlgorithm.
const DigestInfoPrefix* DigestInfoPrefixOf(DigestAlgorithm algorithm);

// Writes prefix || digest to out[0..capacity) and its length to *written.
// kErrNullArgument for a null digest, out or written; kErrInputLength when digestLength is not
// the algorithm's digest length or the algorithm is unknown; kErrBufferTooSmall (with the needed
// length in *written) when capacity is short.
Status DigestInfoEncode(DigestAlgorithm algorithm, const uint8_t* digest, size_t digestLength,
                        uint8_t* out, size_t capacity, size_t* written);

}  // namespace nivra::crypto
