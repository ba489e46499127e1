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
void UnregisterContext(ProviderContext* ctx);
void RegisterKey(KeyObject* key);
void UnregisterKey(KeyObject* key);
void RegisterHash(HashObject* hash);
void UnregisterHash(HashObject* hash);

// hProv 0: NTE_INVALID_PARAMETER; anything that names no live context whose selfHandle equals
// hProv: NTE_INVALID_HANDLE.
Status LookupContext(HCRYPTPROV hProv, ProviderContext** out);

// Key and hash handles are checked against the context the caller named: 0 gives
// NTE_INVALID_PARAMETER; an address (handle - objectBias) that is no live record, or whose record
// does not carry this handle, gives NTE_INVALID_HANDLE. Like the handles themselves, this does not
// check which context created the record: two contexts that drew the same bias accept each
// other's objects.
Status LookupKey(const ProviderContext& ctx, HCRYPTKEY hKey, KeyObject** out);
Status LookupHash(const ProviderContext& ctx, HCRYPTHASH hHash, HashObject** out);

}  // namespace nivra::provider
