#include "cardservice/key_store.h"

#include <algorithm>

#include "cardservice/token_access.h"

namespace nivra::cardservice {

namespace {

std::vector<uint8_t> ExponentBytes(uint32_t exponent) {
  std::vector<uint8_t> out;
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(exponent >> shift));
  return WithoutLeadingZeros(out);
}

// The flags and ID that both halves of a pair carry, as the provider writes them.
void PrivateFlags(Template& t, const std::string& id) {
  t.Ulong(CKA_CLASS, CKO_PRIVATE_KEY).Text(CKA_ID, id).Bool(CKA_TOKEN, true);
  t.Ulong(CKA_KEY_TYPE, CKK_RSA).Bool(CKA_SENSITIVE, true).Bool(CKA_SIGN, true);
  t.Bool(CKA_DECRYPT, true).Bool(CKA_PRIVATE, true);
}
void PublicFlags(Template& t, const std::string& id) {
  t.Ulong(CKA_CLASS, CKO_PUBLIC_KEY).Text(CKA_ID, id).Bool(CKA_TOKEN, true);
  t.Ulong(CKA_KEY_TYPE, CKK_RSA).Bool(CKA_ENCRYPT, true).Bool(CKA_VERIFY, true);
  t.Bool(CKA_WRAP, true);
}
Template& Value(Template& t, CK_ATTRIBUTE_TYPE type, const std::vector<uint8_t>& value) {
  return t.Bytes(type, value.data(), value.size());
}

}  // namespace

CK_RV FindKey(TokenView token, const std::string& id, CK_OBJECT_CLASS objectClass,
              CK_OBJECT_HANDLE* key, bool* found) {
  Template query;
  query.Ulong(CKA_CLASS, objectClass).Text(CKA_ID, id).Ulong(CKA_KEY_TYPE, CKK_RSA);
  std::vector<CK_OBJECT_HANDLE> objects;
  CK_RV rv = FindAll(token.p11, token.session, query, &objects);
  *found = rv == CKR_OK && !objects.empty();
  if (*found) *key = objects[0];
  return rv;
}

CK_RV ReadPublicKey(TokenView token, CK_OBJECT_HANDLE key, PublicKey* out) {
  std::vector<uint8_t> modulus, exponent;
  CK_RV rv = ReadAttribute(token.p11, token.session, key, CKA_MODULUS, &modulus);
  if (rv == CKR_OK) rv = ReadAttribute(token.p11, token.session, key, CKA_PUBLIC_EXPONENT, &exponent);
  if (rv != CKR_OK) return rv;
  exponent = WithoutLeadingZeros(exponent);
  if (exponent.size() > 4) return CKR_ATTRIBUTE_VALUE_INVALID;
  out->exponent = 0;
  for (uint8_t byte : exponent) out->exponent = out->exponent << 8 | byte;
  out->modulus = WithoutLeadingZeros(modulus);
  out->bits = static_cast<uint32_t>(out->modulus.size() * 8);
  return CKR_OK;
}

CK_RV GenerateKeyPair(TokenView token, const std::string& id, uint32_t bits, uint32_t exponent,
                      CK_OBJECT_HANDLE* publicKey) {
  CK_RV rv = DestroyKeyObjects(token, id, false);
  if (rv != CKR_OK) return rv;
  Template publicTemplate, privateTemplate;
  PublicFlags(publicTemplate, id);
  publicTemplate.Ulong(CKA_MODULUS_BITS, bits);
  Value(publicTemplate, CKA_PUBLIC_EXPONENT, ExponentBytes(exponent));
  PrivateFlags(privateTemplate, id);
  auto publicAttributes = publicTemplate.Attributes();
  auto privateAttributes = privateTemplate.Attributes();
  CK_MECHANISM mechanism = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
  CK_OBJECT_HANDLE privateKey = CK_INVALID_HANDLE;
  return token.p11->C_GenerateKeyPair(token.session, &mechanism, publicAttributes.data(),
                                      publicAttributes.size(), privateAttributes.data(),
                                      privateAttributes.size(), publicKey, &privateKey);
}

CK_RV ImportKeyPair(TokenView token, const std::string& id, const RsaKeyParts& key) {
  CK_RV rv = DestroyKeyObjects(token, id, false);
  if (rv != CKR_OK) return rv;
  // The complete private template: the service has every component, so no token is asked to
  // derive any of them.
  Template privateTemplate, publicTemplate;
  PrivateFlags(privateTemplate, id);
  Value(privateTemplate, CKA_MODULUS, key.modulus);
  Value(privateTemplate, CKA_PUBLIC_EXPONENT, key.publicExponent);
  Value(privateTemplate, CKA_PRIVATE_EXPONENT, key.privateExponent);
  Value(privateTemplate, CKA_PRIME_1, key.prime1);
  Value(privateTemplate, CKA_PRIME_2, key.prime2);
  Value(privateTemplate, CKA_EXPONENT_1, key.exponent1);
  Value(privateTemplate, CKA_EXPONENT_2, key.exponent2);
  Value(privateTemplate, CKA_COEFFICIENT, key.coefficient);
  PublicFlags(publicTemplate, id);
  Value(publicTemplate, CKA_PUBLIC_EXPONENT, key.publicExponent);
  Value(publicTemplate, CKA_MODULUS, key.modulus);
  // Readable before login, as a generated public key is.
  publicTemplate.Bool(CKA_PRIVATE, false);
  auto privateAttributes = privateTemplate.Attributes();
  auto publicAttributes = publicTemplate.Attributes();
  CK_OBJECT_HANDLE privateKey = CK_INVALID_HANDLE, publicKey = CK_INVALID_HANDLE;
  rv = token.p11->C_CreateObject(token.session, privateAttributes.data(), privateAttributes.size(),
                                 &privateKey);
  if (rv != CKR_OK) return rv;
  rv = token.p11->C_CreateObject(token.session, publicAttributes.data(), publicAttributes.size(),
                                 &publicKey);
  if (rv != CKR_OK) token.p11->C_DestroyObject(token.session, privateKey);
  return rv;
}

CK_RV RawRsa(CK_FUNCTION_LIST* p11, CK_SLOT_ID slot, CK_OBJECT_HANDLE key, bool privateKey,
             std::vector<uint8_t>* block) {
  OwnSession session(p11);
  CK_RV rv = session.Open(slot);
  if (rv != CKR_OK) return rv;
  CK_MECHANISM mechanism = {CKM_RSA_X_509, nullptr, 0};
  std::vector<uint8_t> result(block->size());
  CK_ULONG resultLength = result.size();
  if (privateKey) {
    rv = p11->C_DecryptInit(session.handle(), &mechanism, key);
    if (rv == CKR_OK) {
      rv = p11->C_Decrypt(session.handle(), block->data(), block->size(), result.data(),
                          &resultLength);
    }
  } else {
    rv = p11->C_EncryptInit(session.handle(), &mechanism, key);
    if (rv == CKR_OK) {
      rv = p11->C_Encrypt(session.handle(), block->data(), block->size(), result.data(),
                          &resultLength);
    }
  }
  if (rv != CKR_OK) return rv;
  // A module may drop the leading zero bytes of the result; the wire wants the whole block.
  if (resultLength > block->size()) return CKR_GENERAL_ERROR;
  std::fill(block->begin(), block->end(), 0);
  std::copy(result.begin(), result.begin() + resultLength,
            block->begin() + (block->size() - resultLength));
  return CKR_OK;
}

}  // namespace nivra::cardservice
