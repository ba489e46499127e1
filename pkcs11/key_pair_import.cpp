// Importing a key pair from a CryptoAPI private-key blob onto the token.
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/key_templates.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/private_key_blob.h"
#include "pkcs11/result_cache.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_keys.h"
#include "pkcs11/token_login.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

// Tokens that will not derive the private key's other components from e, p and q say so with
// one of these; they are offered the complete key once more.
bool WantsCompleteKey(CK_RV rv) {
  return rv == CKR_TEMPLATE_INCOMPLETE || rv == CKR_ATTRIBUTE_TYPE_INVALID;
}

CK_RV CreateObject(CK_SESSION_HANDLE session, AttributeList& object) {
  CK_OBJECT_HANDLE created = 0;
  return P11()->C_CreateObject(session, object.data(), object.count(), &created);
}

}  // namespace

Status ImportKeyPair(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                     const uint8_t* blob, uint32_t blobLength) {
  RsaComponents key;
  Status status = ParsePrivateKeyBlob(blob, blobLength, &key);
  if (status != kOk) return status;
  status = EnsureLogin(ctx, device);
  if (status != kOk) return status;
  uint8_t id[kKeyIdCapacity];
  uint32_t idLength = sizeof(id);
  status = BuildKeyId(ctx, keySpec, id, &idLength);
  if (status != kOk) return status;
  // What was known about the old pair (its handles, modulus and last result) goes with it; the
  // next use finds the new objects.
  ForgetCachedRequest(device.cache);
  device.Keys(keySpec) = TokenKeyHandles{};
  ctx.KeyPair(keySpec) = provider::CardKeyPair{};
  const CK_SESSION_HANDLE session = device.slot->session;
  status = DestroyKeyObjectsById(session, id, idLength, KeyObjectSweep::kKeysOnly);
  if (status != kOk) return status;

  // A refused creation is reported as the token's own value.
  AttributeList privateTemplate;
  ImportPrivateTemplate({id, idLength}, key, false, &privateTemplate);
  CK_RV rv = CreateObject(session, privateTemplate);
  if (WantsCompleteKey(rv)) {
    // A token may keep the half-made object of a refused creation (SoftHSM2 does): the only RSA
    // keys with this ID now are such leftovers, and they go before the second attempt.
    status = DestroyKeyObjectsById(session, id, idLength, KeyObjectSweep::kKeysOnly);
    if (status != kOk) return status;
    AttributeList completeTemplate;
    ImportPrivateTemplate({id, idLength}, key, true, &completeTemplate);
    rv = CreateObject(session, completeTemplate);
  }
  if (rv != CKR_OK) return static_cast<Status>(rv);
  AttributeList publicTemplate;
  ImportPublicTemplate({id, idLength}, key, &publicTemplate);
  return static_cast<Status>(CreateObject(session, publicTemplate));
}

}  // namespace nivra::pkcs11
