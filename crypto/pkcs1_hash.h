// SHA-1 of the concatenation of two byte strings, through a hash object: the one digest shape
// that MGF1 (seed || counter) and EMSA-PSS (zero prefix || message hash) need.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

// out[0..20) = SHA-1(a[0..aLen) || b[0..bLen)). The hash object's errors pass on (kErrNoMemory,
// kErrNullArgument for null data with a non-zero length).
Status Pkcs1Sha1(uint8_t* out, const uint8_t* a, size_t aLen, const uint8_t* b, size_t bLen);

}  // namespace nivra::crypto
