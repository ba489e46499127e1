#include "cardservice/connection.h"

#include <cstring>

#include "cardservice/service_log.h"
#include "crypto/rsa_interface.h"
#include "crypto/wipe.h"
#include "service/frames/card_commands.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"

namespace nivra::cardservice {

namespace {

frames::SlotRecord ToRecord(const PublishedSlot& slot) {
  frames::SlotRecord record;
  record.slotId = slot.slotId;
  record.tokenPresent = slot.tokenPresent ? 1 : 0;
  std::strncpy(record.name, slot.name.c_str(), sizeof record.name - 1);
  record.extra = slot.tokenFlags;
  std::memcpy(record.serial, slot.serial, sizeof record.serial);
  return record;
}

// The key bits of a DER public key, 0 when it does not load.
uint32_t PublicKeyBits(const uint8_t* der, size_t length) {
  crypto::RsaHandle key = 0;
  uint32_t bits = 0;
  if (crypto::RsaLoadKey(&key, &bits, crypto::kRsaFormPublic, der, length) != crypto::kOk) return 0;
  crypto::RsaFreeKey(key);
  return bits;
}

// Clears the PIN texts of a request once it has been served.
void WipeRequest(frames::CardRequest* request) {
  for (std::string* text : {&request->text, &request->text2}) {
    if (!text->empty()) crypto::Wipe(text->data(), text->size());
  }
}

}  // namespace

void Connection::Serve() {
  for (;;) {
    frames::Bytes frame;
    if (!ReadFrame(&frame)) return;
    if (Handle(frame) == Outcome::kEnd) return;
  }
}

bool Connection::ReadFrame(frames::Bytes* frame) {
  frame->resize(frames::kHeaderSize);
  size_t got = 0;
  auto result = stream_.ReadExact(frame->data(), frames::kHeaderSize, true, kFrameTimeoutMs,
                                  stop_, &got);
  size_t expected = frames::kHeaderSize;
  if (result == Stream::ReadResult::kOk) {
    frames::FrameHeader header = frames::ReadHeader(frame->data());
    expected += header.bodyLength;
    frame->resize(expected);
    size_t bodyGot = 0;
    result = stream_.ReadExact(frame->data() + frames::kHeaderSize, header.bodyLength, false,
                               kFrameTimeoutMs, stop_, &bodyGot);
    got += bodyGot;
  }
  switch (result) {
    case Stream::ReadResult::kOk:
      return true;
    case Stream::ReadResult::kClosed:
      if (got == 0) {
        LogLine("conn %u: closed by the client", id_);
      } else {
        LogLine("conn %u: client disconnected mid-frame (%zu of %zu bytes); connection closed",
                id_, got, expected);
      }
      return false;
    case Stream::ReadResult::kTimedOut:
      LogLine("conn %u: client stalled mid-frame (%zu of %zu bytes for %d ms); connection closed",
              id_, got, expected, kFrameTimeoutMs);
      return false;
    case Stream::ReadResult::kStopped:
      LogLine("conn %u: closed, the service is stopping", id_);
      return false;
    case Stream::ReadResult::kFailed:
      break;
  }
  LogLine("conn %u: receive failed (%s); connection closed", id_, std::strerror(errno));
  return false;
}

bool Connection::Send(const frames::Bytes& frame) {
  frames::FrameHeader header = frames::ReadHeader(frame.data());
  LogLine("conn %u > 0x%04x status 0x%08x length %u", id_, header.command, header.status,
          header.bodyLength);
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "conn %u > bytes", id_);
  TraceBytes(prefix, frame.data(), frame.size());
  if (stream_.WriteAll(frame.data(), frame.size(), kFrameTimeoutMs, stop_)) return true;
  LogLine("conn %u: the client took no answer; connection closed", id_);
  return false;
}

Connection::Outcome Connection::Refuse(const frames::FrameHeader& header, const char* why) {
  LogLine("conn %u: garbage from the client: %s (command 0x%04x, length %u); connection closed",
          id_, why, header.command, header.bodyLength);
  return Outcome::kEnd;
}

