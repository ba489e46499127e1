// Answers to attribute queries at the caller's 32-bit CK_ULONG width, with the size-query
// protocol. (Template values the provider sends are converted for SoftHSM2 in every token test.)
#include <gtest/gtest.h>

#include <cstring>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11helper/abi_widths.h"

namespace nivra::p11helper {
namespace {

using p11test::Bytes;
using p11wire::WireAttribute;
constexpr auto Query = p11test::QueryAttribute;

Bytes NativeBytes(std::initializer_list<CK_ULONG> values) {
  Bytes b(values.size() * sizeof(CK_ULONG));
  std::memcpy(b.data(), values.begin(), b.size());
  return b;
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

}  // namespace
}  // namespace nivra::p11helper
