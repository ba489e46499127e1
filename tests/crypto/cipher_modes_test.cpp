// The modes' own rules. Finals without room: CTR's tail, a padded decryption's data. MACs:
// encrypt only, buffer needs of updates and the tag, unknown modes. Padding rules of the ECB and
// CBC finals: the bytes each rule adds (read back by decrypting without padding), what each rule
// accepts on decryption, and what a failed check hands back. The CTR stream, PKCS#7 and the tags
// are cross-checked against OpenSSL in cipher_openssl_test.cpp.
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdeffedcba9876543210");

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


Bytes Raw(const Bytes& in, bool encrypt, uint16_t mode = kCipherModeEcb) {
  ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
  const MessageRun run = RunMessage(c.get(), in, encrypt);
  EXPECT_EQ(run.final, kOk);
  return run.out;
}

// The bytes the rule appends to dataLen bytes of data.
Bytes PadOf(uint16_t rule, size_t dataLen, uint16_t mode) {
  ScopedCipher c(kKey, CipherModeWord(mode, rule));
  const MessageRun run = RunMessage(c.get(), Bytes(dataLen, 0xC3), true);
  EXPECT_EQ(run.final, kOk);
  const Bytes plain = Raw(run.out, false, mode);
  EXPECT_EQ(plain.size(), (dataLen / 8 + 1) * 8);
  EXPECT_EQ(Bytes(plain.begin(), plain.begin() + dataLen), Bytes(dataLen, 0xC3));
  return Bytes(plain.begin() + dataLen, plain.end());
}

// L = 8 - len mod 8 bytes, a whole block after whole blocks (the zero rule too).
TEST(CipherPadding, BytesEachRuleAdds) {
  for (uint16_t mode : {kCipherModeEcb, kCipherModeCbc}) {
    for (size_t len = 0; len <= 17; ++len) {
      const uint8_t l = static_cast<uint8_t>(8 - len % 8);
      EXPECT_EQ(PadOf(kCipherPadPkcs7, len, mode), Bytes(l, l)) << len;
      EXPECT_EQ(PadOf(kCipherPadAnsiX923, len, mode), Concat(Bytes(l - 1, 0), {l})) << len;
      EXPECT_EQ(PadOf(kCipherPadZero, len, mode), Bytes(l, 0)) << len;
      const Bytes iso = PadOf(kCipherPadIso10126, len, mode);
      ASSERT_EQ(iso.size(), l);
      EXPECT_EQ(iso.back(), l);
      if (l < 2) continue;
      // The filler is fresh each time: sixteen messages cannot all repeat the first filler.
      bool differs = false;
      for (int i = 0; i < 16 && !differs; ++i) differs = PadOf(kCipherPadIso10126, len, mode) != iso;
      EXPECT_TRUE(differs) << len;
    }
  }
}

TEST(CipherPadding, ZeroAndUnknownRulesFailTheirFinals) {
  ScopedCipher zero(kKey, CipherModeWord(kCipherModeCbc, kCipherPadZero));
  const MessageRun dec = RunMessage(zero.get(), Bytes(24, 4), false);
  EXPECT_EQ(dec.update, kOk);
  EXPECT_EQ(dec.final, kErrBadPaddingRule) << "zero padding cannot be removed";
  for (uint32_t word : {CipherModeWord(kCipherModeCbc, 5), 0xFFFF0001u}) {
    ScopedCipher c(kKey, word);
    EXPECT_EQ(RunMessage(c.get(), Bytes(3, 4), true).final, kErrBadPaddingRule) << word;
    EXPECT_EQ(RunMessage(c.get(), Bytes(16, 4), false).final, kErrBadPaddingRule) << word;
  }
}

