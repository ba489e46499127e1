#include "provider/card_backend.h"

#include <array>

#include "platform/named_mutex.h"
#include "provider/provider_context.h"
#include "provider/text_convert.h"

namespace nivra::provider {

namespace {
std::array<CardBackend*, 4>& Backends() {
  static std::array<CardBackend*, 4> backends{};
  return backends;
}
}  // namespace

void RegisterCardBackend(uint32_t kind, CardBackend* backend) {
  if (kind >= BackendTokenSlot && kind <= BackendBluetoothCard) Backends()[kind] = backend;
}

CardBackend* FindCardBackend(uint32_t kind) {
  if (kind < BackendTokenSlot || kind > BackendBluetoothCard) return nullptr;
  return Backends()[kind];
}

Status OpenContextLock(ProviderContext& ctx, const std::string& name) {
  if (name.empty() || ctx.contextLock != nullptr) return kOk;
  HANDLE lock = platform::OpenOrCreateSharedMutex(Utf8ToWide(name).c_str());
  if (lock == nullptr) return kNteSysErr;
  ctx.contextLock = lock;
  return kOk;
}

}  // namespace nivra::provider
