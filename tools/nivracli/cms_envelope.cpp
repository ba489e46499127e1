#include "cms_envelope.h"

#include <algorithm>

#include "der_reader.h"

namespace nivracli {

namespace {

// Encoded object identifiers (tag, length, value) of the content-encryption algorithms known here.
const Bytes kDesEde3Cbc = {0x06, 0x08, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x03, 0x07};
const Bytes kDesCbc = {0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x07};
// RecipientInfo choices other than key transport carry a context tag; key transport is a plain
// SEQUENCE whose identifier is issuerAndSerialNumber (a SEQUENCE) in version 0.

// Walks the elements of a constructed element one by one.
class DerChildren {
 public:
  DerChildren(const Bytes& der, const DerElement& parent) : der_(der), pos_(parent.begin), end_(parent.end) {}
  bool Next(DerElement* e) {
    if (pos_ >= end_ || !ReadDerElement(der_, pos_, end_, e)) return false;
    pos_ = e->end;
    return true;
  }

 private:
  const Bytes& der_;
  size_t pos_;
  size_t end_;
};

bool ParseRecipient(const Bytes& der, const DerElement& info, EnvelopeRecipient* out) {
  DerChildren fields(der, info);
  DerElement version, rid, algorithm, key, issuer, serial;
  if (!fields.Next(&version) || !fields.Next(&rid) || rid.tag != kDerSequence) return false;
  if (!fields.Next(&algorithm) || !fields.Next(&key) || key.tag != kDerOctetString) return false;
  DerChildren ridFields(der, rid);
  if (!ridFields.Next(&issuer) || !ridFields.Next(&serial) || serial.tag != kDerInteger) return false;
  out->issuer = DerWhole(der, issuer);
  out->serialNumber = DerContents(der, serial);
  std::reverse(out->serialNumber.begin(), out->serialNumber.end());
  out->encryptedKey = DerContents(der, key);
  return true;
}

// The encrypted content: [0] IMPLICIT OCTET STRING, primitive or in constructed pieces.
bool ReadContent(const Bytes& der, const DerElement& e, Bytes* out) {
  if (e.tag == kDerContextPrimitive0) {
    *out = DerContents(der, e);
    return true;
  }
  if (e.tag != kDerContextConstructed0) return false;
  DerChildren pieces(der, e);
  DerElement piece;
  while (pieces.Next(&piece)) {
    if (piece.tag != kDerOctetString) return false;
    const Bytes bytes = DerContents(der, piece);
    out->insert(out->end(), bytes.begin(), bytes.end());
  }
  return true;
}

}  // namespace

bool ParseEnvelope(const Bytes& der, Envelope* out) {
  DerElement info, type, explicitContent, enveloped;
  if (!ReadDerElement(der, 0, der.size(), &info) || info.tag != kDerSequence) return false;
  DerChildren infoFields(der, info);
  if (!infoFields.Next(&type) || type.tag != kDerOid || !infoFields.Next(&explicitContent) ||
      explicitContent.tag != kDerContextConstructed0) {
    return false;
  }
  DerChildren wrapper(der, explicitContent);
  if (!wrapper.Next(&enveloped) || enveloped.tag != kDerSequence) return false;
  DerChildren fields(der, enveloped);
  DerElement version, recipients, encrypted;
  if (!fields.Next(&version) || !fields.Next(&recipients)) return false;
  if (recipients.tag == kDerContextConstructed0 && !fields.Next(&recipients)) return false;  // originatorInfo
  if (recipients.tag != kDerSet || !fields.Next(&encrypted) || encrypted.tag != kDerSequence) return false;
  DerChildren each(der, recipients);
  DerElement recipient;
  while (each.Next(&recipient)) {
    EnvelopeRecipient parsed;
    if (recipient.tag == kDerSequence && ParseRecipient(der, recipient, &parsed)) out->recipients.push_back(parsed);
  }
  DerChildren content(der, encrypted);
  DerElement contentType, algorithm, body, oid, iv;
  if (!content.Next(&contentType) || !content.Next(&algorithm) || !content.Next(&body)) return false;
  DerChildren algorithmFields(der, algorithm);
  if (!algorithmFields.Next(&oid) || !algorithmFields.Next(&iv) || iv.tag != kDerOctetString) return false;
  const Bytes oidBytes = DerWhole(der, oid);
  out->contentAlgorithm = oidBytes == kDesEde3Cbc ? CALG_3DES : oidBytes == kDesCbc ? CALG_DES : 0;
  out->iv = DerContents(der, iv);
  return ReadContent(der, body, &out->encryptedContent);
}

}  // namespace nivracli
