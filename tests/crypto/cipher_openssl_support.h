// OpenSSL as the independent peer of the cipher tests: EVP for whole messages (DES, two-key and
// three-key TDEA in ECB and CBC) and for single blocks, from which the tests compose what the EVP
// interface does not offer (CTR, the MACs).
#pragma once
#include <openssl/evp.h>
#include <openssl/provider.h>

#include "test_support.h"

namespace nivra::testing {

// One whole message through OpenSSL; PKCS#7 padding when pkcs7, none otherwise. The key length
// (8, 16 or 24) chooses DES, two-key or three-key TDEA; single DES lives in OpenSSL's legacy
// provider, which is loaded (with the default provider) on first use and unloaded at exit.
inline Bytes EvpMessage(const Bytes& key, bool cbc, const Bytes& iv, const Bytes& in, bool encrypt, bool pkcs7) {
  struct Providers {
    OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    OSSL_PROVIDER* standard = OSSL_PROVIDER_load(nullptr, "default");
    ~Providers() {
      if (legacy != nullptr) OSSL_PROVIDER_unload(legacy);
      if (standard != nullptr) OSSL_PROVIDER_unload(standard);
    }
  };
  static const Providers providers;
  EXPECT_TRUE(providers.legacy != nullptr && providers.standard != nullptr);
  const EVP_CIPHER* cipher = key.size() == 8    ? (cbc ? EVP_des_cbc() : EVP_des_ecb())
                             : key.size() == 16 ? (cbc ? EVP_des_ede_cbc() : EVP_des_ede_ecb())
                                                : (cbc ? EVP_des_ede3_cbc() : EVP_des_ede3_ecb());
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  Bytes out(in.size() + 16);
  int n = 0, m = 0;
  const bool ok = ctx != nullptr &&
                  EVP_CipherInit_ex(ctx, cipher, nullptr, key.data(), cbc ? iv.data() : nullptr, encrypt) == 1 &&
                  EVP_CIPHER_CTX_set_padding(ctx, pkcs7) == 1 &&
                  EVP_CipherUpdate(ctx, out.data(), &n, in.data(), static_cast<int>(in.size())) == 1 &&
                  EVP_CipherFinal_ex(ctx, out.data() + n, &m) == 1;
  EVP_CIPHER_CTX_free(ctx);
  EXPECT_TRUE(ok) << "OpenSSL refused the message";
  out.resize(ok ? static_cast<size_t>(n + m) : 0);
  return out;
}

// One block through OpenSSL's DES, two-key or three-key TDEA (by the key's length) in ECB.
inline Bytes EvpBlock(const Bytes& key, const Bytes& block, bool encrypt = true) {
  return EvpMessage(key, false, {}, block, encrypt, false);
}

// Key i (0 to 2) of a multi-key TDEA key.
inline Bytes KeyPart(const Bytes& key, size_t i) { return Bytes(key.begin() + 8 * i, key.begin() + 8 * i + 8); }

}  // namespace nivra::testing
