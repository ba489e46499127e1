// The encrypted channel of one published slot and the exchange of one card command over it. The
// channel connects on its first request, runs the handshake, and stays open until a transport
// failure, the service going away, or the slot's last user closes it.
#pragma once
#include <cstddef>
#include <cstdint>

#include "provider/status_codes.h"
#include "service/frames/frame_header.h"
#include "service/remote_slot_table.h"
#include "service/request_buffers.h"

namespace nivra::service {

// Makes sure the record has a live, encrypted channel: a kept channel that passes the liveness
// check is used as it is; otherwise it connects and runs the handshake (errors of the connect,
// the handshake and its frames are returned; a failure closes the channel). Creates the record's
// channel mutex "SlotSocketMutex_<socket>" on the first connection. NTE_FAIL for no record.
// The caller holds the link's `use` lock.
Status SlotChannelOpen(P11Slot* record);

// Closes the record's socket, ends its session and frees its cipher. The caller holds the link's
// `use` lock (or knows no other thread can reach the record).
void SlotChannelClose(P11Slot& record);

// Sends one card command frame (request[0..requestLen)) to the record's slot inside a slot frame
// and returns its plain answer in *response (kept in list). The answer's command must be the
// request's with the response bit, else NTE_BAD_DATA; its status is the card command's result,
// for the caller to check. A transport failure closes the channel and gives SCARD_E_TIMEOUT
// for a time-out, ERROR_DEVICE_NOT_CONNECTED otherwise; the request is not repeated (the next
// one reconnects). Key generation waits longer than other commands.
Status SlotTransact(P11Slot& record, const uint8_t* request, size_t requestLen,
                    frames::FrameView* response, RequestBuffers& list);

}  // namespace nivra::service
