// The message frame shared by both directions: an 8-byte little-endian header (16-bit command,
// 16-bit body length, 32-bit status) followed by the body.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "service/frames/frame_status.h"

namespace nivra::frames {

using Bytes = std::vector<uint8_t>;

constexpr size_t kHeaderSize = 8;
constexpr size_t kMaxBodyLength = 0xFFFF;

struct FrameHeader {
  uint16_t command = 0;
  uint16_t bodyLength = 0;
  uint32_t status = 0;
};

// A frame seen in place: its header and a pointer to its body (inside the caller's buffer).
struct FrameView {
  FrameHeader header;
  const uint8_t* body = nullptr;
};

// Reads the header at in[0..8). The caller guarantees 8 readable bytes.
FrameHeader ReadHeader(const uint8_t* in);
// Writes header to out[0..8). The caller guarantees 8 writable bytes.
void WriteHeader(uint8_t* out, const FrameHeader& header);

// Reads a complete frame from data[0..len): kTruncated below 8 bytes, kBadLength unless len is
// exactly 8 + the body length of the header. view->body points into data.
FrameStatus ParseFrame(const uint8_t* data, size_t len, FrameView* view);

// *out = header (command, body length, status) + body[0..bodyLen). kTooLong when the body is
// longer than kMaxBodyLength (out untouched). body may be null when bodyLen is 0.
FrameStatus BuildFrame(uint16_t command, uint32_t status, const uint8_t* body, size_t bodyLen,
                       Bytes* out);

}  // namespace nivra::frames
