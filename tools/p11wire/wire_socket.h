#pragma once
// Loopback TCP streams that carry frames of the forwarding link, for both sides: Windows Sockets
// in the Windows build (Wine maps them onto the host's sockets), BSD sockets natively.
#include <cstdint>
#include <string>
#include <vector>

#include "tools/p11wire/wire_frame.h"

namespace nivra::p11wire {

struct WireAddress {
  std::string host = "127.0.0.1";
  uint16_t port = 0;
};

// The helper's well-known port, used when nothing else is configured.
inline constexpr uint16_t kWireDefaultPort = 45470;

// Parses "host:port" where host is a dotted IPv4 address or "localhost" and port is 1..65535
// (0 is accepted too: a listener then takes any free port). False for anything else.
bool ParseWireAddress(const std::string& text, WireAddress* out);

// "host:port".
std::string FormatWireAddress(const WireAddress& address);

// One connected stream; owns its socket and closes it on destruction. Move-only.
class WireSocket {
 public:
  WireSocket() = default;
  ~WireSocket();
  WireSocket(WireSocket&& other) noexcept;
  WireSocket& operator=(WireSocket&& other) noexcept;
  WireSocket(const WireSocket&) = delete;
  WireSocket& operator=(const WireSocket&) = delete;

  // Connects to `address`. False when the address is not numeric or nobody listens there.
  static bool Connect(const WireAddress& address, WireSocket* out);

  bool valid() const { return handle_ != kInvalid; }

  // Writes one frame. False when the connection failed; the socket should then be dropped.
  bool SendFrame(uint16_t op, bool reply, const std::vector<uint8_t>& body);

  // Blocks for one frame. False when the connection closed or failed, or the header was not
  // well formed; nothing of a malformed frame's body is read.
  bool ReceiveFrame(WireFrameHeader* header, std::vector<uint8_t>* body);

  // Writes raw bytes (tests use this to send malformed frames). False on failure.
  bool SendRaw(const uint8_t* data, size_t size);

  // True when the peer has closed the connection or it failed. Does not block and consumes
  // nothing (unread frames stay queued).
  bool PeerClosed();

  // Ends both directions, so that a ReceiveFrame blocked on another thread returns false.
  void Shutdown();
  void Close();

 private:
  friend class WireListener;
  static constexpr intptr_t kInvalid = -1;
  explicit WireSocket(intptr_t handle) : handle_(handle) {}
  bool ReceiveAll(uint8_t* data, size_t size);

  intptr_t handle_ = kInvalid;
};

// A listening socket.
class WireListener {
 public:
  WireListener() = default;
  ~WireListener();
  WireListener(const WireListener&) = delete;
  WireListener& operator=(const WireListener&) = delete;

  // Binds and listens on `address`; port 0 picks a free port (see port()).
  bool Listen(const WireAddress& address);
  uint16_t port() const { return port_; }

  enum class AcceptResult { kAccepted, kTimeout, kFailed };
  // Waits up to `timeoutMs` for a connection.
  AcceptResult Accept(int timeoutMs, WireSocket* out);
  void Close();

 private:
  intptr_t handle_ = WireSocket::kInvalid;
  uint16_t port_ = 0;
};

}  // namespace nivra::p11wire
