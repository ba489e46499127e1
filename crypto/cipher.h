// Block-cipher framework: a cipher context reached by a biased handle, carrying the cipher's
// key schedule, a mode of operation, a padding rule, the chaining register and an incomplete
// block, with streaming CipherUpdate / CipherFinal calls. The cipher is DES or TDEA (two or three
// keys), block size 8. Besides ECB, CBC and CTR the framework computes three CBC-based MACs.
//
// A message is a run of CipherUpdate calls in one direction followed by CipherFinal. The final
// always rewinds the context (chaining register back to the IV, nothing pending, direction
// cleared), so the next message may go either way under the same IV.
//
// A context belongs to one caller at a time; the framework takes no locks of its own.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

using CipherHandle = uintptr_t;

// Handle = context address + this bias.
constexpr uintptr_t kCipherHandleBias = 184080;

// Modes of operation (low half of the mode word).
enum CipherMode : uint16_t {
  kCipherModeEcb = 1,
  kCipherModeCbc = 2,
  kCipherModeCtr = 3,  // big-endian counter over the whole block
  // MACs: encrypt only; each CipherUpdate also hands out the intermediate CBC blocks, and
  // CipherFinal gives the tag.
  kCipherModeCmac = 256,    // CMAC shape, full cipher; subkey constant 0x87 at every block
                            // size, and a message of whole blocks still gets a padded block
                            // under the second subkey
  kCipherModeIsoMac3 = 512, // ISO 9797-1 MAC algorithm 3 with padding method 2: K1 alone for
                            // all blocks but the last, the full cipher for the last; 8-byte tag
  kCipherModeCbcMac = 768,  // CBC-MAC with the full cipher and zero padding; a message of whole
                            // blocks (or an empty one) gets one more all-zero block
};

// Padding rules (high half of the mode word). Padding applies to ECB and CBC finals.
enum CipherPadding : uint16_t {
  kCipherPadNone = 0,
  kCipherPadPkcs7 = 1,      // L bytes of value L
  kCipherPadAnsiX923 = 2,   // L - 1 zero bytes, then L
  kCipherPadIso10126 = 3,   // L - 1 random bytes, then L
  kCipherPadZero = 4,       // L zero bytes; cannot be removed on decryption
};

constexpr uint32_t CipherModeWord(uint16_t mode, uint16_t padding) {
  return (uint32_t{padding} << 16) | mode;
}

// Mode word set by CipherCreate and by CipherReset.
constexpr uint32_t kCipherModeWordCreated = CipherModeWord(kCipherModeEcb, kCipherPadNone);
constexpr uint32_t kCipherModeWordReset = CipherModeWord(kCipherModeCbc, kCipherPadPkcs7);

// Creates a DES/TDEA context: mode word ECB without padding, block size 8, zero IV.
// K1 comes from key[0..8) when keyLen >= 8, K2 from key[8..16) when keyLen >= 16, K3 from
// key[16..24) when keyLen >= 24. With DES key checks on (crypto/des.h) each key must pass them.
// Errors: kErrNullArgument (null out), kErrNullData (null key), kErrInvalidHandle (keyLen < 8),
// kErrKeyParity, kErrWeakKey, kErrNoMemory. *out is 0 on any failure.
Status CipherCreate(CipherHandle* out, const uint8_t* key, size_t keyLen);

// Two-key TDEA (16-byte key) context, reset: CBC with PKCS#7 padding and a zero IV.
// Errors as CipherCreate; *out is 0 on any failure.
Status CipherCreateTdes2(CipherHandle* out, const uint8_t key[16]);

// Sets the mode word to CBC with PKCS#7 padding and zeroes the IV and the chaining register;
// nothing stays pending. The direction of a message in progress is kept.
// Errors: kErrInvalidHandle.
Status CipherReset(CipherHandle handle);

// Frees the key schedule, zero-fills and frees the context; the handle is dead afterwards.
// Errors: kErrInvalidHandle (including a handle already destroyed).
Status CipherDestroy(CipherHandle handle);

// Sets the mode word (CipherModeWord(mode, padding)). Meant to be called between messages.
// The value is taken as it is: an unknown mode is reported by CipherUpdate / CipherFinal as
// kErrModeNotSupported, an unknown padding rule by CipherFinal as kErrBadPaddingRule.
// Errors: kErrInvalidHandle.
Status CipherSetMode(CipherHandle handle, uint32_t modeWord);

// Sets the IV: both the chaining register and the value that every final rewinds it to. ivLen
// must equal the block size (8). Meant to be called between messages.
// Errors: kErrInvalidHandle, kErrNullData (null iv), kErrInputLength (wrong length).
Status CipherSetIv(CipherHandle handle, const uint8_t* iv, size_t ivLen);

// Encrypts (encrypt = true) or decrypts in[0..inLen) into out, keeping an incomplete block (and,
// when decrypting with a padding rule, the last whole block) for later calls. *outLen is the
// capacity of out on entry and the number of bytes written on return; that number is always a
// multiple of the block size. in and out may overlap in any way.
// - out == nullptr with outLen given is a size query: *outLen = (pending + inLen) rounded down to
//   the block size (a bound: it does not subtract a held-back block); nothing else changes.
// - The first call of a message fixes its direction; a call in the other direction before the
//   final gives kErrWrongDirection.
// Errors: kErrNullData (null in with inLen > 0, or null outLen), kErrInvalidHandle,
// kErrWrongDirection, kErrModeNotSupported (unknown mode, or decrypting in a MAC mode),
// kErrBufferTooSmall (*outLen set to the length needed; nothing processed), kErrNoMemory.
Status CipherUpdate(CipherHandle handle, const uint8_t* in, size_t inLen, uint8_t* out,
                    size_t* outLen, bool encrypt);

// Completes the message and writes its last output to out (*outLen: capacity in, length out):
// - ECB/CBC without padding: nothing (kErrPendingBytes if an incomplete block is pending).
// - ECB/CBC with padding, encrypting: one block, the pending bytes padded by the rule.
// - ECB/CBC with padding, decrypting: the held-back block decrypted and unpadded. A failed check
//   returns kErrPaddingCheck and still hands out the whole decrypted block (*outLen = 8) when
//   out has room for it, so that the caller can inspect it.
// - CTR: the pending bytes encrypted.
// - MAC modes: the tag (8 bytes).
// out == nullptr with outLen given is a size query: 0 for an encrypting context without
// padding, else the block size (CTR and MAC finals report what they need through
// kErrBufferTooSmall). Except after a size query or an argument/handle error, the context is
// rewound whatever the result: chaining register back to the IV, nothing pending, no direction.
// Errors: kErrNullData (null outLen), kErrInvalidHandle, kErrBufferTooSmall (*outLen set to the
// length needed), kErrPendingBytes (incomplete block without padding, or a padded decryption
// without a whole held-back block), kErrBadPaddingRule (unknown rule, or zero padding on
// decryption), kErrPaddingCheck, kErrModeNotSupported (unknown mode), kErrGeneric (the
// system's random generator failed while drawing ISO 10126 padding).
Status CipherFinal(CipherHandle handle, uint8_t* out, size_t* outLen);

}  // namespace nivra::crypto
