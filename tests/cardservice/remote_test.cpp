// Bluetooth devices and service cards: a card's key exchange, broken and stalled clients on every
// listener and the stop beside them, the configurations the service refuses, and what it answers
// for targets it does not present, and a device listed under its name. Other lists, card
// commands through device and card frames, the control port, confirmations and limits are the
// Windows tests' against the real service (device_cards_wine_test.cpp, select_card_wine_test.cpp).
#include <tuple>

#include "crypto/rsa_interface.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

constexpr auto kOk = frames::FrameStatus::kOk;
const std::string kPhone = "phone-1", kDesk = "desk-1", kSpare = "desk-2";
constexpr uint16_t kCardPort = 45452;

// The module's side of a key exchange with the card at address:45452: the status of the card-key
// answer to an offer of `name`, then that of the acknowledgement of `secret` (a fresh one when
// empty); ~0u when none came. A refused offer or secret ends the connection. (Card commands in
// the session are the Windows tests'.)
std::pair<uint32_t, uint32_t> KeyExchange(const std::string& address, const std::string& name,
                                          frames::Bytes secret) {
  Session card(kCardPort, address);
  frames::Bytes offer, answer, frame;
  const uint8_t* der = nullptr;
  size_t length = 0;
  if (frames::BuildKeyOffer(name, &offer) != kOk || !card.Send(offer) ||
      !card.Receive(&answer)) {
    return {~0u, ~0u};
  }
  if (frames::ParseCardKeyFrame(answer.data(), answer.size(), &der, &length) != kOk) {
    return {card.ClosedByService() ? frames::ReadHeader(answer.data()).status : ~0u, ~0u};
  }
  if (secret.empty()) {
    secret.resize(frames::kSessionSecretSize);
    frames::MakeSessionSecret(secret.data());
  }
  if (frames::BuildSessionKeyFrame(der, length, secret.data(), secret.size(), &frame,
                                   frames::kCmdCardSessionKey) != kOk ||
      !card.Send(frame) || !card.Receive(&answer)) {
    return {0, ~0u};
  }
  if (frames::ParseCardSessionAck(answer.data(), answer.size()) == kOk) return {0, 0};
  return {0, card.ClosedByService() ? frames::ReadHeader(answer.data()).status : ~0u};
}

using RemoteTest = ServiceTest;

TEST_F(RemoteTest, KeyExchangeIsTakenOnlyForTheCardOfTheAddressAndAGoodSecret) {
  frames::Bytes good(frames::kSessionSecretSize);
  ASSERT_EQ(frames::MakeSessionSecret(good.data()), kOk);
  frames::Bytes longer = good, badCheck = good;
  longer.push_back(0);
  badCheck.back() ^= 1;  // the check block of another key
  // Offered name, the address it is offered on, the secret, and the two statuses.
  const std::tuple<std::string, std::string, frames::Bytes, uint32_t, uint32_t> cases[] = {
      {kDesk, desk_, {}, 0, 0},
      {kSpare, spare_, {}, 0, 0},
      {kSpare, desk_, {}, kScardUnknownCard, ~0u},  // another card's name on this address
      {"", desk_, {}, kScardUnknownCard, ~0u},
      {kDesk, desk_, frames::Bytes(good.begin(), good.end() - 1), 0, kNteBadData},
      {kDesk, desk_, longer, 0, kNteBadData},
      {kDesk, desk_, badCheck, 0, kNteBadData},
  };
  for (const auto& [name, address, secret, offerStatus, secretStatus] : cases) {
    EXPECT_EQ(KeyExchange(address, name, secret), std::pair(offerStatus, secretStatus))
        << name << " on " << address << ", " << secret.size() << "-byte secret";
  }
}

frames::Bytes Frame(uint16_t command, uint32_t status, frames::Bytes body) {
  frames::Bytes frame;
  frames::BuildFrame(command, status, body.data(), body.size(), &frame);
  return frame;
}

