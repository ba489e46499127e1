#include "tests/cardservice/remote_harness.h"

#include <random>

#include "service/frames/card_key_exchange.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"

namespace nivra::cardtest {

CardSession::CardSession(const std::string& address, const std::string& name)
    : client_(kCardPort, address) {
  frames::Bytes offer, answer;
  if (!client_.connected() || frames::BuildKeyOffer(name, &offer) != frames::FrameStatus::kOk ||
      !client_.Send(offer) || !client_.Receive(&answer)) {
    return;
  }
  offerStatus_ = frames::ReadHeader(answer.data()).status;
  const uint8_t* der = nullptr;
  size_t length = 0;
  if (frames::ParseCardKeyFrame(answer.data(), answer.size(), &der, &length) ==
      frames::FrameStatus::kOk) {
    cardKey_.assign(der, der + length);
  }
}

uint32_t CardSession::SendSecret(const frames::Bytes& secret) {
  frames::Bytes frame, ack;
  if (frames::BuildSessionKeyFrame(cardKey_.data(), cardKey_.size(), secret.data(), secret.size(),
                                   &frame, frames::kCmdCardSessionKey) != frames::FrameStatus::kOk ||
      !client_.Send(frame) || !client_.Receive(&ack)) {
    return ~0u;
  }
  uint32_t status = frames::ReadHeader(ack.data()).status;
  if (status == 0 && frames::ParseCardSessionAck(ack.data(), ack.size()) == frames::FrameStatus::kOk &&
      frames::OpenSessionSecret(secret.data(), secret.size(), cipher_.Out()) ==
          frames::FrameStatus::kOk) {
    ready_ = true;
  }
  return status;
}

bool CardSession::Establish() {
  frames::Bytes secret(frames::kSessionSecretSize);
  return frames::MakeSessionSecret(secret.data()) == frames::FrameStatus::kOk &&
         SendSecret(secret) == 0 && ready_;
}

CardResult CardSession::Call(uint16_t command, const frames::CardRequest& request,
                             size_t blockLength) {
  frames::Bytes inner, wrapped;
  frames::BuildCardRequest(command, request, &inner);
  frames::WrapFrame(cipher_.Get(), inner.data(), inner.size(), &wrapped);
  return Exchange(client_, cipher_.Get(), wrapped, command, blockLength);
}

std::string RemoteTest::CardConfig() {
  std::random_device random;
  std::uniform_int_distribution<int> byte(1, 250);
  std::string prefix = "127." + std::to_string(byte(random)) + "." + std::to_string(byte(random)) + ".";
  int last = byte(random);
  desk_ = prefix + std::to_string(last);
  spare_ = prefix + std::to_string(last + 1);
  return std::string("# devices and cards of the scratch token\n") +
         "device " + kPhone + " token=" + kTokenLabel + " pin=" + kUserPin +
         " display=\"Anna's phone\" default-key=3072 min-key=2048 max-key=16384 key-step=1024"
         " min-pin=6 max-pin=12 pin-flags=0x5\n"
         "device " + kOldPhone + " token=" + kTokenLabel + " pin=not-the-pin\n"
         "card " + kDesk + " token=" + kTokenLabel + " pin=" + kUserPin +
         " display=\"Desk card\" key-bits=1024 address=" + desk_ + "\n"
         "card " + kSpare + " token=" + kTokenLabel + " pin=" + kUserPin + " key-bits=1024 address=" + spare_ +
         "\n";
}

}  // namespace nivra::cardtest
