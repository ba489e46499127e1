// The modes' own rules. CTR: the big-endian counter over the whole block (carrying through FF
// bytes and wrapping at all ones), the tail encrypted by the final, decryption as the same
// transform. MACs: encrypt only, buffer needs of updates and the tag, unknown modes. Tags are
// cross-checked against OpenSSL in cipher_mac_openssl_test.cpp.
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdeffedcba9876543210");

TEST(CipherCtr, CounterCarriesWrapsAndTheFinalEncryptsTheTail) {
  const Bytes msg = Hex("000102030405060708090a0b0c0d0e0f101112131415");  // 22 bytes: 6 reach the final
  const struct {
    const char* iv;
    const char* counters;
  } cases[] = {{"a0a1a2a3a4a5a6a7", "a0a1a2a3a4a5a6a7 a0a1a2a3a4a5a6a8 a0a1a2a3a4a5a6a9"},
               {"000000000000ffff", "000000000000ffff 0000000000010000 0000000000010001"},
               {"ffffffffffffffff", "ffffffffffffffff 0000000000000000 0000000000000001"}};
  for (const auto& t : cases) {
    ScopedCipher ecb(kKey, CipherModeWord(kCipherModeEcb, kCipherPadNone));
    const Bytes stream = RunMessage(ecb.get(), Hex(t.counters), true).out;
    ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), Hex(t.iv));
    const MessageRun run = RunMessage(c.get(), msg, true, {3});
    EXPECT_EQ(run.final, kOk);
    EXPECT_EQ(run.out, XorBytes(msg, stream)) << t.iv;
    EXPECT_EQ(RunMessage(c.get(), run.out, false).out, msg) << t.iv;
  }
}

TEST(CipherCtr, FinalReportsTheTailLengthItNeeds) {
  const Bytes msg(13, 0x5A);
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), Hex("a0a1a2a3a4a5a6a7"));
  const Bytes expected = RunMessage(c.get(), msg, true).out;
  Bytes out(16);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), msg.data(), msg.size(), out.data(), &len, true), kOk);
  ASSERT_EQ(len, 8u);
  len = 4;
  EXPECT_EQ(CipherFinal(c.get(), out.data() + 8, &len), kErrBufferTooSmall);
  EXPECT_EQ(len, 5u);
  EXPECT_EQ(RunMessage(c.get(), msg, true).out, expected) << "the failed final rewound the context";
}

TEST(CipherMac, MacModesOnlyEncryptAndNeedRoomForEveryBlock) {
  for (uint16_t mode : {kCipherModeCmac, kCipherModeIsoMac3, kCipherModeCbcMac}) {
    ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
    Bytes buffer(24, 0x3C);
    for (size_t len : {0u, 3u, 16u}) {
      size_t outLen = buffer.size();
      EXPECT_EQ(CipherUpdate(c.get(), buffer.data(), len, buffer.data(), &outLen, false), kErrModeNotSupported)
          << mode << " " << len;
    }
    // With a padding rule set, a decryption that would only buffer is refused as well.
    ASSERT_EQ(CipherSetMode(c.get(), CipherModeWord(mode, kCipherPadPkcs7)), kOk);
    size_t len = buffer.size();
    EXPECT_EQ(CipherUpdate(c.get(), buffer.data(), 8, buffer.data(), &len, false), kErrModeNotSupported);
    // 20 bytes hand out two intermediate blocks; the tag needs one block.
    ScopedCipher e(kKey, CipherModeWord(mode, kCipherPadNone));
    for (size_t capacity : {15u, 16u}) {
      len = capacity;
      const Status expected = capacity < 16 ? kErrBufferTooSmall : kOk;
      EXPECT_EQ(CipherUpdate(e.get(), buffer.data(), 20, buffer.data(), &len, true), expected);
      EXPECT_EQ(len, 16u) << mode;
    }
    for (size_t capacity : {7u, 8u}) {
      len = capacity;
      EXPECT_EQ(CipherFinal(e.get(), buffer.data(), &len), capacity < 8 ? kErrBufferTooSmall : kOk) << mode;
      EXPECT_EQ(len, 8u) << mode;
    }
  }
}

TEST(CipherMac, UnknownModesAreRefused) {
  for (uint16_t mode : {0, 4, 255, 257, 1024, 0xFFFF}) {
    ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
    Bytes out(16);
    size_t outLen = out.size();
    EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, out.data(), &outLen, true), kErrModeNotSupported) << mode;
    outLen = out.size();
    EXPECT_EQ(CipherFinal(c.get(), out.data(), &outLen), kErrModeNotSupported) << mode;
  }
}

}  // namespace
}  // namespace nivra::testing
