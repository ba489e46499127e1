#include "provider/card_backend.h"

#include <array>

#include "platform/named_mutex.h"
#include "provider/provider_context.h"
#include "provider/text_convert.h"

namespace nivra::provider {

namespace {
using BackendTable = std::array<CardBackend*, 4>;
BackendTable& Backends() {
  static BackendTable backends{};
  return backends;
}
BackendTable& Replacements() {
  static BackendTable replacements{};
  return replacements;
}
bool KnownKind(uint32_t kind) { return kind >= BackendTokenSlot && kind <= BackendBluetoothCard; }
}  // namespace

void RegisterCardBackend(uint32_t kind, CardBackend* backend) {
  if (KnownKind(kind)) Backends()[kind] = backend;
}

void ReplaceCardBackend(uint32_t kind, CardBackend* backend) {
  if (KnownKind(kind)) Replacements()[kind] = backend;
}

CardBackend* FindCardBackend(uint32_t kind) {
  if (!KnownKind(kind)) return nullptr;
  return Replacements()[kind] != nullptr ? Replacements()[kind] : Backends()[kind];
}

Status OpenContextLock(ProviderContext& ctx, const std::string& name) {
  if (name.empty() || ctx.contextLock != nullptr) return kOk;
  HANDLE lock = platform::OpenOrCreateSharedMutex(Utf8ToWide(name).c_str());
  if (lock == nullptr) return kNteSysErr;
  ctx.contextLock = lock;
  return kOk;
}

}  // namespace nivra::provider
