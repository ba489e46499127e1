#include "pkcs11/slot_monitor.h"

#include <windows.h>

#include "pkcs11/backend_state.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {

namespace {

enum class Next { kWait, kPoll, kStop };

bool ModuleFinalised(CK_FUNCTION_LIST* p11) {
  CK_ULONG count = 0;
  return p11->C_GetSlotList(CK_FALSE, nullptr, &count) == CKR_CRYPTOKI_NOT_INITIALIZED;
}

// One slot event: the list, then the reported slot's token.
void FollowSlotEvent(CK_SLOT_ID reported) {
  platform::NamedMutexLock lock(SlotTableMutex());
  RefreshSlotList();
  SlotTable& table = ModuleSlots();
  for (uint32_t i = 0; i < table.count; ++i) {
    if (table.records[i].slotId == reported) {
      RefreshSlotToken(table.records[i], nullptr);
      break;
    }
  }
}

// What an event would do, for every known slot. kStop when the module has been finalised.
Next PollSlots(CK_FUNCTION_LIST* p11) {
  platform::NamedMutexLock lock(SlotTableMutex());
  if (RefreshSlotList() != provider::kOk && ModuleFinalised(p11)) return Next::kStop;
  SlotTable& table = ModuleSlots();
  for (uint32_t i = 0; i < table.count; ++i) RefreshSlotToken(table.records[i], nullptr);
  return Next::kPoll;
}

Next WaitForEvent(CK_FUNCTION_LIST* p11) {
  CK_SLOT_ID reported = 0;
  CK_RV rv = p11->C_WaitForSlotEvent(0, &reported, nullptr);
  switch (rv) {
    case CKR_OK:
      FollowSlotEvent(reported);
      return Next::kWait;
    case CKR_CRYPTOKI_NOT_INITIALIZED:
      return Next::kStop;
    case CKR_FUNCTION_NOT_SUPPORTED:
      return Next::kPoll;
    default:
      Sleep(kSlotEventRetryMs);
      return Next::kWait;
  }
}

DWORD WINAPI SlotMonitorThread(LPVOID) {
  BackendState& backend = Backend();
  backend.monitorStopped = false;
  CK_FUNCTION_LIST* p11 = P11();
  Next next = Next::kWait;
  while (next != Next::kStop && backend.initialised && p11 != nullptr) {
    try {
      if (next == Next::kPoll) {
        Sleep(kSlotPollIntervalMs);
        if (!backend.initialised) break;
        next = PollSlots(p11);
      } else {
        next = WaitForEvent(p11);
      }
    } catch (...) {
      // Out of memory while refreshing: try again later rather than end the thread.
      Sleep(kSlotEventRetryMs);
    }
  }
  backend.monitorStopped = true;
  return 0;
}

}  // namespace

Status StartSlotMonitor() {
  HANDLE thread = CreateThread(nullptr, 0, SlotMonitorThread, nullptr, 0, nullptr);
  if (thread == nullptr) return provider::kNteSysErr;
  CloseHandle(thread);
  return provider::kOk;
}

}  // namespace nivra::pkcs11
