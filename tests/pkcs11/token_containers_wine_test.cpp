// Containers on a SoftHSM2 token through the provider's exports, checked from the native side.
#include <algorithm>

#include "token_fixture.h"

namespace nivra::p11test {
namespace {

constexpr DWORD kNteBadKeyset = 0x80090016;
constexpr DWORD kNoMoreItems = 259;
constexpr DWORD kNteNoMemory = 0x8009000E;
constexpr DWORD kNteExists = 0x8009000F;
constexpr DWORD kNteBadFlags = 0x80090009;
// How a container is stored on plain SoftHSM2, which refuses vendor classes: the provider's data
// form, a public data object marked by its application; and how the helper stores the vendor form
// while it emulates a token that holds vendor classes.
const NativeObject kDataForm = {{"class", "0"}, {"application", Hex(TextBytes("NivraCSP container"))},
                                {"token", "1"}, {"private", "0"}};
const NativeObject kVendorForm = {{"application", Hex(TextBytes("nivra-vendor-class-80000001"))},
                                  {"private", "0"}};

class TokenContainers : public TokenTest {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    if (HasFatalFailure()) return;
    StartProvider();
  }
  // The token's objects labelled `name` in the given form, natively.
  std::vector<NativeObject> StoredContainers(const std::string& name,
                                             const NativeObject& form = kDataForm) {
    std::vector<NativeObject> found;
    for (const NativeObject& object : NativeObjectsWith("label", Hex(TextBytes(name)))) {
      if (std::all_of(form.begin(), form.end(), [&](const auto& attribute) {
            return object.count(attribute.first) && object.at(attribute.first) == attribute.second;
          })) {
        found.push_back(object);
      }
    }
    return found;
  }
  // The enumeration's next name (flags CRYPT_FIRST or 0) in *name; the last error, 0 on success.
  DWORD NextContainer(HCRYPTPROV prov, DWORD flags, std::string* name = nullptr) {
    char buffer[256] = {};
    DWORD length = sizeof(buffer);
    if (!entries.GetProvParam(prov, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(buffer), &length,
                              flags)) {
      return GetLastError();
    }
    if (name != nullptr) *name = buffer;
    return 0;
  }
  std::vector<std::string> Enumerate(HCRYPTPROV prov) {
    std::vector<std::string> names;
    std::string name;
    DWORD error = 0;
    for (DWORD flags = CRYPT_FIRST; (error = NextContainer(prov, flags, &name)) == 0; flags = 0)
      names.push_back(name);
    EXPECT_EQ(error, kNoMoreItems);
    return names;
  }
  std::string ContainerParam(HCRYPTPROV prov) {
    char name[260] = {};
    DWORD length = sizeof(name);
    EXPECT_TRUE(entries.GetProvParam(prov, PP_CONTAINER, reinterpret_cast<BYTE*>(name), &length, 0));
    return name;
  }
};

TEST_F(TokenContainers, DeletingRemovesTheRsaObjectsButNotOtherKeysWithTheSameId) {
  const std::string name = CaseName();
  const HCRYPTPROV prov = NewCryptContainer(name);
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 1024u << 16, &key)) << std::hex << GetLastError();
  ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key)) << std::hex << GetLastError();
  // Beside the provider: an AES key that shares the signature key ID.
  CK_FUNCTION_LIST* f = Module();
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(f->C_OpenSession(slotId, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
            CKR_OK);
  std::string id = name + "_cspS";
  CK_ULONG secretClass = CKO_SECRET_KEY, aes = CKK_AES;
  CK_BBOOL yes = CK_TRUE;
  uint8_t secret[16] = {};
  CK_ATTRIBUTE aesKey[] = {{CKA_CLASS, &secretClass, 4}, {CKA_KEY_TYPE, &aes, 4}, {CKA_TOKEN, &yes, 1},
                           {CKA_ID, id.data(), static_cast<CK_ULONG>(id.size())},
                           {CKA_VALUE, secret, sizeof secret}};
  CK_OBJECT_HANDLE object = 0;
  ASSERT_EQ(f->C_CreateObject(session, aesKey, 5, &object), CKR_OK);
  f->C_CloseSession(session);
  ASSERT_EQ(NativeObjectsWith("id", Hex(TextBytes(id))).size(), 3u) << "RSA pair and AES key";
  ASSERT_EQ(NativeObjectsWith("id", Hex(TextBytes(name + "_cspX"))).size(), 2u);

  ASSERT_EQ(Acquire(OnToken(name), CRYPT_DELETEKEYSET), 0u);
  const auto left = NativeObjectsWith("id", Hex(TextBytes(id)));
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].at("class"), "4") << "only the AES key stays";
  EXPECT_TRUE(NativeObjectsWith("id", Hex(TextBytes(name + "_cspX"))).empty());
  EXPECT_TRUE(StoredContainers(name).empty());
}

