// Streaming behaviour of CipherUpdate / CipherFinal: arbitrary splits, size queries, short
// buffers, direction rules, the rewind after every final, overlapping buffers and reset.
#include <gtest/gtest.h>

#include <cstring>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdeffedcba987654321089abcdef01234567");
const Bytes kIv = Hex("1234567890abcdef");

struct ModeCase {
  uint16_t mode;
  uint16_t padding;
};

// Modes whose decryption exists; ISO 10126 is left out because its encryption is random.
const ModeCase kReversibleModes[] = {
    {kCipherModeEcb, kCipherPadNone},     {kCipherModeEcb, kCipherPadPkcs7},
    {kCipherModeCbc, kCipherPadNone},     {kCipherModeCbc, kCipherPadPkcs7},
    {kCipherModeCbc, kCipherPadAnsiX923}, {kCipherModeCtr, kCipherPadNone},
};

const ModeCase kMacModes[] = {
    {kCipherModeCmac, kCipherPadNone},
    {kCipherModeIsoMac3, kCipherPadNone},
    {kCipherModeCbcMac, kCipherPadNone},
};

// Random piece sizes that add up to at most total (RunMessage feeds the rest).
std::vector<size_t> RandomSplit(std::mt19937& rng, size_t total) {
  std::vector<size_t> pieces;
  size_t used = 0;
  while (used < total && pieces.size() < 12) {
    size_t piece = rng() % 20;  // includes empty calls
    if (piece > total - used) piece = total - used;
    pieces.push_back(piece);
    used += piece;
  }
  return pieces;
}

size_t MessageLength(std::mt19937& rng, const ModeCase& m) {
  size_t len = rng() % 90;
  const bool wholeBlocks = m.padding == kCipherPadNone && m.mode != kCipherModeCtr &&
                           (m.mode == kCipherModeEcb || m.mode == kCipherModeCbc);
  return wholeBlocks ? len / 8 * 8 : len;
}

TEST(CipherStreaming, AnySplitOfTheInputGivesTheOneCallOutput) {
  std::mt19937 rng(20240917);
  for (const ModeCase& m : kReversibleModes) {
    ScopedCipher c(kKey, CipherModeWord(m.mode, m.padding), kIv);
    ASSERT_EQ(c.status(), kOk);
    for (int trial = 0; trial < 60; ++trial) {
      const Bytes plain = RandomBytes(rng, MessageLength(rng, m));
      const MessageRun whole = RunMessage(c.get(), plain, true);
      ASSERT_EQ(whole.update, kOk);
      ASSERT_EQ(whole.final, kOk);
      const MessageRun split = RunMessage(c.get(), plain, true, RandomSplit(rng, plain.size()));
      EXPECT_EQ(split.final, kOk);
      EXPECT_EQ(split.out, whole.out) << "mode " << m.mode << " pad " << m.padding << " len " << plain.size();
      const MessageRun back = RunMessage(c.get(), whole.out, false, RandomSplit(rng, whole.out.size()));
      EXPECT_EQ(back.update, kOk);
      EXPECT_EQ(back.final, kOk);
      EXPECT_EQ(back.out, plain) << "mode " << m.mode << " pad " << m.padding << " len " << plain.size();
    }
  }
}

TEST(CipherStreaming, MacTagsAndIntermediateBlocksDoNotDependOnTheSplit) {
  std::mt19937 rng(7);
  for (const ModeCase& m : kMacModes) {
    ScopedCipher c(kKey, CipherModeWord(m.mode, m.padding), kIv);
    ASSERT_EQ(c.status(), kOk);
    for (int trial = 0; trial < 40; ++trial) {
      const Bytes msg = RandomBytes(rng, rng() % 70);
      const MessageRun whole = RunMessage(c.get(), msg, true);
      ASSERT_EQ(whole.final, kOk);
      EXPECT_EQ(whole.out.size(), msg.size() / 8 * 8 + 8) << m.mode;
      const MessageRun split = RunMessage(c.get(), msg, true, RandomSplit(rng, msg.size()));
      EXPECT_EQ(split.out, whole.out) << "mode " << m.mode << " len " << msg.size();
    }
  }
}

