// SHA-1 (FIPS 180-4) with heap-allocated states. The RSA padding code (MGF1, the OAEP label hash,
// EMSA-PSS) reaches it through the hash object of hash_object.h; the functions here are the
// operations that object calls through.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

constexpr size_t kSha1DigestLength = 20;
constexpr size_t kSha1BlockLength = 64;

// State of one SHA-1 computation. Whole input blocks are compressed straight from the caller's
// buffer; only a partial head or tail of the input is copied into `block`.
struct Sha1State {
  uint32_t h[5];                    // chaining values
  uint32_t bitCountLow;             // message length in bits, low half
  uint32_t bitCountHigh;            // message length in bits, high half
  uint8_t block[kSha1BlockLength];  // the incomplete input block
  uint32_t blockFill;               // bytes held in `block`
};

// Allocates a state holding the initial chaining values and zero counts into *out.
// kErrNullArgument for a null out; kErrNoMemory when allocation fails (*out is then null).
Status Sha1Init(Sha1State** out);

// Absorbs data[0..len). len 0 does nothing (data may then be null).
// kErrNullArgument for a null state, or null data with len > 0.
Status Sha1Update(Sha1State* state, const uint8_t* data, size_t len);

// Pads the message, writes the 20-byte digest to out and clears the held block. The chaining
// values are left as they are: a state is finalised once and then freed.
// kErrNullArgument for a null state or out.
Status Sha1Final(Sha1State* state, uint8_t out[kSha1DigestLength]);

// Zero-fills and frees a state from Sha1Init or Sha1Clone. A null state is ignored. Returns kOk.
Status Sha1Free(Sha1State* state);

// Allocates a copy of the whole state into *out, so that a common prefix is hashed once.
// kErrInvalidHandle for a null source; kErrNullArgument for a null out; kErrNoMemory.
Status Sha1Clone(const Sha1State* state, Sha1State** out);

}  // namespace nivra::crypto
