// What no provider call reaches: broken streams, malformed bodies and refused control commands,
// and several clients at once, each initialised on its own with sessions of its own that
// finalising or going away (or its process ending) closes in the module, and each told of a
// token's removal. (Login and PIN changes, a removed token's slot and token information,
// blocking waits and the call counters are proved through the provider; the program itself
// serves the Windows tests.)
#include <sys/wait.h>
#include <unistd.h>

#include "tests/p11fwd/helper_harness.h"
#include "tools/p11wire/wire_socket.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;
using p11wire::WireSocket;

WireSocket Connect() {
  WireSocket socket;
  EXPECT_TRUE(WireSocket::Connect(HelperAddress(), &socket));
  return socket;
}

// True when the helper has closed `socket` (a read ends without a frame).
bool ClosedByHelper(WireSocket& socket) {
  p11wire::WireFrameHeader header;
  Bytes body;
  return !socket.ReceiveFrame(&header, &body);
}

// Sends one request on `socket`: the answer's status, or kWireLinkFailure when none came.
template <class Reply>
uint32_t Answer(WireSocket& socket, WireOp op, const Bytes& body) {
  Bytes reply;
  Reply answer;
  answer.rv = p11wire::kWireLinkFailure;
  if (p11wire::ExchangeOnSocket(socket, op, body, &reply)) p11wire::DecodeBody(reply, &answer);
  return answer.rv;
}

uint32_t Hello(WireSocket& socket, uint32_t version = p11wire::kWireProtocolVersion) {
  p11wire::HelloRequest hello = {version, 77};
  return Answer<p11wire::HelloReply>(socket, WireOp::kHello, EncodeBody(hello));
}

class HelperProtocol : public HelperTest {
 protected:
  uint32_t Event(TestClient& client) {
    return client.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK}).rv;
  }
  uint32_t SessionState(TestClient& client, uint32_t session) {
    auto reply = client.Call<WireOp::kGetSessionInfo>({session});
    return reply.rv == CKR_OK ? reply.info.state : reply.rv;
  }
};

TEST_F(HelperProtocol, BrokenStreamsCloseOnlyTheirConnection) {
  TestClient bystander;
  ASSERT_EQ(bystander.Initialize(), CKR_OK);
  Bytes oversized(p11wire::kWireHeaderSize);
  p11wire::EncodeFrameHeader({0x12, false, 0x7FFFFFFF}, oversized.data());  // ~2 GiB
  auto frame = [](WireOp op, const Bytes& body) {
    return p11wire::EncodeFrame(static_cast<uint16_t>(op), false, body);
  };
  const std::string garbage = "GET / HTTP/1.0\r\n\r\n";
  struct Case {
    const char* name;
    bool afterHello;
    Bytes sent;
  };
  for (const Case& c :
       {Case{"garbage", false, Bytes(garbage.begin(), garbage.end())},
        Case{"announced body too long", false, oversized},
        Case{"call before the hello", false, frame(WireOp::kGetInfo, {})},
        Case{"second hello", true, frame(WireOp::kHello, EncodeBody(p11wire::HelloRequest{}))},
        Case{"unknown operation", true, p11wire::EncodeFrame(0x31, false, {})}}) {
    WireSocket socket = Connect();
    if (c.afterHello) {
      ASSERT_EQ(Hello(socket), CKR_OK) << c.name;
    }
    ASSERT_TRUE(socket.SendRaw(c.sent.data(), c.sent.size())) << c.name;
    EXPECT_TRUE(ClosedByHelper(socket)) << c.name;
  }
  WireSocket wrongVersion = Connect();
  EXPECT_EQ(Hello(wrongVersion, p11wire::kWireProtocolVersion + 1), CKR_GENERAL_ERROR);
  EXPECT_TRUE(ClosedByHelper(wrongVersion));
  // A body that does not decode is refused, and the connection goes on.
  WireSocket socket = Connect();
  ASSERT_EQ(Hello(socket), CKR_OK);
  ASSERT_EQ(Answer<p11wire::StatusReply>(socket, WireOp::kInitialize, Bytes(6)), CKR_OK);
  EXPECT_EQ(Answer<p11wire::SlotInfoReply>(socket, WireOp::kGetSlotInfo, {1, 2, 3}),
            CKR_ARGUMENTS_BAD);  // a slot is 4 bytes
  EXPECT_EQ(Answer<p11wire::StatusReply>(socket, WireOp::kFinalize, {}), CKR_OK);
  EXPECT_EQ(bystander.Call<WireOp::kGetInfo>({}).rv, CKR_OK);
  bystander.Finalize();
}

