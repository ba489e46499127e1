#include "provider/handle_registry.h"

#include <mutex>
#include <unordered_set>

namespace nivra::provider {

namespace {

// One lock for all three sets: lookups are short and rare next to the work of an entry.
std::mutex& RegistryMutex() {
  static std::mutex m;
  return m;
}

template <class Record>
std::unordered_set<const Record*>& Live() {
  static std::unordered_set<const Record*> live;
  return live;
}

template <class Record>
void Add(Record* r) {
  std::lock_guard<std::mutex> lock(RegistryMutex());
  Live<Record>().insert(r);
}

template <class Record>
void Remove(Record* r) {
  std::lock_guard<std::mutex> lock(RegistryMutex());
  Live<Record>().erase(r);
}

// Finds the live record at handle - bias whose selfHandle equals handle.
template <class Record, class Handle>
Status Lookup(Handle handle, uintptr_t bias, Status zeroError, Record** out) {
  *out = nullptr;
  if (handle == 0) return zeroError;
  auto* candidate = reinterpret_cast<Record*>(static_cast<uintptr_t>(handle) - bias);
  std::lock_guard<std::mutex> lock(RegistryMutex());
  if (candidate == nullptr || Live<Record>().count(candidate) == 0 ||
      candidate->selfHandle != handle) {
    return kNteInvalidHandle;
  }
  *out = candidate;
  return kOk;
}

}  // namespace

void RegisterContext(ProviderContext* ctx) { Add(ctx); }
void UnregisterContext(ProviderContext* ctx) { Remove(ctx); }
void RegisterKey(KeyObject* key) { Add(key); }
void UnregisterKey(KeyObject* key) { Remove(key); }
void RegisterHash(HashObject* hash) { Add(hash); }
void UnregisterHash(HashObject* hash) { Remove(hash); }

Status LookupContext(HCRYPTPROV hProv, ProviderContext** out) {
  return Lookup(hProv, kHandleBias, kNteInvalidParameter, out);
}

Status LookupKey(const ProviderContext& ctx, HCRYPTKEY hKey, KeyObject** out) {
  return Lookup(hKey, ctx.objectBias, kNteInvalidParameter, out);
}

Status LookupHash(const ProviderContext& ctx, HCRYPTHASH hHash, HashObject** out) {
  return Lookup(hHash, ctx.objectBias, kNteInvalidParameter, out);
}

}  // namespace nivra::provider
