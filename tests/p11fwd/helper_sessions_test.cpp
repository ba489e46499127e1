// Clients of the helper: each initialises on its own, sees only its own sessions, and finalising
// or going away closes them in the module; a token's removal takes its sessions and raises one
// event for every initialised client. (Login and PIN changes, the slot and token information of a
// removed token, blocking waits and the call counters are proved through the provider.)
#include <algorithm>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;
class HelperSessions : public HelperTest {
 protected:
  uint32_t Event(TestClient& client) {
    return client.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv;
  }
};

TEST_F(HelperSessions, EachClientInitialisesOnceAndIsRefusedBefore) {
  TestClient client;
  EXPECT_EQ(client.Call<WireOp::kGetSlotList>({}).rv, CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(client.Finalize(), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(client.Initialize(), CKR_OK);
  EXPECT_EQ(client.Initialize(), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(client.Finalize(), CKR_OK);
  EXPECT_EQ(client.Call<WireOp::kGetInfo>({}).rv, CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(HelperSessions, EachClientSeesAndClosesOnlyItsOwnSessions) {
  TestClient other;
  ASSERT_EQ(other.Initialize(), CKR_OK);
  uint32_t a1 = client_.OpenSession(slot_);
  uint32_t a2 = client_.OpenSession(slot_);
  uint32_t b1 = other.OpenSession(slot_);
  auto own = client_.Call<WireOp::kGetSessionInfo>({a1});
  ASSERT_EQ(own.rv, CKR_OK);
  EXPECT_EQ(own.info.slotId, slot_);
  EXPECT_EQ(own.info.flags, CKF_SERIAL_SESSION | CKF_RW_SESSION);
  EXPECT_EQ(other.Call<WireOp::kGetSessionInfo>({a1}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(other.Call<WireOp::kCloseSession>({a1}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_TRUE(ModuleKnows(a1));

  ASSERT_EQ(client_.Call<WireOp::kCloseAllSessions>({slot32()}).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({a2}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_FALSE(ModuleKnows(a1));
  EXPECT_FALSE(ModuleKnows(a2));
  EXPECT_EQ(other.Call<WireOp::kGetSessionInfo>({b1}).rv, CKR_OK);
  other.Finalize();
}

TEST_F(HelperSessions, FinalizeOrDisconnectingClosesTheClientsSessions) {
  uint32_t session = client_.OpenSession(slot_);
  ASSERT_TRUE(ModuleKnows(session));
  ASSERT_EQ(client_.Finalize(), CKR_OK);
  EXPECT_FALSE(ModuleKnows(session));
  ASSERT_EQ(client_.Initialize(), CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_SESSION_HANDLE_INVALID);

  TestClient leaving;
  ASSERT_EQ(leaving.Initialize(), CKR_OK);
  session = leaving.OpenSession(slot_);
  ASSERT_TRUE(ModuleKnows(session));
  leaving.Disconnect();
  EXPECT_TRUE(ModuleForgets(session));
}

TEST_F(HelperSessions, RemovalTakesTheSessionsAndRaisesOneEventForEveryInitialisedClient) {
  uint32_t session = client_.OpenSession(slot_);
  ASSERT_EQ(client_.Login(session, kUserPin), CKR_OK);
  uint32_t second = client_.OpenSession(slot_);
  harness().Control("slot-events on");
  TestClient other;
  ASSERT_EQ(other.Initialize(), CKR_OK);
  TestClient late;
  harness().Control("remove " + Hex(slot_));
  harness().Control("remove " + Hex(slot_));  // no change, no event
  auto first = client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK});
  EXPECT_EQ(first.rv, CKR_OK);
  EXPECT_EQ(first.handle, slot32());
  EXPECT_EQ(Event(client_), CKR_NO_EVENT);
  EXPECT_EQ(Event(other), CKR_OK);
  ASSERT_EQ(late.Initialize(), CKR_OK);
  EXPECT_EQ(Event(late), CKR_NO_EVENT);

  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_DEVICE_REMOVED);
  EXPECT_EQ(client_.Login(session, kUserPin), CKR_DEVICE_REMOVED);
  EXPECT_EQ(client_.Call<WireOp::kOpenSession>({slot32(), CKF_SERIAL_SESSION}).rv,
            CKR_TOKEN_NOT_PRESENT);
  auto present = client_.Call<WireOp::kGetSlotList>({0, true, true, 16});
  EXPECT_EQ(std::count(present.ids.begin(), present.ids.end(), slot32()), 0);
  EXPECT_FALSE(ModuleKnows(session));
  EXPECT_EQ(client_.Call<WireOp::kCloseSession>({second}).rv, CKR_OK);  // once
  EXPECT_EQ(client_.Call<WireOp::kCloseSession>({second}).rv, CKR_SESSION_HANDLE_INVALID);

  harness().Control("insert " + Hex(slot_));
  EXPECT_EQ(Event(client_), CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_SESSION_HANDLE_INVALID);
  // A token that comes back is logged out, as after a real removal.
  uint32_t fresh = client_.OpenSession(slot_);
  EXPECT_EQ(client_.Call<WireOp::kGetSessionInfo>({fresh}).info.state, CKS_RW_PUBLIC_SESSION);
  other.Finalize();
  late.Finalize();
}

}  // namespace
}  // namespace nivra::p11test
