// Service cards on their own loopback addresses: the card's side of the key exchange, broken
// and stalled clients on every listener and the stop beside them, and the configuration that the
// service refuses to start with. Card
// commands after a confirmation are proven through the provider (device_cards_wine_test.cpp).
#include "crypto/rsa_interface.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/device_records.h"
#include "service/frames/session_handshake.h"
#include "tests/cardservice/remote_harness.h"

namespace nivra::cardtest {
namespace {

using CardTest = RemoteTest;

TEST_F(CardTest, KeyExchangeIsTakenOnlyForTheCardOfTheAddressAndAGoodSecret) {
  frames::Bytes good(frames::kSessionSecretSize);
  ASSERT_EQ(frames::MakeSessionSecret(good.data()), frames::FrameStatus::kOk);
  frames::Bytes longer = good, badCheck = good;
  longer.push_back(0);
  badCheck.back() ^= 1;  // the check block of another key
  struct Case {
    const char* offered;
    bool onDesk;  // connect to desk-1's address, else desk-2's
    uint32_t offerStatus;
    frames::Bytes secret;  // empty: a fresh one, which makes the session ready
    uint32_t secretStatus;
  };
  const Case cases[] = {
      {kDesk, true, 0, {}, 0},
      {kSpare, false, 0, {}, 0},
      {kSpare, true, kScardUnknownCard, {}, 0},  // another card's name on this address
      {"", true, kScardUnknownCard, {}, 0},
      {kDesk, true, 0, frames::Bytes(good.begin(), good.end() - 1), kNteBadData},
      {kDesk, true, 0, longer, kNteBadData},
      {kDesk, true, 0, badCheck, kNteBadData},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.offered) + (c.onDesk ? " on desk-1, " : " on desk-2, ") +
                 std::to_string(c.secret.size()) + "-byte secret");
    CardSession session(c.onDesk ? desk_ : spare_, c.offered);
    EXPECT_EQ(session.offerStatus(), c.offerStatus);
    if (c.offerStatus == 0 && c.secret.empty()) {
      ASSERT_TRUE(session.Establish());
      EXPECT_EQ(session.Call(frames::kCmdLoginState).status, 0u);
      continue;
    }
    // A refused offer or secret ends the connection.
    if (c.offerStatus == 0) EXPECT_EQ(session.SendSecret(c.secret), c.secretStatus);
    EXPECT_TRUE(session.client().ClosedByService());
  }
}

frames::Bytes Frame(uint16_t command, uint32_t status, frames::Bytes body) {
  frames::Bytes frame;
  frames::BuildFrame(command, status, body.data(), body.size(), &frame);
  return frame;
}

TEST_F(CardTest, BrokenClientsOnEveryListenerAreClosedAlone) {
  // A logged-in channel and a card session stay usable throughout.
  CardSession card(desk_, kDesk);
  ASSERT_TRUE(card.Establish());
  auto channel = Open();
  Login(*channel);
  const frames::Bytes unknownCommand = Frame(0x3333, 0, {});
  const frames::Bytes announced = {0x01, 0x10, 100, 0, 0, 0, 0, 0, 1, 2, 3};
  frames::Bytes deviceFrame, weakHello;
  frames::BuildDeviceFrame(kPhone, unknownCommand.data(), unknownCommand.size(), &deviceFrame);
  frames::RsaOwner weakKey;
  ASSERT_EQ(crypto::RsaGenerateNewKey(weakKey.Out(), 512, 65537), crypto::kOk);
  ASSERT_EQ(frames::BuildHello(weakKey.Get(), &weakHello), frames::FrameStatus::kOk);
  struct Case {
    bool cardAddress;
    frames::Bytes bytes;
    bool hangUp;  // the client leaves after sending
    const char* logged;
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    SCOPED_TRACE(c.logged);
    {
      auto client = c.cardAddress ? std::make_unique<Client>(kCardPort, desk_)
                                  : std::make_unique<Client>(service_->port());
      ASSERT_TRUE(client->connected());
      ASSERT_TRUE(client->Send(c.bytes));
      if (!c.hangUp) EXPECT_TRUE(client->ClosedByService());
    }
    EXPECT_EQ(card.Call(frames::kCmdLoginState).status, 0u);
    EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
  }
  // A channel whose slot frame does not decrypt (not whole cipher blocks, or wrapped under
  // another channel's session key) is closed too.
  for (const frames::Bytes& garbage : {Frame(frames::kCmdSlotFrame, 0, frames::Bytes(13, 0xA5)),
                                       channel->WrapRequest(slot_, frames::kCmdLoginState, {})}) {
    auto broken = Open();
    ASSERT_TRUE(broken->client().Send(garbage));
    EXPECT_TRUE(broken->client().ClosedByService());
  }
  EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
  // SIGTERM ends the service promptly with a client stalled mid-frame and a channel idle; every
  // connection thread has logged once the service has stopped.
  Client staller(service_->port());
  ASSERT_TRUE(staller.SendRaw(announced.data(), frames::kHeaderSize + 2));
  EXPECT_EQ(Call(*channel, frames::kCmdLoginState).response.value, 1u);
  int status = service_->Terminate(5000);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
  EXPECT_TRUE(channel->client().ClosedByService());
  std::string log = service_->Log();
  for (const Case& c : cases) EXPECT_NE(log.find(c.logged), std::string::npos) << c.logged;
  EXPECT_NE(log.find("slot frame that does not decrypt"), std::string::npos);
  EXPECT_NE(log.find("stopped"), std::string::npos);
}

using ConfigTest = ServiceTest;

TEST_F(ConfigTest, WithoutACardConfigurationBothListsAreEmpty) {
  for (auto [request, answer] : {std::pair{frames::BuildDeviceListRequest(), frames::kCmdDeviceListAnswer},
                                 std::pair{frames::BuildCardListRequest(), frames::kCmdCardListAnswer}}) {
    Client control(service_->port());
    frames::Bytes got;
    ASSERT_TRUE(control.Send(request) && control.Receive(&got));
    // The answer's command, a 2-byte body, status 0, and a count of zero records.
    EXPECT_EQ(got, frames::Bytes({static_cast<uint8_t>(answer), static_cast<uint8_t>(answer >> 8),
                                  2, 0, 0, 0, 0, 0, 0, 0}));
  }
}

TEST_F(ConfigTest, ServiceRefusesToStartWithABadCardConfiguration) {
  const std::string token = std::string(" token=") + kTokenLabel;
  struct Case {
    std::string config;
    std::string message;
  };
  const Case cases[] = {
      {"phone" + token + "\n", "refused.conf:1: a line starts with 'device' or 'card'"},
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
  for (const Case& c : cases) {
    SCOPED_TRACE(c.config);
    std::string output;
    EXPECT_EQ(service_->StartWithConfig(c.config, &output), 1);
    EXPECT_NE(output.find(c.message), std::string::npos) << output;
  }
}

}  // namespace
}  // namespace nivra::cardtest
