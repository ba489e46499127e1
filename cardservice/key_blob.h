// The CryptoAPI private-key blob that an application gives to CryptImportKey, as the import
// command carries it: BLOBHEADER (type 7, version 2, reserved, algorithm), RSAPUBKEY (magic
// "RSA2", bit length, public exponent), then little-endian n (bits / 8 bytes), p, q, d mod (p-1),
// d mod (q-1), q^-1 mod p (bits / 16 bytes each) and d (bits / 8 bytes).
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nivra::cardservice {

// Big-endian components without leading zero bytes; wiped when they go away.
struct RsaKeyParts {
  RsaKeyParts() = default;
  ~RsaKeyParts();
  RsaKeyParts(const RsaKeyParts&) = delete;
  RsaKeyParts& operator=(const RsaKeyParts&) = delete;

  std::vector<uint8_t> modulus, publicExponent, privateExponent, prime1, prime2, exponent1,
      exponent2, coefficient;
};

// False for a blob of another type or magic, a bit length that is zero or not a multiple of 16,
// or a length that differs from what the bit length needs.
bool ParsePrivateKeyBlob(const uint8_t* blob, size_t length, RsaKeyParts* key);

}  // namespace nivra::cardservice
