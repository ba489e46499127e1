#include "tests/cardservice/openssl_peer.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

namespace nivra::cardtest {

namespace {

EVP_PKEY* PublicKey(const ByteString& modulus, uint32_t exponent) {
  // OSSL_PARAM numbers are in the host's byte order: little-endian on the machines that run this.
  ByteString n(modulus.rbegin(), modulus.rend());
  OSSL_PARAM params[] = {OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_N, n.data(), n.size()),
                         OSSL_PARAM_construct_uint32(OSSL_PKEY_PARAM_RSA_E, &exponent),
                         OSSL_PARAM_construct_end()};
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* key = nullptr;
  if (!ctx || EVP_PKEY_fromdata_init(ctx) != 1 ||
      EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params) != 1) {
    key = nullptr;
  }
  EVP_PKEY_CTX_free(ctx);
  return key;
}

}  // namespace

bool OpenSslVerifiesSha256(const ByteString& modulus, uint32_t exponent, const ByteString& message,
                           const ByteString& signature) {
  EVP_PKEY* key = PublicKey(modulus, exponent);
  EVP_MD_CTX* md = EVP_MD_CTX_new();
  bool verified = key && md && EVP_DigestVerifyInit(md, nullptr, EVP_sha256(), nullptr, key) == 1 &&
                  EVP_DigestVerify(md, signature.data(), signature.size(), message.data(),
                                   message.size()) == 1;
  EVP_MD_CTX_free(md);
  EVP_PKEY_free(key);
  return verified;
}

ByteString Sha256DigestInfo(const ByteString& message) {
  static const uint8_t kPrefix[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                    0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  ByteString out(kPrefix, kPrefix + sizeof kPrefix);
  out.resize(sizeof kPrefix + SHA256_DIGEST_LENGTH);
  SHA256(message.data(), message.size(), out.data() + sizeof kPrefix);
  return out;
}

}  // namespace nivra::cardtest
