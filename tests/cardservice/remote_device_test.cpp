// Bluetooth devices as the provider meets them: the device list, the confirmation that a person
// gives, refuses or never gives on the control interface, and the limits answer. Card commands
// through device frames and the loopback TCP control port are proven through the provider
// (tests/service, device_cards_wine_test.cpp).
#include <tuple>

#include "service/frames/confirmation_state.h"
#include "service/frames/device_records.h"
#include "tests/cardservice/remote_harness.h"

namespace nivra::cardtest {
namespace {

using DeviceTest = RemoteTest;

constexpr uint32_t kReason = 7;

frames::Bytes ListAnswer(uint16_t port, const frames::Bytes& request) {
  Client control(port);
  frames::Bytes answer;
  EXPECT_TRUE(control.Send(request) && control.Receive(&answer));
  return answer;
}

frames::ConfirmationState State(Channel& channel, const std::string& device, uint16_t command,
                                uint32_t reason = 0) {
  frames::CardRequest request;
  request.reason = reason;
  CardResult result = channel.CallDevice(device, command, request);
  EXPECT_TRUE(result.transported);
  EXPECT_EQ(result.status, 0u);
  return frames::ReadConfirmation(result.response.value);
}

TEST_F(DeviceTest, ListsNameEveryDeviceAndCardWithItsDisplayNameAndAddress) {
  frames::Bytes devices = ListAnswer(service_->port(), frames::BuildDeviceListRequest());
  frames::Bytes cards = ListAnswer(service_->port(), frames::BuildCardListRequest());
  ASSERT_EQ(frames::ReadHeader(devices.data()).command, frames::kCmdDeviceListAnswer);
  ASSERT_EQ(frames::ReadHeader(cards.data()).command, frames::kCmdCardListAnswer);
  std::vector<frames::DeviceRecord> deviceRecords;
  std::vector<frames::CardRecord> cardRecords;
  ASSERT_EQ(frames::ParseDeviceListBody(devices.data() + frames::kHeaderSize,
                                        devices.size() - frames::kHeaderSize, &deviceRecords),
            frames::FrameStatus::kOk);
  ASSERT_EQ(frames::ParseCardListBody(cards.data() + frames::kHeaderSize,
                                      cards.size() - frames::kHeaderSize, &cardRecords),
            frames::FrameStatus::kOk);
  ASSERT_EQ(deviceRecords.size(), 2u);
  ASSERT_EQ(cardRecords.size(), 2u);
  // Without a display name, the name is shown.
  EXPECT_EQ(std::tuple(deviceRecords[0].name, deviceRecords[0].displayName, deviceRecords[1].name,
                       deviceRecords[1].displayName),
            std::tuple(kPhone, "Anna's phone", kOldPhone, kOldPhone));
  EXPECT_EQ(std::tuple(cardRecords[0].name, cardRecords[0].displayName, cardRecords[0].address,
                       cardRecords[1].address),
            std::tuple(kDesk, "Desk card", desk_, spare_));
  // A device or a slot that the service does not present is answered, not fatal.
  auto channel = Open();
  CardResult unknown = channel->CallDevice("phone-9", frames::kCmdLoginState, {});
  EXPECT_TRUE(unknown.transported);
  EXPECT_EQ(unknown.status, kScardReaderUnavailable);
  frames::Bytes slotInfo = ListAnswer(service_->port(), frames::BuildSlotInfoRequest(0x7FFFFFF0));
  EXPECT_EQ(frames::ReadHeader(slotInfo.data()).status, kScardReaderUnavailable);
  EXPECT_EQ(channel->CallDevice(kPhone, frames::kCmdLoginState, {}).status, 0u);
}

TEST_F(DeviceTest, ConfirmationHoldsForTheDeviceUntilItsTokenLogsOut) {
  auto first = Open();
  State(*first, kPhone, frames::kCmdAskConfirmation, kReason);
  ASSERT_EQ(service_->Control(std::string("confirm ") + kPhone), "ok");
  // Another connection (another process of the provider) finds the device unlocked.
  auto second = Open();
  EXPECT_TRUE(State(*second, kPhone, frames::kCmdLoginState).authenticated);
  // The confirmation unlocks the device, not the published slot of the same token.
  EXPECT_EQ(Call(*second, frames::kCmdLoginState).response.value, 0u);
  // A wrong PIN on the slot makes the token judge it: its login ends, and the device's with it.
  EXPECT_EQ(Text(*second, frames::kCmdVerifyPin, "wrong-pin").response.value, 0u);
  frames::ConfirmationState after = State(*first, kPhone, frames::kCmdLoginState);
  EXPECT_FALSE(after.authenticated);
  EXPECT_FALSE(after.pending);
}

// Given, refused and never given confirmations are proven through the provider
// (device_cards_wine_test.cpp); here the person's side: the prompt and what the interface refuses.
TEST_F(DeviceTest, ControlInterfaceRefusesWhatItCannotDo) {
  auto channel = Open();
  frames::ConfirmationState asked = State(*channel, kOldPhone, frames::kCmdAskConfirmation, kReason);
  EXPECT_EQ(std::pair(asked.authenticated, asked.pending), std::pair(false, true));
  State(*channel, kPhone, frames::kCmdAskConfirmation, kReason);
  std::string log = service_->Log();
  EXPECT_NE(log.find("CONFIRM? device phone-1 (\"Anna's phone\")"), std::string::npos);
  EXPECT_NE(log.find("confirm phone-1' or 'refuse phone-1'"), std::string::npos);
  ASSERT_EQ(service_->Control("refuse phone-1"), "ok");
  struct Case {
    std::string line;
    std::string reply;
  };
  const Case cases[] = {
      {"confirm phone-1", "error: no confirmation is pending for phone-1"},
      {"refuse nobody", "error: no device or card is called nobody"},
      {"unlock phone-2", "error: commands are 'confirm NAME', 'refuse NAME' and 'pending'"},
      {"confirm", "error: commands are 'confirm NAME', 'refuse NAME' and 'pending'"},
      {"pending", "ok phone-2"},
      // The token refuses the configured PIN: the request is answered, the device stays locked.
      {"confirm phone-2", "error: the token refused the configured PIN of phone-2"},
      {"pending", "ok"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(service_->Control(c.line), c.reply);
  }
  frames::ConfirmationState state = State(*channel, kOldPhone, frames::kCmdLoginState);
  EXPECT_FALSE(state.authenticated);
  EXPECT_FALSE(state.pending);
}

TEST_F(DeviceTest, LimitsAnswerIsConfiguredPerDevice) {
  auto channel = Open();
  struct Case {
    const char* device;
    frames::CardLimits expected;
  };
  // loaded, default, min, max, step, min PIN, max PIN, flags present, flags. The service reports
  // 16384 as configured; cutting it is the module's business.
  const Case cases[] = {
      {kPhone, {1, 3072, 2048, 16384, 1024, 6, 12, true, 5}},
      {kOldPhone, {1, 2048, 1024, 4096, 8, 4, 64, true, 0}},
  };
  auto fields = [](const frames::CardLimits& l) {
    return std::tuple(l.loaded, l.defaultBits, l.minBits, l.maxBits, l.incrementBits, l.minPin,
                      l.maxPin, l.hasPinFlags, l.pinFlags);
  };
  for (const Case& c : cases) {
    CardResult limits = channel->CallDevice(c.device, frames::kCmdCardLimits, {});
    ASSERT_EQ(limits.status, 0u) << c.device;
    EXPECT_EQ(fields(limits.response.limits), fields(c.expected)) << c.device;
  }
  // Published slots have no limits answer and no confirmation.
  for (uint16_t command : {frames::kCmdCardLimits, frames::kCmdAskConfirmation}) {
    EXPECT_EQ(Call(*channel, command).status, kNteNotSupported) << std::hex << command;
  }
}

}  // namespace
}  // namespace nivra::cardtest
