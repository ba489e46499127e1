// Start-up and shut-down of the module: the monitor thread that follows the local card service,
// the module mutex that serialises the module start-up of every acquire, and the live-context
// count.
#include <windows.h>

#include <cstdlib>

#include "provider/card_backend.h"
#include "provider/module_state.h"
#include "provider/verified_pin_cache.h"
#include "platform/named_mutex.h"
#include "service/service_link.h"

namespace nivra::provider {

namespace {

constexpr wchar_t kModuleMutexName[] = L"Global\\Global_Mutex_NivraPkcs11CSP_20190917_";

// Opened or created on first use and kept for the life of the module; null when both fail
// (callers then run without it).
HANDLE ModuleMutex() {
  ModuleState& m = Module();
  if (m.moduleMutex == nullptr) m.moduleMutex = platform::OpenOrCreateSharedMutex(kModuleMutexName);
  return m.moduleMutex;
}

}  // namespace

ModuleState& Module() {
  static ModuleState state;
  return state;
}

void ModuleStartupForAcquire() {
  ModuleState& m = Module();
  platform::NamedMutexLock guard(ModuleMutex());
  CreateVerifiedPinMutex();
  CardBackend* tokenSlots = FindCardBackend(BackendTokenSlot);
  m.moduleAvailable = tokenSlots != nullptr && tokenSlots->ModuleStartup();
  ++m.liveContexts;
}

uint32_t DrawObjectBias() {
  auto& counter = Module().objectBiasCounter;
  uint32_t bias = counter.load();
  while (!counter.compare_exchange_weak(bias, (bias + kObjectBiasStep) & kObjectBiasMask)) {
  }
  return bias;
}

BOOL StartupHook(HINSTANCE module) {
  Module();  // load tick taken now
  // The loader frees the provider after every release, but the monitor thread runs our code and
  // is never joined: pin the module first so it stays mapped until the process ends.
  HMODULE pinned = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&StartupHook), &pinned);
  // The thread runs only once the loader has finished this attach, and the application's first
  // acquire may come before that: it must wait for the first probe rather than take the module's
  // slots and then meet the service's half-way through.
  service::SetServiceMonitorStarted(true);
  HANDLE thread =
      CreateThread(nullptr, 0, service::ServiceMonitorThread, &Module().stopping, 0, nullptr);
  if (thread != nullptr) CloseHandle(thread);
  else service::SetServiceMonitorStarted(false);
  srand(GetTickCount());
  return TRUE;
}

void ShutdownHook() {
  ModuleState& m = Module();
  m.stopping = true;
  service::ServiceClearSlots();
  if (m.moduleMutex != nullptr) {
    CloseHandle(m.moduleMutex);
    m.moduleMutex = nullptr;
  }
}

}  // namespace nivra::provider
