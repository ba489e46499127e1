// RSA public-key work the module does itself, for RSA public keys imported from a
// PUBLICKEYBLOB (the card is not involved).
#pragma once
#include "provider/provider_context.h"

namespace nivra::provider {

// Mode 1 unwraps a signature block: the input (CryptoAPI little-endian, exactly modulus bytes)
// is raised to the public exponent and must form 00 01 FF..FF (at least 8) 00 payload; the payload
// is the output (NTE_BAD_DATA for a wrong length, form or a short output). Modes 2 and 18 pad
// the input with PKCS#1 v1.5 block type 2 or OAEP, encrypt, and write the result little-endian,
// modulus bytes long (out null: only the length; short out: NTE_BAD_LEN). Mode 17: NTE_BAD_FLAGS;
// arithmetic failures: NTE_FAIL.
Status ModuleRsaPublicOp(const KeyObject& key, uint32_t mode, const uint8_t* in, uint32_t inLen,
                         uint8_t* out, uint32_t* outLen);

}  // namespace nivra::provider
