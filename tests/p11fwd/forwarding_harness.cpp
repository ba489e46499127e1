#include "tests/p11fwd/forwarding_harness.h"

#include <windows.h>

#include <fstream>

namespace nivra::p11test {

p11wire::WireAddress FixtureHelper() {
  std::ifstream in(std::string(NIVRA_P11FWD_FIXTURE) + "/port");
  unsigned port = 0;
  in >> port;
  EXPECT_NE(port, 0u) << "no helper port in " << NIVRA_P11FWD_FIXTURE;
  p11wire::WireAddress address{"127.0.0.1", static_cast<uint16_t>(port)};
  SetEnvironmentVariableA("NIVRA_P11_HELPER", p11wire::FormatWireAddress(address).c_str());
  return address;
}

CK_FUNCTION_LIST* ForwardingModule() {
  static CK_FUNCTION_LIST* list = [] {
    FixtureHelper();
    HMODULE module = LoadLibraryW(L"nivrap11fwd.dll");
    if (!module) return static_cast<CK_FUNCTION_LIST*>(nullptr);
    auto get = reinterpret_cast<CK_C_GetFunctionList>(GetProcAddress(module, "C_GetFunctionList"));
    CK_FUNCTION_LIST* functions = nullptr;
    if (!get || get(&functions) != CKR_OK) return static_cast<CK_FUNCTION_LIST*>(nullptr);
    return functions;
  }();
  EXPECT_NE(list, nullptr) << "nivrap11fwd.dll cannot be loaded";
  return list;
}

std::string HelperControl(const std::string& command) {
  std::string answer;
  uint32_t rv = p11wire::SendControlCommand(FixtureHelper(), command, &answer);
  EXPECT_EQ(rv, 0u) << command << ": " << answer;
  return answer;
}

void ForwardedTest::SetUp() {
  f_ = ForwardingModule();
  ASSERT_NE(f_, nullptr);
  HelperControl("reset");
  ASSERT_EQ(f_->C_Initialize(nullptr), CKR_OK);
  CK_SLOT_ID slots[16];
  CK_ULONG count = 16;
  ASSERT_EQ(f_->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_TOKEN_INFO info;
    if (f_->C_GetTokenInfo(slots[i], &info) == CKR_OK && Trimmed(info.label, 32) == kFixtureTokenLabel)
      slot_ = slots[i];
  }
  ASSERT_NE(slot_, 0u) << "the fixture token is not listed";
}

void ForwardedTest::TearDown() {
  HelperControl("reset");
  if (f_) f_->C_Finalize(nullptr);
}

CK_SESSION_HANDLE ForwardedTest::OpenSession() {
  CK_SESSION_HANDLE session = 0;
  EXPECT_EQ(f_->C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
            CKR_OK);
  return session;
}

}  // namespace nivra::p11test
