#include "tests/cardservice/openssl_peer.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

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

ByteString OpenSslEncrypt(const ByteString& modulus, uint32_t exponent, const ByteString& message,
                          bool oaep) {
  EVP_PKEY* key = PublicKey(modulus, exponent);
  EVP_PKEY_CTX* ctx = key ? EVP_PKEY_CTX_new(key, nullptr) : nullptr;
  ByteString out(modulus.size());
  size_t length = out.size();
  bool done = ctx && EVP_PKEY_encrypt_init(ctx) == 1 &&
              EVP_PKEY_CTX_set_rsa_padding(ctx, oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING) == 1 &&
              EVP_PKEY_encrypt(ctx, out.data(), &length, message.data(), message.size()) == 1;
  EVP_PKEY_CTX_free(ctx);
  EVP_PKEY_free(key);
  if (!done) return {};
  out.resize(length);
  return out;
}

ByteString Sha256DigestInfo(const ByteString& message) {
  static const uint8_t kPrefix[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                    0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  ByteString out(kPrefix, kPrefix + sizeof kPrefix);
  out.resize(sizeof kPrefix + SHA256_DIGEST_LENGTH);
  SHA256(message.data(), message.size(), out.data() + sizeof kPrefix);
  return out;
}

ByteString SelfSignedCertificate(const std::string& commonName) {
  EVP_PKEY* key = EVP_RSA_gen(1024);
  X509* certificate = X509_new();
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 4711);
  X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
  X509_set_pubkey(certificate, key);
  X509_NAME* name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  X509_sign(certificate, key, EVP_sha256());
  unsigned char* der = nullptr;
  int length = i2d_X509(certificate, &der);
  ByteString out(der, der + (length > 0 ? length : 0));
  OPENSSL_free(der);
  X509_free(certificate);
  EVP_PKEY_free(key);
  return out;
}

}  // namespace nivra::cardtest
