// Duplicating hashes and keys is not offered: both entries share one body that looks at none
// of its arguments.
#include "provider/call_frame.h"
#include "provider/entries.h"

namespace {
BOOL NotImplemented() {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}
}  // namespace

NIVRA_ENTRY NivraCPDuplicateHash(HCRYPTPROV, HCRYPTHASH, DWORD*, DWORD, HCRYPTHASH*) noexcept {
  return NotImplemented();
}

NIVRA_ENTRY NivraCPDuplicateKey(HCRYPTPROV, HCRYPTKEY, DWORD*, DWORD, HCRYPTKEY*) noexcept {
  return NotImplemented();
}
