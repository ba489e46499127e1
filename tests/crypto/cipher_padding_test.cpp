// Padding rules of the ECB and CBC finals: the bytes each rule adds (read back by decrypting
// without padding), what each rule accepts on decryption, and what a failed check hands back.
#include <gtest/gtest.h>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdef23456789abcdef01");

// The plaintext of `cipher` with no padding removed.
Bytes RawDecrypt(const Bytes& cipher, uint16_t mode = kCipherModeEcb) {
  ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
  const MessageRun run = RunMessage(c.get(), cipher, false);
  EXPECT_EQ(run.final, kOk);
  return run.out;
}

// The ciphertext of `plain` with no padding added (plain is whole blocks).
Bytes RawEncrypt(const Bytes& plain, uint16_t mode = kCipherModeEcb) {
  ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
  return RunMessage(c.get(), plain, true).out;
}

Bytes PadOf(uint16_t rule, size_t dataLen, uint16_t mode = kCipherModeEcb) {
  ScopedCipher c(kKey, CipherModeWord(mode, rule));
  const MessageRun run = RunMessage(c.get(), Bytes(dataLen, 0xC3), true);
  EXPECT_EQ(run.final, kOk);
  const Bytes plain = RawDecrypt(run.out, mode);
  EXPECT_EQ(plain.size(), (dataLen / 8 + 1) * 8);
  EXPECT_EQ(Bytes(plain.begin(), plain.begin() + dataLen), Bytes(dataLen, 0xC3));
  return Bytes(plain.begin() + dataLen, plain.end());
}

TEST(CipherPadding, Pkcs7AddsLBytesOfValueL) {
  for (size_t len = 0; len <= 17; ++len) {
    const size_t l = 8 - len % 8;
    EXPECT_EQ(PadOf(kCipherPadPkcs7, len), Bytes(l, static_cast<uint8_t>(l))) << len;
  }
  EXPECT_EQ(PadOf(kCipherPadPkcs7, 8, kCipherModeCbc), Bytes(8, 8));
}

TEST(CipherPadding, AnsiX923AddsZerosThenL) {
  for (size_t len = 0; len <= 17; ++len) {
    const size_t l = 8 - len % 8;
    Bytes expected(l - 1, 0);
    expected.push_back(static_cast<uint8_t>(l));
    EXPECT_EQ(PadOf(kCipherPadAnsiX923, len), expected) << len;
  }
}

TEST(CipherPadding, Iso10126AddsRandomBytesThenL) {
  for (size_t len : {0u, 1u, 6u, 7u, 8u}) {
    const size_t l = 8 - len % 8;
    const Bytes first = PadOf(kCipherPadIso10126, len);
    ASSERT_EQ(first.size(), l);
    EXPECT_EQ(first.back(), l);
    if (l < 2) continue;
    // The filler is fresh each time: sixteen messages cannot all repeat the first filler.
    bool differs = false;
    for (int i = 0; i < 16 && !differs; ++i) differs = PadOf(kCipherPadIso10126, len) != first;
    EXPECT_TRUE(differs) << len;
  }
}

TEST(CipherPadding, ZeroPaddingAddsAWholeZeroBlockToWholeBlocks) {
  EXPECT_EQ(PadOf(kCipherPadZero, 16), Bytes(8, 0));
  EXPECT_EQ(PadOf(kCipherPadZero, 0), Bytes(8, 0));
  EXPECT_EQ(PadOf(kCipherPadZero, 13), Bytes(3, 0));
}

TEST(CipherPadding, Pkcs7OfEightBytesInCbcIsTwoBlocksAndOfNothingOneBlock) {
  ScopedCipher c(kKey, kCipherModeWordReset);
  EXPECT_EQ(RunMessage(c.get(), Bytes(8, 1), true).out.size(), 16u);
  const Bytes empty = RunMessage(c.get(), Bytes(), true).out;
  ASSERT_EQ(empty.size(), 8u);
  EXPECT_EQ(RawDecrypt(empty, kCipherModeCbc), Bytes(8, 8));
}

TEST(CipherPadding, EveryRemovableRuleRoundTripsEveryLength) {
  for (uint16_t rule : {kCipherPadPkcs7, kCipherPadAnsiX923, kCipherPadIso10126}) {
    for (uint16_t mode : {kCipherModeEcb, kCipherModeCbc}) {
      ScopedCipher c(kKey, CipherModeWord(mode, rule));
      for (size_t len = 0; len <= 24; ++len) {
        const Bytes plain(len, static_cast<uint8_t>(len + 1));
        const MessageRun back = RunMessage(c.get(), RunMessage(c.get(), plain, true).out, false);
        EXPECT_EQ(back.final, kOk);
        EXPECT_EQ(back.out, plain) << "rule " << rule << " mode " << mode << " len " << len;
      }
    }
  }
}

TEST(CipherPadding, ZeroPaddingCannotBeRemoved) {
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCbc, kCipherPadZero));
  const Bytes cipher = RunMessage(c.get(), Bytes(16, 4), true).out;
  ASSERT_EQ(cipher.size(), 24u);
  const MessageRun dec = RunMessage(c.get(), cipher, false);
  EXPECT_EQ(dec.update, kOk);
  EXPECT_EQ(dec.final, kErrBadPaddingRule);
}

