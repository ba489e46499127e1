#include "provider/named_mutex.h"

namespace nivra::provider {

HANDLE OpenOrCreateSharedMutex(const wchar_t* name) {
  HANDLE mutex = OpenMutexW(MUTEX_ALL_ACCESS, TRUE, name);
  if (mutex != nullptr) return mutex;
  SECURITY_DESCRIPTOR sd;
  InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&sd, TRUE, nullptr, FALSE);  // NULL DACL: everyone may open it
  SECURITY_ATTRIBUTES sa{sizeof(sa), &sd, TRUE};
  return CreateMutexW(&sa, FALSE, name);
}

MutexGuard::MutexGuard(HANDLE mutex) {
  if (mutex == nullptr) return;
  DWORD wait = WaitForSingleObject(mutex, INFINITE);
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) held_ = mutex;
}

MutexGuard::~MutexGuard() {
  if (held_ != nullptr) ReleaseMutex(held_);
}

}  // namespace nivra::provider
