// Clients that break the protocol or go away mid-frame, many clients at once, and stopping the
// service: none of it may disturb another client.
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "crypto/pkcs1.h"
#include "crypto/rsa_interface.h"
#include "service/frames/session_handshake.h"
#include "tests/cardservice/openssl_peer.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

using FaultTest = ServiceTest;

frames::Bytes Frame(uint16_t command, uint32_t status, frames::Bytes body) {
  frames::Bytes frame;
  frames::BuildFrame(command, status, body.data(), body.size(), &frame);
  return frame;
}

TEST_F(FaultTest, BrokenClientsAreClosedWhileOthersGoOn) {
  auto bystander = Open();
  Login(*bystander);
  struct Case {
    const char* what;
    frames::Bytes bytes;  // sent, then the client waits for the service to close
    const char* logged;
  };
  const Case cases[] = {
      {"unknown command", Frame(0x4242, 0, {1, 2, 3}), "unknown command"},
      {"request with a status", Frame(frames::kCmdSlotList, 5, {}), "a request with a status"},
      {"slot list with a body", Frame(frames::kCmdSlotList, 0, {0}), "slot list with a body"},
      {"slot query of 3 bytes", Frame(frames::kCmdSlotInfo, 0, {1, 2, 3}), "4-byte slot ID"},
      {"slot frame before the handshake", Frame(frames::kCmdSlotFrame, 0, frames::Bytes(16)),
       "before the handshake"},
      {"hello of the wrong key format", Frame(frames::kCmdHello, 0, {3, 0, 0x30, 0}),
       "malformed hello"},
      {"hello whose key is not a key", Frame(frames::kCmdHello, 0, {2, 0, 0x30, 3, 2, 1, 5}),
       "hello without a usable RSA public key"},
      {"hello with a 512-bit key", [] {
         frames::RsaOwner key;
         frames::Bytes hello;
         crypto::RsaGenerateNewKey(key.Out(), 512, 65537);
         frames::BuildHello(key.Get(), &hello);
         return hello;
       }(), "hello with a key below 1024 bits"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Client client(service_->port());
    ASSERT_TRUE(client.Send(c.bytes));
    EXPECT_TRUE(client.ClosedByService());
    EXPECT_EQ(Call(*bystander, frames::kCmdLoginState).response.value, 1u);
  }
  // A channel whose slot frame does not decrypt (not whole cipher blocks, or wrapped under
  // another channel's session key) is closed too.
  for (const frames::Bytes& garbage : {Frame(frames::kCmdSlotFrame, 0, frames::Bytes(13, 0xA5)),
                                       bystander->WrapRequest(slot_, frames::kCmdLoginState, {})}) {
    auto broken = Open();
    ASSERT_TRUE(broken->client().Send(garbage));
    EXPECT_TRUE(broken->client().ClosedByService());
  }
  std::string log = service_->Log();
  for (const Case& c : cases) EXPECT_NE(log.find(c.logged), std::string::npos) << c.logged;
  EXPECT_NE(log.find("slot frame that does not decrypt"), std::string::npos);
  EXPECT_EQ(Call(*bystander, frames::kCmdLoginState).response.value, 1u);
}

TEST_F(FaultTest, ClientsThatStopMidFrameNeitherBlockNorDisturbOthersNorTheStop) {
  auto bystander = Open();
  frames::Bytes frame = Frame(frames::kCmdSlotInfo, 0, {1, 0, 0, 0});
  // Half a header, and a header whose body never fully comes: the first disconnects, the second
  // stays silent while others are served.
  {
    Client leaver(service_->port());
    ASSERT_TRUE(leaver.SendRaw(frame.data(), 5));
  }
  Client staller(service_->port());
  ASSERT_TRUE(staller.SendRaw(frame.data(), frames::kHeaderSize + 2));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Call(*bystander, frames::kCmdLoginState).status, 0u);
  EXPECT_EQ(SlotList(service_->port()).empty(), false);
  // The one that left is logged as such.
  std::string log;
  for (int i = 0; i < 100 && log.find("mid-frame (5 of 8 bytes)") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    log = service_->Log();
  }
  EXPECT_NE(log.find("client disconnected mid-frame (5 of 8 bytes); connection closed"),
            std::string::npos);
  // SIGTERM ends the service promptly with the staller still mid-frame and a channel idle.
  int status = service_->Terminate(5000);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
  EXPECT_TRUE(bystander->client().ClosedByService());
  EXPECT_NE(service_->Log().find("stopped"), std::string::npos);
}

TEST_F(FaultTest, ManyChannelsSignAtOnceAndEverySignatureVerifies) {
  auto setup = Open();
  Login(*setup);
  uint32_t handle = Create(*setup, "shared");
  frames::PublicKeyBlock key = Generate(*setup, handle, kAtSignature);
  const size_t k = key.modulus.size();
  constexpr int kThreads = 8, kSignatures = 10;
  std::atomic<int> verified{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      Channel channel(service_->port());
      frames::CardRequest pin;
      pin.text = kUserPin;
      if (!channel.ready() || channel.Call(slot_, frames::kCmdVerifyPin, pin).response.value != 1) {
        return;
      }
      for (int i = 0; i < kSignatures; ++i) {
        ByteString message = {static_cast<uint8_t>(t), static_cast<uint8_t>(i)};
        ByteString digestInfo = Sha256DigestInfo(message), block(k);
        crypto::Pkcs1PadType1(block.data(), k, digestInfo.data(), digestInfo.size());
        CardResult signature = channel.Call(slot_, frames::kCmdPrivateKeyOp, Key(handle, 2, block), k);
        if (signature.status == 0 &&
            OpenSslVerifiesSha256(key.modulus, key.exponent, message, signature.response.data)) {
          ++verified;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(verified, kThreads * kSignatures);
}

}  // namespace
}  // namespace nivra::cardtest
