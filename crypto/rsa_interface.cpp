// RSA key interface records and their biased handles.
#include "crypto/rsa_interface.h"

#include <new>

#include "crypto/biased_handle.h"
#include "crypto/wipe.h"

namespace nivra::crypto {

namespace {

using Registry = BiasedHandles<RsaKeyInterface, kRsaHandleBias>;

// A zero-filled record with the operations filled in, not yet registered (self is null).
RsaKeyInterface* NewRecord() {
  RsaKeyInterface* record = new (std::nothrow) RsaKeyInterface{};
  if (record == nullptr) return nullptr;
  record->algorithm = kRsaAlgorithm;
  record->opGenerateKey = RsaGenerateKey;
  record->opImportKey = RsaImportKey;
  record->opDestroyKey = RsaDestroyKey;
  record->opExportKey = RsaExportKey;
  record->opPublic = RsaPublic;
  record->opPrivate = RsaPrivate;
  record->opDuplicateKey = RsaDuplicateKey;
  record->opCreateKey = RsaCreateKey;
  record->opSetKey = RsaSetKey;
  record->opCompleteKey = RsaCompleteKey;
  record->opKeyBits = RsaKeyBits;
  return record;
}

void DestroyRecord(RsaKeyInterface* record) {
  record->opDestroyKey(record->key);
  Wipe(record, sizeof(*record));
  delete record;
}

// Builds a record whose key comes from make(record) and publishes its handle; the record is
// dropped again when make fails.
template <class Make>
Status BuildRecord(RsaHandle* out, Make make) {
  if (out == nullptr) return kErrNullArgument;
  RsaKeyInterface* record = NewRecord();
  if (record == nullptr) return kErrNoMemory;
  Status status = make(*record);
  if (status != kOk) {
    DestroyRecord(record);
    return status;
  }
  *out = Registry::Register(record);
  return kOk;
}

template <class Use>
Status WithRecord(RsaHandle handle, Use use) {
  RsaKeyInterface* record = Registry::Lookup(handle);
  if (record == nullptr) return kErrInvalidHandle;
  return use(*record);
}

}  // namespace

Status RsaLoadKey(RsaHandle* out, uint32_t* bits, uint32_t form, const uint8_t* der, size_t len) {
  if (der == nullptr) return kErrNullArgument;
  return BuildRecord(out, [&](RsaKeyInterface& r) {
    return r.opImportKey(&r.key, bits, form, der, len);
  });
}

Status RsaNewKey(RsaHandle* out) {
  return BuildRecord(out, [](RsaKeyInterface& r) { return r.opCreateKey(&r.key); });
}

Status RsaGenerateNewKey(RsaHandle* out, uint32_t bits, uint32_t e) {
  return BuildRecord(out, [&](RsaKeyInterface& r) { return r.opGenerateKey(&r.key, bits, e); });
}

Status RsaLookupKey(RsaHandle handle, RsaKeyInterface** out) {
  if (out == nullptr) return kErrNullArgument;
  *out = Registry::Lookup(handle);
  return *out == nullptr ? kErrInvalidHandle : kOk;
}

Status RsaFreeKey(RsaHandle handle) {
  RsaKeyInterface* record = Registry::Lookup(handle);
  // Unregister decides between two concurrent frees of one handle: only one of them wins.
  if (record == nullptr || !Registry::Unregister(record)) return kErrInvalidHandle;
  DestroyRecord(record);
  return kOk;
}

Status RsaHandleSetKey(RsaHandle handle, uint32_t what, const uint8_t* data, size_t len) {
  return WithRecord(handle, [&](RsaKeyInterface& r) { return r.opSetKey(r.key, what, data, len); });
}

Status RsaHandleExportKey(RsaHandle handle, uint32_t what, uint8_t* out, size_t* len) {
  return WithRecord(handle, [&](RsaKeyInterface& r) { return r.opExportKey(r.key, what, out, len); });
}

Status RsaHandlePublic(RsaHandle handle, const uint8_t* in, size_t len, uint8_t* out,
                       size_t* outLen) {
  return WithRecord(handle,
                    [&](RsaKeyInterface& r) { return r.opPublic(r.key, in, len, out, outLen); });
}

Status RsaHandlePrivate(RsaHandle handle, const uint8_t* in, size_t len, uint8_t* out,
                        size_t* outLen) {
  return WithRecord(handle,
                    [&](RsaKeyInterface& r) { return r.opPrivate(r.key, in, len, out, outLen); });
}

Status RsaHandleCompleteKey(RsaHandle handle, uint32_t* bits) {
  return WithRecord(handle, [&](RsaKeyInterface& r) { return r.opCompleteKey(r.key, bits); });
}

Status RsaHandleKeyBits(RsaHandle handle, uint32_t* bits) {
  return WithRecord(handle, [&](RsaKeyInterface& r) { return r.opKeyBits(r.key, bits); });
}

Status RsaHandleDuplicate(RsaHandle handle, RsaHandle* out) {
  return WithRecord(handle, [&](RsaKeyInterface& source) {
    return BuildRecord(out, [&](RsaKeyInterface& r) {
      return r.opDuplicateKey(source.key, &r.key);
    });
  });
}

}  // namespace nivra::crypto
