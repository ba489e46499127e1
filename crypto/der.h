// DER lengths as the key formats use them: the short form below 128, otherwise 0x81..0x84
// followed by one to four big-endian length octets.
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::crypto {

// Bytes of the shortest DER encoding of len (1 to 5).
uint32_t DerLengthSize(uint32_t len);

// Writes the shortest DER encoding of len at out; returns the bytes written.
uint32_t WriteDerLength(uint8_t* out, uint32_t len);

// The longest element header ReadDerHeader accepts: tag, 0x84, four length octets.
constexpr size_t kDerLongestHeader = 6;

// One element header read from in[0..avail): tag byte, then a short or long (1 to 4 octets)
// length. On success *headerLen is the header's size and *contentLen the declared content length
// (not checked against avail); false when the header itself does not fit in avail bytes or uses
// another length form (0x80, or more than four octets).
bool ReadDerHeader(const uint8_t* in, size_t avail, uint8_t* tag, size_t* headerLen,
                   size_t* contentLen);

}  // namespace nivra::crypto
