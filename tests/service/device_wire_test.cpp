// Bluetooth devices and service cards against a scripted peer: every malformed list answer, the
// limits answer, the confirmation wait in each of its endings, and a service card's key exchange
// (refused, reused, and a new session key from the operating system's generator each time).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "crypto/rsa_interface.h"
#include "pkcs11/p11_status.h"
#include "provider/card_backend.h"
#include "provider/provider_context.h"
#include "scripted_peer.h"
#include "service/bluetooth_device.h"
#include "service/card_command.h"
#include "service/frames/card_commands.h"
#include "service/frames/confirmation_state.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_codes.h"
#include "service/service_card.h"
#include "provider/verified_pin_cache.h"

namespace nivra::servicetest {
namespace {

using provider::ProviderContext;
using provider::Status;

// A port on which nothing listens any more.
uint16_t ClosedPort() {
  ScriptedPeer gone([](PeerConnection&) {});
  return gone.Port();
}

Bytes DeviceList(std::vector<std::string> names) {
  std::vector<frames::DeviceRecord> devices;
  for (const std::string& name : names) devices.push_back({name, 0, "Display " + name});
  Bytes frame;
  frames::BuildDeviceListAnswer(devices, &frame);
  return frame;
}

Bytes CardList(std::vector<std::string> names) {
  std::vector<frames::CardRecord> cards;
  for (const std::string& name : names) cards.push_back({name, "Card", "127.0.0.1", 0});
  Bytes frame;
  frames::BuildCardListAnswer(cards, &frame);
  return frame;
}

Bytes Edited(Bytes frame, const std::function<void(Bytes&)>& edit) {
  edit(frame);
  return frame;
}

TEST(DeviceWire, ListsAreCheckedBeforeADeviceIsTaken) {
  struct Case { const char* what; uint32_t kind; Bytes answer; Status expected; };
  const Case cases[] = {
      {"device listed", 3, DeviceList({"phone", "dev"}), provider::kOk},
      {"empty device list", 3, DeviceList({}), provider::kNteNotFound},
      {"device not listed", 3, DeviceList({"phone"}), provider::kNteNotFound},
      {"card list for devices", 3, CardList({"dev"}), provider::kNteBadData},
      {"device count above its records", 3,
       Edited(DeviceList({"dev"}), [](Bytes& f) { f[8] = 2; }), provider::kNteBadLen},
      {"device name without its NUL", 3,
       Edited(DeviceList({"dev"}), [](Bytes& f) { std::fill(f.begin() + 10, f.begin() + 50, 'x'); }),
       provider::kNteBadData},
      {"device list refused", 3, {0x01, 0xC1, 0, 0, 0x69, 0, 0x10, 0x80}, 0x80100069},
      {"card listed", 2, CardList({"dev"}), provider::kOk},
      {"empty card list", 2, CardList({}), provider::kNteNotFound},
      {"device list for cards", 2, DeviceList({"dev"}), provider::kNteBadData},
      {"card count above its records", 2,
       Edited(CardList({"dev"}), [](Bytes& f) { f[8] = 2; }), provider::kNteBadLen},
  };
  for (const Case& c : cases) {
    ScriptedPeer peer([&](PeerConnection& conn) {
      Bytes request;
      if (conn.ReadFrame(&request)) conn.Write(c.answer);
    });
    UsePorts(peer.Port());
    auto ctx = std::make_unique<ProviderContext>();
    ctx->backendKind = c.kind;
    EXPECT_EQ(provider::FindCardBackend(c.kind)->ConnectByName(*ctx, "dev"), c.expected) << c.what;
    EXPECT_EQ(ctx->device != nullptr && ctx->device->Name() == "dev", c.expected == provider::kOk)
        << c.what;
  }
  for (uint32_t kind : {2u, 3u}) {
    UsePorts(ClosedPort());
    auto ctx = std::make_unique<ProviderContext>();
    EXPECT_EQ(provider::FindCardBackend(kind)->ConnectByName(*ctx, "dev"), provider::kNteFail)
        << "no service, kind " << kind;
  }
}

// A Bluetooth device "dev" whose channel answers each card command with answer(command, body).
class DevicePeer {
 public:
  using Answer = ScriptedPeer::Answerer;
  explicit DevicePeer(Answer answer)
      : peer_([this, answer](PeerConnection& conn) {
          Bytes request;
          if (!first_.exchange(false)) {
            ScriptedPeer::Answering([&](uint16_t command, const Bytes& inner) {
              std::lock_guard<std::mutex> lock(mutex_);
              commands_.push_back(command);
              return answer(command, inner);
            }, true)(conn);
          } else if (conn.ReadFrame(&request)) {
            conn.Write(DeviceList({"dev"}));
          }
        }) {
    UsePorts(peer_.Port());
    ctx_ = std::make_unique<ProviderContext>();
    ctx_->backendKind = provider::BackendBluetoothCard;
    EXPECT_EQ(provider::FindCardBackend(3)->ConnectByName(*ctx_, "dev"), provider::kOk);
  }
  ProviderContext& Context() { return *ctx_; }
  service::BthDevice& Device() { return dynamic_cast<service::BthDevice&>(*ctx_->device); }
  std::vector<uint16_t> Commands() {
    std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
  }

