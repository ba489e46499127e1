#pragma once
// What the helper remembers between calls: the clients (processes) that talk to it, their
// sessions, and the conditions injected by tests. Guarded by the dispatcher's mutex.
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_messages.h"
#include "tools/p11wire/wire_ops.h"

namespace nivra::p11helper {

// One process on the other side of the link (all connections with one client id).
struct ClientState {
  int connections = 0;
  bool initialised = false;
  // Changes with every C_Finalize, so a blocked slot-event wait can tell that it must end even
  // when C_Initialize follows at once.
  uint64_t generation = 0;
  std::map<CK_SESSION_HANDLE, CK_SLOT_ID> sessions;
  // Sessions whose token was removed: closed in the module, answered with CKR_DEVICE_REMOVED
  // until the caller closes them or the token comes back.
  std::map<CK_SESSION_HANDLE, CK_SLOT_ID> removedSessions;
  // Slots with an event not yet collected by C_WaitForSlotEvent, oldest first, each at most once.
  std::deque<CK_SLOT_ID> pendingEvents;
};

// A slot that exists only in the helper: it never holds a token.
struct FakeSlot {
  CK_SLOT_ID id = 0;
  bool blankDescription = false;
};

// First identifier given to fake slots; module slots are expected elsewhere.
inline constexpr CK_SLOT_ID kFirstFakeSlotId = 0xFA000000ul;
// Most fake slots the helper will add in total.
inline constexpr size_t kMaxFakeSlots = 4096;

struct ForcedInitialize {
  uint32_t rv = CKR_OK;
  bool leaveUninitialised = false;  // the call reports `rv` without initialising the client
};

struct HelperState {
  std::map<uint64_t, ClientState> clients;
  std::vector<FakeSlot> fakeSlots;
  std::set<CK_SLOT_ID> removedTokens;
  std::optional<ForcedInitialize> forcedInitialize;
  // On: C_Initialize with CKF_OS_LOCKING_OK and no mutex functions answers CKR_CANT_LOCK.
  bool cantLock = false;
  // Every C_Initialize argument received since the start or the last reset, oldest first.
  std::vector<p11wire::InitializeRequest> initializeArguments;
  // Off: C_WaitForSlotEvent goes to the module (SoftHSM2 answers CKR_FUNCTION_NOT_SUPPORTED).
  // On: it waits for injected events.
  bool slotEvents = false;
  // On: objects of vendor-defined classes, which the module refuses, are kept as marked data
  // objects and shown with their class (vendor_class.h). Off: the module answers them itself.
  bool vendorClass = false;
  // When set: creating an object of a vendor-defined class answers this value (as tokens that
  // refuse such classes do, each with its own code).
  std::optional<uint32_t> vendorClassRefusal;
  // On: a user login answers CKR_PIN_LOCKED without reaching the module, as a token whose PIN
  // retry counter has run out (SoftHSM2 never blocks a PIN).
  bool userPinLocked = false;
  // Searches that must leave stored vendor objects out (a search for CKO_DATA), by session.
  std::set<CK_SESSION_HANDLE> dataOnlySearches;
  std::array<uint64_t, p11wire::kWireLastCallOp - p11wire::kWireFirstCallOp + 1> callCounts = {};
  bool stopping = false;
};

}  // namespace nivra::p11helper
