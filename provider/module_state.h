// Process-wide state of the provider module.
#pragma once
#include <windows.h>

#include <atomic>
#include <cstdint>

#include "provider/handle_registry.h"

namespace nivra::provider {

constexpr size_t kLastSlotNameSize = 260;
constexpr size_t kLastDeviceNameSize = 64;

struct ModuleState {
  DWORD loadTick = GetTickCount();      // read by the service-availability wait
  std::atomic<bool> stopping{false};    // set by the shut-down hook; ends the service monitor
  std::atomic<int32_t> liveContexts{0};
  std::atomic<uint32_t> objectBiasCounter{static_cast<uint32_t>(kHandleBias)};  // first draw
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

constexpr uint32_t kObjectBiasStep = 16;
constexpr uint32_t kObjectBiasMask = 0x01FFFFFF;

// The bias of a new context's key and hash handles, drawn after each successful acquire: the
// counter's value, which advances to (value + 16) & 0x01FFFFFF in the same atomic step, so two
// acquires never draw the same value from one turn of the counter. After it wraps, two contexts
// can share a bias; key and hash handles are checked against the context that made them, so that
// is harmless.
uint32_t DrawObjectBias();

// Library load and unload (called from DllMain).
BOOL StartupHook(HINSTANCE module);
void ShutdownHook();

}  // namespace nivra::provider
