// Streaming behaviour of CipherUpdate / CipherFinal: size queries, short
// buffers, direction rules, the rewind after a failed final, overlapping buffers, reset, argument
// errors, handles that name no context, and contexts used from several threads at once (each
// context by one thread, as required) while the live-context registry changes under them.
#include <gtest/gtest.h>

#include <cstring>
#include <atomic>
#include <thread>

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
  for (const auto& [n, encrypt, expected] : {std::tuple{0u, true, 0u}, {13u, true, 16u}, {3u, false, 8u}}) {
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
  ScopedCipher c(kKey, kCipherModeWordReset, kIv), reference(kKey, CipherModeWord(kCipherModeCbc, kCipherPadNone), kIv);
  size_t len = 0;
  ASSERT_EQ(Update(c.get(), 3, true, &len), kOk);
  for (size_t room : {31u, 0u}) {  // 3 pending + 37 = 5 blocks needed
    EXPECT_EQ(Update(c.get(), 37, true, &len, room), kErrBufferTooSmall);
    EXPECT_EQ(len, 40u);
  }
  ASSERT_EQ(Update(c.get(), 37, true, &len, 40), kOk);
  EXPECT_EQ(Bytes(Out(), Out() + 40), RunMessage(reference.get(), Bytes(40, kByte), true).out);
  EXPECT_EQ(Update(c.get(), 16, false, &len), kErrWrongDirection);
  EXPECT_EQ(Update(c.get(), 0, false, &len), kErrWrongDirection);
  ASSERT_EQ(Final(c.get(), &len), kOk);
  EXPECT_EQ(Update(c.get(), 16, false, &len), kOk);
  EXPECT_EQ(Update(c.get(), 8, true, &len), kErrWrongDirection);
  std::mt19937 rng(9);
  const Bytes msg = RandomBytes(rng, 19);
  ScopedCipher resetReference(kKey, kCipherModeWordReset);
  ScopedCipher ctr(kKey, CipherModeWord(kCipherModeCtr, kCipherPadNone), kIv);
  ASSERT_EQ(Update(ctr.get(), 5, true, &len), kOk);
  ASSERT_EQ(CipherReset(ctr.get()), kOk);
  EXPECT_EQ(Update(ctr.get(), 8, false, &len), kErrWrongDirection);
  EXPECT_EQ(RunMessage(ctr.get(), msg, true).out, RunMessage(resetReference.get(), msg, true).out);
}

// A final that fails with pending bytes or a short buffer still rewinds: nothing pending, the
// chain back at the IV, the direction free again. (Rewinds after good finals are proven by the
// split runs above, which reuse one context.)
TEST(CipherStreaming, FailedFinalsRewindToTheInitialIv) {
  const Bytes next(16, 0x77);
  for (uint16_t padding : {kCipherPadNone, kCipherPadPkcs7}) {
    ScopedCipher c(kKey, CipherModeWord(kCipherModeCbc, padding), kIv);
    ScopedCipher reference(kKey, CipherModeWord(kCipherModeCbc, padding), kIv);
    size_t len = 0;
    ASSERT_EQ(Update(c.get(), 21, true, &len), kOk);
    EXPECT_EQ(Final(c.get(), &len, 7), padding ? kErrBufferTooSmall : kErrPendingBytes);
    EXPECT_EQ(len, padding ? 8u : 0u);
    // Nothing pending, chain back at the IV, direction free again.
    EXPECT_EQ(RunMessage(c.get(), next, false).out, RunMessage(reference.get(), next, false).out) << padding;
  }
  // A padded decryption without a whole held-back block (a partial block, or no input) fails.
  ScopedCipher c(kKey, kCipherModeWordReset);
  for (size_t n : {12u, 0u}) {
    size_t len = 0;
    ASSERT_EQ(Update(c.get(), n, false, &len), kOk);
    EXPECT_EQ(Final(c.get(), &len), kErrPendingBytes) << n;
  }
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
        ASSERT_EQ(CipherUpdate(c.get(), head.data(), head.size(), scratch.data(), &len, encrypt), kOk);
        len = 100;
        ASSERT_EQ(CipherUpdate(c.get(), in, body.size(), in + shift, &len, encrypt), kOk);
        const Bytes got(in + shift, in + shift + len);
        if (shift == 1000) expected = got;
        EXPECT_EQ(got, expected) << "mode word " << word << " encrypt " << encrypt << " shift " << shift;
      }
    }
  }
}