TEST_F(RemoteTest, BrokenClientsOnEveryListenerAreClosedAlone) {
  // A logged-in channel stays usable throughout. Published slots have no limits answer and no
  // confirmation; a device or a slot that the service does not present is answered, not fatal.
  auto channel = Open();
  Login(*channel);
  for (uint16_t command : {frames::kCmdCardLimits, frames::kCmdAskConfirmation}) {
    EXPECT_EQ(Call(*channel, command).status, kNteNotSupported) << std::hex << command;
  }
  for (const auto& [device, status] : {std::pair{std::string("phone-9"), kScardReaderUnavailable},
                                       {kPhone, 0u}}) {
    frames::Bytes frame = CardFrame(frames::kCmdLoginState, {}, 0, device);
    EXPECT_EQ(channel->Call(frames::kCmdLoginState, frame).status, status) << device;
  }
  Session control(port_);
  // The device, configured without a display name, is listed under its name.
  frames::Bytes list;
  std::vector<frames::DeviceRecord> devices;
  ASSERT_TRUE(control.Send(frames::BuildDeviceListRequest()) && control.Receive(&list));
  ASSERT_EQ(frames::ParseDeviceListBody(list.data() + frames::kHeaderSize,
                                        list.size() - frames::kHeaderSize, &devices), kOk);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0].displayName, kPhone);
  frames::Bytes slotInfo;
  ASSERT_TRUE(control.Send(frames::BuildSlotInfoRequest(0x7FFFFFF0)) && control.Receive(&slotInfo));
  EXPECT_EQ(frames::ReadHeader(slotInfo.data()).status, kScardReaderUnavailable);
  const frames::Bytes unknownCommand = Frame(0x3333, 0, {});
  const frames::Bytes announced = {0x01, 0x10, 100, 0, 0, 0, 0, 0, 1, 2, 3};
  frames::Bytes deviceFrame, weakHello;
  frames::BuildDeviceFrame(kPhone, unknownCommand.data(), unknownCommand.size(), &deviceFrame);
  frames::RsaOwner weakKey;
  ASSERT_EQ(crypto::RsaGenerateNewKey(weakKey.Out(), 512, 65537), crypto::kOk);
  ASSERT_EQ(frames::BuildHello(weakKey.Get(), &weakHello), kOk);
  // On a card's address or the service's port: the bytes, whether the client leaves after sending
  // them, and what the service logs.
  const std::tuple<bool, frames::Bytes, bool, const char*> cases[] = {
      {false, Frame(0x4242, 0, {1, 2, 3}), false, "unknown command"},
      {false, Frame(frames::kCmdSlotList, 5, {}), false, "a request with a status"},
      {false, Frame(frames::kCmdSlotList, 0, {0}), false, "slot list with a body"},
      {false, Frame(frames::kCmdSlotInfo, 0, {1, 2, 3}), false, "4-byte slot ID"},
      {false, Frame(frames::kCmdSlotFrame, 0, frames::Bytes(16)), false,
       "slot frame before the handshake"},
      {false, Frame(frames::kCmdHello, 0, {3, 0, 0x30, 0}), false, "malformed hello"},
      {false, Frame(frames::kCmdHello, 0, {2, 0, 0x30, 3, 2, 1, 5}), false,
       "hello without a usable RSA public key"},
      {false, weakHello, false, "hello with a key below 1024 bits"},
      {false, deviceFrame, false, "device frame before the handshake"},
      {false, Frame(frames::kCmdDeviceList, 0, {1, 2}), false, "device list with a body"},
      {true, unknownCommand, false, "a card command before the key exchange"},
      {true, Frame(frames::kCmdCardSessionKey, 0, announced), false,
       "a session key before the key offer"},
      {true, announced, true, "client disconnected mid-frame"},
  };
  for (const auto& [cardAddress, bytes, hangUp, logged] : cases) {
    SCOPED_TRACE(logged);
    {
      Session client(cardAddress ? kCardPort : port_, cardAddress ? desk_ : "127.0.0.1");
      ASSERT_TRUE(client.Send(bytes));
      EXPECT_TRUE(hangUp || client.ClosedByService());
    }
    EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
  }
  // A channel whose slot frame does not decrypt (not whole cipher blocks, or wrapped under
  // another channel's session key) is closed too.
  frames::Bytes plain = CardFrame(frames::kCmdLoginState, {}, slot_), foreign;
  frames::WrapFrame(channel->cipher.Get(), plain.data(), plain.size(), &foreign);
  for (const frames::Bytes& garbage :
       {Frame(frames::kCmdSlotFrame, 0, frames::Bytes(13, 0xA5)), foreign}) {
    auto broken = Open();
    ASSERT_TRUE(broken->Send(garbage));
    EXPECT_TRUE(broken->ClosedByService());
  }
  // SIGTERM ends the service promptly with a client stalled mid-frame and a channel idle; every
  // connection thread has logged once the service has stopped.
  Session staller(port_);
  ASSERT_TRUE(staller.Send(frames::Bytes(announced.begin(), announced.end() - 1)));
  EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
  EXPECT_TRUE(Stop());
  EXPECT_TRUE(channel->ClosedByService());
  std::string log = Log();
  for (const auto& c : cases) EXPECT_NE(log.find(std::get<3>(c)), std::string::npos);
  EXPECT_NE(log.find("slot frame that does not decrypt"), std::string::npos);
}

TEST_F(RemoteTest, ServiceRefusesToStartWithABadCardConfiguration) {
  const std::string token = std::string(" token=") + kTokenLabel;
  const std::pair<std::string, std::string> cases[] = {
      {"phone" + token + "\n", "cards.conf:1: a line starts with 'device' or 'card'"},
      {"device a" + token + " colour=red\n", ":1: unknown setting 'colour'"},
      {"\n# comment\ndevice a pin=1\n", ":3: token=LABEL is required"},
      {"device a token=no-such-token\n", "no token labelled 'no-such-token' for a"},
      {"device " + std::string(40, 'n') + token + "\n", ":1: a name has 1 to 39 bytes"},
      {"card c" + token + " address=10.0.0.1\n", "must be a loopback address"},
      {"device a" + token + " address=127.0.0.9\n", "only a card has an address"},
      {"device a" + token + " max-key=70000\n", "bad value for max-key: '70000'"},
      {"device a" + token + "\ncard a" + token + "\n", "the name a is used twice"},
      {"device a" + token + " display=\"open\n", ":1: a quote is not closed"},
  };
  for (const auto& [config, message] : cases) {
    SCOPED_TRACE(config);
    std::string output;
    EXPECT_NE(Start(directory_ + "/refused", config, &output), 0);
    EXPECT_NE(output.find(message), std::string::npos) << output;
  }
}

}  // namespace
}  // namespace nivra::cardtest
