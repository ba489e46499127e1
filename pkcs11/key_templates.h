// The attribute templates of key objects that the back end creates, attributes in this order:
//
//   attribute             private (generate) public (generate) private (import)  public (import)
//   CKA_CLASS             CKO_PRIVATE_KEY    CKO_PUBLIC_KEY    CKO_PRIVATE_KEY   CKO_PUBLIC_KEY
//   CKA_ID                key ID             key ID            key ID            key ID
//   CKA_TOKEN             true               true              true              true
//   CKA_KEY_TYPE          CKK_RSA            CKK_RSA           CKK_RSA           CKK_RSA
//   CKA_SENSITIVE         true                                 true
//   CKA_SIGN              true                                 true
//   CKA_DECRYPT           true                                 true
//   CKA_PRIVATE           true                                 true
//   CKA_ENCRYPT                              true                                true
//   CKA_VERIFY                               true                                true
//   CKA_WRAP                                 true                                true
//   CKA_MODULUS_BITS                         requested bits
//   CKA_PUBLIC_EXPONENT                      00 01 00 01       e                 e
//   CKA_MODULUS                                                                  n
//   CKA_PRIME_1                                                p
//   CKA_PRIME_2                                                q
//
// The complete private-key template, offered to tokens that will not derive the rest from e, p
// and q, carries the same flags and ID followed by n, e, d, p, q, d mod (p-1), d mod (q-1) and
// q^-1 mod p. Values are referenced, not copied.
#pragma once
#include <cstdint>
#include <vector>

#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

// Big-endian RSA components, leading zero bytes removed; wiped when they go away.
struct RsaComponents {
  RsaComponents() = default;
  ~RsaComponents();
  RsaComponents(const RsaComponents&) = delete;
  RsaComponents& operator=(const RsaComponents&) = delete;

  std::vector<uint8_t> modulus;
  std::vector<uint8_t> publicExponent;
  std::vector<uint8_t> privateExponent;
  std::vector<uint8_t> prime1;
  std::vector<uint8_t> prime2;
  std::vector<uint8_t> exponent1;
  std::vector<uint8_t> exponent2;
  std::vector<uint8_t> coefficient;
};

struct KeyIdBytes {
  const uint8_t* bytes;
  uint32_t length;
};

// The 9-attribute public and 8-attribute private templates of C_GenerateKeyPair.
void GenerationTemplates(KeyIdBytes id, const CK_ULONG& modulusBits, AttributeList* publicKey,
                         AttributeList* privateKey);

// The 11-attribute private template of an import (e, p, q), or the complete one.
void ImportPrivateTemplate(KeyIdBytes id, const RsaComponents& key, bool complete,
                           AttributeList* privateKey);

// The 9-attribute public template of an import.
void ImportPublicTemplate(KeyIdBytes id, const RsaComponents& key, AttributeList* publicKey);

}  // namespace nivra::pkcs11
