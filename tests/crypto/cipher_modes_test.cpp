// The modes' own rules: unknown modes; padding rules of the ECB and CBC finals: the bytes each
// rule adds (read back by decrypting without padding), what each rule accepts on decryption, and
// what a failed check hands back.
// Finals that fail (no room, bytes pending, a failed check) and still rewind. The CTR stream,
// PKCS#7 and the tags are cross-checked against OpenSSL in cipher_openssl_test.cpp.
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdeffedcba9876543210");

TEST(CipherModes, UnknownModesFailBothCalls) {
  Bytes buffer(24, 0x3C);
  for (uint16_t mode : {0, 4, 255, 257, 0xFFFF}) {
    ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
    EXPECT_EQ(RunMessage(c.get(), buffer, true).update, kErrModeNotSupported) << mode;
    size_t len = buffer.size();
    EXPECT_EQ(CipherFinal(c.get(), buffer.data(), &len), kErrModeNotSupported) << mode;
  }
}

Bytes Raw(const Bytes& in, bool encrypt) {
  ScopedCipher c(kKey, CipherModeWord(kCipherModeEcb, kCipherPadNone));
  const MessageRun run = RunMessage(c.get(), in, encrypt);
  EXPECT_EQ(run.final, kOk);
  return run.out;
}

// The bytes the rule appends to dataLen bytes of data.
Bytes PadOf(uint16_t rule, size_t dataLen) {
  ScopedCipher c(kKey, CipherModeWord(kCipherModeEcb, rule));
  const MessageRun run = RunMessage(c.get(), Bytes(dataLen, 0xC3), true);
  EXPECT_EQ(run.final, kOk);
  const Bytes plain = Raw(run.out, false);
  EXPECT_EQ(Bytes(plain.begin(), plain.begin() + dataLen), Bytes(dataLen, 0xC3));
  return Bytes(plain.begin() + dataLen, plain.end());
}

// L = 8 - len mod 8 bytes, a whole block after whole blocks (the zero rule too); ISO 10126's
// filler is fresh each time. (PKCS#7 is cross-checked against OpenSSL.)
TEST(CipherPadding, BytesEachRuleAdds) {
  for (size_t len = 0; len <= 9; ++len) {
    const uint8_t l = static_cast<uint8_t>(8 - len % 8);
    EXPECT_EQ(PadOf(kCipherPadAnsiX923, len), Concat(Bytes(l - 1, 0), {l})) << len;
    EXPECT_EQ(PadOf(kCipherPadZero, len), Bytes(l, 0)) << len;
    const Bytes iso = PadOf(kCipherPadIso10126, len);
    ASSERT_EQ(iso.size(), l);
    EXPECT_EQ(iso.back(), l);
    bool differs = l < 4;  // sixteen fillers of three random bytes cannot all repeat the first
    for (int i = 0; i < 16 && !differs; ++i) differs = PadOf(kCipherPadIso10126, len) != iso;
    EXPECT_TRUE(differs) << len;
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

// A final that fails reports what it needs and writes nothing: CTR the tail of the stream, a
// padded decryption the data length after good padding and the whole block after a failed
// check, a padded encryption its block; bytes pending where the mode takes none (unpadded CBC,
// a padded decryption without a whole held-back block) fail. Every failed final still rewinds
// the context (nothing pending, chain back at the IV, direction free): the same message then
// gives the same output. (A padded decryption short of a block leaves the length as it was.)
TEST(CipherFinal, FailedFinalsReportWhatTheyNeedAndRewind) {
  const Bytes kCbc7 = Raw(Hex("0102030405030303"), true), kBad = Raw(Hex("0102030405060700"), true);
  const struct {
    uint16_t mode, padding;
    Bytes in;
    bool encrypt;
    size_t capacity;
    Status status;
    size_t updated, needed;
  } cases[] = {{kCipherModeCtr, kCipherPadNone, Bytes(13, 0x5A), true, 4, kErrBufferTooSmall, 8, 5},
               {kCipherModeEcb, kCipherPadPkcs7, kCbc7, false, 4, kErrBufferTooSmall, 0, 5},
               {kCipherModeEcb, kCipherPadPkcs7, kBad, false, 7, kErrPaddingCheck, 0, 8},
               {kCipherModeCbc, kCipherPadPkcs7, Bytes(21, 7), true, 7, kErrBufferTooSmall, 16, 8},
               {kCipherModeCbc, kCipherPadNone, Bytes(21, 7), true, 7, kErrPendingBytes, 16, 0},
               {kCipherModeCbc, kCipherPadPkcs7, Bytes(12, 7), false, 8, kErrPendingBytes, 8, 8},
               {kCipherModeCbc, kCipherPadPkcs7, {}, false, 8, kErrPendingBytes, 0, 8}};
  for (const auto& t : cases) {
    ScopedCipher c(kKey, CipherModeWord(t.mode, t.padding), Hex("a0a1a2a3a4a5a6a7"));
    const MessageRun whole = RunMessage(c.get(), t.in, t.encrypt);
    Bytes out(32, 0xEE);
    size_t len = out.size();
    ASSERT_EQ(CipherUpdate(c.get(), t.in.data(), t.in.size(), out.data(), &len, t.encrypt), kOk);
    EXPECT_EQ(len, t.updated) << t.mode;
    len = t.capacity;
    EXPECT_EQ(CipherFinal(c.get(), out.data() + t.updated, &len), t.status) << t.mode;
    EXPECT_EQ(len, t.needed) << t.mode << " " << t.in.size();
    EXPECT_EQ(Bytes(out.begin() + t.updated, out.end()), Bytes(32 - t.updated, 0xEE)) << t.mode;
    len = out.size();
    EXPECT_EQ(CipherUpdate(c.get(), nullptr, 0, out.data(), &len, !t.encrypt), kOk) << "direction";
    CipherFinal(c.get(), out.data(), &len);  // ends the empty message of the other direction
    const MessageRun again = RunMessage(c.get(), t.in, t.encrypt);
    EXPECT_EQ(again.out, whole.out) << "the failed final rewound the context";
    EXPECT_EQ(again.final, whole.final);
  }
}

}  // namespace
}  // namespace nivra::testing
