// Named mutexes shared by every process and user (opened when they exist, otherwise created with
// a NULL DACL). One implementation serves the whole module; the provider names it in its terms.
#pragma once
#include <windows.h>

#include "ui/named_mutex.h"

namespace nivra::provider {

// Opens or creates the mutex; null when both fail, with the failure's last error left set.
inline HANDLE OpenOrCreateSharedMutex(const wchar_t* name) {
  return ui::OpenOrCreateSharedMutex(name, nullptr);
}

// Holds a mutex for a scope; a null handle means "run without it"; abandoned counts as taken.
using MutexGuard = ui::SharedMutexLock;

}  // namespace nivra::provider