TEST(CipherStreaming, UpdateSizeQueryReportsWholeBlocksAndChangesNothing) {
  ScopedCipher c(kKey, kCipherModeWordReset);
  const Bytes data(13, 0x42);
  size_t len = 999;
  ASSERT_EQ(CipherUpdate(c.get(), data.data(), 5, nullptr, &len, true), kOk);
  EXPECT_EQ(len, 0u);
  Bytes out(64);
  len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), data.data(), 5, out.data(), &len, true), kOk);
  EXPECT_EQ(len, 0u);
  len = 0;
  ASSERT_EQ(CipherUpdate(c.get(), data.data(), 13, nullptr, &len, true), kOk);
  EXPECT_EQ(len, 16u);  // 5 pending + 13
  // A size query does not fix the direction either.
  len = 0;
  EXPECT_EQ(CipherUpdate(c.get(), data.data(), 3, nullptr, &len, false), kOk);
  EXPECT_EQ(len, 8u);
  len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), data.data(), 13, out.data(), &len, true), kOk);
  EXPECT_EQ(len, 16u);
}

TEST(CipherStreaming, PaddedDecryptionSizeQueryIsAnUpperBound) {
  ScopedCipher c(kKey, kCipherModeWordReset);
  const Bytes cipher = RunMessage(c.get(), Bytes(16, 1), true).out;
  ASSERT_EQ(cipher.size(), 24u);
  size_t len = 0;
  ASSERT_EQ(CipherUpdate(c.get(), cipher.data(), cipher.size(), nullptr, &len, false), kOk);
  EXPECT_EQ(len, 24u);
  Bytes out(24);
  len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), cipher.data(), cipher.size(), out.data(), &len, false), kOk);
  EXPECT_EQ(len, 16u);  // the last block waits for the final
}

TEST(CipherStreaming, FinalSizeQueryByDirectionAndPadding) {
  ScopedCipher padded(kKey, kCipherModeWordReset);
  ScopedCipher plain(kKey, CipherModeWord(kCipherModeCbc, kCipherPadNone));
  const Bytes five(5, 9);
  Bytes out(16);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(padded.get(), five.data(), 5, out.data(), &len, true), kOk);
  len = out.size();
  ASSERT_EQ(CipherUpdate(plain.get(), five.data(), 5, out.data(), &len, true), kOk);
  len = 77;
  EXPECT_EQ(CipherFinal(padded.get(), nullptr, &len), kOk);
  EXPECT_EQ(len, 8u);
  len = 77;
  EXPECT_EQ(CipherFinal(plain.get(), nullptr, &len), kOk);
  EXPECT_EQ(len, 0u);
  // The query left the pending bytes alone: the real final still sees them.
  len = out.size();
  EXPECT_EQ(CipherFinal(plain.get(), out.data(), &len), kErrPendingBytes);
  len = out.size();
  EXPECT_EQ(CipherFinal(padded.get(), out.data(), &len), kOk);
  EXPECT_EQ(len, 8u);
  // A decrypting context may hand back a block whatever its padding.
  ScopedCipher decrypting(kKey, CipherModeWord(kCipherModeEcb, kCipherPadNone));
  len = out.size();
  ASSERT_EQ(CipherUpdate(decrypting.get(), five.data(), 5, out.data(), &len, false), kOk);
  len = 0;
  EXPECT_EQ(CipherFinal(decrypting.get(), nullptr, &len), kOk);
  EXPECT_EQ(len, 8u);
}