TEST_F(HelperProtocol, MalformedOrImpossibleControlCommandsAreRefused) {
  for (std::string bad : {"", "force-init", "force-init 0x100000000", "force-init -1",
                          "force-init 18446744073709551616", "add-slots 0x", "add-slots 12a",
                          "add-slots 0", "add-slots 4097", "add-slots 2 empty", "remove",
                          "count C_DigestInit", "vendor-class yes", "cant-lock",
                          "refuse-vendor-class 0", "refuse-vendor-class 0x100000000",
                          "init-args all"})
    EXPECT_EQ(ControlStatus(bad), CKR_ARGUMENTS_BAD) << bad;
  for (std::string slot : {std::string("0x7ffffff0"), Control("add-slots 1")})
    for (std::string verb : {"remove ", "insert "})
      EXPECT_EQ(ControlStatus(verb + slot), CKR_SLOT_ID_INVALID) << verb << slot;
  std::string answer;
  EXPECT_EQ(ControlStatus("explode now", &answer), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(answer, "unknown command: explode");
}

// A client whose process has ended loses its connections (and with them its sessions and login)
// as soon as another connection comes, even while its socket stays open, as Wine's server can
// leave it; a client whose process runs keeps them.
TEST_F(HelperProtocol, ConnectionsOfEndedProcessesCloseWhenTheNextClientComes) {
  const pid_t reaped = fork();
  if (reaped == 0) _exit(0);
  ASSERT_EQ(waitpid(reaped, nullptr, 0), reaped);
  const pid_t unreaped = fork();  // ended, but still in the process table
  if (unreaped == 0) _exit(0);
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, unreaped, &info, WEXITED | WNOWAIT), 0);
  for (const pid_t pid : {reaped, unreaped, getpid()}) {
    WireSocket socket = Connect();
    const p11wire::HelloRequest hello = {p11wire::kWireProtocolVersion, 78,
                                         static_cast<uint32_t>(pid)};
    ASSERT_EQ(Answer<p11wire::HelloReply>(socket, WireOp::kHello, EncodeBody(hello)), CKR_OK);
    WireSocket next = Connect();
    ASSERT_EQ(Hello(next), CKR_OK);  // served, so the helper has looked at the other clients
    EXPECT_EQ(socket.PeerClosed(), pid != getpid()) << "process " << pid;
  }
  waitpid(unreaped, nullptr, 0);
}

TEST_F(HelperProtocol, EachClientInitialisesOnItsOwnAndKeepsItsOwnSessions) {
  TestClient other;
  EXPECT_EQ(other.Call<WireOp::kGetSlotList>({}).rv, CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(other.Finalize(), CKR_CRYPTOKI_NOT_INITIALIZED);
  ASSERT_EQ(other.Initialize(), CKR_OK);
  EXPECT_EQ(other.Initialize(), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  uint32_t a1 = client_.OpenSession(slot_);
  uint32_t a2 = client_.OpenSession(slot_);
  uint32_t b1 = other.OpenSession(slot_);
  EXPECT_EQ(SessionState(client_, a1), CKS_RW_PUBLIC_SESSION);
  EXPECT_EQ(SessionState(other, a1), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(other.Call<WireOp::kCloseSession>({a1}).rv, CKR_SESSION_HANDLE_INVALID);
  EXPECT_TRUE(ModuleKnows(a1));

  ASSERT_EQ(client_.Call<WireOp::kCloseAllSessions>({slot32()}).rv, CKR_OK);
  EXPECT_EQ(SessionState(client_, a2), CKR_SESSION_HANDLE_INVALID);
  EXPECT_FALSE(ModuleKnows(a1) || ModuleKnows(a2));
  EXPECT_EQ(SessionState(other, b1), CKS_RW_PUBLIC_SESSION);
  ASSERT_EQ(other.Finalize(), CKR_OK);
  EXPECT_FALSE(ModuleKnows(b1));

  TestClient leaving;
  ASSERT_EQ(leaving.Initialize(), CKR_OK);
  uint32_t session = leaving.OpenSession(slot_);
  ASSERT_TRUE(ModuleKnows(session));
  leaving.Disconnect();
  EXPECT_TRUE(ModuleForgets(session));
}

// (What the provider sees of a removal, and the token coming back, the token tests show.)
TEST_F(HelperProtocol, RemovalTakesTheSessionsAndRaisesOneEventForEveryInitialisedClient) {
  uint32_t session = client_.OpenSession(slot_);
  Control("slot-events on");
  TestClient other, late;
  ASSERT_EQ(other.Initialize(), CKR_OK);
  Control("remove " + std::to_string(slot_));
  Control("remove " + std::to_string(slot_));  // no change, no event
  ASSERT_EQ(late.Initialize(), CKR_OK);
  auto first = client_.Call<WireOp::kWaitForSlotEvent>({CKF_DONT_BLOCK});
  EXPECT_EQ(first.rv, CKR_OK);
  EXPECT_EQ(first.handle, slot32());
  EXPECT_EQ(Event(client_), CKR_NO_EVENT);
  EXPECT_EQ(Event(other), CKR_OK);
  EXPECT_EQ(Event(late), CKR_NO_EVENT);
  EXPECT_EQ(SessionState(client_, session), CKR_DEVICE_REMOVED);
  EXPECT_FALSE(ModuleKnows(session));
  Control("insert " + std::to_string(slot_));
  EXPECT_EQ(Event(late), CKR_OK);
  EXPECT_EQ(SessionState(client_, session), CKR_SESSION_HANDLE_INVALID);
  other.Finalize();
  late.Finalize();
}

}  // namespace
}  // namespace nivra::p11test
