// Process-shared named mutexes that every user's processes can open: opened when they exist,
// otherwise created with a NULL DACL.
#pragma once
#include <windows.h>

#include <cstdint>

namespace nivra::ui {

// Opens the mutex called name (MUTEX_ALL_ACCESS, inheritable); if that fails, creates it, not
// owned, with a security descriptor whose DACL is NULL. Returns the handle, or nullptr with
// *error (when error is not null) set to the failed creation's Win32 error.
HANDLE OpenOrCreateSharedMutex(const wchar_t* name, uint32_t* error);

// Holds a mutex for one scope. A null handle or a failed wait is tolerated: the scope then runs
// without the mutex. An abandoned mutex counts as obtained.
class SharedMutexLock {
 public:
  explicit SharedMutexLock(HANDLE mutex);
  ~SharedMutexLock();
  SharedMutexLock(const SharedMutexLock&) = delete;
  SharedMutexLock& operator=(const SharedMutexLock&) = delete;

  bool held() const { return held_; }

 private:
  HANDLE mutex_;
  bool held_;
};

}  // namespace nivra::ui
