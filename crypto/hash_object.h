// The library's hash object: a heap record that carries a SHA-1 state and the operations that
// work on it. Callers (MGF1, the OAEP label hash, EMSA-PSS) hold a handle, never the record's
// address; every use looks the handle up among the live hash objects first, so a stale or
// garbage handle is answered with kErrInvalidHandle and nothing is touched.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"
#include "crypto/sha1.h"

namespace nivra::crypto {

using HashHandle = uintptr_t;

// Handle = record address + this bias.
constexpr uintptr_t kHashHandleBias = 78152;
// Algorithm number stored in a SHA-1 hash object.
constexpr uint32_t kHashAlgorithmSha1 = 97;

// The record behind a hash handle, fields in this order.
struct HashObject {
  Sha1State* state;
  uint32_t algorithm;  // kHashAlgorithmSha1
  Status (*opInit)(Sha1State** out);
  Status (*opFree)(Sha1State* state);
  Status (*opUpdate)(Sha1State* state, const uint8_t* data, size_t len);
  Status (*opFinal)(Sha1State* state, uint8_t out[kSha1DigestLength]);
  Status (*opClone)(const Sha1State* state, Sha1State** out);
  uint32_t digestLength;  // kSha1DigestLength
  HashObject* self;       // the record itself while it is alive
};

// Creates a SHA-1 hash object and stores its handle in *out (0 on failure).
// kErrNullArgument for a null out; kErrNoMemory when the record or its state cannot be allocated.
Status HashCreate(HashHandle* out);

// Absorbs data[0..len) through the object's update operation; len 0 does nothing.
// kErrInvalidHandle for a handle that names no live hash object; kErrNullArgument for null data
// with len > 0.
Status HashUpdate(HashHandle handle, const uint8_t* data, size_t len);

// Writes the object's digest (digestLength bytes, 20) to out through its final operation. An
// object is finalised once; after that only HashDestroy is meaningful.
// kErrInvalidHandle for a bad handle; kErrNullArgument for a null out.
Status HashFinal(HashHandle handle, uint8_t* out);

// Creates a new hash object whose state is a copy of handle's, so that a common prefix is
// hashed once. kErrInvalidHandle, kErrNullArgument for a null out, kErrNoMemory.
Status HashDuplicate(HashHandle handle, HashHandle* out);

// Frees the object's state, zero-fills the record and frees it; the handle is dead afterwards.
// kErrInvalidHandle for a handle that names no live hash object (including one already destroyed).
Status HashDestroy(HashHandle handle);

// SHA-1 of the empty message (the RSAES-OAEP label hash), computed through a hash object.
// kErrNullArgument for a null out.
Status Sha1OfEmpty(uint8_t out[kSha1DigestLength]);

}  // namespace nivra::crypto
