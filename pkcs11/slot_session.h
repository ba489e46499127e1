// The shared session of a slot and the token facts read through it. One read/write session per
// slot serves every provider context bound to the slot; it opens when the token is seen and
// closes when the token is removed, so the token's login state belongs to the slot.
#pragma once
#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {

// Makes sure the slot's session is open: a stored session that still answers C_GetSessionInfo is
// kept; one that answers CKR_SESSION_HANDLE_INVALID is forgotten and replaced; any other failure
// forgets it and is returned mapped. A new session is opened read/write. Remote records: 0.
Status EnsureSlotSession(P11Slot& slot);

// Closes the slot's session when one is open and forgets it.
void CloseSlotSession(P11Slot& slot);

// Reads the token's 16-byte serial number into the record unless one is known already (any
// non-zero byte). Remote records: 0.
Status ReadTokenSerial(P11Slot& slot);

// Drops one provider context's use of the slot (atomically); a remote record's last user closes
// its service connection.
void ReleaseSlotUser(P11Slot& slot);

}  // namespace nivra::pkcs11
