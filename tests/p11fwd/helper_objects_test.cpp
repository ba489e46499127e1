// Objects through the helper against SoftHSM2: CK_ULONG-valued attributes at the caller's
// width, the attribute size-query protocol, and vendor-class container objects kept as marked
// data objects.
#include <algorithm>
#include <cstring>

#include "tests/p11fwd/helper_harness.h"
#include "tests/p11fwd/provider_templates.h"

namespace nivra::p11test {
namespace {

using p11wire::TemplateRequest;
using p11wire::WireAttribute;
using p11wire::WireOp;
using p11wire::WireTemplate;

constexpr uint32_t kContainerClass = 0x80000001;

constexpr auto Query = QueryAttribute;

class HelperObjects : public SessionTest {
 protected:
  void TearDown() override {
    for (uint32_t object : created_) client_.Call<WireOp::kDestroyObject>({session_, object});
    SessionTest::TearDown();
  }

  p11wire::AttributesReply Read(uint32_t object, WireTemplate query) {
    TemplateRequest request;
    request.session = session_;
    request.object = object;
    request.attributes = std::move(query);
    return client_.Call<WireOp::kGetAttributeValue>(request);
  }

  uint32_t Create(WireTemplate attributes) {
    TemplateRequest request;
    request.session = session_;
    request.attributes = std::move(attributes);
    auto reply = client_.Call<WireOp::kCreateObject>(request);
    EXPECT_EQ(reply.rv, CKR_OK);
    if (reply.rv == CKR_OK) created_.push_back(reply.handle);
    return reply.handle;
  }

  std::vector<uint32_t> Find(WireTemplate attributes) {
    TemplateRequest init;
    init.session = session_;
    init.attributes = std::move(attributes);
    EXPECT_EQ(client_.Call<WireOp::kFindObjectsInit>(init).rv, CKR_OK);
    auto found = client_.Call<WireOp::kFindObjects>({session_, 100});
    EXPECT_EQ(found.rv, CKR_OK);
    EXPECT_EQ(client_.Call<WireOp::kFindObjectsFinal>({session_}).rv, CKR_OK);
    return found.ids;
  }

  void GenerateProviderPair(const std::string& id, uint32_t* publicKey, uint32_t* privateKey) {
    p11wire::GenerateKeyPairRequest request;
    request.session = session_;
    request.mechanism.type = CKM_RSA_PKCS_KEY_PAIR_GEN;
    request.publicTemplate = ProviderPublicKeyTemplate(id, 1024);
    request.privateTemplate = ProviderPrivateKeyTemplate(id);
    auto reply = client_.Call<WireOp::kGenerateKeyPair>(request);
    ASSERT_EQ(reply.rv, CKR_OK);
    *publicKey = reply.publicKey;
    *privateKey = reply.privateKey;
    created_.push_back(reply.publicKey);
    created_.push_back(reply.privateKey);
  }

  WireTemplate ContainerTemplate(const std::string& name) {
    return {ValueAttribute(CKA_CLASS, Ulong32(kContainerClass)),
            ValueAttribute(CKA_LABEL, TextBytes(name)), ValueAttribute(CKA_TOKEN, {CK_TRUE}),
            ValueAttribute(CKA_MODIFIABLE, {CK_TRUE})};
  }

