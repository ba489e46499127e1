// Steps that the private- and public-key operations share: answering size queries, taking a
// whole input block in CryptoAPI's byte order, running raw RSA on the token, and handing a whole
// result block back reversed.
#pragma once
#include <cstdint>

#include "pkcs11/cryptoki.h"
#include "pkcs11/p11_status.h"
#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {

// Whether the operation goes on after looking at the caller's output buffer.
enum class OutputCheck { kProceed, kAnswered };

// For an operation with k bytes of output: a null `out` stores k in *outLen and answers the
// size query (kAnswered, status 0); a capacity below k stores k and fails with `tooSmall`.
OutputCheck CheckOutput(uint8_t* out, uint32_t* outLen, uint32_t k, Status tooSmall,
                        Status* status);

// For an operation that pads its input: CheckOutput, then `pad()` (a crypto library call that
// fills the block); a failed padding gives NTE_BAD_DATA.
template <class Pad>
OutputCheck PadInput(uint8_t* out, uint32_t* outLen, uint32_t k, Status tooSmall, Status* status,
                     Pad pad) {
  if (CheckOutput(out, outLen, k, tooSmall, status) == OutputCheck::kAnswered) {
    return OutputCheck::kAnswered;
  }
  if (pad() == 0) return OutputCheck::kProceed;
  *status = provider::kNteBadData;
  return OutputCheck::kAnswered;
}

// A whole RSA block as input: exactly k bytes (else NTE_BAD_DATA), reversed into block[0..k).
// A null `out` answers the size query with k.
OutputCheck TakeInputBlock(const uint8_t* in, uint32_t inLen, uint32_t k, uint8_t* out,
                           uint32_t* outLen, uint8_t* block, Status* status);

// Raw RSA (CKM_RSA_X_509) in a session of its own on the slot: C_Decrypt with a private key,
// C_Encrypt with a public one. result receives k bytes.
CK_RV RawTokenRsa(const P11Slot& slot, CK_OBJECT_HANDLE key, bool privateKey, uint8_t* block,
                  uint32_t k, uint8_t* result);

// The k result bytes reversed into out, *outLen = k; a capacity below k stores k and gives
// `tooSmall`.
Status ReturnReversed(const uint8_t* raw, uint32_t k, uint8_t* out, uint32_t* outLen,
                      Status tooSmall);

// A PKCS#1 v1.5 unpadding of the crypto library (block type 1 or 2).
using UnpadFunction = int32_t (*)(const uint8_t* block, size_t k, const uint8_t** data,
                                  size_t* dataLength);

// Unpads raw[0..k) with `unpad` (a malformed block: NTE_BAD_DATA) and copies its data part to
// out; *outLen becomes the data's length, and a capacity below it gives NTE_BAD_DATA.
Status ReturnUnpadded(UnpadFunction unpad, const uint8_t* raw, uint32_t k, uint8_t* out,
                      uint32_t* outLen);

}  // namespace nivra::pkcs11
