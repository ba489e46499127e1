#include "ui/verified_pin_cache.h"

#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ui/named_mutex.h"

namespace nivra::ui {
namespace {

std::atomic<uint64_t> fakeNow{0};
uint64_t FakeClock() { return fakeNow.load(); }

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
};

std::string Name(const char* prefix, int n) { return prefix + std::to_string(n); }

TEST_F(VerifiedPinCache, MarkingTwiceKeepsOneEntryAndRefreshesItsTime) {
  ASSERT_EQ(MarkPinVerified("reader-A"), 1);
  fakeNow += 20'000;
  ASSERT_EQ(MarkPinVerified("reader-A"), 1);
  VerifiedPinEntry entry{};
  EXPECT_EQ(FindPinVerified("reader-A", &entry), 0);
  EXPECT_EQ(entry.verifiedAt, 5'020'000u);
  EXPECT_STREQ(entry.name, "reader-A");
  // Only one entry: the next new name lands at index 1.
  ASSERT_EQ(MarkPinVerified("reader-B"), 1);
  EXPECT_EQ(FindPinVerified("reader-B", nullptr), 1);
  // The refreshed time keeps it fresh 45 s after the first mark.
  fakeNow = 5'000'000 + 45'000;
  EXPECT_TRUE(IsPinVerifiedRecently("reader-A"));
}

TEST_F(VerifiedPinCache, TwoHundredFiftySeventhNameIsRefused) {
  for (int i = 0; i < 256; ++i) ASSERT_EQ(MarkPinVerified(Name("dev", i).c_str()), 1) << i;
  EXPECT_EQ(FindPinVerified("dev255", nullptr), 255);
  EXPECT_EQ(MarkPinVerified("dev256"), 0);
  EXPECT_EQ(FindPinVerified("dev256", nullptr), -1);
  // A full list still refreshes names it holds.
  fakeNow += 1;
  EXPECT_EQ(MarkPinVerified("dev0"), 1);
  VerifiedPinEntry entry{};
  ASSERT_EQ(FindPinVerified("dev0", &entry), 0);
  EXPECT_EQ(entry.verifiedAt, 5'000'001u);
  // Forgetting one makes room for exactly one more, at the end.
  EXPECT_EQ(ForgetPinVerified("dev7"), 1);
  EXPECT_EQ(MarkPinVerified("dev256"), 1);
  EXPECT_EQ(FindPinVerified("dev256", nullptr), 255);
  EXPECT_EQ(MarkPinVerified("dev257"), 0);
}

TEST_F(VerifiedPinCache, ForgetMovesLaterEntriesDownAndKeepsTheirTimes) {
  const char* names[] = {"a", "b", "c", "d"};
  for (int i = 0; i < 4; ++i) {
    fakeNow = 1000 * (i + 1);
    ASSERT_EQ(MarkPinVerified(names[i]), 1);
  }
  EXPECT_EQ(ForgetPinVerified("b"), 1);
  EXPECT_EQ(ForgetPinVerified("b"), 0);
  EXPECT_EQ(FindPinVerified("b", nullptr), -1);
  VerifiedPinEntry entry{};
  EXPECT_EQ(FindPinVerified("a", &entry), 0);
  EXPECT_EQ(entry.verifiedAt, 1000u);
  EXPECT_EQ(FindPinVerified("c", &entry), 1);
  EXPECT_EQ(entry.verifiedAt, 3000u);
  EXPECT_EQ(FindPinVerified("d", &entry), 2);
  EXPECT_EQ(entry.verifiedAt, 4000u);

  EXPECT_EQ(ForgetPinVerified("d"), 1);  // the last entry
  EXPECT_EQ(ForgetPinVerified("a"), 1);  // the first entry
  EXPECT_EQ(FindPinVerified("c", nullptr), 0);
  ASSERT_EQ(MarkPinVerified("e"), 1);
  EXPECT_EQ(FindPinVerified("e", nullptr), 1);
  EXPECT_EQ(ForgetPinVerified("never-marked"), 0);
}

TEST_F(VerifiedPinCache, FindOnEmptyOrUnknownNameGivesMinusOneAndLeavesOutputAlone) {
  VerifiedPinEntry entry{};
  entry.verifiedAt = 77;
  EXPECT_EQ(FindPinVerified("x", &entry), -1);
  EXPECT_EQ(entry.verifiedAt, 77u);
  ASSERT_EQ(MarkPinVerified("x"), 1);
  EXPECT_EQ(FindPinVerified("X", &entry), -1) << "names compare case-sensitively";
  EXPECT_EQ(FindPinVerified("x ", &entry), -1);
  EXPECT_EQ(FindPinVerified("", &entry), -1);
}

TEST_F(VerifiedPinCache, FreshForLessThanThirtySeconds) {
  fakeNow = 1'000'000;
  ASSERT_EQ(MarkPinVerified("bt-card"), 1);
  fakeNow = 1'000'000 + 29'900;
  EXPECT_TRUE(IsPinVerifiedRecently("bt-card"));
  fakeNow = 1'000'000 + 29'999;
  EXPECT_TRUE(IsPinVerifiedRecently("bt-card"));
  fakeNow = 1'000'000 + 30'000;
  EXPECT_FALSE(IsPinVerifiedRecently("bt-card"));
  // Stale entries are not aged out; marking again makes them fresh.
  EXPECT_EQ(FindPinVerified("bt-card", nullptr), 0);
  ASSERT_EQ(MarkPinVerified("bt-card"), 1);
  EXPECT_TRUE(IsPinVerifiedRecently("bt-card"));
  EXPECT_FALSE(IsPinVerifiedRecently("other-card"));
}

TEST(VerifiedPinFreshness, BoundariesOfTheThirtySecondWindow) {
  VerifiedPinEntry entry{};
  entry.verifiedAt = 10'000;
  EXPECT_TRUE(IsPinVerificationFresh(entry, 10'000));
  EXPECT_TRUE(IsPinVerificationFresh(entry, 39'999));
  EXPECT_FALSE(IsPinVerificationFresh(entry, 40'000));
  EXPECT_FALSE(IsPinVerificationFresh(entry, 9'999)) << "a time in the future is not fresh";
  entry.verifiedAt = 0;
  EXPECT_TRUE(IsPinVerificationFresh(entry, 0));
  entry.verifiedAt = UINT64_MAX - 5;
  EXPECT_TRUE(IsPinVerificationFresh(entry, UINT64_MAX));
}

TEST_F(VerifiedPinCache, NamesOver63CharactersAreRejectedNotTruncated) {
  std::string longest(63, 'n');
  std::string tooLong(64, 'n');
  ASSERT_EQ(MarkPinVerified(longest.c_str()), 1);
  VerifiedPinEntry entry{};
  ASSERT_EQ(FindPinVerified(longest.c_str(), &entry), 0);
  EXPECT_EQ(std::string(entry.name), longest);
  EXPECT_EQ(entry.name[63], '\0');

  EXPECT_EQ(MarkPinVerified(tooLong.c_str()), 0);
  EXPECT_EQ(FindPinVerified(tooLong.c_str(), &entry), -1)
      << "a 64-character name must not match its 63-character prefix";
  EXPECT_EQ(ForgetPinVerified(tooLong.c_str()), 0);
  EXPECT_EQ(FindPinVerified(longest.c_str(), nullptr), 0);

  EXPECT_EQ(MarkPinVerified(nullptr), 0);
  EXPECT_EQ(FindPinVerified(nullptr, &entry), -1);
  EXPECT_EQ(ForgetPinVerified(nullptr), 0);
}

TEST_F(VerifiedPinCache, EntryNameIsZeroPaddedAfterASlotIsReused) {
  std::string longest(63, 'q');
  ASSERT_EQ(MarkPinVerified(longest.c_str()), 1);
  ASSERT_EQ(ForgetPinVerified(longest.c_str()), 1);
  ASSERT_EQ(MarkPinVerified("ab"), 1);
  VerifiedPinEntry entry;
  memset(&entry, 0xCC, sizeof(entry));
  ASSERT_EQ(FindPinVerified("ab", &entry), 0);
  EXPECT_EQ(entry.name[0], 'a');
  EXPECT_EQ(entry.name[1], 'b');
  for (size_t i = 2; i < kVerifiedPinNameSize; ++i) EXPECT_EQ(entry.name[i], '\0') << i;
}

TEST_F(VerifiedPinCache, ConcurrentMarkAndForgetKeepOneEntryPerName) {
  constexpr int kThreads = 8;
  constexpr int kOwnNames = 16;
  constexpr int kShared = 4;
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &go] {
      while (!go.load()) std::this_thread::yield();
      for (int round = 0; round < 20; ++round) {
        for (int s = 0; s < kShared; ++s) MarkPinVerified(Name("shared", s).c_str());
        for (int n = 0; n < kOwnNames; ++n) {
          MarkPinVerified(Name(("t" + std::to_string(t) + "-").c_str(), n).c_str());
        }
        for (int n = 1; n < kOwnNames; n += 2) {
          ForgetPinVerified(Name(("t" + std::to_string(t) + "-").c_str(), n).c_str());
        }
      }
    });
  }
  go = true;
  for (auto& thread : threads) thread.join();

  std::set<int> indices;
  for (int s = 0; s < kShared; ++s) {
    indices.insert(FindPinVerified(Name("shared", s).c_str(), nullptr));
  }
  for (int t = 0; t < kThreads; ++t) {
    std::string prefix = "t" + std::to_string(t) + "-";
    for (int n = 0; n < kOwnNames; ++n) {
      int index = FindPinVerified(Name(prefix.c_str(), n).c_str(), nullptr);
      if (n % 2) {
        EXPECT_EQ(index, -1) << prefix << n;
      } else {
        indices.insert(index);
      }
    }
  }
  const int expected = kShared + kThreads * kOwnNames / 2;
  ASSERT_EQ(static_cast<int>(indices.size()), expected) << "each surviving name at its own index";
  EXPECT_EQ(*indices.begin(), 0);
  EXPECT_EQ(*indices.rbegin(), expected - 1);
  // The count matches: a new name goes right after the survivors.
  ASSERT_EQ(MarkPinVerified("after"), 1);
  EXPECT_EQ(FindPinVerified("after", nullptr), expected);
}

TEST_F(VerifiedPinCache, OperationsWaitForAnyHolderOfTheNamedMutex) {
  ASSERT_EQ(CreateVerifiedPinMutex(), 0u);
  // Another component (or process) holding the mutex by name.
  HANDLE holder = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kVerifiedPinMutexName);
  ASSERT_NE(holder, nullptr) << "the cache mutex exists under its name";
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
  EXPECT_TRUE(marked.load());
  EXPECT_EQ(FindPinVerified("blocked", nullptr), 0);
  CloseHandle(holder);
}

TEST(SharedMutex, CreatedWithNullDacl) {
  std::wstring name = L"NivraUiTest_NullDacl_" + std::to_wstring(GetCurrentProcessId());
  uint32_t error = 0;
  HANDLE mutex = OpenOrCreateSharedMutex(name.c_str(), &error);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(error, 0u);
  PACL dacl = reinterpret_cast<PACL>(1);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetSecurityInfo(mutex, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            &dacl, nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(dacl, nullptr) << "a NULL DACL grants everyone access";
  LocalFree(descriptor);
  // Created not owned: another thread can take it at once.
  DWORD wait = WAIT_FAILED;
  std::thread([&] {
    wait = WaitForSingleObject(mutex, 0);
    if (wait == WAIT_OBJECT_0) ReleaseMutex(mutex);
  }).join();
  EXPECT_EQ(wait, WAIT_OBJECT_0);
  CloseHandle(mutex);
}

TEST(SharedMutex, OpensAnExistingMutexInsteadOfCreatingAnother) {
  std::wstring name = L"NivraUiTest_Existing_" + std::to_wstring(GetCurrentProcessId());
  HANDLE first = CreateMutexW(nullptr, TRUE, name.c_str());  // owned by this thread
  ASSERT_NE(first, nullptr);
  HANDLE second = OpenOrCreateSharedMutex(name.c_str(), nullptr);
  ASSERT_NE(second, nullptr);
  DWORD wait = WAIT_FAILED;
  std::thread([&] { wait = WaitForSingleObject(second, 0); }).join();
  EXPECT_EQ(wait, static_cast<DWORD>(WAIT_TIMEOUT)) << "both handles name one mutex";
  ReleaseMutex(first);
  CloseHandle(second);
  CloseHandle(first);
}

TEST(SharedMutex, ReportsWhyItCouldNotBeCreated) {
  uint32_t error = 0;
  // Names may not contain a backslash outside the Global\ and Local\ namespaces.
  HANDLE mutex = OpenOrCreateSharedMutex(L"NoSuchNamespace\\nivra", &error);
  EXPECT_EQ(mutex, nullptr);
  EXPECT_NE(error, 0u);

  SharedMutexLock withoutMutex(nullptr);
  EXPECT_FALSE(withoutMutex.held());
}

}  // namespace
}  // namespace nivra::ui