 private:
  std::atomic<bool> first_{true};
  std::mutex mutex_;
  std::vector<uint16_t> commands_;
  ScriptedPeer peer_;
  std::unique_ptr<ProviderContext> ctx_;
};

Bytes StateAnswer(uint16_t command, bool authenticated, bool pending) {
  frames::CardResponse response;
  response.value = frames::ConfirmationValue({authenticated, pending});
  Bytes frame;
  frames::BuildCardResponse(command, 0, response, &frame);
  return frame;
}

TEST(DeviceWire, LimitsAreCheckedAndTheMaximumKeyLengthCut) {
  struct Case { const char* what; size_t bodyLength; Status expected; };
  for (const Case& c : {Case{"16-byte limits", 16, provider::kOk},
                        Case{"12-byte limits", 12, provider::kOk},
                        Case{"11-byte limits", 11, provider::kNteBadLen}}) {
    DevicePeer peer([&](uint16_t command, const Bytes&) {
      frames::CardResponse response;
      response.limits = {1, 2048, 1024, 16384, 8, 4, 12, true, 1};
      Bytes frame;
      frames::BuildCardResponse(command, 0, response, &frame);
      frame.resize(8 + c.bodyLength, 0);
      frame[2] = static_cast<uint8_t>(c.bodyLength);
      return frame;
    });
    ProviderContext& ctx = peer.Context();
    ASSERT_EQ(provider::FindCardBackend(3)->LoadCaps(ctx), c.expected) << c.what;
    if (c.expected != provider::kOk) continue;
    EXPECT_EQ(ctx.caps.maxBits, 8192) << c.what;
    EXPECT_EQ(ctx.caps.defaultBits, 2048) << c.what;
    EXPECT_EQ(ctx.caps.maxPinLength, 12) << c.what;
    EXPECT_EQ(ctx.caps.pinFlags, c.bodyLength == 16 ? 1 : 0) << c.what;
    EXPECT_EQ(provider::FindCardBackend(3)->LoadCaps(ctx), provider::kOk);
    EXPECT_EQ(peer.Commands().size(), 1u) << "limits are asked once";
  }
}

TEST(DeviceWire, ConfirmationEndsAsTheDeviceAnswers) {
  constexpr uint16_t kAsk = frames::kCmdAskConfirmation;
  constexpr uint16_t kPoll = frames::kCmdLoginState;
  constexpr uint16_t kEnd = frames::kCmdEndConfirmation;
  struct Case {
    const char* what;
    int confirmAtPoll;  // -1: never
    bool pendingAtAll;
    bool confirmedAtEnd;
    Status expected;
  };
  const Case cases[] = {
      {"confirmed at once", 0, true, false, provider::kOk},
      {"confirmed at the second poll", 2, true, false, provider::kOk},
      {"refused", -1, false, false, pkcs11::kScardInvalidChv},
      {"never answered", -1, true, false, pkcs11::kScardCardNotAuthenticated},
      {"confirmed as the wait ends", -1, true, true, provider::kOk},
  };
  for (const Case& c : cases) {
    provider::ClearVerifiedPins();
    int polls = 0;
    DevicePeer peer([&](uint16_t command, const Bytes&) {
      if (command == kEnd) return StateAnswer(command, c.confirmedAtEnd, false);
      if (command == kPoll) ++polls;
      const bool confirmed = c.confirmAtPoll >= 0 && polls >= c.confirmAtPoll;
      return StateAnswer(command, confirmed, c.pendingAtAll && !confirmed);
    });
    EXPECT_EQ(service::BthEnsureAuth(peer.Context(), peer.Device(), 1), c.expected) << c.what;
    const std::vector<uint16_t> sent = peer.Commands();
    ASSERT_FALSE(sent.empty()) << c.what;
    EXPECT_EQ(sent.front(), kAsk) << c.what;
    EXPECT_EQ(sent.back() == kEnd, c.confirmAtPoll < 0 && c.pendingAtAll) << c.what;
    if (c.confirmAtPoll > 0) {
      EXPECT_EQ(sent.size(), 1u + c.confirmAtPoll) << c.what;
    }
    // A confirmation serves every other context of the process for 30 seconds; a failure none.
    DevicePeer other([&](uint16_t command, const Bytes&) {
      return StateAnswer(command, false, false);
    });
    const Status again = service::BthEnsureAuth(other.Context(), other.Device(), 1);
    EXPECT_EQ(again, c.expected == provider::kOk ? provider::kOk : pkcs11::kScardInvalidChv)
        << c.what;
    EXPECT_EQ(other.Commands().empty(), c.expected == provider::kOk) << c.what;
  }
  provider::ClearVerifiedPins();
}

// The card's side: its key pair, and what it saw.
class CardPeer {
 public:
  explicit CardPeer(uint32_t offerStatus) {
    EXPECT_EQ(crypto::RsaGenerateNewKey(&key_, 1024, 65537), crypto::kOk);
    peer_ = std::make_unique<ScriptedPeer>([this, offerStatus](PeerConnection& conn) {
      Bytes sessionKey;
      if (!conn.CardKeyExchange(key_, offerStatus, &sessionKey)) {
        Bytes ignored;
        closedAfterRefusal_ = !conn.ReadFrame(&ignored);
        return;
      }
      keys_.push_back(sessionKey);
      Bytes inner;
      while (conn.ReadPlainRequest(&inner)) {
        ++requests_;
        conn.Answer(StateAnswer(frames::ReadHeader(inner.data()).command, true, false));
      }
    });
    UsePorts(ClosedPort(), peer_->Port());
  }
  ~CardPeer() {
    peer_.reset();
    crypto::RsaFreeKey(key_);
  }
  int Connections() const { return peer_->Connections(); }

