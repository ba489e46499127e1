#include "provider/container_string.h"

#include <cstring>

#include "provider/card_backend.h"
#include "provider/provider_context.h"

namespace nivra::provider {

namespace {
bool FitsContainerName(const std::string& name) { return name.size() + 1 <= kContainerNameSize; }
}  // namespace

Status ParseContainerString(const char* text, bool moduleAvailable, ContainerString* out) {
  *out = ContainerString{};
  if (text == nullptr || *text == '\0') return kOk;

  const size_t length = std::strlen(text);
  const bool prefixed = length >= 4 && text[0] == '\\' && text[1] == '\\' && text[3] == '\\' &&
                        (text[2] == '.' || text[2] == '?' || text[2] == 'B');
  if (!prefixed) {
    out->containerName = text;
    return FitsContainerName(out->containerName) ? kOk : kNteBadKeysetParam;
  }

  switch (text[2]) {
    case '.':
      if (!moduleAvailable) return kNteBadKeyset;
      out->kind = BackendTokenSlot;
      break;
    case '?':
      out->kind = BackendServiceCard;
      break;
    default:
      out->kind = BackendBluetoothCard;
      break;
  }

  const char* device = text + 4;
  const char* end = std::strchr(device, '\\');
  out->deviceName.assign(device, end != nullptr ? static_cast<size_t>(end - device) : std::strlen(device));
  if (out->deviceName.empty()) return kNteBadKeysetParam;
  out->hasDevice = true;

  if (end != nullptr && end[1] != '\0') {
    out->containerName = end + 1;
    if (!FitsContainerName(out->containerName)) return kNteBadKeysetParam;
  }
  return kOk;
}

}  // namespace nivra::provider
