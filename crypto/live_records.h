// The set of records of one kind that are alive, under one lock: the only way from a caller's
// handle to a record. A handle names a record's address (plus a bias the owner of the set
// removes); the address is looked up here before any field of the record is read, so a stale or
// garbage handle is refused instead of being dereferenced. Portable: serves the crypto library's
// key, hash and cipher handles and the provider's contexts, keys and hashes.
//
// A record can also be held: a caller that must keep using a record after the lookup (the
// provider's call frame with its context) counts itself as a holder, and retiring the record
// waits until the last holder has let go, so the record is never freed under a caller.
#pragma once
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace nivra::crypto {

template <class Record>
class LiveRecords {
 public:
  // Makes a freshly built record live (with no holder).
  void Add(const Record* record) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_[record] = 0;
  }

  // Forgets a record; false when it was not live, so of two racing removals only one wins.
  // Holders are not waited for (see Retire).
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

  // Like Find, and counts the caller as a holder of the record until Release.
  template <class Accept>
  Record* Hold(uintptr_t address, Accept accept) {
    std::lock_guard<std::mutex> lock(mutex_);
    Record* record = FindLocked(address, accept);
    if (record != nullptr) ++records_[record];
    return record;
  }

  // Ends a Hold. The record may since have been retired: its last holder wakes the retirer.
  void Release(const Record* record) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto live = records_.find(record);
    if (live != records_.end()) {
      --live->second;
      return;
    }
    auto retiring = retiring_.find(record);
    if (retiring != retiring_.end() && --retiring->second == 0) released_.notify_all();
  }

  // Forgets a record for new lookups, then waits until every holder has released it. False (and
  // no wait) when it was not live: of two racing retirements only one wins, and only the winner
  // may free the record. The caller must not hold the record itself.
  bool Retire(const Record* record) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto live = records_.find(record);
    if (live == records_.end()) return false;
    const size_t holders = live->second;
    records_.erase(live);
    if (holders == 0) return true;
    retiring_[record] = holders;
    released_.wait(lock, [&] { return retiring_[record] == 0; });
    retiring_.erase(record);
    return true;
  }

  // Whether the record is live (added and not yet removed or retired).
  bool Contains(const Record* record) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_.count(record) != 0;
  }

 private:
  template <class Accept>
  Record* FindLocked(uintptr_t address, Accept& accept) const {
    auto* candidate = reinterpret_cast<Record*>(address);
    if (candidate == nullptr || records_.count(candidate) == 0) return nullptr;
    return accept(static_cast<const Record&>(*candidate)) ? candidate : nullptr;
  }

  mutable std::mutex mutex_;
  std::condition_variable released_;
  std::unordered_map<const Record*, size_t> records_;   // live records and their holders
  std::unordered_map<const Record*, size_t> retiring_;  // retired, still held
};

}  // namespace nivra::crypto
