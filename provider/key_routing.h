// Where a key's work is done.
#pragma once
#include "provider/provider_context.h"

namespace nivra::provider {

// True for keys of the software provider (session keys and RSA keys it generated or imported);
// false for card pairs and RSA public keys the module holds itself.
bool RoutesToSoftware(const KeyObject& key);

// The public part of an RSA key: the context's loaded pair for card pairs, the key's own for
// module-held keys. The modulus is big-endian, (bits + 7) / 8 bytes.
struct RsaPublicView {
  uint32_t bits;
  uint32_t exponent;
  const uint8_t* modulus;
};
RsaPublicView PublicPartOf(const ProviderContext& ctx, const KeyObject& key);
inline uint32_t RsaModulusBits(const ProviderContext& ctx, const KeyObject& key) {
  return PublicPartOf(ctx, key).bits;
}

}  // namespace nivra::provider
