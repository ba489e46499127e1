// RSA with the container's keys: the token performs raw RSA (CKM_RSA_X_509) in a session of its
// own for each call, and all PKCS#1 padding is done here. Whole RSA blocks cross this interface
// in CryptoAPI's byte order (least significant byte first); signature input and recovered
// signature data are in their natural order.
//
// Modes: 0 raw, 1 PKCS#1 v1.5 block type 1 (sign / verify), 2 block type 2 (decrypt /
// encrypt), 17 PSS signature, 18 OAEP.
#pragma once
#include <cstdint>

#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"

namespace nivra::pkcs11 {

constexpr uint32_t kModePss = 17;

// The private-key operation of the pair keySpec (loaded and logged in first). k = modulus bytes.
// Signing modes (1, 17) pad `in`; a null `out` reports k, a smaller capacity reports k with
// ERROR_MORE_DATA. Other modes take exactly k input bytes (else NTE_BAD_DATA); a null `out`
// reports k. A repeated request (same key specification, mode and input) is answered from the
// context's one-entry cache without the token. Mode 2 returns the message of a type 2 block,
// mode 18 the OAEP message (a malformed block or a message larger than the capacity:
// NTE_BAD_DATA); modes 0, 1 and 17 return the k result bytes reversed. No outLen:
// ERROR_INVALID_PARAMETER. Token failures empty the cache and are returned mapped.
Status PrivateKeyOp(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                    uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                    uint32_t* outLen);

// The public-key operation of the container pair `keySpec` (1 or 2; the key object's own length
// for anything else). Modes 2 and 18 pad `in` (a null `out` reports k; a smaller capacity
// reports k with NTE_BAD_LEN). Modes 0, 1 and 17 take exactly k bytes (else NTE_BAD_DATA).
// Mode 1 checks the result as a type 1 block and returns its data (malformed, or larger than
// the capacity: NTE_BAD_DATA); mode 17 gives NTE_BAD_FLAGS; other modes return the k result
// bytes reversed.
Status PublicKeyOp(provider::ProviderContext& ctx, SlotDevice& device,
                   const provider::KeyObject& key, uint32_t mode, const uint8_t* in,
                   uint32_t inLen, uint8_t* out, uint32_t* outLen);

}  // namespace nivra::pkcs11
