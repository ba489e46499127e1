// Library and slot calls through the helper against SoftHSM2: initialisation (normal and
// forced), the slot list with its size-query protocol, fake slots, and token information.
#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::ListRequest;
using p11wire::WireOp;

ListRequest SlotListRequest(bool tokenPresent, bool wantList, uint32_t capacity) {
  ListRequest r;
  r.tokenPresent = tokenPresent;
  r.wantList = wantList;
  r.capacity = capacity;
  return r;
}

std::vector<uint32_t> ParseIds(const std::string& text) {
  std::istringstream in(text);
  std::vector<uint32_t> ids;
  for (std::string word; in >> word;) ids.push_back(static_cast<uint32_t>(std::stoul(word, nullptr, 0)));
  return ids;
}

std::string Trimmed(const uint8_t* field, size_t size) {
  std::string s(reinterpret_cast<const char*>(field), size);
  return s.substr(0, s.find_last_not_of(' ') + 1);
}

using HelperInitialize = HelperTest;

TEST_F(HelperInitialize, CallsBeforeInitializeAreRefused) {
  TestClient client;
  EXPECT_EQ(client.Call<WireOp::kGetSlotList>(SlotListRequest(false, false, 0)).rv,
            CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(client.Finalize(), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(client.Initialize(), CKR_OK);
  EXPECT_EQ(client.Initialize(), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(client.Finalize(), CKR_OK);
  EXPECT_EQ(client.Call<WireOp::kGetInfo>({}).rv, CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(HelperInitialize, ForcedResultIsAnsweredWhileTheClientIsServed) {
  harness().Control("force-init 0x191");
  TestClient client;
  EXPECT_EQ(client.Initialize(), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(client.Call<WireOp::kGetSlotList>(SlotListRequest(false, false, 0)).rv, CKR_OK);
  harness().Control("force-init 6");
  TestClient other;
  EXPECT_EQ(other.Initialize(), CKR_FUNCTION_FAILED);
  EXPECT_EQ(other.Call<WireOp::kGetSlotList>(SlotListRequest(false, false, 0)).rv, CKR_OK);
}

TEST_F(HelperInitialize, ForcedNoinitLeavesTheClientUninitialised) {
  harness().Control("force-init 0x30 noinit");
  TestClient client;
  EXPECT_EQ(client.Initialize(), CKR_DEVICE_ERROR);
  EXPECT_EQ(client.Call<WireOp::kGetSlotList>(SlotListRequest(false, false, 0)).rv,
            CKR_CRYPTOKI_NOT_INITIALIZED);
  harness().Control("force-init off");
  EXPECT_EQ(client.Initialize(), CKR_OK);
}

TEST_F(HelperInitialize, MalformedForceInitIsRefused) {
  std::string answer;
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "force-init 0x100000000", &answer),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "force-init", &answer),
            CKR_ARGUMENTS_BAD);
}

using HelperSlots = ClientTest;

TEST_F(HelperSlots, SlotListFollowsSizeQueryProtocol) {
  auto size = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, false, 0));
  ASSERT_EQ(size.rv, CKR_OK);
  ASSERT_GE(size.count, 2u);  // the token's slot and SoftHSM2's spare slot
  EXPECT_TRUE(size.ids.empty());

  auto small = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, true, size.count - 1));
  EXPECT_EQ(small.rv, CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(small.count, size.count);
  EXPECT_TRUE(small.ids.empty());

  auto full = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, true, size.count));
  ASSERT_EQ(full.rv, CKR_OK);
  ASSERT_EQ(full.ids.size(), size.count);
  EXPECT_NE(std::find(full.ids.begin(), full.ids.end(), slot_), full.ids.end());
}

TEST_F(HelperSlots, FortyFakeSlotsFollowTheModuleSlots) {
  auto before = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, true, 64));
  ASSERT_EQ(before.rv, CKR_OK);
  std::vector<uint32_t> fake = ParseIds(harness().Control("add-slots 40"));
  ASSERT_EQ(fake.size(), 40u);
  auto after = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, true, 64));
  ASSERT_EQ(after.rv, CKR_OK);
  ASSERT_EQ(after.ids.size(), before.ids.size() + 40);
  EXPECT_TRUE(std::equal(before.ids.begin(), before.ids.end(), after.ids.begin()));
  EXPECT_TRUE(std::equal(fake.begin(), fake.end(), after.ids.begin() + before.ids.size()));
  // Fake slots hold no token, so the list of slots with a token is unchanged.
  auto present = client_.Call<WireOp::kGetSlotList>(SlotListRequest(true, true, 64));
  EXPECT_EQ(std::count(present.ids.begin(), present.ids.end(), fake[0]), 0);
}

TEST_F(HelperSlots, ThreeHundredSlotsAreListed) {
  harness().Control("add-slots 300");
  auto size = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, false, 0));
  auto all = client_.Call<WireOp::kGetSlotList>(SlotListRequest(false, true, size.count));
  ASSERT_EQ(all.rv, CKR_OK);
  EXPECT_GE(all.ids.size(), 302u);
}

