// The first template of an imported private key: exponent and primes only, for tokens that derive
// the rest. (Generated pairs and the complete imported key are checked on SoftHSM2 itself.)
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
                            kKeyType = 0x100, kSensitive = 0x103, kDecrypt = 0x105, kSign = 0x108,
                            kPublicExponent = 0x122, kPrime1 = 0x124, kPrime2 = 0x125;

TEST(ImportTemplates, FirstPrivateKeyTemplateCarriesExponentAndPrimesOnly) {
  RsaComponents key;
  key.modulus = {0xC1, 0x02};
  key.publicExponent = {0x01, 0x00, 0x01};
  key.privateExponent = {0xD0};
  key.prime1 = {0x0B};
  key.prime2 = {0x0D};
  key.exponent1 = {0xE1};
  key.exponent2 = {0xE2};
  key.coefficient = {0xCC};
  AttributeList privateKey;
  ImportPrivateTemplate(Id(), key, false, &privateKey);
  ExpectTemplate(privateKey, {{kClass, U32(3)},
                              {kId_, IdBytes()},
                              {kToken, kTrueByte},
                              {kKeyType, U32(0)},
                              {kSensitive, kTrueByte},
                              {kSign, kTrueByte},
                              {kDecrypt, kTrueByte},
                              {kPrivate, kTrueByte},
                              {kPublicExponent, key.publicExponent},
                              {kPrime1, key.prime1},
                              {kPrime2, key.prime2}});
}

}  // namespace
}  // namespace nivra::pkcs11
