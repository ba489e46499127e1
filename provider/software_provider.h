// The Windows software provider behind every session key, hash and random number.
#pragma once
#include <windows.h>
#include <wincrypt.h>

namespace nivra::provider {

// Opens "Microsoft Strong Cryptographic Provider" (PROV_RSA_FULL, default key set, created when
// missing). Returns 0 when it cannot be opened; the context then works without it and the
// entries that need it report the software provider's errors.
HCRYPTPROV OpenSoftwareProvider();

}  // namespace nivra::provider
