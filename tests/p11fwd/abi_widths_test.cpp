// Conversion of attribute templates and mechanisms between the wire's 32-bit CK_ULONGs and the
// native 64-bit ones, including the attribute size-query protocol.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11helper/abi_widths.h"

namespace nivra::p11helper {
namespace {

using p11wire::WireAttribute;
using p11wire::WireTemplate;
using Bytes = std::vector<uint8_t>;

constexpr auto Value = p11test::ValueAttribute;
constexpr auto Query = p11test::QueryAttribute;

CK_ULONG NativeUlong(const CK_ATTRIBUTE& a, size_t index = 0) {
  CK_ULONG v;
  std::memcpy(&v, static_cast<uint8_t*>(a.pValue) + index * sizeof v, sizeof v);
  return v;
}

// Plays the module: writes `value` into a query attribute following PKCS#11's rules.
void ModuleAnswers(CK_ATTRIBUTE& a, const Bytes& value) {
  if (!a.pValue) {
    a.ulValueLen = value.size();
  } else if (a.ulValueLen >= value.size()) {
    if (!value.empty()) std::memcpy(a.pValue, value.data(), value.size());
    a.ulValueLen = value.size();
  } else {
    a.ulValueLen = CK_UNAVAILABLE_INFORMATION;
  }
}

Bytes NativeBytes(CK_ULONG v) {
  Bytes b(sizeof v);
  std::memcpy(b.data(), &v, sizeof v);
  return b;
}

TEST(AbiUlongAttributes, ClassKeyTypeAndSizesAreUlongsButLabelsAreNot) {
  for (CK_ATTRIBUTE_TYPE t : {CKA_CLASS, CKA_KEY_TYPE, CKA_CERTIFICATE_TYPE, CKA_MODULUS_BITS,
                              CKA_VALUE_LEN, CKA_ALLOWED_MECHANISMS})
    EXPECT_TRUE(IsUlongAttribute(t)) << t;
  for (CK_ATTRIBUTE_TYPE t : {CKA_LABEL, CKA_ID, CKA_TOKEN, CKA_MODULUS, CKA_PUBLIC_EXPONENT,
                              CKA_VALUE, CKA_APPLICATION})
    EXPECT_FALSE(IsUlongAttribute(t)) << t;
}

TEST(AbiUlongAttributes, NarrowingSaturatesToUnavailable) {
  EXPECT_EQ(NarrowUlong(0), 0u);
  EXPECT_EQ(NarrowUlong(0xFFFFFFFEul), 0xFFFFFFFEu);
  EXPECT_EQ(NarrowUlong(CK_UNAVAILABLE_INFORMATION), 0xFFFFFFFFu);
  EXPECT_EQ(NarrowUlong(0x100000000ul), 0xFFFFFFFFu);
  EXPECT_TRUE(FitsWire(0xFFFFFFFFul));
  EXPECT_FALSE(FitsWire(0x100000000ul));
}

TEST(AbiTemplateValues, UlongValuesWidenToEightBytes) {
  WireTemplate wire = {Value(CKA_CLASS, {0x01, 0x00, 0x00, 0x80}),
                       Value(CKA_MODULUS_BITS, {0x00, 0x08, 0x00, 0x00}),
                       Value(CKA_LABEL, {'a', 'b', 'c', 'd'}),
                       Value(CKA_TOKEN, {CK_TRUE})};
  NativeTemplate native = NativeTemplate::FromValues(wire);
  ASSERT_EQ(native.size(), 4u);
  CK_ATTRIBUTE* a = native.data();
  EXPECT_EQ(a[0].ulValueLen, sizeof(CK_ULONG));
  EXPECT_EQ(NativeUlong(a[0]), 0x80000001ul);
  EXPECT_EQ(NativeUlong(a[1]), 2048ul);
  EXPECT_EQ(a[2].ulValueLen, 4u);  // a 4-byte label stays 4 bytes
  EXPECT_EQ(std::memcmp(a[2].pValue, "abcd", 4), 0);
  EXPECT_EQ(a[3].ulValueLen, 1u);
}

TEST(AbiTemplateValues, ArrayOfMechanismsWidensEachElement) {
  WireTemplate wire = {Value(CKA_ALLOWED_MECHANISMS, {0x03, 0, 0, 0, 0x01, 0, 0, 0})};
  NativeTemplate native = NativeTemplate::FromValues(wire);
  ASSERT_EQ(native.data()[0].ulValueLen, 2 * sizeof(CK_ULONG));
  EXPECT_EQ(NativeUlong(native.data()[0], 0), CKM_RSA_X_509);
  EXPECT_EQ(NativeUlong(native.data()[0], 1), CKM_RSA_PKCS);
}

TEST(AbiTemplateValues, EmptyAndAbsentValuesKeepTheirMeaning) {
  WireAttribute empty = Value(CKA_LABEL, {});
  WireAttribute absent = Query(CKA_ID, false, 7);
  WireAttribute oddClass = Value(CKA_CLASS, {1, 2, 3});  // not a CK_ULONG: left for the module to refuse
  NativeTemplate native = NativeTemplate::FromValues({empty, absent, oddClass});
  CK_ATTRIBUTE* a = native.data();
  EXPECT_NE(a[0].pValue, nullptr);
  EXPECT_EQ(a[0].ulValueLen, 0u);
  EXPECT_EQ(a[1].pValue, nullptr);
  EXPECT_EQ(a[1].ulValueLen, 7u);
  EXPECT_EQ(a[2].ulValueLen, 3u);
}

TEST(AbiQuery, SizeQueryReportsWireWidth) {
  WireTemplate query = {Query(CKA_CLASS, false, 0), Query(CKA_MODULUS, false, 0xFFFFFFFF)};
  NativeTemplate native = NativeTemplate::ForQuery(query);
  EXPECT_EQ(native.data()[0].pValue, nullptr);
  ModuleAnswers(native.data()[0], NativeBytes(CKO_PUBLIC_KEY));
  ModuleAnswers(native.data()[1], Bytes(256, 0xAB));
  uint32_t rv = CKR_OK;
  WireTemplate answers = native.Answers(query, &rv);
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_EQ(answers[0].length, 4u);  // 8 native bytes are 4 for the caller
  EXPECT_TRUE(answers[0].value.empty());
  EXPECT_EQ(answers[1].length, 256u);
  EXPECT_TRUE(answers[1].value.empty());
}

TEST(AbiQuery, UlongValueNarrowsIntoFourByteBuffer) {
  WireTemplate query = {Query(CKA_KEY_TYPE, true, 4), Query(CKA_MODULUS_BITS, true, 6)};
  NativeTemplate native = NativeTemplate::ForQuery(query);
  EXPECT_EQ(native.data()[0].ulValueLen, 8u);  // room for the native width
  EXPECT_EQ(native.data()[1].ulValueLen, 12u);
  ModuleAnswers(native.data()[0], NativeBytes(CKK_RSA));
  ModuleAnswers(native.data()[1], NativeBytes(1024));
  uint32_t rv = CKR_OK;
  WireTemplate answers = native.Answers(query, &rv);
  EXPECT_EQ(answers[0].length, 4u);
  EXPECT_EQ(answers[0].value, (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(answers[1].length, 4u);
  EXPECT_EQ(answers[1].value, (Bytes{0x00, 0x04, 0, 0}));
}

TEST(AbiQuery, UlongBufferOfThreeBytesIsTooSmall) {
  WireTemplate query = {Query(CKA_CLASS, true, 3)};
  NativeTemplate native = NativeTemplate::ForQuery(query);
  ModuleAnswers(native.data()[0], NativeBytes(CKO_PRIVATE_KEY));
  uint32_t rv = CKR_OK;
  WireTemplate answers = native.Answers(query, &rv);
  EXPECT_EQ(answers[0].length, p11wire::kWireUnavailable);
  EXPECT_TRUE(answers[0].value.empty());
}

TEST(AbiQuery, ByteValuesFitExactlyOrNotAtAll) {
  WireTemplate query = {Query(CKA_LABEL, true, 5), Query(CKA_ID, true, 4), Query(CKA_VALUE, true, 0)};
  NativeTemplate native = NativeTemplate::ForQuery(query);
  ModuleAnswers(native.data()[0], {'h', 'e', 'l', 'l', 'o'});
  ModuleAnswers(native.data()[1], {'h', 'e', 'l', 'l', 'o'});
  ModuleAnswers(native.data()[2], {});
  uint32_t rv = CKR_OK;
  WireTemplate answers = native.Answers(query, &rv);
  EXPECT_EQ(answers[0].value, (Bytes{'h', 'e', 'l', 'l', 'o'}));
  EXPECT_EQ(answers[1].length, p11wire::kWireUnavailable);
  EXPECT_EQ(answers[2].length, 0u);
  EXPECT_TRUE(answers[2].value.empty());
}

TEST(AbiQuery, AttributeTemplatesNeverCrossTheLink) {
  // CKA_WRAP_TEMPLATE holds native CK_ATTRIBUTEs with native pointers.
  WireTemplate query = {Query(CKA_WRAP_TEMPLATE, true, 64), Query(CKA_ALLOWED_MECHANISMS, true, 4)};
  NativeTemplate native = NativeTemplate::ForQuery(query);
  ModuleAnswers(native.data()[0], Bytes(48, 0x5A));
  ModuleAnswers(native.data()[1], NativeBytes(CKM_RSA_X_509));
  uint32_t rv = CKR_OK;
  WireTemplate answers = native.Answers(query, &rv);
  EXPECT_EQ(answers[0].length, p11wire::kWireUnavailable);
  EXPECT_TRUE(answers[0].value.empty());
  EXPECT_EQ(answers[1].value, (Bytes{0x03, 0, 0, 0}));
  EXPECT_EQ(rv, CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST(AbiQuery, HugeCapacityIsBoundedNatively) {
  WireTemplate query = {Query(CKA_VALUE, true, 0xFFFFFFF0u)};
  NativeTemplate native = NativeTemplate::ForQuery(query);
  EXPECT_EQ(native.data()[0].ulValueLen, kMaxAttributeBuffer);
}

TEST(AbiMechanism, PssParameterWidensAndPlainBytesPass) {
  p11wire::WireMechanism pss;
  pss.type = CKM_RSA_PKCS_PSS;
  pss.parameter.present = true;
  pss.parameter.bytes = {0x50, 0x02, 0, 0, 0x02, 0, 0, 0, 0x20, 0, 0, 0};
  NativeMechanism native(pss);
  ASSERT_EQ(native.get()->ulParameterLen, sizeof(CK_RSA_PKCS_PSS_PARAMS));
  auto* params = static_cast<CK_RSA_PKCS_PSS_PARAMS*>(native.get()->pParameter);
  EXPECT_EQ(params->hashAlg, CKM_SHA256);
  EXPECT_EQ(params->mgf, CKG_MGF1_SHA256);
  EXPECT_EQ(params->sLen, 32u);

  p11wire::WireMechanism raw;
  raw.type = CKM_RSA_X_509;
  NativeMechanism none(raw);
  EXPECT_EQ(none.get()->mechanism, CKM_RSA_X_509);
  EXPECT_EQ(none.get()->pParameter, nullptr);
  EXPECT_EQ(none.get()->ulParameterLen, 0u);
}

}  // namespace
}  // namespace nivra::p11helper
