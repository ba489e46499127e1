// The key IDs that tie a container's key pairs and certificates to it.
#include <cstring>
#include <vector>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/slot_session.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_login.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

constexpr size_t kKeyIdRecordHeader = 4;

// Writes one ID into a caller's buffer (null: length only). NTE_FAIL when it does not fit.
Status PutKeyId(const uint8_t* id, uint32_t idLength, uint8_t* buffer, uint32_t* length) {
  if (buffer != nullptr) {
    if (*length < idLength) return provider::kNteFail;
    std::memcpy(buffer, id, idLength);
  }
  return kOk;
}

// name + suffix, without NUL.
std::vector<uint8_t> DerivedKeyId(const char* name, const char* suffix) {
  std::vector<uint8_t> id(name, name + std::strlen(name));
  id.insert(id.end(), suffix, suffix + kKeyIdSuffixLength);
  return id;
}

}  // namespace

bool SplitKeyIdRecord(const uint8_t* record, size_t length, KeyIdView* signature,
                      KeyIdView* exchange) {
  if (length < kKeyIdRecordHeader) return false;
  const uint32_t signatureLength = record[0];
  const uint32_t exchangeLength = record[1];
  if (length < kKeyIdRecordHeader + signatureLength + exchangeLength) return false;
  *signature = {record + kKeyIdRecordHeader, signatureLength};
  *exchange = {record + kKeyIdRecordHeader + signatureLength, exchangeLength};
  return true;
}

Status GetContainerKeyIds(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE container, const char* name,
                          uint8_t* signatureId, uint32_t* signatureLength, uint8_t* exchangeId,
                          uint32_t* exchangeLength) {
  CK_FUNCTION_LIST* p11 = P11();
  if (p11 == nullptr) return provider::kNteFail;
  CK_ATTRIBUTE probe{CKA_VALUE, nullptr, CK_UNAVAILABLE_INFORMATION};
  CK_RV rv = p11->C_GetAttributeValue(session, container, &probe, 1);
  if (rv != CKR_OK) return MapCkrToError(rv);

  std::vector<uint8_t> signature;
  std::vector<uint8_t> exchange;
  std::vector<uint8_t> record;
  KeyIdView signatureView{};
  KeyIdView exchangeView{};
  if (probe.ulValueLen == 0) {
    signature = DerivedKeyId(name, kSignatureIdSuffix);
    exchange = DerivedKeyId(name, kExchangeIdSuffix);
    signatureView = {signature.data(), static_cast<uint32_t>(signature.size())};
    exchangeView = {exchange.data(), static_cast<uint32_t>(exchange.size())};
  } else {
    rv = ReadAttribute(session, container, CKA_VALUE, &record);
    if (rv != CKR_OK) return MapCkrToError(rv);
    if (!SplitKeyIdRecord(record.data(), record.size(), &signatureView, &exchangeView)) {
      return provider::kNteFail;
    }
  }
  Status status = PutKeyId(signatureView.bytes, signatureView.length, signatureId, signatureLength);
  if (status == kOk) {
    status = PutKeyId(exchangeView.bytes, exchangeView.length, exchangeId, exchangeLength);
  }
  if (status != kOk) return status;
  if (signatureLength != nullptr) *signatureLength = signatureView.length;
  if (exchangeLength != nullptr) *exchangeLength = exchangeView.length;
  return kOk;
}

Status BuildKeyId(const provider::ProviderContext& ctx, uint32_t keySpec, uint8_t* buffer,
                  uint32_t* length) {
  const size_t nameLength = strnlen(ctx.containerName, sizeof(ctx.containerName));
  const uint32_t needed = static_cast<uint32_t>(nameLength + kKeyIdSuffixLength);
  if (buffer == nullptr) {
    *length = needed;
    return kOk;
  }
  const uint32_t capacity = *length;
  *length = needed;
  if (capacity < needed) return provider::kErrMoreData;
  const char* suffix = keySpec == AT_SIGNATURE ? kSignatureIdSuffix : kExchangeIdSuffix;
  std::memcpy(buffer, ctx.containerName, nameLength);
  std::memcpy(buffer + nameLength, suffix, kKeyIdSuffixLength);
  return kOk;
}

Status ContainerKeyId(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                      KeyId* id) {
  Status status = EnsureSlotSession(*device.slot);
  if (status != kOk) return status;
  uint8_t signature[kKeyIdCapacity];
  uint8_t exchange[kKeyIdCapacity];
  uint32_t signatureLength = sizeof(signature);
  uint32_t exchangeLength = sizeof(exchange);
  status = GetContainerKeyIds(device.slot->session, device.container, ctx.containerName, signature,
                              &signatureLength, exchange, &exchangeLength);
  if (status != kOk) return status;
  const bool isSignature = keySpec == AT_SIGNATURE;
  id->length = isSignature ? signatureLength : exchangeLength;
  std::memcpy(id->bytes, isSignature ? signature : exchange, id->length);
  return kOk;
}

Status LoginAndKeyId(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                     KeyId* id) {
  Status status = EnsureLogin(ctx, device);
  return status == kOk ? ContainerKeyId(ctx, device, keySpec, id) : status;
}

}  // namespace nivra::pkcs11
