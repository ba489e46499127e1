// Conversion of attribute templates and mechanisms between the wire's 32-bit CK_ULONGs and the
// native 64-bit ones, including the attribute size-query protocol.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11helper/abi_widths.h"

namespace nivra::p11helper {
namespace {

using p11test::Bytes;
using p11wire::WireAttribute;
constexpr auto Value = p11test::ValueAttribute;
constexpr auto Query = p11test::QueryAttribute;

Bytes NativeBytes(std::initializer_list<CK_ULONG> values) {
  Bytes b(values.size() * sizeof(CK_ULONG));
  std::memcpy(b.data(), values.begin(), b.size());
  return b;
}

Bytes Held(const CK_ATTRIBUTE& a) {
  const uint8_t* p = static_cast<const uint8_t*>(a.pValue);
  return Bytes(p, p + a.ulValueLen);
}

// Values no module returns: a CK_ULONG over 32 bits saturates rather than wrapping.
TEST(AbiUlongAttributes, WideValuesSaturate) {
  EXPECT_EQ(NarrowUlong(0xFFFFFFFEul), 0xFFFFFFFEu);
  EXPECT_EQ(NarrowUlong(0x100000000ul), 0xFFFFFFFFu);
}

TEST(AbiTemplateValues, UlongValuesWidenAndOthersAreCopied) {
  NativeTemplate native = NativeTemplate::FromValues(
      {Value(CKA_CLASS, {0x01, 0x00, 0x00, 0x80}), Value(CKA_MODULUS_BITS, {0x00, 0x08, 0, 0}),
       Value(CKA_ALLOWED_MECHANISMS, {0x03, 0, 0, 0, 0x01, 0, 0, 0}),
       Value(CKA_LABEL, {'a', 'b', 'c', 'd'}), Value(CKA_TOKEN, {CK_TRUE}),
       Value(CKA_CLASS, {1, 2, 3}),  // not a CK_ULONG: left for the module to refuse
       Value(CKA_LABEL, {}), Query(CKA_ID, false, 7)});
  ASSERT_EQ(native.size(), 8u);
  CK_ATTRIBUTE* a = native.data();
  EXPECT_EQ(Held(a[0]), NativeBytes({0x80000001ul}));
  EXPECT_EQ(Held(a[1]), NativeBytes({2048}));
  EXPECT_EQ(Held(a[2]), NativeBytes({CKM_RSA_X_509, CKM_RSA_PKCS}));
  EXPECT_EQ(Held(a[3]), (Bytes{'a', 'b', 'c', 'd'}));
  EXPECT_EQ(Held(a[4]), Bytes{CK_TRUE});
  EXPECT_EQ(Held(a[5]), (Bytes{1, 2, 3}));
  EXPECT_NE(a[6].pValue, nullptr);  // an empty value is still a value
  EXPECT_EQ(a[6].ulValueLen, 0u);
  EXPECT_EQ(a[7].pValue, nullptr);
  EXPECT_EQ(a[7].ulValueLen, 7u);
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

TEST(AbiQuery, AnswersHaveTheCallersWidthAndFitItsBuffer) {
  constexpr uint32_t kNone = p11wire::kWireUnavailable;
  struct Case {
    WireAttribute query;
    Bytes held;  // the value the module holds, in native form
    uint32_t length;
    Bytes value;
    uint32_t rv;
  };
  const Case cases[] = {
      // (Answers SoftHSM2 gives through the helper are proved in helper_objects_test.cpp.)
      {Query(CKA_MODULUS_BITS, true, 6), NativeBytes({1024}), 4, {0x00, 0x04, 0, 0}, CKR_OK},
      {Query(CKA_ALLOWED_MECHANISMS, true, 4), NativeBytes({CKM_RSA_X_509}), 4, {3, 0, 0, 0},
       CKR_OK},
      {Query(CKA_VALUE, true, 0), {}, 0, {}, CKR_OK},
      // Attribute templates hold native CK_ATTRIBUTEs with native pointers.
      {Query(CKA_WRAP_TEMPLATE, true, 64), Bytes(48, 0x5A), kNone, {}, CKR_ATTRIBUTE_TYPE_INVALID},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query.type);
    NativeTemplate native = NativeTemplate::ForQuery({c.query});
    ModuleAnswers(native.data()[0], c.held);
    uint32_t rv = CKR_OK;
    p11wire::WireTemplate answers = native.Answers({c.query}, &rv);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].length, c.length);
    EXPECT_EQ(answers[0].value, c.value);
    EXPECT_EQ(rv, c.rv);
  }
  NativeTemplate huge = NativeTemplate::ForQuery({Query(CKA_VALUE, true, 0xFFFFFFF0u)});
  EXPECT_EQ(huge.data()[0].ulValueLen, kMaxAttributeBuffer);
}

TEST(AbiMechanism, PssParameterWidensAndAbsentParameterStaysNull) {
  NativeMechanism native({CKM_RSA_PKCS_PSS, {true, {0x50, 0x02, 0, 0, 0x02, 0, 0, 0, 0x20, 0, 0, 0}}});
  ASSERT_EQ(native.get()->ulParameterLen, sizeof(CK_RSA_PKCS_PSS_PARAMS));
  auto* params = static_cast<CK_RSA_PKCS_PSS_PARAMS*>(native.get()->pParameter);
  EXPECT_EQ(params->hashAlg, CKM_SHA256);
  EXPECT_EQ(params->mgf, CKG_MGF1_SHA256);
  EXPECT_EQ(params->sLen, 32u);

  NativeMechanism none({CKM_RSA_X_509, {}});
  EXPECT_EQ(none.get()->mechanism, CKM_RSA_X_509);
  EXPECT_EQ(none.get()->pParameter, nullptr);
  EXPECT_EQ(none.get()->ulParameterLen, 0u);
}

}  // namespace
}  // namespace nivra::p11helper
