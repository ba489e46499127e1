// Objects and RSA through the helper against SoftHSM2: CK_ULONG-valued attributes at the caller's
// width with the size-query protocol, vendor-class container objects kept as marked data
// objects while the helper emulates vendor classes, and raw RSA with a key pair of the provider's templates, checked with OpenSSL.
#include <algorithm>

#include "tests/p11fwd/helper_harness.h"
#include "tests/p11fwd/provider_templates.h"

namespace nivra::p11test {
namespace {

using p11wire::WireOp;
using p11wire::WireTemplate;
using Handles = std::vector<uint32_t>;

constexpr uint32_t kContainerClass = 0x80000001;
constexpr uint32_t kNone = p11wire::kWireUnavailable;
constexpr auto Query = QueryAttribute;

// A read/write session logged in as the user; objects created through it die with the test.
class HelperObjects : public HelperTest {
 protected:
  void SetUp() override {
    HelperTest::SetUp();
    session_ = client_.OpenSession(slot_);
    ASSERT_EQ(client_.Login(session_, kUserPin), CKR_OK);
  }
  void TearDown() override {
    for (uint32_t object : created_) client_.Call<WireOp::kDestroyObject>({session_, object});
    // The login belongs to the token, not the session: leave it as the next test expects it.
    client_.Call<WireOp::kLogout>({session_});
    HelperTest::TearDown();
  }

  p11wire::AttributesReply Read(uint32_t object, WireTemplate query) {
    return client_.Call<WireOp::kGetAttributeValue>({session_, object, std::move(query)});
  }

  uint32_t Create(WireTemplate attributes) {
    auto reply = client_.Call<WireOp::kCreateObject>({session_, 0, std::move(attributes)});
    EXPECT_EQ(reply.rv, CKR_OK);
    if (reply.rv == CKR_OK) created_.push_back(reply.handle);
    return reply.handle;
  }

  Handles Find(WireTemplate attributes) {
    EXPECT_EQ(client_.Call<WireOp::kFindObjectsInit>({session_, 0, std::move(attributes)}).rv, CKR_OK);
    auto found = client_.Call<WireOp::kFindObjects>({session_, 100});
    EXPECT_EQ(found.rv, CKR_OK);
    EXPECT_EQ(client_.Call<WireOp::kFindObjectsFinal>({session_}).rv, CKR_OK);
    std::sort(found.ids.begin(), found.ids.end());
    return found.ids;
  }

  // A key pair generated with the provider's templates, destroyed with the test.
  void GenerateProviderPair(const std::string& id, uint32_t bits) {
    auto reply = client_.Call<WireOp::kGenerateKeyPair>({session_, {CKM_RSA_PKCS_KEY_PAIR_GEN, {}},
                                                         ProviderPublicKeyTemplate(id, bits),
                                                         ProviderPrivateKeyTemplate(id)});
    ASSERT_EQ(reply.rv, CKR_OK);
    created_.insert(created_.end(), {public_ = reply.publicKey, private_ = reply.privateKey});
  }

  static WireTemplate Container(const std::string& name) {
    return {ValueAttribute(CKA_CLASS, Ulong32(kContainerClass)),
            ValueAttribute(CKA_LABEL, TextBytes(name)), ValueAttribute(CKA_TOKEN, {CK_TRUE}),
            ValueAttribute(CKA_MODIFIABLE, {CK_TRUE})};
  }

  // One single-part raw RSA operation: kInit with `key`, then kRun on `input`.
  template <WireOp kInit, WireOp kRun>
  p11wire::DataReply Run(uint32_t key, const Bytes& input, uint32_t capacity) {
    EXPECT_EQ(client_.Call<kInit>({session_, {CKM_RSA_X_509, {}}, key}).rv, CKR_OK);
    return client_.Call<kRun>({session_, {true, input}, true, capacity});
  }

