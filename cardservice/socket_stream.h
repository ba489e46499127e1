// Loopback TCP for the service: a listener and the connected streams it accepts. Every wait is
// cut into short polls so that a stop request is noticed at once, and no stream ever waits on
// another.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace nivra::cardservice {

// True for a dotted IPv4 address in the loopback network 127.0.0.0/8.
bool IsLoopbackAddress(const std::string& text);

// "host:port" with a dotted IPv4 host (or "localhost") and a port of 0 to 65535.
bool ParseListenAddress(const std::string& text, std::string* host, uint16_t* port);

// A connected stream; closes its descriptor when it goes away.
class Stream {
 public:
  explicit Stream(int fd) : fd_(fd) {}
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  enum class ReadResult { kOk, kClosed, kTimedOut, kStopped, kFailed };
  // Reads exactly `length` bytes. `idle`: waiting for the first byte has no time limit (a client
  // may keep its connection between requests); otherwise, and once the first byte came, the
  // whole read must end within `timeoutMs`. *got = bytes read before a failure.
  ReadResult ReadExact(uint8_t* data, size_t length, bool idle, int timeoutMs,
                       const std::atomic<bool>& stop, size_t* got);
  // Writes every byte; false when the peer is gone or does not read for `timeoutMs`.
  bool WriteAll(const uint8_t* data, size_t length, int timeoutMs, const std::atomic<bool>& stop);
  // Ends both directions (a blocked peer sees the close).
  void Shutdown();
  int fd() const { return fd_; }

 private:
  int fd_;
};

class Listener {
 public:
  Listener() = default;
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Binds and listens; port 0 takes a free port. False with a message.
  bool Listen(const std::string& host, uint16_t port, std::string* error);
  uint16_t port() const { return port_; }
  int fd() const { return fd_; }
  // Waits up to `timeoutMs` for a connection: its descriptor, or -1.
  int Accept(int timeoutMs, std::string* peer);

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

}  // namespace nivra::cardservice
