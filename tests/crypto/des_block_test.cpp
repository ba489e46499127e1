// The DES block interface: selectors, key counts, schedule copies and argument errors.
#include <gtest/gtest.h>

#include <cstring>

#include "cipher_test_support.h"
#include "crypto/des.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// Frees a schedule at scope exit.
struct ScheduleOwner {
  DesKeySchedule* s = nullptr;
  ~ScheduleOwner() {
    if (s != nullptr) DesFreeKeySchedule(s);
  }
};

const Bytes kKey1 = Hex("0123456789abcdef");
const Bytes kKey2 = Hex("23456789abcdef01");
const Bytes kKey3 = Hex("456789abcdef0123");
const Bytes kBlock = Hex("5468652071756663");

Bytes Encrypt(const DesKeySchedule* s, const Bytes& in, uint32_t selector, Status* status) {
  Bytes out(8);
  *status = DesEncryptBlock(s, in.data(), out.data(), selector);
  return out;
}

Bytes Decrypt(const DesKeySchedule* s, const Bytes& in, uint32_t selector, Status* status) {
  Bytes out(8);
  *status = DesDecryptBlock(s, in.data(), out.data(), selector);
  return out;
}

// FIPS 81 appendix B example: "Now is t" under 0123456789abcdef gives 3fa40e8a984d4815.
TEST(DesBlock, SingleDesKnownAnswer) {
  ScheduleOwner o;
  ASSERT_EQ(DesKeySetup(kKey1.data(), 8, &o.s), kOk);
  Status st;
  EXPECT_EQ(Encrypt(o.s, Hex("4e6f772069732074"), kDesFullCipher, &st), Hex("3fa40e8a984d4815"));
  EXPECT_EQ(st, kOk);
  EXPECT_EQ(Decrypt(o.s, Hex("3fa40e8a984d4815"), kDesFullCipher, &st), Hex("4e6f772069732074"));
  EXPECT_EQ(st, kOk);
}

TEST(DesBlock, ThreeKeyFullCipherIsEncryptDecryptEncryptOfTheSingleKeys) {
  ScheduleOwner o;
  const Bytes key = Concat(Concat(kKey1, kKey2), kKey3);
  ASSERT_EQ(DesKeySetup(key.data(), key.size(), &o.s), kOk);
  EXPECT_EQ(o.s->keyCount, 3u);
  Status st;
  Bytes expected = Encrypt(o.s, kBlock, kDesKey1, &st);
  expected = Decrypt(o.s, expected, kDesKey2, &st);
  expected = Encrypt(o.s, expected, kDesKey3, &st);
  EXPECT_EQ(Encrypt(o.s, kBlock, kDesFullCipher, &st), expected);
  Bytes back = Decrypt(o.s, expected, kDesKey3, &st);
  back = Encrypt(o.s, back, kDesKey2, &st);
  back = Decrypt(o.s, back, kDesKey1, &st);
  EXPECT_EQ(back, kBlock);
  EXPECT_EQ(Decrypt(o.s, expected, kDesFullCipher, &st), kBlock);
}

TEST(DesBlock, TwoKeyFullCipherReusesK1AsThirdKey) {
  ScheduleOwner two, three;
  const Bytes key2 = Concat(kKey1, kKey2);
  const Bytes key3 = Concat(key2, kKey1);
  ASSERT_EQ(DesKeySetup(key2.data(), key2.size(), &two.s), kOk);
  ASSERT_EQ(DesKeySetup(key3.data(), key3.size(), &three.s), kOk);
  EXPECT_EQ(two.s->keyCount, 2u);
  Status st;
  const Bytes c = Encrypt(two.s, kBlock, kDesFullCipher, &st);
  EXPECT_EQ(c, Encrypt(three.s, kBlock, kDesFullCipher, &st));
  EXPECT_NE(c, Encrypt(two.s, kBlock, kDesKey1, &st));
  EXPECT_EQ(Decrypt(two.s, c, kDesFullCipher, &st), kBlock);
}

