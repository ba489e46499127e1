// The slots that the local card service publishes: a second slot table of the token-slot back
// end, filled from the control connection's slot list (0x7001) and one-slot answers (0x7002).
// Records carry the remote flag; their channel (socket, session, cipher) hangs off `link`.
#pragma once
#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <mutex>

#include "crypto/cipher.h"
#include "pkcs11/slot_table.h"
#include "service/service_link.h"

namespace nivra::pkcs11 {

// The channel of one published slot. One exists per table position for the life of the process,
// so a record's link stays valid memory even while the record is cleared and refilled.
struct RemoteSlotLink {
  std::mutex use;                   // serialises this process's use of the channel
  SOCKET socket = INVALID_SOCKET;
  uint32_t sessionState = 0;
  crypto::CipherHandle cipher = 0;
};

}  // namespace nivra::pkcs11

namespace nivra::service {

using pkcs11::P11Slot;
using pkcs11::RemoteSlotLink;
using pkcs11::SlotTable;
using provider::Status;

SlotTable& RemoteTable();
// The link of a table record (attached on first use).
RemoteSlotLink& LinkOf(P11Slot& record);

// Refreshes the table from the slot list: NTE_BAD_DATA for an answer that is not 0xF001, the
// answer's non-zero status, NTE_BAD_LEN for a body that is not count x 92 + 2 bytes; transport
// errors as they are (the control connection is then closed, and a failed connect marks the
// service down). A count above 256 keeps the first 256 records.
Status ServiceRefreshSlots();

// Re-reads one record's token presence and serial (0x7002): NTE_BAD_DATA for an answer that is
// not 0xF002, its non-zero status, NTE_BAD_LEN unless the body is one record. *presentOut
// (optional) receives the presence.
Status ServiceRefreshSlot(P11Slot& record, uint32_t* presentOut);

// Refreshes the table and returns the first record named exactly `name` (a name longer than 64
// characters is compared by its last 64), or null.
P11Slot* ServiceFindSlot(const char* name);


}  // namespace nivra::service
