// The process-wide record of devices whose PIN the user verified recently. The Bluetooth
// transport consults it so that one verification serves every context for 30 seconds, and the
// provider parameter that confirms or revokes a device's verification writes it.
//
// The list holds at most 256 names and is never aged: an entry stays until its name is verified
// again (which refreshes its time) or forgotten. All operations are serialised by the named mutex
// "MUTEX_NIVRA_CSP_G_Var_ListHasVerifyed_" (and by an in-process lock, so the list stays
// consistent even when the named mutex could not be obtained).
//
// Names are compared case-sensitively as NUL-terminated 8-bit strings. A name longer than 63
// characters (or a null name) is rejected by every operation rather than truncated: truncation
// would let a different device whose name shares the first 63 characters ride on this device's
// verification.
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::provider {

constexpr size_t kVerifiedPinCapacity = 256;
constexpr size_t kVerifiedPinNameSize = 64;  // 63 characters and the NUL
constexpr uint64_t kVerifiedPinFreshMs = 30000;
constexpr wchar_t kVerifiedPinMutexName[] = L"MUTEX_NIVRA_CSP_G_Var_ListHasVerifyed_";

struct VerifiedPinEntry {
  char name[kVerifiedPinNameSize];  // NUL-terminated, zero-padded
  uint64_t verifiedAt;              // GetTickCount64() at verification, milliseconds
};

// Opens or creates the cache mutex (see platform::OpenOrCreateSharedMutex). Only the first call in a
// process does the work; later calls return its result. The module start-up calls it before
// the PKCS#11 back end starts; the operations below call it too, so the order is not fatal.
// Returns 0, or the Win32 error of the failed creation (the cache then runs on its in-process
// lock alone).
uint32_t CreateVerifiedPinMutex();

// Records that name's PIN was verified now: refreshes the time of an existing entry, or appends
// one. Returns 1, or 0 when the list already holds 256 other names or the name is rejected.
int MarkPinVerified(const char* name);

// Removes the first entry with name, moving later entries down by one. Returns 1 if an entry was
// removed, else 0.
int ForgetPinVerified(const char* name);

// Copies the first entry with name to *entryOut (when not null) and returns its index, or
// returns -1.
int FindPinVerified(const char* name, VerifiedPinEntry* entryOut);

// True while less than kVerifiedPinFreshMs milliseconds have passed from entry.verifiedAt to now.
// A time in the future (now earlier than verifiedAt) is not fresh.
bool IsPinVerificationFresh(const VerifiedPinEntry& entry, uint64_t now);

// FindPinVerified and IsPinVerificationFresh against the cache's clock.
bool IsPinVerifiedRecently(const char* name);

// Test seams. SetVerifiedPinClock replaces GetTickCount64 as the cache's clock (nullptr restores
// it); ClearVerifiedPins empties the list.
void SetVerifiedPinClock(uint64_t (*clock)());
void ClearVerifiedPins();

}  // namespace nivra::provider
