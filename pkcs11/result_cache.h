// The one-entry cache of the last raw private-key result of a context (PrivateResultCache in
// slot_device.h). A request is the key specification, the mode and the caller's input exactly as
// given; an input longer than the cache holds is never cached.
#pragma once
#include <cstdint>

#include "pkcs11/slot_device.h"

namespace nivra::pkcs11 {

// The cached raw result when the cache holds exactly this request, else null.
const uint8_t* CachedResult(const PrivateResultCache& cache, uint32_t keySpec, uint32_t mode,
                            const uint8_t* input, uint32_t inputLength);

// Records a request before it goes to the token (the previous entry is dropped). An input that
// does not fit leaves the cache empty.
void CacheRequest(PrivateResultCache& cache, uint32_t keySpec, uint32_t mode, const uint8_t* input,
                  uint32_t inputLength);

// Records the raw result of the request just recorded; its length is k whatever the token said.
void CacheResult(PrivateResultCache& cache, const uint8_t* result, uint32_t k);

// Empties the cache after a failed token operation.
void ForgetCachedRequest(PrivateResultCache& cache);

}  // namespace nivra::pkcs11
