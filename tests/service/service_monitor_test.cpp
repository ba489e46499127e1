// The monitor thread against a scripted peer that comes and goes: it sees the service come up at
// its next short probe, sees it go away at its next long probe and then forgets the published
// slots, and ends at the stop flag within one step.
#include <gtest/gtest.h>

#include <atomic>

#include "scripted_peer.h"
#include "service/remote_slot_table.h"
#include "service/service_link.h"
#include "service/service_settings.h"

namespace nivra::servicetest {
namespace {

constexpr int kStepsWhileUp = 10;  // one second between probes while the peer answers
constexpr DWORD kPatienceMs = 10000;

bool WaitForState(uint32_t state) {
  const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
  while (service::LinkState().state.load() != state) {
    if (GetTickCount64() > deadline) return false;
    Sleep(10);
  }
  return true;
}

TEST(ServiceMonitor, FollowsTheServiceAndForgetsItsSlotsWhenItGoes) {
  uint16_t port = 0;
  { ScriptedPeer probe([](PeerConnection&) {}); port = probe.Port(); }  // a free port, closed
  service::ServiceSettings settings;
  settings.port = port;
  settings.monitorStepsWhileUp = kStepsWhileUp;
  service::ServiceSettingsOverride(settings);
  std::atomic<bool> stop{false};
  HANDLE thread = CreateThread(nullptr, 0, service::ServiceMonitorThread, &stop, 0, nullptr);
  ASSERT_NE(thread, nullptr);
  ASSERT_TRUE(WaitForState(service::kServiceDown));
  EXPECT_FALSE(service::WaitForService());

  {
    // The peer takes the monitor's control connection and keeps it until it closes.
    ScriptedPeer peer(
        [](PeerConnection& c) {
          Bytes ignored;
          while (c.ReadFrame(&ignored)) {
          }
        },
        port);
    ASSERT_EQ(peer.Port(), port) << "could not listen on the monitored port again";
    EXPECT_TRUE(WaitForState(service::kServiceUp));
    EXPECT_TRUE(service::WaitForService());
    // A slot the service published while it was up.
    service::RemoteTable().count = 1;
    service::RemoteTable().records[0].slotId = 7;
    service::RemoteTable().records[0].remote = 1;
  }
  EXPECT_TRUE(WaitForState(service::kServiceDown));
  const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
  while (service::RemoteTable().records[0].slotId != 0 && GetTickCount64() < deadline) Sleep(10);
  EXPECT_EQ(service::RemoteTable().records[0].slotId, 0u) << "the published slots are forgotten";
  EXPECT_EQ(service::RemoteTable().records[0].remote, 1u);

  stop = true;
  EXPECT_EQ(WaitForSingleObject(thread, 2000), WAIT_OBJECT_0) << "the stop flag ends the monitor";
  CloseHandle(thread);
}

}  // namespace
}  // namespace nivra::servicetest
