// The 16-byte mode token that a companion program hands to an application for a Bluetooth
// context (provider parameter 22209). The companion and the module share one 16-byte two-key
// Triple-DES key (kModeTokenKey): it is a shared secret between the two programs, and anyone who
// holds it can issue tokens, so both must be distributed and protected together.
//
//   bytes 0..3    payload length L (32-bit little-endian), 1 to 4
//   bytes 4..11   the issuing time (GetTickCount64, 8 bytes little-endian) enciphered as one
//                 block with the shared key (ECB)
//   bytes 12..    the payload, L bytes, combined by XOR with the encryption of an all-zero block
//                 under single DES keyed with the 8 time-stamp bytes (whole 8-byte blocks would
//                 be deciphered with that key; none fit in 16 bytes)
//
// Payload byte 0 is the flag: non-zero marks the device as verified, zero forgets it. A token is
// valid for 5000 ms after its time stamp.
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::frames {

constexpr size_t kModeTokenSize = 16;
constexpr size_t kModeTokenMaxPayload = 4;
constexpr uint64_t kModeTokenLifetimeMs = 5000;
extern const uint8_t kModeTokenKey[16];

// token = a token issued at `now` with the flag. False when the cipher fails.
bool IssueModeToken(uint64_t now, bool flag, uint8_t token[kModeTokenSize]);

// True when the token's time stamp is at most 5000 ms before `now` (not after it) and its payload
// length is 1 to 4; *flag receives the payload's flag.
bool ReadModeToken(const uint8_t token[kModeTokenSize], uint64_t now, bool* flag);

}  // namespace nivra::frames
