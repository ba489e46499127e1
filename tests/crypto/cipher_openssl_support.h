// OpenSSL as the independent peer of the cipher tests: EVP for whole messages (DES, two-key and
// three-key TDEA in ECB and CBC) and the low-level DES block functions for compositions the EVP
// interface does not offer (CTR, the MACs).
#pragma once
#define OPENSSL_SUPPRESS_DEPRECATED  // DES_* block functions are deprecated but present
#include <gtest/gtest.h>
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <cstring>

#include "cipher_test_support.h"

namespace nivra::testing {

// The EVP cipher for a DES key of keyLen bytes (8, 16 or 24). Single DES lives in OpenSSL's
// legacy provider, which is loaded (with the default provider) on first use.
inline const EVP_CIPHER* EvpDes(size_t keyLen, bool cbc) {
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
  switch (keyLen) {
    case 8:
      return cbc ? EVP_des_cbc() : EVP_des_ecb();
    case 16:
      return cbc ? EVP_des_ede_cbc() : EVP_des_ede_ecb();
    default:
      return cbc ? EVP_des_ede3_cbc() : EVP_des_ede3_ecb();
  }
}

// One whole message through OpenSSL; PKCS#7 padding when pkcs7, none otherwise.
inline Bytes EvpMessage(const Bytes& key, bool cbc, const Bytes& iv, const Bytes& in, bool encrypt,
                        bool pkcs7) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  Bytes out(in.size() + 16);
  int n = 0, m = 0;
  bool ok = ctx != nullptr &&
            EVP_CipherInit_ex(ctx, EvpDes(key.size(), cbc), nullptr, key.data(), cbc ? iv.data() : nullptr,
                              encrypt ? 1 : 0) == 1 &&
            EVP_CIPHER_CTX_set_padding(ctx, pkcs7 ? 1 : 0) == 1 &&
            EVP_CipherUpdate(ctx, out.data(), &n, in.data(), static_cast<int>(in.size())) == 1 &&
            EVP_CipherFinal_ex(ctx, out.data() + n, &m) == 1;
  EVP_CIPHER_CTX_free(ctx);
  EXPECT_TRUE(ok) << "OpenSSL refused the message";
  out.resize(ok ? static_cast<size_t>(n + m) : 0);
  return out;
}

// DES and TDEA single-block operations built from OpenSSL's DES key schedules.
class OpenSslDes {
 public:
  // key: 8, 16 or 24 bytes; a 16-byte key reuses K1 as K3.
  explicit OpenSslDes(const Bytes& key) : count_(key.size() / 8) {
    for (size_t i = 0; i < count_; ++i) {
      DES_cblock k;
      std::memcpy(k, key.data() + 8 * i, 8);
      DES_set_key_unchecked(&k, &ks_[i]);
    }
  }
  Bytes Single(size_t keyIndex, const Bytes& block, bool encrypt) const {
    DES_cblock in, out;
    std::memcpy(in, block.data(), 8);
    DES_ecb_encrypt(&in, &out, const_cast<DES_key_schedule*>(&ks_[keyIndex]), encrypt ? DES_ENCRYPT : DES_DECRYPT);
    return Bytes(out, out + 8);
  }
  // The full cipher by key count.
  Bytes Full(const Bytes& block, bool encrypt) const {
    if (count_ == 1) return Single(0, block, encrypt);
    DES_cblock in, out;
    std::memcpy(in, block.data(), 8);
    auto* k = const_cast<DES_key_schedule*>(ks_);
    DES_ecb3_encrypt(&in, &out, &k[0], &k[1], count_ == 3 ? &k[2] : &k[0], encrypt ? DES_ENCRYPT : DES_DECRYPT);
    return Bytes(out, out + 8);
  }

 private:
  size_t count_;
  DES_key_schedule ks_[3];
};

}  // namespace nivra::testing
