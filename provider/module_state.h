// Process-wide state of the provider module.
#pragma once
#include <windows.h>

#include <atomic>
#include <cstdint>

namespace nivra::provider {

constexpr size_t kLastSlotNameSize = 260;
constexpr size_t kLastDeviceNameSize = 64;

struct ModuleState {
  DWORD loadTick = GetTickCount();      // read by the service-availability wait
  std::atomic<bool> stopping{false};    // set by the shut-down hook; ends the service monitor
  std::atomic<int32_t> liveContexts{0};
  std::atomic<uint32_t> objectBiasCounter{0x0110F7F0};
  std::atomic<bool> moduleAvailable{false};  // the PKCS#11 module is loaded
  HANDLE moduleMutex = nullptr;
  // Name of the device last reached by name, per kind.
  char lastSelectedSlot[kLastSlotNameSize] = {};
  char lastSelectedServiceCard[kLastDeviceNameSize] = {};
  char lastSelectedBluetoothCard[kLastDeviceNameSize] = {};
};

ModuleState& Module();

// Module start-up run by every acquire (under the module mutex; cannot fail): loads the PKCS#11
// module when that has not happened yet, records whether it is available, and counts the context.
void ModuleStartupForAcquire();

// The bias of a new context's key and hash handles. Advanced after each successful acquire:
// (counter + 16) & 0x01FFFFFF. Two contexts may draw the same bias; key and hash handles are
// always checked against the context the caller names, so that is harmless.
uint32_t CurrentObjectBias();
void AdvanceObjectBias();

// Library load and unload (called from DllMain).
BOOL StartupHook(HINSTANCE module);
void ShutdownHook();

}  // namespace nivra::provider
