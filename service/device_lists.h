// The Bluetooth device list (0x4101) and the service card list (0x4001), each asked for on a
// connection of its own to the card service that is closed after the answer.
#pragma once
#include <vector>

#include "provider/status_codes.h"
#include "service/frames/device_records.h"

namespace nivra::service {

using provider::Status;

// Sends request on a connection of its own and returns the whole answer frame in *answer. A
// failed connect gives its Winsock error and sets *connectFailed; other transport failures give
// theirs.
Status OneRequest(const frames::Bytes& request, int connectTimeoutMs, frames::Bytes* answer,
                  bool* connectFailed);

// connectTimeoutMs: the usual connect time-out, or the short presence test of a look-up by name.
// A failed connect gives its Winsock error (*connectFailed set), other transport failures theirs;
// an answer of another command NTE_BAD_DATA; the answer's non-zero status as it stands; a body
// that cannot hold its records NTE_BAD_LEN; a name without its NUL NTE_BAD_DATA.
Status FetchDeviceList(int connectTimeoutMs, std::vector<frames::DeviceRecord>* devices,
                       bool* connectFailed);
Status FetchCardList(int connectTimeoutMs, std::vector<frames::CardRecord>* cards,
                     bool* connectFailed);

}  // namespace nivra::service
