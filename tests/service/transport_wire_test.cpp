// The provider's transports against a scripted peer, for what the real card service never sends:
// malformed handshakes, slot, device and card lists and answers, a peer that never answers or
// drops the connection mid-request, every status translation and length rule of card command
// answers, the login around key commands, the confirmation wait in each of its endings, a service
// card's refused key offer, the monitor forgetting a gone service's slots; and the string
// conversions and the transport key's road through Wine's software provider. Each case runs in a
// process of its own (the transports keep process-wide state).
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "crypto/pkcs1.h"
#include "crypto/rsa_interface.h"
#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/card_backend.h"
#include "provider/provider_context.h"
#include "provider/verified_pin_cache.h"
#include "scripted_peer.h"
#include "service/bluetooth_device.h"
#include "service/card_command.h"
#include "service/frames/card_commands.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_codes.h"
#include "service/frames/slot_records.h"
#include "service/remote_slot_table.h"
#include "service/request_buffers.h"
#include "service/service_card.h"
#include "service/service_link.h"
#include "service/service_settings.h"
#include "service/slot_channel.h"
#include "service/slot_commands.h"
#include "service/string_convert.h"
#include "service/transport_key.h"

namespace nivra::servicetest {
namespace {

using provider::Status;
using service::P11Slot;
namespace f = frames;
using provider::ProviderContext;

// A port on which nothing listens any more.
uint16_t ClosedPort() {
  ScriptedPeer gone([](PeerConnection&) {});
  return gone.Port();
}

// True once `done` holds, false when `ms` pass first.
bool WaitFor(const std::function<bool()>& done, ULONGLONG ms) {
  for (const ULONGLONG deadline = GetTickCount64() + ms; !done(); Sleep(10))
    if (GetTickCount64() > deadline) return false;
  return true;
}

constexpr uint32_t kSlotId = 7;

class TransportWire : public ::testing::Test {
 protected:
  P11Slot& Record() {
    service::RemoteTable().count = 1;
    P11Slot& record = service::RemoteTable().records[0];
    record.slotId = kSlotId;
    record.remote = 1;
    return record;
  }
  void TearDown() override {
    P11Slot& record = Record();
    std::lock_guard<std::mutex> use(service::LinkOf(record).use);
    service::SlotChannelClose(record);
    service::ServiceLinkClose();
  }
};

void SetBodyLength(Bytes& frame, size_t body) {
  frame.resize(frames::kHeaderSize + body, 0x5A);
  frame[2] = static_cast<uint8_t>(body);
  frame[3] = static_cast<uint8_t>(body >> 8);
}

Bytes Edited(Bytes frame, const std::function<void(Bytes&)>& edit) {
  edit(frame);
  return frame;
}

// One fault of each branch the provider takes: a refused hello, a frame the codec refuses (its
// every length and field rule is proven against OpenSSL natively), a secret that fails to decrypt,
// and one that fails to open.
TEST_F(TransportWire, HandshakeFaultsGiveTheirCodesOnBothDecryptionPaths) {
  constexpr size_t k = 256;
  struct Case {
    const char* what;
    Bytes secret;
    std::function<void(Bytes&)> edit;
    Status expected;
  };
  const Case cases[] = {
      {"proper", FreshSecret(), nullptr, provider::kOk},
      {"hello refused", FreshSecret(), [](Bytes& f) { f[4] = 0x2E; f[6] = 0x10; f[7] = 0x80; },
       0x8010002E},
      {"k+1 bytes", FreshSecret(), [](Bytes& f) { SetBodyLength(f, k + 3); }, provider::kNteBadData},
      {"tampered", FreshSecret(), [](Bytes& f) { f[40] ^= 0x10; }, provider::kNteBadData},
      {"secret of 23 bytes", Bytes(23, 0x11), nullptr, provider::kNteBadData},
  };
  for (bool systemProvider : {true, false}) {
    for (const Case& c : cases) {
      ScriptedPeer peer([&](PeerConnection& conn) {
        Bytes ignored;  // after the handshake, wait for the client to close
        if (conn.Handshake(c.secret, c.edit)) {
          while (conn.ReadFrame(&ignored)) {
          }
        }
      });
      UsePorts(peer.Port(), 0, systemProvider);
      P11Slot& record = Record();
      std::unique_lock<std::mutex> use(service::LinkOf(record).use);
      EXPECT_EQ(service::SlotChannelOpen(&record), c.expected)
          << c.what << (systemProvider ? " (provider)" : "");
      use.unlock();
      EXPECT_EQ(service::LinkOf(Record()).socket == INVALID_SOCKET, c.expected != provider::kOk)
          << c.what;
      TearDown();
    }
  }
}

// The slot list and one slot's record: an answer of another command, a refusal and every length
// that contradicts the records are refused; a long list keeps 256 records.
TEST_F(TransportWire, SlotAnswersAreCheckedAndLongListsKeep256) {
  std::vector<frames::SlotRecord> records(300);
  for (uint32_t i = 0; i < records.size(); ++i) records[i].slotId = 1000 + i;
  auto list = [&](size_t count) {
    Bytes frame;
    frames::BuildSlotListAnswer(records.data(), count, &frame);
    return frame;
  };
  frames::SlotRecord fresh;
  fresh.slotId = kSlotId;
  fresh.tokenPresent = 1;
  fresh.serial[0] = 0xAB;
  const Bytes one = frames::BuildSlotInfoAnswer(fresh);
  struct Case {
    const char* what;
    Bytes answer;
    Status expected;
    uint32_t count;  // of the list; 0 for one slot's record
  };
  const Case cases[] = {
      {"two records", list(2), provider::kOk, 2},
      {"300 records", list(300), provider::kOk, 256},
      {"answer of the one-slot command", Edited(list(2), [](Bytes& f) { f[0] = 0x02; }),
       provider::kNteBadData, 2},
      {"refused", Edited(list(0), [](Bytes& f) { f[4] = 0x2E; f[6] = 0x10; f[7] = 0x80; }),
       0x8010002E, 2},
      {"count above its records", Edited(list(2), [](Bytes& f) { f[8] = 3; }),
       provider::kNteBadLen, 2},
      {"one byte short", Edited(list(2), [](Bytes& f) { SetBodyLength(f, 2 + 2 * 92 - 1); }),
       provider::kNteBadLen, 2},
      {"one byte over", Edited(list(2), [](Bytes& f) { SetBodyLength(f, 2 + 2 * 92 + 1); }),
       provider::kNteBadLen, 2},
      {"no count", Edited(list(0), [](Bytes& f) { SetBodyLength(f, 1); }), provider::kNteBadLen, 2},
      {"one slot", one, provider::kOk, 0},
      {"one slot: answer of the list command", Edited(one, [](Bytes& f) { f[0] = 0x01; }),
       provider::kNteBadData, 0},
      {"one slot: 91 bytes", Edited(one, [](Bytes& f) { SetBodyLength(f, 91); }),
       provider::kNteBadLen, 0},
  };
  for (const Case& c : cases) {
    ScriptedPeer peer([&](PeerConnection& conn) {
      Bytes request;
      while (conn.ReadFrame(&request)) conn.Write(c.answer);
    });
    UsePorts(peer.Port());
    uint32_t present = 0;
    if (c.count == 0) {
      EXPECT_EQ(service::ServiceRefreshSlot(Record(), &present), c.expected) << c.what;
      EXPECT_EQ(present == 1 && Record().serial[0] == 0xAB, c.expected == provider::kOk);
    } else {
      service::RemoteTable().count = 0;
      EXPECT_EQ(service::ServiceRefreshSlots(), c.expected) << c.what;
      if (c.expected == provider::kOk) {
        EXPECT_EQ(service::RemoteTable().count, c.count) << c.what;
        EXPECT_EQ(service::RemoteTable().records[c.count - 1].slotId, 1000 + c.count - 1);
        EXPECT_EQ(service::RemoteTable().records[0].remote, 1u);
      }
    }
    service::ServiceLinkClose();
  }
}

// A peer that never answers times the request out, and one that drops the connection mid-request
// leaves the link closed; that the next request connects again with a new handshake is proven
// against the real service, stopped and started again (service_slots_wine_test.cpp).
TEST_F(TransportWire, SilenceTimesOutAndADroppedRequestClosesTheLink) {
  std::atomic<int> requests{0};
  ScriptedPeer peer([&](PeerConnection& conn) {
    uint32_t slot = 0;
    Bytes inner;
    if (!conn.Handshake(FreshSecret())) return;
    while (conn.ReadRequest(&slot, nullptr, &inner)) {
      EXPECT_EQ(slot, kSlotId);
      // The first request is never answered (the client times out and closes); the second is
      // dropped with its connection.
      if (++requests == 2) return;
    }
  });
  UsePorts(peer.Port());
  service::RequestBuffers list;
  frames::FrameView answer;
  Bytes request;
  frames::BuildCardRequest(frames::kCmdLoginState, {}, &request);
  auto transact = [&] {
    return service::SlotTransact(Record(), request.data(), request.size(), &answer, list);
  };
  EXPECT_EQ(transact(), provider::kScardTimeout);
  EXPECT_EQ(service::LinkOf(Record()).socket, INVALID_SOCKET);
  EXPECT_EQ(transact(), static_cast<Status>(ERROR_DEVICE_NOT_CONNECTED));
  EXPECT_EQ(service::LinkOf(Record()).sessionState, 0u);
  EXPECT_EQ(requests.load(), 2);
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

// Card commands of a context on a published slot. The peer answers each command from a table (the
// login state is "logged in" unless the table says otherwise) and records the commands it saw.
// A wrong PIN is the real service's (service_slots_wine_test.cpp).
struct Answer {
  uint32_t status = 0;
  Bytes body;
  uint16_t answeredAs = 0;  // another command than the request's answer
};

class CardCommandWire : public TransportWire {
 protected:
  void SetUp() override {
    ctx_ = std::make_unique<ProviderContext>();
    device_ = std::make_unique<pkcs11::SlotDevice>(&Record());
    device_->container = 9;
  }
  // Answers on slot frames, or for `devices` on device frames after the device list that a
  // connection of its own asks for.
  void Serve(std::map<uint16_t, std::vector<Answer>> answers, bool devices = false) {
    peer_.reset();
    answers_ = std::move(answers);
    seen_.clear();
    listAsked_ = !devices;
    auto answering = ScriptedPeer::Answering([this](uint16_t command, const Bytes&) {
      std::lock_guard<std::mutex> lock(mutex_);
      seen_.push_back(command);
      Answer answer;
      auto& queue = answers_[command];
      if (!queue.empty()) {
        answer = queue.front();
        if (queue.size() > 1) queue.erase(queue.begin());
      } else if (command == f::kCmdLoginState) {
        answer.body = {1, 0, 0, 0};
      }
      Bytes frame;
      f::BuildFrame(answer.answeredAs != 0 ? answer.answeredAs : f::ResponseCommand(command),
                    answer.status, answer.body.data(), answer.body.size(), &frame);
      return frame;
    }, devices);
    peer_ = std::make_unique<ScriptedPeer>([this, answering](PeerConnection& conn) {
      Bytes request;
      if (listAsked_.exchange(true)) {
        answering(conn);
      } else if (conn.ReadFrame(&request)) {
        conn.Write(DeviceList({"dev"}));
      }
    });
    UsePorts(peer_->Port());
  }
  std::vector<uint16_t> Seen() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }
  Status Command(uint16_t command, size_t block = 0) {
    f::CardRequest request;  // the statuses and lengths do not depend on the request's fields
    request.data.assign(block == 0 ? 4 : block, 0x01);
    f::CardResponse response;
    return service::SlotCommand(*ctx_, *device_, command, request, &response, block);
  }

  std::unique_ptr<ProviderContext> ctx_;
  std::unique_ptr<pkcs11::SlotDevice> device_;
  std::mutex mutex_;
  std::map<uint16_t, std::vector<Answer>> answers_;
  std::vector<uint16_t> seen_;
  std::atomic<bool> listAsked_{true};
  std::unique_ptr<ScriptedPeer> peer_;
};

constexpr Status kNteNoMoreItems = 0x8009002A;

// One answer per translation branch; each layout's length rules are the codec's tables.
TEST_F(CardCommandWire, StatusesAndAnswerLengthsAreTranslated) {
  struct Case {
    const char* what;
    uint16_t command;
    Answer answer;
    size_t block;
    Status expected;
  };
  const Case cases[] = {
      {"open: no more items", f::kCmdOpenContainer, {pkcs11::kErrNoMoreItems, {}}, 0,
       provider::kNteBadKeyset},
      {"open: NTE_NO_MORE_ITEMS", f::kCmdOpenContainer, {kNteNoMoreItems, {}}, 0,
       provider::kNteBadKeyset},
      {"open: name shorter than its body", f::kCmdOpenContainer, {0, {9, 0, 0, 0, 'a', 0, 0}}, 0,
       provider::kNteBadData},
      {"private op: block one short", f::kCmdPrivateKeyOp, {0, Bytes(127)}, 128,
       provider::kNteFail},
      {"delete: refused", f::kCmdDeleteContainer, {0x80100069, {}}, 0, 0x80100069},
      {"change PIN: bad flags", f::kCmdChangePin, {provider::kNteBadFlags, {}}, 0,
       provider::kNteNotSupported},
      {"unblock: bad flags", f::kCmdUnblockPin, {provider::kNteBadFlags, {}}, 0,
       provider::kNteNotSupported},
      {"initialise: bad flags", f::kCmdInitToken, {provider::kNteBadFlags, {}}, 0,
       provider::kNteNotSupported},
      {"initialise without PINs: bad flags", f::kCmdInitTokenPlain, {provider::kNteBadFlags, {}},
       0, provider::kNteNotSupported},
      {"import: bad flags", f::kCmdImportKeyPair, {provider::kNteBadFlags, {}}, 0,
       provider::kNteNotSupported},
      {"read public key: bad flags passes", f::kCmdReadPublicKey, {provider::kNteBadFlags, {}}, 0,
       provider::kNteBadFlags},
      {"delete: answered as the slot frame", f::kCmdDeleteContainer,
       {0, {}, f::kCmdSlotFrameAnswer}, 0, provider::kNteBadData},
      {"delete: answered as a PIN check", f::kCmdDeleteContainer,
       {0, {}, f::ResponseCommand(f::kCmdVerifyPin)}, 0, provider::kNteBadData},
      {"delete: answered with the request's command", f::kCmdDeleteContainer,
       {0, {}, f::kCmdDeleteContainer}, 0, provider::kNteBadData},
  };
  for (const Case& c : cases) {
    Serve({{c.command, {c.answer}}});
    EXPECT_EQ(Command(c.command, c.block), c.expected) << c.what;
    TransportWire::TearDown();
  }
}

// A lapsed login is renewed with the cached PIN and the command resent once; a silent context
// that is not logged in sends no key command.
TEST_F(CardCommandWire, LoginAroundKeyCommands) {
  Serve({{f::kCmdPrivateKeyOp, {{pkcs11::kScardCardNotAuthenticated, {}}, {0, Bytes(128, 7)}}},
         {f::kCmdVerifyPin, {{0, {1, 0, 0, 0}}}}});
  std::memcpy(ctx_->pin, "1234", 4);
  ctx_->pinLength = 4;
  EXPECT_EQ(Command(f::kCmdPrivateKeyOp, 128), 0u);
  EXPECT_EQ(Seen(), (std::vector<uint16_t>{f::kCmdLoginState, f::kCmdPrivateKeyOp,
                                           f::kCmdVerifyPin, f::kCmdPrivateKeyOp}));
  TransportWire::TearDown();
  SetUp();
  Serve({{f::kCmdLoginState, {{0, {0, 0, 0, 0}}}}, {f::kCmdVerifyPin, {{0, {0, 0, 0, 0}}}}});
  ctx_->silent = 1;
  std::memcpy(ctx_->pin, "1111", 4);
  ctx_->pinLength = 4;
  EXPECT_EQ(Command(f::kCmdGenerateKeyPair), provider::kNteSilentContext);
  EXPECT_EQ(Seen(), (std::vector<uint16_t>{f::kCmdLoginState, f::kCmdVerifyPin}));
}

// A client socket connected to a peer that runs `script`.
// The confirmation wait on a Bluetooth device, in each of its endings: the state's four bytes are
// authenticated (byte 0) and pending (byte 1); the last answer of a list repeats.
TEST_F(CardCommandWire, ConfirmationEndsAsTheDeviceAnswers) {
  constexpr uint16_t kAsk = f::kCmdAskConfirmation;
  constexpr uint16_t kPoll = f::kCmdLoginState;
  constexpr uint16_t kEnd = f::kCmdEndConfirmation;
  const Answer given{0, {1, 0, 0, 0}}, pending{0, {0, 1, 0, 0}}, none{0, {0, 0, 0, 0}};
  struct Case {
    const char* what;
    std::vector<Answer> asked, polled, ended;
    size_t sent;  // commands sent; 0: until the wait ends, then the end command
    Status expected;
  };
  const Case cases[] = {
      {"confirmed at the second poll", {pending}, {pending, given}, {}, 3, provider::kOk},
      {"never answered", {pending}, {pending}, {none}, 0, pkcs11::kScardCardNotAuthenticated},
      {"confirmed as the wait ends", {pending}, {pending}, {given}, 0, provider::kOk},
  };
  auto ensure = [] {
    auto ctx = std::make_unique<ProviderContext>();
    ctx->backendKind = provider::BackendBluetoothCard;
    EXPECT_EQ(provider::FindCardBackend(3)->ConnectByName(*ctx, "dev"), provider::kOk);
    return service::BthEnsureAuth(*ctx, dynamic_cast<service::BthDevice&>(*ctx->device), 1);
  };
  for (const Case& c : cases) {
    provider::ClearVerifiedPins();
    Serve({{kAsk, c.asked}, {kPoll, c.polled}, {kEnd, c.ended}}, true);
    EXPECT_EQ(ensure(), c.expected) << c.what;
    const std::vector<uint16_t> sent = Seen();
    ASSERT_FALSE(sent.empty()) << c.what;
    EXPECT_EQ(sent.front(), kAsk) << c.what;
    EXPECT_EQ(sent.back() == kEnd, c.sent == 0) << c.what;
    if (c.sent != 0) {
      EXPECT_EQ(sent.size(), c.sent) << c.what;
    }
    // A confirmation serves every other context of the process for 30 seconds; a failure none.
    Serve({{kAsk, {none}}}, true);
    EXPECT_EQ(ensure(), c.expected == provider::kOk ? provider::kOk : pkcs11::kScardInvalidChv)
        << c.what;
    EXPECT_EQ(Seen().empty(), c.expected == provider::kOk) << c.what;
  }
  provider::ClearVerifiedPins();
}

// Names and PINs cross the wire as UTF-8: each conversion keeps a non-ASCII text, and a wide
// buffer one character short is refused with the size it needs.
TEST(StringConversions, NonAsciiTextsSurviveAndShortBuffersAreRefused) {
  const char text[] = "Gr\xC3\xBC\xC3\x9F";  // 4 characters
  wchar_t wide[5];
  size_t capacity = 4;
  EXPECT_EQ(service::Utf8ToWide(text, wide, &capacity), 0u);
  EXPECT_EQ(capacity, 5u);
  EXPECT_EQ(service::Utf8ToWide(text, wide, &capacity), 5u);
  EXPECT_EQ(std::wstring(wide), L"Gr\u00FC\u00DF");
  service::RequestBuffers list;
  EXPECT_STREQ(service::WideToUtf8(L"Gr\u00FC\u00DF", &list), text);
  size_t ansiLength = 0;
  EXPECT_STREQ(service::AnsiToUtf8(service::Utf8ToAnsi(text, &ansiLength, &list), &list), text);
  EXPECT_EQ(ansiLength, 4u);
}

TEST(TransportKey, SoftwareProviderDecryptsWhatThePublicKeyEncrypted) {
  ASSERT_EQ(service::TransportKeyInit(), 0u);
  const uint8_t secret[24] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                              13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24};
  std::vector<uint8_t> block(256);
  ASSERT_EQ(crypto::Pkcs1PadType2(block.data(), 256, secret, sizeof(secret)), 0);
  ASSERT_EQ(crypto::RsaHandlePublic(service::TransportKey(), block.data(), 256, block.data(),
                                    nullptr),
            0);
  uint32_t length = 256;
  ASSERT_EQ(service::SystemProviderDecrypt(block.data(), &length), 0u);
  ASSERT_EQ(length, sizeof(secret));
  EXPECT_EQ(std::memcmp(block.data(), secret, sizeof(secret)), 0);
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
       Edited(DeviceList({"dev"}), [](Bytes& f) { std::fill_n(f.begin() + 10, 40, 'x'); }),
       provider::kNteBadData},
      {"device list refused", 3, {0x01, 0xC1, 0, 0, 0x69, 0, 0x10, 0x80}, 0x80100069},
      {"card listed", 2, CardList({"dev"}), provider::kOk},
      {"empty card list", 2, CardList({}), provider::kNteNotFound},
      {"device list for cards", 2, DeviceList({"dev"}), provider::kNteBadData},
      {"card count above its records", 2,
       Edited(CardList({"dev"}), [](Bytes& f) { f[8] = 2; }), provider::kNteBadLen},
      {"no service for devices", 3, {}, provider::kNteFail},
      {"no service for cards", 2, {}, provider::kNteFail},
  };
  for (const Case& c : cases) {
    ScriptedPeer peer([&](PeerConnection& conn) {
      Bytes request;
      if (conn.ReadFrame(&request)) conn.Write(c.answer);
    });
    UsePorts(c.answer.empty() ? ClosedPort() : peer.Port());
    auto ctx = std::make_unique<ProviderContext>();
    ctx->backendKind = c.kind;
    EXPECT_EQ(provider::FindCardBackend(c.kind)->ConnectByName(*ctx, "dev"), c.expected) << c.what;
    EXPECT_EQ(ctx->device != nullptr && ctx->device->Name() == "dev", c.expected == provider::kOk)
        << c.what;
  }
}

