// Clients that go away mid-frame, many clients at once, and stopping the service: none of it may
// disturb another client.
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "crypto/pkcs1.h"
#include "tests/cardservice/openssl_peer.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

using FaultTest = ServiceTest;

TEST_F(FaultTest, ClientsThatStopMidFrameNeitherBlockNorDisturbOthersNorTheStop) {
  auto bystander = Open();
  const uint8_t slotId[] = {1, 0, 0, 0};
  frames::Bytes frame;
  frames::BuildFrame(frames::kCmdSlotInfo, 0, slotId, sizeof slotId, &frame);
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
