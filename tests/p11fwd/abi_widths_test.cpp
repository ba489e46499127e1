// What no SoftHSM2 answer to the provider reaches: attribute templates inside attributes hold
// native pointers and are answered as unavailable, and a caller's announced capacity does not
// size the native buffer beyond the largest answer. (CK_ULONG values widened for the module and
// narrowed for the caller are proved by every token test that generates a key pair or deletes a
// container: the deletion reads each object's class and key type.)
#include <gtest/gtest.h>

#include <cstring>

#include "tools/p11helper/abi_widths.h"

namespace nivra::p11helper {
namespace {

TEST(AbiQuery, NestedTemplatesAreUnavailableAndBuffersAreCapped) {
  const p11wire::WireAttribute query = {CKA_WRAP_TEMPLATE, true, 64, {}};
  NativeTemplate native = NativeTemplate::ForQuery({query});
  CK_ATTRIBUTE& answered = native.data()[0];  // the module writes one native CK_ATTRIBUTE
  std::memset(answered.pValue, 0x5A, sizeof(CK_ATTRIBUTE));
  answered.ulValueLen = sizeof(CK_ATTRIBUTE);
  uint32_t rv = CKR_OK;
  p11wire::WireTemplate answers = native.Answers({query}, &rv);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].length, p11wire::kWireUnavailable);
  EXPECT_TRUE(answers[0].value.empty());
  EXPECT_EQ(rv, CKR_ATTRIBUTE_TYPE_INVALID);
  NativeTemplate huge = NativeTemplate::ForQuery({{CKA_VALUE, true, ~0u, {}}});
  EXPECT_EQ(huge.data()[0].ulValueLen, kMaxAttributeBuffer);
}

}  // namespace
}  // namespace nivra::p11helper
