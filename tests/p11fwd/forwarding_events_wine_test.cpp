// Injected conditions seen through nivrap11fwd.dll under Wine: token removal and insertion with
// blocking slot events on a connection of their own, and a helper that cannot be reached. (What
// removal does to sessions is the helper's, checked in helper_presence_test.cpp.)
#include <windows.h>

#include <chrono>
#include <future>

#include "tests/p11fwd/forwarding_harness.h"

namespace nivra::p11test {
namespace {

// Long enough for a wait that should block to have returned if it did not; the outcome is
// read from the future's state, never from timing.
constexpr auto kBlockedLongEnough = std::chrono::milliseconds(300);
// Upper bound for a wait that must end, so that a hang fails instead of stalling the run.
constexpr auto kMustEndWithin = std::chrono::seconds(20);

struct WaitResult {
  CK_RV rv = CKR_GENERAL_ERROR;
  CK_SLOT_ID slot = 0;
};

class ForwardedEvents : public ForwardedTest {
 protected:
  // Starts a blocking C_WaitForSlotEvent on its own thread; fails the test unless it blocks.
  std::future<WaitResult> BlockedWait() {
    CK_FUNCTION_LIST* f = f_;
    auto waiting = std::async(std::launch::async, [f] {
      WaitResult result;
      result.rv = f->C_WaitForSlotEvent(0, &result.slot, nullptr);
      return result;
    });
    EXPECT_EQ(waiting.wait_for(kBlockedLongEnough), std::future_status::timeout);
    return waiting;
  }
  // Ends `waiting` with `control` and expects the event of the token's slot.
  void ExpectEventAfter(std::future<WaitResult> waiting, const std::string& control) {
    HelperControl(control);
    ASSERT_EQ(waiting.wait_for(kMustEndWithin), std::future_status::ready) << control;
    WaitResult result = waiting.get();
    EXPECT_EQ(result.rv, CKR_OK) << control;
    EXPECT_EQ(result.slot, slot_) << control;
  }
};

TEST_F(ForwardedEvents, RemovalAndInsertionEndBlockedWaits) {
  HelperControl("slot-events on");
  CK_SLOT_ID none = 0;
  EXPECT_EQ(f_->C_WaitForSlotEvent(CKF_DONT_BLOCK, &none, nullptr), CKR_NO_EVENT);
  auto removal = BlockedWait();
  // Other calls of the process go on while one thread waits.
  CK_SLOT_INFO slot;
  EXPECT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
  ExpectEventAfter(std::move(removal), "remove " + Hex(slot_));
  ASSERT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, 0u);
  ExpectEventAfter(BlockedWait(), "insert " + Hex(slot_));
  EXPECT_EQ(f_->C_CloseSession(OpenSession()), CKR_OK);
}

TEST_F(ForwardedEvents, FinalizeEndsABlockedWait) {
  HelperControl("slot-events on");
  auto waiting = BlockedWait();
  ASSERT_EQ(f_->C_Finalize(nullptr), CKR_OK);
  ASSERT_EQ(waiting.wait_for(kMustEndWithin), std::future_status::ready);
  EXPECT_EQ(waiting.get().rv, CKR_CRYPTOKI_NOT_INITIALIZED);
  ASSERT_EQ(f_->C_Initialize(nullptr), CKR_OK);
}

TEST_F(ForwardedEvents, UnreachableHelperIsADeviceError) {
  ASSERT_EQ(f_->C_Finalize(nullptr), CKR_OK);  // drops the module's idle connections
  p11wire::WireListener closed;
  ASSERT_TRUE(closed.Listen({"127.0.0.1", 0}));
  std::string nowhere = "127.0.0.1:" + std::to_string(closed.port());
  closed.Close();
  SetEnvironmentVariableA("NIVRA_P11_HELPER", nowhere.c_str());
  EXPECT_EQ(f_->C_Initialize(nullptr), CKR_DEVICE_ERROR);
  SetEnvironmentVariableA("NIVRA_P11_HELPER", "not an address");
  EXPECT_EQ(f_->C_Initialize(nullptr), CKR_DEVICE_ERROR);
  FixtureHelper();  // back to the fixture's helper
  EXPECT_EQ(f_->C_Initialize(nullptr), CKR_OK);
}

}  // namespace
}  // namespace nivra::p11test
