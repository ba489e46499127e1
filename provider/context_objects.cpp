#include "provider/context_objects.h"

#include <algorithm>

#include "provider/handle_registry.h"

namespace nivra::provider {

namespace {
template <class Object>
void Unlist(std::vector<Object*>& list, Object* object) {
  auto it = std::find(list.begin(), list.end(), object);
  if (it != list.end()) list.erase(it);
}
}  // namespace

KeyObject* NewKeyObject(ProviderContext& ctx) {
  auto* key = new KeyObject();
  key->owner = &ctx;
  return key;
}

HashObject* NewHashObject(ProviderContext& ctx) {
  auto* hash = new HashObject();
  hash->owner = &ctx;
  return hash;
}

HCRYPTKEY PublishKey(ProviderContext& ctx, KeyObject* key) {
  key->selfHandle = reinterpret_cast<uintptr_t>(key) + ctx.objectBias;
  ctx.keys.push_back(key);
  RegisterKey(key);
  return key->selfHandle;
}

HCRYPTHASH PublishHash(ProviderContext& ctx, HashObject* hash) {
  hash->selfHandle = reinterpret_cast<uintptr_t>(hash) + ctx.objectBias;
  ctx.hashes.push_back(hash);
  RegisterHash(hash);
  return hash->selfHandle;
}

void DestroyKeyObject(ProviderContext& ctx, KeyObject* key) {
  UnregisterKey(key);
  Unlist(ctx.keys, key);
  if (key->softKey != 0) CryptDestroyKey(key->softKey);
  SecureZeroMemory(key, sizeof(*key));
  delete key;
}

void DestroyHashObject(ProviderContext& ctx, HashObject* hash) {
  UnregisterHash(hash);
  Unlist(ctx.hashes, hash);
  if (hash->softHash != 0) CryptDestroyHash(hash->softHash);
  SecureZeroMemory(hash, sizeof(*hash));
  delete hash;
}

}  // namespace nivra::provider
