// DES on its own: how the block interface's selectors compose the full cipher, key counts,
// selector and argument errors, damaged schedules and in-place blocks; and the
// optional key checks (odd parity, weak and semi-weak keys, the process-wide switch). The full
// cipher is checked against the NIST vectors in des_nist_vectors_test.cpp.
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "crypto/des.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// Frees a schedule at scope exit.
struct Schedule {
  explicit Schedule(const Bytes& key) { EXPECT_EQ(DesKeySetup(key.data(), key.size(), &s), kOk); }
  ~Schedule() {
    if (s != nullptr) DesFreeKeySchedule(s);
  }
  Bytes Run(const Bytes& in, uint32_t selector, bool encrypt, Status expected = kOk) const {
    Bytes out(8, 0xEE);
    const auto op = encrypt ? DesEncryptBlock : DesDecryptBlock;
    EXPECT_EQ(op(s, in.data(), out.data(), selector), expected)
        << "selector " << selector << " encrypt " << encrypt;
    return out;
  }
  DesKeySchedule* s = nullptr;
};

const Bytes kK1 = Hex("0123456789abcdef"), kK2 = Hex("23456789abcdef01"), kK3 = Hex("456789abcdef0123");
const Bytes kBlock = Hex("5468652071756663");

TEST(DesBlock, FullCipherIsEncryptDecryptEncryptOfTheSingleKeys) {
  const Schedule three(Concat(Concat(kK1, kK2), kK3)), two(Concat(kK1, kK2));
  EXPECT_EQ(three.s->keyCount, 3u);
  EXPECT_EQ(two.s->keyCount, 2u);
  const Bytes c3 = three.Run(three.Run(three.Run(kBlock, kDesKey1, true), kDesKey2, false), kDesKey3, true);
  EXPECT_EQ(three.Run(kBlock, kDesFullCipher, true), c3);
  EXPECT_EQ(three.Run(c3, kDesFullCipher, false), kBlock);
  const Bytes c2 = two.Run(two.Run(two.Run(kBlock, kDesKey1, true), kDesKey2, false), kDesKey1, true);
  EXPECT_EQ(two.Run(kBlock, kDesFullCipher, true), c2) << "two keys reuse K1 as the third";
  EXPECT_EQ(two.Run(c2, kDesFullCipher, false), kBlock);
  Bytes buffer = kBlock;  // in place
  ASSERT_EQ(DesEncryptBlock(three.s, buffer.data(), buffer.data(), kDesFullCipher), kOk);
  EXPECT_EQ(buffer, c3);
  ASSERT_EQ(DesDecryptBlock(three.s, buffer.data(), buffer.data(), kDesFullCipher), kOk);
  EXPECT_EQ(buffer, kBlock);
}

TEST(DesBlock, KeyCountFollowsKeyLength) {
  const Bytes key(40, 0x5A);
  for (size_t len : {8u, 15u, 16u, 23u, 24u, 40u}) {
    const Schedule o(Bytes(key.begin(), key.begin() + len));
    ASSERT_NE(o.s, nullptr);
    EXPECT_EQ(o.s->keyCount, len >= 24 ? 3u : len / 8) << len;
  }
  DesKeySchedule* s = nullptr;
  EXPECT_EQ(DesKeySetup(key.data(), 7, &s), kErrInvalidHandle);
  EXPECT_EQ(DesKeySetup(key.data(), 0, &s), kErrInvalidHandle);
  EXPECT_EQ(DesKeySetup(nullptr, 8, &s), kErrNullData);
  EXPECT_EQ(DesKeySetup(key.data(), 8, nullptr), kErrNullData);
  EXPECT_EQ(s, nullptr);
}

