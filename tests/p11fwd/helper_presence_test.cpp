// Injected conditions: token removal and insertion, blocking slot events, and call counters.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::HandleReply;
using p11wire::WireOp;

// Long enough for a wait that should block to have returned if it were not blocking; the
// outcome is checked on the future's state, never on timing.
constexpr auto kBlockedLongEnough = std::chrono::milliseconds(300);
// Upper bound for a wait that must end: a hang fails instead of stalling the run.
constexpr auto kMustEndWithin = std::chrono::seconds(20);

std::string Hex(CK_SLOT_ID slot) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%lx", slot);
  return text;
}

class HelperInjected : public ClientTest {
 protected:
  // Starts a slot-event wait on its own connection.
  std::future<HandleReply> WaitAsync(uint32_t flags) {
    return std::async(std::launch::async, [this, flags] {
      return client_.Call<WireOp::kWaitForSlotEvent>({flags});
    });
  }

  uint32_t slot32() const { return static_cast<uint32_t>(slot_); }
};

TEST_F(HelperInjected, RemovedTokenDisappearsAndItsSessionsAreGone) {
  uint32_t session = client_.OpenSession(slot_);
  ASSERT_EQ(client_.Login(session, kUserPin), CKR_OK);
  harness().Control("remove " + Hex(slot_));

  auto info = client_.Call<WireOp::kGetSlotInfo>({slot32()});
  ASSERT_EQ(info.rv, CKR_OK);
  EXPECT_EQ(info.info.flags & CKF_TOKEN_PRESENT, 0u);
  EXPECT_EQ(client_.Call<WireOp::kGetTokenInfo>({slot32()}).rv, CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_DEVICE_REMOVED);
  EXPECT_EQ(client_.Login(session, kUserPin), CKR_DEVICE_REMOVED);
  EXPECT_EQ(client_.Call<WireOp::kOpenSession>({slot32(), CKF_SERIAL_SESSION}).rv,
            CKR_TOKEN_NOT_PRESENT);
  p11wire::ListRequest present;
  present.tokenPresent = present.wantList = true;
  present.capacity = 16;
  auto list = client_.Call<WireOp::kGetSlotList>(present);
  EXPECT_EQ(std::count(list.ids.begin(), list.ids.end(), slot32()), 0);
  CK_SESSION_INFO native;
  EXPECT_EQ(harness().module()->C_GetSessionInfo(session, &native), CKR_SESSION_HANDLE_INVALID);

  harness().Control("insert " + Hex(slot_));
  EXPECT_EQ(client_.Call<WireOp::kGetSlotInfo>({slot32()}).info.flags & CKF_TOKEN_PRESENT,
            CKF_TOKEN_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kGetTokenInfo>({slot32()}).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_SESSION_HANDLE_INVALID);
  // A token that comes back is logged out, as after a real removal.
  uint32_t fresh = client_.OpenSession(slot_);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({fresh}).info.state, CKS_RW_PUBLIC_SESSION);
}

TEST_F(HelperInjected, ClosingARemovedSessionSucceedsOnce) {
  uint32_t session = client_.OpenSession(slot_);
  harness().Control("remove " + Hex(slot_));
  EXPECT_EQ(client_.Call<WireOp::kCloseSession>({session}).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kCloseSession>({session}).rv, CKR_SESSION_HANDLE_INVALID);
}

TEST_F(HelperInjected, RemovalOfUnknownOrFakeSlotIsRefused) {
  std::string answer;
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "remove 0x7ffffff0", &answer),
            CKR_SLOT_ID_INVALID);
  std::string fake = harness().Control("add-slots 1");
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "insert " + fake, &answer),
            CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "remove", &answer), CKR_ARGUMENTS_BAD);
}

TEST_F(HelperInjected, SlotEventsDefaultToTheModulesAnswer) {
  // SoftHSM2 cannot block for events; asked not to block, it reports none.
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({0}).rv, CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_NO_EVENT);
}

TEST_F(HelperInjected, BlockingWaitEndsWithTheInjectedEvent) {
  harness().Control("slot-events on");
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_NO_EVENT);
  auto waiting = WaitAsync(0);
  ASSERT_EQ(waiting.wait_for(kBlockedLongEnough), std::future_status::timeout);
  // The blocked wait holds up nobody else.
  EXPECT_EQ(client_.Call<WireOp::kGetSlotInfo>({slot32()}).rv, CKR_OK);
  harness().Control("event " + Hex(slot_));
  ASSERT_EQ(waiting.wait_for(kMustEndWithin), std::future_status::ready);
  HandleReply reply = waiting.get();
  EXPECT_EQ(reply.rv, CKR_OK);
  EXPECT_EQ(reply.handle, slot32());
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_NO_EVENT);
}

