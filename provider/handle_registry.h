// The only way from a caller's handle number to a provider record. Handles are the record's
// address plus a bias (contexts: HANDLE_BIAS; keys and hashes: their context's objectBias), and
// each record stores its own handle value. Before any record is read through a handle, the
// address is looked up among the records that are alive (crypto/live_records.h), so a stale or
// garbage handle yields NTE_INVALID_HANDLE instead of a read at an address the caller chose.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include "provider/provider_context.h"
#include "provider/status_codes.h"

namespace nivra::provider {

constexpr uintptr_t kHandleBias = 0x0110F7F0;

// Record lifetime: register after the record is built, unregister before it is freed.
void RegisterContext(ProviderContext* ctx);
void RegisterKey(KeyObject* key);
void UnregisterKey(KeyObject* key);
void RegisterHash(HashObject* hash);
void UnregisterHash(HashObject* hash);

// hProv 0: NTE_INVALID_PARAMETER; anything that names no live context whose selfHandle equals
// hProv: NTE_INVALID_HANDLE.
Status LookupContext(HCRYPTPROV hProv, ProviderContext** out);

// A context stays alive while a call holds it: its release waits for every holder. The call frame
// holds the context it runs in for the whole call; LookupContext's errors when hProv names none.
class ContextHold {
 public:
  explicit ContextHold(HCRYPTPROV hProv);
  ~ContextHold();
  ContextHold(const ContextHold&) = delete;
  ContextHold& operator=(const ContextHold&) = delete;

  Status status() const { return status_; }
  ProviderContext* context() const { return ctx_; }

 private:
  ProviderContext* ctx_ = nullptr;
  Status status_;
};

// Ends a registered context's life: new lookups no longer find it, and the call returns once no
// call holds it any more. False when it was not live (of two racing releases only one wins, and
// only the winner may tear the context down).
bool RetireContext(ProviderContext* ctx);

// Whether the context is still live; a call that held it while it was retired finds it is not.
bool IsContextLive(const ProviderContext* ctx);

// Key and hash handles are checked against the context the caller named: 0 gives
// NTE_INVALID_PARAMETER; an address (handle - objectBias) that is no live record, a record that
// does not carry this handle, or one that another context made (two contexts can share a bias
// once the bias counter has wrapped), gives NTE_INVALID_HANDLE.
Status LookupKey(const ProviderContext& ctx, HCRYPTKEY hKey, KeyObject** out);
Status LookupHash(const ProviderContext& ctx, HCRYPTHASH hHash, HashObject** out);

}  // namespace nivra::provider