  crypto::RsaHandle key_ = 0;
  std::vector<Bytes> keys_;
  std::atomic<int> requests_{0};
  std::atomic<bool> closedAfterRefusal_{false};
  std::unique_ptr<ScriptedPeer> peer_;
};

Status AskState(service::SvcDevice& card) {
  frames::CardResponse response;
  return service::CardExchange(card, frames::kCmdLoginState, {}, &response);
}

// The 16 bytes that a generator seeded with seed (state x 214013 + 2531011, bits 16..30 of each
// draw, low byte kept) would give.
Bytes TickSeededKey(uint32_t seed) {
  Bytes key(16);
  uint32_t state = seed;
  for (uint8_t& byte : key) {
    state = state * 214013u + 2531011u;
    byte = static_cast<uint8_t>((state >> 16) & 0x7FFF);
  }
  return key;
}

TEST(ServiceCardWire, KeyExchangeRefusedReusedAndRenewed) {
  const frames::CardRecord record{"card-a", "Card A", "127.0.0.1", 0};
  {
    UsePorts(ClosedPort(), ClosedPort());
    service::SvcDevice card(record);
    EXPECT_EQ(AskState(card), provider::kNteNotFound) << "no card on its port";
  }
  {
    CardPeer peer(0x8010002A);
    service::SvcDevice card(record);
    EXPECT_EQ(AskState(card), 0x8010002Au) << "the card's refusal as it stands";
    // The peer sees the end of the connection only if the module closed it: it would otherwise
    // wait for a frame until the peer ends.
    const ULONGLONG deadline = GetTickCount64() + 2000;
    while (!peer.closedAfterRefusal_ && GetTickCount64() < deadline) Sleep(10);
    EXPECT_TRUE(peer.closedAfterRefusal_) << "the module closes a refused connection";
  }
  CardPeer peer(0);
  {
    service::SvcDevice card(record);
    EXPECT_EQ(AskState(card), provider::kOk);
    EXPECT_EQ(AskState(card), provider::kOk);
    EXPECT_EQ(peer.Connections(), 1) << "a kept session needs no new key exchange";
    card.Close();
    EXPECT_EQ(AskState(card), provider::kOk);
  }
  peer.peer_.reset();
  ASSERT_EQ(peer.keys_.size(), 2u);
  EXPECT_EQ(peer.requests_.load(), 3);
  EXPECT_NE(peer.keys_[0], peer.keys_[1]);
  const uint32_t now = GetTickCount();
  for (uint32_t seed = now - 600000; seed != now + 1; ++seed) {
    for (const Bytes& key : peer.keys_) ASSERT_NE(key, TickSeededKey(seed)) << seed;
  }
}

}  // namespace
}  // namespace nivra::servicetest
