#include "tests/p11fwd/helper_harness.h"

#include <cstring>
#include <random>

#include "tools/p11wire/control_client.h"

namespace nivra::p11test {

HelperHarness& HelperHarness::Get() {
  static HelperHarness harness;
  return harness;
}

HelperHarness::HelperHarness() {
  if (!token_.Create(&error_) || !module_.Load(p11helper::kDefaultModulePath, &error_)) return;
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
}

std::string HelperHarness::Control(const std::string& command) {
  std::string answer;
  uint32_t rv = p11wire::SendControlCommand(address(), command, &answer);
  EXPECT_EQ(rv, 0u) << command << ": " << answer;
  return answer;
}

CK_SLOT_ID HelperHarness::TokenSlot() {
  CK_ULONG n = 16;
  CK_SLOT_ID ids[16];
  if (module()->C_GetSlotList(CK_TRUE, ids, &n) != CKR_OK) return 0;
  for (CK_ULONG i = 0; i < n; ++i) {
    CK_TOKEN_INFO info;
    if (module()->C_GetTokenInfo(ids[i], &info) == CKR_OK &&
        std::memcmp(info.label, kTokenLabel, std::strlen(kTokenLabel)) == 0)
      return ids[i];
  }
  return 0;
}

namespace {

uint64_t RandomClientId() {
  static std::mt19937_64 random(std::random_device{}());
  return random();
}

}  // namespace

TestClient::TestClient()
    : transport_([](p11wire::WireAddress* a) {
        *a = HelperHarness::Get().address();
        return true;
      },
                 RandomClientId()),
      client_(&transport_) {}

uint32_t TestClient::OpenSession(CK_SLOT_ID slot) {
  auto reply = Call<p11wire::WireOp::kOpenSession>(
      {static_cast<uint32_t>(slot), CKF_SERIAL_SESSION | CKF_RW_SESSION});
  EXPECT_EQ(reply.rv, CKR_OK);
  return reply.rv == CKR_OK ? reply.handle : 0;
}

uint32_t TestClient::Login(uint32_t session, const std::string& pin) {
  p11wire::PinRequest request;
  request.session = session;
  request.userType = CKU_USER;
  request.pin.present = true;
  request.pin.bytes.assign(pin.begin(), pin.end());
  return Call<p11wire::WireOp::kLogin>(request).rv;
}

void HelperTest::SetUp() {
  ASSERT_TRUE(harness().ok()) << harness().error();
  harness().Control("reset");
  slot_ = harness().TokenSlot();
  ASSERT_NE(slot_, 0u);
}

void ClientTest::SetUp() {
  HelperTest::SetUp();
  ASSERT_EQ(client_.Initialize(), CKR_OK);
}

void ClientTest::TearDown() {
  harness().Control("reset");
  client_.Finalize();
}

void SessionTest::SetUp() {
  ClientTest::SetUp();
  session_ = client_.OpenSession(slot_);
  ASSERT_EQ(client_.Login(session_, kUserPin), CKR_OK);
}

void SessionTest::TearDown() {
  // The login belongs to the token, not the session: leave it as the next test expects it.
  client_.Call<p11wire::WireOp::kLogout>({session_});
  ClientTest::TearDown();
}

}  // namespace nivra::p11test
