#include "tools/p11wire/wire_socket.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include "tools/p11wire/wire_buffer.h"

namespace nivra::p11wire {
namespace {

#if defined(_WIN32)
using NativeSocket = SOCKET;
constexpr int kSendFlags = 0;
void CloseNative(NativeSocket s) { closesocket(s); }
constexpr int kShutdownBoth = SD_BOTH;
constexpr int kPeekFlags = MSG_PEEK;
bool WouldBlock() { return WSAGetLastError() == WSAEWOULDBLOCK; }
// Windows Sockets must be started once per process before the first socket call.
void StartSockets() {
  static std::once_flag once;
  std::call_once(once, [] {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
  });
}
#else
using NativeSocket = int;
// A peer that went away must give an error, not a SIGPIPE that ends the helper.
constexpr int kSendFlags = MSG_NOSIGNAL;
void CloseNative(NativeSocket s) { close(s); }
constexpr int kShutdownBoth = SHUT_RDWR;
// The helper looks at a connection that another thread reads: a look must never wait for data
// that thread took in the meantime.
constexpr int kPeekFlags = MSG_PEEK | MSG_DONTWAIT;
bool WouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK; }
void StartSockets() {}
#endif

NativeSocket ToNative(intptr_t h) { return static_cast<NativeSocket>(h); }

bool ToSockaddr(const WireAddress& address, sockaddr_in* out) {
  std::memset(out, 0, sizeof *out);
  out->sin_family = AF_INET;
  out->sin_port = htons(address.port);
  std::string host = address.host == "localhost" ? "127.0.0.1" : address.host;
  return inet_pton(AF_INET, host.c_str(), &out->sin_addr) == 1;
}

// Waits until `s` is readable or `timeoutMs` passes (0 polls). 1 readable, 0 timeout, -1 error.
int WaitReadable(NativeSocket s, int timeoutMs) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(s, &set);
  timeval tv;
  tv.tv_sec = timeoutMs / 1000;
  tv.tv_usec = (timeoutMs % 1000) * 1000;
  int n = select(static_cast<int>(s) + 1, &set, nullptr, nullptr, &tv);
  return n < 0 ? -1 : (n > 0 ? 1 : 0);
}

}  // namespace

bool ParseWireAddress(const std::string& text, WireAddress* out) {
  size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
  std::string host = text.substr(0, colon);
  std::string port = text.substr(colon + 1);
  if (port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos) return false;
  unsigned long value = std::strtoul(port.c_str(), nullptr, 10);
  if (value > 65535) return false;
  WireAddress parsed{host, static_cast<uint16_t>(value)};
  sockaddr_in check;
  if (!ToSockaddr(parsed, &check)) return false;
  *out = parsed;
  return true;
}

std::string FormatWireAddress(const WireAddress& address) {
  return address.host + ":" + std::to_string(address.port);
}

WireSocket::~WireSocket() { Close(); }

WireSocket::WireSocket(WireSocket&& other) noexcept : handle_(other.handle_) {
  other.handle_ = kInvalid;
}

WireSocket& WireSocket::operator=(WireSocket&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = other.handle_;
    other.handle_ = kInvalid;
  }
  return *this;
}

bool WireSocket::Connect(const WireAddress& address, WireSocket* out) {
  StartSockets();
  sockaddr_in sa;
  if (!ToSockaddr(address, &sa)) return false;
  NativeSocket s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (s == ToNative(kInvalid)) return false;
  if (connect(s, reinterpret_cast<const sockaddr*>(&sa), sizeof sa) != 0) {
    CloseNative(s);
    return false;
  }
  // Every exchange is one small request answered by one small reply: do not wait to coalesce.
  int one = 1;
  setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&one), sizeof one);
  *out = WireSocket(static_cast<intptr_t>(s));
  return true;
}

bool WireSocket::SendRaw(const uint8_t* data, size_t size) {
  if (!valid()) return false;
  while (size > 0) {
    int chunk = size > (1u << 30) ? (1 << 30) : static_cast<int>(size);
    int n = send(ToNative(handle_), reinterpret_cast<const char*>(data), chunk, kSendFlags);
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool WireSocket::SendFrame(uint16_t op, bool reply, const std::vector<uint8_t>& body) {
  if (body.size() > kWireMaxBody) return false;
  std::vector<uint8_t> frame = EncodeFrame(op, reply, body);
  return SendRaw(frame.data(), frame.size());
}

bool WireSocket::ReceiveAll(uint8_t* data, size_t size) {
  while (size > 0) {
    int chunk = size > (1u << 30) ? (1 << 30) : static_cast<int>(size);
    int n = recv(ToNative(handle_), reinterpret_cast<char*>(data), chunk, 0);
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool WireSocket::ReceiveFrame(WireFrameHeader* header, std::vector<uint8_t>* body) {
  if (!valid()) return false;
  uint8_t raw[kWireHeaderSize];
  if (!ReceiveAll(raw, sizeof raw)) return false;
  if (DecodeFrameHeader(raw, header) != WireHeaderStatus::kOk) return false;
  body->resize(header->bodyLength);
  return header->bodyLength == 0 || ReceiveAll(body->data(), body->size());
}

bool WireSocket::PeerClosed() {
  if (!valid()) return true;
  int ready = WaitReadable(ToNative(handle_), 0);
  if (ready < 0) return true;
  if (ready == 0) return false;
  char probe;
  int received = recv(ToNative(handle_), &probe, 1, kPeekFlags);
  if (received < 0 && WouldBlock()) return false;
  return received <= 0;
}

void WireSocket::Shutdown() {
  if (valid()) shutdown(ToNative(handle_), kShutdownBoth);
}

void WireSocket::Close() {
  if (valid()) CloseNative(ToNative(handle_));
  handle_ = kInvalid;
}

WireListener::~WireListener() { Close(); }

bool WireListener::Listen(const WireAddress& address) {
  StartSockets();
  Close();
  sockaddr_in sa;
  if (!ToSockaddr(address, &sa)) return false;
  NativeSocket s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (s == ToNative(WireSocket::kInvalid)) return false;
#if !defined(_WIN32)
  // A helper restarted on its fixed port must not wait for the old connections' TIME_WAIT.
  int one = 1;
  setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
#endif
  socklen_t len = sizeof sa;
  if (bind(s, reinterpret_cast<const sockaddr*>(&sa), sizeof sa) != 0 || listen(s, 16) != 0 ||
      getsockname(s, reinterpret_cast<sockaddr*>(&sa), &len) != 0) {
    CloseNative(s);
    return false;
  }
  handle_ = static_cast<intptr_t>(s);
  port_ = ntohs(sa.sin_port);
  return true;
}

WireListener::AcceptResult WireListener::Accept(int timeoutMs, WireSocket* out) {
  if (handle_ == WireSocket::kInvalid) return AcceptResult::kFailed;
  int ready = WaitReadable(ToNative(handle_), timeoutMs);
  if (ready < 0) return AcceptResult::kFailed;
  if (ready == 0) return AcceptResult::kTimeout;
  NativeSocket s = accept(ToNative(handle_), nullptr, nullptr);
  if (s == ToNative(WireSocket::kInvalid)) return AcceptResult::kFailed;
  int one = 1;
  setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&one), sizeof one);
  *out = WireSocket(static_cast<intptr_t>(s));
  return AcceptResult::kAccepted;
}

void WireListener::Close() {
  if (handle_ != WireSocket::kInvalid) CloseNative(ToNative(handle_));
  handle_ = WireSocket::kInvalid;
  port_ = 0;
}

}  // namespace nivra::p11wire
