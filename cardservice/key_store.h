// RSA key pairs of a container on the token: generation and import with the provider's
// templates, reading the public half, and the raw RSA operations (CKM_RSA_X_509) that the
// provider pads and unpads itself.
#pragma once
#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

#include "cardservice/container_store.h"
#include "cardservice/key_blob.h"

namespace nivra::cardservice {

struct PublicKey {
  uint32_t bits = 0;  // 8 x the modulus length in bytes
  uint32_t exponent = 0;
  std::vector<uint8_t> modulus;  // big-endian, no leading zero bytes
};

// The RSA key object of class `objectClass` with CKA_ID `id`; CKR_OK with *found false when
// there is none.
CK_RV FindKey(TokenView token, const std::string& id, CK_OBJECT_CLASS objectClass,
              CK_OBJECT_HANDLE* key, bool* found);

// Reads modulus and exponent of a public key object. CKR_ATTRIBUTE_VALUE_INVALID when the
// exponent does not fit 32 bits.
CK_RV ReadPublicKey(TokenView token, CK_OBJECT_HANDLE key, PublicKey* out);

// Replaces the RSA pair with CKA_ID `id` by a new pair of `bits` bits (certificates stay).
CK_RV GenerateKeyPair(TokenView token, const std::string& id, uint32_t bits, uint32_t exponent,
                      CK_OBJECT_HANDLE* publicKey);

// Replaces the RSA pair with CKA_ID `id` by the given key (the complete private template).
CK_RV ImportKeyPair(TokenView token, const std::string& id, const RsaKeyParts& key);

// One raw RSA operation with the key object on a session of its own: the private key's
// (C_Decrypt) or the public key's (C_Encrypt). `block` is replaced by the result.
CK_RV RawRsa(CK_FUNCTION_LIST* p11, CK_SLOT_ID slot, CK_OBJECT_HANDLE key, bool privateKey,
             std::vector<uint8_t>* block);

}  // namespace nivra::cardservice
