// The control connection to the local card service: one socket per process, guarded by the named
// mutex "P11SlotSocket_<process id>", that lists the published slots and tells whether the
// service is up. The monitor thread probes it; WaitForService is the service-active test of the
// token-slot back end.
#pragma once
#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>

#include "provider/status_codes.h"

namespace nivra::service {

using provider::Status;

enum ServiceStateValue : uint32_t {
  kServiceUnknown = 0,
  kServiceDown = 1,
  kServiceUp = 2,
};

// The process-wide state the monitor and the slot-list exchanges keep.
struct ServiceLinkState {
  std::atomic<uint32_t> state{kServiceUnknown};
  std::atomic<uint32_t> probed{0};  // set after the monitor's first probe
  std::atomic<bool> monitorStarted{false};  // a process without a monitor never waits for it
  SOCKET socket = INVALID_SOCKET;   // the control connection; under the control mutex
};
ServiceLinkState& LinkState();

// The control mutex, created on first use (null when it cannot be made: callers then run
// without it).
HANDLE ControlMutex();

// Makes sure the control connection is connected and alive (closing a dead one, connecting
// anew). 0, or the connect error.
Status ServiceLinkEnsure();
// Shuts the control connection down and forgets it.
void ServiceLinkClose();

// Marks the monitor as started (true) before its thread is created, so that a request that comes
// before the thread first runs still waits for its first probe; false when the thread could not
// be created.
void SetServiceMonitorStarted(bool started);

// The monitor thread: probes the service (ServiceLinkEnsure) every 20 s while it is up and every
// 0.5 s while it is down, in steps of 100 ms that each check *stopFlag (a std::atomic<bool>);
// clears the published slots when the service goes away.
DWORD WINAPI ServiceMonitorThread(LPVOID stopFlag);

// True when the service is up. Without a running monitor it answers at once. Otherwise waits (polling every 10 ms) for the monitor's first probe; while
// the system has been up less than 120 s, also until it has been up 20 s, so that a service that
// starts with the system has time to come up.
bool WaitForService();

// Closes every published slot's channel and clears the records (under the slot-table mutex).
// The count is left as it was; a cleared record keeps its remote flag, so that a context still
// bound to it is never handed to the PKCS#11 module.
void ServiceClearSlots();

}  // namespace nivra::service
