#include "service/frames/frame_header.h"

#include <cstring>

#include "service/frames/byte_order.h"

namespace nivra::frames {

FrameHeader ReadHeader(const uint8_t* in) {
  FrameHeader header;
  header.command = LoadLe16(in);
  header.bodyLength = LoadLe16(in + 2);
  header.status = LoadLe32(in + 4);
  return header;
}

void WriteHeader(uint8_t* out, const FrameHeader& header) {
  StoreLe16(out, header.command);
  StoreLe16(out + 2, header.bodyLength);
  StoreLe32(out + 4, header.status);
}

FrameStatus ParseFrame(const uint8_t* data, size_t len, FrameView* view) {
  if (len < kHeaderSize) return FrameStatus::kTruncated;
  view->header = ReadHeader(data);
  if (len != kHeaderSize + view->header.bodyLength) return FrameStatus::kBadLength;
  view->body = data + kHeaderSize;
  return FrameStatus::kOk;
}

FrameStatus BuildFrame(uint16_t command, uint32_t status, const uint8_t* body, size_t bodyLen,
                       Bytes* out) {
  if (bodyLen > kMaxBodyLength) return FrameStatus::kTooLong;
  out->assign(kHeaderSize + bodyLen, 0);
  WriteHeader(out->data(), {command, static_cast<uint16_t>(bodyLen), status});
  if (bodyLen > 0) std::memcpy(out->data() + kHeaderSize, body, bodyLen);
  return FrameStatus::kOk;
}

const char* FrameStatusName(FrameStatus status) {
  switch (status) {
    case FrameStatus::kOk: return "ok";
    case FrameStatus::kTruncated: return "truncated";
    case FrameStatus::kBadLength: return "bad-length";
    case FrameStatus::kBadCommand: return "bad-command";
    case FrameStatus::kBadField: return "bad-field";
    case FrameStatus::kTooLong: return "too-long";
    case FrameStatus::kPeerStatus: return "peer-status";
    case FrameStatus::kKeyError: return "key-error";
    case FrameStatus::kCipherError: return "cipher-error";
    case FrameStatus::kCheckFailed: return "check-failed";
    case FrameStatus::kRandomFailed: return "random-failed";
  }
  return "unknown";
}

}  // namespace nivra::frames
