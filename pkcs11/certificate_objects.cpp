#include <windows.h>
#include <wincrypt.h>

#include <cstring>
#include <vector>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/token_certificates.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

const CK_OBJECT_CLASS kCertificateClass = CKO_CERTIFICATE;
const CK_CERTIFICATE_TYPE kX509 = CKC_X_509;
// The label is one zero byte, as the cards this provider serves have always carried it.
const uint8_t kCertificateLabel[] = {0};

// The certificate object with the key ID; exactly one must exist.
Status FindCertificate(CK_SESSION_HANDLE session, const KeyId& id, CK_OBJECT_HANDLE* certificate) {
  AttributeList query;
  query.AddValue(CKA_CLASS, kCertificateClass);
  query.AddValue(CKA_CERTIFICATE_TYPE, kX509);
  query.Add(CKA_ID, id.bytes, id.length);
  CK_OBJECT_HANDLE found[2] = {};
  CK_ULONG count = 0;
  CK_RV rv = FindObjectsOnce(session, query, found, 2, &count);
  if (rv != CKR_OK) return MapCkrToError(rv);
  if (count != 1) return provider::kNteNotFound;
  *certificate = found[0];
  return kOk;
}

// The certificate's DER subject name, for tokens that insist on CKA_SUBJECT.
bool CertificateSubject(const uint8_t* der, uint32_t length, std::vector<uint8_t>* subject) {
  PCCERT_CONTEXT cert = CertCreateCertificateContext(X509_ASN_ENCODING, der, length);
  if (cert == nullptr) return false;
  const CERT_NAME_BLOB& name = cert->pCertInfo->Subject;
  subject->assign(name.pbData, name.pbData + name.cbData);
  CertFreeCertificateContext(cert);
  return true;
}

// Creates the certificate object; a token that insists on CKA_SUBJECT gets it in a second attempt.
Status CreateCertificate(CK_SESSION_HANDLE session, const KeyId& id, const uint8_t* der,
                         uint32_t derLength) {
  AttributeList object;
  object.AddValue(CKA_CLASS, kCertificateClass);
  object.AddValue(CKA_CERTIFICATE_TYPE, kX509);
  object.Add(CKA_LABEL, kCertificateLabel, sizeof(kCertificateLabel));
  object.AddValue(CKA_TOKEN, kTrue);
  object.Add(CKA_ID, id.bytes, id.length);
  object.Add(CKA_VALUE, der, derLength);
  CK_OBJECT_HANDLE created = 0;
  CK_RV rv = P11()->C_CreateObject(session, object.data(), object.count(), &created);
  std::vector<uint8_t> subject;
  if (rv != CKR_TEMPLATE_INCOMPLETE || !CertificateSubject(der, derLength, &subject)) {
    return MapCkrToError(rv);
  }
  // A token may keep the half-made object of a refused creation (SoftHSM2 does). The old
  // certificate was removed before, so any certificate with this ID now is such a leftover.
  Status status = DestroyKeyObjectsById(session, id.bytes, id.length,
                                        KeyObjectSweep::kCertificatesOnly);
  if (status != kOk) return status;
  object.Add(CKA_SUBJECT, subject.data(), subject.size());
  return MapCkrToError(P11()->C_CreateObject(session, object.data(), object.count(), &created));
}

}  // namespace

Status WriteCertificate(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                        const uint8_t* der, uint32_t derLength) {
  KeyId id;
  Status status = LoginAndKeyId(ctx, device, keySpec, &id);
  if (status != kOk) return status;
  const CK_SESSION_HANDLE session = device.slot->session;

  CK_OBJECT_HANDLE old = 0;
  if (FindCertificate(session, id, &old) == kOk) {
    std::vector<uint8_t> value;
    CK_RV rv = ReadAttribute(session, old, CKA_VALUE, &value);
    if (rv == CKR_OK && value.size() == derLength &&
        std::memcmp(value.data(), der, derLength) == 0) {
      return kOk;
    }
    rv = P11()->C_DestroyObject(session, old);
    if (rv != CKR_OK) return MapCkrToError(rv);
  }
  return CreateCertificate(session, id, der, derLength);
}

Status ReadCertificate(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                       uint8_t* out, uint32_t* outLen) {
  if (outLen == nullptr) return provider::kErrInvalidParameter;
  KeyId id;
  Status status = ContainerKeyId(ctx, device, keySpec, &id);
  if (status != kOk) return status;
  const CK_SESSION_HANDLE session = device.slot->session;
  CK_OBJECT_HANDLE certificate = 0;
  status = FindCertificate(session, id, &certificate);
  if (status != kOk) return status;

  CK_ATTRIBUTE value{CKA_VALUE, nullptr, 0};
  CK_RV rv = P11()->C_GetAttributeValue(session, certificate, &value, 1);
  if (rv != CKR_OK) return MapCkrToError(rv);
  if (out != nullptr) {
    // Deliberately not ERROR_MORE_DATA: callers of this parameter have always seen this code.
    if (*outLen < value.ulValueLen) return provider::kNteNoMemory;
    value.pValue = out;
    rv = P11()->C_GetAttributeValue(session, certificate, &value, 1);
    if (rv != CKR_OK) return MapCkrToError(rv);
  }
  *outLen = value.ulValueLen;
  return kOk;
}

}  // namespace nivra::pkcs11
