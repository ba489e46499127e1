// Handles of the crypto library's records (RSA keys, hash objects, cipher contexts) are the
// record's address plus a fixed bias, and each record keeps a self pointer. Before a record is
// touched through a handle, the handle is looked up among the records that are alive
// (live_records.h), so a stale or garbage handle is rejected with kErrInvalidHandle instead of
// being dereferenced.
#pragma once
#include <cstdint>

#include "crypto/live_records.h"

namespace nivra::crypto {

// Handles of one kind of record. Record types expose a member `self` that points at the record
// itself while it is alive.
template <class Record, uintptr_t Bias>
class BiasedHandles {
 public:
  static uintptr_t HandleOf(const Record* record) {
    return reinterpret_cast<uintptr_t>(record) + Bias;
  }

  // Registers a freshly built record (sets its self pointer) and returns its handle.
  static uintptr_t Register(Record* record) {
    record->self = record;
    Live().Add(record);
    return HandleOf(record);
  }

  // Returns the live record named by handle, or nullptr (null handle, unknown address, or a
  // self pointer that does not match).
  static Record* Lookup(uintptr_t handle) {
    if (handle == 0 || handle == Bias) return nullptr;
    return Live().Find(handle - Bias, [](const Record& record) { return record.self == &record; });
  }

  // Forgets a record before it is destroyed; false when it was not alive.
  static bool Unregister(Record* record) { return Live().Remove(record); }

 private:
  static LiveRecords<Record>& Live() {
    static LiveRecords<Record> live;
    return live;
  }
};

}  // namespace nivra::crypto
