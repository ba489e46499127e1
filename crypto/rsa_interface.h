// The RSA key interface: a heap record that holds one key and the key operations, reached by
// callers (provider, card transports, secure session) only through a biased handle. Every use
// looks the handle up among the live records first (biased_handle.h), so a stale or garbage
// handle is answered with kErrInvalidHandle and nothing is touched.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"
#include "crypto/rsa_key.h"

namespace nivra::crypto {

using RsaHandle = uintptr_t;

// Handle = record address + this bias.
constexpr uintptr_t kRsaHandleBias = 253236;
// Algorithm number stored in the record.
constexpr uint32_t kRsaAlgorithm = 65;

// The record behind an RSA handle, fields in this order. `key` occupies the record's reserved
// first word: the key the operations below are applied to (null only while a generation or
// import through the record has not produced one).
struct RsaKeyInterface {
  CRSA* key;
  uint32_t algorithm;  // kRsaAlgorithm
  Status (*opGenerateKey)(CRSA** out, uint32_t bits, uint32_t e);
  Status (*opImportKey)(CRSA** out, uint32_t* bits, uint32_t form, const uint8_t* der, size_t len);
  Status (*opDestroyKey)(CRSA* key);
  Status (*opExportKey)(const CRSA* key, uint32_t what, uint8_t* out, size_t* len);
  Status (*opPublic)(const CRSA* key, const uint8_t* in, size_t len, uint8_t* out, size_t* outLen);
  Status (*opPrivate)(const CRSA* key, const uint8_t* in, size_t len, uint8_t* out, size_t* outLen);
  Status (*opDuplicateKey)(const CRSA* key, CRSA** out);
  Status (*opCreateKey)(CRSA** out);
  Status (*opSetKey)(CRSA* key, uint32_t what, const uint8_t* data, size_t len);
  Status (*opCompleteKey)(CRSA* key, uint32_t* bits);
  Status (*opKeyBits)(CRSA* key, uint32_t* bits);
  RsaKeyInterface* self;  // the record itself while it is alive
};

// Builds a record, imports DER form 1-3 into it and stores its handle in *out; *bits = modulus
// bit length (bits may be null). kErrNullArgument for a null out or der; kErrNoMemory when the
// record cannot be allocated; the import's errors otherwise (no record is left behind).
Status RsaLoadKey(RsaHandle* out, uint32_t* bits, uint32_t form, const uint8_t* der, size_t len);

// Builds a record holding an empty key and stores its handle in *out. kErrNullArgument,
// kErrNoMemory.
Status RsaNewKey(RsaHandle* out);

// Builds a record holding a freshly generated key (RsaGenerateKey's contract).
Status RsaGenerateNewKey(RsaHandle* out, uint32_t bits, uint32_t e);

// The live record named by handle. kErrInvalidHandle (also for 0); kErrNullArgument for a null
// out.
Status RsaLookupKey(RsaHandle handle, RsaKeyInterface** out);

// Destroys the record's key, zero-fills the record and frees it; the handle is dead afterwards.
// kErrInvalidHandle for a handle that names no live record (including one already freed).
Status RsaFreeKey(RsaHandle handle);

// The key operations through a handle: each looks the record up (kErrInvalidHandle) and calls
// the record's operation on its key with the remaining arguments (contracts in rsa_key.h).
Status RsaHandleSetKey(RsaHandle handle, uint32_t what, const uint8_t* data, size_t len);
Status RsaHandleExportKey(RsaHandle handle, uint32_t what, uint8_t* out, size_t* len);
Status RsaHandlePublic(RsaHandle handle, const uint8_t* in, size_t len, uint8_t* out,
                       size_t* outLen);
Status RsaHandlePrivate(RsaHandle handle, const uint8_t* in, size_t len, uint8_t* out,
                        size_t* outLen);
Status RsaHandleCompleteKey(RsaHandle handle, uint32_t* bits);
Status RsaHandleKeyBits(RsaHandle handle, uint32_t* bits);
// A new record holding a copy of handle's key, its handle in *out.
Status RsaHandleDuplicate(RsaHandle handle, RsaHandle* out);

}  // namespace nivra::crypto
