// What OpenSSL cannot reach in DES and TDEA (whose blocks, modes and MACs are cross-checked
// against OpenSSL in cipher_openssl_test.cpp): the block interface's key counts for odd key
// lengths and its selector errors, and the optional key checks' order and process-wide switch
// (their verdicts are checked against OpenSSL too).
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "crypto/des.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kK1 = Hex("0123456789abcdef");
const Bytes kBlock = Hex("5468652071756663");

// The framework uses the full cipher and the first key alone (both checked against OpenSSL);
// unknown selectors and keys the schedule lacks are refused and write nothing.
TEST(DesBlock, KeyCountsAndSelectorErrors) {
  DesKeySchedule* s = nullptr;
  Bytes out;
  const Bytes longKey(40, 0x5A);
  for (size_t len : {8u, 15u, 16u, 23u, 24u, 40u}) {  // a key the schedule does not have is refused
    ASSERT_EQ(DesKeySetup(longKey.data(), len, &s), kOk);
    EXPECT_EQ(s->keyCount, len >= 24 ? 3u : len / 8) << len;
    out.assign(8, 0xEE);
    EXPECT_EQ(DesEncryptBlock(s, kBlock.data(), out.data(), 4), kErrNullData);
    EXPECT_EQ(DesDecryptBlock(s, kBlock.data(), out.data(), 0xFFFFFFFFu), kErrNullData);
    EXPECT_EQ(out, Bytes(8, 0xEE)) << "unknown selector, nothing written";
    EXPECT_EQ(DesEncryptBlock(s, kBlock.data(), out.data(), kDesKey2),
              len < 16 ? kErrInvalidHandle : kOk) << len;
    EXPECT_EQ(DesDecryptBlock(s, kBlock.data(), out.data(), kDesKey3),
              len < 24 ? kErrInvalidHandle : kOk) << len;
    DesFreeKeySchedule(s);
  }
  s = nullptr;
  EXPECT_EQ(DesKeySetup(longKey.data(), 7, &s), kErrInvalidHandle);
  EXPECT_EQ(s, nullptr);
}

// Off by default; when on, every one of the (up to three) keys is checked, parity before
// weakness, and bytes past the third key are not a key.
TEST(DesKeyChecks, CreateRefusesBadKeysOnlyWhenSwitchedOn) {
  const Bytes weakSecond = Concat(kK1, Hex("fe01fe01fe01fe01"));
  const Bytes badParityThird = Concat(Concat(kK1, Hex("fedcba9876543210")), Hex("0123456789abcdee"));
  CipherHandle h = 0;
  EXPECT_FALSE(DesKeyChecksOn());
  ASSERT_EQ(CipherCreate(&h, weakSecond.data(), weakSecond.size()), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
  EXPECT_EQ(DesCheckKey(Hex("fefefefefefefeff").data()), kErrKeyParity) << "a weak key one bit off";
  struct KeyChecksOn {  // off again whatever happens
    KeyChecksOn() { DesSetKeyChecks(true); }
    ~KeyChecksOn() { DesSetKeyChecks(false); }
  } on;
  h = 12345;
  EXPECT_EQ(CipherCreate(&h, weakSecond.data(), weakSecond.size()), kErrWeakKey);
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(CipherCreateTdes2(&h, weakSecond.data()), kErrWeakKey);
  EXPECT_EQ(CipherCreate(&h, badParityThird.data(), badParityThird.size()), kErrKeyParity);
  const Bytes longKey = Concat(Concat(Concat(kK1, Hex("fedcba9876543210")), kK1), Bytes(8, 0));
  ASSERT_EQ(CipherCreate(&h, longKey.data(), longKey.size()), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

}  // namespace
}  // namespace nivra::testing
