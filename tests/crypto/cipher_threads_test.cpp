// Contexts used from several threads at once (each context by one thread, as required), while
// another thread keeps presenting garbage handles.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "crypto/cipher.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

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
  std::atomic<bool> stop{false};
  std::atomic<int> failures{0};
  // Values that can never name a context: odd numbers (contexts are aligned and the bias is a
  // multiple of 8) and the addresses of this test's own buffers plus the bias.
  std::thread prober([&] {
    uint32_t x = 12345;
    Bytes out(16);
    while (!stop.load()) {
      x = x * 1103515245u + 12345u;
      size_t len = out.size();
      for (CipherHandle h : {CipherHandle{x} | 1u, (CipherHandle{x} << 20) | 1u,
                             reinterpret_cast<CipherHandle>(out.data()) + kCipherHandleBias,
                             reinterpret_cast<CipherHandle>(jobs.data()) + kCipherHandleBias}) {
        if (CipherUpdate(h, out.data(), 8, out.data(), &len, true) != kErrInvalidHandle) ++failures;
        if (CipherDestroy(h) != kErrInvalidHandle) ++failures;
      }
    }
  });
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
  stop.store(true);
  prober.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace nivra::testing
