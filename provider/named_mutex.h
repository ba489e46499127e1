// Named mutexes shared by every process and user: opened when they exist, otherwise created with
// a NULL DACL so that any account may open them.
#pragma once
#include <windows.h>

namespace nivra::provider {

// Opens (MUTEX_ALL_ACCESS, inheritable) or creates the mutex; null when both fail, with the
// failure's last error left set.
HANDLE OpenOrCreateSharedMutex(const wchar_t* name);

// Holds a mutex for a scope; a null handle means "run without it". An abandoned mutex counts
// as taken.
class MutexGuard {
 public:
  explicit MutexGuard(HANDLE mutex);
  ~MutexGuard();
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  HANDLE held_ = nullptr;
};

}  // namespace nivra::provider
