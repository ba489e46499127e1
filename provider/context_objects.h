// Key and hash objects owned by a context: creation, listing and destruction.
#pragma once
#include "provider/provider_context.h"

namespace nivra::provider {

// New zero-filled records owned by ctx (not yet listed or handed out).
KeyObject* NewKeyObject(ProviderContext& ctx);
HashObject* NewHashObject(ProviderContext& ctx);

// Hands the object out: handle = address + ctx.objectBias, stored in selfHandle, object appended
// to the context's list and registered as alive. Returns the handle.
HCRYPTKEY PublishKey(ProviderContext& ctx, KeyObject* key);
HCRYPTHASH PublishHash(ProviderContext& ctx, HashObject* hash);

// Removes the object from its context's list (when listed), destroys its software key or hash,
// zeroes and frees it.
void DestroyKeyObject(ProviderContext& ctx, KeyObject* key);
void DestroyHashObject(ProviderContext& ctx, HashObject* hash);

}  // namespace nivra::provider
