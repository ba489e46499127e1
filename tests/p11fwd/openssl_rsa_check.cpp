#include "tests/p11fwd/openssl_rsa_check.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include <memory>

namespace nivra::p11test {
namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const { Free(p); }
};
using BnPtr = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX, EVP_MD_CTX_free>>;
using BldPtr = std::unique_ptr<OSSL_PARAM_BLD, Deleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
using ParamPtr = std::unique_ptr<OSSL_PARAM, Deleter<OSSL_PARAM, OSSL_PARAM_free>>;

BnPtr Number(const std::vector<uint8_t>& bytes) {
  return BnPtr(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}

PkeyPtr PublicKey(const std::vector<uint8_t>& modulus, const std::vector<uint8_t>& exponent) {
  BnPtr n = Number(modulus);
  BnPtr e = Number(exponent);
  BldPtr builder(OSSL_PARAM_BLD_new());
  if (!n || !e || !builder || !OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get()) ||
      !OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get()))
    return nullptr;
  ParamPtr params(OSSL_PARAM_BLD_to_param(builder.get()));
  PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) != 1 ||
      EVP_PKEY_fromdata(ctx.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1)
    return nullptr;
  return PkeyPtr(key);
}

}  // namespace

bool OpenSslVerifiesSha256(const std::vector<uint8_t>& modulus, const std::vector<uint8_t>& exponent,
                           const std::vector<uint8_t>& message, const std::vector<uint8_t>& signature) {
  PkeyPtr key = PublicKey(modulus, exponent);
  MdCtxPtr md(EVP_MD_CTX_new());
  if (!key || !md ||
      EVP_DigestVerifyInit(md.get(), nullptr, EVP_sha256(), nullptr, key.get()) != 1)
    return false;
  return EVP_DigestVerify(md.get(), signature.data(), signature.size(), message.data(),
                          message.size()) == 1;
}

}  // namespace nivra::p11test
