// The optional DES key checks: odd parity, weak and semi-weak keys, and the process-wide switch.
#include <gtest/gtest.h>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "crypto/des.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// Turns the checks on for one test and off again whatever happens.
struct KeyChecksOn {
  KeyChecksOn() { DesSetKeyChecks(true); }
  ~KeyChecksOn() { DesSetKeyChecks(false); }
};

// The weak and semi-weak keys as listed in the DES guidelines (FIPS 74, 3.6).
const char* const kWeakAndSemiWeak[] = {
    "0101010101010101", "fefefefefefefefe", "e0e0e0e0f1f1f1f1", "1f1f1f1f0e0e0e0e",
    "01fe01fe01fe01fe", "fe01fe01fe01fe01", "1fe01fe00ef10ef1", "e01fe01ff10ef10e",
    "01e001e001f101f1", "e001e001f101f101", "1ffe1ffe0efe0efe", "fe1ffe1ffe0efe0e",
    "011f011f010e010e", "1f011f010e010e01", "e0fee0fef1fef1fe", "fee0fee0fef1fef1",
};

const Bytes kGoodKey = Hex("0123456789abcdef");  // every byte has odd parity

TEST(DesKeyChecks, OffByDefaultSoAnyKeyIsAccepted) {
  EXPECT_FALSE(DesKeyChecksOn());
  const Bytes weak = Hex(kWeakAndSemiWeak[0]);
  const Bytes evenParity = Hex("0000000000000000");
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreate(&h, weak.data(), weak.size()), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
  ASSERT_EQ(CipherCreate(&h, evenParity.data(), evenParity.size()), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

TEST(DesKeyChecks, EveryWeakAndSemiWeakKeyIsRefused) {
  for (const char* text : kWeakAndSemiWeak) {
    EXPECT_EQ(DesCheckKey(Hex(text).data()), kErrWeakKey) << text;
  }
  EXPECT_EQ(DesCheckKey(kGoodKey.data()), kOk);
}

TEST(DesKeyChecks, KeysNearAWeakKeyPass) {
  // One byte away from a weak key, parity still odd: not in the table.
  EXPECT_EQ(DesCheckKey(Hex("0101010101010102").data()), kOk);
  EXPECT_EQ(DesCheckKey(Hex("0101010101010107").data()), kOk);
  EXPECT_EQ(DesCheckKey(Hex("fefefefefefefef1").data()), kOk);
}

TEST(DesKeyChecks, EachByteNeedsOddParity) {
  for (size_t pos = 0; pos < 8; ++pos) {
    Bytes key = kGoodKey;
    key[pos] ^= 0x01;  // flips the parity bit only
    EXPECT_EQ(DesCheckKey(key.data()), kErrKeyParity) << pos;
    key = kGoodKey;
    key[pos] ^= 0x80;  // flips a key bit, parity now even
    EXPECT_EQ(DesCheckKey(key.data()), kErrKeyParity) << pos;
  }
}

TEST(DesKeyChecks, ParityIsCheckedBeforeWeakness) {
  Bytes key = Hex(kWeakAndSemiWeak[1]);
  key[7] = 0xFF;  // even parity
  EXPECT_EQ(DesCheckKey(key.data()), kErrKeyParity);
}

TEST(DesKeyChecks, CreateRefusesBadKeysWhenOnAndClearsTheHandle) {
  KeyChecksOn on;
  const Bytes weakSecond = Concat(kGoodKey, Hex(kWeakAndSemiWeak[5]));
  const Bytes badParityThird = Concat(Concat(kGoodKey, Hex("fedcba9876543210")), Hex("0123456789abcdee"));
  CipherHandle h = 12345;
  EXPECT_EQ(CipherCreate(&h, weakSecond.data(), weakSecond.size()), kErrWeakKey);
  EXPECT_EQ(h, 0u);
  h = 12345;
  EXPECT_EQ(CipherCreateTdes2(&h, weakSecond.data()), kErrWeakKey);
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(CipherCreate(&h, badParityThird.data(), badParityThird.size()), kErrKeyParity);
  EXPECT_EQ(h, 0u);
  // Bytes past the third key are not a key and are not checked.
  const Bytes longKey = Concat(Concat(Concat(kGoodKey, Hex("fedcba9876543210")), kGoodKey), Bytes(8, 0));
  ASSERT_EQ(CipherCreate(&h, longKey.data(), longKey.size()), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

}  // namespace
}  // namespace nivra::testing