TEST(CipherStreaming, ArgumentErrors) {
  ScopedCipher c(kKey);
  Bytes out(16);
  size_t len = out.size();
  EXPECT_EQ(CipherSetIv(c.get(), out.data(), 7), kErrInputLength);
  EXPECT_EQ(CipherSetIv(c.get(), out.data(), 16), kErrInputLength);
  EXPECT_EQ(CipherSetIv(c.get(), nullptr, 8), kErrNullData);
  EXPECT_EQ(CipherUpdate(c.get(), nullptr, 1, out.data(), &len, true), kErrNullData);
  EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, nullptr, nullptr, true), kErrNullData);
  EXPECT_EQ(CipherUpdate(c.get(), out.data(), 8, out.data(), nullptr, true), kErrNullData);
  EXPECT_EQ(CipherFinal(c.get(), nullptr, nullptr), kErrNullData);
  EXPECT_EQ(CipherFinal(c.get(), out.data(), nullptr), kErrNullData);
  EXPECT_EQ(CipherUpdate(c.get(), nullptr, 0, out.data(), &len, true), kOk);  // empty input may be null
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(CipherCreate(nullptr, kKey.data(), kKey.size()), kErrNullArgument);
  EXPECT_EQ(CipherCreateTdes2(nullptr, kKey.data()), kErrNullArgument);
  CipherHandle h = 99;
  EXPECT_EQ(CipherCreate(&h, nullptr, 8), kErrNullData);
  EXPECT_EQ(h, 0u);
  h = 99;
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
  const Bytes block(8, 0x11);
  for (CipherHandle h : {CipherHandle{0}, kCipherHandleBias, dead, live.get() + 8, live.get() - 1,
                         live.get() - kCipherHandleBias,
                         reinterpret_cast<CipherHandle>(block.data()) + kCipherHandleBias,
                         CipherHandle{0xDEADBEEFu}, ~CipherHandle{0}}) {
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
  EXPECT_EQ(RunMessage(live.get(), block, true).final, kOk) << "the live context was not disturbed";
}

TEST(CipherThreads, ConcurrentContextsStayIndependent) {
  struct Job {
    Bytes key, iv, plain, expected;
  };
  std::mt19937 rng(2024);
  std::vector<Job> jobs(8);
  for (Job& j : jobs) {
    j.key = RandomBytes(rng, 24);
    j.iv = RandomBytes(rng, 8);
    j.plain = RandomBytes(rng, 64 + rng() % 64);
    ScopedCipher c(j.key, kCipherModeWordReset, j.iv);
    j.expected = RunMessage(c.get(), j.plain, true).out;
  }
  std::atomic<int> failures{0};
  std::vector<std::thread> workers;
  for (size_t t = 0; t < 4; ++t) {
    workers.emplace_back([&, t] {
      for (int round = 0; round < 150; ++round) {
        const Job& j = jobs[(t + round) % jobs.size()];
        CipherHandle h = 0;
        if (CipherCreate(&h, j.key.data(), j.key.size()) != kOk || CipherSetMode(h, kCipherModeWordReset) != kOk ||
            CipherSetIv(h, j.iv.data(), 8) != kOk || RunMessage(h, j.plain, true, {5, 17}).out != j.expected ||
            RunMessage(h, j.expected, false, {9}).out != j.plain || CipherDestroy(h) != kOk) {
          ++failures;
        }
      }
    });
  }
  for (auto& w : workers) w.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace nivra::testing