Connection::Outcome Connection::Handle(const frames::Bytes& frame) {
  frames::FrameView view;
  frames::ParseFrame(frame.data(), frame.size(), &view);
  LogLine("conn %u < 0x%04x status 0x%08x length %u", id_, view.header.command,
          view.header.status, view.header.bodyLength);
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "conn %u < bytes", id_);
  TraceBytes(prefix, frame.data(), frame.size());
  if (view.header.status != 0) return Refuse(view.header, "a request with a status");
  if (card_) return HandleCard(frame, view);
  switch (view.header.command) {
    case frames::kCmdSlotList:
      if (view.header.bodyLength != 0) return Refuse(view.header, "slot list with a body");
      return AnswerSlotList();
    case frames::kCmdSlotInfo:
      return AnswerSlotInfo(view);
    case frames::kCmdHello:
      return AnswerHello(view);
    case frames::kCmdSlotFrame:
      return AnswerSlotFrame(frame);
    case frames::kCmdDeviceList:
      if (view.header.bodyLength != 0) return Refuse(view.header, "device list with a body");
      return AnswerRemoteList(RemoteKind::kDevice);
    case frames::kCmdCardList:
      if (view.header.bodyLength != 0) return Refuse(view.header, "card list with a body");
      return AnswerRemoteList(RemoteKind::kServiceCard);
    case frames::kCmdDeviceFrame:
      return AnswerDeviceFrame(frame);
    default:
      return Refuse(view.header, "unknown command");
  }
}

Connection::Outcome Connection::AnswerSlotList() {
  std::vector<PublishedSlot> slots;
  CK_RV error = CKR_OK;
  frames::Bytes answer;
  if (!service_->ListSlots(&slots, &error)) {
    LogLine("conn %u: the module cannot list its slots (0x%lx)", id_, error);
    frames::BuildFrame(frames::kCmdSlotListAnswer, kStatusFail, nullptr, 0, &answer);
    return Send(answer) ? Outcome::kContinue : Outcome::kEnd;
  }
  std::vector<frames::SlotRecord> records;
  for (const PublishedSlot& slot : slots) records.push_back(ToRecord(slot));
  if (frames::BuildSlotListAnswer(records.data(), records.size(), &answer) != frames::FrameStatus::kOk) {
    frames::BuildFrame(frames::kCmdSlotListAnswer, kStatusFail, nullptr, 0, &answer);
  }
  return Send(answer) ? Outcome::kContinue : Outcome::kEnd;
}

Connection::Outcome Connection::AnswerSlotInfo(const frames::FrameView& request) {
  uint32_t slotId = 0;
  if (frames::ParseSlotInfoRequest(request.body, request.header.bodyLength, &slotId) !=
      frames::FrameStatus::kOk) {
    return Refuse(request.header, "slot query without a 4-byte slot ID");
  }
  PublishedSlot slot;
  frames::Bytes answer;
  if (service_->DescribeSlot(slotId, &slot)) {
    answer = frames::BuildSlotInfoAnswer(ToRecord(slot));
  } else {
    frames::BuildFrame(frames::kCmdSlotInfoAnswer, kStatusReaderUnavailable, nullptr, 0, &answer);
  }
  return Send(answer) ? Outcome::kContinue : Outcome::kEnd;
}

Connection::Outcome Connection::AnswerHello(const frames::FrameView& request) {
  if (cipher_.Get() != 0) return Refuse(request.header, "a second hello on one channel");
  const uint8_t* keyDer = nullptr;
  size_t keyLength = 0;
  if (frames::ParseHelloBody(request.body, request.header.bodyLength, &keyDer, &keyLength) !=
      frames::FrameStatus::kOk) {
    return Refuse(request.header, "malformed hello");
  }
  uint32_t bits = PublicKeyBits(keyDer, keyLength);
  if (bits == 0) return Refuse(request.header, "hello without a usable RSA public key");
  if (bits < kMinTransportKeyBits) return Refuse(request.header, "hello with a key below 1024 bits");
  uint8_t secret[frames::kSessionSecretSize];
  frames::Bytes answer;
  frames::CipherOwner cipher;
  frames::FrameStatus status = frames::MakeSessionSecret(secret);
  if (status == frames::FrameStatus::kOk) {
    status = frames::OpenSessionSecret(secret, sizeof secret, cipher.Out());
  }
  if (status == frames::FrameStatus::kOk) {
    status = frames::BuildSessionKeyFrame(keyDer, keyLength, secret, sizeof secret, &answer);
  }
  crypto::Wipe(secret, sizeof secret);
  if (status != frames::FrameStatus::kOk) {
    LogLine("conn %u: no session could be made (%s); connection closed", id_,
            frames::FrameStatusName(status));
    return Outcome::kEnd;
  }
  if (!Send(answer)) return Outcome::kEnd;
  *cipher_.Out() = cipher.Release();
  LogLine("conn %u: encrypted channel established (transport key %u bits)", id_, bits);
  return Outcome::kContinue;
}

