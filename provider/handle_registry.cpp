#include "provider/handle_registry.h"

#include "crypto/live_records.h"

namespace nivra::provider {

namespace {

template <class Record>
crypto::LiveRecords<Record>& Live() {
  static crypto::LiveRecords<Record> live;
  return live;
}

// Finds the live record at handle - bias whose selfHandle equals handle and whose owner, for
// keys and hashes, is the context named.
template <class Record, class Handle>
Status Lookup(Handle handle, uintptr_t bias, const ProviderContext* owner, Record** out) {
  *out = nullptr;
  if (handle == 0) return kNteInvalidParameter;
  *out = Live<Record>().Find(static_cast<uintptr_t>(handle) - bias, [&](const Record& record) {
    return record.selfHandle == handle && record.owner == owner;
  });
  return *out != nullptr ? kOk : kNteInvalidHandle;
}

// Contexts are found by their handle alone.
auto ContextNamed(HCRYPTPROV hProv) {
  return [hProv](const ProviderContext& ctx) { return ctx.selfHandle == hProv; };
}

}  // namespace

void RegisterContext(ProviderContext* ctx) { Live<ProviderContext>().Add(ctx); }
void RegisterKey(KeyObject* key) { Live<KeyObject>().Add(key); }
void UnregisterKey(KeyObject* key) { Live<KeyObject>().Remove(key); }
void RegisterHash(HashObject* hash) { Live<HashObject>().Add(hash); }
void UnregisterHash(HashObject* hash) { Live<HashObject>().Remove(hash); }

Status LookupContext(HCRYPTPROV hProv, ProviderContext** out) {
  *out = nullptr;
  if (hProv == 0) return kNteInvalidParameter;
  *out = Live<ProviderContext>().Find(hProv - kHandleBias, ContextNamed(hProv));
  return *out != nullptr ? kOk : kNteInvalidHandle;
}

ContextHold::ContextHold(HCRYPTPROV hProv) : status_(kNteInvalidParameter) {
  if (hProv == 0) return;
  ctx_ = Live<ProviderContext>().Hold(hProv - kHandleBias, ContextNamed(hProv));
  status_ = ctx_ != nullptr ? kOk : kNteInvalidHandle;
}

ContextHold::~ContextHold() {
  if (ctx_ != nullptr) Live<ProviderContext>().Release(ctx_);
}

bool RetireContext(ProviderContext* ctx) { return Live<ProviderContext>().Retire(ctx); }

bool IsContextLive(const ProviderContext* ctx) { return Live<ProviderContext>().Contains(ctx); }

Status LookupKey(const ProviderContext& ctx, HCRYPTKEY hKey, KeyObject** out) {
  return Lookup(hKey, ctx.objectBias, &ctx, out);
}

Status LookupHash(const ProviderContext& ctx, HCRYPTHASH hHash, HashObject** out) {
  return Lookup(hHash, ctx.objectBias, &ctx, out);
}

}  // namespace nivra::provider
