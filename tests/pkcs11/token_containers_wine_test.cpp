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
// form, a public data object (class 0) marked by its application.
const std::string kDataClass = "0";
const std::string kDataFormMarker = Hex(TextBytes("NivraCSP container"));
// How the helper stores the vendor form while it emulates a token that holds vendor classes.
const std::string kVendorMarker = Hex(TextBytes("nivra-vendor-class-80000001"));

class TokenContainers : public TokenTest {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    if (HasFatalFailure()) return;
    StartProvider();
  }
  // The token's data objects labelled `name` whose application is `marker`, natively.
  std::vector<NativeObject> StoredContainers(const std::string& name,
                                             const std::string& marker = kDataFormMarker) {
    std::vector<NativeObject> found;
    for (const NativeObject& object : NativeObjectsWith("label", Hex(TextBytes(name)))) {
      if (object.count("application") && object.at("application") == marker) {
        found.push_back(object);
      }
    }
    return found;
  }
  std::vector<std::string> Enumerate(HCRYPTPROV prov) {
    std::vector<std::string> names;
    DWORD flags = CRYPT_FIRST;
    for (;;) {
      char name[256] = {};
      DWORD length = sizeof(name);
      if (!entries.GetProvParam(prov, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length,
                                flags)) {
        EXPECT_EQ(GetLastError(), kNoMoreItems);
        return names;
      }
      names.push_back(name);
      flags = 0;
    }
  }
  DWORD NextContainerError(HCRYPTPROV prov, DWORD flags) {
    char name[256] = {};
    DWORD length = sizeof(name);
    return entries.GetProvParam(prov, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length,
                                flags)
               ? 0
               : GetLastError();
  }
  std::string ContainerParam(HCRYPTPROV prov) {
    char name[260] = {};
    DWORD length = sizeof(name);
    EXPECT_TRUE(entries.GetProvParam(prov, PP_CONTAINER, reinterpret_cast<BYTE*>(name), &length, 0));
    return name;
  }
};

TEST_F(TokenContainers, CreateOpenEnumerateAndDeleteAContainer) {
  LogIn();
  const std::string name = CaseName();
  FreshContainer(name);
  ASSERT_EQ(Acquire(OnToken(name), CRYPT_NEWKEYSET), 0u);

  const auto stored = StoredContainers(name);
  ASSERT_EQ(stored.size(), 1u) << "one container object, in the data form";
  EXPECT_EQ(stored[0].at("class"), kDataClass);
  EXPECT_EQ(stored[0].at("token"), "1");
  EXPECT_EQ(stored[0].at("modifiable"), "1");
  EXPECT_EQ(stored[0].at("private"), "0");
  // pkcs11-tool shows it without a login, with its label and application.
  const auto listed = Pkcs11ToolDataObjects();
  const auto label = std::find(listed.begin(), listed.end(), "  label:          '" + name + "'");
  ASSERT_NE(label, listed.end());
  ASSERT_NE(label + 1, listed.end());
  EXPECT_EQ(label[1], "  application:    'NivraCSP container'");

  EXPECT_EQ(Acquire(OnToken(name), CRYPT_NEWKEYSET), kNteExists);
  EXPECT_EQ(StoredContainers(name).size(), 1u);

  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire(OnToken(name), 0, &prov), 0u) << "opening finds it";
  EXPECT_EQ(NextContainerError(prov, 0), kNteBadFlags) << "an enumeration starts with CRYPT_FIRST";
  const auto names = Enumerate(prov);
  EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << "enumeration lists it";
  EXPECT_EQ(NextContainerError(prov, 0), kNteBadFlags) << "the enumeration has ended";
  EXPECT_EQ(Enumerate(prov), names) << "and starts again";

  ASSERT_EQ(Acquire(OnToken(name), CRYPT_DELETEKEYSET), 0u);
  EXPECT_TRUE(StoredContainers(name).empty());
  EXPECT_EQ(Acquire(OnToken(name), 0), kNteBadKeyset) << "and it cannot be opened any more";
}

// The P-256 base point as an EC public key's CKA_EC_POINT (DER OCTET STRING of 04 || x || y).
const Bytes kP256Point = FromHex(
    "044104"
    "6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296"
    "4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5");
const Bytes kP256Params = FromHex("06082a8648ce3d030107");

