// The record of recently verified devices: one entry per name, 256 at most, forgetting moves the
// later entries down, 30 seconds of freshness, names of at most 63 characters, and the named
// mutex that serialises it.
#include "provider/verified_pin_cache.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

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

// Marking again refreshes the one entry; forgetting moves the later entries down with their
// times; a full list refuses a new name but still refreshes, and a forget makes room for one.
TEST_F(VerifiedPinCache, OneEntryPerNameInOrderAtMost256) {
  for (int i = 0; i < 4; ++i) {
    fakeNow = 1000 * (i + 1);
    ASSERT_EQ(MarkPinVerified(std::string(1, 'a' + i).c_str()), 1);
  }
  ASSERT_EQ(MarkPinVerified("a"), 1);  // refreshed at 4000, still first
  EXPECT_EQ(Find("A").first, -1) << "names compare case-sensitively";
  EXPECT_EQ(ForgetPinVerified("b"), 1);
  EXPECT_EQ(ForgetPinVerified("b"), 0);
  EXPECT_EQ(Find("a"), Entry(0, 4000));
  EXPECT_EQ(Find("c"), Entry(1, 3000));
  EXPECT_EQ(Find("d"), Entry(2, 4000));
  EXPECT_EQ(ForgetPinVerified("d"), 1);  // the last entry
  EXPECT_EQ(ForgetPinVerified("a"), 1);  // the first entry
  EXPECT_EQ(Find("c").first, 0);
  for (int i = 1; i < 256; ++i) ASSERT_EQ(MarkPinVerified(("dev" + std::to_string(i)).c_str()), 1) << i;
  EXPECT_EQ(Find("dev255").first, 255);
  EXPECT_EQ(MarkPinVerified("dev256"), 0);
  EXPECT_EQ(Find("dev256").first, -1);
  EXPECT_EQ(MarkPinVerified("c"), 1);
  EXPECT_EQ(ForgetPinVerified("dev7"), 1);
  EXPECT_EQ(MarkPinVerified("dev256"), 1);
  EXPECT_EQ(Find("dev256").first, 255);
  EXPECT_EQ(MarkPinVerified("dev257"), 0);
}

TEST_F(VerifiedPinCache, FreshForLessThanThirtySeconds) {
  ASSERT_EQ(MarkPinVerified("bt-card"), 1);
  for (auto [elapsed, fresh] : {std::pair<uint64_t, bool>{0, true}, {29'999, true}, {30'000, false}}) {
    fakeNow = 5'000'000 + elapsed;
    EXPECT_EQ(IsPinVerifiedRecently("bt-card"), fresh) << elapsed;
  }
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
  EXPECT_EQ(MarkPinVerified(tooLong.c_str()), 0);
  EXPECT_EQ(Find(tooLong).first, -1) << "a 64-character name must not match its 63-character prefix";
  EXPECT_EQ(ForgetPinVerified(tooLong.c_str()), 0);
  EXPECT_EQ(MarkPinVerified(nullptr), 0);
  EXPECT_EQ(FindPinVerified(nullptr, nullptr), -1);
  EXPECT_EQ(ForgetPinVerified(nullptr), 0);
}

// Marking and forgetting wait while any holder (another component or process) has the mutex.
TEST_F(VerifiedPinCache, OperationsWaitForAnyHolderOfTheNamedMutex) {
  ASSERT_EQ(CreateVerifiedPinMutex(), 0u);
  HANDLE holder = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kVerifiedPinMutexName);
  ASSERT_NE(holder, nullptr) << "the cache mutex exists under its name";
  for (bool mark : {true, false}) {
    ASSERT_EQ(WaitForSingleObject(holder, 10000), WAIT_OBJECT_0);
    std::atomic<bool> done{false};
    std::thread worker([&] {
      mark ? MarkPinVerified("blocked") : ForgetPinVerified("blocked");
      done = true;
    });
    Sleep(300);
    EXPECT_FALSE(done.load()) << (mark ? "marking" : "forgetting") << " went ahead while the named mutex was held";
    ReleaseMutex(holder);
    worker.join();
    EXPECT_EQ(Find("blocked").first, mark ? 0 : -1);
  }
  CloseHandle(holder);
}

}  // namespace
}  // namespace nivra::provider
