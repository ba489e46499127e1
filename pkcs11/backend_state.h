// Process-wide state of the token-slot back end and its start-up.
//
// The back end moves from unloaded to module loaded (LoadPkcs11Module), to initialised with a
// running slot monitor (InitPkcs11Backend), and back to not initialised only when the first slot
// refresh fails. The flags are written by one thread at a time: the module start-up of an
// acquire (under the module mutex) and the slot monitor thread.
#pragma once
#include <atomic>
#include <cstddef>

#include "pkcs11/p11_status.h"

namespace nivra::pkcs11 {

constexpr size_t kLastSlotNameChars = 260;

struct BackendState {
  std::atomic<bool> initialised{false};
  std::atomic<bool> monitorStopped{true};  // no monitor thread is running
  std::atomic<bool> moduleAvailable{false};  // the last module start-up succeeded
  // Name of the slot the last acquisition by name used; empty when unset.
  char lastSlotName[kLastSlotNameChars] = {};
};

BackendState& Backend();

// The module start-up of every acquire (caller holds the module mutex). Returns 0 at once after
// the first success. Otherwise: loads the module if needed (its error is returned), calls
// C_Initialize with CKF_OS_LOCKING_OK and no mutex functions (CKR_CANT_LOCK: once more with a
// null argument; CKR_CRYPTOKI_ALREADY_INITIALIZED gives NTE_FAIL; every other result is accepted),
// creates the slot-table mutex, marks the back end initialised and fills the slot table; on
// success starts the slot monitor. A failed first refresh finalises the module, waits until no
// monitor runs, clears the initialised mark and returns the refresh's error.
Status InitPkcs11Backend();

// Remembers `name` as the slot of the last acquisition by name (cut to fit).
void RememberLastSlot(const char* name);
void ForgetLastSlot();

}  // namespace nivra::pkcs11
