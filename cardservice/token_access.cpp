#include "cardservice/token_access.h"

namespace nivra::cardservice {

const CK_BBOOL kCkTrue = CK_TRUE;
const CK_BBOOL kCkFalse = CK_FALSE;

namespace {
constexpr CK_ULONG kFindBatch = 32;
}

OwnSession::~OwnSession() {
  if (handle_ != CK_INVALID_HANDLE) p11_->C_CloseSession(handle_);
}

CK_RV OwnSession::Open(CK_SLOT_ID slot) {
  return p11_->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                             &handle_);
}

Template& Template::Bytes(CK_ATTRIBUTE_TYPE type, const void* data, size_t length) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  types_.push_back(type);
  values_.emplace_back(bytes, bytes + length);
  return *this;
}

std::vector<CK_ATTRIBUTE> Template::Attributes() {
  std::vector<CK_ATTRIBUTE> out;
  for (size_t i = 0; i < types_.size(); ++i) {
    out.push_back({types_[i], values_[i].empty() ? nullptr : values_[i].data(),
                   static_cast<CK_ULONG>(values_[i].size())});
  }
  return out;
}

CK_RV FindAll(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, Template& query,
              std::vector<CK_OBJECT_HANDLE>* found) {
  found->clear();
  auto attributes = query.Attributes();
  CK_RV rv = p11->C_FindObjectsInit(session, attributes.data(), attributes.size());
  if (rv != CKR_OK) return rv;
  CK_OBJECT_HANDLE batch[kFindBatch];
  CK_ULONG count = 0;
  do {
    rv = p11->C_FindObjects(session, batch, kFindBatch, &count);
    if (rv != CKR_OK) break;
    found->insert(found->end(), batch, batch + count);
  } while (count == kFindBatch);
  CK_RV finalRv = p11->C_FindObjectsFinal(session);
  return rv != CKR_OK ? rv : finalRv;
}

CK_RV ReadAttribute(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                    CK_ATTRIBUTE_TYPE type, std::vector<uint8_t>* value) {
  CK_ATTRIBUTE attribute = {type, nullptr, 0};
  CK_RV rv = p11->C_GetAttributeValue(session, object, &attribute, 1);
  if (rv != CKR_OK) return rv;
  if (attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) return CKR_ATTRIBUTE_TYPE_INVALID;
  value->assign(attribute.ulValueLen, 0);
  attribute.pValue = value->data();
  rv = p11->C_GetAttributeValue(session, object, &attribute, 1);
  if (rv == CKR_OK) value->resize(attribute.ulValueLen);
  return rv;
}

CK_RV ReadUlong(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                CK_ATTRIBUTE_TYPE type, CK_ULONG* value) {
  CK_ATTRIBUTE attribute = {type, value, sizeof *value};
  return p11->C_GetAttributeValue(session, object, &attribute, 1);
}

std::vector<uint8_t> WithoutLeadingZeros(const std::vector<uint8_t>& value) {
  size_t first = 0;
  while (first < value.size() && value[first] == 0) ++first;
  return std::vector<uint8_t>(value.begin() + first, value.end());
}

}  // namespace nivra::cardservice
