#include "service/socket_layer.h"

#include <cstring>

#include "provider/status_codes.h"
#include "service/frames/frame_header.h"

namespace nivra::service {

namespace {

constexpr WORD kWinsockVersion = MAKEWORD(2, 2);
constexpr int kMsPerSecond = 1000;
constexpr int kUsPerMs = 1000;

SockStatus LastError() { return static_cast<SockStatus>(WSAGetLastError()); }

SockStatus PendingError(SOCKET s) {
  int error = -1;
  int size = sizeof(error);
  getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
  return static_cast<SockStatus>(error);
}

bool StartWinsock() {
  WSADATA data;
  return WSAStartup(kWinsockVersion, &data) == 0;
}

// Receives into buffer[0..len); `waitFirst` decides whether each recv is preceded by a wait.
// A failure whose error number is 0 counts as the end of the data when zeroErrorEnds is set.
SockStatus ReceiveLoop(uint8_t* buffer, size_t len, SOCKET s, int timeoutMs, bool zeroErrorEnds) {
  size_t done = 0;
  while (done < len) {
    if (timeoutMs > 0) {
      SockStatus status = SockWaitReady(s, SockDirection::kRead, timeoutMs);
      if (status != 0) return status;
    }
    const int got = recv(s, reinterpret_cast<char*>(buffer + done), static_cast<int>(len - done), 0);
    if (got == 0) return WSAECONNRESET;
    if (got == SOCKET_ERROR) {
      const SockStatus error = LastError();
      if (error == 0 && zeroErrorEnds) return 0;
      return error;
    }
    done += static_cast<size_t>(got);
  }
  return 0;
}

}  // namespace

SockStatus SockWaitReady(SOCKET s, SockDirection direction, int timeoutMs) {
  if (timeoutMs < 1) timeoutMs = kDefaultWaitMs;
  fd_set ready, failed;
  FD_ZERO(&ready);
  FD_ZERO(&failed);
  FD_SET(s, &ready);
  FD_SET(s, &failed);
  timeval timeout{timeoutMs / kMsPerSecond, (timeoutMs % kMsPerSecond) * kUsPerMs};
  const int count = direction == SockDirection::kRead
                        ? select(0, &ready, nullptr, &failed, &timeout)
                        : select(0, nullptr, &ready, &failed, &timeout);
  if (count == 0) return WSAETIMEDOUT;
  if (count == SOCKET_ERROR) return LastError();
  if (FD_ISSET(s, &failed)) return PendingError(s);
  return 0;
}

SockStatus SockCheckAlive(SOCKET s) {
  for (;;) {
    fd_set readable, failed;
    FD_ZERO(&readable);
    FD_ZERO(&failed);
    FD_SET(s, &readable);
    FD_SET(s, &failed);
    timeval poll{0, 0};
    const int count = select(0, &readable, nullptr, &failed, &poll);
    if (count == SOCKET_ERROR) return LastError();
    if (FD_ISSET(s, &failed)) return PendingError(s);
    if (!FD_ISSET(s, &readable)) return 0;
    char stray = 0;
    const int got = recv(s, &stray, 1, 0);
    if (got == 0) return WSAECONNRESET;
    if (got == SOCKET_ERROR) return LastError();
  }
}

SockStatus SockResolve(const wchar_t* host, sockaddr_in* endpoint) {
  std::memset(endpoint, 0, sizeof(*endpoint));
  endpoint->sin_family = AF_INET;
  if (InetPtonW(AF_INET, host, &endpoint->sin_addr) == 1) return 0;
  ADDRINFOW hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  ADDRINFOW* results = nullptr;
  int rc = GetAddrInfoW(host, nullptr, &hints, &results);
  if (rc == WSANOTINITIALISED) {
    if (!StartWinsock()) return LastError();
    rc = GetAddrInfoW(host, nullptr, &hints, &results);
  }
  if (rc != 0) return static_cast<SockStatus>(rc);
  SockStatus status = WSAHOST_NOT_FOUND;
  for (ADDRINFOW* r = results; r != nullptr; r = r->ai_next) {
    if (r->ai_family == AF_INET || r->ai_family == AF_INET6) {
      // Only the first 16 bytes are kept; the socket is always IPv4.
      std::memcpy(endpoint, r->ai_addr, sizeof(*endpoint));
      status = 0;
      break;
    }
  }
  FreeAddrInfoW(results);
  return status;
}

SockStatus SockConnect(SOCKET* out, const wchar_t* host, uint16_t port, int timeoutMs) {
  *out = INVALID_SOCKET;
  sockaddr_in endpoint;
  SockStatus status = SockResolve(host, &endpoint);
  if (status != 0) return status;
  endpoint.sin_port = htons(port);
  SOCKET s = socket(AF_INET, SOCK_STREAM, 0);
  if (s == INVALID_SOCKET) {
    if (WSAGetLastError() != WSANOTINITIALISED || !StartWinsock()) return LastError();
    s = socket(AF_INET, SOCK_STREAM, 0);
    if (s == INVALID_SOCKET) return LastError();
  }
  u_long nonBlocking = 1;
  ioctlsocket(s, FIONBIO, &nonBlocking);
  if (connect(s, reinterpret_cast<sockaddr*>(&endpoint), sizeof(endpoint)) == SOCKET_ERROR) {
    status = LastError();
    if (status != WSAEWOULDBLOCK) {
      closesocket(s);
      return status;
    }
  }
  status = SockWaitReady(s, SockDirection::kWrite, timeoutMs);
  if (status != 0) {
    closesocket(s);
    return status;
  }
  *out = s;
  return 0;
}

SockStatus SockSendExact(const void* buffer, size_t len, SOCKET s, int timeoutMs) {
  if (NoSocket(s)) return WSAENOTSOCK;
  const char* bytes = static_cast<const char*>(buffer);
  size_t done = 0;
  while (done < len) {
    SockStatus status = SockWaitReady(s, SockDirection::kWrite, timeoutMs);
    if (status != 0) return status;
    const int sent = send(s, bytes + done, static_cast<int>(len - done), 0);
    if (sent == SOCKET_ERROR) return LastError();
    done += static_cast<size_t>(sent);
  }
  return 0;
}

SockStatus SockRecvExact(void* buffer, size_t len, SOCKET s, int timeoutMs) {
  if (NoSocket(s)) return WSAENOTSOCK;
  return ReceiveLoop(static_cast<uint8_t*>(buffer), len, s, timeoutMs, false);
}

SockStatus SockRecvMessage(uint8_t** out, size_t* length, SOCKET s, RequestBuffers* list,
                           int timeoutMs) {
  *out = nullptr;
  if (length != nullptr) *length = 0;
  if (NoSocket(s)) return WSAENOTSOCK;
  uint8_t header[frames::kHeaderSize] = {};
  SockStatus status = ReceiveLoop(header, sizeof(header), s, timeoutMs, true);
  if (status != 0) return status;
  const size_t bodyLength = frames::ReadHeader(header).bodyLength;
  const size_t blockSize = frames::kHeaderSize + bodyLength + kMessageSlack;
  uint8_t* block = AllocZeroed(blockSize);
  if (block == nullptr) return provider::kNteNoMemory;
  if (list != nullptr) list->Add(block, blockSize);
  std::memcpy(block, header, sizeof(header));
  status = SockRecvExact(block + frames::kHeaderSize, bodyLength, s, timeoutMs);
  if (status != 0) {
    BufferListRemove(list, block);
    FreeZeroed(block, blockSize);
    return status;
  }
  *out = block;
  if (length != nullptr) *length = frames::kHeaderSize + bodyLength;
  return 0;
}

void SockClose(SOCKET* s) {
  if (!NoSocket(*s)) {
    shutdown(*s, SD_BOTH);
    closesocket(*s);
  }
  *s = INVALID_SOCKET;
}

}  // namespace nivra::service
