// Generating a container key pair on the token.
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/key_templates.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/result_cache.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_keys.h"
#include "platform/named_mutex.h"

namespace nivra::pkcs11 {

using provider::kOk;

Status GenerateKeyPair(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                       uint32_t bits) {
  // No other process creates or removes objects on this card meanwhile.
  platform::NamedMutexLock cardLock(ctx.contextLock);
  KeyId id;
  Status status = LoginAndKeyId(ctx, device, keySpec, &id);
  if (status != kOk) return status;

  TokenKeyHandles& handles = device.Keys(keySpec);
  handles.privateKey = 0;
  // A result of the old pair must not answer a request to the new one.
  ForgetCachedRequest(device.cache);
  const CK_SESSION_HANDLE session = device.slot->session;
  status = DestroyKeyObjectsById(session, id.bytes, id.length, KeyObjectSweep::kKeysOnly);
  if (status != kOk) return status;

  const CK_ULONG modulusBits = bits;
  AttributeList publicTemplate;
  AttributeList privateTemplate;
  GenerationTemplates({id.bytes, id.length}, modulusBits, &publicTemplate, &privateTemplate);
  CK_MECHANISM mechanism{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
  CK_RV rv = P11()->C_GenerateKeyPair(session, &mechanism, publicTemplate.data(),
                                      publicTemplate.count(), privateTemplate.data(),
                                      privateTemplate.count(), &handles.publicKey,
                                      &handles.privateKey);
  if (rv != CKR_OK) return MapCkrToError(rv);

  provider::CardKeyPair& pair = ctx.KeyPair(keySpec);
  pair.modulusBits = bits;
  pair.publicExponent = kGeneratedPublicExponent;
  uint32_t byteCount = 0;
  return ReadModulus(session, handles.publicKey, pair, &byteCount);
}

}  // namespace nivra::pkcs11
