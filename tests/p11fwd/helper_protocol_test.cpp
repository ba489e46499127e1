// The helper's side of the protocol: broken streams, malformed bodies, refused control commands,
// and several clients at once. (The program itself serves the Windows tests' fixture.)
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/p11fwd/helper_harness.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;
using p11wire::WireSocket;

WireSocket Connect() {
  WireSocket socket;
  EXPECT_TRUE(WireSocket::Connect(HelperHarness::Get().address(), &socket));
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

using HelperProtocol = HelperTest;  // with connections of its own

TEST_F(HelperProtocol, BrokenStreamsCloseOnlyTheirConnection) {
  TestClient bystander;
  ASSERT_EQ(bystander.Initialize(), CKR_OK);
  Bytes oversized(p11wire::kWireHeaderSize);
  p11wire::EncodeFrameHeader({0x12, false, 0}, oversized.data());
  oversized[4] = 0xFF, oversized[5] = 0xFF, oversized[6] = 0xFF, oversized[7] = 0x7F;  // ~2 GiB
  const p11wire::HelloRequest hello;
  auto frame = [](WireOp op, const Bytes& body) {
    return p11wire::EncodeFrame(static_cast<uint16_t>(op), false, body);
  };
  struct Case {
    const char* name;
    bool afterHello;
    Bytes sent;
  };
  for (const Case& c : {Case{"garbage", false, TextBytes("GET / HTTP/1.0\r\n\r\n")},
                        Case{"announced body too long", false, oversized},
                        Case{"call before the hello", false, frame(WireOp::kGetInfo, {})},
                        Case{"second hello", true, frame(WireOp::kHello, p11wire::EncodeBody(hello))},
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
  EXPECT_EQ(bystander.Call<WireOp::kGetInfo>({}).rv, CKR_OK);
  bystander.Finalize();
}

TEST_F(HelperProtocol, MalformedBodyIsAnsweredWithArgumentsBadAndTheConnectionGoesOn) {
  WireSocket socket = Connect();
  ASSERT_EQ(Hello(socket), CKR_OK);
  ASSERT_EQ(Answer<p11wire::StatusReply>(socket, WireOp::kInitialize, {0, 0, 0, 0, 0, 0}), CKR_OK);
  // C_GetSlotInfo needs a 4-byte slot; send 3 bytes.
  EXPECT_EQ(Answer<p11wire::SlotInfoReply>(socket, WireOp::kGetSlotInfo, {1, 2, 3}), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Answer<p11wire::StatusReply>(socket, WireOp::kFinalize, {}), CKR_OK);
}

TEST_F(HelperProtocol, MalformedOrImpossibleControlCommandsAreRefused) {
  for (std::string bad : {"", "force-init", "force-init 0x100000000", "force-init 18446744073709551616",
                          "force-init -1", "add-slots 0x", "add-slots 12a", "add-slots 0",
                          "add-slots 4097", "add-slots 2 empty", "remove", "count C_DigestInit",
                          "vendor-class yes", "cant-lock", "refuse-vendor-class 0",
                          "refuse-vendor-class 0x100000000", "init-args all"})
    EXPECT_EQ(harness().ControlStatus(bad), CKR_ARGUMENTS_BAD) << bad;
  for (std::string slot : {std::string("0x7ffffff0"), harness().Control("add-slots 1")})
    for (std::string verb : {"remove ", "insert "})
      EXPECT_EQ(harness().ControlStatus(verb + slot), CKR_SLOT_ID_INVALID) << verb << slot;
  std::string answer;
  EXPECT_EQ(harness().ControlStatus("explode now", &answer), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(answer, "unknown command: explode");
  EXPECT_EQ(harness().Control("ping"), "pong");
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
    const p11wire::HelloRequest hello = {p11wire::kWireProtocolVersion, 78, static_cast<uint32_t>(pid)};
    ASSERT_EQ(Answer<p11wire::HelloReply>(socket, WireOp::kHello, EncodeBody(hello)), CKR_OK);
    WireSocket next = Connect();
    ASSERT_EQ(Hello(next), CKR_OK);  // served, so the helper has looked at the other clients
    EXPECT_EQ(socket.PeerClosed(), pid != getpid()) << "process " << pid;
  }
  waitpid(unreaped, nullptr, 0);
}

TEST_F(HelperProtocol, ParallelClientsAreServedOneCallAtATime) {
  harness().Control("reset-counts");
  constexpr int kThreads = 4;
  constexpr int kRounds = 25;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      TestClient client;
      failures += client.Initialize() != CKR_OK;
      for (int i = 0; i < kRounds; ++i) {
        auto open = client.Call<WireOp::kOpenSession>({slot32(), CKF_SERIAL_SESSION});
        failures += open.rv != CKR_OK;
        failures += client.Call<WireOp::kGetSessionInfo>({open.handle}).rv != CKR_OK;
        failures += client.Call<WireOp::kCloseSession>({open.handle}).rv != CKR_OK;
      }
      client.Finalize();
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(harness().Control("count C_OpenSession"), std::to_string(kThreads * kRounds));
  EXPECT_EQ(harness().Control("count C_CloseSession"), std::to_string(kThreads * kRounds));
}

}  // namespace
}  // namespace nivra::p11test
