#include "provider/call_frame.h"

#include <cstring>

namespace nivra::provider {

ContextLockGuard::ContextLockGuard(const ProviderContext& ctx) {
  if (ctx.contextLock == nullptr) return;
  // An abandoned mutex is still ours: a process that died inside a call must not block the card.
  DWORD wait = WaitForSingleObject(ctx.contextLock, INFINITE);
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) lock_ = ctx.contextLock;
}

ContextLockGuard::~ContextLockGuard() {
  if (lock_ != nullptr) ReleaseMutex(lock_);
}

BOOL Finish(const Outcome& outcome) {
  SetLastError(outcome.error);
  return outcome.ok;
}

Status CopyOut(const void* value, DWORD size, BYTE* pbData, DWORD* pdwDataLen) {
  if (pbData == nullptr) {
    *pdwDataLen = size;
    return kOk;
  }
  if (*pdwDataLen < size) {
    *pdwDataLen = size;
    return kErrMoreData;
  }
  std::memcpy(pbData, value, size);
  *pdwDataLen = size;
  return kOk;
}

}  // namespace nivra::provider
