// Injected conditions seen through nivrap11fwd.dll under Wine: token removal and insertion,
// blocking slot events on a connection of their own, call counters, forced C_Initialize results,
// and a helper that cannot be reached.
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
  std::future<WaitResult> WaitAsync(CK_FLAGS flags) {
    CK_FUNCTION_LIST* f = f_;
    return std::async(std::launch::async, [f, flags] {
      WaitResult result;
      result.rv = f->C_WaitForSlotEvent(flags, &result.slot, nullptr);
      return result;
    });
  }
};

TEST_F(ForwardedEvents, RemovedTokenIsReportedAndItsSessionsFail) {
  CK_SESSION_HANDLE session = OpenSession();
  HelperControl("remove " + HexSlot(slot_));
  CK_SLOT_INFO slot;
  ASSERT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, 0u);
  CK_TOKEN_INFO token;
  EXPECT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_TOKEN_NOT_PRESENT);
  CK_SESSION_INFO info;
  EXPECT_EQ(f_->C_GetSessionInfo(session, &info), CKR_DEVICE_REMOVED);
  CK_SESSION_HANDLE another = 0;
  EXPECT_EQ(f_->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &another),
            CKR_TOKEN_NOT_PRESENT);

  HelperControl("insert " + HexSlot(slot_));
  ASSERT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, CKF_TOKEN_PRESENT);
  EXPECT_EQ(f_->C_GetSessionInfo(session, &info), CKR_SESSION_HANDLE_INVALID);
  CK_SESSION_HANDLE fresh = OpenSession();
  EXPECT_NE(fresh, 0u);
  f_->C_CloseSession(fresh);
}

TEST_F(ForwardedEvents, WithoutInjectedEventsTheModuleCannotBlock) {
  CK_SLOT_ID slot = 0;
  EXPECT_EQ(f_->C_WaitForSlotEvent(0, &slot, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST_F(ForwardedEvents, BlockingWaitEndsWithRemovalAndInsertion) {
  HelperControl("slot-events on");
  CK_SLOT_ID none = 0;
  EXPECT_EQ(f_->C_WaitForSlotEvent(CKF_DONT_BLOCK, &none, nullptr), CKR_NO_EVENT);

  auto removal = WaitAsync(0);
  ASSERT_EQ(removal.wait_for(kBlockedLongEnough), std::future_status::timeout);
  // Other calls of the process go on while one thread waits.
  CK_SLOT_INFO info;
  EXPECT_EQ(f_->C_GetSlotInfo(slot_, &info), CKR_OK);
  HelperControl("remove " + HexSlot(slot_));
  ASSERT_EQ(removal.wait_for(kMustEndWithin), std::future_status::ready);
  WaitResult first = removal.get();
  EXPECT_EQ(first.rv, CKR_OK);
  EXPECT_EQ(first.slot, slot_);

  HelperControl("insert " + HexSlot(slot_));
  WaitResult second = WaitAsync(0).get();
  EXPECT_EQ(second.rv, CKR_OK);
  EXPECT_EQ(second.slot, slot_);
}

TEST_F(ForwardedEvents, FinalizeEndsABlockedWait) {
  HelperControl("slot-events on");
  auto waiting = WaitAsync(0);
  ASSERT_EQ(waiting.wait_for(kBlockedLongEnough), std::future_status::timeout);
  ASSERT_EQ(f_->C_Finalize(nullptr), CKR_OK);
  ASSERT_EQ(waiting.wait_for(kMustEndWithin), std::future_status::ready);
  EXPECT_EQ(waiting.get().rv, CKR_CRYPTOKI_NOT_INITIALIZED);
  ASSERT_EQ(f_->C_Initialize(nullptr), CKR_OK);
}

TEST_F(ForwardedEvents, CountersSeeEveryForwardedCall) {
  HelperControl("reset-counts");
  CK_TOKEN_INFO token;
  ASSERT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_OK);
  ASSERT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_OK);
  EXPECT_EQ(HelperControl("count C_GetTokenInfo"), "2");
  EXPECT_EQ(HelperControl("count C_Sign"), "0");
  EXPECT_EQ(HelperControl("counts"), "C_GetTokenInfo=2\n");
}

TEST_F(ForwardedEvents, ForcedInitializeResultReachesTheCaller) {
  ASSERT_EQ(f_->C_Finalize(nullptr), CKR_OK);
  HelperControl("force-init 0x191");
  EXPECT_EQ(f_->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  HelperControl("force-init 0x5");
  ASSERT_EQ(f_->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(f_->C_Initialize(nullptr), CKR_GENERAL_ERROR);
  CK_ULONG count = 0;
  EXPECT_EQ(f_->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  EXPECT_GE(count, 1u);
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
