// Bluetooth devices and service cards as the provider meets them, on a service configured with
// two devices and two cards on the scratch token (the cards on loopback addresses drawn per test,
// so that concurrent runs never meet): the lists, the confirmation that a person gives, refuses or
// never gives on the control interface, the limits answer, a service card's key exchange, broken
// and stalled clients on every listener and the stop beside them, and the configuration that the
// service refuses to start with. Card commands through device and card frames, the loopback TCP
// control port and given, refused and never given confirmations are proven through the provider
// (tests/service, device_cards_wine_test.cpp).
#include <random>
#include <tuple>
#include <vector>

#include "crypto/rsa_interface.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/confirmation_state.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

constexpr char kPhone[] = "phone-1";      // limits configured, the token's user PIN
constexpr char kOldPhone[] = "phone-2";   // default limits, a PIN the token refuses
constexpr char kDesk[] = "desk-1";
constexpr char kSpare[] = "desk-2";
constexpr uint16_t kCardPort = 45452;

// The module's side of a service card connection: connects to address:45452 and offers `name`.
class CardSession {
 public:
  CardSession(const std::string& address, const std::string& name) : client_(kCardPort, address) {
    frames::Bytes offer, answer;
    if (!client_.connected() || frames::BuildKeyOffer(name, &offer) != frames::FrameStatus::kOk ||
        !client_.Send(offer) || !client_.Receive(&answer)) {
      return;
    }
    offerStatus_ = frames::ReadHeader(answer.data()).status;
    const uint8_t* der = nullptr;
    size_t length = 0;
    if (frames::ParseCardKeyFrame(answer.data(), answer.size(), &der, &length) ==
        frames::FrameStatus::kOk) {
      cardKey_.assign(der, der + length);
    }
  }
  // The status of the card-key answer (0 when the card took the offer); ~0u when none came.
  uint32_t offerStatus() const { return offerStatus_; }
  Client& client() { return client_; }
  // Sends the session-key frame for `secret` (any length; a fresh one from the generator when
  // empty) and returns the acknowledgement's status (~0u when none came); status 0 opens the
  // session.
  uint32_t SendSecret(frames::Bytes secret = {}) {
    if (secret.empty()) {
      secret.resize(frames::kSessionSecretSize);
      if (frames::MakeSessionSecret(secret.data()) != frames::FrameStatus::kOk) return ~0u;
    }
    frames::Bytes frame, ack;
    if (frames::BuildSessionKeyFrame(cardKey_.data(), cardKey_.size(), secret.data(),
                                     secret.size(), &frame, frames::kCmdCardSessionKey) !=
            frames::FrameStatus::kOk ||
        !client_.Send(frame) || !client_.Receive(&ack)) {
      return ~0u;
    }
    uint32_t status = frames::ReadHeader(ack.data()).status;
    if (status == 0 && (frames::ParseCardSessionAck(ack.data(), ack.size()) != frames::FrameStatus::kOk ||
                        frames::OpenSessionSecret(secret.data(), secret.size(), cipher_.Out()) !=
                            frames::FrameStatus::kOk)) {
      return ~0u;
    }
    return status;
  }
  CardResult Call(uint16_t command) {
    frames::Bytes inner, wrapped;
    frames::BuildCardRequest(command, {}, &inner);
    frames::WrapFrame(cipher_.Get(), inner.data(), inner.size(), &wrapped);
    return Exchange(client_, cipher_.Get(), wrapped, command, 0);
  }

 private:
  Client client_;
  frames::Bytes cardKey_;
  frames::CipherOwner cipher_;
  uint32_t offerStatus_ = ~0u;
};

class RemoteTest : public ServiceTest {
 protected:
  std::string CardConfig() override {
    std::random_device random;
    std::uniform_int_distribution<int> byte(1, 250);
    std::string prefix = "127." + std::to_string(byte(random)) + "." + std::to_string(byte(random)) + ".";
    int last = byte(random);
    desk_ = prefix + std::to_string(last);
    spare_ = prefix + std::to_string(last + 1);
    const std::string token = std::string(" token=") + kTokenLabel;
    return std::string("# devices and cards of the scratch token\n") +
           "device " + kPhone + token + " pin=" + kUserPin +
           " display=\"Anna's phone\" default-key=3072 min-key=2048 max-key=16384 key-step=1024"
           " min-pin=6 max-pin=12 pin-flags=0x5\n"
           "device " + kOldPhone + token + " pin=not-the-pin\n"
           "card " + kDesk + token + " pin=" + kUserPin + " display=\"Desk card\" key-bits=1024 address=" +
           desk_ + "\n"
           "card " + kSpare + token + " pin=" + kUserPin + " key-bits=1024 address=" + spare_ + "\n";
  }
  // The loopback addresses of the two cards.
  std::string desk_, spare_;
};