TEST(CipherStreaming, ShortUpdateBufferReportsTheNeedAndProcessesNothing) {
  std::mt19937 rng(3);
  const Bytes msg = RandomBytes(rng, 40);
  ScopedCipher c(kKey, kCipherModeWordReset, kIv);
  const Bytes expected = RunMessage(c.get(), msg, true).out;

  Bytes out(64);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), msg.data(), 3, out.data(), &len, true), kOk);
  Bytes got(out.begin(), out.begin() + len);
  len = 31;  // 3 pending + 37 = 40 bytes = 5 blocks needed
  EXPECT_EQ(CipherUpdate(c.get(), msg.data() + 3, 37, out.data(), &len, true), kErrBufferTooSmall);
  EXPECT_EQ(len, 40u);
  len = 0;
  EXPECT_EQ(CipherUpdate(c.get(), msg.data() + 3, 37, out.data(), &len, true), kErrBufferTooSmall);
  EXPECT_EQ(len, 40u);
  len = 40;
  ASSERT_EQ(CipherUpdate(c.get(), msg.data() + 3, 37, out.data(), &len, true), kOk);
  got.insert(got.end(), out.begin(), out.begin() + len);
  len = out.size();
  ASSERT_EQ(CipherFinal(c.get(), out.data(), &len), kOk);
  got.insert(got.end(), out.begin(), out.begin() + len);
  EXPECT_EQ(got, expected);
}

TEST(CipherStreaming, DirectionIsFixedUntilTheFinal) {
  ScopedCipher c(kKey, kCipherModeWordReset);
  const Bytes data(16, 0x11);
  Bytes out(32);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), data.data(), 16, out.data(), &len, true), kOk);
  len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), data.data(), 16, out.data(), &len, false), kErrWrongDirection);
  len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), nullptr, 0, out.data(), &len, false), kErrWrongDirection);
  len = out.size();
  ASSERT_EQ(CipherFinal(c.get(), out.data(), &len), kOk);
  len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), data.data(), 16, out.data(), &len, false), kOk);
  len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), data.data(), 8, out.data(), &len, true), kErrWrongDirection);
}

TEST(CipherStreaming, EveryFinalRewindsToTheInitialIv) {
  std::mt19937 rng(11);
  const Bytes msg = RandomBytes(rng, 29);
  for (uint16_t mode : {kCipherModeCbc, kCipherModeCtr, kCipherModeCmac, kCipherModeIsoMac3}) {
    ScopedCipher c(kKey, CipherModeWord(mode, mode == kCipherModeCbc ? kCipherPadPkcs7 : kCipherPadNone), kIv);
    const MessageRun first = RunMessage(c.get(), msg, true);
    ASSERT_EQ(first.final, kOk) << mode;
    EXPECT_EQ(RunMessage(c.get(), msg, true).out, first.out) << mode;
    // A fresh context with the same IV agrees: the rewind goes back to the IV, not to zero.
    ScopedCipher fresh(kKey, CipherModeWord(mode, mode == kCipherModeCbc ? kCipherPadPkcs7 : kCipherPadNone), kIv);
    EXPECT_EQ(RunMessage(fresh.get(), msg, true).out, first.out) << mode;
    ScopedCipher zeroIv(kKey, CipherModeWord(mode, mode == kCipherModeCbc ? kCipherPadPkcs7 : kCipherPadNone));
    EXPECT_NE(RunMessage(zeroIv.get(), msg, true).out, first.out) << mode;
  }
}

TEST(CipherStreaming, FailedFinalStillRewinds) {
  const Bytes msg(21, 0x5C);
  ScopedCipher c(kKey, CipherModeWord(kCipherModeCbc, kCipherPadNone), kIv);
  ScopedCipher reference(kKey, CipherModeWord(kCipherModeCbc, kCipherPadNone), kIv);
  Bytes out(32);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), msg.data(), msg.size(), out.data(), &len, true), kOk);
  len = out.size();
  EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kErrPendingBytes);  // 5 bytes pending
  EXPECT_EQ(len, 0u);
  // Nothing pending, chain back at the IV, direction free again.
  const Bytes next(16, 0x77);
  EXPECT_EQ(RunMessage(c.get(), next, false).out, RunMessage(reference.get(), next, false).out);

  ScopedCipher padded(kKey, kCipherModeWordReset, kIv);
  len = out.size();
  ASSERT_EQ(CipherUpdate(padded.get(), msg.data(), msg.size(), out.data(), &len, true), kOk);
  len = 7;
  EXPECT_EQ(CipherFinal(padded.get(), out.data(), &len), kErrBufferTooSmall);
  EXPECT_EQ(len, 8u);
  ScopedCipher paddedRef(kKey, kCipherModeWordReset, kIv);
  EXPECT_EQ(RunMessage(padded.get(), next, true).out, RunMessage(paddedRef.get(), next, true).out);
}

