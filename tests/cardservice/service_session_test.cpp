// The wire as a client meets it: the slot list, the handshake, what an observer of the loopback
// traffic sees, and the per-channel login.
#include <cstring>

#include "crypto/rsa_interface.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"
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

TEST_F(SessionTest, TraceShowsCommandsInClearAndBodiesOnlyEncrypted) {
  auto channel = Open();
  Login(*channel);
  uint32_t handle = Create(*channel, "traced");
  frames::Bytes wrapped = channel->WrapRequest(slot_, frames::kCmdReadPublicKey, Key(handle, 2));
  std::string log = service_->Log();
  auto hex = [](const std::string& text) {
    std::string out;
    char two[3];
    for (unsigned char c : text) {
      std::snprintf(two, sizeof two, "%02x", c);
      out += two;
    }
    return out;
  };
  EXPECT_EQ(log.find(hex(kUserPin)), std::string::npos) << "the PIN travelled in clear";
  EXPECT_EQ(log.find(hex("traced")), std::string::npos) << "a container name travelled in clear";
  // The outer header of a slot frame (command 0x7011, little-endian) is visible, and so is the
  // answer's command with its status.
  EXPECT_NE(log.find("< 0x7011"), std::string::npos);
  EXPECT_NE(log.find("> 0xa012 status 0x00000000"), std::string::npos);
  EXPECT_NE(log.find("slot " + std::to_string(slot_) + " card command 0x2012"), std::string::npos);
}

TEST_F(SessionTest, HandshakeGivesEachChannelItsOwnSessionKey) {
  // A frame wrapped for one channel does not decrypt on another: the second channel's service
  // side refuses it and closes that connection only.
  auto first = Open();
  auto second = Open();
  frames::Bytes foreign = first->WrapRequest(slot_, frames::kCmdLoginState, {});
  ASSERT_TRUE(second->client().Send(foreign));
  frames::Bytes answer;
  EXPECT_FALSE(second->client().Receive(&answer));
  EXPECT_EQ(Call(*first, frames::kCmdLoginState).status, 0u);
}

TEST_F(SessionTest, HelloWithAWeakOrBrokenKeyIsRefused) {
  struct Case {
    const char* what;
    uint32_t bits;  // 0: the key bytes are not DER
  };
  for (Case c : {Case{"512-bit key", 512}, Case{"not a key", 0}}) {
    SCOPED_TRACE(c.what);
    Client client(service_->port());
    frames::Bytes hello;
    if (c.bits) {
      frames::RsaOwner key;
      ASSERT_EQ(crypto::RsaGenerateNewKey(key.Out(), c.bits, 65537), crypto::kOk);
      ASSERT_EQ(frames::BuildHello(key.Get(), &hello), frames::FrameStatus::kOk);
    } else {
      const uint8_t body[] = {2, 0, 0x30, 0x03, 0x02, 0x01, 0x05};
      frames::BuildFrame(frames::kCmdHello, 0, body, sizeof body, &hello);
    }
    ASSERT_TRUE(client.Send(hello));
    EXPECT_TRUE(client.ClosedByService());
  }
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
}

}  // namespace
}  // namespace nivra::cardtest
