// The helper's side of the protocol: malformed frames and bodies, calls before the hello,
// several clients at once, and the command-line program with its control client.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/p11fwd/helper_harness.h"
#include "tools/p11wire/wire_shapes.h"

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
  std::vector<uint8_t> body;
  return !socket.ReceiveFrame(&header, &body);
}

bool SayHello(WireSocket& socket, uint64_t clientId) {
  p11wire::HelloRequest hello;
  hello.clientId = clientId;
  std::vector<uint8_t> reply;
  p11wire::HelloReply answer;
  return p11wire::ExchangeOnSocket(socket, WireOp::kHello, p11wire::EncodeBody(hello), &reply) &&
         p11wire::DecodeBody(reply, &answer) && answer.rv == CKR_OK;
}

using HelperProtocol = HelperTest;

TEST_F(HelperProtocol, GarbageClosesOnlyThatConnection) {
  TestClient bystander;
  ASSERT_EQ(bystander.Initialize(), CKR_OK);
  WireSocket garbage = Connect();
  const uint8_t junk[] = "GET / HTTP/1.0\r\n\r\n";
  ASSERT_TRUE(garbage.SendRaw(junk, sizeof junk));
  EXPECT_TRUE(ClosedByHelper(garbage));
  EXPECT_EQ(bystander.Call<WireOp::kGetInfo>({}).rv, CKR_OK);
  bystander.Finalize();
}

TEST_F(HelperProtocol, OversizedFrameIsRefusedWithoutReadingIt) {
  WireSocket socket = Connect();
  uint8_t header[p11wire::kWireHeaderSize];
  p11wire::EncodeFrameHeader({0x12, false, p11wire::kWireMaxBody}, header);
  header[4] = 0xFF, header[5] = 0xFF, header[6] = 0xFF, header[7] = 0x7F;  // ~2 GiB announced
  ASSERT_TRUE(socket.SendRaw(header, sizeof header));
  EXPECT_TRUE(ClosedByHelper(socket));
}

TEST_F(HelperProtocol, CallBeforeHelloClosesTheConnection) {
  WireSocket socket = Connect();
  ASSERT_TRUE(socket.SendFrame(static_cast<uint16_t>(WireOp::kGetInfo), false, {}));
  EXPECT_TRUE(ClosedByHelper(socket));
}

TEST_F(HelperProtocol, SecondHelloAndUnknownOperationsCloseTheConnection) {
  WireSocket twice = Connect();
  ASSERT_TRUE(SayHello(twice, 77));
  p11wire::HelloRequest hello;
  ASSERT_TRUE(twice.SendFrame(static_cast<uint16_t>(WireOp::kHello), false, p11wire::EncodeBody(hello)));
  EXPECT_TRUE(ClosedByHelper(twice));

  WireSocket unknown = Connect();
  ASSERT_TRUE(SayHello(unknown, 78));
  ASSERT_TRUE(unknown.SendFrame(0x31, false, {}));
  EXPECT_TRUE(ClosedByHelper(unknown));
}

TEST_F(HelperProtocol, WrongProtocolVersionIsRefused) {
  WireSocket socket = Connect();
  p11wire::HelloRequest hello;
  hello.version = p11wire::kWireProtocolVersion + 1;
  std::vector<uint8_t> reply;
  ASSERT_TRUE(p11wire::ExchangeOnSocket(socket, WireOp::kHello, p11wire::EncodeBody(hello), &reply));
  p11wire::HelloReply answer;
  ASSERT_TRUE(p11wire::DecodeBody(reply, &answer));
  EXPECT_EQ(answer.rv, CKR_GENERAL_ERROR);
  EXPECT_TRUE(ClosedByHelper(socket));
}

