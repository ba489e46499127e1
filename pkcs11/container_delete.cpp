// Deleting a container, and sweeping the key objects that carry one key ID.
#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

// Whether the sweep removes this object; a failed read is returned.
CK_RV ShouldDestroy(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, KeyObjectSweep sweep,
                    bool* destroy) {
  *destroy = false;
  CK_ULONG objectClass = 0;
  CK_RV rv = ReadUlongAttribute(session, object, CKA_CLASS, &objectClass);
  if (rv != CKR_OK) return rv;
  CK_ULONG type = 0;
  const bool keys = sweep != KeyObjectSweep::kCertificatesOnly;
  const bool certificates = sweep != KeyObjectSweep::kKeysOnly;
  if (keys && (objectClass == CKO_PUBLIC_KEY || objectClass == CKO_PRIVATE_KEY)) {
    rv = ReadUlongAttribute(session, object, CKA_KEY_TYPE, &type);
    *destroy = rv == CKR_OK && type == CKK_RSA;
  } else if (certificates && objectClass == CKO_CERTIFICATE) {
    rv = ReadUlongAttribute(session, object, CKA_CERTIFICATE_TYPE, &type);
    *destroy = rv == CKR_OK && type == CKC_X_509;
  }
  return rv;
}

}  // namespace

Status DestroyKeyObjectsById(CK_SESSION_HANDLE session, const uint8_t* id, uint32_t idLength,
                             KeyObjectSweep sweep) {
  CK_FUNCTION_LIST* p11 = P11();
  AttributeList query;
  query.Add(CKA_ID, id, idLength);
  CK_RV rv = p11->C_FindObjectsInit(session, query.data(), query.count());
  if (rv != CKR_OK) return MapCkrToError(rv);
  CK_RV failure = CKR_OK;
  for (;;) {
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    rv = p11->C_FindObjects(session, &object, 1, &count);
    if (rv != CKR_OK) {
      failure = rv;
      break;
    }
    if (count == 0) break;
    bool destroy = false;
    rv = ShouldDestroy(session, object, sweep, &destroy);
    if (rv == CKR_OK && destroy) rv = p11->C_DestroyObject(session, object);
    if (rv != CKR_OK) {
      failure = rv;
      break;
    }
  }
  rv = p11->C_FindObjectsFinal(session);
  return MapCkrToError(failure != CKR_OK ? failure : rv);
}

Status DeleteContainer(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE container, const char* name) {
  uint8_t signature[kKeyIdCapacity];
  uint8_t exchange[kKeyIdCapacity];
  uint32_t signatureLength = sizeof(signature);
  uint32_t exchangeLength = sizeof(exchange);
  Status status = GetContainerKeyIds(session, container, name, signature, &signatureLength,
                                     exchange, &exchangeLength);
  if (status != kOk) return status;
  status = DestroyKeyObjectsById(session, signature, signatureLength,
                                 KeyObjectSweep::kKeysAndCertificates);
  if (status != kOk) return status;
  status = DestroyKeyObjectsById(session, exchange, exchangeLength,
                                 KeyObjectSweep::kKeysAndCertificates);
  if (status != kOk) return status;
  return MapCkrToError(P11()->C_DestroyObject(session, container));
}

}  // namespace nivra::pkcs11
