#include "tests/p11fwd/helper_harness.h"

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <random>

namespace nivra::p11test {

HelperHarness& HelperHarness::Get() {
  static HelperHarness harness;
  return harness;
}

HelperHarness::HelperHarness() {
  if (!CreateToken() || !module_.Load(p11helper::kDefaultModulePath, &error_)) return;
  dispatcher_ = std::make_unique<p11helper::Dispatcher>(module_.functions());
  server_ = std::make_unique<p11helper::HelperServer>(dispatcher_.get());
  if (!server_->Listen({"127.0.0.1", 0}, &error_)) return;
  serving_ = std::thread([this] { server_->Run(); });
  ok_ = true;
}

HelperHarness::~HelperHarness() {
  if (server_) server_->Stop();
  if (serving_.joinable()) serving_.join();
  server_.reset();
  dispatcher_.reset();
  std::error_code ignored;
  if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
}

bool HelperHarness::CreateToken() {
  std::string pattern = (std::filesystem::temp_directory_path() / "nivra-softhsm-XXXXXX").string();
  directory_ = mkdtemp(pattern.data()) ? pattern : "";
  const std::string command = std::string("sh ") + NIVRA_SCRATCH_TOKENS + " " + directory_ + " nivra-test";
  if (directory_.empty() || std::system(command.c_str()) != 0) {
    error_ = "no scratch token in " + pattern;
    return false;
  }
  setenv("SOFTHSM2_CONF", (directory_ + "/softhsm2.conf").c_str(), 1);
  return true;
}

uint32_t HelperHarness::ControlStatus(const std::string& command, std::string* answer) {
  std::string ignored;
  return p11wire::SendControlCommand(address(), command, answer ? answer : &ignored);
}

std::string HelperHarness::Control(const std::string& command) {
  std::string answer;
  EXPECT_EQ(ControlStatus(command, &answer), 0u) << command << ": " << answer;
  return answer;
}

bool ModuleKnows(CK_SESSION_HANDLE session) {
  CK_SESSION_INFO info;
  return HelperHarness::Get().module()->C_GetSessionInfo(session, &info) == CKR_OK;
}

bool ModuleForgets(CK_SESSION_HANDLE session) {
  for (int attempt = 0; attempt < 200 && ModuleKnows(session); ++attempt)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return !ModuleKnows(session);
}

TestClient::TestClient()
    : transport_([](p11wire::WireAddress* a) { return *a = HelperHarness::Get().address(), true; },
                 std::mt19937_64(std::random_device{}())()),
      client_(&transport_) {}

uint32_t TestClient::OpenSession(CK_SLOT_ID slot) {
  auto reply = Call<p11wire::WireOp::kOpenSession>(
      {static_cast<uint32_t>(slot), CKF_SERIAL_SESSION | CKF_RW_SESSION});
  EXPECT_EQ(reply.rv, CKR_OK);
  return reply.rv == CKR_OK ? reply.handle : 0;
}

uint32_t TestClient::Login(uint32_t session, const std::string& pin) {
  return Call<p11wire::WireOp::kLogin>({session, CKU_USER, {true, TextBytes(pin)}}).rv;
}

void HelperTest::SetUp() {
  ASSERT_TRUE(harness().ok()) << harness().error();
  harness().Control("reset");
  // SoftHSM2 lists the scratch token first, then a slot with a token that is not initialised.
  CK_SLOT_ID slots[2];
  CK_ULONG count = 2;
  CK_TOKEN_INFO token;
  ASSERT_EQ(harness().module()->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  slot_ = slots[0];
  ASSERT_EQ(harness().module()->C_GetTokenInfo(slot_, &token), CKR_OK);
  ASSERT_TRUE(token.flags & CKF_TOKEN_INITIALIZED);
  ASSERT_EQ(client_.Initialize(), CKR_OK);
}

void HelperTest::TearDown() {
  harness().Control("reset");
  client_.Finalize();
}

}  // namespace nivra::p11test
