// One encrypted connection to the card service: its socket, session state and session cipher.
// Published slots and Bluetooth devices both keep one per record; they differ only in the outer
// frame that carries a card command and in the mutex that serialises the connection.
#pragma once
#include <winsock2.h>

#include <cstddef>
#include <cstdint>

#include "crypto/cipher.h"
#include "provider/status_codes.h"
#include "service/frames/frame_header.h"
#include "service/request_buffers.h"

namespace nivra::service {

using provider::Status;

// Views the three fields of a record's channel; the record owns them.
struct ChannelFields {
  SOCKET* socket;
  uint32_t* sessionState;
  crypto::CipherHandle* cipher;
};

// Closes the socket, ends the session and frees the cipher.
void ChannelClose(ChannelFields channel);

// A kept connection that passes the liveness check is used as it is; otherwise the channel
// connects to the service (its connect error is returned) and runs the handshake (its error is
// returned and the channel closed).
Status ChannelOpen(ChannelFields channel);

// Sends the outer frame wrapped under the session, receives and unwraps the answer into
// *response (kept in list). The answer's command must be `command` with the response bit, else
// NTE_BAD_DATA. A transport failure closes the channel: SCARD_E_TIMEOUT for a time-out,
// ERROR_DEVICE_NOT_CONNECTED otherwise. The caller holds the channel's mutex.
Status ChannelExchange(ChannelFields channel, const frames::Bytes& outer, uint16_t command,
                       int timeoutMs, frames::FrameView* response, RequestBuffers& list);

// The wait for an answer to command: key generation takes longer than the rest.
int AnswerTimeout(uint16_t command);

}  // namespace nivra::service