TEST(CipherStreaming, PaddedDecryptionNeedsAWholeHeldBackBlock) {
  ScopedCipher c(kKey, kCipherModeWordReset);
  const Bytes twelve(12, 0x33);
  Bytes out(16);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), twelve.data(), 12, out.data(), &len, false), kOk);
  EXPECT_EQ(len, 8u);
  len = out.size();
  EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kErrPendingBytes);
  // An empty decryption has no block to unpad either.
  len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), nullptr, 0, out.data(), &len, false), kOk);
  len = out.size();
  EXPECT_EQ(CipherFinal(c.get(), out.data(), &len), kErrPendingBytes);
}

// Output at the same address as the input, ahead of it and behind it, with bytes pending from
// an earlier call: the result matches separate buffers.
TEST(CipherStreaming, OverlappingBuffersGiveTheSeparateBufferResult) {
  std::mt19937 rng(5);
  const Bytes head = RandomBytes(rng, 3);
  const Bytes body = RandomBytes(rng, 61);
  for (const ModeCase& m : {ModeCase{kCipherModeCbc, kCipherPadPkcs7}, ModeCase{kCipherModeCtr, kCipherPadNone},
                            ModeCase{kCipherModeEcb, kCipherPadNone}}) {
    for (bool encrypt : {true, false}) {
      ScopedCipher ref(kKey, CipherModeWord(m.mode, m.padding), kIv);
      Bytes expected(80);
      size_t len = expected.size();
      ASSERT_EQ(CipherUpdate(ref.get(), head.data(), head.size(), expected.data(), &len, encrypt), kOk);
      len = expected.size();
      ASSERT_EQ(CipherUpdate(ref.get(), body.data(), body.size(), expected.data(), &len, encrypt), kOk);
      expected.resize(len);
      for (int shift : {0, 5, -5, 8, -8, 13}) {
        ScopedCipher c(kKey, CipherModeWord(m.mode, m.padding), kIv);
        Bytes buffer(160, 0);
        uint8_t* in = buffer.data() + 40;
        std::memcpy(in, body.data(), body.size());
        Bytes scratch(8);
        len = scratch.size();
        ASSERT_EQ(CipherUpdate(c.get(), head.data(), head.size(), scratch.data(), &len, encrypt), kOk);
        len = 100;
        ASSERT_EQ(CipherUpdate(c.get(), in, body.size(), in + shift, &len, encrypt), kOk);
        EXPECT_EQ(Bytes(in + shift, in + shift + len), expected)
            << "mode " << m.mode << " encrypt " << encrypt << " shift " << shift;
      }
    }
  }
}

TEST(CipherStreaming, ResetGivesCbcPkcs7WithZeroIvAndKeepsTheDirection) {
  std::mt19937 rng(9);
  const Bytes msg = RandomBytes(rng, 19);
  ScopedCipher reference(kKey, kCipherModeWordReset);
  const Bytes expected = RunMessage(reference.get(), msg, true).out;

  ScopedCipher c(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), kIv);
  Bytes out(32);
  size_t len = out.size();
  ASSERT_EQ(CipherUpdate(c.get(), msg.data(), 5, out.data(), &len, true), kOk);
  ASSERT_EQ(CipherReset(c.get()), kOk);
  len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), msg.data(), 8, out.data(), &len, false), kErrWrongDirection);
  // The five bytes pending before the reset are gone.
  EXPECT_EQ(RunMessage(c.get(), msg, true).out, expected);
}

