// What the forwarding module decides on its own, which the provider never asks of it: arguments it
// refuses before anything is sent, the entries it does not link, a helper it cannot reach, and a
// blocked slot-event wait that C_Finalize ends. These cases own the module (the provider is not
// started), so they may initialise and finalise it.
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

// A helper that is not there (nothing listens on the port) is a device error, not a hang.
TEST_F(ForwardingModule, UnreachableHelperIsADeviceError) {
  char fixture[64] = {};
  GetEnvironmentVariableA("NIVRA_P11_HELPER", fixture, sizeof fixture);
  p11wire::WireListener closed;
  ASSERT_TRUE(closed.Listen({"127.0.0.1", 0}));
  SetEnvironmentVariableA("NIVRA_P11_HELPER", ("127.0.0.1:" + std::to_string(closed.port())).c_str());
  closed.Close();
  EXPECT_EQ(f->C_Initialize(nullptr), CKR_DEVICE_ERROR);
  SetEnvironmentVariableA("NIVRA_P11_HELPER", fixture);
  ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(f->C_Finalize(nullptr), CKR_OK);
}

// One of each: initialisation arguments PKCS#11 forbids, a missing output, an entry that is not
// linked and one that is never parallel; none of them reaches the helper.
TEST_F(ForwardingModule, ArgumentsAndEntriesAreRefusedBeforeAnythingIsSent) {
  CK_C_INITIALIZE_ARGS reservedSet = {}, oneMutexFunction = {};
  int reserved = 0;
  reservedSet.pReserved = &reserved;
  oneMutexFunction.LockMutex = [](void*) -> CK_RV { return CKR_OK; };
  EXPECT_EQ(f->C_Initialize(&reservedSet), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f->C_Initialize(&oneMutexFunction), CKR_ARGUMENTS_BAD);
  ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
  CK_SESSION_HANDLE s = 0;
  CK_SLOT_ID slots[8];
  CK_ULONG count = 8;
  ASSERT_EQ(f->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  ASSERT_EQ(f->C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
  Control("reset-counts");
  CK_MECHANISM sha = {CKM_SHA_1, nullptr, 0};
  EXPECT_EQ(f->C_GetTokenInfo(slots[0], nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f->C_Decrypt(s, nullptr, 5, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f->C_DigestInit(s, &sha), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(f->C_CancelFunction(s), CKR_FUNCTION_NOT_PARALLEL);
  EXPECT_EQ(Control("counts"), "");
  // The provider's "no PIN" marker (all bits set, length 0) is passed on unread.
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
