// Streaming behaviour of CipherUpdate / CipherFinal: size queries, short buffers, direction
// rules, reset, overlapping buffers, argument errors and handles that name no context. Failed
// finals are in cipher_modes_test.cpp.
#include <gtest/gtest.h>

#include <cstring>

#include "crypto/cipher.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

const Bytes kKey = Hex("0123456789abcdeffedcba987654321089abcdef01234567");
const Bytes kIv = Hex("1234567890abcdef");

// One CipherUpdate of `n` bytes of kByte with `room` bytes of output room in Out() (kQuery: a size
// query), or one CipherFinal; *len receives the reported length.
constexpr size_t kQuery = ~size_t{0};
constexpr uint8_t kByte = 0x42;
uint8_t* Out() {
  static uint8_t out[128];
  return out;
}
Status Update(CipherHandle h, size_t n, bool encrypt, size_t* len, size_t room = 64) {
  static const Bytes in(64, kByte);
  *len = room;
  return CipherUpdate(h, in.data(), n, room == kQuery ? nullptr : Out(), len, encrypt);
}
Status Final(CipherHandle h, size_t* len, size_t room = 64) {
  *len = room;
  return CipherFinal(h, room == kQuery ? nullptr : Out(), len);
}

TEST(CipherStreaming, SizeQueriesReportWholeBlocksAndChangeNothing) {
  ScopedCipher c(kKey, kCipherModeWordReset);
  size_t len = 0;
  ASSERT_EQ(Update(c.get(), 5, true, &len), kOk);
  EXPECT_EQ(len, 0u);
  // 5 pending; a query fixes no direction.
  for (const auto& [n, encrypt, expected] : {std::tuple{0u, true, 0u}, {13u, true, 16u},
                                             {3u, false, 8u}}) {
    ASSERT_EQ(Update(c.get(), n, encrypt, &len, kQuery), kOk);
    EXPECT_EQ(len, expected) << n;
  }
  ASSERT_EQ(Final(c.get(), &len, kQuery), kOk);
  EXPECT_EQ(len, 8u) << "padded encryption: one block";
  ASSERT_EQ(Final(c.get(), &len), kOk);
  // Padded decryption: the query is an upper bound; the last block waits for the final.
  ASSERT_EQ(Update(c.get(), 24, false, &len, kQuery), kOk);
  EXPECT_EQ(len, 24u);
  ASSERT_EQ(Update(c.get(), 24, false, &len), kOk);
  EXPECT_EQ(len, 16u);
  ScopedCipher plain(kKey, CipherModeWord(kCipherModeCbc, kCipherPadNone));
  for (bool encrypt : {true, false}) {
    ASSERT_EQ(Update(plain.get(), 5, encrypt, &len), kOk);
    EXPECT_EQ(Final(plain.get(), &len, kQuery), kOk);
    EXPECT_EQ(len, encrypt ? 0u : 8u) << "unpadded: nothing to add when encrypting";
    EXPECT_EQ(Final(plain.get(), &len), kErrPendingBytes) << "the query kept the pending bytes";
  }
}

// A short buffer reports the need and processes nothing; the direction is fixed until the final;
// a reset gives CBC, PKCS#7 and a zero IV, drops pending bytes and keeps the direction.
TEST(CipherStreaming, ShortBuffersDirectionAndReset) {
  ScopedCipher c(kKey, kCipherModeWordReset, kIv);
  ScopedCipher reference(kKey, CipherModeWord(kCipherModeCbc, kCipherPadNone), kIv);
  size_t len = 0;
  ASSERT_EQ(Update(c.get(), 3, true, &len), kOk);
  for (size_t room : {31u, 0u}) {  // 3 pending + 37 = 5 blocks needed
    EXPECT_EQ(Update(c.get(), 37, true, &len, room), kErrBufferTooSmall);
    EXPECT_EQ(len, 40u);
  }
  ASSERT_EQ(Update(c.get(), 37, true, &len, 40), kOk);
  EXPECT_EQ(Bytes(Out(), Out() + 40), RunMessage(reference.get(), Bytes(40, kByte), true).out);
  EXPECT_EQ(Update(c.get(), 0, false, &len), kErrWrongDirection);
  ASSERT_EQ(Final(c.get(), &len), kOk);
  EXPECT_EQ(Update(c.get(), 16, false, &len), kOk);
  EXPECT_EQ(Update(c.get(), 8, true, &len), kErrWrongDirection);
  const Bytes msg = Hex("0102030405060708090a0b0c0d0e0f101112");
  ScopedCipher resetReference(kKey, kCipherModeWordReset);
  ScopedCipher ctr(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), kIv);
  ASSERT_EQ(Update(ctr.get(), 5, true, &len), kOk);
  ASSERT_EQ(CipherReset(ctr.get()), kOk);
  EXPECT_EQ(Update(ctr.get(), 8, false, &len), kErrWrongDirection);
  EXPECT_EQ(RunMessage(ctr.get(), msg, true).out, RunMessage(resetReference.get(), msg, true).out);
}

