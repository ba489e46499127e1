// The MAC modes on their own: encrypt only, tag sizes, the zero block of CBC-MAC, the K1-only
// chain of ISO 9797-1 algorithm 3, and unknown modes. Tag values are cross-checked against
// OpenSSL in cipher_mac_openssl_test.cpp.
#include <gtest/gtest.h>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kK1 = Hex("0123456789abcdef");
const Bytes kK2 = Hex("fedcba9876543210");
const uint16_t kMacModes[] = {kCipherModeCmac, kCipherModeIsoMac3, kCipherModeCbcMac};

TEST(CipherMac, MacModesRefuseToDecrypt) {
  for (uint16_t mode : kMacModes) {
    ScopedCipher c(Concat(kK1, kK2), CipherModeWord(mode, kCipherPadNone));
    Bytes out(16);
    for (size_t len : {0u, 3u, 16u}) {
      size_t outLen = out.size();
      EXPECT_EQ(CipherUpdate(c.get(), out.data(), len, out.data(), &outLen, false), kErrModeNotSupported)
          << mode << " " << len;
    }
    // With a padding rule set, a decryption that would only buffer is refused as well.
    ASSERT_EQ(CipherSetMode(c.get(), CipherModeWord(mode, kCipherPadPkcs7)), kOk);
    size_t outLen = out.size();
    EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, out.data(), &outLen, false), kErrModeNotSupported);
  }
}

TEST(CipherMac, UnknownModesAreRefused) {
  for (uint16_t mode : {0, 4, 255, 257, 1024, 0xFFFF}) {
    ScopedCipher c(kK1, CipherModeWord(static_cast<uint16_t>(mode), kCipherPadNone));
    Bytes out(16);
    size_t outLen = out.size();
    EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, out.data(), &outLen, true), kErrModeNotSupported) << mode;
    outLen = out.size();
    EXPECT_EQ(CipherFinal(c.get(), out.data(), &outLen), kErrModeNotSupported) << mode;
  }
}

TEST(CipherMac, TagNeedsOneBlockOfRoom) {
  for (uint16_t mode : kMacModes) {
    ScopedCipher c(Concat(kK1, kK2), CipherModeWord(mode, kCipherPadNone));
    Bytes out(8);
    size_t len = 7;
    EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kErrBufferTooSmall) << mode;
    EXPECT_EQ(len, 8u) << mode;
    len = 8;
    EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kOk) << mode;
    EXPECT_EQ(len, 8u) << mode;
  }
}

// NIST TCBCvarkey COUNT 0: E(0) under 8001010101010101 is 95a8d72813daa94d. CBC-MAC pads even the
// empty message with a whole zero block, so its tag is that block.
TEST(CipherMac, CbcMacOfTheEmptyMessageIsTheCipherOfAZeroBlock) {
  ScopedCipher c(Hex("8001010101010101"), CipherModeWord(kCipherModeCbcMac, kCipherPadNone));
  const MessageRun run = RunMessage(c.get(), Bytes(), true);
  EXPECT_EQ(run.final, kOk);
  EXPECT_EQ(run.out, Hex("95a8d72813daa94d"));
}

TEST(CipherMac, CbcMacAddsAZeroBlockToWholeBlocks) {
  const Bytes key = Hex("8001010101010101");
  ScopedCipher mac(key, CipherModeWord(kCipherModeCbcMac, kCipherPadNone));
  ScopedCipher cbc(key, CipherModeWord(kCipherModeCbc, kCipherPadNone));
  // Eight zero bytes: the update hands out E(0), the tag is E(E(0)).
  const MessageRun run = RunMessage(mac.get(), Bytes(8, 0), true);
  const Bytes chained = RunMessage(cbc.get(), Bytes(16, 0), true).out;
  EXPECT_EQ(run.out, chained);
  EXPECT_EQ(Bytes(run.out.begin(), run.out.begin() + 8), Hex("95a8d72813daa94d"));
  // Five bytes: zero-filled to one block, no extra block.
  const Bytes five = Hex("0102030405");
  EXPECT_EQ(RunMessage(mac.get(), five, true).out, RunMessage(cbc.get(), Hex("0102030405000000"), true).out);
}

TEST(CipherMac, IsoMac3ChainsUnderK1Alone) {
  std::mt19937 rng(4);
  const Bytes msg = RandomBytes(rng, 27);
  ScopedCipher mac(Concat(kK1, kK2), CipherModeWord(kCipherModeIsoMac3, kCipherPadNone));
  ScopedCipher singleDes(kK1, CipherModeWord(kCipherModeCbc, kCipherPadNone));
  const MessageRun run = RunMessage(mac.get(), msg, true);
  ASSERT_EQ(run.final, kOk);
  ASSERT_EQ(run.out.size(), 24 + 8u);
  EXPECT_EQ(Bytes(run.out.begin(), run.out.begin() + 24),
            RunMessage(singleDes.get(), Bytes(msg.begin(), msg.begin() + 24), true).out);
}

TEST(CipherMac, UpdatesHandOutTheIntermediateBlocks) {
  for (uint16_t mode : kMacModes) {
    ScopedCipher c(Concat(kK1, kK2), CipherModeWord(mode, kCipherPadNone));
    const Bytes msg(20, 0x3C);
    Bytes out(24);
    size_t len = 15;
    EXPECT_EQ(CipherUpdate(c.get(), msg.data(), msg.size(), out.data(), &len, true), kErrBufferTooSmall);
    EXPECT_EQ(len, 16u);
    len = 16;
    EXPECT_EQ(CipherUpdate(c.get(), msg.data(), msg.size(), out.data(), &len, true), kOk);
    EXPECT_EQ(len, 16u);
  }
}

}  // namespace
}  // namespace nivra::testing