TEST(CipherPadding, UnknownRuleFailsBothFinals) {
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCbc, 5));
  EXPECT_EQ(RunMessage(c.get(), Bytes(3, 4), true).final, kErrBadPaddingRule);
  EXPECT_EQ(RunMessage(c.get(), Bytes(16, 4), false).final, kErrBadPaddingRule);
  ScopedCipher high(kKey, 0xFFFF0001u);
  EXPECT_EQ(RunMessage(high.get(), Bytes(3, 4), true).final, kErrBadPaddingRule);
}

// Decrypts one crafted last block under the rule: the status and what the final handed out.
MessageRun UnpadCrafted(uint16_t rule, const Bytes& lastPlainBlock) {
  const Bytes cipher = RawEncrypt(Concat(Bytes(8, 0x61), lastPlainBlock));
  ScopedCipher c(kKey, CipherModeWord(kCipherModeEcb, rule));
  return RunMessage(c.get(), cipher, false);
}

TEST(CipherPadding, FailedCheckReturnsTheWholeDecryptedBlock) {
  const Bytes block = Hex("4142434400000103");  // X9.23: the byte before the length is not zero
  const MessageRun run = UnpadCrafted(kCipherPadAnsiX923, block);
  EXPECT_EQ(run.update, kOk);
  EXPECT_EQ(run.final, kErrPaddingCheck);
  EXPECT_EQ(run.out, Concat(Bytes(8, 0x61), block));
}

TEST(CipherPadding, FailedCheckWithoutRoomReportsTheBlockLength) {
  const Bytes cipher = RawEncrypt(Hex("0102030405060700"));
  ScopedCipher c(kKey, CipherModeWord(kCipherModeEcb, kCipherPadPkcs7));
  Bytes out(8, 0xEE);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), cipher.data(), 8, out.data(), &len, false), kOk);
  EXPECT_EQ(len, 0u);
  len = 7;
  EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kErrPaddingCheck);
  EXPECT_EQ(len, 8u);
  EXPECT_EQ(out, Bytes(8, 0xEE));
}

TEST(CipherPadding, GoodPaddingWithoutRoomReportsTheDataLength) {
  const Bytes cipher = RawEncrypt(Hex("0102030405030303"));
  ScopedCipher c(kKey, CipherModeWord(kCipherModeEcb, kCipherPadPkcs7));
  Bytes out(8);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), cipher.data(), 8, out.data(), &len, false), kOk);
  len = 4;
  EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kErrBufferTooSmall);
  EXPECT_EQ(len, 5u);
}

TEST(CipherPadding, WhatEachRuleAccepts) {
  struct Case {
    uint16_t rule;
    const char* block;
    Status status;
    size_t dataLen;
  };
  const Case cases[] = {
      {kCipherPadPkcs7, "4142434445464701", kOk, 7},
      {kCipherPadPkcs7, "0808080808080808", kOk, 0},
      {kCipherPadPkcs7, "4142434445030303", kOk, 5},
      {kCipherPadPkcs7, "4142434445040303", kErrPaddingCheck, 0},  // length byte 3, one byte 4
      {kCipherPadPkcs7, "4142434445464700", kErrPaddingCheck, 0},  // L = 0
      {kCipherPadPkcs7, "0909090909090909", kErrPaddingCheck, 0},  // L above the block size
      {kCipherPadAnsiX923, "4142434445000003", kOk, 5},
      {kCipherPadAnsiX923, "0000000000000008", kOk, 0},
      {kCipherPadAnsiX923, "4142434445464701", kOk, 7},
      {kCipherPadAnsiX923, "4142434445010003", kErrPaddingCheck, 0},
      {kCipherPadAnsiX923, "4142434401000003", kOk, 5},  // the 01 is data
      {kCipherPadAnsiX923, "0000000000000009", kErrPaddingCheck, 0},
      {kCipherPadIso10126, "41424344459a7f03", kOk, 5},
      {kCipherPadIso10126, "ffffffffffffff08", kOk, 0},
      {kCipherPadIso10126, "4142434445464700", kErrPaddingCheck, 0},
      {kCipherPadIso10126, "41424344454647ff", kErrPaddingCheck, 0},
  };
  for (const Case& t : cases) {
    const Bytes block = Hex(t.block);
    const MessageRun run = UnpadCrafted(t.rule, block);
    EXPECT_EQ(run.final, t.status) << "rule " << t.rule << " block " << t.block;
    const Bytes expected = t.status == kOk
                               ? Concat(Bytes(8, 0x61), Bytes(block.begin(), block.begin() + t.dataLen))
                               : Concat(Bytes(8, 0x61), block);
    EXPECT_EQ(run.out, expected) << "rule " << t.rule << " block " << t.block;
  }
}

TEST(CipherPadding, UnpaddedFinalWithPendingBytesFails) {
  for (uint16_t mode : {kCipherModeEcb, kCipherModeCbc}) {
    ScopedCipher c(kKey, CipherModeWord(mode, kCipherPadNone));
    const MessageRun run = RunMessage(c.get(), Bytes(13, 2), true);
    EXPECT_EQ(run.update, kOk);
    EXPECT_EQ(run.final, kErrPendingBytes) << mode;
    EXPECT_EQ(run.out.size(), 8u);
  }
}

}  // namespace
}  // namespace nivra::testing
