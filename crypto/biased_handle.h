// Handles of the crypto library's records (RSA keys, hash objects, cipher contexts) are the
// record's address plus a fixed bias, and each record keeps a self pointer. Before a record is
// touched through a handle, the handle is looked up among the records that are alive, so a stale
// or garbage handle is rejected with kErrInvalidHandle instead of being dereferenced.
#pragma once
#include <cstdint>
#include <mutex>
#include <unordered_set>

namespace nivra::crypto {

// Process-wide set of live records of one kind. Record types expose a member `self` that
// points at the record itself while it is alive.
template <class Record, uintptr_t Bias>
class BiasedHandles {
 public:
  static uintptr_t HandleOf(const Record* record) {
    return reinterpret_cast<uintptr_t>(record) + Bias;
  }

  // Registers a freshly built record (sets its self pointer) and returns its handle.
  static uintptr_t Register(Record* record) {
    record->self = record;
    std::lock_guard<std::mutex> lock(Mutex());
    Live().insert(record);
    return HandleOf(record);
  }

  // Returns the live record named by handle, or nullptr (null handle, unknown address, or a
  // self pointer that does not match).
  static Record* Lookup(uintptr_t handle) {
    if (handle == 0 || handle == Bias) return nullptr;
    auto* candidate = reinterpret_cast<Record*>(handle - Bias);
    std::lock_guard<std::mutex> lock(Mutex());
    if (Live().count(candidate) == 0) return nullptr;
    return candidate->self == candidate ? candidate : nullptr;
  }

  // Forgets a record before it is destroyed; false when it was not alive.
  static bool Unregister(Record* record) {
    std::lock_guard<std::mutex> lock(Mutex());
    return Live().erase(record) != 0;
  }

 private:
  static std::mutex& Mutex() {
    static std::mutex m;
    return m;
  }
  static std::unordered_set<const Record*>& Live() {
    static std::unordered_set<const Record*> live;
    return live;
  }
};

}  // namespace nivra::crypto
