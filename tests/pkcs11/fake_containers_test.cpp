// Containers on the token: the container object, opening, creating, deleting, enumerating, and
// finding the slot that holds a container.
#include <windows.h>

#include <cstring>
#include <string>

#include "fake_backend_fixture.h"
#include "pkcs11/backend_state.h"
#include "pkcs11/slot_device.h"
#include "pkcs11/token_containers.h"
#include "provider/entries.h"

namespace nivra::p11test {
namespace {

constexpr DWORD kNteBadKeyset = 0x80090016;
constexpr DWORD kNteExists = 0x8009000F;
constexpr DWORD kNteBadFlags = 0x80090009;
constexpr DWORD kNoMoreItems = 259;
constexpr CK_ULONG kContainerClass = 0x80000001;

const CK_ULONG kVendorClass = kContainerClass;
const CK_BBOOL kYes = CK_TRUE;

class Containers : public FakeBackendTest {
 protected:
  void SetUp() override {
    FakeBackendTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(StartBackend(), 0u);
  }
  std::vector<CK_OBJECT_HANDLE> ContainersLabelled(uint32_t slot, const char* label) {
    return FindOnToken(slot, {Attr(CKA_CLASS, &kVendorClass, 4), Text(CKA_LABEL, label)});
  }
  void PutContainer(uint32_t slot, const char* label) {
    CreateOnToken(slot, {Attr(CKA_CLASS, &kVendorClass, 4), Text(CKA_LABEL, label),
                         Attr(CKA_TOKEN, &kYes, 1)});
  }
  std::string ContainerParam(HCRYPTPROV prov) {
    char name[260] = {};
    DWORD length = sizeof(name);
    EXPECT_TRUE(NivraCPGetProvParam(prov, PP_CONTAINER, reinterpret_cast<BYTE*>(name), &length, 0));
    return name;
  }
  // PP_ENUMCONTAINERS: the name, or "" with *error set.
  std::string NextContainer(HCRYPTPROV prov, DWORD flags, DWORD* error) {
    char name[256] = {};
    DWORD length = sizeof(name);
    *error = NivraCPGetProvParam(prov, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length,
                                 flags)
                 ? 0
                 : GetLastError();
    return name;
  }
};

TEST_F(Containers, NewKeysetCreatesTheContainerObjectWithExactlyItsAttributes) {
  LoginOnSlot(kSlot0);
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", CRYPT_NEWKEYSET), 0u);
  const auto found = ContainersLabelled(0, "c1");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(AttributeOf(0, found[0], CKA_CLASS), Ulong32(kContainerClass));
  EXPECT_EQ(AttributeOf(0, found[0], CKA_LABEL), TextBytes("c1")) << "no NUL";
  EXPECT_EQ(AttributeOf(0, found[0], CKA_TOKEN), Bytes{1});
  EXPECT_EQ(AttributeOf(0, found[0], CKA_MODIFIABLE), Bytes{1});
  EXPECT_EQ(AttributeOf(0, found[0], CKA_VALUE), Bytes{}) << "no key-ID record is written";
  EXPECT_EQ(AttributeOf(0, found[0], CKA_PRIVATE), (Bytes{0xDE, 0xAD})) << "not given";
}

TEST_F(Containers, CreatingAnExistingContainerIsNteExists) {
  LoginOnSlot(kSlot0);
  PutContainer(0, "c1");
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", CRYPT_NEWKEYSET), kNteExists);
  EXPECT_EQ(ContainersLabelled(0, "c1").size(), 1u);
}

TEST_F(Containers, CreatingWithAnEmptyNameCreatesDefaultContainer) {
  LoginOnSlot(kSlot0);
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\", CRYPT_NEWKEYSET, &prov), 0u);
  EXPECT_EQ(ContainersLabelled(0, "DefaultContainer").size(), 1u);
  EXPECT_EQ(ContainerParam(prov), "DefaultContainer");
}

TEST_F(Containers, OpeningFindsTheContainerAndAMissingOneIsBadKeyset) {
  PutContainer(0, "c1");
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", 0, &prov), 0u);
  auto* device = dynamic_cast<pkcs11::SlotDevice*>(Context(prov).device.get());
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->container, ContainersLabelled(0, "c1").at(0));
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\c2", 0), kNteBadKeyset);
}

TEST_F(Containers, EmptyNameBindsTheFirstContainerAndLearnsItsName) {
  PutContainer(0, "A");
  PutContainer(0, "B");
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", 0, &prov), 0u);
  EXPECT_EQ(ContainerParam(prov), "A");
}

TEST_F(Containers, TwoContainersWithOneLabelCountAsNotFound) {
  PutContainer(0, "twin");
  PutContainer(0, "twin");
  EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\twin", 0), kNteBadKeyset);
}

TEST_F(Containers, DeleteKeysetRemovesRsaKeysAndCertificatesButNotOtherObjects) {
  LoginOnSlot(kSlot0);
  PutContainer(0, "c1");
  const CK_ULONG rsa = CKK_RSA, ec = CKK_EC, publicClass = CKO_PUBLIC_KEY,
                 privateClass = CKO_PRIVATE_KEY, certClass = CKO_CERTIFICATE, dataClass = CKO_DATA,
                 x509 = CKC_X_509;
  for (const char* id : {"c1_cspS", "c1_cspX"}) {
    CreateOnToken(0, {Attr(CKA_CLASS, &publicClass, 4), Attr(CKA_KEY_TYPE, &rsa, 4), Text(CKA_ID, id)});
    CreateOnToken(0, {Attr(CKA_CLASS, &privateClass, 4), Attr(CKA_KEY_TYPE, &rsa, 4),
                      Text(CKA_ID, id), Attr(CKA_PRIVATE, &kYes, 1)});
    CreateOnToken(0, {Attr(CKA_CLASS, &certClass, 4), Attr(CKA_CERTIFICATE_TYPE, &x509, 4),
                      Text(CKA_ID, id)});
    CreateOnToken(0, {Attr(CKA_CLASS, &dataClass, 4), Text(CKA_ID, id)});
    CreateOnToken(0, {Attr(CKA_CLASS, &privateClass, 4), Attr(CKA_KEY_TYPE, &ec, 4),
                      Text(CKA_ID, id), Attr(CKA_PRIVATE, &kYes, 1)});
  }
  HCRYPTPROV prov = 0xBAD;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", CRYPT_DELETEKEYSET, &prov), 0u);
  EXPECT_EQ(prov, 0u) << "deleting hands out no context";
  EXPECT_TRUE(ContainersLabelled(0, "c1").empty());
  for (const char* id : {"c1_cspS", "c1_cspX"}) {
    const auto left = FindOnToken(0, {Text(CKA_ID, id)});
    ASSERT_EQ(left.size(), 2u) << id;
    EXPECT_EQ(AttributeOf(0, left[0], CKA_CLASS), Ulong32(CKO_DATA));
    EXPECT_EQ(AttributeOf(0, left[1], CKA_KEY_TYPE), Ulong32(CKK_EC));
  }
}

TEST_F(Containers, DeletingWithAnEmptyNameDeletesDefaultContainer) {
  LoginOnSlot(kSlot0);
  PutContainer(0, "first");
  PutContainer(0, "DefaultContainer");
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\", CRYPT_DELETEKEYSET), 0u);
  EXPECT_TRUE(ContainersLabelled(0, "DefaultContainer").empty());
  EXPECT_EQ(ContainersLabelled(0, "first").size(), 1u);
}

TEST_F(Containers, EnumerationListsEveryContainerThenNoMoreItems) {
  PutContainer(0, "one");
  PutContainer(0, "two");
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\one", 0, &prov), 0u);
  DWORD error = 0;
  EXPECT_EQ(NextContainer(prov, CRYPT_FIRST, &error), "one");
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(NextContainer(prov, 0, &error), "two");
  EXPECT_EQ(error, 0u);
  NextContainer(prov, 0, &error);
  EXPECT_EQ(error, kNoMoreItems);
  NextContainer(prov, 0, &error);
  EXPECT_EQ(error, kNteBadFlags) << "the enumeration has ended";
  EXPECT_EQ(NextContainer(prov, CRYPT_FIRST, &error), "one") << "and can start again";
}

TEST_F(Containers, EnumeratingATokenWithoutContainersEndsAtOnce) {
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT, &prov), 0u);
  DWORD error = 0;
  NextContainer(prov, CRYPT_FIRST, &error);
  EXPECT_EQ(error, kNoMoreItems);
}

