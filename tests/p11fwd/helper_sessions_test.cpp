// Clients of the helper: each initialises on its own, sees only its own sessions, and finalising
// or going away closes them in the module. (Login and PIN changes are proved through the provider
// in tests/pkcs11.)
#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;
using HelperSessions = HelperTest;

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

}  // namespace
}  // namespace nivra::p11test
