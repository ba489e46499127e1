#include "cardservice/container_store.h"

#include "cardservice/token_access.h"

namespace nivra::cardservice {

namespace {

constexpr CK_OBJECT_CLASS kContainerVendorClass = CKO_VENDOR_DEFINED + 1;
constexpr char kDataFormApplication[] = "NivraCSP container";
constexpr char kHelperFormApplication[] = "nivra-vendor-class-80000001";
constexpr char kSignatureSuffix[] = "_cspS";
constexpr char kExchangeSuffix[] = "_cspX";

// Key-ID record: byte 0 = length S of the signature ID, byte 1 = length X of the exchange ID,
// two reserved bytes, then the two IDs.
constexpr size_t kKeyIdRecordHeader = 4;

struct ContainerForm {
  CK_OBJECT_CLASS objectClass;
  const char* application;  // null for the vendor form
};
constexpr ContainerForm kForms[] = {
    {kContainerVendorClass, nullptr},
    {CKO_DATA, kDataFormApplication},
    {CKO_DATA, kHelperFormApplication},
};

Template FormQuery(const ContainerForm& form) {
  Template query;
  query.Ulong(CKA_CLASS, form.objectClass);
  if (form.application) query.Text(CKA_APPLICATION, form.application);
  return query;
}

bool RefusesVendorClass(CK_RV rv) {
  return rv == CKR_ATTRIBUTE_VALUE_INVALID || rv == CKR_TEMPLATE_INCONSISTENT ||
         rv == CKR_ATTRIBUTE_TYPE_INVALID;
}

}  // namespace

CK_RV ListContainers(TokenView token, std::vector<Container>* out) {
  out->clear();
  for (const ContainerForm& form : kForms) {
    Template query = FormQuery(form);
    std::vector<CK_OBJECT_HANDLE> objects;
    CK_RV rv = FindAll(token.p11, token.session, query, &objects);
    if (rv != CKR_OK) return rv;
    for (CK_OBJECT_HANDLE object : objects) {
      std::vector<uint8_t> label;
      rv = ReadAttribute(token.p11, token.session, object, CKA_LABEL, &label);
      if (rv != CKR_OK) return rv;
      out->push_back({object, std::string(label.begin(), label.end())});
    }
  }
  return CKR_OK;
}

CK_RV FindContainer(TokenView token, const std::string& name, Container* out, bool* found) {
  *found = false;
  for (const ContainerForm& form : kForms) {
    Template query = FormQuery(form);
    query.Text(CKA_LABEL, name);
    std::vector<CK_OBJECT_HANDLE> objects;
    CK_RV rv = FindAll(token.p11, token.session, query, &objects);
    if (rv != CKR_OK) return rv;
    if (objects.size() == 1) {
      *out = {objects[0], name};
      *found = true;
      return CKR_OK;
    }
  }
  return CKR_OK;
}

CK_RV CreateContainer(TokenView token, const std::string& name, Container* out) {
  Template vendor;
  vendor.Ulong(CKA_CLASS, kContainerVendorClass).Text(CKA_LABEL, name).Bool(CKA_TOKEN, true);
  vendor.Bool(CKA_MODIFIABLE, true);
  auto attributes = vendor.Attributes();
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  CK_RV rv = token.p11->C_CreateObject(token.session, attributes.data(), attributes.size(), &object);
  if (RefusesVendorClass(rv)) {
    // Readable before login, as the vendor form is on a card: the container is opened (and its
    // name listed) before anyone has given a PIN.
    Template data;
    data.Ulong(CKA_CLASS, CKO_DATA).Text(CKA_LABEL, name).Bool(CKA_TOKEN, true);
    data.Bool(CKA_MODIFIABLE, true).Text(CKA_APPLICATION, kDataFormApplication);
    data.Bool(CKA_PRIVATE, false);
    attributes = data.Attributes();
    rv = token.p11->C_CreateObject(token.session, attributes.data(), attributes.size(), &object);
  }
  if (rv == CKR_OK) *out = {object, name};
  return rv;
}

CK_RV ContainerKeyId(TokenView token, const Container& container, uint32_t keySpec,
                     std::string* id) {
  std::vector<uint8_t> record;
  CK_RV rv = ReadAttribute(token.p11, token.session, container.object, CKA_VALUE, &record);
  if (rv == CKR_ATTRIBUTE_TYPE_INVALID) record.clear();  // the vendor form may have no value
  else if (rv != CKR_OK) return rv;
  if (record.empty()) {
    *id = container.name + (keySpec == kKeySpecSignature ? kSignatureSuffix : kExchangeSuffix);
    return CKR_OK;
  }
  size_t signatureLength = record.size() > 0 ? record[0] : 0;
  size_t exchangeLength = record.size() > 1 ? record[1] : 0;
  if (record.size() < kKeyIdRecordHeader + signatureLength + exchangeLength) {
    return CKR_DATA_INVALID;
  }
  const char* ids = reinterpret_cast<const char*>(record.data() + kKeyIdRecordHeader);
  if (keySpec == kKeySpecSignature) {
    id->assign(ids, signatureLength);
  } else {
    id->assign(ids + signatureLength, exchangeLength);
  }
  return CKR_OK;
}

CK_RV DestroyKeyObjects(TokenView token, const std::string& id, bool certificatesToo) {
  Template query;
  query.Text(CKA_ID, id);
  std::vector<CK_OBJECT_HANDLE> objects;
  CK_RV rv = FindAll(token.p11, token.session, query, &objects);
  if (rv != CKR_OK) return rv;
  for (CK_OBJECT_HANDLE object : objects) {
    CK_ULONG objectClass = 0, kind = 0;
    rv = ReadUlong(token.p11, token.session, object, CKA_CLASS, &objectClass);
    if (rv != CKR_OK) return rv;
    bool destroy = false;
    if (objectClass == CKO_PUBLIC_KEY || objectClass == CKO_PRIVATE_KEY) {
      rv = ReadUlong(token.p11, token.session, object, CKA_KEY_TYPE, &kind);
      destroy = rv == CKR_OK && kind == CKK_RSA;
    } else if (objectClass == CKO_CERTIFICATE && certificatesToo) {
      rv = ReadUlong(token.p11, token.session, object, CKA_CERTIFICATE_TYPE, &kind);
      destroy = rv == CKR_OK && kind == CKC_X_509;
    }
    if (rv != CKR_OK) return rv;
    if (destroy) {
      rv = token.p11->C_DestroyObject(token.session, object);
      if (rv != CKR_OK) return rv;
    }
  }
  return CKR_OK;
}

CK_RV DeleteContainer(TokenView token, const Container& container) {
  for (uint32_t keySpec : {kKeySpecSignature, kKeySpecExchange}) {
    std::string id;
    CK_RV rv = ContainerKeyId(token, container, keySpec, &id);
    if (rv == CKR_OK) rv = DestroyKeyObjects(token, id, true);
    if (rv != CKR_OK) return rv;
  }
  return token.p11->C_DestroyObject(token.session, container.object);
}

}  // namespace nivra::cardservice
