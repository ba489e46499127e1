#include "pkcs11/result_cache.h"

#include <cstring>

#include "crypto/wipe.h"

namespace nivra::pkcs11 {

const uint8_t* CachedResult(const PrivateResultCache& cache, uint32_t keySpec, uint32_t mode,
                            const uint8_t* input, uint32_t inputLength) {
  if (cache.keySpec == 0 || cache.keySpec != keySpec || cache.mode != mode ||
      cache.inputLength != inputLength || cache.resultLength == 0) {
    return nullptr;
  }
  if (inputLength != 0 && std::memcmp(cache.input, input, inputLength) != 0) return nullptr;
  return cache.result;
}

void CacheRequest(PrivateResultCache& cache, uint32_t keySpec, uint32_t mode, const uint8_t* input,
                  uint32_t inputLength) {
  ForgetCachedRequest(cache);
  if (inputLength > sizeof(cache.input)) return;
  cache.keySpec = keySpec;
  cache.mode = mode;
  if (inputLength != 0) std::memcpy(cache.input, input, inputLength);
  cache.inputLength = inputLength;
}

void CacheResult(PrivateResultCache& cache, const uint8_t* result, uint32_t k) {
  if (cache.keySpec == 0 || k > sizeof(cache.result)) return;
  std::memcpy(cache.result, result, k);
  cache.resultLength = k;
}

void ForgetCachedRequest(PrivateResultCache& cache) {
  crypto::Wipe(&cache, sizeof(cache));
}

}  // namespace nivra::pkcs11