TEST_F(HelperSlots, FakeSlotDescriptionsAreNamedOrBlank) {
  uint32_t named = ParseIds(harness().Control("add-slots 1"))[0];
  uint32_t blank = ParseIds(harness().Control("add-slots 1 blank"))[0];
  auto info = client_.Call<WireOp::kGetSlotInfo>({named});
  ASSERT_EQ(info.rv, CKR_OK);
  char expected[64];
  std::snprintf(expected, sizeof expected, "Nivra test slot 0x%08x", named);
  EXPECT_EQ(Trimmed(info.info.slotDescription, 64), expected);
  EXPECT_EQ(info.info.flags & CKF_TOKEN_PRESENT, 0u);
  EXPECT_EQ(info.info.flags & CKF_REMOVABLE_DEVICE, CKF_REMOVABLE_DEVICE);

  auto blankInfo = client_.Call<WireOp::kGetSlotInfo>({blank});
  ASSERT_EQ(blankInfo.rv, CKR_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(blankInfo.info.slotDescription), 64),
            std::string(64, ' '));
}

TEST_F(HelperSlots, FakeSlotsRefuseTokenCalls) {
  uint32_t fake = ParseIds(harness().Control("add-slots 1"))[0];
  EXPECT_EQ(client_.Call<WireOp::kGetTokenInfo>({fake}).rv, CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kOpenSession>({fake, CKF_SERIAL_SESSION}).rv, CKR_TOKEN_NOT_PRESENT);
  ListRequest mechanisms;
  mechanisms.slot = fake;
  EXPECT_EQ(client_.Call<WireOp::kGetMechanismList>(mechanisms).rv, CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(client_.Call<WireOp::kCloseAllSessions>({fake}).rv, CKR_OK);
}

TEST_F(HelperSlots, AddSlotsRejectsZeroAndTooMany) {
  std::string answer;
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "add-slots 0", &answer),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "add-slots 4097", &answer),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "add-slots 2 empty", &answer),
            CKR_ARGUMENTS_BAD);
}

TEST_F(HelperSlots, ModuleSlotDescriptionAndTokenInfoArrive) {
  auto slot = client_.Call<WireOp::kGetSlotInfo>({static_cast<uint32_t>(slot_)});
  ASSERT_EQ(slot.rv, CKR_OK);
  EXPECT_EQ(Trimmed(slot.info.slotDescription, 64).rfind("SoftHSM slot ID 0x", 0), 0u);
  EXPECT_EQ(slot.info.flags & CKF_TOKEN_PRESENT, CKF_TOKEN_PRESENT);

  auto token = client_.Call<WireOp::kGetTokenInfo>({static_cast<uint32_t>(slot_)});
  ASSERT_EQ(token.rv, CKR_OK);
  EXPECT_EQ(Trimmed(token.info.label, 32), kTokenLabel);
  EXPECT_EQ(Trimmed(token.info.model, 16), "SoftHSM v2");
  EXPECT_EQ(token.info.flags & CKF_TOKEN_INITIALIZED, CKF_TOKEN_INITIALIZED);
  // SoftHSM2 does not report its memory: the native CK_UNAVAILABLE_INFORMATION arrives as the
  // 32-bit one.
  EXPECT_EQ(token.info.totalPublicMemory, 0xFFFFFFFFu);
  EXPECT_EQ(token.info.maxPinLen, 255u);

  CK_TOKEN_INFO native;
  ASSERT_EQ(harness().module()->C_GetTokenInfo(slot_, &native), CKR_OK);
  EXPECT_EQ(std::memcmp(native.serialNumber, token.info.serialNumber, 16), 0);
}

TEST_F(HelperSlots, UnknownSlotIsInvalid) {
  EXPECT_EQ(client_.Call<WireOp::kGetSlotInfo>({0x7FFFFFF0}).rv, CKR_SLOT_ID_INVALID);
  EXPECT_EQ(client_.Call<WireOp::kCloseAllSessions>({0x7FFFFFF0}).rv, CKR_SLOT_ID_INVALID);
}

TEST_F(HelperSlots, MechanismListCarriesRawRsa) {
  ListRequest request;
  request.slot = static_cast<uint32_t>(slot_);
  auto size = client_.Call<WireOp::kGetMechanismList>(request);
  ASSERT_EQ(size.rv, CKR_OK);
  request.wantList = true;
  request.capacity = size.count;
  auto list = client_.Call<WireOp::kGetMechanismList>(request);
  ASSERT_EQ(list.rv, CKR_OK);
  EXPECT_NE(std::find(list.ids.begin(), list.ids.end(), CKM_RSA_X_509), list.ids.end());
  auto info = client_.Call<WireOp::kGetMechanismInfo>({static_cast<uint32_t>(slot_), CKM_RSA_PKCS_KEY_PAIR_GEN});
  ASSERT_EQ(info.rv, CKR_OK);
  EXPECT_LE(info.info.minKeySize, 1024u);
  EXPECT_GE(info.info.maxKeySize, 2048u);
}

}  // namespace
}  // namespace nivra::p11test
