#include "service/frames/card_key_exchange.h"

#include "service/frames/device_records.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"

namespace nivra::frames {

namespace {
// ParseFrame, then the expected command, then the status.
FrameStatus ParseAnswer(const uint8_t* frame, size_t len, uint16_t command, FrameView* view) {
  const FrameStatus parsed = ParseFrame(frame, len, view);
  if (parsed != FrameStatus::kOk) return parsed;
  if (view->header.command != command) return FrameStatus::kBadCommand;
  if (view->header.status != 0) return FrameStatus::kPeerStatus;
  return FrameStatus::kOk;
}
}  // namespace

FrameStatus BuildKeyOffer(const std::string& card, Bytes* frame) {
  uint8_t body[kNameFieldSize];
  if (WriteNameField(body, card) != FrameStatus::kOk) return FrameStatus::kBadField;
  return BuildFrame(kCmdKeyOffer, 0, body, sizeof(body), frame);
}

FrameStatus ParseKeyOfferBody(const uint8_t* body, size_t len, std::string* card) {
  if (len != kNameFieldSize) return FrameStatus::kBadLength;
  return ReadNameField(body, card);
}

FrameStatus BuildCardKeyFrame(crypto::RsaHandle key, uint32_t status, Bytes* frame) {
  if (status != 0) return BuildFrame(kCmdCardKey, status, nullptr, 0, frame);
  Bytes der;
  const FrameStatus exported = ExportPublicKeyDer(key, &der);
  if (exported != FrameStatus::kOk) return exported;
  return BuildFrame(kCmdCardKey, 0, der.data(), der.size(), frame);
}

FrameStatus ParseCardKeyFrame(const uint8_t* frame, size_t len, const uint8_t** keyDer,
                              size_t* keyLen) {
  FrameView view;
  const FrameStatus parsed = ParseAnswer(frame, len, kCmdCardKey, &view);
  if (parsed != FrameStatus::kOk) return parsed;
  if (view.header.bodyLength == 0) return FrameStatus::kTruncated;
  *keyDer = view.body;
  *keyLen = view.header.bodyLength;
  return FrameStatus::kOk;
}

FrameStatus ParseCardSessionKeyFrame(const uint8_t* frame, size_t len, size_t modulusBytes,
                                     const uint8_t** encrypted) {
  if (len < kHeaderSize) return FrameStatus::kTruncated;
  if (ReadHeader(frame).command != kCmdCardSessionKey) return FrameStatus::kBadCommand;
  return ParseSessionKeyFrame(frame, len, modulusBytes, encrypted);
}

Bytes BuildCardSessionAck(uint32_t status) {
  Bytes out;
  BuildFrame(kCmdCardSessionAck, status, nullptr, 0, &out);
  return out;
}

FrameStatus ParseCardSessionAck(const uint8_t* frame, size_t len) {
  FrameView view;
  return ParseAnswer(frame, len, kCmdCardSessionAck, &view);
}

}  // namespace nivra::frames