TEST(CipherStreaming, CreateTdes2IsResetTwoKeyTdea) {
  const Bytes key16(kKey.begin(), kKey.begin() + 16);
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreateTdes2(&h, key16.data()), kOk);
  ScopedCipher threeKeyForm(Concat(key16, Bytes(kKey.begin(), kKey.begin() + 8)), kCipherModeWordReset);
  const Bytes msg(20, 0xA5);
  const MessageRun run = RunMessage(h, msg, true);
  EXPECT_EQ(run.out.size(), 24u);
  EXPECT_EQ(run.out, RunMessage(threeKeyForm.get(), msg, true).out);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

TEST(CipherStreaming, SetIvNeedsOneBlock) {
  ScopedCipher c(kKey);
  const Bytes iv(16, 1);
  EXPECT_EQ(CipherSetIv(c.get(), iv.data(), 7), kErrInputLength);
  EXPECT_EQ(CipherSetIv(c.get(), iv.data(), 16), kErrInputLength);
  EXPECT_EQ(CipherSetIv(c.get(), nullptr, 8), kErrNullData);
  EXPECT_EQ(CipherSetIv(c.get(), iv.data(), 8), kOk);
}

TEST(CipherStreaming, NullArgumentsAreRejected) {
  ScopedCipher c(kKey);
  Bytes out(16);
  size_t len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), nullptr, 1, out.data(), &len, true), kErrNullData);
  EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, nullptr, nullptr, true), kErrNullData);
  EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, out.data(), nullptr, true), kErrNullData);
  EXPECT_EQ(CipherFinal(c.get(), nullptr, nullptr), kErrNullData);
  EXPECT_EQ(CipherFinal(c.get(), out.data(), nullptr), kErrNullData);
  // An empty update with no input pointer is fine.
  len = out.size();
  EXPECT_EQ(CipherUpdate(c.get(), nullptr, 0, out.data(), &len, true), kOk);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(CipherCreate(nullptr, kKey.data(), kKey.size()), kErrNullArgument);
  EXPECT_EQ(CipherCreateTdes2(nullptr, kKey.data()), kErrNullArgument);
  CipherHandle h = 99;
  EXPECT_EQ(CipherCreate(&h, nullptr, 8), kErrNullData);
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(CipherCreate(&h, kKey.data(), 7), kErrInvalidHandle);
  EXPECT_EQ(h, 0u);
}

// Handles that name no live context: every entry answers -104 and touches nothing.
TEST(CipherHandles, GarbageAndStaleHandlesAreInvalid) {
  // The live context exists first, so the destroyed one cannot share its address.
  ScopedCipher live(kKey);
  CipherHandle dead = 0;
  ASSERT_EQ(CipherCreate(&dead, kKey.data(), kKey.size()), kOk);
  ASSERT_EQ(CipherDestroy(dead), kOk);
  Bytes block(8, 0x11);
  const std::vector<CipherHandle> bad = {0,
                                         kCipherHandleBias,
                                         dead,
                                         live.get() + 8,
                                         live.get() - 1,
                                         live.get() - kCipherHandleBias,
                                         reinterpret_cast<CipherHandle>(block.data()) + kCipherHandleBias,
                                         0xDEADBEEFu,
                                         ~CipherHandle{0}};
  for (CipherHandle h : bad) {
    Bytes out(16);
    size_t len = out.size();
    EXPECT_EQ(CipherUpdate(h, block.data(), 8, out.data(), &len, true), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherUpdate(h, block.data(), 8, nullptr, &len, true), kErrInvalidHandle) << h;
    EXPECT_EQ(len, 16u);
    EXPECT_EQ(CipherFinal(h, out.data(), &len), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherFinal(h, nullptr, &len), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherReset(h), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherSetMode(h, kCipherModeWordReset), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherSetIv(h, block.data(), 8), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherDestroy(h), kErrInvalidHandle) << h;
    EXPECT_EQ(out, Bytes(16, 0));
  }
  // The live context was not disturbed by any of that.
  EXPECT_EQ(RunMessage(live.get(), block, true).final, kOk);
}

}  // namespace
}  // namespace nivra::testing
