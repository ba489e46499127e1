// Padding rules of the cipher framework's ECB and CBC finals (CipherPadding codes).
// Pad length L = blockSize - dataLen, 1..blockSize: a message of whole blocks gets a whole block.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/errors.h"

namespace nivra::crypto {

// Completes block[0..dataLen) to blockSize bytes by the rule (dataLen < blockSize):
// PKCS#7: L bytes of value L; ANSI X9.23: L - 1 zeros then L; ISO 10126: L - 1 bytes from
// RandomFill then L; zero: L zeros.
// Errors: kErrBadPaddingRule (rule 0 or unknown), kErrGeneric (RandomFill failed).
Status CipherPadBlock(uint16_t rule, uint8_t* block, size_t dataLen, size_t blockSize);

// Checks the padding of a decrypted block and gives the length of the data before it. Every rule
// needs a last byte L with 1 <= L <= blockSize; PKCS#7 also needs all L bytes equal to L, ANSI
// X9.23 the L - 1 bytes before the last zero; ISO 10126 checks nothing more.
// Errors: kErrBadPaddingRule (zero padding, which cannot be removed, rule 0 or unknown),
// kErrPaddingCheck.
Status CipherUnpadBlock(uint16_t rule, const uint8_t* block, size_t blockSize, size_t* dataLen);

}  // namespace nivra::crypto
