#include "provider/verified_pin_cache.h"

#include <windows.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/named_mutex.h"

namespace nivra::provider {
namespace {

struct VerifiedPinList {
  VerifiedPinEntry entries[kVerifiedPinCapacity];
  size_t count;
};

VerifiedPinList ListHasVerifyed;  // zero-initialised: empty at process start
std::mutex listLock;
HANDLE cacheMutex = nullptr;
uint32_t cacheMutexError = 0;
std::once_flag cacheMutexOnce;
std::atomic<uint64_t (*)()> clockSource{nullptr};

uint64_t Now() {
  uint64_t (*clock)() = clockSource.load();
  return clock ? clock() : GetTickCount64();
}

bool AcceptableName(const char* name) {
  return name && strnlen(name, kVerifiedPinNameSize) < kVerifiedPinNameSize;
}

// Index of the first entry named name, or -1. Caller holds the list.
int IndexOf(const char* name) {
  for (size_t i = 0; i < ListHasVerifyed.count; ++i) {
    if (strcmp(ListHasVerifyed.entries[i].name, name) == 0) return static_cast<int>(i);
  }
  return -1;
}

// The in-process lock first, then the named mutex: every thread takes them in this order.
class ListGuard {
 public:
  ListGuard() : local_(listLock), shared_((CreateVerifiedPinMutex(), cacheMutex)) {}

 private:
  std::lock_guard<std::mutex> local_;
  platform::NamedMutexLock shared_;
};

}  // namespace

uint32_t CreateVerifiedPinMutex() {
  std::call_once(cacheMutexOnce, [] {
    cacheMutex = platform::OpenOrCreateSharedMutex(kVerifiedPinMutexName, &cacheMutexError);
  });
  return cacheMutex ? 0 : cacheMutexError;
}

int MarkPinVerified(const char* name) {
  if (!AcceptableName(name)) return 0;
  ListGuard guard;
  uint64_t now = Now();
  int index = IndexOf(name);
  if (index >= 0) {
    ListHasVerifyed.entries[index].verifiedAt = now;
    return 1;
  }
  if (ListHasVerifyed.count == kVerifiedPinCapacity) return 0;
  VerifiedPinEntry& entry = ListHasVerifyed.entries[ListHasVerifyed.count++];
  memset(entry.name, 0, sizeof(entry.name));
  memcpy(entry.name, name, strlen(name));
  entry.verifiedAt = now;
  return 1;
}

int ForgetPinVerified(const char* name) {
  if (!AcceptableName(name)) return 0;
  ListGuard guard;
  int index = IndexOf(name);
  if (index < 0) return 0;
  VerifiedPinEntry* entries = ListHasVerifyed.entries;
  size_t last = --ListHasVerifyed.count;
  memmove(&entries[index], &entries[index + 1], (last - index) * sizeof(VerifiedPinEntry));
  memset(&entries[last], 0, sizeof(VerifiedPinEntry));
  return 1;
}

int FindPinVerified(const char* name, VerifiedPinEntry* entryOut) {
  if (!AcceptableName(name)) return -1;
  ListGuard guard;
  int index = IndexOf(name);
  if (index >= 0 && entryOut) *entryOut = ListHasVerifyed.entries[index];
  return index;
}

bool IsPinVerificationFresh(const VerifiedPinEntry& entry, uint64_t now) {
  return now >= entry.verifiedAt && now - entry.verifiedAt < kVerifiedPinFreshMs;
}

bool IsPinVerifiedRecently(const char* name) {
  VerifiedPinEntry entry;
  return FindPinVerified(name, &entry) >= 0 && IsPinVerificationFresh(entry, Now());
}

void SetVerifiedPinClock(uint64_t (*clock)()) { clockSource.store(clock); }

void ClearVerifiedPins() {
  ListGuard guard;
  memset(&ListHasVerifyed, 0, sizeof(ListHasVerifyed));
}

}  // namespace nivra::provider
