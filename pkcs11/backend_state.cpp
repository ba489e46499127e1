#include "pkcs11/backend_state.h"

#include <windows.h>

#include <cstring>

#include "pkcs11/module_loader.h"
#include "pkcs11/slot_monitor.h"
#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {
constexpr DWORD kMonitorStopPollMs = 10;

// The slot monitor thread calls the module while application threads do, so the module is told
// that it may be called from several threads and lock with the system's primitives. A module
// that cannot lock by itself says so and is initialised without arguments.
CK_RV InitializeForThreads(CK_FUNCTION_LIST* p11) {
  CK_C_INITIALIZE_ARGS threads{};
  threads.flags = CKF_OS_LOCKING_OK;
  CK_RV rv = p11->C_Initialize(&threads);
  if (rv == CKR_CANT_LOCK) rv = p11->C_Initialize(nullptr);
  return rv;
}

}  // namespace

BackendState& Backend() {
  static BackendState state;
  return state;
}

Status InitPkcs11Backend() {
  BackendState& backend = Backend();
  if (backend.initialised) return kOk;
  if (P11() == nullptr) {
    Status status = LoadPkcs11Module();
    if (status != kOk) return status;
  }
  CK_FUNCTION_LIST* p11 = P11();
  // A module that someone else in the process initialised already is refused; any other answer,
  // failures included, lets the start-up go on (the slot refresh below then decides).
  if (InitializeForThreads(p11) == CKR_CRYPTOKI_ALREADY_INITIALIZED) return provider::kNteFail;
  CreateSlotTableMutex();
  backend.initialised = true;

  Status status;
  {
    platform::NamedMutexLock lock(SlotTableMutex());
    status = RefreshSlotList();
  }
  if (status == kOk) status = StartSlotMonitor();
  if (status == kOk) return kOk;

  if (backend.initialised) {
    p11->C_Finalize(nullptr);
    while (!backend.monitorStopped) Sleep(kMonitorStopPollMs);
    backend.initialised = false;
  }
  return status;
}

void RememberLastSlot(const char* name) {
  BackendState& backend = Backend();
  std::memset(backend.lastSlotName, 0, sizeof(backend.lastSlotName));
  std::strncpy(backend.lastSlotName, name, sizeof(backend.lastSlotName) - 1);
}

void ForgetLastSlot() { Backend().lastSlotName[0] = '\0'; }

}  // namespace nivra::pkcs11