// Output at the same address as the input, ahead of it and behind it, with bytes pending from
// an earlier call: the result matches separate buffers.
TEST(CipherStreaming, OverlappingBuffersGiveTheSeparateBufferResult) {
  std::mt19937 rng(5);
  const Bytes head = RandomBytes(rng, 3);
  const Bytes body = RandomBytes(rng, 61);
  for (uint32_t word : {kCipherModeWordReset, CipherModeWord(kCipherModeCtr, kCipherPadNone),
                        CipherModeWord(kCipherModeEcb, kCipherPadNone)}) {
    for (bool encrypt : {true, false}) {
      Bytes expected;
      for (int shift : {1000, 0, 5, -5, 8, -8, 13}) {  // 1000: separate buffers, the reference
        ScopedCipher c(kKey, word, kIv);
        Bytes buffer(1200, 0), scratch(8);
        uint8_t* in = buffer.data() + 40;
        std::memcpy(in, body.data(), body.size());
        size_t len = scratch.size();
        ASSERT_EQ(CipherUpdate(c.get(), head.data(), 3, scratch.data(), &len, encrypt), kOk);
        len = 100;
        ASSERT_EQ(CipherUpdate(c.get(), in, body.size(), in + shift, &len, encrypt), kOk);
        const Bytes got(in + shift, in + shift + len);
        if (shift == 1000) expected = got;
        EXPECT_EQ(got, expected) << "mode word " << word << " " << encrypt << " shift " << shift;
      }
    }
  }
}

// Argument errors; and handles that name no live context: every entry answers -104 and touches
// nothing. (Garbage handles of every kind are rejected by the lookup the hash objects share.)
TEST(CipherStreaming, ArgumentErrorsAndDeadHandles) {
  ScopedCipher live(kKey);
  Bytes out(16);
  size_t len = out.size();
  EXPECT_EQ(CipherSetIv(live.get(), out.data(), 7), kErrInputLength);
  EXPECT_EQ(CipherUpdate(live.get(), nullptr, 1, out.data(), &len, true), kErrNullData);
  EXPECT_EQ(CipherUpdate(live.get(), out.data(), 8, out.data(), nullptr, true), kErrNullData);
  EXPECT_EQ(CipherUpdate(live.get(), nullptr, 0, out.data(), &len, true), kOk);  // may be null
  CipherHandle dead = 99;
  EXPECT_EQ(CipherCreate(&dead, kKey.data(), 7), kErrInvalidHandle);
  EXPECT_EQ(dead, 0u);
  ASSERT_EQ(CipherCreate(&dead, kKey.data(), kKey.size()), kOk);
  ASSERT_EQ(CipherDestroy(dead), kOk);
  for (CipherHandle h : {CipherHandle{0}, dead, live.get() + 8}) {
    len = out.size();
    EXPECT_EQ(CipherUpdate(h, kIv.data(), 8, out.data(), &len, true), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherFinal(h, out.data(), &len), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherReset(h), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherSetMode(h, kCipherModeWordReset), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherSetIv(h, kIv.data(), 8), kErrInvalidHandle) << h;
    EXPECT_EQ(CipherDestroy(h), kErrInvalidHandle) << h;
    EXPECT_EQ(len, 16u);
    EXPECT_EQ(out, Bytes(16, 0));
  }
}

}  // namespace
}  // namespace nivra::testing
