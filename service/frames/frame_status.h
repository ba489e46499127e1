// Results of the portable frame codec. Every builder and parser of service/frames answers one of
// these; each side turns them into its own error family (the provider into CryptoAPI codes, the
// card service into log lines and closed connections).
#pragma once
#include <cstdint>

namespace nivra::frames {

enum class FrameStatus : int32_t {
  kOk = 0,
  kTruncated,       // fewer bytes than a header, field or announced body needs
  kBadLength,       // a length that contradicts the layout (body length, count, byte count)
  kBadCommand,      // a command other than the one the exchange expects, or an unknown one
  kBadField,        // a field outside its allowed values (key format, bit length, missing NUL)
  kTooLong,         // a value that does not fit its frame (body above 65535 bytes)
  kPeerStatus,      // the frame carries a non-zero status; the caller reads it from the header
  kKeyError,        // an RSA key could not be loaded, exported or used
  kCipherError,     // the session cipher could not be created or failed while running
  kCheckFailed,     // the session secret's check block did not decrypt to zero bytes
  kRandomFailed,    // the operating system's generator failed
};

// A short stable name for log lines ("truncated", "bad-length", ...).
const char* FrameStatusName(FrameStatus status);

}  // namespace nivra::frames
