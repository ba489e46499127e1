// Heap key schedules of DES and TDEA: set-up from key bytes, copy, and wiping release.
#include <new>

#include "crypto/des.h"
#include "crypto/wipe.h"

namespace nivra::crypto {
namespace {

DesKeySchedule* AllocateSchedule() {
  // Value-initialised: a fresh schedule is zero-filled.
  return new (std::nothrow) DesKeySchedule{};
}

}  // namespace

Status DesKeySetup(const uint8_t* key, size_t keyLen, DesKeySchedule** out) {
  if (key == nullptr || out == nullptr) return kErrNullData;
  size_t count = keyLen / kDesKeySize;
  if (count < 1) return kErrInvalidHandle;
  if (count > kDesMaxKeys) count = kDesMaxKeys;
  if (DesKeyChecksOn()) {
    for (size_t i = 0; i < count; ++i) {
      Status s = DesCheckKey(key + i * kDesKeySize);
      if (s != kOk) return s;
    }
  }
  DesKeySchedule* schedule = AllocateSchedule();
  if (schedule == nullptr) return kErrNoMemory;
  for (size_t i = 0; i < count; ++i) DesExpandKey(key + i * kDesKeySize, &schedule->keys[i]);
  schedule->keyCount = static_cast<uint32_t>(count);
  *out = schedule;
  return kOk;
}

Status DesCloneKeySchedule(const DesKeySchedule* schedule, DesKeySchedule** copy) {
  if (schedule == nullptr || schedule->keyCount < 1 || schedule->keyCount > kDesMaxKeys) {
    return kErrInvalidHandle;
  }
  if (copy == nullptr) return kErrNullData;
  DesKeySchedule* fresh = AllocateSchedule();
  if (fresh == nullptr) return kErrNoMemory;
  *fresh = *schedule;
  *copy = fresh;
  return kOk;
}

Status DesFreeKeySchedule(DesKeySchedule* schedule) {
  if (schedule == nullptr) return kErrInvalidHandle;
  Wipe(schedule, sizeof *schedule);
  delete schedule;
  return kOk;
}

}  // namespace nivra::crypto
