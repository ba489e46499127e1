// DES and TDEA against the NIST CAVS known-answer (variable key and text, permutation and
// substitution tables) and multi-block message tests, ECB and CBC, in both directions, through the
// cipher framework; every record with the key as three 8-byte keys, and records whose keys repeat
// also in their short form (two-key TDEA, single DES). Then what the vectors and OpenSSL cannot
// reach: the block interface's key selectors, key counts of odd key lengths, selector and argument
// errors, damaged schedules, and the optional key checks' order and process-wide switch (their
// verdicts are checked against OpenSSL in cipher_openssl_test.cpp).
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "crypto/des.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kK1 = Hex("0123456789abcdef"), kK2 = Hex("23456789abcdef01"), kK3 = Hex("456789abcdef0123");
const Bytes kBlock = Hex("5468652071756663");

// The full cipher (checked by the vectors) is E(K3) D(K2) E(K1), so the single-key selectors must
// compose it; in place as well. Unknown selectors and keys the schedule lacks write nothing.
TEST(DesBlock, SelectorsComposeTheFullCipherAndErrors) {
  DesKeySchedule* s = nullptr;
  const Bytes key = Concat(Concat(kK1, kK2), kK3);
  ASSERT_EQ(DesKeySetup(key.data(), key.size(), &s), kOk);
  Bytes x = kBlock, full(8);
  ASSERT_EQ(DesEncryptBlock(s, x.data(), x.data(), kDesKey1), kOk);
  ASSERT_EQ(DesDecryptBlock(s, x.data(), x.data(), kDesKey2), kOk);
  ASSERT_EQ(DesEncryptBlock(s, x.data(), x.data(), kDesKey3), kOk);
  ASSERT_EQ(DesEncryptBlock(s, kBlock.data(), full.data(), kDesFullCipher), kOk);
  EXPECT_EQ(x, full);
  ASSERT_EQ(DesDecryptBlock(s, x.data(), x.data(), kDesFullCipher), kOk);
  EXPECT_EQ(x, kBlock);
  Bytes out(8, 0xEE);
  EXPECT_EQ(DesEncryptBlock(s, kBlock.data(), out.data(), 4), kErrNullData);
  EXPECT_EQ(DesDecryptBlock(s, kBlock.data(), out.data(), 0xFFFFFFFFu), kErrNullData);
  EXPECT_EQ(out, Bytes(8, 0xEE)) << "unknown selector, nothing written";
  EXPECT_EQ(DesEncryptBlock(s, nullptr, out.data(), 0), kErrNullData);
  EXPECT_EQ(DesDecryptBlock(s, kBlock.data(), nullptr, 0), kErrNullData);
  EXPECT_EQ(DesEncryptBlock(nullptr, kBlock.data(), out.data(), 0), kErrInvalidHandle);
  DesFreeKeySchedule(s);
  const Bytes longKey(40, 0x5A);
  for (size_t len : {8u, 15u, 16u, 23u, 24u, 40u}) {  // a key the schedule does not have is refused
    ASSERT_EQ(DesKeySetup(longKey.data(), len, &s), kOk);
    EXPECT_EQ(s->keyCount, len >= 24 ? 3u : len / 8) << len;
    EXPECT_EQ(DesEncryptBlock(s, kBlock.data(), out.data(), kDesKey2), len < 16 ? kErrInvalidHandle : kOk) << len;
    EXPECT_EQ(DesDecryptBlock(s, kBlock.data(), out.data(), kDesKey3), len < 24 ? kErrInvalidHandle : kOk) << len;
    DesFreeKeySchedule(s);
  }
  s = nullptr;
  EXPECT_EQ(DesKeySetup(longKey.data(), 7, &s), kErrInvalidHandle);
  EXPECT_EQ(DesKeySetup(longKey.data(), 0, &s), kErrInvalidHandle);
  EXPECT_EQ(DesKeySetup(nullptr, 8, &s), kErrNullData);
  EXPECT_EQ(DesKeySetup(longKey.data(), 8, nullptr), kErrNullData);
  EXPECT_EQ(s, nullptr);
}

TEST(DesBlock, DamagedSchedulesAreRefused) {
  DesKeySchedule damaged{};
  uint8_t out[8];
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

// The key forms a record can be checked under: the full 24 bytes, and the shorter forms that mean
// the same cipher.
std::vector<Bytes> KeyForms(const RspRecord& r) {
  if (r.count("KEYs")) {
    const Bytes k = Hex(r.at("KEYs"));
    return {Concat(Concat(k, k), k), Concat(k, k), k};
  }
  const Bytes k1 = Hex(r.at("KEY1")), k2 = Hex(r.at("KEY2")), k3 = Hex(r.at("KEY3"));
  std::vector<Bytes> forms = {Concat(Concat(k1, k2), k3)};
  if (k3 == k1) forms.push_back(Concat(k1, k2));
  if (k1 == k2 && k2 == k3) forms.push_back(k1);
  return forms;
}

class DesNistVectors : public ::testing::TestWithParam<const char*> {};

// The final rewinds the chaining register, so the same context then decrypts from the IV.
TEST_P(DesNistVectors, EncryptAndDecryptEveryRecordOfBothModes) {
  // Record counts of the published files, so a short read cannot pass.
  const std::map<std::string, size_t> kRecords = {{"MMT1", 20},   {"MMT2", 20},  {"MMT3", 20},    {"invperm", 128},
                                                  {"permop", 64}, {"subtab", 38}, {"varkey", 112}, {"vartext", 128}};
  for (const bool cbc : {false, true}) {
    const std::string name = std::string(cbc ? "CBC/TCBC" : "ECB/TECB") + GetParam() + ".rsp";
    const auto records = ReadRsp(VectorPath("ciphers/3DES/" + name));
    ASSERT_EQ(records.size(), kRecords.at(GetParam())) << name;
    for (const auto& r : records) {
      const Bytes plain = Hex(r.at("PLAINTEXT")), cipher = Hex(r.at("CIPHERTEXT"));
      for (const Bytes& key : KeyForms(r)) {
        ScopedCipher c(key, CipherModeWord(cbc ? kCipherModeCbc : kCipherModeEcb, kCipherPadNone),
                       cbc ? Hex(r.at("IV")) : Bytes(8, 0));
        ASSERT_EQ(c.status(), kOk);
        const MessageRun enc = RunMessage(c.get(), plain, true), dec = RunMessage(c.get(), cipher, false);
        EXPECT_EQ(enc.final, kOk);
        EXPECT_EQ(enc.out, cipher) << name << " COUNT=" << r.at("COUNT") << " keyLen=" << key.size();
        EXPECT_EQ(dec.final, kOk);
        EXPECT_EQ(dec.out, plain) << name << " COUNT=" << r.at("COUNT") << " keyLen=" << key.size();
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cavs, DesNistVectors,
                         ::testing::Values("MMT1", "MMT2", "MMT3", "invperm", "permop", "subtab", "varkey", "vartext"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
}  // namespace nivra::testing
