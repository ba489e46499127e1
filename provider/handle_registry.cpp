#include "provider/handle_registry.h"

#include "crypto/live_records.h"

namespace nivra::provider {

namespace {

template <class Record>
crypto::LiveRecords<Record>& Live() {
  static crypto::LiveRecords<Record> live;
  return live;
}

// Finds the live record at handle - bias whose selfHandle equals handle.
template <class Record, class Handle>
Status Lookup(Handle handle, uintptr_t bias, Status zeroError, Record** out) {
  *out = nullptr;
  if (handle == 0) return zeroError;
  *out = Live<Record>().Find(static_cast<uintptr_t>(handle) - bias,
                             [&](const Record& record) { return record.selfHandle == handle; });
  return *out != nullptr ? kOk : kNteInvalidHandle;
}

}  // namespace

void RegisterContext(ProviderContext* ctx) { Live<ProviderContext>().Add(ctx); }
void UnregisterContext(ProviderContext* ctx) { Live<ProviderContext>().Remove(ctx); }
void RegisterKey(KeyObject* key) { Live<KeyObject>().Add(key); }
void UnregisterKey(KeyObject* key) { Live<KeyObject>().Remove(key); }
void RegisterHash(HashObject* hash) { Live<HashObject>().Add(hash); }
void UnregisterHash(HashObject* hash) { Live<HashObject>().Remove(hash); }

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
