// nivrap11fwd.dll as a Windows PKCS#11 module: its function list and exports, initialisation
// arguments, and arguments refused before anything is sent.
#include <windows.h>

#include <cstddef>
#include <cstring>

#include "tests/p11fwd/forwarding_harness.h"

namespace nivra::p11test {
namespace {

TEST(ForwardingAbi, FunctionListHasEveryEntryAndMatchesTheExports) {
  CK_FUNCTION_LIST* f = ForwardingModule();
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->version.major, 2);
  EXPECT_EQ(f->version.minor, 40);
  const size_t entries = (sizeof(CK_FUNCTION_LIST) - sizeof(CK_VERSION)) / sizeof(void*);
  EXPECT_EQ(entries, 68u);
  for (size_t i = 0; i < entries; ++i) {
    void* entry;
    std::memcpy(&entry, reinterpret_cast<const uint8_t*>(f) + sizeof(CK_VERSION) + i * sizeof(void*),
                sizeof entry);
    EXPECT_NE(entry, nullptr) << "entry " << i;
  }
  HMODULE module = GetModuleHandleW(L"nivrap11fwd.dll");
  ASSERT_NE(module, nullptr);
  auto exported = [module](const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(module, name));
  };
  EXPECT_EQ(exported("C_Sign"), reinterpret_cast<void*>(f->C_Sign));
  EXPECT_EQ(exported("C_WaitForSlotEvent"), reinterpret_cast<void*>(f->C_WaitForSlotEvent));
  auto get = reinterpret_cast<CK_C_GetFunctionList>(exported("C_GetFunctionList"));
  ASSERT_NE(get, nullptr);
  EXPECT_EQ(get(nullptr), CKR_ARGUMENTS_BAD);
}

TEST(ForwardingAbi, InitializeArgumentsAreCheckedAndUnlinkedEntriesRefused) {
  CK_FUNCTION_LIST* f = ForwardingModule();
  ASSERT_NE(f, nullptr);
  CK_C_INITIALIZE_ARGS args = {};
  int reserved = 0;
  args.pReserved = &reserved;
  EXPECT_EQ(f->C_Initialize(&args), CKR_ARGUMENTS_BAD);
  args = {};
  args.LockMutex = [](void*) -> CK_RV { return CKR_OK; };  // one of four
  EXPECT_EQ(f->C_Initialize(&args), CKR_ARGUMENTS_BAD);
  args = {};
  args.flags = CKF_OS_LOCKING_OK;
  ASSERT_EQ(f->C_Initialize(&args), CKR_OK);
  EXPECT_EQ(f->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(f->C_Finalize(&reserved), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(f->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);

  CK_MECHANISM sha = {CKM_SHA_1, nullptr, 0};
  EXPECT_EQ(f->C_DigestInit(1, &sha), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(f->C_VerifyInit(1, &sha, 1), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(f->C_CopyObject(1, 1, nullptr, 0, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(f->C_GetFunctionStatus(1), CKR_FUNCTION_NOT_PARALLEL);
  EXPECT_EQ(f->C_CancelFunction(1), CKR_FUNCTION_NOT_PARALLEL);
}

using ForwardingArguments = ForwardedTest;

TEST_F(ForwardingArguments, NullOutputsAreRefusedWithoutAHelperCall) {
  HelperControl("reset-counts");
  CK_SESSION_HANDLE session = OpenSession();
  EXPECT_EQ(f_->C_GetSlotList(CK_FALSE, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_GetSlotInfo(slot_, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_GetTokenInfo(slot_, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_FindObjects(session, nullptr, 1, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_GetAttributeValue(session, 1, nullptr, 2), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_Sign(session, nullptr, 0, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_Decrypt(session, nullptr, 5, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(f_->C_GenerateRandom(session, nullptr, 8), CKR_ARGUMENTS_BAD);
  CK_SLOT_ID slot;
  int reserved = 0;
  EXPECT_EQ(f_->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, &reserved), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(HelperControl("counts"), "C_OpenSession=1\n");
  f_->C_CloseSession(session);
}

TEST_F(ForwardingArguments, NoPinMarkerIsNeverRead) {
  // The provider's "no PIN" marker: a pointer with all bits set and a length of 0. The module
  // must pass it on without touching it; SoftHSM2 then refuses an empty PIN.
  CK_UTF8CHAR_PTR marker = reinterpret_cast<CK_UTF8CHAR_PTR>(~static_cast<uintptr_t>(0));
  CK_SESSION_HANDLE session = OpenSession();
  CK_RV rv = f_->C_Login(session, CKU_USER, marker, 0);
  EXPECT_NE(rv, CKR_OK);
  EXPECT_NE(rv, CKR_DEVICE_ERROR);
  f_->C_CloseSession(session);
}

}  // namespace
}  // namespace nivra::p11test