// Tokens refuse the vendor class with one of three codes, and each gets the data form; any other
// refusal is a failure of its own, not a reason to change form.
TEST_F(TokenContainers, EachRefusalOfTheVendorClassGetsTheDataForm) {
  LogIn();
  const struct {
    const char* refusal;
    DWORD error;
    size_t dataForms;
  } cases[] = {
      {"0x13", 0, 1},  // CKR_ATTRIBUTE_VALUE_INVALID
      {"0x12", 0, 1},  // CKR_ATTRIBUTE_TYPE_INVALID
      {"0x31", kNteNoMemory, 0},  // CKR_DEVICE_MEMORY
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.refusal);
    const std::string name = CaseName(c.refusal);
    FreshContainer(name);
    Control(std::string("refuse-vendor-class ") + c.refusal);
    EXPECT_EQ(Acquire(OnToken(name), CRYPT_NEWKEYSET), c.error);
    EXPECT_EQ(StoredContainers(name).size(), c.dataForms);
  }
}

// A container is created once, in the data form on plain SoftHSM2 and in the vendor form on a
// token that holds vendor-defined classes; both forms on one token are opened, enumerated (the
// vendor form first; an enumeration starts with CRYPT_FIRST, and again after its end) and deleted.
// An empty name opens the first container the token returns, and creates (and deletes)
// "DefaultContainer".
TEST_F(TokenContainers, BothFormsAreCreatedOnceFoundEnumeratedAndDeleted) {
  LogIn();
  const std::string data = CaseName("Data");
  const std::string vendor = CaseName("Vendor");
  FreshContainer(data);
  ASSERT_EQ(Acquire(OnToken(data), CRYPT_NEWKEYSET), 0u);
  EXPECT_EQ(Acquire(OnToken(data), CRYPT_NEWKEYSET), kNteExists);
  Control("vendor-class on");
  FreshContainer(vendor);
  ASSERT_EQ(Acquire(OnToken(vendor), CRYPT_NEWKEYSET), 0u);
  ASSERT_EQ(StoredContainers(data).size(), 1u) << "one container object, in the data form";
  ASSERT_EQ(StoredContainers(vendor, kVendorForm).size(), 1u) << "the vendor form was accepted";
  EXPECT_TRUE(StoredContainers(vendor).empty());

  HCRYPTPROV prov = 0;
  for (const std::string& name : {data, vendor}) {
    ASSERT_EQ(Acquire(OnToken(name), 0, &prov), 0u) << name;
    EXPECT_EQ(ContainerParam(prov), name);
  }
  EXPECT_EQ(NextContainer(prov, 0), kNteBadFlags) << "an enumeration starts with CRYPT_FIRST";
  const auto names = Enumerate(prov);
  const auto dataAt = std::find(names.begin(), names.end(), data);
  ASSERT_NE(dataAt, names.end());
  EXPECT_LT(std::find(names.begin(), dataAt, vendor), dataAt) << "the vendor form comes first";
  EXPECT_EQ(NextContainer(prov, 0), kNteBadFlags) << "the enumeration has ended";
  EXPECT_EQ(Enumerate(prov), names) << "and starts again";
  HCRYPTPROV first = 0;
  ASSERT_EQ(Acquire(OnToken(""), 0, &first), 0u);
  EXPECT_EQ(ContainerParam(first), names.front());

  for (const std::string& name : {data, vendor}) {
    ASSERT_EQ(Acquire(OnToken(name), CRYPT_DELETEKEYSET), 0u) << name;
    EXPECT_EQ(Acquire(OnToken(name), 0), kNteBadKeyset) << name;
  }
  EXPECT_TRUE(StoredContainers(data).empty());
  EXPECT_TRUE(StoredContainers(vendor, kVendorForm).empty());
  Control("vendor-class off");
  FreshContainer("DefaultContainer");
  ASSERT_EQ(Acquire(OnToken(""), CRYPT_NEWKEYSET, &prov), 0u);
  EXPECT_EQ(ContainerParam(prov), "DefaultContainer");
  EXPECT_EQ(StoredContainers("DefaultContainer").size(), 1u);
  ASSERT_EQ(Acquire(OnToken(""), CRYPT_DELETEKEYSET), 0u);
  EXPECT_TRUE(StoredContainers("DefaultContainer").empty());
}

}  // namespace
}  // namespace nivra::p11test
