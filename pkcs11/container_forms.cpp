#include "pkcs11/container_forms.h"

namespace nivra::pkcs11 {

namespace {

const CK_OBJECT_CLASS kVendorClass = kContainerObjectClass;
const CK_OBJECT_CLASS kDataClass = CKO_DATA;
const CK_BBOOL kFalse = CK_FALSE;
constexpr size_t kApplicationLength = sizeof(kContainerApplication) - 1;

}  // namespace

void AddContainerForm(AttributeList* query, ContainerForm form) {
  if (form == ContainerForm::kVendor) {
    query->AddValue(CKA_CLASS, kVendorClass);
    return;
  }
  query->AddValue(CKA_CLASS, kDataClass);
  query->Add(CKA_APPLICATION, kContainerApplication, kApplicationLength);
}

void ContainerTemplate(AttributeList* object, ContainerForm form, const char* name,
                       size_t nameLength) {
  object->AddValue(CKA_CLASS, form == ContainerForm::kVendor ? kVendorClass : kDataClass);
  object->Add(CKA_LABEL, name, nameLength);
  object->AddValue(CKA_TOKEN, kTrue);
  object->AddValue(CKA_MODIFIABLE, kTrue);
  if (form == ContainerForm::kData) {
    object->Add(CKA_APPLICATION, kContainerApplication, kApplicationLength);
    object->AddValue(CKA_PRIVATE, kFalse);
  }
}

bool RefusesVendorClass(CK_RV rv) {
  return rv == CKR_ATTRIBUTE_VALUE_INVALID || rv == CKR_TEMPLATE_INCONSISTENT ||
         rv == CKR_ATTRIBUTE_TYPE_INVALID;
}

CK_RV FindContainerObjects(CK_SESSION_HANDLE session, const char* name, size_t nameLength,
                           CK_OBJECT_HANDLE* handles, CK_ULONG capacity, CK_ULONG* found) {
  *found = 0;
  for (ContainerForm form : kContainerForms) {
    if (*found == capacity) break;
    AttributeList query;
    AddContainerForm(&query, form);
    if (nameLength != 0) query.Add(CKA_LABEL, name, nameLength);
    CK_ULONG count = 0;
    CK_RV rv = FindObjectsOnce(session, query, handles + *found, capacity - *found, &count);
    if (rv != CKR_OK) return rv;
    *found += count;
  }
  return CKR_OK;
}

}  // namespace nivra::pkcs11
