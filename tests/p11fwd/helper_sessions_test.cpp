// Sessions and login through the helper: each client (process) sees only its own sessions, and
// finalising or going away closes them in the module.
#include <chrono>
#include <thread>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;

// True once the module no longer knows `session`. The helper closes sessions of a client that
// disconnects on its connection thread, so this waits a bounded time for that to happen.
bool ModuleForgets(CK_SESSION_HANDLE session) {
  for (int attempt = 0; attempt < 200; ++attempt) {
    CK_SESSION_INFO info;
    if (HelperHarness::Get().module()->C_GetSessionInfo(session, &info) == CKR_SESSION_HANDLE_INVALID)
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

bool ModuleKnows(CK_SESSION_HANDLE session) {
  CK_SESSION_INFO info;
  return HelperHarness::Get().module()->C_GetSessionInfo(session, &info) == CKR_OK;
}

class HelperSessions : public HelperTest {
 protected:
  void SetUp() override {
    HelperTest::SetUp();
    ASSERT_EQ(a_.Initialize(), CKR_OK);
    ASSERT_EQ(b_.Initialize(), CKR_OK);
  }
  void TearDown() override {
    a_.Finalize();
    b_.Finalize();
  }
  TestClient a_;
  TestClient b_;
};

TEST_F(HelperSessions, SessionsOfOneClientAreInvisibleToAnother) {
  uint32_t session = a_.OpenSession(slot_);
  ASSERT_NE(session, 0u);
  auto own = a_.Call<WireOp::kGetSessionInfo>({session});
  ASSERT_EQ(own.rv, CKR_OK);
  EXPECT_EQ(own.info.slotId, slot_);
  EXPECT_EQ(own.info.state, CKS_RW_PUBLIC_SESSION);
  EXPECT_EQ(own.info.flags, CKF_SERIAL_SESSION | CKF_RW_SESSION);
  EXPECT_EQ(b_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(b_.Call<WireOp::kCloseSession>({session}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_TRUE(ModuleKnows(session));
}

TEST_F(HelperSessions, CloseAllSessionsClosesOnlyTheCallersSessions) {
  uint32_t a1 = a_.OpenSession(slot_);
  uint32_t a2 = a_.OpenSession(slot_);
  uint32_t b1 = b_.OpenSession(slot_);
  ASSERT_EQ(a_.Call<WireOp::kCloseAllSessions>({static_cast<uint32_t>(slot_)}).rv, CKR_OK);
  EXPECT_EQ(a_.Call<WireOp::kGetSessionInfo>({a1}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(a_.Call<WireOp::kGetSessionInfo>({a2}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_FALSE(ModuleKnows(a1));
  EXPECT_EQ(b_.Call<WireOp::kGetSessionInfo>({b1}).rv, CKR_OK);
}

TEST_F(HelperSessions, FinalizeClosesTheClientsSessions) {
  uint32_t session = a_.OpenSession(slot_);
  ASSERT_TRUE(ModuleKnows(session));
  ASSERT_EQ(a_.Finalize(), CKR_OK);
  EXPECT_FALSE(ModuleKnows(session));
  ASSERT_EQ(a_.Initialize(), CKR_OK);
  EXPECT_EQ(a_.Call<WireOp::kGetSessionInfo>({session}).rv, CKR_SESSION_HANDLE_INVALID);
}

TEST_F(HelperSessions, DisconnectingClientLosesItsSessions) {
  TestClient leaving;
  ASSERT_EQ(leaving.Initialize(), CKR_OK);
  uint32_t session = leaving.OpenSession(slot_);
  ASSERT_TRUE(ModuleKnows(session));
  leaving.Disconnect();
  EXPECT_TRUE(ModuleForgets(session));
}

TEST_F(HelperSessions, WrongPinIsIncorrectAndRightPinLogsIn) {
  uint32_t session = a_.OpenSession(slot_);
  EXPECT_EQ(a_.Login(session, "0000"), CKR_PIN_INCORRECT);
  EXPECT_EQ(a_.Call<WireOp::kGetSessionInfo>({session}).info.state, CKS_RW_PUBLIC_SESSION);
  ASSERT_EQ(a_.Login(session, kUserPin), CKR_OK);
  EXPECT_EQ(a_.Call<WireOp::kGetSessionInfo>({session}).info.state, CKS_RW_USER_FUNCTIONS);
  EXPECT_EQ(a_.Login(session, kUserPin), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(a_.Call<WireOp::kLogout>({session}).rv, CKR_OK);
  EXPECT_EQ(a_.Call<WireOp::kGetSessionInfo>({session}).info.state, CKS_RW_PUBLIC_SESSION);
}

TEST_F(HelperSessions, PinChangeRoundTrip) {
  uint32_t session = a_.OpenSession(slot_);
  ASSERT_EQ(a_.Login(session, kUserPin), CKR_OK);
  p11wire::SetPinRequest change;
  change.session = session;
  change.oldPin.present = change.newPin.present = true;
  change.oldPin.bytes = {'1', '2', '3', '4'};
  change.newPin.bytes = {'4', '3', '2', '1'};
  ASSERT_EQ(a_.Call<WireOp::kSetPIN>(change).rv, CKR_OK);
  a_.Call<WireOp::kLogout>({session});
  EXPECT_EQ(a_.Login(session, kUserPin), CKR_PIN_INCORRECT);
  ASSERT_EQ(a_.Login(session, "4321"), CKR_OK);
  std::swap(change.oldPin, change.newPin);
  ASSERT_EQ(a_.Call<WireOp::kSetPIN>(change).rv, CKR_OK);
  a_.Call<WireOp::kLogout>({session});
}

TEST_F(HelperSessions, MissingPinPointerIsPassedAsNull) {
  uint32_t session = a_.OpenSession(slot_);
  p11wire::PinRequest request;
  request.session = session;
  request.userType = CKU_USER;  // no pin at all: SoftHSM2 refuses a null PIN
  EXPECT_EQ(a_.Call<WireOp::kLogin>(request).rv, CKR_ARGUMENTS_BAD);
}

}  // namespace
}  // namespace nivra::p11test