// A card that refuses the module's key offer: the refusal is reported as the card gave it and
// the connection closed (the peer would otherwise wait for a frame until it ends). That a card
// session is made, kept and made again is the real service's (device_cards_wine_test.cpp).
TEST(ServiceCardWire, RefusedKeyOfferIsReportedAndItsConnectionClosed) {
  std::atomic<bool> closed{false};
  ScriptedPeer peer([&](PeerConnection& conn) {
    Bytes frame;
    if (!conn.ReadFrame(&frame)) return;
    conn.Write({0x01, 0x90, 0, 0, 0x2A, 0, 0x10, 0x80});
    closed = !conn.ReadFrame(&frame);
  });
  UsePorts(ClosedPort(), peer.Port());
  service::SvcDevice card({"card-a", "Card A", "127.0.0.1", 0});
  frames::CardResponse response;
  EXPECT_EQ(service::CardExchange(card, frames::kCmdLoginState, {}, &response), 0x8010002Au);
  EXPECT_TRUE(WaitFor([&] { return closed.load(); }, 2000))
      << "the module closes a refused connection";
}

// The monitor forgets the published slots once the service has gone (the real service's tests
// see it come up and answer; only a peer that leaves on cue shows the forgetting).
TEST(ServiceMonitor, ForgetsThePublishedSlotsWhenTheServiceGoes) {
  const uint16_t port = ClosedPort();
  UsePorts(port);
  service::ServiceSettings settings = service::Settings();
  settings.monitorStepsWhileUp = 10;  // a probe every second
  service::ServiceSettingsOverride(settings);
  std::atomic<bool> stop{false};
  HANDLE thread = CreateThread(nullptr, 0, service::ServiceMonitorThread, &stop, 0, nullptr);
  {
    ScriptedPeer peer(
        [](PeerConnection& c) {
          for (Bytes ignored; c.ReadFrame(&ignored);) {
          }
        },
        port);
    ASSERT_EQ(peer.Port(), port) << "could not listen on the monitored port again";
    EXPECT_TRUE(
        WaitFor([] { return service::LinkState().state.load() == service::kServiceUp; }, 10000));
    service::RemoteTable().count = 1;
    service::RemoteTable().records[0].remote = 1;
    service::RemoteTable().records[0].slotId = kSlotId;
  }
  EXPECT_TRUE(WaitFor([] { return service::RemoteTable().records[0].slotId == 0; }, 10000));
  stop = true;
  EXPECT_EQ(WaitForSingleObject(thread, 2000), WAIT_OBJECT_0) << "the stop flag ends the monitor";
  CloseHandle(thread);
}

}  // namespace
}  // namespace nivra::servicetest
