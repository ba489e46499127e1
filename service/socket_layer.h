// The socket layer under every card service transport: connect with a time-out, a liveness
// probe, exact-length send and receive, and the reading of one framed message. Sockets are
// always non-blocking; every operation answers a Winsock error number (0 on success). Time-outs
// are in milliseconds.
#pragma once
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstddef>
#include <cstdint>

#include "service/request_buffers.h"

namespace nivra::service {

using SockStatus = uint32_t;

constexpr int kDefaultWaitMs = 60000;  // what a time-out below 1 means while waiting
constexpr size_t kMessageSlack = 2;    // zero bytes after a received body

enum class SockDirection { kRead, kWrite };

// True for the two values that mean "no connection": 0 and INVALID_SOCKET.
inline bool NoSocket(SOCKET s) { return s == 0 || s == INVALID_SOCKET; }

// Waits until the socket is ready in `direction` or has an error (select with the socket also in
// the exception set). WSAETIMEDOUT on time-out; the socket's SO_ERROR when it is in the exception
// set; WSAGetLastError() when select fails. A time-out below 1 waits 60000 ms.
SockStatus SockWaitReady(SOCKET s, SockDirection direction, int timeoutMs);

// Whether a kept connection is still usable: 0 when nothing is waiting to be read. Stray bytes
// on an idle connection are read one at a time and thrown away, so that a late reply to an
// abandoned request is never taken for the next reply. WSAECONNRESET when the peer closed it.
SockStatus SockCheckAlive(SOCKET s);

// Fills an IPv4 endpoint for the host (dotted address, else the first IPv4/IPv6 result of the
// resolver; starts Winsock once when it is not started). WSAHOST_NOT_FOUND when nothing fits.
SockStatus SockResolve(const wchar_t* host, sockaddr_in* endpoint);

// Connects to host:port within timeoutMs; *out receives a connected non-blocking socket, or
// INVALID_SOCKET on any failure (the socket is closed then). Starts Winsock on first use.
SockStatus SockConnect(SOCKET* out, const wchar_t* host, uint16_t port, int timeoutMs);

// Sends buffer[0..len) whole, waiting for the socket before each send (a time-out below 1 waits
// 60000 ms). WSAENOTSOCK for no socket; len 0 succeeds at once.
SockStatus SockSendExact(const void* buffer, size_t len, SOCKET s, int timeoutMs);

// Receives exactly len bytes. Waits before each recv only when timeoutMs is above 0 (otherwise
// recv is called directly). WSAECONNRESET when the peer closes; WSAENOTSOCK for no socket.
SockStatus SockRecvExact(void* buffer, size_t len, SOCKET s, int timeoutMs);

// Receives one frame: a zero-filled block of body length + 10 bytes holding the header, the body
// and two zero bytes; *length (optional) = body length + 8. The block goes to list when one is
// given (the caller then never frees it), else to the caller (FreeZeroed(block, *length + 2)).
// NTE_NO_MEMORY when the block cannot be allocated. On failure *out is null and nothing is kept.
SockStatus SockRecvMessage(uint8_t** out, size_t* length, SOCKET s, RequestBuffers* list,
                           int timeoutMs);

// Shuts the socket down both ways, closes it and stores INVALID_SOCKET.
void SockClose(SOCKET* s);

}  // namespace nivra::service
