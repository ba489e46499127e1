// OpenSSL's libcrypto behind the benchmark's engine interface (native build). Only the EVP
// interfaces are used, so OpenSSL picks its fastest code for this machine (SHA extensions,
// assembly big-number code), as an application linking it would get.
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cstring>

#include "bench_engine.h"

namespace nivra::bench {
namespace {

std::vector<uint8_t> ParamBytes(const EVP_PKEY* key, const char* name, size_t width) {
  BIGNUM* value = nullptr;
  std::vector<uint8_t> out;
  if (EVP_PKEY_get_bn_param(key, name, &value) == 1) {
    out.resize(width ? width : static_cast<size_t>(BN_num_bytes(value)));
    BN_bn2binpad(value, out.data(), static_cast<int>(out.size()));
  }
  BN_free(value);
  return out;
}

class OpenSslEngine : public BenchEngine {
 public:
  ~OpenSslEngine() override {
    EVP_CIPHER_CTX_free(tdes_);
    EVP_PKEY_CTX_free(signCtx_);
    EVP_PKEY_CTX_free(verifyCtx_);
    EVP_PKEY_free(key_);
  }

  std::string Name() const override { return OpenSSL_version(OPENSSL_VERSION); }

  Outcome Sha1(const uint8_t* data, size_t len, uint8_t out[20]) override {
    unsigned int outLen = 0;
    return EVP_Digest(data, len, out, &outLen, EVP_sha1(), nullptr) == 1 && outLen == 20
               ? Outcome::kDone
               : Outcome::kFailed;
  }

  Outcome TdesCbcStart(const uint8_t key[16], const uint8_t iv[8]) override {
    if (tdes_ == nullptr) tdes_ = EVP_CIPHER_CTX_new();
    if (tdes_ == nullptr ||
        EVP_EncryptInit_ex(tdes_, EVP_des_ede_cbc(), nullptr, key, iv) != 1 ||
        EVP_CIPHER_CTX_set_padding(tdes_, 0) != 1)
      return Outcome::kFailed;
    return Outcome::kDone;
  }

  Outcome TdesCbcEncrypt(uint8_t* data, size_t len) override {
    int outLen = 0;
    return EVP_EncryptUpdate(tdes_, data, &outLen, data, static_cast<int>(len)) == 1 &&
                   static_cast<size_t>(outLen) == len
               ? Outcome::kDone
               : Outcome::kFailed;
  }

  Outcome RsaGenerate() override {
    EVP_PKEY* key = Generate();
    EVP_PKEY_free(key);
    return key != nullptr ? Outcome::kDone : Outcome::kFailed;
  }

  Outcome RsaMakeSharedKey(RsaKeyComponents* out) override {
    key_ = Generate();
    if (key_ == nullptr || !PrepareRawContexts()) return Outcome::kFailed;
    out->n = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_N, kRsaBytes);
    out->e = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_E, 0);
    out->d = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_D, kRsaBytes);
    out->p = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_FACTOR1, kRsaBytes / 2);
    out->q = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_FACTOR2, kRsaBytes / 2);
    out->dP = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_EXPONENT1, kRsaBytes / 2);
    out->dQ = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_EXPONENT2, kRsaBytes / 2);
    out->qInv = ParamBytes(key_, OSSL_PKEY_PARAM_RSA_COEFFICIENT1, kRsaBytes / 2);
    return Outcome::kDone;
  }

  // The peer always makes the shared key natively.
  Outcome RsaLoadSharedKey(const RsaKeyComponents&) override { return Outcome::kNotBuilt; }

  // Raw private-key operation (RSA_NO_PADDING) on the prepared block.
  Outcome RsaSign(const uint8_t block[kRsaBytes], const uint8_t*,
                  uint8_t signature[kRsaBytes]) override {
    size_t outLen = kRsaBytes;
    return EVP_PKEY_decrypt(signCtx_, signature, &outLen, block, kRsaBytes) == 1 &&
                   outLen == kRsaBytes
               ? Outcome::kDone
               : Outcome::kFailed;
  }

  Outcome RsaVerify(const uint8_t signature[kRsaBytes], const uint8_t block[kRsaBytes],
                    const uint8_t*) override {
    uint8_t recovered[kRsaBytes];
    size_t outLen = kRsaBytes;
    if (EVP_PKEY_encrypt(verifyCtx_, recovered, &outLen, signature, kRsaBytes) != 1 ||
        outLen != kRsaBytes)
      return Outcome::kFailed;
    return std::memcmp(recovered, block, kRsaBytes) == 0 ? Outcome::kDone : Outcome::kFailed;
  }

 private:
  static EVP_PKEY* Generate() {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr);
    EVP_PKEY* key = nullptr;
    BIGNUM* e = BN_new();
    if (ctx != nullptr && e != nullptr && BN_set_word(e, kRsaPublicExponent) == 1 &&
        EVP_PKEY_keygen_init(ctx) == 1 &&
        EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, static_cast<int>(kRsaBits)) == 1 &&
        EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx, e) == 1)
      EVP_PKEY_keygen(ctx, &key);
    BN_free(e);
    EVP_PKEY_CTX_free(ctx);
    return key;
  }

  bool PrepareRawContexts() {
    signCtx_ = EVP_PKEY_CTX_new(key_, nullptr);
    verifyCtx_ = EVP_PKEY_CTX_new(key_, nullptr);
    return signCtx_ != nullptr && verifyCtx_ != nullptr &&
           EVP_PKEY_decrypt_init(signCtx_) == 1 &&
           EVP_PKEY_CTX_set_rsa_padding(signCtx_, RSA_NO_PADDING) == 1 &&
           EVP_PKEY_encrypt_init(verifyCtx_) == 1 &&
           EVP_PKEY_CTX_set_rsa_padding(verifyCtx_, RSA_NO_PADDING) == 1;
  }

  EVP_CIPHER_CTX* tdes_ = nullptr;
  EVP_PKEY* key_ = nullptr;
  EVP_PKEY_CTX* signCtx_ = nullptr;
  EVP_PKEY_CTX* verifyCtx_ = nullptr;
};

}  // namespace

std::unique_ptr<BenchEngine> MakePeerEngine() { return std::make_unique<OpenSslEngine>(); }

}  // namespace nivra::bench
