#include "service/service_link.h"

#include <cstdio>

#include "platform/named_mutex.h"
#include "service/service_settings.h"
#include "service/socket_layer.h"
#include "service/remote_slot_table.h"

namespace nivra::service {

namespace {

constexpr DWORD kMonitorStepMs = 100;
constexpr DWORD kWaitPollMs = 10;
constexpr DWORD kLongUptimeMs = 120000;  // beyond this the service has had its chance to start
constexpr DWORD kStartupGraceMs = 20000;

}  // namespace

ServiceLinkState& LinkState() {
  static ServiceLinkState* state = new ServiceLinkState;  // kept until the process ends
  return *state;
}

HANDLE ControlMutex() {
  static HANDLE mutex = [] {
    wchar_t name[64];
    swprintf(name, sizeof(name) / sizeof(name[0]), L"P11SlotSocket_%d",
             static_cast<int>(GetCurrentProcessId()));
    return platform::OpenOrCreateSharedMutex(name);
  }();
  return mutex;
}

void ServiceLinkClose() {
  platform::NamedMutexLock guard(ControlMutex());
  SockClose(&LinkState().socket);
}

Status ServiceLinkEnsure() {
  platform::NamedMutexLock guard(ControlMutex());
  ServiceLinkState& link = LinkState();
  if (!NoSocket(link.socket) && SockCheckAlive(link.socket) != 0) ServiceLinkClose();
  if (!NoSocket(link.socket)) return provider::kOk;
  const ServiceSettings& settings = Settings();
  return SockConnect(&link.socket, settings.host, settings.port, settings.connectTimeoutMs);
}

void SetServiceMonitorStarted(bool started) { LinkState().monitorStarted = started; }

DWORD WINAPI ServiceMonitorThread(LPVOID stopFlag) {
  auto* stop = static_cast<std::atomic<bool>*>(stopFlag);
  ServiceLinkState& link = LinkState();
  link.monitorStarted = true;
  while (!stop->load()) {
    const uint32_t remembered = link.state.load();
    const bool up = ServiceLinkEnsure() == provider::kOk;
    link.probed = 1;
    link.state = up ? kServiceUp : kServiceDown;
    const ServiceSettings& settings = Settings();
    const int steps = up ? settings.monitorStepsWhileUp : settings.monitorStepsWhileDown;
    for (int i = 0; i < steps && !stop->load(); ++i) Sleep(kMonitorStepMs);
    if (link.state.load() != remembered && link.state.load() == kServiceDown) {
      ServiceClearSlots();
    }
  }
  return 0;
}

bool WaitForService() {
  ServiceLinkState& link = LinkState();
  if (link.state.load() == kServiceUp || !link.monitorStarted.load()) {
    return link.state.load() == kServiceUp;
  }
  const bool longUp = GetTickCount() > kLongUptimeMs;
  for (;;) {
    if (link.state.load() == kServiceUp) return true;
    const bool probed = link.probed.load() != 0;
    if (probed && (longUp || GetTickCount() >= kStartupGraceMs)) break;
    Sleep(kWaitPollMs);
  }
  return link.state.load() == kServiceUp;
}

}  // namespace nivra::service
