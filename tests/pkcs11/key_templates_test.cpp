// The attribute templates of the key objects that the back end creates: order, widths, values.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "pkcs11/key_templates.h"

namespace nivra::pkcs11 {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes ValueOf(const CK_ATTRIBUTE& a) {
  const auto* p = static_cast<const uint8_t*>(a.pValue);
  return Bytes(p, p + a.ulValueLen);
}

Bytes U32(uint32_t v) { return Bytes{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }
const Bytes kTrueByte = {1};

struct Expected {
  CK_ATTRIBUTE_TYPE type;
  Bytes value;
};

void ExpectTemplate(const AttributeList& list, const std::vector<Expected>& expected) {
  ASSERT_EQ(list.count(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(list[i].type, expected[i].type) << "attribute " << i;
    EXPECT_EQ(ValueOf(list[i]), expected[i].value) << "attribute " << i << " type 0x" << std::hex
                                                    << expected[i].type;
  }
}

const std::string kId = "c1_cspS";
KeyIdBytes Id() { return {reinterpret_cast<const uint8_t*>(kId.data()), uint32_t(kId.size())}; }
Bytes IdBytes() { return Bytes(kId.begin(), kId.end()); }

// Attribute types by their numbers in the PKCS#11 standard.
constexpr CK_ATTRIBUTE_TYPE kClass = 0x0, kToken = 0x1, kPrivate = 0x2, kId_ = 0x102,
                            kKeyType = 0x100, kSensitive = 0x103, kEncrypt = 0x104,
                            kDecrypt = 0x105, kWrap = 0x106, kSign = 0x108, kVerify = 0x10A,
                            kModulus = 0x120, kModulusBits = 0x121, kPublicExponent = 0x122,
                            kPrivateExponent = 0x123, kPrime1 = 0x124, kPrime2 = 0x125,
                            kExponent1 = 0x126, kExponent2 = 0x127, kCoefficient = 0x128;

// The rows every template starts with, and the flag rows of each half.
std::vector<Expected> Head(uint32_t objectClass) {
  return {{kClass, U32(objectClass)}, {kId_, IdBytes()}, {kToken, kTrueByte}, {kKeyType, U32(0)}};
}
std::vector<Expected> PrivateHead() {
  std::vector<Expected> rows = Head(3);
  rows.insert(rows.end(), {{kSensitive, kTrueByte},
                           {kSign, kTrueByte},
                           {kDecrypt, kTrueByte},
                           {kPrivate, kTrueByte}});
  return rows;
}
std::vector<Expected> PublicHead() {
  std::vector<Expected> rows = Head(2);
  rows.insert(rows.end(), {{kEncrypt, kTrueByte}, {kVerify, kTrueByte}, {kWrap, kTrueByte}});
  return rows;
}
std::vector<Expected> Then(std::vector<Expected> rows, const std::vector<Expected>& more) {
  rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

TEST(KeyTemplates, GenerationPublicTemplateHasNineAttributesInOrder) {
  AttributeList publicKey;
  AttributeList privateKey;
  const CK_ULONG bits = 2048;
  GenerationTemplates(Id(), bits, &publicKey, &privateKey);
  ExpectTemplate(publicKey, Then(PublicHead(), {{kModulusBits, U32(2048)},
                                                {kPublicExponent, Bytes{0x00, 0x01, 0x00, 0x01}}}));
}

TEST(KeyTemplates, GenerationPrivateTemplateHasEightAttributesInOrder) {
  AttributeList publicKey;
  AttributeList privateKey;
  const CK_ULONG bits = 1024;
  GenerationTemplates(Id(), bits, &publicKey, &privateKey);
  ExpectTemplate(privateKey, PrivateHead());
}

class ImportTemplates : public ::testing::Test {
 protected:
  void SetUp() override {
    key.modulus = {0xC1, 0x02};
    key.publicExponent = {0x01, 0x00, 0x01};
    key.privateExponent = {0xD0};
    key.prime1 = {0x0B};
    key.prime2 = {0x0D};
    key.exponent1 = {0xE1};
    key.exponent2 = {0xE2};
    key.coefficient = {0xCC};
  }
  RsaComponents key;
};

TEST_F(ImportTemplates, PrivateKeyCarriesExponentAndPrimesOnly) {
  AttributeList privateKey;
  ImportPrivateTemplate(Id(), key, false, &privateKey);
  ExpectTemplate(privateKey, Then(PrivateHead(), {{kPublicExponent, key.publicExponent},
                                                  {kPrime1, key.prime1},
                                                  {kPrime2, key.prime2}}));
}

TEST_F(ImportTemplates, CompletePrivateKeyCarriesEveryComponent) {
  AttributeList privateKey;
  ImportPrivateTemplate(Id(), key, true, &privateKey);
  ExpectTemplate(privateKey, Then(PrivateHead(), {{kModulus, key.modulus},
                                                  {kPublicExponent, key.publicExponent},
                                                  {kPrivateExponent, key.privateExponent},
                                                  {kPrime1, key.prime1},
                                                  {kPrime2, key.prime2},
                                                  {kExponent1, key.exponent1},
                                                  {kExponent2, key.exponent2},
                                                  {kCoefficient, key.coefficient}}));
}

TEST_F(ImportTemplates, PublicKeyCarriesExponentThenModulus) {
  AttributeList publicKey;
  ImportPublicTemplate(Id(), key, &publicKey);
  ExpectTemplate(publicKey,
                 Then(PublicHead(), {{kPublicExponent, key.publicExponent}, {kModulus, key.modulus}}));
}

}  // namespace
}  // namespace nivra::pkcs11
