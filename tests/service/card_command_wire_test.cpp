// Card commands of a context on a published slot against a scripted peer: every status
// translation and length rule of the answers, and the login around key commands (the cached PIN,
// a lapsed login answered by a relogin and one resend, a silent context). A wrong PIN is the real
// service's (service_slots_wine_test.cpp). Each case runs in a process of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"
#include "scripted_peer.h"
#include "service/frames/card_commands.h"
#include "service/frames/frame_codes.h"
#include "service/remote_slot_table.h"
#include "service/slot_channel.h"
#include "service/slot_commands.h"

namespace nivra::servicetest {
namespace {

using provider::ProviderContext;
using provider::Status;
using pkcs11::SlotDevice;
namespace f = frames;

struct Answer {
  uint32_t status = 0;
  Bytes body;
};

// Answers each card command from a table (the login state is always "logged in" unless the
// table says otherwise) and records the commands it saw.
class CardPeer {
 public:
  explicit CardPeer(std::map<uint16_t, std::vector<Answer>> answers)
      : answers_(std::move(answers)),
        peer_(ScriptedPeer::Answering([this](uint16_t command, const Bytes&) {
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
          f::BuildFrame(f::ResponseCommand(command), answer.status, answer.body.data(),
                        answer.body.size(), &frame);
          return frame;
        })) {
    UsePorts(peer_.Port());
  }
  std::vector<uint16_t> Seen() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }

 private:
  std::mutex mutex_;
  std::map<uint16_t, std::vector<Answer>> answers_;
  std::vector<uint16_t> seen_;
  ScriptedPeer peer_;
};

class CardCommandWire : public ::testing::Test {
 protected:
  void SetUp() override {
    service::RemoteTable().count = 1;
    record_ = &service::RemoteTable().records[0];
    record_->slotId = 3;
    record_->remote = 1;
    ctx_ = std::make_unique<ProviderContext>();
    device_ = std::make_unique<SlotDevice>(record_);
    device_->container = 9;
  }
  void TearDown() override {
    std::lock_guard<std::mutex> use(service::LinkOf(*record_).use);
    service::SlotChannelClose(*record_);
  }
  Status Command(uint16_t command, const f::CardRequest& request = {}, size_t block = 0) {
    f::CardResponse response;
    return service::SlotCommand(*ctx_, *device_, command, request, &response, block);
  }
  f::CardRequest Data(size_t size) {
    f::CardRequest request;
    request.handle = 9;
    request.keySpec = 2;
    request.data.assign(size, 0x01);
    request.text = "name";
    request.text2 = "new";
    return request;
  }

  pkcs11::P11Slot* record_ = nullptr;
  std::unique_ptr<ProviderContext> ctx_;
  std::unique_ptr<SlotDevice> device_;
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
      {"enumerate: end of list", f::kCmdEnumContainers, {pkcs11::kErrNoMoreItems, {}}, 0,
       pkcs11::kErrNoMoreItems},
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
  };
  for (const Case& c : cases) {
    CardPeer peer({{c.command, {c.answer}}});
    EXPECT_EQ(Command(c.command, Data(c.block == 0 ? 4 : c.block), c.block), c.expected)
        << c.what;
    TearDown();
  }
}

TEST_F(CardCommandWire, LapsedLoginIsRenewedWithTheCachedPinAndTheCommandResentOnce) {
  CardPeer peer({{f::kCmdPrivateKeyOp, {{pkcs11::kScardCardNotAuthenticated, {}}, {0, Bytes(128, 7)}}},
                 {f::kCmdVerifyPin, {{0, {1, 0, 0, 0}}}}});
  std::memcpy(ctx_->pin, "1234", 4);
  ctx_->pinLength = 4;
  EXPECT_EQ(Command(f::kCmdPrivateKeyOp, Data(128), 128), 0u);
  EXPECT_EQ(peer.Seen(), (std::vector<uint16_t>{f::kCmdLoginState, f::kCmdPrivateKeyOp,
                                              f::kCmdVerifyPin, f::kCmdPrivateKeyOp}));
}

TEST_F(CardCommandWire, SilentContextThatIsNotLoggedInSendsNoKeyCommand) {
  CardPeer peer({{f::kCmdLoginState, {{0, {0, 0, 0, 0}}}}, {f::kCmdVerifyPin, {{0, {0, 0, 0, 0}}}}});
  ctx_->silent = 1;
  std::memcpy(ctx_->pin, "1111", 4);
  ctx_->pinLength = 4;
  EXPECT_EQ(Command(f::kCmdGenerateKeyPair, Data(4)), provider::kNteSilentContext);
  EXPECT_EQ(peer.Seen(), (std::vector<uint16_t>{f::kCmdLoginState, f::kCmdVerifyPin}));
}

}  // namespace
}  // namespace nivra::servicetest
