#include "platform/named_mutex.h"

namespace nivra::platform {

HANDLE OpenOrCreateSharedMutex(const wchar_t* name, uint32_t* error) {
  HANDLE mutex = OpenMutexW(MUTEX_ALL_ACCESS, TRUE, name);
  if (mutex) return mutex;
  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, FALSE};
  if (InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) &&
      SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
    mutex = CreateMutexW(&attributes, FALSE, name);
  }
  if (!mutex && error) *error = GetLastError();
  return mutex;
}

NamedMutexLock::NamedMutexLock(HANDLE mutex) : mutex_(mutex), held_(false) {
  if (!mutex_) return;
  DWORD wait = WaitForSingleObject(mutex_, INFINITE);
  held_ = wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED;
}

NamedMutexLock::~NamedMutexLock() {
  if (held_) ReleaseMutex(mutex_);
}

}  // namespace nivra::platform