const char* Connection::UnwrapChannelFrame(const frames::Bytes& frame, frames::Bytes* plain) {
  if (cipher_.Get() == 0) return "before the handshake";
  if (frames::UnwrapFrame(cipher_.Get(), frame.data(), frame.size(), plain) !=
      frames::FrameStatus::kOk) {
    return "that does not decrypt";
  }
  return nullptr;
}

Connection::Outcome Connection::AnswerSlotFrame(const frames::Bytes& frame) {
  frames::FrameHeader header = frames::ReadHeader(frame.data());
  frames::Bytes plain;
  if (const char* why = UnwrapChannelFrame(frame, &plain)) {
    return Refuse(header, ("slot frame " + std::string(why)).c_str());
  }
  uint32_t slotId = 0;
  frames::FrameView inner;
  frames::FrameStatus parsed = frames::ParseSlotFrameBody(
      plain.data() + frames::kHeaderSize, plain.size() - frames::kHeaderSize, &slotId, &inner);
  if (parsed != frames::FrameStatus::kOk) return Refuse(header, "malformed slot frame");
  std::string where = "slot " + std::to_string(slotId);
  return SendWrapped(RunCardCommand(where.c_str(), slotId, nullptr, inner));
}

Connection::Outcome Connection::AnswerDeviceFrame(const frames::Bytes& frame) {
  frames::FrameHeader header = frames::ReadHeader(frame.data());
  frames::Bytes plain;
  if (const char* why = UnwrapChannelFrame(frame, &plain)) {
    return Refuse(header, ("device frame " + std::string(why)).c_str());
  }
  std::string name;
  frames::FrameView inner;
  if (frames::ParseDeviceFrameBody(plain.data() + frames::kHeaderSize,
                                   plain.size() - frames::kHeaderSize, &name, &inner) !=
      frames::FrameStatus::kOk) {
    return Refuse(header, "malformed device frame");
  }
  RemoteCard* device = cards_->Find(RemoteKind::kDevice, name);
  std::string where = "device " + name;
  if (!device) {
    // Answered, not refused: a device can go away between the list and the request.
    frames::Bytes response;
    frames::BuildFrame(frames::ResponseCommand(inner.header.command), kStatusReaderUnavailable,
                       nullptr, 0, &response);
    LogLine("conn %u: no device is called %s", id_, name.c_str());
    return SendWrapped(response);
  }
  return SendWrapped(RunCardCommand(where.c_str(), device->slotId(), device, inner));
}

frames::Bytes Connection::RunCardCommand(const char* where, uint32_t slotId, RemoteCard* remote,
                                         const frames::FrameView& inner) {
  const uint16_t command = inner.header.command;
  frames::CardRequest request;
  CardAnswer answer;
  if (!frames::IsCardCommand(command)) {
    answer.status = kStatusNotSupported;
  } else if (frames::ParseCardRequest(command, inner.body, inner.header.bodyLength, &request) !=
             frames::FrameStatus::kOk) {
    answer.status = kStatusBadData;
  } else if (remote) {
    answer = remote->Execute(service_, command, request);
  } else {
    answer = service_->Execute(logins_, slotId, command, request);
  }
  WipeRequest(&request);
  frames::Bytes response;
  if (frames::BuildCardResponse(command, answer.status, answer.response, &response) !=
      frames::FrameStatus::kOk) {
    frames::BuildFrame(frames::ResponseCommand(command), answer.status ? answer.status : kStatusFail,
                       nullptr, 0, &response);
  }
  frames::FrameHeader responseHeader = frames::ReadHeader(response.data());
  LogLine("conn %u: %s card command 0x%04x (request %u bytes): status 0x%08x, answer %u bytes",
          id_, where, command, inner.header.bodyLength, responseHeader.status,
          responseHeader.bodyLength);
  return response;
}

Connection::Outcome Connection::SendWrapped(const frames::Bytes& response) {
  frames::Bytes wrapped;
  if (frames::WrapFrame(cipher_.Get(), response.data(), response.size(), &wrapped) !=
      frames::FrameStatus::kOk) {
    LogLine("conn %u: the answer cannot be encrypted; connection closed", id_);
    return Outcome::kEnd;
  }
  return Send(wrapped) ? Outcome::kContinue : Outcome::kEnd;
}

}  // namespace nivra::cardservice
