// The provider's transports against a scripted peer: every malformed handshake, slot list and
// answer, a peer that never answers, and a peer that drops the connection mid-request. Each case
// runs in a process of its own (the transports keep process-wide state).
#include <gtest/gtest.h>

#include <cstring>
#include <mutex>

#include "pkcs11/p11_status.h"
#include "scripted_peer.h"
#include "service/frames/card_commands.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"
#include "service/remote_slot_table.h"
#include "service/slot_channel.h"
#include "service/slot_commands.h"

namespace nivra::servicetest {
namespace {

using provider::Status;
using service::P11Slot;

constexpr uint32_t kSlotId = 7;
constexpr Status kDeviceNotConnected = ERROR_DEVICE_NOT_CONNECTED;

class TransportWire : public ::testing::Test {
 protected:
  P11Slot& Record() {
    service::RemoteTable().count = 1;
    P11Slot& record = service::RemoteTable().records[0];
    record.slotId = kSlotId;
    record.remote = 1;
    return record;
  }
  Status OpenChannel() {
    P11Slot& record = Record();
    std::lock_guard<std::mutex> use(service::LinkOf(record).use);
    return service::SlotChannelOpen(&record);
  }
  void TearDown() override {
    P11Slot& record = Record();
    std::lock_guard<std::mutex> use(service::LinkOf(record).use);
    service::SlotChannelClose(record);
    service::ServiceLinkClose();
  }
};

// Waits for the client to close (the peer's side of a refused handshake).
void Drain(PeerConnection& c) {
  Bytes ignored;
  while (c.ReadFrame(&ignored)) {
  }
}

void SetBodyLength(Bytes& frame, size_t body) {
  frame.resize(frames::kHeaderSize + body, 0x5A);
  frame[2] = static_cast<uint8_t>(body);
  frame[3] = static_cast<uint8_t>(body >> 8);
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
        if (conn.Handshake(c.secret, c.edit)) Drain(conn);
      });
      UsePorts(peer.Port(), 0, systemProvider);
      EXPECT_EQ(OpenChannel(), c.expected) << c.what << (systemProvider ? " (provider)" : "");
      EXPECT_EQ(service::LinkOf(Record()).socket == INVALID_SOCKET, c.expected != provider::kOk)
          << c.what;
      TearDown();
    }
  }
}

TEST_F(TransportWire, MalformedSlotListsAreRefusedAndLongListsKeep256) {
  std::vector<frames::SlotRecord> records(300);
  for (uint32_t i = 0; i < records.size(); ++i) records[i].slotId = 1000 + i;
  auto list = [&](size_t count) {
    Bytes frame;
    frames::BuildSlotListAnswer(records.data(), count, &frame);
    return frame;
  };
  auto edited = [&](size_t count, auto edit) {
    Bytes frame = list(count);
    edit(frame);
    return frame;
  };
  struct Case {
    const char* what;
    Bytes answer;
    Status expected;
    uint32_t count;
  };
  const Case cases[] = {
      {"two records", list(2), provider::kOk, 2},
      {"300 records", list(300), provider::kOk, 256},
      {"answer of the one-slot command", edited(2, [](Bytes& f) { f[0] = 0x02; }),
       provider::kNteBadData, 0},
      {"refused", edited(0, [](Bytes& f) { f[4] = 0x2E; f[6] = 0x10; f[7] = 0x80; }),
       0x8010002E, 0},
      {"count above its records", edited(2, [](Bytes& f) { f[8] = 3; }), provider::kNteBadLen, 0},
      {"one byte short", edited(2, [](Bytes& f) { SetBodyLength(f, 2 + 2 * 92 - 1); }),
       provider::kNteBadLen, 0},
      {"one byte over", edited(2, [](Bytes& f) { SetBodyLength(f, 2 + 2 * 92 + 1); }),
       provider::kNteBadLen, 0},
      {"no count", edited(0, [](Bytes& f) { SetBodyLength(f, 1); }), provider::kNteBadLen, 0},
  };
  for (const Case& c : cases) {
    ScriptedPeer peer([&](PeerConnection& conn) {
      Bytes request;
      while (conn.ReadFrame(&request)) {
        if (request == frames::BuildSlotListRequest()) conn.Write(c.answer);
      }
    });
    UsePorts(peer.Port());
    service::RemoteTable().count = 0;
    EXPECT_EQ(service::ServiceRefreshSlots(), c.expected) << c.what;
    if (c.expected == provider::kOk) {
      EXPECT_EQ(service::RemoteTable().count, c.count) << c.what;
      EXPECT_EQ(service::RemoteTable().records[c.count - 1].slotId, 1000 + c.count - 1);
      EXPECT_EQ(service::RemoteTable().records[0].remote, 1u);
    }
    service::ServiceLinkClose();
  }
}