TEST_F(HelperProtocol, MalformedBodyIsAnsweredWithArgumentsBad) {
  WireSocket socket = Connect();
  ASSERT_TRUE(SayHello(socket, 79));
  std::vector<uint8_t> reply;
  ASSERT_TRUE(p11wire::ExchangeOnSocket(socket, WireOp::kInitialize, {}, &reply));
  // C_GetSlotInfo needs a 4-byte slot; send 3 bytes.
  ASSERT_TRUE(p11wire::ExchangeOnSocket(socket, WireOp::kGetSlotInfo, {1, 2, 3}, &reply));
  p11wire::SlotInfoReply answer;
  ASSERT_TRUE(p11wire::DecodeBody(reply, &answer));
  EXPECT_EQ(answer.rv, CKR_ARGUMENTS_BAD);
  // The connection stays usable.
  ASSERT_TRUE(p11wire::ExchangeOnSocket(socket, WireOp::kFinalize, {}, &reply));
  p11wire::StatusReply finalized;
  ASSERT_TRUE(p11wire::DecodeBody(reply, &finalized));
  EXPECT_EQ(finalized.rv, CKR_OK);
}

TEST_F(HelperProtocol, UnknownControlCommandIsRefusedWithItsName) {
  std::string answer;
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "explode now", &answer),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(answer, "unknown command: explode");
  EXPECT_EQ(p11wire::SendControlCommand(harness().address(), "", &answer), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(harness().Control("ping"), "pong");
}

TEST_F(HelperProtocol, NoHelperMeansLinkFailure) {
  p11wire::WireListener closed;
  ASSERT_TRUE(closed.Listen({"127.0.0.1", 0}));
  uint16_t port = closed.port();
  closed.Close();
  std::string answer;
  EXPECT_EQ(p11wire::SendControlCommand({"127.0.0.1", port}, "ping", &answer),
            p11wire::kWireLinkFailure);
  p11wire::WirePooledTransport transport(
      [port](p11wire::WireAddress* a) {
        *a = {"127.0.0.1", port};
        return true;
      },
      1);
  p11wire::WireClient client(&transport);
  EXPECT_EQ(client.Call<WireOp::kInitialize>({}).rv, p11wire::kWireLinkFailure);
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
      if (client.Initialize() != CKR_OK) failures++;
      for (int i = 0; i < kRounds; ++i) {
        auto open = client.Call<WireOp::kOpenSession>({static_cast<uint32_t>(slot_), CKF_SERIAL_SESSION});
        if (open.rv != CKR_OK) failures++;
        if (client.Call<WireOp::kGetSessionInfo>({open.handle}).rv != CKR_OK) failures++;
        if (client.Call<WireOp::kCloseSession>({open.handle}).rv != CKR_OK) failures++;
      }
      client.Finalize();
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(harness().Control("count C_OpenSession"), std::to_string(kThreads * kRounds));
  EXPECT_EQ(harness().Control("count C_CloseSession"), std::to_string(kThreads * kRounds));
}

// The built program, started as a user would: it writes its port, answers --ctl and stops on
// the stop command.
TEST(HelperProgram, ServesControlsAndStops) {
  ASSERT_TRUE(HelperHarness::Get().ok());  // provides SOFTHSM2_CONF for the child
  std::string portFile = HelperHarness::Get().token().directory() + "/helper.port";
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    freopen("/dev/null", "w", stderr);
    execl(NIVRA_P11_HELPER_PATH, NIVRA_P11_HELPER_PATH, "--listen", "127.0.0.1:0", "--port-file",
          portFile.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  std::string port;
  for (int i = 0; i < 500 && port.empty(); ++i) {
    std::ifstream(portFile) >> port;
    if (port.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_FALSE(port.empty());
  std::string ctl = std::string(NIVRA_P11_HELPER_PATH) + " --ctl 127.0.0.1:" + port + " ";
  auto run = [](const std::string& command, std::string* out) {
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[256];
    out->clear();
    while (pipe && fgets(buffer, sizeof buffer, pipe)) *out += buffer;
    return pipe ? pclose(pipe) : -1;
  };
  std::string out;
  EXPECT_EQ(run(ctl + "ping", &out), 0);
  EXPECT_EQ(out, "pong\n");
  EXPECT_NE(run(ctl + "count C_Bogus 2>/dev/null", &out), 0);
  EXPECT_EQ(run(ctl + "stop", &out), 0);
  int status = -1;
  for (int i = 0; i < 500; ++i) {
    if (waitpid(child, &status, WNOHANG) == child) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (!WIFEXITED(status)) kill(child, SIGKILL), waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace nivra::p11test
