// Library and slot calls through the helper against SoftHSM2: initialisation (normal and
// forced), fake slots, mechanisms. (The slot list and slot and token information are checked
// through nivrap11fwd.dll in forwarding_token_wine_test.cpp.)
#include <algorithm>
#include <cstdio>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;

using HelperInitialize = HelperTest;  // with clients of its own

TEST_F(HelperInitialize, EachClientInitialisesOnceAndIsRefusedBefore) {
  TestClient client;
  EXPECT_EQ(client.Call<WireOp::kGetSlotList>({}).rv, CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(client.Finalize(), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(client.Initialize(), CKR_OK);
  EXPECT_EQ(client.Initialize(), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(client.Finalize(), CKR_OK);
  EXPECT_EQ(client.Call<WireOp::kGetInfo>({}).rv, CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(HelperInitialize, ForcedResultIsAnsweredWithOrWithoutServingTheClient) {
  struct Case {
    const char* command;
    uint32_t initialize;
    uint32_t slotList;  // what the client gets next
  };
  for (const Case& c : {Case{"force-init 0x191", CKR_CRYPTOKI_ALREADY_INITIALIZED, CKR_OK},
                        Case{"force-init 6", CKR_FUNCTION_FAILED, CKR_OK},
                        Case{"force-init 0x30 noinit", CKR_DEVICE_ERROR, CKR_CRYPTOKI_NOT_INITIALIZED},
                        Case{"force-init off", CKR_OK, CKR_OK}}) {
    harness().Control(c.command);
    TestClient client;
    EXPECT_EQ(client.Initialize(), c.initialize) << c.command;
    EXPECT_EQ(client.Call<WireOp::kGetSlotList>({}).rv, c.slotList) << c.command;
  }
}

using HelperSlots = HelperTest;

TEST_F(HelperSlots, FakeSlotsAreEmptyRemovableSlotsThatRefuseTokenCalls) {
  uint32_t named = std::stoul(harness().Control("add-slots 1"), nullptr, 0);
  uint32_t blank = std::stoul(harness().Control("add-slots 1 blank"), nullptr, 0);
  auto info = client_.Call<WireOp::kGetSlotInfo>({named});
  ASSERT_EQ(info.rv, CKR_OK);
  char expected[64];
  std::snprintf(expected, sizeof expected, "Nivra test slot 0x%08x", named);
  EXPECT_EQ(Trimmed(info.info.slotDescription, 64), expected);
  EXPECT_EQ(info.info.flags & (CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE), CKF_REMOVABLE_DEVICE);
  auto blankInfo = client_.Call<WireOp::kGetSlotInfo>({blank});
  ASSERT_EQ(blankInfo.rv, CKR_OK);
  EXPECT_EQ(Bytes(blankInfo.info.slotDescription, blankInfo.info.slotDescription + 64), Bytes(64, ' '));

  EXPECT_EQ(client_.Call<WireOp::kGetTokenInfo>({named}).rv, CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kOpenSession>({named, CKF_SERIAL_SESSION}).rv, CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kGetMechanismList>({named}).rv, CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kCloseAllSessions>({named}).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kGetSlotInfo>({0x7FFFFFF0}).rv, CKR_SLOT_ID_INVALID);
  EXPECT_EQ(client_.Call<WireOp::kCloseAllSessions>({0x7FFFFFF0}).rv, CKR_SLOT_ID_INVALID);
}

TEST_F(HelperSlots, MechanismListAndInformationArrive) {
  auto size = client_.Call<WireOp::kGetMechanismList>({slot32()});
  ASSERT_EQ(size.rv, CKR_OK);
  auto list = client_.Call<WireOp::kGetMechanismList>({slot32(), false, true, size.count});
  ASSERT_EQ(list.rv, CKR_OK);
  EXPECT_NE(std::find(list.ids.begin(), list.ids.end(), CKM_RSA_X_509), list.ids.end());
  auto rsa = client_.Call<WireOp::kGetMechanismInfo>({slot32(), CKM_RSA_PKCS_KEY_PAIR_GEN});
  ASSERT_EQ(rsa.rv, CKR_OK);
  EXPECT_LE(rsa.info.minKeySize, 1024u);
  EXPECT_GE(rsa.info.maxKeySize, 2048u);
}

}  // namespace
}  // namespace nivra::p11test
