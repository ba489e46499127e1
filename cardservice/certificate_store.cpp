#include "cardservice/certificate_store.h"

#include "cardservice/token_access.h"
#include "crypto/der.h"

namespace nivra::cardservice {

namespace {

constexpr uint8_t kDerSequence = 0x30;
constexpr uint8_t kDerExplicitVersion = 0xA0;
// The single zero byte that the provider writes as the certificate's label.
constexpr uint8_t kCertificateLabel[] = {0};

struct DerElement {
  uint8_t tag;
  size_t start, headerLength, contentLength;
  size_t end() const { return start + headerLength + contentLength; }
};

bool ReadElement(const std::vector<uint8_t>& der, size_t at, size_t limit, DerElement* out) {
  if (at >= limit) return false;
  out->start = at;
  if (!crypto::ReadDerHeader(der.data() + at, limit - at, &out->tag, &out->headerLength,
                             &out->contentLength)) {
    return false;
  }
  return out->contentLength <= limit - at - out->headerLength;
}

Template CertificateQuery(const std::string& id) {
  Template query;
  query.Ulong(CKA_CLASS, CKO_CERTIFICATE).Ulong(CKA_CERTIFICATE_TYPE, CKC_X_509).Text(CKA_ID, id);
  return query;
}

}  // namespace

bool CertificateSubject(const std::vector<uint8_t>& certificate, std::vector<uint8_t>* subject) {
  DerElement outer, tbs, element;
  if (!ReadElement(certificate, 0, certificate.size(), &outer) || outer.tag != kDerSequence) {
    return false;
  }
  if (!ReadElement(certificate, outer.start + outer.headerLength, outer.end(), &tbs) ||
      tbs.tag != kDerSequence) {
    return false;
  }
  // version (optional), serialNumber, signature, issuer, validity, subject
  size_t at = tbs.start + tbs.headerLength;
  if (!ReadElement(certificate, at, tbs.end(), &element)) return false;
  int toSkip = element.tag == kDerExplicitVersion ? 5 : 4;
  for (int i = 0; i < toSkip; ++i) {
    if (!ReadElement(certificate, at, tbs.end(), &element)) return false;
    at = element.end();
  }
  if (!ReadElement(certificate, at, tbs.end(), &element) || element.tag != kDerSequence) {
    return false;
  }
  subject->assign(certificate.begin() + element.start, certificate.begin() + element.end());
  return true;
}

CK_RV WriteCertificate(TokenView token, const std::string& id,
                       const std::vector<uint8_t>& certificate) {
  Template query = CertificateQuery(id);
  std::vector<CK_OBJECT_HANDLE> objects;
  CK_RV rv = FindAll(token.p11, token.session, query, &objects);
  if (rv != CKR_OK) return rv;
  if (objects.size() == 1) {
    std::vector<uint8_t> stored;
    rv = ReadAttribute(token.p11, token.session, objects[0], CKA_VALUE, &stored);
    if (rv == CKR_OK && stored == certificate) return CKR_OK;
  }
  for (CK_OBJECT_HANDLE old : objects) {
    rv = token.p11->C_DestroyObject(token.session, old);
    if (rv != CKR_OK) return rv;
  }
  Template object;
  object.Ulong(CKA_CLASS, CKO_CERTIFICATE).Ulong(CKA_CERTIFICATE_TYPE, CKC_X_509);
  object.Bytes(CKA_LABEL, kCertificateLabel, sizeof kCertificateLabel).Bool(CKA_TOKEN, true);
  object.Text(CKA_ID, id).Bytes(CKA_VALUE, certificate.data(), certificate.size());
  object.Bool(CKA_PRIVATE, false);
  std::vector<uint8_t> subject;
  if (CertificateSubject(certificate, &subject)) {
    object.Bytes(CKA_SUBJECT, subject.data(), subject.size());
  }
  auto attributes = object.Attributes();
  CK_OBJECT_HANDLE created = CK_INVALID_HANDLE;
  return token.p11->C_CreateObject(token.session, attributes.data(), attributes.size(), &created);
}

CK_RV ReadCertificate(TokenView token, const std::string& id, std::vector<uint8_t>* certificate,
                      bool* found) {
  Template query = CertificateQuery(id);
  std::vector<CK_OBJECT_HANDLE> objects;
  CK_RV rv = FindAll(token.p11, token.session, query, &objects);
  *found = rv == CKR_OK && objects.size() == 1;
  if (!*found) return rv;
  return ReadAttribute(token.p11, token.session, objects[0], CKA_VALUE, certificate);
}

}  // namespace nivra::cardservice
