// Start-up and shut-down of the module: the watcher thread that follows the local card service,
// the module mutex that serialises the module start-up of every acquire, and the live-context
// count.
#include <windows.h>

#include <cstdlib>

#include "provider/card_backend.h"
#include "provider/module_state.h"
#include "provider/verified_pin_cache.h"
#include "platform/named_mutex.h"
#include "service/service_monitor.h"

namespace nivra::provider {

namespace {

constexpr wchar_t kModuleMutexName[] = L"Global\\Global_Mutex_NivraPkcs11CSP_20190917_";
constexpr DWORD kProbeStepMs = 100;
constexpr int kStepsWhileUp = 200;   // 20 s between probes while the service answers
constexpr int kStepsWhileDown = 5;   // 0.5 s while it does not

enum ServiceState { kServiceUnknown = 0, kServiceDown = 1, kServiceUp = 2 };

DWORD WINAPI WatcherThread(LPVOID) {
  ModuleState& m = Module();
  int state = kServiceUnknown;
  while (!m.stopping.load()) {
    int previous = state;
    state = service::ServiceProbe() ? kServiceUp : kServiceDown;
    int steps = state == kServiceUp ? kStepsWhileUp : kStepsWhileDown;
    for (int i = 0; i < steps && !m.stopping.load(); ++i) Sleep(kProbeStepMs);
    if (state != previous && state == kServiceDown) service::ServiceClearSlots();
  }
  return 0;
}

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
  // The loader frees the provider after every release, but the watcher thread runs our code and
  // is never joined: pin the module first so it stays mapped until the process ends.
  HMODULE pinned = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&StartupHook), &pinned);
  HANDLE thread = CreateThread(nullptr, 0, WatcherThread, nullptr, 0, nullptr);
  if (thread != nullptr) CloseHandle(thread);
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
