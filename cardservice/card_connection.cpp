// A connection on a service card's own address: the card's side of the key exchange (the module
// offers the card's name, receives the card's public key and sends a session key of its own
// choosing encrypted to it), then that card's commands, each frame encrypted as a whole under the
// session key with no outer frame.
#include "cardservice/connection.h"
#include "cardservice/service_log.h"
#include "crypto/wipe.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"

namespace nivra::cardservice {

Connection::Outcome Connection::AnswerRemoteList(RemoteKind kind) {
  frames::Bytes answer;
  frames::FrameStatus built;
  if (kind == RemoteKind::kDevice) {
    std::vector<frames::DeviceRecord> records;
    for (RemoteCard* device : cards_->OfKind(kind)) {
      frames::DeviceRecord record;
      record.name = device->name();
      record.displayName = device->config().display;
      record.kind = frames::kDeviceKindFirst;
      records.push_back(record);
    }
    built = frames::BuildDeviceListAnswer(records, &answer);
  } else {
    std::vector<frames::CardRecord> records;
    for (RemoteCard* card : cards_->OfKind(kind)) {
      frames::CardRecord record;
      record.name = card->name();
      record.displayName = card->config().display;
      record.address = card->config().address;
      records.push_back(record);
    }
    built = frames::BuildCardListAnswer(records, &answer);
  }
  if (built != frames::FrameStatus::kOk) {
    LogLine("conn %u: the list cannot be built (%s)", id_, frames::FrameStatusName(built));
    frames::BuildFrame(kind == RemoteKind::kDevice ? frames::kCmdDeviceListAnswer
                                                   : frames::kCmdCardListAnswer,
                       kStatusFail, nullptr, 0, &answer);
  }
  return Send(answer) ? Outcome::kContinue : Outcome::kEnd;
}

Connection::Outcome Connection::HandleCard(const frames::Bytes& frame,
                                           const frames::FrameView& view) {
  switch (view.header.command) {
    case frames::kCmdKeyOffer:
      return AnswerKeyOffer(view);
    case frames::kCmdCardSessionKey:
      return AnswerCardSessionKey(frame);
    default:
      return AnswerCardCommand(frame);
  }
}

Connection::Outcome Connection::AnswerKeyOffer(const frames::FrameView& request) {
  if (cardKeySent_) return Refuse(request.header, "a second key offer on one connection");
  std::string name;
  if (frames::ParseKeyOfferBody(request.body, request.header.bodyLength, &name) !=
      frames::FrameStatus::kOk) {
    return Refuse(request.header, "malformed key offer");
  }
  frames::Bytes answer;
  if (name != card_->name()) {
    // Another card's name: refused with a status, and the connection ends.
    LogLine("conn %u: key offer for %s on the address of card %s; refused", id_, name.c_str(),
            card_->name().c_str());
    frames::BuildCardKeyFrame(card_->cardKey(), kStatusUnknownCard, &answer);
    Send(answer);
    return Outcome::kEnd;
  }
  if (frames::BuildCardKeyFrame(card_->cardKey(), kStatusOk, &answer) != frames::FrameStatus::kOk) {
    LogLine("conn %u: the key of card %s cannot be exported; connection closed", id_,
            name.c_str());
    return Outcome::kEnd;
  }
  cardKeySent_ = true;
  return Send(answer) ? Outcome::kContinue : Outcome::kEnd;
}

Connection::Outcome Connection::AnswerCardSessionKey(const frames::Bytes& frame) {
  frames::FrameHeader header = frames::ReadHeader(frame.data());
  if (!cardKeySent_) return Refuse(header, "a session key before the key offer");
  if (cipher_.Get() != 0) return Refuse(header, "a second session key on one connection");
  uint32_t bits = 0;
  crypto::RsaHandleKeyBits(card_->cardKey(), &bits);
  const size_t k = (bits + 7) / 8;
  const uint8_t* encrypted = nullptr;
  frames::Bytes secret;
  frames::CipherOwner cipher;
  frames::FrameStatus status =
      frames::ParseCardSessionKeyFrame(frame.data(), frame.size(), k, &encrypted);
  if (status == frames::FrameStatus::kOk) {
    status = frames::DecryptSessionSecret(card_->cardKey(), encrypted, k, &secret);
  }
  if (status == frames::FrameStatus::kOk) {
    status = frames::OpenSessionSecret(secret.data(), secret.size(), cipher.Out());
  }
  if (!secret.empty()) crypto::Wipe(secret.data(), secret.size());
  if (status != frames::FrameStatus::kOk) {
    LogLine("conn %u: unusable session key for card %s (%s); connection closed", id_,
            card_->name().c_str(), frames::FrameStatusName(status));
    Send(frames::BuildCardSessionAck(kStatusBadData));
    return Outcome::kEnd;
  }
  if (!Send(frames::BuildCardSessionAck(kStatusOk))) return Outcome::kEnd;
  *cipher_.Out() = cipher.Release();
  LogLine("conn %u: encrypted session with card %s established", id_, card_->name().c_str());
  return Outcome::kContinue;
}

Connection::Outcome Connection::AnswerCardCommand(const frames::Bytes& frame) {
  frames::FrameHeader header = frames::ReadHeader(frame.data());
  if (cipher_.Get() == 0) return Refuse(header, "a card command before the key exchange");
  frames::Bytes plain;
  frames::FrameView inner;
  if (frames::UnwrapFrame(cipher_.Get(), frame.data(), frame.size(), &plain) !=
          frames::FrameStatus::kOk ||
      frames::ParseFrame(plain.data(), plain.size(), &inner) != frames::FrameStatus::kOk) {
    return Refuse(header, "card command that does not decrypt");
  }
  std::string where = "card " + card_->name();
  return SendWrapped(RunCardCommand(where.c_str(), card_->slotId(), card_, inner));
}

}  // namespace nivra::cardservice