TEST_F(Containers, EnumerationWithoutAStartIsBadFlags) {
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT, &prov), 0u);
  DWORD error = 0;
  NextContainer(prov, 0, &error);
  EXPECT_EQ(error, kNteBadFlags);
}

class ContainerSearch : public Containers {
 protected:
  void SetUp() override {
    Containers::SetUp();
    if (HasFatalFailure()) return;
    fake.SetTokenPresent(1, 1);
    fake.RaiseEvent(kFakeFirstSlotId + 1);
    for (int i = 0; i < 500 && pkcs11::ModuleSlots().records[1].session == 0; ++i) Sleep(10);
    ASSERT_NE(pkcs11::ModuleSlots().records[1].session, 0u);
  }
};

TEST_F(ContainerSearch, SilentContextWithoutASlotBindsTheSlotThatHoldsTheContainer) {
  PutContainer(1, "only-here");
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("only-here", CRYPT_SILENT, &prov), 0u);
  EXPECT_EQ(Context(prov).device->SlotIdentifier(), kFakeFirstSlotId + 1);
  EXPECT_EQ(Acquire("nowhere", CRYPT_SILENT), kNteBadKeyset);
}

TEST_F(ContainerSearch, LastSlotWhoseTokenWasRemovedIsForgottenAndAllSlotsSearched) {
  PutContainer(1, "moving");
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0", CRYPT_VERIFYCONTEXT), 0u);
  EXPECT_STREQ(pkcs11::Backend().lastSlotName, "Fake slot 0");
  fake.SetTokenPresent(0, 0);
  fake.RaiseEvent(kFakeFirstSlotId);
  for (int i = 0; i < 500 && pkcs11::ModuleSlots().records[0].tokenPresent; ++i) Sleep(10);
  // With one token left the frame would take that slot itself; ask the back end directly.
  auto* ctx = new provider::ProviderContext();
  std::strcpy(ctx->containerName, "moving");
  ASSERT_EQ(pkcs11::ChooseSlotForContainer(*ctx), 0u);
  EXPECT_EQ(ctx->device->SlotIdentifier(), kFakeFirstSlotId + 1);
  EXPECT_NE(dynamic_cast<pkcs11::SlotDevice&>(*ctx->device).container, 0u);
  EXPECT_STREQ(pkcs11::Backend().lastSlotName, "");
  delete ctx;
}

TEST_F(ContainerSearch, LastSlotIsTriedFirstAndNotTwice) {
  PutContainer(0, "both");
  PutContainer(1, "both");
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 1", CRYPT_VERIFYCONTEXT), 0u);
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("both", CRYPT_SILENT, &prov), 0u);
  EXPECT_EQ(Context(prov).device->SlotIdentifier(), kFakeFirstSlotId + 1)
      << "the slot of the last acquisition by name wins over table order";
}

}  // namespace
}  // namespace nivra::p11test
