#include "tests/p11fwd/openssl_rsa_check.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>

namespace nivra::p11test {

bool OpenSslVerifiesSha256(const std::vector<uint8_t>& modulus, const std::vector<uint8_t>& exponent,
                           const std::vector<uint8_t>& message, const std::vector<uint8_t>& signature) {
  // OSSL_PARAM numbers are in the host's byte order: little-endian on the machines that run this.
  std::vector<uint8_t> n(modulus.rbegin(), modulus.rend()), e(exponent.rbegin(), exponent.rend());
  OSSL_PARAM params[] = {OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_N, n.data(), n.size()),
                         OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_E, e.data(), e.size()),
                         OSSL_PARAM_construct_end()};
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* key = nullptr;
  bool made = ctx && EVP_PKEY_fromdata_init(ctx) == 1 &&
              EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params) == 1;
  EVP_PKEY_CTX_free(ctx);
  EVP_MD_CTX* md = EVP_MD_CTX_new();
  bool verified = made && md && EVP_DigestVerifyInit(md, nullptr, EVP_sha256(), nullptr, key) == 1 &&
                  EVP_DigestVerify(md, signature.data(), signature.size(), message.data(),
                                   message.size()) == 1;
  EVP_MD_CTX_free(md);
  EVP_PKEY_free(key);
  return verified;
}

}  // namespace nivra::p11test
