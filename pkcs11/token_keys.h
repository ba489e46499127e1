// The container's RSA key pairs on the token: finding and loading them, generating them on the
// token, importing them from a CryptoAPI private-key blob.
#pragma once
#include <cstddef>
#include <cstdint>

#include "pkcs11/cryptoki.h"
#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"

namespace nivra::pkcs11 {

// The RSA public exponent every generated pair gets.
constexpr uint32_t kGeneratedPublicExponent = 65537;

// Finds the pair of keySpec by its key ID (RSA key objects of class public or private), keeping
// the handle in the context. publicOnly: the public key, whose modulus (leading zeros dropped, bit
// length = its byte count times 8) and exponent go into ctx.KeyPair(keySpec). Otherwise the
// private key (after logging in), then the public part as above. A handle found before is not
// searched again. No such key: NTE_NO_KEY; an exponent that does not fit 32 bits: NTE_BAD_KEYSET.
Status LoadKeyPair(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                   bool publicOnly);

// Generates a pair of `bits` bits (public exponent 65537) on the token under the container's key
// ID for keySpec, replacing the RSA keys that carried that ID (certificates stay). Runs under the
// card's lock; logs in first. The new handles and modulus go into the context.
Status GenerateKeyPair(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                       uint32_t bits);

// Stores the pair of a CryptoAPI PRIVATEKEYBLOB on the token under the derived key ID of
// `keySpec`, replacing the RSA keys that carried it. The private key is offered with e, p and q
// only; a token that answers CKR_TEMPLATE_INCOMPLETE or CKR_ATTRIBUTE_TYPE_INVALID is offered the
// complete set of components once more. A refused object creation is returned as the raw PKCS#11
// value; a blob that does not parse gives NTE_BAD_DATA; other failures are mapped.
Status ImportKeyPair(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                     const uint8_t* blob, uint32_t blobLength);

// Reads CKA_MODULUS of a public key object into pair.modulus without its leading zero bytes;
// *byteCount receives their number. A modulus longer than the context holds: NTE_BAD_KEYSET.
Status ReadModulus(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE publicKey, provider::CardKeyPair& pair,
                   uint32_t* byteCount);

// Accumulates a big-endian public exponent into 32 bits, byte by byte; false when a step gives a
// value smaller than the one before (the exponent does not fit).
bool AccumulatePublicExponent(const uint8_t* bytes, size_t length, uint32_t* exponent);

}  // namespace nivra::pkcs11
