// The wire as a client meets it: the slot list, the per-channel login, and what the trace shows.
#include <cstring>

#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

using SessionTest = ServiceTest;

TEST_F(SessionTest, SlotListPublishesTheTokenWithItsSerialAndSlotName) {
  CK_FUNCTION_LIST* p11 = NativeModule();
  p11->C_Initialize(nullptr);
  CK_TOKEN_INFO token;
  CK_SLOT_INFO slot;
  ASSERT_EQ(p11->C_GetTokenInfo(slot_, &token), CKR_OK);
  ASSERT_EQ(p11->C_GetSlotInfo(slot_, &slot), CKR_OK);
  p11->C_Finalize(nullptr);
  std::string description(reinterpret_cast<char*>(slot.slotDescription), sizeof slot.slotDescription);
  description.erase(description.find_last_not_of(' ') + 1);

  auto records = SlotList(service_->port());
  const frames::SlotRecord* published = nullptr;
  for (const auto& record : records) {
    if (record.slotId == slot_) published = &record;
  }
  ASSERT_NE(published, nullptr);
  EXPECT_EQ(published->tokenPresent, 1u);
  EXPECT_EQ(std::string(published->name), description);
  EXPECT_EQ(0, std::memcmp(published->serial, token.serialNumber, sizeof published->serial));

  // One slot by ID, and an ID the module does not know.
  Client control(service_->port());
  frames::Bytes answer;
  ASSERT_TRUE(control.Send(frames::BuildSlotInfoRequest(slot_)) && control.Receive(&answer));
  frames::SlotRecord one;
  ASSERT_EQ(frames::ParseSlotInfoBody(answer.data() + frames::kHeaderSize,
                                      answer.size() - frames::kHeaderSize, &one),
            frames::FrameStatus::kOk);
  EXPECT_EQ(std::string(one.name), description);
  ASSERT_TRUE(control.Send(frames::BuildSlotInfoRequest(0x7FFFFFF0)) && control.Receive(&answer));
  EXPECT_EQ(frames::ReadHeader(answer.data()).status, kScardReaderUnavailable);
}

TEST_F(SessionTest, LoginBelongsToTheChannel) {
  auto first = Open();
  auto second = Open();
  EXPECT_EQ(Text(*first, frames::kCmdCreateContainer, "scoped").status, kScardNotAuthenticated);
  Login(*first);
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).response.value, 1u);
  EXPECT_EQ(Call(*second, frames::kCmdLoginState).response.value, 0u);
  EXPECT_EQ(Text(*second, frames::kCmdCreateContainer, "scoped").status, kScardNotAuthenticated);
  EXPECT_EQ(Text(*first, frames::kCmdCreateContainer, "scoped").status, 0u);
  // The second channel logs in with the same PIN while the token stays logged in: the first
  // channel's login holds.
  Login(*second);
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).response.value, 1u);
  // A wrong PIN on the second channel makes the token judge it: both logins lapse.
  EXPECT_EQ(Text(*second, frames::kCmdVerifyPin, "wrong").response.value, 0u);
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).response.value, 0u);
  EXPECT_EQ(Call(*second, frames::kCmdLoginState).response.value, 0u);
  // The trace shows the outer slot frame, the card command inside it and the answer's status.
  std::string log = service_->Log();
  EXPECT_NE(log.find("< 0x7011"), std::string::npos);
  EXPECT_NE(log.find("slot " + std::to_string(slot_) + " card command 0x2012"), std::string::npos);
  EXPECT_NE(log.find("> 0xa012 status 0x00000000"), std::string::npos);
}

}  // namespace
}  // namespace nivra::cardtest
