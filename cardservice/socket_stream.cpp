#include "cardservice/socket_stream.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <algorithm>
#include <cstring>

namespace nivra::cardservice {

namespace {

// How often a waiting stream looks at the stop flag.
constexpr int kPollStepMs = 100;
constexpr int kListenBacklog = 64;

using Clock = std::chrono::steady_clock;

int MillisecondsLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

bool IsLoopbackAddress(const std::string& text) {
  constexpr uint32_t kLoopbackNetwork = 127;
  constexpr int kNetworkShift = 24;
  in_addr parsed;
  return inet_pton(AF_INET, text.c_str(), &parsed) == 1 &&
         (ntohl(parsed.s_addr) >> kNetworkShift) == kLoopbackNetwork;
}

bool ParseListenAddress(const std::string& text, std::string* host, uint16_t* port) {
  size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) return false;
  std::string name = text.substr(0, colon), digits = text.substr(colon + 1);
  if (name == "localhost") name = "127.0.0.1";
  in_addr address;
  if (inet_pton(AF_INET, name.c_str(), &address) != 1) return false;
  if (digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  unsigned long value = std::stoul(digits);
  if (value > 65535) return false;
  *host = name;
  *port = static_cast<uint16_t>(value);
  return true;
}

Stream::~Stream() {
  if (fd_ >= 0) close(fd_);
}

void Stream::Shutdown() { shutdown(fd_, SHUT_RDWR); }

Stream::ReadResult Stream::ReadExact(uint8_t* data, size_t length, bool idle, int timeoutMs,
                                     const std::atomic<bool>& stop, size_t* got) {
  *got = 0;
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (*got < length) {
    bool waitingForever = idle && *got == 0;
    if (stop) return ReadResult::kStopped;
    if (!waitingForever && MillisecondsLeft(deadline) == 0) return ReadResult::kTimedOut;
    pollfd entry = {fd_, POLLIN, 0};
    int step = waitingForever ? kPollStepMs : std::min(kPollStepMs, MillisecondsLeft(deadline));
    int ready = poll(&entry, 1, step);
    if (ready < 0 && errno != EINTR) return ReadResult::kFailed;
    if (ready <= 0) continue;
    ssize_t n = recv(fd_, data + *got, length - *got, 0);
    if (n == 0) return ReadResult::kClosed;
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return errno == ECONNRESET ? ReadResult::kClosed : ReadResult::kFailed;
    }
    if (*got == 0 && idle) deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    *got += static_cast<size_t>(n);
  }
  return ReadResult::kOk;
}

bool Stream::WriteAll(const uint8_t* data, size_t length, int timeoutMs,
                      const std::atomic<bool>& stop) {
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  size_t sent = 0;
  while (sent < length) {
    if (stop || MillisecondsLeft(deadline) == 0) return false;
    pollfd entry = {fd_, POLLOUT, 0};
    int ready = poll(&entry, 1, std::min(kPollStepMs, MillisecondsLeft(deadline)));
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    ssize_t n = send(fd_, data + sent, length - sent, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return false;
    }
    sent += static_cast<size_t>(n);
  }
  return true;
}

Listener::~Listener() {
  if (fd_ >= 0) close(fd_);
}

bool Listener::Listen(const std::string& host, uint16_t port, std::string* error) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) {
    *error = std::string("socket: ") + std::strerror(errno);
    return false;
  }
  int on = 1;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(fd_, kListenBacklog) != 0) {
    *error = "cannot listen on " + host + ":" + std::to_string(port) + ": " + std::strerror(errno);
    return false;
  }
  socklen_t size = sizeof address;
  getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  return true;
}

int Listener::Accept(int timeoutMs, std::string* peer) {
  pollfd entry = {fd_, POLLIN, 0};
  if (poll(&entry, 1, timeoutMs) <= 0) return -1;
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  int fd = accept4(fd_, reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC);
  if (fd < 0) return -1;
  int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  char text[INET_ADDRSTRLEN] = "?";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  *peer = std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
  return fd;
}

}  // namespace nivra::cardservice
