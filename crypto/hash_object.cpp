// Hash objects behind biased handles, reached only through the live-record registry.
#include "crypto/hash_object.h"

#include <cstring>
#include <new>

#include "crypto/biased_handle.h"

namespace nivra::crypto {
namespace {

using LiveHashes = BiasedHandles<HashObject, kHashHandleBias>;

// A zero-filled record with the SHA-1 operations filled in; null when memory is short.
HashObject* AllocateRecord() {
  auto* record = new (std::nothrow) HashObject;
  if (record == nullptr) return nullptr;
  std::memset(record, 0, sizeof(*record));
  record->opInit = Sha1Init;
  record->opFree = Sha1Free;
  record->opUpdate = Sha1Update;
  record->opFinal = Sha1Final;
  record->opClone = Sha1Clone;
  record->digestLength = kSha1DigestLength;
  return record;
}

void FreeRecord(HashObject* record) {
  std::memset(record, 0, sizeof(*record));
  delete record;
}

// Gives the record its algorithm and self pointer, makes it live and returns its handle.
HashHandle Publish(HashObject* record) {
  record->algorithm = kHashAlgorithmSha1;
  return LiveHashes::Register(record);
}

}  // namespace

Status HashCreate(HashHandle* out) {
  if (out == nullptr) return kErrNullArgument;
  *out = 0;
  HashObject* record = AllocateRecord();
  if (record == nullptr) return kErrNoMemory;
  const Status status = record->opInit(&record->state);
  if (status != kOk) {
    FreeRecord(record);
    return status;
  }
  *out = Publish(record);
  return kOk;
}

Status HashUpdate(HashHandle handle, const uint8_t* data, size_t len) {
  HashObject* record = LiveHashes::Lookup(handle);
  if (record == nullptr) return kErrInvalidHandle;
  return record->opUpdate(record->state, data, len);
}

Status HashFinal(HashHandle handle, uint8_t* out) {
  HashObject* record = LiveHashes::Lookup(handle);
  if (record == nullptr) return kErrInvalidHandle;
  return record->opFinal(record->state, out);
}

Status HashDuplicate(HashHandle handle, HashHandle* out) {
  HashObject* source = LiveHashes::Lookup(handle);
  if (source == nullptr) return kErrInvalidHandle;
  if (out == nullptr) return kErrNullArgument;
  *out = 0;
  HashObject* copy = AllocateRecord();
  if (copy == nullptr) return kErrNoMemory;
  const Status status = source->opClone(source->state, &copy->state);
  if (status != kOk) {
    FreeRecord(copy);
    return status;
  }
  *out = Publish(copy);
  return kOk;
}

Status HashDestroy(HashHandle handle) {
  HashObject* record = LiveHashes::Lookup(handle);
  // Unregister decides between two racing destroys of the same handle: only one frees.
  if (record == nullptr || !LiveHashes::Unregister(record)) return kErrInvalidHandle;
  const Status status = record->opFree(record->state);
  record->state = nullptr;
  FreeRecord(record);
  return status;
}

Status Sha1OfEmpty(uint8_t out[kSha1DigestLength]) {
  if (out == nullptr) return kErrNullArgument;
  HashHandle handle = 0;
  Status status = HashCreate(&handle);
  if (status != kOk) return status;
  status = HashUpdate(handle, nullptr, 0);
  if (status == kOk) status = HashFinal(handle, out);
  const Status destroyed = HashDestroy(handle);
  return status != kOk ? status : destroyed;
}

}  // namespace nivra::crypto
