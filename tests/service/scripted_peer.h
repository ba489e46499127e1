// A card service peer whose answers a test scripts, for the conditions the real card service
// never produces (malformed handshakes, slot lists and answers, silence, a close mid-request).
// It listens on a free loopback port and runs the script once per accepted connection, one
// connection at a time, on a thread of its own. Ending the peer ends a script that waits for a
// client that is still connected.
#pragma once
#include <winsock2.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "crypto/cipher.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_header.h"

namespace nivra::servicetest {

using frames::Bytes;

// The peer's end of one connection (blocking socket).
class PeerConnection {
 public:
  PeerConnection(SOCKET s, const std::atomic<bool>* stop) : socket_(s), stop_(stop) {}
  // One whole frame; false when the client closed or broke the connection, or the peer ends.
  bool ReadFrame(Bytes* frame);
  void Write(const Bytes& bytes);
  // Reads the hello and answers with a session-key frame for `secret`, edited by `edit` before
  // it is sent (null: unchanged). Keeps the session cipher when the secret is a proper one.
  bool Handshake(const Bytes& secret, const std::function<void(Bytes&)>& edit = nullptr);
  // Reads one wrapped slot frame, or device frame when `device` is given (*device = its name);
  // *inner = the card command frame inside it.
  bool ReadRequest(uint32_t* slotId, std::string* device, Bytes* inner);
  // Wraps and sends a card command answer (frame built by the caller).
  void Answer(const Bytes& frame);

 private:
  bool ReadExact(uint8_t* out, size_t len);

  SOCKET socket_;
  const std::atomic<bool>* stop_;
  frames::CipherOwner cipher_;
};

// A fresh 24-byte session secret (key and check block) from the codec.
Bytes FreshSecret();

// Points the provider at the service on `port` and service cards on `cardPort`, with waits of
// seconds; closes the link to the service.
void UsePorts(uint16_t port, uint16_t cardPort = 0, bool systemProviderDecrypt = true);

class ScriptedPeer {
 public:
  using Script = std::function<void(PeerConnection&)>;
  // Listens on `port`, or on a free one when it is 0; Port() is 0 when it cannot listen.
  explicit ScriptedPeer(Script script, uint16_t port = 0);
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  // A script that makes the handshake and answers each card command that arrives in a slot frame
  // (a device frame when `devices`) with answer(command, the card command frame).
  using Answerer = std::function<Bytes(uint16_t command, const Bytes& inner)>;
  static Script Answering(Answerer answer, bool devices = false);

  uint16_t Port() const { return port_; }

 private:
  void Serve();

  Script script_;
  SOCKET listener_ = INVALID_SOCKET;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace nivra::servicetest