TEST_F(TransportWire, OneSlotAnswersAreChecked) {
  frames::SlotRecord fresh;
  fresh.slotId = kSlotId;
  fresh.tokenPresent = 1;
  fresh.serial[0] = 0xAB;
  struct Case { const char* what; Bytes answer; Status expected; };
  Bytes good = frames::BuildSlotInfoAnswer(fresh);
  Bytes wrongCommand = good;
  wrongCommand[0] = 0x01;
  Bytes shortBody = good;
  SetBodyLength(shortBody, 91);
  const Case cases[] = {{"proper", good, provider::kOk},
                        {"answer of the list command", wrongCommand, provider::kNteBadData},
                        {"91 bytes", shortBody, provider::kNteBadLen}};
  for (const Case& c : cases) {
    ScriptedPeer peer([&](PeerConnection& conn) {
      Bytes request;
      while (conn.ReadFrame(&request)) conn.Write(c.answer);
    });
    UsePorts(peer.Port());
    uint32_t present = 0;
    EXPECT_EQ(service::ServiceRefreshSlot(Record(), &present), c.expected) << c.what;
    if (c.expected == provider::kOk) {
      EXPECT_EQ(present, 1u);
      EXPECT_EQ(Record().serial[0], 0xAB);
    }
    service::ServiceLinkClose();
  }
}

Bytes LoginStateRequest() {
  Bytes frame;
  frames::BuildCardRequest(frames::kCmdLoginState, {}, &frame);
  return frame;
}

Status Transact(P11Slot& record, frames::FrameView* answer, service::RequestBuffers& list) {
  const Bytes request = LoginStateRequest();
  return service::SlotTransact(record, request.data(), request.size(), answer, list);
}

TEST_F(TransportWire, AnswersOfAnotherCommandAreRefused) {
  for (uint16_t command : {frames::kCmdSlotFrameAnswer, frames::ResponseCommand(frames::kCmdVerifyPin),
                           frames::kCmdLoginState}) {
    ScriptedPeer peer(ScriptedPeer::Answering([&](uint16_t, const Bytes& inner) {
      Bytes answer;
      frames::BuildFrame(command, 0, inner.data(), 4, &answer);
      return answer;
    }));
    UsePorts(peer.Port());
    service::RequestBuffers list;
    frames::FrameView answer;
    EXPECT_EQ(Transact(Record(), &answer, list), provider::kNteBadData) << std::hex << command;
    TearDown();
  }
}

TEST_F(TransportWire, SilenceTimesOutAndADroppedRequestReconnectsWithANewHandshake) {
  std::atomic<int> requests{0};
  ScriptedPeer peer([&](PeerConnection& conn) {
    if (!conn.Handshake(FreshSecret())) return;
    uint32_t slot = 0;
    Bytes inner;
    while (conn.ReadRequest(&slot, &inner)) {
      const int n = ++requests;
      if (n == 1) continue;  // never answered: the client times out and closes
      if (n == 2) return;    // dropped mid-request
      frames::CardResponse state;
      state.value = 1;
      Bytes answer;
      frames::BuildCardResponse(frames::kCmdLoginState, 0, state, &answer);
      EXPECT_EQ(slot, kSlotId);
      conn.Answer(answer);
    }
  });
  UsePorts(peer.Port());
  service::RequestBuffers list;
  frames::FrameView answer;
  EXPECT_EQ(Transact(Record(), &answer, list), provider::kScardTimeout);
  EXPECT_EQ(service::LinkOf(Record()).socket, INVALID_SOCKET);
  EXPECT_EQ(Transact(Record(), &answer, list), kDeviceNotConnected);
  EXPECT_EQ(service::LinkOf(Record()).sessionState, 0u);
  ASSERT_EQ(Transact(Record(), &answer, list), provider::kOk);
  EXPECT_EQ(answer.header.command, frames::ResponseCommand(frames::kCmdLoginState));
  EXPECT_EQ(peer.Connections(), 3);
}

}  // namespace
}  // namespace nivra::servicetest
