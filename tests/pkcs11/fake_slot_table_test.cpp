// The slot table: its limits, the names it records, how its count follows the module, and how a
// slot is looked up by name.
#include <windows.h>

#include <string>

#include "fake_backend_fixture.h"
#include "pkcs11/slot_device.h"
#include "pkcs11/slot_table.h"
#include "provider/entries.h"

namespace nivra::p11test {
namespace {

using pkcs11::ModuleSlots;

constexpr DWORD kNteBadKeyset = 0x80090016;

TEST_F(FakeBackendTest, ModuleWith300SlotsGivesATableOf256InModuleOrder) {
  fake.SetSlots(300, 0);
  ASSERT_EQ(StartBackend(), 0u);
  ASSERT_EQ(ModuleSlots().count, 256u);
  EXPECT_EQ(ModuleSlots().records[0].slotId, kFakeFirstSlotId);
  EXPECT_EQ(ModuleSlots().records[255].slotId, kFakeFirstSlotId + 255);
  EXPECT_STREQ(ModuleSlots().records[255].name, "Fake slot 255");
  EXPECT_EQ(fake.CallCount("C_GetSlotInfo"), 256u) << "slots beyond the table are not read";
}

TEST_F(FakeBackendTest, BlankDescriptionsGiveEmptyNames) {
  fake.SetSlots(3, 1);
  fake.SetTokenPresent(2, 1);
  ASSERT_EQ(StartBackend(), 0u);
  ASSERT_EQ(ModuleSlots().count, 3u);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_STREQ(ModuleSlots().records[i].name, "");
  pkcs11::P11Slot* found = pkcs11::FindSlotByName("");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found, &ModuleSlots().records[0]) << "the first record with that name";
}

TEST_F(FakeBackendTest, NameLongerThan64CharactersIsComparedByItsLast64) {
  const std::string full(64, 'n');
  fake.SetSlotDescription(1, full.c_str());
  ASSERT_EQ(StartBackend(), 0u);
  EXPECT_EQ(pkcs11::FindSlotByName(("prefix" + full).c_str()), &ModuleSlots().records[1]);
  EXPECT_EQ(pkcs11::FindSlotByName(full.c_str()), &ModuleSlots().records[1]);
  EXPECT_EQ(pkcs11::FindSlotByName(full.substr(1).c_str()), nullptr) << "names match exactly";
  EXPECT_EQ(pkcs11::FindSlotByName("fake slot 0"), nullptr) << "names are case-sensitive";
}

TEST_F(FakeBackendTest, CountFollowsTheModuleAndKeptRecordsAreNotReadAgain) {
  fake.SetSlots(5, 0);
  ASSERT_EQ(StartBackend(), 0u);
  ASSERT_EQ(ModuleSlots().count, 5u);
  fake.SetSlots(3, 0);
  {
    platform::NamedMutexLock lock(pkcs11::SlotTableMutex());
    ASSERT_EQ(pkcs11::RefreshSlotList(), 0u);
  }
  EXPECT_EQ(ModuleSlots().count, 3u);
  EXPECT_EQ(ModuleSlots().records[4].slotId, kFakeFirstSlotId + 4) << "records beyond stay";

  // Records below the count are not re-read: a changed description is not seen...
  fake.SetSlots(5, 0);
  fake.SetSlotDescription(0, "renamed");
  const uint32_t infoCalls = fake.CallCount("C_GetSlotInfo");
  {
    platform::NamedMutexLock lock(pkcs11::SlotTableMutex());
    ASSERT_EQ(pkcs11::RefreshSlotList(), 0u);
  }
  EXPECT_EQ(ModuleSlots().count, 5u);
  EXPECT_STREQ(ModuleSlots().records[0].name, "Fake slot 0");
  // ...while the records from the old count up are read afresh.
  EXPECT_EQ(fake.CallCount("C_GetSlotInfo") - infoCalls, 2u);
}

TEST_F(FakeBackendTest, SlotWithoutTokenIsRefreshedThreeTimesThenBadKeyset) {
  ASSERT_EQ(StartBackend(), 0u);
  const uint32_t before = fake.CallCount("C_GetSlotInfo");
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 1\\c1", 0), kNteBadKeyset);
  // The lookup refreshes the list (no new records), then three refreshes of the slot itself.
  EXPECT_EQ(fake.CallCount("C_GetSlotInfo") - before, 3u);
}

TEST_F(FakeBackendTest, ContextsCountAsUsersOfTheirSlot) {
  ASSERT_EQ(StartBackend(), 0u);
  HCRYPTPROV first = 0;
  HCRYPTPROV second = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT, &first), 0u);
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT, &second), 0u);
  EXPECT_EQ(ModuleSlots().records[0].userCount, 2);
  auto* device = dynamic_cast<pkcs11::SlotDevice*>(Context(first).device.get());
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->slot, &ModuleSlots().records[0]);
  EXPECT_EQ(device->SlotIdentifier(), kFakeFirstSlotId);
  opened.clear();
  ASSERT_TRUE(NivraCPReleaseContext(first, 0));
  EXPECT_EQ(ModuleSlots().records[0].userCount, 1);
  ASSERT_TRUE(NivraCPReleaseContext(second, 0));
  EXPECT_EQ(ModuleSlots().records[0].userCount, 0);
}

TEST_F(FakeBackendTest, SlotIdentifierParameterAnswersTheModulesSlotId) {
  ASSERT_EQ(StartBackend(), 0u);
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT, &prov), 0u);
  DWORD id = 0;
  DWORD length = sizeof(id);
  ASSERT_TRUE(NivraCPGetProvParam(prov, 0x80000001, reinterpret_cast<BYTE*>(&id), &length, 0));
  EXPECT_EQ(id, kFakeFirstSlotId);
}

TEST_F(FakeBackendTest, CardIdIsTheTokenSerialNumber) {
  ASSERT_EQ(StartBackend(), 0u);
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT, &prov), 0u);
  uint8_t id[16] = {};
  DWORD length = sizeof(id);
  ASSERT_TRUE(NivraCPGetProvParam(prov, 22207, id, &length, 0)) << std::hex << GetLastError();
  EXPECT_EQ(std::string(reinterpret_cast<char*>(id), 16), "FAKE000000000000");
}

}  // namespace
}  // namespace nivra::p11test
