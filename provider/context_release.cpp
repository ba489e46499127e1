#include "platform/named_mutex.h"
#include "provider/card_dispatch.h"
#include "provider/context_lifecycle.h"
#include "provider/context_objects.h"
#include "provider/handle_registry.h"
#include "provider/module_state.h"

namespace nivra::provider {

void ReleaseContextRecord(ProviderContext* ctx) {
  {
    platform::NamedMutexLock lock(ctx->contextLock);
    while (!ctx->keys.empty()) DestroyKeyObject(*ctx, ctx->keys.back());
    while (!ctx->hashes.empty()) DestroyHashObject(*ctx, ctx->hashes.back());
    ctx->deviceName.reset();
    CardCloseSession(*ctx);
    --Module().liveContexts;
    if (ctx->softProv != 0) CryptReleaseContext(ctx->softProv, 0);
  }
  if (ctx->contextLock != nullptr) CloseHandle(ctx->contextLock);
  SecureZeroMemory(ctx->pin, sizeof(ctx->pin));
  delete ctx;
}

}  // namespace nivra::provider
