#include "provider/key_routing.h"

namespace nivra::provider {

RsaPublicView PublicPartOf(const ProviderContext& ctx, const KeyObject& key) {
  if (key.IsContainerPair()) {
    const CardKeyPair& pair = key.algId == AT_SIGNATURE ? ctx.signatureKey : ctx.exchangeKey;
    return {pair.modulusBits, pair.publicExponent, pair.modulus};
  }
  return {key.modulusBits, key.publicExponent, key.modulus};
}

bool RoutesToSoftware(const KeyObject& key) {
  // A key the software provider made (RSA ones included) stays there; only card pairs and
  // public keys the module imported itself are handled here.
  return !key.IsContainerPair() && (!key.IsModuleRsa() || key.softKey != 0);
}

}  // namespace nivra::provider
