// CTR mode: the big-endian counter over the whole block, the tail at the final, symmetry.
#include <gtest/gtest.h>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdeffedcba9876543210");

// E(block) through an ECB context.
Bytes EncryptBlocks(const Bytes& blocks) {
  ScopedCipher ecb(kKey, CipherModeWord(kCipherModeEcb, kCipherPadNone));
  return RunMessage(ecb.get(), blocks, true).out;
}

TEST(CipherCtr, CounterCarriesThroughTrailingFfBytes) {
  const Bytes iv = Hex("000000000000ffff");
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), iv);
  const Bytes stream = RunMessage(c.get(), Bytes(24, 0), true).out;
  const Bytes counters = Hex("000000000000ffff" "0000000000010000" "0000000000010001");
  EXPECT_EQ(stream, EncryptBlocks(counters));
}

TEST(CipherCtr, CounterWrapsAroundAtAllOnes) {
  const Bytes iv = Hex("ffffffffffffffff");
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), iv);
  const Bytes stream = RunMessage(c.get(), Bytes(16, 0), true).out;
  EXPECT_EQ(stream, EncryptBlocks(Hex("ffffffffffffffff" "0000000000000000")));
}

TEST(CipherCtr, FinalEncryptsThePendingTail) {
  const Bytes iv = Hex("a0a1a2a3a4a5a6a7");
  const Bytes msg = Hex("000102030405060708090a0b0c");  // 13 bytes: 5 reach the final
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), iv);
  Bytes out(16);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), msg.data(), msg.size(), out.data(), &len, true), kOk);
  ASSERT_EQ(len, 8u);
  len = 0;
  ASSERT_EQ(CipherFinal(c.get(), nullptr, &len), kOk);
  EXPECT_EQ(len, 0u);  // an encrypting context without padding reports nothing to add
  len = 4;
  EXPECT_EQ(CipherFinal(c.get(), out.data() + 8, &len), kErrBufferTooSmall);
  EXPECT_EQ(len, 5u);
  // That failed final rewound the context; run the message again.
  const MessageRun run = RunMessage(c.get(), msg, true);
  ASSERT_EQ(run.final, kOk);
  const Bytes stream = EncryptBlocks(Hex("a0a1a2a3a4a5a6a7" "a0a1a2a3a4a5a6a8"));
  EXPECT_EQ(run.out, XorBytes(msg, stream));
}

TEST(CipherCtr, DecryptionIsTheSameTransform) {
  std::mt19937 rng(1);
  const Bytes msg = RandomBytes(rng, 37);
  const Bytes iv = Hex("0011223344556677");
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), iv);
  const Bytes cipher = RunMessage(c.get(), msg, true).out;
  ASSERT_EQ(cipher.size(), msg.size());
  EXPECT_EQ(RunMessage(c.get(), cipher, false).out, msg);
  EXPECT_EQ(RunMessage(c.get(), msg, false).out, cipher);
}

}  // namespace
}  // namespace nivra::testing
