// The record of recently verified devices: one entry per name, 256 at most, forgetting moves the
// later entries down, 30 seconds of freshness, names of at most 63 characters, and the locking
// (an in-process lock and a named mutex every user can open) that serialises it.
#include "provider/verified_pin_cache.h"

#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace nivra::provider {
namespace {

std::atomic<uint64_t> fakeNow{0};
uint64_t FakeClock() { return fakeNow.load(); }

using Entry = std::pair<int, uint64_t>;  // index and time of verification

class VerifiedPinCache : public ::testing::Test {
 protected:
  void SetUp() override {
    ClearVerifiedPins();
    fakeNow = 5'000'000;
    SetVerifiedPinClock(&FakeClock);
  }
  void TearDown() override {
    SetVerifiedPinClock(nullptr);
    ClearVerifiedPins();
  }
  // The entry of name; index -1 when it has none.
  static Entry Find(const std::string& name) {
    VerifiedPinEntry entry{};
    int index = FindPinVerified(name.c_str(), &entry);
    return {index, index < 0 ? 0 : entry.verifiedAt};
  }
};

TEST_F(VerifiedPinCache, MarkingTwiceKeepsOneEntryAndRefreshesItsTime) {
  ASSERT_EQ(MarkPinVerified("reader-A"), 1);
  fakeNow += 20'000;
  ASSERT_EQ(MarkPinVerified("reader-A"), 1);
  ASSERT_EQ(MarkPinVerified("reader-B"), 1);
  EXPECT_EQ(Find("reader-A"), Entry(0, 5'020'000));
  EXPECT_EQ(Find("reader-B"), Entry(1, 5'020'000));
  EXPECT_EQ(Find("Reader-A").first, -1) << "names compare case-sensitively";
}

TEST_F(VerifiedPinCache, TwoHundredFiftySeventhNameIsRefused) {
  for (int i = 0; i < 256; ++i) ASSERT_EQ(MarkPinVerified(("dev" + std::to_string(i)).c_str()), 1) << i;
  EXPECT_EQ(MarkPinVerified("dev256"), 0);
  EXPECT_EQ(Find("dev256").first, -1);
  // A full list still refreshes names it holds, and forgetting one makes room for one more.
  EXPECT_EQ(MarkPinVerified("dev0"), 1);
  EXPECT_EQ(ForgetPinVerified("dev7"), 1);
  EXPECT_EQ(MarkPinVerified("dev256"), 1);
  EXPECT_EQ(Find("dev256").first, 255);
  EXPECT_EQ(MarkPinVerified("dev257"), 0);
}

TEST_F(VerifiedPinCache, ForgetMovesLaterEntriesDownWithTheirTimes) {
  for (int i = 0; i < 4; ++i) {
    fakeNow = 1000 * (i + 1);
    ASSERT_EQ(MarkPinVerified(std::string(1, 'a' + i).c_str()), 1);
  }
  EXPECT_EQ(ForgetPinVerified("b"), 1);
  EXPECT_EQ(ForgetPinVerified("b"), 0);
  EXPECT_EQ(Find("a"), Entry(0, 1000));
  EXPECT_EQ(Find("c"), Entry(1, 3000));
  EXPECT_EQ(Find("d"), Entry(2, 4000));
  EXPECT_EQ(ForgetPinVerified("d"), 1);  // the last entry
  EXPECT_EQ(ForgetPinVerified("a"), 1);  // the first entry
  EXPECT_EQ(Find("c").first, 0);
  ASSERT_EQ(MarkPinVerified("e"), 1);
  EXPECT_EQ(Find("e").first, 1);
}

TEST_F(VerifiedPinCache, FreshForLessThanThirtySeconds) {
  ASSERT_EQ(MarkPinVerified("bt-card"), 1);
  for (auto [elapsed, fresh] : {std::pair<uint64_t, bool>{0, true}, {29'900, true}, {29'999, true},
                                {30'000, false}, {45'000, false}}) {
    fakeNow = 5'000'000 + elapsed;
    EXPECT_EQ(IsPinVerifiedRecently("bt-card"), fresh) << elapsed;
  }
  // Stale entries are not aged out; marking again makes them fresh.
  EXPECT_EQ(Find("bt-card").first, 0);
  ASSERT_EQ(MarkPinVerified("bt-card"), 1);
  EXPECT_TRUE(IsPinVerifiedRecently("bt-card"));
  EXPECT_FALSE(IsPinVerifiedRecently("other-card"));
  VerifiedPinEntry entry{};
  entry.verifiedAt = 10'000;
  EXPECT_FALSE(IsPinVerificationFresh(entry, 9'999)) << "a time in the future is not fresh";
  entry.verifiedAt = UINT64_MAX - 5;
  EXPECT_TRUE(IsPinVerificationFresh(entry, UINT64_MAX));
}

TEST_F(VerifiedPinCache, NamesOver63CharactersAreRejectedNotTruncated) {
  std::string longest(63, 'n'), tooLong(64, 'n');
  ASSERT_EQ(MarkPinVerified(longest.c_str()), 1);
  EXPECT_EQ(Find(longest).first, 0);
  EXPECT_EQ(MarkPinVerified(tooLong.c_str()), 0);
  EXPECT_EQ(Find(tooLong).first, -1) << "a 64-character name must not match its 63-character prefix";
  EXPECT_EQ(ForgetPinVerified(tooLong.c_str()), 0);
  EXPECT_EQ(MarkPinVerified(nullptr), 0);
  EXPECT_EQ(FindPinVerified(nullptr, nullptr), -1);
  EXPECT_EQ(ForgetPinVerified(nullptr), 0);
  // The entry of a shorter name in a reused slot is zero-padded.
  ASSERT_EQ(ForgetPinVerified(longest.c_str()), 1);
  ASSERT_EQ(MarkPinVerified("ab"), 1);
  VerifiedPinEntry entry;
  memset(&entry, 0xCC, sizeof(entry));
  ASSERT_EQ(FindPinVerified("ab", &entry), 0);
  EXPECT_EQ(std::string(entry.name, kVerifiedPinNameSize), std::string("ab") + std::string(62, '\0'));
}

TEST_F(VerifiedPinCache, ConcurrentMarkAndForgetKeepOneEntryPerName) {
  // Eight threads mark four shared names and sixteen of their own, forgetting their odd ones.
  auto name = [](int thread, int n) {
    return (thread < 0 ? std::string("shared") : "t" + std::to_string(thread) + "-") + std::to_string(n);
  };
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &go, name] {
      while (!go.load()) std::this_thread::yield();
      for (int round = 0; round < 20; ++round) {
        for (int n = 0; n < 16; ++n) {
          if (n < 4) MarkPinVerified(name(-1, n).c_str());
          MarkPinVerified(name(t, n).c_str());
          if (n % 2) ForgetPinVerified(name(t, n).c_str());
        }
      }
    });
  }
  go = true;
  for (auto& thread : threads) thread.join();
  std::set<int> indices;
  for (int t = -1; t < 8; ++t) {
    for (int n = 0; n < (t < 0 ? 4 : 16); ++n) {
      int index = Find(name(t, n)).first;
      if (t >= 0 && n % 2) EXPECT_EQ(index, -1) << name(t, n);
      else indices.insert(index);
    }
  }
  // Each of the 68 survivors at its own index, and a new name right after them.
  ASSERT_EQ(indices.size(), 68u);
  EXPECT_EQ(*indices.begin(), 0);
  EXPECT_EQ(*indices.rbegin(), 67);
  ASSERT_EQ(MarkPinVerified("after"), 1);
  EXPECT_EQ(Find("after").first, 68);
}

TEST_F(VerifiedPinCache, OperationsWaitForAnyHolderOfTheNamedMutex) {
  ASSERT_EQ(CreateVerifiedPinMutex(), 0u);
  // Another component (or process) holding the mutex by name.
  HANDLE holder =
      OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE | READ_CONTROL, FALSE, kVerifiedPinMutexName);
  ASSERT_NE(holder, nullptr) << "the cache mutex exists under its name";
  // Every user's processes may open it: its DACL is NULL.
  PACL dacl = reinterpret_cast<PACL>(1);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetSecurityInfo(holder, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            &dacl, nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(dacl, nullptr);
  LocalFree(descriptor);
  ASSERT_EQ(WaitForSingleObject(holder, 10000), WAIT_OBJECT_0);
  std::atomic<bool> marked{false};
  std::thread marker([&] {
    MarkPinVerified("blocked");
    marked = true;
  });
  Sleep(300);
  EXPECT_FALSE(marked.load()) << "marking went ahead while the named mutex was held";
  ReleaseMutex(holder);
  marker.join();
  EXPECT_EQ(Find("blocked").first, 0);
  CloseHandle(holder);
}

}  // namespace
}  // namespace nivra::provider
