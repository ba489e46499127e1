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

// Template values and answers whose conversion SoftHSM2 never needs through the provider (which
// generates keys and creates objects with 4-byte classes, key types and bit counts): arrays of
// CK_ULONGs, values of another size left for the module to refuse, empty values, size queries, and
// CK_ULONGs over 32 bits, which saturate rather than wrap.
TEST(AbiTemplateValues, ArraysWidenOddSizesAreCopiedAndWideValuesSaturate) {
  NativeTemplate native = NativeTemplate::FromValues(
      {Value(CKA_ALLOWED_MECHANISMS, {0x03, 0, 0, 0, 0x01, 0, 0, 0}), Value(CKA_CLASS, {1, 2, 3}),
       Value(CKA_LABEL, {}), Query(CKA_ID, false, 7)});
  ASSERT_EQ(native.size(), 4u);
  CK_ATTRIBUTE* a = native.data();
  EXPECT_EQ(Held(a[0]), NativeBytes({CKM_RSA_X_509, CKM_RSA_PKCS}));
  EXPECT_EQ(Held(a[1]), (Bytes{1, 2, 3}));
  EXPECT_NE(a[2].pValue, nullptr);  // an empty value is still a value
  EXPECT_EQ(a[2].ulValueLen, 0u);
  EXPECT_EQ(a[3].pValue, nullptr);
  EXPECT_EQ(a[3].ulValueLen, 7u);
  EXPECT_EQ(NarrowUlong(0xFFFFFFFEul), 0xFFFFFFFEu);
  EXPECT_EQ(NarrowUlong(0x100000000ul), 0xFFFFFFFFu);
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
      // (Answers SoftHSM2 gives for the provider's own reads are proved by the token tests.)
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

TEST(AbiMechanism, PssParameterWidens) {
  NativeMechanism native({CKM_RSA_PKCS_PSS, {true, {0x50, 0x02, 0, 0, 0x02, 0, 0, 0, 0x20, 0, 0, 0}}});
  ASSERT_EQ(native.get()->ulParameterLen, sizeof(CK_RSA_PKCS_PSS_PARAMS));
  auto* params = static_cast<CK_RSA_PKCS_PSS_PARAMS*>(native.get()->pParameter);
  EXPECT_EQ(params->hashAlg, CKM_SHA256);
  EXPECT_EQ(params->mgf, CKG_MGF1_SHA256);
  EXPECT_EQ(params->sLen, 32u);
}

}  // namespace
}  // namespace nivra::p11helper
