// Process-shared named mutexes that every user's processes can open, and the guard that holds one
// for a scope. Every cross-process lock of the module (module start-up, slot table, per-card
// container locks, verified-PIN cache, service connections) goes through these two.
#pragma once
#include <windows.h>

#include <cstdint>

namespace nivra::platform {

// Opens the mutex called name (MUTEX_ALL_ACCESS, inheritable); if that fails, creates it, not
// owned, with a security descriptor whose DACL is NULL. Returns the handle, or nullptr with
// *error (when error is not null) set to the failed creation's Win32 error; the thread's last
// error is left set by the failure either way.
HANDLE OpenOrCreateSharedMutex(const wchar_t* name, uint32_t* error = nullptr);

// Holds a mutex for one scope, waiting without time-out. A null handle or a failed wait is
// tolerated: the scope then runs without the mutex. An abandoned mutex counts as obtained: a
// process that died while holding it must not block the others.
class NamedMutexLock {
 public:
  explicit NamedMutexLock(HANDLE mutex);
  ~NamedMutexLock();
  NamedMutexLock(const NamedMutexLock&) = delete;
  NamedMutexLock& operator=(const NamedMutexLock&) = delete;

  bool held() const { return held_; }

 private:
  HANDLE mutex_;
  bool held_;
};

}  // namespace nivra::platform
