#include "tests/p11fwd/provider_templates.h"


namespace nivra::p11test {

p11wire::WireTemplate ProviderPublicKeyTemplate(const std::string& id, uint32_t bits) {
  const Bytes yes = {CK_TRUE};
  return {ValueAttribute(CKA_CLASS, Ulong32(CKO_PUBLIC_KEY)), ValueAttribute(CKA_ID, TextBytes(id)),
          ValueAttribute(CKA_TOKEN, yes), ValueAttribute(CKA_KEY_TYPE, Ulong32(CKK_RSA)),
          ValueAttribute(CKA_ENCRYPT, yes), ValueAttribute(CKA_VERIFY, yes),
          ValueAttribute(CKA_WRAP, yes), ValueAttribute(CKA_MODULUS_BITS, Ulong32(bits)),
          ValueAttribute(CKA_PUBLIC_EXPONENT, {0x00, 0x01, 0x00, 0x01})};
}

p11wire::WireTemplate ProviderPrivateKeyTemplate(const std::string& id) {
  const Bytes yes = {CK_TRUE};
  return {ValueAttribute(CKA_CLASS, Ulong32(CKO_PRIVATE_KEY)), ValueAttribute(CKA_ID, TextBytes(id)),
          ValueAttribute(CKA_TOKEN, yes), ValueAttribute(CKA_KEY_TYPE, Ulong32(CKK_RSA)),
          ValueAttribute(CKA_SENSITIVE, yes), ValueAttribute(CKA_SIGN, yes),
          ValueAttribute(CKA_DECRYPT, yes), ValueAttribute(CKA_PRIVATE, yes)};
}

}  // namespace nivra::p11test
