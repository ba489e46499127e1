// The process-wide table of token slots. The module's slots are recorded in ModuleSlots() in the
// order of the module's slot list; a record keeps its index for the life of the process, and the
// count follows the module's latest slot count (records beyond it are ignored, not cleared). The
// local card service fills a second table of the same records (remote_slots.h), which replaces
// the module's wherever a table is walked while that service is active.
//
// Readers and writers of a table's count and records hold the slot-table mutex
// "MUTEX_NIVRA_CSP_G_Var_ArrP11Slot_" (SlotTableMutex()). A record's user count changes only
// atomically.
#pragma once
#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "pkcs11/cryptoki.h"
#include "pkcs11/p11_status.h"
#include "platform/named_mutex.h"
#include "provider/card_backend.h"

namespace nivra::pkcs11 {

constexpr size_t kMaxSlots = 256;
constexpr size_t kSlotNameChars = 64;  // a slot description is 64 blank-padded bytes
constexpr size_t kSerialBytes = 16;

// The service connection of a slot that the local card service publishes; defined by the
// service transport, opaque here.
struct RemoteSlotLink;

struct P11Slot {
  uint32_t slotId;        // the module's CK_SLOT_ID
  uint32_t tokenPresent;  // 1 or 0
  char name[kSlotNameChars + 1];  // description without its trailing blanks, NUL-terminated
  uint8_t serial[kSerialBytes];   // token serial number; all zero: not read yet
  uint32_t session;               // the slot's shared read/write session; 0: none
  volatile LONG userCount;        // provider contexts bound to the slot
  uint32_t remote;                // non-zero: published by the local card service
  RemoteSlotLink* link;           // used only by the service transport
  HANDLE linkMutex;               // used only by the service transport
};

struct SlotTable {
  P11Slot records[kMaxSlots];
  uint32_t count;
};

// The module's slots.
SlotTable& ModuleSlots();
// The table that callers walk: the service's while the local card service is active, else the
// module's.
SlotTable& ActiveSlotTable();

// The slot-table mutex, created by the back end's initialisation; null before (holders, through
// platform::NamedMutexLock, then run without it).
HANDLE SlotTableMutex();
// Creates the slot-table mutex when it does not exist yet. Returns it (null when it could not be
// made).
HANDLE CreateSlotTableMutex();

// Brings the table up to the module's slot list (caller holds the slot-table mutex). Records from
// the current count up to the new count (clipped to kMaxSlots) are read afresh: slot ID, token
// presence (a present token gets its session opened), name. Records below the old count are not
// re-read. A failing C_GetSlotInfo stops the refresh with its mapped error and leaves the count as
// it was. While the local card service is active its table is refreshed instead.
Status RefreshSlotList();

// Re-reads one slot's token presence. A removed token closes the slot's session and forgets its
// serial; an inserted one reads the serial and opens the session (their failures do not change
// the presence). *presentOut (optional) receives the new presence.
Status RefreshSlotToken(P11Slot& slot, uint32_t* presentOut);

// Refreshes the active table (under the slot-table mutex) and returns its first record whose
// name equals `name` exactly; a name longer than 64 characters is compared by its last 64. Null
// when there is none.
P11Slot* FindSlotByName(const char* name);

// A slot description (64 blank-padded bytes) as a record name: trailing blanks cut, NUL-terminated.
void CopySlotName(char (&name)[kSlotNameChars + 1], const CK_UTF8CHAR (&description)[64]);

}  // namespace nivra::pkcs11
