// What the forwarding module decides on its own: a helper it cannot reach, a PIN it must not read,
// and a blocked slot-event wait that C_Finalize ends. These cases own the module (the provider is
// not started), so they may initialise and finalise it.
#include <chrono>
#include <future>

#include "modal_dialog_driver.h"
#include "token_fixture.h"
#include "tools/p11wire/wire_socket.h"

namespace nivra::p11test {
namespace {

class ForwardingModule : public TokenTest {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_NE(LoadLibraryW(L"nivrap11fwd.dll"), nullptr);
    f = Module();
    ASSERT_NE(f, nullptr);
  }
  CK_FUNCTION_LIST* f = nullptr;
};

// A helper that is not there (nothing listens on the port) is a device error, not a hang; with
// the helper, the provider's "no PIN" marker (all bits set, length 0) is passed on unread.
TEST_F(ForwardingModule, UnreachableHelperIsADeviceErrorAndNoPinIsPassedOnUnread) {
  char fixture[64] = {};
  GetEnvironmentVariableA("NIVRA_P11_HELPER", fixture, sizeof fixture);
  p11wire::WireListener closed;
  ASSERT_TRUE(closed.Listen({"127.0.0.1", 0}));
  const std::string nowhere = "127.0.0.1:" + std::to_string(closed.port());
  SetEnvironmentVariableA("NIVRA_P11_HELPER", nowhere.c_str());
  closed.Close();
  EXPECT_EQ(f->C_Initialize(nullptr), CKR_DEVICE_ERROR);
  SetEnvironmentVariableA("NIVRA_P11_HELPER", fixture);
  ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
  CK_SESSION_HANDLE s = 0;
  CK_SLOT_ID slots[8];
  CK_ULONG count = 8;
  ASSERT_EQ(f->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  ASSERT_EQ(f->C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
  const CK_RV login = f->C_Login(s, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(~uintptr_t{0}), 0);
  EXPECT_NE(login, CKR_OK);
  EXPECT_NE(login, CKR_DEVICE_ERROR);
  EXPECT_EQ(f->C_Finalize(nullptr), CKR_OK);
}

TEST_F(ForwardingModule, FinalizeEndsABlockedSlotEventWait) {
  Control("slot-events on");
  ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
  CK_FUNCTION_LIST* module = f;
  auto waiting = std::async(std::launch::async, [module] {
    CK_SLOT_ID slot = 0;
    return module->C_WaitForSlotEvent(0, &slot, nullptr);
  });
  // Only once the wait has reached the helper does finalising test that it ends it.
  ASSERT_TRUE(uitest::WaitUntil([this] { return Control("count C_WaitForSlotEvent") != "0"; }));
  ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
  ASSERT_EQ(waiting.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(waiting.get(), CKR_CRYPTOKI_NOT_INITIALIZED);
}

}  // namespace
}  // namespace nivra::p11test