// One crafted last block decrypted under each rule: the status, and the output (the data on
// success, the whole decrypted block on a failed check).
TEST(CipherPadding, WhatEachRuleAccepts) {
  const struct {
    uint16_t rule;
    const char* block;
    Status status;
    size_t dataLen;
  } cases[] = {
      {kCipherPadPkcs7, "4142434445464701", kOk, 7},
      {kCipherPadPkcs7, "0808080808080808", kOk, 0},
      {kCipherPadPkcs7, "4142434445030303", kOk, 5},
      {kCipherPadPkcs7, "4142434445040303", kErrPaddingCheck, 8},  // length byte 3, one byte 4
      {kCipherPadPkcs7, "4142434445464700", kErrPaddingCheck, 8},  // L = 0
      {kCipherPadPkcs7, "0909090909090909", kErrPaddingCheck, 8},  // L above the block size
      {kCipherPadAnsiX923, "4142434445000003", kOk, 5},
      {kCipherPadAnsiX923, "0000000000000008", kOk, 0},
      {kCipherPadAnsiX923, "4142434445464701", kOk, 7},
      {kCipherPadAnsiX923, "4142434445010003", kErrPaddingCheck, 8},
      {kCipherPadAnsiX923, "4142434401000003", kOk, 5},  // the 01 is data
      {kCipherPadAnsiX923, "0000000000000009", kErrPaddingCheck, 8},
      {kCipherPadIso10126, "41424344459a7f03", kOk, 5},
      {kCipherPadIso10126, "ffffffffffffff08", kOk, 0},
      {kCipherPadIso10126, "4142434445464700", kErrPaddingCheck, 8},
      {kCipherPadIso10126, "41424344454647ff", kErrPaddingCheck, 8},
  };
  for (const auto& t : cases) {
    const Bytes block = Hex(t.block);
    ScopedCipher c(kKey, CipherModeWord(kCipherModeEcb, t.rule));
    const MessageRun run = RunMessage(c.get(), Raw(Concat(Bytes(8, 0x61), block), true), false);
    EXPECT_EQ(run.final, t.status) << "rule " << t.rule << " block " << t.block;
    EXPECT_EQ(run.out, Concat(Bytes(8, 0x61), Bytes(block.begin(), block.begin() + t.dataLen)))
        << "rule " << t.rule << " block " << t.block;
  }
}

// Without room the final reports what it needs and writes nothing: CTR the tail of the stream, a
// padded decryption the data length after good padding and the whole block after a failed
// check. The failed final still rewinds the context: the same message then gives the same output.
TEST(CipherFinal, FinalWithoutRoomReportsTheLengthItNeeds) {
  const struct {
    uint16_t mode, padding;
    Bytes in;
    bool encrypt;
    size_t capacity;
    Status status;
    size_t updated, needed;
  } cases[] = {{kCipherModeCtr, kCipherPadNone, Bytes(13, 0x5A), true, 4, kErrBufferTooSmall, 8, 5},
               {kCipherModeEcb, kCipherPadPkcs7, Raw(Hex("0102030405030303"), true), false, 4, kErrBufferTooSmall, 0, 5},
               {kCipherModeEcb, kCipherPadPkcs7, Raw(Hex("0102030405060700"), true), false, 7, kErrPaddingCheck, 0, 8}};
  for (const auto& t : cases) {
    ScopedCipher c(kKey, CipherModeWord(t.mode, t.padding), Hex("a0a1a2a3a4a5a6a7"));
    const MessageRun whole = RunMessage(c.get(), t.in, t.encrypt);
    Bytes out(16, 0xEE);
    size_t len = out.size();
    ASSERT_EQ(CipherUpdate(c.get(), t.in.data(), t.in.size(), out.data(), &len, t.encrypt), kOk);
    EXPECT_EQ(len, t.updated) << t.mode;
    len = t.capacity;
    EXPECT_EQ(CipherFinal(c.get(), out.data() + t.updated, &len), t.status) << t.mode;
    EXPECT_EQ(len, t.needed) << t.mode;
    EXPECT_EQ(Bytes(out.begin() + t.updated, out.end()), Bytes(16 - t.updated, 0xEE)) << t.mode;
    const MessageRun again = RunMessage(c.get(), t.in, t.encrypt);
    EXPECT_EQ(again.out, whole.out) << "the failed final rewound the context";
    EXPECT_EQ(again.final, whole.final);
  }
}

}  // namespace
}  // namespace nivra::testing
