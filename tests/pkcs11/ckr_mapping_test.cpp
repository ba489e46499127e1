// The one translation from PKCS#11 results to the provider's codes. (The token's refusals that
// the helper injects reach the application through it in the token tests: a locked or wrong PIN,
// device memory, a missing token, an unsupported function and a general error.)
#include <gtest/gtest.h>

#include "pkcs11/ckr_mapping.h"

namespace nivra::pkcs11 {
namespace {

TEST(CkrMapping, EveryListedValueHasItsCode) {
  // Values written out as the published codes, not through the constants under test.
  const struct {
    CK_RV rv;
    uint32_t expected;
  } rows[] = {
      {0x000, 0x00000000u},  // CKR_OK
      {0x001, 0x8010006Eu},  // CKR_CANCEL: SCARD_W_CANCELLED_BY_USER
      {0x002, 0x8009000Eu},  // CKR_HOST_MEMORY: NTE_NO_MEMORY
      {0x003, 87u},          // CKR_SLOT_ID_INVALID: ERROR_INVALID_PARAMETER
      {0x007, 87u},          // CKR_ARGUMENTS_BAD
      {0x020, 0x80090005u},  // CKR_DATA_INVALID: NTE_BAD_DATA
      {0x021, 0x80090005u},  // CKR_DATA_LEN_RANGE
      {0x0A2, 0x8010002Au},  // CKR_PIN_LEN_RANGE: SCARD_E_INVALID_CHV
      {0x101, 0x8010006Fu},  // CKR_USER_NOT_LOGGED_IN: SCARD_W_CARD_NOT_AUTHENTICATED
      {0x150, 234u},         // CKR_BUFFER_TOO_SMALL: ERROR_MORE_DATA
      {0x80000000u, 0x80090020u},  // a vendor-defined value: NTE_FAIL
  };
  for (const auto& row : rows) {
    EXPECT_EQ(MapCkrToError(row.rv), row.expected) << "CK_RV 0x" << std::hex << row.rv;
  }
}

}  // namespace
}  // namespace nivra::pkcs11
