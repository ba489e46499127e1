// DES (FIPS 46-3) and its triple form TDEA (encrypt-decrypt-encrypt with two or three keys),
// one 8-byte block at a time. The cipher framework (crypto/cipher.h) reaches these functions
// through its operation table; the provider and tests may also call them directly.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

constexpr size_t kDesBlockSize = 8;
constexpr size_t kDesKeySize = 8;
constexpr uint32_t kDesMaxKeys = 3;

// Round keys of one DES key. Each round has two words; each word carries four 6-bit pieces of
// the 48-bit round key in its four bytes (pieces 1, 3, 5, 7 in the first word, 2, 4, 6, 8 in the
// second), already aligned with the rotated half-block that the round function reads.
struct DesSubkeys {
  uint32_t words[32];
};

// Expanded key of DES or TDEA: K1, K2, K3 and how many of them are set (1 to 3).
struct DesKeySchedule {
  DesSubkeys keys[kDesMaxKeys];
  uint32_t keyCount;
};

// Which part of the key a block operation uses.
enum DesSelector : uint32_t {
  kDesFullCipher = 0,  // DES, two-key or three-key TDEA by keyCount
  kDesKey1 = 1,        // single DES under K1
  kDesKey2 = 2,        // single DES under K2 (needs two keys)
  kDesKey3 = 3,        // single DES under K3 (needs three keys)
};

// Expands one 8-byte DES key into its 16 round keys (the standard schedule; parity bits are
// ignored). Never fails; no checks.
void DesExpandKey(const uint8_t key[kDesKeySize], DesSubkeys* out);

// Encrypts (or decrypts) one block: in and out are 8 bytes each and may be the same buffer.
// The full cipher encrypts as E_K1 for one key, E_K1 D_K2 E_K1 for two keys and E_K1 D_K2 E_K3
// for three; it decrypts as D_K1, D_K1 E_K2 D_K1 and D_K3 E_K2 D_K1.
// Errors: kErrInvalidHandle for a null schedule, a keyCount outside 1..3 or a selector naming a
// key that the schedule does not have; kErrNullData for null in/out or a selector above 3.
Status DesEncryptBlock(const DesKeySchedule* schedule, const uint8_t* in, uint8_t* out,
                       uint32_t selector);
Status DesDecryptBlock(const DesKeySchedule* schedule, const uint8_t* in, uint8_t* out,
                       uint32_t selector);

// Builds a heap key schedule: K1 from key[0..8) when keyLen >= 8, K2 from key[8..16) when
// keyLen >= 16, K3 from key[16..24) when keyLen >= 24; bytes past 24 are ignored.
// With the key checks on (DesSetKeyChecks), every key must pass DesCheckKey.
// Errors: kErrNullData (null key or out), kErrInvalidHandle (keyLen below 8), kErrKeyParity,
// kErrWeakKey, kErrNoMemory. *out is set only on success; free with DesFreeKeySchedule.
Status DesKeySetup(const uint8_t* key, size_t keyLen, DesKeySchedule** out);

// Copies a schedule into a new heap schedule. Errors: kErrInvalidHandle (null schedule or a
// keyCount outside 1..3), kErrNullData (null out), kErrNoMemory.
Status DesCloneKeySchedule(const DesKeySchedule* schedule, DesKeySchedule** copy);

// Zero-fills and frees a schedule from DesKeySetup or DesCloneKeySchedule.
// Errors: kErrInvalidHandle for null.
Status DesFreeKeySchedule(DesKeySchedule* schedule);

// The process-wide key-check switch consulted by DesKeySetup. It starts off and the system never
// turns it on; keys are then taken as they are.
void DesSetKeyChecks(bool on);
bool DesKeyChecksOn();

// Checks one 8-byte DES key: every byte must have odd parity (kErrKeyParity) and the key must
// not be one of the 4 weak or 12 semi-weak DES keys (kErrWeakKey). Parity is checked first.
Status DesCheckKey(const uint8_t key[kDesKeySize]);

}  // namespace nivra::crypto