TEST_F(RemoteTest, KeyExchangeIsTakenOnlyForTheCardOfTheAddressAndAGoodSecret) {
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
    if (c.offerStatus == 0) {
      ASSERT_EQ(session.SendSecret(c.secret), c.secretStatus);
    }
    // A refused offer or secret ends the connection.
    if (c.offerStatus == 0 && c.secretStatus == 0) {
      EXPECT_EQ(session.Call(frames::kCmdLoginState).status, 0u);
    } else {
      EXPECT_TRUE(session.client().ClosedByService());
    }
  }
}

frames::Bytes Frame(uint16_t command, uint32_t status, frames::Bytes body) {
  frames::Bytes frame;
  frames::BuildFrame(command, status, body.data(), body.size(), &frame);
  return frame;
}

TEST_F(RemoteTest, BrokenClientsOnEveryListenerAreClosedAlone) {
  // A logged-in channel and a card session stay usable throughout.
  CardSession card(desk_, kDesk);
  ASSERT_EQ(card.SendSecret(), 0u);
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
      if (!c.hangUp) {
        EXPECT_TRUE(client->ClosedByService());
      }
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

frames::Bytes ListAnswer(uint16_t port, const frames::Bytes& request) {
  Client control(port);
  frames::Bytes answer;
  EXPECT_TRUE(control.Send(request) && control.Receive(&answer));
  return answer;
}

// Every device the service lists as "name/display name", then every card as
// "name/display name@address".
std::vector<std::string> Listed(uint16_t port) {
  frames::Bytes devices = ListAnswer(port, frames::BuildDeviceListRequest());
  frames::Bytes cards = ListAnswer(port, frames::BuildCardListRequest());
  EXPECT_EQ(std::pair(frames::ReadHeader(devices.data()).command, frames::ReadHeader(cards.data()).command),
            std::pair(frames::kCmdDeviceListAnswer, frames::kCmdCardListAnswer));
  std::vector<frames::DeviceRecord> deviceRecords;
  std::vector<frames::CardRecord> cardRecords;
  EXPECT_EQ(frames::ParseDeviceListBody(devices.data() + frames::kHeaderSize,
                                        devices.size() - frames::kHeaderSize, &deviceRecords),
            frames::FrameStatus::kOk);
  EXPECT_EQ(frames::ParseCardListBody(cards.data() + frames::kHeaderSize,
                                      cards.size() - frames::kHeaderSize, &cardRecords),
            frames::FrameStatus::kOk);
  std::vector<std::string> listed;
  for (const auto& r : deviceRecords) listed.push_back(r.name + "/" + r.displayName);
  for (const auto& r : cardRecords) listed.push_back(r.name + "/" + r.displayName + "@" + r.address);
  return listed;
}

using ConfigTest = ServiceTest;

TEST_F(ConfigTest, WithoutACardConfigurationBothListsAreEmpty) {
  EXPECT_EQ(Listed(service_->port()), std::vector<std::string>());
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

constexpr uint32_t kReason = 7;

frames::ConfirmationState State(Channel& channel, const std::string& device, uint16_t command,
                                uint32_t reason = 0) {
  frames::CardRequest request;
  request.reason = reason;
  CardResult result = channel.CallDevice(device, command, request);
  EXPECT_TRUE(result.transported);
  EXPECT_EQ(result.status, 0u);
  return frames::ReadConfirmation(result.response.value);
}

TEST_F(RemoteTest, ListsNameEveryDeviceAndCardWithItsDisplayNameAndAddress) {
  // Without a display name, the name is shown.
  EXPECT_EQ(Listed(service_->port()),
            (std::vector<std::string>{"phone-1/Anna's phone", "phone-2/phone-2",
                                      "desk-1/Desk card@" + desk_, "desk-2/desk-2@" + spare_}));
  // A device or a slot that the service does not present is answered, not fatal.
  auto channel = Open();
  CardResult unknown = channel->CallDevice("phone-9", frames::kCmdLoginState, {});
  EXPECT_TRUE(unknown.transported);
  EXPECT_EQ(unknown.status, kScardReaderUnavailable);
  frames::Bytes slotInfo = ListAnswer(service_->port(), frames::BuildSlotInfoRequest(0x7FFFFFF0));
  EXPECT_EQ(frames::ReadHeader(slotInfo.data()).status, kScardReaderUnavailable);
  EXPECT_EQ(channel->CallDevice(kPhone, frames::kCmdLoginState, {}).status, 0u);
}

TEST_F(RemoteTest, ConfirmationHoldsForTheDeviceUntilItsTokenLogsOut) {
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
TEST_F(RemoteTest, ControlInterfaceRefusesWhatItCannotDo) {
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

TEST_F(RemoteTest, LimitsAnswerIsConfiguredPerDevice) {
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
