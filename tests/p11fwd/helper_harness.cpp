#include "tests/p11fwd/helper_harness.h"

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>

#include "tools/p11helper/dispatcher.h"
#include "tools/p11helper/helper_server.h"
#include "tools/p11wire/control_client.h"

namespace nivra::p11test {
namespace {

// The helper, its module and its token, for the life of the test process.
struct Served {
  Served() {
    namespace fs = std::filesystem;
    std::string pattern = (fs::temp_directory_path() / "nivra-softhsm-XXXXXX").string();
    directory = mkdtemp(pattern.data()) ? pattern : "";
    const std::string command =
        std::string("sh ") + NIVRA_SCRATCH_TOKENS + " " + directory + " nivra-test";
    if (directory.empty() || std::system(command.c_str()) != 0) {
      error = "no scratch token in " + pattern;
      return;
    }
    setenv("SOFTHSM2_CONF", (directory + "/softhsm2.conf").c_str(), 1);
    if (!module.Load(p11helper::kDefaultModulePath, &error)) return;
    dispatcher = std::make_unique<p11helper::Dispatcher>(module.functions());
    server = std::make_unique<p11helper::HelperServer>(dispatcher.get());
    if (server->Listen({"127.0.0.1", 0}, &error)) serving = std::thread([this] { server->Run(); });
  }
  ~Served() {
    if (serving.joinable()) {
      server->Stop();
      serving.join();
    }
    std::error_code ignored;
    if (!directory.empty()) std::filesystem::remove_all(directory, ignored);
  }
  std::string directory, error;
  p11helper::NativeModule module;  // declared first: unloaded after the server has stopped
  std::unique_ptr<p11helper::Dispatcher> dispatcher;
  std::unique_ptr<p11helper::HelperServer> server;
  std::thread serving;
};

Served& Helper() {
  static Served served;
  return served;
}

}  // namespace

p11wire::WireAddress HelperAddress(std::string* error) {
  if (error) *error = Helper().error;
  return {"127.0.0.1", Helper().serving.joinable() ? Helper().server->port() : uint16_t{0}};
}

CK_FUNCTION_LIST* NativeModule() { return Helper().module.functions(); }

uint32_t ControlStatus(const std::string& command, std::string* answer) {
  std::string ignored;
  return p11wire::SendControlCommand(HelperAddress(), command, answer ? answer : &ignored);
}

std::string Control(const std::string& command) {
  std::string answer;
  EXPECT_EQ(ControlStatus(command, &answer), 0u) << command << ": " << answer;
  return answer;
}

bool ModuleKnows(CK_SESSION_HANDLE session) {
  CK_SESSION_INFO info;
  return NativeModule()->C_GetSessionInfo(session, &info) == CKR_OK;
}

bool ModuleForgets(CK_SESSION_HANDLE session) {
  for (int attempt = 0; attempt < 200 && ModuleKnows(session); ++attempt)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return !ModuleKnows(session);
}

TestClient::TestClient()
    : transport_([](p11wire::WireAddress* a) { return *a = HelperAddress(), true; },
                 std::mt19937_64(std::random_device{}())()),
      client_(&transport_) {}

uint32_t TestClient::OpenSession(CK_SLOT_ID slot) {
  auto reply = Call<p11wire::WireOp::kOpenSession>(
      {static_cast<uint32_t>(slot), CKF_SERIAL_SESSION | CKF_RW_SESSION});
  EXPECT_EQ(reply.rv, CKR_OK);
  return reply.rv == CKR_OK ? reply.handle : 0;
}

void HelperTest::SetUp() {
  std::string error;
  ASSERT_NE(HelperAddress(&error).port, 0) << error;
  Control("reset");
  // SoftHSM2 lists the scratch token first, then a slot with a token that is not initialised.
  CK_SLOT_ID slots[2];
  CK_ULONG count = 2;
  ASSERT_EQ(NativeModule()->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  slot_ = slots[0];
  ASSERT_EQ(client_.Initialize(), CKR_OK);
}

void HelperTest::TearDown() {
  Control("reset");
  client_.Finalize();
}

}  // namespace nivra::p11test
