// Hash objects used from many threads at once: each thread owns its objects (no locks in the
// object itself), while the live-object registry is shared. Destroys racing on one handle must
// free it exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "crypto/hash_object.h"
#include "nist_rsp.h"
#include "sha1_helpers.h"

namespace nivra::testing {
namespace {

using crypto::HashHandle;
using crypto::kErrInvalidHandle;
using crypto::kOk;

TEST(HashObjectThreads, ParallelObjectsGiveCorrectDigests) {
  const std::vector<uint8_t> message(1000, 'a');
  const Digest expected = ToDigest(Hex("291e9a6c66994949b57ba5e650361e98fc36b1ba"));  // SHA-1('a' x 1000)
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        HashHandle h = 0;
        if (crypto::HashCreate(&h) != kOk) { ++failures; continue; }
        const size_t split = static_cast<size_t>((t * 131 + i * 17) % 1000);
        Digest out{};
        if (crypto::HashUpdate(h, message.data(), split) != kOk ||
            crypto::HashUpdate(h, message.data() + split, message.size() - split) != kOk ||
            crypto::HashFinal(h, out.data()) != kOk || out != expected)
          ++failures;
        if (crypto::HashDestroy(h) != kOk) ++failures;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures.load(), 0);
}

TEST(HashObjectThreads, RacingDestroysFreeOnce) {
  for (int round = 0; round < 200; ++round) {
    HashHandle h = 0;
    ASSERT_EQ(crypto::HashCreate(&h), kOk);
    std::atomic<int> succeeded{0}, rejected{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        while (!go.load()) std::this_thread::yield();
        const auto status = crypto::HashDestroy(h);
        if (status == kOk) ++succeeded;
        else if (status == kErrInvalidHandle) ++rejected;
      });
    }
    go = true;
    for (auto& th : threads) th.join();
    ASSERT_EQ(succeeded.load(), 1) << "round " << round;
    ASSERT_EQ(rejected.load(), 3) << "round " << round;
  }
}

}  // namespace
}  // namespace nivra::testing
