// Token removal and insertion as the helper injects them: what the token's sessions answer, and
// one event for every initialised client. (The slot and token information, blocking waits ending
// with such events, and the call counters are proved through the provider's slot monitor.)
#include <algorithm>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;

class HelperInjected : public HelperTest {
 protected:
  uint32_t Event(TestClient& client) {
    return client.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv;
  }
};

TEST_F(HelperInjected, RemovalTakesTheSessionsAndRaisesOneEventForEveryInitialisedClient) {
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