  std::vector<uint32_t> created_;
};

TEST_F(HelperObjects, UlongAttributesAreFourBytesForTheCaller) {
  uint32_t pub = 0, priv = 0;
  GenerateProviderPair("ulong_cspS", &pub, &priv);
  auto sizes = Read(pub, {Query(CKA_CLASS, false, 0), Query(CKA_KEY_TYPE, false, 0),
                          Query(CKA_MODULUS_BITS, false, 0), Query(CKA_MODULUS, false, 0)});
  ASSERT_EQ(sizes.rv, CKR_OK);
  EXPECT_EQ(sizes.attributes[0].length, 4u);
  EXPECT_EQ(sizes.attributes[1].length, 4u);
  EXPECT_EQ(sizes.attributes[2].length, 4u);
  EXPECT_EQ(sizes.attributes[3].length, 128u);

  auto values = Read(pub, {Query(CKA_CLASS, true, 4), Query(CKA_KEY_TYPE, true, 4),
                           Query(CKA_MODULUS_BITS, true, 4), Query(CKA_PUBLIC_EXPONENT, true, 16)});
  ASSERT_EQ(values.rv, CKR_OK);
  EXPECT_EQ(values.attributes[0].value, Ulong32(CKO_PUBLIC_KEY));
  EXPECT_EQ(values.attributes[1].value, Ulong32(CKK_RSA));
  EXPECT_EQ(values.attributes[2].value, Ulong32(1024));
  EXPECT_EQ(values.attributes[3].value, (Bytes{0x01, 0x00, 0x01}));
}

TEST_F(HelperObjects, TooSmallBufferIsUnavailableWhileOthersArrive) {
  uint32_t pub = 0, priv = 0;
  GenerateProviderPair("small_cspS", &pub, &priv);
  auto reply = Read(pub, {Query(CKA_CLASS, true, 3), Query(CKA_MODULUS, true, 127),
                          Query(CKA_ID, true, 64)});
  EXPECT_EQ(reply.rv, CKR_BUFFER_TOO_SMALL);
  ASSERT_EQ(reply.attributes.size(), 3u);
  EXPECT_EQ(reply.attributes[0].length, p11wire::kWireUnavailable);
  EXPECT_EQ(reply.attributes[1].length, p11wire::kWireUnavailable);
  EXPECT_EQ(reply.attributes[2].value, TextBytes("small_cspS"));
}

TEST_F(HelperObjects, SensitiveAndMissingAttributesAreUnavailable) {
  uint32_t pub = 0, priv = 0;
  GenerateProviderPair("sens_cspX", &pub, &priv);
  auto reply = Read(priv, {Query(CKA_PRIVATE_EXPONENT, true, 256), Query(CKA_KEY_TYPE, true, 4)});
  EXPECT_EQ(reply.rv, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(reply.attributes[0].length, p11wire::kWireUnavailable);
  EXPECT_EQ(reply.attributes[1].value, Ulong32(CKK_RSA));
  auto missing = Read(pub, {Query(CKA_CERTIFICATE_TYPE, true, 4)});
  EXPECT_EQ(missing.rv, CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(missing.attributes[0].length, p11wire::kWireUnavailable);
}

TEST_F(HelperObjects, BadObjectHandleReturnsNoAnswers) {
  auto reply = Read(0x7FFFFFF0, {Query(CKA_CLASS, true, 4)});
  EXPECT_EQ(reply.rv, CKR_OBJECT_HANDLE_INVALID);
  EXPECT_TRUE(reply.attributes.empty());
}

TEST_F(HelperObjects, ContainerObjectIsStoredAsMarkedPublicDataObject) {
  uint32_t container = Create(ContainerTemplate("StoredBox"));
  CK_OBJECT_CLASS cls = 0;
  char application[64] = {};
  CK_BBOOL isPrivate = CK_TRUE;
  CK_ATTRIBUTE native[] = {{CKA_CLASS, &cls, sizeof cls},
                           {CKA_APPLICATION, application, sizeof application},
                           {CKA_PRIVATE, &isPrivate, sizeof isPrivate}};
  // Any session of the module can read it: login state belongs to the token.
  CK_SESSION_HANDLE direct = 0;
  ASSERT_EQ(harness().module()->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &direct), CKR_OK);
  EXPECT_EQ(harness().module()->C_GetAttributeValue(direct, container, native, 3), CKR_OK);
  harness().module()->C_CloseSession(direct);
  EXPECT_EQ(cls, CKO_DATA);
  EXPECT_EQ(std::string(application, native[1].ulValueLen), "nivra-vendor-class-80000001");
  EXPECT_EQ(isPrivate, CK_FALSE);
}

TEST_F(HelperObjects, ContainerIsFoundByClassAndLabelAndReadWithItsClass) {
  uint32_t container = Create(ContainerTemplate("FoundBox"));
  Create(ContainerTemplate("OtherBox"));
  std::vector<uint32_t> byLabel = Find({ValueAttribute(CKA_CLASS, Ulong32(kContainerClass)),
                                        ValueAttribute(CKA_LABEL, TextBytes("FoundBox"))});
  ASSERT_EQ(byLabel, std::vector<uint32_t>{container});
  std::vector<uint32_t> byClass = Find({ValueAttribute(CKA_CLASS, Ulong32(kContainerClass))});
  EXPECT_EQ(byClass.size(), 2u);

  auto read = Read(container, {Query(CKA_CLASS, true, 4), Query(CKA_LABEL, true, 255),
                               Query(CKA_VALUE, false, 0xFFFFFFFF)});
  ASSERT_EQ(read.rv, CKR_OK);
  EXPECT_EQ(read.attributes[0].value, Ulong32(kContainerClass));
  EXPECT_EQ(read.attributes[1].value, TextBytes("FoundBox"));
  EXPECT_EQ(read.attributes[2].length, 0u);  // no key-ID record

  auto application = Read(container, {Query(CKA_APPLICATION, true, 64)});
  EXPECT_EQ(application.rv, CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(application.attributes[0].length, p11wire::kWireUnavailable);
}

TEST_F(HelperObjects, ContainerIsFoundBeforeLogin) {
  uint32_t container = Create(ContainerTemplate("PublicBox"));
  ASSERT_EQ(client_.Call<WireOp::kLogout>({session_}).rv, CKR_OK);
  std::vector<uint32_t> found = Find({ValueAttribute(CKA_CLASS, Ulong32(kContainerClass)),
                                      ValueAttribute(CKA_LABEL, TextBytes("PublicBox"))});
  EXPECT_EQ(found, std::vector<uint32_t>{container});
  ASSERT_EQ(client_.Login(session_, kUserPin), CKR_OK);
}

TEST_F(HelperObjects, DataSearchLeavesContainersOut) {
  uint32_t container = Create(ContainerTemplate("MixedBox"));
  uint32_t data = Create({ValueAttribute(CKA_CLASS, Ulong32(CKO_DATA)),
                          ValueAttribute(CKA_LABEL, TextBytes("MixedBox")),
                          ValueAttribute(CKA_TOKEN, {CK_TRUE})});
  std::vector<uint32_t> dataOnly = Find({ValueAttribute(CKA_CLASS, Ulong32(CKO_DATA)),
                                         ValueAttribute(CKA_LABEL, TextBytes("MixedBox"))});
  EXPECT_EQ(dataOnly, std::vector<uint32_t>{data});
  std::vector<uint32_t> byLabel = Find({ValueAttribute(CKA_LABEL, TextBytes("MixedBox"))});
  std::sort(byLabel.begin(), byLabel.end());
  std::vector<uint32_t> both = {container, data};
  std::sort(both.begin(), both.end());
  EXPECT_EQ(byLabel, both);
}

TEST_F(HelperObjects, ContainerWithKeyIdRecordKeepsIt) {
  Bytes record = {2, 2, 0, 0, 'k', '1', 'k', '2'};
  WireTemplate withRecord = ContainerTemplate("RecordBox");
  withRecord.push_back(ValueAttribute(CKA_VALUE, record));
  uint32_t container = Create(withRecord);
  auto read = Read(container, {Query(CKA_VALUE, true, 64), Query(CKA_CLASS, true, 4)});
  ASSERT_EQ(read.rv, CKR_OK);
  EXPECT_EQ(read.attributes[0].value, record);
  EXPECT_EQ(read.attributes[1].value, Ulong32(kContainerClass));
}

TEST_F(HelperObjects, ContainerCanBeRenamed) {
  uint32_t container = Create(ContainerTemplate("OldName"));
  TemplateRequest set;
  set.session = session_;
  set.object = container;
  set.attributes = {ValueAttribute(CKA_LABEL, TextBytes("NewName"))};
  ASSERT_EQ(client_.Call<WireOp::kSetAttributeValue>(set).rv, CKR_OK);
  EXPECT_EQ(Find({ValueAttribute(CKA_CLASS, Ulong32(kContainerClass)),
                  ValueAttribute(CKA_LABEL, TextBytes("NewName"))}),
            std::vector<uint32_t>{container});
}

TEST_F(HelperObjects, FindObjectsHonoursTheMaximum) {
  for (int i = 0; i < 5; ++i) Create(ContainerTemplate("ManyBox"));
  TemplateRequest init;
  init.session = session_;
  init.attributes = {ValueAttribute(CKA_LABEL, TextBytes("ManyBox"))};
  ASSERT_EQ(client_.Call<WireOp::kFindObjectsInit>(init).rv, CKR_OK);
  EXPECT_EQ(client_.Call<WireOp::kFindObjectsInit>(init).rv, CKR_OPERATION_ACTIVE);
  EXPECT_EQ(client_.Call<WireOp::kFindObjects>({session_, 2}).ids.size(), 2u);
  EXPECT_EQ(client_.Call<WireOp::kFindObjects>({session_, 2}).ids.size(), 2u);
  EXPECT_EQ(client_.Call<WireOp::kFindObjects>({session_, 2}).ids.size(), 1u);
  EXPECT_EQ(client_.Call<WireOp::kFindObjects>({session_, 2}).ids.size(), 0u);
  EXPECT_EQ(client_.Call<WireOp::kFindObjectsFinal>({session_}).rv, CKR_OK);
}

TEST_F(HelperObjects, DestroyedContainerIsNoLongerFound) {
  uint32_t container = Create(ContainerTemplate("GoneBox"));
  ASSERT_EQ(client_.Call<WireOp::kDestroyObject>({session_, container}).rv, CKR_OK);
  created_.clear();
  EXPECT_TRUE(Find({ValueAttribute(CKA_CLASS, Ulong32(kContainerClass)),
                    ValueAttribute(CKA_LABEL, TextBytes("GoneBox"))})
                  .empty());
}

}  // namespace
}  // namespace nivra::p11test
