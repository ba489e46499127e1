// One client connection, served on a thread of its own until the client leaves, breaks the
// protocol, or the service stops. A connection starts as a control connection (slot list and
// slot queries); a hello turns it into an encrypted slot channel.
#pragma once
#include <atomic>
#include <cstdint>
#include <string>

#include "cardservice/card_service.h"
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
  Connection(uint32_t id, int fd, CardService* service, const std::atomic<bool>* stop)
      : id_(id), stream_(fd), service_(service), stop_(*stop) {}

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
  Outcome AnswerSlotFrame(const frames::Bytes& frame);
  Outcome Refuse(const frames::FrameHeader& header, const char* why);
  bool Send(const frames::Bytes& frame);

  uint32_t id_;
  Stream stream_;
  CardService* service_;
  const std::atomic<bool>& stop_;
  frames::CipherOwner cipher_;  // set once the handshake is done
  ChannelLogins logins_;
};

}  // namespace nivra::cardservice
