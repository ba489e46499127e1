// The frame every entry that takes a context runs through: validate the context handle, hold the
// context's per-card lock for the whole call, run the work, set the thread's last error, release
// the lock. Nothing escapes an entry: an exception from the work becomes NTE_NO_MEMORY
// (allocation) or NTE_FAIL.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <new>
#include <type_traits>

#include "platform/named_mutex.h"
#include "provider/handle_registry.h"
#include "provider/provider_context.h"
#include "provider/status_codes.h"

namespace nivra::provider {

// How an entry ends.
struct Outcome {
  enum class LastError { Set, Keep };
  BOOL ok;
  Status error;         // with LastError::Set: the value stored (0 on success)
  LastError lastError;  // Keep: the software provider's last error stands as it left it

  static Outcome Success() { return {TRUE, kOk, LastError::Set}; }
  static Outcome Failure(Status error) { return {FALSE, error, LastError::Set}; }
  static Outcome FromStatus(Status error) { return error == kOk ? Success() : Failure(error); }
  // The result of a software-provider call whose last error is to stand (set or not).
  static Outcome SoftwareResult(BOOL ok) { return {ok, kOk, LastError::Keep}; }
  // A software-provider failure re-reported with its own GetLastError value.
  static Outcome SoftwareFailure() { return {FALSE, GetLastError(), LastError::Set}; }
};

// Sets the last error as the outcome says and returns its BOOL.
BOOL Finish(const Outcome& outcome);

// Runs `work(ctx)` (returning Outcome) inside the frame for hProv. The context is held for the
// whole call, so a release that races the call waits for it; a call that obtains the lock after
// the context was released fails with NTE_INVALID_HANDLE.
template <class Work>
BOOL RunInContext(HCRYPTPROV hProv, Work&& work) noexcept {
  ContextHold hold(hProv);
  if (hold.status() != kOk) return Finish(Outcome::Failure(hold.status()));
  ProviderContext* ctx = hold.context();
  Outcome outcome = Outcome::Failure(kNteFail);
  {
    platform::NamedMutexLock lock(ctx->contextLock);
    try {
      outcome = IsContextLive(ctx) ? work(*ctx) : Outcome::Failure(kNteInvalidHandle);
    } catch (const std::bad_alloc&) {
      outcome = Outcome::Failure(kNteNoMemory);
    } catch (...) {
      outcome = Outcome::Failure(kNteFail);
    }
    // The lock's release must not disturb a last error that is to stand.
    if (outcome.lastError == Outcome::LastError::Keep) outcome.error = GetLastError();
  }
  if (outcome.lastError == Outcome::LastError::Keep) {
    SetLastError(outcome.error);
    return outcome.ok;
  }
  return Finish(outcome);
}

// A key or hash handle that an entry resolves before its work: Required* must name a live object
// of the context, Optional* may also be 0 (the work then gets null for it).
template <class Object>
struct ObjectHandle {
  uintptr_t value;
  bool optional;
};
inline ObjectHandle<KeyObject> RequiredKey(HCRYPTKEY h) { return {h, false}; }
inline ObjectHandle<KeyObject> OptionalKey(HCRYPTKEY h) { return {h, true}; }
inline ObjectHandle<HashObject> RequiredHash(HCRYPTHASH h) { return {h, false}; }
inline ObjectHandle<HashObject> OptionalHash(HCRYPTHASH h) { return {h, true}; }

// Looks one handle up for RunWithObjects, unless an earlier one failed; a failure is kept in
// *status.
template <class Object>
Object* ResolveObject(const ProviderContext& ctx, ObjectHandle<Object> handle, Status* status) {
  if (*status != kOk || (handle.optional && handle.value == 0)) return nullptr;
  Object* object = nullptr;
  if constexpr (std::is_same_v<Object, KeyObject>) {
    *status = LookupKey(ctx, handle.value, &object);
  } else {
    *status = LookupHash(ctx, handle.value, &object);
  }
  return object;
}

// Runs `work(ctx, objects...)` inside the frame for hProv once each handle, in the order given,
// has been looked up against that context; the first that names none of its live objects ends
// the entry with the lookup's error.
template <class A, class Work>
BOOL RunWithObjects(HCRYPTPROV hProv, ObjectHandle<A> a, Work&& work) noexcept {
  return RunInContext(hProv, [&](ProviderContext& ctx) {
    Status status = kOk;
    A* first = ResolveObject(ctx, a, &status);
    if (status != kOk) return Outcome::Failure(status);
    return work(ctx, first);
  });
}

template <class A, class B, class Work>
BOOL RunWithObjects(HCRYPTPROV hProv, ObjectHandle<A> a, ObjectHandle<B> b, Work&& work) noexcept {
  return RunInContext(hProv, [&](ProviderContext& ctx) {
    Status status = kOk;
    A* first = ResolveObject(ctx, a, &status);
    B* second = ResolveObject(ctx, b, &status);
    if (status != kOk) return Outcome::Failure(status);
    return work(ctx, first, second);
  });
}

// Entries that hand a new handle out through an out-pointer check it before anything else:
// NULL gives ERROR_INVALID_PARAMETER, otherwise it is zeroed.
template <class Handle>
bool ClearOutHandle(Handle* out) {
  if (out == nullptr) {
    SetLastError(kErrInvalidParameter);
    return false;
  }
  *out = 0;
  return true;
}

// Fixed-size answers of the get-parameter entries: pbData NULL reports the size; a smaller
// buffer reports the size and ERROR_MORE_DATA; otherwise copies.
Status CopyOut(const void* value, DWORD size, BYTE* pbData, DWORD* pdwDataLen);

}  // namespace nivra::provider
