// The one translation from PKCS#11 results to the provider's codes.
#include <gtest/gtest.h>

#include "pkcs11/ckr_mapping.h"

namespace nivra::pkcs11 {
namespace {

struct Row {
  CK_RV rv;
  uint32_t expected;
};

// Values written out as the published codes, not through the constants under test.
const Row kRows[] = {
    {0x000, 0x00000000u},  // CKR_OK
    {0x001, 0x8010006Eu},  // CKR_CANCEL: SCARD_W_CANCELLED_BY_USER
    {0x002, 0x8009000Eu},  // CKR_HOST_MEMORY: NTE_NO_MEMORY
    {0x031, 0x8009000Eu},  // CKR_DEVICE_MEMORY
    {0x003, 87u},          // CKR_SLOT_ID_INVALID: ERROR_INVALID_PARAMETER
    {0x007, 87u},          // CKR_ARGUMENTS_BAD
    {0x020, 0x80090005u},  // CKR_DATA_INVALID: NTE_BAD_DATA
    {0x021, 0x80090005u},  // CKR_DATA_LEN_RANGE
    {0x054, 0x80090029u},  // CKR_FUNCTION_NOT_SUPPORTED: NTE_NOT_SUPPORTED
    {0x0A0, 0x8010002Au},  // CKR_PIN_INCORRECT: SCARD_E_INVALID_CHV
    {0x0A2, 0x8010002Au},  // CKR_PIN_LEN_RANGE
    {0x0A4, 0x8010006Cu},  // CKR_PIN_LOCKED: SCARD_W_CHV_BLOCKED
    {0x0E0, 0x8010000Du},  // CKR_TOKEN_NOT_PRESENT: SCARD_E_UNKNOWN_CARD
    {0x101, 0x8010006Fu},  // CKR_USER_NOT_LOGGED_IN: SCARD_W_CARD_NOT_AUTHENTICATED
    {0x150, 234u},         // CKR_BUFFER_TOO_SMALL: ERROR_MORE_DATA
};

TEST(CkrMapping, EveryListedValueHasItsCode) {
  for (const Row& row : kRows) {
    EXPECT_EQ(MapCkrToError(row.rv), row.expected) << "CK_RV 0x" << std::hex << row.rv;
  }
}

TEST(CkrMapping, NeighboursOfListedValuesAndUnknownValuesAreNteFail) {
  // Values next to listed ones, the login-related values the PIN dialog maps on its own, and
  // vendor-defined values.
  const CK_RV others[] = {0x005, 0x006, 0x030, 0x032, 0x053, 0x0A1, 0x0A3, 0x0A5,
                          0x0B3, 0x0E1, 0x100, 0x102, 0x14F, 0x151, 0x190, 0x191,
                          0x80000000u, 0xFFFFFFFFu};
  for (CK_RV rv : others) {
    EXPECT_EQ(MapCkrToError(rv), 0x80090020u) << "CK_RV 0x" << std::hex << rv;
  }
}

}  // namespace
}  // namespace nivra::pkcs11
