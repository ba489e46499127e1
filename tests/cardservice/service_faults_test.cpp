// Clients that go away mid-frame and stopping the service: neither may disturb another client.
// Many clients signing at once are the published-slot load test's (tests/service).
#include <signal.h>
#include <sys/wait.h>

#include <thread>

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

}  // namespace
}  // namespace nivra::cardtest
