// Import and export of RSA keys in their DER forms, and the export of single components.
#include "crypto/der.h"
#include "crypto/rsa_key.h"

namespace nivra::crypto {

namespace {

constexpr uint8_t kTagSequence = 0x30;
constexpr uint8_t kTagInteger = 0x02;
// The version element that starts form 2: INTEGER 0.
constexpr uint8_t kVersionZero[] = {kTagInteger, 0x01, 0x00};

// Components of each form, in their order inside the SEQUENCE.
struct FormLayout {
  uint32_t count;
  CBigNumber CRSA::*components[8];
};
constexpr FormLayout kPublicLayout = {2, {&CRSA::n, &CRSA::e}};
constexpr FormLayout kPrivateLayout = {
    8, {&CRSA::n, &CRSA::e, &CRSA::d, &CRSA::p, &CRSA::q, &CRSA::dP, &CRSA::dQ, &CRSA::qInv}};
constexpr FormLayout kShortPrivateLayout = {3, {&CRSA::n, &CRSA::e, &CRSA::d}};

const FormLayout* LayoutOf(uint32_t form) {
  switch (form) {
    case kRsaFormPublic: return &kPublicLayout;
    case kRsaFormPrivate: return &kPrivateLayout;
    case kRsaFormShortPrivate: return &kShortPrivateLayout;
    default: return nullptr;
  }
}

// Reads the element header at der[pos..len) and checks that its content ends within the input.
bool ReadElement(const uint8_t* der, size_t len, size_t pos, uint8_t* tag, size_t* header,
                 size_t* content) {
  if (pos >= len || !ReadDerHeader(der + pos, len - pos, tag, header, content)) return false;
  return *content <= len - pos - *header;
}

Status ParseInto(CRSA& key, const FormLayout& layout, bool skipVersion, const uint8_t* der,
                 size_t len) {
  uint8_t tag = 0;
  size_t header = 0;
  size_t content = 0;
  if (len == 0 || der[0] != kTagSequence) return kErrMalformedDer;
  if (!ReadElement(der, len, 0, &tag, &header, &content) || header + content != len) {
    return kErrMalformedDer;
  }
  size_t pos = header;
  if (skipVersion) {
    if (!ReadElement(der, len, pos, &tag, &header, &content)) return kErrMalformedDer;
    pos += header + content;
  }
  for (uint32_t i = 0; i < layout.count; ++i) {
    if (!ReadElement(der, len, pos, &tag, &header, &content) || tag != kTagInteger) {
      return kErrMalformedDer;
    }
    const uint8_t* value = der + pos + header;
    pos += header + content;
    while (content > 0 && value[0] == 0) {
      ++value;
      --content;
    }
    if (content > UINT32_MAX) return kErrMalformedDer;
    CBigNumber& component = key.*layout.components[i];
    component.SetZero();
    if (component.FromBytes(value, 0, static_cast<uint32_t>(content)) != 0) return kErrNoMemory;
  }
  return kOk;
}

// Total length of the form's encoding (content wrapped in its SEQUENCE).
uint32_t EncodedLength(const CRSA& key, const FormLayout& layout, bool withVersion,
                       uint32_t* contentLen) {
  uint32_t content = withVersion ? sizeof(kVersionZero) : 0;
  for (uint32_t i = 0; i < layout.count; ++i) {
    content += (key.*layout.components[i]).DerIntegerLength();
  }
  *contentLen = content;
  return 1 + DerLengthSize(content) + content;
}

void Encode(const CRSA& key, const FormLayout& layout, bool withVersion, uint32_t content,
            uint8_t* out) {
  out[0] = kTagSequence;
  uint8_t* at = out + 1 + WriteDerLength(out + 1, content);
  if (withVersion) {
    for (uint8_t b : kVersionZero) *at++ = b;
  }
  for (uint32_t i = 0; i < layout.count; ++i) at += (key.*layout.components[i]).ToDerInteger(at);
}

bool AllPresent(const CRSA& key, const FormLayout& layout) {
  for (uint32_t i = 0; i < layout.count; ++i) {
    if ((key.*layout.components[i]).IsZero()) return false;
  }
  return true;
}

bool FormAllowed(const CRSA& key, uint32_t form) {
  switch (form) {
    case kRsaFormPublic: return key.hasPublic != 0;
    case kRsaFormPrivate: return key.hasCrt != 0;
    default: return key.hasPrivate != 0 && key.hasPublic != 0;
  }
}

bool ComponentAllowed(const CRSA& key, uint32_t id) {
  switch (id) {
    case kRsaComponentD: return key.hasPrivate != 0;
    case kRsaComponentN: return key.hasPrivate != 0 || key.hasPublic != 0;
    case kRsaComponentE: return key.hasPublic != 0;
    default: return key.hasCrt != 0;
  }
}

// The in/out length protocol of every export: a null out reports the length, a short buffer
// reports it with kErrBufferTooSmall.
Status ReserveOutput(const uint8_t* out, size_t* len, size_t needed) {
  size_t capacity = *len;
  *len = needed;
  if (out == nullptr) return kOk;
  return capacity < needed ? kErrBufferTooSmall : kOk;
}

}  // namespace

Status RsaParseDer(CRSA& key, uint32_t form, const uint8_t* der, size_t len) {
  const FormLayout* layout = LayoutOf(form);
  if (layout == nullptr) return kErrUnknownForm;
  key.Clear();
  if (der == nullptr) return kErrMalformedDer;
  Status status = ParseInto(key, *layout, form == kRsaFormPrivate, der, len);
  if (status != kOk) {
    key.Clear();
    return status;
  }
  key.hasPublic = 1;
  if (form != kRsaFormPublic) key.hasPrivate = 1;
  if (form == kRsaFormPrivate) key.hasCrt = 1;
  return kOk;
}

Status RsaImportKey(CRSA** out, uint32_t* bits, uint32_t form, const uint8_t* der, size_t len) {
  if (out == nullptr || der == nullptr) return kErrNullArgument;
  if (LayoutOf(form) == nullptr) return kErrUnknownForm;
  CRSA* key = nullptr;
  Status status = RsaCreateKey(&key);
  if (status != kOk) return status;
  status = RsaParseDer(*key, form, der, len);
  if (status != kOk) {
    RsaDestroyKey(key);
    return status;
  }
  if (bits != nullptr) *bits = key->n.BitLength();
  *out = key;
  return kOk;
}

Status RsaExportKey(const CRSA* key, uint32_t what, uint8_t* out, size_t* len) {
  if (key == nullptr || len == nullptr) return kErrNullArgument;
  if (const FormLayout* layout = LayoutOf(what)) {
    if (!FormAllowed(*key, what) || !AllPresent(*key, *layout)) return kErrMissingComponent;
    const bool withVersion = what == kRsaFormPrivate;
    uint32_t content = 0;
    uint32_t total = EncodedLength(*key, *layout, withVersion, &content);
    Status status = ReserveOutput(out, len, total);
    if (status != kOk || out == nullptr) return status;
    Encode(*key, *layout, withVersion, content, out);
    return kOk;
  }
  const CBigNumber* component = key->Component(what);
  if (component == nullptr) return kErrUnknownForm;
  if (!ComponentAllowed(*key, what)) return kErrMissingComponent;
  uint32_t size = (component->BitLength() + 7) / 8;
  Status status = ReserveOutput(out, len, size);
  if (status != kOk || out == nullptr) return status;
  component->ToBytesFixed(out, size);
  return kOk;
}

}  // namespace nivra::crypto
