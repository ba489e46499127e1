// The set of records of one kind that are alive, under one lock: the only way from a caller's
// handle to a record. A handle names a record's address (plus a bias the owner of the set
// removes); the address is looked up here before any field of the record is read, so a stale or
// garbage handle is refused instead of being dereferenced. Portable: serves the crypto library's
// key, hash and cipher handles and the provider's contexts, keys and hashes.
#pragma once
#include <cstdint>
#include <mutex>
#include <unordered_set>

namespace nivra::crypto {

template <class Record>
class LiveRecords {
 public:
  // Makes a freshly built record live.
  void Add(const Record* record) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.insert(record);
  }

  // Forgets a record; false when it was not live, so of two racing removals only one wins.
  bool Remove(const Record* record) {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_.erase(record) != 0;
  }

  // The live record at address for which accept(const Record&) holds, or null. accept runs under
  // the set's lock, when the record is known to be alive, so it may read the record's fields.
  template <class Accept>
  Record* Find(uintptr_t address, Accept accept) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return FindLocked(address, accept);
  }

 private:
  template <class Accept>
  Record* FindLocked(uintptr_t address, Accept& accept) const {
    auto* candidate = reinterpret_cast<Record*>(address);
    if (candidate == nullptr || records_.count(candidate) == 0) return nullptr;
    return accept(static_cast<const Record&>(*candidate)) ? candidate : nullptr;
  }

  mutable std::mutex mutex_;
  std::unordered_set<const Record*> records_;
};

}  // namespace nivra::crypto