TEST(DesBlock, SelectorAndArgumentErrors) {
  const Schedule one(kK1), two(Concat(kK1, kK2));
  one.Run(kBlock, kDesKey2, true, kErrInvalidHandle);  // a key the schedule does not have
  one.Run(kBlock, kDesKey3, false, kErrInvalidHandle);
  two.Run(kBlock, kDesKey3, true, kErrInvalidHandle);
  two.Run(kBlock, kDesKey2, true, kOk);
  EXPECT_EQ(one.Run(kBlock, 4, true, kErrNullData), Bytes(8, 0xEE)) << "unknown selector, nothing written";
  EXPECT_EQ(one.Run(kBlock, 0xFFFFFFFFu, false, kErrNullData), Bytes(8, 0xEE));
  uint8_t out[8];
  EXPECT_EQ(DesEncryptBlock(one.s, nullptr, out, 0), kErrNullData);
  EXPECT_EQ(DesDecryptBlock(one.s, kBlock.data(), nullptr, 0), kErrNullData);
  EXPECT_EQ(DesEncryptBlock(nullptr, kBlock.data(), out, 0), kErrInvalidHandle);
  DesKeySchedule damaged{};
  for (uint32_t count : {0u, 4u, 0xFFFFFFFFu}) {
    damaged.keyCount = count;
    EXPECT_EQ(DesEncryptBlock(&damaged, kBlock.data(), out, 0), kErrInvalidHandle) << count;
    EXPECT_EQ(DesDecryptBlock(&damaged, kBlock.data(), out, 1), kErrInvalidHandle) << count;
    DesKeySchedule* copy = nullptr;
    EXPECT_EQ(DesCloneKeySchedule(&damaged, &copy), kErrInvalidHandle) << count;
    EXPECT_EQ(copy, nullptr);
  }
  DesKeySchedule* copy = nullptr;
  EXPECT_EQ(DesCloneKeySchedule(nullptr, &copy), kErrInvalidHandle);
  EXPECT_EQ(DesCloneKeySchedule(one.s, nullptr), kErrNullData);
  EXPECT_EQ(DesFreeKeySchedule(nullptr), kErrInvalidHandle);
}

const Bytes kGoodKey = Hex("0123456789abcdef");  // every byte has odd parity

TEST(DesKeyChecks, WeakSemiWeakAndParityVerdicts) {
  // The weak and semi-weak keys as listed in the DES guidelines (FIPS 74, 3.6).
  for (const char* weak : {"0101010101010101", "fefefefefefefefe", "e0e0e0e0f1f1f1f1", "1f1f1f1f0e0e0e0e",
                           "01fe01fe01fe01fe", "fe01fe01fe01fe01", "1fe01fe00ef10ef1", "e01fe01ff10ef10e",
                           "01e001e001f101f1", "e001e001f101f101", "1ffe1ffe0efe0efe", "fe1ffe1ffe0efe0e",
                           "011f011f010e010e", "1f011f010e010e01", "e0fee0fef1fef1fe", "fee0fee0fef1fef1"}) {
    EXPECT_EQ(DesCheckKey(Hex(weak).data()), kErrWeakKey) << weak;
  }
  // A weak key one bit from odd parity: parity is checked before weakness.
  EXPECT_EQ(DesCheckKey(Hex("fefefefefefefeff").data()), kErrKeyParity);
  EXPECT_EQ(DesCheckKey(kGoodKey.data()), kOk);
  for (size_t pos = 0; pos < 8; ++pos) {
    for (uint8_t flip : {0x01, 0x80}) {  // the parity bit, or a key bit
      Bytes key = kGoodKey;
      key[pos] ^= flip;
      EXPECT_EQ(DesCheckKey(key.data()), kErrKeyParity) << pos;
    }
  }
}

TEST(DesKeyChecks, CreateRefusesBadKeysOnlyWhenSwitchedOn) {
  const Bytes weakSecond = Concat(kGoodKey, Hex("fe01fe01fe01fe01"));
  const Bytes badParityThird = Concat(Concat(kGoodKey, Hex("fedcba9876543210")), Hex("0123456789abcdee"));
  CipherHandle h = 0;
  EXPECT_FALSE(DesKeyChecksOn());
  for (const Bytes& key : {weakSecond, Bytes(8, 0)}) {
    ASSERT_EQ(CipherCreate(&h, key.data(), key.size()), kOk) << "off by default: any key is taken";
    EXPECT_EQ(CipherDestroy(h), kOk);
  }
  struct KeyChecksOn {  // off again whatever happens
    KeyChecksOn() { DesSetKeyChecks(true); }
    ~KeyChecksOn() { DesSetKeyChecks(false); }
  } on;
  h = 12345;
  EXPECT_EQ(CipherCreate(&h, weakSecond.data(), weakSecond.size()), kErrWeakKey);
  EXPECT_EQ(h, 0u);
  h = 12345;
  EXPECT_EQ(CipherCreateTdes2(&h, weakSecond.data()), kErrWeakKey);
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(CipherCreate(&h, badParityThird.data(), badParityThird.size()), kErrKeyParity);
  // Bytes past the third key are not a key and are not checked.
  const Bytes longKey = Concat(Concat(Concat(kGoodKey, Hex("fedcba9876543210")), kGoodKey), Bytes(8, 0));
  ASSERT_EQ(CipherCreate(&h, longKey.data(), longKey.size()), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

}  // namespace
}  // namespace nivra::testing
