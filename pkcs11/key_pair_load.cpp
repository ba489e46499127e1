// Finding the container's key objects and loading the public half into the context.
#include <cstring>
#include <vector>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_keys.h"
#include "pkcs11/token_login.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

Status ReadPublicPart(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE publicKey,
                      provider::CardKeyPair& pair) {
  uint32_t byteCount = 0;
  Status status = ReadModulus(session, publicKey, pair, &byteCount);
  if (status != kOk) return status;
  pair.modulusBits = byteCount * 8;
  std::vector<uint8_t> exponent;
  CK_RV rv = ReadAttribute(session, publicKey, CKA_PUBLIC_EXPONENT, &exponent);
  if (rv != CKR_OK) return MapCkrToError(rv);
  uint32_t value = 0;
  if (!AccumulatePublicExponent(exponent.data(), exponent.size(), &value)) {
    return provider::kNteBadKeyset;
  }
  pair.publicExponent = value;
  return kOk;
}

}  // namespace

bool AccumulatePublicExponent(const uint8_t* bytes, size_t length, uint32_t* exponent) {
  uint32_t value = 0;
  for (size_t i = 0; i < length; ++i) {
    const uint32_t next = (value << 8) | bytes[i];
    if (next < value) return false;
    value = next;
  }
  *exponent = value;
  return true;
}

Status ReadModulus(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE publicKey,
                   provider::CardKeyPair& pair, uint32_t* byteCount) {
  std::vector<uint8_t> modulus;
  CK_RV rv = ReadAttribute(session, publicKey, CKA_MODULUS, &modulus);
  if (rv != CKR_OK) return MapCkrToError(rv);
  const uint8_t* start = nullptr;
  const size_t length = StripLeadingZeros(modulus.data(), modulus.size(), &start);
  if (length > sizeof(pair.modulus)) return provider::kNteBadKeyset;
  std::memset(pair.modulus, 0, sizeof(pair.modulus));
  if (length != 0) std::memcpy(pair.modulus, start, length);
  *byteCount = static_cast<uint32_t>(length);
  return kOk;
}

Status LoadKeyPair(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                   bool publicOnly) {
  KeyId id;
  Status status = ContainerKeyId(ctx, device, keySpec, &id);
  if (status != kOk) return status;

  TokenKeyHandles& handles = device.Keys(keySpec);
  CK_OBJECT_HANDLE& wanted = publicOnly ? handles.publicKey : handles.privateKey;
  if (wanted != 0) return kOk;
  if (!publicOnly) {
    status = EnsureLogin(ctx, device);
    if (status != kOk) return status;
  }

  const CK_SESSION_HANDLE session = device.slot->session;
  const CK_OBJECT_CLASS keyClass = publicOnly ? CKO_PUBLIC_KEY : CKO_PRIVATE_KEY;
  const CK_KEY_TYPE keyType = CKK_RSA;
  AttributeList query;
  query.AddValue(CKA_CLASS, keyClass);
  query.Add(CKA_ID, id.bytes, id.length);
  query.AddValue(CKA_KEY_TYPE, keyType);
  CK_OBJECT_HANDLE found = 0;
  CK_ULONG count = 0;
  CK_RV rv = FindObjectsOnce(session, query, &found, 1, &count);
  if (rv != CKR_OK) return MapCkrToError(rv);
  if (count == 0) return provider::kNteNoKey;
  if (!publicOnly) {
    wanted = found;
    return LoadKeyPair(ctx, device, keySpec, true);
  }
  // The handle is kept only with its modulus and exponent, so a failed read is tried again.
  status = ReadPublicPart(session, found, ctx.KeyPair(keySpec));
  if (status == kOk) wanted = found;
  return status;
}

}  // namespace nivra::pkcs11
