// The slot monitor thread: following slot events, polling a module that cannot wait, never
// spinning, and ending with the module.
#include <windows.h>

#include <functional>

#include "fake_backend_fixture.h"
#include "pkcs11/backend_state.h"
#include "pkcs11/slot_session.h"
#include "pkcs11/slot_table.h"

namespace nivra::p11test {
namespace {

using pkcs11::Backend;
using pkcs11::ModuleSlots;

// Polls `condition` every 10 ms for up to timeoutMs.
bool WaitFor(const std::function<bool()>& condition, DWORD timeoutMs) {
  const ULONGLONG deadline = GetTickCount64() + timeoutMs;
  while (!condition()) {
    if (GetTickCount64() >= deadline) return false;
    Sleep(10);
  }
  return true;
}

bool AllZero(const uint8_t* bytes, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

TEST_F(FakeBackendTest, RemovalEventClosesTheSessionAndForgetsTheSerial) {
  ASSERT_EQ(StartBackend(), 0u);
  pkcs11::P11Slot& slot = ModuleSlots().records[0];
  ASSERT_EQ(pkcs11::ReadTokenSerial(slot), 0u);
  ASSERT_NE(slot.session, 0u);
  const uint32_t closes = fake.CallCount("C_CloseSession");

  fake.SetTokenPresent(0, 0);
  fake.RaiseEvent(kFakeFirstSlotId);
  ASSERT_TRUE(WaitFor([&] { return slot.tokenPresent == 0; }, 5000));
  EXPECT_TRUE(WaitFor([&] { return slot.session == 0; }, 1000));
  EXPECT_TRUE(AllZero(slot.serial, sizeof(slot.serial)));
  EXPECT_EQ(fake.CallCount("C_CloseSession"), closes + 1);
}

TEST_F(FakeBackendTest, InsertionEventReadsTheSerialAndOpensASession) {
  ASSERT_EQ(StartBackend(), 0u);
  pkcs11::P11Slot& slot = ModuleSlots().records[1];
  ASSERT_EQ(slot.tokenPresent, 0u);
  fake.SetTokenPresent(1, 1);
  fake.RaiseEvent(kFakeFirstSlotId + 1);
  ASSERT_TRUE(WaitFor([&] { return slot.tokenPresent == 1 && slot.session != 0; }, 5000));
  EXPECT_EQ(std::string(reinterpret_cast<char*>(slot.serial), 16), "FAKE000000000001");
}

TEST_F(FakeBackendTest, EventForAnotherSlotLeavesThisOneAlone) {
  ASSERT_EQ(StartBackend(), 0u);
  fake.SetTokenPresent(0, 0);  // removed, but the event names slot 1
  fake.RaiseEvent(kFakeFirstSlotId + 1);
  ASSERT_TRUE(WaitFor([&] { return fake.CallCount("C_WaitForSlotEvent") >= 2; }, 5000));
  EXPECT_EQ(ModuleSlots().records[0].tokenPresent, 1u);
}

TEST_F(FakeBackendTest, ModuleThatCannotWaitIsPolledAboutOnceASecond) {
  fake.SetWaitMode(kFakeWaitNotSupported, CKR_OK);
  ASSERT_EQ(StartBackend(), 0u);
  pkcs11::P11Slot& slot = ModuleSlots().records[0];
  fake.SetTokenPresent(0, 0);
  ASSERT_TRUE(WaitFor([&] { return slot.tokenPresent == 0; }, 5000)) << "removal seen by polling";
  EXPECT_EQ(slot.session, 0u);
  fake.SetTokenPresent(0, 1);
  ASSERT_TRUE(WaitFor([&] { return slot.tokenPresent == 1 && slot.session != 0; }, 5000));
  EXPECT_EQ(fake.CallCount("C_WaitForSlotEvent"), 1u) << "after the refusal it only polls";

  // Resource bound, not a speed goal: two seconds of polling make a handful of slot-list reads.
  const uint32_t lists = fake.CallCount("C_GetSlotList");
  Sleep(2000);
  const uint32_t polls = (fake.CallCount("C_GetSlotList") - lists) / 2;
  EXPECT_GE(polls, 1u);
  EXPECT_LE(polls, 3u);
}

TEST_F(FakeBackendTest, FailingWaitPausesInsteadOfSpinning) {
  fake.SetWaitMode(kFakeWaitError, CKR_DEVICE_ERROR);
  ASSERT_EQ(StartBackend(), 0u);
  const uint32_t start = fake.CallCount("C_WaitForSlotEvent");
  Sleep(1000);
  const uint32_t waits = fake.CallCount("C_WaitForSlotEvent") - start;
  // 100 ms between attempts: about ten in a second, never thousands.
  EXPECT_GE(waits, 2u);
  EXPECT_LE(waits, 12u);
}

TEST_F(FakeBackendTest, MonitorEndsWhenTheModuleIsFinalised) {
  ASSERT_EQ(StartBackend(), 0u);
  ASSERT_TRUE(WaitFor([] { return !Backend().monitorStopped; }, 5000)) << "monitor running";
  ASSERT_EQ(fake.functions->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(WaitFor([] { return Backend().monitorStopped.load(); }, 5000));
}

TEST_F(FakeBackendTest, PollingMonitorEndsWhenTheModuleIsFinalised) {
  fake.SetWaitMode(kFakeWaitNotSupported, CKR_OK);
  ASSERT_EQ(StartBackend(), 0u);
  ASSERT_TRUE(WaitFor([] { return !Backend().monitorStopped; }, 5000)) << "monitor running";
  ASSERT_EQ(fake.functions->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(WaitFor([] { return Backend().monitorStopped.load(); }, 5000));
}

TEST_F(FakeBackendTest, MonitorEndsWhenTheBackEndIsNoLongerInitialised) {
  fake.SetWaitMode(kFakeWaitError, CKR_DEVICE_ERROR);
  ASSERT_EQ(StartBackend(), 0u);
  ASSERT_TRUE(WaitFor([] { return !Backend().monitorStopped; }, 5000));
  Backend().initialised = false;
  EXPECT_TRUE(WaitFor([] { return Backend().monitorStopped.load(); }, 2000));
}

}  // namespace
}  // namespace nivra::p11test
