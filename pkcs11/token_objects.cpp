#include "pkcs11/token_objects.h"

#include "pkcs11/module_loader.h"

namespace nivra::pkcs11 {

const CK_BBOOL kTrue = CK_TRUE;

OwnSession::~OwnSession() {
  if (handle_ != 0 && P11() != nullptr) P11()->C_CloseSession(handle_);
}

CK_RV OwnSession::Open(CK_SLOT_ID slotId) {
  CK_SESSION_HANDLE session = 0;
  CK_RV rv = P11()->C_OpenSession(slotId, kSessionFlags, nullptr, nullptr, &session);
  if (rv == CKR_OK) handle_ = session;
  return rv;
}

CK_SESSION_HANDLE OwnSession::Release() {
  CK_SESSION_HANDLE session = handle_;
  handle_ = 0;
  return session;
}

void AttributeList::Add(CK_ATTRIBUTE_TYPE type, const void* value, size_t length) {
  if (count_ >= kMaxAttributes) return;
  items_[count_].type = type;
  items_[count_].pValue = const_cast<void*>(value);
  items_[count_].ulValueLen = static_cast<CK_ULONG>(length);
  ++count_;
}

CK_RV FindObjectsOnce(CK_SESSION_HANDLE session, AttributeList& query, CK_OBJECT_HANDLE* handles,
                      CK_ULONG capacity, CK_ULONG* found) {
  *found = 0;
  CK_FUNCTION_LIST* p11 = P11();
  CK_RV rv = p11->C_FindObjectsInit(session, query.data(), query.count());
  if (rv != CKR_OK) return rv;
  rv = p11->C_FindObjects(session, handles, capacity, found);
  if (rv != CKR_OK) *found = 0;
  CK_RV finalRv = p11->C_FindObjectsFinal(session);
  return rv != CKR_OK ? rv : finalRv;
}

CK_RV ReadAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                    std::vector<uint8_t>* value) {
  CK_FUNCTION_LIST* p11 = P11();
  CK_ATTRIBUTE attribute{type, nullptr, 0};
  CK_RV rv = p11->C_GetAttributeValue(session, object, &attribute, 1);
  if (rv != CKR_OK) return rv;
  if (attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) return CKR_ATTRIBUTE_TYPE_INVALID;
  value->assign(attribute.ulValueLen, 0);
  if (value->empty()) return CKR_OK;
  attribute.pValue = value->data();
  rv = p11->C_GetAttributeValue(session, object, &attribute, 1);
  if (rv == CKR_OK) value->resize(attribute.ulValueLen);
  return rv;
}

CK_RV ReadUlongAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                         CK_ATTRIBUTE_TYPE type, CK_ULONG* value) {
  *value = 0;
  CK_ATTRIBUTE attribute{type, value, sizeof(*value)};
  return P11()->C_GetAttributeValue(session, object, &attribute, 1);
}

CK_RV ReadLabel(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, char* label, size_t capacity,
                size_t* length) {
  CK_FUNCTION_LIST* p11 = P11();
  CK_ATTRIBUTE attribute{CKA_LABEL, label, static_cast<CK_ULONG>(capacity)};
  CK_RV rv = p11->C_GetAttributeValue(session, object, &attribute, 1);
  if (rv == CKR_OK && attribute.ulValueLen <= capacity) {
    label[attribute.ulValueLen] = '\0';
    *length = attribute.ulValueLen;
    return CKR_OK;
  }
  if (rv == CKR_OK || rv == CKR_BUFFER_TOO_SMALL) {
    CK_ATTRIBUTE probe{CKA_LABEL, nullptr, 0};
    if (p11->C_GetAttributeValue(session, object, &probe, 1) == CKR_OK) *length = probe.ulValueLen;
    return CKR_BUFFER_TOO_SMALL;
  }
  return rv;
}

size_t StripLeadingZeros(const uint8_t* value, size_t length, const uint8_t** start) {
  size_t skip = 0;
  while (skip < length && value[skip] == 0) ++skip;
  *start = value + skip;
  return length - skip;
}

}  // namespace nivra::pkcs11
