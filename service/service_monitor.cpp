#include "service/service_monitor.h"

#include <winsock2.h>
#include <ws2tcpip.h>

namespace nivra::service {

namespace {
constexpr long kConnectTimeoutMs = 1000;

bool WinsockReady() {
  static const bool ready = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  return ready;
}
}  // namespace

bool ServiceProbe() {
  if (!WinsockReady()) return false;
  SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (s == INVALID_SOCKET) return false;
  u_long nonBlocking = 1;
  ioctlsocket(s, FIONBIO, &nonBlocking);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(kServicePort);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bool up = false;
  if (connect(s, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) {
    up = true;
  } else if (WSAGetLastError() == WSAEWOULDBLOCK) {
    fd_set writable, failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(s, &writable);
    FD_SET(s, &failed);
    timeval timeout{0, kConnectTimeoutMs * 1000};
    up = select(0, nullptr, &writable, &failed, &timeout) > 0 && FD_ISSET(s, &writable) &&
         !FD_ISSET(s, &failed);
  }
  closesocket(s);
  return up;
}

void ServiceClearSlots() {
  // No slots are published by the service yet: nothing to forget.
}

}  // namespace nivra::service
