// Finding, loading and initialising the configured module, once per process.
#include <windows.h>

#include "fake_backend_fixture.h"
#include "pkcs11/backend_state.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/slot_table.h"

namespace nivra::p11test {
namespace {

using pkcs11::Backend;
using pkcs11::ModuleSlots;
using pkcs11::P11;

constexpr DWORD kNteFail = 0x80090020;
constexpr DWORD kNteProviderDllFail = 0x8009001D;
constexpr DWORD kNteBadKeyset = 0x80090016;

TEST_F(FakeBackendTest, ConfiguredModuleIsLoadedInitialisedAndItsSlotsListed) {
  EXPECT_EQ(StartBackend(), 0u);
  EXPECT_EQ(P11(), fake.functions) << "the function list of the configured module";
  EXPECT_EQ(fake.Initialised(), 1);
  EXPECT_TRUE(Backend().initialised);
  ASSERT_EQ(ModuleSlots().count, 2u);
  EXPECT_EQ(ModuleSlots().records[0].slotId, kFakeFirstSlotId);
  EXPECT_STREQ(ModuleSlots().records[0].name, "Fake slot 0");
  EXPECT_EQ(ModuleSlots().records[0].tokenPresent, 1u);
  EXPECT_NE(ModuleSlots().records[0].session, 0u) << "a present token gets its session";
  EXPECT_EQ(ModuleSlots().records[1].tokenPresent, 0u);
  EXPECT_EQ(ModuleSlots().records[1].session, 0u);
}

TEST_F(FakeBackendTest, SecondStartUpTouchesNothing) {
  ASSERT_EQ(StartBackend(), 0u);
  const uint32_t initialize = fake.CallCount("C_Initialize");
  const uint32_t slotList = fake.CallCount("C_GetSlotList");
  const uint32_t functionList = fake.CallCount("C_GetFunctionList");
  EXPECT_EQ(StartBackend(), 0u);
  EXPECT_EQ(fake.CallCount("C_Initialize"), initialize);
  EXPECT_EQ(fake.CallCount("C_GetSlotList"), slotList);
  EXPECT_EQ(fake.CallCount("C_GetFunctionList"), functionList);
}

TEST_F(FakeBackendTest, AlreadyInitialisedModuleIsRefusedWithNteFail) {
  fake.SetInitializeResult(CKR_CRYPTOKI_ALREADY_INITIALIZED, 0);
  EXPECT_EQ(StartBackend(), kNteFail);
  EXPECT_FALSE(Backend().initialised);
  EXPECT_EQ(fake.CallCount("C_GetSlotList"), 0u) << "nothing else is asked";
  EXPECT_EQ(fake.CallCount("C_Finalize"), 0u);
}

TEST_F(FakeBackendTest, OtherInitializeFailureLetsTheStartUpGoOn) {
  fake.SetInitializeResult(CKR_GENERAL_ERROR, 1);
  EXPECT_EQ(StartBackend(), 0u);
  EXPECT_TRUE(Backend().initialised);
  EXPECT_EQ(ModuleSlots().count, 2u);
}

TEST_F(FakeBackendTest, FailedFirstRefreshFinalisesAndALaterStartUpTriesAgain) {
  // C_Initialize reports success without initialising: the slot list then fails.
  fake.SetInitializeResult(CKR_OK, 0);
  EXPECT_EQ(StartBackend(), kNteFail);
  EXPECT_FALSE(Backend().initialised);
  EXPECT_TRUE(Backend().monitorStopped) << "no monitor was started";
  EXPECT_EQ(fake.CallCount("C_Finalize"), 1u);

  fake.SetInitializeResult(CKR_OK, 1);
  EXPECT_EQ(StartBackend(), 0u);
  EXPECT_TRUE(Backend().initialised);
  EXPECT_EQ(fake.CallCount("C_GetFunctionList"), 1u) << "the module stays loaded: no second load";
}

TEST_F(FakeBackendTest, FunctionListFailureIsProviderDllFail) {
  fake.SetFunctionListResult(CKR_GENERAL_ERROR);
  EXPECT_EQ(StartBackend(), kNteProviderDllFail);
  EXPECT_EQ(P11(), nullptr);
  EXPECT_EQ(fake.CallCount("C_Initialize"), 0u);
}

TEST_F(FakeBackendTest, UnavailableModuleMakesTokenSlotStringsBadKeyset) {
  fake.SetFunctionListResult(CKR_GENERAL_ERROR);
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", 0), kNteBadKeyset);
  EXPECT_EQ(Acquire("\\\\.\\", 0), kNteBadKeyset) << "the kind is checked before the device name";
  EXPECT_FALSE(Backend().moduleAvailable);
}

class NoModuleConfigured : public FakeBackendTest {
 protected:
  void SetUp() override {
    FakeBackendTest::SetUp();
    if (HasFatalFailure()) return;
    hive.RemoveModulePath();
  }
};

TEST_F(NoModuleConfigured, StartUpFailsWithNteFailAndTokenSlotsAreBadKeyset) {
  EXPECT_EQ(StartBackend(), kNteFail);
  EXPECT_EQ(P11(), nullptr);
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", 0), kNteBadKeyset);
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT), kNteBadKeyset);
}

class UnloadableModule : public FakeBackendTest {
 protected:
  std::wstring ModulePath() const override { return ProgramDirectory() + L"no-such-module.dll"; }
};

TEST_F(UnloadableModule, StartUpFailsWithProviderDllFailAndTokenSlotsAreBadKeyset) {
  EXPECT_EQ(StartBackend(), kNteProviderDllFail);
  EXPECT_EQ(P11(), nullptr);
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", 0), kNteBadKeyset);
}

class ModuleWithoutFunctionList : public FakeBackendTest {
 protected:
  std::wstring ModulePath() const override { return L"kernel32.dll"; }
};

TEST_F(ModuleWithoutFunctionList, LibraryWithoutTheExportIsProviderDllFail) {
  EXPECT_EQ(StartBackend(), kNteProviderDllFail);
  EXPECT_EQ(P11(), nullptr);
  EXPECT_FALSE(Backend().initialised);
}

}  // namespace
}  // namespace nivra::p11test