TEST_F(TokenContainers, DeletingRemovesTheRsaObjectsButNotOtherKeysWithTheSameId) {
  LogIn();
  const std::string name = CaseName();
  FreshContainer(name);
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire(OnToken(name), CRYPT_NEWKEYSET, &prov), 0u);
  HCRYPTKEY key = 0;
  ASSERT_TRUE(entries.GenKey(prov, AT_SIGNATURE, 1024u << 16, &key)) << std::hex << GetLastError();
  ASSERT_TRUE(entries.GenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key)) << std::hex << GetLastError();
  // Beside the provider: an EC public key and an AES key that share the signature key ID.
  CK_FUNCTION_LIST* f = Module();
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(f->C_OpenSession(slotId, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
            CKR_OK);
  const std::string id = name + "_cspS";
  CK_ULONG publicClass = CKO_PUBLIC_KEY, secretClass = CKO_SECRET_KEY, ec = CKK_EC, aes = CKK_AES;
  CK_BBOOL yes = CK_TRUE;
  Bytes point = kP256Point, params = kP256Params, secret(16, 0x5C);
  CK_ATTRIBUTE ecKey[] = {{CKA_CLASS, &publicClass, 4},
                          {CKA_KEY_TYPE, &ec, 4},
                          {CKA_TOKEN, &yes, 1},
                          {CKA_ID, const_cast<char*>(id.data()), static_cast<CK_ULONG>(id.size())},
                          {CKA_EC_PARAMS, params.data(), static_cast<CK_ULONG>(params.size())},
                          {CKA_EC_POINT, point.data(), static_cast<CK_ULONG>(point.size())}};
  CK_ATTRIBUTE aesKey[] = {{CKA_CLASS, &secretClass, 4},
                           {CKA_KEY_TYPE, &aes, 4},
                           {CKA_TOKEN, &yes, 1},
                           {CKA_ID, const_cast<char*>(id.data()), static_cast<CK_ULONG>(id.size())},
                           {CKA_VALUE, secret.data(), static_cast<CK_ULONG>(secret.size())}};
  CK_OBJECT_HANDLE object = 0;
  ASSERT_EQ(f->C_CreateObject(session, ecKey, 6, &object), CKR_OK);
  ASSERT_EQ(f->C_CreateObject(session, aesKey, 5, &object), CKR_OK);
  f->C_CloseSession(session);
  ASSERT_EQ(NativeObjectsWith("id", Hex(TextBytes(id))).size(), 4u) << "RSA pair, EC key, AES key";
  ASSERT_EQ(NativeObjectsWith("id", Hex(TextBytes(name + "_cspX"))).size(), 2u);

  ASSERT_EQ(Acquire(OnToken(name), CRYPT_DELETEKEYSET), 0u);
  const auto left = NativeObjectsWith("id", Hex(TextBytes(id)));
  ASSERT_EQ(left.size(), 2u);
  for (const NativeObject& object : left) {
    EXPECT_TRUE(object.at("key_type") == "3" || object.at("key_type") == "31")
        << "only the EC and AES keys stay";
  }
  EXPECT_TRUE(NativeObjectsWith("id", Hex(TextBytes(name + "_cspX"))).empty());
  EXPECT_TRUE(StoredContainers(name).empty());
}

TEST_F(TokenContainers, EmptyNameBindsTheFirstContainerTheTokenReturns) {
  LogIn();
  FreshContainer(CaseName("A"));
  FreshContainer(CaseName("B"));
  ASSERT_EQ(Acquire(OnToken(CaseName("A")), CRYPT_NEWKEYSET), 0u);
  ASSERT_EQ(Acquire(OnToken(CaseName("B")), CRYPT_NEWKEYSET), 0u);
  HCRYPTPROV any = 0;
  ASSERT_EQ(Acquire(OnToken(""), 0, &any), 0u);
  const auto names = Enumerate(any);
  ASSERT_GE(names.size(), 2u);
  EXPECT_EQ(ContainerParam(any), names.front());
}

TEST_F(TokenContainers, CreatingWithAnEmptyNameMakesDefaultContainer) {
  LogIn();
  FreshContainer("DefaultContainer");
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire(OnToken(""), CRYPT_NEWKEYSET, &prov), 0u);
  EXPECT_EQ(ContainerParam(prov), "DefaultContainer");
  EXPECT_EQ(StoredContainers("DefaultContainer").size(), 1u);
  ASSERT_EQ(Acquire(OnToken(""), CRYPT_DELETEKEYSET), 0u);
  EXPECT_TRUE(StoredContainers("DefaultContainer").empty());
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
      {"0xD1", 0, 1},  // CKR_TEMPLATE_INCONSISTENT
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

// A token that holds vendor-defined classes gets the vendor form; containers of both forms on one
// token are opened, enumerated (the vendor form first) and deleted alike.
TEST_F(TokenContainers, BothFormsAreFoundEnumeratedAndDeleted) {
  LogIn();
  const std::string data = CaseName("Data");
  const std::string vendor = CaseName("Vendor");
  FreshContainer(data);
  ASSERT_EQ(Acquire(OnToken(data), CRYPT_NEWKEYSET), 0u);
  Control("vendor-class on");
  FreshContainer(vendor);
  ASSERT_EQ(Acquire(OnToken(vendor), CRYPT_NEWKEYSET), 0u);
  ASSERT_EQ(StoredContainers(data).size(), 1u);
  ASSERT_EQ(StoredContainers(vendor, kVendorMarker).size(), 1u) << "the vendor form was accepted";
  EXPECT_TRUE(StoredContainers(vendor).empty());

  HCRYPTPROV prov = 0;
  for (const std::string& name : {data, vendor}) {
    ASSERT_EQ(Acquire(OnToken(name), 0, &prov), 0u) << name;
    EXPECT_EQ(ContainerParam(prov), name);
  }
  const auto names = Enumerate(prov);
  const auto vendorAt = std::find(names.begin(), names.end(), vendor);
  const auto dataAt = std::find(names.begin(), names.end(), data);
  ASSERT_NE(vendorAt, names.end());
  ASSERT_NE(dataAt, names.end());
  EXPECT_LT(vendorAt, dataAt) << "vendor form first";

  for (const std::string& name : {data, vendor}) {
    ASSERT_EQ(Acquire(OnToken(name), CRYPT_DELETEKEYSET), 0u) << name;
    EXPECT_EQ(Acquire(OnToken(name), 0), kNteBadKeyset) << name;
  }
  EXPECT_TRUE(StoredContainers(data).empty());
  EXPECT_TRUE(StoredContainers(vendor, kVendorMarker).empty());
}

}  // namespace
}  // namespace nivra::p11test
