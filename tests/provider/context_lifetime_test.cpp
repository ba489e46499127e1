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
  constexpr int kRounds = 200;
  constexpr int kThreads = 8;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    HCRYPTPROV prov = Open();
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(dll.CreateHash(prov, CALG_SHA1, 0, 0, &hash));
    std::atomic<int> started{0};
    std::atomic<int> unexpected{0};
    std::atomic<bool> released{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        const BYTE data[4] = {1, 2, 3, 4};
        bool counted = false;
        for (;;) {
          const bool releaseDone = released.load();
          BOOL ok = FALSE;
          if (t % 2 == 0) {
            ok = dll.HashData(prov, hash, data, sizeof(data), 0);
          } else {
            // Makes and destroys objects while the release tears the context's lists down.
            HCRYPTKEY key = 0;
            ok = dll.GenKey(prov, CALG_RC4, 0, &key);
            if (ok) ok = dll.DestroyKey(prov, key);
          }
          const DWORD error = ok ? 0 : GetLastError();
          if (!counted) {
            counted = true;
            ++started;
          }
          if (ok && !releaseDone) continue;
          if (ok || error != static_cast<DWORD>(NTE_INVALID_HANDLE)) ++unexpected;
          return;
        }
      });
    }
    while (started.load() < kThreads) std::this_thread::yield();
    EXPECT_SUCCEEDS(dll.ReleaseContext(prov, 0));
    released = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(unexpected.load(), 0);
    EXPECT_FAILS_WITH(dll.ReleaseContext(prov, 0), NTE_INVALID_HANDLE);
    if (HasFailure()) break;
  }
}

}  // namespace
