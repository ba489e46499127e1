#include "tests/p11fwd/provider_templates.h"

#include <algorithm>

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

namespace {

// SHA-256 of "abc" (FIPS 180-2, appendix B.1).
const uint8_t kSha256OfAbc[32] = {0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
                                  0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
                                  0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};

}  // namespace

Bytes Sha256AbcSignatureBlock(size_t k) {
  // DER prefix of DigestInfo { sha256, OCTET STRING(32) } from PKCS#1 v2.2, section 9.2.
  const Bytes prefix = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                        0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  Bytes block(k, 0xFF);
  block[0] = 0x00;
  block[1] = 0x01;
  size_t t = prefix.size() + 32;
  block[k - t - 1] = 0x00;
  std::copy(prefix.begin(), prefix.end(), block.end() - t);
  std::copy(kSha256OfAbc, kSha256OfAbc + 32, block.end() - 32);
  return block;
}

}  // namespace nivra::p11test
