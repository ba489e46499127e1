// A context released while other threads call it is an invalid handle for those calls, never
// freed under them.
#include <atomic>
#include <thread>
#include <vector>

#include "provider_fixture.h"

namespace {

class ContextLifetime : public FakeCardProvider {};

// Eight threads call one context (under its card lock, so most of them wait for it) while the
// main thread releases it. Every call answers success or NTE_INVALID_HANDLE, the calls after the
// release all answer NTE_INVALID_HANDLE, and nothing is used after it is freed.
TEST_F(ContextLifetime, ReleaseRacingEightCallingThreadsLeavesThemAnInvalidHandle) {
  for (int round = 0; round < 200 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    HCRYPTPROV prov = Open();
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(dll.CreateHash(prov, CALG_SHA1, 0, 0, &hash));
    std::atomic<int> started{0}, unexpected{0};
    std::atomic<bool> released{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
      threads.emplace_back([&, t] {
        const BYTE data[4] = {1, 2, 3, 4};
        for (bool first = true;; first = false) {
          const bool releaseDone = released.load();
          // Half of them make and destroy objects while the release tears the context's lists down.
          HCRYPTKEY key = 0;
          const BOOL ok = t % 2 == 0
                              ? dll.HashData(prov, hash, data, sizeof(data), 0)
                              : dll.GenKey(prov, CALG_RC4, 0, &key) && dll.DestroyKey(prov, key);
          const DWORD error = ok ? 0 : GetLastError();
          if (first) ++started;
          if (ok && !releaseDone) continue;
          if (ok || error != static_cast<DWORD>(NTE_INVALID_HANDLE)) ++unexpected;
          return;
        }
      });
    }
    while (started.load() < 8) std::this_thread::yield();
    EXPECT_SUCCEEDS(dll.ReleaseContext(prov, 0));
    released = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(unexpected.load(), 0);
    EXPECT_FAILS_WITH(dll.ReleaseContext(prov, 0), NTE_INVALID_HANDLE);
  }
}

}  // namespace
