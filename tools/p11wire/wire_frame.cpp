#include "tools/p11wire/wire_frame.h"

#include "tools/p11wire/wire_buffer.h"

namespace nivra::p11wire {

void EncodeFrameHeader(const WireFrameHeader& header, uint8_t out[kWireHeaderSize]) {
  WireWriter w;
  w.U32(kWireMagic);
  w.U32(header.bodyLength);
  w.U16(header.op);
  w.U16(header.reply ? kWireFlagReply : 0);
  for (size_t i = 0; i < kWireHeaderSize; ++i) out[i] = w.Data()[i];
}

WireHeaderStatus DecodeFrameHeader(const uint8_t in[kWireHeaderSize], WireFrameHeader* header) {
  WireReader r(in, kWireHeaderSize);
  uint32_t magic = r.U32();
  uint32_t length = r.U32();
  uint16_t op = r.U16();
  uint16_t flags = r.U16();
  if (magic != kWireMagic) return WireHeaderStatus::kBadMagic;
  if (length > kWireMaxBody) return WireHeaderStatus::kTooLong;
  if ((flags & ~kWireFlagReply) != 0) return WireHeaderStatus::kBadFlags;
  header->op = op;
  header->reply = (flags & kWireFlagReply) != 0;
  header->bodyLength = length;
  return WireHeaderStatus::kOk;
}

std::vector<uint8_t> EncodeFrame(uint16_t op, bool reply, const std::vector<uint8_t>& body) {
  std::vector<uint8_t> frame(kWireHeaderSize);
  EncodeFrameHeader({op, reply, static_cast<uint32_t>(body.size())}, frame.data());
  frame.insert(frame.end(), body.begin(), body.end());
  return frame;
}

bool DecodeFrame(const uint8_t* data, size_t size, WireFrameHeader* header,
                 std::vector<uint8_t>* body) {
  if (size < kWireHeaderSize) return false;
  WireFrameHeader h;
  if (DecodeFrameHeader(data, &h) != WireHeaderStatus::kOk) return false;
  if (size - kWireHeaderSize != h.bodyLength) return false;
  *header = h;
  body->assign(data + kWireHeaderSize, data + size);
  return true;
}

}  // namespace nivra::p11wire
