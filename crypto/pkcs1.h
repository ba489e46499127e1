// PKCS#1 encodings applied before or after a raw RSA operation: v1.5 block types 1 and 2,
// RSAES-OAEP and EMSA-PSS (both with SHA-1 and MGF1-SHA-1), and MGF1 itself. k is the modulus
// length in bytes; blocks are big-endian. Random bytes come from RandomFill (crypto/random.h).
// All functions return kOk or a negative code of crypto/errors.h.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

// Fewest padding bytes of a v1.5 block: 00, type, 8 padding bytes, 00.
constexpr size_t kPkcs1V15Overhead = 11;
// Smallest padding string the v1.5 unpadding accepts.
constexpr size_t kPkcs1V15MinPadding = 8;
// RSAES-OAEP with SHA-1: 00, 20-byte seed, 20-byte label hash, ..., 01.
constexpr size_t kOaepOverhead = 42;
// EMSA-PSS with SHA-1 and no salt: at least one DB byte, the 20-byte hash and 0xBC.
constexpr size_t kPssMinLength = 22;

// out[0..k) = 00 01 FF..FF 00 data (k - dataLen - 3 bytes 0xFF), the block of a signature.
// kErrMessageTooLong when dataLen > k - 11; kErrNullArgument for null out, or null data with
// dataLen > 0.
Status Pkcs1PadType1(uint8_t* out, size_t k, const uint8_t* data, size_t dataLen);

// out[0..k) = 00 02 PS 00 data, PS being k - dataLen - 3 random non-zero bytes (each zero drawn
// is replaced by drawing again). kErrMessageTooLong when dataLen > k - 11; kErrGeneric when the
// generator fails; kErrNullArgument as Pkcs1PadType1.
Status Pkcs1PadType2(uint8_t* out, size_t k, const uint8_t* data, size_t dataLen);

// Checks block[0..k) as a v1.5 block of type 1 (padding bytes all 0xFF) or 2 (padding bytes
// non-zero): 00, type, at least 8 padding bytes, 00, data. On success *data points into block at
// the data and *dataLen is its length. kErrBlockPadding for any other layout; kErrNullArgument.
Status Pkcs1UnpadType1(const uint8_t* block, size_t k, const uint8_t** data, size_t* dataLen);
Status Pkcs1UnpadType2(const uint8_t* block, size_t k, const uint8_t** data, size_t* dataLen);

// RSAES-OAEP encoding with an empty label: out[0..k) = 00, maskedSeed, maskedDB where
// DB = SHA-1("") || zero bytes || 01 || msg and the seed is 20 random bytes.
// kErrMessageTooLong when msgLen > k - 42 (checked first, so every message is refused when
// k < 42); kErrGeneric when the generator fails; kErrNoMemory; hash object errors pass on;
// kErrNullArgument for null out, or null msg with msgLen > 0.
Status OaepEncode(uint8_t* out, size_t k, const uint8_t* msg, size_t msgLen);

// RSAES-OAEP decoding of em[0..k) with an empty label. kErrOaepDecoding when em[0] != 0;
// kErrGeneric when k < 42; kErrOaepLabel when the label hash differs; kErrOaepDecoding when no
// 01 separator follows the zero padding. The message length is stored in *outLen; when out is
// null that is all (kOk); when the capacity given in *outLen is smaller, kErrBufferTooSmall and
// nothing is copied. kErrNoMemory; hash object errors pass on; kErrNullArgument for null em or
// outLen.
Status OaepDecode(uint8_t* out, size_t* outLen, const uint8_t* em, size_t k);

// EMSA-PSS encoding with SHA-1, MGF1-SHA-1 and an empty salt (deterministic) for a modulus of
// modBits bits; writes (modBits + 7) / 8 bytes. When modBits mod 8 = 1 the first byte is 00 and
// the encoding fills the rest. H = SHA-1(8 zero bytes || mHash[0..mHashLen)), EM = maskedDB || H
// || BC with maskedDB = MGF1(H) xor (00..00 01) and its top bits above modBits - 1 cleared.
// kErrModulusTooShort when the encoding would be shorter than 22 bytes; hash object errors pass
// on; kErrNullArgument for null out, or null mHash with mHashLen > 0.
Status PssEncode(uint32_t modBits, uint8_t* out, const uint8_t* mHash, size_t mHashLen);

// MGF1 with SHA-1: mask[0..maskLen) = SHA-1(seed || 0) || SHA-1(seed || 1) || ..., the counter
// as four big-endian bytes, the last block truncated. kErrNullArgument for a null mask with
// maskLen > 0 or null seed with seedLen > 0; hash object errors pass on.
Status Mgf1Sha1(uint8_t* mask, size_t maskLen, const uint8_t* seed, size_t seedLen);

}  // namespace nivra::crypto