  uint32_t session_ = 0;
  uint32_t public_ = 0;
  uint32_t private_ = 0;
  Handles created_;
};

TEST_F(HelperObjects, AttributesArriveAtTheCallersWidth) {
  GenerateProviderPair("width_cspS", 1024);
  auto values = Read(public_, {Query(CKA_CLASS, false, 0), Query(CKA_KEY_TYPE, true, 4),
                               Query(CKA_MODULUS_BITS, true, 4), Query(CKA_MODULUS, false, 0),
                               Query(CKA_PUBLIC_EXPONENT, true, 16)});
  ASSERT_EQ(values.rv, CKR_OK);
  EXPECT_EQ(values.attributes[0].length, 4u);
  EXPECT_TRUE(values.attributes[0].value.empty());
  EXPECT_EQ(values.attributes[1].value, Ulong32(CKK_RSA));
  EXPECT_EQ(values.attributes[2].value, Ulong32(1024));
  EXPECT_EQ(values.attributes[3].length, 128u);
  EXPECT_EQ(values.attributes[4].value, (Bytes{0x01, 0x00, 0x01}));
  auto small = Read(public_, {Query(CKA_CLASS, true, 3), Query(CKA_MODULUS, true, 127),
                              Query(CKA_ID, true, 64)});
  EXPECT_EQ(small.rv, CKR_BUFFER_TOO_SMALL);
  ASSERT_EQ(small.attributes.size(), 3u);
  EXPECT_EQ(small.attributes[0].length, kNone);
  EXPECT_EQ(small.attributes[1].length, kNone);
  EXPECT_EQ(small.attributes[2].value, TextBytes("width_cspS"));
  auto sensitive =
      Read(private_, {Query(CKA_PRIVATE_EXPONENT, true, 256), Query(CKA_KEY_TYPE, true, 4)});
  EXPECT_EQ(sensitive.rv, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(sensitive.attributes[0].length, kNone);
  EXPECT_EQ(sensitive.attributes[1].value, Ulong32(CKK_RSA));
  EXPECT_EQ(Read(public_, {Query(CKA_CERTIFICATE_TYPE, true, 4)}).rv, CKR_ATTRIBUTE_TYPE_INVALID);
  auto unknown = Read(0x7FFFFFF0, {Query(CKA_CLASS, true, 4)});
  EXPECT_EQ(unknown.rv, CKR_OBJECT_HANDLE_INVALID);
  EXPECT_TRUE(unknown.attributes.empty());
}

TEST_F(HelperObjects, ContainerIsStoredAsMarkedPublicDataObject) {
  harness().Control("vendor-class on");
  uint32_t container = Create(Container("StoredBox"));
  CK_OBJECT_CLASS cls = 0;
  char application[64] = {};
  CK_BBOOL isPrivate = CK_TRUE;
  CK_ATTRIBUTE native[] = {{CKA_CLASS, &cls, sizeof cls},
                           {CKA_APPLICATION, application, sizeof application},
                           {CKA_PRIVATE, &isPrivate, sizeof isPrivate}};
  // Any session of the module can read it: login state belongs to the token.
  CK_FUNCTION_LIST* module = harness().module();
  CK_SESSION_HANDLE direct = 0;
  ASSERT_EQ(module->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &direct), CKR_OK);
  EXPECT_EQ(module->C_GetAttributeValue(direct, container, native, 3), CKR_OK);
  module->C_CloseSession(direct);
  EXPECT_EQ(cls, CKO_DATA);
  EXPECT_EQ(std::string(application, native[1].ulValueLen), "nivra-vendor-class-80000001");
  EXPECT_EQ(isPrivate, CK_FALSE);
}

TEST_F(HelperObjects, ContainersAreFoundAndReadWithTheirClass) {
  harness().Control("vendor-class on");
  const Bytes record = {2, 2, 0, 0, 'k', '1', 'k', '2'};
  WireTemplate withRecord = Container("FoundBox");
  withRecord.push_back(ValueAttribute(CKA_VALUE, record));
  uint32_t container = Create(withRecord);
  uint32_t other = Create(Container("OtherBox"));
  uint32_t data = Create({ValueAttribute(CKA_CLASS, Ulong32(CKO_DATA)),
                          ValueAttribute(CKA_LABEL, TextBytes("FoundBox")),
                          ValueAttribute(CKA_TOKEN, {CK_TRUE})});
  const auto ClassIs = [](uint32_t c) { return ValueAttribute(CKA_CLASS, Ulong32(c)); };
  const auto Label = [](const char* l) { return ValueAttribute(CKA_LABEL, TextBytes(l)); };
  EXPECT_EQ(Find({ClassIs(kContainerClass), Label("FoundBox")}), Handles{container});
  EXPECT_EQ(Find({ClassIs(kContainerClass)}).size(), 2u);
  EXPECT_EQ(Find({ClassIs(CKO_DATA), Label("FoundBox")}), Handles{data});
  Handles both = {container, data};
  std::sort(both.begin(), both.end());
  EXPECT_EQ(Find({Label("FoundBox")}), both);

  auto read = Read(container, {Query(CKA_CLASS, true, 4), Query(CKA_LABEL, true, 255),
                               Query(CKA_VALUE, false, 0xFFFFFFFF), Query(CKA_VALUE, true, 64)});
  ASSERT_EQ(read.rv, CKR_OK);
  EXPECT_EQ(read.attributes[0].value, Ulong32(kContainerClass));
  EXPECT_EQ(read.attributes[1].value, TextBytes("FoundBox"));
  EXPECT_EQ(read.attributes[2].length, record.size());
  EXPECT_EQ(read.attributes[3].value, record);
  auto application = Read(container, {Query(CKA_APPLICATION, true, 64)});
  EXPECT_EQ(application.rv, CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(application.attributes[0].length, kNone);

  ASSERT_EQ(client_.Call<WireOp::kSetAttributeValue>({session_, other, {Label("NewName")}}).rv, CKR_OK);
  // Containers are public: found before login, and a search honours its maximum.
  ASSERT_EQ(client_.Call<WireOp::kLogout>({session_}).rv, CKR_OK);
  EXPECT_EQ(Find({ClassIs(kContainerClass), Label("NewName")}), Handles{other});
  ASSERT_EQ(client_.Call<WireOp::kFindObjectsInit>({session_, 0, {ClassIs(kContainerClass)}}).rv,
            CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kFindObjectsInit>({session_, 0, {}}).rv, CKR_OPERATION_ACTIVE);
  for (size_t expected : {1u, 1u, 0u})
    EXPECT_EQ(client_.Call<WireOp::kFindObjects>({session_, 1}).ids.size(), expected);
  EXPECT_EQ(client_.Call<WireOp::kFindObjectsFinal>({session_}).rv, CKR_OK);
  ASSERT_EQ(client_.Login(session_, kUserPin), CKR_OK);
}

TEST_F(HelperObjects, RandomBytesHaveTheRequestedLength) {
  p11wire::DataRequest request = {session_, {}, true, 48};
  auto first = client_.Call<WireOp::kGenerateRandom>(request);
  auto second = client_.Call<WireOp::kGenerateRandom>(request);
  ASSERT_EQ(first.rv, CKR_OK);
  ASSERT_EQ(first.output.bytes.size(), 48u);
  EXPECT_NE(first.output.bytes, second.output.bytes);
  request.capacity = (4u << 20) + 1;
  EXPECT_EQ(client_.Call<WireOp::kGenerateRandom>(request).rv, CKR_ARGUMENTS_BAD);
}

}  // namespace
}  // namespace nivra::p11test
