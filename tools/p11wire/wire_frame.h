#pragma once
// Framing of the PKCS#11 forwarding link. Every message is a 12-byte header followed by its body:
//   offset 0  u32  magic kWireMagic ("NP11" in memory order)
//   offset 4  u32  body length (at most kWireMaxBody)
//   offset 8  u16  operation (WireOp)
//   offset 10 u16  flags: bit 0 set on replies, every other bit zero
// all little-endian. A reply carries the operation of its request.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nivra::p11wire {

inline constexpr uint32_t kWireMagic = 0x3131504Eu;
inline constexpr size_t kWireHeaderSize = 12;
inline constexpr uint16_t kWireFlagReply = 0x0001;

struct WireFrameHeader {
  uint16_t op = 0;
  bool reply = false;
  uint32_t bodyLength = 0;
};

enum class WireHeaderStatus { kOk, kBadMagic, kTooLong, kBadFlags };

// Writes the 12 header bytes for `header` into `out`.
void EncodeFrameHeader(const WireFrameHeader& header, uint8_t out[kWireHeaderSize]);

// Parses 12 header bytes. Anything but kOk means the stream cannot be trusted and the connection
// should be dropped: frames cannot be resynchronised.
WireHeaderStatus DecodeFrameHeader(const uint8_t in[kWireHeaderSize], WireFrameHeader* header);

// Header and body as one buffer. `body` must not exceed kWireMaxBody.
std::vector<uint8_t> EncodeFrame(uint16_t op, bool reply, const std::vector<uint8_t>& body);

// Splits one complete frame held in memory. False when the buffer is shorter than the header or
// than the length it announces, when the header is malformed, or when bytes follow the frame.
bool DecodeFrame(const uint8_t* data, size_t size, WireFrameHeader* header,
                 std::vector<uint8_t>* body);

}  // namespace nivra::p11wire
