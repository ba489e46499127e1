// One client connection, served on a thread of its own until the client leaves, breaks the
// protocol, or the service stops. On the service port a connection starts as a control
// connection (slot, device and card lists, slot queries); a hello turns it into an encrypted
// channel for slot frames and device frames. On a service card's own address a connection starts
// with the card's key exchange, and then carries that card's commands directly.
#pragma once
#include <atomic>
#include <cstdint>
#include <string>

#include "cardservice/card_service.h"
#include "cardservice/remote_cards.h"
#include "cardservice/socket_stream.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_header.h"

namespace nivra::cardservice {

// Time a client has to finish a frame it has begun, and to take an answer.
constexpr int kFrameTimeoutMs = 30000;
// Smallest transport key the service encrypts a session secret to.
constexpr uint32_t kMinTransportKeyBits = 1024;

class Connection {
 public:
  // `card`: the service card whose own address accepted the connection; null on the service
  // port.
  Connection(uint32_t id, int fd, CardService* service, RemoteCards* cards, RemoteCard* card,
             const std::atomic<bool>* stop)
      : id_(id), stream_(fd), service_(service), cards_(cards), card_(card), stop_(*stop) {}

  // Serves frames until the connection ends; logs why it ended.
  void Serve();
  // Makes a Serve() on another thread return soon.
  void Shutdown() { stream_.Shutdown(); }

 private:
  enum class Outcome { kContinue, kEnd };
  bool ReadFrame(frames::Bytes* frame);
  Outcome Handle(const frames::Bytes& frame);
  Outcome AnswerSlotList();
  Outcome AnswerSlotInfo(const frames::FrameView& request);
  Outcome AnswerHello(const frames::FrameView& request);
  // Decrypts a frame of an encrypted channel: null, or why it cannot be.
  const char* UnwrapChannelFrame(const frames::Bytes& frame, frames::Bytes* plain);
  Outcome AnswerSlotFrame(const frames::Bytes& frame);
  Outcome AnswerRemoteList(RemoteKind kind);
  Outcome AnswerDeviceFrame(const frames::Bytes& frame);
  Outcome HandleCard(const frames::Bytes& frame, const frames::FrameView& view);
  Outcome AnswerKeyOffer(const frames::FrameView& request);
  Outcome AnswerCardSessionKey(const frames::Bytes& frame);
  Outcome AnswerCardCommand(const frames::Bytes& frame);
  // Decrypts a wrapped card command, runs it (on a device or card when `remote` is set, else on
  // the slot), and sends the encrypted answer.
  frames::Bytes RunCardCommand(const char* where, uint32_t slotId, RemoteCard* remote,
                               const frames::FrameView& inner);
  Outcome SendWrapped(const frames::Bytes& response);
  Outcome Refuse(const frames::FrameHeader& header, const char* why);
  bool Send(const frames::Bytes& frame);

  uint32_t id_;
  Stream stream_;
  CardService* service_;
  RemoteCards* cards_;
  RemoteCard* card_;
  const std::atomic<bool>& stop_;
  bool cardKeySent_ = false;  // a service card's connection: the key offer was answered
  frames::CipherOwner cipher_;  // set once the handshake is done
  ChannelLogins logins_;
};

}  // namespace nivra::cardservice