TEST(DesBlock, KeyCountFollowsKeyLength) {
  const Bytes key(40, 0x5A);
  for (size_t len : {8u, 15u, 16u, 23u, 24u, 40u}) {
    ScheduleOwner o;
    ASSERT_EQ(DesKeySetup(key.data(), len, &o.s), kOk) << len;
    EXPECT_EQ(o.s->keyCount, len >= 24 ? 3u : len / 8) << len;
  }
  DesKeySchedule* s = nullptr;
  EXPECT_EQ(DesKeySetup(key.data(), 7, &s), kErrInvalidHandle);
  EXPECT_EQ(DesKeySetup(key.data(), 0, &s), kErrInvalidHandle);
  EXPECT_EQ(DesKeySetup(nullptr, 8, &s), kErrNullData);
  EXPECT_EQ(DesKeySetup(key.data(), 8, nullptr), kErrNullData);
  EXPECT_EQ(s, nullptr);
}

TEST(DesBlock, SelectorNamingAMissingKeyIsInvalidHandle) {
  ScheduleOwner one, two;
  const Bytes key2 = Concat(kKey1, kKey2);
  ASSERT_EQ(DesKeySetup(kKey1.data(), 8, &one.s), kOk);
  ASSERT_EQ(DesKeySetup(key2.data(), 16, &two.s), kOk);
  Status st;
  Encrypt(one.s, kBlock, kDesKey2, &st);
  EXPECT_EQ(st, kErrInvalidHandle);
  Decrypt(one.s, kBlock, kDesKey3, &st);
  EXPECT_EQ(st, kErrInvalidHandle);
  Encrypt(two.s, kBlock, kDesKey3, &st);
  EXPECT_EQ(st, kErrInvalidHandle);
  Encrypt(two.s, kBlock, kDesKey2, &st);
  EXPECT_EQ(st, kOk);
}

TEST(DesBlock, UnknownSelectorIsNullDataError) {
  ScheduleOwner o;
  ASSERT_EQ(DesKeySetup(kKey1.data(), 8, &o.s), kOk);
  Bytes out(8, 0xEE);
  EXPECT_EQ(DesEncryptBlock(o.s, kBlock.data(), out.data(), 4), kErrNullData);
  EXPECT_EQ(DesDecryptBlock(o.s, kBlock.data(), out.data(), 0xFFFFFFFFu), kErrNullData);
  EXPECT_EQ(out, Bytes(8, 0xEE));
}

TEST(DesBlock, MissingOrDamagedScheduleIsInvalidHandle) {
  uint8_t out[8];
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
  EXPECT_EQ(DesFreeKeySchedule(nullptr), kErrInvalidHandle);
}

TEST(DesBlock, NullBlockPointersAreNullDataErrors) {
  ScheduleOwner o;
  ASSERT_EQ(DesKeySetup(kKey1.data(), 8, &o.s), kOk);
  uint8_t out[8];
  EXPECT_EQ(DesEncryptBlock(o.s, nullptr, out, 0), kErrNullData);
  EXPECT_EQ(DesDecryptBlock(o.s, kBlock.data(), nullptr, 0), kErrNullData);
}

TEST(DesBlock, InPlaceBlockGivesTheSameResult) {
  ScheduleOwner o;
  const Bytes key = Concat(Concat(kKey1, kKey2), kKey3);
  ASSERT_EQ(DesKeySetup(key.data(), key.size(), &o.s), kOk);
  Status st;
  const Bytes expected = Encrypt(o.s, kBlock, kDesFullCipher, &st);
  Bytes buf = kBlock;
  ASSERT_EQ(DesEncryptBlock(o.s, buf.data(), buf.data(), kDesFullCipher), kOk);
  EXPECT_EQ(buf, expected);
  ASSERT_EQ(DesDecryptBlock(o.s, buf.data(), buf.data(), kDesFullCipher), kOk);
  EXPECT_EQ(buf, kBlock);
}

TEST(DesBlock, CloneIsIndependentAndEquivalent) {
  ScheduleOwner o, copy;
  const Bytes key = Concat(kKey1, kKey2);
  ASSERT_EQ(DesKeySetup(key.data(), key.size(), &o.s), kOk);
  ASSERT_EQ(DesCloneKeySchedule(o.s, &copy.s), kOk);
  ASSERT_NE(copy.s, o.s);
  EXPECT_EQ(copy.s->keyCount, 2u);
  Status st;
  const Bytes expected = Encrypt(o.s, kBlock, kDesFullCipher, &st);
  ASSERT_EQ(DesFreeKeySchedule(o.s), kOk);
  o.s = nullptr;
  EXPECT_EQ(Encrypt(copy.s, kBlock, kDesFullCipher, &st), expected);
  EXPECT_EQ(DesCloneKeySchedule(copy.s, nullptr), kErrNullData);
}

}  // namespace
}  // namespace nivra::testing
