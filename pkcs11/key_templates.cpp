#include "pkcs11/key_templates.h"

#include "crypto/wipe.h"

namespace nivra::pkcs11 {

namespace {

const CK_OBJECT_CLASS kPublicKeyClass = CKO_PUBLIC_KEY;
const CK_OBJECT_CLASS kPrivateKeyClass = CKO_PRIVATE_KEY;
const CK_KEY_TYPE kRsaKeyType = CKK_RSA;
const uint8_t kGeneratedExponent[] = {0x00, 0x01, 0x00, 0x01};

void AddBytes(AttributeList* list, CK_ATTRIBUTE_TYPE type, const std::vector<uint8_t>& value) {
  list->Add(type, value.data(), value.size());
}

void AddHead(AttributeList* list, const CK_OBJECT_CLASS& objectClass, KeyIdBytes id) {
  list->AddValue(CKA_CLASS, objectClass);
  list->Add(CKA_ID, id.bytes, id.length);
  list->AddValue(CKA_TOKEN, kTrue);
  list->AddValue(CKA_KEY_TYPE, kRsaKeyType);
}

void AddPrivateFlags(AttributeList* list) {
  list->AddValue(CKA_SENSITIVE, kTrue);
  list->AddValue(CKA_SIGN, kTrue);
  list->AddValue(CKA_DECRYPT, kTrue);
  list->AddValue(CKA_PRIVATE, kTrue);
}

void AddPublicFlags(AttributeList* list) {
  list->AddValue(CKA_ENCRYPT, kTrue);
  list->AddValue(CKA_VERIFY, kTrue);
  list->AddValue(CKA_WRAP, kTrue);
}

}  // namespace

RsaComponents::~RsaComponents() {
  for (std::vector<uint8_t>* value : {&modulus, &publicExponent, &privateExponent, &prime1,
                                      &prime2, &exponent1, &exponent2, &coefficient}) {
    crypto::Wipe(value->data(), value->size());
  }
}

void GenerationTemplates(KeyIdBytes id, const CK_ULONG& modulusBits, AttributeList* publicKey,
                         AttributeList* privateKey) {
  AddHead(publicKey, kPublicKeyClass, id);
  AddPublicFlags(publicKey);
  publicKey->AddValue(CKA_MODULUS_BITS, modulusBits);
  publicKey->Add(CKA_PUBLIC_EXPONENT, kGeneratedExponent, sizeof(kGeneratedExponent));

  AddHead(privateKey, kPrivateKeyClass, id);
  AddPrivateFlags(privateKey);
}

void ImportPrivateTemplate(KeyIdBytes id, const RsaComponents& key, bool complete,
                           AttributeList* privateKey) {
  AddHead(privateKey, kPrivateKeyClass, id);
  AddPrivateFlags(privateKey);
  if (!complete) {
    AddBytes(privateKey, CKA_PUBLIC_EXPONENT, key.publicExponent);
    AddBytes(privateKey, CKA_PRIME_1, key.prime1);
    AddBytes(privateKey, CKA_PRIME_2, key.prime2);
    return;
  }
  AddBytes(privateKey, CKA_MODULUS, key.modulus);
  AddBytes(privateKey, CKA_PUBLIC_EXPONENT, key.publicExponent);
  AddBytes(privateKey, CKA_PRIVATE_EXPONENT, key.privateExponent);
  AddBytes(privateKey, CKA_PRIME_1, key.prime1);
  AddBytes(privateKey, CKA_PRIME_2, key.prime2);
  AddBytes(privateKey, CKA_EXPONENT_1, key.exponent1);
  AddBytes(privateKey, CKA_EXPONENT_2, key.exponent2);
  AddBytes(privateKey, CKA_COEFFICIENT, key.coefficient);
}

void ImportPublicTemplate(KeyIdBytes id, const RsaComponents& key, AttributeList* publicKey) {
  AddHead(publicKey, kPublicKeyClass, id);
  AddPublicFlags(publicKey);
  AddBytes(publicKey, CKA_PUBLIC_EXPONENT, key.publicExponent);
  AddBytes(publicKey, CKA_MODULUS, key.modulus);
}

}  // namespace nivra::pkcs11
