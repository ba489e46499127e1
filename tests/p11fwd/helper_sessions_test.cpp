// Sessions and login through the helper: each client (process) sees only its own sessions, and
// finalising or going away closes them in the module.
#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;

class HelperSessions : public HelperTest {
 protected:
  uint32_t StateOf(uint32_t session) {
    return client_.Call<WireOp::kGetSessionInfo>({session}).info.state;
  }
};

TEST_F(HelperSessions, EachClientSeesAndClosesOnlyItsOwnSessions) {
  TestClient other;
  ASSERT_EQ(other.Initialize(), CKR_OK);
  uint32_t a1 = client_.OpenSession(slot_);
  uint32_t a2 = client_.OpenSession(slot_);
  uint32_t b1 = other.OpenSession(slot_);
  auto own = client_.Call<WireOp::kGetSessionInfo>({a1});
  ASSERT_EQ(own.rv, CKR_OK);
  EXPECT_EQ(own.info.slotId, slot_);
  EXPECT_EQ(own.info.state, CKS_RW_PUBLIC_SESSION);
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

TEST_F(HelperSessions, WrongPinIsIncorrectRightPinLogsInAndPinChanges) {
  uint32_t session = client_.OpenSession(slot_);
  EXPECT_EQ(client_.Login(session, "0000"), CKR_PIN_INCORRECT);
  EXPECT_EQ(StateOf(session), CKS_RW_PUBLIC_SESSION);
  // Without a PIN at all the module gets a null pointer, which SoftHSM2 refuses.
  EXPECT_EQ(client_.Call<WireOp::kLogin>({session, CKU_USER, {}}).rv, CKR_ARGUMENTS_BAD);
  ASSERT_EQ(client_.Login(session, kUserPin), CKR_OK);
  EXPECT_EQ(StateOf(session), CKS_RW_USER_FUNCTIONS);
  EXPECT_EQ(client_.Login(session, kUserPin), CKR_USER_ALREADY_LOGGED_IN);

  p11wire::SetPinRequest change = {session, {true, TextBytes(kUserPin)}, {true, TextBytes("4321")}};
  ASSERT_EQ(client_.Call<WireOp::kSetPIN>(change).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kLogout>({session}).rv, CKR_OK);
  EXPECT_EQ(StateOf(session), CKS_RW_PUBLIC_SESSION);
  EXPECT_EQ(client_.Login(session, kUserPin), CKR_PIN_INCORRECT);
  ASSERT_EQ(client_.Login(session, "4321"), CKR_OK);
  std::swap(change.oldPin, change.newPin);
  EXPECT_EQ(client_.Call<WireOp::kSetPIN>(change).rv, CKR_OK);
  client_.Call<WireOp::kLogout>({session});
}

}  // namespace
}  // namespace nivra::p11test
