// Reading a CryptoAPI PRIVATEKEYBLOB for an import onto the token.
#pragma once
#include <cstdint>

#include "pkcs11/key_templates.h"
#include "pkcs11/p11_status.h"

namespace nivra::pkcs11 {

// Parses a PRIVATEKEYBLOB (BLOBHEADER of type PRIVATEKEYBLOB, RSAPUBKEY with magic "RSA2" and the
// bit length, then n, p, q, d mod (p-1), d mod (q-1), q^-1 mod p and d, little-endian, of bit
// length / 8 and bit length / 16 bytes) into an RSA key of the crypto library, and reads its
// components back by number (129 n, 130 e, 131 p, 132 q, 128 d, 133 to 135 the CRT values),
// big-endian without leading zeros. NTE_BAD_DATA for a blob that is too short or malformed, or a
// component that cannot be read.
Status ParsePrivateKeyBlob(const uint8_t* blob, uint32_t length, RsaComponents* key);

}  // namespace nivra::pkcs11
