// Container strings: an optional reader prefix ("\\.\" token slot, "\\?\" service card,
// "\\B\" Bluetooth card) with a device name, then the container name.
#pragma once
#include <cstdint>
#include <string>

#include "provider/status_codes.h"

namespace nivra::provider {

struct ContainerString {
  uint32_t kind = 0;          // BackendKind of the prefix; 0 without a prefix
  bool hasDevice = false;     // a prefix named a device
  std::string deviceName;     // non-empty when hasDevice
  std::string containerName;  // empty: the default container
};

// Parses `text` (UTF-8; null or empty means the default container). A token-slot prefix is
// accepted only when the PKCS#11 module is available (else NTE_BAD_KEYSET, checked before the
// device name); an empty device name or a container name of 256 bytes or more gives
// NTE_BAD_KEYSET_PARAM.
Status ParseContainerString(const char* text, bool moduleAvailable, ContainerString* out);

}  // namespace nivra::provider