TEST_F(HelperInjected, RemovalAndInsertionEachRaiseOneEvent) {
  harness().Control("slot-events on");
  harness().Control("remove " + Hex(slot_));
  harness().Control("remove " + Hex(slot_));  // no change, no event
  auto first = client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK});
  EXPECT_EQ(first.rv, CKR_OK);
  EXPECT_EQ(first.handle, slot32());
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_NO_EVENT);
  harness().Control("insert " + Hex(slot_));
  auto second = client_.Call<WireOp::kWaitForSlotEvent>({0});
  EXPECT_EQ(second.rv, CKR_OK);
  EXPECT_EQ(second.handle, slot32());
}

TEST_F(HelperInjected, EventsReachEveryInitialisedClient) {
  harness().Control("slot-events on");
  TestClient other;
  ASSERT_EQ(other.Initialize(), CKR_OK);
  TestClient uninitialised;
  harness().Control("event " + Hex(slot_));
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_OK);
  EXPECT_EQ(other.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_OK);
  ASSERT_EQ(uninitialised.Initialize(), CKR_OK);
  EXPECT_EQ(uninitialised.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv, CKR_NO_EVENT);
  other.Finalize();
  uninitialised.Finalize();
}

TEST_F(HelperInjected, FinalizeEndsABlockedWait) {
  harness().Control("slot-events on");
  auto waiting = WaitAsync(0);
  ASSERT_EQ(waiting.wait_for(kBlockedLongEnough), std::future_status::timeout);
  ASSERT_EQ(client_.Finalize(), CKR_OK);
  ASSERT_EQ(waiting.wait_for(kMustEndWithin), std::future_status::ready);
  EXPECT_EQ(waiting.get().rv, CKR_CRYPTOKI_NOT_INITIALIZED);
  ASSERT_EQ(client_.Initialize(), CKR_OK);
}

TEST_F(HelperInjected, TurningEventsOffEndsABlockedWait) {
  harness().Control("slot-events on");
  auto waiting = WaitAsync(0);
  ASSERT_EQ(waiting.wait_for(kBlockedLongEnough), std::future_status::timeout);
  harness().Control("slot-events off");
  ASSERT_EQ(waiting.wait_for(kMustEndWithin), std::future_status::ready);
  EXPECT_EQ(waiting.get().rv, CKR_FUNCTION_NOT_SUPPORTED);
}

TEST_F(HelperInjected, CountersCountEachForwardedCall) {
  harness().Control("reset-counts");
  for (int i = 0; i < 3; ++i) client_.Call<WireOp::kGetTokenInfo>({slot32()});
  client_.Call<WireOp::kGetSlotInfo>({0x7ffffff0});  // failed calls count too
  EXPECT_EQ(harness().Control("count C_GetTokenInfo"), "3");
  EXPECT_EQ(harness().Control("count C_GetSlotInfo"), "1");
  EXPECT_EQ(harness().Control("count C_Sign"), "0");
  EXPECT_EQ(harness().Control("counts"), "C_GetSlotInfo=1\nC_GetTokenInfo=3\n");
  harness().Control("reset-counts");
  EXPECT_EQ(harness().Control("counts"), "");
  std::string answer;
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "count C_DigestInit", &answer),
            CKR_ARGUMENTS_BAD);
}

TEST_F(HelperInjected, ResetUndoesEveryInjection) {
  harness().Control("add-slots 3");
  harness().Control("remove " + Hex(slot_));
  harness().Control("force-init 5");
  harness().Control("slot-events on");
  harness().Control("reset");
  EXPECT_EQ(client_.Call<WireOp::kGetTokenInfo>({slot32()}).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kWaitForSlotEvent>({0}).rv, CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(harness().Control("slots").find("fake"), std::string::npos);
  TestClient fresh;
  EXPECT_EQ(fresh.Initialize(), CKR_OK);
  fresh.Finalize();
  EXPECT_EQ(harness().Control("count C_Initialize"), "1");
}

}  // namespace
}  // namespace nivra::p11test
